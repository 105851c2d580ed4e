#include "qv/resource_file_system.h"

#include "support.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

// hello.txt, sub/empty and "sub/odd name.bin" of the folder resources are compiled into this program.
TEST(Resources, AreCompiledIn) {
    CRFSFileSystem& system = resourceFileSystem();
    EXPECT_EQ(bytesOf(*system.CreateFileW(u"/test/hello.txt", 0x12)), "compiled in\n");
    EXPECT_EQ(bytesOf(*system.CreateFileW(u"/test/sub/odd name.bin", 0x12)), std::string("\0\1\"\\\n\xFF", 6));
    EXPECT_EQ(system.GetFileInfo(u"/test/sub/empty").size, 0);
    EXPECT_EQ(system.GetDirectoryListing(u"/test", nullptr).entries.size(), 2u);
    EXPECT_GT(system.GetFileInfo(u"/test/hello.txt").modified.GetYear(), 1970);
}

TEST(Resources, AreReadWhereTheyAre) {
    char bytes[] = "abc";
    const SResource table[] = {{"/A.txt", bytes, 3, 1'700'000'000}};
    CRFSFileSystem system;
    ASSERT_TRUE(system.Register(table, 1));
    const TSharedPtr<IFile> file = system.CreateFileW(u"/a.TXT", 0x11);
    bytes[1] = 'X';
    EXPECT_EQ(bytesOf(*file), "aXc");
    EXPECT_EQ(system.CreateFileW(u"/a.txt", 0x2)->Read(bytes, 1), 0u);  // Not open for reading.
    ASSERT_TRUE(system.Find(u"/a.txt"));
    EXPECT_EQ(system.Find(u"/a.txt")->data, bytes);
    EXPECT_EQ(system.GetFileInfo(u"/a.txt").modified.ToUnixTime(), 1'700'000'000);
    EXPECT_EQ(CString(system.GetFileInfo(u"/a.txt").path), CString(u"/A.txt"));
}

TEST(Resources, OfSeveralTablesTheLastCounts) {
    const SResource first[] = {{"/a", "1", 1, 0}, {"/dir/x", "1", 1, 0}}, second[] = {{"/A", "22", 2, 0}};
    CRFSFileSystem system;
    ASSERT_TRUE(system.Register(first, 2) && system.Register(second, 1));
    EXPECT_FALSE(system.Register(first, 2));
    EXPECT_EQ(bytesOf(*system.CreateFileW(u"/a", 0x12)), "22");
    EXPECT_EQ(system.GetDirectoryListing(u"/", nullptr).entries.size(), 2u);
    EXPECT_TRUE(system.Unregister(second) && !system.Unregister(second));
    EXPECT_EQ(bytesOf(*system.CreateFileW(u"/a", 0x12)), "1");
    EXPECT_TRUE(system.Unregister(first));
    EXPECT_FALSE(system.IsDirectory(u"/dir"));
    EXPECT_TRUE(system.IsDirectory(u"/"));
}

TEST(Resources, PathsThatAreNoneAreRefused) {
    const std::string tooLong(512, 'x');
    CRFSFileSystem system;
    for (const char* path : {static_cast<const char*>(nullptr), "", "/", "/a/", tooLong.c_str()}) {
        const SResource table[] = {{"/good", "", 0, 0}, {path, "", 0, 0}};
        EXPECT_FALSE(system.Register(table, 2));
    }
    EXPECT_FALSE(system.FileExists(u"/good"));
}

TEST(Resources, FilesOutliveTheFileSystem) {
    const SResource table[] = {{"/a", "abc", 3, 0}};
    TSharedPtr<IFile> file;
    {
        CRFSFileSystem system;
        system.Register(table, 1);
        file = system.CreateFileW(u"/a", 0x12);
    }
    EXPECT_EQ(bytesOf(*file), "abc");
    EXPECT_EQ(file->GetFileInfo().type, uint32_t{IFileSystem::typeNothing});
}

}  // namespace
}  // namespace qv::test
