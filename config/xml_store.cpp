#include "qv/xml_store.h"

#include <memory>

#include "config/replace_file.h"
#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"

namespace qv {

namespace {

using Node = CXMLFile::CNode;

constexpr char16_t storeElement[] = u"store";
constexpr char16_t entryElement[] = u"entry";
constexpr char16_t nameAttribute[] = u"name";

bool isNamed(const Node& node, std::u16string_view name) {
    return node.type == CXMLFile::NODETYPE_ELEMENT && text::compareNoCase(node.name.view(), name) == 0;
}

bool writeTo(IFile& file, const CMemFile& bytes) {
    if (file.WriteBytes(bytes.data(), bytes.size())) return true;
    SetDiagnostic(u"", u"room for an XML file", u"a short write", file.GetPosition());
    return false;
}

std::string_view viewOf(const CMemFile& file) {
    return {reinterpret_cast<const char*>(file.data()), size_t{file.size()}};
}

}  // namespace

CXMLStore::~CXMLStore() = default;

bool CXMLStore::Load(const char16_t* path) { return Load(&fileSystem(), path); }

bool CXMLStore::Load(IFileSystem* system, const char16_t* path) {
    CXMLFile document;
    if (!document.Load(system, path)) return false;
    if (take(document)) return true;
    SetDiagnosticFile(path);
    return false;
}

bool CXMLStore::Load(TSharedPtr<IFile> file) {
    CXMLFile document;
    return document.Load(file) && take(document);
}

bool CXMLStore::take(const CXMLFile& document) {
    for (const Node* node = document.GetRoot(); node != nullptr; node = node->Next()) {
        if (!isNamed(*node, storeElement)) continue;
        Clear();
        Load(node, CString(u""), 0);
        return true;
    }
    SetDiagnostic(u"", u"an element \"store\"", u"a document without one");
    return false;
}

void CXMLStore::Load(const Node* node, CString path, uint32_t depth) {
    if (depth == maxNames) return;
    for (const Node* entry = node->Child(); entry != nullptr; entry = entry->Next()) {
        if (!isNamed(*entry, entryElement)) continue;
        const CString below = IFileSystem::MakePath(path, entry->GetAttribute(nameAttribute, CString(u"")), u'/');
        if (!entry->value.IsEmpty()) (void)SetString(below, entry->value);
        Load(entry, below, depth + 1);
    }
}

/// The document as it goes to a file. A tree's own save does not tell of a write that failed, so it goes to memory.
bool CXMLStore::render(CMemFile& bytes) const {
    CXMLFile document;
    document.Insert(new Node(CString(storeElement)), true);
    SaveNode(node(0).firstChild, document.GetRoot());
    const TSharedPtr<IFile> file(new CMemFile);
    if (!document.Save(file)) return false;
    bytes = static_cast<CMemFile&>(*file);
    const std::string_view all = viewOf(bytes);
    return all.ends_with("</store>\r\n") || all == "<store/>\r\n";  // Otherwise there was no memory for all of it.
}

bool CXMLStore::Save(const char16_t* path) const {
    CMemFile bytes;
    return render(bytes) && Private::replaceFile(path, viewOf(bytes));
}

bool CXMLStore::Save(IFileSystem* system, const char16_t* path) const {
    if (system == nullptr) system = &fileSystem();
    CMemFile bytes;
    if (!render(bytes)) return false;
    const TSharedPtr<IFile> file = system->CreateFileW(path, CFile::createTruncate | CFile::accessWrite);
    if (!file) return false;
    if (writeTo(*file, bytes)) return true;
    SetDiagnosticFile(path);
    return false;
}

bool CXMLStore::Save(TSharedPtr<IFile> file) const {
    CMemFile bytes;
    return file && render(bytes) && writeTo(*file, bytes);
}

/// The node and those behind it in its list, each with what is below it.
void CXMLStore::SaveNode(int index, Node* parent) const {
    for (; index != -1; index = node(index).nextSibling) {
        const SNode& saved = node(index);
        if (!saved.hasValue() && saved.firstChild == -1) continue;
        CXMLFile::CAttribArray attributes;
        attributes[nameAttribute] = saved.name;
        auto entry = std::make_unique<Node>(CString(entryElement), attributes);
        if (saved.firstChild == -1) entry->value = saved.value.text;
        SaveNode(saved.firstChild, entry.get());
        parent->InsertChild(entry.release(), true);
    }
}

}  // namespace qv
