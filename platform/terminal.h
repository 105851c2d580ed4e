// What a command-line program asks of its terminal. Compiled into the tool as well: it is no part of the library's
// interface.
#pragma once

namespace qv::platform {

/// Standard error, standard output is somebody's terminal.
bool errorIsTerminal();
bool outputIsTerminal();

}  // namespace qv::platform
