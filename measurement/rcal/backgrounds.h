// Background pictures of pages, and the files that hold them.
#pragma once

#include "qv/file.h"
#include "qv/rcal_file.h"

namespace qv::rcalBackground {

/// The pixels are there, of the type and number that the record states.
bool hasItsPixels(const BACKGROUND_FILE& picture);

/// Writes a picture with its header at the file's position. False leaves a diagnostic.
bool save(const BACKGROUND_FILE& picture, IFile& file);
/// Reads a picture with its header from the file's position, and leaves the position behind it. False leaves a
/// diagnostic.
bool load(BACKGROUND_FILE& picture, const TSharedPtr<IFile>& file);

}  // namespace qv::rcalBackground
