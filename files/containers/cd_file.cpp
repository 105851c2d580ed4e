// A file of a CDFS container.
#include <algorithm>

#include "files/containers/cd_session.h"
#include "files/seek.h"

namespace qv {

CCDFileSystem::CCDFile::CCDFile(std::shared_ptr<Session> session, int index)
    : m_session(std::move(session)), m_index(index) {}

CCDFileSystem::CCDFile::~CCDFile() { Close(); }

uint32_t CCDFileSystem::CCDFile::Read(void* data, uint32_t count) {
    const std::lock_guard lock(*m_session->lock);
    if (m_session->owner == nullptr) return 0;
    const uint32_t done = m_session->owner->readEntry(m_index, m_position, data, count);
    m_position += done;
    return done;
}

uint32_t CCDFileSystem::CCDFile::Write(const void* data, uint32_t count) {
    const std::lock_guard lock(*m_session->lock);
    if (m_session->owner == nullptr) return 0;
    const uint32_t done = m_session->owner->writeEntry(m_index, m_position, data, count);
    m_position += done;
    return done;
}

int64_t CCDFileSystem::CCDFile::GetSize() {
    const std::lock_guard lock(*m_session->lock);
    const CDirectoryEntry* const entry = m_session->owner == nullptr ? nullptr : m_session->owner->entryOf(m_index);
    return entry == nullptr ? 0 : entry->size;
}

int64_t CCDFileSystem::CCDFile::Seek(int64_t offset, uint32_t origin) {
    int64_t base = 0;
    if (!Private::seekBase(origin, m_position, GetSize(), base)) return m_position;
    int64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target)) target = offset < 0 ? 0 : INT64_MAX;
    return m_position = std::max<int64_t>(target, 0);
}

bool CCDFileSystem::CCDFile::SetSize(int64_t size) {
    const std::lock_guard lock(*m_session->lock);
    return m_session->owner != nullptr && m_session->owner->entryOf(m_index) != nullptr &&
           m_session->owner->setEntrySize(m_index, size) == size;
}

void CCDFileSystem::CCDFile::Flush() {
    const std::lock_guard lock(*m_session->lock);
    if (m_session->owner != nullptr) (void)m_session->owner->Flush();
}

void CCDFileSystem::CCDFile::Close() {
    const std::lock_guard lock(*m_session->lock);
    if (m_index != deleted) Flush();
    m_index = deleted;
    if (m_session->owner != nullptr) std::erase(m_session->owner->m_openFiles, this);
}

char16_t* CCDFileSystem::CCDFile::GetFilename(char16_t* buffer, int bufferChars) {
    if (bufferChars <= 0) return buffer;
    const std::lock_guard lock(*m_session->lock);
    const CDirectoryEntry* const entry = m_session->owner == nullptr ? nullptr : m_session->owner->entryOf(m_index);
    StrCpy(buffer, entry == nullptr ? u"" : entry->path, static_cast<size_t>(bufferChars));
    return buffer;
}

IFileSystem& CCDFileSystem::CCDFile::GetFileSystem() {
    const std::lock_guard lock(*m_session->lock);
    if (m_session->owner != nullptr) return *m_session->owner;
    return fileSystem();
}

}  // namespace qv
