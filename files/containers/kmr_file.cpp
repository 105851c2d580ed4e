#include "qv/kmr_file.h"

#include <algorithm>

#include "files/containers/record_bytes.h"

namespace qv {

namespace {
/// Where a header says its byte order: a 16-bit word that is 1 in a little-endian file.
constexpr uint32_t orderOffset = 36;
/// From this version on the header may say where the data end.
constexpr uint32_t storesDataEnd = 101;
}  // namespace

const Private::CIndexedFile::TRAITS CKMRFile::format = {
    .magic = "KMR", .savesGrownTable = true, .switchesBorrowed = true, .forgetsPathOnClose = false};

CKMRFile::CKMRFile() : CIndexedFile(format) {}
CKMRFile::CKMRFile(const CKMRFile&) = default;
CKMRFile& CKMRFile::operator=(const CKMRFile&) = default;
CKMRFile::~CKMRFile() { (void)Close(); }

bool CKMRFile::Open(const char16_t* path, bool readOnly) { return Open(&fileSystem(), path, readOnly); }

bool CKMRFile::Open(IFileSystem* fileSystem, const char16_t* path, bool readOnly) {
    const CString kept(path);  // `path` may be this object's own
    if (fileSystem == nullptr || path == nullptr) return false;
    const TSharedPtr<IFile> file = fileSystem->CreateFileW(kept.c_str(), Private::indexed::flagsFor(m_readOnly));
    if (!file || !Open(file, readOnly)) return false;
    m_owner = true;
    m_fileSystem = fileSystem;
    m_path = kept;
    return true;
}

bool CKMRFile::Open(TSharedPtr<IFile> file, bool readOnly) {
    (void)Close();
    m_owner = false;
    m_readOnly = readOnly;
    if (!load(file)) return false;
    m_fileSystem = nullptr;
    m_path = CString();
    return true;
}

bool CKMRFile::Create(const char16_t* path) { return Create(&fileSystem(), path); }
bool CKMRFile::Create(IFileSystem* fileSystem, const char16_t* path) { return createByPath(fileSystem, path); }

bool CKMRFile::Create(TSharedPtr<IFile> file) {
    (void)Close();
    m_owner = false;
    m_fileSystem = nullptr;
    m_path = CString();
    if (file) (void)file->SetSize(0);
    return create(file);
}

bool CKMRFile::isBigEndian(const uint8_t* header) const {
    return header[orderOffset] != 1 || header[orderOffset + 1] != 0;
}

int64_t CKMRFile::firstFree() const {
    return std::max(GetTableEnd(),
                    int64_t{m_indexCapacity} * Private::indexed::recordBytes + Private::indexed::headerBytes);
}

void CKMRFile::setHeaderWord(uint32_t word) {
    m_dataEnd = firstFree();
    for (uint32_t i = 0; i < nIndices(); ++i) m_dataEnd = std::max(m_dataEnd, endOf(*GetIndex(i)));
    if (m_version >= storesDataEnd && word != 0) m_dataEnd = word;
}

uint32_t CKMRFile::headerWord() const { return 0; }
int64_t CKMRFile::storedSize(const CIndex& index) const { return index.sizeWord; }
void CKMRFile::storeSize(CIndex& index) const { index.sizeWord = static_cast<uint32_t>(index.size); }
void CKMRFile::dataMoved(int64_t delta) { m_dataEnd += delta; }

/// Behind the stream that begins last; of several that begin there, the first.
int64_t CKMRFile::nextOffset() const {
    const CIndex* last = nullptr;
    for (uint32_t i = 0; i < nIndices(); ++i) {
        const CIndex* const index = GetIndex(i);
        if (last == nullptr || index->getOffset() > last->getOffset()) last = index;
    }
    return last != nullptr ? endOf(*last) : firstFree();
}

}  // namespace qv
