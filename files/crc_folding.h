// Long blocks of a CRC by carry-less multiplication, where the processor has it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qv::Private::crc {

/// Replaces the beginning of a block by 16 bytes that have the same remainder.
/// @param start  The remainder so far, in the order of the CRC's bytes, padded with zeros, which is added
///               to the first bytes.
/// @param rest   The 16 bytes, whose remainder goes on from 0.
/// @return  How many bytes of the block they stand for, a multiple of 16; 0, with `rest` untouched, when the block is
///          too short or the processor too old.
size_t foldReflected32(const uint8_t* data, size_t size, const uint8_t (&start)[16], uint8_t (&rest)[16]);
/// The same for the polynomial 0x1021, most significant bit first.
size_t foldStraight16(const uint8_t* data, size_t size, const uint8_t (&start)[16], uint8_t (&rest)[16]);

}  // namespace qv::Private::crc
