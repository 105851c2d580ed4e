// The stores in XML files, in the user's registry and in SQLite databases.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "config/store_conformance.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/ini_store.h"
#include "qv/reg_store.h"
#include "qv/sqlite_store.h"
#include "qv/xml_store.h"
#include "support/memory_file.h"
#include "support/temp_folder.h"

namespace qv::test {
namespace {

/// XDG_CONFIG_HOME in a folder of its own, for as long as it lives.
class ConfigHome {
public:
    ConfigHome() { setenv("XDG_CONFIG_HOME", CStringMB(m_folder.path()).c_str(), 1); }
    ~ConfigHome() { unsetenv("XDG_CONFIG_HOME"); }
    CString path(const char16_t* name) const { return m_folder.path(name); }

private:
    TempFolder m_folder;
};

class XmlUnderTest : public StoreUnderTest {
public:
    IConfigStore& store() override { return *m_store; }
    void reopen() override {
        const TSharedPtr<IFile> file = memoryFile("");
        EXPECT_TRUE(m_store->Save(file));
        file->SeekToBegin();
        m_store = std::make_unique<CXMLStore>();
        EXPECT_TRUE(m_store->Load(file));
    }

private:
    std::unique_ptr<CXMLStore> m_store = std::make_unique<CXMLStore>();
};

class RegUnderTest : public StoreUnderTest {
public:
    IConfigStore& store() override { return *m_store; }
    void reopen() override {
        EXPECT_TRUE(m_store->Flush());
        m_store = std::make_unique<CRegStore>(u"Maker/Viewer");
    }

private:
    ConfigHome m_home;
    std::unique_ptr<CRegStore> m_store = std::make_unique<CRegStore>(u"Maker/Viewer");
};

class SqliteUnderTest : public StoreUnderTest {
public:
    SqliteUnderTest() { EXPECT_FALSE(m_store->Load(m_path.c_str())); }
    IConfigStore& store() override { return *m_store; }
    void reopen() override {
        EXPECT_TRUE(m_store->Flush());
        m_store = std::make_unique<CsqliteStore>();
        EXPECT_TRUE(m_store->Load(m_path.c_str()) || !fileSystem().FileExists(m_path.c_str()));
    }

private:
    TempFolder m_folder;
    CString m_path = m_folder.path(u"settings.db");
    std::unique_ptr<CsqliteStore> m_store = std::make_unique<CsqliteStore>();
};

INSTANTIATE_TEST_SUITE_P(Shared, StoreConformance,
                         ::testing::Values(StoreKind{.name = "CXMLStore",
                                                     .make = [] { return std::make_unique<XmlUnderTest>(); },
                                                     .keepsEmptyText = false,
                                                     .keepsValuesOfSections = false,
                                                     .keepsSpaceAround = false,
                                                     .keepsSlashAtEnd = false},
                                           StoreKind{.name = "CRegStore",
                                                     .make = [] { return std::make_unique<RegUnderTest>(); },
                                                     .keepsTypes = true,
                                                     .keepsNewSpelling = false,
                                                     .order = StoreKind::orderValuesFirst},
                                           StoreKind{.name = "CsqliteStore",
                                                     .make = [] { return std::make_unique<SqliteUnderTest>(); },
                                                     .keepsTypes = true,
                                                     .order = StoreKind::orderNone}),
                         nameOfStore);

TEST(XmlStore, ReadsAndWritesItsForm) {
    CXMLStore store;
    store.SetInt32(u"view/zoom", 4);
    store.SetString(u"view/palette", u"a<b");
    store.SetBool(u"full", true);
    store.SetString(u"view", u"lost: entries stand below");
    const TSharedPtr<IFile> file = memoryFile("");
    ASSERT_TRUE(store.Save(file));
    EXPECT_EQ(bytesOf(*file),
              "<store>\r\n\t<entry name=\"view\">\r\n\t\t<entry name=\"zoom\">4</entry>\r\n"
              "\t\t<entry name=\"palette\">a&lt;b</entry>\r\n\t</entry>\r\n\t<entry name=\"full\">true</entry>\r\n"
              "</store>\r\n");

    CXMLStore loaded;
    loaded.SetInt32(u"old", 1);
    ASSERT_TRUE(
        loaded.Load(memoryFile("<?xml version=\"1.0\"?><other/><STORE><Entry Name='a'>1<entry name='b'>2</entry>"
                               "<junk name='c'>3</junk></Entry></STORE><store><entry name='d'>4</entry></store>")));
    EXPECT_FALSE(loaded.Exists(u"old"));
    EXPECT_EQ(loaded.GetInt32(u"a"), 1);
    EXPECT_EQ(loaded.GetInt32(u"a/b"), 2);
    EXPECT_FALSE(loaded.Exists(u"a/c") || loaded.Exists(u"d"));
    EXPECT_FALSE(loaded.Load(memoryFile("<stores/>")) || loaded.Load(memoryFile("<store>")));
    EXPECT_TRUE(loaded.Exists(u"a"));
    std::string deep;
    for (int i = 0; i < 3000; ++i) deep += "<entry name='x'>";
    for (int i = 0; i < 3000; ++i) deep += "</entry>";
    EXPECT_TRUE(loaded.Load(memoryFile("<store>" + deep + "</store>")));
}

/// A store whose save finds no room for all of it says so and leaves the old file.
template <class Store>
void expectTheOldFileWithoutRoom() {
    const TempFolder folder;
    const CString path = folder.path(u"settings");
    Store store, back;
    store.SetInt32(u"a", 1);
    ASSERT_TRUE(store.Save(path.c_str()));
    store.SetString(u"b", CString(size_t{1} << 20, u'x'));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{1 << 16, before.rlim_max};
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    ClearDiagnostic();
    const bool saved = store.Save(path.c_str());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(saved);
    EXPECT_EQ(LastDiagnostic().found, u"File too large");
    EXPECT_TRUE(back.Load(path.c_str()) && back.GetInt32(u"a") == 1 && !back.HasValue(u"b"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(CStringMB(folder.path()).c_str()), {}), 1);
}

TEST(TextStores, KeepTheOldFileWhenThereIsNoRoom) {
    expectTheOldFileWithoutRoom<CXMLStore>();
    expectTheOldFileWithoutRoom<CINIStore>();
}

/// Several processes set values of their own in one store at once; none is lost.
template <class Open>
void expectNoLostWrite(Open open) {
    constexpr int processes = 4, rounds = 25;
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        const pid_t child = fork();
        if (child != 0) {
            children.push_back(child);
            continue;
        }
        auto store = open();
        bool done = true;
        for (int round = 0; round < rounds; ++round) {
            done = store->SetInt32(CString::FromFormat(u"p%d/v%d", process, round), round) &&
                   store->SetInt32(u"last", process) && store->Flush() && done;
        }
        _exit(done ? 0 : 1);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    auto store = open();
    for (int process = 0; process < processes; ++process) {
        EXPECT_EQ(store->GetChildren(CString::FromFormat(u"p%d", process)).size(), static_cast<uint32_t>(rounds));
    }
}

TEST(RegStore, LosesNoWriteOfAnotherProcess) {
    const ConfigHome home;
    expectNoLostWrite([] { return std::make_unique<CRegStore>(u"Maker/Shared"); });
    CRegStore store(u"Maker/Shared");
    EXPECT_EQ(store.GetFile(), home.path(u"qv/registry/Maker/Shared.ini"));
    EXPECT_EQ(std::filesystem::status(CStringMB(home.path(u"qv/registry")).c_str()).permissions(),
              std::filesystem::perms::owner_all);
    for (const char16_t* key : {u"", u"/", u"a/../b", u".."}) {
        CRegStore refused(key);
        EXPECT_TRUE(refused.SetInt32(u"x", 1));
        EXPECT_FALSE(refused.Flush()) << CStringMB(CString(key)).c_str();
    }
    // What stands in the lock's place is no holder to be waited for.
    ASSERT_TRUE(fileSystem().CreateDirectoryW(home.path(u"qv/registry/Maker/Barred.ini.lock").c_str(), true));
    CRegStore barred(u"Maker/Barred");
    barred.SetInt32(u"x", 1);
    EXPECT_FALSE(barred.Flush());
    EXPECT_EQ(LastDiagnostic().found, u"Is a directory");
}

TEST(RegStore, AFlushRemovesWhatAKilledOneLeftAndNothingElse) {
    const ConfigHome home;
    CRegStore store(u"k");
    const auto sibling = [&store](const char* name) {
        std::filesystem::path path(CStringMB(store.GetFile()).c_str());
        return path += name;
    };
    store.SetInt32(u"x", 1);
    ClearDiagnostic();
    ASSERT_TRUE(store.Flush());
    EXPECT_FALSE(LastDiagnostic().IsSet()) << "no failure";
    const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(2);
    for (const char* name : {".0123abcd.tmp", ".89abcdef.tmp", ".0123abcD.tmp", ".0123abcd.tmp2", "0.0123abcd.tmp"}) {
        std::ofstream(sibling(name)) << "x";
        if (name != std::string(".89abcdef.tmp")) std::filesystem::last_write_time(sibling(name), longAgo);
    }
    store.SetInt32(u"x", 2);
    ASSERT_TRUE(store.Flush());
    EXPECT_FALSE(std::filesystem::exists(sibling(".0123abcd.tmp")));
    for (const char* name : {"", ".lock", ".89abcdef.tmp", ".0123abcD.tmp", ".0123abcd.tmp2", "0.0123abcd.tmp"}) {
        EXPECT_TRUE(std::filesystem::exists(sibling(name))) << name;
    }
}

TEST(SqliteStore, LosesNoWriteOfAnotherProcess) {
    const TempFolder folder;
    const CString path = folder.path(u"shared.db");
    expectNoLostWrite([&path] {
        auto store = std::make_unique<CsqliteStore>();
        (void)store->Load(path.c_str());
        return store;
    });
}

TEST(SqliteStore, FollowsItsNameWhenTheFileIsReplaced) {
    const TempFolder folder;
    const CString path = folder.path(u"a.db");
    CsqliteStore store, other, back;
    store.SetInt32(u"x", 1);
    ASSERT_TRUE(store.Save(path.c_str()));
    ASSERT_TRUE(fileSystem().DeleteFileW(path.c_str()));
    other.SetInt32(u"y", 2);
    ASSERT_TRUE(other.Save(path.c_str()));
    for (const int value : {3, 4}) store.SetInt32(u"z", value);  // One change.
    EXPECT_TRUE(store.Flush());
    EXPECT_FALSE(store.HasChanges());
    ASSERT_TRUE(back.Load(path.c_str()));
    EXPECT_EQ(back.GetInt32(u"y") * 10 + back.GetInt32(u"z"), 24);
    store.SetInt32(u"z", 5);
    store.RemoveSection(u"");
    store.SetInt32(u"z", 6);
    EXPECT_TRUE(store.Flush());
    ASSERT_TRUE(back.Load(path.c_str()));
    EXPECT_EQ(back.GetInt32(u"z"), 6);
    EXPECT_FALSE(back.HasValue(u"y"));
}

TEST(SqliteStore, TakesNoCodeFromADatabase) {
    const TempFolder folder;
    const CString path = folder.path(u"a.db");
    const struct {
        const char* sql;
        bool taken;
    } changes[] = {
        {"ANALYZE", true},
        {"CREATE TRIGGER eats AFTER INSERT ON setting BEGIN DELETE FROM setting; END", false},
        {"DROP TRIGGER eats; DROP TABLE setting; CREATE VIEW setting(place, key, path, type, value) AS"
         " SELECT 1, 'a', 'a', 'Int32', '666'",
         false},
    };
    CsqliteStore store;
    store.SetInt32(u"a", 1);
    ASSERT_TRUE(store.Save(path.c_str()));
    for (const auto& change : changes) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(CStringMB(path).c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, change.sql, nullptr, nullptr, nullptr), SQLITE_OK) << change.sql;
        sqlite3_close(database);
        CsqliteStore changed;
        EXPECT_EQ(changed.Load(path.c_str()), change.taken) << change.sql;
        EXPECT_EQ(changed.GetInt32(u"a"), change.taken ? 1 : 0) << change.sql;
        store.SetInt32(u"b", 2);
        EXPECT_EQ(store.Flush(), change.taken) << change.sql;
    }
}

TEST(SqliteStore, LeavesWhatIsNotItsOwnAlone) {
    const TempFolder folder;
    const auto make = [&folder](const char16_t* name, const std::string& bytes) {
        const CString path = folder.path(name);
        fileSystem()
            .CreateFileW(path.c_str(), CFile::createTruncate | CFile::accessWrite)
            ->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
        return path;
    };
    const auto bytes = [](const CString& path) {
        return bytesOf(*fileSystem().CreateFileW(path.c_str(), CFile::openExisting | CFile::accessRead));
    };
    const CString own = folder.path(u"own.db");
    CsqliteStore store;
    for (int i = 0; i < 2000; ++i) store.SetInt32(CString::FromFormat(u"some/section/value%d", i), i);
    ASSERT_TRUE(store.Save(own.c_str()));
    const std::string good = bytes(own);
    std::string otherId = good, torn = good, broken = good;
    otherId[68] = 1;                           // The application id.
    torn.resize(torn.size() / 2);              // Pages are missing.
    broken.replace(4096, 2000, 2000, '\xA5');  // A page of the table.
    const std::pair<const char16_t*, std::string> foreign[] = {
        {u"text.db", "these are not the settings that you are looking for"},
        {u"other.db", otherId},
        {u"torn.db", torn},
        {u"broken.db", broken},
    };
    for (const auto& [name, content] : foreign) {
        const CString path = make(name, content);
        CsqliteStore refused;
        ClearDiagnostic();
        EXPECT_FALSE(refused.Load(path.c_str())) << CStringMB(path).c_str();
        EXPECT_TRUE(LastDiagnostic().IsSet());
        EXPECT_TRUE(refused.GetChildren().empty());
        EXPECT_TRUE(refused.SetInt32(u"x", 1));
        EXPECT_FALSE(refused.Flush());  // No database to bring it to.
        if (content != torn && content != broken) {
            EXPECT_FALSE(refused.Save(path.c_str()));
        }
        EXPECT_TRUE(bytes(path) == content) << CStringMB(path).c_str();
    }
    // An empty file is an empty store, and stays untouched until something is flushed.
    const CString empty = make(u"empty.db", "");
    CsqliteStore fresh;
    EXPECT_TRUE(fresh.Load(empty.c_str()));
    EXPECT_EQ(bytes(empty), "");
    fresh.SetInt32(u"x", 1);
    EXPECT_TRUE(fresh.Flush());
    EXPECT_TRUE(fresh.Load(empty.c_str()) && fresh.GetInt32(u"X") == 1);
    EXPECT_FALSE(fresh.Load(folder.path().c_str()));
}

TEST(SqliteStore, IsKeptInAFileWhateverItsName) {
    const TempFolder folder;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path().c_str());
    for (const char16_t* name : {u":memory:", u"file::memory:", u"file:a.db?mode=memory", u"plain.db"}) {
        CsqliteStore store, again;
        store.SetInt32(u"x", 1);
        EXPECT_TRUE(store.Save(name));
        EXPECT_TRUE(again.Load(name) && again.GetInt32(u"x") == 1) << CStringMB(name).c_str();
        EXPECT_TRUE(std::filesystem::is_regular_file(name));
    }
    std::filesystem::current_path(before);
    CsqliteStore nameless;
    nameless.SetInt32(u"x", 1);
    ClearDiagnostic();
    EXPECT_FALSE(nameless.Save(u""));
    EXPECT_TRUE(LastDiagnostic().IsSet());
}

}  // namespace
}  // namespace qv::test
