#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "qv/rcal_file.h"
#include "qv/spectral.h"
#include "qv/tape7_file.h"
#include "rcal_support.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using test::load;
using test::replaced;
using test::TempFolder;
using test::writeText;

double planck(double microns, double celsius) {
    return 11910.06 / std::pow(microns, 5) / (std::exp(14388.3 / ((celsius + 273.15) * microns)) - 1.0);
}

/// Simpson's rule with 4000 intervals.
double integral(double low, double high, double celsius, const std::function<double(double)>& factor) {
    const int n = 4000;
    const double step = (high - low) / n;
    double sum = 0.0;
    for (int i = 0; i <= n; ++i) {
        const double x = low + i * step;
        sum += (i == 0 || i == n ? 1 : i % 2 == 1 ? 4 : 2) * factor(x) * planck(x, celsius);
    }
    return sum * step / 3.0;
}
double one(double) { return 1.0; }

CRCalFile tophat(double start, double end, double delta) {
    CRCalFile calibration;
    calibration.tophat().setStart(start);
    calibration.tophat().setEnd(end);
    calibration.tophat().setDelta(delta);
    return calibration;
}

// What a change refreshes ---------------------------------------------------------------------------------------------

/// Two equal pages on which nothing fits: radiances, fits, ranges and tables that no calculation gives. The
/// measurement of a point tells which it is.
std::string stale(const std::string& revision, const std::string& spectral) {
    const std::string page = replaced(R"(<calPage>
        <range auto="true" minCounts="-1" maxCounts="-1" minRadiance="-1" maxRadiance="-1" minTemperature="-1" maxTemperature="-1"/>
        <coeffs order="1" r2="0.5">-1,-1</coeffs><tempCoeffs order="1" r2="0.25">-1,-1</tempCoeffs>
        <calPoints>
            <calPoint temperature="10" radiance="-1" measurement="1"/><calPoint temperature="20" radiance="-2" measurement="2"/>
            <calPoint temperature="30" radiance="-3" measurement="4"/>
        </calPoints>
        <lookup start="0" end="50" delta="10" emissivity="1">-1,-1</lookup></calPage>)",
                                      "\n", "");
    return "<rcal revision=\"" + revision + "\">" + spectral + "<calPages>" + page + page + "</calPages></rcal>";
}

/// What of a page is no more as the stale document had it: the points in their order, in brackets when recalculated.
std::string refreshed(CRCalFile& calibration, int32_t index) {
    const CAL_PAGE& page = *calibration.GetPage(index);
    std::string text;
    for (const CAL_POINT& point : page.points) {
        const std::string digit = std::to_string(static_cast<int>(point.measurement));
        text += point.radiance >= 0.0 ? "[" + digit + "]" : digit;
    }
    const bool coeffs = page.r2 != 0.5 || page.coeffs.size() != 2 || page.coeffs.data()[0] != -1.0;
    const bool temp = page.tempR2 != 0.25 || page.tempCoeffs.size() != 2 || page.tempCoeffs.data()[0] != -1.0;
    if (coeffs) text += " coeffs" + std::to_string(page.coeffs.size());
    int moved = 0;
    for (const double value : {page.minTemperature, page.maxTemperature, page.minCounts, page.maxCounts}) {
        moved += value != -1.0 ? 1 : 0;
    }
    if (moved != 0) text += moved == 4 ? " range" : " part of the range";
    if (page.lookupTemperature.size() != 1) text += " lookup";
    if (temp) text += " temp";
    return text;
}

TEST(RCalLoad, BringsOldRevisionsUpToDate) {
    const char* const rows[] = {
        "[1][2][4] coeffs2 range temp",
        "[1][2][4] coeffs2 range temp",
        "[1][2][4] coeffs2 range temp",  // 0 to 2
        "[1][2][4] range",
        "[1][2][4] range",
        "[1][2][4] range",  // 3 to 5
        "124 range",
        "124",
        "124",  // 6 to 8
    };
    for (size_t revision = 0; revision < std::size(rows); ++revision) {
        // A table of two entries, so that the reverse fit can succeed; it is never rebuilt.
        const std::string document = replaced(stale(std::to_string(revision), "<spectralResponse delta='0.01'/>"),
                                              ">-1,-1</lookup>", ">1,-1|\r\n2,-3</lookup>");
        CRCalFile calibration;
        ASSERT_TRUE(load(calibration, document));
        EXPECT_EQ(calibration.getRevision(), static_cast<int32_t>(revision));
        for (int32_t page = 0; page < 2; ++page) {
            EXPECT_EQ(replaced(refreshed(calibration, page), " lookup", ""), rows[revision]) << revision;
            EXPECT_EQ(calibration.calPage(page).lookup().getCurve().getCount(), 2u);
            EXPECT_EQ(calibration.calPage(page).lookup().getCurve().getX(1), 2.0);
        }
    }
    CRCalFile unsaid;
    ASSERT_TRUE(load(unsaid, replaced(stale("8", ""), " revision=\"8\"", "")));
    EXPECT_EQ(unsaid.getRevision(), 0);
    EXPECT_EQ(refreshed(unsaid, 0).substr(0, 17), "[1][2][4] coeffs2");
}

TEST(RCalPropagation, EachChangeRefreshesWhatDependsOnItAlone) {
    const TempFolder folder;
    const CString curve = writeText(folder.path(u"curve.txt"), "3 0.5\n4 1\n5 0.5\n");
    const CString tape = writeText(folder.path(u"tape7"), "FREQ\n2000 0.5 1e-6\n4000 0.5 1e-6\n-9999.\n");
    const std::string file =
        "<spectralResponse type='0' delta='0.1' file='" + std::string(CStringMB(curve.c_str()).c_str()) + "'/>";
    const std::string plain = "<spectralResponse type='1' delta='0.1'/>";
    const std::string added =
        plain + "<additonalResponses><additionalResponse file='x' enabled='false'/></additonalResponses>";
    const std::string air = plain + "<modtran totTransEnabled='true'/>";
    const std::string all = "[1][2][4] coeffs2 range lookup temp";
    const std::string none = "124";
    using Cal = CRCalFile;
    const auto point = [](Cal& c, int32_t index) { return c.calPage(0).points()[index]; };
    const struct {
        const char* change;
        std::string spectral;
        std::function<void(Cal&)> make;
        std::string page0;
        std::string page1 = "124";
    } rows[] = {
        {"point temperature", plain, [&](Cal& c) { point(c, 0).setTemperature(25); }, "2[1]4 coeffs2 range"},
        {"emissivity", plain, [&](Cal& c) { point(c, 1).setEmissivity(0.9); }, "1[2]4 coeffs2 range"},
        {"measurement", plain, [&](Cal& c) { point(c, 1).setMeasurement(3); }, "1[3]4 coeffs2 range"},
        {"reflected radiance", plain, [&](Cal& c) { point(c, 2).setReflectedRadiance(1); }, "12[4] coeffs2 range"},
        {"reflected temperature", plain, [&](Cal& c) { point(c, 2).setReflectedTemperature(1); },
         "12[4] coeffs2 range"},
        {"reflected emissivity", plain, [&](Cal& c) { point(c, 2).setReflectedEmissivity(0); }, "12[4] coeffs2 range"},
        {"reflected type", plain,
         [&](Cal& c) { point(c, 0).setReflectedRadianceType(EReflectedRadianceType::calculate); },
         "[1]24 coeffs2 range"},
        {"enabled", plain, [&](Cal& c) { point(c, 1).setEnabled(false); }, "124 coeffs2 range"},
        {"point added", plain,
         [](Cal& c) {
             CAL_POINT p;
             p.temperature = 15;
             p.measurement = 7;
             EXPECT_EQ(c.calPage(0).points().Add(p), 1);
         },
         "1[7]24 coeffs2"},
        {"point removed", plain, [](Cal& c) { EXPECT_TRUE(c.calPage(0).points().Remove(1)); }, "14 coeffs2"},
        {"page added", plain, [](Cal& c) { EXPECT_EQ(c.calPages().Add(*c.GetPage(0)), 2); }, none},
        {"page removed", plain, [](Cal& c) { c.calPages().Add(), c.calPages().Remove(2); }, none},
        {"poly order", plain, [](Cal& c) { c.calPage(0).setPolyOrder(2); }, "124 coeffs3"},
        {"poly order clamped", plain, [](Cal& c) { c.calPage(0).setPolyOrder(5); }, "124 coeffs3"},
        {"poly order as it was", plain, [](Cal& c) { c.calPage(0).setPolyOrder(-3); }, none},
        {"temp poly order", plain, [](Cal& c) { c.calPage(0).setTempPolyOrder(2); }, "124 temp"},
        {"lookup start", plain, [](Cal& c) { c.calPage(0).lookup().setStart(1); }, "124 lookup temp"},
        {"lookup end", plain, [](Cal& c) { c.calPage(0).lookup().setEnd(60); }, "124 lookup temp"},
        {"lookup delta", plain, [](Cal& c) { c.calPage(0).lookup().setDelta(2); }, "124 lookup temp"},
        {"lookup emissivity", plain, [](Cal& c) { c.calPage(0).lookup().setEmissivity(1); }, "124 lookup temp"},
        {"auto range on", plain, [](Cal& c) { c.calPage(0).range().setAuto(true); }, "124 range"},
        {"auto range off", plain, [](Cal& c) { c.calPage(0).range().setAuto(false); }, none},
        {"range value", plain, [](Cal& c) { c.calPage(0).range().setMaxCounts(9); }, "124 part of the range"},
        {"spectral file", file, [&](Cal& c) { c.spectralResponse().setFile(curve); }, all, all},
        {"spectral file that is off", plain, [&](Cal& c) { c.spectralResponse().setFile(curve); }, none},
        {"top-hat start", plain, [](Cal& c) { c.tophat().setStart(3.1); }, all, all},
        {"top-hat end", plain, [](Cal& c) { c.tophat().setEnd(4.1); }, all, all},
        {"top-hat delta", plain, [](Cal& c) { c.tophat().setDelta(0.05); }, all, all},
        {"top-hat out of force", file, [](Cal& c) { c.tophat().setDelta(0.05); }, none},
        {"modtran file", air, [&](Cal& c) { c.modtran().setFile(tape); }, all, all},
        {"modtran file that is off", plain, [&](Cal& c) { c.modtran().setFile(tape); }, none},
        {"modtran curve on", plain, [](Cal& c) { c.modtran()[1].setEnabled(true); }, all, all},
        {"modtran curve off", air, [](Cal& c) { c.modtran()[0].setEnabled(false); }, all, all},
        {"additional response file", added, [&](Cal& c) { c.additionalResponses()[0].setFile(curve); }, all, all},
        {"additional response on", added, [](Cal& c) { c.additionalResponses()[0].setEnabled(true); }, all, all},
        {"additional response added", plain, [&](Cal& c) { c.additionalResponses().Add(curve); }, all, all},
        {"type to file", replaced(file, "type='0'", "type='1'"),
         [](Cal& c) { c.spectralResponse().setType(ESpectralResponseType::file); }, all, all},
        {"type to a missing file", plain, [](Cal& c) { c.spectralResponse().setType(ESpectralResponseType::file); },
         all, all},
        {"stored values", plain, [](Cal& c) { c.SetRange(1, true), c.SetFOV(1, 2, true), c.SetTPFact(0, 2, true); },
         none},
        {"overrides", plain,
         [](Cal& c) {
             const double v[] = {1, 2};
             c.SetUsedCoefficients(0, 1, v, true), c.SetUsedBandpass(1, 2, true);
         },
         none},
        {"proxies out of range", plain,
         [](Cal& c) {
             c.calPage(2).setPolyOrder(2), c.calPage(-1).lookup().setStart(7),
                 c.calPage(0).points()[3].setEnabled(false);
             c.calPage(0).points()[-1].setTemperature(7), c.additionalResponses()[0].setEnabled(true);
             c.modtran()[2].setEnabled(true), c.calPage(5).range().setAuto(true);
         },
         none},
        {"no lookup update", plain, [](Cal& c) { c.setAutoLookupUpdate(false), c.tophat().setStart(3.1); },
         "[1][2][4] coeffs2 range", "[1][2][4] coeffs2 range"},
    };
    for (const auto& row : rows) {
        CRCalFile calibration;
        ASSERT_TRUE(load(calibration, stale("8", row.spectral)));
        ASSERT_EQ(refreshed(calibration, 0), none);
        row.make(calibration);
        EXPECT_EQ(refreshed(calibration, 0), row.page0) << row.change;
        EXPECT_EQ(refreshed(calibration, 1), row.page1) << row.change;
        if (calibration.calPage(2).getExists()) {
            EXPECT_EQ(refreshed(calibration, 2), all) << row.change;
        }
    }
}

TEST(RCalPropagation, ASortedPointIsCalculatedFromItsNewTemperature) {
    CRCalFile calibration;
    ASSERT_TRUE(load(calibration, stale("8", "<spectralResponse type='1'/>")));
    calibration.calPage(0).points()[0].setTemperature(40);
    EXPECT_EQ(calibration.calPage(0).points()[2].getRadiance(), calibration.CalcRadiance(40, 1));
    EXPECT_EQ(calibration.calPage(0).range().getMaxTemperature(), 40);
    EXPECT_EQ(calibration.calPage(0).range().getMaxRadiance(), calibration.CalcRadiance(40, 1));
    EXPECT_EQ(calibration.calPage(0).range().getMinCounts(), 2);
}

TEST(RCalPropagation, RangeNeedsTwoEnabledPointsOfDifferentTemperature) {
    CRCalFile calibration;
    ASSERT_TRUE(load(calibration, stale("8", "<spectralResponse type='1'/>")));
    calibration.calPage(0).points()[0].setEnabled(false);
    calibration.calPage(0).points()[1].setEnabled(false);
    EXPECT_EQ(calibration.calPage(0).range().getMinTemperature(), 20) << "as the second-last point left it";
    EXPECT_EQ(calibration.calPage(0).coefficients().getR2(), 0.0);
    EXPECT_EQ(calibration.calPage(0).points().getNumEnabled(), 1);
    calibration.calPage(0).points()[1].setEnabled(true);
    calibration.calPage(0).points()[1].setTemperature(30);
    EXPECT_EQ(calibration.calPage(0).range().getMinTemperature(), 20);
}

// Radiance ------------------------------------------------------------------------------------------------------------

TEST(RCalRadiance, OfATophatIsPlancksIntegral) {
    // Fraction of a blackbody's radiation below 1200 and below 2000 micron kelvin (tables of the blackbody function),
    // at 400 K: 3 and 5 microns; times the Stefan-Boltzmann constant over pi.
    const double tabulated = (0.066728 - 0.002134) * 5.670374e-12 * std::pow(400.0, 4) / 3.14159265358979;
    EXPECT_NEAR(tophat(3, 5, 0.001).CalcRadiance(126.85, 1.0) / tabulated, 1.0, 1e-3);

    for (const double celsius : {-40.0, 20.0, 500.0}) {
        const CRCalFile calibration = tophat(3, 5, 0.001);
        // Rectangles from the right exceed the integral by half a step times the rise.
        const double excess = 0.5 * (2.0 / 1999) * (planck(5, celsius) - planck(3, celsius));
        const double expected = integral(3, 5, celsius, one);
        EXPECT_NEAR((calibration.CalcRadiance(celsius, 1.0) - excess) / expected, 1.0, 2e-6) << celsius;
        EXPECT_NEAR(calibration.CalcRadiance(celsius, 0.25) / calibration.CalcRadiance(celsius, 1.0), 0.25, 1e-12);
    }
    EXPECT_NEAR(tophat(3.9999, 4.0001, 1e-5).CalcRadiance(20, 1) / (2e-4 * planck(4, 20)), 1.0, 1e-4);
    EXPECT_EQ(tophat(5, 3, 0.01).CalcRadiance(20, 1), tophat(3, 5, 0.01).CalcRadiance(20, 1));
    EXPECT_EQ(CRCalFile().CalcRadiance(20, 1), 0.0);
    EXPECT_EQ(tophat(4, 4.01, 0.002).axis().getCount(), 10u) << "five points are not honoured";
}

TEST(RCalRadiance, OfAReflectingSourceAddsWhatItReflects) {
    const CRCalFile c = tophat(3, 5, 0.01);
    const double own = c.CalcRadiance(50, 0.8);
    const double reflected = c.CalcRadiance(20, (1.0 - 0.8) * 0.9);
    using Type = EReflectedRadianceType;
    EXPECT_EQ(c.CalcRadianceEx(50, 0.8, 1e-5), own + 1e-5);
    EXPECT_EQ(c.CalcRadianceEx(50, 0.8, 20, 0.9), own + reflected);
    EXPECT_EQ(c.CalcRadianceEx(50, 0.8, Type::constant, 1e-5, 20, 0.9), own + 1e-5);
    EXPECT_EQ(c.CalcRadianceEx(50, 0.8, Type::calculate, 1e-5, 20, 0.9), own + reflected);
    EXPECT_EQ(c.CalcRadianceEx(50, 0.8, Type::none, 1e-5, 20, 0.9), own);
    EXPECT_EQ(c.CalcRadianceEx(50, 0.8, static_cast<Type>(7), 1e-5, 20, 0.9), own);
}

TEST(RCalRadiance, PassesEveryAdditionalResponse) {
    const TempFolder folder;
    CRCalFile calibration = tophat(3, 5, 0.001);
    const double bare = calibration.CalcRadiance(300, 1);
    // A ramp that is not scaled to one, and a filter that ends inside the band.
    const CString lens = writeText(folder.path(u"lens.txt"), "2 0.2\n6 0.6\n");
    const CString filter = writeText(folder.path(u"filter.txt"), "4 1\n6 1\n");
    ASSERT_EQ(calibration.additionalResponses().Add(lens), 0);
    const double expected = integral(3, 5, 300, [](double x) { return 0.1 * x; });
    EXPECT_NEAR(calibration.CalcRadiance(300, 1) / expected, 1.0, 1e-3);
    ASSERT_EQ(calibration.additionalResponses().Add(filter), 1);
    EXPECT_NEAR(calibration.CalcRadiance(300, 1) / integral(4, 5, 300, [](double x) { return 0.1 * x; }), 1.0, 2e-3);
    TArray<double> x;
    TArray<double> y;
    calibration.GetFinalSpectralResponse(x, y);
    EXPECT_EQ(y.front(), 0.0);
    EXPECT_NEAR(y.back(), 0.5, 1e-12);
    calibration.additionalResponses()[0].setEnabled(false);
    calibration.additionalResponses()[1].setFile(CString(u"/absent/filter.txt"));
    EXPECT_EQ(calibration.additionalResponses()[1].getStatus(), EResponseStatus::fileMissing);
    EXPECT_EQ(calibration.CalcRadiance(300, 1), bare) << "a file that is missing is left out";
}

TEST(RCalRadiance, PassesTheAtmosphere) {
    const TempFolder folder;
    const CString tape =
        writeText(folder.path(u"tape7"), "header\n  FREQ  TRANS  PTH\n 1000 0.5 2e-6\n 5000 0.5 2e-6\n-9999.\n");
    CRCalFile c = tophat(3, 5, 0.001);
    const double bare = c.CalcRadiance(300, 1);
    c.modtran().setFile(tape);
    EXPECT_EQ(c.CalcRadiance(300, 1), bare) << "no curve enabled";
    c.modtran()[0].setEnabled(true);
    EXPECT_NEAR(c.CalcRadiance(300, 1) / (0.5 * bare), 1.0, 1e-12);
    c.modtran()[1].setEnabled(true);
    EXPECT_NEAR(c.CalcRadiance(300, 1) / (0.5 * bare + 2 * 2e-6), 1.0, 1e-12) << "the path is not attenuated";
    EXPECT_EQ(c.CalcRadianceNoModtran(300, 1), bare);
    EXPECT_EQ(c.CalcSourceRadiance(300, 1), bare);

    TArray<double> x;
    TArray<double> y;
    c.GetFinalSpectralResponse(x, y);
    EXPECT_NEAR(y.front(), 0.5 + 2e-6, 1e-15);
    c.GetFinalPlanck(x, y, 300, 1);
    EXPECT_NEAR(y.back() / ((0.5 + 2e-6) * planck(5, 300) + 2e-6), 1.0, 1e-12) << "the path enters twice";

    const struct {
        const char* text;
        EResponseStatus status;
    } rows[] = {
        {"FREQ\n2000 0.5\n-9999.\n", EResponseStatus::unreadable},
        {"FREQ\n2000 0.5 1e-6\n-9999.\n", EResponseStatus::tooFewPoints},
        {nullptr, EResponseStatus::fileMissing},
    };
    for (const auto& row : rows) {
        const CString path = folder.path(u"other");
        if (row.text != nullptr) writeText(path, row.text);
        c.modtran().setFile(row.text == nullptr ? CString() : path);
        EXPECT_EQ(c.modtran().getStatus(), row.status);
        EXPECT_EQ(c.CalcRadiance(300, 1), bare);
    }
}

TEST(RCalRadiance, PassesTheAtmosphereOfARealOutput) {
    const CString tape(CString(QV_DATA_DIR) + CString(u"/modtran/m5-thermal.tape7"));
    CModtranTape7File table;
    if (!table.Load(tape.c_str())) GTEST_SKIP() << "the real outputs are not on this machine";
    const double low = 1e4 / 2099.5, high = 1e4 / 2050.5;
    CRCalFile c = tophat(low, high, (high - low) / 4000);
    c.modtran().setFile(tape);
    c.modtran()[0].setEnabled(true);
    c.modtran()[1].setEnabled(true);
    ASSERT_EQ(c.modtran().getStatus(), EResponseStatus::loaded);
    const auto value = [&](double microns, ETape7Column column) {
        TAPE7_DATA row;
        EXPECT_TRUE(table.GetData(0, 1e4 / microns, row));
        return row[column];
    };
    const double through = integral(low, high, 300, [&](double x) { return value(x, ETape7Column::transmittance); });
    const double path =
        integral(low, high, 300, [&](double x) { return value(x, ETape7Column::pathThermal) / planck(x, 300); });
    EXPECT_NEAR(c.CalcRadiance(300, 1) / (through + path), 1.0, 1e-4);
    EXPECT_LT(through, 0.9 * c.CalcRadianceNoModtran(300, 1));
}

// Response files ------------------------------------------------------------------------------------------------------

TEST(RCalResponse, StatusAndBandComeFromTheFile) {
    const TempFolder folder;
    const struct {
        const char* name;
        const char* text;
        EResponseStatus status;
        double low, high;  // of the top-hat where the file is not in force
    } rows[] = {
        {"first and last above half of the peak", "3 0\n3.2 1\n3.4 1.1\n3.6 0.9\n3.8 4\n4 2.1\n4.2 2\n4.4 0\n",
         EResponseStatus::loaded, 3.8, 4.0},
        {"a dip inside counts", "3 2\n3.5 0\n4 2\n4.5 0\n", EResponseStatus::loaded, 3.0, 4.0},
        {"one line", "3 1\n", EResponseStatus::tooFewPoints, 3, 5},
        {"no numbers a line", "3\n4\n", EResponseStatus::unreadable, 3, 5},
        {"nothing", "", EResponseStatus::tooFewPoints, 3, 5},
        {"no file", nullptr, EResponseStatus::fileMissing, 3, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const CString path = folder.path(row.text == nullptr ? u"absent" : u"response.txt");
        if (row.text != nullptr) writeText(path, row.text);
        CRCalFile c;
        c.spectralResponse().setFile(path);
        EXPECT_EQ(c.spectralResponse().getStatus(), row.status);
        EXPECT_EQ(c.spectralResponse().getBandpassLow(), row.low);
        EXPECT_EQ(c.spectralResponse().getBandpassHigh(), row.high);
        const bool inForce = row.status == EResponseStatus::loaded;
        EXPECT_EQ(c.spectralResponse().getType(),
                  inForce ? ESpectralResponseType::file : ESpectralResponseType::tophat);
        EXPECT_EQ(c.axis().getCount() == 2000, !inForce) << "the top-hat takes the place of what did not load";
    }
}

TEST(RCalResponse, WorkingAxisIsAtMostAHundredthWide) {
    const TempFolder folder;
    std::string dense;
    for (int i = 0; i < 1000; ++i) dense += std::to_string(3 + i * 0.002) + " 1\n";
    const struct {
        std::string text;
        uint32_t points;
    } rows[] = {{"3 1\n3.7 0.5\n5 2\n", 200}, {dense, 1000}};
    for (const auto& row : rows) {
        CRCalFile c;
        c.spectralResponse().setFile(writeText(folder.path(u"r.txt"), row.text));
        EXPECT_EQ(c.axis().getCount(), row.points);
        EXPECT_EQ(c.axis()[0], 3.0);
        EXPECT_NEAR(c.axis()[1], 3.0 + (c.axis()[row.points - 1] - 3.0) / (row.points - 1), 1e-12);
        EXPECT_EQ(c.spectralResponse().getCurve().getY(row.points - 1), 1.0) << "scaled to one";
    }
}

TEST(RCalResponse, FallsBackToTheTophat) {
    const TempFolder folder;
    const CString curve = writeText(folder.path(u"curve.txt"), "8 1\n9 1\n");
    CRCalFile c = tophat(3, 5, 0.01);
    c.spectralResponse().setType(ESpectralResponseType::tophat);
    c.spectralResponse().setFile(curve);
    EXPECT_EQ(c.spectralResponse().getBandpassLow(), 3.0) << "the file is off";
    c.spectralResponse().setType(ESpectralResponseType::file);
    EXPECT_EQ(c.spectralResponse().getType(), ESpectralResponseType::file);
    EXPECT_EQ(c.spectralResponse().getBandpassHigh(), 9.0);
    c.spectralResponse().setType(ESpectralResponseType::tophat);
    EXPECT_EQ(c.axis()[0], 3.0);
    fileSystem().DeleteFileW(curve.c_str());
    c.spectralResponse().setType(ESpectralResponseType::file);
    EXPECT_EQ(c.spectralResponse().getType(), ESpectralResponseType::tophat);
    EXPECT_EQ(c.spectralResponse().getStatus(), EResponseStatus::fileMissing);
    EXPECT_EQ(c.axis()[0], 3.0);
    EXPECT_NE(test::saved(c).find("type=\"1\""), std::string::npos);
}

// Pages ---------------------------------------------------------------------------------------------------------------

TEST(RCalPage, FitsCountsToRadianceAndBack) {
    CRCalFile c = tophat(3, 5, 0.001);
    CAL_PAGE page;
    page.polyOrder = 2;
    ASSERT_EQ(c.calPages().Add(page), 0);
    // A camera whose counts are a line over the radiance: the fit must find it, from radiances of its own.
    const double celsius[] = {60, 10, 35, 85};
    for (const double t : celsius) {
        CAL_POINT point;
        point.temperature = t;
        point.measurement = 500 + 1e7 * integral(3, 5, t, one);
        c.calPage(0).points().Add(point);
    }
    c.calPage(0).range().setAuto(true);
    EXPECT_EQ(c.calPage(0).points()[0].getTemperature(), 10);
    TArray<double> used;
    ASSERT_TRUE(c.GetCoefficients(0, used));
    EXPECT_NEAR(used.data()[0] / -5e-5, 1.0, 2e-3);
    EXPECT_NEAR(used.data()[1] / 1e-7, 1.0, 1e-3);
    EXPECT_GT(c.calPage(0).coefficients().getR2(), 0.999999);
    const double counts = 500 + 1e7 * integral(3, 5, 50, one);
    EXPECT_NEAR(c.calPage(0).getTemperature(c.calPage(0).getRadiance(counts)), 50, 0.1);
    EXPECT_NEAR(c.calPage(0).getMeasurement(c.CalcRadiance(50, 1)), counts, 1.0);
    double low = 0;
    double high = 0;
    EXPECT_TRUE(c.calPage(0).GetTemperatureRange(low, high));
    EXPECT_TRUE(low == 10 && high == 85);
    EXPECT_TRUE(c.GetReverseCoefficients(0, 1, used));
    EXPECT_NEAR(used.data()[0], 500, 1.0);
    EXPECT_FALSE(c.GetReverseCoefficients(0, 4, used)) << "five coefficients from four points";
}

TEST(RCalPage, OrderIsClampedToThePoints) {
    const struct {
        int points, asked, kept;
    } rows[] = {{3, 5, 2}, {1, 5, 1}, {0, 3, 1}, {4, 2, 2}, {4, -2, 1}, {4, 3, 3}};
    for (const auto& row : rows) {
        CRCalFile c;
        c.calPages().Add();
        for (int i = 0; i < row.points; ++i) c.calPage(0).points().Add(CAL_POINT());
        c.calPage(0).setPolyOrder(row.asked);
        EXPECT_EQ(c.calPage(0).getPolyOrder(), row.kept);
    }
}

TEST(RCalPage, AnOverrideIsUsedWhileItIsValid) {
    CRCalFile c = tophat(3, 5, 0.1);
    c.calPages().Add();
    const double values[] = {1, 2, 3};
    ASSERT_TRUE(c.SetUsedCoefficients(0, 2, values, true));
    ASSERT_TRUE(c.SetUsedTempCoefficients(0, 2, values, false));
    int32_t order = 0;
    bool valid = true;
    TArray<double> got;
    EXPECT_TRUE(c.GetPolyOrder(0, order) && order == 2);
    EXPECT_TRUE(c.GetCalcPolyOrder(0, order) && order == 1);
    EXPECT_TRUE(c.GetTempPolyOrder(0, order) && order == 6);
    EXPECT_TRUE(c.GetUsedTempCoefficients(0, order, got, &valid));
    EXPECT_TRUE(order == 2 && got.size() == 3 && !valid);
    EXPECT_TRUE(c.GetCoeffsOverridden(0) && !c.GetTempCoeffsOverridden(0));
    EXPECT_EQ(c.calPage(0).getRadiance(10), 321);
    EXPECT_EQ(c.calPage(0).coefficients()[2], 3);
    EXPECT_TRUE(c.GetTempCoefficients(0, got));
    EXPECT_EQ(got.size(), 7u) << "the calculated fit over the lookup table";
    EXPECT_TRUE(c.EqualTempCoefficients(0, 6, got.data()));
    got.data()[3] += 1.0;
    EXPECT_FALSE(c.EqualTempCoefficients(0, 6, got.data()) || c.EqualTempCoefficients(0, 5, got.data()));
    EXPECT_FALSE(c.EqualTempCoefficients(1, 6, got.data()));
    EXPECT_TRUE(c.EqualBandpass(3.000000001, 5.0));
    EXPECT_FALSE(c.EqualBandpass(3.0000001, 5.0));
    c.SetUsedBandpass(1, 2, true);
    EXPECT_TRUE(c.EqualBandpass(3, 5)) << "compares the calculated band";
}

TEST(RCalPage, ABufferGetsNoMoreThanItsOrderTakes) {
    CRCalFile c;
    ASSERT_TRUE(load(c,
                     "<rcal revision='8'><calPages><calPage><coeffs order='1'>1,2,3,4</coeffs><coeffsOverride "
                     "order='0' valid='false'>5,6</coeffsOverride></calPage></calPages></rcal>"));
    double values[4] = {9, 9, 9, 9};
    EXPECT_TRUE(c.GetCoefficients(0, values));
    EXPECT_TRUE(values[1] == 2 && values[2] == 9);
    EXPECT_TRUE(c.GetUsedCoefficients(0, values));
    EXPECT_EQ(values[0], 1);
    EXPECT_TRUE(c.EqualCoefficients(0, 1, values));
}

TEST(RCalPage, WhatDoesNotExistReadsZero) {
    CRCalFile c;
    c.calPages().Add();
    for (const int32_t index : {-1, 1, 0x7FFFFFFF}) {
        CRCalFile::CCalPage page = c.calPage(index);
        EXPECT_FALSE(page.getExists() || page.points()[0].getExists() || c.calPage(0).points()[index].getEnabled());
        EXPECT_EQ(page.getPolyOrder() + page.points().getCount() + page.points().Add(CAL_POINT()), -1);
        EXPECT_EQ(page.getRadiance(5) + page.getTemperature(5) + page.lookup().getDelta() +
                      page.range().getMaxCounts() + page.coefficients()[0] + page.coefficients().getR2() +
                      page.points()[0].getTemperature() + c.axis()[7] + page.lookup().getCurve().getX(0),
                  0.0);
        double value = 7;
        int32_t order = 7;
        TArray<double> values;
        EXPECT_FALSE(c.GetPolyOrder(index, order) || c.GetCoefficients(index, values) || c.calPages().Remove(index) ||
                     c.GetReverseCoefficients(index, values) || c.GetBackgroundValueEx(index, value) ||
                     c.SetUsedCoefficients(index, 1, &value, true) || c.SetTag(u"a", u"b", index == -1 ? 3 : index));
        EXPECT_EQ(c.GetTags(index == -1 ? 3 : index).nItems(), 0u);
    }
    EXPECT_EQ(c.calPages().getCount(), 1);
    double value = 7;
    c.SetBackgroundValue(0, 5);
    EXPECT_TRUE(c.GetBackgroundValueEx(0, value) && value == 0.0);
    c.SetBackgroundType(0, BACKGROUND_TYPE::value);
    EXPECT_TRUE(c.GetBackgroundValueEx(0, value) && value == 5.0);
    const int counts[][2] = {{0, 0}, {-1, 2}, {-2, 2}, {3, 4}, {-3, 0}, {0x7FFFFFFF, 0}, {1, 2}};
    for (const auto& row : counts) EXPECT_EQ(CRCalFile::GetNumCoeffsForOrder(row[0]), row[1]);
}

}  // namespace
}  // namespace qv
