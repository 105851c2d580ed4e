// The byte layout of structured binary files, as reader and writer share it. See qv/sb_file.h for the whole of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "qv/sb_file.h"

namespace qv::Private::sbf {

inline constexpr char magic[3] = {'S', 'B', 'F'};
inline constexpr uint8_t majorVersion = 1;
inline constexpr uint8_t minorVersion = 0;

inline constexpr size_t versionAt = 3;
inline constexpr size_t identifierAt = 4;
inline constexpr size_t lengthAt = 8;
inline constexpr size_t headerBytes = 16;
inline constexpr size_t checksumBytes = 4;
inline constexpr size_t longestVarint = 5;

// Flags beside an element's name, and where the name's index begins.
inline constexpr uint32_t hasNextFlag = 1;
inline constexpr uint32_t hasChildrenFlag = 2;
inline constexpr uint32_t nameShift = 2;
inline constexpr uint32_t maxNames = 1u << (32 - nameShift);

inline constexpr uint32_t anyLength = ~uint32_t{0};
/// The payload's length in bytes, anyLength where it stands before the payload; none for a type that cannot be stepped
/// over.
constexpr std::optional<uint32_t> payloadBytes(uint8_t type) {
    const uint32_t form = type >> 4;
    if (form <= 8) return form;
    if (form == 9) return 16;
    if (form == 10) return anyLength;
    return {};
}

/// Least bytes that an attribute takes: name and type.
inline constexpr uint32_t shortestAttribute = 2;

inline bool isIdentifier(const char* text) {
    for (int i = 0; i < 4; ++i) {
        if (text[i] < 0x20 || text[i] > 0x7E) return false;
    }
    return true;
}

/// Numbers of the file, the lowest byte first.
template <class T>
T loadNumber(const uint8_t* bytes) {
    T value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) value |= static_cast<T>(T{bytes[i]} << (8 * i));
    return value;
}
template <class T>
void storeNumber(T value, uint8_t* bytes) {
    for (size_t i = 0; i < sizeof(T); ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace qv::Private::sbf
