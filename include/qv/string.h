// CString and CStringMB: reference-counted, copy-on-write text in UTF-16 and UTF-8, and the raw-array functions beside
// them. Two interfaces stand side by side: the capitalised one (int positions, -1 for "not found", never throws) and
// the standard library's (size_t positions, npos, COutOfRangeException).
#pragma once

#include <atomic>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>

#include "qv/api.h"

namespace qv {

template <class T>
class TArray;
template <class Ch>
class TString;

/// Text in 16-bit units, UTF-16.
using CString = TString<char16_t>;
/// Text in bytes, UTF-8.
using CStringMB = TString<char>;

namespace Private {

template <class Ch>
concept TextUnit = std::same_as<Ch, char> || std::same_as<Ch, char16_t>;

/// A type that reads as text of the width Ch: a literal, a pointer to NUL-terminated text, a string of the standard
/// library or a view of one, a TString.
template <class S, class Ch>
concept TextPointer = std::is_convertible_v<const S&, const Ch*> && !std::is_arithmetic_v<S>;
template <class S, class Ch>
concept TextRange = std::is_convertible_v<const S&, std::basic_string_view<Ch>> && !TextPointer<S, Ch>;
template <class S, class Ch>
concept TextLike = TextPointer<S, Ch> || TextRange<S, Ch>;

/// A position in a text, as opposed to an index: a pointer, which the literal 0 is not.
template <class It, class Ch>
concept PositionIn = std::is_pointer_v<It> && std::is_convertible_v<It, const Ch*>;

/// The text parameter of a string operation. A null pointer counts as "". The text behind a pointer is measured only
/// when its length is asked for, so a pointer with a count need not be terminated.
template <class Ch>
class TextArg {
public:
    template <TextLike<Ch> S>
    TextArg(const S& source) {
        if constexpr (TextPointer<S, Ch>) {
            const Ch* text = source;
            if (text != nullptr) m_text = text, m_size = unmeasured;
        } else {
            const std::basic_string_view<Ch> text = source;
            if (text.data() != nullptr) m_text = text.data(), m_size = text.size();
        }
    }

    std::basic_string_view<Ch> all() const {
        return m_size == unmeasured ? std::basic_string_view<Ch>(m_text) : std::basic_string_view<Ch>(m_text, m_size);
    }
    /// The first `n` units; all of them when `n` is negative. Behind a plain pointer `n` units must exist.
    std::basic_string_view<Ch> first(ptrdiff_t n) const {
        if (n < 0) return all();
        const auto count = static_cast<size_t>(n);
        return {m_text, count < m_size ? count : m_size};
    }

    /// The same, but ending at the first NUL behind a plain pointer.
    std::basic_string_view<Ch> firstToNul(ptrdiff_t n) const {
        if (n < 0) return all();
        const auto limit = static_cast<size_t>(n);
        if (m_size != unmeasured) return first(n);
        size_t size = 0;
        while (size < limit && m_text[size] != Ch()) ++size;
        return {m_text, size};
    }

private:
    static constexpr size_t unmeasured = ~size_t{0};
    static constexpr Ch emptyText[1] = {};
    const Ch* m_text = emptyText;
    size_t m_size = 0;
};

/// One "" that texts which are often empty can share, so that they cost no memory before they are set. Shared by all
/// threads: no reading of an empty text changes it, and its copies are not counted.
QV_API const CString& sharedEmptyText();

template <class Ch>
struct TextPair {
    std::basic_string_view<Ch> first, second;
};

/// One argument of the formatter with its type.
class FormatArg {
public:
    enum class Kind : uint8_t { None, Signed, Unsigned, NarrowUnit, Real, NarrowText, WideText, Pointer };

    FormatArg() = default;
    template <class T>
    FormatArg(const T& value) {
        if constexpr (std::is_enum_v<T>) {
            *this = FormatArg(static_cast<std::underlying_type_t<T>>(value));
        } else if constexpr (std::is_same_v<T, char>) {
            m_kind = Kind::NarrowUnit;
            m_signed = value;
        } else if constexpr (std::is_integral_v<T>) {
            m_kind = std::is_signed_v<T> ? Kind::Signed : Kind::Unsigned;
            m_signed = static_cast<int64_t>(value);
        } else if constexpr (std::is_floating_point_v<T>) {
            m_kind = Kind::Real;
            m_real = static_cast<double>(value);
        } else if constexpr (std::is_same_v<T, std::nullptr_t>) {
            m_kind = Kind::Pointer;
            m_pointer = nullptr;
        } else if constexpr (TextLike<T, char>) {
            setText<char>(value, Kind::NarrowText);
        } else if constexpr (TextLike<T, char16_t>) {
            setText<char16_t>(value, Kind::WideText);
        } else {
            static_assert(std::is_convertible_v<const T&, const volatile void*>, "not a type that can be formatted");
            m_kind = Kind::Pointer;
            m_pointer = const_cast<const void*>(static_cast<const volatile void*>(value));
        }
    }

    Kind kind() const { return m_kind; }
    /// The value of an integer, sign-extended to 64 bits if its type is signed.
    int64_t integer() const { return m_signed; }
    double real() const { return m_real; }
    const void* pointer() const { return m_pointer; }
    /// Units of a text, or all bits set when it is NUL-terminated and not measured yet.
    size_t textSize() const { return m_size; }

private:
    template <class Ch, class T>
    void setText(const T& value, Kind kind) {
        m_kind = kind;
        if constexpr (TextPointer<T, Ch>) {
            m_pointer = static_cast<const Ch*>(value);
        } else {
            const std::basic_string_view<Ch> view = value;
            m_pointer = view.data();
            m_size = view.data() == nullptr ? 0 : view.size();
        }
    }

    Kind m_kind = Kind::None;
    union {
        int64_t m_signed = 0;
        double m_real;
        const void* m_pointer;
    };
    size_t m_size = ~size_t{0};
};

/// The packed arguments of one formatting call; refers to them, owns nothing.
struct FormatArgs {
    const FormatArg* items = nullptr;
    size_t count = 0;
};

/// Packs arguments for FormatV. Lives as long as the full expression that made it, like the arguments themselves.
template <size_t N>
struct PackedArgs {
    FormatArg items[N == 0 ? 1 : N];
    operator FormatArgs() const { return {items, N}; }
};
template <class... Args>
PackedArgs<sizeof...(Args)> packArgs(const Args&... args) {
    return {{FormatArg(args)...}};
}

}  // namespace Private

/// Text behind one pointer, shared between copies and copied on the first change.
///
/// A null handle is a legal, empty string; Empty() and moving from a string leave one. The Ch of CString is char16_t,
/// of CStringMB char. Text of the other width is converted between UTF-8 and UTF-16; what is malformed there becomes
/// U+FFFD and never stops the conversion.
/// Sizes:    lengths and capacities are 32-bit. A longer text is more than the allocator has: std::bad_alloc.
/// Growth:   a buffer is sized to what is asked for, so who builds a long text reserves first.
/// Counts:   a negative count of the capitalised interface means "all of it". A count beside a plain pointer is a
///           promise that so many units stand there, unless said otherwise. Arguments may lie in the string itself.
/// Case:     compared by simple Unicode case mapping of single units in CString, of ASCII letters in CStringMB.
/// Space:    blank, tab, line feed, vertical tab, form feed and carriage return.
/// Threads:  strings that share their text may be read, copied, changed and destroyed on different threads, except
///           that nothing else may be done with a shared text while one thread converts it to the other width. One
///           object belongs to one thread at a time.
template <class Ch>
class QV_API TString {
    static_assert(Private::TextUnit<Ch>);

public:
    /// The unit of the other width.
    using Other = std::conditional_t<std::is_same_v<Ch, char>, char16_t, char>;
    using View = std::basic_string_view<Ch>;
    using OtherView = std::basic_string_view<Other>;
    using Text = Private::TextArg<Ch>;

    using value_type = Ch;
    using size_type = size_t;
    using difference_type = ptrdiff_t;
    using reference = Ch&;
    using const_reference = const Ch&;
    using pointer = Ch*;
    using const_pointer = const Ch*;
    using iterator = Ch*;
    using const_iterator = const Ch*;
    using reverse_iterator = std::reverse_iterator<Ch*>;
    using const_reverse_iterator = std::reverse_iterator<const Ch*>;

    static constexpr size_t npos = ~size_t{0};

    // Sharing and lifetime ---------------------------------------------------------------------------------------

    /// A representation that holds "".
    TString() : TString(nullptr) {}
    TString(const TString& other) noexcept : m_rep(other.m_rep) { addReference(m_rep); }
    /// Leaves the other string with a null handle.
    TString(TString&& other) noexcept : m_rep(other.m_rep) { other.m_rep = nullptr; }
    TString(std::nullptr_t, ptrdiff_t = -1) : TString(NullHandle{}) { Copy(static_cast<const Ch*>(nullptr)); }
    TString(const Ch* text, ptrdiff_t n = -1) : TString(NullHandle{}) { Copy(text, n); }
    TString(const Other* text, ptrdiff_t n = -1) : TString(NullHandle{}) { Copy(text, n); }
    template <class S>
    requires(Private::TextRange<S, Ch> && !std::same_as<S, TString>) TString(const S& text) { assignView(text); }
    template <class S>
    requires(Private::TextRange<S, Other> && !Private::TextRange<S, Ch>) TString(const S& text) {
        assignConverted(text);
    }
    template <std::same_as<TString> S>
    TString(const S& other, size_t pos, size_t n = npos) : TString(NullHandle{}) {
        assign(other, pos, n);
    }
    template <std::integral N, std::integral C>
    TString(N count, C ch) : TString(NullHandle{}) {
        assign(static_cast<size_t>(count), static_cast<Ch>(ch));
    }
    /// Two texts, one behind the other.
    explicit TString(const Private::TextPair<Ch>& parts) : TString(NullHandle{}) {
        reserve(parts.first.size() + parts.second.size());
        append(parts.first).append(parts.second);
    }
    ~TString() { release(m_rep); }

    TString& operator=(const TString& other) noexcept {
        if (m_rep == other.m_rep) return *this;
        addReference(other.m_rep);
        release(m_rep);
        m_rep = other.m_rep;
        return *this;
    }
    TString& operator=(TString&& other) noexcept {
        swap(other);
        return *this;
    }

    /// Releases the text and makes the handle null.
    void Destroy() noexcept {
        release(m_rep);
        m_rep = nullptr;
    }
    void Empty() noexcept { Destroy(); }
    /// The length becomes 0; handle and capacity stay.
    void clear() { erase(0, npos); }
    void swap(TString& other) noexcept {
        Rep* mine = m_rep;
        m_rep = other.m_rep;
        other.m_rep = mine;
    }

    /// Ensures a private representation with room for `n` units and the terminator; the text is kept.
    void Alloc(int n);
    void reserve(size_t n);
    /// The private, writable buffer with room for `n` units and the terminator; for the present length when `n` is -1.
    /// Call ReleaseBuffer() when the text stands in it.
    Ch* GetBuffer(int n = -1);
    /// Takes the length from the first NUL in the buffer.
    void ReleaseBuffer();

    /// Replaces the text by the first `n` units of `text`, or all up to its NUL when that comes first or `n` is
    /// negative. A null pointer counts as "". The capacity is not reduced.
    void Copy(const Ch* text, ptrdiff_t n = -1);
    /// The same with conversion; `n` counts units of the source.
    void Copy(const Other* text, ptrdiff_t n = -1);
    void Copy(std::nullptr_t, ptrdiff_t = -1) { Copy(static_cast<const Ch*>(nullptr)); }
    template <Private::TextRange<Ch> S>
    void Copy(const S& text, ptrdiff_t n = -1) {
        assignView(Text(text).first(n));
    }

    // Reading ----------------------------------------------------------------------------------------------------

    /// NUL-terminated; "" for a null handle, never a null pointer.
    const Ch* c_str() const noexcept { return m_rep == nullptr ? emptyText : m_rep->buffer; }
    const Ch* data() const noexcept { return c_str(); }
    View view() const noexcept { return View(c_str(), length()); }
    operator View() const noexcept { return view(); }

    /// In characters of the own width, embedded NULs included; 0 for a null handle.
    int GetLength() const noexcept { return m_rep == nullptr ? 0 : m_rep->length; }
    bool IsEmpty() const noexcept { return GetLength() == 0; }

    /// The text as UTF-16: the buffer itself in CString, a conversion like ConvertToUTF16() in CStringMB.
    const char16_t* GetUTF16() const { return ConvertToUTF16(); }
    const char16_t* GetTChar() const { return ConvertToUTF16(); }
    /// The text as UTF-8: a conversion in CString, the buffer itself in CStringMB.
    const char* GetUTF8() const { return ConvertToUTF8(); }

    // Comparison -------------------------------------------------------------------------------------------------

    /// -1, 0 or 1. All units with `n` of -1, else at most `n` of them and none behind a NUL in both. -1 when the
    /// handle is null.
    int Compare(Text s, int n = -1) const;
    int CompareTo(Text s, int n = -1) const { return Compare(s, n); }
    /// As Compare, up to the first NUL, without regard to case.
    int CompareNoCase(Text s, int n = -1) const;
    /// False for a null handle, also where `s` is "".
    bool Equals(Text s) const;
    bool EqualsNoCase(Text s) const;
    bool StartsWith(Text s) const;
    bool StartsWithNoCase(Text s) const;
    bool EndsWith(Text s) const;
    bool EndsWithNoCase(Text s) const;
    /// As StrCmp and StrICmp.
    static int Compare(Text a, Text b);
    static int CompareNoCase(Text a, Text b);

    // Changing ---------------------------------------------------------------------------------------------------

    /// Appends all of `s`, or its first `n` characters.
    void Concatenate(Text s, ptrdiff_t n = -1);
    TString& operator+=(Text s) {
        Concatenate(s);
        return *this;
    }
    TString& operator+=(Ch ch) {
        push_back(ch);
        return *this;
    }
    /// A null handle or an index outside the text gives one static character that all strings share. The index equal
    /// to the length first inserts a NUL there, which raises the length by one.
    template <std::integral I>
    Ch& operator[](I i) {
        if constexpr (std::is_signed_v<I>) {
            if (i < 0) return sharedCharacter();
        }
        return characterAt(static_cast<size_t>(i));
    }
    /// Unchecked; the index equal to the length gives the terminator.
    template <std::integral I>
    const Ch& operator[](I i) const {
        return data()[i];
    }
    /// Nothing unless 0 <= pos < length and n >= 1. Returns the new length, as do Insert and Replace.
    int Delete(int pos, int n = 1);
    /// A position outside 0 to length does nothing.
    int Insert(int pos, Text s, int n = -1);
    int Insert(int pos, Ch ch);
    /// Nothing unless 0 <= pos < length and count >= 1. A count that reaches past the end replaces all from `pos` on.
    int Replace(int pos, int count, Text s, int n = -1);
    /// Replaces every occurrence; the search goes on behind the inserted text. Returns the number of replacements; 0
    /// when `from` is empty.
    int Replace(Text from, Text to, bool caseSensitive = true);
    /// False, and nothing done, unless 0 <= n < length.
    bool Truncate(int n);

    // Searching: -1 when not found -------------------------------------------------------------------------------

    /// The first `ch` from `start` on.
    int FindChar(Ch ch) const { return FindChar(0, ch); }
    int FindChar(int start, Ch ch) const;
    /// Any character of `set`.
    int FindChar(Text set) const { return FindChar(0, set); }
    int FindChar(int start, Text set) const;
    /// Backward. A `start` at or past the length starts at the last character, a negative one finds nothing.
    int ReverseFindChar(Ch ch) const { return ReverseFindChar(0x7FFFFFFF, ch); }
    int ReverseFindChar(int start, Ch ch) const;
    int ReverseFindChar(Text set) const { return ReverseFindChar(0x7FFFFFFF, set); }
    int ReverseFindChar(int start, Text set) const;
    /// An empty `s` gives `start`. A `start` above the length minus that of `s`, or below 0, gives -1.
    int FindString(Text s, bool caseSensitive = true) const { return FindString(0, s, caseSensitive); }
    int FindString(int start, Text s, bool caseSensitive = true) const;
    bool Contains(Text s, bool caseSensitive = true) const { return FindString(0, s, caseSensitive) != -1; }
    bool ContainsNoCase(Text s) const { return Contains(s, false); }

    // Parts ------------------------------------------------------------------------------------------------------

    /// Up to `n` characters from `pos`. A `pos` at or past the length, or below 0, gives "".
    TString SubString(int pos, int n = -1) const;
    TString Mid(int pos, int n = -1) const { return SubString(pos, n); }
    /// The first `n` characters; all when `n` is negative.
    TString Left(int n) const { return SubString(0, n); }
    /// The last `n` characters; all when `n` exceeds the length, "" when it is negative.
    TString Right(int n) const;
    /// Without the first or last `n` characters, whatever they are. A negative `n` counts as 0.
    TString TrimLeft(int n) const;
    TString TrimRight(int n) const;
    /// Without leading white space and without at most one trailing white-space character.
    TString Trim() const;
    /// Without leading white space.
    TString LTrim() const;
    /// Without at most one trailing white-space character.
    TString RTrim() const;

    /// Cuts the text at each character of `delimiters` and stores the tokens, empty ones included; returns their
    /// number. An empty text gives one empty token.
    int Split(TArray<TString>& array, Text delimiters) const { return Split(*this, array, delimiters); }
    static int Split(Text text, TArray<TString>& array, Text delimiters);
    static TString Join(const TArray<TString>& array, Text separator);

    /// Each word's leading consonants moved behind it, then "ay", for pseudo-translation: "Hello" gives "elloHay".
    TString ToPigLatin() const { return ToPigLatin(*this); }
    static TString ToPigLatin(Text text);

    // Formatting -------------------------------------------------------------------------------------------------

    /// Replaces the text by `fmt` filled in by the rules of printf, each argument taken by its own type:
    ///   %d %i            signed integers       %u %o %x %X      unsigned integers
    ///   %f %F %e %E %g %G %a %A  numbers (integers too)   %c %C   a character, given by its code
    ///   %s %S            text of either width, converted as needed   %p   an address   %%   a percent sign
    /// with the flags - + blank # 0, a width, a precision, and * for either. An integer is first cut to 32 bits, or to
    /// 8, 16, 32 or 64 by hh, h, l or I32, and ll, I64, j, z, t, I or L. Lengths before text and reals are ignored. The
    /// precision of text counts units of the argument, and no unit behind it is read. Widths and the precision of
    /// numbers are held to 1 MiB. A null text pointer prints "(null)". A conversion without an argument, or with one of
    /// an unfit type, prints nothing; so does %n. An unknown conversion is printed as it stands. The locale plays no
    /// part. A NUL in the result ends it.
    template <class... Args>
    TString& Format(Text fmt, const Args&... args) {
        return FormatV(fmt, Private::packArgs(args...));
    }
    /// The same with arguments packed by Private::packArgs.
    TString& FormatV(Text fmt, Private::FormatArgs args);
    template <class... Args>
    static TString FromFormat(Text fmt, const Args&... args) {
        TString made(NullHandle{});
        made.FormatV(fmt, Private::packArgs(args...));
        return made;
    }
    /// As "%d" prints it.
    static TString FromInt(int n);
    /// As "%g" prints it: six significant digits.
    static TString FromDouble(double x);

    // Conversions ------------------------------------------------------------------------------------------------

    /// Converts into the conversion buffer, which belongs to the shared representation: the result stays valid until
    /// the next conversion of this text or its last release, and does not follow changes. A static "" for an empty
    /// text. The width that the text already has is the buffer itself.
    const char* ConvertToUTF8() const;
    const char16_t* ConvertToUTF16() const;
    /// The text in a Windows code page, in the same conversion buffer. What has no place in the page becomes '?'. ""
    /// where the code page is unknown.
    const char* ConvertToCodePage(unsigned codePage) const;
    /// Replaces the text by `text` read in `codePage`; "" where the code page is unknown.
    void FromCodePage(unsigned codePage, const char* text);

    /// Conversions between arrays. `srcLen` of -1 means up to and with the terminator, which then counts in the result.
    /// With a null `dst` or a `dstLen` of 0 the result is the units needed; else the units written, and a terminator
    /// behind them if there is room. 0 where `dst` is too small (it may then hold a part), the source is null or of
    /// length 0, or the code page is unknown. Code page 65001 is UTF-8, and so is 0; others are those of iconv.
    static int ConvertToUTF8(const char16_t* src, int srcLen, char* dst, int dstLen);
    static int ConvertToCodePage(unsigned codePage, const char16_t* src, int srcLen, char* dst, int dstLen);
    static int ConvertToUTF16(const char* src, int srcLen, char16_t* dst, int dstLen);
    static int ConvertToTCHAR(const char* src, int srcLen, char16_t* dst, int dstLen);
    static int ConvertFromCodePage(unsigned codePage, const char* src, int srcLen, char16_t* dst, int dstLen);
    /// A plain copy. `srcLen` of -1 means measure it, without the terminator. A `dstLen` of 0 gives the source length,
    /// one below it gives -1; else copies, and terminates if there is room.
    static int ConvertToTCHAR(const char16_t* src, int srcLen, char16_t* dst, int dstLen);

    // The standard library's interface ---------------------------------------------------------------------------
    // Positions past the end throw COutOfRangeException, counts are clamped to the end. assign and substr of a part
    // fail as append does, insert as replace does.

    /// Replaces the text.
    TString& assign(const TString& other) { return *this = other; }
    TString& assign(const TString& other, size_t pos, size_t n = npos);
    TString& assign(const Ch* s, size_t n);
    TString& assign(Text s);
    TString& assign(size_t count, Ch ch);
    template <std::input_iterator It>
    TString& assign(It first, It last) {
        const std::basic_string<Ch> text(first, last);
        return assign(text.data(), text.size());
    }

    /// Adds at the end.
    TString& append(const TString& other, size_t pos, size_t n = npos);
    TString& append(const Ch* s, size_t n);
    TString& append(Text s);
    TString& append(size_t count, Ch ch);
    template <std::input_iterator It>
    TString& append(It first, It last) {
        const std::basic_string<Ch> text(first, last);
        return append(text.data(), text.size());
    }
    void push_back(Ch ch) { append(size_t{1}, ch); }
    /// Nothing on an empty string.
    void pop_back();

    /// Adds in front of `pos`.
    TString& insert(size_t pos, const TString& other, size_t pos2, size_t n = npos) {
        return replace(pos, 0, other, pos2, n);
    }
    TString& insert(size_t pos, const Ch* s, size_t n) { return replace(pos, 0, s, n); }
    TString& insert(size_t pos, Text s) { return replace(pos, 0, s); }
    TString& insert(size_t pos, size_t count, Ch ch) { return replace(pos, 0, count, ch); }
    /// The forms with iterators return the position of the first inserted character.
    template <Private::PositionIn<Ch> It>
    iterator insert(It where, Ch ch) {
        return insert(where, size_t{1}, ch);
    }
    template <Private::PositionIn<Ch> It>
    iterator insert(It where, size_t count, Ch ch) {
        const size_t pos = indexOf(where);
        replace(pos, 0, count, ch);
        return begin() + pos;
    }
    template <Private::PositionIn<Ch> It, std::input_iterator From>
    iterator insert(It where, From first, From last) {
        const size_t pos = indexOf(where);
        replace(where, where, first, last);
        return begin() + pos;
    }

    /// Removes `n` characters from `pos` on.
    TString& erase(size_t pos = 0, size_t n = npos);
    /// Returns the position behind what was removed.
    template <Private::PositionIn<Ch> It>
    iterator erase(It where) {
        return erase(where, where + 1);
    }
    template <Private::PositionIn<Ch> It>
    iterator erase(It first, It last) {
        const size_t pos = indexOf(first);
        erase(pos, static_cast<size_t>(last - first));
        return begin() + pos;
    }

    /// Puts a text in the place of `n` characters from `pos` on.
    TString& replace(size_t pos, size_t n, const TString& other, size_t pos2, size_t n2 = npos);
    TString& replace(size_t pos, size_t n, const Ch* s, size_t n2);
    TString& replace(size_t pos, size_t n, Text s);
    TString& replace(size_t pos, size_t n, size_t count, Ch ch);
    template <Private::PositionIn<Ch> It>
    TString& replace(It first, It last, Text s) {
        return replace(indexOf(first), static_cast<size_t>(last - first), s);
    }
    template <Private::PositionIn<Ch> It>
    TString& replace(It first, It last, const Ch* s, size_t n) {
        return replace(indexOf(first), static_cast<size_t>(last - first), s, n);
    }
    template <Private::PositionIn<Ch> It>
    TString& replace(It first, It last, size_t count, Ch ch) {
        return replace(indexOf(first), static_cast<size_t>(last - first), count, ch);
    }
    template <Private::PositionIn<Ch> It, std::input_iterator From>
    TString& replace(It first, It last, From from, From to) {
        const std::basic_string<Ch> text(from, to);
        return replace(first, last, text.data(), text.size());
    }

    /// Throws COutOfRangeException at and past the end.
    Ch& at(size_t pos);
    const Ch& at(size_t pos) const;
    /// The terminator of an empty string; the shared static character when it might be written.
    Ch& front() { return empty() ? sharedCharacter() : at(0); }
    const Ch& front() const { return *data(); }
    /// Goes through at(), so an empty string throws.
    Ch& back() { return at(length() - 1); }
    const Ch& back() const { return at(length() - 1); }

    /// The non-const iterators make the text private, since they can be written through.
    iterator begin() { return writable(); }
    iterator end() { return writable() + length(); }
    const_iterator begin() const { return data(); }
    const_iterator end() const { return data() + length(); }
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }
    reverse_iterator rbegin() { return reverse_iterator(end()); }
    reverse_iterator rend() { return reverse_iterator(begin()); }
    const_reverse_iterator rbegin() const { return const_reverse_iterator(end()); }
    const_reverse_iterator rend() const { return const_reverse_iterator(begin()); }
    const_reverse_iterator crbegin() const { return rbegin(); }
    const_reverse_iterator crend() const { return rend(); }

    size_t size() const noexcept { return length(); }
    size_t length() const noexcept { return static_cast<size_t>(GetLength()); }
    /// 0x7FFFFFFFFFFFFFFF for CString, all bits set for CStringMB; the representation holds 0x7FFFFFFE at most.
    size_t max_size() const noexcept { return ~size_t{0} / sizeof(Ch); }
    size_t capacity() const noexcept { return m_rep == nullptr ? 0 : static_cast<size_t>(m_rep->capacity); }
    bool empty() const noexcept { return IsEmpty(); }
    /// Fills with NUL, or cuts without freeing.
    void resize(size_t n) { resize(n, Ch()); }
    void resize(size_t n, Ch ch);

    /// The `n` characters from `pos` on.
    TString substr(size_t pos = 0, size_t n = npos) const;
    /// Copies without a terminator; returns the units copied.
    size_t copy(Ch* dst, size_t n, size_t pos = 0) const;

    /// The units compared are the first of this string, whatever `pos` says: `pos` only limits how many, to those
    /// behind it. Over the lesser of `n` and the other length, ending at a NUL in both; then the shorter is less.
    int compare(size_t pos, size_t n, const Ch* s, size_t m) const;
    int compare(size_t pos, size_t n, const TString& other, size_t pos2, size_t n2 = npos) const;
    int compare(size_t pos, size_t n, Text s) const;
    int compare(Text s) const { return compare(0, length(), s); }

    /// Built on compare() and so on the string's beginning: `pos` when the string begins with `s`, else npos. An empty
    /// `s` gives `pos`. A pointer is to NUL-terminated text also beside a count, and where the count is not that text's
    /// length nothing is found. FindString is the search for a substring.
    size_t find(const Ch* s, size_t pos, size_t n) const;
    size_t find(Text s, size_t pos = 0) const;
    size_t find(Ch ch, size_t pos = 0) const { return find(&ch, pos, 1, ch == Ch() ? 0 : 1); }
    /// As find, with the greatest position that `s` could have, clamped to `pos`.
    size_t rfind(const Ch* s, size_t pos, size_t n) const;
    size_t rfind(Text s, size_t pos = npos) const;
    size_t rfind(Ch ch, size_t pos = npos) const { return rfind(&ch, pos, 1, ch == Ch() ? 0 : 1); }

    /// True searches for the first or last character in, or not in, a set.
    size_t find_first_of(const Ch* s, size_t pos, size_t n) const { return findFirst(View(s, n), pos, true); }
    size_t find_first_of(Text s, size_t pos = 0) const { return findFirst(s.all(), pos, true); }
    size_t find_first_of(Ch ch, size_t pos = 0) const { return findFirst(View(&ch, 1), pos, true); }
    size_t find_first_not_of(const Ch* s, size_t pos, size_t n) const { return findFirst(View(s, n), pos, false); }
    size_t find_first_not_of(Text s, size_t pos = 0) const { return findFirst(s.all(), pos, false); }
    size_t find_first_not_of(Ch ch, size_t pos = 0) const { return findFirst(View(&ch, 1), pos, false); }
    size_t find_last_of(const Ch* s, size_t pos, size_t n) const { return findLast(View(s, n), pos, true); }
    size_t find_last_of(Text s, size_t pos = npos) const { return findLast(s.all(), pos, true); }
    size_t find_last_of(Ch ch, size_t pos = npos) const { return findLast(View(&ch, 1), pos, true); }
    size_t find_last_not_of(const Ch* s, size_t pos, size_t n) const { return findLast(View(s, n), pos, false); }
    size_t find_last_not_of(Text s, size_t pos = npos) const { return findLast(s.all(), pos, false); }
    size_t find_last_not_of(Ch ch, size_t pos = npos) const { return findLast(View(&ch, 1), pos, false); }

private:
    friend const TString<char16_t>& Private::sharedEmptyText();

    /// What the copies of a text share: one block of the general allocator, with the buffer at its end.
    struct Rep {
        std::atomic<int32_t> references{1};
        Ch* buffer = nullptr;         ///< NUL-terminated, room for capacity + 1.
        int32_t length = 0;           ///< Without the terminator.
        int32_t capacity = 0;         ///< Without the terminator.
        Other* conversion = nullptr;  ///< The last converted form.
        int32_t conversionSize = 0;   ///< Units of `conversion`.
    };
    /// The count of a representation that stays as long as the process.
    static constexpr int32_t uncounted = -1;
    struct NullHandle {};
    static constexpr Ch emptyText[1] = {};

    explicit TString(NullHandle) noexcept : m_rep(nullptr) {}

    static void addReference(Rep* rep) noexcept {
        if (rep == nullptr || rep->references.load(std::memory_order_relaxed) == uncounted) return;
        rep->references.fetch_add(1, std::memory_order_relaxed);
    }
    /// The only holder counts down to nothing at once: nobody else can come to hold the text.
    static void release(Rep* rep) noexcept {
        if (rep == nullptr) return;
        const int32_t references = rep->references.load(std::memory_order_acquire);
        if (references == uncounted) return;
        if (references == 1 || rep->references.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy(rep);
    }
    static void destroy(Rep* rep) noexcept;
    static Rep* create(size_t capacity);
    static Ch& sharedCharacter();

    bool holds(const void* address) const noexcept;
    size_t indexOf(const Ch* position) const { return static_cast<size_t>(position - data()); }
    void makeRoom(size_t n, bool keepText = true);
    void setLength(size_t n) noexcept;
    Ch* writable();
    Ch& characterAt(size_t i);

    /// Opens room for `count` units in place of `n` at `pos` and returns its address; positions are checked already.
    Ch* openGap(size_t pos, size_t n, size_t count);
    void splice(size_t pos, size_t n, View text);
    void assignView(View text);
    void assignConverted(OtherView text);
    Other* conversionBuffer(size_t units) const;
    const Other* converted() const;

    static size_t lengthToNul(const Ch* s, size_t n);
    size_t find(const Ch* s, size_t pos, size_t n, size_t textLength) const;
    size_t rfind(const Ch* s, size_t pos, size_t n, size_t textLength) const;
    size_t findFirst(View set, size_t pos, bool inSet) const;
    size_t findLast(View set, size_t pos, bool inSet) const;

    Rep* m_rep = nullptr;
};

// Operators: a TString with a TString, a literal or pointer, or any string or view of the same width -----------------

template <class Ch, Private::TextLike<Ch> S>
bool operator==(const TString<Ch>& a, const S& b) {
    return a.view() == Private::TextArg<Ch>(b).all();
}
template <class Ch, Private::TextLike<Ch> S>
std::strong_ordering operator<=>(const TString<Ch>& a, const S& b) {
    return a.view().compare(Private::TextArg<Ch>(b).all()) <=> 0;
}
template <class Ch, Private::TextLike<Ch> S>
TString<Ch> operator+(const TString<Ch>& a, const S& b) {
    return TString<Ch>(Private::TextPair<Ch>{a.view(), Private::TextArg<Ch>(b).all()});
}
template <class Ch, Private::TextLike<Ch> S>
requires(!std::same_as<S, TString<Ch>>) TString<Ch>
operator+(const S& a, const TString<Ch>& b) {
    return TString<Ch>(Private::TextPair<Ch>{Private::TextArg<Ch>(a).all(), b.view()});
}
template <class Ch, std::same_as<Ch> C>
TString<Ch> operator+(const TString<Ch>& a, C b) {
    return a + std::basic_string_view<Ch>(&b, 1);
}
template <class Ch, std::same_as<Ch> C>
TString<Ch> operator+(C a, const TString<Ch>& b) {
    return std::basic_string_view<Ch>(&a, 1) + b;
}

extern template class QV_API TString<char>;
extern template class QV_API TString<char16_t>;

// Raw arrays, each for char and char16_t. A null pointer reads as "". ------------------------------------------------

/// Skips leading white space and writes NULs over trailing white space; the first kept character.
template <Private::TextUnit Ch>
QV_API Ch* Trim(Ch* p);
/// The first character that is no white space; nothing is written.
template <class Ch>
requires Private::TextUnit<std::remove_const_t<Ch>> QV_API Ch* LTrim(Ch* p);
/// Copies at most `size` - 1 units and terminates; returns `dst`. Nothing where `size` is 0.
template <Private::TextUnit Ch>
QV_API Ch* StrCpy(Ch* dst, const std::type_identity_t<Ch>* src, size_t size);
/// Appends as much as fits in `size` units with the terminator; returns `dst`.
template <Private::TextUnit Ch>
QV_API Ch* StrCat(Ch* dst, const std::type_identity_t<Ch>* src, size_t size);
/// -1, 0 or 1. The I forms disregard case, the N forms look at no more than `n` units.
template <Private::TextUnit Ch>
QV_API int StrCmp(const Ch* a, const Ch* b);
template <Private::TextUnit Ch>
QV_API int StrICmp(const Ch* a, const Ch* b);
template <Private::TextUnit Ch>
QV_API int StrNCmp(const Ch* a, const Ch* b, size_t n);
template <Private::TextUnit Ch>
QV_API int StrNICmp(const Ch* a, const Ch* b, size_t n);
/// Units before the terminator.
template <Private::TextUnit Ch>
QV_API size_t StrLen(const Ch* p);

}  // namespace qv
