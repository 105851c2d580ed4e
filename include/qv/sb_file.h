// CSBFile: a tree of elements with typed attributes and its compact binary file. Start with Load, Child and GetInt32.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/guid.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"
#include "qv/tree_node.h"

namespace qv {

class IFileSystem;

/// A structured binary file: one tree of elements, each with a name, typed attributes and children, walked and changed
/// through a cursor.
///
/// Names compare without regard to case and are kept as they are spelled. The root is always there; it is made without
/// a name, and what a file holds are mostly its children. The cursor is always on an element, the root at first.
/// Ownership: the file owns the root, an element its children. Elements are made by `new`.
/// Depth: nothing here recurses. A file may be nested `maxDepth` levels deep, a tree in memory as deep as that allows.
/// Failure: a failed Load is false, sets the diagnostic with the byte, and leaves the tree empty, ready for the next.
/// Hostile files: no more than 64 bytes of memory are taken for each byte of the file, beside the file's own bytes.
/// Threads: none of it is thread-safe.
///
/// The file. Every number is little-endian, whatever the byte order of the IFile; nothing is aligned. A varint is an
/// unsigned number below 2^32 in groups of 7 bits, the lowest first, each byte but the last with bit 0x80 set.
///
///     byte 0   "SBF"
///          3   version: the major number in the high four bits, the minor one in the low four; now 0x10
///          4   identifier of the kind of content: four characters from 0x20 to 0x7E
///          8   64 bits: length of the content in bytes
///         16   content: varint number of names, the names, the root element
///          .   32 bits: CRC-32 (the one of gzip and PNG) of all that stands before
///
///     name       varint length in bytes, UTF-8. Each name is stored once, in the order of first use.
///     element    varint: index of the name * 4, + 2 when it has children, + 1 when a sibling follows
///                varint number of attributes, the attributes, then the first child, if any. Its next sibling, if any,
///                stands behind all its descendants. The root has no sibling.
///     attribute  varint index of the name, type (one byte), payload
///
/// The high four bits of the type say how long the payload is, so that a type which a later minor version adds can be
/// stepped over: 0 to 8, so many bytes; 9, 16 bytes; 10, a varint length and so many bytes; others are refused. Such
/// an attribute is kept as it is and written again, though no getter reads it. See TYPE for the types. Another major
/// version is refused.
class QV_API CSBFile {
public:
    /// What an attribute holds; the values are those of the file.
    enum TYPE : uint8_t {
        TYPE_BOOL = 0x10,  ///< One byte, 0 or 1.
        TYPE_INT8 = 0x11,
        TYPE_UINT8 = 0x12,
        TYPE_INT16 = 0x21,
        TYPE_UINT16 = 0x22,
        TYPE_INT32 = 0x41,
        TYPE_UINT32 = 0x42,
        TYPE_FLT32 = 0x43,
        TYPE_INT64 = 0x81,
        TYPE_UINT64 = 0x82,
        TYPE_FLT64 = 0x83,
        TYPE_GUID = 0x90,    ///< The fields in order, each little-endian.
        TYPE_STRING = 0xA0,  ///< UTF-8, without terminator. Bytes that are none stay in the file, and read as U+FFFD.
        TYPE_BLOB = 0xA1,    ///< Bytes.
    };

    /// The deepest nesting that a file may have; the root is level 1.
    static constexpr uint32_t maxDepth = 0x1000000;

// X(name, type in memory, TYPE)
// clang-format off
#define QV_SBF_NUMBERS(X)                                                                                \
    X(Int8, int8_t, TYPE_INT8)       X(UInt8, uint8_t, TYPE_UINT8)    X(Int16, int16_t, TYPE_INT16)      \
    X(UInt16, uint16_t, TYPE_UINT16) X(Int32, int32_t, TYPE_INT32)    X(UInt32, uint32_t, TYPE_UINT32)   \
    X(Int64, int64_t, TYPE_INT64)    X(UInt64, uint64_t, TYPE_UINT64) X(Flt32, float, TYPE_FLT32)        \
    X(Flt64, double, TYPE_FLT64)
    // clang-format on

    /// The value of an attribute: a type and its payload, as the file has them. Up to 16 bytes stand in the object.
    ///
    /// GetX: false, with `out` left as it was, when the value is none of that type. A number is given in every
    /// numeric type that holds it exactly, so an Int32 of 7 reads as UInt8 and as Flt64, and one of 300 not as UInt8.
    /// The type that was set gives the same bits; a Flt64 of -0.0 reads as the integer 0.
    /// SetX: replaces type and payload. False, with the value left as it was, without memory.
    class QV_API CValue {
    public:
        /// False.
        CValue() = default;
        CValue(const CValue& other);
        CValue& operator=(const CValue& other);
        ~CValue();

        /// The type byte; one that TYPE does not name comes from a file of a later minor version.
        TYPE GetType() const { return m_type; }
        /// The payload, `GetSize()` bytes, valid until the value changes.
        const uint8_t* GetData() const { return isLocal() ? m_local : m_heap; }
        uint32_t GetSize() const { return m_size; }
        /// Type and payload are the same bit by bit.
        friend bool operator==(const CValue& a, const CValue& b) { return a.equals(b); }

        bool GetBool(bool& out) const;
        bool GetString(CString& out) const;
        bool GetGUID(GUID& out) const;
        /// The bytes of a blob, valid until the value changes; null when it is none.
        const uint8_t* GetBlob(uint32_t& size) const;
        bool SetBool(bool value);
        bool SetString(CString::Text value);
        bool SetGUID(const GUID& value);
        bool SetBlob(const void* data, uint32_t size);
#define QV_SBF_VALUE_MEMBERS(Name, Type, code)                 \
    bool Get##Name(Type& out) const { return getNumber(out); } \
    bool Set##Name(Type value) { return setNumber(code, value); }
        QV_SBF_NUMBERS(QV_SBF_VALUE_MEMBERS)
#undef QV_SBF_VALUE_MEMBERS

        /// Takes a type byte and a payload as they stand in a file. False, with the value left as it was, when the
        /// length does not fit the type, for a truth value that is neither 0 nor 1, and without memory.
        bool Assign(TYPE type, const void* data, uint32_t size);

    private:
        static constexpr uint32_t localBytes = 16;
        bool isLocal() const { return m_size <= localBytes; }
        bool equals(const CValue& other) const;
        template <class T>
        bool getNumber(T& out) const;
        template <class T>
        bool setNumber(TYPE type, T number);

        union {
            uint8_t m_local[localBytes] = {};
            uint8_t* m_heap;
        };
        uint32_t m_size = 1;
        TYPE m_type = TYPE_BOOL;
    };

    /// An attribute.
    struct ATTRIB {
        CString name = Private::sharedEmptyText();
        CValue value;
    };

    /// The attributes of an element in the order of the file.
    class QV_API CAttribArray : public TArray<ATTRIB> {
    public:
        bool Exists(CString::Text name) const { return Find(name) != nullptr; }
        /// False when there is none.
        bool Remove(CString::Text name);
        using TArray<ATTRIB>::Remove;
        /// The value of the first attribute with that name, or null. Valid until the array changes.
        const CValue* Find(CString::Text name) const;
        /// The same; a missing one is added. Null without memory.
        CValue* Ensure(const CString& name);
    };

    /// An element, with neighbours, search, insertion and copies as Private::TTreeNode gives them. It owns its
    /// children; deleting it does not unlink it from the list it stands in.
    class QV_API CElement : public Private::TTreeNode<CElement> {
    public:
        /// Elements without a parent, the caller's until they are inserted.
        CElement() = default;
        explicit CElement(const CString& elementName) : name(elementName) {}
        CElement(const CString& elementName, const CAttribArray& list) : name(elementName), attributes(list) {}
        ~CElement() { deleteChildren(); }

        CString name = Private::sharedEmptyText();
        CAttribArray attributes;  ///< Two of one name may stand here when the file had them.

        // GetX: the value of the first attribute with that name, by the rules of CValue, else `fallback`.
        // SetX: sets it, adding it behind the others when it is missing. False without memory.
        // clang-format off
#define QV_SBF_ELEMENT_MEMBERS(Name, Type, code)                              \
        Type Get##Name(CString::Text wanted, Type fallback = Type()) const {  \
            if (const CValue* found = attributes.Find(wanted)) found->Get##Name(fallback); \
            return fallback;                                                  \
        }                                                                     \
        bool Set##Name(const CString& wanted, Type value) {                   \
            CValue* const kept = attributes.Ensure(wanted);                   \
            return kept != nullptr && kept->Set##Name(value);                 \
        }
        // clang-format on
        QV_SBF_NUMBERS(QV_SBF_ELEMENT_MEMBERS)
        QV_SBF_ELEMENT_MEMBERS(Bool, bool, TYPE_BOOL)
        QV_SBF_ELEMENT_MEMBERS(GUID, GUID, TYPE_GUID)
#undef QV_SBF_ELEMENT_MEMBERS
        CString GetString(CString::Text wanted, CString fallback = CString()) const;
        bool SetString(const CString& wanted, CString::Text value);
        /// The bytes, valid until the attribute changes; null, with size 0, when there is no such blob.
        const uint8_t* GetBlob(CString::Text wanted, uint32_t& size) const;
        bool SetBlob(const CString& wanted, const void* data, uint32_t size);

    private:
        friend class CSBFile;
        friend class Private::TTreeNode<CElement>;

        CElement* copyAlone() const { return new CElement(name, attributes); }
    };
#undef QV_SBF_NUMBERS

    /// An empty tree of a kind; see SetIdentifier.
    explicit CSBFile(const char* identifier = "    ");
    CSBFile(const CSBFile&) = delete;
    CSBFile& operator=(const CSBFile&) = delete;
    ~CSBFile();

    /// The four characters that tell the kind of content. False, and nothing done, unless there are four from 0x20 to
    /// 0x7E.
    bool SetIdentifier(const char* identifier);
    const char* GetIdentifier() const { return m_identifier; }

    /// Replaces tree and identifier by the file's, from its position on, and leaves the position behind what was read:
    /// the tree may stand inside a larger file. The cursor is on the root then. A path is opened through the given file
    /// system, or the disk's.
    bool Load(const char16_t* path);
    bool Load(IFileSystem* fileSystem, const char16_t* path);
    bool Load(TSharedPtr<IFile> file);

    /// Writes the tree. The first form writes a new disk file beside the old one, with the old one's permissions, and
    /// renames it over that, so that a failure leaves the old one whole; a folder or device in the place is refused.
    /// The second form creates, truncating. The third writes at the file's position. False, with the diagnostic, when
    /// the file cannot be opened or comes short, when the tree is deeper than `maxDepth`, or without memory; in the
    /// last two cases nothing is opened or written. Strings go as UTF-8: a surrogate without its partner becomes
    /// U+FFFD.
    bool Save(const char16_t* path) const;
    bool Save(IFileSystem* fileSystem, const char16_t* path) const;
    bool Save(TSharedPtr<IFile> file) const;

    /// Leaves a root without name, attributes and children. The identifier stays.
    void Destroy();

    // Moves of the cursor. False where there is no such element; the cursor stays then.

    bool Root() { return moveTo(m_root); }
    bool Parent() { return moveTo(m_curr->Parent()); }
    /// To the first child.
    bool Child() { return moveTo(m_curr->Child()); }
    bool Next() { return moveTo(m_curr->Next()); }
    bool Prev() { return moveTo(m_curr->Prev()); }
    bool First() { return moveTo(m_curr->First()); }
    bool Last() { return moveTo(m_curr->Last()); }
    /// To the first sibling with that name, the next one, the first child.
    bool FindFirst(CString::Text name) { return moveTo(m_curr->FindFirst(name)); }
    bool FindNext(CString::Text name) { return moveTo(m_curr->FindNext(name)); }
    bool FindFirstChild(CString::Text name) { return moveTo(m_curr->FindChild(name)); }

    /// The element at the cursor, and the root; never null.
    CElement* Curr() const { return m_curr; }
    CElement* GetCurr() const { return m_curr; }
    CElement* GetRoot() const { return m_root; }
    /// Puts the cursor on an element of this tree; null is the root.
    void SetCurr(CElement* element) { m_curr = element != nullptr ? element : m_root; }
    /// The number of elements in the cursor's list, its own included.
    uint32_t NumPeers() const;
    bool HasChildren() const { return m_curr->HasChildren(); }

    /// Puts an element that is in no list behind the cursor, or in front of it, and moves the cursor there. False, and
    /// the element stays the caller's, when it is null or the cursor is on the root.
    bool Insert(CElement* element, bool behind);
    /// Puts an element last, or first, among the children of the one at the cursor, and moves the cursor there. False
    /// when it is null.
    bool InsertChild(CElement* element, bool atEnd);
    /// Deletes the element at the cursor with everything under it. The cursor goes to the next sibling, else to the
    /// previous one, else to the parent. False on the root.
    bool Remove();
    /// Takes the element at the cursor out of the tree and hands it to the caller; the cursor moves as for Remove. Null
    /// on the root.
    CElement* Detatch();

private:
    bool moveTo(CElement* element) {
        if (element == nullptr) return false;
        m_curr = element;
        return true;
    }

    CElement* m_root;
    CElement* m_curr;
    char m_identifier[5] = "    ";
};

extern template class TArray<CSBFile::ATTRIB>;

}  // namespace qv
