#include "qv/pixel_type.h"

#include <mutex>
#include <shared_mutex>
#include <vector>

namespace qv {

namespace {

bool isElement(EDataType type) { return type >= EDataType::int8 && type <= EDataType::rgb48; }

/// The names that are always there, by the value of their element type.
constexpr const char16_t* builtIn[] = {u"Int8",  u"UInt8",  u"Int16",        u"Grayscale (UInt16)",
                                       u"Int32", u"UInt32", u"Int64",        u"UInt64",
                                       u"Flt32", u"Flt64",  u"RGB (24-Bit)", u"RGB (48-Bit)"};

class Registry {
public:
    Registry() {
        for (size_t i = 0; i < std::size(builtIn); ++i) {
            m_types.push_back({CString(builtIn[i]), static_cast<EDataType>(i)});
        }
    }

    bool add(const char16_t* name, EDataType type) {
        const std::unique_lock lock(m_mutex);
        if (const size_t at = find(name); at < m_types.size()) return m_types[at].type == type;
        m_types.push_back({CString(name), type});
        return true;
    }

    bool remove(const char16_t* name) {
        const std::unique_lock lock(m_mutex);
        const size_t at = find(name);
        if (at < std::size(builtIn) || at == m_types.size()) return false;
        m_types.erase(m_types.begin() + static_cast<ptrdiff_t>(at));
        return true;
    }

    EDataType typeOf(const char16_t* name) const {
        const std::shared_lock lock(m_mutex);
        const size_t at = find(name);
        return at < m_types.size() ? m_types[at].type : EDataType::none;
    }

    TArray<SPixelType> all() const {
        const std::shared_lock lock(m_mutex);
        TArray<SPixelType> copy;
        for (const SPixelType& type : m_types) copy.push_back(type);
        return copy;
    }

private:
    size_t find(const char16_t* name) const {
        size_t at = 0;
        while (at < m_types.size() && m_types[at].name.CompareNoCase(name) != 0) ++at;
        return at;
    }

    mutable std::shared_mutex m_mutex;
    std::vector<SPixelType> m_types;
};

/// Never destroyed: threads may ask until the process is gone.
Registry& registry() {
    static Registry& instance = *new Registry;
    return instance;
}

}  // namespace

bool RegisterPixelType(const char16_t* name, EDataType type) {
    return name != nullptr && *name != 0 && isElement(type) && registry().add(name, type);
}

bool UnregisterPixelType(const char16_t* name) { return name != nullptr && registry().remove(name); }

EDataType PixelTypeToDataType(const char16_t* name) {
    return name == nullptr ? EDataType::none : registry().typeOf(name);
}

// The built-in names stand first and stay.
CString DataTypeToPixelType(EDataType type) {
    return isElement(type) ? CString(builtIn[static_cast<size_t>(type)]) : CString(u"");
}

TArray<SPixelType> GetPixelTypes() { return registry().all(); }

}  // namespace qv
