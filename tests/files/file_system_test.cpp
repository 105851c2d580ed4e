#include "qv/file_system.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "qv/diagnostic.h"
#include "qv/memory.h"
#include "support.h"
#include "support/slots.h"

namespace qv::test {
namespace {

using FS = IFileSystem;

/// A file system that only notes which copy path was taken, with every default of the interface beside it.
class Recorder : public IFileSystem {
public:
    using IFileSystem::CopyFileW;
    explicit Recorder(uint32_t capabilities) : m_capabilities(capabilities) {}
    uint32_t GetCapabilities() override { return m_capabilities; }
    bool CopyFileW(IFileSystem* source, const char16_t*, const char16_t*, bool, CopyCallback callback,
                   void* context) override {
        if (source == &fileSystem() && callback != nullptr) callback(5, 5, context);
        return note(1);
    }
    bool CopyFileW(const char16_t*, IFileSystem*, const char16_t*, bool, CopyCallback callback,
                   void* context) override {
        if (callback != nullptr) callback(5, 2, context);
        return note(2);
    }
    bool CopyFileW(TSharedPtr<IFile>, const char16_t*, int64_t, bool, CopyCallback, void*) override { return note(3); }
    bool CopyFileW(TSharedPtr<IFile>, const char16_t*, bool, CopyCallback, void*) override { return note(4); }
    bool CopyFileW(const char16_t*, TSharedPtr<IFile>, CopyCallback, void*) override { return note(5); }
    bool CopyFileW(const char16_t*, const char16_t*, bool, CopyCallback, void*) override { return note(6); }

    TSharedPtr<IFile> CreateFileW(const char16_t*, uint32_t flags) override {
        opened = flags;
        return nullptr;
    }
    CDirectoryListing GetDirectoryListing(const char16_t*, const char16_t*) override { return {}; }
    CDirectoryEntry GetFileInfo(const char16_t* path) override {
        CDirectoryEntry entry;
        entry.size = 5;
        if (path[0] == u'd') entry.type = typeDirectory;
        if (path[0] == u'f') entry.type = typeFile;
        return entry;
    }
    using IFileSystem::GetCurrentWorkingDirectory;
    using IFileSystem::GetFullPath;
    bool GetFullPath(char16_t*, const char16_t*, int) override { return false; }
    bool DeleteFileW(const char16_t*) override { return note(9); }
    bool CreateDirectoryW(const char16_t*, bool) override { return false; }
    bool RemoveDirectoryW(const char16_t*, bool) override { return false; }
    bool SetCurrentWorkingDirectory(const char16_t*) override { return false; }
    bool GetCurrentWorkingDirectory(char16_t*, int) override { return false; }

    std::vector<int> calls;
    uint32_t opened = 0;

private:
    bool note(int call) {
        calls.push_back(call);
        return true;
    }
    uint32_t m_capabilities;
};

TEST(FileSystemInterface, SlotsStandInTheirOrder) {
    using Cb = FS::CopyCallback;
    using File = TSharedPtr<IFile>;
    using Name = const char16_t*;
    const size_t slots[] = {
        slotOf(&FS::MonitorDirectory),
        slotOf(&FS::GetCapabilities),
        slotOf(&FS::CreateFileW),
        slotOf(&FS::Defragment),
        slotOf(static_cast<bool (FS::*)(FS*, Name, Name, bool, Cb, void*)>(&FS::CopyFileW)),
        slotOf(static_cast<bool (FS::*)(Name, FS*, Name, bool, Cb, void*)>(&FS::CopyFileW)),
        slotOf(static_cast<bool (FS::*)(File, Name, int64_t, bool, Cb, void*)>(&FS::CopyFileW)),
        slotOf(static_cast<bool (FS::*)(File, Name, bool, Cb, void*)>(&FS::CopyFileW)),
        slotOf(static_cast<bool (FS::*)(Name, File, Cb, void*)>(&FS::CopyFileW)),
        slotOf(static_cast<bool (FS::*)(Name, Name, bool, Cb, void*)>(&FS::CopyFileW)),
        slotOf(&FS::GetDirectoryListing),
        slotOf(&FS::GetFileInfo),
        slotOf(&FS::SetFileAttributesW),
        slotOf(&FS::SetFileModifiedTime),
        slotOf(static_cast<bool (FS::*)(char16_t*, Name, int)>(&FS::GetFullPath)),
        slotOf(&FS::DeleteFileW),
        slotOf(&FS::CreateDirectoryW),
        slotOf(&FS::RemoveDirectoryW),
        slotOf(&FS::SetCurrentWorkingDirectory),
        slotOf(static_cast<bool (FS::*)(char16_t*, int)>(&FS::GetCurrentWorkingDirectory)),
        slotOf(&FS::FileExists),
        slotOf(&FS::IsFile),
        slotOf(&FS::IsDirectory),
    };
    for (size_t i = 0; i < std::size(slots); ++i) EXPECT_EQ(slots[i], i + 2);
    EXPECT_EQ(slotOf(&FS::IDirectoryMonitor::Start), 2u);
    EXPECT_EQ(slotOf(&FS::IDirectoryMonitor::Stop), 3u);
}

TEST(FileSystemInterface, Defaults) {
    Recorder system(0);
    FS& base = system;
    EXPECT_FALSE(base.MonitorDirectory(u"d", 0));
    EXPECT_FALSE(base.Defragment());
    EXPECT_FALSE(base.SetFileAttributesW(u"f", 4));
    EXPECT_FALSE(base.SetFileModifiedTime(u"f", CDateTime::UtcNow()));
    EXPECT_FALSE(base.IFileSystem::CopyFileW(u"a", u"b", true, nullptr, nullptr));
    EXPECT_TRUE(base.IsFile(u"f") && base.FileExists(u"f") && !base.IsDirectory(u"f"));
    EXPECT_TRUE(base.IsDirectory(u"d") && !base.FileExists(u"d") && !base.IsFile(u"d"));
    EXPECT_FALSE(base.FileExists(u"x"));
    EXPECT_TRUE(base.GetCurrentWorkingDirectory().IsEmpty());
    EXPECT_TRUE(base.GetFullPath(CString(u"x")).IsEmpty());
}

// Copies ------------------------------------------------------------------------------------------------------------

using Steps = std::vector<std::pair<int64_t, int64_t>>;
void record(int64_t total, int64_t done, void* context) { static_cast<Steps*>(context)->emplace_back(total, done); }

TEST(Copies, GoByTheCapabilities) {
    Recorder none(0), within(2), across(4), both(6), otherAcross(4);
    const auto copy = [](FS& a, FS& b) { return FS::CopyFileW(&a, u"fa", &b, u"fb", true); };
    EXPECT_TRUE(copy(within, within) && copy(both, both));
    EXPECT_EQ(within.calls, std::vector<int>{6});
    EXPECT_EQ(both.calls, std::vector<int>{6});
    EXPECT_TRUE(copy(across, otherAcross) && copy(none, across));
    EXPECT_EQ(across.calls, (std::vector<int>{2, 1}));
    EXPECT_TRUE(otherAcross.calls.empty());
    EXPECT_FALSE(copy(none, within));
    EXPECT_EQ(none.opened, 0x12u);
    const TSharedPtr<IFile> file = CMemFile::Create();
    across.calls.clear();
    EXPECT_TRUE(FS::CopyFileW(&across, u"f", file));
    EXPECT_TRUE(FS::CopyFileW(file, &across, u"f", true));
    EXPECT_TRUE(FS::CopyFileW(file, &across, u"f", int64_t{1}, true));
    EXPECT_EQ(across.calls, (std::vector<int>{5, 4, 3}));
    EXPECT_FALSE(FS::CopyFileW(&none, u"f", file));
    EXPECT_EQ(none.opened, 0x11u);
    EXPECT_FALSE(FS::CopyFileW(file, &none, u"f", true));
    EXPECT_EQ(none.opened, 0x28u);
    EXPECT_FALSE(FS::CopyFileW(file, &none, u"f", int64_t{1}, false));
    EXPECT_EQ(none.opened, 0x24u);
    EXPECT_TRUE(none.calls.empty());  // What could not be opened is not deleted.
}

TEST(Copies, WithinAcrossGoThroughATemporaryFile) {
    Recorder across(4);
    Steps steps;
    EXPECT_TRUE(FS::CopyFileW(&across, u"fa", &across, u"fb", true, record, &steps));
    EXPECT_EQ(across.calls, (std::vector<int>{2, 1}));
    EXPECT_EQ(steps, (Steps{{10, 2}, {10, 10}}));
}

TEST(Copies, NullArgumentsAreFalse) {
    const TSharedPtr<IFile> none, file = CMemFile::Create();
    EXPECT_FALSE(FS::CopyFileW(none, file));
    EXPECT_FALSE(FS::CopyFileW(file, none, int64_t{1}));
    EXPECT_FALSE(FS::CopyFileW(&fileSystem(), nullptr, &fileSystem(), u"x", true));
    EXPECT_FALSE(FS::CopyFileW(static_cast<FS*>(nullptr), u"x", &fileSystem(), u"x", true));
    EXPECT_FALSE(FS::CopyFileW(file, &fileSystem(), nullptr, true));
    EXPECT_FALSE(FS::CopyFileW(&fileSystem(), u"x", none));
}

TEST(Copies, ThePumpReportsEveryChunk) {
    struct Row {
        int64_t size, asked;
        bool whole;
        Steps steps;
    };
    const Row rows[] = {
        {0, 0, true, {{0, 0}}},
        {5, 5, true, {{5, 0}, {5, 5}}},
        {0x80000 + 1, 0x80000 + 1, true, {{0x80001, 0}, {0x80001, 0x80000}, {0x80001, 0x80001}}},
        {5, 9, false, {{9, 0}, {9, 5}}},
        {9, 5, true, {{5, 0}, {5, 5}}},
        {5, -1, false, {{-1, 0}}},
    };
    for (const Row& row : rows) {
        const TSharedPtr<CMemFile> source = CMemFile::Create(), target = CMemFile::Create();
        source->SetSize(row.size);
        Steps steps;
        EXPECT_EQ(FS::CopyFileW(source, target, row.asked, record, &steps), row.whole) << row.asked;
        EXPECT_EQ(steps, row.steps);
        EXPECT_EQ(target->GetSize(), std::clamp<int64_t>(row.asked, 0, row.size));
    }
}

TEST(Copies, OnDisk) {
    const TempFolder folder;
    const CString a = folder.path(u"a"), b = folder.path(u"b"), absent = folder.path(u"absent");
    writeFile(a, "contents");
    EXPECT_TRUE(FS::CopyFileW(&fileSystem(), a.c_str(), &fileSystem(), b.c_str(), false));
    EXPECT_EQ(readFile(b), "contents");
    EXPECT_FALSE(FS::CopyFileW(&fileSystem(), a.c_str(), &fileSystem(), b.c_str(), false));
    EXPECT_EQ(readFile(b), "contents");  // Could not be opened, so it is left alone.
    const TSharedPtr<CMemFile> memory = CMemFile::Create();
    EXPECT_FALSE(FS::CopyFileW(memory, &fileSystem(), b.c_str(), int64_t{5}, true));
    EXPECT_FALSE(fileSystem().FileExists(b.c_str()));
    EXPECT_TRUE(FS::CopyFileW(&fileSystem(), absent.c_str(), memory));
    EXPECT_TRUE(fileSystem().FileExists(absent.c_str()));  // Opened or created.
}

// The disk ----------------------------------------------------------------------------------------------------------

std::string namesOf(const FS::CDirectoryListing& listing) {
    std::string names;
    for (const auto& entry : listing.entries) names += CString(entry.name).GetUTF8() + std::string(" ");
    return names;
}

TEST(DiskListing, HasWhatPassesThePattern) {
    const TempFolder folder;
    for (const char16_t* name : {u"b.TXT", u"a.txt", u"c.log"}) writeFile(folder.path(name), "12345");
    ASSERT_TRUE(fileSystem().CreateDirectoryW(folder.path(u"dir").c_str(), false));
    ASSERT_EQ(symlink("nowhere", folder.native(u"link").c_str()), 0);
    auto listing = fileSystem().GetDirectoryListing(folder.path().c_str(), nullptr);
    listing.Sort(0x11);
    EXPECT_EQ(namesOf(listing), "dir a.txt b.TXT c.log link ");
    EXPECT_EQ(listing.fileSystem, &fileSystem());
    EXPECT_EQ(CString(listing.directory), folder.path());
    const auto& entry = listing.entries.ConstGetItem(1);
    EXPECT_EQ(CString(entry.path), folder.path(u"a.txt"));
    EXPECT_EQ(entry.size, 5);
    EXPECT_EQ(entry.type, uint32_t{FS::typeFile});
    EXPECT_LT(std::abs(static_cast<int64_t>(entry.modified.ToFileTime() - CDateTime::UtcNow().ToFileTime())),
              60 * CDateTime::ticksPerSecond);
    listing = fileSystem().GetDirectoryListing((folder.path() + u"\\").c_str(), u"*.txt|D*");
    listing.Sort(0x21);
    EXPECT_EQ(namesOf(listing), "a.txt b.TXT dir ");
    EXPECT_EQ(fileSystem().GetDirectoryListing(folder.path(u"none").c_str(), nullptr).entries.size(), 0u);
    listing = fileSystem().Find(folder.path(u"?.t*").c_str());
    listing.Sort(1);
    EXPECT_EQ(namesOf(listing), "a.txt b.TXT ");
    EXPECT_EQ(fileSystem().Find(folder.path(u"*.*").c_str()).entries.size(), 5u);
}

TEST(DiskListing, SaysWhenMemoryCutIt) {
    const TempFolder folder;
    for (const char16_t* name : {u"a", u"b", u"c"}) writeFile(folder.path(name), "");
    static const Private::HeapHooks forTwo = {
        &Alloc, [](void* p, size_t n) { return n > 2 * sizeof(FS::CDirectoryEntry) ? nullptr : Realloc(p, n); }, &Free};
    ClearDiagnostic();
    Private::setHeapHooks(&forTwo);
    {
        const auto listing = fileSystem().GetDirectoryListing(folder.path().c_str(), nullptr);
        EXPECT_EQ(listing.entries.size(), 2u);
    }
    Private::setHeapHooks(nullptr);
    EXPECT_TRUE(LastDiagnostic().IsSet());
}

TEST(DiskListing, FindHasItsOwnMilliseconds) {
    const TempFolder folder;
    writeFile(folder.path(u"a"), "");
    const uint64_t second = CDateTime::FromUtc(2024, 5, 6, 7, 8, 9).ToFileTime();
    ASSERT_TRUE(fileSystem().SetFileModifiedTime(folder.path(u"a").c_str(), CDateTime::FromFileTime(second + 1234567)));
    EXPECT_EQ(fileSystem().GetFileInfo(folder.path(u"a").c_str()).modified.ToFileTime(), second + 1234567);
    const auto listing = fileSystem().Find(folder.path(u"a").c_str());
    EXPECT_EQ(listing.entries.ConstGetItem(0).modified.GetMillisecond(), 456);  // Of 123456.7 microseconds.
}

TEST(DiskListing, SortsByItsFlags) {
    FS::CDirectoryListing listing;
    const auto add = [&listing](const char16_t* name, uint32_t type, int64_t size, uint64_t time) {
        FS::CDirectoryEntry entry;
        StrCpy(entry.name, name, 512);
        entry.type = type;
        entry.size = size;
        entry.modified = CDateTime::FromFileTime(time);
        listing.entries.Add(entry);
    };
    add(u"b", 2, 1, 30);
    add(u"A", 2, 2, 20);
    add(u"c", 2, 2, 10);
    add(u"d", 1, 0, 40);
    struct Row {
        uint32_t flags;
        const char* names;
    };
    const Row rows[] = {{0x1, "A b c d "},   {0x2, "d b A c "},   {0x3, "c A b d "},   {0x201, "d c b A "},
                        {0x202, "c A b d "}, {0x11, "d A b c "},  {0x211, "d c b A "}, {0x21, "A b c d "},
                        {0x221, "c b A d "}, {0x213, "d b A c "}, {0x31, "A b c d "},  {0, "A b c d "}};
    for (const Row& row : rows) {
        listing.Sort(row.flags);
        EXPECT_EQ(namesOf(listing), row.names) << std::hex << row.flags;
    }
}

TEST(Disk, FileInfoAndFullPaths) {
    const TempFolder folder;
    const CString before = fileSystem().GetCurrentWorkingDirectory();
    ASSERT_TRUE(fileSystem().SetCurrentWorkingDirectory(folder.path().c_str()));
    const CString here = fileSystem().GetCurrentWorkingDirectory();
    struct Row {
        const char16_t *path, *expected;
    };
    for (const Row& row : {Row{u"a", u"/a"}, Row{u"a\\b/", u"/a/b/"}, Row{u"./a/../b//c", u"/b/c"}, Row{u".", u""}}) {
        EXPECT_EQ(fileSystem().GetFullPath(row.path), here + row.expected);
    }
    EXPECT_EQ(fileSystem().GetFullPath(u"/a/../../b"), CString(u"/b"));
    EXPECT_EQ(fileSystem().GetFullPath(u"/.."), CString(u"/"));
    EXPECT_TRUE(fileSystem().GetFullPath(u"").IsEmpty());
    char16_t buffer[8] = u"/a/./b";
    EXPECT_TRUE(fileSystem().GetFullPath(buffer, buffer, 8));
    EXPECT_EQ(CString(buffer), CString(u"/a/b"));
    EXPECT_FALSE(fileSystem().GetFullPath(buffer, u"/a/b", 4));
    ASSERT_TRUE(fileSystem().CreateDirectoryW(u"dir", false));
    const auto info = fileSystem().GetFileInfo(u"dir/");
    EXPECT_EQ(info.type, uint32_t{FS::typeDirectory});
    EXPECT_EQ(CString(info.path), here + u"/dir");
    EXPECT_EQ(CString(info.name), CString(u"dir"));
    EXPECT_EQ(fileSystem().GetFileInfo(u"none").type, uint32_t{FS::typeNothing});
    EXPECT_EQ(fileSystem().GetFileInfo(nullptr).type, uint32_t{FS::typeNothing});
    EXPECT_TRUE(fileSystem().IsDirectory(u"/"));
    EXPECT_FALSE(fileSystem().FileExists(u"dir"));
    EXPECT_FALSE(fileSystem().SetCurrentWorkingDirectory(u"none"));
    ASSERT_TRUE(fileSystem().SetCurrentWorkingDirectory(before.c_str()));
}

TEST(Disk, ReadOnlyIsAnAttribute) {
    const TempFolder folder;
    const CString path = folder.path(u"a");
    writeFile(path, "x");
    const auto mode = [&] {
        struct stat status {};
        EXPECT_EQ(stat(folder.native(u"a").c_str(), &status), 0);
        return status.st_mode & 0222u;
    };
    EXPECT_TRUE(fileSystem().SetFileAttributesW(path.c_str(), 4));
    EXPECT_EQ(mode(), 0u);
    EXPECT_TRUE(fileSystem().SetFileAttributesW(path.c_str(), 8));  // Hidden is a normal file here.
    EXPECT_EQ(mode(), 0200u);
    EXPECT_FALSE(fileSystem().SetFileAttributesW(folder.path(u"none").c_str(), 4));
    EXPECT_TRUE(fileSystem().SetFileAttributesW(path.c_str(), 4));
    // A link to it goes without touching it.
    ASSERT_EQ(symlink("a", folder.native(u"link").c_str()), 0);
    EXPECT_TRUE(fileSystem().DeleteFileW(folder.path(u"link").c_str()));
    EXPECT_EQ(mode(), 0u);
    EXPECT_TRUE(fileSystem().DeleteFileW(path.c_str()));
    EXPECT_FALSE(fileSystem().DeleteFileW(path.c_str()));
    EXPECT_FALSE(fileSystem().DeleteFileW(folder.path().c_str()));
}

TEST(Disk, DeletingAsksForTheAttributesFirst) {
    class Watching : public CFileSystem {
    public:
        bool SetFileAttributesW(const char16_t* path, uint32_t attributes) override {
            seen.push_back(attributes);
            return CFileSystem::SetFileAttributesW(path, attributes);
        }
        std::vector<uint32_t> seen;
    } system;
    const TempFolder folder;
    writeFile(folder.path(u"a"), "");
    writeFile(folder.path(u"b"), "");
    ASSERT_TRUE(fileSystem().SetFileAttributesW(folder.path(u"b").c_str(), 4));
    EXPECT_TRUE(system.DeleteFileW(folder.path(u"a").c_str()));
    EXPECT_TRUE(system.DeleteFileW(folder.path(u"b").c_str()));
    EXPECT_EQ(system.seen, (std::vector<uint32_t>{0x80, 0}));
}

TEST(Disk, PathsThatDoNotFitAnEntryAreNotCut) {
    const TempFolder folder;
    std::u16string deep(folder.path().view());
    for (int i = 0; i < 3; ++i) {
        deep += u"/" + std::u16string(200, u'd');
        ASSERT_TRUE(fileSystem().CreateDirectoryW(deep.c_str(), false));
    }
    writeFile(CString(deep) + u"/f", "x");
    ClearDiagnostic();
    EXPECT_EQ(fileSystem().GetDirectoryListing(deep.c_str(), nullptr).entries.size(), 0u);
    EXPECT_EQ(LastDiagnostic().file, CString(deep) + u"/f");
    const auto info = fileSystem().GetFileInfo((deep + u"/f").c_str());
    EXPECT_EQ(info.size, 1);
    EXPECT_EQ(CString(info.name), CString(u"f"));
    EXPECT_EQ(*info.path, 0);
}

TEST(Disk, FoldersAreCreatedAndRemovedRecursively) {
    const TempFolder folder, outside;
    writeFile(outside.path(u"precious"), "x");
    const CString deep = folder.path(u"a/b\\c");
    EXPECT_FALSE(fileSystem().CreateDirectoryW(deep.c_str(), false));
    EXPECT_TRUE(fileSystem().CreateDirectoryW(deep.c_str(), true));
    EXPECT_TRUE(fileSystem().CreateDirectoryW((deep + u"/").c_str(), true));
    std::u16string tooLong = u"long";
    while (tooLong.size() < 512) tooLong += u"/long";
    ClearDiagnostic();
    EXPECT_FALSE(fileSystem().CreateDirectoryW(folder.path(tooLong).c_str(), true));
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_FALSE(fileSystem().IsDirectory(folder.path(u"long").c_str()));
    writeFile(folder.path(u"a/f"), "");
    EXPECT_FALSE(fileSystem().CreateDirectoryW(folder.path(u"a/f/g/h").c_str(), true));
    EXPECT_EQ(LastDiagnostic().file, folder.path(u"a/f/g"));  // the first that failed
    ASSERT_TRUE(fileSystem().SetFileAttributesW(folder.path(u"a/f").c_str(), 4));
    const std::string target = CString(outside.path()).GetUTF8();
    ASSERT_EQ(symlink(target.c_str(), folder.native(u"a/b/link").c_str()), 0);
    ASSERT_EQ(symlink(target.c_str(), folder.native(u"top").c_str()), 0);
    EXPECT_FALSE(fileSystem().RemoveDirectoryW(folder.path(u"a").c_str(), false));
    EXPECT_TRUE(fileSystem().RemoveDirectoryW(folder.path(u"a/").c_str(), true));
    EXPECT_FALSE(fileSystem().IsDirectory(folder.path(u"a").c_str()));
    EXPECT_TRUE(fileSystem().RemoveDirectoryW(folder.path(u"top").c_str(), true));
    EXPECT_EQ(readFile(outside.path(u"precious")), "x");
    EXPECT_TRUE(fileSystem().RemoveDirectoryW(folder.path(u"none").c_str(), true));
    EXPECT_FALSE(fileSystem().RemoveDirectoryW(folder.path(u"none").c_str(), false));
    EXPECT_FALSE(fileSystem().RemoveDirectoryW(outside.path(u"precious").c_str(), true));
}

TEST(Disk, WideAndDeepTreesGo) {
    const TempFolder folder;
    for (int i = 0; i < 300; ++i) writeFile(folder.path(CString::FromFormat(u"file %d", i)), "");
    CString deep = folder.path(u"d");
    for (int i = 0; i < 100; ++i) deep += u"/d";
    ASSERT_TRUE(fileSystem().CreateDirectoryW(deep.c_str(), true));
    EXPECT_TRUE(fileSystem().RemoveDirectoryW(folder.path(u"d").c_str(), true));
    EXPECT_EQ(fileSystem().GetDirectoryListing(folder.path().c_str(), u"file*").entries.size(), 300u);
}

TEST(Disk, TemporaryFilesDeleteThemselves) {
    const TempFolder folder;
    const char* set = std::getenv("TMPDIR");
    const std::string before = set != nullptr ? set : "";
    setenv("TMPDIR", CString(folder.path()).GetUTF8(), 1);
    const CString name = fileSystem().GetTempFilename();
    EXPECT_TRUE(name.StartsWith(folder.path(u"tim")));
    EXPECT_TRUE(fileSystem().FileExists(name.c_str()));
    char16_t tooSmall[8];
    EXPECT_FALSE(fileSystem().GetTempFilename(tooSmall, 8));
    EXPECT_TRUE(fileSystem().DeleteFileW(name.c_str()));
    TSharedPtr<IFile> file = fileSystem().CreateTempFile();
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->PutString("x"));
    EXPECT_EQ(fileSystem().GetDirectoryListing(folder.path().c_str(), nullptr).entries.size(), 1u);
    file.Release();
    EXPECT_EQ(fileSystem().GetDirectoryListing(folder.path().c_str(), nullptr).entries.size(), 0u);
    EXPECT_TRUE(fileSystem().IsDirectory(fileSystem().CreateTempDirectory().c_str()));
    setenv("TMPDIR", "/nowhere at all", 1);
    ClearDiagnostic();
    EXPECT_FALSE(fileSystem().CreateTempFile());
    EXPECT_TRUE(fileSystem().CreateTempDirectory().IsEmpty());
    EXPECT_TRUE(LastDiagnostic().IsSet());
    set != nullptr ? setenv("TMPDIR", before.c_str(), 1) : unsetenv("TMPDIR");
}

TEST(Disk, MovingReplacesNothing) {
    const TempFolder folder;
    writeFile(folder.path(u"a"), "a");
    writeFile(folder.path(u"b"), "b");
    EXPECT_FALSE(fileSystem().MoveFileW(folder.path(u"a").c_str(), folder.path(u"b").c_str()));
    EXPECT_EQ(readFile(folder.path(u"b")), "b");
    EXPECT_TRUE(fileSystem().MoveFileW(folder.path(u"a").c_str(), folder.path(u"c").c_str()));
    EXPECT_EQ(readFile(folder.path(u"c")), "a");
    EXPECT_FALSE(fileSystem().MoveFileW(folder.path(u"a").c_str(), folder.path(u"d").c_str()));
}

TEST(Disk, MovingToAnotherVolumeCopies) {
    struct stat here {
    }, there{};
    const TempFolder folder;
    if (stat("/dev/shm", &there) != 0 || stat(CString(folder.path()).GetUTF8(), &here) != 0 ||
        here.st_dev == there.st_dev || access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "no second volume";
    }
    const CString target = CString::FromFormat(u"/dev/shm/qv-move-%d", static_cast<int>(getpid()));
    writeFile(folder.path(u"a"), "contents");
    ASSERT_EQ(chmod(folder.native(u"a").c_str(), 0400), 0);
    EXPECT_TRUE(fileSystem().MoveFileW(folder.path(u"a").c_str(), target.c_str()));
    EXPECT_EQ(readFile(target), "contents");
    struct stat moved {};
    EXPECT_EQ(stat(CString(target).GetUTF8(), &moved), 0);
    EXPECT_EQ(moved.st_mode & 0777, 0400u);
    EXPECT_FALSE(fileSystem().FileExists(folder.path(u"a").c_str()));
    EXPECT_TRUE(fileSystem().DeleteFileW(target.c_str()));
    ClearDiagnostic();
    EXPECT_FALSE(fileSystem().MoveFileW(folder.path().c_str(), target.c_str()));
    EXPECT_TRUE(LastDiagnostic().IsSet());
}

}  // namespace
}  // namespace qv::test
