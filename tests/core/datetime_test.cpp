#include "qv/datetime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <set>
#include <string>

#include "qv/diagnostic.h"
#include "qv/guid.h"

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

TEST(Guid, TextRoundTrips) {
    CGUID guid;
    EXPECT_TRUE(guid.IsNull());
    EXPECT_TRUE(guid.FromString(u"{6ba7b810-9dad-11d1-80b4-00c04fd430c8}"));  // RFC 9562, name space of DNS.
    EXPECT_EQ(guid, (GUID{0x6BA7B810, 0x9DAD, 0x11D1, {0x80, 0xB4, 0, 0xC0, 0x4F, 0xD4, 0x30, 0xC8}}));
    EXPECT_STREQ(guid.ToString().GetUTF8(), "{6BA7B810-9DAD-11D1-80B4-00C04FD430C8}");
    EXPECT_STREQ(guid.ToString(false).GetUTF8(), "6BA7B810-9DAD-11D1-80B4-00C04FD430C8");
    for (const char16_t* bad : {u"", u"{6ba7b810-9dad-11d1-80b4-00c04fd430c8", u"6ba7b810-9dad-11d1-80b4-00c04fd430cg",
                                u"6ba7b8109-dad-11d1-80b4-00c04fd430c8", u"6ba7b810-9dad-11d1-80b4-00c04fd430c8 "}) {
        EXPECT_FALSE(guid.FromString(bad));
    }
    EXPECT_EQ(guid.Data1, 0x6BA7B810u);
}

TEST(Guid, FreshOnesDiffer) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        const CGUID guid = CGUID::Create();
        EXPECT_EQ(guid.Data3 >> 12, 4);
        EXPECT_EQ(guid.Data4[0] >> 6, 2);
        EXPECT_TRUE(seen.insert(guid.ToString().GetUTF8()).second);
    }
}

}  // namespace
}  // namespace qv::test
