#include <gtest/gtest.h>

#include <algorithm>

#include "tool.h"

namespace qv::test {
namespace {

size_t lines(const std::string& text) { return static_cast<size_t>(std::ranges::count(text, '\n')); }

TEST(Pack, CarriesFilesInEveryFormat) {
    Workplace place;
    place.write("a.txt", "first");
    place.write("b.txt", std::string(10'000, 'b'));
    const struct {
        const char *container, *a, *b;
    } rows[] = {{"c.cdfs", "a.txt", "b.txt"}, {"c.aff", "1", "2"}, {"c.kmr", "1", "2"}};
    for (const auto& row : rows) {
        const std::string container = row.container, a = row.a, b = row.b;
        EXPECT_EQ(place.qv("pack add " + container + " a.txt b.txt --dry-run").exitCode, 0);
        EXPECT_FALSE(place.exists(container));
        ToolRun run = place.qv("pack add " + container + " a.txt b.txt");
        EXPECT_EQ(run.exitCode, 0) << run.error;
        EXPECT_EQ(lines(place.qv("pack ls " + container).out), 3u);
        EXPECT_EQ(place.qv("pack verify " + container).exitCode, 0);
        EXPECT_EQ(place.qv("pack get " + container + " " + b + " -o b.out --force").exitCode, 0);
        EXPECT_EQ(place.read("b.out"), place.read("b.txt"));
        EXPECT_EQ(place.qv("crc " + container + ":" + a).out.substr(0, 8), place.qv("crc a.txt").out.substr(0, 8));
        EXPECT_EQ(place.qv("info " + container).exitCode, 0);
        EXPECT_EQ(place.qv("pack rm " + container + " " + a).exitCode, 0);
        EXPECT_EQ(place.qv("pack rm " + container + " " + a).exitCode, 1);
        EXPECT_EQ(place.qv("crc " + container + ":" + a).exitCode, 1);
        EXPECT_EQ(place.qv("pack get " + container + " -o out/ --force").exitCode, 0);
        EXPECT_EQ(place.read("out/" + b), place.read("b.txt"));
    }
    EXPECT_EQ(place.qv("pack add c.cdfs b.txt").exitCode, 1);
    EXPECT_EQ(place.qv("pack add c.aff a.txt --as name").exitCode, 2);
    EXPECT_EQ(place.qv("pack add new.bin b.txt").exitCode, 2);
    EXPECT_EQ(place.qv("pack ls a.txt").exitCode, 3);
    EXPECT_EQ(place.qv("pack ls absent").exitCode, 5);
}

TEST(Pack, EditsAHeaderInsideAContainer) {
    Workplace place;
    ASSERT_EQ(place.qv("demo d --quiet").exitCode, 0);
    EXPECT_EQ(place.qv("calibrate d/counts.saf --rcal d/camera.rcal -o plain.saf").exitCode, 0);
    EXPECT_EQ(place.qv("pack add c.aff d/counts.saf d/camera.rcal").exitCode, 0);
    EXPECT_EQ(place.qv("pack attach d/celsius.png d/counts.saf d/camera.rcal").exitCode, 0);
    for (const std::string container : {"c.aff:1", "d/celsius.png:d/counts.saf"}) {
        for (int i = 0; i < 40; ++i) {  // beyond the pad
            const std::string tag = " Note" + std::to_string(i) + "=" + std::string(300, 'x');
            ASSERT_EQ(place.qv("tags set " + container + tag).exitCode, 0);
        }
        EXPECT_EQ(place.qv("tags get " + container + " Note39").out, std::string(300, 'x') + "\n");
        EXPECT_EQ(place.qv("calibrate " + container + " --rcal d/camera.rcal -o new.saf --force").exitCode, 0);
        const std::string frames = place.read("new.saf"), expected = place.read("plain.saf");
        EXPECT_TRUE(frames.ends_with(expected.substr(expected.size() - 100'000))) << container;
    }
    EXPECT_EQ(place.qv("rcal show c.aff:2").exitCode, 0);
    EXPECT_EQ(place.qv("pack verify c.aff").exitCode, 0);
    EXPECT_EQ(place.qv("pack verify d/celsius.png").exitCode, 0);
}

TEST(Pack, TakesOddCommandLines) {
    Workplace place;
    for (const char* name : {"a", "b", "c"}) place.write(name, name);
    const struct {
        const char* command;
        int exitCode;
    } rows[] = {
        {"pack add twins.aff a b c --id 7", 0},
        {"pack rm twins.aff @1 @0 @1", 0},
        {"pack add c.aff a b c", 0},
        {"pack rm c.aff 1 @2 03 1", 0},
        {"pack add c.cdfs a b c", 0},
        {"pack rm c.cdfs a A ./a", 0},
        {"pack add c.cdfs c.cdfs", 2},
        {"pack add c.cdfs ./c.cdfs:b --as d", 2},
        {"pack attach a a", 2},
        {"gz c.cdfs:b", 2},
        {"pack get c.cdfs b -o c.cdfs:new", 2},
    };
    for (const auto& row : rows) EXPECT_EQ(place.qv(row.command).exitCode, row.exitCode) << row.command;
    EXPECT_EQ(place.qv("pack get twins.aff 7 -o out").exitCode, 0);
    EXPECT_EQ(place.read("out"), "c");
    EXPECT_EQ(lines(place.qv("pack ls c.aff").out), 2u);
    EXPECT_EQ(place.qv("pack get c.aff 2 -o out --force").exitCode, 0);
    EXPECT_EQ(place.read("out"), "b");
    EXPECT_EQ(lines(place.qv("pack ls c.cdfs").out), 3u);
    EXPECT_EQ(place.read("a"), "a");
    EXPECT_FALSE(place.exists("c.cdfs:b.tgzf"));
    // A container in a container.
    for (const char* command :
         {"pack add outer.cdfs twins.aff c.cdfs a", "pack add outer.cdfs:c.cdfs a",
          "pack get outer.cdfs:c.cdfs a -o out --force", "pack verify outer.cdfs:c.cdfs", "pack rm outer.cdfs:c.cdfs b",
          "pack ls outer.cdfs:twins.aff", "pack attach outer.cdfs:a b", "pack verify outer.cdfs"}) {
        const ToolRun run = place.qv(command);
        EXPECT_EQ(run.exitCode, 0) << command << '\n' << run.error;
    }
    EXPECT_EQ(place.read("out"), "a");
    EXPECT_EQ(lines(place.qv("pack ls outer.cdfs:c.cdfs").out), 3u);
    EXPECT_EQ(place.qv("pack add outer.cdfs:new.cdfs a").exitCode, 5);
    EXPECT_FALSE(place.exists("outer.cdfs:new.cdfs"));
    // A list of checksums from a container is read, and not taken for an empty one.
    place.write("sums", "deadbeef  b\n");
    // Settings and points in a container are used there; a calibration names files on disk alone.
    place.write("s.ini", "[view]\nrange=20\n");
    place.write("p.csv", "temperature_C,counts\n20,1000\n40,2000\n60,3500\n80,5200\n");
    EXPECT_EQ(place.qv("pack add c.cdfs s.ini p.csv").exitCode, 0);
    EXPECT_EQ(place.qv("config set c.cdfs:s.ini view/range=40").exitCode, 0);
    EXPECT_EQ(place.qv("config get c.cdfs:s.ini view/range").out, "40\n");
    EXPECT_EQ(place.qv("config convert c.cdfs:s.ini s.db").exitCode, 0);
    EXPECT_EQ(place.qv("rcal new x.rcal --band 3:5").exitCode, 0);
    EXPECT_EQ(place.qv("rcal points x.rcal c.cdfs:p.csv").exitCode, 0);
    EXPECT_EQ(place.qv("rcal new y.rcal --response c.cdfs:p.csv").exitCode, 2);
    EXPECT_EQ(place.qv("pack add c.cdfs sums").exitCode, 0);
    EXPECT_EQ(place.qv("crc --check c.cdfs:sums").exitCode, 1);
}

TEST(Pack, FindsContainersThatDoNotOpen) {
    Workplace place;
    place.write("a.txt", "first");
    place.write("host", std::string(500, 'h'));
    EXPECT_EQ(place.qv("pack attach host a.txt").exitCode, 0);
    const std::string whole = place.read("host");
    place.write("host", whole.substr(0, whole.size() - 16) + std::string(20'000, 'x'));
    EXPECT_EQ(place.qv("pack ls host").exitCode, 3);
    EXPECT_EQ(place.qv("pack recover host -o mended").out, "byte 500: a table of 1 files\n");
    EXPECT_EQ(place.qv("pack get mended a.txt -o b.txt").exitCode, 0);
    EXPECT_EQ(place.read("b.txt"), "first");
    // An entry over the table is told; of two with one name, and of all others, what can be had is taken out.
    std::string damaged = whole;
    damaged.replace(damaged.find("Offset", damaged.find("a.txt")) + 10, 4, "0000");
    place.write("over", damaged);
    EXPECT_NE(place.qv("pack verify over").out.find("lies over the table"), std::string::npos);
    for (const char* name : {"twin1.txt", "twin2.txt", "good.txt"}) place.write(name, name);
    EXPECT_EQ(place.qv("pack add two.cdfs twin1.txt twin2.txt good.txt").exitCode, 0);
    std::string twins = place.read("two.cdfs");
    for (size_t at = 0; (at = twins.find("twin2")) < 4096;) twins.replace(at, 5, "twin1");
    place.write("two.cdfs", twins);
    EXPECT_EQ(place.qv("pack get two.cdfs -o all/").exitCode, 4);
    EXPECT_EQ(place.read("all/good.txt"), "good.txt");
    place.write("cut", whole.substr(0, 500 + 4096 + 3));
    EXPECT_EQ(place.qv("pack recover cut -o cut.cdfs").exitCode, 0);
    EXPECT_EQ(place.qv("pack verify cut.cdfs").exitCode, 1);
    EXPECT_EQ(place.qv("pack recover a.txt").exitCode, 1);
}

}  // namespace
}  // namespace qv::test
