#include "qv/cd_file_system.h"

#include <map>
#include <random>
#include <thread>

#include "support.h"
#include "support/faulty_file.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

using Container = CCDFileSystem;

class CDFileSystem : public testing::Test {
protected:
    static bool put(Container& container, const CString& name, std::string_view text) {
        const auto file = container.CreateFileW(name.c_str(), CFile::createTruncate | CFile::accessWrite);
        return file && file->WriteBytes(text.data(), static_cast<uint32_t>(text.size()));
    }
    static std::string get(Container& container, const CString& name) {
        const auto file = container.CreateFileW(name.c_str(), CFile::openExisting | CFile::accessRead);
        if (!file) return "(none)";
        std::string text(static_cast<size_t>(file->GetSize()), '\0');
        text.resize(file->Read(text.data(), static_cast<uint32_t>(text.size())));
        return text;
    }

    const TempFolder folder;
    const CString path = folder.path(u"c.cdfs");
};

std::string number(uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> 8 * i);
    return text;
}
std::string text(const std::string& value) { return number(value.size(), 4) + value; }
std::string entry(const std::string& name, const std::string& full, uint32_t type, int64_t size, uint64_t modified,
                  const std::string& offset, const std::string& capacity) {
    return text(name) + text(full) + number(type, 4) + number(static_cast<uint64_t>(size), 8) + number(modified, 8) +
           number(2, 4) + text("Offset") + text(offset) + text("Capacity") + text(capacity);
}
std::string padded(std::string bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

TEST_F(CDFileSystem, ABytewiseContainerIsReadAndWrittenAgain) {
    constexpr uint64_t time = 0x01D6E2AB12345678;
    const auto table = [&](int64_t rootSize) {
        return std::string("CDFS\0\0", 6) + entry("/", "/", 1, rootSize, time, "0", "4096") + number(2, 4) +
               entry("a.txt", "/a.txt", 2, 5, time, "4096", "4096") + entry("b", "/d/b", 2, 3, time, "8192", "4096");
    };
    const std::string host = padded("host", 1000), a = padded("hello", 4096), b = padded("xyz", 4096);
    const std::string footer = number(1000, 8) + "CDFSFOOT";
    const std::string whole = host + padded(table(300), 4096) + a + b + footer;
    writeFile(path, whole);
    Container container;
    EXPECT_TRUE(Container::IsCDFile(path.c_str()));
    ASSERT_TRUE(container.Open(path.c_str(), false));
    EXPECT_EQ(container.GetBase(), 1000);
    EXPECT_EQ(get(container, u"A.TXT"), "hello");
    EXPECT_EQ(get(container, u"/d\\b"), "xyz");
    EXPECT_EQ(container.GetFileInfo(u"a.txt").modified.ToFileTime(), time);
    EXPECT_EQ(container.NextFileOffset(), 3 * 4096);
    EXPECT_TRUE(container.UpdateDirectoryEntry(u"a.txt", container.GetFileInfo(u"d/b")));
    container.Close();
    // The root is written with the size that the table had before.
    EXPECT_EQ(readFile(path), whole);
    for (const auto& [size, readable] : {std::pair{1000u, false}, {4000u, false}, {9000u, false}}) {
        writeFile(path, whole.substr(0, size));
        EXPECT_EQ(container.Open(path.c_str(), true), readable) << size;
    }
    writeFile(path, whole.substr(1000, 8192));  // at the beginning it needs no footer
    EXPECT_TRUE(container.Open(path.c_str(), true));
    EXPECT_EQ(get(container, u"a.txt"), "hello");
}

TEST_F(CDFileSystem, HangsOnTheEndOfAHostAndIsFoundAgain) {
    writeFile(path, std::string(1000, 'h'));
    Container container;
    EXPECT_FALSE(container.Create(path.c_str(), false));
    EXPECT_FALSE(container.Open(path.c_str(), false));
    EXPECT_EQ(readFile(path), std::string(1000, 'h'));
    ASSERT_TRUE(container.Create(path.c_str(), true));
    EXPECT_TRUE(put(container, u"a", "1"));
    container.Close();
    const std::string bytes = readFile(path);
    EXPECT_EQ(bytes.size(), 1000u + 2 * 4096 + 16);
    EXPECT_EQ(bytes.substr(bytes.size() - 16), number(1000, 8) + "CDFSFOOT");
    EXPECT_FALSE(container.Create(path.c_str(), true));
    for (const size_t behind : {100u, 8176u, 8177u}) {
        container.Close();
        writeFile(path, bytes + std::string(behind, 'x'));
        EXPECT_FALSE(Container::IsCDFile(path.c_str()));
        EXPECT_EQ(container.Open(path.c_str(), true), behind <= 8176) << behind;
    }
    container.Close();
    writeFile(path, bytes.substr(0, bytes.size() - 16) + number(999, 8) + "CDFSFOOT");
    EXPECT_FALSE(container.Open(path.c_str(), true));
    EXPECT_FALSE(container.Open(folder.path(u"absent").c_str(), true));
    EXPECT_FALSE(fileSystem().FileExists(folder.path(u"absent").c_str()));
}

TEST_F(CDFileSystem, RoomComesInStepsAndFilesAreRenumbered) {
    Container container;
    ASSERT_TRUE(container.Open(path.c_str(), false));  // creates it
    const auto capacity = [&](const char16_t* name) {
        const auto info = container.GetFileInfo(name);
        return std::string(CStringMB(info.properties.GetValue(u"Capacity")).c_str());
    };
    const auto empty = container.CreateFileW(u"a", CFile::createNew),
               twin = container.CreateFileW(u"b", CFile::createNew);
    EXPECT_TRUE(twin->WriteBytes("B", 1));
    EXPECT_TRUE(empty->WriteBytes("A", 1));
    EXPECT_TRUE(put(container, u"c", std::string(4096, 'c')));
    EXPECT_EQ(capacity(u"a") + capacity(u"b") + capacity(u"c"), "409640968192");
    EXPECT_EQ(get(container, u"a") + get(container, u"b"), "AB");
    EXPECT_FALSE(container.CreateFileW(u"a", CFile::createNew));
    EXPECT_FALSE(container.CreateFileW(u"x", CFile::openExisting));
    EXPECT_FALSE(container.CreateFileW(u"/", CFile::createNew));
    const auto b = container.CreateFileW(u"b", CFile::openExisting | CFile::append);
    EXPECT_EQ(b->GetPosition(), 1);
    EXPECT_TRUE(container.DeleteFileW(u"a"));
    EXPECT_TRUE(container.DeleteFileW(u"a"));
    EXPECT_TRUE(b->WriteBytes("b", 1));
    EXPECT_EQ(get(container, u"b"), "Bb");
    const auto gone = container.CreateFileW(u"b", CFile::openExisting);
    EXPECT_TRUE(container.DeleteFileW(u"b"));
    EXPECT_EQ(gone->Write("x", 1), 0u);
    EXPECT_EQ(gone->GetSize(), 0);
    const auto left = container.CreateFileW(u"c", CFile::openExisting);
    container.Close();
    EXPECT_EQ(left->GetBYTE(), 0);
    EXPECT_EQ(container.CreateFileW(u"c", CFile::openExisting), nullptr);
    ASSERT_TRUE(container.Open(path.c_str(), true));
    EXPECT_EQ(get(container, u"c"), std::string(4096, 'c'));
    EXPECT_FALSE(container.DeleteFileW(u"c"));
    EXPECT_FALSE(container.CreateFileW(u"new", CFile::createNew));
    EXPECT_FALSE(container.CreateDirectoryW(u"d", true));
}

TEST_F(CDFileSystem, NamesWithSeparatorsShowAsDirectories) {
    Container container;
    ASSERT_TRUE(container.Create(path.c_str(), false));
    for (const char16_t* name : {u"frames/1.saf", u"readme", u"frames/deep/2.saf", u"FRAMES/3.saf"}) {
        EXPECT_TRUE(put(container, name, "x"));
    }
    const auto names = [&](const char16_t* directory, const char16_t* pattern) {
        std::string all;
        for (const auto& each : container.GetDirectoryListing(directory, pattern).entries) {
            all += std::string(CStringMB(each.name).c_str()) + (each.type == IFileSystem::typeDirectory ? "/ " : " ");
        }
        return all;
    };
    EXPECT_EQ(names(nullptr, nullptr), "frames/ readme ");
    EXPECT_EQ(names(u"/Frames/", nullptr), "1.saf deep/ 3.saf ");
    EXPECT_EQ(names(u"frames", u"*.saf"), "1.saf 3.saf ");
    EXPECT_TRUE(container.IsDirectory(u"frames/../frames/deep"));
    EXPECT_FALSE(container.IsDirectory(u"frames/1.saf"));
    EXPECT_TRUE(container.IsFile(u"/frames/1.saf"));
}

TEST_F(CDFileSystem, AHostileTableIsHarmless) {
    const std::string start("CDFS\0\0", 6), root = entry("/", "/", 1, 9000, 0, "0", "4096");
    Container container;
    const auto write = [&](const std::string& entries, uint32_t count, const std::string& first) {
        container.Close();
        writeFile(path, padded(start + first + number(count, 4) + entries, 4096) + padded("hello", 4096) +
                            padded("other", 4096) + std::string(8, '\0') + "CDFSFOOT");
    };
    const std::string good = entry("o", "/o", 2, 5, 0, "8192", "4096");
    for (const char* unreachable : {"/../x", "//x", "/x/./y", "x", "", "/", "/x/", "/x\\y"}) {
        write(entry("x", unreachable, 2, 5, 0, "4096", "4096") + good, 2, root);
        ASSERT_TRUE(container.Open(path.c_str(), true));
        const auto listing = container.GetDirectoryListing(nullptr, nullptr);
        ASSERT_EQ(listing.entries.size(), 1u) << unreachable;
        EXPECT_EQ(CString(listing.entries.ConstGetItem(0).path), CString(u"/o"));
    }
    // One that could not be read again is not written, and its root is not that of the next container.
    const auto third = [](std::string from) {
        from.replace(from.find(text("Offset")) - 4, 4, number(3, 4));
        return from + text("k") + text("v");
    };
    for (const bool inRoot : {false, true}) {
        write(inRoot ? good : third(good), 1, inRoot ? third(root) : root);
        const std::string bytes = readFile(path);
        EXPECT_FALSE(container.Open(path.c_str(), false));
        EXPECT_TRUE(readFile(path) == bytes);
        EXPECT_TRUE(container.Open(path.c_str(), true));
        EXPECT_EQ(get(container, u"o"), "other");
    }
    const CString fresh = folder.path(u"fresh.cdfs");
    ASSERT_TRUE(container.Create(fresh.c_str(), false));
    EXPECT_TRUE(put(container, u"a", "1"));
    container.Close();
    EXPECT_TRUE(container.Open(fresh.c_str(), false));
    // Sizes beyond the room, of the table and of a file, do not run over the next file.
    write(entry("h", "/h", 2, 6000, 0, "4096", "4096") + good, 2, root);
    ASSERT_TRUE(container.Open(path.c_str(), false));
    const std::string name(250, 'n');
    for (int i = 0; i < 12; ++i) EXPECT_TRUE(put(container, CString((name + std::to_string(i)).c_str()), "n"));
    const auto h = container.CreateFileW(u"h", CFile::openExisting);
    h->SetPosition(4090);
    EXPECT_TRUE(h->WriteBytes("0123456789", 10));
    container.Close();
    ASSERT_TRUE(container.Open(path.c_str(), true));
    EXPECT_EQ(get(container, u"o"), "other");
    EXPECT_EQ(get(container, u"h").substr(4090, 10), "0123456789");
    // A path has 259 characters at most, also in a table.
    write(entry("n", "/" + std::string(300, 'n'), 2, 5, 0, "4096", "4096"), 1, root);
    EXPECT_FALSE(container.Open(path.c_str(), false));
    ASSERT_TRUE(container.Open(fresh.c_str(), false));
    EXPECT_TRUE(container.CreateFileW(CString(std::string(258, 'm').c_str()).c_str(), CFile::createNew));
    EXPECT_FALSE(container.CreateFileW(CString(std::string(259, 'm').c_str()).c_str(), CFile::createNew));
    EXPECT_FALSE(container.CreateFileW(u"a", CFile::openExisting)->SetSize(INT64_MAX - 8192));
    // Of two files of one name the first counts, as long as it is there.
    write(good + good, 2, root);
    ASSERT_TRUE(container.Open(path.c_str(), false));
    EXPECT_TRUE(container.DeleteFileW(u"o"));
    EXPECT_EQ(get(container, u"o"), "other");
    EXPECT_TRUE(container.DeleteFileW(u"o"));
    EXPECT_FALSE(container.FileExists(u"o"));
    // What lies far out can be looked at; a footer behind it would make a file of that size.
    write(entry("x", "/x", 2, 0, 0, "1152921504606846976", "0") + good, 2, root);
    EXPECT_FALSE(container.Open(path.c_str(), false));
    ASSERT_TRUE(container.Open(path.c_str(), true));
    EXPECT_EQ(get(container, u"o"), "other");
}

TEST_F(CDFileSystem, ATableThatGrowsIsWrittenUntilItIsRight) {
    // The offsets of the second save have more digits, for which the table grows once more.
    for (const int files : {38, 3000, 5000}) {
        const CString many = folder.path(CString::FromFormat(u"%d.cdfs", files).c_str());
        Container container;
        ASSERT_TRUE(container.Create(many.c_str(), false));
        std::vector<TSharedPtr<IFile>> kept;
        for (int i = 0; i < files; ++i) {
            kept.push_back(container.CreateFileW(CString::FromFormat(u"f%05d", i).c_str(), CFile::createNew));
        }
        container.Close();
        ASSERT_TRUE(container.Open(many.c_str(), true)) << files;
        EXPECT_EQ(container.GetDirectoryListing(u"/", nullptr).entries.size(), static_cast<size_t>(files));
    }
}

TEST(CDFileSystemThread, FilesMayBeUsedFromSeveralThreads) {
    const TempFolder folder;
    const CString path = folder.path(u"c.cdfs");
    Container container;
    ASSERT_TRUE(container.Create(path.c_str(), false));
    constexpr int rounds = 40, bytes = 300;  // each file grows past its room while the other one does
    const auto work = [&container](char name) {
        const char16_t file[] = {static_cast<char16_t>(name), 0}, passing[] = {u'p', static_cast<char16_t>(name), 0};
        const std::string block(bytes, name);
        for (int i = 0; i < rounds; ++i) {
            const auto own = container.CreateFileW(file, CFile::append | CFile::accessWrite);
            ASSERT_TRUE(own && own->WriteBytes(block.data(), bytes));
            ASSERT_TRUE(container.CreateFileW(passing, CFile::createNew));
            ASSERT_TRUE(container.DeleteFileW(passing));
            ASSERT_GE(container.GetDirectoryListing(u"/", nullptr).entries.size(), 1u);
        }
    };
    std::thread a(work, 'a'), b(work, 'b');
    a.join();
    b.join();
    container.Close();
    ASSERT_TRUE(container.Open(path.c_str(), true));
    for (const char name : {'a', 'b'}) {
        const auto file = container.CreateFileW(CString(std::string(1, name).c_str()).c_str(), CFile::openExisting);
        std::string text(size_t{rounds} * bytes, '\0');
        ASSERT_TRUE(file && file->GetSize() == rounds * bytes && file->ReadBytes(text.data(), rounds * bytes));
        EXPECT_EQ(text, std::string(size_t{rounds} * bytes, name));
    }
}

/// One host in memory, on a disk that fails.
class OneHost : public CFlatFileSystem {
public:
    explicit OneHost(const std::string& bytes) : inner(memoryFile(bytes)) {
        CDirectoryEntry host;
        StrCpy(host.path, u"/c", pathChars);
        host.type = typeFile;
        addEntry(host);
    }
    TSharedPtr<IFile> CreateFileW(const char16_t*, uint32_t) override {
        inner->SeekToBegin();
        return TSharedPtr<IFile>(&file, TSharedPtr<IFile>::notOwned());
    }
    bool DeleteFileW(const char16_t*) override { return false; }

    TSharedPtr<IFile> inner;
    FaultyFile file{inner};
};

/// Grows the first file and adds ones with long names, so that the table outgrows its room; then closes.
void change(OneHost& host) {
    Container container;
    if (!container.Open(&host, u"c", false)) return;
    const std::string more(5000, 'A'), name(200, 'n');
    {
        const auto a = container.CreateFileW(u"a", CFile::openExisting);
        (void)a->Write(more.data(), 5000);
        (void)container.DeleteFileW(u"gone");
        std::vector<TSharedPtr<IFile>> open;  // closing one writes the table
        for (int i = 0; i < 9; ++i) {
            const auto& file = open.emplace_back(
                container.CreateFileW(CString((name + std::to_string(i)).c_str()).c_str(), CFile::createNew));
            if (file) (void)file->Write("new", 3);
        }
    }
}

TEST_F(CDFileSystem, AFullOrFailingDiskLosesNoOtherFile) {
    writeFile(path, std::string(1000, 'h'));
    Container container;
    ASSERT_TRUE(container.Create(path.c_str(), true));
    for (const char16_t* name : {u"a", u"b", u"gone", u"c"}) EXPECT_TRUE(put(container, name, "old"));
    container.Close();
    const std::string before = readFile(path);
    const auto check = [&](OneHost& host) {
        host.file.failAt(UINT64_MAX / 2, FaultyFile::Fault::fails);
        ASSERT_EQ(bytesOf(*host.inner).substr(0, 1000), std::string(1000, 'h'));
        ASSERT_TRUE(container.Open(&host, u"c", true));
        EXPECT_EQ(get(container, u"b") + get(container, u"c"), "oldold");
        container.Close();
    };
    for (int64_t room = 0; room <= 60'000 && !HasFailure(); room += 500) {
        SCOPED_TRACE(room);
        OneHost host(before);
        host.file.limitSize(static_cast<int64_t>(before.size()) + room);
        change(host);
        check(host);
    }
    // A single failure, of which the next flush knows.
    for (uint64_t n = 1; !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        OneHost host(before);
        host.file.failAt(n, FaultyFile::Fault::fails);
        change(host);
        const bool failed = host.file.hasFailed();
        check(host);
        if (!failed) break;
    }
}

/// Random writes, growths and deletions, also of a table beyond its first 4096 bytes, against plain strings.
TEST_F(CDFileSystem, KeepsEveryByteThroughAnyOperations) {
    std::mt19937 random(11);
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    std::map<std::string, std::string> model;
    Container container;
    writeFile(path, std::string(777, 'h'));
    ASSERT_TRUE(container.Create(path.c_str(), true));
    for (int step = 0; step < 400; ++step) {
        const std::string name = "/folder/file " + std::to_string(pick(60));
        const CString wide(name.c_str());
        std::string& known = model[name];
        switch (pick(8)) {
            case 0:
                EXPECT_TRUE(container.DeleteFileW(wide.c_str()));
                model.erase(name);
                break;
            case 1: {
                const auto file = container.CreateFileW(wide.c_str(), CFile::openOrCreate);
                const uint32_t size = pick(9000);
                EXPECT_TRUE(file->SetSize(size));
                // What a file is given behind its old end is whatever stood there.
                const size_t old = known.size();
                known.resize(size);
                if (size > old) {
                    file->SetPosition(static_cast<int64_t>(old));
                    EXPECT_TRUE(file->WriteZeros(static_cast<uint32_t>(size - old)));
                }
                break;
            }
            case 2:
                if (pick(10) != 0) break;
                container.Close();
                ASSERT_TRUE(container.Open(path.c_str(), false));
                break;
            default: {
                const auto file = container.CreateFileW(wide.c_str(), CFile::openOrCreate);
                const uint32_t at = pick(static_cast<uint32_t>(known.size()) + 1), count = pick(5000);
                const std::string bytes(count, static_cast<char>('a' + step % 26));
                file->SetPosition(at);
                EXPECT_TRUE(file->WriteBytes(bytes.data(), count));
                known.resize(std::max<size_t>(known.size(), at + count));
                known.replace(at, count, bytes);
            }
        }
        if (model.contains(name) && known.empty() && !container.IsFile(wide.c_str())) model.erase(name);
        if (step % 100 == 99) {
            for (const auto& [each, bytes] : model) ASSERT_EQ(get(container, CString(each.c_str())), bytes) << step;
        }
    }
    container.Close();
    ASSERT_TRUE(container.Open(path.c_str(), true));
    EXPECT_EQ(container.GetDirectoryListing(u"folder", nullptr).entries.size(), model.size());
    for (const auto& [each, bytes] : model) EXPECT_EQ(get(container, CString(each.c_str())), bytes);
    EXPECT_EQ(readFile(path).substr(0, 777), std::string(777, 'h'));
}

}  // namespace
}  // namespace qv::test
