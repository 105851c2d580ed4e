// The writer of structured binary files: the tree into memory, from where it goes to its place in two large writes. It
// does not recurse.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "qv/sb_file.h"

namespace qv::Private {

/// Bytes that grow at their end.
class SbBuffer {
public:
    SbBuffer() = default;
    SbBuffer(const SbBuffer&) = delete;
    SbBuffer& operator=(const SbBuffer&) = delete;
    ~SbBuffer() { release(); }
    void release();

    /// The end, with room for `count` bytes behind it. Throws std::bad_alloc.
    uint8_t* room(size_t count) {
        if (m_capacity - m_size < count) grow(count);
        return m_data + m_size;
    }
    /// Moves the end behind what was written to room().
    void endAt(const uint8_t* end) { m_size = static_cast<size_t>(end - m_data); }
    void put(const void* bytes, size_t count);
    void putVarint(uint32_t value);

    uint8_t* data() { return m_data; }
    size_t size() const { return m_size; }

private:
    void grow(size_t count);

    uint8_t* m_data = nullptr;
    size_t m_size = 0;
    size_t m_capacity = 0;
};

/// The table of names in the order of their first use.
class SbNames {
public:
    /// The index of a name, which stays alive while this does.
    uint32_t indexOf(const CString& name) {
        // Elements share the strings of their names, so that most are known by their address.
        const char16_t* const address = name.c_str();
        Known& known = m_known[reinterpret_cast<uintptr_t>(address) / 16 % std::tuple_size_v<decltype(m_known)>];
        if (known.address != address || known.length != name.length()) known = {address, name.length(), search(name)};
        return known.index;
    }
    uint32_t size() const { return m_size; }
    /// The names as they stand in the file.
    SbBuffer& bytes() { return m_bytes; }

private:
    struct Known {
        const char16_t* address = nullptr;
        size_t length = 0;
        uint32_t index = 0;
    };
    uint32_t search(const CString& name);

    std::array<Known, 256> m_known;
    std::unordered_map<std::u16string_view, uint32_t> m_indexes;
    uint32_t m_size = 0;
    SbBuffer m_bytes;
};

class SbWriter {
public:
    explicit SbWriter(const char* identifier) : m_identifier(identifier) {}

    /// Brings a tree to the form of the file, once. False sets the diagnostic.
    bool encode(const CSBFile::CElement& root);
    /// The file that encode() made, in parts that follow each other; they live as long as this.
    using Parts = std::array<std::string_view, 2>;
    Parts parts();
    /// Writes those parts. False sets the diagnostic.
    bool write(IFile& file);

private:
    using CElement = CSBFile::CElement;
    /// Where to go on when an element's descendants are written.
    struct SAVE_HELPER {
        const CElement* next = nullptr;
        uint32_t depth = 0;
    };

    bool encodeTree(const CElement& root);
    void encodeElement(const CElement& element, bool hasNext);
    void frame();

    const char* m_identifier;
    SbNames m_names;
    SbBuffer m_front;  ///< Header and names, which are small mostly.
    SbBuffer m_elements;
};

}  // namespace qv::Private
