#include "qv/variant.h"

#include <algorithm>
#include <bit>
#include <string_view>

#include "core/text.h"
#include "core/truncate.h"
#include "qv/config_store.h"
#include "qv/memory.h"
#include "qv/values.h"

namespace qv {

namespace {

constexpr const char16_t* typeNames[] = {u"Undefined", u"Bool",  u"Int8",   u"UInt8", u"Int16",
                                         u"UInt16",    u"Int32", u"UInt32", u"Int64", u"UInt64",
                                         u"Flt32",     u"Flt64", u"String", u"Blob",  u"Enum"};

std::u16string_view viewOf(const char16_t* text) { return text == nullptr ? u"" : text; }

/// One number as another; reals go to integers by the element rule, but the upper half of UInt64 is not out of range.
template <class To, class From>
To converted(From value) {
    if constexpr (std::is_same_v<To, bool>) {
        return value != From(0);
    } else if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>) {
        constexpr From halfRange = From(0x1p63);
        if constexpr (sizeof(To) < 4 || std::is_same_v<To, int32_t>) return static_cast<To>(truncateToInt32(value));
        if (std::is_same_v<To, uint64_t> && value >= halfRange && value < 2 * halfRange) return static_cast<To>(value);
        return static_cast<To>(truncateToInt64(value));
    } else {
        return static_cast<To>(value);
    }
}

/// The number that a text begins with.
template <class To>
To numberOf(std::u16string_view text) {
    if constexpr (sizeof(To) < 4) {
        return static_cast<To>(text::wtol(text));
    } else {
        const text::NumberRead<To> read = text::readNumber<To>(text);
        // Below the range of an unsigned type: the negative number wraps around.
        if (std::is_unsigned_v<To> && !read.inRange && read.value == To(0)) return static_cast<To>(text::wtoll(text));
        return read.value;
    }
}

/// A number in the file's byte order.
template <class T>
bool put(IFile& file, T value) {
    if constexpr (std::is_same_v<T, bool>)
        return file.PutBool(value);
    else if constexpr (sizeof(T) == 1)
        return file.PutUInt8(std::bit_cast<uint8_t>(value));
    else if constexpr (sizeof(T) == 2)
        return file.PutUInt16(std::bit_cast<uint16_t>(value));
    else if constexpr (sizeof(T) == 4)
        return file.PutUInt32(std::bit_cast<uint32_t>(value));
    else
        return file.PutUInt64(std::bit_cast<uint64_t>(value));
}

/// The same back; 0 when the file does not hold it whole.
template <class T>
T take(IFile& file) {
    if constexpr (std::is_same_v<T, bool>) {
        bool value = false;
        return file.GetBool(value) && value;
    } else {
        using Bits = std::conditional_t<
            sizeof(T) == 1, uint8_t,
            std::conditional_t<sizeof(T) == 2, uint16_t, std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>>>;
        Bits bits = 0;
        bool whole = false;
        if constexpr (sizeof(T) == 1)
            whole = file.GetUInt8(bits);
        else if constexpr (sizeof(T) == 2)
            whole = file.GetUInt16(bits);
        else if constexpr (sizeof(T) == 4)
            whole = file.GetUInt32(bits);
        else
            whole = file.GetUInt64(bits);
        return std::bit_cast<T>(whole ? bits : Bits{0});
    }
}

uint32_t bytesLeft(IFile& file) {
    return static_cast<uint32_t>(std::clamp<int64_t>(file.GetRemaining(), 0, 0xFFFFFFFF));
}

CString enumSection(uint32_t index) { return CString::FromFormat(u"EnumValues/[%03d]/", index); }

}  // namespace

// Construction and type -----------------------------------------------------------------------------------------------

CVariant::CVariant(const void* data, uint32_t size) : m_type(typeBlob) {
    if (data == nullptr) return;
    m_blob.WriteBytes(data, size);
    m_blob.SeekToBegin();
}

CVariant::CVariant(int64_t value, const TArray<SEnumValue>& names) : m_enum(names) { setEnumValue(value); }

CVariant& CVariant::operator=(const CVariant& other) {
    if (this == &other) return *this;
    m_type = other.m_type;
    std::memcpy(m_value, other.m_value, sizeof m_value);
    m_string = other.m_string;
    m_enum = other.m_enum;
    m_blob = other.m_blob;
    return *this;
}

void CVariant::Destroy() {
    m_type = typeUndefined;
    std::memset(m_value, 0, sizeof m_value);
    m_string = Private::sharedEmptyText();
    m_enum.Empty();
    m_blob.Destroy();
    m_blob.Reset();
}

void CVariant::setType(EType type) {
    Destroy();
    m_type = type;
}

/// Calls `visitor` with the number at the width of its type; with a 64-bit 0 where there is none.
template <class Visitor>
auto CVariant::visitNumber(Visitor visitor) const {
    switch (m_type) {
        case typeBool: return visitor(stored<bool>());
        case typeInt8: return visitor(stored<int8_t>());
        case typeUInt8: return visitor(stored<uint8_t>());
        case typeInt16: return visitor(stored<int16_t>());
        case typeUInt16: return visitor(stored<uint16_t>());
        case typeInt32: return visitor(stored<int32_t>());
        case typeUInt32: return visitor(stored<uint32_t>());
        case typeInt64:
        case typeEnum: return visitor(stored<int64_t>());
        case typeUInt64: return visitor(stored<uint64_t>());
        case typeFlt32: return visitor(stored<float>());
        case typeFlt64: return visitor(stored<double>());
        default: return visitor(int64_t{0});
    }
}

void CVariant::setValue(const CVariant& other) {
    switch (m_type) {
        case typeString: m_string = other.ToString(); return;
        case typeBlob:
            if (other.m_type == typeBlob) {
                m_blob = other.m_blob;
            } else {
                setBlobFromHex(other.m_type == typeString ? other.m_string.c_str() : u"");
            }
            return;
        case typeEnum:
            setEnumValue(other.m_type == typeString ? GetEnumValueFromName(other.m_string.c_str()) : other.ToInt64());
            return;
        default: break;
    }
    if (m_type < typeBool || m_type > typeFlt64) return;
    visitNumber([&](auto own) {
        own = other.toNumber<decltype(own)>();
        store(m_type, &own, sizeof own);
    });
}

// Conversions ---------------------------------------------------------------------------------------------------------

template <class To>
To CVariant::toNumber() const {
    if constexpr (std::is_same_v<To, bool>) {
        if (m_type == typeString) return m_string.EqualsNoCase(u"true") || m_string.EqualsNoCase(u"yes");
    } else if (m_type == typeString) {
        return numberOf<To>(m_string);
    }
    return visitNumber([](auto value) { return converted<To>(value); });
}

bool CVariant::ToBool() const { return toNumber<bool>(); }
int8_t CVariant::ToInt8() const { return toNumber<int8_t>(); }
uint8_t CVariant::ToUInt8() const { return toNumber<uint8_t>(); }
int16_t CVariant::ToInt16() const { return toNumber<int16_t>(); }
uint16_t CVariant::ToUInt16() const { return toNumber<uint16_t>(); }
int32_t CVariant::ToInt32() const { return toNumber<int32_t>(); }
uint32_t CVariant::ToUInt32() const { return toNumber<uint32_t>(); }
int64_t CVariant::ToInt64() const { return toNumber<int64_t>(); }
uint64_t CVariant::ToUInt64() const { return toNumber<uint64_t>(); }
float CVariant::ToFlt32() const { return toNumber<float>(); }
double CVariant::ToFlt64() const { return toNumber<double>(); }

CString CVariant::ToString() const {
    switch (m_type) {
        case typeString: return m_string;
        case typeEnum: return GetEnumNameFromValue(stored<int64_t>());
        case typeBlob: {
            CString text(size_t{m_blob.size()} * 2, u'0');
            char16_t* digit = m_blob.size() == 0 ? nullptr : text.begin();
            for (uint32_t i = 0; i < m_blob.size(); ++i) {
                *digit++ = u"0123456789ABCDEF"[m_blob.data()[i] >> 4];
                *digit++ = u"0123456789ABCDEF"[m_blob.data()[i] & 15];
            }
            return text;
        }
        default: break;
    }
    if (m_type < typeBool || m_type > typeFlt64) return Private::sharedEmptyText();
    return visitNumber([](auto value) { return TValueText<decltype(value)>::ToString(value); });
}

CString CVariant::ToString(const char16_t* fmt) const {
    if (m_type < typeInt8 || m_type > typeFlt64) return ToString();
    const CString pattern = u"%" + CString(fmt);
    return visitNumber([&](auto value) { return CString::FromFormat(pattern, value); });
}

void CVariant::FromString(const char16_t* text) {
    const CString copy(text);  // `text` may be this variant's own.
    switch (m_type) {
        case typeUndefined:
        case typeBlob: return setBlobFromHex(copy.c_str());
        case typeString: m_string = copy; return;
        case typeEnum: return setEnumValue(GetEnumValueFromName(copy.c_str()));
        default: break;
    }
    if (m_type > typeEnum) return;
    visitNumber([&](auto own) {
        using T = decltype(own);
        if constexpr (std::is_same_v<T, bool>)
            own = CBool::Parse(copy);
        else if constexpr (std::is_same_v<T, int16_t>)
            own = static_cast<int8_t>(text::wtol(copy));
        else
            own = numberOf<T>(copy);
        store(m_type, &own, sizeof own);
    });
}

void CVariant::setBlobFromHex(const char16_t* text) {
    const std::u16string_view digits = viewOf(text);
    const size_t size = digits.size() / 2;
    m_blob.Destroy();
    m_blob.Reset();
    if (size == 0) return;
    auto* bytes = static_cast<uint8_t*>(HeapAlloc(size));
    if (bytes == nullptr) return;
    for (size_t i = 0; i < size; ++i) {
        const unsigned high = text::hexDigit(digits[2 * i]), low = text::hexDigit(digits[2 * i + 1]);
        bytes[i] = static_cast<uint8_t>((high & 15) << 4 | (low & 15));
    }
    m_blob.Attach(bytes, static_cast<uint32_t>(size), true);
}

CString CVariant::TypeToString(EType type) {
    return type <= typeEnum ? CString(typeNames[type]) : Private::sharedEmptyText();
}

CVariant::EType CVariant::ParseType(const char16_t* name) {
    for (uint32_t i = 0; i <= typeEnum; ++i) {
        if (text::compareNoCase(viewOf(name), std::u16string_view(typeNames[i])) == 0) return static_cast<EType>(i);
    }
    return typeUndefined;
}

// Enumerations --------------------------------------------------------------------------------------------------------

CString CVariant::GetEnumName(uint32_t index) const {
    return index < m_enum.size() ? m_enum.ConstGetItem(index).name : Private::sharedEmptyText();
}

int64_t CVariant::GetEnumValue(uint32_t index) const {
    return index < m_enum.size() ? m_enum.ConstGetItem(index).value : 0;
}

void CVariant::GetEnumNames(TArray<CString>& names) const {
    names.Empty();
    for (const SEnumValue& entry : m_enum) names.Add(entry.name);
}

CString CVariant::GetEnumNameFromValue(int64_t value) const {
    for (const SEnumValue& entry : m_enum) {
        if (entry.value == value) return entry.name;
    }
    return Private::sharedEmptyText();
}

int64_t CVariant::GetEnumValueFromName(const char16_t* name) const {
    for (const SEnumValue& entry : m_enum) {
        if (entry.name.view() == viewOf(name)) return entry.value;
    }
    return text::wtoll(viewOf(name));
}

// The binary form -----------------------------------------------------------------------------------------------------

bool CVariant::Save(IFile* file) const {
    if (file == nullptr || !file->PutUInt32(m_type)) return false;
    if (m_type == typeUndefined || m_type > typeEnum) return true;
    if (m_type == typeString) return file->PutString(m_string.c_str());
    if (m_type == typeBlob) return file->PutUInt32(m_blob.size()) && file->WriteBytes(m_blob.data(), m_blob.size());
    bool whole = visitNumber([&](auto value) { return put(*file, value); });
    if (m_type != typeEnum) return whole;
    whole = whole && file->PutUInt32(m_enum.size());
    for (const SEnumValue& entry : m_enum) {
        whole = whole && file->PutString(entry.name.c_str()) && file->PutInt64(entry.value);
    }
    return whole;
}

bool CVariant::Load(IFile* file) {
    TArray<SEnumValue> names;
    std::swap(names, m_enum);
    setType(file == nullptr ? typeUndefined : static_cast<EType>(take<uint32_t>(*file)));
    std::swap(names, m_enum);
    if (m_type == typeUndefined || m_type > typeEnum) return true;
    if (m_type == typeString) {
        m_string = file->GetString();
    } else if (m_type == typeBlob) {
        loadBlob(*file);
    } else {
        visitNumber([&](auto value) {
            value = take<decltype(value)>(*file);
            store(m_type, &value, sizeof value);
        });
        if (m_type == typeEnum) loadEnum(*file);
    }
    return true;
}

void CVariant::loadBlob(IFile& file) {
    const auto stated = take<uint32_t>(file);
    const uint32_t size = std::min(stated, bytesLeft(file));
    if (size == 0) return;
    auto* bytes = static_cast<uint8_t*>(HeapAlloc(size));
    if (bytes == nullptr) return;
    m_blob.Attach(bytes, file.Read(bytes, size), true);
}

void CVariant::loadEnum(IFile& file) {
    constexpr uint32_t leastEntry = 12;  // The length of an empty name and the number.
    const auto stated = take<uint32_t>(file);
    const uint32_t count = std::min(stated, bytesLeft(file) / leastEntry);
    m_enum.Dimension(m_enum.size() + count);
    for (uint32_t i = 0; i < count; ++i) {
        SEnumValue entry;
        if (!file.GetString(entry.name) || !file.GetInt64(entry.value)) return;
        m_enum.Add(entry);
    }
}

// The keyed form ------------------------------------------------------------------------------------------------------

bool CVariant::Save(IConfigStore& store) const {
    bool whole = store.SetString(u"Type", TypeToString(m_type)) && store.SetString(u"Value", ToString()) &&
                 store.RemoveSection(u"EnumValues");
    if (m_type != typeEnum) return whole;
    whole = whole && store.SetUInt32(u"EnumValues/Count", m_enum.size());
    for (uint32_t i = 0; i < m_enum.size() && whole; ++i) {
        const CString section = enumSection(i);
        whole =
            store.SetString(section + u"Name", GetEnumName(i)) && store.SetInt64(section + u"Value", GetEnumValue(i));
    }
    return whole;
}

bool CVariant::Load(const IConfigStore& store) {
    setType(ParseType(store.GetString(u"Type").c_str()));
    if (m_type == typeEnum) {
        const uint32_t count = store.GetUInt32(u"EnumValues/Count");
        for (uint32_t i = 0; i < count && store.HasSection(enumSection(i)); ++i) {
            AddEnum(store.GetString(enumSection(i) + u"Name"), store.GetInt64(enumSection(i) + u"Value"));
        }
    }
    FromString(store.GetString(u"Value"));
    return true;
}

}  // namespace qv
