// The two directions of the binary form: a writer and a reader with the same calls, so that one description of the
// contents serves both. What the calls store is told in binary_form.cpp.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "measurement/rcal/fields.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/string.h"

namespace qv::rcalBinary {

using rcalFields::Worded;
using Name = const char16_t*;

/// Gathers the bytes in memory, so that a file that cannot be written is noticed once, at its end.
class Writer {
public:
    /// Begins with those 8 bytes and the version.
    /// @param swap  Numbers are big-endian.
    Writer(bool swap, const char (&beginning)[8], int16_t version);

    Writer& operator()(Name, double& value) { return note(m_bytes.PutDouble(value)); }
    Writer& operator()(Name, int32_t& value) { return note(m_bytes.PutLong(value)); }
    Writer& operator()(Name, uint32_t& value) { return note(m_bytes.PutDWORD(value)); }
    Writer& operator()(Name, bool& value) { return note(m_bytes.PutBool(value)); }
    Writer& operator()(Name, CString& value);
    template <class E>
    Writer& operator()(Name, Worded<E> value) {
        return note(m_bytes.PutLong(static_cast<int32_t>(value.value)));
    }
    void path(Name, CString& value);
    void byte(Name, EDataType& value) { note(m_bytes.PutBYTE(static_cast<uint8_t>(value))); }

    /// The number of elements, and each of them.
    template <class T, class Each>
    void each(Name name, TArray<T>& elements, uint32_t leastBytes, uint32_t most, Each each) {
        count(name, elements, leastBytes, most);
        again(elements, each);
    }
    /// The number of elements alone; each of elements whose number stood before.
    template <class T>
    void count(Name, TArray<T>& elements, uint32_t, uint32_t) {
        note(m_bytes.PutDWORD(elements.size()));
    }
    template <class T, class Each>
    void again(TArray<T>& elements, Each each) {
        for (T& element : elements) each(element);
    }
    void list(Name, TArray<double>& values);
    void tags(CTagArray& tags);
    void pixels(BACKGROUND_FILE& picture);
    /// For diagnostics.
    void place(Name, uint32_t) {}

    /// Puts everything into the file. False leaves a diagnostic.
    bool finish(IFile& file);

private:
    Writer& note(bool written) {
        m_ok = m_ok && written;
        return *this;
    }
    CMemFile m_bytes;
    bool m_ok = true;
};

/// Reads ahead of the file's position, until finish(). Behind the first field that is not there every call does
/// nothing; the diagnostic names that field.
class Reader {
public:
    explicit Reader(IFile& file);

    Reader& operator()(Name name, double& value) { return scalar(name, value); }
    Reader& operator()(Name name, int32_t& value) { return scalar(name, value); }
    Reader& operator()(Name name, uint32_t& value) { return scalar(name, value); }
    Reader& operator()(Name name, bool& value);
    Reader& operator()(Name name, CString& value);
    template <class E>
    Reader& operator()(Name name, Worded<E> value) {
        int32_t number = 0;
        scalar(name, number);
        value.value = static_cast<E>(number);
        return *this;
    }
    void path(Name name, CString& value);
    void byte(Name name, EDataType& value);

    /// `leastBytes` is what an element takes at least: more of them than the rest of the file can hold are refused
    /// before there is memory for them, as are more than `most`.
    template <class T, class Each>
    void each(Name name, TArray<T>& elements, uint32_t leastBytes, uint32_t most, Each each) {
        count(name, elements, leastBytes, most);
        again(elements, each);
    }
    template <class T>
    void count(Name name, TArray<T>& elements, uint32_t leastBytes, uint32_t most) {
        const uint32_t number = countUpTo(name, leastBytes, most);
        if (!elements.SetSize(number)) refuse(name, u"no memory");
    }
    template <class T, class Each>
    void again(TArray<T>& elements, Each each) {
        for (T& element : elements) {
            if (!m_ok) return;
            each(element);
        }
    }
    void list(Name name, TArray<double>& values);
    void tags(CTagArray& tags);
    void pixels(BACKGROUND_FILE& picture);
    void place(Name what, uint32_t index) {
        m_place = what;
        m_index = index;
    }

    /// Whether everything was there. Moves the file's position behind it.
    bool finish();

private:
    template <class T>
    Reader& scalar(Name name, T& value) {
        value = T{};
        take(name, &value, sizeof value);
        if (m_swap) reverse(&value, sizeof value);
        return *this;
    }
    static void reverse(void* bytes, size_t size);
    int64_t position() const { return m_end - m_left; }
    uint32_t countUpTo(Name name, uint32_t leastBytes, uint32_t most);
    bool take(Name name, void* to, size_t size);
    void text(Name name, uint32_t length, CString& value);
    void refuse(Name name, const CString& found);

    IFile& m_file;
    const bool m_swap;
    const int64_t m_end;  ///< Size of the file.
    int64_t m_left;       ///< Bytes that were not taken yet, buffered ones among them.
    std::array<uint8_t, 0x10000> m_buffer;
    size_t m_at = 0;
    size_t m_filled = 0;
    Name m_place = nullptr;
    uint32_t m_index = 0;
    bool m_ok = true;
};

inline constexpr uint32_t anyNumber = std::numeric_limits<uint32_t>::max();

}  // namespace qv::rcalBinary
