// What every subcommand does with names that are no plain files.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support.h"

namespace qv::test {
namespace {

namespace fs = std::filesystem;

TEST(ToolFiles, DevicesPipesAndFoldersAreRefusedAndStay) {
    const Workshop shop;
    shop.write("one.raw", std::string(8, 'x'));
    ASSERT_EQ(std::system(("mkfifo '" + shop.file("pipe") + "'").c_str()), 0);
    fs::create_directory(shop.file("folder"));
    fs::create_symlink("nowhere", shop.file("loose"));
    ASSERT_EQ(shop.qv("import --raw 2x2 one.raw -o one.saf").exitCode, 0);
    ASSERT_EQ(shop.qv("rcal new one.rcal").exitCode, 0);
    ASSERT_EQ(shop.qv("config set one.ini a=1").exitCode, 0);
    const std::vector<std::string> before = shop.listing();
    for (const std::string odd : {"pipe", "folder", "loose", "\"$(printf '\\377')\""}) {
        for (const std::string& command :
             {"info " + odd, "tags set " + odd + " A=1", "tags sort one.saf --dictionary " + odd, "rcal show " + odd,
              "rcal points one.rcal " + odd, "rcal new new.rcal --add-response " + odd, "config list " + odd,
              "config set " + odd + " a=1", "config convert one.ini --force " + odd,
              "import --raw 2x2 " + odd + " -o new.saf", "calibrate " + odd + " --rcal one.rcal -o new.saf",
              "calibrate one.saf --rcal " + odd + " -o new.saf", "render one.saf --force -o " + odd}) {
            const ToolRun outcome = shop.qv(command);
            EXPECT_EQ(outcome.exitCode, 5) << command << ": " << outcome.error;
            EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 1)
                << command << ": " << outcome.error;
        }
    }
    EXPECT_EQ(shop.listing(), before);
    EXPECT_TRUE(fs::is_fifo(shop.file("pipe")));
}

TEST(ToolFiles, WhatNoTagAndNoFrameCanHoldIsRefusedOrShortened) {
    const Workshop shop;
    shop.write("one.raw", std::string(8, 'x'));
    ASSERT_EQ(shop.qv("import --raw 2x2 one.raw -o one.saf").exitCode, 0);
    ASSERT_EQ(shop.qv("rcal new one.rcal").exitCode, 0);
    for (const std::string command :
         {"import --raw 4294967298x2 one.raw -o new.saf", "import --raw 2x-2 one.raw -o new.saf",
          "calibrate one.saf --rcal one.rcal --reflected nan -o new.saf",
          "calibrate one.saf --rcal one.rcal --reflected -300 -o new.saf",
          "calibrate one.saf --rcal one.rcal --between 0:1 --at nan -o new.saf",
          "render one.saf --range -inf:inf -o new.png", "render one.saf -o ''"}) {
        EXPECT_EQ(shop.qv(command).exitCode, 2) << command;
    }
    EXPECT_FALSE(shop.exists("new.saf"));
    shop.write("points.csv", "temperature_C,counts\n10,1000\n20,20000\n30,40000\n");
    ASSERT_EQ(shop.qv("rcal points one.rcal points.csv").exitCode, 0);
    ASSERT_EQ(shop.qv("rcal fit one.rcal --order 1").exitCode, 0);
    const std::string deep = std::string(200, 'd') + "/" + std::string(200, 'e') + "/" + std::string(200, 'f');
    fs::create_directories(shop.file(deep));
    for (const std::string& name : {deep + "/far.rcal", std::string("two\nlines.rcal")}) {
        fs::copy_file(shop.file("one.rcal"), shop.file(name));
        ASSERT_EQ(shop.qv("calibrate one.saf --force -o new.saf --rcal '" + name + "'").exitCode, 0) << name;
        EXPECT_EQ(shop.qv("tags get new.saf CaEmis").out, "1\n") << name;
        EXPECT_EQ(shop.qv("info new.saf").exitCode, 0) << name;
    }
}

TEST(ToolFiles, AForcedOutputFollowsALinkAndKeepsThePermissions) {
    const Workshop shop;
    ASSERT_EQ(shop.qv("rcal new real.rcal --band 3:5").exitCode, 0);
    const std::string first = shop.read("real.rcal");
    fs::permissions(shop.file("real.rcal"), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("real.rcal", shop.file("link.rcal"));
    ASSERT_EQ(shop.qv("rcal new link.rcal --force --band 8:12").exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(shop.file("link.rcal")));
    EXPECT_NE(shop.read("real.rcal"), first);
    EXPECT_EQ(fs::status(shop.file("real.rcal")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

}  // namespace
}  // namespace qv::test
