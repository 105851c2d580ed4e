#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/exception.h"
#include "qv/spectral.h"
#include "qv/tape7_file.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

using Column = ETape7Column;

constexpr char deckEcho[] = "T   2    2    1    0    2    2    2    2    2    2    1    0    0   0.000   0.00\n";
constexpr char thermalHeading[] = "    FREQ  TOT TRANS  PTH THRML  THRML SCT  SURF EMIS\n";

std::string deckEchoOf(int mode) { return std::string(deckEcho).replace(14, 1, std::to_string(mode)); }

/// A thermal table with header and heading, and with the end marker unless `rows` has one.
std::string thermal(const std::string& rows) {
    return std::string(deckEcho) + "    1    1\n" + thermalHeading + rows +
           (rows.find("-9999") == std::string::npos ? " -9999.\n" : "");
}

bool load(CModtranTape7File& tape7, const std::string& text) {
    ClearDiagnostic();
    return tape7.Load(memoryFile(text));
}
std::string complaint() { return CStringMB(LastDiagnostic().ToString()).c_str(); }

std::string realFile(const std::string& name) {
    std::ifstream in(QV_DATA_DIR "/modtran/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(Tape7File, RealOutputsOfEveryModeHaveTheirColumnsRowsAndValues) {
    const struct {
        const char* name;
        int mode;
        ETape7Axis axis;
        uint32_t columns, rows;
        double freq;  // of the first row, and values there
        std::vector<std::pair<Column, double>> values;
        std::vector<Column> absent;
    } files[] = {
        {"m4-radiance-disort.cut.tape7",
         2,
         ETape7Axis::wavenumbers,
         12,
         550,
         8325,
         {{Column::transmittance, 0.99207008},
          {Column::pathThermal, 3.5808e-21},
          {Column::surfaceEmission, 0},
          {Column::pathSolar, 3.9207e-9},
          {Column::directGroundReflected, 6.7010e-7},
          {Column::totalRadiance, 8.1899e-7},
          {Column::reflectedSun, 5e-6},
          {Column::sunAtObserver, 5.14e-6},
          {Column::opticalDepth, 0.008}},
         {Column::scatteredThermal, Column::sunAtTop}},
        {"m4-radiance-disort.tape7scn",
         2,
         ETape7Axis::microns,
         12,
         851,
         0.35,
         {{Column::transmittance, 0.9696},
          {Column::surfaceEmission, 0},
          {Column::pathSolar, 3.3045e-4},
          {Column::sunAtObserver, 8.29e-3}},
         {Column::scatteredThermal, Column::opticalDepth}},
        {"m5-transmittance.tape7",
         0,
         ETape7Axis::wavenumbers,
         35,
         51,
         2050,
         {{Column::transmittance, 0.91},
          {Column::water, 0.9726},
          {Column::waterContinuum, 0.9775},
          {Column::aerosolCloud, 0.9891},
          {Column::aerosolCloudAbsorption, 0.9983},
          {Column::opticalDepth, 0.094},
          {Column::co2, 0.9699},
          {Column::cloud, 1},
          {Column::n2o5, 1}},
         {Column::pathThermal}},
        {"m5-thermal.tape7",
         1,
         ETape7Axis::wavenumbers,
         15,
         51,
         2050,
         {{Column::transmittance, 0.91000313},
          {Column::pathThermal, 2.0416e-8},
          {Column::scatteredThermal, 0},
          {Column::totalRadiance, 2.0416e-8},
          {Column::surfaceEmissivity, 1},
          {Column::brightnessTemperature, 224.683}},
         {Column::pathSolar, Column::reflectedSun, Column::sunAtTop}},
        {"m5-radiance-isaacs.tape7",
         2,
         ETape7Axis::wavenumbers,
         15,
         51,
         2050,
         {{Column::scatteredThermal, 5.4204e-10},
          {Column::sunAtTop, 9.6338e-7},
          {Column::opticalDepth, 0.124},
          {Column::brightnessTemperature, 297.246}},
         {}},
        {"m5-irradiance.tape7",
         3,
         ETape7Axis::wavenumbers,
         4,
         101,
         2050,
         {{Column::transmittance, 0},
          {Column::transmittedSun, 1.14e-13},
          {Column::sunAtTop, 9.63e-7},
          {Column::opticalDepth, 15.95}},
         {Column::totalRadiance}},
    };
    for (const auto& file : files) {
        const std::string text = realFile(file.name);
        if (text.empty()) GTEST_SKIP() << "no " << file.name;
        CModtranTape7File tape7;
        ASSERT_TRUE(load(tape7, text)) << file.name << ": " << complaint();
        EXPECT_EQ(complaint(), "");
        ASSERT_EQ(tape7.nRuns(), 1u);
        const TAPE7_RUN& run = tape7.GetRun(0);
        EXPECT_TRUE(run.complete && run.header.size() == 10) << file.name;
        EXPECT_TRUE(run.mode == file.mode && run.axis == file.axis) << file.name;
        EXPECT_EQ(run.columns.size(), file.columns) << file.name;
        EXPECT_EQ(tape7.nPoints(), file.rows) << file.name;
        EXPECT_EQ(tape7.GetFreq(0, 0), file.freq) << file.name;
        for (const auto& [column, value] : file.values) {
            EXPECT_EQ(run.data[0][column], value) << file.name << ", column " << static_cast<int>(column);
        }
        for (const Column column : file.absent) EXPECT_FALSE(run.data[0].Has(column)) << file.name;
    }
}

TEST(Tape7File, RealOutputsAgreeWithTheReaderOfCurvesAndOneBehindTheOtherAreRuns) {
    std::string all;
    uint32_t count = 0;
    for (const char* name : {"m4-radiance-disort.cut.tape7", "m5-thermal-pair.tape7", "m5-thermal-disort.tape7"}) {
        const std::string text = realFile(name);
        if (text.empty()) GTEST_SKIP() << "no " << name;
        CModtranTape7File tape7;
        ASSERT_TRUE(load(tape7, text));
        TArray<double> x, transmission, thermal;
        const CString path(std::string(QV_DATA_DIR "/modtran/") + name);
        ASSERT_TRUE(ReadModtranFile(x, transmission, thermal, &fileSystem(), path.c_str()));
        ASSERT_EQ(x.size(), tape7.nPoints());
        for (uint32_t i = 0; i < x.size(); ++i) {
            const TAPE7_DATA& row = tape7.GetRun(0).data.ConstGetItem(x.size() - 1 - i);
            ASSERT_EQ(x[i], ToMicrons(row.freq)) << name;
            ASSERT_EQ(transmission[i], row[Column::transmittance]) << name;
            ASSERT_EQ(thermal[i], row[Column::pathThermal]) << name;
        }
        all += text;
        ASSERT_TRUE(load(tape7, all));
        ASSERT_EQ(tape7.nRuns(), ++count);
        EXPECT_EQ(tape7.nPoints(count - 1), x.size());
    }
}

TEST(Tape7File, FieldsAsFortranPrintsThem) {
    const struct {
        const char* row;
        double transmittance, thermal, scattered, emission;  // not a number where absent
    } rows[] = {
        {" 2000.00 0.50000000 1.0000E-07 2.0000E-07 3.0000E-07", .5, 1e-7, 2e-7, 3e-7},
        {" 2000.00 0.50000000 1.0000E-07            3.0000E-07", .5, 1e-7, NAN, 3e-7},
        {" 2000.00  .50000000-1.0000E-07-2.0000E-07", .5, -1e-7, -2e-7, NAN},
        {" 2000.00*********** 0.1000-123 1.0D-05   ***********", NAN, 1e-124, 1e-5, NAN},
        {" 2000.00 0.5        8.6258E-40        NaN +Infinity ", .5, 8.6258e-40, NAN, NAN},
        {"2000.    0.50000000    1.0+100        1d2  .5        more 7", .5, 1e100, 100, .5},
    };
    const auto expectSame = [](double got, double want, const char* row) {
        EXPECT_TRUE(got == want || (std::isnan(got) && std::isnan(want))) << row << ": " << got << " for " << want;
    };
    for (const auto& row : rows) {
        CModtranTape7File tape7;
        ASSERT_TRUE(load(tape7, thermal(std::string(row.row) + "\r\n"))) << complaint();
        const TAPE7_DATA& data = tape7.GetRun(0).data.ConstGetItem(0);
        EXPECT_EQ(data.freq, 2000);
        expectSame(data[Column::transmittance], row.transmittance, row.row);
        expectSame(data[Column::pathThermal], row.thermal, row.row);
        expectSame(data[Column::scatteredThermal], row.scattered, row.row);
        expectSame(data[Column::surfaceEmission], row.emission, row.row);
    }
}

TEST(Tape7File, HeadingsOfOtherVersions) {
    const auto valuesUnder = [](int mode, const std::string& heading, const std::string& row) {
        CModtranTape7File tape7;
        EXPECT_TRUE(load(tape7, deckEchoOf(mode) + heading + row + "\n -9999.\n")) << heading << complaint();
        std::ostringstream text;
        for (uint32_t i = 0; tape7.nPoints() > 0 && i < tape7.GetRun(0).columns.size(); ++i) {
            const Column column = tape7.GetRun(0).columns.ConstGetItem(i);
            text << static_cast<int>(column) << "=" << tape7.GetRun(0).data.ConstGetItem(0)[column] << " ";
        }
        return text.str();
    };
    EXPECT_EQ(valuesUnder(1, "    FREQ  tot_trans  NEW_THING  PTH_THRML  TOTAL_RAD\n",
                          " 2000.00 0.50000000 9.9000E-07 1.0000E-07 2.0000E-07"),
              "0=0.5 35=1e-07 42=2e-07 ");
    EXPECT_EQ(
        valuesUnder(0, "    FREQ COMBIN MOLEC AER-CLD    NEW    -LOG\n    CM-1  TRANS   SCAT  TRANS  TRANS  COMBIN\n",
                    " 2000.00 0.9100 0.8000 0.7000 0.6000   0.094"),
        "0=0.91 8=0.8 9=0.7 1=0.094 ");
    // Version 3.5 counts its fields from another column than its headings.
    EXPECT_EQ(valuesUnder(0, "  FREQ TOTAL\n  CM-1 TRANS\n", "  2000  .910  .920").substr(0, 14), "0=0.91 2=0.92 ");
    EXPECT_EQ(valuesUnder(3, "  FREQ   TRANS     SOL TR  SOLAR\n", "  2000.  0.5000 1.14E-13 9.63E-07"),
              "0=0.5 48=1.14e-13 47=9.63e-07 1=nan ");
    EXPECT_EQ(valuesUnder(1, "  FREQ TOT TRANS  PTH THRML\n", "  2000. 0.50000000 1.0000E-07").substr(0, 15),
              "0=0.5 35=1e-07 ");
}

TEST(Tape7File, ACutFileKeepsItsWholeRowsAndSaysSo) {
    const std::string rows =
        " 2000.00 0.50000000 1.0000E-07 2.0000E-07 3.0000E-07\n"
        " 2001.00 0.60000000 1.1000E-07 2.1000E-07 3.1000E-07\n";
    const std::string whole = thermal(rows);
    const size_t firstRow = whole.find(" 2000.00");
    const size_t secondRow = whole.find(" 2001.00");
    const size_t marker = whole.find(" -9999.");
    for (size_t length = 0; length <= whole.size(); ++length) {
        CModtranTape7File tape7;
        const bool loaded = load(tape7, whole.substr(0, length));
        ASSERT_TRUE(loaded || length + 1 < firstRow) << length;
        if (!loaded) continue;
        const uint32_t kept = length + 1 >= marker ? 2 : length + 1 >= secondRow ? 1 : 0;
        ASSERT_EQ(tape7.nPoints(), kept) << length;
        const bool ended = length >= marker + 7 - 1;  // the point of the marker is no digit
        ASSERT_EQ(tape7.GetRun(0).complete, ended) << length;
        ASSERT_EQ(complaint().empty(), ended) << length;
    }
    // Cut within the second run's header, and behind a run.
    CModtranTape7File tape7;
    ASSERT_TRUE(load(tape7, whole + deckEcho));
    EXPECT_TRUE(tape7.nRuns() == 2 && tape7.nPoints(0) == 2 && tape7.nPoints(1) == 0 && !tape7.GetRun(1).complete);
    EXPECT_NE(complaint().find("end marker"), std::string::npos);
}

TEST(Tape7File, RunsThatFailedAreEmptyOnes) {
    const std::string line10 = "    0   0    0.000  0    0.000  0    1.000\n";
    const std::string row = " 2000.00 0.50000000\n";
    CModtranTape7File tape7;
    ASSERT_TRUE(load(tape7, " -9999.\n" + line10 + thermal(row) + "-9999.\n" + thermal(row) + " -9999.\n"))
        << complaint();
    ASSERT_EQ(tape7.nRuns(), 5u);
    const int modes[] = {-1, 1, -1, 1, -1};
    for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(tape7.GetRun(i).mode, modes[i]) << i;
}

TEST(Tape7File, WhatIsNoOutputIsRefusedWithTheLine) {
    const std::string row = " 2000.00 0.50000000 1.0000E-07\n";
    const struct {
        const char* what;
        std::string text;
        int line;
    } files[] = {
        {"empty", "", 1},
        {"a picture", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16), 1},
        {"prose", "There is\nno table\n", 1},
        {"a heading alone", thermalHeading + row, 1},
        {"no heading", deckEcho + row, 3},
        {"too many lines in front", deckEcho + std::string(64, '\n') + thermalHeading + row, 65},
        {"a mode that is none", deckEchoOf(4) + thermalHeading + row, 1},
        {"the heading of another mode", deckEchoOf(3) + thermalHeading + row, 2},
        {"no second heading line", deckEchoOf(0) + "    FREQ COMBIN\n" + row + row, 3},
        {"columns without transmittance", std::string(deckEcho) + "    FREQ  PTH THRML\n", 2},
        {"a line of sight in front", std::string(deckEcho) + "    FREQ  LOS  TOT TRANS  PTH THRML\n", 2},
        {"text in a row", thermal(row + " 2001.00 0.5000000O 1.0000E-07\n"), 5},
        {"no frequency", thermal("         0.50000000\n"), 4},
        {"two numbers in a field", thermal(" 2000.00 0.50000000 1.0 0E-07\n"), 4},
        {"a falling frequency", thermal(row + " 1999.99 0.50000000\n"), 5},
        {"a short row in the middle", thermal(" 2000.00\n" + row), 4},
        {"a long line", deckEcho + std::string(70000, ' ') + "\n", 2},
    };
    for (const auto& file : files) {
        CModtranTape7File tape7;
        ASSERT_TRUE(load(tape7, thermal(row)));
        EXPECT_FALSE(load(tape7, file.text)) << file.what;
        EXPECT_EQ(LastDiagnostic().line, file.line) << file.what << ": " << complaint();
        EXPECT_EQ(tape7.nRuns(), 0u) << file.what;
    }
    CModtranTape7File tape7;
    EXPECT_FALSE(tape7.Load(u"/no such folder/tape7"));
    EXPECT_NE(complaint().find("/no such folder/tape7"), std::string::npos);
    EXPECT_FALSE(tape7.Load(nullptr, u"tape7") || tape7.Load(static_cast<const char16_t*>(nullptr)) ||
                 tape7.Load(TSharedPtr<IFile>()));
}

TEST(Tape7File, ValuesBetweenRowsAreLinearAndThoseOutsideAbsent) {
    CModtranTape7File tape7;
    ASSERT_TRUE(load(tape7, thermal(" 2000.00 0.50000000 1.0000E-07\n"
                                    " 2010.00 0.70000000            4.0000E-07\n"
                                    " 2010.00 0.80000000 3.0000E-07 4.0000E-07\n"
                                    " 2014.00 1.00000000 5.0000E-07 4.0000E-07\n")));
    const struct {
        double freq;
        bool inside;
        double transmittance, thermal;
    } wanted[] = {
        {1999.999, false, NAN, NAN}, {2000, true, .5, 1e-7},    {2005, true, .6, NAN},
        {2010, true, .7, NAN},       {2013, true, .95, 4.5e-7}, {2014.000000001, true, 1, 5e-7},
        {2015, false, NAN, NAN},     {2002, true, .54, NAN},    {NAN, false, NAN, NAN},
    };
    TArray<double> freqs;
    for (const auto& want : wanted) freqs.Add(want.freq);
    TArray<TAPE7_DATA> rows;
    ASSERT_TRUE(tape7.GetData(0, freqs, rows));
    const auto isNear = [](double got, double want) {
        return std::isnan(want) ? std::isnan(got) : std::fabs(got - want) <= 1e-12 * want;
    };
    for (uint32_t i = 0; i < freqs.size(); ++i) {
        TAPE7_DATA row;
        EXPECT_EQ(tape7.GetData(0, wanted[i].freq, row), wanted[i].inside) << wanted[i].freq;
        for (const TAPE7_DATA& got : {row, rows.ConstGetItem(i)}) {
            EXPECT_TRUE(isNear(got[Column::transmittance], wanted[i].transmittance)) << wanted[i].freq;
            EXPECT_TRUE(isNear(got[Column::pathThermal], wanted[i].thermal)) << wanted[i].freq;
        }
    }
    TAPE7_DATA row;
    EXPECT_FALSE(tape7.GetData(1, 2000, row) || tape7.GetData(1, freqs, rows));
    EXPECT_TRUE(rows.empty());
    EXPECT_TRUE(tape7.nPoints(1) == 0 && tape7.GetFreq(0, 4) == 0.0 && tape7.GetFreq(1, 0) == 0.0);
    EXPECT_THROW((void)tape7.GetRun(1), CException);
}

}  // namespace
}  // namespace qv::test
