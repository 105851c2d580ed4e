// The static copies of IFileSystem: routing, the pump, and what becomes of a target that was not filled.
#include <algorithm>
#include <string>

#include "files/native_path.h"
#include "platform/directory.h"
#include "qv/diagnostic.h"
#include "qv/file.h"
#include "qv/file_system.h"

namespace qv {

namespace {

using CopyCallback = IFileSystem::CopyCallback;
using FilePtr = TSharedPtr<IFile>;

constexpr uint32_t pumpBytes = 0x80000;

struct Progress {
    CopyCallback callback;
    void* context;
    void report(int64_t total, int64_t done) const {
        if (callback != nullptr) callback(total, done, context);
    }
};

bool pump(IFile& source, IFile& target, int64_t size, const Progress& progress) {
    progress.report(size, 0);
    uint8_t buffer[pumpBytes];
    int64_t done = 0;
    while (done < size) {
        const auto wanted = static_cast<uint32_t>(std::min<int64_t>(size - done, pumpBytes));
        const uint32_t read = source.Read(buffer, wanted);
        if (read == 0) break;
        const uint32_t written = target.Write(buffer, read);
        done += written;
        progress.report(size, done);
        if (written != read) break;
    }
    if (done == size) return true;
    SetDiagnostic(CString(), CString::FromFormat(u"a copy of %I64d bytes", size),
                  CString::FromFormat(u"only %I64d that could be read and written", done), done);
    return false;
}

/// Opens the target, pumps, and deletes the target when that fails.
bool pumpTo(IFile& source, IFileSystem& target, const char16_t* path, int64_t size, bool overwrite,
            const Progress& progress) {
    const uint32_t flags = CFile::accessWrite | (overwrite ? CFile::createTruncate : CFile::createNew);
    FilePtr file = target.CreateFileW(path, flags);
    if (!file) return false;
    if (pump(source, *file, size, progress)) return true;
    file.Release();
    (void)target.DeleteFileW(path);
    return false;
}

/// Shows the two steps of a copy by way of a temporary file as one.
struct TwoStepProgress {
    Progress outer;
    int64_t totalOffset;
    int64_t doneOffset;

    static void forward(int64_t total, int64_t done, void* context) {
        const auto& self = *static_cast<const TwoStepProgress*>(context);
        self.outer.report(total + self.totalOffset, done + self.doneOffset);
    }
};

/// For a file system that copies to and from others but not within itself.
bool copyThroughDisk(IFileSystem& system, const char16_t* from, const char16_t* to, bool overwrite,
                     const Progress& progress) {
    const CString temp = fileSystem().GetTempFilename();
    if (temp.IsEmpty()) return false;
    const int64_t size = system.GetFileInfo(from).size;
    TwoStepProgress steps{progress, size, 0};
    bool copied = system.CopyFileW(from, &fileSystem(), temp.c_str(), true, &TwoStepProgress::forward, &steps);
    steps.doneOffset = size;
    copied = copied && system.CopyFileW(&fileSystem(), temp.c_str(), to, overwrite, &TwoStepProgress::forward, &steps);
    (void)platform::removeFile(Private::nativePath(temp.c_str()).c_str());
    return copied;
}

bool canCopyAcross(IFileSystem& system) { return (system.GetCapabilities() & IFileSystem::copiesAcross) != 0; }

}  // namespace

bool IFileSystem::CopyFileW(FilePtr source, FilePtr target, int64_t size, CopyCallback callback, void* context) {
    return source && target && pump(*source, *target, size, {callback, context});
}

bool IFileSystem::CopyFileW(FilePtr source, FilePtr target, CopyCallback callback, void* context) {
    return source && target && pump(*source, *target, source->GetSize(), {callback, context});
}

bool IFileSystem::CopyFileW(IFileSystem* source, const char16_t* sourcePath, IFileSystem* target,
                            const char16_t* targetPath, bool overwrite, CopyCallback callback, void* context) {
    if (source == nullptr || sourcePath == nullptr || target == nullptr || targetPath == nullptr) return false;
    if (source == target) {
        const uint32_t capabilities = source->GetCapabilities();
        if (capabilities & copiesWithin) {
            return source->CopyFileW(sourcePath, targetPath, overwrite, callback, context);
        }
        if (capabilities & copiesAcross) {
            return copyThroughDisk(*source, sourcePath, targetPath, overwrite, {callback, context});
        }
    }
    if (canCopyAcross(*source)) {
        return source->CopyFileW(sourcePath, target, targetPath, overwrite, callback, context);
    }
    if (canCopyAcross(*target)) {
        return target->CopyFileW(source, sourcePath, targetPath, overwrite, callback, context);
    }
    const FilePtr file = source->CreateFileW(sourcePath, CFile::openExisting | CFile::accessRead);
    return file && pumpTo(*file, *target, targetPath, file->GetSize(), overwrite, {callback, context});
}

bool IFileSystem::CopyFileW(IFileSystem* source, const char16_t* path, FilePtr target, CopyCallback callback,
                            void* context) {
    if (source == nullptr || path == nullptr || !target) return false;
    if (canCopyAcross(*source)) return source->CopyFileW(path, target, callback, context);
    const FilePtr file = source->CreateFileW(path, CFile::openOrCreate | CFile::accessRead);
    return file && pump(*file, *target, file->GetSize(), {callback, context});
}

bool IFileSystem::CopyFileW(FilePtr source, IFileSystem* target, const char16_t* path, bool overwrite,
                            CopyCallback callback, void* context) {
    if (!source || target == nullptr || path == nullptr) return false;
    if (canCopyAcross(*target)) return target->CopyFileW(source, path, overwrite, callback, context);
    return pumpTo(*source, *target, path, source->GetSize(), overwrite, {callback, context});
}

bool IFileSystem::CopyFileW(FilePtr source, IFileSystem* target, const char16_t* path, int64_t size, bool overwrite,
                            CopyCallback callback, void* context) {
    if (!source || target == nullptr || path == nullptr) return false;
    if (canCopyAcross(*target)) return target->CopyFileW(source, path, size, overwrite, callback, context);
    return pumpTo(*source, *target, path, size, overwrite, {callback, context});
}

}  // namespace qv
