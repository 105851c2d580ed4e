#include "qv/memory_file_system.h"

#include <thread>

#include "qv/diagnostic.h"
#include "qv/memory.h"
#include "support.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

TEST(MemoryFileSystem, NamesCompareAsTheConstructorSays) {
    CMemoryFileSystem any, exact(CMemoryFileSystem::Names::exactCase);
    for (CMemoryFileSystem* system : {&any, &exact}) {
        ASSERT_TRUE(system->CreateDirectoryW(u"/Dir", false));
        ASSERT_TRUE(system->CreateFileW(u"/Dir/Über.TXT", 0x24));
    }
    const auto info = any.GetFileInfo(u"/DIR/über.txt");
    EXPECT_EQ(CString(info.path), CString(u"/Dir/Über.TXT"));  // As it was spelled first.
    EXPECT_FALSE(any.CreateDirectoryW(u"/dir", false));
    EXPECT_EQ(exact.GetFileInfo(u"/Dir/über.txt").type, uint32_t{IFileSystem::typeNothing});
    EXPECT_TRUE(exact.CreateDirectoryW(u"/dir", false));
}

TEST(MemoryFileSystem, FilesAreSparseAndOf64Bits) {
    CMemoryFileSystem system;
    const TSharedPtr<IFile> file = system.CreateFileW(u"/a", 0x34);
    const int64_t far = int64_t{1} << 60;
    file->SetPosition(far);
    EXPECT_TRUE(file->WriteBytes("end", 3));
    EXPECT_EQ(file->GetSize(), far + 3);
    EXPECT_TRUE(file->SetSize(INT64_MAX));
    file->SetPosition(INT64_MAX - 1);
    EXPECT_EQ(file->Write("xy", 2), 1u);  // Up to 2^63 - 1 alone.
    char bytes[8] = "#######";
    file->SetPosition(far - 2);
    EXPECT_TRUE(file->ReadBytes(bytes, 7));
    EXPECT_EQ(std::string(bytes, 7), std::string("\0\0end\0\0", 7));
    EXPECT_TRUE(file->SetSize(far + 1));  // What is cut off does not come back.
    EXPECT_TRUE(file->SetSize(far + 3));
    file->SetPosition(far);
    EXPECT_TRUE(file->ReadBytes(bytes, 3));
    EXPECT_EQ(std::string(bytes, 3), std::string("e\0\0", 3));
    EXPECT_FALSE(file->SetSize(-1));
}

TEST(MemoryFileSystem, BlocksJoinWithoutASeam) {
    CMemoryFileSystem system;
    const TSharedPtr<IFile> file = system.CreateFileW(u"/a", 0x34);
    std::string whole;
    for (int i = 0; whole.size() < (5u << 20); ++i) whole += std::to_string(i);
    for (size_t at = 0; at < whole.size(); at += 300'007) {  // In steps that divide no block.
        const std::string part = whole.substr(at, 300'007);
        ASSERT_TRUE(file->WriteBytes(part.data(), static_cast<uint32_t>(part.size())));
    }
    EXPECT_TRUE(bytesOf(*file) == whole);
}

TEST(MemoryFileSystem, WithoutMemoryAWriteComesShort) {
    static const Private::HeapHooks small = {[](size_t n) { return n > 1000 ? nullptr : Alloc(n); },
                                             [](void* p, size_t n) { return n > 1000 ? nullptr : Realloc(p, n); },
                                             &Free};
    CMemoryFileSystem system;
    const TSharedPtr<IFile> file = system.CreateFileW(u"/a", 0x34);
    ASSERT_TRUE(file->WriteBytes("kept", 4));
    const std::string more(2000, 'x');
    ClearDiagnostic();
    Private::setHeapHooks(&small);
    EXPECT_EQ(file->Write(more.data(), 2000), 0u);
    Private::setHeapHooks(nullptr);
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_EQ(bytesOf(*file), "kept");
}

TEST(MemoryFileSystem, OpenFilesOutliveTheirNameAndTheFileSystem) {
    TSharedPtr<IFile> deleted, in, last;
    {
        CMemoryFileSystem system;
        system.CreateDirectoryW(u"/dir", false);
        deleted = system.CreateFileW(u"/a", 0x334);
        in = system.CreateFileW(u"/dir/b", 0x100034);  // Deleted on close, from a folder that is gone by then.
        last = system.CreateFileW(u"/c", 0x34);
        EXPECT_TRUE(system.DeleteFileW(u"/a") && system.RemoveDirectoryW(u"/dir", true));
        EXPECT_TRUE(system.CreateFileW(u"/a", 0x34));  // Another file; no sharing conflict.
    }
    for (const TSharedPtr<IFile>& file : {deleted, in, last}) {
        EXPECT_TRUE(file->WriteBytes("alive", 5));
        EXPECT_EQ(bytesOf(*file), "alive");
        EXPECT_EQ(file->GetFileInfo().type, uint32_t{IFileSystem::typeNothing});
    }
}

TEST(MemoryFileSystem, AppendersOverwriteNothingUntilTheyLeaveTheEnd) {
    CMemoryFileSystem system;
    const TSharedPtr<IFile> a = system.CreateFileW(u"/a", 0x361), b = system.CreateFileW(u"/a", 0x361);
    a->WriteBytes("1", 1);
    b->WriteBytes("2", 1);
    a->WriteBytes("3", 1);
    b->SetPosition(0);
    b->WriteBytes("4", 1);
    EXPECT_EQ(bytesOf(*system.CreateFileW(u"/a", 0x312)), "423");
}

TEST(MemoryFileSystem, ReadOnlyBindsLaterOpeners) {
    CMemoryFileSystem system;
    EXPECT_TRUE(system.CreateFileW(u"/a", 0x2024)->WriteBytes("x", 1));
    for (const uint32_t flags : {0x22u, 0x28u, 0x18u}) EXPECT_FALSE(system.CreateFileW(u"/a", flags)) << flags;
    EXPECT_TRUE(system.CreateFileW(u"/a", 0x12));
    EXPECT_TRUE(system.SetFileAttributesW(u"/a", 0));
    EXPECT_TRUE(system.CreateFileW(u"/a", 0x22));
}

TEST(MemoryFileSystem, CopiesWithinItself) {
    CMemoryFileSystem system;
    system.CreateFileW(u"/a", 0x24)->WriteBytes("abc", 3);
    int64_t done = -1;
    const auto note = [](int64_t, int64_t now, void* context) { *static_cast<int64_t*>(context) = now; };
    EXPECT_TRUE(system.CopyFileW(u"/a", u"/b", false, note, &done));
    EXPECT_EQ(done, 3);
    EXPECT_FALSE(system.CopyFileW(u"/a", u"/b", false, nullptr, nullptr));
    EXPECT_FALSE(system.CopyFileW(u"/a", u"/a", true, nullptr, nullptr));
    EXPECT_EQ(bytesOf(*system.CreateFileW(u"/a", 0x12)), "abc");
}

TEST(MemoryFileSystem, PathsHaveLessThan512Characters) {
    CMemoryFileSystem system;
    const std::u16string longest = u"/" + std::u16string(510, u'x');
    EXPECT_TRUE(system.CreateFileW(longest.c_str(), 0x24));
    EXPECT_FALSE(system.CreateFileW((longest + u"x").c_str(), 0x24));
    EXPECT_FALSE(system.CreateDirectoryW((u"/d" + longest).c_str(), true));
    EXPECT_EQ(system.GetDirectoryListing(u"/", nullptr).entries.size(), 1u);
}

TEST(MemoryFileSystemThread, FilesMayBeUsedFromSeveralThreads) {
    CMemoryFileSystem system;
    const auto work = [&system](char name) {
        const std::u16string path = {u'/', static_cast<char16_t>(name)};
        for (int i = 0; i < 300; ++i) {
            const TSharedPtr<IFile> own = system.CreateFileW(path.c_str(), 0x28),
                                    log = system.CreateFileW(u"/log", 0x361);
            ASSERT_TRUE(own && log);
            ASSERT_TRUE(own->WriteBytes(&name, 1) && log->WriteBytes(&name, 1));
            ASSERT_FALSE(system.GetDirectoryListing(u"/", nullptr).entries.size() < 2);
        }
    };
    std::vector<std::thread> threads;
    for (const char name : {'a', 'b', 'c'}) threads.emplace_back(work, name);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(system.GetFileInfo(u"/log").size, 900);
}

}  // namespace
}  // namespace qv::test
