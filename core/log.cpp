#include "qv/log.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "core/format.h"
#include "core/text.h"
#include "qv/array.h"
#include "qv/datetime.h"

namespace qv {

template class TSingletonPtr<CLog, 1, 0>;
TSingletonPtr<CLog, 1, 0> gLog;

namespace {

/// Open or create, write, append; shared for reading and writing.
constexpr uint32_t logFileFlags =
    CFile::openOrCreate | CFile::accessWrite | CFile::append | CFile::shareWrite | CFile::shareRead;
static_assert(logFileFlags == 0x361);

/// "[month-day-year hours:minutes:seconds]: " of now, valid until this thread asks again. The text is made once a
/// second and thread; it has no destructor, so it serves threads that are about to end.
std::u16string_view timeStamp() {
    constexpr int limit = 128;
    struct Stamp {
        uint64_t second;
        size_t size;
        char16_t text[limit];
    };
    static thread_local constinit Stamp stamp{};
    const CDateTime now = CDateTime::UtcNow();
    const uint64_t second = now.ToFileTime() / CDateTime::ticksPerSecond;
    if (stamp.size == 0 || second != stamp.second) {
        const CString text = now.ToLocal().Format(u"[%m-%D-%Y %H:%M:%S]: ", limit);
        stamp.size = text.view().copy(stamp.text, limit);
        stamp.second = second;
    }
    return {stamp.text, stamp.size};
}

/// What stands in front of the formatted text, and that text.
std::u16string formatted(std::u16string_view start, CString::Text fmt, Private::FormatArgs args) {
    const std::u16string_view pattern = fmt.all();
    std::u16string text;
    text.reserve(start.size() + pattern.size() + 64);
    text += start;
    text::format(text, pattern, args);
    return text;
}

/// The first `what` in [from, end), or `end`.
const char* nextOf(char what, const char* from, const char* end) {
    const void* found = std::memchr(from, what, static_cast<size_t>(end - from));
    return found == nullptr ? end : static_cast<const char*>(found);
}

/// The bytes of UTF-8 text in the log: with CR LF for every LF, CR and CR LF, and, not counted, a terminator.
class LogBytes {
public:
    /// Empty without memory.
    explicit LogBytes(std::string_view text) {
        const char *at = text.data(), *const end = at + text.size();
        const char *lf = nextOf('\n', at, end), *cr = nextOf('\r', at, end);
        if (!reserve(static_cast<size_t>(static_cast<double>(text.size()) * 1.2)) || !reserve(text.size() + 1)) return;
        for (;;) {
            const char* stop = std::min(lf, cr);
            add(at, static_cast<size_t>(stop - at));
            if (stop == end) break;
            at = stop + 1;
            // The CR of a pair is dropped: the LF behind it brings both.
            const bool pair = stop == cr && lf == at && at != end;
            // Where more than the fifth is needed, there may be as many line ends as bytes.
            const auto rest = static_cast<size_t>(end - at);
            if (m_size + 2 + rest >= m_bytes.capacity() && !reserve(m_size + 2 + 2 * rest + 1)) break;
            if (!pair) add("\r\n", 2);
            if (stop == lf) lf = nextOf('\n', at, end);
            if (stop == cr) cr = nextOf('\r', at, end);
        }
        m_bytes.data()[m_size] = 0;
    }
    const char* c_str() const { return m_bytes.data() == nullptr ? "" : m_bytes.data(); }
    uint32_t size() const { return static_cast<uint32_t>(m_size); }

private:
    bool reserve(size_t bytes) { return bytes <= 0xFFFFFFFFu && m_bytes.reserve(static_cast<uint32_t>(bytes)); }
    /// The array lends its raw memory: constructed elements would have to be cleared first.
    void add(const char* from, size_t count) {
        std::memcpy(m_bytes.data() + m_size, from, count);
        m_size += count;
    }

    TArray<char> m_bytes;
    size_t m_size = 0;
};

/// The text up to its first NUL, and what stands behind it.
LogBytes logBytes(std::u16string_view text, std::string_view end) {
    char usual[1024];
    size_t size = text::convert(text, usual, sizeof usual - end.size());
    if (size == text::noRoom) {
        std::string whole = text::toUtf8(text);
        whole.resize(std::min(whole.size(), whole.find('\0')));
        return LogBytes(whole += end);
    }
    size = std::min(size, std::string_view(usual, size).find('\0'));
    size += end.copy(usual + size, end.size());
    return LogBytes({usual, size});
}

}  // namespace

// CLog ----------------------------------------------------------------------------------------------------------------

CLog::CLog() = default;
CLog::CLog(const CLog& other) { *this = other; }
CLog::~CLog() = default;

CLog& CLog::operator=(const CLog& other) {
    if (this == &other) return *this;
    const std::scoped_lock lock(m_section, other.m_section);
    m_file = other.m_file;
    m_startUp = other.m_startUp;
    setVerbose(other.getVerbose());
    setPrintConsole(other.getPrintConsole());
    return *this;
}

bool CLog::SetFile(CString name) { return SetFile(&fileSystem(), std::move(name)); }

bool CLog::SetFile(IFileSystem* fs, CString name) {
    const std::lock_guard lock(m_section);
    if (m_file || fs == nullptr) return false;
    // When this fails the disk adds a line of its own to this log.
    TSharedPtr<IFile> file = fs->CreateFileW(name.c_str(), logFileFlags);
    if (!file) return false;
    m_file = file;
    if (m_startUp.size() != 0) {
        (void)m_file->Write(m_startUp.data(), m_startUp.size());
        m_startUp.Destroy();
    }
    flushIfRetired();
    return true;
}

void CLog::deliver(std::u16string_view text, std::string_view end) {
    const LogBytes bytes = logBytes(text, end);
    const std::lock_guard lock(m_section);
    IFile& target = m_file ? *m_file : static_cast<IFile&>(m_startUp);
    (void)target.Write(bytes.c_str(), bytes.size());
    if (getPrintConsole()) std::printf("%s", bytes.c_str());
    flushIfRetired();
}

bool CLog::WriteV(CString::Text fmt, Private::FormatArgs args) {
    deliver(formatted({}, fmt, args), {});
    return true;
}

bool CLog::WriteLineV(CString::Text fmt, Private::FormatArgs args) {
    deliver(formatted(timeStamp(), fmt, args), "\n");
    return true;
}

CLogEntry CLog::StartEntry() { return CLogEntry(this, timeStamp(), getVerbose()); }

bool CLog::setVerbose(bool verbose) {
    m_verbose.store(verbose, std::memory_order_relaxed);
    return verbose;
}

bool CLog::setPrintConsole(bool print) {
    m_printConsole.store(print, std::memory_order_relaxed);
    return print;
}

void CLog::retire() {
    const std::lock_guard lock(m_section);
    m_retired = true;
    flushIfRetired();
}

/// A CFile has handed every byte to the system already; its Flush would wait for the device.
void CLog::flushIfRetired() {
    if (m_retired && m_file && dynamic_cast<CFile*>(&*m_file) == nullptr) m_file->Flush();
}

// CLogEntry -----------------------------------------------------------------------------------------------------------

CLogEntry::CLogEntry(CLog* log, std::u16string_view start, bool verbose)
    : m_log(log), m_text(start), m_verbose(verbose) {}
CLogEntry::CLogEntry(const CLogEntry& other) = default;
CLogEntry::~CLogEntry() = default;

CLogEntry& CLogEntry::operator=(CLogEntry& other) {
    (void)Finish();
    m_text = other.m_text;
    m_verbose = other.m_verbose;
    m_log = std::exchange(other.m_log, nullptr);
    return *this;
}

void CLogEntry::add(CString::Text fmt, Private::FormatArgs args, std::u16string_view end) {
    const std::u16string more = formatted({}, fmt, args);
    const size_t wanted = m_text.length() + more.size() + end.size();
    if (wanted > m_text.capacity()) m_text.reserve(wanted + wanted / 2);
    m_text += more.c_str();  // Up to its first NUL.
    m_text += end;
}

bool CLogEntry::WriteV(CString::Text fmt, Private::FormatArgs args) {
    add(fmt, args, {});
    return true;
}

bool CLogEntry::WriteLineV(CString::Text fmt, Private::FormatArgs args) {
    add(fmt, args, u"\n");
    return true;
}

bool CLogEntry::Finish() {
    CLog* log = std::exchange(m_log, nullptr);
    return log != nullptr && log->Write(m_text);
}

}  // namespace qv

bool qvLogIsVerbose() { return qv::gLog->getVerbose(); }
bool qvLogWriteA(const char* text) { return qv::gLog->Write(u"%S", text); }
bool qvLogWriteW(const char16_t* text) { return qv::gLog->Write(u"%s", text); }
bool qvLogWriteLineA(const char* text) { return qv::gLog->WriteLine(u"%S", text); }
bool qvLogWriteLineW(const char16_t* text) { return qv::gLog->WriteLine(u"%s", text); }
