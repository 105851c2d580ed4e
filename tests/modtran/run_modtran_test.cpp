// RunModtran with a stand-in for the outside program.
#include "qv/run_modtran.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "qv/diagnostic.h"
#include "qv/tape5_file.h"
#include "qv/tape7_file.h"
#include "support/temp_folder.h"

namespace qv::test {
namespace {

const CString pathAtStart(GetModtranExePath());

std::string complaint() { return CStringMB(LastDiagnostic().ToString()).c_str(); }

/// A folder with the program in it, and a deck. The path of before comes back at the end.
class RunModtranTest : public testing::Test {
protected:
    RunModtranTest() : m_before(GetModtranExePath()) {
        std::filesystem::create_directory(path("model folder"));
        std::filesystem::copy_file(QV_STAND_IN, path("model folder/program"));
        EXPECT_TRUE(SetModtranExePath(wide("model folder/program").c_str())) << complaint();
        deck.AddRun();
    }
    ~RunModtranTest() override {
        unsetenv("QV_STAND_IN");
        // What the default names is not there, so a test that began with it leaves the stand-in's name behind.
        if (fileSystem().FileExists(m_before.c_str())) SetModtranExePath(m_before.c_str());
    }

    std::string path(const std::string& name) const {
        return std::string(CStringMB(m_folder.path()).c_str()) + "/" + name;
    }
    CString wide(const std::string& name) const { return CString(path(name)); }
    std::string read(const std::string& name) const {
        std::ifstream in(path("model folder/" + name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    bool exists(const std::string& name) const { return std::filesystem::exists(path("model folder/" + name)); }
    bool run(const char* orders = "") {
        setenv("QV_STAND_IN", orders, 1);
        ClearDiagnostic();
        return RunModtran(deck, tape7, 0);
    }

    CModtranTape5File deck;
    CModtranTape7File tape7;

private:
    TempFolder m_folder;
    CString m_before;
};

TEST_F(RunModtranTest, ADeckOfEveryModeComesBackAsItsTable) {
    for (const int32_t mode : {0, 1, 2, 3}) {
        ASSERT_TRUE(deck.SetExecutionMode(mode));
        ASSERT_TRUE(run()) << mode << ": " << complaint();
        EXPECT_EQ(complaint(), "");
        ASSERT_EQ(tape7.nRuns(), 1u);
        EXPECT_EQ(tape7.GetRun(0).mode, mode);
        EXPECT_EQ(tape7.nPoints(), 101u);
        EXPECT_NEAR(tape7.GetRun(0).data.ConstGetItem(0)[ETape7Column::transmittance], 0.9, 1e-9);
    }
    // The range of a fresh deck, 3 to 5 microns in steps of 5 1/cm.
    EXPECT_EQ(tape7.GetFreq(0, 0), 2000);
    EXPECT_EQ(tape7.GetFreq(0, 100), 3335);
}

TEST_F(RunModtranTest, HowTheProgramEndsDecides) {
    const struct {
        const char* orders;
        bool result;
        const char* complaint;  // part of it
    } rows[] = {
        {"", true, ""},
        {"fail", false, "*ERR*"},
        {"marker", false, "*ERR*"},
        {"flood marker", false, "*ERR*"},
        {"split", true, ""},  // the border of two chunks hides it
        {"flood", true, ""},
        {"code", true, ""},
        {"die", false, "signal 9"},
        {"silent", false, "/model folder/tape7"},
        {"cut", true, "end marker"},
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(run());
        EXPECT_EQ(run(row.orders), row.result) << row.orders << ": " << complaint();
        EXPECT_NE(complaint().find(row.complaint), std::string::npos) << row.orders << ": " << complaint();
        EXPECT_EQ(*row.complaint == 0, complaint().empty()) << row.orders << ": " << complaint();
        // Nothing is left to be waited for.
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << row.orders;
    }
}

TEST_F(RunModtranTest, ADeckThatCannotBeSavedStartsNothing) {
    ASSERT_TRUE(run());
    std::ofstream(path("model folder/tape7"), std::ios::binary) << "old";
    CModtranTape5File empty;
    EXPECT_FALSE(RunModtran(empty, tape7, 0));
    EXPECT_NE(complaint().find("No runs to save."), std::string::npos) << complaint();
    EXPECT_EQ(read("tape7"), "old");
}

TEST_F(RunModtranTest, AnOutputThatCannotBeRemovedStartsNothing) {
    std::filesystem::create_directory(path("model folder/tape7"));
    EXPECT_FALSE(run("look"));
    EXPECT_NE(complaint().find("cannot be removed"), std::string::npos) << complaint();
    EXPECT_FALSE(exists("descriptors"));
}

TEST_F(RunModtranTest, TheProgramGetsThreeDescriptorsAndThisProcessKeepsNone) {
    const auto open = [] {
        const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const int leaky = ::open("/dev/null", O_RDONLY);  // survives an exec
    ASSERT_TRUE(run());
    const auto before = open();
    ASSERT_TRUE(run("look"));
    EXPECT_EQ(open(), before);
    EXPECT_EQ(read("descriptors"), "0 1 2 ");
    close(leaky);
}

TEST_F(RunModtranTest, AProcessThatTheProgramLeavesBehindIsNotWaitedFor) {
    ASSERT_TRUE(run("orphan")) << complaint();
    const int child = std::atoi(read("child").c_str());
    ASSERT_GT(child, 1);
    EXPECT_EQ(kill(child, SIGKILL), 0);
}

TEST_F(RunModtranTest, SignalsOfTheCallerDoNotReachIn) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    EXPECT_TRUE(run());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    // Nobody is told how the program ended, so it passes for one that ended by itself.
    signal(SIGCHLD, SIG_IGN);
    EXPECT_TRUE(run()) << complaint();
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(RunModtranTest, PathsAreCheckedAndCut) {
    const CString good(GetModtranExePath());
    for (const char* name : {"nothing", "model folder"}) {
        EXPECT_FALSE(SetModtranExePath(wide(name).c_str())) << name;
        EXPECT_EQ(CString(GetModtranExePath()), good);
    }
    EXPECT_FALSE(SetModtranExePath(nullptr));
    std::string deep = path("d");
    while (deep.size() < 600) deep += "/" + std::string(99, 'x');
    std::filesystem::create_directories(deep);
    std::filesystem::copy_file(QV_STAND_IN, deep + "/program");
    ASSERT_TRUE(SetModtranExePath(CString(deep + "/program").c_str()));
    EXPECT_EQ(CString(GetModtranExePath()), CString(deep.substr(0, 511)));
    EXPECT_FALSE(run());
    EXPECT_TRUE(LastDiagnostic().IsSet());
    ASSERT_TRUE(SetModtranExePath(good.c_str()));
    // A relative path is seen from where the caller is, not from the program's folder.
    const auto back = std::filesystem::current_path();
    std::filesystem::current_path(path("model folder"));
    EXPECT_TRUE(SetModtranExePath(u"program") && run()) << complaint();
    std::filesystem::current_path(back);
    ASSERT_TRUE(SetModtranExePath(good.c_str()));
    // There but no program.
    std::ofstream(path("text")) << "exit 0\n";
    ASSERT_TRUE(SetModtranExePath(wide("text").c_str()));
    EXPECT_FALSE(run());
    EXPECT_NE(complaint().find("/text"), std::string::npos) << complaint();
    ASSERT_TRUE(SetModtranExePath(good.c_str()));
}

TEST_F(RunModtranTest, ThePathAtTheStartIsThatOfTheUsualInstallation) {
    EXPECT_EQ(pathAtStart, CString(u"c:\\modtran\\mod4v3r1.exe"));
}

}  // namespace
}  // namespace qv::test
