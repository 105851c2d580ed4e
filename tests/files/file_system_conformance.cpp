#include "file_system_conformance.h"

#include "qv/cd_file_system.h"
#include "qv/memory_file_system.h"
#include "qv/merged_file_system.h"
#include "qv/resource_file_system.h"
#include "qv/saf_file.h"
#include "support.h"
#include "support/memory_file.h"

namespace qv::test {

using FS = IFileSystem;

namespace {
void writeTo(IFileSystem& system, const CString& path, const std::string& contents) {
    const TSharedPtr<IFile> file = system.CreateFileW(path.c_str(), 0x28);
    ASSERT_TRUE(file) << path.GetUTF8();
    ASSERT_TRUE(file->WriteBytes(contents.data(), static_cast<uint32_t>(contents.size())));
}
}  // namespace

void populate(SystemUnderTest& under, const Contents& contents) {
    for (const auto& [name, bytes] : contents) {
        const CString path = under.path(name);
        std::u16string directory(path.view());
        FS::GetDirectory(directory.data());
        (void)under.system().CreateDirectoryW(directory.c_str(), true);
        writeTo(under.system(), path, bytes);
    }
}

std::string FileSystemConformance::read(std::u16string_view name) {
    const TSharedPtr<IFile> file = open(name, 0x312);
    return file ? bytesOf(*file) : "(none)";
}

void FileSystemConformance::write(std::u16string_view name, const std::string& contents) {
    writeTo(system(), path(name), contents);
}

std::string FileSystemConformance::list(std::u16string_view directory, const char16_t* pattern) {
    auto listing = system().GetDirectoryListing(path(directory).c_str(), pattern);
    EXPECT_EQ(listing.fileSystem, &system());
    listing.Sort(1);
    std::string names;
    for (const auto& entry : listing.entries) {
        names += std::string(CString(entry.name).GetUTF8()) + (entry.type == FS::typeDirectory ? "/ " : " ");
        const auto info = system().GetFileInfo(entry.path);  // Each entry leads to what it tells of.
        EXPECT_EQ(info.type, entry.type) << names;
        EXPECT_EQ(info.size, entry.size) << names;
        EXPECT_TRUE(info.modified == entry.modified) << names;
        EXPECT_EQ(CString(info.name), CString(entry.name));
    }
    return names;
}

const Contents tree = {{u"a.txt", "a"}, {u"B.bin", "bb"}, {u"dir/c.txt", "ccc"}, {u"dir/sub/d", ""}, {u"dir-x", "x"}};

TEST_P(FileSystemConformance, ListsAndFinds) {
    make(tree);
    EXPECT_EQ(list(u""), "a.txt B.bin dir/ dir-x ");
    EXPECT_EQ(list(u"", u"*.TXT|d*"), "a.txt dir/ dir-x ");
    EXPECT_EQ(list(u"dir"), "c.txt sub/ ");
    EXPECT_EQ(list(u"dir\\sub/"), "d ");
    EXPECT_EQ(list(u"none"), "");
    EXPECT_EQ(list(u"a.txt"), "");
    std::u16string roundabout = u"dir";
    while (roundabout.size() < 600) roundabout += u"/../dir";
    // The entries of the disk have the path as it was given, which is too long for them.
    EXPECT_EQ(list(roundabout), &system() == &fileSystem() ? "" : "c.txt sub/ ");
    const auto info = system().GetFileInfo(path(u"dir\\c.txt").c_str());
    EXPECT_EQ(info.size, 3);
    EXPECT_EQ(CString(info.name), CString(u"c.txt"));
    EXPECT_EQ(CString(info.path), path(u"dir/c.txt"));
    EXPECT_EQ(typeOf(u"dir/"), uint32_t{FS::typeDirectory});
    EXPECT_EQ(typeOf(u"di"), uint32_t{FS::typeNothing});
    EXPECT_EQ(typeOf(u"a.txt/x"), uint32_t{FS::typeNothing});
    EXPECT_TRUE(system().FileExists(path(u"a.txt").c_str()) && !system().FileExists(path(u"dir").c_str()));
    EXPECT_TRUE(system().IsDirectory(path(u"dir/sub").c_str()) && !system().IsFile(path(u"dir/sub").c_str()));
    EXPECT_EQ(read(u"dir/c.txt"), "ccc");
    EXPECT_EQ(read(u"dir/sub/d"), "");
}

TEST_P(FileSystemConformance, FilesKnowWhereTheyLive) {
    make(tree);
    const TSharedPtr<IFile> file = open(u"dir\\c.txt", 0x12);
    ASSERT_TRUE(file);
    EXPECT_EQ(&file->GetFileSystem(), &system());
    char16_t name[512];
    EXPECT_EQ(CString(file->GetFilename(name, 512)), path(u"dir/c.txt"));
    EXPECT_EQ(file->GetFileInfo().size, 3);
}

TEST_P(FileSystemConformance, OpensByWhatIsThere) {
    if (!GetParam().likeDisk) GTEST_SKIP();
    struct Row {
        uint32_t disposition;
        bool absentOpens, presentOpens;
        const char* presentBecomes;
    };
    const Row rows[] = {{0x01, true, true, "old"}, {0x02, false, true, "old"}, {0x04, true, false, "old"},
                        {0x08, true, true, ""},    {0x00, false, true, "old"}, {0x0F, true, true, "old"}};
    for (const Row& row : rows) {
        for (const uint32_t access : {0x10u, 0x30u}) {
            make({{u"present", "old"}, {u"dir/x", ""}});
            const bool changes = access != 0x10 || row.presentBecomes[0] == 0;
            if (changes && !GetParam().truncates && row.disposition == 0x08) continue;
            const bool may = GetParam().writes;
            EXPECT_EQ(open(u"absent", row.disposition | access) != nullptr, may && row.absentOpens) << row.disposition;
            EXPECT_EQ(read(u"absent"), may && row.absentOpens ? "" : "(none)") << row.disposition;
            EXPECT_EQ(open(u"present", row.disposition | access) != nullptr, row.presentOpens && (may || !changes));
            EXPECT_EQ(read(u"present"), may ? row.presentBecomes : "old") << row.disposition;
            EXPECT_FALSE(open(u"dir", row.disposition | access));
        }
    }
    EXPECT_FALSE(system().CreateFileW(u"", 0x31));
    EXPECT_FALSE(system().CreateFileW(nullptr, 0x31));
    EXPECT_FALSE(system().CreateFileW(path(std::u16string(5000, u'x')).c_str(), 0x31));
}

TEST_P(FileSystemConformance, AccessIsWhatWasAskedFor) {
    if (!GetParam().likeDisk) GTEST_SKIP();
    make({{u"a", "abc"}});
    char byte = 'x';
    EXPECT_EQ(open(u"a", 0x12)->Write(&byte, 1), 0u);
    EXPECT_EQ(read(u"a"), "abc");
    EXPECT_EQ(open(u"a", 0x22) != nullptr, GetParam().writes);
    if (!GetParam().writes) return;
    EXPECT_EQ(open(u"a", 0x22)->Read(&byte, 1), 0u);
    open(u"a", 0x62)->WriteBytes("d", 1);  // Appends.
    EXPECT_EQ(read(u"a"), "abcd");
    open(u"a", 0x32)->WriteBytes("X", 1);
    EXPECT_EQ(read(u"a"), "Xbcd");
    ASSERT_TRUE(open(u"gone", 0x100034));
    EXPECT_EQ(read(u"gone"), "(none)");  // Deleted on close.
}

TEST_P(FileSystemConformance, ShareModesBindInBothDirections) {
    if (!GetParam().shares) GTEST_SKIP();
    make({{u"a", "abc"}});
    if (GetParam().writes) open(u"a", 0x32)->PutBYTE('a');  // A merged view has its own copy from now on.
    for (uint32_t first = 0; first < 12; ++first) {
        for (uint32_t second = 0; second < 12; ++second) {
            const auto access = [](uint32_t n) { return 0x10 * (1 + n / 4); };
            const auto shared = [](uint32_t n) { return 0x10 * (n % 4); };  // As access bits: what others may do.
            const auto flags = [&](uint32_t n) {
                const uint32_t bits = (n & 1 ? 0x200u : 0u) | (n & 2 ? 0x100u : 0u);
                return access(n) | 2 | (bits != 0 ? bits : 0xC00);
            };
            const TSharedPtr<IFile> one = open(u"a", flags(first)), two = open(u"a", flags(second));
            ASSERT_TRUE(one);
            const bool fits = (access(second) & ~shared(first)) == 0 && (access(first) & ~shared(second)) == 0;
            EXPECT_EQ(two != nullptr, fits) << first << " " << second;
        }
    }
    // Truncating is writing, also for one that only reads.
    if (!GetParam().truncates) return;
    TSharedPtr<IFile> reader = open(u"a", 0x212);
    EXPECT_FALSE(open(u"a", 0x318));
    EXPECT_EQ(reader->GetSize(), 3);
    reader = open(u"a", 0x312);
    EXPECT_TRUE(open(u"a", 0x318));
    EXPECT_EQ(reader->GetSize(), 0);
    EXPECT_TRUE(open(u"a", 0x222));  // It was one for that moment.
}

TEST_P(FileSystemConformance, DirectoriesComeAndGo) {
    if (!GetParam().directories) GTEST_SKIP();
    make(tree);
    const auto create = [this](const char16_t* name, bool all) {
        return system().CreateDirectoryW(path(name).c_str(), all);
    };
    const auto remove = [this](const char16_t* name, bool all) {
        return system().RemoveDirectoryW(path(name).c_str(), all);
    };
    EXPECT_FALSE(open(u"new/file", 0x24));
    EXPECT_FALSE(create(u"new/deep", false));
    EXPECT_TRUE(create(u"new\\deep", true));
    EXPECT_TRUE(create(u"new/deep/", true));
    EXPECT_FALSE(create(u"new", false));
    EXPECT_FALSE(create(u"a.txt/x", true));
    EXPECT_TRUE(create(u"dir/more", false));
    EXPECT_EQ(list(u"dir"), "c.txt more/ sub/ ");
    write(u"new/deep/file", "x");
    EXPECT_FALSE(remove(u"new/deep", false));
    EXPECT_FALSE(remove(u"a.txt", true));
    EXPECT_FALSE(remove(u"none", false));
    EXPECT_TRUE(remove(u"none", true));
    EXPECT_TRUE(system().DeleteFileW(path(u"new/deep/file").c_str()));
    EXPECT_TRUE(remove(u"new/deep", false));
    EXPECT_TRUE(remove(u"dir", true));
    EXPECT_EQ(list(u""), "a.txt B.bin dir-x new/ ");
    EXPECT_EQ(read(u"dir/c.txt"), "(none)");
    EXPECT_TRUE(create(u"dir", false));  // With nothing of the old one in it.
    EXPECT_EQ(list(u"dir"), "");
}

TEST_P(FileSystemConformance, FilesAreDeletedAndMadeAnew) {
    if (!GetParam().likeDisk) GTEST_SKIP();
    make(tree);
    EXPECT_EQ(system().DeleteFileW(path(u"dir/c.txt").c_str()), GetParam().writes);
    EXPECT_FALSE(system().DeleteFileW(path(u"none").c_str()));
    EXPECT_FALSE(system().DeleteFileW(path(u"a.txt/").c_str()));
    EXPECT_FALSE(system().DeleteFileW(path(u"dir").c_str()));
    EXPECT_EQ(list(u"dir"), GetParam().writes ? "sub/ " : "c.txt sub/ ");
    if (!GetParam().writes) return;
    write(u"dir/c.txt", "new");
    EXPECT_EQ(read(u"dir/c.txt"), "new");
    EXPECT_EQ(list(u"dir"), "c.txt sub/ ");
    if (!GetParam().readOnlyFiles) return;
    EXPECT_TRUE(system().SetFileAttributesW(path(u"dir/c.txt").c_str(), 4));
    EXPECT_TRUE(system().DeleteFileW(path(u"dir/c.txt").c_str()));
    EXPECT_EQ(read(u"dir/c.txt"), "(none)");
}

TEST_P(FileSystemConformance, TimesAreKept) {
    if (!GetParam().likeDisk) GTEST_SKIP();
    if (!GetParam().setsTimes) GTEST_SKIP();
    make(tree);
    const CDateTime time = CDateTime::FromUtc(2024, 5, 6, 7, 8, 9);
    EXPECT_TRUE(system().SetFileModifiedTime(path(u"a.txt").c_str(), time));
    EXPECT_TRUE(system().GetFileInfo(path(u"a.txt").c_str()).modified == time);
    EXPECT_EQ(read(u"a.txt"), "a");
    EXPECT_TRUE(system().GetFileInfo(path(u"a.txt").c_str()).modified == time);
    write(u"a.txt", "b");
    EXPECT_TRUE(system().GetFileInfo(path(u"a.txt").c_str()).modified > time);
    EXPECT_FALSE(system().SetFileModifiedTime(path(u"none").c_str(), time));
}

TEST_P(FileSystemConformance, CopiesGoInOutAndWithin) {
    make(tree);
    CMemoryFileSystem other;
    const auto to = [this](const char16_t* name, FS& target, const CString& path, bool overwrite) {
        return FS::CopyFileW(&system(), this->path(name).c_str(), &target, path.c_str(), overwrite);
    };
    EXPECT_TRUE(to(u"dir/c.txt", other, u"/copy", false));
    EXPECT_EQ(other.GetFileInfo(u"/copy").size, 3);
    EXPECT_FALSE(to(u"none", other, u"/none", true));
    EXPECT_EQ(to(u"dir/c.txt", system(), path(u"copy"), false), GetParam().writes);
    if (!GetParam().writes) return;
    EXPECT_EQ(read(u"copy"), "ccc");
    EXPECT_FALSE(to(u"a.txt", system(), path(u"copy"), false));
    EXPECT_EQ(read(u"copy"), "ccc");
    EXPECT_TRUE(FS::CopyFileW(&other, u"/copy", &system(), path(u"back").c_str(), false));
    EXPECT_EQ(read(u"back"), "ccc");
    EXPECT_FALSE(FS::CopyFileW(memoryFile("ab"), &system(), path(u"short").c_str(), int64_t{5}, true));
    EXPECT_EQ(read(u"short"), "(none)");
}

TEST_P(FileSystemConformance, RelativePathsStartAtTheWorkingDirectory) {
    if (!GetParam().likeDisk) GTEST_SKIP();
    make(tree);
    const CString before = system().GetCurrentWorkingDirectory();
    EXPECT_FALSE(system().SetCurrentWorkingDirectory(path(u"none").c_str()));
    EXPECT_FALSE(system().SetCurrentWorkingDirectory(path(u"a.txt").c_str()));
    ASSERT_TRUE(system().SetCurrentWorkingDirectory(path(u"dir/").c_str()));
    EXPECT_EQ(system().GetCurrentWorkingDirectory(), path(u"dir"));
    EXPECT_TRUE(system().FileExists(u"c.txt") && system().FileExists(u"sub/../../a.txt"));
    EXPECT_EQ(system().GetDirectoryListing(nullptr, nullptr).entries.size(), 2u);
    EXPECT_EQ(system().GetFullPath(CString(u"./x/../b//c/")), path(u"dir/b/c/"));
    EXPECT_EQ(system().GetFullPath(CString(u"/x/../../b")), CString(u"/b"));
    EXPECT_TRUE(system().GetFullPath(CString()).IsEmpty());
    char16_t small[3];
    EXPECT_FALSE(system().GetFullPath(small, u"/abc", 3));
    EXPECT_TRUE(system().SetCurrentWorkingDirectory(before.c_str()));
}

TEST_P(FileSystemConformance, NoPathsAreNoCrash) {
    make(tree);
    for (const char16_t* none : {static_cast<const char16_t*>(nullptr), u""}) {
        EXPECT_EQ(system().GetFileInfo(none).type, uint32_t{FS::typeNothing});
        EXPECT_FALSE(system().DeleteFileW(none));
        EXPECT_FALSE(system().CreateDirectoryW(none, true));
        EXPECT_FALSE(system().RemoveDirectoryW(none, true));
        EXPECT_FALSE(system().SetCurrentWorkingDirectory(none));
        EXPECT_FALSE(system().SetFileAttributesW(none, 4));
        EXPECT_FALSE(system().SetFileModifiedTime(none, CDateTime::UtcNow()));
    }
    EXPECT_FALSE(system().RemoveDirectoryW(u"/none/..", false));  // The root.
    EXPECT_EQ(system().GetFileInfo(u"/").type, uint32_t{FS::typeDirectory});
}

/// Edits the header of a recording with padding twice: once within the padding, once past it.
void editHeader(FS& system, const CString& path) {
    for (const auto& [camera, moves] :
         {std::pair(CString(u"MW2"), false), {CString(std::u16string(3000, u'c')), true}}) {
        CSAFFile header;
        ASSERT_TRUE(header.Load(&system, path.c_str()));
        ASSERT_TRUE(header.SetTagValue(u"Camera", camera.c_str()));
        EXPECT_EQ(header.PlanSave().movesData(), moves);
        ASSERT_TRUE(header.Save());
    }
}

TEST_P(FileSystemConformance, AHeaderEditedInPlaceGivesTheBytesOfTheDisk) {
    if (!GetParam().writes) GTEST_SKIP();
    const TempFolder folder;
    const CString reference = folder.path(u"run7.saf");
    CSAFFile header;
    header.New(false);
    header[u"Camera"] = u"MW1";
    ASSERT_TRUE(header.Save(&fileSystem(), reference.c_str(), true));
    fileSystem().CreateFileW(reference.c_str(), 0x62)->WriteBytes("12345678", 8);
    const std::string before = readFile(reference);
    make({{u"first", "untouched"}, {u"dir/run7.saf", before}, {u"last", "untouched"}});
    editHeader(fileSystem(), reference);
    editHeader(system(), path(u"dir/run7.saf"));
    EXPECT_NE(readFile(reference), before);
    EXPECT_EQ(read(u"dir/run7.saf"), readFile(reference));
    EXPECT_EQ(read(u"first") + read(u"last"), "untoucheduntouched");
}

// The library's own file systems ------------------------------------------------------------------------------------

namespace {

class Disk : public SystemUnderTest {
public:
    explicit Disk(const Contents& contents) { populate(*this, contents); }
    IFileSystem& system() override { return fileSystem(); }
    CString root() override { return m_folder.path(); }

private:
    TempFolder m_folder;
};

template <CMemoryFileSystem::Names names>
class Memory : public SystemUnderTest {
public:
    explicit Memory(const Contents& contents) { populate(*this, contents); }
    IFileSystem& system() override { return m_system; }

private:
    CMemoryFileSystem m_system{names};
};

/// Everything lies in a lower layer at first, a folder of the disk.
class Merged : public SystemUnderTest {
public:
    explicit Merged(const Contents& contents) : m_below(contents) {
        EXPECT_TRUE(m_merged.AddLayer(m_below.system(), 0, false, m_below.root().c_str()));
        EXPECT_TRUE(m_merged.AddLayer(m_upper, 1, true, u"/upper"));
    }
    IFileSystem& system() override { return m_merged; }

private:
    Disk m_below;
    CMemoryFileSystem m_upper;
    CMergedFileSystem m_merged;
};

class Resources : public SystemUnderTest {
public:
    explicit Resources(const Contents& contents) : m_contents(contents) {
        for (const auto& [name, bytes] : m_contents) m_paths.push_back(CString(u"/" + name).GetUTF8());
        for (size_t i = 0; i < m_contents.size(); ++i) {
            const std::string& bytes = m_contents[i].second;
            m_table.push_back({m_paths[i].c_str(), bytes.data(), bytes.size(), 1'700'000'000});
        }
        EXPECT_TRUE(m_system.Register(m_table.data(), m_table.size()));
    }
    IFileSystem& system() override { return m_system; }

private:
    Contents m_contents;
    std::vector<std::string> m_paths;
    std::vector<SResource> m_table;
    CRFSFileSystem m_system;
};

class Container : public SystemUnderTest {
public:
    explicit Container(const Contents& contents) {
        EXPECT_TRUE(m_container.Create(&m_disk, u"/host", false));
        for (const auto& [name, bytes] : contents) {
            const auto file = m_container.CreateFileW(path(name).c_str(), CFile::createNew);
            EXPECT_TRUE(file && file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size())));
        }
    }
    IFileSystem& system() override { return m_container; }

private:
    CMemoryFileSystem m_disk;
    CCDFileSystem m_container;
};

template <class System>
std::unique_ptr<SystemUnderTest> makeSystem(const Contents& contents) {
    return std::make_unique<System>(contents);
}

const FileSystemKind system_kinds[] = {
    {"Disk", makeSystem<Disk>},
    {"Memory", makeSystem<Memory<CMemoryFileSystem::Names::anyCase>>},
    {"MemoryExactCase", makeSystem<Memory<CMemoryFileSystem::Names::exactCase>>},
    {"Merged", makeSystem<Merged>},
    {"CDFS", makeSystem<Container>, true, false, false, true, true, false, false},
    {"Resources", makeSystem<Resources>, false, false, false, false, false, false},
};

INSTANTIATE_TEST_SUITE_P(FileSystems, FileSystemConformance, ::testing::ValuesIn(system_kinds), nameOfSystem);

}  // namespace
}  // namespace qv::test
