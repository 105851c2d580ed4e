#include "qv/aff_file.h"

#include <algorithm>
#include <limits>

#include "files/containers/record_bytes.h"

namespace qv {

namespace {
/// So that a size and an offset have a sum.
constexpr int64_t largestSize = std::numeric_limits<int64_t>::max() - 0xFFFFFFFF;
}  // namespace

const Private::CIndexedFile::TRAITS CAFFFile::format = {
    .magic = "AFF", .savesGrownTable = false, .switchesBorrowed = false, .forgetsPathOnClose = true};

CAFFFile::CAFFFile() : CIndexedFile(format) {}
CAFFFile::CAFFFile(const CAFFFile&) = default;
CAFFFile& CAFFFile::operator=(const CAFFFile&) = default;
CAFFFile::~CAFFFile() { (void)Close(); }

bool CAFFFile::Open(const char16_t* path, bool readOnly) { return Open(&fileSystem(), path, readOnly); }

bool CAFFFile::Open(IFileSystem* fileSystem, const char16_t* path, bool readOnly) {
    const CString kept(path);  // `path` may be this object's own
    (void)Close();
    m_readOnly = readOnly;
    if (fileSystem == nullptr || path == nullptr) return false;
    const TSharedPtr<IFile> file = fileSystem->CreateFileW(kept.c_str(), Private::indexed::flagsFor(readOnly));
    m_owner = true;
    if (!file) return false;
    m_fileSystem = fileSystem;
    m_path = kept;
    return DoOpen(file);
}

bool CAFFFile::Open(TSharedPtr<IFile> file) {
    (void)Close();
    m_owner = false;
    if (!file) return false;
    char16_t name[IFileSystem::pathChars] = {};
    m_fileSystem = &file->GetFileSystem();
    m_path = file->GetFilename(name, IFileSystem::pathChars);
    return DoOpen(file);
}

bool CAFFFile::DoOpen(TSharedPtr<IFile> file) {
    if (m_container) (void)Close();
    return load(file);
}

bool CAFFFile::Create(const char16_t* path) { return Create(&fileSystem(), path); }
bool CAFFFile::Create(IFileSystem* fileSystem, const char16_t* path) { return createByPath(fileSystem, path); }

bool CAFFFile::isBigEndian(const uint8_t*) const { return true; }
void CAFFFile::setHeaderWord(uint32_t word) { m_userWord = word; }
uint32_t CAFFFile::headerWord() const { return m_userWord; }

int64_t CAFFFile::storedSize(const CIndex& index) const {
    const uint64_t bytes = uint64_t{index.sizeWord} * std::max(index.count, 1u);
    return static_cast<int64_t>(std::min(bytes, static_cast<uint64_t>(largestSize)));
}

void CAFFFile::storeSize(CIndex& index) const {
    if (index.sizeWord != 0 || index.count != 0 || index.size <= 0) return;
    index.sizeWord = static_cast<uint32_t>(index.size);
    index.count = 1;
}

int64_t CAFFFile::nextOffset() const { return m_container->GetSize(); }
void CAFFFile::dataMoved(int64_t) {}

}  // namespace qv
