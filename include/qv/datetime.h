// CDateTime: an instant with the calendar to show it in. CTimeSpan: the way between two of them.
#pragma once

#include <compare>
#include <cstdint>

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// A span of time in ticks of 100 ns, forward or backward. Sums and counts that do not fit 64 bits (29 227 years) are
/// held at the limit. Bitwise relocatable.
class CTimeSpan {
public:
    static constexpr int64_t ticksPerMillisecond = 10'000;
    static constexpr int64_t ticksPerSecond = 1000 * ticksPerMillisecond;

    constexpr CTimeSpan() = default;
    static constexpr CTimeSpan FromTicks(int64_t ticks) { return CTimeSpan(ticks); }
    static constexpr CTimeSpan FromMilliseconds(int64_t n) { return scaled(n, ticksPerMillisecond); }
    static constexpr CTimeSpan FromSeconds(int64_t n) { return scaled(n, ticksPerSecond); }
    static constexpr CTimeSpan FromMinutes(int64_t n) { return scaled(n, 60 * ticksPerSecond); }
    static constexpr CTimeSpan FromHours(int64_t n) { return scaled(n, 3600 * ticksPerSecond); }
    static constexpr CTimeSpan FromDays(int64_t n) { return scaled(n, 86'400 * ticksPerSecond); }

    constexpr int64_t ToTicks() const { return m_ticks; }
    /// Whole milliseconds and seconds, cut towards 0.
    constexpr int64_t ToMilliseconds() const { return m_ticks / ticksPerMillisecond; }
    constexpr int64_t ToSeconds() const { return m_ticks / ticksPerSecond; }
    /// Seconds with their fraction.
    constexpr double ToRealSeconds() const { return static_cast<double>(m_ticks) / ticksPerSecond; }

    constexpr CTimeSpan operator-() const { return CTimeSpan(m_ticks == lowest ? highest : -m_ticks); }
    friend constexpr CTimeSpan operator+(CTimeSpan a, CTimeSpan b) {
        if (b.m_ticks > 0 && a.m_ticks > highest - b.m_ticks) return CTimeSpan(highest);
        if (b.m_ticks < 0 && a.m_ticks < lowest - b.m_ticks) return CTimeSpan(lowest);
        return CTimeSpan(a.m_ticks + b.m_ticks);
    }
    friend constexpr CTimeSpan operator-(CTimeSpan a, CTimeSpan b) {
        if (b.m_ticks < 0 && a.m_ticks > highest + b.m_ticks) return CTimeSpan(highest);
        if (b.m_ticks > 0 && a.m_ticks < lowest + b.m_ticks) return CTimeSpan(lowest);
        return CTimeSpan(a.m_ticks - b.m_ticks);
    }
    friend constexpr auto operator<=>(CTimeSpan, CTimeSpan) = default;

private:
    static constexpr int64_t highest = INT64_MAX, lowest = INT64_MIN;
    static constexpr CTimeSpan scaled(int64_t n, int64_t unit) {
        if (n > highest / unit) return CTimeSpan(highest);
        if (n < lowest / unit) return CTimeSpan(lowest);
        return CTimeSpan(n * unit);
    }
    explicit constexpr CTimeSpan(int64_t ticks) : m_ticks(ticks) {}

    int64_t m_ticks = 0;
};

/// An instant and the offset from UTC in which its calendar fields are read.
///
/// The instant counts ticks of 100 ns since 1601-01-01 00:00 UTC (the FILETIME of file information), in the proleptic
/// Gregorian calendar without leap seconds; years 1601 to 9999. Two values compare by their instants alone, so the
/// same moment in two zones is equal.
/// The default value is the instant 0. What would lead out of the years 1601 to 9999 is held at their first or last
/// moment, except where a function says that it fails.
/// Bitwise relocatable; no locks.
class QV_API CDateTime {
public:
    /// A tick is 100 ns.
    static constexpr int64_t ticksPerSecond = CTimeSpan::ticksPerSecond;

    CDateTime() = default;

    /// The present moment, in the machine's local time or in UTC.
    static CDateTime Now();
    static CDateTime UtcNow();

    /// From and to the 64-bit FILETIME. A value made from one reads in UTC.
    static CDateTime FromFileTime(uint64_t ticks);
    uint64_t ToFileTime() const { return static_cast<uint64_t>(m_ticks); }

    /// From and to the seconds or milliseconds since 1970-01-01 00:00 UTC, below 0 before it. A value made from them
    /// reads in UTC; what is finer is dropped downwards, also before 1970.
    static CDateTime FromUnixTime(int64_t seconds);
    static CDateTime FromUnixMilliseconds(int64_t milliseconds);
    int64_t ToUnixTime() const;
    int64_t ToUnixMilliseconds() const;

    /// From calendar fields in UTC, in local time, or at a fixed offset in minutes east of UTC.
    /// @return  The instant 0 (with a diagnostic) when a field is outside its range or the date does not exist.
    static CDateTime FromUtc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                             int millisecond = 0);
    /// A local time that the clock shows twice or skips (change to or from summer time) takes one of the two offsets.
    static CDateTime FromLocal(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                               int millisecond = 0);
    static CDateTime FromFields(int offsetMinutes, int year, int month, int day, int hour = 0, int minute = 0,
                                int second = 0, int millisecond = 0);

    /// Whether FromFields would take these fields (at offset 0).
    static bool IsValid(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                        int millisecond = 0);
    static bool IsLeapYear(int year);
    /// 28 to 31; 0 for no month.
    static int DaysInMonth(int year, int month);
    /// False for the instant 0, which stands for no time at all.
    bool IsSet() const { return m_ticks != 0; }

    /// The same instant, read in UTC, in the machine's local time, or so many minutes east of UTC (held to less than a
    /// day either way).
    CDateTime ToUtc() const;
    CDateTime ToLocal() const;
    CDateTime ToOffset(int minutes) const;

    /// The instant moved, read at the same offset.
    CDateTime AddMilliseconds(int64_t n) const { return *this + CTimeSpan::FromMilliseconds(n); }
    CDateTime AddSeconds(int64_t n) const { return *this + CTimeSpan::FromSeconds(n); }
    CDateTime AddMinutes(int64_t n) const { return *this + CTimeSpan::FromMinutes(n); }
    CDateTime AddHours(int64_t n) const { return *this + CTimeSpan::FromHours(n); }
    /// Days of 24 hours.
    CDateTime AddDays(int64_t n) const { return *this + CTimeSpan::FromDays(n); }
    /// Moves month and year as the value's own offset shows them and keeps the time of day; a day that the month does
    /// not have becomes its last (31 January and a month: 28 or 29 February). The offset stays, so behind a change to
    /// or from summer time ToLocal() shows another hour.
    CDateTime AddMonths(int64_t n) const;
    CDateTime AddYears(int64_t n) const;

    /// At the offset of the instant that is moved.
    friend QV_API CDateTime operator+(const CDateTime& time, CTimeSpan span);
    friend CDateTime operator-(const CDateTime& time, CTimeSpan span) { return time + -span; }
    friend CTimeSpan operator-(const CDateTime& a, const CDateTime& b) {
        return CTimeSpan::FromTicks(a.m_ticks - b.m_ticks);
    }
    CDateTime& operator+=(CTimeSpan span) { return *this = *this + span; }
    CDateTime& operator-=(CTimeSpan span) { return *this = *this - span; }

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
    /// Names are English in every locale; the small letter cuts them to three. What is no conversion is copied.
    /// @param limit  The most characters that the text may have; -1 for no limit.
    CString Format(const char16_t* pattern, int limit = -1) const;

    /// Reads what Format writes with the same pattern, and what people write in its place:
    /// - A number may lack its leading zeros ("5/6/2024" by "%m/%D/%Y"), except behind %L and %y, whose meaning hangs
    /// on
    ///   their width. It never takes more digits than its width, so "%Y%m%d" reads 20240506.
    /// - %y from 69 to 99 is 1969 to 1999, from 00 to 68 it is 2000 to 2068.
    /// - %B and %b, and %A and %a, each take a name whole or cut to three letters, in any case. A day's name has to be
    ///   that of the date when the pattern has a day.
    /// - %I counts within the half of the day that %p names, the first when there is none. Beside %H, %p has to agree.
    /// - %z takes "+0200", "+02:00", "+02" and "Z".
    /// - A blank in the pattern stands for white space of any length, also none. All other text has to be there as it
    ///   stands, and nothing behind it.
    /// What the pattern lacks is taken from 1970-01-01 00:00:00.000, which is no leap year. Without %z the time is
    /// local, or UTC in ParseUtc, and the value reads so. Of a field that comes twice the last counts.
    /// @return  False, the value left as it was, when the text does not fit or names no moment of the calendar.
    bool Parse(const CString& text, const char16_t* pattern);
    /// Asks the system for nothing.
    bool ParseUtc(const CString& text, const char16_t* pattern);

    /// ISO 8601: "2024-05-06T07:08:09.123Z", or with "+02:00" in place of Z.
    /// @param fractionDigits  0 (and no point) to 7, which shows every tick; digits behind are cut off.
    CString ToISOString(int fractionDigits = 3) const;

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
