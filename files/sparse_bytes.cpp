#include "files/sparse_bytes.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "qv/memory.h"

namespace qv::Private {

namespace {
constexpr uint32_t blockBytes = 1 << 20;
constexpr uint32_t smallestBlock = 256;

/// What of `count` bytes at `at` lies in the block that `at` lies in.
uint32_t partInBlock(int64_t at, uint32_t count) {
    return std::min(count, blockBytes - static_cast<uint32_t>(at % blockBytes));
}
}  // namespace

SparseBytes::~SparseBytes() { resize(0); }

uint32_t SparseBytes::read(int64_t at, void* data, uint32_t count) const {
    if (at >= m_size) return 0;
    count = static_cast<uint32_t>(std::min<int64_t>(count, m_size - at));
    auto* to = static_cast<uint8_t*>(data);
    for (uint32_t left = count; left != 0;) {
        const uint32_t part = partInBlock(at, left), offset = static_cast<uint32_t>(at % blockBytes);
        const auto found = m_blocks.find(at / blockBytes);
        const uint32_t written = found == m_blocks.end() ? 0 : found->second.written;
        const uint32_t there = std::min(part, written - std::min(written, offset));
        if (there != 0) std::memcpy(to, found->second.data + offset, there);
        if (there != part) std::memset(to + there, 0, part - there);
        at += part;
        to += part;
        left -= part;
    }
    return count;
}

uint32_t SparseBytes::write(int64_t at, const void* data, uint32_t count) {
    count = static_cast<uint32_t>(std::min<int64_t>(count, std::numeric_limits<int64_t>::max() - at));
    const auto* from = static_cast<const uint8_t*>(data);
    uint32_t done = 0;
    while (done != count) {
        const uint32_t part = partInBlock(at, count - done);
        if (!writeBlock(at / blockBytes, static_cast<uint32_t>(at % blockBytes), from + done, part)) break;
        at += part;
        done += part;
    }
    if (done != 0) m_size = std::max(m_size, at);
    return done;
}

bool SparseBytes::writeBlock(int64_t index, uint32_t offset, const uint8_t* data, uint32_t count) try {
    Block& block = m_blocks[index];
    if (!reserve(block, offset + count, index == 0)) {
        if (block.data == nullptr) m_blocks.erase(index);
        return false;
    }
    if (block.written < offset) std::memset(block.data + block.written, 0, offset - block.written);
    std::memcpy(block.data + offset, data, count);
    block.written = std::max(block.written, offset + count);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

/// False, with the block as it was, without memory.
bool SparseBytes::reserve(Block& block, uint32_t bytes, bool isFirst) {
    if (bytes <= block.capacity) return true;
    uint32_t capacity = isFirst ? std::max(block.capacity, smallestBlock) : blockBytes;
    while (capacity < bytes) capacity *= 2;
    void* grown = block.data == nullptr ? HeapAlloc(capacity) : HeapReAlloc(block.data, capacity);
    if (grown == nullptr) return false;
    block.data = static_cast<uint8_t*>(grown);
    block.capacity = capacity;
    return true;
}

void SparseBytes::resize(int64_t size) {
    const int64_t kept = size / blockBytes + (size % blockBytes != 0 ? 1 : 0);
    for (auto at = m_blocks.lower_bound(kept); at != m_blocks.end(); at = m_blocks.erase(at)) HeapFree(at->second.data);
    // What is cut off has to read as 0 when the file grows over it again.
    const auto last = m_blocks.find(size / blockBytes);
    if (last != m_blocks.end()) {
        last->second.written = std::min(last->second.written, static_cast<uint32_t>(size % blockBytes));
    }
    m_size = size;
}

}  // namespace qv::Private
