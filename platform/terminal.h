// What a command-line program asks of its terminal. Compiled into the tool as well: it is no part of the library's
// interface.
#pragma once

namespace qv::platform {

/// Standard error is somebody's terminal.
bool errorIsTerminal();

}  // namespace qv::platform
