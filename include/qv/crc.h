// Checksums: CRC-32, over one block or over a stream of blocks.
//
// One block: InitCRC32Table(crc32Polynomial), then CalcBlockCRC32. A stream: InitCRC32, CalcMultBlockCRC32 for each
// block, FiniCRC32.
#pragma once

#include <cstdint>

#include "qv/api.h"

namespace qv {

/// The polynomial of zlib and Ethernet.
inline constexpr uint32_t crc32Polynomial = 0x04C11DB7;

/// Chooses the polynomial of all CRC-32 in the process: reflected, with start value and final inversion of all bits.
/// Nothing is done when it is chosen already; crc32Polynomial is from the start. Two threads may choose it at the same
/// time, but nobody may change it while another thread calculates.
QV_API void InitCRC32Table(uint32_t polynomial);
/// The start value of a stream.
QV_API uint32_t InitCRC32();
/// The CRC of a block; 0 for an empty or null one.
QV_API uint32_t CalcBlockCRC32(const unsigned char* data, uint32_t size);
/// Continues a stream from `crc`, which comes back as it is for an empty or null block.
QV_API uint32_t CalcMultBlockCRC32(const unsigned char* data, uint32_t size, uint32_t crc);
/// The CRC of a stream that ends here.
QV_API uint32_t FiniCRC32(uint32_t crc);

}  // namespace qv
