#include <gtest/gtest.h>

#include <string>

#include "tools/tool.h"

namespace qv::test {
namespace {

/// Runs `qv watch folder ARGUMENTS`, and `acts` (lines of shell) once it watches. `pid` is the program there.
ToolRun watch(const Workplace& place, const std::string& arguments, const std::string& acts) {
    place.write("script",
                "set -e\n"
                "mkdir -p folder\n"
                "'" QV_TOOL "' watch folder " +
                    arguments +
                    " & pid=$!\n"
                    "until grep -q watching .error; do sleep 0.01; done\n" +
                    acts +
                    "\n"
                    "wait $pid\n");
    const std::string command = "cd '" + place.path() + "' && timeout 120 bash script >.out 2>.error";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, place.read(".out"), place.read(".error")};
}

TEST(Watch, TellsOfFilesOnceTheyHaveSettled) {
    struct Row {
        const char *arguments, *acts, *lines;
    };
    const Row rows[] = {
        // A recorder that writes piece by piece under another name, and an editor that saves by a rename.
        {"--settle 1000 --count 2",
         "for i in 1 2 3; do echo $i >>folder/r.tmp; done; mv folder/r.tmp folder/r; touch folder/z",
         "new\tfolder/r\nnew\tfolder/z\n"},
        {"--settle 1000 --count 1", "touch folder/x; rm folder/x; echo 1 >>folder/r", "change\tfolder/r\n"},
        {"--count 1", "mv folder/r folder/s", "rename\tfolder/r\tfolder/s\n"},
        {"--count 1 --on remove", "touch folder/t; rm folder/s", "remove\tfolder/s\n"},
        {"--settle 0 --on new --count 2", "mkdir folder/a; touch $'folder/a/\\t\\\\'",
         "new\tfolder/a\nnew\tfolder/a/\\t\\\\\n"},
        {"--match '*.SAF|*.rcal' --settle 300 --count 1", "touch folder/1.txt; touch folder/2.saf",
         "new\tfolder/2.saf\n"},
        {"--json --count 1", "mv folder/2.saf folder/3.saf",
         "{\"schema\": \"qv.watch.1\", \"event\": \"rename\", \"path\": \"folder/3.saf\", \"from\": "
         "\"folder/2.saf\"}\n"},
    };
    const Workplace place;
    for (const Row& row : rows) {
        const ToolRun run = watch(place, row.arguments, row.acts);
        EXPECT_EQ(run.out, row.lines) << run.error;
        EXPECT_EQ(run.exitCode, 0) << row.arguments;
    }
}

TEST(Watch, RunsACommandForEachFile) {
    const Workplace place;
    ToolRun run = watch(place, "--settle 500 --count 2 -- echo got", "mkdir folder/f; touch folder/f/a folder/f/b");
    EXPECT_EQ(run.out, "got folder/f/a\ngot folder/f/b\n");
    EXPECT_EQ(run.exitCode, 0);

    run = watch(place, "--settle 300 --count 2 -- sh -c 'echo \"$1\"; cat; test \"$1\" != folder/1.x' sh {}.x",
                "touch folder/1; until [ -s .out ]; do sleep 0.01; done; touch folder/2");
    EXPECT_EQ(run.out, "folder/1.x\nfolder/2.x\n");
    EXPECT_NE(run.error.find("qv: sh for folder/1 ended with 1\n"), std::string::npos) << run.error;
    EXPECT_EQ(run.exitCode, 6);

    run = watch(place, "--settle 300 --count 1 -- ./no-such-program", "touch folder/3");
    EXPECT_NE(run.error.find("no-such-program for folder/3 cannot be run: No such file"), std::string::npos)
        << run.error;
    EXPECT_EQ(run.exitCode, 6);

    // No more runs than were asked for, and a word on a file that the command cannot be given.
    run = watch(place, "--settle 300 --count 2 -- sh -c 'echo run; echo run >>ran'",
                "touch $'folder/\\xFF' folder/4 folder/5 folder/6 folder/7");
    EXPECT_EQ(run.out, "run\nrun\n");
    EXPECT_EQ(place.read("ran"), "run\nrun\n");
    EXPECT_NE(run.error.find("name that is not UTF-8\n"), std::string::npos) << run.error;
}

TEST(Watch, EndsWhenItIsToldTo) {
    const Workplace place;
    ToolRun run = watch(place, "", "kill $pid");
    EXPECT_EQ(run.exitCode, 0) << run.error;
    EXPECT_EQ(run.out, "");
    // The command is told as well, and finishes.
    run = watch(place, "--settle 300 -- sh -c 'trap \"echo told; exit\" TERM; echo runs; while :; do sleep 0.01; done'",
                "touch folder/a; until [ -s .out ]; do sleep 0.01; done; kill $pid");
    EXPECT_EQ(run.out, "runs\ntold\n");
    EXPECT_EQ(run.exitCode, 0) << run.error;
    run = watch(place, "", "rm -r folder");
    EXPECT_EQ(run.exitCode, 5);
    EXPECT_NE(run.error.find("qv: folder: expected a directory"), std::string::npos) << run.error;
    EXPECT_EQ(place.qv("watch nothing").exitCode, 5);
    EXPECT_EQ(place.qv("watch . --on nothing").exitCode, 2);
}

}  // namespace
}  // namespace qv::test
