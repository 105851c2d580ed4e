// CLog: the library's one text log, reached through gLog, with CLogEntry for entries of several parts, and five C
// functions for code that does not use the classes. Start with gLog->SetFile and gLog->WriteLine.
#pragma once

#include <atomic>
#include <mutex>
#include <string_view>

#include "qv/api.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/shared_ptr.h"
#include "qv/singleton.h"
#include "qv/string.h"

namespace qv {

class CLog;

/// An entry of several parts that reaches the log in one piece, with the time at which it was started.
///
/// An entry that nobody finishes is dropped: the destructor does not deliver. It refers to its log, which has to
/// outlive it. Threads: an entry belongs to one thread.
class QV_API CLogEntry {
public:
    /// The copy has the same text and destination; both may be finished.
    CLogEntry(const CLogEntry& other);
    /// Delivers this entry's own text first when it was not delivered yet. Then takes over the other's text, flag and
    /// destination; the other has none from then on.
    CLogEntry& operator=(CLogEntry& other);
    CLogEntry& operator=(CLogEntry&& other) { return *this = other; }
    ~CLogEntry();

    /// Appends text, formatted by the rules of CString::Format; always true. WriteLine adds "\n".
    template <class... Args>
    bool Write(CString::Text fmt, const Args&... args) {
        return WriteV(fmt, Private::packArgs(args...));
    }
    template <class... Args>
    bool WriteLine(CString::Text fmt, const Args&... args) {
        return WriteLineV(fmt, Private::packArgs(args...));
    }
    /// The same with arguments packed by Private::packArgs.
    bool WriteV(CString::Text fmt, Private::FormatArgs args);
    bool WriteLineV(CString::Text fmt, Private::FormatArgs args);

    /// Delivers the text, once: a second call is false.
    /// The text is handed to CLog::Write as its format: a `%` in it is read as a conversion, which finds no argument
    /// and prints nothing ("%%" prints one percent sign).
    bool Finish();

    /// The log's flag when the entry was started.
    bool getVerbose() const { return m_verbose; }

private:
    friend class CLog;
    CLogEntry(CLog* log, std::u16string_view start, bool verbose);
    void add(CString::Text fmt, Private::FormatArgs args, std::u16string_view end);

    CLog* m_log;
    CString m_text;
    bool m_verbose;
};

/// A log of UTF-8 text with CR LF line ends, kept in memory until it is given a file.
///
/// Text:     formatted by the rules of CString::Format. LF, CR and CR LF each end a line and are stored as CR LF.
/// Memory:   what is written before SetFile succeeds is kept, without a limit, and delivered first.
/// Failure:  writing always reports true. A line that the file did not take leaves a diagnostic (LastDiagnostic).
/// Threads:  all operations from any thread. The text of one call stays in one piece, also between processes that log
///           into one file. One critical section, held for the write only, and by SetFile for the whole switch; it may
///           be entered again by the thread that holds it, so that a file system which logs may serve SetFile.
/// Exit:     gLog is never destroyed: a destructor or a thread that runs while the process ends may log, and its line
///           goes to the file. The file system behind the file has to live as long.
class QV_API CLog {
public:
    CLog();
    /// Shares the file and copies buffer and flags; the critical section is the copy's own. Two logs on one file write
    /// whole lines, but do not hold each other up.
    CLog(const CLog& other);
    CLog& operator=(const CLog& other);
    ~CLog();

    /// Opens a file for appending, shared with other readers and writers, and writes to it what was kept in memory.
    /// False when the log has a file already (which stays), and when the file cannot be opened: then text goes on being
    /// kept, and another name may be tried. The first form opens on the disk; a null file system is false.
    bool SetFile(CString name);
    bool SetFile(IFileSystem* fs, CString name);

    /// Adds text as it stands; always true.
    template <class... Args>
    bool Write(CString::Text fmt, const Args&... args) {
        return WriteV(fmt, Private::packArgs(args...));
    }
    /// Adds the local time, "[05-06-2024 07:08:09]: " (month, day, year), the text and a line end; always true.
    template <class... Args>
    bool WriteLine(CString::Text fmt, const Args&... args) {
        return WriteLineV(fmt, Private::packArgs(args...));
    }
    /// The same with arguments packed by Private::packArgs.
    bool WriteV(CString::Text fmt, Private::FormatArgs args);
    bool WriteLineV(CString::Text fmt, Private::FormatArgs args);

    /// An entry for this log, which starts with the time.
    CLogEntry StartEntry();

    /// A flag for callers to ask; it filters nothing. Setting returns the new value.
    bool getVerbose() const { return m_verbose.load(std::memory_order_relaxed); }
    bool setVerbose(bool verbose);
    /// Whether text goes to standard output as well. Setting returns the new value.
    bool getPrintConsole() const { return m_printConsole.load(std::memory_order_relaxed); }
    bool setPrintConsole(bool print);

    /// Called in place of the destructor when the process ends: from then on a file that buffers is flushed after every
    /// write, since nobody will close it.
    void retire();

private:
    void deliver(std::u16string_view text, std::string_view end);
    void flushIfRetired();

    TSharedPtr<IFile> m_file;
    CMemFile m_startUp;
    std::atomic<bool> m_verbose{false};
    std::atomic<bool> m_printConsole{false};
    mutable std::recursive_mutex m_section;
    bool m_retired = false;
};

extern template class QV_API TSingletonPtr<CLog, 1, 0, TSingletonPtrPostCreateDoNothing>;

/// The log of the process, made on first use.
extern QV_API TSingletonPtr<CLog, 1, 0, TSingletonPtrPostCreateDoNothing> gLog;

}  // namespace qv

// The log of the process for code without the classes. A and W take UTF-8 and UTF-16 text, which is written as it is:
// a `%` in it means nothing. A null pointer writes "(null)".
extern "C" {
QV_API bool qvLogIsVerbose();
/// As CLog::Write.
QV_API bool qvLogWriteA(const char* text);
QV_API bool qvLogWriteW(const char16_t* text);
/// As CLog::WriteLine.
QV_API bool qvLogWriteLineA(const char* text);
QV_API bool qvLogWriteLineW(const char16_t* text);
}
