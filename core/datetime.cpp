#include "qv/datetime.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "core/text.h"
#include "platform/clock.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

constexpr int64_t ticksPerMillisecond = CTimeSpan::ticksPerMillisecond;
constexpr int64_t secondsPerDay = 86'400;
constexpr int64_t ticksPerMinute = 60 * CDateTime::ticksPerSecond;
constexpr int64_t ticksPerDay = secondsPerDay * CDateTime::ticksPerSecond;

/// Days from 1601-01-01 to 10000-01-01.
constexpr int64_t daysOfCalendar = 3'067'671;
constexpr int64_t lastTick = daysOfCalendar * ticksPerDay - 1;

/// Minutes: an offset is less than a day.
constexpr int lastOffset = 24 * 60 - 1;

struct Date {
    int year, month, day;
};

constexpr int64_t floorDiv(int64_t a, int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }

// A year is taken to begin in March, so that the leap day ends it; 400 years make one cycle of 146097 days. Day 0 is
// 1601-01-01, the 306th day of the year that began in March 1600.
constexpr int64_t daysPerCycle = 146'097;
constexpr int64_t dayOfMarchYear = 306;

constexpr int64_t daysFrom1601(const Date& date) {
    const int64_t year = date.year - 1600 - (date.month <= 2 ? 1 : 0);
    const int64_t cycle = floorDiv(year, 400);
    const int64_t yearOfCycle = year - cycle * 400;
    const int64_t monthFromMarch = (date.month + 9) % 12;
    const int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + date.day - 1;
    const int64_t dayOfCycle = yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100 + dayOfYear;
    return cycle * daysPerCycle + dayOfCycle - dayOfMarchYear;
}

constexpr Date dateOf(int64_t daysSince1601) {
    const int64_t days = daysSince1601 + dayOfMarchYear;
    const int64_t cycle = floorDiv(days, daysPerCycle);
    const int64_t day = days - cycle * daysPerCycle;
    const int64_t year = (day - day / 1460 + day / 36'524 - day / 146'096) / 365;
    const int64_t dayOfYear = day - (365 * year + year / 4 - year / 100);
    const int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const int month = static_cast<int>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
    return {static_cast<int>(1600 + cycle * 400 + year + (month <= 2 ? 1 : 0)), month,
            static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1)};
}

static_assert(daysFrom1601({1601, 1, 1}) == 0 && daysFrom1601({10000, 1, 1}) == daysOfCalendar);
static_assert(daysFrom1601({1970, 1, 1}) * secondsPerDay == platform::secondsTo1970);
static_assert(CDateTime::ticksPerSecond == platform::ticksPerSecond);

constexpr bool isLeapYear(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int daysInMonth(int year, int month) {
    constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month < 1 || month > 12 ? 0 : lengths[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

constexpr bool isDate(const Date& date) {
    return date.year >= 1601 && date.year <= 9999 && date.day >= 1 && date.day <= daysInMonth(date.year, date.month);
}

constexpr const char16_t* monthNames[] = {u"January", u"February", u"March",     u"April",   u"May",      u"June",
                                          u"July",    u"August",   u"September", u"October", u"November", u"December"};
constexpr const char16_t* dayNames[] = {u"Sunday",   u"Monday", u"Tuesday", u"Wednesday",
                                        u"Thursday", u"Friday", u"Saturday"};

/// Calendar fields of one value, worked out once.
struct Fields {
    Date date;
    int hour, minute, second, dayOfWeek;
    int64_t fractionTicks;
};

// Day 0 was a Monday.
constexpr int dayOfWeekOf(int64_t daysSince1601) { return static_cast<int>(((daysSince1601 + 1) % 7 + 7) % 7); }

Fields fieldsOf(const CDateTime& time) {
    const int64_t ticks = static_cast<int64_t>(time.ToFileTime()) + time.GetOffsetMinutes() * ticksPerMinute;
    const int64_t days = floorDiv(ticks, ticksPerDay);
    const int64_t rest = ticks - days * ticksPerDay;
    const auto seconds = static_cast<int>(rest / CDateTime::ticksPerSecond);
    return {dateOf(days), seconds / 3600,    seconds / 60 % 60,
            seconds % 60, dayOfWeekOf(days), rest % CDateTime::ticksPerSecond};
}

/// The whole minutes that local time is ahead of UTC at an instant.
int localOffsetMinutes(int64_t ticks) {
    return platform::localOffsetSeconds(floorDiv(ticks, CDateTime::ticksPerSecond) - platform::secondsTo1970) / 60;
}

/// The same for an instant given by its local time.
int localOffsetMinutesAt(int64_t localTicks) {
    const int guess = localOffsetMinutes(localTicks);
    return localOffsetMinutes(localTicks - guess * ticksPerMinute);
}

/// The low `width` digits.
void appendNumber(std::u16string& text, int64_t value, int width) {
    char16_t digits[8];
    for (int i = width; i-- > 0; value /= 10) digits[i] = static_cast<char16_t>(u'0' + value % 10);
    text.append(digits, static_cast<size_t>(width));
}

void appendOffset(std::u16string& text, int minutes, bool colon) {
    text += minutes < 0 ? u'-' : u'+';
    minutes = minutes < 0 ? -minutes : minutes;
    appendNumber(text, minutes / 60, 2);
    if (colon) text += u':';
    appendNumber(text, minutes % 60, 2);
}

/// Appends what the conversion letter stands for; false when it stands for nothing.
bool appendField(std::u16string& text, char16_t letter, const Fields& fields, int offsetMinutes) {
    const auto milliseconds = static_cast<int>(fields.fractionTicks / ticksPerMillisecond);
    const std::u16string_view month = monthNames[fields.date.month - 1], day = dayNames[fields.dayOfWeek];
    switch (letter) {
        case u'Y': appendNumber(text, fields.date.year, 4); return true;
        case u'y': appendNumber(text, fields.date.year % 100, 2); return true;
        case u'm': appendNumber(text, fields.date.month, 2); return true;
        case u'd':
        case u'D': appendNumber(text, fields.date.day, 2); return true;
        case u'H': appendNumber(text, fields.hour, 2); return true;
        case u'I': appendNumber(text, (fields.hour + 11) % 12 + 1, 2); return true;
        case u'M': appendNumber(text, fields.minute, 2); return true;
        case u'S': appendNumber(text, fields.second, 2); return true;
        case u'L': appendNumber(text, milliseconds, 3); return true;
        case u'p': text += fields.hour < 12 ? u"AM" : u"PM"; return true;
        case u'z': appendOffset(text, offsetMinutes, false); return true;
        case u'B': text += month; return true;
        case u'b': text += month.substr(0, 3); return true;
        case u'A': text += day; return true;
        case u'a': text += day.substr(0, 3); return true;
        case u'%': text += u'%'; return true;
        default: return false;
    }
}

/// Takes fields off the front of a text.
class Scanner {
public:
    explicit Scanner(std::u16string_view text) : m_rest(text) {}

    bool atEnd() const { return m_rest.empty(); }
    bool atDigit() const { return !m_rest.empty() && text::isDigit(m_rest.front()); }
    bool take(char16_t c) {
        if (m_rest.empty() || m_rest.front() != c) return false;
        m_rest.remove_prefix(1);
        return true;
    }
    /// As many digits as `width` says, or fewer but at least `atLeast`.
    bool number(int width, int& value, int atLeast) {
        int digits = 0;
        value = 0;
        for (; digits < width && !m_rest.empty() && text::isDigit(m_rest.front()); ++digits) {
            value = value * 10 + (m_rest.front() - u'0');
            m_rest.remove_prefix(1);
        }
        return digits >= atLeast;
    }
    bool number(int width, int& value) { return number(width, value, width); }
    void skipSpace() {
        while (!m_rest.empty() && text::isSpace(m_rest.front())) m_rest.remove_prefix(1);
    }
    /// The index of the name that comes next, whole or as its first three letters.
    template <size_t n>
    bool name(const char16_t* const (&names)[n], int& index) {
        for (size_t i = 0; i < n; ++i) {
            const std::u16string_view whole(names[i]);
            for (const size_t length : {whole.size(), size_t{3}}) {
                if (text::compareNoCase(m_rest.substr(0, length), whole.substr(0, length)) != 0) continue;
                m_rest.remove_prefix(length);
                index = static_cast<int>(i);
                return true;
            }
        }
        return false;
    }
    /// Ticks of the digits behind a decimal sign, at least one.
    bool fraction(int64_t& ticks) {
        if (m_rest.empty() || !text::isDigit(m_rest.front())) return false;
        ticks = 0;
        int64_t unit = CDateTime::ticksPerSecond;
        for (; !m_rest.empty() && text::isDigit(m_rest.front()); m_rest.remove_prefix(1)) {
            unit /= 10;
            ticks += unit * (m_rest.front() - u'0');
        }
        return true;
    }

private:
    std::u16string_view m_rest;
};

/// Calendar fields as a text gives them.
struct ReadTime {
    Date date{1970, 1, 1};
    int hour = 0, minute = 0, second = 0, offsetMinutes = 0;
    int64_t fractionTicks = 0;
    bool hasOffset = false;
};

bool scanClock(Scanner& in, ReadTime& time) {
    if (!in.number(2, time.hour) || !in.take(u':') || !in.number(2, time.minute)) return false;
    if (!in.take(u':')) return true;
    if (!in.number(2, time.second)) return false;
    return !(in.take(u'.') || in.take(u',')) || in.fraction(time.fractionTicks);
}

bool scanOffset(Scanner& in, ReadTime& time) {
    time.hasOffset = true;
    time.offsetMinutes = 0;
    if (in.take(u'Z') || in.take(u'z')) return true;
    const bool west = in.take(u'-');
    int hours = 0, minutes = 0;
    if (!west && !in.take(u'+')) return false;
    if (!in.number(2, hours)) return false;
    if ((in.take(u':') || in.atDigit()) && !in.number(2, minutes)) return false;
    time.offsetMinutes = (west ? -1 : 1) * (hours * 60 + minutes);
    return hours < 24 && minutes < 60;
}

bool scanIso(std::u16string_view text, ReadTime& time) {
    Scanner in(text);
    if (!in.number(4, time.date.year) || !in.take(u'-') || !in.number(2, time.date.month) || !in.take(u'-') ||
        !in.number(2, time.date.day)) {
        return false;
    }
    if (!in.atEnd() && (!(in.take(u'T') || in.take(u't') || in.take(u' ')) || !scanClock(in, time))) return false;
    return (in.atEnd() || scanOffset(in, time)) && in.atEnd();
}

/// Reads a text by a pattern of conversions.
class PatternReader {
public:
    PatternReader(std::u16string_view text, const char16_t* pattern) : m_in(text), m_pattern(pattern) {}

    bool read(ReadTime& time) {
        for (const char16_t* at = m_pattern; at != nullptr && *at != 0; ++at) {
            if (*at == u'%' && isConversion(at[1])) {
                if (!readField(*++at, time)) return false;
            } else if (text::isSpace(*at)) {
                m_in.skipSpace();
            } else if (!m_in.take(*at)) {
                return false;
            }
        }
        return m_in.atEnd() && settle(time);
    }

private:
    static bool isConversion(char16_t c) {
        return c != 0 && std::u16string_view(u"YymdDHIMSLpzBbAa%").find(c) != std::u16string_view::npos;
    }

    bool readField(char16_t letter, ReadTime& time) {
        int value = 0;
        switch (letter) {
            case u'Y': return m_in.number(4, time.date.year, 1);
            case u'y':
                if (!m_in.number(2, value)) return false;
                time.date.year = value + (value >= 69 ? 1900 : 2000);
                return true;
            case u'm': return m_in.number(2, time.date.month, 1);
            case u'd':
            case u'D': m_hasDay = true; return m_in.number(2, time.date.day, 1);
            case u'H': m_hour12 = -1; return m_in.number(2, time.hour, 1);
            case u'I': return m_in.number(2, m_hour12, 1) && m_hour12 >= 1 && m_hour12 <= 12;
            case u'M': return m_in.number(2, time.minute, 1);
            case u'S': return m_in.number(2, time.second, 1);
            case u'L':
                if (!m_in.number(3, value)) return false;
                time.fractionTicks = value * ticksPerMillisecond;
                return true;
            case u'p': return m_in.name(halves, m_half);
            case u'z': return scanOffset(m_in, time);
            case u'B':
            case u'b':
                if (!m_in.name(monthNames, value)) return false;
                time.date.month = value + 1;
                return true;
            case u'A':
            case u'a': return m_in.name(dayNames, m_dayOfWeek);
            default: return m_in.take(letter);
        }
    }

    /// Brings the fields together that say the same in two ways.
    bool settle(ReadTime& time) const {
        if (m_hour12 > 0) {
            time.hour = m_hour12 % 12 + (m_half == 1 ? 12 : 0);
        } else if (m_half >= 0 && (time.hour >= 12) != (m_half == 1)) {
            return false;
        }
        if (!isDate(time.date)) return false;
        return m_dayOfWeek < 0 || !m_hasDay || dayOfWeekOf(daysFrom1601(time.date)) == m_dayOfWeek;
    }

    static constexpr const char16_t* halves[] = {u"AM", u"PM"};

    Scanner m_in;
    const char16_t* m_pattern;
    int m_hour12 = -1, m_half = -1, m_dayOfWeek = -1;
    bool m_hasDay = false;
};

/// Ticks of calendar fields, taken as UTC; -1 when they name no moment.
int64_t ticksOf(const Date& date, int hour, int minute, int second, int64_t fractionTicks) {
    const bool clock = hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 60;
    if (!clock || !isDate(date) || fractionTicks < 0 || fractionTicks >= CDateTime::ticksPerSecond) return -1;
    const int64_t seconds = daysFrom1601(date) * secondsPerDay + hour * 3600 + minute * 60 + second;
    return seconds * CDateTime::ticksPerSecond + fractionTicks;
}

}  // namespace

CDateTime CDateTime::UtcNow() { return FromFileTime(platform::systemTimeTicks()); }
CDateTime CDateTime::Now() { return UtcNow().ToLocal(); }

CDateTime CDateTime::FromFileTime(uint64_t ticks) {
    CDateTime time;
    time.m_ticks = static_cast<int64_t>(std::min<uint64_t>(ticks, lastTick));
    return time;
}

CDateTime CDateTime::FromUnixMilliseconds(int64_t milliseconds) {
    return FromUnixTime(0) + CTimeSpan::FromMilliseconds(milliseconds);
}

CDateTime CDateTime::FromUnixTime(int64_t seconds) {
    return FromFileTime(platform::secondsTo1970 * ticksPerSecond) + CTimeSpan::FromSeconds(seconds);
}

int64_t CDateTime::ToUnixTime() const { return m_ticks / ticksPerSecond - platform::secondsTo1970; }
int64_t CDateTime::ToUnixMilliseconds() const { return m_ticks / ticksPerMillisecond - platform::secondsTo1970 * 1000; }

CDateTime operator+(const CDateTime& time, CTimeSpan span) {
    const CTimeSpan sum = CTimeSpan::FromTicks(time.m_ticks) + span;
    CDateTime moved = time;
    moved.m_ticks = std::clamp<int64_t>(sum.ToTicks(), 0, lastTick);
    return moved;
}

CDateTime CDateTime::AddMonths(int64_t n) const {
    const int64_t local = m_ticks + m_offsetMinutes * ticksPerMinute;
    const int64_t days = floorDiv(local, ticksPerDay);
    const Date date = dateOf(days);
    // No more months than lead out of the calendar from any date in it.
    constexpr int64_t allMonths = 8400 * 12;
    const int64_t months = date.year * 12 + date.month - 1 + std::clamp(n, -allMonths, allMonths);
    Date moved{static_cast<int>(floorDiv(months, 12)), static_cast<int>(months - floorDiv(months, 12) * 12) + 1, 1};
    moved.day = std::min(date.day, daysInMonth(moved.year, moved.month));
    return *this + CTimeSpan::FromDays(daysFrom1601(moved) - days);
}

CDateTime CDateTime::AddYears(int64_t n) const { return AddMonths(12 * std::clamp<int64_t>(n, -8400, 8400)); }

bool CDateTime::IsValid(int year, int month, int day, int hour, int minute, int second, int millisecond) {
    return ticksOf({year, month, day}, hour, minute, second, millisecond * ticksPerMillisecond) >= 0;
}

bool CDateTime::IsLeapYear(int year) { return isLeapYear(year); }
int CDateTime::DaysInMonth(int year, int month) { return daysInMonth(year, month); }

CDateTime CDateTime::FromFields(int offsetMinutes, int year, int month, int day, int hour, int minute, int second,
                                int millisecond) {
    CDateTime time;
    const int64_t ticks = ticksOf({year, month, day}, hour, minute, second, millisecond * ticksPerMillisecond);
    const int64_t instant = ticks - offsetMinutes * ticksPerMinute;
    const bool offsetFits = offsetMinutes >= -lastOffset && offsetMinutes <= lastOffset;
    if (ticks < 0 || instant < 0 || instant > lastTick || !offsetFits) {
        SetDiagnostic(CString(), u"a date and time of the years 1601 to 9999",
                      CString::FromFormat(u"%d-%d-%d %d:%d:%d", year, month, day, hour, minute, second));
        return time;
    }
    time.m_ticks = instant;
    time.m_offsetMinutes = offsetMinutes;
    return time;
}

CDateTime CDateTime::FromUtc(int year, int month, int day, int hour, int minute, int second, int millisecond) {
    return FromFields(0, year, month, day, hour, minute, second, millisecond);
}

CDateTime CDateTime::FromLocal(int year, int month, int day, int hour, int minute, int second, int millisecond) {
    const int64_t ticks = ticksOf({year, month, day}, hour, minute, second, millisecond * ticksPerMillisecond);
    const int offset = ticks < 0 ? 0 : localOffsetMinutesAt(ticks);
    return FromFields(offset, year, month, day, hour, minute, second, millisecond);
}

CDateTime CDateTime::ToUtc() const { return FromFileTime(ToFileTime()); }

CDateTime CDateTime::ToLocal() const { return ToOffset(localOffsetMinutes(m_ticks)); }

CDateTime CDateTime::ToOffset(int minutes) const {
    CDateTime time = *this;
    time.m_offsetMinutes = std::clamp(minutes, -lastOffset, lastOffset);
    return time;
}

int CDateTime::GetYear() const { return fieldsOf(*this).date.year; }
int CDateTime::GetMonth() const { return fieldsOf(*this).date.month; }
int CDateTime::GetDay() const { return fieldsOf(*this).date.day; }
int CDateTime::GetHour() const { return fieldsOf(*this).hour; }
int CDateTime::GetMinute() const { return fieldsOf(*this).minute; }
int CDateTime::GetSecond() const { return fieldsOf(*this).second; }
int CDateTime::GetDayOfWeek() const { return fieldsOf(*this).dayOfWeek; }
int CDateTime::GetMillisecond() const { return static_cast<int>(m_ticks % ticksPerSecond / ticksPerMillisecond); }

CString CDateTime::Format(const char16_t* pattern, int limit) const {
    const Fields fields = fieldsOf(*this);
    std::u16string text;
    text.reserve(64);
    for (const char16_t* at = pattern; at != nullptr && *at != 0; ++at) {
        if (*at == u'%' && at[1] != 0 && appendField(text, at[1], fields, m_offsetMinutes)) {
            ++at;
        } else {
            text += *at;
        }
    }
    if (limit >= 0 && text.size() > static_cast<size_t>(limit)) text.resize(static_cast<size_t>(limit));
    return CString(text);
}

CString CDateTime::ToISOString(int fractionDigits) const {
    const Fields fields = fieldsOf(*this);
    std::u16string text;
    text.reserve(40);
    const auto append = [&text](int value, int width, char16_t separator) {
        appendNumber(text, value, width);
        if (separator != 0) text += separator;
    };
    append(fields.date.year, 4, u'-');
    append(fields.date.month, 2, u'-');
    append(fields.date.day, 2, u'T');
    append(fields.hour, 2, u':');
    append(fields.minute, 2, u':');
    append(fields.second, 2, 0);
    if (fractionDigits > 0) {
        text += u'.';
        appendNumber(text, fields.fractionTicks, 7);
        text.resize(text.size() - static_cast<size_t>(7 - std::min(fractionDigits, 7)));
    }
    if (m_offsetMinutes == 0) {
        text += u'Z';
    } else {
        appendOffset(text, m_offsetMinutes, true);
    }
    return CString(text);
}

namespace {

/// The moment of fields that were read, at their own offset or at the given zone's; false when there is none.
bool momentOf(const ReadTime& read, bool localZone, CDateTime& time) {
    const int64_t ticks = ticksOf(read.date, read.hour, read.minute, read.second, read.fractionTicks);
    if (ticks < 0) return false;
    const int offset = read.hasOffset ? read.offsetMinutes : localZone ? localOffsetMinutesAt(ticks) : 0;
    const int64_t instant = ticks - offset * ticksPerMinute;
    if (instant < 0 || instant > lastTick) return false;
    time = CDateTime::FromFileTime(static_cast<uint64_t>(instant)).ToOffset(offset);
    return true;
}

bool parse(CDateTime& time, const CString& text, const char16_t* pattern, bool localZone) {
    ReadTime read;
    if (PatternReader(text.view(), pattern).read(read) && momentOf(read, localZone, time)) return true;
    SetDiagnostic(CString(), CString(u"a date and time by the pattern ") + CString(pattern), text);
    return false;
}

}  // namespace

bool CDateTime::Parse(const CString& text, const char16_t* pattern) { return parse(*this, text, pattern, true); }
bool CDateTime::ParseUtc(const CString& text, const char16_t* pattern) { return parse(*this, text, pattern, false); }

bool CDateTime::FromISOString(const CString& text) {
    ReadTime read;
    if (scanIso(text.view(), read) && momentOf(read, true, *this)) return true;
    SetDiagnostic(CString(), u"a date as 2024-05-06T07:08:09Z", text);
    return false;
}

}  // namespace qv
