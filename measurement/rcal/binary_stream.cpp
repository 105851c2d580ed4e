#include "measurement/rcal/binary_stream.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "measurement/rcal/backgrounds.h"
#include "qv/diagnostic.h"

namespace qv::rcalBinary {

namespace {

// Lengths of paths: one byte, or behind a mark two bytes, or behind a second mark four.
constexpr uint8_t wordMark = 0xFF;
constexpr uint16_t longMark = 0xFFFF;

}  // namespace

// Writing ------------------------------------------------------------------------------------------------------------

Writer::Writer(bool swap, const char (&beginning)[8], int16_t version) {
    swapFlag(m_bytes) = swap;
    note(m_bytes.WriteBytes(beginning, sizeof beginning));
    note(m_bytes.PutInt16(version));
}

Writer& Writer::operator()(Name, CString& value) { return note(m_bytes.PutString(value.c_str())); }

void Writer::path(Name, CString& value) {
    const CStringMB utf8(value.c_str());
    note(m_bytes.PutArchiveString(utf8.c_str()) || utf8.IsEmpty());  // which is false for the empty string
}

void Writer::list(Name, TArray<double>& values) {
    note(m_bytes.PutDWORD(values.size()));
    for (const double value : values) note(m_bytes.PutDouble(value));
}

void Writer::tags(CTagArray& tags) {
    note(m_bytes.PutDWORD(tags.nItems()));
    for (uint32_t i = 0; i < tags.nItems(); ++i) {
        CTagArray::TAG& saved = tags[static_cast<int32_t>(i)];
        rcalFields::tag(*this, saved.name, saved.value);
    }
}

void Writer::pixels(BACKGROUND_FILE& picture) {
    const bool present = rcalBackground::hasItsPixels(picture);
    note(m_bytes.PutBool(present));
    if (present) note(m_bytes.WriteBytes(picture.pixels->data(), picture.pixels->sizeInBytes()));
}

bool Writer::finish(IFile& file) {
    if (!m_ok) {
        SetDiagnostic(CString(), u"memory for the binary form", u"none");
        return false;
    }
    if (file.WriteBytes(m_bytes.GetData(), m_bytes.size())) return true;
    SetDiagnostic(CString(), u"room for the calibration", u"a short write", file.GetPosition());
    return false;
}

// Reading ------------------------------------------------------------------------------------------------------------

Reader::Reader(IFile& file)
    : m_file(file),
      m_swap(swapFlag(file)),
      m_end(file.GetSize()),
      m_left(std::max<int64_t>(m_end - file.GetPosition(), 0)) {}

void Reader::refuse(Name name, const CString& found) {
    if (!m_ok) return;
    m_ok = false;
    const CString expected =
        m_place == nullptr ? CString(name) : CString::FromFormat(u"%s of %s %u", name, m_place, m_index);
    SetDiagnostic(CString(), expected, found, position());
}

void Reader::reverse(void* bytes, size_t size) {
    auto* first = static_cast<uint8_t*>(bytes);
    std::reverse(first, first + size);
}

bool Reader::take(Name name, void* to, size_t size) {
    if (!m_ok) return false;
    if (static_cast<int64_t>(size) > m_left) {
        refuse(name, u"the end of the file");
        return false;
    }
    auto* out = static_cast<uint8_t*>(to);
    while (size != 0) {
        if (m_at == m_filled) {
            // What is large goes past the buffer.
            const bool direct = size >= m_buffer.size();
            const auto wanted = static_cast<uint32_t>(direct ? static_cast<int64_t>(size)
                                                             : std::min(m_left, static_cast<int64_t>(m_buffer.size())));
            const uint32_t got = m_file.Read(direct ? out : m_buffer.data(), wanted);
            if (got == 0 || got > wanted) {
                refuse(name, u"a file that cannot be read");
                return false;
            }
            if (direct) {
                out += got;
                size -= got;
                m_left -= got;
                continue;
            }
            m_at = 0;
            m_filled = got;
        }
        const size_t part = std::min(size, m_filled - m_at);
        std::memcpy(out, m_buffer.data() + m_at, part);
        out += part;
        size -= part;
        m_at += part;
        m_left -= static_cast<int64_t>(part);
    }
    return true;
}

Reader& Reader::operator()(Name name, bool& value) {
    uint8_t byte = 0;
    scalar(name, byte);
    value = byte == 1;
    return *this;
}

void Reader::byte(Name name, EDataType& value) {
    uint8_t number = 0;
    scalar(name, number);
    value = static_cast<EDataType>(number);
}

void Reader::text(Name name, uint32_t length, CString& value) {
    if (static_cast<int64_t>(length) > m_left) return refuse(name, u"a length beyond the end of the file");
    std::string bytes(length, '\0');
    if (take(name, bytes.data(), bytes.size())) value = CString(bytes.c_str());
}

Reader& Reader::operator()(Name name, CString& value) {
    uint32_t length = 0;
    scalar(name, length);
    text(name, length, value);
    return *this;
}

void Reader::path(Name name, CString& value) {
    uint8_t byte = 0;
    scalar(name, byte);
    uint32_t length = byte;
    if (byte == wordMark) {
        uint16_t word = 0;
        scalar(name, word);
        length = word;
        if (word == longMark) scalar(name, length);
    }
    text(name, length, value);
}

uint32_t Reader::countUpTo(Name name, uint32_t leastBytes, uint32_t most) {
    uint32_t number = 0;
    scalar(name, number);
    if (number > most) {
        m_place = nullptr;
        refuse(CString::FromFormat(u"at most %u %s", most, name).c_str(), CString::FromFormat(u"%u", number));
    } else if (int64_t{number} * leastBytes > m_left) {
        refuse(name, CString::FromFormat(u"a count of %u, beyond the end of the file", number));
    }
    return m_ok ? number : 0;
}

void Reader::list(Name name, TArray<double>& values) {
    count(name, values, sizeof(double), anyNumber);
    if (!take(name, values.data(), values.size() * sizeof(double)) || !m_swap) return;
    for (double& value : values) reverse(&value, sizeof value);
}

void Reader::tags(CTagArray& tags) {
    constexpr uint32_t twoLengths = 8;
    const uint32_t number = countUpTo(u"tags", twoLengths, anyNumber);
    for (uint32_t i = 0; i < number && m_ok; ++i) {
        CTagArray::TAG& added = tags[static_cast<int32_t>(i)];
        rcalFields::tag(*this, added.name, added.value);
    }
}

void Reader::pixels(BACKGROUND_FILE& picture) {
    bool present = false;
    (*this)(u"background picture", present);
    if (!present || !m_ok) return;
    const uint64_t count = uint64_t{picture.width} * picture.height;
    if (count > static_cast<uint64_t>(m_left) || count * DataTypeSize(picture.type) > static_cast<uint64_t>(m_left)) {
        return refuse(u"background picture", u"a size beyond the end of the file");
    }
    if (count <= 0xFFFFFFFF) picture.pixels = AllocTypedBuffer(picture.type, static_cast<uint32_t>(count));
    if (!picture.pixels) return refuse(u"background picture", u"a picture that memory cannot hold");
    take(u"background picture", picture.pixels->data(), picture.pixels->sizeInBytes());
}

bool Reader::finish() {
    if (m_ok) m_file.SetPosition(position());
    return m_ok;
}

}  // namespace qv::rcalBinary
