// nullable<T>: a value or nothing; qv::null: the nothing.
#pragma once

#include <cstdint>

#include "qv/api.h"

namespace qv {

/// The type of qv::null. Assigning null to a nullable unsets it; comparing with null asks whether it is unset.
struct nullptr_t {};
QV_API extern const nullptr_t null;

namespace Private {
/// Throw CRuntimeErrorException with "nullable value is not set." and
/// "can't use & operator (set by pointer) because nullable value is set."
[[noreturn]] QV_API void throwNullableNotSet();
[[noreturn]] QV_API void throwNullableIsSet();
}  // namespace Private

/// A T and whether it is held. An unset nullable holds a zero T.
template <class T>
class nullable {
public:
    /// Unset.
    nullable() = default;
    nullable(T value) : m_value(value), m_isSet(true) {}
    nullable(nullptr_t) {}

    nullable& operator=(T value) {
        set(value);
        return *this;
    }
    nullable& operator=(nullptr_t) {
        unset();
        return *this;
    }

    void set(T value) {
        m_value = value;
        m_isSet = true;
    }
    void unset() {
        m_value = T();
        m_isSet = false;
    }

    /// Throws CRuntimeErrorException when nothing is held.
    T get() const {
        if (!m_isSet) Private::throwNullableNotSet();
        return m_value;
    }
    operator T() const { return get(); }
    /// The value, or `fallback` when nothing is held.
    T get(T fallback) const { return m_isSet ? m_value : fallback; }

    /// Whether a value is held; isNull says the opposite.
    bool hasValue() const { return m_isSet; }
    bool isSet() const { return m_isSet; }
    bool isNull() const { return !m_isSet; }
    friend bool operator==(const nullable& a, nullptr_t) { return !a.m_isSet; }
    friend bool operator!=(const nullable& a, nullptr_t) { return a.m_isSet; }

    /// Marks the value as held and gives its address for a callee to write through.
    T* out() { return ptr(true); }
    /// Stores whether the value is held and gives its address.
    T* ptr(bool isSet) {
        m_isSet = isSet;
        return &m_value;
    }
    /// As out(), but throws CRuntimeErrorException when a value is already held.
    T* operator&() {
        if (m_isSet) Private::throwNullableIsSet();
        return out();
    }

private:
    T m_value = T();
    bool m_isSet = false;
};

extern template class QV_API nullable<bool>;
extern template class QV_API nullable<char>;
extern template class QV_API nullable<unsigned char>;
extern template class QV_API nullable<int16_t>;
extern template class QV_API nullable<uint16_t>;
extern template class QV_API nullable<int32_t>;
extern template class QV_API nullable<uint32_t>;
extern template class QV_API nullable<int64_t>;
extern template class QV_API nullable<uint64_t>;
extern template class QV_API nullable<float>;
extern template class QV_API nullable<double>;

}  // namespace qv
