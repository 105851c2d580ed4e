#include "qv/spectral.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "qv/curve_fit.h"

namespace {

using namespace qv;

TArray<double> arrayOf(const std::vector<double>& values) {
    TArray<double> array;
    for (const double v : values) array.Add(v);
    return array;
}

std::vector<double> valuesOf(const TArray<double>& array) { return {array.begin(), array.end()}; }

TEST(Planck, IsTheFormulaOverTheWholeRangeOfDoubles) {
    // Its exponential and its fifth power lie within 2 units in the last place; subtracting 1 from an exponential near
    // 1 widens that.
    TArray<double> x = arrayOf({0.5, 3.0, 4.26, 10.0, 14.0, 2000.0, 1e-3, 1e5, 1e-60, 1e62, -3.0, INFINITY});
    for (const double celsius : {37.5, -270.0, 5000.0, -280.0}) {
        TArray<double> y = arrayOf({9, 9});
        Planck(x, y, celsius, 0.93);
        ASSERT_EQ(y.size(), x.size());
        for (uint32_t i = 0; i < x.size(); ++i) {
            const double v = x.data()[i];
            const double exponential = std::exp(14388.3 / ((celsius + 273.15) * v));
            const double expected = 0.93 * (11910.06 / std::pow(v, 5.0)) * (1.0 / (exponential - 1.0));
            const double units = 8.0 + 2.0 * exponential / std::fabs(exponential - 1.0);
            EXPECT_TRUE(y.data()[i] == expected || std::fabs(y.data()[i] / expected - 1.0) < units * 0x1p-52 ||
                        (std::isnan(expected) && std::isnan(y.data()[i])))
                << v << ": " << y.data()[i] << ' ' << expected;
        }
    }
    TArray<double> y;
    TArray<double> ten = arrayOf({10});
    Planck(ten, y, 0.0, 0.5);
    EXPECT_NEAR(y.data()[0], 0.5 * 11910.06e-5 / (std::exp(14388.3 / 2731.5) - 1), 1e-18);
}

TEST(Planck, ObeysTheLawsOfThermalRadiation) {
    TArray<double> x;
    TArray<double> y;
    XAxis(x, 0.2, 2000.0, 2000000u);
    Planck(x, y, 26.85, 1.0);  // 300 K
    // Stefan and Boltzmann: sigma T^4 / pi with sigma = 5.670374419e-12 W/(cm^2 K^4) (CODATA 2018). The function's own
    // constants lie 3.1e-5 and 3.7e-5 beside those of CODATA, which moves the integral by -1.8e-4 of itself.
    const double law = 5.670374419e-12 * std::pow(300.0, 4) / std::numbers::pi;
    EXPECT_NEAR(IntegrateTrap(x, y) / law, 1.0 - 1.79e-4, 1e-5);
    // Wien: the maximum lies where (1 - z/5) e^z = 1, at z = 4.965114231744276.
    const auto peak = std::max_element(y.begin(), y.end()) - y.begin();
    EXPECT_NEAR(x.data()[peak], 14388.3 / 4.965114231744276 / 300.0, 0.001);
}

TEST(Integrals, SumTheirRectangles) {
    TArray<double> x = arrayOf({0, 1, 3, 4});
    TArray<double> y = arrayOf({2, 4, 1, 1});
    EXPECT_EQ(IntegrateTrap(x, y), 3.0 + 5.0 + 1.0);
    EXPECT_EQ(IntegrateRectMid(x, y), 9.0);
    EXPECT_EQ(IntegrateRectTR(x, y), 4.0 + 2.0 + 1.0);
    EXPECT_EQ(IntegrateRectTL(x, y), 2.0 + 8.0 + 1.0);
    Reverse(x, y);
    EXPECT_EQ(IntegrateTrap(x, y), -9.0);
    for (const std::vector<double>& few : {std::vector<double>{}, {3}}) {
        TArray<double> a = arrayOf(few);
        EXPECT_EQ(IntegrateTrap(a, a), 0.0);
        EXPECT_EQ(IntegrateRectTR(a, a), 0.0);
        EXPECT_EQ(IntegrateRectTL(a, a), 0.0);
        EXPECT_EQ(a.size(), few.size());
    }
}

TEST(XAxis, CountsPointsAndHitsBothEnds) {
    TArray<double> x;
    XAxis(x, 3.0, 5.0, 5u);
    EXPECT_EQ(valuesOf(x), (std::vector<double>{3.0, 3.5, 4.0, 4.5, 5.0}));
    XAxis(x, 0.1, 0.7, 8u);
    EXPECT_EQ(x.data()[3], 3 * ((0.7 - 0.1) / 7) + 0.1);
    EXPECT_TRUE(x.front() == 0.1 && x.back() == 0.7);
    XAxis(x, 5.0, 3.0, 2u);
    EXPECT_EQ(valuesOf(x), (std::vector<double>{5.0, 3.0}));
    XAxis(x, 2.0, 9.0, 1u);
    EXPECT_EQ(valuesOf(x), std::vector<double>{2.0});
    XAxis(x, 2.0, 9.0, 0u);
    EXPECT_TRUE(x.empty());
}

TEST(XAxis, StepsDecideTheCountWithinLimits) {
    const double nan = std::nan("");
    const double inf = std::numeric_limits<double>::infinity();
    const struct {
        double start, end, delta;
        uint32_t count;
    } rows[] = {{3, 5, 0.1, 20},  {5, 3, 0.1, 20},  {3, 5, 0.5, 10},       {3, 5, -0.1, 10}, {3, 3, 0.1, 10},
                {3, 5, 0.15, 14}, {3, 5, inf, 10},  {3, 5, 0.0, 0},        {3, 3, 0.0, 0},   {3, 5, nan, 0},
                {nan, 5, 0.1, 0}, {3, 5, 1e-12, 0}, {-1e308, 1e308, 1, 0}, {0, inf, 0.1, 0}};
    for (const auto& row : rows) {
        TArray<double> x = arrayOf({1});
        XAxis(x, row.start, row.end, row.delta);
        EXPECT_EQ(x.size(), row.count) << row.start << ' ' << row.end << ' ' << row.delta;
        if (row.count != 0) {
            EXPECT_TRUE(x.front() == std::min(row.start, row.end) && x.back() == std::max(row.start, row.end));
        }
    }
}

TEST(Scaling, LeavesWhatIsCloseEnough) {
    TArray<double> y = arrayOf({0.5, 1.000000001});
    ScaleToOne(y);
    EXPECT_EQ(valuesOf(y), (std::vector<double>{0.5, 1.000000001}));
    y = arrayOf({-3, 1, 4});
    ScaleToOne(y);
    EXPECT_EQ(valuesOf(y), (std::vector<double>{-0.75, 0.25, 1.0}));
    ScaleTo(y, 1.0 + 5e-9);
    EXPECT_EQ(y.data()[2], 1.0);
    ScaleTo(y, 6.0);
    EXPECT_EQ(valuesOf(y), (std::vector<double>{-4.5, 1.5, 6.0}));
    TArray<double> none;
    ScaleToOne(none);
    ScaleTo(none, 2.0);
    EXPECT_TRUE(none.empty());
    Tophat(y, none);
    EXPECT_EQ(valuesOf(none), (std::vector<double>{1, 1, 1}));
    CopyAxis(none, y);
    EXPECT_EQ(valuesOf(none), valuesOf(y));
}

TEST(Interpolate, TakesPointsLinesAndTheValuesOutside) {
    TArray<double> x = arrayOf({1, 2, 4});
    TArray<double> y = arrayOf({10, 20, 0});
    TArray<double> at = arrayOf({0.5, 1.0 - 5e-9, 1.0, 1.25, 2.0, 2.0 + 5e-9, 3.0, 4.0, 4.1});
    TArray<double> values = arrayOf({7});
    Interpolate(x, y, at, values, -1.0);
    const double justAbove = ((2.0 + 5e-9) - 2.0) / 2.0 * -20.0 + 20.0;
    EXPECT_EQ(valuesOf(values), (std::vector<double>{-1, 10, 10, 12.5, 20, justAbove, 10, 0, -1}));
    Interpolate(x, y, at, values, -1.0, -2.0);
    EXPECT_TRUE(values.front() == -1.0 && values.back() == -2.0);
    TArray<double> none;
    Interpolate(none, none, at, values, -1.0, -2.0);
    EXPECT_EQ(valuesOf(values), std::vector<double>(at.size(), -2.0));
}

TEST(Units, ConvertBothWaysAndKeepTheIntegral) {
    EXPECT_EQ(ToMicrons(2000.0), 5.0);
    EXPECT_EQ(ToWavenumbers(5.0), 2000.0);
    TArray<double> x = arrayOf({2000, 2500});
    TArray<double> y = arrayOf({3, 5});
    ASSERT_TRUE(ToMicrons(x, y));
    EXPECT_EQ(valuesOf(x), (std::vector<double>{4, 5}));
    EXPECT_EQ(valuesOf(y), (std::vector<double>{5 * 2500.0 * 2500.0, 3 * 2000.0 * 2000.0}));
    ASSERT_TRUE(ToWavenumbers(x));
    EXPECT_EQ(valuesOf(x), (std::vector<double>{2500, 2000})) << "one array is not turned round";
    TArray<double> zero = arrayOf({1, 0});
    EXPECT_FALSE(ToMicrons(zero));
    EXPECT_FALSE(ToWavenumbers(zero, y));
    EXPECT_EQ(valuesOf(zero), (std::vector<double>{1, 0}));
}

TEST(ReversedPolynomials, InvertTheSamplesTheyWereMadeOf) {
    TArray<double> line = arrayOf({0.5, 0.25});
    ASSERT_TRUE(CalcRadToCountsFromCountsToRad(line));
    EXPECT_NEAR(line.data()[0], -2.0, 1e-12);
    EXPECT_NEAR(line.data()[1], 4.0, 1e-12);

    TArray<double> countsToRad = arrayOf({1.0, 0.001});
    TArray<double> radToTemp = arrayOf({-10.0, 4.0});
    ASSERT_TRUE(CalcTempToRadFromRadToTemp(countsToRad, radToTemp));
    EXPECT_NEAR(radToTemp.data()[0], 2.5, 1e-12);
    EXPECT_NEAR(radToTemp.data()[1], 0.25, 1e-12);
    EXPECT_EQ(valuesOf(countsToRad), (std::vector<double>{1.0, 0.001}));

    // A gently curved response, as a camera has it: the reverse polynomial returns to within half a count.
    TArray<double> curved = arrayOf({2.0, 1e-3, 5e-9});
    TArray<double> reverse = curved;
    ASSERT_TRUE(CalcRadToCountsFromCountsToRad(reverse));
    EXPECT_EQ(reverse.size(), 3u);
    for (const double counts : {0.0, 5000.0, 16383.0}) {
        EXPECT_NEAR(PolyValue(PolyValue(counts, curved), reverse), counts, 16.0);
    }
}

TEST(ReversedPolynomials, RefusalsLeaveTheCoefficients) {
    TArray<double> single = arrayOf({5});
    TArray<double> flat = arrayOf({5, 0});
    TArray<double> line = arrayOf({1, 2});
    EXPECT_FALSE(CalcRadToCountsFromCountsToRad(single));
    EXPECT_FALSE(CalcRadToCountsFromCountsToRad(flat));
    EXPECT_FALSE(CalcTempToRadFromRadToTemp(single, line));
    EXPECT_FALSE(CalcTempToRadFromRadToTemp(line, single));
    EXPECT_FALSE(CalcTempToRadFromRadToTemp(flat, line));
    EXPECT_EQ(valuesOf(flat), (std::vector<double>{5, 0}));
    EXPECT_EQ(valuesOf(line), (std::vector<double>{1, 2}));
}

}  // namespace
