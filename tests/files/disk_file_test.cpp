#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "support.h"

namespace qv::test {
namespace {

TEST(DiskFile, DispositionsDecideByWhatIsThere) {
    struct Row {
        const char* name;
        uint32_t flags;
        bool absentOpens;
        bool presentOpens;
        const char* presentBecomes;
    };
    const Row rows[] = {
        {"open or create", 0x01, true, true, "old"},       {"open existing", 0x02, false, true, "old"},
        {"create new", 0x04, true, false, "old"},          {"create, truncating", 0x08, true, true, ""},
        {"none of them", 0x00, false, true, "old"},        {"the first of several", 0x0F, true, true, "old"},
        {"second before third", 0x0A, false, true, "old"}, {"third before fourth", 0x0C, true, true, ""},
    };
    const TempFolder folder;
    const CString absent = folder.path(u"absent"), present = folder.path(u"present");
    for (const Row& row : rows) {
        for (const uint32_t access : {0x10u, 0x20u, 0x30u, 0u}) {
            EXPECT_EQ(CFile().Open(absent.c_str(), row.flags | access), row.absentOpens) << row.name << access;
            EXPECT_EQ(fileSystem().FileExists(absent.c_str()), row.absentOpens) << row.name << access;
            fileSystem().DeleteFileW(absent.c_str());
            writeFile(present, "old");
            EXPECT_EQ(CFile().Open(present.c_str(), row.flags | access), row.presentOpens) << row.name << access;
            EXPECT_EQ(readFile(present), row.presentBecomes) << row.name << access;
        }
    }
}

TEST(DiskFile, AccessIsWhatWasAskedFor) {
    const TempFolder folder;
    writeFile(folder.path(u"a"), "abc");
    struct Row {
        uint32_t access, read, written;
    };
    for (const Row& row : {Row{0, 0, 0}, Row{0x10, 1, 0}, Row{0x20, 0, 1}, Row{0x30, 1, 1}}) {
        CFile file;
        ASSERT_TRUE(file.Open(folder.path(u"a").c_str(), row.access));
        char byte = 'x';
        EXPECT_EQ(file.Read(&byte, 1), row.read) << row.access;
        EXPECT_EQ(file.Write(&byte, 1), row.written) << row.access;
        EXPECT_EQ(file.GetSize(), 3) << row.access;
    }
}

TEST(DiskFile, BytesPositionsAndSizes) {
    const TempFolder folder;
    CFile file;
    ASSERT_TRUE(file.Open(folder.path(u"a").c_str(), 0x38));
    EXPECT_EQ(file.Write("hello", 5), 5u);
    EXPECT_EQ(file.GetPosition(), 5);
    EXPECT_EQ(file.Seek(-2, IFile::fromEnd), 3);
    EXPECT_EQ(file.Seek(1, IFile::fromCurrent), 4);
    EXPECT_EQ(file.Seek(1, 0), 0);
    EXPECT_EQ(file.GetPosition(), 4);
    EXPECT_EQ(file.Seek(-9, IFile::fromBegin), -1);
    EXPECT_EQ(file.GetPosition(), 4);
    EXPECT_TRUE(file.SetSize(int64_t{5} << 30));
    EXPECT_EQ(file.GetSize(), int64_t{5} << 30);
    EXPECT_EQ(file.GetPosition(), 4);
    EXPECT_TRUE(file.SetSize(-1));
    EXPECT_TRUE(file.SetEOF());
    EXPECT_EQ(file.GetSize(), 4);
    file.Flush();
    char16_t name[8];
    EXPECT_EQ(std::u16string_view(file.GetFilename(name, 8)), folder.path(u"a").view().substr(0, 7));
    file.Close();
    EXPECT_EQ(file.Write("x", 1), 0u);
    EXPECT_EQ(file.GetSize(), 0);
    EXPECT_FALSE(file.SetEOF());
}

TEST(DiskFile, AppendIsOneSeek) {
    const TempFolder folder;
    writeFile(folder.path(u"a"), "abc");
    CFile file;
    ASSERT_TRUE(file.Open(folder.path(u"a").c_str(), 0x61));
    EXPECT_EQ(file.GetPosition(), 3);
    file.SeekToBegin();
    file.Write("X", 1);
    file.Close();
    EXPECT_EQ(readFile(folder.path(u"a")), "Xbc");
}

TEST(DiskFile, AppendersOfOneFileOverwriteNothingUntilTheyLeaveTheEnd) {
    struct Row {
        void (*move)(CFile&);
        std::string after;
    };
    const Row rows[] = {
        {[](CFile& file) { file.GetPosition(); }, "12345"},
        {[](CFile& file) { file.SeekToEnd(); }, "12345"},
        {[](CFile& file) { file.Seek(1, IFile::fromBegin); }, "1534"},
        {[](CFile& file) { file.Seek(-1, IFile::fromCurrent); }, "1254"},
        {[](CFile& file) { file.SetSize(1); }, std::string("1\0\0005", 4)},
        {[](CFile& file) {
             CFile other(file.Detach());
             other.SeekToBegin();
             other.Write("5", 1);
         },
         "5234"},
    };
    for (const Row& row : rows) {
        const TempFolder folder;
        const CString path = folder.path(u"a");
        CFile a, b;
        ASSERT_TRUE(a.Open(path.c_str(), 0x361));
        ASSERT_TRUE(b.Open(path.c_str(), 0x361));
        a.Write("1", 1);
        b.Write("2", 1);
        a.Write("3", 1);
        EXPECT_EQ(a.GetPosition(), 3);
        b.Write("4", 1);
        row.move(a);
        a.Write("5", 1);
        EXPECT_EQ(readFile(path), row.after);
    }
}

TEST(DiskFile, AFailedOpenSaysWhyAndKeepsTheName) {
    const TempFolder folder;
    CFile file;
    ClearDiagnostic();
    EXPECT_FALSE(file.Open(folder.path(u"none").c_str(), 0x12));
    EXPECT_TRUE(LastDiagnostic().found == CString(u"No such file or directory"));
    EXPECT_TRUE(LastDiagnostic().file == folder.path(u"none"));
    char16_t name[512];
    EXPECT_EQ(std::u16string_view(file.GetFilename(name, 512)), folder.path(u"none").view());
    EXPECT_FALSE(file.Open(nullptr, 0x12));
    EXPECT_FALSE(file.Open(folder.path().c_str(), 0x12));  // A directory.
    EXPECT_FALSE(CFile::Create(folder.path(u"none").c_str(), 0x12));
}

TEST(DiskFile, APipeWithoutAnotherEndIsEmptyAtOnce) {
    const test::TempFolder folder;
    const CString path = folder.path(u"pipe");
    ASSERT_EQ(mkfifo(CStringMB(path.c_str()).c_str(), 0600), 0);
    EXPECT_EQ(fileSystem().CreateFileW(path.c_str(), 0x22), nullptr) << "to a writer there is nobody";
    const TSharedPtr<IFile> reader = fileSystem().CreateFileW(path.c_str(), 0x212);
    ASSERT_NE(reader, nullptr);
    char text[3] = {};
    EXPECT_EQ(reader->Read(text, 3), 0u);
    const TSharedPtr<IFile> writer = fileSystem().CreateFileW(path.c_str(), 0x22);
    ASSERT_NE(writer, nullptr);
    EXPECT_TRUE(writer->WriteBytes("abc", 3));
    EXPECT_EQ(reader->Read(text, 3), 3u);
}

TEST(DiskFile, BackslashesSeparateAndMalformedNamesAreHarmless) {
    const TempFolder folder;
    ASSERT_TRUE(fileSystem().CreateDirectoryW(folder.path(u"x").c_str(), false));
    EXPECT_TRUE(CFile().Open(folder.path(u"x\\a").c_str(), 0x24));
    EXPECT_TRUE(fileSystem().FileExists(folder.path(u"x/a").c_str()));
    const char16_t lone[] = {0xD800, u'x', 0};
    EXPECT_TRUE(CFile().Open(folder.path(lone).c_str(), 0x24));
    EXPECT_TRUE(fileSystem().FileExists(folder.path(u"\uFFFDx").c_str()));
    EXPECT_FALSE(CFile().Open(std::u16string(5000, u'x').c_str(), 0x24));
}

TEST(DiskFile, AttributesOfANewFile) {
    const TempFolder folder;
    const mode_t old = umask(077);
    struct Row {
        uint32_t flags;
        mode_t mode;
    };
    for (const Row& row : {Row{0, 0600}, Row{0x1000, 0600}, Row{0x2000, 0400}, Row{0x3000, 0600}, Row{0x800000, 0666},
                           Row{0xC000, 0600}}) {
        CFile file;
        ASSERT_TRUE(file.Open(folder.path(u"a").c_str(), 0x24 | row.flags));
        EXPECT_EQ(file.Write("x", 1), 1u);  // Read-only binds later openers.
        struct stat status {};
        ASSERT_EQ(stat(folder.native(u"a").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777u, row.mode) << std::hex << row.flags;
        EXPECT_TRUE(CFile::Remove(folder.path(u"a").c_str()));
    }
    umask(old);
}

TEST(DiskFile, DeletesItselfOnClose) {
    const TempFolder folder;
    CFile file;
    ASSERT_TRUE(file.Open(folder.path(u"a").c_str(), 0x100024));
    ASSERT_TRUE(fileSystem().MoveFileW(folder.path(u"a").c_str(), folder.path(u"b").c_str()));
    writeFile(folder.path(u"a"), "another");
    file.Close();
    EXPECT_FALSE(fileSystem().FileExists(folder.path(u"b").c_str()));
    EXPECT_EQ(readFile(folder.path(u"a")), "another");
    ASSERT_TRUE(file.Open(folder.path(u"c").c_str(), 0x100024));
    const TSharedPtr<IFile> other = CFile::Create(file.Detach());
    EXPECT_EQ(file.GetSize(), 0);
    other->Close();
    EXPECT_TRUE(fileSystem().FileExists(folder.path(u"c").c_str()));
}

TEST(DiskFile, DescriptorsStayOutOfOtherPrograms) {
    const TempFolder folder;
    CFile file;
    ASSERT_TRUE(file.Open(folder.path(u"a").c_str(), 0x200024));
    void* handle = file.Detach();
    const auto descriptor = static_cast<int>(reinterpret_cast<intptr_t>(handle));
    EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(descriptor, F_GETFL) & O_DSYNC);
    file.Attach(handle);
}

// Share modes -------------------------------------------------------------------------------------------------------

struct Opener {
    uint32_t access;  // Bits 0x10 and 0x20.
    uint32_t share;   // 0x200 shares reading, 0x100 writing.
    uint32_t flags() const { return access | (share != 0 ? share : 0xC00); }
    bool allows(const Opener& other) const {
        return (!(other.access & 0x10) || (share & 0x200)) && (!(other.access & 0x20) || (share & 0x100));
    }
};

std::vector<Opener> allOpeners() {
    std::vector<Opener> openers;
    for (const uint32_t access : {0x10u, 0x20u, 0x30u}) {
        for (const uint32_t share : {0u, 0x100u, 0x200u, 0x300u}) openers.push_back({access, share});
    }
    return openers;
}

TEST(ShareModes, BindInBothDirectionsWithinAProcess) {
    const TempFolder folder;
    const CString path = folder.path(u"a");
    writeFile(path, "contents");
    for (const Opener& first : allOpeners()) {
        for (const Opener& second : allOpeners()) {
            CFile one, two;
            ASSERT_TRUE(one.Open(path.c_str(), first.flags()));
            EXPECT_EQ(two.Open(path.c_str(), second.flags()), first.allows(second) && second.allows(first))
                << std::hex << first.flags() << " " << second.flags();
            one.Close();
            EXPECT_TRUE(two.Open(path.c_str(), second.flags())) << std::hex << second.flags();
        }
    }
}

/// For each opener, whether a child process can open the file so.
std::vector<bool> openedByChild(const CString& path, const std::vector<Opener>& openers) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        for (const Opener& opener : openers) {
            const char opened = CFile().Open(path.c_str(), opener.flags()) ? 1 : 0;
            if (write(ends[1], &opened, 1) != 1) _exit(1);
        }
        _exit(0);
    }
    close(ends[1]);
    std::vector<bool> results;
    for (size_t i = 0; i < openers.size(); ++i) {
        char opened = 0;
        EXPECT_EQ(read(ends[0], &opened, 1), 1);
        results.push_back(opened == 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    close(ends[0]);
    return results;
}

TEST(ShareModes, BindBetweenProcesses) {
    const TempFolder folder;
    const CString path = folder.path(u"a");
    writeFile(path, "contents");
    const std::vector<Opener> openers = allOpeners();
    for (const Opener& first : openers) {
        CFile one;
        ASSERT_TRUE(one.Open(path.c_str(), first.flags()));
        const std::vector<bool> opened = openedByChild(path, openers);
        for (size_t i = 0; i < openers.size(); ++i) {
            EXPECT_EQ(opened[i], first.allows(openers[i]) && openers[i].allows(first))
                << std::hex << first.flags() << " " << openers[i].flags();
        }
    }
}

TEST(ShareModes, FlagWordsDecode) {
    // What a second opener with full sharing may do beside the first: bit 1 read, bit 2 write.
    struct Row {
        uint32_t flags;
        int allowed;
    };
    const Row rows[] = {{0x10, 1},  {0x20, 0},  {0x30, 0},  {0x310, 3}, {0x210, 1}, {0x110, 2}, {0xC10, 0},
                        {0x410, 2}, {0x810, 1}, {0xE10, 1}, {0xF10, 3}, {0xD10, 2}, {0x330, 3}};
    const TempFolder folder;
    writeFile(folder.path(u"a"), "x");
    for (const Row& row : rows) {
        CFile file;
        ASSERT_TRUE(file.Open(folder.path(u"a").c_str(), row.flags));
        const int reads = CFile().Open(folder.path(u"a").c_str(), 0x310) ? 1 : 0;
        const int writes = CFile().Open(folder.path(u"a").c_str(), 0x320) ? 2 : 0;
        EXPECT_EQ(reads | writes, row.allowed) << std::hex << row.flags;
    }
}

TEST(ShareModes, ManyWritersMayShare) {
    const TempFolder folder;
    std::vector<CFile> files(100);
    for (CFile& file : files) EXPECT_TRUE(file.Open(folder.path(u"a").c_str(), 0x321));
    EXPECT_FALSE(CFile().Open(folder.path(u"a").c_str(), 0x220));
    files.clear();
    EXPECT_TRUE(CFile().Open(folder.path(u"a").c_str(), 0x220));
}

TEST(ShareModes, AreDecidedBeforeAnythingIsTruncated) {
    const TempFolder folder;
    writeFile(folder.path(u"a"), "contents");
    CFile reader;
    ASSERT_TRUE(reader.Open(folder.path(u"a").c_str(), 0x12));
    ClearDiagnostic();
    EXPECT_FALSE(CFile().Open(folder.path(u"a").c_str(), 0x28));
    EXPECT_TRUE(LastDiagnostic().found.Contains(u"sharing conflict"));
    EXPECT_EQ(reader.GetSize(), 8);
}

}  // namespace
}  // namespace qv::test
