// The formats, as the functions that take any picture use them.
#pragma once

#include "qv/image.h"

namespace qv::Private {

// Each reads the header of a picture that begins at the file's beginning. False, without a diagnostic, when the file is
// none of the kind.
bool readBMPInfo(IFile& file, SImageInfo& info);
bool readPNGInfo(IFile& file, SImageInfo& info);
bool readJPEGInfo(IFile& file, SImageInfo& info);
bool readTIFFInfo(IFile& file, SImageInfo& info);

}  // namespace qv::Private
