#include "measurement/sb_writer.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "core/text.h"
#include "measurement/sb_format.h"
#include "qv/diagnostic.h"
#include "qv/memory.h"

namespace qv::Private {

namespace {

using namespace sbf;

uint8_t* encodeVarint(uint32_t value, uint8_t* to) {
    for (; value >= 0x80; value >>= 7) *to++ = static_cast<uint8_t>(value | 0x80);
    *to++ = static_cast<uint8_t>(value);
    return to;
}

bool writeAll(IFile& file, std::string_view bytes) {
    constexpr size_t atOnce = 0x40000000;
    while (!bytes.empty()) {
        const std::string_view part = bytes.substr(0, atOnce);
        if (!file.WriteBytes(part.data(), static_cast<uint32_t>(part.size()))) return false;
        bytes.remove_prefix(part.size());
    }
    return true;
}

}  // namespace

void SbBuffer::release() {
    HeapFree(m_data);
    m_data = nullptr;
    m_size = m_capacity = 0;
}

void SbBuffer::grow(size_t count) {
    const size_t capacity = std::max(m_size + count, m_capacity + m_capacity / 2 + 4096);
    void* const grown = m_data == nullptr ? HeapAlloc(capacity) : HeapReAlloc(m_data, capacity);
    if (grown == nullptr) throw std::bad_alloc();
    m_data = static_cast<uint8_t*>(grown);
    m_capacity = capacity;
}

void SbBuffer::put(const void* bytes, size_t count) {
    uint8_t* const to = room(count);
    if (count != 0) std::memcpy(to, bytes, count);
    endAt(to + count);
}

void SbBuffer::putVarint(uint32_t value) { endAt(encodeVarint(value, room(longestVarint))); }

uint32_t SbNames::search(const CString& name) {
    const auto [at, isNew] = m_indexes.try_emplace(name.view(), m_size);
    if (isNew) {
        const std::string utf8 = text::toUtf8(name.view());
        if (m_size == maxNames || utf8.size() > 0xFFFFFFFFu) throw std::bad_alloc();
        m_bytes.putVarint(static_cast<uint32_t>(utf8.size()));
        m_bytes.put(utf8.data(), utf8.size());
        ++m_size;
    }
    return at->second;
}

bool SbWriter::encode(const CElement& root) {
    try {
        if (!encodeTree(root)) return false;
        frame();
        return true;
    } catch (const std::bad_alloc&) {
        m_elements.release();  // the diagnostic takes memory, too
        SetDiagnostic(CString(), u"memory for the file", u"none");
        return false;
    }
}

bool SbWriter::encodeTree(const CElement& root) {
    TStack<SAVE_HELPER> waiting;
    waiting.SetGrowthRate(Private::doublingRate);
    SAVE_HELPER at{&root, 1};
    for (bool more = true; more;) {
        const CElement& element = *at.next;
        const CElement* const next = &element == &root ? nullptr : element.Next();
        encodeElement(element, next != nullptr);
        if (element.HasChildren()) {
            if (at.depth == CSBFile::maxDepth) {
                SetDiagnostic(CString(), u"no more than 16777216 levels", u"a deeper tree");
                return false;
            }
            if (next != nullptr && !waiting.Push({next, at.depth})) throw std::bad_alloc();
            at = {element.Child(), at.depth + 1};
        } else if (next != nullptr) {
            at.next = next;
        } else {
            more = waiting.Pop(at);
        }
    }
    return true;
}

void SbWriter::encodeElement(const CElement& element, bool hasNext) {
    const uint32_t flags = (hasNext ? hasNextFlag : 0) | (element.HasChildren() ? hasChildrenFlag : 0);
    m_elements.putVarint(m_names.indexOf(element.name) << nameShift | flags);
    m_elements.putVarint(element.attributes.size());
    for (const CSBFile::ATTRIB& attribute : element.attributes) {
        const CSBFile::CValue& value = attribute.value;
        uint8_t* to = m_elements.room(2 * longestVarint + 1 + size_t{value.GetSize()});
        to = encodeVarint(m_names.indexOf(attribute.name), to);
        *to++ = value.GetType();
        if (payloadBytes(value.GetType()) == anyLength) to = encodeVarint(value.GetSize(), to);
        std::memcpy(to, value.GetData(), value.GetSize());
        m_elements.endAt(to + value.GetSize());
    }
}

/// Puts the header and the names in front, and the checksum behind.
void SbWriter::frame() {
    SbBuffer count;
    count.putVarint(m_names.size());
    uint8_t header[headerBytes] = {};
    std::memcpy(header, magic, sizeof magic);
    header[versionAt] = majorVersion << 4 | minorVersion;
    std::memcpy(header + identifierAt, m_identifier, 4);
    storeNumber<uint64_t>(count.size() + m_names.bytes().size() + m_elements.size(), header + lengthAt);
    m_front.put(header, headerBytes);
    m_front.put(count.data(), count.size());
    m_front.put(m_names.bytes().data(), m_names.bytes().size());
    const uLong sum = crc32_z(crc32_z(0, m_front.data(), m_front.size()), m_elements.data(), m_elements.size());
    uint8_t* const end = m_elements.room(checksumBytes);
    storeNumber<uint32_t>(static_cast<uint32_t>(sum), end);
    m_elements.endAt(end + checksumBytes);
}

SbWriter::Parts SbWriter::parts() {
    const auto view = [](SbBuffer& part) {
        return std::string_view(reinterpret_cast<const char*>(part.data()), part.size());
    };
    return {view(m_front), view(m_elements)};
}

bool SbWriter::write(IFile& file) {
    for (const std::string_view part : parts()) {
        if (writeAll(file, part)) continue;
        SetDiagnostic(CString(), u"room for the file", u"a short write", file.GetPosition());
        return false;
    }
    return true;
}

}  // namespace qv::Private
