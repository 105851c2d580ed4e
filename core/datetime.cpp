#include "qv/datetime.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "core/text.h"
#include "platform/clock.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

constexpr int64_t ticksPerMillisecond = CDateTime::ticksPerSecond / 1000;
constexpr int64_t secondsPerDay = 86'400;
constexpr int64_t ticksPerMinute = 60 * CDateTime::ticksPerSecond;
constexpr int64_t ticksPerDay = secondsPerDay * CDateTime::ticksPerSecond;

/// Days from 1601-01-01 to 10000-01-01.
constexpr int64_t daysOfCalendar = 3'067'671;
constexpr int64_t lastTick = daysOfCalendar * ticksPerDay - 1;

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

constexpr bool isDate(const Date& date) {
    if (date.year < 1601 || date.year > 9999 || date.month < 1 || date.month > 12 || date.day < 1) return false;
    const Date back = dateOf(daysFrom1601(date));
    return back.month == date.month && back.day == date.day;
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

Fields fieldsOf(const CDateTime& time) {
    const int64_t ticks = static_cast<int64_t>(time.ToFileTime()) + time.GetOffsetMinutes() * ticksPerMinute;
    const int64_t days = floorDiv(ticks, ticksPerDay);
    const int64_t rest = ticks - days * ticksPerDay;
    const auto seconds = static_cast<int>(rest / CDateTime::ticksPerSecond);
    // Day 0 was a Monday.
    const auto dayOfWeek = static_cast<int>(((days + 1) % 7 + 7) % 7);
    return {dateOf(days), seconds / 3600, seconds / 60 % 60, seconds % 60, dayOfWeek, rest % CDateTime::ticksPerSecond};
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

void appendNumber(std::u16string& text, int value, size_t width) {
    const std::string digits = std::to_string(value);
    if (digits.size() < width) text.append(width - digits.size(), u'0');
    text.append(digits.begin(), digits.end());
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

/// Takes fields of fixed width off the front of a text.
class Scanner {
public:
    explicit Scanner(std::u16string_view text) : m_rest(text) {}

    bool atEnd() const { return m_rest.empty(); }
    bool take(char16_t c) {
        if (m_rest.empty() || m_rest.front() != c) return false;
        m_rest.remove_prefix(1);
        return true;
    }
    bool number(int width, int& value) {
        value = 0;
        for (int i = 0; i < width; ++i) {
            if (m_rest.empty() || !text::isDigit(m_rest.front())) return false;
            value = value * 10 + (m_rest.front() - u'0');
            m_rest.remove_prefix(1);
        }
        return true;
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

struct IsoTime {
    Date date{};
    int hour = 0, minute = 0, second = 0, offsetMinutes = 0;
    int64_t fractionTicks = 0;
    bool hasOffset = false;
};

bool scanClock(Scanner& in, IsoTime& time) {
    if (!in.number(2, time.hour) || !in.take(u':') || !in.number(2, time.minute)) return false;
    if (!in.take(u':')) return true;
    if (!in.number(2, time.second)) return false;
    return !(in.take(u'.') || in.take(u',')) || in.fraction(time.fractionTicks);
}

bool scanOffset(Scanner& in, IsoTime& time) {
    if (in.atEnd()) return true;
    time.hasOffset = true;
    if (in.take(u'Z') || in.take(u'z')) return true;
    const bool west = in.take(u'-');
    int hours = 0, minutes = 0;
    if (!west && !in.take(u'+')) return false;
    if (!in.number(2, hours)) return false;
    if (!in.atEnd()) {
        (void)in.take(u':');
        if (!in.number(2, minutes)) return false;
    }
    time.offsetMinutes = (west ? -1 : 1) * (hours * 60 + minutes);
    return hours < 24 && minutes < 60;
}

bool scanIso(std::u16string_view text, IsoTime& time) {
    Scanner in(text);
    if (!in.number(4, time.date.year) || !in.take(u'-') || !in.number(2, time.date.month) || !in.take(u'-') ||
        !in.number(2, time.date.day)) {
        return false;
    }
    if (!in.atEnd() && (!(in.take(u'T') || in.take(u't') || in.take(u' ')) || !scanClock(in, time))) return false;
    return scanOffset(in, time) && in.atEnd();
}

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

CDateTime CDateTime::FromFields(int offsetMinutes, int year, int month, int day, int hour, int minute, int second,
                                int millisecond) {
    CDateTime time;
    const int64_t ticks = ticksOf({year, month, day}, hour, minute, second, millisecond * ticksPerMillisecond);
    const int64_t instant = ticks - offsetMinutes * ticksPerMinute;
    if (ticks < 0 || instant < 0 || instant > lastTick) {
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

CDateTime CDateTime::ToLocal() const {
    CDateTime time = *this;
    time.m_offsetMinutes = localOffsetMinutes(m_ticks);
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

CString CDateTime::ToISOString() const {
    std::u16string zone = u"Z";
    if (m_offsetMinutes != 0) {
        zone.clear();
        appendOffset(zone, m_offsetMinutes, true);
    }
    return Format(u"%Y-%m-%dT%H:%M:%S.%L") + zone;
}

bool CDateTime::FromISOString(const CString& text) {
    IsoTime read;
    const bool scanned = scanIso(text.view(), read);
    const int64_t local = ticksOf(read.date, read.hour, read.minute, read.second, read.fractionTicks);
    if (scanned && local >= 0) {
        const int offset = read.hasOffset ? read.offsetMinutes : localOffsetMinutesAt(local);
        const int64_t instant = local - offset * ticksPerMinute;
        if (instant >= 0 && instant <= lastTick) {
            m_ticks = instant;
            m_offsetMinutes = offset;
            return true;
        }
    }
    SetDiagnostic(CString(), u"a date as 2024-05-06T07:08:09Z", text);
    return false;
}

}  // namespace qv
