#include "qv/datetime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <string>

#include "qv/diagnostic.h"

namespace qv::test {
namespace {

/// Runs with the machine's local time as given by a POSIX zone text.
class LocalTime {
public:
    explicit LocalTime(const char* zone) {
        if (const char* set = std::getenv("TZ")) m_before = set;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~LocalTime() {
        m_before.empty() ? unsetenv("TZ") : setenv("TZ", m_before.c_str(), 1);
        tzset();
    }

private:
    std::string m_before;
};

TEST(DateTime, FileTimesOfKnownMoments) {
    struct Row {
        uint64_t ticks;
        const char* iso;
    };
    // 1970 and 2038: the offsets of the Unix epoch and of 2^31 seconds after it.
    const Row rows[] = {{0, "1601-01-01T00:00:00.000Z"},
                        {116444736000000000, "1970-01-01T00:00:00.000Z"},
                        {116444736000000000 + 21474836480000000, "2038-01-19T03:14:08.000Z"},
                        {125963424000000000 - 1, "2000-02-29T23:59:59.999Z"},
                        {125963424000000000, "2000-03-01T00:00:00.000Z"},
                        {2650467743999999999, "9999-12-31T23:59:59.999Z"},
                        {~uint64_t{0}, "9999-12-31T23:59:59.999Z"}};
    for (const Row& row : rows) {
        const CDateTime time = CDateTime::FromFileTime(row.ticks);
        EXPECT_STREQ(time.ToISOString().GetUTF8(), row.iso);
        if (row.ticks < ~uint64_t{0}) {
            EXPECT_EQ(time.ToFileTime(), row.ticks);
        }
    }
}

TEST(DateTime, EveryDayOfFourCenturiesFollowsTheLast) {
    static constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int year = 1601, month = 1, day = 1, weekday = 1;
    for (uint64_t n = 0; n < 146'097; ++n) {
        const CDateTime time = CDateTime::FromFileTime(n * 864'000'000'000);
        ASSERT_EQ(time.GetYear(), year);
        ASSERT_EQ(time.GetMonth(), month);
        ASSERT_EQ(time.GetDay(), day);
        ASSERT_EQ(time.GetDayOfWeek(), weekday);
        ASSERT_EQ(CDateTime::FromUtc(year, month, day), time);
        const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        if (++day > lengths[month - 1] + (month == 2 && leap)) day = 1, ++month;
        if (month > 12) month = 1, ++year;
        weekday = (weekday + 1) % 7;
    }
}

TEST(DateTime, FormatsByPattern) {
    const CDateTime time = CDateTime::FromFields(-90, 2024, 5, 6, 17, 8, 9, 42);
    struct Row {
        const char16_t* pattern;
        const char* expected;
    };
    const Row rows[] = {{u"[%m-%D-%Y %H:%M:%S]: ", "[05-06-2024 17:08:09]: "},
                        {u"%y%m%d %I:%M %p %L %z", "240506 05:08 PM 042 -0130"},
                        {u"%A %a %B %b", "Monday Mon May May"},
                        {u"100%% %q %", "100% %q %"},
                        {u"", ""}};
    for (const Row& row : rows) EXPECT_STREQ(time.Format(row.pattern).GetUTF8(), row.expected);
    EXPECT_STREQ(time.Format(u"%Y-%m", 6).GetUTF8(), "2024-0");
    EXPECT_STREQ(CDateTime::FromUtc(2024, 1, 1, 0).Format(u"%I %p").GetUTF8(), "12 AM");
}

TEST(DateTime, IsoTextRoundTrips) {
    struct Row {
        const char16_t* text;
        const char* utc;
    };
    const LocalTime zone("XXX-2");
    const Row rows[] = {{u"2024-05-06T07:08:09.123Z", "2024-05-06T07:08:09.123Z"},
                        {u"2024-05-06T07:08:09,5+02:00", "2024-05-06T05:08:09.500Z"},
                        {u"2024-05-06 07:08-0930", "2024-05-06T16:38:00.000Z"},
                        {u"2024-05-06T07:08:09+02", "2024-05-06T05:08:09.000Z"},
                        {u"2024-05-06", "2024-05-05T22:00:00.000Z"},
                        {u"2024-05-06T01:00:00.12345678", "2024-05-05T23:00:00.123Z"}};
    for (const Row& row : rows) {
        CDateTime time;
        EXPECT_TRUE(time.FromISOString(row.text));
        EXPECT_STREQ(time.ToUtc().ToISOString().GetUTF8(), row.utc);
        CDateTime again;
        EXPECT_TRUE(again.FromISOString(time.ToISOString()));
        EXPECT_EQ(again.GetOffsetMinutes(), time.GetOffsetMinutes());
    }
    for (const char16_t* bad : {u"", u"2024", u"2024-5-6", u"2023-02-29", u"2024-13-01", u"2024-05-06T24:00",
                                u"2024-05-06T07", u"1600-01-01Z", u"2024-05-06T07:08:09.", u"2024-05-06T07:08:09Zx",
                                u"2024-05-06T07:08+2", u"2024-05-06T07:08+24:00"}) {
        CDateTime time = CDateTime::FromFileTime(5);
        ClearDiagnostic();
        EXPECT_FALSE(time.FromISOString(bad));
        EXPECT_EQ(time.ToFileTime(), 5u);
        EXPECT_TRUE(LastDiagnostic().IsSet());
    }
}

TEST(DateTime, LocalTimeIsTheSameInstant) {
    const LocalTime zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const CDateTime winter = CDateTime::FromLocal(2024, 1, 15, 12), summer = CDateTime::FromLocal(2024, 7, 15, 12);
    EXPECT_EQ(winter, CDateTime::FromUtc(2024, 1, 15, 11));
    EXPECT_EQ(summer, CDateTime::FromUtc(2024, 7, 15, 10));
    EXPECT_EQ(summer.GetHour(), 12);
    EXPECT_EQ(summer.ToUtc().GetHour(), 10);
    EXPECT_EQ(summer.ToUtc().ToLocal().GetOffsetMinutes(), 120);
    EXPECT_LT(winter, summer);
    const CDateTime now = CDateTime::Now();
    EXPECT_LT(CDateTime::UtcNow().ToFileTime() - now.ToFileTime(), uint64_t{60} * CDateTime::ticksPerSecond);
    EXPECT_EQ(CDateTime::FromUtc(2023, 2, 29), CDateTime());
    EXPECT_EQ(CDateTime::FromUtc(2023, 1, 1, 24), CDateTime());
}

TEST(DateTime, ParsesByPattern) {
    struct Row {
        const char16_t *text, *pattern;
        const char* utc;  // Null where the text does not fit.
    };
    const Row rows[] = {
        {u"[05-06-2024 17:08:09]: ", u"[%m-%D-%Y %H:%M:%S]: ", "2024-05-06T17:08:09.000Z"},
        {u"20240506170809042", u"%Y%m%d%H%M%S%L", "2024-05-06T17:08:09.042Z"},
        {u"5/6/2024 7:8", u"%m/%D/%Y %H:%M", "2024-05-06T07:08:00.000Z"},
        {u"mon,  6 SEPTEMBER 99", u"%A, %d %b %y", "1999-09-06T00:00:00.000Z"},
        {u"May68", u"%B%y", "2068-05-01T00:00:00.000Z"},
        {u"12:00 am", u"%I:%M %p", "1970-01-01T00:00:00.000Z"},
        {u"PM 12", u"%p %I", "1970-01-01T12:00:00.000Z"},
        {u"2024-05-06 23:30 -01:30", u"%Y-%m-%d %H:%M %z", "2024-05-07T01:00:00.000Z"},
        {u"07+02h", u"%H%zh", "1970-01-01T05:00:00.000Z"},
        {u"100% %q1600", u"100%% %q%Y", nullptr},
        {u"100% %q1601", u"100%% %q%Y", "1601-01-01T00:00:00.000Z"},
        {u"Tue 6 May 2024", u"%a %d %b %Y", nullptr},
        {u"Feb 29", u"%b %d", nullptr},
        {u"17:00 AM", u"%H:%M %p", nullptr},
        {u"13 PM", u"%I %p", nullptr},
        {u"9.5", u"%S.%L", nullptr},
        {u"7", u"%y", nullptr},
        {u"7:08x", u"%H:%M", nullptr},
        {u"7:", u"%H:%M", nullptr},
        {u"2024-05-06T24", u"%Y-%m-%dT%H", nullptr},
        {u"Ma", u"%b", nullptr},
        {u"", u"%%", nullptr},
    };
    for (const Row& row : rows) {
        CDateTime time = CDateTime::FromFileTime(5);
        EXPECT_EQ(time.ParseUtc(row.text, row.pattern), row.utc != nullptr) << CString(row.text).GetUTF8();
        if (row.utc != nullptr) {
            EXPECT_STREQ(time.ToUtc().ToISOString().GetUTF8(), row.utc);
        } else {
            EXPECT_EQ(time.ToFileTime(), 5u);
        }
    }
    const LocalTime zone("XXX-2");
    CDateTime time;
    EXPECT_TRUE(time.Parse(u"2024-05-06", u"%Y-%m-%d"));
    EXPECT_STREQ(time.ToISOString(0).GetUTF8(), "2024-05-06T00:00:00+02:00");
}

TEST(DateTime, RandomMomentsComeBackFromTheirTexts) {
    std::mt19937_64 random(7);
    for (int i = 0; i < 2000; ++i) {
        const CDateTime time =
            CDateTime::FromFileTime(random() % 2650467743999999999).ToOffset(static_cast<int>(random() % 600) - 300);
        if (time.GetYear() < 1601) continue;
        CDateTime exact, read;
        ASSERT_TRUE(exact.FromISOString(time.ToISOString(7)));
        EXPECT_EQ(exact, time);
        const char16_t* pattern = u"%A %d. %B %Y, %I:%M:%S.%L %p %z";
        ASSERT_TRUE(read.Parse(time.Format(pattern), pattern)) << time.ToISOString().GetUTF8();
        EXPECT_EQ(read.ToFileTime(), time.ToFileTime() / 10'000 * 10'000);
        EXPECT_EQ(read.GetOffsetMinutes(), time.GetOffsetMinutes());
        EXPECT_EQ(CDateTime::FromUnixMilliseconds(time.ToUnixMilliseconds()), read);
    }
}

TEST(DateTime, UnixTimes) {
    EXPECT_EQ(CDateTime::FromUnixTime(-1), CDateTime::FromUtc(1969, 12, 31, 23, 59, 59));
    EXPECT_EQ(CDateTime::FromUtc(1969, 12, 31, 23, 59, 59, 999).ToUnixTime(), -1);
    EXPECT_EQ(CDateTime::FromUnixMilliseconds(-1).ToUnixMilliseconds(), -1);
    EXPECT_EQ((CDateTime::FromUnixTime(0) - CTimeSpan::FromTicks(1)).ToUnixMilliseconds(), -1);
    EXPECT_EQ(CDateTime::FromUnixTime(INT64_MIN), CDateTime());
    EXPECT_EQ(CDateTime::FromUnixTime(INT64_MAX), CDateTime::FromFileTime(~uint64_t{0}));
    EXPECT_EQ(CDateTime().ToUnixTime(), -11'644'473'600);
}

TEST(DateTime, Arithmetic) {
    const CDateTime start = CDateTime::FromFields(-90, 2024, 1, 31, 23, 30);
    struct Row {
        CDateTime time;
        const char* iso;
    };
    const Row rows[] = {
        {start.AddMonths(1), "2024-02-29T23:30:00-01:30"},
        {start.AddMonths(13), "2025-02-28T23:30:00-01:30"},
        {start.AddMonths(-2), "2023-11-30T23:30:00-01:30"},
        {start.AddMonths(-1), "2023-12-31T23:30:00-01:30"},
        {start.AddMonths(1).AddYears(1), "2025-02-28T23:30:00-01:30"},
        {start.AddDays(1), "2024-02-01T23:30:00-01:30"},
        {start.AddHours(-24), "2024-01-30T23:30:00-01:30"},
        {start.AddMinutes(30), "2024-02-01T00:00:00-01:30"},
        {start.AddSeconds(-1), "2024-01-31T23:29:59-01:30"},
        {start.AddMilliseconds(60'000), "2024-01-31T23:31:00-01:30"},
        {start.AddYears(INT64_MAX).ToUtc(), "9999-12-31T23:59:59Z"},
        {start.AddMonths(INT64_MIN).ToUtc(), "1601-01-01T00:00:00Z"},
        {start.AddDays(INT64_MAX).ToUtc(), "9999-12-31T23:59:59Z"},
    };
    for (const Row& row : rows) EXPECT_STREQ(row.time.ToISOString(0).GetUTF8(), row.iso);
    EXPECT_EQ((start.AddDays(1) - start).ToSeconds(), 86'400);
    EXPECT_EQ(start - start.AddMilliseconds(1500), -CTimeSpan::FromMilliseconds(1500));
    EXPECT_DOUBLE_EQ((start - start.AddMilliseconds(1500)).ToRealSeconds(), -1.5);
    EXPECT_EQ(CTimeSpan::FromDays(INT64_MIN) - CTimeSpan::FromTicks(1), CTimeSpan::FromTicks(INT64_MIN));
    EXPECT_EQ(CTimeSpan::FromTicks(-1) - CTimeSpan::FromTicks(INT64_MIN), CTimeSpan::FromTicks(INT64_MAX));
    EXPECT_EQ(CTimeSpan() - CTimeSpan::FromTicks(INT64_MIN), CTimeSpan::FromTicks(INT64_MAX));
    EXPECT_EQ(CTimeSpan::FromTicks(-5) - CTimeSpan::FromTicks(INT64_MIN), CTimeSpan::FromTicks(INT64_MAX - 4));
    EXPECT_EQ(CDateTime::DaysInMonth(1900, 2), 28);
    EXPECT_FALSE(CDateTime::IsValid(2023, 2, 29) || CDateTime::IsValid(2024, 2, 29, 0, 60));
}

}  // namespace
}  // namespace qv::test
