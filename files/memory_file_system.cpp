#include "qv/memory_file_system.h"

#include <string>
#include <utility>

#include "files/memory_tree.h"
#include "files/seek.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

using Private::MemoryNode;
using Private::MemoryTree;
using Guard = std::lock_guard<std::mutex>;

constexpr uint32_t attributeReadOnly = 4;

bool refuse(std::u16string_view path, const char16_t* expected, const char16_t* found) {
    SetDiagnostic(CString(path), expected, found);
    return false;
}

/// What the files of a file system that is gone say they live in. Never destroyed, as such files may be there to the
/// end.
IFileSystem& nowhere() {
    static auto* const empty = new CMemoryFileSystem;
    return *empty;
}

class MemoryFile : public IFile {
public:
    MemoryFile(std::shared_ptr<MemoryTree> tree, std::shared_ptr<MemoryNode> node, uint32_t flags)
        : m_tree(std::move(tree)),
          m_node(std::move(node)),
          m_path(m_node->path()),
          m_opening(openingOf(flags)),
          m_appends(Private::appendsOnly(flags)),
          m_deleteOnClose((flags & CFile::deleteOnClose) != 0) {
        m_node->openers.add(m_opening);
        if (flags & CFile::append) m_position = m_node->bytes.size();
    }
    ~MemoryFile() override { MemoryFile::Close(); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    static Private::Opening openingOf(uint32_t flags) {
        return {(flags & CFile::accessRead) != 0, (flags & CFile::accessWrite) != 0, Private::sharesOf(flags)};
    }

    char16_t* GetFilename(char16_t* buffer, int bufferChars) override {
        if (bufferChars > 0) StrCpy(buffer, m_path.c_str(), static_cast<size_t>(bufferChars));
        return buffer;
    }
    IFileSystem& GetFileSystem() override {
        const Guard guard(m_tree->lock);
        return m_tree->owner != nullptr ? *m_tree->owner : nowhere();
    }
    uint32_t Write(const void* data, uint32_t count) override;
    uint32_t Read(void* data, uint32_t count) override;
    int64_t GetSize() override {
        const Guard guard(m_tree->lock);
        return m_node ? m_node->bytes.size() : 0;
    }
    int64_t GetPosition() override { return m_position; }
    int64_t Seek(int64_t offset, uint32_t origin) override;
    bool SetSize(int64_t size) override;
    void Flush() override {}
    void Close() override;

private:
    bool mayWrite() const {
        return (m_node && m_opening.write) || refuse(m_path, u"a file to write to", u"one not open for writing");
    }

    std::shared_ptr<MemoryTree> m_tree;
    std::shared_ptr<MemoryNode> m_node;  // Null when closed.
    std::u16string m_path;
    Private::Opening m_opening;
    bool m_appends, m_deleteOnClose;
    int64_t m_position = 0;
};

uint32_t MemoryFile::Write(const void* data, uint32_t count) {
    if (count == 0 || !mayWrite()) return 0;
    uint32_t done = 0;
    {
        const Guard guard(m_tree->lock);
        if (m_appends) m_position = m_node->bytes.size();
        done = m_node->bytes.write(m_position, data, count);
        m_node->modified = CDateTime::UtcNow();
    }
    m_position += done;
    if (done != count) refuse(m_path, u"memory for a file in memory", u"too little");
    return done;
}

uint32_t MemoryFile::Read(void* data, uint32_t count) {
    if (!m_node || !m_opening.read) {
        refuse(m_path, u"a file to read from", u"one not open for reading");
        return 0;
    }
    const Guard guard(m_tree->lock);
    const uint32_t done = m_node->bytes.read(m_position, data, count);
    m_position += done;
    return done;
}

int64_t MemoryFile::Seek(int64_t offset, uint32_t origin) {
    int64_t base = 0, target = 0;
    if (!Private::seekBase(origin, m_position, GetSize(), base)) return m_position;
    if (offset != 0 || origin == fromBegin) m_appends = false;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) return -1;
    return m_position = target;
}

bool MemoryFile::SetSize(int64_t size) {
    if (!mayWrite()) return false;
    if (size < 0) return refuse(m_path, u"a size from 0", u"one below it");
    m_appends = false;
    const Guard guard(m_tree->lock);
    m_node->bytes.resize(size);
    m_node->modified = CDateTime::UtcNow();
    return true;
}

void MemoryFile::Close() {
    if (!m_node) return;
    const Guard guard(m_tree->lock);
    m_node->openers.remove(m_opening);
    if (m_deleteOnClose) m_node->unlink();
    m_node.reset();
}

void fillEntry(IFileSystem::CDirectoryEntry& entry, const MemoryNode& node, const std::u16string& path) {
    StrCpy(entry.name, node.name.c_str(), IFileSystem::pathChars);
    StrCpy(entry.path, path.c_str(), IFileSystem::pathChars);
    entry.type = node.folder ? IFileSystem::typeDirectory : IFileSystem::typeFile;
    entry.size = node.bytes.size();
    entry.modified = node.modified;
}

constexpr const char16_t* aFileToOpen = u"a file to open";

/// The file that an open by these flags finds or makes; null with a diagnostic.
MemoryNode* openNode(MemoryTree& tree, const std::u16string& path, uint32_t flags) {
    using platform::Disposition;
    const Disposition disposition = Private::dispositionOf(flags);
    const auto fail = [&path](const char16_t* found) -> MemoryNode* {
        refuse(path, aFileToOpen, found);
        return nullptr;
    };
    if (MemoryNode* node = tree.find(path)) {
        if (node->folder) return fail(u"a folder");
        if (disposition == Disposition::createNew) return fail(u"a file that is there already");
        const bool truncates = disposition == Disposition::createTruncate;
        Private::Opening opening = MemoryFile::openingOf(flags);
        opening.write = opening.write || truncates;
        if (node->readOnly && opening.write) return fail(u"a read-only file");
        if (!node->openers.allow(opening)) return fail(u"a sharing conflict with another that has it open");
        if (!truncates) return node;
        node->bytes.resize(0);
        node->modified = CDateTime::UtcNow();
        node->readOnly = Private::createsReadOnly(flags);
        return node;
    }
    if (disposition == Disposition::openExisting) return fail(u"nothing of that name");
    MemoryNode* const folder = tree.find(Private::parentPath(path));
    if (folder == nullptr || !folder->folder) return fail(u"no folder to put it in");
    MemoryNode* const node = folder->add(IFileSystem::GetFilename(path.c_str()), false);
    if (node == nullptr) return fail(u"a path of 512 characters or more");
    node->readOnly = Private::createsReadOnly(flags);
    return node;
}

}  // namespace

CMemoryFileSystem::CMemoryFileSystem(Names names)
    : m_tree(std::make_shared<MemoryTree>(Private::NameOrder{names == Names::exactCase})) {
    m_tree->owner = this;
}

CMemoryFileSystem::~CMemoryFileSystem() {
    const Guard guard(m_tree->lock);
    m_tree->owner = nullptr;
}

TSharedPtr<IFile> CMemoryFileSystem::CreateFileW(const char16_t* path, uint32_t flags) {
    const std::u16string full = m_tree->current.absolute(path);
    if (full.empty()) return nullptr;
    if (full.back() == u'/') {
        refuse(full, aFileToOpen, u"the name of a folder");
        return nullptr;
    }
    const Guard guard(m_tree->lock);
    MemoryNode* const node = openNode(*m_tree, full, flags);
    if (node == nullptr) return nullptr;
    return TSharedPtr<IFile>(new MemoryFile(m_tree, m_tree->share(*node), flags));
}

bool CMemoryFileSystem::CopyFileW(const char16_t* from, const char16_t* to, bool overwrite, CopyCallback callback,
                                  void* context) {
    const TSharedPtr<IFile> source = CreateFileW(from, CFile::openExisting | CFile::accessRead);
    return source && IFileSystem::CopyFileW(source, this, to, overwrite, callback, context);
}

IFileSystem::CDirectoryListing CMemoryFileSystem::GetDirectoryListing(const char16_t* directory,
                                                                      const char16_t* pattern) {
    const std::u16string current = m_tree->current.get();
    CDirectoryListing listing(this, directory == nullptr ? current.c_str() : directory);
    const std::u16string path = m_tree->current.listed(directory);
    const Guard guard(m_tree->lock);
    const MemoryNode* const folder = m_tree->find(path);
    if (folder == nullptr || !folder->folder) {
        refuse(path, u"a directory to list", folder == nullptr ? u"nothing of that name" : u"a file");
        return listing;
    }
    const std::u16string prefix = folder->path();
    CDirectoryEntry entry;
    for (const auto& [name, node] : folder->children) {
        if (pattern != nullptr && !WildcardMatch(pattern, name.c_str())) continue;
        fillEntry(entry, *node, Private::joinedPath(prefix, name));
        if (listing.entries.Add(entry)) continue;
        refuse(path, u"memory for all entries of a directory", u"too little");
        break;
    }
    return listing;
}

IFileSystem::CDirectoryEntry CMemoryFileSystem::GetFileInfo(const char16_t* path) {
    CDirectoryEntry entry;
    const std::u16string full = m_tree->current.key(path);
    const Guard guard(m_tree->lock);
    if (const MemoryNode* const node = m_tree->find(full)) fillEntry(entry, *node, node->path());
    return entry;
}

bool CMemoryFileSystem::SetFileAttributesW(const char16_t* path, uint32_t attributes) {
    const std::u16string full = m_tree->current.key(path);
    const Guard guard(m_tree->lock);
    MemoryNode* const node = m_tree->find(full);
    if (node == nullptr || node->folder) {
        return refuse(full, u"a file to set attributes of", node == nullptr ? u"nothing of that name" : u"a folder");
    }
    node->readOnly = (attributes & attributeReadOnly) != 0;
    return true;
}

bool CMemoryFileSystem::SetFileModifiedTime(const char16_t* path, CDateTime time) {
    const std::u16string full = m_tree->current.key(path);
    const Guard guard(m_tree->lock);
    MemoryNode* const node = m_tree->find(full);
    if (node == nullptr) return refuse(full, u"a file to set the time of", u"nothing of that name");
    node->modified = time.ToUtc();
    return true;
}

bool CMemoryFileSystem::GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) {
    return Private::fitBuffer(m_tree->current.absolute(path), buffer, bufferChars);
}

bool CMemoryFileSystem::DeleteFileW(const char16_t* path) {
    const std::u16string full = m_tree->current.absolute(path);
    const Guard guard(m_tree->lock);
    MemoryNode* const node = m_tree->find(full);
    if (node == nullptr || node->folder || full.back() == u'/') {
        return refuse(full, u"a file to delete", node == nullptr ? u"nothing of that name" : u"a folder");
    }
    node->unlink();
    return true;
}

bool CMemoryFileSystem::CreateDirectoryW(const char16_t* path, bool recursive) {
    const std::u16string full = m_tree->current.key(path);
    const auto fail = [&full](const char16_t* found) { return refuse(full, u"a directory to create", found); };
    if (full.empty()) return false;
    if (full.size() >= static_cast<size_t>(pathChars)) return fail(u"a path of 512 characters or more");
    const Guard guard(m_tree->lock);
    MemoryNode* node = m_tree->root.get();
    bool created = false;
    for (size_t at = 1; at < full.size();) {
        const size_t end = std::min(full.find(u'/', at), full.size());
        const std::u16string_view name(full.data() + at, end - at);
        MemoryNode* next = node->child(name);
        if (next == nullptr && !recursive && end != full.size()) return fail(u"no folder to put it in");
        created = next == nullptr;
        if (created) next = node->add(name, true);
        if (next == nullptr || !next->folder) return fail(next == nullptr ? u"too long a path" : u"a file");
        node = next;
        at = end + 1;
    }
    return recursive || created || fail(u"one that is there already");
}

bool CMemoryFileSystem::RemoveDirectoryW(const char16_t* path, bool recursive) {
    const std::u16string full = m_tree->current.key(path);
    const auto fail = [&full](const char16_t* found) { return refuse(full, u"a directory to remove", found); };
    const Guard guard(m_tree->lock);
    MemoryNode* const node = m_tree->find(full);
    if (node == nullptr) return (recursive && !full.empty()) || fail(u"nothing of that name");
    if (!node->folder || node->parent == nullptr) return fail(node->folder ? u"the root" : u"a file");
    if (!recursive && !node->children.empty()) return fail(u"one that is not empty");
    node->unlink();
    return true;
}

bool CMemoryFileSystem::SetCurrentWorkingDirectory(const char16_t* path) {
    const std::u16string full = m_tree->current.key(path);
    const Guard guard(m_tree->lock);
    const MemoryNode* const node = m_tree->find(full);
    if (node == nullptr || !node->folder) return refuse(full, u"a directory to change to", u"none");
    m_tree->current.set(node->path());
    return true;
}

bool CMemoryFileSystem::GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) {
    return Private::fitBuffer(m_tree->current.get(), buffer, bufferChars);
}

}  // namespace qv
