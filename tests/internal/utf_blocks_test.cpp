#include "core/utf_blocks.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "core/text.h"

namespace qv::text {
namespace {

/// By pieces that are too short for blocks, cut in front of characters.
std::u16string widened(std::string_view utf8) {
    std::u16string all;
    while (!utf8.empty()) {
        size_t size = std::min<size_t>(utf8.size(), 40);
        while (size < utf8.size() && (utf8[size] & 0xC0) == 0x80) ++size;
        all += toUtf16(utf8.substr(0, size));
        utf8.remove_prefix(size);
    }
    return all;
}

/// Words of characters of all lengths; with `wrong`, some bytes are others.
std::string randomText(std::mt19937& random, bool wrong) {
    constexpr char32_t limits[] = {0x20, 0x80, 0x800, 0xD800, 0xE000, 0x10000, 0x110000};
    std::string text;
    for (const size_t length = 100 + random() % 400; text.size() < length;) {
        size_t kind = random() % 6;
        if (kind == 3) kind = 0;
        for (size_t run = random() % 40; run > 0; --run) {
            const bool edge = random() % 4 == 0;
            const char32_t last = limits[kind + 1] - 1;
            char bytes[4];
            const char32_t character =
                edge ? last : static_cast<char32_t>(limits[kind] + random() % (last - limits[kind] + 1));
            text.append(bytes, encode(character, bytes));
        }
    }
    for (auto n = wrong ? 1 + random() % 3 : 0; n > 0; --n) {
        text[random() % text.size()] = static_cast<char>(random() % 3 == 0 ? 0xE0 + random() % 24 : random());
    }
    return text;
}

TEST(UtfBlocks, EveryWayGivesWhatOneCharacterAtATimeGives) {
    constexpr size_t slack = 80;
    std::mt19937 random(7);
    for (int round = 0; round < 4000; ++round) {
        const bool wrong = round % 2 == 1;
        const std::string utf8 = randomText(random, wrong);
        std::u16string utf16 = widened(utf8);
        for (int way = 0; way <= static_cast<int>(bestBlockWay); ++way) {
            const auto with = static_cast<BlockWay>(way);
            std::u16string units(utf8.size() + slack, u'?');
            const Stretch to16 = convertBlocks(utf8, units.data(), units.size(), with);
            const Stretch counted = convertBlocks(utf8, nullptr, noRoom, with);
            ASSERT_EQ(units.substr(0, to16.written), widened(std::string_view(utf8).substr(0, to16.read))) << way;
            ASSERT_EQ(counted.written, convertedLength(std::string_view(utf8).substr(0, counted.read))) << way;
            if (way != 0 && !wrong) {
                ASSERT_GE(to16.read + slack, utf8.size());
            }
            if (wrong && !utf16.empty())
                utf16[random() % utf16.size()] = static_cast<char16_t>(0xD800 + random() % 2048);
            std::string bytes(utf16.size() * 3 + slack, '?');
            const Stretch to8 = convertBlocks(utf16, bytes.data(), bytes.size(), with);
            ASSERT_EQ(widened(bytes.substr(0, to8.written)), utf16.substr(0, to8.read)) << way;
            ASSERT_EQ(convertBlocks(utf16, nullptr, noRoom, with).written, to8.written) << way;
            if (way != 0 && !wrong) {
                ASSERT_GE(to8.read + slack, utf16.size());
            }
        }
        ASSERT_EQ(toUtf16(utf8), widened(utf8));
    }
}

}  // namespace
}  // namespace qv::text
