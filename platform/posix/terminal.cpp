#include "platform/terminal.h"

#include <unistd.h>

namespace qv::platform {

bool errorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

}  // namespace qv::platform
