// What the object form and the static forms of Norm files share: opening, and moving whole tables.
#pragma once

#include <algorithm>
#include <cstdint>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/norm_file.h"

namespace qv::Private::norm {

inline constexpr uint32_t openForReading = 530;  // existing, read, share reading

/// Opens `path` for reading and hands the file to `action`; the diagnostic of a failure gets the path's name.
template <class Action>
bool readFile(IFileSystem* fileSystem, const char16_t* path, Action action) {
    if (fileSystem == nullptr || path == nullptr) return false;
    const TSharedPtr<IFile> file = fileSystem->CreateFileW(path, openForReading);
    if (!file) {
        SetDiagnostic(path, u"a Norm file", u"a file that does not open");
        return false;
    }
    if (action(file)) return true;
    SetDiagnosticFile(path);
    return false;
}

/// The most that one call of IFile moves.
inline constexpr uint64_t chunkBytes = uint64_t{1} << 30;

/// Reads or writes `bytes` bytes, however many.
inline bool readTable(IFile& file, void* data, uint64_t bytes) {
    for (auto* to = static_cast<uint8_t*>(data); bytes != 0;) {
        const auto count = static_cast<uint32_t>(std::min(bytes, chunkBytes));
        if (!file.ReadBytes(to, count)) {
            SetDiagnostic(CString(), u"the whole table", u"the end of the file", file.GetPosition());
            return false;
        }
        to += count;
        bytes -= count;
    }
    return true;
}
inline bool writeTable(IFile& file, const void* data, uint64_t bytes) {
    for (auto* from = static_cast<const uint8_t*>(data); bytes != 0;) {
        const auto count = static_cast<uint32_t>(std::min(bytes, chunkBytes));
        if (!file.WriteBytes(from, count)) {
            SetDiagnostic(CString(), u"room for the table", u"a short write", file.GetPosition());
            return false;
        }
        from += count;
        bytes -= count;
    }
    return true;
}

/// Whether every substitute is a pixel of the frame.
inline bool areValid(const uint32_t* subs, uint32_t pixels) {
    bool valid = true;
    for (uint32_t i = 0; i < pixels; ++i) valid &= subs[i] < pixels;
    return valid;
}

}  // namespace qv::Private::norm
