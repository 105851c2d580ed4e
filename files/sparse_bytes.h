// The contents of a file in memory: blocks of 1 MiB, of which those that were never written do not exist.
#pragma once

#include <cstdint>
#include <map>

namespace qv::Private {

/// Bytes with a 64-bit size. What was never written reads as 0 and takes no memory.
/// The first block grows by doubling, so that small files stay small; no other block is ever copied.
class SparseBytes {
public:
    SparseBytes() = default;
    SparseBytes(const SparseBytes&) = delete;
    SparseBytes& operator=(const SparseBytes&) = delete;
    ~SparseBytes();

    int64_t size() const { return m_size; }
    /// The bytes copied: less than `count` at the end of the data. REQUIRES: at >= 0.
    uint32_t read(int64_t at, void* data, uint32_t count) const;
    /// The bytes taken: less than `count` without memory, or where the size would pass 2^63 - 1.
    uint32_t write(int64_t at, const void* data, uint32_t count);
    /// Cuts, or lengthens by zeros. REQUIRES: size >= 0.
    void resize(int64_t size);

private:
    struct Block {
        uint8_t* data = nullptr;
        uint32_t capacity = 0;
        uint32_t written = 0;  // Bytes below this have a value; those above are raw memory and stand for zeros.
    };
    static bool reserve(Block& block, uint32_t bytes, bool isFirst);
    bool writeBlock(int64_t index, uint32_t offset, const uint8_t* data, uint32_t count);

    std::map<int64_t, Block> m_blocks;
    int64_t m_size = 0;
};

}  // namespace qv::Private
