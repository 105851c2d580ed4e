// Units of parameter tables and the factors between them.
#pragma once

#include <cstdint>
#include <string_view>

namespace qv::Private {

/// The place of a unit in the table, by its long or short name in any case; -1 when it is not there.
int32_t podUnitIndex(std::u16string_view unit);

/// Brings `value` from one unit of the table into another; false when they measure different things.
bool convertPodUnit(double& value, int32_t from, int32_t to);

/// The period of a cyclic unit, also of "IRIG" (a day in seconds); 0 for others.
double podPeriod(std::u16string_view unit);
bool isIrig(std::u16string_view unit);

}  // namespace qv::Private
