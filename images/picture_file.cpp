#include "images/picture_file.h"

#include <algorithm>
#include <cstring>

#include "qv/file_system.h"
#include "qv/values.h"

namespace qv::Private {

namespace {

template <class Result, class Call>
Result quietly(Result failed, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        return failed;
    }
}

}  // namespace

CString nameOf(IFile& file) {
    char16_t name[IFileSystem::pathChars] = {};
    return CString(file.GetFilename(name, IFileSystem::pathChars));
}

bool refuse(IFile& file, const CString& expected, const CString& found, int64_t byteOffset) {
    SetDiagnostic(nameOf(file), expected, found, byteOffset);
    return false;
}

uint32_t readQuietly(IFile& file, void* data, uint32_t count) noexcept {
    return quietly(uint32_t{0}, [&] { return file.Read(data, count); });
}
uint32_t writeQuietly(IFile& file, const void* data, uint32_t count) noexcept {
    return quietly(uint32_t{0}, [&] { return file.Write(data, count); });
}
bool seekQuietly(IFile& file, int64_t offset, uint32_t origin) noexcept {
    return quietly(false, [&] { return file.Seek(offset, origin) >= 0; });
}
int64_t sizeQuietly(IFile& file) noexcept {
    return quietly(int64_t{0}, [&] { return file.GetSize(); });
}
int64_t positionQuietly(IFile& file) noexcept {
    return quietly(int64_t{-1}, [&] { return file.GetPosition(); });
}

uint32_t ReadAhead::read(uint8_t* out, uint32_t count) noexcept {
    uint32_t done = std::min(count, end - at);
    std::memcpy(out, bytes + at, done);
    at += done;
    while (done < count) {
        const uint32_t left = count - done;
        if (left >= sizeof bytes) {
            const uint32_t got = readQuietly(*file, out + done, left);
            return done + std::min(got, left);
        }
        at = 0;
        end = std::min(readQuietly(*file, bytes, sizeof bytes), static_cast<uint32_t>(sizeof bytes));
        if (end == 0) break;
        at = std::min(left, end);
        std::memcpy(out + done, bytes, at);
        done += at;
    }
    return done;
}

bool WriteBehind::write(const uint8_t* data, uint32_t count) noexcept {
    if (count > sizeof bytes - used && !flush()) return false;
    if (count >= sizeof bytes) return writeQuietly(*file, data, count) == count;
    std::memcpy(bytes + used, data, count);
    used += count;
    return true;
}

bool WriteBehind::flush() noexcept {
    const uint32_t count = used;
    used = 0;
    return count == 0 || writeQuietly(*file, bytes, count) == count;
}

bool endPictureHere(IFile& file) {
    const int64_t end = file.GetPosition();
    if (file.GetSize() <= end || file.SetSize(end)) return true;
    return refuse(file, u"a file that can be cut behind the picture", u"one that cannot", end);
}

int numberOf(const CPropertyArray& properties, const char16_t* name, int missing) {
    return properties.FindValue(name) < 0 ? missing : CInt32::Parse(properties.GetValue(name));
}

}  // namespace qv::Private
