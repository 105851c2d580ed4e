// Frames from pictures: 16-bit grey PNG files, and stacks of TIFF pages.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "recording.h"

namespace tool {

/// Looks at the pictures and tells the layout of the frames that are in them, which is that of all. Fails with a
/// sentence.
Layout layoutOfPictures(const std::vector<std::string>& paths);

/// Hands on the frames in their order, each layout.frameBytes() long. Fails with a sentence.
void readPictures(const std::vector<std::string>& paths, const Layout& layout,
                  const std::function<void(const void*)>& take);

}  // namespace tool
