// The values of a recording's frames, whatever they are stored as.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "recording.h"

namespace tool {

/// Fails with a sentence unless the recording has that frame, of an element type with an arithmetic of its own.
void requireFrame(const Recording& recording, uint32_t frame);

/// One frame, row by row from the top, as T: float or double.
template <class T>
std::vector<T> frameValues(const Recording& recording, FrameReader& reader, uint32_t frame) {
    const Layout& layout = recording.layout();
    std::vector<std::byte> bytes(layout.frameBytes());
    reader.read(frame, bytes.data());
    std::vector<T> values(layout.pixels());
    constexpr qv::EDataType type = sizeof(T) == 4 ? qv::EDataType::flt32 : qv::EDataType::flt64;
    qv::ConvertArray({values.data(), type}, {bytes.data(), layout.type}, layout.pixels());
    return values;
}

/// A recording of one frame of another one: its header, and the frame. Fails with a sentence.
qv::TSharedPtr<qv::IFile> recordingOfFrame(const Recording& recording, uint32_t frame);

}  // namespace tool
