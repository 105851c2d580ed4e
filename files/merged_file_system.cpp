#include "qv/merged_file_system.h"

#include <mutex>
#include <string>
#include <utility>

#include "files/merged_layers.h"
#include "files/open_flags.h"
#include "files/virtual_path.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

using Private::Entry;
using Private::Layer;
using Guard = std::lock_guard<std::mutex>;
using platform::Disposition;

bool refuse(std::u16string_view path, const char16_t* expected, const char16_t* found) {
    SetDiagnostic(CString(path), expected, found);
    return false;
}

}  // namespace

struct CMergedFileSystem::State {
    std::mutex lock;
    CMergedFileSystem* owner;  // Null once the file system is gone.
    Private::Layers layers;
    Private::WorkingDirectory current;

    Layer* layerToChange(const std::u16string& path);
    bool makeParents(Layer& target, const std::u16string& path);
    bool copyUp(const Layer& from, Layer& to, const std::u16string& path, const Entry& entry);
    Layer* ownCopy(const std::u16string& path);
    TSharedPtr<IFile> open(const std::u16string& path, uint32_t flags, TSharedPtr<IFileSystem>& system);
    TSharedPtr<IFile> openToChange(Layer* found, const Entry& entry, const std::u16string& path, uint32_t flags,
                                   TSharedPtr<IFileSystem>& system);
};

namespace {

/// A layer's file that lives in the view.
class MergedFile : public IFile {
public:
    using State = std::shared_ptr<CMergedFileSystem::State>;

    MergedFile(State state, TSharedPtr<IFileSystem> system, TSharedPtr<IFile> inner, std::u16string path)
        : m_state(std::move(state)), m_system(std::move(system)), m_inner(std::move(inner)), m_path(std::move(path)) {}

    char16_t* GetFilename(char16_t* buffer, int bufferChars) override {
        const Guard guard(m_state->lock);
        if (m_state->owner == nullptr) return m_inner->GetFilename(buffer, bufferChars);
        if (bufferChars > 0) StrCpy(buffer, m_path.c_str(), static_cast<size_t>(bufferChars));
        return buffer;
    }
    IFileSystem& GetFileSystem() override {
        const Guard guard(m_state->lock);
        return m_state->owner != nullptr ? *m_state->owner : m_inner->GetFileSystem();
    }
    uint32_t Write(const void* data, uint32_t count) override { return m_inner->Write(data, count); }
    uint32_t Read(void* data, uint32_t count) override { return m_inner->Read(data, count); }
    int64_t GetSize() override { return m_inner->GetSize(); }
    int64_t GetPosition() override { return m_inner->GetPosition(); }
    int64_t Seek(int64_t offset, uint32_t origin) override { return m_inner->Seek(offset, origin); }
    bool SetSize(int64_t size) override { return m_inner->SetSize(size); }
    void Flush() override { m_inner->Flush(); }
    void Close() override { m_inner->Close(); }

private:
    State m_state;
    TSharedPtr<IFileSystem> m_system;  // Kept alive, where it is owned, until the file is gone.
    TSharedPtr<IFile> m_inner;
    std::u16string m_path;
};

constexpr const char16_t* aFileToOpen = u"a file to open";

/// The flags with another disposition.
uint32_t withDisposition(uint32_t flags, uint32_t disposition) {
    constexpr uint32_t all = CFile::openOrCreate | CFile::openExisting | CFile::createTruncate | CFile::createNew;
    return (flags & ~all) | disposition;
}

}  // namespace

/// The writable layer, if it may take a change of what is at the path; null with a diagnostic.
Layer* CMergedFileSystem::State::layerToChange(const std::u16string& path) {
    Layer* const target = layers.writable();
    if (target != nullptr && !layers.isPinned(path)) return target;
    refuse(path, u"a place that can be changed",
           target == nullptr ? u"a view without a writable layer" : u"a file or directory above the writable layer");
    return nullptr;
}

/// Makes the directories of the writable layer that a path needs; false when one of them is none in the view. A layer
/// that cannot make directories may not need them.
bool CMergedFileSystem::State::makeParents(Layer& target, const std::u16string& path) {
    const std::u16string parent = Private::parentPath(path);
    if (layers.typeAt(parent) != typeDirectory) return refuse(path, aFileToOpen, u"no directory to put it in");
    if (!target.isDirectory(parent)) (void)target.system->CreateDirectoryW(target.path(parent).c_str(), true);
    return true;
}

bool CMergedFileSystem::State::copyUp(const Layer& from, Layer& to, const std::u16string& path, const Entry& entry) {
    const std::u16string source = from.path(path), target = to.path(path);
    if (!makeParents(to, path)) return false;
    if (!IFileSystem::CopyFileW(from.system.get(), source.c_str(), to.system.get(), target.c_str(), false)) {
        return false;
    }
    (void)to.system->SetFileModifiedTime(target.c_str(), entry.modified);
    return true;
}

/// The writable layer, once it has at the path what the view has there; null with a diagnostic.
Layer* CMergedFileSystem::State::ownCopy(const std::u16string& path) {
    Entry entry;
    Layer* const found = layers.find(path, entry);
    if (found == nullptr) {
        refuse(path, u"a file to change", u"nothing of that name");
        return nullptr;
    }
    Layer* const target = layerToChange(path);
    if (target == nullptr || target == found) return target;
    const bool made = entry.type == typeDirectory ? target->system->CreateDirectoryW(target->path(path).c_str(), true)
                                                  : copyUp(*found, *target, path, entry);
    return made ? target : nullptr;
}

TSharedPtr<IFile> CMergedFileSystem::State::open(const std::u16string& path, uint32_t flags,
                                                 TSharedPtr<IFileSystem>& system) {
    Entry entry;
    Layer* const found = layers.find(path, entry);
    const Disposition disposition = Private::dispositionOf(flags);
    const char16_t* reason = nullptr;
    if (found == nullptr && disposition == Disposition::openExisting) reason = u"nothing of that name";
    if (found != nullptr && disposition == Disposition::createNew) reason = u"a file that is there already";
    if (found != nullptr && entry.type != typeFile) reason = u"a directory";
    if (reason != nullptr) {
        refuse(path, aFileToOpen, reason);
        return nullptr;
    }
    const bool changes = (flags & (CFile::accessWrite | CFile::deleteOnClose)) != 0;
    if (found == nullptr || changes || disposition == Disposition::createTruncate) {
        return openToChange(found, entry, path, flags, system);
    }
    constexpr uint32_t attributes = 0xFFF000;
    system = found->system;
    return system->CreateFileW(found->path(path).c_str(), withDisposition(flags & ~attributes, CFile::openExisting));
}

/// @param found  The layer that has the file; null when there is none, and it is to be made.
TSharedPtr<IFile> CMergedFileSystem::State::openToChange(Layer* found, const Entry& entry, const std::u16string& path,
                                                         uint32_t flags, TSharedPtr<IFileSystem>& system) {
    Layer* const target = layerToChange(path);
    if (target == nullptr) return nullptr;
    const bool isBelow = found != nullptr && found != target;
    if ((flags & CFile::deleteOnClose) != 0 && (isBelow || layers.showsWithout(*target, path))) {
        refuse(path, aFileToOpen, u"one below the writable layer, which cannot be deleted on close");
        return nullptr;
    }
    if (isBelow) {
        if (Private::dispositionOf(flags) != Disposition::createTruncate) {
            if (!copyUp(*found, *target, path, entry)) return nullptr;
            flags = withDisposition(flags, CFile::openExisting);
        }
    }
    if (found != target && !makeParents(*target, path)) return nullptr;
    system = target->system;
    return system->CreateFileW(target->path(path).c_str(), flags);
}

CMergedFileSystem::CMergedFileSystem() : m_state(std::make_shared<State>()) { m_state->owner = this; }

CMergedFileSystem::~CMergedFileSystem() {
    const Guard guard(m_state->lock);
    m_state->owner = nullptr;
}

bool CMergedFileSystem::AddLayer(TSharedPtr<IFileSystem> system, int32_t priority, bool writable,
                                 const char16_t* root) {
    constexpr const char16_t* aLayer = u"a layer of a merged file system";
    if (!system || system.get() == this || root == nullptr) return refuse(u"", aLayer, u"none, or the same");
    const CString full = system->GetFullPath(CString(root));
    if (full.IsEmpty() || full.view().size() >= size_t{pathChars}) return refuse(root, aLayer, u"no path to its root");
    const Guard guard(m_state->lock);
    Layer layer{std::move(system), priority, writable, Private::withoutTrailingSlash(full.c_str()), {}};
    return m_state->layers.add(std::move(layer)) || refuse(root, aLayer, u"a second writable one");
}

bool CMergedFileSystem::AddLayer(IFileSystem& system, int32_t priority, bool writable, const char16_t* root) {
    return AddLayer(TSharedPtr<IFileSystem>(&system, TSharedPtr<IFileSystem>::notOwned()), priority, writable, root);
}

bool CMergedFileSystem::RemoveLayer(const IFileSystem& system) {
    const Guard guard(m_state->lock);
    return m_state->layers.remove(system);
}

TSharedPtr<IFile> CMergedFileSystem::CreateFileW(const char16_t* path, uint32_t flags) {
    const std::u16string full = m_state->current.absolute(path);
    if (full.empty()) return nullptr;
    if (full.back() == u'/') {
        refuse(full, aFileToOpen, u"the name of a directory");
        return nullptr;
    }
    const Guard guard(m_state->lock);
    TSharedPtr<IFileSystem> system;
    TSharedPtr<IFile> inner = m_state->open(full, flags, system);
    if (!inner) return nullptr;
    return TSharedPtr<IFile>(new MergedFile(m_state, std::move(system), std::move(inner), full));
}

IFileSystem::CDirectoryListing CMergedFileSystem::GetDirectoryListing(const char16_t* directory,
                                                                      const char16_t* pattern) {
    const std::u16string current = m_state->current.get();
    CDirectoryListing listing(this, directory == nullptr ? current.c_str() : directory);
    const std::u16string path = m_state->current.listed(directory);
    const Guard guard(m_state->lock);
    if (!m_state->layers.list(path, pattern, listing.entries)) {
        refuse(path, u"memory for all entries of a directory", u"too little");
    }
    return listing;
}

IFileSystem::CDirectoryEntry CMergedFileSystem::GetFileInfo(const char16_t* path) {
    CDirectoryEntry entry;
    const std::u16string full = m_state->current.key(path);
    if (full.empty()) return entry;
    const Guard guard(m_state->lock);
    (void)m_state->layers.find(full, entry);
    if (full == u"/") entry.type = typeDirectory;
    if (full == u"/") entry.name[0] = 0;
    if (entry.type == typeNothing) return CDirectoryEntry();
    entry.path[0] = 0;
    (void)Private::setPath(entry, Private::joinedPath(Private::parentPath(full), entry.name));
    return entry;
}

bool CMergedFileSystem::SetFileAttributesW(const char16_t* path, uint32_t attributes) {
    const std::u16string full = m_state->current.key(path);
    const Guard guard(m_state->lock);
    const Layer* const layer = full.empty() ? nullptr : m_state->ownCopy(full);
    return layer != nullptr && layer->system->SetFileAttributesW(layer->path(full).c_str(), attributes);
}

bool CMergedFileSystem::SetFileModifiedTime(const char16_t* path, CDateTime time) {
    const std::u16string full = m_state->current.key(path);
    const Guard guard(m_state->lock);
    const Layer* const layer = full.empty() ? nullptr : m_state->ownCopy(full);
    return layer != nullptr && layer->system->SetFileModifiedTime(layer->path(full).c_str(), time);
}

bool CMergedFileSystem::GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) {
    return Private::fitBuffer(m_state->current.absolute(path), buffer, bufferChars);
}

bool CMergedFileSystem::DeleteFileW(const char16_t* path) {
    const std::u16string full = m_state->current.absolute(path);
    const Guard guard(m_state->lock);
    if (full.empty() || full.back() == u'/' || m_state->layers.typeAt(full) != typeFile) {
        return refuse(full, u"a file to delete", u"none");
    }
    Layer* const target = m_state->layerToChange(full);
    if (target == nullptr) return false;
    const bool isThere = target->info(full).type != typeNothing;
    if (isThere && !target->system->DeleteFileW(target->path(full).c_str())) return false;
    m_state->layers.mark(full);
    return true;
}

bool CMergedFileSystem::CreateDirectoryW(const char16_t* path, bool recursive) {
    const std::u16string full = m_state->current.key(path);
    const auto fail = [&full](const char16_t* found) { return refuse(full, u"a directory to create", found); };
    if (full.empty()) return false;
    const Guard guard(m_state->lock);
    const uint32_t type = m_state->layers.typeAt(full);
    if (type != typeNothing) return (recursive && type == typeDirectory) || fail(u"one that is there already");
    std::u16string above = Private::parentPath(full);
    while (recursive && m_state->layers.typeAt(above) == typeNothing) above = Private::parentPath(above);
    if (m_state->layers.typeAt(above) != typeDirectory) return fail(u"no directory to put it in");
    const Layer* const target = m_state->layerToChange(full);
    return target != nullptr && target->system->CreateDirectoryW(target->path(full).c_str(), true);
}

bool CMergedFileSystem::RemoveDirectoryW(const char16_t* path, bool recursive) {
    const std::u16string full = m_state->current.key(path);
    const auto fail = [&full](const char16_t* found) { return refuse(full, u"a directory to remove", found); };
    const Guard guard(m_state->lock);
    const uint32_t type = full.empty() ? typeNothing : m_state->layers.typeAt(full);
    if (type == typeNothing) return (recursive && !full.empty()) || fail(u"nothing of that name");
    if (type != typeDirectory || full == u"/") return fail(type == typeDirectory ? u"the root" : u"a file");
    TArray<CDirectoryEntry> entries;
    if (!recursive && (!m_state->layers.list(full, nullptr, entries) || entries.size() != 0)) {
        return fail(u"one that is not empty");
    }
    Layer* const target = m_state->layerToChange(full);
    if (target == nullptr) return false;
    const bool isThere = target->info(full).type != typeNothing;
    if (isThere && !target->system->RemoveDirectoryW(target->path(full).c_str(), recursive)) return false;
    m_state->layers.mark(full);
    return true;
}

bool CMergedFileSystem::SetCurrentWorkingDirectory(const char16_t* path) {
    const CDirectoryEntry entry = GetFileInfo(path);
    if (entry.type != typeDirectory || *entry.path == 0) {
        return refuse(path == nullptr ? u"" : path, u"a directory to change to", u"none");
    }
    m_state->current.set(entry.path);
    return true;
}

bool CMergedFileSystem::GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) {
    return Private::fitBuffer(m_state->current.get(), buffer, bufferChars);
}

}  // namespace qv
