// A run as the lines of a deck.
#pragma once

#include <string>

#include "modtran/tape5_table.h"

namespace qv::tape5 {

/// Appends the lines of the blocks that `part` has (or, with `inverted`, of those that it has not). False with a
/// reason where a value does not fit its columns or has none.
bool write(const RUN& run, uint8_t part, bool inverted, std::string& out, CString& reason);

/// The first option code that is not legal; empty when all are.
CString firstIllegal(const RUN& run);

}  // namespace qv::tape5
