#include "container.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>

#include "command.h"
#include "places.h"
#include "qv/aff_file.h"
#include "qv/cd_file_system.h"
#include "qv/diagnostic.h"
#include "qv/kmr_file.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

class CdfsContainer : public Container {
public:
    bool openAt(const std::string& path, bool readOnly) { return m_files.Open(&files(), wide(path).c_str(), readOnly); }
    bool createAt(const std::string& path, bool append) { return m_files.Create(&files(), wide(path).c_str(), append); }

    std::string format() const override { return "CDFS"; }
    bool hasKinds() const override { return false; }
    int64_t base() const override { return m_files.GetBase(); }
    int64_t tableEnd() const override { return m_files.GetTableEnd(); }

    std::vector<Entry> entries() override {
        std::vector<Entry> all;
        std::vector<qv::CString> folders = {u"/"};
        for (size_t i = 0; i < folders.size(); ++i) {
            for (const auto& each : m_files.GetDirectoryListing(folders[i].c_str(), nullptr).entries) {
                if (each.type == qv::IFileSystem::typeDirectory) {
                    folders.emplace_back(each.path);
                } else {
                    all.push_back(described(each));
                }
            }
        }
        return all;
    }
    qv::TSharedPtr<qv::IFile> open(const std::string& name) override {
        return m_files.CreateFileW(wide(name).c_str(), qv::CFile::openExisting);
    }
    qv::TSharedPtr<qv::IFile> create(const std::string& name, const StreamKind&) override {
        return m_files.CreateFileW(wide(name).c_str(), qv::CFile::createNew);
    }
    bool remove(const std::vector<std::string>& names) override {
        return std::ranges::all_of(names, [&](const auto& name) { return m_files.DeleteFileW(wide(name).c_str()); });
    }
    /// A table that outgrows its room needs several; one that is as it should be costs nothing.
    bool save() override {
        for (int pass = 0; pass < 4; ++pass) {
            if (!m_files.Flush()) return false;
        }
        return true;
    }

private:
    Entry described(const qv::IFileSystem::CDirectoryEntry& found) const {
        qv::CPropertyArray properties = found.properties;
        Entry entry;
        entry.name = narrow(found.path + 1);
        entry.offset = m_files.GetBase() + static_cast<int64_t>(properties[u"Offset"]);
        entry.size = found.size;
        entry.room = properties[u"Capacity"];
        return entry;
    }

    qv::CCDFileSystem m_files;
};

/// A stream with a position of its own, so that several may read it. All streams of a container share its mutex.
class StreamFile : public qv::IFile {
public:
    StreamFile(qv::TSharedPtr<qv::IFile> stream, std::shared_ptr<std::mutex> mutex)
        : m_stream(std::move(stream)), m_shared(std::move(mutex)), m_mutex(*m_shared) {}

    char16_t* GetFilename(char16_t* buffer, int bufferChars) override {
        return m_stream->GetFilename(buffer, bufferChars);
    }
    qv::IFileSystem& GetFileSystem() override { return m_stream->GetFileSystem(); }
    uint32_t Write(const void* data, uint32_t count) override {
        return at([&] { return m_stream->Write(data, count); });
    }
    uint32_t Read(void* data, uint32_t count) override {
        return at([&] { return m_stream->Read(data, count); });
    }
    int64_t GetSize() override {
        const std::lock_guard lock(m_mutex);
        return m_stream->GetSize();
    }
    int64_t GetPosition() override { return m_position; }
    int64_t Seek(int64_t offset, uint32_t origin) override {
        const std::lock_guard lock(m_mutex);
        m_stream->SetPosition(m_position);
        return m_position = m_stream->Seek(offset, origin);
    }
    bool SetSize(int64_t size) override {
        const std::lock_guard lock(m_mutex);
        return m_stream->SetSize(size);
    }
    void Flush() override {}
    void Close() override {}

private:
    template <class Move>
    uint32_t at(Move move) {
        const std::lock_guard lock(m_mutex);
        m_stream->SetPosition(m_position);
        const uint32_t done = move();
        m_position += done;
        return done;
    }

    qv::TSharedPtr<qv::IFile> m_stream;
    std::shared_ptr<std::mutex> m_shared;  ///< Outlives the container.
    std::mutex& m_mutex;
    int64_t m_position = 0;
};

template <class File>
class CompositeContainer : public Container {
public:
    bool openAt(const std::string& path, bool readOnly) {
        const qv::CString name = wide(path);
        return m_file.Open(&files(), name.c_str(), true) && (readOnly || m_file.ReOpenForWrite());
    }
    bool createAt(const std::string& path) { return m_file.Create(&files(), wide(path).c_str()); }

    std::string format() const override { return std::is_same_v<File, qv::CAFFFile> ? "AFF" : "KMR"; }
    bool hasKinds() const override { return true; }
    int64_t tableEnd() const override { return m_file.GetTableEnd(); }

    std::vector<Entry> entries() override {
        std::vector<Entry> all;
        for (uint32_t i = 0; i < m_file.nIndices(); ++i) {
            const auto& index = *m_file.GetIndex(i);
            all.push_back(
                {nameOf(i), index.getOffset(), index.size, 0, {index.type, index.subtype, index.version, index.id}});
        }
        return all;
    }
    qv::TSharedPtr<qv::IFile> open(const std::string& name) override {
        const uint32_t position = find(name);
        return position == none ? nullptr : fileAt(position);
    }
    qv::TSharedPtr<qv::IFile> create(const std::string&, const StreamKind& kind) override {
        const uint32_t position = m_file.CreateIndex(kind.type, kind.subtype, kind.version, kind.id);
        return position == none ? nullptr : fileAt(position);
    }
    bool remove(const std::vector<std::string>& names) override {
        std::set<uint32_t, std::greater<>> positions;  // from the back, so that they stay what they are
        for (const std::string& name : names) positions.insert(find(name));
        positions.erase(none);
        return std::ranges::all_of(positions, [&](uint32_t position) { return m_file.RemoveIndex(position); });
    }
    bool save() override {
        // A stream that has grown keeps the size words of its record otherwise.
        for (uint32_t i = 0; i < m_file.nIndices(); ++i) {
            auto& index = *m_file.GetIndex(i);
            if (index.size == int64_t{index.sizeWord} * std::max(index.count, 1u)) continue;
            index.sizeWord = static_cast<uint32_t>(index.size);
            index.count = 1;
        }
        return m_file.Save();
    }

private:
    static constexpr uint32_t none = 0xFFFFFFFF;

    qv::TSharedPtr<qv::IFile> fileAt(uint32_t position) {
        return qv::TSharedPtr<qv::IFile>(new StreamFile(m_file.GetIndex(position)->GetFile(), m_mutex));
    }
    bool isUnique(uint32_t id) {
        uint32_t count = 0;
        for (uint32_t i = 0; i < m_file.nIndices(); ++i) count += m_file.GetIndex(i)->id == id ? 1 : 0;
        return count == 1;
    }
    std::string nameOf(uint32_t position) {
        const uint32_t id = m_file.GetIndex(position)->id;
        return isUnique(id) ? std::to_string(id) : "@" + std::to_string(position);
    }
    uint32_t find(const std::string& name) {
        const bool byPosition = name.starts_with('@');
        const char* const begin = name.data() + (byPosition ? 1 : 0);
        uint32_t number = 0;
        const auto result = std::from_chars(begin, name.data() + name.size(), number);
        if (result.ec != std::errc() || result.ptr != name.data() + name.size()) return none;
        if (byPosition) return number < m_file.nIndices() ? number : none;
        for (uint32_t i = 0; i < m_file.nIndices(); ++i) {
            if (m_file.GetIndex(i)->id == number) return i;
        }
        return none;
    }

    File m_file;
    std::shared_ptr<std::mutex> m_mutex = std::make_shared<std::mutex>();
};

template <class Kind>
std::unique_ptr<Container> opened(const std::string& path, bool readOnly) {
    auto container = std::make_unique<Kind>();
    qv::ClearDiagnostic();
    if (container->openAt(path, readOnly)) return container;
    throw diagnosed(Exit::damaged, path, "is a damaged container");
}

/// A new file of the format; nothing is there yet.
template <class Kind, class... Arguments>
std::unique_ptr<Container> made(const std::string& path, Arguments... arguments) {
    auto container = std::make_unique<Kind>();
    qv::ClearDiagnostic();
    if (container->createAt(path, arguments...)) return container;
    throw diagnosed(Exit::io, path, "cannot be made a container");
}

}  // namespace

std::unique_ptr<Container> openContainer(const std::string& path, bool readOnly) {
    requireFile(path);
    const std::string magic = headOf(path).substr(0, 4);
    if (magic == std::string("AFF\0", 4)) return opened<CompositeContainer<qv::CAFFFile>>(path, readOnly);
    if (magic == std::string("KMR\0", 4)) return opened<CompositeContainer<qv::CKMRFile>>(path, readOnly);
    if (qv::CCDFileSystem::IsCDFile(&files(), wide(path).c_str())) return opened<CdfsContainer>(path, readOnly);
    auto hidden = std::make_unique<CdfsContainer>();  // with other data behind its footer
    if (hidden->openAt(path, true)) return readOnly ? std::move(hidden) : opened<CdfsContainer>(path, false);
    return nullptr;
}

std::unique_ptr<Container> requireContainer(const std::string& path, bool readOnly) {
    std::unique_ptr<Container> container = openContainer(path, readOnly);
    if (container == nullptr) {
        throw Failure(Exit::wrongKind, path + ": is no container (CDFS, AFF or KMR), and no file with one at its end");
    }
    return container;
}

std::unique_ptr<Container> createContainer(const std::string& path, const std::string& format) {
    std::error_code error;
    if (std::filesystem::exists(path, error)) throw Failure(Exit::negative, path + ": exists already");
    if (format == "cdfs") return made<CdfsContainer>(path, false);
    if (format == "aff") return made<CompositeContainer<qv::CAFFFile>>(path);
    return made<CompositeContainer<qv::CKMRFile>>(path);
}

std::unique_ptr<Container> attachContainer(const std::string& path) { return made<CdfsContainer>(path, true); }

}  // namespace tool
