#include "files/virtual_path.h"

#include <algorithm>
#include <utility>

#include "core/text.h"
#include "files/native_path.h"
#include "qv/diagnostic.h"

namespace qv::Private {

namespace {

/// Adds the pieces of a path to an absolute one; "" is the root.
void append(std::u16string& absolute, std::u16string_view path) {
    for (size_t at = 0; at < path.size();) {
        size_t end = at;
        while (end < path.size() && !isSeparator(path[end])) ++end;
        const std::u16string_view piece = path.substr(at, end - at);
        if (piece == u"..") {
            absolute.resize(absolute.empty() ? 0 : absolute.rfind(u'/'));
        } else if (!piece.empty() && piece != u".") {
            (absolute += u'/') += piece;
        }
        at = end + 1;
    }
}

}  // namespace

std::u16string absolutePath(std::u16string_view path, std::u16string_view current) {
    if (path.empty()) return {};
    std::u16string absolute;
    if (!isSeparator(path[0])) append(absolute, current);
    append(absolute, path);
    if (absolute.empty() || isSeparator(path.back())) absolute += u'/';
    return absolute;
}

std::u16string withoutTrailingSlash(const char16_t* path) {
    std::u16string text(path == nullptr ? u"" : path);
    if (text.size() > 1 && isSeparator(text.back())) text.pop_back();
    return text;
}

std::u16string parentPath(std::u16string_view path) {
    const size_t slash = path.rfind(u'/');
    return slash == 0 || slash == std::u16string_view::npos ? u"/" : std::u16string(path.substr(0, slash));
}

std::u16string joinedPath(std::u16string_view directory, std::u16string_view name) {
    std::u16string path(directory);
    if (path.empty() || path.back() != u'/') path += u'/';
    return path += name;
}

bool fitBuffer(std::u16string_view text, char16_t* buffer, int bufferChars) {
    if (text.empty() || buffer == nullptr || bufferChars <= 0) return false;
    if (text.size() >= static_cast<size_t>(bufferChars)) return false;
    std::copy_n(text.data(), text.size(), buffer);
    buffer[text.size()] = 0;
    return true;
}

bool setPath(IFileSystem::CDirectoryEntry& entry, std::u16string_view path) {
    if (path.empty() || fitBuffer(path, entry.path, IFileSystem::pathChars)) return true;
    SetDiagnostic(CString(path), u"a path of less than 512 characters", u"a longer one");
    return false;
}

std::u16string folded(std::u16string_view given) {
    std::u16string lower(given);
    for (char16_t& unit : lower) unit = text::toLower(unit);
    return lower;
}

std::u16string WorkingDirectory::absolute(const char16_t* path) const {
    return path == nullptr ? std::u16string() : absolutePath(path, get());
}

std::u16string WorkingDirectory::key(const char16_t* path) const {
    std::u16string full = absolute(path);
    if (full.size() > 1 && full.back() == u'/') full.pop_back();
    return full;
}

std::u16string WorkingDirectory::listed(const char16_t* directory) const {
    if (directory == nullptr) return get();
    return *directory == 0 ? u"/" : key(directory);
}

void WorkingDirectory::set(std::u16string path) {
    const std::lock_guard guard(m_lock);
    m_path = std::move(path);
}

std::u16string WorkingDirectory::get() const {
    const std::lock_guard guard(m_lock);
    return m_path;
}

}  // namespace qv::Private
