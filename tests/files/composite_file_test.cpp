// The register of archive types.
#include "qv/composite_file.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "support/slots.h"

namespace qv::test {
namespace {

int alive = 0;

/// An archive that opens paths of one ending.
class Archive : public ICompositeFile {
public:
    explicit Archive(const char16_t* pattern) : m_pattern(pattern) { ++alive; }
    ~Archive() override { --alive; }
    bool Open(IFileSystem*, const char16_t* path) override { return WildcardMatch(m_pattern, path); }
    void Close() override {}
    const char16_t* pattern() const { return m_pattern; }

    TSharedPtr<IFile> CreateFileW(const char16_t*, uint32_t) override { return nullptr; }
    CDirectoryListing GetDirectoryListing(const char16_t*, const char16_t*) override { return {}; }
    CDirectoryEntry GetFileInfo(const char16_t*) override { return {}; }
    bool GetFullPath(char16_t*, const char16_t*, int) override { return false; }
    bool DeleteFileW(const char16_t*) override { return false; }
    bool CreateDirectoryW(const char16_t*, bool) override { return false; }
    bool RemoveDirectoryW(const char16_t*, bool) override { return false; }
    bool SetCurrentWorkingDirectory(const char16_t*) override { return false; }
    bool GetCurrentWorkingDirectory(char16_t*, int) override { return false; }

private:
    const char16_t* m_pattern;
};

ICompositeFile* none() { return nullptr; }
ICompositeFile* onlyA() { return new Archive(u"*a.arc"); }
ICompositeFile* any() { return new Archive(u"*"); }
bool isArchive(IFileSystem*, const char16_t* path) { return IFileSystem::WildcardMatch(u"*.arc", path); }

TEST(CompositeFile, OperationsFollowThoseOfTheFileSystem) {
    const size_t last = slotOf(&IFileSystem::IsDirectory);
    EXPECT_EQ(slotOf(&ICompositeFile::IsDirectory), last);
    EXPECT_EQ(slotOf(&ICompositeFile::Open), last + 1);
    EXPECT_EQ(slotOf(&ICompositeFile::Close), last + 2);
    EXPECT_EQ(slotOf(&ICompositeFile::GetDefaultFile), last + 3);
}

TEST(CompositeFile, TheFirstTypeThatKnowsAndOpensAFileWins) {
    EXPECT_FALSE(ICompositeFile::IsCompositeFile(&fileSystem(), u"x.arc"));
    ASSERT_NE(ICompositeFile::pRegister, nullptr);
    ICompositeFile::pRegister->types.Empty();  // of what a run before has left
    EXPECT_EQ(ICompositeFile::Register(u"None", none, isArchive), 0u);
    EXPECT_EQ(ICompositeFile::Register(u"Only a", onlyA, isArchive), 1u);
    EXPECT_EQ(ICompositeFile::Register(u"Only a", any, isArchive), 0xFFFFFFFFu);
    EXPECT_EQ(ICompositeFile::Register(u"only a", any, isArchive), 2u);
    const CString longName(std::u16string(200, u'n'));
    EXPECT_EQ(ICompositeFile::Register(longName.c_str(), any, isArchive), 3u);
    EXPECT_EQ(ICompositeFile::Register(longName.c_str(), any, isArchive), 0xFFFFFFFFu);
    EXPECT_EQ(ICompositeFile::Register(nullptr, any, isArchive), 0xFFFFFFFFu);
    EXPECT_EQ(ICompositeFile::pRegister->types.size(), 4u);

    EXPECT_TRUE(ICompositeFile::IsCompositeFile(&fileSystem(), u"x.arc"));
    EXPECT_FALSE(ICompositeFile::IsCompositeFile(&fileSystem(), u"x.saf"));
    EXPECT_EQ(ICompositeFile::OpenCompositeFile(&fileSystem(), u"x.saf"), nullptr);
    for (const auto& [path, pattern] : {std::pair(u"a.arc", u"*a.arc"), std::pair(u"b.arc", u"*")}) {
        const std::unique_ptr<ICompositeFile> opened(ICompositeFile::OpenCompositeFile(&fileSystem(), path));
        ASSERT_NE(opened, nullptr);
        EXPECT_EQ(alive, 1) << "an object that did not open was not deleted";
        EXPECT_EQ(CString(static_cast<Archive&>(*opened).pattern()), CString(pattern));
        char16_t buffer[IFileSystem::pathChars];
        EXPECT_FALSE(opened->GetDefaultFile(buffer));
    }
}

}  // namespace
}  // namespace qv::test
