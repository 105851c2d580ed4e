// The binary form of a calibration.
#pragma once

#include "measurement/rcal/document.h"
#include "qv/file.h"

namespace qv::rcalBinary {

/// The file begins as the binary form does: "RCAL" in bytes 4 to 7. REQUIRES: 8 bytes.
bool isBinary(const char* first);
/// The version behind the first 8 bytes: accepted is 0 or less.
bool readVersion(IFile& file);

/// Reads what follows those 8 bytes. Numbers are big-endian when the file swaps. False leaves a diagnostic, and the
/// document in any state.
bool load(CRCalFile::Document& document, IFile& file);
/// Writes the whole form at the file's position; the document stays as it is. False leaves a diagnostic.
bool save(CRCalFile::Document& document, IFile& file);

}  // namespace qv::rcalBinary
