// The nodes of the XML tree and their attributes.
#include "config/xml_reader.h"
#include "core/text.h"
#include "qv/xml_file.h"

namespace qv {

template class TArray<CXMLFile::ATTRIB>;

namespace {

bool isNamed(const CString& name, const CString& wanted) {
    return text::compareNoCase(name.view(), wanted.view()) == 0;
}

}  // namespace

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

void* CXMLFile::CNode::operator new(size_t size) { return Private::XmlNodeMemory::allocateAlone(size); }
void* CXMLFile::CNode::operator new(size_t, Private::XmlReader& reader) { return reader.m_nodes.allocate(); }
void CXMLFile::CNode::operator delete(void* node) noexcept { Private::XmlNodeMemory::free(node); }

CString CXMLFile::CNode::GetAttribute(const CString& wanted) const {
    return GetAttribute(wanted, Private::sharedEmptyText());
}

CString CXMLFile::CNode::GetAttribute(const CString& wanted, const CString& fallback) const {
    const ATTRIB* found = attributes.Find(wanted);
    return found != nullptr ? found->value : fallback;
}

}  // namespace qv
