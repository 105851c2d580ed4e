// The nodes of the XML tree: links, search, copies, destruction. Everything walks the links; nothing recurses.
#include "core/text.h"
#include "qv/xml_file.h"

namespace qv {

template class TArray<CXMLFile::ATTRIB>;

namespace {

using CNode = CXMLFile::CNode;

bool isNamed(const CString& name, const CString& wanted) {
    return text::compareNoCase(name.view(), wanted.view()) == 0;
}

CNode* findFrom(CNode* node, const CString& wanted) {
    while (node != nullptr && !isNamed(node->name, wanted)) node = node->Next();
    return node;
}

}  // namespace

const CString& Private::sharedEmptyText() {
    static const CString* const empty = new CString(u"");
    return *empty;
}

const CXMLFile::ATTRIB* CXMLFile::CAttribArray::Find(const CString& name) const {
    for (const ATTRIB& attribute : *this) {
        if (isNamed(attribute.name, name)) return &attribute;
    }
    return nullptr;
}

CString& CXMLFile::CAttribArray::operator[](const CString& name) {
    if (const ATTRIB* found = Find(name)) return const_cast<ATTRIB*>(found)->value;
    Add(ATTRIB{name, Private::sharedEmptyText()});
    return back().value;
}

bool CXMLFile::CAttribArray::Remove(const CString& name) {
    const ATTRIB* found = Find(name);
    return found != nullptr && TArray<ATTRIB>::Remove(static_cast<uint32_t>(found - data()));
}

CXMLFile::CNode::CNode(NODETYPE nodeType) : type(nodeType) {}
CXMLFile::CNode::CNode(NODETYPE nodeType, const CString& nodeName, const CString& nodeValue)
    : type(nodeType), name(nodeName), value(nodeValue) {}
CXMLFile::CNode::CNode(NODETYPE nodeType, const CString& nodeName, const CString& nodeValue, const CAttribArray& list)
    : type(nodeType), name(nodeName), value(nodeValue), attributes(list) {}
CXMLFile::CNode::CNode(const CString& elementName, const CString& elementValue)
    : CNode(NODETYPE_ELEMENT, elementName, elementValue) {}
CXMLFile::CNode::CNode(const CString& elementName, const CAttribArray& list)
    : CNode(NODETYPE_ELEMENT, elementName, Private::sharedEmptyText(), list) {}
CXMLFile::CNode::~CNode() { deleteChildren(); }

/// Each node's children are put in front of its next sibling before the node goes, so that one list is left to delete.
void CXMLFile::CNode::deleteChildren() {
    CNode* node = m_firstChild;
    m_firstChild = m_lastChild = nullptr;
    while (node != nullptr) {
        if (node->m_firstChild != nullptr) {
            node->m_lastChild->m_next = node->m_next;
            node->m_next = node->m_firstChild;
            node->m_firstChild = node->m_lastChild = nullptr;
        }
        CNode* const next = node->m_next;
        delete node;
        node = next;
    }
}

CXMLFile::CNode* CXMLFile::CNode::Root() const {
    const CNode* node = this;
    while (node->m_parent != nullptr) node = node->m_parent;
    return node->First();
}

CXMLFile::CNode* CXMLFile::CNode::First() const {
    if (m_parent != nullptr) return m_parent->m_firstChild;
    const CNode* node = this;
    while (node->m_prev != nullptr) node = node->m_prev;
    return const_cast<CNode*>(node);
}

CXMLFile::CNode* CXMLFile::CNode::Last() const {
    if (m_parent != nullptr) return m_parent->m_lastChild;
    const CNode* node = this;
    while (node->m_next != nullptr) node = node->m_next;
    return const_cast<CNode*>(node);
}

CXMLFile::CNode* CXMLFile::CNode::Find(const CString& wanted) const {
    return findFrom(const_cast<CNode*>(this), wanted);
}
CXMLFile::CNode* CXMLFile::CNode::FindFirst(const CString& wanted) const { return findFrom(First(), wanted); }
CXMLFile::CNode* CXMLFile::CNode::FindNext(const CString& wanted) const { return findFrom(m_next, wanted); }
CXMLFile::CNode* CXMLFile::CNode::FindChild(const CString& wanted) const { return findFrom(m_firstChild, wanted); }

CString CXMLFile::CNode::GetAttribute(const CString& wanted) const {
    return GetAttribute(wanted, Private::sharedEmptyText());
}

CString CXMLFile::CNode::GetAttribute(const CString& wanted, const CString& fallback) const {
    const ATTRIB* found = attributes.Find(wanted);
    return found != nullptr ? found->value : fallback;
}

uint32_t CXMLFile::CNode::NumChildren() const {
    uint32_t count = 0;
    for (const CNode* node = m_firstChild; node != nullptr; node = node->m_next) ++count;
    return count;
}

uint32_t CXMLFile::CNode::NumChildren(const CString& wanted) const {
    uint32_t count = 0;
    for (const CNode* node = FindChild(wanted); node != nullptr; node = node->FindNext(wanted)) ++count;
    return count;
}

bool CXMLFile::CNode::InsertChild(CNode* node, bool atEnd) {
    if (node == nullptr) return false;
    if (atEnd) {
        append(node);
    } else {
        prepend(node);
    }
    return true;
}

CXMLFile::CNode* CXMLFile::CNode::Duplicate() const {
    const CNode* from = this;
    auto* const copy = new CNode(type, name, value, attributes);
    CNode* to = copy;
    try {
        while (true) {
            if (from->m_firstChild != nullptr) {
                from = from->m_firstChild;
            } else {
                while (from != this && from->m_next == nullptr) {
                    from = from->m_parent;
                    to = to->m_parent;
                }
                if (from == this) return copy;
                from = from->m_next;
                to = to->m_parent;
            }
            auto* const child = new CNode(from->type, from->name, from->value, from->attributes);
            to->append(child);
            to = child;
        }
    } catch (...) {
        delete copy;
        throw;
    }
}

void CXMLFile::CNode::append(CNode* child) {
    if (m_lastChild != nullptr) {
        m_lastChild->insertBeside(child, true);
        return;
    }
    child->m_parent = this;
    child->m_prev = child->m_next = nullptr;
    m_firstChild = m_lastChild = child;
}

void CXMLFile::CNode::prepend(CNode* child) {
    if (m_firstChild != nullptr) {
        m_firstChild->insertBeside(child, false);
    } else {
        append(child);
    }
}

/// Puts `node` behind this one, or in front of it, and keeps the ends of the parent's list right.
void CXMLFile::CNode::insertBeside(CNode* node, bool behind) {
    node->m_parent = m_parent;
    node->m_prev = behind ? this : m_prev;
    node->m_next = behind ? m_next : this;
    if (node->m_prev != nullptr) node->m_prev->m_next = node;
    if (node->m_next != nullptr) node->m_next->m_prev = node;
    if (m_parent == nullptr) return;
    if (node->m_prev == nullptr) m_parent->m_firstChild = node;
    if (node->m_next == nullptr) m_parent->m_lastChild = node;
}

void CXMLFile::CNode::unlink() {
    if (m_prev != nullptr) m_prev->m_next = m_next;
    if (m_next != nullptr) m_next->m_prev = m_prev;
    if (m_parent != nullptr) {
        if (m_parent->m_firstChild == this) m_parent->m_firstChild = m_next;
        if (m_parent->m_lastChild == this) m_parent->m_lastChild = m_prev;
    }
    m_next = m_prev = m_parent = nullptr;
}

}  // namespace qv
