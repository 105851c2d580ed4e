// The document: its cursor, and loading and saving by path.
#include "qv/xml_file.h"

#include "config/xml_reader.h"
#include "config/xml_writer.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"

namespace qv {

namespace {

constexpr uint32_t openToRead = 0x12;   // existing, read
constexpr uint32_t openToWrite = 0x28;  // create truncating, write

TSharedPtr<IFile> openFile(IFileSystem* fileSystem, const char16_t* path, uint32_t flags) {
    if (fileSystem == nullptr || path == nullptr) return nullptr;
    TSharedPtr<IFile> file = fileSystem->CreateFileW(path, flags);
    if (file == nullptr) SetDiagnostic(CString(path), CString(u"an XML file"), CString(u"a file that does not open"));
    return file;
}

}  // namespace

CXMLFile::~CXMLFile() { Destroy(); }

void CXMLFile::Destroy() {
    Private::deleteSiblings(m_root);
    m_root = m_curr = nullptr;
    m_pastTheEnd = false;
}

bool CXMLFile::Load(const char16_t* path) { return Load(&fileSystem(), path); }

bool CXMLFile::Load(IFileSystem* fileSystem, const char16_t* path) {
    const CString kept(path);  // `path` may stand in this tree
    const TSharedPtr<IFile> file = openFile(fileSystem, path, openToRead);
    if (Load(file)) return true;
    SetDiagnosticFile(kept);
    return false;
}

bool CXMLFile::Load(TSharedPtr<IFile> file) {
    Destroy();
    if (file == nullptr) return false;
    Private::XmlReader reader(*file, m_keepText);
    const bool loaded = reader.readDocument();
    if (loaded) m_root = m_curr = reader.release();
    return loaded;
}

bool CXMLFile::Save(const char16_t* path) const { return Save(&fileSystem(), path); }

bool CXMLFile::Save(IFileSystem* fileSystem, const char16_t* path) const {
    return Save(openFile(fileSystem, path, openToWrite));
}

bool CXMLFile::Save(TSharedPtr<IFile> file) const {
    if (file == nullptr) return false;
    Private::XmlWriter writer(*file);
    for (const CNode* node = m_root; node != nullptr; node = node->m_next) writer.writeTree(*node, 0);
    writer.flush();
    return true;
}

/// Every successful move ends here.
bool CXMLFile::moveTo(CNode* node) {
    if (node == nullptr) return false;
    m_curr = node;
    m_pastTheEnd = false;
    return true;
}

bool CXMLFile::Root() { return moveTo(m_root); }

bool CXMLFile::Parent() {
    if (m_curr == nullptr) return false;
    return moveTo(m_pastTheEnd ? m_curr : m_curr->m_parent);
}

bool CXMLFile::Child(bool pastTheEnd) {
    if (m_curr == nullptr) return false;
    if (moveTo(m_curr->m_firstChild)) return true;
    if (pastTheEnd) m_pastTheEnd = true;
    return false;
}

bool CXMLFile::Next() {
    m_pastTheEnd = false;
    return m_curr != nullptr && moveTo(m_curr->m_next);
}

bool CXMLFile::Prev() {
    m_pastTheEnd = false;
    return m_curr != nullptr && moveTo(m_curr->m_prev);
}

bool CXMLFile::First() {
    m_pastTheEnd = false;
    return m_curr != nullptr && moveTo(m_curr->First());
}

bool CXMLFile::Last() {
    m_pastTheEnd = false;
    return m_curr != nullptr && moveTo(m_curr->Last());
}

CXMLFile::CNode* CXMLFile::Curr() const {
    if (m_curr != nullptr) return m_curr;
    static CNode* const empty = new CNode;
    return empty;
}

void CXMLFile::SetCurr(CNode* node) {
    m_curr = node;
    m_pastTheEnd = false;
}

uint32_t CXMLFile::NumPeers() const {
    if (m_curr == nullptr) return 0;
    uint32_t count = 0;
    for (const CNode* node = m_curr->First(); node != nullptr; node = node->m_next) ++count;
    return count;
}

bool CXMLFile::Insert(CNode* node, bool before) {
    if (node == nullptr) return false;
    if (m_root == nullptr) {
        m_root = node;
        return moveTo(node);
    }
    if (m_curr == nullptr) return false;
    if (m_pastTheEnd) return InsertChild(node, true);
    m_curr->insertBeside(node, before);
    if (m_root->m_prev != nullptr) m_root = node;
    return moveTo(node);
}

bool CXMLFile::InsertChild(CNode* node, bool atEnd) {
    if (m_root == nullptr) return Insert(node, true);
    return m_curr != nullptr && m_curr->InsertChild(node, atEnd) && moveTo(node);
}

void CXMLFile::unlinkCurr() {
    CNode* const node = m_curr;
    CNode* const sibling = node->m_next != nullptr ? node->m_next : node->m_prev;
    CNode* const parent = node->m_parent;
    if (m_root == node) m_root = node->m_next;
    node->unlink();
    m_curr = sibling != nullptr ? sibling : parent;
    m_pastTheEnd = sibling == nullptr && parent != nullptr;
}

bool CXMLFile::Remove() {
    CNode* const node = m_curr;
    if (node == nullptr) return false;
    unlinkCurr();
    delete node;
    return true;
}

CXMLFile::CNode* CXMLFile::Detatch() {
    CNode* const node = m_curr;
    if (node == nullptr || m_pastTheEnd) return nullptr;
    unlinkCurr();
    return node;
}

bool CXMLFile::FindFirst(const CString& name) {
    if (!First()) return false;
    if (moveTo(m_curr->Find(name))) return true;
    Last();
    return false;
}

bool CXMLFile::FindNext(const CString& name) {
    if (m_curr == nullptr) return false;
    if (moveTo(m_curr->FindNext(name))) return true;
    Last();
    return false;
}

bool CXMLFile::FindFirstChild(const CString& name) { return m_curr != nullptr && moveTo(m_curr->FindChild(name)); }

}  // namespace qv
