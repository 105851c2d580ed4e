#include "qv/reg_store.h"

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "config/replace_file.h"
#include "core/text.h"
#include "files/native_path.h"
#include "platform/environment.h"
#include "platform/file.h"
#include "platform/thread.h"
#include "platform/wait.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/ini_store.h"

namespace qv {

namespace {

constexpr uint32_t lockMilliseconds = 5000;
constexpr uint32_t lockPause = 2;

CString configFolder() {
    std::string folder = platform::environmentVariable("XDG_CONFIG_HOME");
    if (!folder.starts_with('/')) {  // What is not absolute does not count.
        folder = platform::environmentVariable("HOME");
        if (folder.empty()) return CString();
        folder += "/.config";
    }
    return CString(text::toUtf16(folder));
}

/// Empty when the key is none.
CString fileOf(const CString& key) {
    TArray<CString> parts;
    IFileSystem::SplitPath(parts, key.c_str());
    CString path = configFolder();
    if (parts.empty() || path.IsEmpty()) return CString();
    path += u"/qv/registry";
    for (const CString& part : parts) {
        if (part == u"." || part == u"..") return CString();
        path += u"/";
        path += part;
    }
    return path + u".ini";
}

/// Makes the folders above a file, those that are missing for this user alone.
bool createPrivateFolders(const CString& file) {
    namespace fs = std::filesystem;
    const fs::path folder = fs::path(Private::nativePath(file.c_str())).parent_path();
    std::error_code error, ignored;
    fs::path at;
    for (const fs::path& name : folder) {
        at /= name;
        if (fs::create_directory(at, error)) fs::permissions(at, fs::perms::owner_all, error);
        // A folder above may be there and still not be one to make folders in.
        if (error && !fs::is_directory(at, ignored))
            return Private::succeeded(error.value(), file.c_str(), u"folders of its own");
    }
    return true;
}

/// The lock of a key's file, for as long as it lives.
class FileLock {
public:
    /// Waits only for another holder; anything else that stands in the way is no matter of time.
    explicit FileLock(const CString& file) {
        const CString path = file + u".lock";
        const std::string native = Private::nativePath(path.c_str());
        // A file that nobody else may open: share modes hold between processes.
        platform::OpenRequest request{};
        request.path = native.c_str();
        request.disposition = platform::Disposition::openOrCreate;
        request.read = request.write = true;
        const int64_t deadline = platform::deadlineAfter(lockMilliseconds);
        int error = platform::openFile(request, m_file);
        while (error == platform::sharingViolation && platform::millisecondsUntil(deadline) != 0) {
            platform::sleepThread(lockPause);
            error = platform::openFile(request, m_file);
        }
        m_held = Private::succeeded(error, path.c_str(), u"the lock of the settings");
    }
    ~FileLock() {
        if (m_held) platform::closeFile(m_file);
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool isHeld() const { return m_held; }

private:
    platform::FileHandle m_file = platform::invalidFile;
    bool m_held = false;
};

/// A value in the file, "Type:text"; text that would be taken for a type is never written without one.
IConfigStore::SValue toFile(const IConfigStore::SValue& value) {
    return {CVariant::typeString, CVariant::TypeToString(value.type) + u":" + value.text};
}

IConfigStore::SValue fromFile(const CString& line) {
    const std::u16string_view text = line.view();
    const size_t colon = text.find(u':');
    if (colon == text.npos) return {CVariant::typeString, line};
    const CVariant::EType type = CVariant::ParseType(CString(text.substr(0, colon)).c_str());
    const bool isType = type >= CVariant::typeBool && type <= CVariant::typeBlob;
    if (!isType) return {CVariant::typeString, line};
    return {type, CString(text.substr(colon + 1))};
}

/// True also when there is no file: that is no failure, and leaves no diagnostic.
bool readFile(const CString& path, CINIStore& file) {
    const auto isThere = [&path] { return fileSystem().FileExists(path.c_str()); };
    return !isThere() || file.Load(path.c_str()) || !isThere();
}

void takeContents(const CINIStore& file, CMemStore& to) {
    std::vector<CString> pending{CString(u"")};
    while (!pending.empty()) {
        const CString path = pending.back();
        pending.pop_back();
        CString line;
        if (file.ReadString(path, line)) (void)to.SetValue(path, fromFile(line));
        const TArray<IConfigStore::SChild> children = file.GetChildren(path);
        for (uint32_t i = children.size(); i-- > 0;) {
            const CString& name = children.ConstGetItem(i).name;
            pending.push_back(path.IsEmpty() ? name : path + u"/" + name);
        }
    }
}

bool refuse(const CString& file, const char16_t* expected, const char16_t* found) {
    SetDiagnostic(file, expected, found);
    return false;
}

}  // namespace

CRegStore::CRegStore(CString key) : m_file(fileOf(key)) { (void)Load(); }
CRegStore::~CRegStore() = default;

bool CRegStore::Load() {
    CMemStore contents;
    CINIStore file;
    const bool read = !m_file.IsEmpty() && readFile(m_file, file);
    if (read) takeContents(file, contents);
    settle(contents);
    return read || (m_file.IsEmpty() && refuse(m_file, u"a key with a place for settings", u"none"));
}

bool CRegStore::Flush() {
    if (!HasChanges()) return true;
    if (m_file.IsEmpty()) return refuse(m_file, u"a key with a place for settings", u"none");
    if (m_file.length() >= IFileSystem::pathChars)
        return refuse(m_file, u"a path of less than 512 characters", u"more");
    if (!createPrivateFolders(m_file)) return false;
    const FileLock lock(m_file);
    if (!lock.isHeld()) return false;
    Private::removeLeftovers(m_file.c_str());
    CINIStore file;
    if (!readFile(m_file, file) || !replay(file, &toFile) || !file.Save(m_file.c_str())) return false;
    CMemStore contents;
    takeContents(file, contents);
    settle(contents);
    return true;
}

}  // namespace qv
