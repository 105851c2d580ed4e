// CDateTime: an instant with the calendar to show it in.
#pragma once

#include <compare>
#include <cstdint>

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// An instant and the offset from UTC in which its calendar fields are read.
///
/// The instant counts ticks of 100 ns since 1601-01-01 00:00 UTC (the FILETIME of file information), in the proleptic
/// Gregorian calendar without leap seconds; years 1601 to 9999. Two values compare by their instants alone, so the
/// same moment in two zones is equal.
/// The default value is the instant 0.
/// Bitwise relocatable; no locks.
class QV_API CDateTime {
public:
    /// A tick is 100 ns.
    static constexpr int64_t ticksPerSecond = 10'000'000;

    CDateTime() = default;

    /// The present moment, in the machine's local time or in UTC.
    static CDateTime Now();
    static CDateTime UtcNow();

    /// From and to the 64-bit FILETIME. A value made from one reads in UTC. Ticks past year 9999 give the last moment
    /// of that year.
    static CDateTime FromFileTime(uint64_t ticks);
    uint64_t ToFileTime() const { return static_cast<uint64_t>(m_ticks); }

    /// From calendar fields in UTC, in local time, or at a fixed offset in minutes east of UTC.
    /// @return  The instant 0 (with a diagnostic) when a field is outside its range or the date does not exist.
    static CDateTime FromUtc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                             int millisecond = 0);
    /// A local time that the clock shows twice or skips (change to or from summer time) takes one of the two offsets.
    static CDateTime FromLocal(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                               int millisecond = 0);
    static CDateTime FromFields(int offsetMinutes, int year, int month, int day, int hour = 0, int minute = 0,
                                int second = 0, int millisecond = 0);

    /// The same instant, read in UTC or in the machine's local time.
    CDateTime ToUtc() const;
    CDateTime ToLocal() const;

    /// Calendar fields, read at the value's own offset.
    int GetYear() const;
    int GetMonth() const;  ///< 1 to 12.
    int GetDay() const;    ///< 1 to 31.
    int GetHour() const;   ///< 0 to 23.
    int GetMinute() const;
    int GetSecond() const;
    int GetMillisecond() const;
    /// 0 is Sunday.
    int GetDayOfWeek() const;
    /// Minutes east of UTC in which the fields above are read.
    int GetOffsetMinutes() const { return m_offsetMinutes; }

    /// Text by a pattern. Each number is padded with zeros to its width:
    ///   %Y year, 4        %y year, 2         %m month, 2      %d %D day, 2
    ///   %H hour, 2        %I 12 hour, 2      %M minute, 2     %S second, 2      %L millisecond, 3
    ///   %B %b month's name      %A %a day's name      %p AM or PM      %z offset, "+0200"      %% a percent sign
    /// Names are English; the small letter cuts them to three. What is no conversion is copied.
    /// @param limit  The most characters that the text may have; -1 for no limit.
    CString Format(const char16_t* pattern, int limit = -1) const;

    /// ISO 8601: "2024-05-06T07:08:09.123Z", or with "+02:00" in place of Z.
    CString ToISOString() const;

    /// Reads ISO 8601 text: a date, then optionally `T` or a blank and a time (seconds and fraction optional), then
    /// optionally `Z` or an offset. Without an offset the time is local. Digits of the fraction past the seventh are
    /// dropped.
    /// @return  False, the value left as it was, when the text has any other form or names no real date.
    bool FromISOString(const CString& text);

    /// By the instant alone.
    friend bool operator==(const CDateTime& a, const CDateTime& b) { return a.m_ticks == b.m_ticks; }
    friend std::strong_ordering operator<=>(const CDateTime& a, const CDateTime& b) { return a.m_ticks <=> b.m_ticks; }

private:
    int64_t m_ticks = 0;
    int32_t m_offsetMinutes = 0;
};

}  // namespace qv
