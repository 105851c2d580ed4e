#include <gtest/gtest.h>

#include "tools/support.h"

namespace qv::test {
namespace {

TEST(Import, WritesAHeaderAndTheFramesBehindIt) {
    const Workshop shop;
    shop.write("a.raw", std::string("\x01\x00\x02\x00\x03\x00\x04\x01", 8));
    shop.write("b.raw", std::string("\x05\x00\x06\x00\x07\x00\x08\x00", 8));
    const ToolRun outcome = shop.qv("import --raw 2x2 --type uint16 a.raw b.raw --tag Camera=MW1 -o run.saf");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.error;
    EXPECT_EQ(outcome.out, "run.saf: 2 frames of 2 x 2, UInt16\n");
    const std::string head =
        "HdSize auto\r\nKeyWrd IMG\r\nxPixls 2\r\nyPixls 2\r\nNumDPs 2\r\nDaType UInt16\r\nBytOrd LSBFirst\r\n"
        "DaUnit counts\r\nCamera MW1\r\nsaf_padding ";
    const std::string file = shop.read("run.saf");
    EXPECT_EQ(file.substr(0, head.size()), head);
    const std::string tail = shop.read("a.raw") + shop.read("b.raw");
    EXPECT_EQ(file.substr(file.size() - tail.size() - 6), "DATA\r\n" + tail);
}

TEST(Import, TurnsElementsIntoLittleEndian) {
    const Workshop shop;
    shop.write("a.raw", std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8));
    const struct {
        const char* size;
        const char* type;
        std::string data;
    } cases[] = {
        {"8x1", "uint8", std::string("\x01\x02\x03\x04\x05\x06\x07\x08", 8)},
        {"4x1", "int16", std::string("\x02\x01\x04\x03\x06\x05\x08\x07", 8)},
        {"2x1", "flt32", std::string("\x04\x03\x02\x01\x08\x07\x06\x05", 8)},
        {"1x1", "uint64", std::string("\x08\x07\x06\x05\x04\x03\x02\x01", 8)},
    };
    for (const auto& row : cases) {
        const ToolRun outcome = shop.qv("import --big-endian --force --raw " + std::string(row.size) + " --type " +
                                        row.type + " a.raw -o run.saf");
        ASSERT_EQ(outcome.exitCode, 0) << outcome.error;
        EXPECT_TRUE(bytesOf(dataOf<char>(shop.file("run.saf"))) == row.data) << row.type;
        EXPECT_EQ(shop.qv("info run.saf").exitCode, 0);
    }
}

TEST(Import, RefusesWhatDoesNotFitAndLeavesNothingBehind) {
    const Workshop shop;
    shop.write("a.raw", "12345678");
    shop.write("short.raw", "1234567");
    shop.write("empty.raw", "");
    const std::vector<std::string> before = shop.listing();
    const struct {
        const char* arguments;
        int code;
        const char* names;
    } cases[] = {
        {"--raw 2x2 short.raw -o o.saf", 4, "7 bytes are not whole frames of 8 bytes"},
        {"--raw 2x2 empty.raw -o o.saf", 4, "empty.raw"},
        {"--raw 2x2 a.raw absent.raw -o o.saf", 5, "absent.raw"},
        {"--raw 2by2 a.raw -o o.saf", 2, "2by2"},
        {"--raw 0x2 a.raw -o o.saf", 2, "0x2"},
        {"--raw -2x2 a.raw -o o.saf", 2, "-2x2"},
        {"--raw 99999999x99999999 a.raw -o o.saf", 2, "99999999x99999999"},
        {"--raw 2x2 --type word a.raw -o o.saf", 2, "word"},
        {"--raw 2x2 --tag Camera a.raw -o o.saf", 2, "Camera"},
        {"--raw 2x2 --tag \"xPixls=7\" a.raw -o o.saf", 2, "xPixls"},
        {"--raw 2x2 a.raw -o nowhere/o.saf", 5, "nowhere/o.saf"},
        {"--raw 2x2 a.raw -o a.raw", 1, "exists already"},
    };
    for (const auto& row : cases) {
        const ToolRun outcome = shop.qv(std::string("import ") + row.arguments);
        EXPECT_EQ(outcome.exitCode, row.code) << row.arguments << '\n' << outcome.error;
        EXPECT_TRUE(isOneSentence(outcome.error)) << row.arguments << '\n' << outcome.error;
        EXPECT_NE(outcome.error.find(row.names), std::string::npos) << row.arguments << '\n' << outcome.error;
    }
    EXPECT_EQ(shop.listing(), before);
    EXPECT_EQ(shop.read("a.raw"), "12345678");
}

}  // namespace
}  // namespace qv::test
