// CsqliteStore: settings in a SQLite database.
#pragma once

#include <memory>

#include "qv/api.h"
#include "qv/journaled_store.h"

namespace qv {

/// A store kept in a SQLite 3 database on the disk. Values keep their types and the order in which they first came; a
/// section stands where the oldest value in it does.
///
/// The database: application id 0x71767374 ("qvst"), user version 1, and one table,
///     setting(place INTEGER PRIMARY KEY, key TEXT UNIQUE, path TEXT, type TEXT, value TEXT)
/// where `key` is the path in lower case, `path` its spelling, `type` a name of CVariant::TypeToString, and `value` the
/// exact text. A database with another application id, version or table is somebody else's: it is refused and never
/// written to.
/// Sharing: Flush makes this store's own changes in one transaction, so that no process loses what another one set, and
///          a change is in the database as a whole or not at all. The store then shows what the others have set, too. A
///          database that another process is writing is waited for, five seconds at most.
class QV_API CsqliteStore : public CJournaledStore {
public:
    CsqliteStore();
    ~CsqliteStore() override;

    /// Opens a database, reads it, and drops what was here before. Where there is no file, Flush makes one.
    /// @return  False, with the store empty, closed and a diagnostic, when the file is no such database or a damaged
    ///          one, or when there is no file.
    bool Load(const char16_t* path);
    /// Replaces the contents of the database at `path`, made where there is none, by this store's, in one transaction,
    /// and goes on with that one.
    bool Save(const char16_t* path);
    /// Brings the changes to the database, to a new one where the file was removed. True when there are none. False
    /// when there are and no database was named, also behind a Load that refused what it found.
    bool Flush() override;

private:
    class Database;
    bool flushTo(Database& database, bool replaceAll);

    std::unique_ptr<Database> m_database;
    CString m_path;
};

}  // namespace qv
