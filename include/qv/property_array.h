// CPropertyArray: a short ordered list of names and texts, looked up by name.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/string.h"

namespace qv {

/// Pairs of name and text in the order of their first setting. Names compare without regard to case and keep the
/// spelling of their first setting. Looking up is a linear search.
///
/// Bitwise relocatable. Threads: no locks; an array belongs to one thread at a time.
class QV_API CPropertyArray {
public:
    /// A name and its text.
    struct ENTRY {
        CString name = Private::sharedEmptyText();
        CString value = Private::sharedEmptyText();
    };

    /// One name of an array, whether or not the array has it: what operator[] returns. Assigning one CEntry to another
    /// makes it stand for the same name of the same array; no value is copied.
    /// Ownership: refers to the array, which must outlive it.
    class QV_API CEntry {
    public:
        CEntry(CPropertyArray* array, const CString& name) : m_array(array), m_name(name) {}

        /// Whether the array has the name.
        bool Exists() const { return m_array->FindValue(m_name.c_str()) != -1; }

        // Assignment sets the value, adding the name when it is not there: text, "%d", "%I64d", "%f" with its six
        // places, an address as hexadecimal digits (CUIntPtr::ToStringHex).
        CEntry& operator=(const char16_t* value);
        CEntry& operator=(const CString& value);
        CEntry& operator=(int value);
        CEntry& operator=(int64_t value);
        CEntry& operator=(double value);
        CEntry& operator=(void* value);

        /// As GetValue gives it: good until that value is set, the array cleared or destroyed.
        operator const char16_t*() const { return m_array->GetValue(m_name.c_str()); }
        // The number that the text begins with, held to the type's limits; 0 where there is none.
        operator int() const;
        operator double() const;
        operator int64_t() const;

    private:
        CPropertyArray* m_array;
        CString m_name;
    };

    CPropertyArray() = default;
    CPropertyArray(const CPropertyArray&) = default;
    CPropertyArray& operator=(const CPropertyArray& other) {
        if (this != &other) m_entries = other.m_entries;
        return *this;
    }

    /// The index of the first entry of that name; -1 when there is none. A null name counts as "".
    int FindValue(const char16_t* name) const;
    /// The text; "" when the name is not there. A value whose string has a null handle gives a null pointer.
    const char16_t* GetValue(const char16_t* name) const;
    /// Replaces the text of an entry that is there, else adds one at the end.
    void SetValue(const char16_t* name, const char16_t* value);
    void SetValue(const char16_t* name, const CString& value);

    CEntry operator[](const char16_t* name) { return CEntry(this, CString(name)); }
    /// The entry at an index. Outside the array its name is "", so that an assignment adds an entry of that name.
    CEntry operator[](int i);

    uint32_t nValues() const { return m_entries.size(); }
    /// Name and text of the entry at an index below nValues(), in the order of their first setting; "" behind the last.
    /// Valid until the array changes.
    const CString& GetNameAt(uint32_t i) const;
    const CString& GetValueAt(uint32_t i) const;
    void Clear() { m_entries.Empty(); }

private:
    TArray<ENTRY> m_entries;
};

}  // namespace qv
