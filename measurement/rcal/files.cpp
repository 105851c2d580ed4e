#include "measurement/rcal/files.h"

#include <string>
#include <string_view>

namespace qv::rcalFiles {

namespace {

/// A text operation of IFileSystem on a buffer that holds the whole path.
CString inBuffer(const CString& path, char16_t* (*change)(char16_t*)) {
    std::u16string buffer(static_cast<std::u16string_view>(path));
    return CString(static_cast<const char16_t*>(change(buffer.data())));
}

}  // namespace

CString folderOf(const CString& path) { return inBuffer(path, &IFileSystem::GetDirectory); }

CString withoutExtension(const CString& path) { return inBuffer(path, &IFileSystem::RemoveExtension); }

CString beside(const CString& header, const CString& name) {
    const char16_t* text = name.c_str();
    const bool absolute = IFileSystem::IsWindowsPath(text) || IFileSystem::IsUnixPath(text) ||
                          IFileSystem::IsUNCPath(text) || IFileSystem::IsURL(text);
    const CString folder = folderOf(header);
    return absolute || folder.IsEmpty() ? name : IFileSystem::MakePath(folder, name);
}

}  // namespace qv::rcalFiles
