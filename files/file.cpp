#include "qv/file.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

namespace qv {

namespace {

void reverseBytes(uint8_t* bytes, uint32_t count) { std::reverse(bytes, bytes + count); }

template <class T, T (*Reverse)(T)>
void reverseAs(uint8_t* at, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i, at += sizeof(T)) {
        T value;
        std::memcpy(&value, at, sizeof(T));
        value = Reverse(value);
        std::memcpy(at, &value, sizeof(T));
    }
}

uint16_t reversed16(uint16_t v) { return __builtin_bswap16(v); }
uint32_t reversed32(uint32_t v) { return __builtin_bswap32(v); }
uint64_t reversed64(uint64_t v) { return __builtin_bswap64(v); }

void reverseElements(uint8_t* at, uint64_t count, uint32_t size) {
    switch (size) {
        case 1: return;
        case 2: return reverseAs<uint16_t, reversed16>(at, count);
        case 4: return reverseAs<uint32_t, reversed32>(at, count);
        case 8: return reverseAs<uint64_t, reversed64>(at, count);
        default:
            for (uint64_t i = 0; i < count; ++i, at += size) reverseBytes(at, size);
    }
}

/// How one code point is spread over bytes.
struct CharacterForm {
    int32_t below;       // Code points below this take the form.
    uint8_t mask, mark;  // The lead byte's fixed bits.
    int further;         // Bytes behind the lead byte.
};
constexpr CharacterForm characterForms[] = {
    {0x800, 0xE0, 0xC0, 1},     {0x10000, 0xF0, 0xE0, 2},    {0x200000, 0xF8, 0xF0, 3},
    {0x4000000, 0xFC, 0xF8, 4}, {0x7FFFFFFF, 0xFE, 0xFC, 5},
};

}  // namespace

IFile::~IFile() = default;

IFileSystem::CDirectoryEntry IFile::GetFileInfo() {
    char16_t name[IFileSystem::pathChars] = {};
    GetFilename(name, IFileSystem::pathChars);
    return GetFileSystem().GetFileInfo(name);
}

bool IFile::putScalar(const void* value, uint32_t width) {
    if (!m_swap) return Write(value, width) == width;
    uint8_t bytes[8];
    std::memcpy(bytes, value, width);
    reverseBytes(bytes, width);
    return Write(bytes, width) == width;
}

bool IFile::getScalar(void* out, uint32_t width) {
    if (Read(out, width) != width) return false;
    if (m_swap) reverseBytes(static_cast<uint8_t*>(out), width);
    return true;
}

bool IFile::ReadArray(void* data, uint32_t count, uint32_t size) {
    const uint32_t bytes = count * size;
    if (bytes == 0) return true;
    if (Read(data, bytes) != bytes) return false;
    if (m_swap) reverseElements(static_cast<uint8_t*>(data), bytes / size, size);
    return true;
}

bool IFile::WriteArray(const void* data, uint32_t count, uint32_t size) {
    const uint32_t bytes = count * size;
    if (bytes == 0) return true;
    if (!m_swap) return Write(data, bytes) == bytes;
    const std::unique_ptr<uint8_t[]> copy(new (std::nothrow) uint8_t[bytes]);
    if (copy == nullptr) return false;
    std::memcpy(copy.get(), data, bytes);
    reverseElements(copy.get(), bytes / size, size);
    (void)Write(copy.get(), bytes);
    return false;
}

bool IFile::GetBool(bool& out) {
    uint8_t byte = 0;
    if (!GetBYTE(byte)) return false;
    out = byte == 1;
    return true;
}

bool IFile::PutGUID(const GUID& value) {
    return PutDWORD(value.Data1) && PutWORD(value.Data2) && PutWORD(value.Data3) &&
           WriteBytes(value.Data4, sizeof value.Data4);
}

bool IFile::GetGUID(GUID& out) {
    return GetDWORD(out.Data1) && GetWORD(out.Data2) && GetWORD(out.Data3) && ReadBytes(out.Data4, sizeof out.Data4);
}

GUID IFile::GetGUID() {
    GUID value;
    return GetGUID(value) ? value : GUID{};
}

bool IFile::PutUTF8Character(int32_t c) {
    if (c < 0x80) {
        (void)PutBYTE(static_cast<uint8_t>(c));
        return true;
    }
    const CharacterForm* form = characterForms;
    while (form->further < 5 && c >= form->below) ++form;
    (void)PutBYTE(static_cast<uint8_t>(form->mark | (c >> (6 * form->further))));
    for (int left = form->further - 1; left >= 0; --left) {
        (void)PutBYTE(static_cast<uint8_t>(0x80 | ((c >> (6 * left)) & 0x3F)));
    }
    return true;
}

bool IFile::GetUTF8Character(int32_t& c) {
    uint8_t byte = 0;
    if (!GetBYTE(byte)) return false;
    if (byte < 0x80) {
        c = byte;
        return true;
    }
    for (const CharacterForm& form : characterForms) {
        if ((byte & form.mask) != form.mark) continue;
        uint32_t value = byte & static_cast<uint8_t>(~form.mask);
        for (int i = 0; i < form.further; ++i) {
            int8_t next = 0;
            if (!GetInt8(next)) return false;
            value = (value << 6) | static_cast<uint32_t>(int32_t{next});
        }
        c = static_cast<int32_t>(value);
        return true;
    }
    return false;
}

int32_t IFile::GetUTF8Character() {
    int32_t c = 0;
    return GetUTF8Character(c) ? c : 0;
}

bool IFile::WriteZeros(uint32_t count) {
    static constexpr uint8_t zeros[512] = {};
    while (count != 0) {
        const uint32_t chunk = std::min<uint32_t>(count, sizeof zeros);
        if (Write(zeros, chunk) != chunk) return false;
        count -= chunk;
    }
    return true;
}

}  // namespace qv
