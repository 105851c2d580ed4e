// Names with variables: the patterns of the tag dictionary.
#pragma once

#include <cstdint>

#include "qv/array.h"

namespace qv {

/// Whether `name` is the name that `pattern` describes, without regard to case. In a pattern "%n%" with a decimal n
/// stands for exactly n digits that no further digit follows, and percent signs around anything else for one or more.
bool matchesTagPattern(const char16_t* pattern, const char16_t* name);

/// Appends the value of each variable of `pattern` as it stands in `name`, whose literal text is not checked.
/// False when a percent sign has no partner; what stood before it has been appended.
bool tagVariables(const char16_t* pattern, const char16_t* name, TArray<int32_t>& values);

}  // namespace qv
