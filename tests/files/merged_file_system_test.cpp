#include "qv/merged_file_system.h"

#include <random>

#include "qv/memory.h"
#include "qv/memory_file_system.h"
#include "support.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

using FS = IFileSystem;

void put(FS& system, const CString& path, const std::string& text) {
    std::u16string directory(path.view());
    FS::GetDirectory(directory.data());
    system.CreateDirectoryW(directory.c_str(), true);
    ASSERT_TRUE(system.CreateFileW(path.c_str(), 0x28)->WriteString(text.c_str()));
}

std::string get(FS& system, const char16_t* path) {
    const TSharedPtr<IFile> file = system.CreateFileW(path, 0x312);
    return file ? bytesOf(*file) : "(none)";
}

std::string names(FS& system, const char16_t* directory) {
    auto listing = system.GetDirectoryListing(directory, nullptr);
    listing.Sort(1);
    std::string all;
    for (const auto& entry : listing.entries) all += std::string(CString(entry.name).GetUTF8()) + " ";
    return all;
}

/// Three layers over one another: `top` may not be changed, `own` may, `low` may not.
class MergedLayers : public ::testing::Test {
protected:
    MergedLayers() {
        EXPECT_TRUE(m_merged.AddLayer(m_own, 5, true, u"/own"));
        EXPECT_TRUE(m_merged.AddLayer(m_low, 1));
        EXPECT_TRUE(m_merged.AddLayer(m_top, 9, false, u"top/"));
    }
    CMemoryFileSystem m_top, m_own, m_low{CMemoryFileSystem::Names::exactCase};
    CMergedFileSystem m_merged;
};

TEST_F(MergedLayers, TheTopmostIsSeen) {
    put(m_low, u"/a", "low");
    put(m_low, u"/dir/x", "low");
    put(m_low, u"/Dir/x", "another case");
    put(m_low, u"/file/below", "cut off");
    EXPECT_EQ(get(m_merged, u"/a"), "low");
    put(m_own, u"/own/A", "own");
    put(m_own, u"/own/file", "a file");
    put(m_top, u"/top/dir/y", "top");
    EXPECT_EQ(get(m_merged, u"/a"), "own");  // As the upper layer compares names.
    EXPECT_EQ(names(m_merged, u"/"), "A dir file ");
    EXPECT_EQ(names(m_merged, u"/dir"), "x y ");
    EXPECT_EQ(get(m_merged, u"/file/below"), "(none)");
    EXPECT_EQ(names(m_merged, u"/file"), "");
    put(m_top, u"/top/a", "top");
    EXPECT_EQ(get(m_merged, u"/a"), "top");
    EXPECT_TRUE(m_merged.RemoveLayer(m_top) && !m_merged.RemoveLayer(m_top));
    EXPECT_EQ(get(m_merged, u"/a"), "own");
}

TEST_F(MergedLayers, WritingCopiesUp) {
    const CDateTime time = CDateTime::FromUtc(2024, 5, 6);
    put(m_low, u"/dir/x", "low");
    m_low.SetFileModifiedTime(u"/dir/x", time);
    const TSharedPtr<IFile> reader = m_merged.CreateFileW(u"/dir/x", 0x312);
    {
        const TSharedPtr<IFile> file = m_merged.CreateFileW(u"/dir/x", 0x361);
        EXPECT_TRUE(m_merged.GetFileInfo(u"/dir/x").modified == time);
        file->WriteString("+own");
    }
    EXPECT_EQ(get(m_merged, u"/dir/x"), "low+own");
    EXPECT_EQ(get(m_own, u"/own/dir/x"), "low+own");
    EXPECT_EQ(get(m_low, u"/dir/x"), "low");
    EXPECT_EQ(bytesOf(*reader), "low");
    put(m_low, u"/cut", "low");
    EXPECT_TRUE(m_merged.CreateFileW(u"/cut", 0x18));
    EXPECT_EQ(get(m_merged, u"/cut") + get(m_low, u"/cut"), "low");
    put(m_low, u"/temp", "low");
    EXPECT_FALSE(m_merged.CreateFileW(u"/temp", 0x100012));
    put(m_own, u"/own/temp", "own");
    EXPECT_FALSE(m_merged.CreateFileW(u"/temp", 0x100012));  // the one below would come back
    EXPECT_EQ(get(m_merged, u"/temp") + get(m_low, u"/temp"), "ownlow");
    put(m_own, u"/own/alone", "own");
    EXPECT_TRUE(m_merged.CreateFileW(u"/alone", 0x100012));
    EXPECT_EQ(get(m_merged, u"/alone"), "(none)");
}

/// Blocks of 1 MiB that are still to be had.
int blocksLeft = 0;
void* allocate(size_t n) { return n == (1u << 20) && --blocksLeft < 0 ? nullptr : Alloc(n); }
void* reallocate(void* p, size_t n) { return n == (1u << 20) && --blocksLeft < 0 ? nullptr : Realloc(p, n); }

TEST_F(MergedLayers, ACopyUpThatFailsLeavesWhatWasThere) {
    static const Private::HeapHooks hooks = {allocate, reallocate, &Free};
    const std::string whole(3'500'000, 'x');
    put(m_low, u"/a", whole);
    for (int blocks = 0; blocks <= 4; ++blocks) {  // Four are needed.
        blocksLeft = blocks;
        Private::setHeapHooks(&hooks);
        const bool opened = m_merged.CreateFileW(u"/a", 0x22) != nullptr;
        Private::setHeapHooks(nullptr);
        EXPECT_EQ(opened, blocks == 4) << blocks;
        EXPECT_EQ(names(m_own, u"/own"), blocks == 4 ? "a " : "") << blocks;
        EXPECT_TRUE(get(m_merged, u"/a") == whole) << blocks;
    }
}

TEST_F(MergedLayers, WhatLiesAboveTheWritableOneStays) {
    put(m_top, u"/top/dir/x", "top");
    put(m_own, u"/own/dir/x", "own");
    EXPECT_FALSE(m_merged.CreateFileW(u"/dir/x", 0x22));
    EXPECT_FALSE(m_merged.DeleteFileW(u"/dir/x"));
    EXPECT_FALSE(m_merged.RemoveDirectoryW(u"/dir", true));
    EXPECT_FALSE(m_merged.SetFileModifiedTime(u"/dir/x", CDateTime::UtcNow()));
    EXPECT_EQ(get(m_merged, u"/dir/x") + get(m_own, u"/own/dir/x"), "topown");
    put(m_merged, u"/dir/y", "new");
    EXPECT_EQ(get(m_own, u"/own/dir/y"), "new");
}

TEST_F(MergedLayers, MarksEndWithTheView) {
    put(m_low, u"/dir/x", "low");
    EXPECT_TRUE(m_merged.DeleteFileW(u"/dir/x"));
    EXPECT_TRUE(m_merged.RemoveDirectoryW(u"/dir", false));
    EXPECT_EQ(names(m_merged, u"/"), "");
    EXPECT_EQ(get(m_low, u"/dir/x"), "low");
    CMergedFileSystem another;
    another.AddLayer(m_low, 0);
    EXPECT_EQ(get(another, u"/dir/x"), "low");
    EXPECT_FALSE(another.DeleteFileW(u"/dir/x"));  // No layer is writable.
    EXPECT_FALSE(another.CreateFileW(u"/new", 0x24));
    EXPECT_FALSE(another.CreateDirectoryW(u"/new", true));
}

TEST_F(MergedLayers, LayersThatDoNotFitAreRefused) {
    CMemoryFileSystem more;
    EXPECT_FALSE(m_merged.AddLayer(more, 0, true));
    EXPECT_FALSE(m_merged.AddLayer(m_merged, 0));
    EXPECT_FALSE(m_merged.AddLayer(TSharedPtr<FS>(), 0));
    EXPECT_FALSE(m_merged.AddLayer(more, 0, false, u""));
    put(more, u"/a", "later of equals");
    put(m_low, u"/a", "low");
    EXPECT_TRUE(m_merged.AddLayer(more, 1));
    EXPECT_EQ(get(m_merged, u"/a"), "later of equals");
}

TEST(MergedFileSystem, FilesOutliveItWithALayerThatItOwns) {
    TSharedPtr<IFile> file;
    {
        CMergedFileSystem merged;
        auto* layer = new CMemoryFileSystem;
        EXPECT_TRUE(merged.AddLayer(TSharedPtr<FS>(layer), 0, true, u"/root"));
        file = merged.CreateFileW(u"/a", 0x34);
        EXPECT_EQ(&file->GetFileSystem(), &merged);
    }
    EXPECT_TRUE(file->WriteString("alive"));
    EXPECT_EQ(file->GetFileInfo().size, 5);  // In the layer, by its name there.
    EXPECT_EQ(CString(file->GetFileInfo().path), CString(u"/root/a"));
}

TEST(MergedFileSystem, FollowsAModel) {
    // The view behaves as one file system, wherever its files began; the lower layer never changes.
    std::mt19937 random(3);
    CMemoryFileSystem upper, lower, model;
    CMergedFileSystem merged;
    merged.AddLayer(lower, 0);
    merged.AddLayer(upper, 1, true);
    const char16_t* const paths[] = {u"/a", u"/b", u"/d", u"/d/a", u"/d/b", u"/d/e", u"/d/e/a"};
    for (const char16_t* path : {u"/a", u"/d/a", u"/d/e/a"}) {
        put(lower, path, "low");
        put(model, path, "low");
    }
    for (int i = 0; i < 5000; ++i) {
        const char16_t* const path = paths[random() % std::size(paths)];
        const auto action = random() % 5;
        const bool all = random() % 2 == 0;
        const uint32_t flags[] = {0x24, 0x22, 0x28, 0x61};
        const uint32_t open = flags[random() % 4];
        const auto act = [&](FS& system) {
            if (action == 0) return system.DeleteFileW(path);
            if (action == 1 && i % 4 == 0) return system.RemoveDirectoryW(path, all);
            if (action == 2) return system.CreateDirectoryW(path, all);
            const TSharedPtr<IFile> file = system.CreateFileW(path, open);
            return file && file->WriteString(CStringMB::FromFormat("%d", i).c_str());
        };
        ASSERT_EQ(act(merged), act(model)) << i << " " << action;
        for (const char16_t* each : paths) {
            ASSERT_EQ(merged.GetFileInfo(each).type, model.GetFileInfo(each).type) << i;
            ASSERT_EQ(get(merged, each), get(model, each)) << i;
            ASSERT_EQ(names(merged, each), names(model, each)) << i;
        }
        ASSERT_EQ(names(merged, u"/"), names(model, u"/")) << i;
    }
    EXPECT_EQ(get(lower, u"/a") + get(lower, u"/d/a") + get(lower, u"/d/e/a"), "lowlowlow");
}

}  // namespace
}  // namespace qv::test
