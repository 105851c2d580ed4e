#include "measurement/sb_reader.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "measurement/sb_format.h"
#include "qv/diagnostic.h"

namespace qv::Private {

namespace {

using namespace sbf;

constexpr const char16_t* endOfContent = u"the end of the content";
constexpr uint64_t readAtOnce = 0x40000000;

/// Reads `count` bytes, which may be more than one call takes.
bool readAll(IFile& file, uint8_t* to, uint64_t count) {
    while (count != 0) {
        const auto part = static_cast<uint32_t>(std::min(count, readAtOnce));
        if (!file.ReadBytes(to, part)) return false;
        to += part;
        count -= part;
    }
    return true;
}

}  // namespace

SbReader::SbReader(IFile& file) : m_file(file), m_start(file.GetPosition()) {
    m_names.SetGrowthRate(Private::doublingRate);
}

bool SbReader::refuse(const char16_t* expected, const CString& found, int64_t byte) {
    SetDiagnostic(CString(), expected, found, m_start + byte);
    return false;
}

bool SbReader::refuseAt(const char16_t* expected, const CString& found, const uint8_t* at) {
    return refuse(expected, found, static_cast<int64_t>(headerBytes) + (at - m_content.get()));
}

bool SbReader::read() {
    try {
        return readHeader() && readNames() && readTree();
    } catch (const std::bad_alloc&) {
        m_root.reset();  // the diagnostic takes memory, too
        m_names.Destroy();
        m_content.reset();
        return refuse(u"memory for the tree", u"none", 0);
    }
}

bool SbReader::readHeader() {
    uint8_t header[headerBytes] = {};
    if (!m_file.ReadBytes(header, headerBytes)) {
        return refuse(u"the header of a structured binary file", u"the end of the file",
                      m_file.GetPosition() - m_start);
    }
    if (std::memcmp(header, magic, sizeof magic) != 0) return refuse(u"\"SBF\"", u"another beginning", 0);
    if (header[versionAt] >> 4 != majorVersion) {
        return refuse(u"version 1",
                      CString::FromFormat(u"version %d.%d", header[versionAt] >> 4, header[versionAt] & 15), versionAt);
    }
    std::memcpy(m_identifier, header + identifierAt, 4);
    if (!isIdentifier(m_identifier)) {
        return refuse(u"an identifier of four characters", u"another byte", identifierAt);
    }
    return readContent(loadNumber<uint64_t>(header + lengthAt), static_cast<uint32_t>(crc32_z(0, header, headerBytes)));
}

/// Takes the content into memory. `sum` is the checksum of the header.
bool SbReader::readContent(uint64_t length, uint32_t sum) {
    const int64_t remaining = m_file.GetRemaining() - static_cast<int64_t>(checksumBytes);
    if (remaining < 0 || length > static_cast<uint64_t>(remaining)) {
        return refuse(u"as many bytes as the header says", u"less than that", lengthAt);
    }
    m_content = std::make_unique_for_overwrite<uint8_t[]>(length + checksumBytes);
    if (!readAll(m_file, m_content.get(), length + checksumBytes)) {
        return refuse(u"as many bytes as the header says", u"a short read", lengthAt);
    }
    if (crc32_z(sum, m_content.get(), length) != loadNumber<uint32_t>(m_content.get() + length)) {
        return refuse(u"the checksum of the file", u"another", static_cast<int64_t>(headerBytes + length));
    }
    m_at = m_content.get();
    m_end = m_at + length;
    return true;
}

bool SbReader::readVarint(uint32_t& value) {
    const uint8_t* const start = m_at;
    uint64_t read = 0;
    for (uint32_t shift = 0; shift < 7 * longestVarint && m_at != m_end; shift += 7) {
        const uint8_t byte = *m_at++;
        read |= uint64_t{byte & 0x7Fu} << shift;
        if (byte < 0x80 && read <= 0xFFFFFFFFu) {
            value = static_cast<uint32_t>(read);
            return true;
        }
        if (byte < 0x80) break;
    }
    return refuseAt(u"a number of up to 32 bits", left() == 0 ? endOfContent : u"a larger one", start);
}

bool SbReader::readName(CString& name) {
    const uint8_t* const start = m_at;
    uint32_t length = 0;
    if (!readVarint(length)) return false;
    if (length > left()) return refuseAt(u"a name behind its length", endOfContent, start);
    name = length == 0 ? sharedEmptyText() : CString(std::string_view(reinterpret_cast<const char*>(m_at), length));
    m_at += length;
    return true;
}

bool SbReader::readNames() {
    uint32_t count = 0;
    if (!readVarint(count)) return false;
    if (count > left() || count > maxNames) {  // each takes at least its length
        return refuseAt(u"as many names as the file says", endOfContent, m_content.get());
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (!m_names.Add(sharedEmptyText())) throw std::bad_alloc();
        if (!readName(m_names.back())) return false;
    }
    return true;
}

bool SbReader::checkName(uint32_t index, const uint8_t* at) {
    return index < m_names.size() ||
           refuseAt(u"the index of a name", CString::FromFormat(u"%u, of %u names", index, m_names.size()), at);
}

bool SbReader::readTree() {
    TStack<LOAD_HELPER> waiting;
    waiting.SetGrowthRate(Private::doublingRate);
    LOAD_HELPER at{nullptr, 1};
    for (bool more = true; more;) {
        const uint8_t* const start = m_at;
        uint32_t flags = 0;
        CElement* const element = readElement(at.parent, flags);
        if (element == nullptr) return false;
        const bool hasNext = (flags & hasNextFlag) != 0;
        if (hasNext && at.parent == nullptr) return refuseAt(u"a single root element", u"a sibling", start);
        if ((flags & hasChildrenFlag) != 0) {
            if (at.depth == CSBFile::maxDepth) {
                return refuseAt(u"no more than 16777216 levels", u"a deeper one", start);
            }
            if (hasNext && !waiting.Push(at)) throw std::bad_alloc();
            at = {element, at.depth + 1};
        } else if (!hasNext) {
            more = waiting.Pop(at);
        }
    }
    return left() == 0 || refuseAt(endOfContent, u"further bytes", m_at);
}

/// Reads an element without its children into the tree, as the last child of `parent`; null on failure.
CSBFile::CElement* SbReader::readElement(CElement* parent, uint32_t& flags) {
    const uint8_t* const start = m_at;
    uint32_t head = 0;
    uint32_t count = 0;
    if (!readVarint(head) || !checkName(head >> nameShift, start)) return nullptr;
    flags = head;
    auto* const element = new CElement(m_names.data()[head >> nameShift]);
    if (parent == nullptr) {
        m_root.reset(element);
    } else {
        parent->InsertChild(element, true);
    }
    const uint8_t* const countAt = m_at;
    if (!readVarint(count)) return nullptr;
    if (count > left() / shortestAttribute) {
        refuseAt(u"as many attributes as the element says", endOfContent, countAt);
        return nullptr;
    }
    return count == 0 || readAttributes(element->attributes, count) ? element : nullptr;
}

/// The array is made in one piece, of just the size.
bool SbReader::readAttributes(CSBFile::CAttribArray& attributes, uint32_t count) {
    CSBFile::ATTRIB* const items = attributes.Alloc(count);
    if (items == nullptr) throw std::bad_alloc();
    uint32_t made = 0;
    bool hasRoom = true;
    Stored stored;
    while (hasRoom && made < count && readAttribute(stored)) {
        ::new (static_cast<void*>(items + made)) CSBFile::ATTRIB{m_names.data()[stored.name], CSBFile::CValue()};
        hasRoom = items[made++].value.Assign(stored.type, stored.payload, stored.size);
    }
    attributes.Attach(items, made);
    if (!hasRoom) throw std::bad_alloc();
    return made == count;
}

bool SbReader::readAttribute(Stored& stored) {
    const uint8_t* const start = m_at;
    if (!readVarint(stored.name) || !checkName(stored.name, start)) return false;
    if (left() == 0) return refuseAt(u"the type of an attribute", endOfContent, m_at);
    stored.type = static_cast<CSBFile::TYPE>(*m_at);
    const std::optional<uint32_t> size = payloadBytes(*m_at);
    if (!size) return refuseAt(u"a type of known length", CString::FromFormat(u"type 0x%02X", *m_at), m_at);
    ++m_at;
    stored.size = *size;
    const uint8_t* const payloadAt = m_at;
    if (stored.size == anyLength && !readVarint(stored.size)) return false;
    if (stored.size > left()) return refuseAt(u"the value of an attribute", endOfContent, payloadAt);
    stored.payload = m_at;
    m_at += stored.size;
    return stored.type != CSBFile::TYPE_BOOL || *stored.payload <= 1 || refuseAt(u"0 or 1", u"another byte", payloadAt);
}

}  // namespace qv::Private
