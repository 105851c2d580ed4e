// qv calibrate against a simulated camera whose physics is this file's own.
#include <gtest/gtest.h>

#include <cmath>

#include "qv/rcal_file.h"
#include "tools/support.h"

namespace qv::test {
namespace {

/// Radiance of a blackbody from 3 to 5 microns, W/(sr cm^2): Planck's law with the CODATA 2018 constants, by Simpson's
/// rule.
double bandRadiance(double celsius) {
    constexpr int intervals = 400;
    constexpr double step = 2.0 / intervals;
    double sum = 0.0;
    for (int i = 0; i <= intervals; ++i) {
        const double um = 3.0 + step * i;
        const double weight = i == 0 || i == intervals ? 1.0 : i % 2 == 1 ? 4.0 : 2.0;
        sum += weight * 11910.42972 / std::pow(um, 5) / std::expm1(14387.76877 / (um * (celsius + 273.15)));
    }
    return sum * step / 3.0;
}

constexpr double gain = 4e6;
double offsetAt(double instrument) { return 1000.0 + 20.0 * instrument; }
double countsOf(double radiance, double instrument) { return offsetAt(instrument) + gain * radiance; }

/// A calibration with one page for each instrument temperature, points every ten degrees from 10 to 120.
void writeCalibration(const std::string& path, const std::vector<double>& instruments, bool tagged = true) {
    CRCalFile calibration;
    calibration.spectralResponse().setType(ESpectralResponseType::tophat);
    calibration.tophat().setStart(3.0);  // a new calibration has no response until it is told one
    for (const double instrument : instruments) {
        const int32_t page = calibration.calPages().Add();
        for (int celsius = 10; celsius <= 120; celsius += 10) {
            CAL_POINT point;
            point.temperature = celsius;
            point.measurement = countsOf(bandRadiance(celsius), instrument);
            calibration.calPage(page).points().Add(point);
        }
        calibration.calPage(page).range().setAuto(true);
        const CString text = CString::FromFormat(u"%g", instrument);
        if (tagged) calibration.SetTag(u"InstrumentTemperature", text.c_str(), page);
    }
    ASSERT_TRUE(calibration.Save(&fileSystem(), CString(path).c_str(), CRCalFile::saveXml));
}

class Calibrate : public testing::Test {
protected:
    void SetUp() override {
        writeCalibration(shop.file("one.rcal"), {0.0});
        writeCalibration(shop.file("two.rcal"), {10.0, 30.0});
        writeCalibration(shop.file("untagged.rcal"), {10.0, 30.0}, false);
        shop.write("run.saf", recording<double>(3, 1, "Flt64", sourceCounts(0.0)));
    }

    static constexpr double truths[] = {15.0, 55.0, 115.0};
    static std::vector<double> sourceCounts(double instrument) {
        std::vector<double> counts;
        for (const double truth : truths) counts.push_back(countsOf(bandRadiance(truth), instrument));
        return counts;
    }

    std::vector<float> result(const std::string& arguments) {
        const ToolRun outcome = shop.qv("calibrate " + arguments + " -o out.saf --force");
        EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
        return dataOf<float>(shop.file("out.saf"));
    }

    Workshop shop;
};

TEST_F(Calibrate, RecoversTemperaturesThatAreNoPointsOfTheFit) {
    const std::vector<float> celsius = result("run.saf --rcal one.rcal");
    const std::vector<float> kelvin = result("run.saf --rcal one.rcal --unit K");
    const std::vector<float> fahrenheit = result("run.saf --rcal one.rcal --unit F");
    const std::vector<float> rankine = result("run.saf --rcal one.rcal --unit R");
    for (size_t i = 0; i < std::size(truths); ++i) {
        EXPECT_NEAR(celsius[i], truths[i], 0.05);
        EXPECT_NEAR(kelvin[i], celsius[i] + 273.15f, 1e-3);
        EXPECT_NEAR(fahrenheit[i], celsius[i] * 1.8f + 32.0f, 1e-3);
        EXPECT_NEAR(rankine[i], kelvin[i] * 1.8f, 1e-3);
    }
}

TEST_F(Calibrate, GivesTheRadianceOfTheSource) {
    const std::vector<float> radiance = result("run.saf --rcal one.rcal --to radiance");
    for (size_t i = 0; i < std::size(truths); ++i) EXPECT_NEAR(radiance[i] / bandRadiance(truths[i]), 1.0, 2e-3);
    EXPECT_NE(shop.read("out.saf").find("DaUnit W/(sr-cm^2)\r\n"), std::string::npos);
}

TEST_F(Calibrate, TakesEmissivityAndReflectedLightOut) {
    std::vector<double> counts;
    for (const double truth : truths)
        counts.push_back(countsOf(0.8 * bandRadiance(truth) + 0.2 * bandRadiance(40.0), 0.0));
    shop.write("grey.saf", recording<double>(3, 1, "Flt64", counts));
    const std::vector<float> celsius = result("grey.saf --rcal one.rcal --emissivity 0.8 --reflected 40");
    for (size_t i = 0; i < std::size(truths); ++i) EXPECT_NEAR(celsius[i], truths[i], 0.05);
    const std::string header = shop.read("out.saf").substr(0, 600);
    EXPECT_NE(header.find("CaEmis 0.8\r\n"), std::string::npos) << header;
    EXPECT_NE(header.find("CaRefl 40 C\r\n"), std::string::npos) << header;
}

TEST_F(Calibrate, InterpolatesBetweenTwoPages) {
    shop.write("warm.saf", recording<double>(3, 1, "Flt64", sourceCounts(25.0)));
    const std::vector<float> celsius = result("warm.saf --rcal two.rcal --between 0:1 --at 25");
    for (size_t i = 0; i < std::size(truths); ++i) EXPECT_NEAR(celsius[i], truths[i], 0.05);
}

TEST_F(Calibrate, KeepsTheSourcesTagsAndCountsWhatLiesOutsideTheRange) {
    const auto low = static_cast<uint16_t>(countsOf(bandRadiance(5.0), 0.0));
    const auto middle = static_cast<uint16_t>(countsOf(bandRadiance(60.0), 0.0));
    const auto high = static_cast<uint16_t>(countsOf(bandRadiance(125.0), 0.0));
    std::string bytes = recording<uint16_t>(3, 2, "UInt16", {low, low, middle, middle, middle, high});
    bytes.insert(bytes.find("DATA"), "Camera MW1\r\n");
    shop.write("counts.saf", bytes);
    const ToolRun outcome = shop.qv("calibrate counts.saf --rcal one.rcal -o out.saf --json");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.error;
    auto facts = JsonReader::flatten(outcome.out);
    EXPECT_EQ(facts["schema"], "qv.calibrate.1");
    EXPECT_EQ(facts["pixels"], "6");
    EXPECT_EQ(facts["belowRange"], "2");
    EXPECT_EQ(facts["aboveRange"], "1");
    EXPECT_EQ(facts["calibratedLowCelsius"], "10");
    EXPECT_EQ(shop.qv("tags get out.saf Camera DaType DaUnit CaPage").out, "MW1\nFlt32\nC\n0\n");
    EXPECT_NEAR(dataOf<float>(shop.file("out.saf"))[2], 60.0, 0.1);
}

TEST_F(Calibrate, SaysWhatIsWrongInOneSentenceAndLeavesNothingBehind) {
    const std::string good = recording<uint16_t>(2, 2, "UInt16", {1, 2, 3, 4, 5, 6, 7, 8});
    shop.write("good.saf", good);
    shop.write("cut.saf", good.substr(0, good.size() - 3));
    shop.write("long.saf", good + "xx");
    std::string word = good;
    shop.write("word.saf", word.replace(word.find("UInt16"), 6, "Word16"));
    std::string order = good;
    shop.write("order.saf", order.replace(order.find("LSBFirst"), 8, "sideways"));
    shop.write("nosize.saf", "HdSize auto\r\nDaType UInt16\r\nDATA\r\n12345678");
    shop.write("huge.saf",
               "HdSize auto\r\nxPixls 2000000000\r\nyPixls 2000000000\r\nNumDPs 1\r\nDaType UInt16\r\nDATA\r\n12");
    shop.write("raw.saf", "1234567890");
    shop.write("broken.rcal", shop.read("one.rcal").substr(0, 700));
    shop.write("empty.rcal", "");
    const std::vector<std::string> before = shop.listing();
    const struct {
        const char* arguments;
        int code;
        const char* names;  ///< What the sentence has to speak of.
    } cases[] = {
        {"cut.saf --rcal one.rcal -o o.saf", 4, "cut.saf: expected 2 frames of 8 bytes, found 13 bytes"},
        {"long.saf --rcal one.rcal -o o.saf", 4, "found 18 bytes"},
        {"word.saf --rcal one.rcal -o o.saf", 4, "Word16"},
        {"order.saf --rcal one.rcal -o o.saf", 4, "sideways"},
        {"nosize.saf --rcal one.rcal -o o.saf", 4, "xPixls"},
        {"huge.saf --rcal one.rcal -o o.saf", 4, "huge.saf"},
        {"raw.saf --rcal one.rcal -o o.saf", 3, "raw.saf"},
        {"absent.saf --rcal one.rcal -o o.saf", 5, "absent.saf: no such file"},
        {"good.saf --rcal absent.rcal -o o.saf", 5, "absent.rcal: no such file"},
        {"good.saf --rcal broken.rcal -o o.saf", 4, "broken.rcal"},
        {"good.saf --rcal empty.rcal -o o.saf", 3, "empty.rcal"},
        {"good.saf --rcal good.saf -o o.saf", 3, "good.saf"},
        {"good.saf --rcal one.rcal --page 1 -o o.saf", 1, "there is no page 1"},
        {"good.saf --rcal one.rcal --page -1 -o o.saf", 1, "there is no page -1"},
        {"good.saf --rcal two.rcal --between 0:2 --at 20 -o o.saf", 1, "there is no page 2"},
        {"good.saf --rcal untagged.rcal --between 0:1 --at 20 -o o.saf", 1, "InstrumentTemperature"},
        {"good.saf --rcal two.rcal --between 0:1 -o o.saf", 2, "--at"},
        {"good.saf --rcal two.rcal --between 0-1 --at 20 -o o.saf", 2, "0-1"},
        {"good.saf --rcal one.rcal --emissivity 0 -o o.saf", 2, "--emissivity"},
        {"good.saf --rcal one.rcal -o good.saf", 1, "exists already"},
        {"good.saf --rcal one.rcal -o nowhere/o.saf", 5, "nowhere/o.saf"},
        {"good.saf --rcal one.rcal -o .", 5, "folder"},
    };
    for (const auto& row : cases) {
        const ToolRun outcome = shop.qv(std::string("calibrate ") + row.arguments);
        EXPECT_EQ(outcome.exitCode, row.code) << row.arguments << '\n' << outcome.error;
        EXPECT_TRUE(isOneSentence(outcome.error)) << row.arguments << '\n' << outcome.error;
        EXPECT_NE(outcome.error.find(row.names), std::string::npos) << row.arguments << '\n' << outcome.error;
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(shop.listing(), before);
    EXPECT_TRUE(shop.read("good.saf") == good);
}

TEST_F(Calibrate, TellsUsageErrorsApart) {
    EXPECT_EQ(shop.qv("calibrate run.saf --rcal one.rcal").exitCode, 2);
    EXPECT_EQ(shop.qv("calibrate run.saf --rcal one.rcal -o o.saf --unit X").exitCode, 2);
    EXPECT_EQ(shop.qv("nothing").exitCode, 2);
    EXPECT_EQ(shop.qv("").exitCode, 2);
    EXPECT_EQ(shop.qv("calibrate --help").exitCode, 0);
}

TEST_F(Calibrate, WarnsOfAResponseThatCannotBeLoaded) {
    CRCalFile calibration;
    ASSERT_TRUE(calibration.Load(&fileSystem(), CString(shop.file("one.rcal")).c_str(), 0));
    calibration.additionalResponses().Add(u"/nowhere/lens.txt");
    ASSERT_TRUE(calibration.Save(&fileSystem(), CString(shop.file("lens.rcal")).c_str(), CRCalFile::saveXml));
    const ToolRun outcome = shop.qv("calibrate --quiet run.saf --rcal lens.rcal -o out.saf");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_NE(outcome.error.find("/nowhere/lens.txt: file does not exist"), std::string::npos) << outcome.error;
}

}  // namespace
}  // namespace qv::test
