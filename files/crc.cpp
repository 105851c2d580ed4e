#include "qv/crc.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <mutex>

#include "files/crc_folding.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

/// Bytes that one step takes in: table k gives what a byte does to the remainder when k more bytes follow it.
constexpr uint32_t slices = 16;
template <class Word>
using Tables = std::array<std::array<Word, 256>, slices>;

constexpr uint32_t reversed(uint32_t value) {
    uint32_t result = 0;
    for (int bit = 0; bit < 32; ++bit) result |= (value >> bit & 1u) << (31 - bit);
    return result;
}

constexpr Tables<uint32_t> tablesOf32(uint32_t polynomial) {
    Tables<uint32_t> tables{};
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

constexpr Tables<uint16_t> tablesOf16() {
    Tables<uint16_t> tables{};
    for (uint32_t index = 0; index < 256; ++index) {
        uint32_t remainder = index << 8;
        for (int step = 0; step < 8; ++step) remainder = remainder << 1 ^ (remainder >> 15 != 0 ? 0x11021u : 0u);
        tables[0][index] = static_cast<uint16_t>(remainder);
    }
    for (size_t k = 1; k < slices; ++k) {
        for (size_t index = 0; index < 256; ++index) {
            const uint32_t before = tables[k - 1][index];
            tables[k][index] = static_cast<uint16_t>(before << 8 ^ tables[0][before >> 8]);
        }
    }
    return tables;
}

constinit Tables<uint32_t> tables32 = tablesOf32(crc32Polynomial);
constinit std::atomic<uint32_t> polynomialOf32 = crc32Polynomial;
constexpr Tables<uint16_t> tables16 = tablesOf16();

/// Four bytes, the first of them lowest.
uint32_t loadWord(const unsigned char* bytes) {
    uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap32(word);
    return word;
}

/// What a word does to the remainder when `following` bytes of the step follow it.
uint32_t fold(uint32_t word, size_t following) {
    return tables32[following + 3][word & 0xFF] ^ tables32[following + 2][word >> 8 & 0xFF] ^
           tables32[following + 1][word >> 16 & 0xFF] ^ tables32[following][word >> 24];
}

uint32_t byTables(const unsigned char* data, size_t size, uint32_t crc) {
    for (; size >= slices; size -= slices, data += slices) {
        crc = fold(loadWord(data) ^ crc, 12) ^ fold(loadWord(data + 4), 8) ^ fold(loadWord(data + 8), 4) ^
              fold(loadWord(data + 12), 0);
    }
    for (; size != 0; --size, ++data) crc = crc >> 8 ^ tables32[0][(crc ^ *data) & 0xFF];
    return crc;
}

uint16_t byTables(const unsigned char* data, size_t size, uint16_t crc) {
    for (; size >= slices; size -= slices, data += slices) {
        uint32_t next = tables16[15][data[0] ^ crc >> 8] ^ tables16[14][data[1] ^ (crc & 0xFF)];
        for (uint32_t i = 2; i < slices; ++i) next ^= tables16[slices - 1 - i][data[i]];
        crc = static_cast<uint16_t>(next);
    }
    for (; size != 0; --size, ++data) crc = static_cast<uint16_t>(crc << 8 ^ tables16[0][crc >> 8 ^ *data]);
    return crc;
}

/// Reads to the end and hands each chunk to `take`. False when less came than the file says to hold.
template <class Take>
bool readToEnd(IFile& file, Take take) {
    constexpr uint32_t chunkBytes = 0x80000;
    TSimpleArray<uint8_t> chunk;
    if (!chunk.SetSize(chunkBytes)) return false;
    int64_t left = file.GetRemaining();
    for (uint32_t got = chunkBytes; got == chunkBytes;) {
        got = file.Read(chunk.data(), chunkBytes);
        take(chunk.data(), got);
        left -= got;
    }
    if (left <= 0) return true;
    SetDiagnostic(CString(), CString::FromFormat(u"%I64d more bytes", left), u"the end of the data",
                  file.GetPosition());
    return false;
}

template <class Crc>
bool ofPath(Crc& crc, IFileSystem* fileSystem, const CString& path, bool (*calculate)(Crc&, TSharedPtr<IFile>)) {
    crc = 0;
    if (fileSystem == nullptr) return false;
    const TSharedPtr<IFile> file = fileSystem->CreateFileW(path.c_str(), CFile::openExisting | CFile::accessRead);
    if (!file) return false;
    if (calculate(crc, file)) return true;
    SetDiagnosticFile(path);
    return false;
}

}  // namespace

uint16_t CalcBlockCRC16(const unsigned char* data, uint32_t size) { return CalcMultBlockCRC16(data, size, 0); }

uint16_t CalcMultBlockCRC16(const unsigned char* data, uint32_t size, uint16_t crc) {
    if (data == nullptr) return crc;
    const uint8_t start[16] = {static_cast<uint8_t>(crc >> 8), static_cast<uint8_t>(crc)};
    uint8_t rest[16];
    const size_t folded = Private::crc::foldStraight16(data, size, start, rest);
    if (folded != 0) crc = byTables(rest, sizeof rest, uint16_t{0});
    return byTables(data + folded, size - folded, crc);
}

uint16_t FiniCRC16(uint16_t crc) { return crc; }

void InitCRC32Table(uint32_t polynomial) {
    static std::mutex filling;
    if (polynomialOf32.load(std::memory_order_acquire) == polynomial) return;
    const std::lock_guard lock(filling);
    if (polynomialOf32.load(std::memory_order_relaxed) == polynomial) return;
    tables32 = tablesOf32(polynomial);
    polynomialOf32.store(polynomial, std::memory_order_release);
}

uint32_t InitCRC32() { return 0xFFFFFFFFu; }

uint32_t CalcBlockCRC32(const unsigned char* data, uint32_t size) {
    return FiniCRC32(CalcMultBlockCRC32(data, size, InitCRC32()));
}

uint32_t CalcMultBlockCRC32(const unsigned char* data, uint32_t size, uint32_t crc) {
    if (data == nullptr) return crc;
    size_t folded = 0;
    if (polynomialOf32.load(std::memory_order_acquire) == crc32Polynomial) {
        const uint8_t start[16] = {static_cast<uint8_t>(crc), static_cast<uint8_t>(crc >> 8),
                                   static_cast<uint8_t>(crc >> 16), static_cast<uint8_t>(crc >> 24)};
        uint8_t rest[16];
        folded = Private::crc::foldReflected32(data, size, start, rest);
        if (folded != 0) crc = byTables(rest, sizeof rest, uint32_t{0});
    }
    return byTables(data + folded, size - folded, crc);
}

uint32_t FiniCRC32(uint32_t crc) { return ~crc; }

bool CalcCRC16(uint16_t& crc, TSharedPtr<IFile> file) {
    crc = 0;
    return file &&
           readToEnd(*file, [&](const uint8_t* data, uint32_t size) { crc = CalcMultBlockCRC16(data, size, crc); });
}
bool CalcCRC16(uint16_t& crc, IFileSystem* fileSystem, CString path) {
    return ofPath<uint16_t>(crc, fileSystem, path, CalcCRC16);
}

bool CalcCRC32(uint32_t& crc, TSharedPtr<IFile> file) {
    InitCRC32Table(crc32Polynomial);
    uint32_t running = InitCRC32();
    const bool read = file && readToEnd(*file, [&](const uint8_t* data, uint32_t size) {
                          running = CalcMultBlockCRC32(data, size, running);
                      });
    crc = FiniCRC32(running);
    return read;
}
bool CalcCRC32(uint32_t& crc, IFileSystem* fileSystem, CString path) {
    return ofPath<uint32_t>(crc, fileSystem, path, CalcCRC32);
}

}  // namespace qv
