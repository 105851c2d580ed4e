#include "qv/path.h"

#include <vector>

#include "core/text.h"
#include "files/native_path.h"
#include "qv/file_system.h"

namespace qv {

namespace {

using Private::isSeparator;
using View = std::u16string_view;

bool isSeparatorAt(View text, size_t at) { return at < text.size() && isSeparator(text[at]); }

size_t skipPiece(View text, size_t at) {
    while (at < text.size() && !isSeparator(text[at])) ++at;
    return at;
}

size_t skipSeparators(View text, size_t at) {
    while (isSeparatorAt(text, at)) ++at;
    return at;
}

constexpr char16_t unified(char16_t c) { return c == u'\\' ? u'/' : c; }

}  // namespace

path::path(const std::filesystem::path& other) : m_text(text::toUtf16(other.string())) { endAtNul(); }

std::string path::native() const { return Private::nativePath(c_str()); }
path::operator std::filesystem::path() const { return std::filesystem::path(native()); }

void path::endAtNul() {
    const size_t end = view().find(u'\0');
    if (end != View::npos) m_text = m_text.substr(0, end);
}

// Kinds ---------------------------------------------------------------------------------------------------------------

bool path::is_windows() const { return IFileSystem::IsWindowsPath(c_str()); }
bool path::is_unc() const { return IFileSystem::IsUNCPath(c_str()); }
bool path::is_url() const { return IFileSystem::IsURL(c_str()) && !is_windows(); }

bool path::is_absolute() const {
    return is_windows() ? isSeparatorAt(view(), 2) : isSeparatorAt(view(), 0) || is_url();
}

size_t path::rootLength() const {
    const View text = view();
    if (is_windows()) return isSeparatorAt(text, 2) ? 3 : 2;
    if (is_url()) {
        const size_t slash = text.find(u':') + 1;
        if (!isSeparatorAt(text, slash + 1)) return slash + 1;
        const size_t host = skipPiece(text, slash + 2);
        return host == slash + 2 && isSeparatorAt(text, host) ? host + 1 : host;
    }
    if (is_unc()) {
        const size_t server = skipPiece(text, skipSeparators(text, 0));
        return skipPiece(text, skipSeparators(text, server));
    }
    return isSeparatorAt(text, 0) ? 1 : 0;
}

// Parts ---------------------------------------------------------------------------------------------------------------

path& path::operator/=(const path& more) {
    if (more.empty()) return *this;
    if (empty() || more.rootLength() != 0) {
        m_text = more.m_text;
        return *this;
    }
    const bool drive = is_windows() && m_text.GetLength() == 2;
    std::u16string joined(view());
    joined.reserve(joined.size() + 1 + more.view().size());
    if (!drive && !isSeparator(joined.back())) joined += u'/';
    joined += more.view();
    m_text = joined;
    return *this;
}

size_t path::filenameStart() const {
    const View text = view();
    const size_t root = rootLength();
    size_t start = text.size();
    while (start > root && !isSeparator(text[start - 1])) --start;
    return start;
}

size_t path::extensionStart() const {
    const View text = view(), name = text.substr(filenameStart());
    const size_t dot = name == u"." || name == u".." ? View::npos : name.rfind(u'.');
    return dot == View::npos ? text.size() : text.size() - name.size() + dot;
}

path path::parent() const {
    const size_t root = rootLength();
    size_t end = filenameStart();
    while (end > root && isSeparator(view()[end - 1])) --end;
    return path(view().substr(0, end));
}

path& path::replace_filename(const path& name) {
    std::u16string text(view().substr(0, filenameStart()));
    const bool share = is_unc() || is_url();
    if (share && !text.empty() && !isSeparator(text.back())) text += u'/';
    m_text = text.append(name.view());
    return *this;
}

path& path::replace_extension(const path& extension) {
    std::u16string text(view().substr(0, extensionStart()));
    if (!extension.empty() && extension.view().front() != u'.') text += u'.';
    m_text = text.append(extension.view());
    return *this;
}

void path::const_iterator::advance() {
    const size_t start = skipSeparators(m_rest, 0), end = skipPiece(m_rest, start);
    m_piece = start == end ? View() : m_rest.substr(start, end - start);
    m_rest.remove_prefix(end);
}

// Relations -----------------------------------------------------------------------------------------------------------

bool path::is_same(const path& other) const { return IFileSystem::IsSamePath(c_str(), other.c_str()); }
bool path::is_in(const path& directory) const { return IFileSystem::InDirectory(directory.c_str(), c_str()); }
bool path::is_child_of(const path& directory) const {
    return IFileSystem::IsChildOfDirectory(directory.c_str(), c_str());
}

path path::relative_to(const path& base) const {
    // A piece of the base has one unit and a separator at least, and gives "../".
    std::vector<char16_t> buffer((base.view().size() + 1) / 2 * 3 + view().size() + 1);
    const View way = IFileSystem::RelativePath(buffer.data(), base.c_str(), c_str());
    return way.empty() ? path(u".") : path(way);
}

std::u16string path::normalRoot() const {
    const View root = view().substr(0, rootLength());
    std::u16string normal;
    if (!is_unc()) {
        for (const char16_t c : root) normal += unified(c);
        return normal;
    }
    for (const_iterator at(root); at != end(); ++at) normal.append(normal.empty() ? u"//" : u"/").append(*at);
    return normal.empty() ? u"//" : normal;
}

path path::lexically_normal() const {
    if (empty()) return path();
    std::vector<View> pieces;
    for (const_iterator at(view().substr(rootLength())); at != end(); ++at) {
        if (*at == u".") continue;
        if (*at != u"..") {
            pieces.push_back(*at);
        } else if (!pieces.empty() && pieces.back() != u"..") {
            pieces.pop_back();
        } else if (!is_absolute()) {
            pieces.push_back(*at);
        }
    }
    std::u16string normal = normalRoot();
    bool separate = is_absolute() && normal.back() != u'/';
    for (const View piece : pieces) {
        if (separate) normal += u'/';
        normal += piece;
        separate = true;
    }
    const path made(normal.empty() ? View(u".") : View(normal));
    const bool looksRooted = rootLength() == 0 && made.rootLength() != 0;
    return looksRooted ? path(CString(u"./") + made.text()) : made;
}

// Comparison ----------------------------------------------------------------------------------------------------------

int path::compare(const path& other) const {
    const View a = view(), b = other.view();
    const size_t shared = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < shared; ++i) {
        if (unified(a[i]) != unified(b[i])) return unified(a[i]) < unified(b[i]) ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

size_t path::hash() const {
    uint64_t value = 0xCBF29CE484222325u;  // FNV-1a over units.
    for (const char16_t c : view()) value = (value ^ unified(c)) * 0x100000001B3u;
    return static_cast<size_t>(value ^ value >> 32);
}

}  // namespace qv
