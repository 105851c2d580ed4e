// Numbers as Fortran programs print them.
#pragma once

#include <cstddef>
#include <string_view>

namespace qv::Private {

/// The decimal number that `text` begins with: as strtod reads it in the C locale, and beyond that with the exponent
/// letter D ("1.0D-05") or, where the exponent needs three digits, with none ("1.2345-100"). `used` receives the units
/// read, 0 when there is no number; the value is 0.0 then.
double fortranNumber(std::string_view text, size_t& used);

}  // namespace qv::Private
