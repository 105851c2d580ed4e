// Norm tables told from other files.
#pragma once

#include <string>

#include "qv/norm_file.h"

namespace tool {

struct NormKind {
    qv::CNormFile::SFileHeader header;
    bool bigEndian = false;
};

/// Whether a file is a Norm table without a doubt. The format has no mark of its own: version, type and size have to be
/// possible, the time stamp and the texts have to be text, and the file has to end where its table does, or behind
/// substitutes that are there twice.
bool isNorm(const std::string& path, NormKind& kind);

}  // namespace tool
