// CXMLFile: a small XML tree with a cursor, read from and written to an IFile. Start with Load, Root and Child.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"
#include "qv/tree_node.h"

namespace qv {

class IFileSystem;

namespace Private {
class XmlReader;
class XmlWriter;
}  // namespace Private

/// An XML document as a tree of nodes, walked and changed through one cursor.
///
/// It knows elements, processing instructions, comments and text, in UTF-8: no document type, no namespaces, no CDATA.
/// Names compare without regard to case. White space around an element's text is dropped, and the runs of text between
/// child elements are joined in the element's value.
///
/// The cursor stands on a node, or nowhere in an empty tree. Where a list of children is empty it stands on their
/// parent with the past-the-end flag set, so that the next insertion goes into the list; any successful move or
/// insertion clears the flag.
/// Ownership: the file owns the top-level nodes, a node its children. Nodes are made by `new`.
/// Depth: nothing here recurses; a document may be nested as deeply as memory allows.
/// Failure: Load is false, leaves the tree empty and sets the diagnostic with the line.
/// Threads: none of it is thread-safe.
class QV_API CXMLFile {
public:
    /// What a node is.
    enum NODETYPE : int32_t {
        NODETYPE_ELEMENT = 0,
        NODETYPE_PI = 1,  ///< Processing instruction, such as the prolog.
        NODETYPE_TEXT = 2,
        NODETYPE_COMMENT = 3,
    };

    /// A name and a value, decoded.
    struct ATTRIB {
        CString name = Private::sharedEmptyText();
        CString value = Private::sharedEmptyText();
    };

    /// The attributes of a node in the order of the document.
    class QV_API CAttribArray : public TArray<ATTRIB> {
    public:
        using TArray<ATTRIB>::operator[];
        /// The value of the attribute with that name in any case; a missing one is added, empty.
        CString& operator[](const CString& name);
        CString& operator[](const char16_t* name) { return (*this)[CString(name)]; }
        bool Exists(const CString& name) const { return Find(name) != nullptr; }
        /// False when there is none.
        bool Remove(const CString& name);
        using TArray<ATTRIB>::Remove;
        /// The first attribute with that name, or null.
        const ATTRIB* Find(const CString& name) const;
    };

    /// A node of the tree, with neighbours, search, insertion and copies as Private::TTreeNode gives them. It owns its
    /// children; deleting it does not unlink it from the list it stands in.
    class QV_API CNode : public Private::TTreeNode<CNode> {
    public:
        /// Nodes without a parent, the caller's until they are inserted. The last two forms make elements.
        explicit CNode(NODETYPE nodeType = NODETYPE_ELEMENT);
        CNode(NODETYPE nodeType, const CString& nodeName, const CString& nodeValue = Private::sharedEmptyText());
        CNode(NODETYPE nodeType, const CString& nodeName, const CString& nodeValue, const CAttribArray& list);
        explicit CNode(const CString& elementName, const CString& elementValue = Private::sharedEmptyText());
        CNode(const CString& elementName, const CAttribArray& list);
        ~CNode();

        /// The nodes that a Load makes come from blocks of up to 640, each of which goes with the last of its nodes; a
        /// node that is taken out of its tree holds its block. Any thread may delete a node.
        static void* operator new(size_t size);
        static void operator delete(void* node) noexcept;

        NODETYPE type;
        CString name = Private::sharedEmptyText();   ///< Empty for a comment and for text.
        CString value = Private::sharedEmptyText();  ///< An element's text, a comment's body.
        CAttribArray attributes;                     ///< Two of one name may stand here when the document had them.

        CString GetValue() const { return value; }
        /// The value of an attribute; empty, or `fallback`, when there is none of that name.
        CString GetAttribute(const CString& wanted) const;
        CString GetAttribute(const CString& wanted, const CString& fallback) const;

        /// Reads one node from where the file stands, in place of this one's contents; the file's position is left
        /// behind the node. False leaves this node empty and sets the diagnostic.
        bool Load(IFile& file, bool keepText = false);
        /// Writes this node and everything under it, `indent` tabs deep. The result is true whatever became of the
        /// writes; a failed one sets the diagnostic.
        bool Save(IFile& file, uint32_t indent = 0) const;

    private:
        friend class CXMLFile;
        friend class Private::TTreeNode<CNode>;
        friend class Private::XmlReader;
        friend class Private::XmlWriter;

        static void* operator new(size_t size, Private::XmlReader& reader);
        static void operator delete(void* node, Private::XmlReader&) noexcept { operator delete(node); }

        CNode* copyAlone() const { return new CNode(type, name, value, attributes); }
    };

    CXMLFile() = default;
    CXMLFile(const CXMLFile&) = delete;
    CXMLFile& operator=(const CXMLFile&) = delete;
    ~CXMLFile();

    /// Replaces the tree by the document from the file's position to its end; the cursor is on the first node then. A
    /// byte-order mark is skipped, and a file of white space alone is an empty tree. The position is left where reading
    /// ended. A path is opened through the given file system, or the disk's.
    bool Load(const char16_t* path);
    bool Load(IFileSystem* fileSystem, const char16_t* path);
    bool Load(TSharedPtr<IFile> file);

    /// Writes the tree at the file's position: a line for each node, tabs for the depth, CR LF, no prolog of its own. A
    /// path is created, truncating. False only when the file cannot be opened; a failed write sets the diagnostic.
    bool Save(const char16_t* path) const;
    bool Save(IFileSystem* fileSystem, const char16_t* path) const;
    bool Save(TSharedPtr<IFile> file) const;

    /// Deletes all nodes. The cursor is nowhere.
    void Destroy();

    /// Whether Load also keeps each run of an element's text as a child of type NODETYPE_TEXT.
    void SetKeepText(bool keep) { m_keepText = keep; }
    bool GetKeepText() const { return m_keepText; }

    // Moves of the cursor. False where there is no such node; the cursor stays then.

    /// To the first node of the top level.
    bool Root();
    /// With the past-the-end flag set the cursor is on that parent already: it stays, and the flag is cleared.
    bool Parent();
    /// To the first child. Where there is none and `pastTheEnd` is true, the past-the-end flag is set (and the result
    /// is false).
    bool Child(bool pastTheEnd = false);
    /// The moves among siblings clear the past-the-end flag also where they fail.
    bool Next();
    bool Prev();
    bool First();
    bool Last();

    /// The node at the cursor. With no cursor, an empty node that all files of the process share: never null.
    CNode* Curr() const;
    /// The node at the cursor, or null.
    CNode* GetCurr() const { return m_curr; }
    /// Puts the cursor on a node of this tree, or nowhere.
    void SetCurr(CNode* node);
    /// The first node of the top level, or null.
    CNode* GetRoot() const { return m_root; }
    /// True when the cursor is on a node.
    bool IsValid() const { return m_curr != nullptr; }
    bool IsPastTheEnd() const { return m_pastTheEnd; }
    /// The number of nodes in the cursor's list, its own included; 0 with no cursor.
    uint32_t NumPeers() const;
    bool HasChildren() const { return m_curr != nullptr && m_curr->HasChildren(); }

    /// Puts a node behind the cursor, or, when `before` is false, in front of it, and moves the cursor there. In an
    /// empty tree it becomes the root; with the past-the-end flag set, the child that was missing. False, and the node
    /// stays the caller's, when it is null or the cursor is nowhere in a tree that is not empty.
    bool Insert(CNode* node, bool before);
    /// Puts a node last, or first, among the children of the node at the cursor, and moves the cursor there.
    bool InsertChild(CNode* node, bool atEnd);
    /// Deletes the node at the cursor with everything under it. The cursor goes to the next sibling, else to the
    /// previous one, else to the parent with the past-the-end flag set.
    bool Remove();
    /// Takes the node at the cursor out of the tree and hands it to the caller; the cursor moves as for Remove. Null
    /// with no cursor or with the past-the-end flag set.
    CNode* Detatch();

    /// To the first sibling with that name; where there is none, false with the cursor on the last sibling.
    bool FindFirst(const CString& name);
    /// The same from the next sibling on.
    bool FindNext(const CString& name);
    /// To the first child with that name; where there is none, false with the cursor where it was.
    bool FindFirstChild(const CString& name);

    /// Of the node at the cursor; empty with no cursor.
    CString GetAttribute(const CString& name) const { return Curr()->GetAttribute(name); }
    CString GetAttribute(const CString& name, const CString& fallback) const {
        return Curr()->GetAttribute(name, fallback);
    }
    CString GetValue() const { return Curr()->GetValue(); }

private:
    bool moveTo(CNode* node);
    void unlinkCurr();

    CNode* m_root = nullptr;
    CNode* m_curr = nullptr;
    bool m_pastTheEnd = false;
    bool m_keepText = false;
};

extern template class TArray<CXMLFile::ATTRIB>;

}  // namespace qv
