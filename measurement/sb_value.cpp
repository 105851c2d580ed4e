// CSBFile::CValue: a type and a payload, and the numbers, texts and identifiers that it is read as.
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "core/text.h"
#include "measurement/sb_format.h"
#include "qv/memory.h"
#include "qv/sb_file.h"

namespace qv {

namespace {

using Private::sbf::loadNumber;
using Private::sbf::storeNumber;

/// The unsigned integer with the bits of a T.
template <class T>
using Bits = std::conditional_t<
    sizeof(T) == 1, uint8_t,
    std::conditional_t<sizeof(T) == 2, uint16_t, std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>>>;

/// Converts a number to another type when nothing of it is lost. A NaN stays one.
template <class To, class From>
bool exactly(From from, To& out) {
    if constexpr (std::is_same_v<To, From>) {
        out = from;
        return true;
    } else if constexpr (std::is_integral_v<To> && std::is_integral_v<From>) {
        if (!std::in_range<To>(from)) return false;
        out = static_cast<To>(from);
        return true;
    } else if constexpr (std::is_integral_v<To>) {
        // 2 to the number of value bits: the first number above the type's range, exact in From.
        const From limit = std::ldexp(From{1}, std::numeric_limits<To>::digits);
        if (!(from < limit) || from < (std::is_signed_v<To> ? -limit : From{0})) return false;
        if (static_cast<From>(static_cast<To>(from)) != from) return false;
        out = static_cast<To>(from);
        return true;
    } else if constexpr (std::is_integral_v<From>) {
        const auto rounded = static_cast<To>(from);
        From back{};
        if (!exactly(rounded, back) || back != from) return false;
        out = rounded;
        return true;
    } else {
        if constexpr (sizeof(To) < sizeof(From)) {
            if (std::isfinite(from) && std::fabs(from) > From{std::numeric_limits<To>::max()}) return false;
        }
        const auto rounded = static_cast<To>(from);
        if (!std::isnan(from) && static_cast<From>(rounded) != from) return false;
        out = rounded;
        return true;
    }
}

template <class From, class To>
bool readAs(const uint8_t* payload, To& out) {
    return exactly(std::bit_cast<From>(loadNumber<Bits<From>>(payload)), out);
}

}  // namespace

CSBFile::CValue::CValue(const CValue& other) { *this = other; }

CSBFile::CValue& CSBFile::CValue::operator=(const CValue& other) {
    if (this != &other && !Assign(other.m_type, other.GetData(), other.m_size)) throw std::bad_alloc();
    return *this;
}

CSBFile::CValue::~CValue() {
    if (!isLocal()) HeapFree(m_heap);
}

bool CSBFile::CValue::equals(const CValue& other) const {
    return m_type == other.m_type && m_size == other.m_size && std::memcmp(GetData(), other.GetData(), m_size) == 0;
}

/// `data` may lie in this value: the old payload goes last.
bool CSBFile::CValue::Assign(TYPE type, const void* data, uint32_t size) {
    const std::optional<uint32_t> wanted = Private::sbf::payloadBytes(type);
    if (!wanted || (*wanted != Private::sbf::anyLength && *wanted != size)) return false;
    if (type == TYPE_BOOL && *static_cast<const uint8_t*>(data) > 1) return false;  // no file may have it
    uint8_t* const old = isLocal() ? nullptr : m_heap;
    if (size <= localBytes) {
        uint8_t payload[localBytes] = {};
        if (size != 0) std::memcpy(payload, data, size);
        std::memcpy(m_local, payload, localBytes);
    } else {
        auto* const payload = static_cast<uint8_t*>(HeapAlloc(size));
        if (payload == nullptr) return false;
        std::memcpy(payload, data, size);
        m_heap = payload;
    }
    m_type = type;
    m_size = size;
    if (old != nullptr) HeapFree(old);
    return true;
}

bool CSBFile::CValue::GetBool(bool& out) const {
    if (m_type != TYPE_BOOL) return false;
    out = m_local[0] != 0;
    return true;
}

bool CSBFile::CValue::SetBool(bool value) {
    const uint8_t byte = value ? 1 : 0;
    return Assign(TYPE_BOOL, &byte, 1);
}

bool CSBFile::CValue::GetString(CString& out) const {
    if (m_type != TYPE_STRING) return false;
    out = CString(std::string_view(reinterpret_cast<const char*>(GetData()), m_size));
    return true;
}

bool CSBFile::CValue::SetString(CString::Text value) {
    char local[256];
    const std::u16string_view units = value.all();
    if (const size_t size = text::convert(units, local, sizeof local); size != text::noRoom) {
        return Assign(TYPE_STRING, local, static_cast<uint32_t>(size));
    }
    const std::string bytes = text::toUtf8(units);
    return bytes.size() <= std::numeric_limits<uint32_t>::max() &&
           Assign(TYPE_STRING, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool CSBFile::CValue::GetGUID(GUID& out) const {
    if (m_type != TYPE_GUID) return false;
    out.Data1 = loadNumber<uint32_t>(m_local);
    out.Data2 = loadNumber<uint16_t>(m_local + 4);
    out.Data3 = loadNumber<uint16_t>(m_local + 6);
    std::memcpy(out.Data4, m_local + 8, sizeof out.Data4);
    return true;
}

bool CSBFile::CValue::SetGUID(const GUID& value) {
    uint8_t payload[sizeof(GUID)];
    storeNumber(value.Data1, payload);
    storeNumber(value.Data2, payload + 4);
    storeNumber(value.Data3, payload + 6);
    std::memcpy(payload + 8, value.Data4, sizeof value.Data4);
    return Assign(TYPE_GUID, payload, sizeof payload);
}

const uint8_t* CSBFile::CValue::GetBlob(uint32_t& size) const {
    size = m_type == TYPE_BLOB ? m_size : 0;
    return m_type == TYPE_BLOB ? GetData() : nullptr;
}

bool CSBFile::CValue::SetBlob(const void* data, uint32_t size) { return Assign(TYPE_BLOB, data, size); }

template <class T>
bool CSBFile::CValue::getNumber(T& out) const {
    switch (m_type) {
        case TYPE_INT8: return readAs<int8_t>(m_local, out);
        case TYPE_UINT8: return readAs<uint8_t>(m_local, out);
        case TYPE_INT16: return readAs<int16_t>(m_local, out);
        case TYPE_UINT16: return readAs<uint16_t>(m_local, out);
        case TYPE_INT32: return readAs<int32_t>(m_local, out);
        case TYPE_UINT32: return readAs<uint32_t>(m_local, out);
        case TYPE_FLT32: return readAs<float>(m_local, out);
        case TYPE_INT64: return readAs<int64_t>(m_local, out);
        case TYPE_UINT64: return readAs<uint64_t>(m_local, out);
        case TYPE_FLT64: return readAs<double>(m_local, out);
        default: return false;
    }
}

template <class T>
bool CSBFile::CValue::setNumber(TYPE type, T number) {
    uint8_t payload[sizeof(T)];
    storeNumber(std::bit_cast<Bits<T>>(number), payload);
    return Assign(type, payload, sizeof payload);
}

#define QV_INSTANTIATE_NUMBER(T)                                       \
    template QV_API bool CSBFile::CValue::getNumber<T>(T & out) const; \
    template QV_API bool CSBFile::CValue::setNumber<T>(TYPE type, T number);
QV_INSTANTIATE_NUMBER(int8_t)
QV_INSTANTIATE_NUMBER(uint8_t)
QV_INSTANTIATE_NUMBER(int16_t)
QV_INSTANTIATE_NUMBER(uint16_t)
QV_INSTANTIATE_NUMBER(int32_t)
QV_INSTANTIATE_NUMBER(uint32_t)
QV_INSTANTIATE_NUMBER(float)
QV_INSTANTIATE_NUMBER(int64_t)
QV_INSTANTIATE_NUMBER(uint64_t)
QV_INSTANTIATE_NUMBER(double)
#undef QV_INSTANTIATE_NUMBER

}  // namespace qv
