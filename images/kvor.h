// The segments that carry a measurement in a JPEG file: docs/formats/radiometric_jpeg.md.
#pragma once

#include <cstdint>
#include <cstring>

#include "qv/file.h"

namespace qv::Private::kvor {

constexpr uint8_t marker = 0xE1;  ///< APP1
constexpr uint8_t name[4] = {'K', 'V', 'O', 'R'};
constexpr uint32_t headerBytes = 8, dataBytes = 65524, segmentBytes = headerBytes + dataBytes;
constexpr uint32_t indexAt = 6, lastIndexAt = 7;

/// Whether the contents of an APP1 segment are a piece of a measurement.
inline bool isSegment(const uint8_t* contents, uint32_t size) {
    return size >= sizeof name && std::memcmp(contents, name, sizeof name) == 0;
}
/// Bytes of measurement in a segment's contents.
constexpr uint32_t dataIn(uint32_t size) { return size > headerBytes ? size - headerBytes : 0; }

constexpr uint64_t segmentsFor(uint64_t payloadBytes) { return (payloadBytes + dataBytes - 1) / dataBytes; }

/// Cuts a payload into the contents of segments.
/// REQUIRES: nothing else moves the payload meanwhile. Has no destructor.
struct Cutter {
    IFile* payload = nullptr;
    uint64_t left = 0;
    uint64_t index = 0;
    uint64_t count = 0;
    uint8_t contents[segmentBytes];

    /// Begins at the payload's beginning.
    void begin(IFile& file);
    /// Bytes of the next segment's contents; 0 behind the last one. `failed` is set when the payload came short.
    uint32_t next(bool& failed) noexcept;
};

}  // namespace qv::Private::kvor
