// IFile's strings: prefixed, archive, lines and fixed length.
#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/file.h"

namespace qv {

namespace {

constexpr int64_t prefixBytes = 4;

bool refuse(IFile& file, const char16_t* expected, const char16_t* found) {
    char16_t name[IFileSystem::pathChars] = {};
    file.GetFilename(name, IFileSystem::pathChars);
    SetDiagnostic(name, expected, found, file.GetPosition());
    return false;
}

/// The bytes of a stored count that can be there. Small counts are not worth two calls: they come back as they are.
uint32_t readable(IFile& file, uint32_t count) {
    constexpr uint32_t notWorthAsking = 0x10000;
    if (count <= notWorthAsking) return count;
    return static_cast<uint32_t>(std::clamp<int64_t>(file.GetRemaining(), 0, count));
}

/// Room for a text and its terminator; short ones stay off the heap. Throws std::bad_alloc.
template <class Unit>
class TextBuffer {
public:
    explicit TextBuffer(size_t units) {
        if (units < std::size(m_local)) return;
        m_heap = std::make_unique_for_overwrite<Unit[]>(units + 1);
        m_data = m_heap.get();
    }
    Unit* data() { return m_data; }

private:
    Unit m_local[256];
    std::unique_ptr<Unit[]> m_heap;
    Unit* m_data = m_local;
};

/// Reads a prefix and the units that it counts, and gives them, terminated, to `accept(const Unit*, count)`, whose
/// false or exception is a failure as well. Every failure behind the prefix puts the position back before it.
template <class Unit, class Accept>
bool readPrefixed(IFile& file, int64_t unitLimit, Accept accept) {
    uint32_t count = 0;
    if (!file.GetDWORD(count)) return refuse(file, u"the length of a text", u"the end of the file");
    uint32_t got = 0;
    const char16_t* found = u"less than its length says";
    const uint64_t bytes = uint64_t{count} * sizeof(Unit);
    const bool fits = count <= unitLimit && bytes <= std::numeric_limits<uint32_t>::max();
    if (count > unitLimit) found = u"more than the buffer holds";
    if (fits && readable(file, static_cast<uint32_t>(bytes)) == bytes) {
        try {
            TextBuffer<Unit> body(count);
            if (bytes != 0) got = file.Read(body.data(), static_cast<uint32_t>(bytes));
            if (got == bytes) {
                body.data()[count] = 0;
                if (accept(static_cast<const Unit*>(body.data()), count)) return true;
                found = u"a text that cannot be taken";
            }
        } catch (const std::exception&) {
            found = u"no memory for it";
        }
    }
    file.Seek(-(prefixBytes + got), IFile::fromCurrent);
    return refuse(file, u"a text behind its length", found);
}

constexpr int64_t anyLength = std::numeric_limits<uint32_t>::max();

template <class Unit>
bool readToBuffer(IFile& file, Unit* buffer, int size) {
    return readPrefixed<Unit>(file, int64_t{size} - 1, [&](const Unit* text, uint32_t count) {
        std::copy_n(text, size_t{count} + 1, buffer);
        return true;
    });
}

/// Writes a prefix and `units` units; what was written of a body that came short is taken back.
template <class Unit>
bool writePrefixed(IFile& file, std::basic_string_view<Unit> text) {
    if (text.size() > std::numeric_limits<uint32_t>::max() / sizeof(Unit)) return false;
    const auto units = static_cast<uint32_t>(text.size());
    const uint32_t bytes = units * uint32_t{sizeof(Unit)};
    if (!file.PutDWORD(units)) return refuse(file, u"room for the length of a text", u"a short write");
    if (bytes == 0) return true;
    const uint32_t written = file.Write(text.data(), bytes);
    if (written == bytes) return true;
    file.Seek(-(prefixBytes + written), IFile::fromCurrent);
    return refuse(file, u"room for a text", u"a short write");
}

template <class Unit>
std::basic_string_view<Unit> viewOf(const Unit* text) {
    return text == nullptr ? std::basic_string_view<Unit>() : std::basic_string_view<Unit>(text);
}

/// The text of an n-byte field, up to its first NUL. `out` is left alone on failure.
template <class Text>
bool readField(IFile& file, Text& out, uint32_t n) {
    const uint32_t wanted = readable(file, n);
    try {
        TextBuffer<char> body(wanted);
        if (file.ReadString(body.data(), wanted) && wanted == n) {
            out.Copy(static_cast<const char*>(body.data()), -1);
            return true;
        }
    } catch (const std::exception&) {
        return refuse(file, u"memory for a text of fixed length", u"none");
    }
    return refuse(file, u"a text of fixed length", u"the end of the file");
}

// The prefix of an archive string: a length of 1, 2 or 4 bytes, the longer ones behind marks.
constexpr uint8_t archiveWordMark = 0xFF;
constexpr uint16_t archiveLongMark = 0xFFFF;

/// False when the prefix came short; what was read of it stands in `length`.
bool readArchiveLength(IFile& file, uint32_t& length) {
    uint8_t byte = 0;
    bool whole = file.GetBYTE(byte);
    length = byte;
    if (byte == archiveWordMark) {
        uint16_t word = 0;
        whole = file.GetWORD(word);
        length = word;
        if (word == archiveLongMark) {
            length = 0;
            whole = file.GetDWORD(length);
            if (!whole) length = 0;
        }
    }
    return whole;
}

}  // namespace

bool IFile::PutString(const char* text) { return writePrefixed(*this, viewOf(text)); }

bool IFile::PutString(const char16_t* text) {
    return writePrefixed(*this, std::string_view(text::toUtf8(viewOf(text))));
}

bool IFile::PutString(uint32_t codePage, const char16_t* text) {
    std::string bytes;
    if (!text::encode(codePage, viewOf(text), bytes)) return refuse(*this, u"a known code page", u"another");
    return writePrefixed(*this, std::string_view(bytes));
}

bool IFile::PutUnicodeString(const char16_t* text) { return writePrefixed(*this, viewOf(text)); }

bool IFile::GetString(CString& out) {
    return readPrefixed<char>(*this, anyLength, [&](const char* text, uint32_t) {
        out.Copy(text, -1);
        return true;
    });
}

bool IFile::GetString(CStringMB& out) {
    return readPrefixed<char>(*this, anyLength, [&](const char* text, uint32_t) {
        out.Copy(text, -1);
        return true;
    });
}

bool IFile::GetUnicodeString(CString& out) {
    return readPrefixed<char16_t>(*this, anyLength, [&](const char16_t* text, uint32_t) {
        out.Copy(text, -1);
        return true;
    });
}

bool IFile::GetString(uint32_t codePage, CString& out) {
    return readPrefixed<char>(*this, anyLength, [&](const char* text, uint32_t) {
        out.FromCodePage(codePage, text);
        return true;
    });
}

bool IFile::GetString(char* buffer, int size) { return readToBuffer(*this, buffer, size); }
bool IFile::GetUnicodeString(char16_t* buffer, int size) { return readToBuffer(*this, buffer, size); }
bool IFile::GetString(char16_t* buffer, int size) { return GetString(text::codePageUtf8, buffer, size); }

bool IFile::GetString(uint32_t codePage, char16_t* buffer, int size) {
    return readPrefixed<char>(*this, anyLength, [&](const char* bytes, uint32_t count) {
        std::u16string decoded;
        if (!text::decode(codePage, std::string_view(bytes, count), decoded)) return false;
        if (size <= 0 || decoded.size() >= static_cast<size_t>(size)) return false;
        std::copy_n(decoded.c_str(), decoded.size() + 1, buffer);
        return true;
    });
}

CString IFile::GetString() {
    CString text;
    (void)GetString(text);
    return text;
}

CString IFile::GetString(uint32_t codePage) {
    CString text;
    (void)GetString(codePage, text);
    return text;
}

CString IFile::GetUnicodeString() {
    CString text;
    (void)GetUnicodeString(text);
    return text;
}

bool IFile::SkipString() {
    uint32_t length = 0;
    if (!GetDWORD(length)) return false;
    return Seek(length, fromCurrent) > 0;
}

bool IFile::PutArchiveString(const char* text) {
    const std::string_view bytes = viewOf(text);
    if (bytes.size() > std::numeric_limits<uint32_t>::max()) return false;
    const auto length = static_cast<uint32_t>(bytes.size());
    bool prefix = false;
    if (length < archiveWordMark) {
        prefix = PutBYTE(static_cast<uint8_t>(length));
    } else if (length < archiveLongMark) {
        prefix = PutBYTE(archiveWordMark) && PutWORD(static_cast<uint16_t>(length));
    } else {
        prefix = PutBYTE(archiveWordMark) && PutWORD(archiveLongMark) && PutLong(static_cast<int32_t>(length));
    }
    return prefix && Write(bytes.data(), length) != 0;
}

bool IFile::GetArchiveString(CString& out) {
    uint32_t length = 0;
    (void)readArchiveLength(*this, length);
    length = readable(*this, length);
    try {
        TextBuffer<char> body(length);
        const uint32_t got = length == 0 ? 0 : Read(body.data(), length);
        body.data()[got] = 0;
        out.Copy(static_cast<const char*>(body.data()), -1);
        return true;
    } catch (const std::exception&) {
        return refuse(*this, u"memory for a text", u"none");
    }
}

CString IFile::GetArchiveString() {
    CString text;
    (void)GetArchiveString(text);
    return text;
}

bool IFile::SkipArchiveString() {
    uint32_t length = 0;
    return readArchiveLength(*this, length) && Seek(length, fromCurrent) > 0;
}

bool IFile::GetLine(char* buffer, int size) {
    if (size <= 0) return false;
    const auto room = static_cast<uint32_t>(size);
    const uint32_t got = std::min(Read(buffer, room), room);
    if (got == 0) return false;
    for (uint32_t i = 0; i < got; ++i) {
        if (buffer[i] == '\r') buffer[i] = 0;
        if (buffer[i] != '\n') continue;
        buffer[i] = 0;
        Seek(int64_t{i} + 1 - got, fromCurrent);
        return true;
    }
    if (got == room) {
        Seek(-int64_t{got}, fromCurrent);
        return refuse(*this, u"a line that fits its buffer", u"a longer one");
    }
    buffer[got] = 0;
    return true;
}

bool IFile::WriteString(const char* text) {
    const std::string_view bytes = viewOf(text);
    if (bytes.size() > std::numeric_limits<uint32_t>::max()) return false;
    return WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool IFile::ReadString(char* buffer, uint32_t n) {
    const bool whole = ReadBytes(buffer, n);
    buffer[n] = 0;
    return whole;
}

bool IFile::GetFixedLengthString(CStringMB& out, uint32_t n) {
    if (readField(*this, out, n)) return true;
    out.Empty();
    return false;
}

bool IFile::GetFixedLengthString(CString& out, uint32_t n) { return readField(*this, out, n); }

bool IFile::PutFixedLengthString(const char* text, uint32_t n) {
    const std::string_view bytes = viewOf(text);
    const auto length = static_cast<uint32_t>(std::min<size_t>(bytes.size(), n));
    if (!WriteBytes(bytes.data(), length)) return false;
    (void)WriteZeros(n - length);
    return true;
}

}  // namespace qv
