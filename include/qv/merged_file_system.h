// CMergedFileSystem: several file systems as one, the upper ones in front of the lower ones.
#pragma once

#include <cstdint>
#include <memory>

#include "qv/api.h"
#include "qv/file_system.h"

namespace qv {

/// A view of layers, each a directory of some file system. What the topmost layer with a path says of it holds;
/// directories of one path are merged, and a file hides whatever lies at or below its path in lower layers.
///
/// One layer at most is writable; without it everything that changes something is false or null.
/// Writing:  goes to the writable layer. A file of a lower layer that is opened for writing, or is given a time or
///           attributes, is copied up to it first, with its time (but without its bytes when it is opened to be
///           truncated). The copy is made under its own name: a process that dies meanwhile leaves a part of it. What
///           is new is made in the writable layer, with the directories that lead there.
/// Deleting: what the writable layer has at the path is deleted. What lower layers have there stays, and is hidden from
///           now on by a mark in this object, which ends with it or with RemoveLayer: the next view shows it again. A
///           new file or directory of that name has nothing of the old one.
/// Above:    what lies in a layer above the writable one can be neither changed nor deleted.
/// Names:    compare as each layer compares them. "Delete on close" is for files of the writable layer.
/// Sharing:  as the layer has it that the file is open in; who reads a lower layer's file goes on with that one when
///           it is copied up.
/// Layers:   one that is not owned outlives this object and the files opened through it. No layer may be a view that
///           this one is a layer of.
/// Files:    say that they live in this file system, and once it is gone, in their layer's.
/// Threads:  calls may come from any thread if the layers allow that, and run one after the other.
class QV_API CMergedFileSystem : public IFileSystem {
public:
    CMergedFileSystem();
    ~CMergedFileSystem() override;
    CMergedFileSystem(const CMergedFileSystem&) = delete;
    CMergedFileSystem& operator=(const CMergedFileSystem&) = delete;

    /// Adds a layer: the directory `root` of `system` becomes the root of the view.
    /// @param priority  Higher ones lie above; of equal ones the layer added later.
    /// @param root      Made absolute at once. The writable layer's is created when it is needed.
    /// @return  False, with a diagnostic, for a null or second writable layer, this file system itself, or a root of
    ///          512 characters or more.
    bool AddLayer(TSharedPtr<IFileSystem> system, int32_t priority, bool writable = false, const char16_t* root = u"/");
    /// Without taking a share in it.
    bool AddLayer(IFileSystem& system, int32_t priority, bool writable = false, const char16_t* root = u"/");
    /// Takes out all layers of that file system, with their marks; false when there were none. Open files go on.
    bool RemoveLayer(const IFileSystem& system);

    TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) override;
    /// Names that several layers have are listed once. A null directory is the current one.
    CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) override;
    CDirectoryEntry GetFileInfo(const char16_t* path) override;
    bool SetFileAttributesW(const char16_t* path, uint32_t attributes) override;
    bool SetFileModifiedTime(const char16_t* path, CDateTime time) override;
    bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) override;
    bool DeleteFileW(const char16_t* path) override;
    bool CreateDirectoryW(const char16_t* path, bool recursive) override;
    /// The root stays: false, with nothing removed.
    bool RemoveDirectoryW(const char16_t* path, bool recursive) override;
    /// The view's own; the layers' and the process's are left alone. "/" at first.
    bool SetCurrentWorkingDirectory(const char16_t* path) override;
    bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) override;
    using IFileSystem::GetCurrentWorkingDirectory;
    using IFileSystem::GetFullPath;

    struct State;  ///< What open files share with the file system; nothing for callers.

private:
    std::shared_ptr<State> m_state;
};

}  // namespace qv
