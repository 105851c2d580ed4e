#include "places.h"

#include <filesystem>
#include <map>
#include <mutex>

#include "command.h"
#include "container.h"
#include "qv/diagnostic.h"
#include "text.h"

namespace tool {

namespace {

namespace fs = std::filesystem;

class Places : public qv::IFileSystem {
public:
    uint32_t GetCapabilities() override { return disk().GetCapabilities(); }
    qv::TSharedPtr<qv::IFile> CreateFileW(const char16_t* path, uint32_t flags) override {
        const std::optional<Inside> inside = insideOf(narrow(path));
        if (!inside) return disk().CreateFileW(path, flags);
        const bool writes = (flags & qv::CFile::accessWrite) != 0;
        qv::TSharedPtr<qv::IFile> file = open(inside->container, !writes).open(inside->entry);
        if (file && (flags & qv::CFile::openExisting) == 0 && (flags & qv::CFile::createTruncate) != 0)
            file->SetSize(0);
        if (!file) qv::SetDiagnostic(path, u"an entry of the container", u"none of that name");
        return file;
    }
    CDirectoryListing GetDirectoryListing(const char16_t* directory, const char16_t* pattern) override {
        return disk().GetDirectoryListing(directory, pattern);
    }
    CDirectoryEntry GetFileInfo(const char16_t* path) override {
        const std::optional<Inside> inside = insideOf(narrow(path));
        if (!inside) return disk().GetFileInfo(path);
        CDirectoryEntry info = disk().GetFileInfo(wide(inside->container).c_str());
        const qv::TSharedPtr<qv::IFile> file = open(inside->container, true).open(inside->entry);
        if (!file) return {};
        qv::StrCpy(info.name, GetFilename(wide(inside->entry).c_str()), pathChars);
        qv::StrCpy(info.path, path, pathChars);
        info.size = file->GetSize();
        return info;
    }
    bool GetFullPath(char16_t* buffer, const char16_t* path, int bufferChars) override {
        return disk().GetFullPath(buffer, path, bufferChars);
    }
    bool DeleteFileW(const char16_t* path) override { return !insideOf(narrow(path)) && disk().DeleteFileW(path); }
    bool CreateDirectoryW(const char16_t* path, bool recursive) override {
        return disk().CreateDirectoryW(path, recursive);
    }
    bool RemoveDirectoryW(const char16_t* path, bool recursive) override {
        return disk().RemoveDirectoryW(path, recursive);
    }
    bool SetCurrentWorkingDirectory(const char16_t* path) override { return disk().SetCurrentWorkingDirectory(path); }
    bool GetCurrentWorkingDirectory(char16_t* buffer, int bufferChars) override {
        return disk().GetCurrentWorkingDirectory(buffer, bufferChars);
    }

    void save() {
        for (auto& [path, known] : m_open) {
            if (known.readOnly) continue;
            qv::ClearDiagnostic();
            if (!known.container->save()) throw diagnosed(Exit::io, path, "cannot be written");
        }
        m_open.clear();
    }

private:
    struct Known {
        std::unique_ptr<Container> container;
        bool readOnly;
    };

    static qv::IFileSystem& disk() { return qv::fileSystem(); }

    Container& open(const std::string& name, bool readOnly) {
        const std::lock_guard lock(m_mutex);
        std::error_code error;
        const std::string whole = fs::canonical(name, error).string();  // one of all its names
        const std::string& path = whole.empty() ? name : whole;
        const auto found = m_open.find(path);
        if (found != m_open.end() && (readOnly || !found->second.readOnly)) return *found->second.container;
        if (found != m_open.end()) m_open.erase(found);
        Known known{requireContainer(path, readOnly), readOnly};
        return *m_open.emplace(path, std::move(known)).first->second.container;
    }

    std::mutex m_mutex;
    std::map<std::string, Known> m_open;
};

Places& places() {
    static Places all;
    return all;
}

}  // namespace

std::optional<Inside> insideOf(const std::string& path) {
    std::error_code error;
    if (path.find(':') == path.npos || fs::exists(fs::symlink_status(path, error))) return std::nullopt;
    for (size_t at = path.find(':'); at != path.npos; at = path.find(':', at + 1)) {
        if (fs::is_regular_file(path.substr(0, at), error)) return Inside{path.substr(0, at), path.substr(at + 1)};
    }
    return std::nullopt;
}

qv::IFileSystem& files() { return places(); }

void saveContainers() { places().save(); }

}  // namespace tool
