// CRegStore: the user's registry of settings.
#pragma once

#include "qv/api.h"
#include "qv/journaled_store.h"

namespace qv {

/// Settings of the user, shared by all programs that name the same key.
///
/// On Linux each key is a file of its own, "<config>/qv/registry/<key>.ini", where <config> is XDG_CONFIG_HOME or
/// ~/.config; folders are made for this user alone. Values keep their types: a line reads `name = Int32:42`. A value
/// without such a word in front, as a person may write it, is a String.
/// Sharing: Flush takes the file's lock ("<key>.lock" beside it), reads what is there, makes this store's own changes
///          and replaces the file by renaming, so that no process loses what another one set, and a reader finds the
///          old or the new file whole. The store then shows what the others have set, too. What a process that was
///          killed in a Flush left beside the file ("<key>.ini.<digits>.tmp") goes with the first Flush an hour later.
/// Order:   the values of a section come before its sections.
class QV_API CRegStore : public CJournaledStore {
public:
    /// Opens a key: names between `/`, such as "Maker/Viewer". What cannot be read counts as empty; Load tells.
    /// A part of the key that is "." or "..", or an empty key, is refused: then every Load and Flush is false.
    explicit CRegStore(CString key);
    ~CRegStore() override;

    /// Reads the file anew and drops changes that were not flushed. True also when there is none yet.
    bool Load();
    /// Brings the changes to the file; true when there are none. False, with the changes kept and a diagnostic, when it
    /// cannot be read or written, or its lock was not had within five seconds.
    bool Flush() override;

    /// The disk file of the key; empty for a key that was refused or without a place for settings.
    const CString& GetFile() const { return m_file; }

private:
    CString m_file;
};

}  // namespace qv
