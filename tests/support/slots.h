// Where a virtual operation stands in the table of its interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qv::test {

/// The table index that a pointer to a virtual member function carries: the ABI stores the offset plus one. The
/// destructor has two entries.
template <class Member>
size_t slotOf(Member member) {
    uintptr_t word = 0;
    static_assert(sizeof member >= sizeof word);
    std::memcpy(&word, &member, sizeof word);
    return (word - 1) / sizeof(void*);
}

}  // namespace qv::test
