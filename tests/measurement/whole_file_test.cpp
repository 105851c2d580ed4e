// Files that are written whole: what a full disk leaves of them.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>

#include "qv/diagnostic.h"
#include "qv/norm_file.h"
#include "qv/rcal_file.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

/// While it lives, files of this process end at that size.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        (void)getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        (void)setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        (void)setrlimit(RLIMIT_FSIZE, &m_before);
        (void)std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*m_handler)(int);
    rlimit m_before{};
};

TEST(WholeFile, NothingIsLeftOfAFailedSave) {
    const test::TempFolder folder;
    const CString path = folder.path(u"a");
    CRCalFile calibration;
    calibration.calPages().Add();
    CNormFile norm;
    ASSERT_TRUE(norm.New(CNormFile::TYPE_OFFSET, 100, 10, 0, 3, 10, 0.5F));
    using Save = std::function<bool()>;
    const Save saves[] = {
        [&] { return calibration.Save(&fileSystem(), path.c_str(), 0); },
        [&] { return calibration.Save(&fileSystem(), path.c_str(), CRCalFile::saveXml); },
        [&] { return norm.Save(&fileSystem(), path.c_str()); },
        [&] { return CNormFile::SaveOffsetTable(&fileSystem(), path.c_str(), 100, 10, 0, norm.GetOffsets()); },
    };
    for (const Save& save : saves) {
        EXPECT_TRUE(save());
        const FileSizeLimit limit(500);
        ClearDiagnostic();
        EXPECT_FALSE(save());
        EXPECT_TRUE(LastDiagnostic().file.Equals(path)) << "the diagnostic names the file";
        EXPECT_FALSE(fileSystem().FileExists(path.c_str()));
    }
}

}  // namespace
}  // namespace qv
