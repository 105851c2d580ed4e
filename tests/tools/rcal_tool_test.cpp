// qv rcal, as the built program: what it computes, what it says, how it ends. Points come from an integral of Planck's
// law of the test's own, not from the library's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/tool.h"

namespace qv {
namespace {

using test::ToolRun;
using test::Workplace;

/// W/(sr cm^2) from 3 to 5 microns, by Simpson's rule.
double radianceAt(double celsius) {
    const int n = 2000;
    const double step = 2.0 / n;
    double sum = 0.0;
    for (int i = 0; i <= n; ++i) {
        const double x = 3.0 + i * step;
        const double value = 11910.06 / std::pow(x, 5) / (std::exp(14388.3 / ((celsius + 273.15) * x)) - 1.0);
        sum += (i == 0 || i == n ? 1 : i % 2 == 1 ? 4 : 2) * value;
    }
    return sum * step / 3.0;
}

/// A camera whose counts are a line over the radiance.
double countsAt(double celsius) { return 500.0 + 1e7 * radianceAt(celsius); }

std::string row(double first, double second) { return std::to_string(first) + "," + std::to_string(second) + "\n"; }

/// The number behind the n-th occurrence of a JSON name.
double jsonNumber(const std::string& json, const std::string& name, int occurrence = 0) {
    size_t at = 0;
    for (int i = 0; i <= occurrence; ++i) {
        at = json.find("\"" + name + "\":", at + 1);
        if (at == std::string::npos) return std::nan("");
    }
    at = json.find_first_of("-0123456789", at + name.size() + 3);
    return std::strtod(json.c_str() + at, nullptr);
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(RcalTool, FindsALinearCameraAgain) {
    const Workplace place;
    std::string table = "# bench 2\nSource temperature [K];DN;operator\n";
    for (int t = 10; t <= 90; t += 10) {
        table += std::to_string(t + 273.15) + ";" + std::to_string(countsAt(t)) + ";x\n";
    }
    place.write("points.csv", table);
    ASSERT_EQ(place.qv("rcal new a.rcal --band 3:5 --tag Camera=MW1").exitCode, 0);
    const ToolRun added = place.qv("rcal points a.rcal points.csv");
    EXPECT_EQ(added.exitCode, 0) << added.error;
    EXPECT_TRUE(contains(added.error, "\"operator\" is not used")) << added.error;
    const ToolRun fit = place.qv("rcal fit a.rcal --lookup 5:95:1 --temp-order 8 --json");
    ASSERT_EQ(fit.exitCode, 0) << fit.error;
    EXPECT_NEAR(jsonNumber(fit.out, "coefficients") / -5e-5, 1.0, 2e-3);
    EXPECT_LT(std::fabs(jsonNumber(fit.out, "worstKelvin", 0)), 0.01) << "residual";
    EXPECT_LT(std::fabs(jsonNumber(fit.out, "worstKelvin", 1)), 0.02) << "left out";
    EXPECT_NEAR(jsonNumber(fit.out, "worstKelvin", 2), 0.1832, 1e-3) << "reverse, by exact rational arithmetic";
    EXPECT_EQ(jsonNumber(fit.out, "minCelsius"), 10);
    EXPECT_NEAR(jsonNumber(fit.out, "maxCounts"), countsAt(90), 1e-5);
    EXPECT_EQ(jsonNumber(fit.out, "direction"), 1);
    const ToolRun check = place.qv("rcal check a.rcal");
    EXPECT_EQ(check.exitCode, 0) << check.out;
    EXPECT_TRUE(contains(check.out, "nothing wrong") && contains(check.out, "tag Camera: MW1"));
    EXPECT_FALSE(contains(check.out, "hides"));
    const ToolRun csv = place.qv("rcal show a.rcal --csv");
    EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 10);
    EXPECT_TRUE(csv.out.starts_with("page,temperature [C],counts,")) << csv.out;
}

TEST(RcalTool, TriesWithoutChangingTheFile) {
    const Workplace place;
    place.write("points.csv",
                "temperature,counts\n" + row(20, countsAt(20)) + row(60, countsAt(60)) + row(90, countsAt(90)));
    ASSERT_EQ(place.qv("rcal new a.rcal").exitCode, 0);
    for (const std::string command : {"rcal points a.rcal points.csv", "rcal fit a.rcal --order 2"}) {
        const std::string before = place.read("a.rcal");
        const ToolRun tried = place.qv(command + " --dry-run");
        EXPECT_EQ(tried.exitCode, 0) << tried.error;
        EXPECT_TRUE(contains(tried.error, "a.rcal: is left as it is")) << tried.error;
        EXPECT_EQ(place.read("a.rcal"), before) << command;
        EXPECT_EQ(place.qv(command).out, tried.out) << command;
        EXPECT_NE(place.read("a.rcal"), before) << command;
    }
}

TEST(RcalTool, SaysInKelvinWhatR2Hides) {
    const Workplace place;
    std::string table = "temperature,counts\n";
    for (int t = 5; t <= 95; t += 10) table += row(t, countsAt(t));
    place.write("points.csv", table);
    place.qv("rcal new a.rcal");
    place.qv("rcal points a.rcal points.csv");
    const ToolRun check = place.qv("rcal check a.rcal");
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_TRUE(contains(check.out, "an R² of 0.99989 hides an error of 1.067 K at 0 C")) << check.out;
    EXPECT_TRUE(contains(check.out, "page 0: the reverse polynomial is wrong by 1.067 K at 0 C")) << check.out;
    EXPECT_EQ(place.qv("rcal check a.rcal --max-reverse 1.1").exitCode, 0);
    EXPECT_EQ(place.qv("rcal check a.rcal --max-reverse 1.1 --max-residual 0.001").exitCode, 1);
}

TEST(RcalTool, ResidualsAreTemperatures) {
    const Workplace place;
    std::string table = "temperature,counts\n";
    for (int t = 5; t <= 95; t += 5) table += row(t, countsAt(t == 50 ? 51 : t));  // read one kelvin too low
    place.write("points.csv", table);
    place.qv("rcal new a.rcal");
    place.qv("rcal points a.rcal points.csv");
    const ToolRun show = place.qv("rcal show a.rcal --json");
    const double slope = (radianceAt(50.1) - radianceAt(49.9)) / 0.2;
    const double expected = (radianceAt(51) - radianceAt(50)) / slope;
    EXPECT_EQ(jsonNumber(show.out, "worstAtCelsius", 1), 50);
    EXPECT_NEAR(jsonNumber(show.out, "worstKelvin", 1), expected, 0.01) << "left out: the others are exact";
    EXPECT_LT(jsonNumber(show.out, "worstKelvin", 0), expected);
    EXPECT_GT(jsonNumber(show.out, "worstKelvin", 0), 0.8 * expected);
}

TEST(RcalTool, FindsAPolynomialThatTurns) {
    const Workplace place;
    // Radiance is a parabola over counts with its lowest point at 5000; the coldest source lies on the far branch.
    std::string table = "temperature,counts\n";
    for (int t = 20; t <= 60; t += 5) {
        const double away = std::sqrt((radianceAt(t) - radianceAt(10)) / 1e-11);
        table += row(t, t == 20 ? 5000 - away : 5000 + away);
    }
    place.write("points.csv", table);
    place.qv("rcal new a.rcal");
    place.qv("rcal points a.rcal points.csv");
    const ToolRun fit = place.qv("rcal fit a.rcal --order 2 --json");
    EXPECT_NEAR(jsonNumber(fit.out, "turningPointCounts"), 5000, 2);
    EXPECT_EQ(jsonNumber(fit.out, "direction"), 0);
    const ToolRun check = place.qv("rcal check a.rcal");
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_TRUE(contains(check.out, "counts, inside its range")) << check.out;
    EXPECT_TRUE(contains(place.qv("rcal fit a.rcal --order 20").error, "enough for order 8"));
}

TEST(RcalTool, MakesAPageForEachInstrumentTemperature) {
    const Workplace place;
    std::string table = "temperature,counts,emissivity,reflected,housing_temperature_C\n";
    for (const double instrument : {17.1, 34.4}) {
        for (int t = 10; t <= 50; t += 10) {
            const double counts = 500 + 1e7 * (0.9 * radianceAt(t) + 0.1 * radianceAt(22)) + 10 * instrument;
            table += std::to_string(t) + "," + std::to_string(counts) + ",0.9,22," + std::to_string(instrument) + "\n";
        }
    }
    place.write("points.csv", table);
    place.qv("rcal new a.rcal");
    EXPECT_EQ(place.qv("rcal points a.rcal points.csv --page 0").exitCode, 2);
    ASSERT_EQ(place.qv("rcal points a.rcal points.csv").exitCode, 0);
    ASSERT_EQ(place.qv("rcal points a.rcal points.csv --replace").exitCode, 0) << "finds its pages again";
    const ToolRun fit = place.qv("rcal fit a.rcal");
    EXPECT_TRUE(contains(fit.out, "page 0, instrument at 17.1 C")) << fit.out;
    EXPECT_TRUE(contains(fit.out, "page 1, instrument at 34.4 C")) << fit.out;
    EXPECT_TRUE(contains(fit.out, "through 5 points")) << fit.out;
    const ToolRun check = place.qv("rcal check a.rcal --max-residual 0.01 --max-left-out 0.02 --max-reverse 2");
    EXPECT_EQ(check.exitCode, 0) << check.out << "reflections are part of the radiance";
}

TEST(RcalTool, SaysLoudlyThatAResponseIsMissing) {
    const Workplace place;
    place.write("lens.txt", "2 0.5\n6 0.5\n");
    place.write("points.csv", "temperature,counts\n10,100\n20,200\n30,350\n");
    ASSERT_EQ(place.qv("rcal new a.rcal --add-response lens.txt").exitCode, 0);
    ASSERT_EQ(place.qv("rcal points a.rcal points.csv").exitCode, 0);
    std::filesystem::remove(place.path() + "/lens.txt");
    const ToolRun check = place.qv("rcal check a.rcal --quiet");
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_TRUE(contains(check.out, "MISSING: ") && contains(check.error, "lens.txt")) << check.out << check.error;
    EXPECT_TRUE(contains(check.out, "stored radiances are not those")) << check.out;
    EXPECT_TRUE(contains(check.out, "by up to 50 %")) << check.out;
    const std::string before = place.read("a.rcal");
    EXPECT_EQ(place.qv("rcal fit a.rcal").exitCode, 5);
    EXPECT_EQ(place.read("a.rcal"), before);
}

TEST(RcalTool, RefusesInOneSentence) {
    const Workplace place;
    place.write("one.txt", "3 1\n");
    place.write("far.txt", "8 1\n9 1\n");
    place.write("ok.csv", "temperature,counts\n1,2\n");
    place.write("letters.csv", "temperature,counts\n1,2\n3,x\n");
    place.write("commas.csv", "temperature,counts\n10,5,1000\n20,5,2000\n");
    place.write("cold.csv", "temperature_K,counts\n-1,2\n");
    place.write("heads.csv", "a,b\n1,2\n");
    place.write("empty.csv", "");
    place.write("broken.rcal", "<rcal revision=\"8\"><calPages>");
    place.qv("rcal new a.rcal");
    const struct {
        const char* arguments;
        int exitCode;
        const char* says;
    } rows[] = {
        {"new a.rcal", 1, "a.rcal: exists already"},
        {"new b.rcal --band 5:3", 2, "--band"},
        {"new b.rcal --band 3", 2, "LOW:HIGH"},
        {"new b.rcal --delta 1e-9", 2, "--delta"},
        {"new b.rcal --response absent.txt", 5, "absent.txt"},
        {"new b.rcal --response one.txt", 5, "fewer than two points"},
        {"new b.rcal --add-response far.txt", 1, "no wavelength in common"},
        {"new b.rcal --modtran one.txt", 2, "--transmission"},
        {"new b.rcal --tag novalue", 2, "NAME=VALUE"},
        {"points a.rcal letters.csv", 4, "letters.csv: line 3: \"x\" is no number"},
        {"points a.rcal commas.csv", 4, "decimal comma"},
        {"points a.rcal cold.csv", 4, "absolute zero"},
        {"points a.rcal heads.csv", 3, "no column holds temperatures"},
        {"points a.rcal empty.csv", 3, "head line"},
        {"points a.rcal ok.csv --column-counts mean", 3, "no column \"mean\""},
        {"points a.rcal ok.csv --page 7", 1, "there is no page 7 (it has 1)"},
        {"fit a.rcal --order 0", 2, "order"},
        {"fit a.rcal --lookup 5:1:1", 2, "--lookup"},
        {"show absent.rcal", 5, "absent.rcal"},
        {"show broken.rcal", 4, "broken.rcal"},
        {"show ok.csv", 3, "ok.csv"},
    };
    const std::string before = place.read("a.rcal");
    for (const auto& row : rows) {
        const ToolRun run = place.qv("rcal " + std::string(row.arguments));
        EXPECT_EQ(run.exitCode, row.exitCode) << row.arguments << ": " << run.error;
        EXPECT_TRUE(contains(run.error, row.says)) << row.arguments << ": " << run.error;
        EXPECT_EQ(std::count(run.error.begin(), run.error.end(), '\n'), 1) << run.error;
        EXPECT_EQ(run.out, "") << row.arguments;
    }
    EXPECT_EQ(place.read("a.rcal"), before);
    EXPECT_FALSE(place.exists("b.rcal") || place.exists("b.rcal.part"));
    EXPECT_EQ(place.qv("rcal new a.rcal --force --pages 3").exitCode, 0);
}

TEST(RcalTool, CalibratesTheRealCamera) {
    const std::string data = QV_DATA_DIR "/recordings/";
    if (!std::filesystem::exists(data + "points.csv")) GTEST_SKIP() << "no measurement files here";
    const Workplace place;
    ASSERT_EQ(place
                  .qv("rcal new a.rcal --response '" + data + "LWIRsensor.txt' --add-response '" + data +
                      "LW100mmLens.txt' --add-response '" + data + "LWND10.txt'")
                  .exitCode,
              0);
    ASSERT_EQ(place.qv("rcal points a.rcal '" + data + "points.csv'").exitCode, 0);
    const ToolRun fit = place.qv("rcal fit a.rcal --order 3 --lookup 20:480:1 --json");
    EXPECT_EQ(jsonNumber(fit.out, "page", 1), 1);
    EXPECT_LT(std::fabs(jsonNumber(fit.out, "worstKelvin", 0)), 1.0) << "nine points that a person read off";
    EXPECT_EQ(jsonNumber(fit.out, "maxCelsius"), 450);
}

}  // namespace
}  // namespace qv
