// Copies of a file's contents, as the subcommands make them.
#pragma once

#include <string>

#include "command.h"
#include "qv/file.h"

namespace tool {

/// What to say of a source that does not give all its bytes.
struct Shortfall {
    Exit exitCode = Exit::io;
    const char* sentence = "cannot be read";
};

/// Copies the whole contents of a file behind what is written already, with a progress bar; `from` and `to` are for the
/// sentences. Fails with one.
void copyContents(qv::IFile& in, qv::IFile& out, const std::string& from, const std::string& to,
                  const Shortfall& shortfall = {});

}  // namespace tool
