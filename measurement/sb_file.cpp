// CSBFile: its cursor, and loading and saving by path.
#include "qv/sb_file.h"

#include <cstring>
#include <memory>

#include "config/replace_file.h"
#include "measurement/sb_format.h"
#include "measurement/sb_reader.h"
#include "measurement/sb_writer.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"

namespace qv {

namespace {

constexpr uint32_t openForReading = 0x212;  // existing, read, share reading
constexpr uint32_t openForWriting = 0x28;   // create truncating, write

/// What does not open leaves the file system's own diagnostic.
TSharedPtr<IFile> openFile(IFileSystem* fileSystem, const char16_t* path, uint32_t flags) {
    if (fileSystem == nullptr || path == nullptr) return nullptr;
    return fileSystem->CreateFileW(path, flags);
}

}  // namespace

CSBFile::CSBFile(const char* identifier) : m_root(new CElement), m_curr(m_root) { SetIdentifier(identifier); }

CSBFile::~CSBFile() { delete m_root; }

bool CSBFile::SetIdentifier(const char* identifier) {
    if (identifier == nullptr || std::strlen(identifier) != 4 || !Private::sbf::isIdentifier(identifier)) return false;
    std::memcpy(m_identifier, identifier, sizeof m_identifier);
    return true;
}

void CSBFile::Destroy() {
    m_root->deleteChildren();
    m_root->attributes.Destroy();
    m_root->name = Private::sharedEmptyText();
    m_curr = m_root;
}

bool CSBFile::Load(const char16_t* path) { return Load(&fileSystem(), path); }

bool CSBFile::Load(IFileSystem* fileSystem, const char16_t* path) {
    const CString kept(path);  // `path` may stand in this tree
    const TSharedPtr<IFile> file = openFile(fileSystem, path, openForReading);
    if (Load(file)) return true;
    if (file) SetDiagnosticFile(kept);
    return false;
}

bool CSBFile::Load(TSharedPtr<IFile> file) {
    Destroy();
    if (!file) return false;
    Private::SbReader reader(*file);
    if (!reader.read()) return false;
    SetIdentifier(reader.identifier());
    delete m_root;
    m_root = m_curr = reader.release();
    return true;
}

bool CSBFile::Save(const char16_t* path) const {
    Private::SbWriter writer(m_identifier);
    if (writer.encode(*m_root)) return Private::replaceFile(path, writer.parts());
    if (path != nullptr) SetDiagnosticFile(path);
    return false;
}

bool CSBFile::Save(IFileSystem* fileSystem, const char16_t* path) const {
    Private::SbWriter writer(m_identifier);
    if (writer.encode(*m_root)) {  // else what is there stays
        const TSharedPtr<IFile> file = openFile(fileSystem, path, openForWriting);
        if (!file) return false;
        if (writer.write(*file)) return true;
    }
    if (path != nullptr) SetDiagnosticFile(path);
    return false;
}

bool CSBFile::Save(TSharedPtr<IFile> file) const {
    Private::SbWriter writer(m_identifier);
    return file && writer.encode(*m_root) && writer.write(*file);
}

uint32_t CSBFile::NumPeers() const { return m_curr == m_root ? 1 : m_curr->Parent()->NumChildren(); }

bool CSBFile::Insert(CElement* element, bool behind) {
    if (element == nullptr || m_curr == m_root) return false;
    m_curr->insertBeside(element, behind);
    return moveTo(element);
}

bool CSBFile::InsertChild(CElement* element, bool atEnd) {
    return m_curr->InsertChild(element, atEnd) && moveTo(element);
}

bool CSBFile::Remove() {
    CElement* const element = Detatch();
    delete element;
    return element != nullptr;
}

CSBFile::CElement* CSBFile::Detatch() {
    CElement* const element = m_curr;
    if (element == m_root) return nullptr;
    m_curr = element->Next() != nullptr   ? element->Next()
             : element->Prev() != nullptr ? element->Prev()
                                          : element->Parent();
    element->unlink();
    return element;
}

}  // namespace qv
