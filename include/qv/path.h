// path: a path as a value, of any length. What it says of kinds and relations is what IFileSystem's helpers say.
#pragma once

#include <compare>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// The text of a path and the operations on it; no file is looked at.
///
/// `/` and `\` both separate; a separator that the class writes itself is `/`, others stay as they are. Text ends at
/// its first NUL. A path begins with its root, which may be empty: "/", "C:/" or "C:" (one letter), "//server/share"
/// (UNC), or scheme and host as in "http://host". No operation cuts into the root. Failure: none, but std::bad_alloc.
/// Bitwise relocatable.
class QV_API path {
public:
    path() = default;
    /// Any text of the house or of the standard library, UTF-16 or UTF-8.
    template <class S>
    requires(!std::is_same_v<S, path> && (Private::TextLike<S, char16_t> || Private::TextLike<S, char>))
        path(const S& text)
        : m_text(text) {
        endAtNul();
    }
    path(const std::filesystem::path& other);

    const char16_t* c_str() const { return m_text.c_str(); }
    std::u16string_view view() const { return m_text.view(); }
    const CString& text() const { return m_text; }
    operator std::u16string_view() const { return view(); }
    /// With `/` for every separator, as UTF-8.
    std::string native() const;
    explicit operator std::filesystem::path() const;
    bool empty() const { return m_text.IsEmpty(); }

    // Joining ----------------------------------------------------------------------------------------------------

    /// Appends what follows, with `/` between unless one stands there or either is empty. An absolute path, or one with
    /// a root of its own, replaces the whole.
    path& operator/=(const path& more);
    friend path operator/(path a, const path& b) {
        a /= b;
        return a;
    }

    // Parts ------------------------------------------------------------------------------------------------------

    std::u16string_view root() const { return view().substr(0, rootLength()); }
    /// Without the last component and the separators before it, but never less than the root: "/a" gives "/", "a" gives
    /// "". A separator at the end counts as an empty last component: "a/b/" gives "a/b".
    path parent() const;
    /// What follows the last separator and the root; may be empty.
    path filename() const { return path(view().substr(filenameStart())); }
    /// The last dot of the file name and what follows, ".profile" whole included; empty for the names "." and "..".
    path extension() const { return path(view().substr(extensionStart())); }
    /// The file name without its extension.
    path stem() const { return path(view().substr(filenameStart(), extensionStart() - filenameStart())); }
    /// Replaces the extension, or appends one; the dot may be absent from `extension`, and "" removes it.
    path& replace_extension(const path& extension = path());
    path& replace_filename(const path& name);

    /// Goes through the pieces between separators; empty ones are left out, and a root counts as text like any other.
    /// The pieces point into the path.
    class QV_API const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = std::u16string_view;
        using difference_type = ptrdiff_t;
        using pointer = const value_type*;
        using reference = const value_type&;

        const_iterator() = default;
        reference operator*() const { return m_piece; }
        pointer operator->() const { return &m_piece; }
        const_iterator& operator++() {
            advance();
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator before = *this;
            advance();
            return before;
        }
        /// Of iterators over the same path.
        friend bool operator==(const const_iterator& a, const const_iterator& b) {
            return a.m_piece.data() == b.m_piece.data();
        }

    private:
        friend class path;
        explicit const_iterator(std::u16string_view rest) : m_rest(rest) { advance(); }
        void advance();

        std::u16string_view m_rest, m_piece;  // The piece of the end has no data.
    };
    using iterator = const_iterator;
    const_iterator begin() const { return const_iterator(view()); }
    const_iterator end() const { return const_iterator(); }

    // Kinds ------------------------------------------------------------------------------------------------------

    /// Begins at a root that says where: "/", "C:/", "//server" or "http://". "C:a" hangs on the drive's directory.
    bool is_absolute() const;
    bool is_relative() const { return !is_absolute(); }
    /// A letter and a colon.
    bool is_windows() const;
    /// Two separators.
    bool is_unc() const;
    /// Letters, a colon, a separator. One letter is a drive here, and no scheme.
    bool is_url() const;

    // Relations, by pieces and without regard to case; separators at either end do not count -----------------------

    bool is_same(const path& other) const;
    /// Exactly one piece below `directory`.
    bool is_in(const path& directory) const;
    /// Any number of pieces below `directory`, but at least one.
    bool is_child_of(const path& directory) const;
    /// The way from directory `base` to this path, as IFileSystem::RelativePath finds it: "../../d" from "a/b/c" to
    /// "a/d", and "." where both are the same.
    path relative_to(const path& base) const;

    /// The shortest path of the same meaning if there are no links: `/` for every separator, none doubled and none at
    /// the end, no ".", and ".." only at the front of a relative path. What is nothing then is ".". A relative path
    /// that would look like a rooted one ("./C:/x") keeps "./" at its front.
    path lexically_normal() const;

    // Comparison, regarding case, where both separators are the same -----------------------------------------------

    friend bool operator==(const path& a, const path& b) { return a.compare(b) == 0; }
    friend std::strong_ordering operator<=>(const path& a, const path& b) { return a.compare(b) <=> 0; }
    /// Below, equal to or above 0, by UTF-16 units with `/` for every separator.
    int compare(const path& other) const;
    size_t hash() const;

private:
    void endAtNul();
    std::u16string normalRoot() const;
    size_t rootLength() const;
    size_t filenameStart() const;
    size_t extensionStart() const;

    CString m_text;
};

}  // namespace qv

template <>
struct std::hash<qv::path> {
    size_t operator()(const qv::path& value) const { return value.hash(); }
};
