// CVariant: one value of any of fourteen kinds, with its conversions, its text and its two saved forms.
#pragma once

#include <concepts>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/string.h"

namespace qv {

class IConfigStore;

namespace Private {

/// bool, char and the integers, float and double; the character types of Unicode are no numbers.
template <class T>
concept VariantScalar = std::is_arithmetic_v<T> && !std::same_as<T, char8_t> && !std::same_as<T, char16_t> &&
                        !std::same_as<T, char32_t> && !std::same_as<T, wchar_t> && sizeof(T) <= 8;

}  // namespace Private

/// One value of a type that is chosen at run time.
///
/// Nothing here fails for a bad conversion: text that is no number gives 0, a number that is too large for an integer
/// is cut to its low bits, text that is one is held to the nearest limit.
/// Threads:  no locks; a variant belongs to one thread at a time.
class QV_API CVariant {
public:
    /// The kinds of value. The numbers are those of the binary form.
    enum EType : uint32_t {
        typeUndefined = 0,  ///< No value.
        typeBool = 1,
        typeInt8 = 2,
        typeUInt8 = 3,
        typeInt16 = 4,
        typeUInt16 = 5,
        typeInt32 = 6,
        typeUInt32 = 7,
        typeInt64 = 8,
        typeUInt64 = 9,
        typeFlt32 = 10,
        typeFlt64 = 11,
        typeString = 12,
        typeBlob = 13,  ///< Bytes.
        typeEnum = 14,  ///< A 64-bit number with a table of names.
    };

    /// An entry of an enumeration's table.
    struct SEnumValue {
        CString name = Private::sharedEmptyText();
        int64_t value = 0;
    };

    // Construction and type --------------------------------------------------------------------------------------

    CVariant() = default;
    /// `char` is an Int8; an integer of any other name has the type of its size and sign.
    template <Private::VariantScalar T>
    CVariant(T value) {
        store(scalarType<T>(), &value, sizeof value);
    }
    CVariant(const CString& value) : m_type(typeString), m_string(value) {}
    CVariant(const char16_t* value) : m_type(typeString), m_string(value) {}
    /// The type without a value: 0, "", no bytes.
    explicit CVariant(EType type) : m_type(type) {}
    /// A blob with a copy of `size` bytes; empty without memory or data.
    CVariant(const void* data, uint32_t size);
    /// An enumeration.
    CVariant(int64_t value, const TArray<SEnumValue>& names);
    CVariant(const CVariant& other) = default;

    /// Takes over type, value and table. Scalars and text assign through their constructors: the type follows the
    /// argument, and a table is lost.
    CVariant& operator=(const CVariant& other);

    /// Type 0 and no value: "", no bytes, the number 0, an empty table.
    void Destroy();
    EType getType() const { return m_type; }
    /// The value is lost, also where the type stays the same.
    void setType(EType type);
    /// Keeps the type and converts the value of `other` into it. An enumeration takes text as GetEnumValueFromName
    /// does, everything else as ToInt64 gives it, and keeps its table. A blob takes the bytes of a blob and the
    /// hexadecimal digits of text; other values leave it empty. An undefined variant stays one.
    void setValue(const CVariant& other);

    // Conversions ------------------------------------------------------------------------------------------------

    /// A number that is not 0; the texts "true" and "yes" in any case, so not "1". A blob is false.
    bool ToBool() const;
    // Bool gives 0 or 1. Integers are widened by their own sign or cut to the low bits. Reals are truncated toward zero
    // by way of a 32-bit integer (8-bit and 16-bit types and Int32) or a 64-bit one (UInt32 and the 64-bit types), of
    // which the low bits are kept; NaN and what does not fit are that integer's lowest value, but a UInt64 takes what
    // fits an unsigned one. Text is read as its leading number: for an 8-bit or 16-bit type as an Int32, then cut; for
    // the others in their own width, where a negative number for an unsigned type wraps around. No value and a blob
    // give 0.
    int8_t ToInt8() const;
    uint8_t ToUInt8() const;
    int16_t ToInt16() const;
    uint16_t ToUInt16() const;
    int32_t ToInt32() const;
    uint32_t ToUInt32() const;
    int64_t ToInt64() const;
    uint64_t ToUInt64() const;
    float ToFlt32() const;
    double ToFlt64() const;

    operator bool() const { return ToBool(); }
    operator char() const { return static_cast<char>(ToInt8()); }
    operator int8_t() const { return ToInt8(); }
    operator uint8_t() const { return ToUInt8(); }
    operator int16_t() const { return ToInt16(); }
    operator uint16_t() const { return ToUInt16(); }
    operator int32_t() const { return ToInt32(); }
    operator uint32_t() const { return ToUInt32(); }
    operator int64_t() const { return ToInt64(); }
    operator uint64_t() const { return ToUInt64(); }
    operator float() const { return ToFlt32(); }
    operator double() const { return ToFlt64(); }
    operator CString() const { return ToString(); }

    /// "true" or "false"; integers in decimal; reals with six significant digits; the text itself; a blob's bytes as
    /// two upper-case hexadecimal digits each; the name of an enumeration's value, "" when the table has none. "" when
    /// there is no value.
    CString ToString() const;
    /// A number by the pattern "%" + `fmt`, so `fmt` is flags, width and conversion alone: "08.3f". The conversion has
    /// to fit the type, and the 64-bit types need their length ("I64d"). Other types as ToString().
    CString ToString(const char16_t* fmt) const;
    /// Reads `text` by the current type, which stays. Null counts as "".
    ///   Bool                 as CBool::Parse
    ///   Int8, UInt8, UInt16  an Int32, cut to the low bits
    ///   Int16                an Int32, cut to the low 8 bits and widened by their sign: "300" gives 44, "200" gives
    ///   -56 Int32 to Flt64       the leading number in the type's own width Blob, Undefined      pairs of hexadecimal
    ///   digits into the blob; an odd last one is ignored, and what is no
    ///                        digit counts as 0
    ///   Enum                 as GetEnumValueFromName
    void FromString(const char16_t* text);
    void FromString(const CString& text) { FromString(text.c_str()); }

    /// "Undefined", "Bool", "Int8" … "Blob", "Enum"; "" for a number that is no type.
    static CString TypeToString(EType type);
    /// The type of that name in any case; typeUndefined for a null or unknown one.
    static EType ParseType(const char16_t* name);

    /// The blob's bytes; empty in a variant of another type.
    CMemFile& getBlob() { return m_blob; }
    const CMemFile& getBlob() const { return m_blob; }

    // Enumerations -----------------------------------------------------------------------------------------------
    // The table may be filled whatever the type is. Names are told apart by case; of equal names or values the first
    // entry counts.

    void AddEnum(const CString& name, int64_t value) { m_enum.Add({name, value}); }
    void ClearEnum() { m_enum.Empty(); }
    uint32_t GetEnumCount() const { return m_enum.size(); }
    /// "" and 0 outside the table.
    CString GetEnumName(uint32_t index) const;
    int64_t GetEnumValue(uint32_t index) const;
    /// Replaces the contents of `names`.
    void GetEnumNames(TArray<CString>& names) const;
    /// "" when no entry has that value.
    CString GetEnumNameFromValue(int64_t value) const;
    /// Without an entry of that name the leading decimal number of `name`, 0 when there is none.
    int64_t GetEnumValueFromName(const char16_t* name) const;
    /// The number of an enumeration; that of another type as ToInt64 gives it.
    int64_t getEnumValue() const { return ToInt64(); }
    /// Stores the number and makes this an enumeration; the table stays.
    void setEnumValue(int64_t value) { store(typeEnum, &value, sizeof value); }

    // Saved forms ------------------------------------------------------------------------------------------------

    /// The binary form, in the file's byte order: the type in 4 bytes, then
    ///   Bool                 1 byte
    ///   Int8 to Flt64        1, 2, 4 or 8 bytes
    ///   String               IFile's string form
    ///   Blob                 4-byte length, the bytes
    ///   Enum                 8-byte value; 4-byte count; each entry's name in string form and its 8-byte value
    /// @return  Whether everything was written.
    bool Save(IFile* file) const;
    /// A type of 0 or above 14 is stored, and nothing more is read. An enumeration's entries are added to the table
    /// that is there. What is missing at the end of the file reads as 0, "" or no bytes, and the table ends there; so
    /// no stored length takes more memory than the file could fill.
    /// @return  True, whatever the reads gave.
    bool Load(IFile* file);
    bool Save(TSharedPtr<IFile> file) const { return Save(file.get()); }
    bool Load(TSharedPtr<IFile> file) { return Load(file.get()); }

    /// The keyed form: "Type" holds the type's name, "Value" holds ToString() (so reals have six digits). For an
    /// enumeration the section "EnumValues" holds "Count" and for each entry a section "[000]", "[001]", … with "Name"
    /// and "Value".
    /// @return  Whether the store took everything.
    bool Save(IConfigStore& store) const;
    /// Replaces type, table and value. What is absent reads as "", and the table ends at the first section that is
    /// missing.
    /// @return  True.
    bool Load(const IConfigStore& store);

private:
    template <class T>
    static constexpr EType scalarType() {
        if constexpr (std::same_as<T, bool>) {
            return typeBool;
        } else if constexpr (std::is_floating_point_v<T>) {
            return sizeof(T) == 4 ? typeFlt32 : typeFlt64;
        } else {
            constexpr uint32_t width = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3;
            constexpr bool isUnsigned = std::is_unsigned_v<T> && !std::same_as<T, char>;
            return static_cast<EType>(typeInt8 + 2 * width + (isUnsigned ? 1 : 0));
        }
    }

    void store(EType type, const void* value, size_t size) {
        m_type = type;
        std::memset(m_value, 0, sizeof m_value);
        std::memcpy(m_value, value, size);
    }
    template <class T>
    T stored() const {
        T value;
        std::memcpy(&value, m_value, sizeof value);
        return value;
    }
    template <class Visitor>
    auto visitNumber(Visitor visitor) const;
    template <class To>
    To toNumber() const;
    void setBlobFromHex(const char16_t* text);
    void loadBlob(IFile& file);
    void loadEnum(IFile& file);

    EType m_type = typeUndefined;
    alignas(8) unsigned char m_value[8] = {};  ///< Read at the width of the type.
    CString m_string = Private::sharedEmptyText();
    TArray<SEnumValue> m_enum;
    CMemFile m_blob;
};

}  // namespace qv
