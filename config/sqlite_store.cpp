#include "qv/sqlite_store.h"

#include <sqlite3.h>

#include <string>
#include <string_view>
#include <utility>

#include "core/text.h"
#include "files/native_path.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"

namespace qv {

namespace {

constexpr int busyMilliseconds = 5000;
constexpr int64_t applicationId = 0x71767374;
constexpr int64_t userVersion = 1;
constexpr char createTable[] =
    "CREATE TABLE setting(place INTEGER PRIMARY KEY, key TEXT NOT NULL UNIQUE, path TEXT NOT NULL, type TEXT NOT NULL,"
    " value TEXT NOT NULL);"
    "PRAGMA application_id = 1903588212; PRAGMA user_version = 1;";
static_assert(applicationId == 1903588212);

/// Paths compare by their units in lower case.
std::string keyOf(std::u16string_view path) {
    std::u16string lower(path);
    for (char16_t& unit : lower) unit = text::toLower(unit);
    return text::toUtf8(lower);
}

/// A prepared statement.
class Statement {
public:
    Statement(sqlite3* database, const char* sql) {
        (void)sqlite3_prepare_v2(database, sql, -1, &m_statement, nullptr);
    }
    ~Statement() { (void)sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// The text has to live until the statement has run.
    Statement& bind(int index, std::string_view text) {
        m_bound = m_bound && sqlite3_bind_text64(m_statement, index, text.data(), text.size(), SQLITE_STATIC,
                                                 SQLITE_UTF8) == SQLITE_OK;
        return *this;
    }
    /// SQLITE_ROW, SQLITE_DONE or an error.
    int step() { return m_bound ? sqlite3_step(m_statement) : SQLITE_NOMEM; }
    /// Runs a statement without a result.
    bool run() {
        const int result = step();
        (void)sqlite3_reset(m_statement);
        m_bound = true;
        return result == SQLITE_DONE;
    }
    int64_t integer(int column) { return sqlite3_column_int64(m_statement, column); }
    CString text(int column) {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
        const int count = sqlite3_column_bytes(m_statement, column);
        return bytes == nullptr ? CString(u"") : CString(text::toUtf16({bytes, static_cast<size_t>(count)}));
    }

private:
    sqlite3_stmt* m_statement = nullptr;
    bool m_bound = true;
};

/// A name that SQLite takes for a file: no name, ":memory:" or "file:..." would be a database that goes when it is
/// closed.
std::string fileName(const CString& path) {
    const std::string name = Private::nativePath(path.c_str());
    return name.starts_with('/') ? name : "./" + name;
}

}  // namespace

/// An open database on the disk.
class CsqliteStore::Database {
public:
    Database(const CString& path, bool create) : m_path(path) {
        const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) | SQLITE_OPEN_NOMUTEX;
        m_open = sqlite3_open_v2(fileName(path).c_str(), &m_handle, flags, nullptr) == SQLITE_OK;
        if (!m_open) {
            refuse(u"a database that opens");
            return;
        }
        (void)sqlite3_extended_result_codes(m_handle, 1);
        (void)sqlite3_busy_timeout(m_handle, busyMilliseconds);
    }
    ~Database() { (void)sqlite3_close(m_handle); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    bool isOpen() const { return m_open; }
    /// The file no longer stands under its name: it was removed, or another one took its place.
    bool hasMoved() {
        int moved = 0;
        return sqlite3_file_control(m_handle, "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved != 0;
    }

    /// Inside a transaction: refuses what is not this store's. An empty database gets the table, or, when this is only
    /// to read, has no settings.
    bool prepare(bool toWrite) {
        int64_t objects = 0, id = 0, version = 0, tables = 0;
        if (!ask("SELECT count(*) FROM sqlite_schema", objects) || !ask("PRAGMA application_id", id) ||
            !ask("PRAGMA user_version", version)) {
            return refuse(u"a SQLite database");
        }
        m_empty = objects == 0 && id == 0 && version == 0 && !toWrite;
        if (m_empty) return true;
        if (objects == 0 && id == 0 && version == 0) return execute(createTable) || refuse(u"a table for the settings");
        // A view in the table's place, or a trigger, would answer in the settings' name.
        const char* const ours =
            "SELECT count(*) FROM pragma_table_info('setting') WHERE name IN ('place','key','path','type','value')"
            " AND EXISTS(SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = 'setting' AND rootpage > 0)"
            " AND NOT EXISTS(SELECT 1 FROM sqlite_schema WHERE type IN ('trigger', 'view'))";
        if (id == applicationId && version == userVersion && ask(ours, tables) && tables == 5) return true;
        SetDiagnostic(m_path, u"a database of settings", u"another program's database");
        return false;
    }

    /// Inside a transaction.
    bool read(CMemStore& to) {
        if (m_empty) return true;
        Statement rows(m_handle, "SELECT path, type, value FROM setting ORDER BY place");
        for (;;) {
            const int result = rows.step();
            if (result == SQLITE_DONE) return true;
            if (result != SQLITE_ROW) return refuse(u"whole rows of settings");
            CVariant::EType type = CVariant::ParseType(rows.text(1).c_str());
            if (type < CVariant::typeBool || type > CVariant::typeBlob) type = CVariant::typeString;
            (void)to.SetValue(rows.text(0), {type, rows.text(2)});
        }
    }

    bool check() {
        Statement check(m_handle, "PRAGMA quick_check(1)");
        return (check.step() == SQLITE_ROW && check.text(0) == u"ok") || refuse(u"an undamaged database");
    }

    bool apply(const std::vector<SChange>& changes) {
        Statement set(
            m_handle,
            "INSERT INTO setting(key, path, type, value) VALUES(?1, ?2, ?3, ?4) ON CONFLICT(key) DO UPDATE SET"
            " type = excluded.type, value = excluded.value");
        Statement removeValue(m_handle, "DELETE FROM setting WHERE key = ?1");
        Statement removeBelow(m_handle, "DELETE FROM setting WHERE key >= ?1 AND key < ?2");
        Statement removeAll(m_handle, "DELETE FROM setting");
        for (const SChange& change : changes) {
            const std::string key = keyOf(change.path);
            const std::string path = text::toUtf8(change.path.view()), value = text::toUtf8(change.value.text.view());
            const std::string type = text::toUtf8(CVariant::TypeToString(change.value.type).view());
            bool done = true;
            if (change.parts == 0) {
                done = set.bind(1, key).bind(2, path).bind(3, type).bind(4, value).run();
            }
            if ((change.parts & partValue) != 0) done = removeValue.bind(1, key).run();
            if ((change.parts & partChildren) != 0 && done) {
                // '0' comes behind '/'.
                done = key.empty() ? removeAll.run() : removeBelow.bind(1, key + '/').bind(2, key + '0').run();
            }
            if (!done) return refuse(u"room for the settings");
        }
        return true;
    }

    bool clear() { return execute("DELETE FROM setting") || refuse(u"settings that can be replaced"); }
    bool begin() { return execute("BEGIN IMMEDIATE") || refuse(u"a database that can be written to"); }
    bool beginReading() { return execute("BEGIN") || refuse(u"a database that can be read"); }
    bool commit() { return execute("COMMIT") || refuse(u"a database that keeps what was written"); }
    void rollBack() { (void)execute("ROLLBACK"); }

private:
    bool execute(const char* sql) { return sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }
    bool ask(const char* sql, int64_t& answer) {
        Statement statement(m_handle, sql);
        if (statement.step() != SQLITE_ROW) return false;
        answer = statement.integer(0);
        return true;
    }
    bool refuse(const char16_t* expected) {
        const char* why = m_handle == nullptr ? "no memory" : sqlite3_errmsg(m_handle);
        SetDiagnostic(m_path, expected, CString(text::toUtf16(why)));
        return false;
    }

    CString m_path;
    sqlite3* m_handle = nullptr;
    bool m_open = false;
    bool m_empty = false;
};

CsqliteStore::CsqliteStore() = default;
CsqliteStore::~CsqliteStore() = default;

bool CsqliteStore::Load(const char16_t* path) {
    m_database.reset();
    m_path = CString();
    settle(CMemStore());
    if (path == nullptr) return false;
    if (!fileSystem().FileExists(path)) {
        if (!fileSystem().IsDirectory(path)) m_path = path;
        SetDiagnostic(path, u"a database of settings", u"no file");
        return false;
    }
    auto database = std::make_unique<Database>(CString(path), false);
    CMemStore contents;
    if (!database->isOpen() || !database->beginReading()) return false;
    const bool read = database->prepare(false) && database->check() && database->read(contents);
    if (!read || !database->commit()) {
        database->rollBack();
        return false;
    }
    settle(contents);
    m_path = path;
    m_database = std::move(database);
    return true;
}

bool CsqliteStore::Flush() {
    if (!HasChanges()) return true;
    if (m_path.IsEmpty()) {
        SetDiagnostic(u"", u"a database that was loaded or saved", u"none");
        return false;
    }
    if (m_database != nullptr && m_database->hasMoved()) m_database.reset();
    if (m_database == nullptr) {
        auto database = std::make_unique<Database>(m_path, true);
        if (!database->isOpen()) return false;
        m_database = std::move(database);
    }
    return flushTo(*m_database, false);
}

bool CsqliteStore::Save(const char16_t* path) {
    if (path == nullptr) return false;
    auto database = std::make_unique<Database>(CString(path), true);
    if (!database->isOpen() || !flushTo(*database, true)) return false;
    m_path = path;
    m_database = std::move(database);
    return true;
}

namespace {
/// All values of a store, as changes to an empty one.
class Everything : public CJournaledStore {
public:
    explicit Everything(const IConfigStore& from) { (void)CopyFrom(from); }
    using CJournaledStore::changes;
    using CJournaledStore::SChange;
};
}  // namespace

bool CsqliteStore::flushTo(Database& database, bool replaceAll) {
    CMemStore contents;
    if (!database.begin()) return false;
    bool done = database.prepare(true);
    if (done && replaceAll) {
        done = database.clear() && database.apply(Everything(*this).changes());
    } else if (done) {
        done = database.apply(changes());
    }
    done = done && database.read(contents);
    if (!done || !database.commit()) {
        database.rollBack();
        return false;
    }
    settle(contents);
    return true;
}

}  // namespace qv
