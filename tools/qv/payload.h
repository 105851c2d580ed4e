// What a radiometric JPEG carries: one measurement file as it is, or several in a container.
#pragma once

#include <string>
#include <vector>

#include "qv/file.h"

namespace tool {

struct PayloadPart {
    std::string name;  ///< Of the entry, where there are several.
    qv::TSharedPtr<qv::IFile> file;
};

/// One file is the payload itself; several are put into a CDFS container in memory. Null without any. Fails with a
/// sentence.
qv::TSharedPtr<qv::IFile> payloadOf(const std::vector<PayloadPart>& parts);

/// Opens files for a payload; each gets the last part of its path as its name. Fails with a sentence.
std::vector<PayloadPart> payloadFiles(const std::vector<std::string>& paths);

}  // namespace tool
