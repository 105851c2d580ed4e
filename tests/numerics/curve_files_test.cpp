#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/spectral.h"

namespace {

using namespace qv;
using Values = std::vector<double>;

Values valuesOf(const TArray<double>& array) { return {array.begin(), array.end()}; }

class CurveFiles : public testing::Test {
protected:
    CurveFiles() {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        m_path = std::filesystem::temp_directory_path() / (std::string("qv_") + test->name() + ".txt");
    }
    ~CurveFiles() override { std::filesystem::remove(m_path); }

    const char16_t* write(const std::string& text) {
        std::ofstream(m_path, std::ios::binary) << text;
        m_wide = m_path.u16string();
        return m_wide.c_str();
    }

    bool readXY(const std::string& text) { return ReadXYFile(x, y, &fileSystem(), write(text)); }
    bool readModtran(const std::string& text) { return ReadModtranFile(x, y, z, &fileSystem(), write(text)); }

    TArray<double> x, y, z;

private:
    std::filesystem::path m_path;
    std::u16string m_wide;
};

TEST_F(CurveFiles, XYLinesInEveryShape) {
    const struct {
        const char* text;
        bool result;
        Values x, y;
        int line;
    } rows[] = {
        {"3.0,0.1\n3.5,0.9\n", true, {3, 3.5}, {0.1, 0.9}, 0},
        {"3.0\t0.1\r\n\r\n  3.5 , 0.9 , 7 comment \r\n", true, {3, 3.5}, {0.1, 0.9}, 0},
        {"\357\273\2773 1\n\n \t \n4 2", true, {3, 4}, {1, 2}, 0},
        {",,3,,1e-3,\n", true, {3}, {1e-3}, 0},
        {"wavelength response\n3 1\n", true, {0, 3}, {0, 1}, 0},
        {"", true, {}, {}, 0},
        {"3 1\n4\n5 2\n", false, {3}, {1}, 2},
        {"3;1\n", false, {}, {}, 1},
    };
    for (const auto& row : rows) {
        x = y = TArray<double>{9};
        ClearDiagnostic();
        EXPECT_EQ(readXY(row.text), row.result) << row.text;
        EXPECT_EQ(valuesOf(x), row.x) << row.text;
        EXPECT_EQ(valuesOf(y), row.y) << row.text;
        EXPECT_EQ(LastDiagnostic().line, row.result ? -1 : row.line) << row.text;
    }
}

TEST_F(CurveFiles, AnAbsentFileIsFalseAndEmptiesTheArrays) {
    x = y = z = TArray<double>{9};
    ClearDiagnostic();
    EXPECT_FALSE(ReadXYFile(x, y, &fileSystem(), u"/no such folder/curve.txt"));
    EXPECT_TRUE(x.empty() && y.empty() && LastDiagnostic().IsSet());
    EXPECT_FALSE(ReadModtranFile(x, y, z, &fileSystem(), u"/no such folder/tape7"));
    EXPECT_TRUE(z.empty());
    EXPECT_FALSE(ReadXYFile(x, y, nullptr, u"curve.txt"));
    EXPECT_FALSE(ReadXYFile(x, y, &fileSystem(), nullptr));
}

TEST_F(CurveFiles, LongFilesCrossBlocksAndLongLinesAreRefused) {
    std::string text;
    Values want;
    for (int i = 0; i < 60000; ++i) {
        text += std::to_string(i) + " " + std::to_string(i) + (i % 3 == 0 ? "\r\n" : "\n");
        want.push_back(i);
    }
    ASSERT_TRUE(readXY(text));
    EXPECT_TRUE(valuesOf(x) == want && valuesOf(y) == want);
    EXPECT_TRUE(readXY("1 2" + std::string(65533, ' ') + "\n3 4\n")) << "65536 bytes are a line";
    EXPECT_EQ(x.size(), 2u);
    EXPECT_FALSE(readXY("3 4\n1 2" + std::string(65534, ' ') + "\n3 4\n"));
    EXPECT_EQ(valuesOf(x), Values{3});
    EXPECT_EQ(LastDiagnostic().line, 2);
    EXPECT_FALSE(readXY(std::string(1 << 20, 'x')));
}

TEST_F(CurveFiles, ModtranRowsComeOutAscendingInMicrons) {
    const struct {
        const char* what;
        const char* text;
        bool result;
        Values x, y, z;
    } rows[] = {
        {"at the margin",
         "deck\nFREQ T\n2000. .5 1e-7 8\n2500. .25 2e-7\n-9999.\nm\n",
         true,
         {4, 5},
         {.25, .5},
         {2e-7, 1e-7}},
        {"after blanks, CR LF", "1 2 3\r\n    freq  TOT\r\n 2000.00 0.5 1E-7\r\n -9999.\r\n", true, {5}, {.5}, {1e-7}},
        {"second heading line", "   FREQ COMBIN\n   CM-1  TRANS  TRANS\n 2000.00 0.5000 0.6\n", true, {5}, {.5}, {.6}},
        {"no rows", "FREQ\n-9999.\n", true, {}, {}, {}},
        {"end marker ahead of the heading", "-9999.\nFREQ\n2000 1 2\n", true, {5}, {1}, {2}},
        {"second run", "FREQ\n2000 1 2\n-9999.\nFREQ\n2500 3 4\n-9999.\n", true, {5}, {1}, {2}},
        {"blank line and commas", "FREQ\n\n2000, 1,2\n   \n2500,,3,4\n", true, {4, 5}, {3, 1}, {4, 2}},
        {"exponents of Fortran",
         "FREQ\n2000. .5 1.2-100\n2500. 1.0+100 ****\n5000. 1.5D-01 0.2d1\n",
         true,
         {2, 4, 5},
         {.15, 1e100, .5},
         {2, 0, 1.2e-100}},
        {"row that is too short", "FREQ\n2000 1 2\n2500 3\n3000 1 2\n", false, {5}, {1}, {2}},
        {"second heading further down", "FREQ\n2000 1 2\nCM-1\n", false, {5}, {1}, {2}},
        {"no heading", "2000 1 2\n", false, {}, {}, {}},
        {"empty file", "", false, {}, {}, {}},
    };
    for (const auto& row : rows) {
        x = y = z = TArray<double>{9};
        EXPECT_EQ(readModtran(row.text), row.result) << row.what;
        EXPECT_EQ(valuesOf(x), row.x) << row.what;
        EXPECT_EQ(valuesOf(y), row.y) << row.what;
        EXPECT_EQ(valuesOf(z), row.z) << row.what;
    }
}

TEST_F(CurveFiles, RealModtranOutputIsReadWhole) {
    const struct {
        const char* name;
        bool result;
        uint32_t count;
        double firstMicrons, lastMicrons;  // of the last and the first row in the file
        double lastTransmission, lastThermal;
    } rows[] = {
        {"m4-radiance-disort.cut.tape7", true, 550, 1e4 / 28615, 1e4 / 8325, 0.99207008, 3.5808e-21},
        {"m5-thermal.tape7", true, 51, 1e4 / 2100, 1e4 / 2050, 0.91000313, 2.0416e-08},
        {"m5-thermal-disort.tape7", true, 51, 1e4 / 2100, 1e4 / 2050, 0.88372636, 1.5616e-08},
        {"m5-thermal-pair.tape7", true, 134, 1e4 / 3330, 5.0, 0.02221860, 5.2687e-07},
        {"m5-radiance-isaacs.tape7", true, 51, 1e4 / 2100, 1e4 / 2050, 0.88372636, 1.5902e-08},
        {"m5-transmittance.tape7", true, 51, 1e4 / 2100, 1e4 / 2050, 0.9100, 0.9726},
        {"m5-irradiance.tape7", true, 101, 1e4 / 2150, 1e4 / 2050, 0.0, 1.14e-13},
        {"m4-radiance-disort.tape7scn", false, 0, 0, 0, 0, 0},  // convolved output has no FREQ heading
    };
    for (const auto& row : rows) {
        const std::filesystem::path path = std::filesystem::path(QV_DATA_DIR "/modtran") / row.name;
        if (!std::filesystem::exists(path)) GTEST_SKIP() << "no " << path;
        EXPECT_EQ(ReadModtranFile(x, y, z, &fileSystem(), path.u16string().c_str()), row.result) << row.name;
        ASSERT_EQ(x.size(), row.count) << row.name;
        if (row.count == 0) continue;
        EXPECT_EQ(x.front(), row.firstMicrons) << row.name;
        EXPECT_EQ(x.back(), row.lastMicrons) << row.name;
        EXPECT_EQ(y.back(), row.lastTransmission) << row.name;
        EXPECT_EQ(z.back(), row.lastThermal) << row.name;
        for (uint32_t i = 1; i < x.size(); ++i) ASSERT_LT(x.data()[i - 1], x.data()[i]) << row.name;
    }
}

}  // namespace
