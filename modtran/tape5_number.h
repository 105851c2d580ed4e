// Numbers in columns, by the rules of Fortran.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qv::tape5 {

/// An I field: blanks count nothing, a blank field is 0. False for anything that is no 32-bit integer.
bool readInteger(std::string_view field, int32_t& value);
/// An F or E field: a number without a point has `decimals` of them; the exponent has E, D or a sign in front. False
/// for anything that is no number, or none that a double holds.
bool readReal(std::string_view field, uint32_t decimals, double& value);

/// A number in exactly `width` columns, 9 or 10: "%10.5f" (width 10 alone) where that keeps as much of it as the
/// scientific form with an exponent of two digits, else that form. Only for finite numbers.
std::string preparedNumber(double value, size_t width);

}  // namespace qv::tape5
