#include "qv/norm_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "support/memory_file.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using test::bytesOf;
using test::memoryFile;

using Flags = std::vector<uint8_t>;
using Subs = std::vector<uint32_t>;

std::string repeated(const std::string& text, int times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

/// "A", NUL, "B", NUL ...: `count` UTF-16 characters from `first` on.
std::string letters(char first, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += {static_cast<char>(first + i % 10), '\0'};
    return text;
}

const std::string stampBytes = letters('0', 9);
const std::string textBytes = letters('a', 64) + letters('k', 64) + letters('A', 64);

/// A header of version 2 by hand: 2 by 3 pixels, subframe 0x0102, calType 5, flags 1 and 7, numAvg 0x0304, bpTol 0.75.
std::string header(char type, bool swapped = false) {
    using namespace std::string_literals;
    return swapped ? "\x02"s + type + "\x00\x02\x00\x03\x01\x02"s + stampBytes +
                         "\x05\x01\x07\x03\x04\x3F\x40\x00\x00"s + textBytes
                   : "\x02"s + type + "\x02\x00\x03\x00\x02\x01"s + stampBytes +
                         "\x05\x01\x07\x04\x03\x00\x00\x40\x3F"s + textBytes;
}

const std::string gains = repeated(std::string("\x00\x00\x80\x3F\x00\x00\x00\xC0", 8), 3);  // 1 and -2
const std::string offsets = repeated("\x01\x02\xFE\xFF", 3);                                // 0x0201 and -2
const std::string flags("\x00\x01\x00\x02\x00\x00", 6);
std::string subsOf(const Subs& subs) { return {reinterpret_cast<const char*>(subs.data()), subs.size() * 4}; }

std::string saved(const CNormFile& norm, bool swapped = false) {
    const TSharedPtr<IFile> file = CMemFile::Create();
    swapFlag(*file) = swapped;
    EXPECT_TRUE(norm.Save(file));
    return bytesOf(*file);
}

bool load(CNormFile& norm, const std::string& bytes, bool swapped = false) {
    const TSharedPtr<IFile> file = memoryFile(bytes);
    swapFlag(*file) = swapped;
    return norm.Load(file);
}

Subs setUp(const Flags& frame, uint32_t width) {
    Subs subs(frame.size());
    CNormFile::SetupBPSubs(frame.data(), subs.data(), width, static_cast<uint32_t>(frame.size()) / width);
    return subs;
}

TEST(NormFile, ReadsAndWritesGoldenBytesInBothByteOrders) {
    for (const bool swapped : {false, true}) {
        CNormFile norm;
        const std::string files[] = {header(0, swapped) + gains, header(1, swapped) + offsets,
                                     header(2, swapped) + flags + subsOf({0, 3, 2, 3, 4, 5})};
        for (const std::string& bytes : files) {
            ASSERT_TRUE(load(norm, bytes, swapped));
            EXPECT_EQ(saved(norm, swapped), bytes);
            EXPECT_EQ(norm.xPixels(), 2);
            EXPECT_EQ(norm.yPixels(), 3);
            EXPECT_EQ(norm.subframe(), 0x0102);
            EXPECT_EQ(norm.calType(), 5);
            EXPECT_EQ(norm.numAvg(), 0x0304);
            EXPECT_EQ(norm.bpTol(), 0.75);
            EXPECT_EQ(CString(norm.GetHeader().timeStamp), u"012345678");
            EXPECT_EQ(CString(norm.GetHeader().text3).size(), 64u);
        }
        ASSERT_NE(norm.GetBadPixels().subs, nullptr);  // a stored table is not made anew: 0 would come first
        EXPECT_EQ(norm.GetBadPixels().subs[1], 3u);
        EXPECT_EQ(norm.GetBadPixels().tolerance, 0.75);
        EXPECT_EQ(norm.GetGains(), nullptr);
        ASSERT_TRUE(load(norm, files[0], swapped));
        EXPECT_EQ(norm.GetGains()[5], -2.0F);
        EXPECT_EQ(norm.GetBadPixels().flags, CNormFile::NULL_BPINFO.flags);
        EXPECT_EQ(norm.GetBadPixels().tolerance, 0.0);
        ASSERT_TRUE(load(norm, files[1], swapped));
        EXPECT_EQ(norm.GetOffsets()[0], 0x0201);
    }
}

TEST(NormFile, VersionOneEndsItsHeaderEarlyAndHasNoSubstitutes) {
    CNormFile norm;
    const std::string bytes = '\x01' + header(2).substr(1, 25) + flags;
    ASSERT_TRUE(load(norm, bytes + "trailing"));
    EXPECT_EQ(Subs(norm.GetBadPixels().subs, norm.GetBadPixels().subs + 6), (Subs{0, 0, 2, 3, 4, 5}));
    EXPECT_EQ(norm.numAvg(), 0);
    EXPECT_EQ(saved(norm), bytes);
}

TEST(NormFile, SubstitutesOutsideTheFrameAreMadeAnew) {
    CNormFile norm;
    ASSERT_TRUE(load(norm, header(2) + flags + subsOf({0, 3, 2, 3, 4, 6})));
    EXPECT_EQ(Subs(norm.GetBadPixels().subs, norm.GetBadPixels().subs + 6), (Subs{0, 0, 2, 3, 4, 5}));
}

TEST(NormFile, NewTablesAreNeutralAndStamped) {
    test::TempFolder folder;
    const CString path = folder.path(u"t.norm");
    CNormFile norm, read;
    for (const auto type : {CNormFile::TYPE_GAIN, CNormFile::TYPE_OFFSET, CNormFile::TYPE_BAD_PIXEL}) {
        ASSERT_TRUE(norm.New(type, 2, 2, 4, 6, 8, 0.25F));
        ASSERT_TRUE(norm.Save(&fileSystem(), path.c_str()));
        ASSERT_TRUE(read.Load(&fileSystem(), path.c_str()));
        EXPECT_EQ(saved(read), saved(norm));
    }
    EXPECT_EQ(norm.GetHeader().version, 2);
    EXPECT_EQ(norm.GetHeader().flag2 + norm.GetHeader().flag3, 2);
    EXPECT_EQ(saved(norm).substr(419), std::string(4, '\0') + subsOf({0, 1, 2, 3}));
    norm.New(CNormFile::TYPE_GAIN, 2, 2, 0, 0, 0, 0);
    EXPECT_EQ(saved(norm).substr(419), repeated(std::string("\0\0\x80\x3F", 4), 4));
    EXPECT_FALSE(norm.SetupBPSubs());
    EXPECT_FALSE(norm.New(CNormFile::TYPE_NONE, 2, 2, 0, 0, 0, 0));
    EXPECT_EQ(norm.GetType(), CNormFile::TYPE_NONE);
    EXPECT_FALSE(norm.Save(&fileSystem(), folder.path(u"none.norm").c_str()));
    EXPECT_FALSE(fileSystem().FileExists(folder.path(u"none.norm").c_str()));
}

TEST(NormFile, TheStampIsLocalTimeWithTheDayOfTheYearFromOne) {
    const auto now = [] {
        const std::time_t time = std::time(nullptr);
        char text[32];
        std::strftime(text, sizeof text, "%j:%H:%M:%S", std::localtime(&time));
        return CString(text);
    };
    const CString before = now();
    CNormFile::SFileHeader header;
    ASSERT_TRUE(CNormFile::NewHeader(header, CNormFile::TYPE_OFFSET, 1, 1, 0));
    const CString after = now();
    const CString stamp = header.timeStamp;
    ASSERT_EQ(stamp.size(), 17u);
    EXPECT_EQ(stamp[12], u'.');
    const CString seconds = stamp.substr(0, 12);
    EXPECT_TRUE(before > after || (before <= seconds && seconds <= after)) << CStringMB(stamp.c_str()).c_str();
    EXPECT_EQ(header.calType * 100 + header.numAvg, 310);
    EXPECT_EQ(header.bpTol, 0.5F);
}

TEST(NormFile, FilesThatPromiseMoreThanTheyHoldAreRefused) {
    const std::string whole = header(2) + flags + subsOf({0, 3, 2, 3, 4, 5});
    CNormFile norm;
    for (size_t size = 0; size < whole.size(); ++size) {
        ASSERT_FALSE(load(norm, whole.substr(0, size))) << size;
        EXPECT_FALSE(norm.Save(TSharedPtr<IFile>(CMemFile::Create())));
        EXPECT_FALSE(norm.SetupBPSubs());
    }
    for (char type = 0; type < 5; ++type) {
        std::string huge = header(type) + flags;
        huge.replace(2, 4, "\xFF\xFF\xFF\xFF");
        EXPECT_FALSE(load(norm, huge));
    }
    EXPECT_FALSE(norm.Load(&fileSystem(), u"/no/such/file"));
    EXPECT_FALSE(norm.Load(TSharedPtr<IFile>()));
}

TEST(NormFile, StaticLoadsTakeTheFirstRowsOfAFileThatIsHighEnough) {
    float table[6] = {};
    int16_t levels[6] = {};
    EXPECT_TRUE(CNormFile::LoadGainTable(memoryFile(header(0) + gains), 2, 2, table));
    EXPECT_EQ(table[3], -2.0F);
    EXPECT_EQ(table[4], 0.0F);
    EXPECT_TRUE(CNormFile::LoadOffsetTable(memoryFile(header(1) + offsets), 2, 3, levels));
    EXPECT_EQ(levels[5], -2);
    EXPECT_FALSE(CNormFile::LoadGainTable(memoryFile(header(0) + gains), 2, 4, table));
    EXPECT_FALSE(CNormFile::LoadGainTable(memoryFile(header(0) + gains), 1, 3, table));
    EXPECT_FALSE(CNormFile::LoadGainTable(memoryFile(header(1) + gains), 2, 3, table));
    EXPECT_FALSE(CNormFile::LoadGainTable(memoryFile(header(0) + gains.substr(1)), 2, 3, table));
}

TEST(NormFile, SubstitutesOfAHigherFileAreReadFromTheOddPlace) {
    // One row of two pixels, the first one bad, is asked of a file of 1 + `more` rows.
    const auto substitutes = [](int more) {
        std::string file = header(2);
        file[4] = static_cast<char>(1 + more);
        file.replace(35, 384, 384, '\0');
        file += std::string("\1\0", 2) + std::string(static_cast<size_t>(2 * more), '\0') + std::string(800, '\1');
        uint8_t read[2];
        Subs subs(2);
        EXPECT_TRUE(CNormFile::LoadBadPixelTable(memoryFile(file), 2, 1, read, subs.data()));
        return subs;
    };
    EXPECT_EQ(substitutes(0), (Subs{1, 1}));   // behind the flags: no pixels, so made anew
    EXPECT_EQ(substitutes(1), (Subs{1, 1}));   // byte 1, in the header's numbers: likewise
    EXPECT_EQ(substitutes(40), (Subs{0, 0}));  // byte 40, in the empty texts: eight zeros
}

TEST(NormFile, StaticSavesWriteTheSubstitutesTwice) {
    test::TempFolder folder;
    const CString path = folder.path(u"bp.norm");
    const Flags frame = {0, 1, 0, 0};
    const Subs subs = {0, 2, 2, 3};
    ASSERT_TRUE(CNormFile::SaveBadPixelTable(&fileSystem(), path.c_str(), 2, 2, 9, frame.data(), subs.data()));
    Flags readFlags(4);
    Subs readSubs(4);
    ASSERT_TRUE(CNormFile::LoadBadPixelTable(&fileSystem(), path.c_str(), 2, 2, readFlags.data(), readSubs.data()));
    EXPECT_EQ(readFlags, frame);
    EXPECT_EQ(readSubs, subs);
    const std::string bytes = bytesOf(*fileSystem().CreateFileW(path.c_str(), 530));
    EXPECT_EQ(bytes.substr(419), std::string("\0\1\0\0", 4) + subsOf(subs) + subsOf(subs));
    EXPECT_EQ(bytes.substr(0, 8), std::string("\2\2\2\0\2\0\x09\0", 8));
    CNormFile norm;
    ASSERT_TRUE(norm.Load(&fileSystem(), path.c_str()));
    EXPECT_EQ(norm.GetBadPixels().subs[1], 2u);
    EXPECT_FALSE(CNormFile::SaveBadPixelTable(&fileSystem(), path.c_str(), 65536, 1, 9, frame.data(), subs.data()));

    const float factors[] = {1, 2, 3};
    float back[3] = {};
    ASSERT_TRUE(CNormFile::SaveGainTable(&fileSystem(), path.c_str(), 3, 1, 0, factors));
    ASSERT_TRUE(CNormFile::LoadGainTable(&fileSystem(), path.c_str(), 3, 1, back));
    EXPECT_TRUE(std::equal(back, back + 3, factors));
}

// Substitutes --------------------------------------------------------------------------------------------------------

struct Pixel {
    uint32_t x, y;
};

/// The substitute of (30, 30) in a frame of 60 by 60 in which it is bad and only `good` pixels are good.
uint32_t substituteOf30(const std::vector<Pixel>& good) {
    Flags frame(60 * 60, 2);  // neither good nor bad
    frame[30 * 60 + 30] = 1;
    for (const Pixel& pixel : good) frame[pixel.y * 60 + pixel.x] = 0;
    return setUp(frame, 60)[30 * 60 + 30];
}

TEST(NormSubstitutes, TheNearestAreLookedAtInTheirOrder) {
    const std::vector<Pixel> order = {
        {30, 29}, {29, 30}, {30, 31}, {31, 30}, {29, 29}, {31, 29}, {29, 31}, {31, 31},  // the eight around it
        {29, 28}, {30, 28}, {31, 28}, {32, 28}, {33, 28},                                // ring 0 from (28, 28): right
        {33, 29}, {33, 30}, {33, 31}, {33, 32}, {33, 33},                                // down
        {32, 33}, {31, 33}, {30, 33}, {29, 33},                                          // left
        {29, 32},                                                                        // up; (29, 31) stands above
        {28, 27}, {29, 27},                                                              // ring 1 from (27, 27)
    };
    for (size_t i = 0; i < order.size(); ++i) {
        const std::vector<Pixel> rest(order.begin() + static_cast<std::ptrdiff_t>(i), order.end());
        EXPECT_EQ(substituteOf30(rest), order[i].y * 60 + order[i].x) << i;
    }
}

TEST(NormSubstitutes, RingsReachFurtherRightAndDownAndEndAtSide41) {
    const struct {
        Pixel good;
        bool found;
    } cases[] = {
        {{28, 28}, false}, {{28, 29}, false},                                        // where ring 0 begins, and beside
        {{28, 30}, true},                                                            // ring 1 on its way up
        {{27, 27}, false}, {{33, 28}, true},  {{33, 33}, true},  {{29, 33}, true},   // corners
        {{11, 10}, true},  {{51, 10}, true},  {{51, 51}, true},  {{11, 51}, true},   // the last ring, from (10, 10)
        {{11, 13}, true},  {{11, 12}, false}, {{10, 10}, false}, {{10, 30}, false},  // where it ends
        {{30, 9}, false},  {{52, 30}, false}, {{30, 52}, false}, {{11, 11}, false},  // outside
    };
    for (const auto& [good, found] : cases) {
        const uint32_t expected = found ? good.y * 60 + good.x : 30u * 60 + 30;
        EXPECT_EQ(substituteOf30({good}), expected) << good.x << ' ' << good.y;
    }
}

TEST(NormSubstitutes, EdgesCountBesideThePixelButNotInRings) {
    EXPECT_EQ(setUp({1, 0, 1, 1}, 2), (Subs{1, 1, 1, 1}));  // right; above; above-right comes behind above
    EXPECT_EQ(setUp({1, 2, 2, 0}, 2), (Subs{3, 1, 2, 3}));
    EXPECT_EQ(setUp({1, 1, 1, 1}, 2), (Subs{0, 1, 2, 3}));
    EXPECT_TRUE(setUp({}, 1).empty());
    // Five by five, only the edge is good: the middle finds none of it, its neighbours do.
    Flags frame(25, 0);
    for (const uint32_t i : {6u, 7u, 8u, 11u, 12u, 13u, 16u, 17u, 18u}) frame[i] = 1;
    const Subs subs = setUp(frame, 5);
    EXPECT_EQ(subs[12], 12u);
    EXPECT_EQ(subs[6], 1u);
    EXPECT_EQ(subs[11], 10u);
    EXPECT_EQ(subs[13], 14u);
    EXPECT_EQ(subs[17], 22u);
}

/// The search written down as a path of letters.
Subs walked(const Flags& frame, int width) {
    const int height = static_cast<int>(frame.size()) / width;
    Subs subs(frame.size());
    for (int i = 0; i < static_cast<int>(frame.size()); ++i) {
        subs[static_cast<size_t>(i)] = static_cast<uint32_t>(i);
        if (frame[static_cast<size_t>(i)] != 1) continue;
        bool done = false;
        const auto look = [&](int x, int y, int margin) {
            if (done || x < margin || y < margin || x >= width - margin || y >= height - margin) return;
            if (frame[static_cast<size_t>(y * width + x)] != 0) return;
            subs[static_cast<size_t>(i)] = static_cast<uint32_t>(y * width + x);
            done = true;
        };
        const int x = i % width, y = i / width;
        for (const auto& [dx, dy] : {std::pair{0, -1}, {-1, 0}, {0, 1}, {1, 0}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}})
            look(x + dx, y + dy, 0);
        for (int side = 5, begin = 2; side <= 41; side += 2, ++begin) {
            std::string path = repeated("r", side) + repeated("d", side) + repeated("l", side - 1);
            path.resize(static_cast<size_t>(16 + 8 * (begin - 2)), 'u');
            int u = x - begin, v = y - begin;
            for (const char step : path) {
                u += (step == 'r') - (step == 'l');
                v += (step == 'd') - (step == 'u');
                look(u, v, 1);
            }
        }
    }
    return subs;
}

TEST(NormSubstitutes, FramesOfAnyDensityFollowThePath) {
    std::mt19937 random(5);
    for (const int goodPerThousand : {0, 1, 2, 10, 100, 700}) {
        for (const int width : {1, 3, 37, 90}) {
            Flags frame(static_cast<size_t>(width) * 50);
            for (uint8_t& flag : frame) {
                const auto draw = static_cast<int>(random() % 1000);
                flag = draw < goodPerThousand ? 0 : draw % 20 == 0 ? 2 : 1;
            }
            ASSERT_EQ(setUp(frame, static_cast<uint32_t>(width)), walked(frame, width))
                << goodPerThousand << ' ' << width;
        }
    }
}

}  // namespace
}  // namespace qv
