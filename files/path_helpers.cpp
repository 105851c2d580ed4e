// The path helpers of IFileSystem: text in, text out.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "core/text.h"
#include "files/native_path.h"
#include "qv/exception.h"
#include "qv/file_system.h"

namespace qv {

namespace {

using Private::isSeparator;
using View = std::u16string_view;

size_t lengthOf(const char16_t* text) { return View(text).size(); }

/// Source and target may overlap.
char16_t* copyText(char16_t* dst, const char16_t* src) {
    std::memmove(dst, src, (lengthOf(src) + 1) * sizeof(char16_t));
    return dst;
}

char16_t* copyText(char16_t* dst, const std::u16string& src) { return copyText(dst, src.c_str()); }

/// The pieces of a path, one after the other, without allocation.
class Pieces {
public:
    explicit Pieces(const char16_t* path) : m_at(path) {}
    /// An empty view at the end.
    View next() {
        while (isSeparator(*m_at)) ++m_at;
        const char16_t* start = m_at;
        while (*m_at != 0 && !isSeparator(*m_at)) ++m_at;
        return {start, static_cast<size_t>(m_at - start)};
    }

private:
    const char16_t* m_at;
};

bool samePiece(View a, View b) { return text::compareNoCase(a, b) == 0; }

/// How many pieces `path` has behind all of `directory`'s; -1 when those do not match.
int piecesBelow(const char16_t* directory, const char16_t* path) {
    Pieces above(directory), below(path);
    for (View piece = above.next(); !piece.empty(); piece = above.next()) {
        const View other = below.next();
        if (other.empty() || !samePiece(piece, other)) return -1;
    }
    int count = 0;
    while (!below.next().empty()) ++count;
    return count;
}

bool isAbsoluteElsewhere(const char16_t* path) {
    return IFileSystem::IsWindowsPath(path) || IFileSystem::IsUNCPath(path) || IFileSystem::IsURL(path);
}

/// MakePath in place.
void appendPiece(std::u16string& path, View piece, char16_t slash) {
    if (path.empty() || !isSeparator(path.back())) path += slash;
    path += piece;
}

/// Removes the trailing separator and cuts just behind the separator before it.
void cutLastPiece(std::u16string& path) {
    if (!path.empty() && isSeparator(path.back())) path.pop_back();
    while (!path.empty() && !isSeparator(path.back())) path.pop_back();
}

}  // namespace

char16_t* IFileSystem::ConvertSlashes(char16_t* dst, const char16_t* src, int size, char16_t slash) {
    if (size <= 0) return dst;
    const size_t length = std::min(lengthOf(src), static_cast<size_t>(size) - 1);
    std::memmove(dst, src, length * sizeof(char16_t));
    dst[length] = 0;
    return ConvertSlashes(dst, slash);
}

char16_t* IFileSystem::ConvertSlashes(char16_t* path, char16_t slash) {
    for (char16_t* at = path; *at != 0; ++at) {
        if (isSeparator(*at)) *at = slash;
    }
    return path;
}

const char16_t* IFileSystem::GetFilename(const char16_t* path) {
    const char16_t* name = path;
    for (const char16_t* at = path; *at != 0; ++at) {
        if (isSeparator(*at)) name = at + 1;
    }
    return name;
}

char16_t* IFileSystem::GetFilename(char16_t* dst, const char16_t* path) { return copyText(dst, GetFilename(path)); }

const char16_t* IFileSystem::GetExtension(const char16_t* path) {
    const char16_t* dot = nullptr;
    const char16_t* at = GetFilename(path);
    for (; *at != 0; ++at) {
        if (*at == u'.') dot = at;
    }
    return dot != nullptr ? dot : at;
}

char16_t* IFileSystem::GetDirectory(char16_t* path) {
    size_t length = 0, last = View::npos;
    for (const char16_t* at = path; *at != 0; ++at) {
        const bool separator = isSeparator(*at);
        if (separator && length > 1 && last == length - 1) continue;
        if (separator) last = length;
        path[length++] = *at;
    }
    if (last == View::npos) last = 0;
    if (last == 0 && length != 0 && isSeparator(path[0])) last = 1;
    path[last] = 0;
    return path;
}

char16_t* IFileSystem::GetDirectory(char16_t* dst, const char16_t* path) { return GetDirectory(copyText(dst, path)); }

char16_t* IFileSystem::MakePath(char16_t* dst, const char16_t* dir, const char16_t* name, char16_t slash) {
    AppendTrailingSlash(dst, dir, slash);
    copyText(dst + lengthOf(dst), name);
    return dst;
}

CString IFileSystem::MakePath(CString dir, CString name, char16_t slash) {
    std::u16string path(dir.view());
    appendPiece(path, name.view(), slash);
    return CString(path);
}

char16_t* IFileSystem::RemoveExtension(char16_t* path) {
    path[GetExtension(path) - path] = 0;
    return path;
}

char16_t* IFileSystem::RemoveExtension(char16_t* dst, const char16_t* path) {
    return RemoveExtension(copyText(dst, path));
}

char16_t* IFileSystem::MakeFilename(char16_t* dst, const char16_t* name, const char16_t* extension) {
    copyText(dst, name);
    copyText(dst + lengthOf(dst), extension);
    return dst;
}

char16_t* IFileSystem::RemoveTrailingSlash(char16_t* path) {
    const size_t length = lengthOf(path);
    if (length != 0 && isSeparator(path[length - 1])) path[length - 1] = 0;
    return path;
}

char16_t* IFileSystem::RemoveTrailingSlash(char16_t* dst, const char16_t* path) {
    return RemoveTrailingSlash(copyText(dst, path));
}

char16_t* IFileSystem::AppendTrailingSlash(char16_t* path, char16_t slash) {
    const size_t length = lengthOf(path);
    if (length != 0 && isSeparator(path[length - 1])) return path;
    path[length] = slash;
    path[length + 1] = 0;
    return path;
}

char16_t* IFileSystem::AppendTrailingSlash(char16_t* dst, const char16_t* path, char16_t slash) {
    return AppendTrailingSlash(copyText(dst, path), slash);
}

char16_t* IFileSystem::RemoveLeadingSlash(char16_t* path) { return RemoveLeadingSlash(path, path); }

char16_t* IFileSystem::RemoveLeadingSlash(char16_t* dst, const char16_t* path) {
    while (isSeparator(*path)) ++path;
    return copyText(dst, path);
}

char16_t* IFileSystem::AppendLeadingSlash(char16_t* path, char16_t slash) {
    if (isSeparator(*path)) return path;
    copyText(path + 1, path);
    path[0] = slash;
    return path;
}

char16_t* IFileSystem::AppendLeadingSlash(char16_t* dst, const char16_t* path, char16_t slash) {
    return AppendLeadingSlash(copyText(dst, path), slash);
}

void IFileSystem::SplitPath(TArray<CString>& parts, const char16_t* path) {
    const CString kept(path);  // The path may lie in the array that is emptied.
    parts.Empty();
    Pieces pieces(kept.c_str());
    for (View piece = pieces.next(); !piece.empty(); piece = pieces.next()) parts.Add(CString(piece));
}

char16_t* IFileSystem::GetFirstPathItem(char16_t* dst, const char16_t* path) {
    const View piece = Pieces(path).next();
    std::memmove(dst, piece.data(), piece.size() * sizeof(char16_t));
    dst[piece.size()] = 0;
    return dst;
}

bool IFileSystem::IsSamePath(const char16_t* a, const char16_t* b) { return piecesBelow(a, b) == 0; }
bool IFileSystem::InDirectory(const char16_t* directory, const char16_t* path) {
    return piecesBelow(directory, path) == 1;
}
bool IFileSystem::IsChildOfDirectory(const char16_t* directory, const char16_t* path) {
    return piecesBelow(directory, path) > 0;
}

bool IFileSystem::IsWindowsPath(const char16_t* path) { return text::isLetter(path[0]) && path[1] == u':'; }
bool IFileSystem::IsUNCPath(const char16_t* path) { return isSeparator(path[0]) && isSeparator(path[1]); }
bool IFileSystem::IsUnixPath(const char16_t* path) { return isSeparator(path[0]) && !isSeparator(path[1]); }

bool IFileSystem::IsURL(const char16_t* path) {
    const char16_t* at = path;
    while (text::isLetter(*at)) ++at;
    return at != path && at[0] == u':' && isSeparator(at[1]);
}

char16_t* IFileSystem::RelativePath(char16_t* dst, const char16_t* from, const char16_t* to) {
    Pieces up(from), down(to);
    View left = up.next(), right = down.next();
    if (left.empty() || right.empty()) return copyText(dst, to);
    const bool common = samePiece(left, right);
    if (!common && (isAbsoluteElsewhere(from) || isAbsoluteElsewhere(to))) return copyText(dst, to);
    while (!left.empty() && !right.empty() && samePiece(left, right)) {
        left = up.next();
        right = down.next();
    }
    std::u16string path;
    const auto join = [&path](View piece) {
        if (!path.empty()) path += u'/';
        path += piece;
    };
    for (; !left.empty(); left = up.next()) join(u"..");
    for (; !right.empty(); right = down.next()) join(right);
    return copyText(dst, path);
}

char16_t* IFileSystem::ExpandRelativePath(char16_t* dst, const char16_t* base, const char16_t* relative,
                                          char16_t slash) {
    std::u16string start(base);
    appendPiece(start, View(), slash);
    std::u16string path = start;
    for (const char16_t* at = relative; *at != 0;) {
        const char16_t* end = at;
        while (*end != 0 && !isSeparator(*end)) ++end;
        const View piece(at, static_cast<size_t>(end - at));
        if (piece.size() >= static_cast<size_t>(pathChars)) {
            throw CRuntimeErrorException(CString(u"A piece of a relative path is too long."));
        }
        if (piece == u".") {
            path = start;
        } else if (piece == u"..") {
            cutLastPiece(path);
        } else if (path.empty()) {
            path = piece;
        } else if (!piece.empty()) {
            appendPiece(path, piece, slash);
        }
        at = *end == 0 ? end : end + 1;
    }
    return copyText(dst, path);
}

CString IFileSystem::MakeSafeFilename(CString name) {
    std::u16string safe(name.view());
    for (char16_t& c : safe) {
        if (View(u":/\\*?\"<>|.").find(c) != View::npos) c = u'_';
    }
    return CString(safe);
}

}  // namespace qv
