// The fields of headers and records as bytes.
#pragma once

#include <cstdint>
#include <cstring>

namespace qv::Private::indexed {

inline constexpr uint32_t magicBytes = 4;
inline constexpr uint32_t headerBytes = 64;
inline constexpr uint32_t recordBytes = 32;
/// By how many slots a full table grows; a new file has as many.
inline constexpr uint32_t slotsPerStep = 4;

/// How the file of a container is opened: existing, for reading or for both.
constexpr uint32_t flagsFor(bool readOnly) { return readOnly ? 0x12 : 0x32; }

/// Takes fields one behind the other; the caller knows that they are there.
class FieldReader {
public:
    FieldReader(const uint8_t* at, bool bigEndian) : m_at(at), m_bigEndian(bigEndian) {}
    const uint8_t* skip(uint32_t count) {
        const uint8_t* const here = m_at;
        m_at += count;
        return here;
    }
    uint16_t half() { return static_cast<uint16_t>(number(2)); }
    uint32_t word() { return number(4); }

private:
    uint32_t number(uint32_t width) {
        const uint8_t* const bytes = skip(width);
        uint32_t value = 0;
        for (uint32_t i = 0; i < width; ++i) value = value << 8 | bytes[m_bigEndian ? i : width - 1 - i];
        return value;
    }

    const uint8_t* m_at;
    bool m_bigEndian;
};

/// Puts fields one behind the other, big-endian.
class FieldWriter {
public:
    explicit FieldWriter(uint8_t* at) : m_at(at) {}
    void skip(uint32_t count) { m_at += count; }
    void bytes(const void* from, uint32_t count) {
        std::memcpy(m_at, from, count);
        m_at += count;
    }
    void half(uint16_t value) {
        *m_at++ = static_cast<uint8_t>(value >> 8);
        *m_at++ = static_cast<uint8_t>(value);
    }
    void word(uint32_t value) {
        half(static_cast<uint16_t>(value >> 16));
        half(static_cast<uint16_t>(value));
    }

private:
    uint8_t* m_at;
};

}  // namespace qv::Private::indexed
