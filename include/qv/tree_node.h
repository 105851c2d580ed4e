// The links of the library's trees: what the nodes of CXMLFile and the elements of CSBFile have in common.
#pragma once

#include <cstdint>
#include <string_view>

#include "qv/api.h"
#include "qv/string.h"

namespace qv::Private {

/// A node of type Node in a tree: its neighbours, search by name, insertion, copies.
///
/// Node derives from this class, has a member `name` (compared without regard to case), a member function `copyAlone()`
/// that gives a new node without links, and calls deleteChildren() in its destructor. Nodes are made by `new`; a node
/// owns its children. Nothing here recurses or allocates, but for the nodes of a copy.
template <class Node>
class TTreeNode {
public:
    TTreeNode() = default;
    TTreeNode(const TTreeNode&) = delete;
    TTreeNode& operator=(const TTreeNode&) = delete;

    /// Neighbours; null where there is none. Root is the first node of the top level that this node hangs under.
    Node* Root() const {
        const Node* node = self();
        while (node->m_parent != nullptr) node = node->m_parent;
        return node->First();
    }
    Node* Parent() const { return m_parent; }
    Node* Child() const { return m_firstChild; }
    Node* FirstChild() const { return m_firstChild; }
    Node* LastChild() const { return m_lastChild; }
    Node* Next() const { return m_next; }
    Node* Prev() const { return m_prev; }
    Node* First() const {
        if (m_parent != nullptr) return m_parent->m_firstChild;
        const Node* node = self();
        while (node->m_prev != nullptr) node = node->m_prev;
        return const_cast<Node*>(node);
    }
    Node* Last() const {
        if (m_parent != nullptr) return m_parent->m_lastChild;
        const Node* node = self();
        while (node->m_next != nullptr) node = node->m_next;
        return const_cast<Node*>(node);
    }

    /// The first node with that name: from this one on, from the first sibling on, behind this one, among the
    /// children. Null when there is none.
    Node* Find(CString::Text wanted) const { return findFrom(const_cast<Node*>(self()), wanted.all()); }
    Node* FindFirst(CString::Text wanted) const { return findFrom(First(), wanted.all()); }
    Node* FindNext(CString::Text wanted) const { return findFrom(m_next, wanted.all()); }
    Node* FindChild(CString::Text wanted) const { return findFrom(m_firstChild, wanted.all()); }

    /// How many children there are, of all names or of one. Counts them each time.
    uint32_t NumChildren() const {
        uint32_t count = 0;
        for (const Node* node = m_firstChild; node != nullptr; node = node->m_next) ++count;
        return count;
    }
    uint32_t NumChildren(CString::Text wanted) const {
        uint32_t count = 0;
        for (const Node* node = FindChild(wanted); node != nullptr; node = node->FindNext(wanted)) ++count;
        return count;
    }
    bool HasChildren() const { return m_firstChild != nullptr; }

    /// Adds a node that is in no list as the last child, or as the first. False, and the node stays the caller's,
    /// when it is null.
    bool InsertChild(Node* node, bool atEnd) {
        if (node == nullptr) return false;
        if (atEnd) {
            append(node);
        } else {
            prepend(node);
        }
        return true;
    }

    /// A copy of this node and everything under it, the caller's to delete.
    Node* Duplicate() const {
        const Node* from = self();
        Node* const copy = from->copyAlone();
        Node* to = copy;
        try {
            while (from->nextWithin(*self(), from, to)) {
                Node* const child = from->copyAlone();
                to->append(child);
                to = child;
            }
        } catch (...) {
            delete copy;
            throw;
        }
        return copy;
    }

protected:
    ~TTreeNode() = default;

    void append(Node* child) {
        if (m_lastChild != nullptr) {
            m_lastChild->insertBeside(child, true);
            return;
        }
        child->m_parent = self();
        child->m_prev = child->m_next = nullptr;
        m_firstChild = m_lastChild = child;
    }

    void prepend(Node* child) {
        if (m_firstChild != nullptr) {
            m_firstChild->insertBeside(child, false);
        } else {
            append(child);
        }
    }

    /// Puts `node` behind this one, or in front of it, and keeps the ends of the parent's list right.
    void insertBeside(Node* node, bool behind) {
        node->m_parent = m_parent;
        node->m_prev = behind ? self() : m_prev;
        node->m_next = behind ? m_next : self();
        if (node->m_prev != nullptr) node->m_prev->m_next = node;
        if (node->m_next != nullptr) node->m_next->m_prev = node;
        if (m_parent == nullptr) return;
        if (node->m_prev == nullptr) m_parent->m_firstChild = node;
        if (node->m_next == nullptr) m_parent->m_lastChild = node;
    }

    void unlink() {
        if (m_prev != nullptr) m_prev->m_next = m_next;
        if (m_next != nullptr) m_next->m_prev = m_prev;
        if (m_parent != nullptr) {
            if (m_parent->m_firstChild == self()) m_parent->m_firstChild = m_next;
            if (m_parent->m_lastChild == self()) m_parent->m_lastChild = m_prev;
        }
        m_next = m_prev = m_parent = nullptr;
    }

    /// Takes over the children of a node that has been taken out of its tree.
    void adoptChildren(Node& from) {
        m_firstChild = from.m_firstChild;
        m_lastChild = from.m_lastChild;
        from.m_firstChild = from.m_lastChild = nullptr;
        for (Node* child = m_firstChild; child != nullptr; child = child->m_next) child->m_parent = self();
    }

    /// Each node's children are put in front of its next sibling before the node goes, so that one list is left to
    /// delete.
    void deleteChildren() {
        Node* node = m_firstChild;
        m_firstChild = m_lastChild = nullptr;
        while (node != nullptr) {
            if (node->m_firstChild != nullptr) {
                node->m_lastChild->m_next = node->m_next;
                node->m_next = node->m_firstChild;
                node->m_firstChild = node->m_lastChild = nullptr;
            }
            Node* const next = node->m_next;
            delete node;
            node = next;
        }
    }

    Node* m_next = nullptr;
    Node* m_prev = nullptr;
    Node* m_firstChild = nullptr;
    Node* m_lastChild = nullptr;
    Node* m_parent = nullptr;

private:
    Node* self() { return static_cast<Node*>(this); }
    const Node* self() const { return static_cast<const Node*>(this); }

    static Node* findFrom(Node* node, std::u16string_view wanted) {
        while (node != nullptr && CString::CompareNoCase(node->name, wanted) != 0) node = node->m_next;
        return node;
    }

    /// Moves `at` to the next node of the tree under `top`, in document order, and `parentCopy`, the copy of the node
    /// that `at` was, to the copy of the new one's parent. False behind the last.
    static bool nextWithin(const Node& top, const Node*& at, Node*& parentCopy) {
        if (at->m_firstChild != nullptr) {
            at = at->m_firstChild;
            return true;
        }
        while (at != &top && at->m_next == nullptr) {
            at = at->m_parent;
            parentCopy = parentCopy->m_parent;
        }
        if (at == &top) return false;
        at = at->m_next;
        parentCopy = parentCopy->m_parent;
        return true;
    }
};

}  // namespace qv::Private
