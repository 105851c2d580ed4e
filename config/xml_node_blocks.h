// Memory for the nodes of a document, many at a time.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace qv::Private {

/// Hands out memory for nodes of one size from blocks of many. A block goes when the last of its nodes is given back,
/// which may be long after this object and on any thread. Memory that is given back is not handed out again.
template <size_t nodeSize>
class XmlNodeBlocks {
public:
    XmlNodeBlocks() = default;
    XmlNodeBlocks(const XmlNodeBlocks&) = delete;
    XmlNodeBlocks& operator=(const XmlNodeBlocks&) = delete;
    ~XmlNodeBlocks() { giveBack(m_block, m_left); }

    void* allocate() {
        if (m_left == 0) add();
        --m_left;
        Slot* const slot = m_next++;
        slot->block = m_block;
        return slot->node;
    }
    /// Memory of any size outside the blocks.
    static void* allocateAlone(size_t size) {
        auto* const slot = static_cast<Slot*>(::operator new(offsetof(Slot, node) + size));
        slot->block = nullptr;
        return slot->node;
    }
    /// Takes back what either function gave.
    static void free(void* node) noexcept {
        auto* const slot = reinterpret_cast<Slot*>(static_cast<std::byte*>(node) - offsetof(Slot, node));
        Block* const block = slot->block;
        if (block == nullptr) {
            ::operator delete(slot);
            return;
        }
#if defined(__SANITIZE_ADDRESS__)
        ASAN_POISON_MEMORY_REGION(slot, sizeof(Slot));
#endif
        giveBack(block, 1);
    }

private:
    /// Documents are small or large, so blocks double. The C library keeps freed strings in lists until 64 KiB and more
    /// are freed at once, and merges them then: the largest blocks make it do so while they are in the cache.
    static constexpr size_t fewest = 20, most = 640;

    struct Block {
        explicit Block(size_t nodes) : left(nodes) {}
        alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) std::atomic<size_t> left;  ///< Nodes that are not given back.
    };
    struct Slot {
        Block* block;
        alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) std::byte node[nodeSize];
    };

    void add() {
        m_block = ::new (::operator new(sizeof(Block) + m_nodes * sizeof(Slot))) Block(m_nodes);
        m_next = reinterpret_cast<Slot*>(m_block + 1);
        m_left = m_nodes;
        m_nodes = std::min(m_nodes * 2, most);
    }
    static void giveBack(Block* block, size_t nodes) noexcept {
        if (nodes != 0 && (block->left.load(std::memory_order_acquire) == nodes ||
                           block->left.fetch_sub(nodes, std::memory_order_acq_rel) == nodes)) {
            ::operator delete(block);
        }
    }

    Block* m_block = nullptr;
    Slot* m_next = nullptr;
    size_t m_left = 0;  ///< Nodes of m_block that are not handed out; without any the block may have gone.
    size_t m_nodes = fewest;
};

}  // namespace qv::Private
