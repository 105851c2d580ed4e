// qv rcal diff, eval, whatif and plot on calibrations whose numbers follow from the library's own integral.
#include <gtest/gtest.h>

#include <cmath>

#include "qv/rcal_file.h"
#include "tools/support.h"

namespace qv::test {
namespace {

constexpr double countsPerRadiance = 4e6;

class RcalCompare : public testing::Test {
protected:
    void SetUp() override { write("a.rcal", 0.0); }
    /// A band of 3 to 5 microns, and counts in proportion to the radiance of a source that is `shift` kelvin hotter
    /// than the page says: the calibration reads so much too low.
    void write(const std::string& name, double shift, int highest = 100, const CString& atmosphere = CString()) {
        CRCalFile calibration;
        calibration.tophat().setStart(3.0);
        const int32_t page = calibration.calPages().Add();
        for (int celsius = 0; celsius <= highest; celsius += 20) {
            CAL_POINT point;
            point.temperature = celsius;
            point.measurement = 1000.0 + countsPerRadiance * calibration.CalcRadiance(celsius + shift, 1.0);
            calibration.calPage(page).points().Add(point);
        }
        calibration.calPage(page).range().setAuto(true);
        if (atmosphere.size() != 0) calibration.modtran().setFile(atmosphere);
        ASSERT_TRUE(calibration.Save(&fileSystem(), CString(shop.file(name)).c_str(), CRCalFile::saveXml));
    }
    std::map<std::string, std::string> facts(const std::string& arguments, int code = 0) {
        const ToolRun outcome = shop.qv("rcal " + arguments + " --json");
        EXPECT_EQ(outcome.exitCode, code) << arguments << '\n' << outcome.error;
        return JsonReader::flatten(outcome.out);
    }
    static double real(const std::string& text) { return std::strtod(text.c_str(), nullptr); }
    Workshop shop;
};

TEST_F(RcalCompare, DiffFindsTheLargestDifferenceOverTheCommonCounts) {
    EXPECT_EQ(real(facts("diff a.rcal a.rcal")["largestKelvin"]), 0.0);
    write("b.rcal", 1.0, 60);
    auto found = facts("diff a.rcal b.rcal", 1);
    // At every point the second reads 1 K less; the straight line through its points is a little off between them.
    EXPECT_NEAR(real(found["meanKelvin"]), -1.0, 0.3);
    EXPECT_GE(std::fabs(real(found["largestKelvin"])), 1.0);
    CRCalFile integral;
    integral.tophat().setStart(3.0);
    EXPECT_NEAR(real(found["lowCounts"]), 1000.0 + countsPerRadiance * integral.CalcRadiance(1.0, 1.0), 1e-6);
    EXPECT_NEAR(real(found["highCounts"]), 1000.0 + countsPerRadiance * integral.CalcRadiance(61.0, 1.0), 1e-6);
    EXPECT_EQ(facts("diff a.rcal b.rcal --limit 9")["samples"], "1001");
}

TEST_F(RcalCompare, EvalGoesBothWaysAndSaysWhatLiesOutside) {
    auto there = facts("eval a.rcal --celsius 40 101 --emissivity 0.9 --reflected 20");
    EXPECT_EQ(there["values.0.range"], "inside");
    EXPECT_EQ(there["values.1.range"], "inside");  // a grey source of 101 C gives fewer counts than a black one of 100
    CRCalFile integral;
    integral.tophat().setStart(3.0);
    const double seen = integral.CalcRadiance(40.0, 0.9) + integral.CalcRadiance(20.0, 0.1);
    EXPECT_NEAR(real(there["values.0.radiance"]), seen, 1e-12 * seen);
    EXPECT_NEAR(real(there["values.0.counts"]), 1000.0 + countsPerRadiance * seen, 1e-4);
    auto back = facts("eval a.rcal --emissivity 0.9 --reflected 20 --counts 900 60000 " + there["values.0.counts"]);
    EXPECT_EQ(back["values.0.range"], "below");
    EXPECT_EQ(back["values.1.range"], "above");
    EXPECT_NEAR(real(back["values.2.celsius"]), 40.0, 1e-3);
    EXPECT_EQ(back["reflectedCelsius"], "20");
}

TEST_F(RcalCompare, WhatIfMovesOneAssumptionAtATime) {
    auto found = facts("whatif a.rcal --celsius 60 22 --emissivity 0.9 --reflected 22");
    // To first order: raising e by 0.01 takes (L(T) - L(Tr)) / 100 away, which dL/dT at 0.9 turns into kelvin.
    CRCalFile integral;
    integral.tophat().setStart(3.0);
    const auto black = [&](double celsius) { return integral.CalcRadiance(celsius, 1.0); };
    const double slope = (black(60.05) - black(59.95)) / 0.1;
    EXPECT_NEAR(real(found["values.0.kelvinPerHundredthEmissivity"]), -0.01 * (black(60) - black(22)) / (0.9 * slope),
                0.01);
    EXPECT_NEAR(real(found["values.0.kelvinPerKelvinReflected"]), -0.1 * (black(23) - black(22)) / (0.9 * slope),
                0.001);
    EXPECT_NEAR(real(found["values.1.kelvinPerHundredthEmissivity"]), 0.0, 1e-9);  // all at one temperature
    EXPECT_EQ(found["values.0.kelvinAtmosphereIgnored"], "null");

    std::string curve = "T F 6    1    0    0\n    FREQ COMBIN    H2O\n    CM-1  TRANS  TRANS\n";
    for (int wavenumber = 1900; wavenumber < 3500; wavenumber += 50) {
        curve.append(" ").append(std::to_string(wavenumber)).append(".00 0.8000 0.9000\n");
    }
    shop.write("air.tape7", curve + " -9999.\n -9999.\n");
    write("air.rcal", 0.0, 100, CString(shop.file("air.tape7")));
    found = facts("whatif air.rcal --celsius 60 --emissivity 1");
    // Seen through four fifths, a source looks like one of four fifths of the radiance.
    auto weaker = facts("eval a.rcal --celsius 60 --emissivity 0.8");
    auto looks = facts("eval a.rcal --counts " + weaker["values.0.counts"]);
    EXPECT_NEAR(real(found["values.0.kelvinAtmosphereIgnored"]), real(looks["values.0.celsius"]) - 60.0, 2e-3);
}

TEST_F(RcalCompare, PlotDrawsEveryPointAndEveryPart) {
    ASSERT_EQ(shop.qv("rcal plot a.rcal -o a.svg").exitCode, 0);
    const std::string svg = shop.read("a.svg");
    const auto count = [&](const std::string& what) {
        size_t found = 0;
        for (size_t at = svg.find(what); at != std::string::npos; at = svg.find(what, at + 1)) ++found;
        return found;
    };
    EXPECT_NE(svg.find("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"800\""), std::string::npos);
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
    EXPECT_EQ(count("<circle"), 3 * 6 + 1u);  // in three plots, and in the legend
    EXPECT_EQ(count("<g clip-path"), count("</g>"));
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_EQ(svg.find("inf"), std::string::npos);
    for (const char* text :
         {"a.rcal, page 0", "measurement [counts]", "fit − point [K]", "W/(sr·cm²)]", "wavelength [µm]",
          "valid range, 0 to 100 °C", "coldest point, 0 °C", "hottest point, 100 °C"}) {
        EXPECT_GE(count(text), 1u) << text;
    }
}

TEST_F(RcalCompare, SaysWhatIsWrong) {
    shop.qv("rcal new empty.rcal");
    write("hot.rcal", 300.0);
    const struct {
        const char* arguments;
        int code;
    } cases[] = {
        {"diff a.rcal hot.rcal", 1},
        {"diff a.rcal a.rcal --page-b 1", 1},
        {"diff a.rcal absent", 5},
        {"eval a.rcal", 2},
        {"eval empty.rcal --counts 1", 4},
        {"eval a.rcal --counts 1 --page 7", 1},
        {"eval a.rcal --celsius -274", 2},
        {"whatif empty.rcal", 1},
        {"whatif a.rcal --emissivity 0", 2},
        {"plot empty.rcal -o x.svg", 1},
        {"plot a.rcal --page 3 -o x.svg", 1},
        {"plot a.rcal -o a.rcal", 1},
    };
    for (const auto& [arguments, code] : cases) {
        const ToolRun outcome = shop.qv(std::string("rcal ") + arguments);
        EXPECT_EQ(outcome.exitCode, code) << arguments << outcome.error;
        EXPECT_TRUE(isOneSentence(outcome.error)) << arguments << outcome.error;
    }
}

}  // namespace
}  // namespace qv::test
