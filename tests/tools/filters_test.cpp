#include <gtest/gtest.h>

#include "tool.h"

namespace qv::test {
namespace {

TEST(Gz, CompressesAndUndoesIt) {
    Workplace place;
    const std::string text(100'000, 'x');
    place.write("a.txt", text);
    ToolRun run = place.qv("gz a.txt --json");
    EXPECT_EQ(run.exitCode, 0) << run.error;
    EXPECT_NE(run.out.find("\"output\": \"a.txt.tgzf\""), std::string::npos);
    EXPECT_EQ(place.read("a.txt.tgzf").substr(0, 6), std::string("TGZF\0\0", 6));
    EXPECT_EQ(place.qv("gz a.txt").exitCode, 1);
    run = place.qv("gz -d a.txt.tgzf -o b.txt");
    EXPECT_EQ(run.exitCode, 0) << run.error;
    EXPECT_EQ(place.read("b.txt"), text);
    std::system(("cd '" + place.path() +
                 "' && gzip -n b.txt && cp b.txt.gz named && gzip -c a.txt > n.gz && (cat b.txt.gz; printf yy | gzip "
                 "-n) > members.gz")
                    .c_str());
    EXPECT_EQ(place.qv("gz -d b.txt.gz").exitCode, 0);
    EXPECT_EQ(place.read("b.txt"), text);
    EXPECT_EQ(place.qv("gz -d n.gz").exitCode, 3);  // its header holds a name
    EXPECT_EQ(place.qv("gz -d named").exitCode, 2);
    EXPECT_NE(place.qv("gz -l named").out.find("100000"), std::string::npos);
    EXPECT_EQ(place.qv("gz -d members.gz").exitCode, 4);  // and not the first two bytes of the first
    EXPECT_FALSE(place.exists("members"));
    place.write("cut.gz", place.read("b.txt.gz").substr(0, 60) + std::string("\xA0\x86\1\0", 4));
    EXPECT_EQ(place.qv("gz -d cut.gz").exitCode, 4);
    EXPECT_FALSE(place.exists("cut"));
    place.write("empty", "");
    EXPECT_EQ(place.qv("gz empty").exitCode, 0);
    EXPECT_EQ(place.qv("gz -d empty.tgzf --force").exitCode, 0);
    EXPECT_EQ(place.read("empty"), "");
}

TEST(Crc, TellsAndChecks) {
    Workplace place;
    place.write("digits", "123456789");
    place.write("two words", "abc");
    ToolRun run = place.qv("crc digits 'two words'");
    EXPECT_EQ(run.out, "cbf43926  digits\n352441c2  two words\n");
    EXPECT_EQ(place.qv("crc --crc16 digits").out, "31c3  digits\n");
    place.write("list", run.out + "31C3 digits\n");
    EXPECT_EQ(place.qv("crc --check list").out, "digits: ok\ntwo words: ok\ndigits: ok\n");
    place.write("digits", "12345678");
    place.write("list", run.out + "00000000  absent\n");
    run = place.qv("crc --check list");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "digits: DIFFERS (9ae0daaf)\ntwo words: ok\nabsent: NOT READ\n");
    EXPECT_NE(place.qv("crc --check list --json").out.find("\"wrong\": 2"), std::string::npos);
    place.write("list", "nonsense\n");
    EXPECT_EQ(place.qv("crc --check list").exitCode, 3);
    EXPECT_EQ(place.qv("crc absent").exitCode, 5);
    EXPECT_EQ(place.qv("crc").exitCode, 2);
}

}  // namespace
}  // namespace qv::test
