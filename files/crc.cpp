#include "qv/crc.h"

#include <zlib.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <mutex>

namespace qv {

namespace {

/// Bytes that one step takes in: table k gives what a byte does to the remainder when k more bytes follow it.
constexpr uint32_t slices = 16;
using Tables = std::array<std::array<uint32_t, 256>, slices>;

constexpr uint32_t reversed(uint32_t value) {
    uint32_t result = 0;
    for (int bit = 0; bit < 32; ++bit) result |= (value >> bit & 1u) << (31 - bit);
    return result;
}

constexpr Tables tablesFor(uint32_t polynomial) {
    Tables tables{};
    for (uint32_t index = 0; index < 256; ++index) {
        uint32_t remainder = reversed(index);
        for (int step = 0; step < 8; ++step) remainder = remainder << 1 ^ (remainder >> 31 != 0 ? polynomial : 0u);
        tables[0][index] = reversed(remainder);
    }
    for (size_t k = 1; k < slices; ++k) {
        for (size_t index = 0; index < 256; ++index) {
            const uint32_t before = tables[k - 1][index];
            tables[k][index] = before >> 8 ^ tables[0][before & 0xFF];
        }
    }
    return tables;
}

constinit Tables tables = tablesFor(crc32Polynomial);
constinit std::atomic<uint32_t> tablesPolynomial = crc32Polynomial;

/// Four bytes, the first of them lowest.
uint32_t loadWord(const unsigned char* bytes) {
    uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
    return word;
}

/// What a word does to the remainder when `following` bytes of the step follow it.
uint32_t fold(uint32_t word, size_t following) {
    return tables[following + 3][word & 0xFF] ^ tables[following + 2][word >> 8 & 0xFF] ^
           tables[following + 1][word >> 16 & 0xFF] ^ tables[following][word >> 24];
}

}  // namespace

void InitCRC32Table(uint32_t polynomial) {
    static std::mutex filling;
    if (tablesPolynomial.load(std::memory_order_acquire) == polynomial) return;
    const std::lock_guard lock(filling);
    if (tablesPolynomial.load(std::memory_order_relaxed) == polynomial) return;
    tables = tablesFor(polynomial);
    tablesPolynomial.store(polynomial, std::memory_order_release);
}

uint32_t InitCRC32() { return 0xFFFFFFFFu; }

uint32_t CalcBlockCRC32(const unsigned char* data, uint32_t size) {
    return FiniCRC32(CalcMultBlockCRC32(data, size, InitCRC32()));
}

uint32_t CalcMultBlockCRC32(const unsigned char* data, uint32_t size, uint32_t crc) {
    if (data == nullptr) return crc;
    if (tablesPolynomial.load(std::memory_order_acquire) == crc32Polynomial) {
        return ~static_cast<uint32_t>(crc32_z(~crc, data, size));  // several streams at once, twice as fast
    }
    for (; size >= slices; size -= slices, data += slices) {
        crc = fold(loadWord(data) ^ crc, 12) ^ fold(loadWord(data + 4), 8) ^ fold(loadWord(data + 8), 4) ^
              fold(loadWord(data + 12), 0);
    }
    for (; size != 0; --size, ++data) crc = crc >> 8 ^ tables[0][(crc ^ *data) & 0xFF];
    return crc;
}

uint32_t FiniCRC32(uint32_t crc) { return ~crc; }

}  // namespace qv
