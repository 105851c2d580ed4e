// IConfigStore: settings as a tree of typed values under paths with `/`. CMemStore keeps them in memory, CConfigSection
// is a part of another store. Start with SetString, GetString and GetChildren.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/string.h"
#include "qv/variant.h"

namespace qv {

class CConfigSection;

/// A tree of values. A store derives from this and gives the few operations at the end; everything typed stands here.
///
/// Paths:    names between `/`, such as "view/palette/name". Slashes at the beginning, at the end and doubled ones do
///           not count. A name is any text without `/` and NUL: blanks, dots, backslashes, brackets, `=` and the like
///           need no escape, and "." and ".." are names like others. Names compare without regard to case and keep the
///           spelling of their first setting. The empty path is the store itself, which has no value. A path has at
///           most 128 names.
/// Sections: a section is a path that has something below it; it comes with the first value there and goes with the
///           last. A value and a section may share one path and do not affect each other.
/// Values:   kept as text that reads back to the same bits (TValueText::ToStringExact); blobs as pairs of hexadecimal
///           digits. A read takes any value whose whole text is one of the wanted type, so an Int32 can be read as a
///           Flt64, and "1" as a Bool. Text ends at its first NUL, and a lone surrogate becomes U+FFFD. An enumeration
///           with its names takes a section of its own: CVariant::Save.
/// Order:    children are listed in the order in which they first came, unless a store says otherwise.
/// Failure:  a read gives its fallback, a write false, with the reason in LastDiagnostic(). An absent value is no
///           failure and sets no diagnostic.
/// Threads:  no locks; a store and its sections belong to one thread at a time.
class QV_API IConfigStore {
public:
    using Path = CString::Text;

    static constexpr uint32_t maxNames = 128;

    /// A value as a store keeps it.
    struct SValue {
        CVariant::EType type = CVariant::typeString;  ///< As it was set; typeString from a store that keeps text alone.
        CString text = Private::sharedEmptyText();
    };

    /// One name of a section.
    struct SChild {
        CString name = Private::sharedEmptyText();
        bool hasValue = false;
        bool isSection = false;
    };

    virtual ~IConfigStore();

    // Values. For each type:
    //   SetX(path, value)         whether the store took it; the old value, of whatever type, is replaced.
    //   GetX(path, fallback)      the value; `fallback` when it is absent or its text is no value of the type, or one
    //                             outside its range.
    //   ReadX(path, value)        the same as a result; `value` is left as it was on false.

    // X(name, type)
    // clang-format off
#define QV_CONFIG_SCALARS(X)                                                      \
    X(Bool, bool)     X(Int8, int8_t)     X(UInt8, uint8_t)   X(Int16, int16_t)   \
    X(UInt16, uint16_t) X(Int32, int32_t) X(UInt32, uint32_t) X(Int64, int64_t)   \
    X(UInt64, uint64_t) X(Flt32, float)   X(Flt64, double)
    // clang-format on
#define QV_CONFIG_SCALAR_MEMBERS(Name, Type)              \
    bool Set##Name(Path path, Type value);                \
    bool Read##Name(Path path, Type& value) const;        \
    Type Get##Name(Path path, Type fallback = {}) const { \
        (void)Read##Name(path, fallback);                 \
        return fallback;                                  \
    }
    QV_CONFIG_SCALARS(QV_CONFIG_SCALAR_MEMBERS)
#undef QV_CONFIG_SCALAR_MEMBERS

    bool SetString(Path path, CString::Text value);
    /// Any value is text as well.
    bool ReadString(Path path, CString& value) const;
    CString GetString(Path path, const CString& fallback = CString()) const;

    bool SetBlob(Path path, const void* data, uint32_t size);
    /// Replaces the file's contents, with the position at the beginning; left as it was on false.
    bool ReadBlob(Path path, CMemFile& data) const;

    /// The value as the store keeps it. SetValue takes `text` for what ToStringExact gives for the type.
    bool SetValue(Path path, const SValue& value);
    bool ReadValue(Path path, SValue& value) const;
    /// The type of the value as it was set, where the store keeps types; typeUndefined when there is none.
    CVariant::EType GetType(Path path) const;

    // The tree ---------------------------------------------------------------------------------------------------

    bool HasValue(Path path) const { return GetType(path) != CVariant::typeUndefined; }
    /// The store itself is a section also while it is empty.
    bool HasSection(Path path) const;
    bool Exists(Path path) const { return HasValue(path) || HasSection(path); }

    /// Remove the value, or everything below, or both. True also when nothing was there.
    bool RemoveValue(Path path) { return removeNormal(path, partValue); }
    bool RemoveSection(Path path) { return removeNormal(path, partChildren); }
    bool Remove(Path path) { return removeNormal(path, partValue | partChildren); }

    /// What stands directly below a section; none when there is no such section.
    TArray<SChild> GetChildren(Path path = u"") const;

    /// The part of this store below `path`, whether or not anything is there yet. It refers to the store.
    CConfigSection Section(Path path);

    /// Sets every value of another store here; what is here already stays. False when one was not taken.
    bool CopyFrom(const IConfigStore& other);

    /// Brings what was changed to where the store is kept. True where there is nothing to bring.
    virtual bool Flush();

protected:
    friend class CConfigSection;
    using View = std::u16string_view;

    /// Bits of remove().
    enum : uint32_t { partValue = 1, partChildren = 2 };

    IConfigStore() = default;
    IConfigStore(const IConfigStore&) = default;
    IConfigStore& operator=(const IConfigStore&) = default;

    // What a store gives. Paths come without empty names and well-formed; the store itself is "".

    /// False, with no diagnostic, when there is no value. Never asked for "".
    virtual bool read(View path, SValue& value) const = 0;
    /// Sets a value, with the sections above it. Never asked for "".
    virtual bool write(View path, const SValue& value) = 0;
    /// Takes away the parts that `parts` names, and every section above that is left empty.
    virtual bool remove(View path, uint32_t parts) = 0;
    /// Adds what stands below `path`, in order, to `children`.
    virtual void list(View path, TArray<SChild>& children) const = 0;
    /// Whether anything stands below `path`; by list() unless a store knows it faster.
    virtual bool hasChildren(View path) const;

private:
    bool removeNormal(Path path, uint32_t parts);
    template <class T>
    bool setScalar(Path path, CVariant::EType type, T value);
    template <class T>
    bool readScalar(Path path, CVariant::EType type, T& value) const;
};

/// The part of a store below a path, as a store of its own.
///
/// Ownership: refers to the store, which must outlive it. A section of a section refers to the store itself.
class QV_API CConfigSection : public IConfigStore {
public:
    CConfigSection(IConfigStore& store, Path path);

    /// Where the section begins in its store.
    const CString& GetPath() const { return m_path; }
    /// That of the whole store.
    bool Flush() override;

protected:
    bool read(View path, SValue& value) const override;
    bool write(View path, const SValue& value) override;
    bool remove(View path, uint32_t parts) override;
    void list(View path, TArray<SChild>& children) const override;
    bool hasChildren(View path) const override;

private:
    CString inStore(View path) const;

    IConfigStore* m_store;
    CString m_path;
};

/// A store in memory. It keeps the types of its values. A look-up costs one step for each name of the path.
class QV_API CMemStore : public IConfigStore {
public:
    CMemStore();
    CMemStore(const CMemStore& other) = default;
    CMemStore& operator=(const CMemStore& other);
    ~CMemStore() override;

    void Clear();

protected:
    /// A name with its value and its place in the tree; indexes into m_nodes, -1 for none.
    struct SNode {
        CString name = Private::sharedEmptyText();
        SValue value{CVariant::typeUndefined, Private::sharedEmptyText()};  ///< typeUndefined when there is none.
        uint32_t nameHash = 0;  ///< The same for names that differ in case alone.
        int32_t parent = -1;
        int32_t firstChild = -1;
        int32_t lastChild = -1;
        int32_t nextSibling = -1;
        int32_t prevSibling = -1;
        int32_t nextInBucket = -1;

        bool hasValue() const { return value.type != CVariant::typeUndefined; }
    };

    bool read(View path, SValue& value) const override;
    bool write(View path, const SValue& value) override;
    bool remove(View path, uint32_t parts) override;
    void list(View path, TArray<SChild>& children) const override;
    bool hasChildren(View path) const override;

    /// The node at a path below `from`, -1 when there is none; "" is `from` itself, and the root is node 0.
    int32_t find(View path, int32_t from = 0) const;
    /// The same, making what is missing; -1 without memory. A node that is left without value and children is no part
    /// of the store's contents.
    int32_t make(View path, int32_t from = 0);
    const SNode& node(int32_t index) const { return m_nodes.data()[index]; }
    SNode& node(int32_t index) { return m_nodes.data()[index]; }

    TArray<SNode> m_nodes;  ///< The root is the first. Nodes that were removed wait in a list at m_firstFree.

private:
    int32_t findChild(int32_t parent, View name, uint32_t hash) const;
    int32_t addNode(int32_t parent, View name, uint32_t hash);
    void unlink(int32_t index);
    void releaseTree(int32_t index);
    int32_t& bucketOf(int32_t parent, uint32_t hash);
    void growBuckets();

    int32_t m_firstFree = -1;
    std::vector<int32_t> m_buckets;  ///< Heads of the chains of a hash table over parent and name; a power of two.
};

}  // namespace qv
