#include "qv/curve_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <string>

#include "numerics/nist_models.h"

namespace {

using namespace qv;

TArray<double> arrayOf(const std::vector<double>& values) {
    TArray<double> array;
    for (const double v : values) array.Add(v);
    return array;
}

std::vector<double> valuesOf(const TArray<double>& array) { return {array.begin(), array.end()}; }

// Polynomials: certified coefficients of the Statistical Reference Datasets (NIST), lowest power first
// -----------------

struct LinearSet {
    const char* name;
    std::vector<double> certified;
    double r2;
    double r2Tolerance = 1e-14;
    std::vector<double> x{};
    std::vector<double> y{};
};

/// "x,y" lines behind a heading.
bool loadPairs(LinearSet& set) {
    std::ifstream in(std::string(QV_DATA_DIR "/nist/") + set.name + ".csv");
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        const size_t comma = line.find(',');
        if (comma == std::string::npos) continue;
        set.x.push_back(std::stod(line));
        set.y.push_back(std::stod(line.substr(comma + 1)));
    }
    return !set.x.empty();
}

/// Fits the set and compares coefficients to thirteen of the certificate's fifteen digits.
void checkLinear(const LinearSet& set) {
    SCOPED_TRACE(set.name);
    TArray<double> x = arrayOf(set.x);
    TArray<double> y = arrayOf(set.y);
    TArray<double> c;
    ASSERT_TRUE(LinearLeastSquareFit(x, y, static_cast<int>(set.certified.size()) - 1, c));
    ASSERT_EQ(c.size(), set.certified.size());
    EXPECT_GE(nist::digits(c.data(), set.certified), 13.0);
    EXPECT_NEAR(CalcR2(x, y, c), set.r2, set.r2Tolerance);
}

TEST(LinearLeastSquareFit, ReachesCertifiedCoefficientsOfSmallSets) {
    LinearSet wampler1{"Wampler1", {1, 1, 1, 1, 1, 1}, 1.0};
    LinearSet wampler2{"Wampler2", {1, 0.1, 0.01, 0.001, 0.0001, 0.00001}, 1.0};
    for (int i = 0; i <= 20; ++i) {
        wampler1.x.push_back(i);
        wampler2.x.push_back(i);
        double y1 = 0.0;
        int64_t y2 = 0;  // in units of 0.00001, so that the decimal values of the published set come out
        for (int64_t k = 0, power = 1, unit = 100000; k <= 5; ++k, power *= i, unit /= 10) {
            y1 += static_cast<double>(power);
            y2 += power * unit;
        }
        wampler1.y.push_back(y1);
        wampler2.y.push_back(static_cast<double>(y2) / 100000.0);
    }
    LinearSet norris{"Norris", {-0.262323073774029, 1.00211681802045}, 0.999993745883712};
    norris.x = {.2, 337.4, 118.2, 884.6, 10.1,  226.5, 666.3, 996.3, 448.6, 777.0, 558.2, .4,
                .6, 775.5, 666.9, 338.0, 447.5, 11.6,  556.0, 228.1, 995.8, 887.6, 120.2, .3,
                .3, 556.8, 339.1, 887.2, 999.0, 779.0, 11.1,  118.3, 229.2, 669.1, 448.9, .5};
    norris.y = {.1, 338.8, 118.1, 888.0, 9.2,   228.1, 668.5, 998.5, 449.1, 778.9, 559.2, .3,
                .1, 778.1, 668.8, 339.3, 448.9, 10.8,  557.7, 228.3, 998.0, 888.8, 119.6, .3,
                .6, 557.6, 339.3, 888.0, 998.5, 778.9, 10.2,  117.6, 228.9, 668.4, 449.2, .2};
    for (const LinearSet& set : {wampler1, wampler2, norris}) checkLinear(set);
}

TEST(LinearLeastSquareFit, ReachesCertifiedCoefficientsOfPublishedFiles) {
    LinearSet sets[] = {
        {"pontius", {0.673565789473684e-3, 0.732059160401003e-6, -0.316081871345029e-14}, 0.999999900178537},
        {"wampler3", {1, 1, 1, 1, 1, 1}, 0.999995559025820},
        {"filip",
         {-1467.48961422980, -2772.17959193342, -2316.37108160893, -1127.97394098372, -354.478233703349,
          -75.1242017393757, -10.8753180355343, -1.06221498588947, -0.670191154593408e-1, -0.246781078275479e-2,
          -0.402962525080404e-4},
         0.996727416185620,
         1e-10}};  // Horner's rule in double precision loses the rest in this polynomial's values
    for (LinearSet& set : sets) {
        if (!loadPairs(set)) GTEST_SKIP() << "no " << set.name << " in " QV_DATA_DIR;
        checkLinear(set);
    }
}

TEST(LinearLeastSquareFit, KeepsItsDigitsFarFromTheOrigin) {
    // y = (x - 1000000)^3 at integers: the expanded coefficients are exact numbers.
    TArray<double> x;
    TArray<double> y;
    for (int i = -5; i <= 5; ++i) {
        x.Add(1000000.0 + i);
        y.Add(i * i * i);
    }
    TArray<double> c;
    ASSERT_TRUE(LinearLeastSquareFit(x, y, 3, c));
    EXPECT_EQ(valuesOf(c), (std::vector<double>{-1e18, 3e12, -3e6, 1.0}));
}

TEST(LinearLeastSquareFit, RefusesWhatHasNoSolutionAndLeavesTheCoefficients) {
    const double nan = std::nan("");
    const double inf = std::numeric_limits<double>::infinity();
    const struct {
        const char* what;
        std::vector<double> x;
        std::vector<double> y;
        int order;
    } rows[] = {
        {"order 0", {1, 2, 3}, {1, 2, 3}, 0},
        {"order -1", {1, 2, 3}, {1, 2, 3}, -1},
        {"unequal lengths", {1, 2, 3}, {1, 2}, 1},
        {"too few points", {1, 2}, {1, 2}, 2},
        {"no points", {}, {}, 1},
        {"one x only", {2, 2, 2}, {1, 2, 3}, 1},
        {"two x for a parabola", {1, 2, 1, 2}, {1, 2, 3, 4}, 2},
        {"two inexact x for a parabola", {0.1, 0.7, 0.1, 0.7, 0.7}, {1, 2, 3, 4, 5}, 2},
        {"NaN in x", {1, nan, 3}, {1, 2, 3}, 1},
        {"infinity in y", {1, 2, 3}, {1, inf, 3}, 1},
    };
    for (const auto& row : rows) {
        TArray<double> x = arrayOf(row.x);
        TArray<double> y = arrayOf(row.y);
        TArray<double> c = arrayOf({7.0});
        EXPECT_FALSE(LinearLeastSquareFit(x, y, row.order, c)) << row.what;
        EXPECT_EQ(valuesOf(c), std::vector<double>{7.0}) << row.what;
        EXPECT_EQ(x.size(), row.x.size()) << row.what;
    }
}

TEST(LinearLeastSquareFit, TakesExtremeScalesAndItsOwnInputAsOutput) {
    for (const double scale : {1e-300, 1e-30, 1.0, 1e30, 1e300}) {
        TArray<double> x = arrayOf({1 * scale, 2 * scale, 3 * scale, 4 * scale});
        TArray<double> y = arrayOf({3, 5, 7, 9});
        ASSERT_TRUE(LinearLeastSquareFit(x, y, 1, x)) << scale;
        EXPECT_NEAR(x.data()[0], 1.0, 1e-14) << scale;
        EXPECT_NEAR(x.data()[1] * scale, 2.0, 1e-14) << scale;
    }
}

TEST(DerivedFits, RecoverTheirParameters) {
    TArray<double> x = arrayOf({0.5, 1, 2, 3, 5, 8});
    TArray<double> y;
    double a = 0;
    double b = 0;
    ExpCurve(x, y, 2.5, -0.3);
    EXPECT_EQ(y.data()[2], ExpValue(2.0, 2.5, -0.3));
    ASSERT_TRUE(ExpLeastSquareFit(x, y, a, b));
    EXPECT_NEAR(a, 2.5, 1e-13);
    EXPECT_NEAR(b, -0.3, 1e-13);
    LogCurve(x, y, 1.75, -4.0);
    ASSERT_TRUE(LogLeastSquareFit(x, y, a, b));
    EXPECT_NEAR(a, 1.75, 1e-13);
    EXPECT_NEAR(b, -4.0, 1e-13);
    PowCurve(x, y, 0.125, 2.2);
    ASSERT_TRUE(PowLeastSquareFit(x, y, a, b));
    EXPECT_NEAR(a, 0.125, 1e-13);
    EXPECT_NEAR(b, 2.2, 1e-13);
}

TEST(DerivedFits, LogarithmsOfZeroOrLessComeOutAsNaN) {
    using Fit = bool (*)(TArray<double>&, TArray<double>&, double&, double&);
    for (const Fit fit : {Fit(ExpLeastSquareFit), Fit(LogLeastSquareFit), Fit(PowLeastSquareFit)}) {
        TArray<double> x = arrayOf({0.0, 1, 2});
        TArray<double> y = arrayOf({-1.0, 1, 2});
        double a = 1;
        double b = 1;
        EXPECT_FALSE(fit(x, y, a, b));
        EXPECT_TRUE(std::isnan(a) && std::isnan(b));
        TArray<double> shorter = arrayOf({1.0});
        a = b = 1;
        EXPECT_FALSE(fit(x, shorter, a, b));
        EXPECT_TRUE(a == 1 && b == 1);
    }
}

TEST(CalcR2, IsZeroWhereItSaysSo) {
    TArray<double> x = arrayOf({1, 2, 3});
    TArray<double> y = arrayOf({2, 4, 6.5});
    TArray<double> line = arrayOf({0, 2});
    TArray<double> constant = arrayOf({5});
    TArray<double> zeros = arrayOf({0, 0, 0});
    TArray<double> balanced = arrayOf({-1, 0, 1});
    EXPECT_EQ(CalcR2(x, y, constant), 0.0);
    EXPECT_EQ(CalcR2(x, zeros, line), 0.0);
    EXPECT_EQ(CalcR2(balanced, y), 0.0);
    EXPECT_EQ(CalcR2(x, x), 1.0);
    // By hand: n = 3, S = 6, 12.5; S(pp) = 14, S(yy) = 62.25, S(py) = 29.5: 13.5^2 / (6 * 30.5).
    EXPECT_DOUBLE_EQ(CalcR2(x, y), 182.25 / 183.0);
    EXPECT_DOUBLE_EQ(CalcR2(x, y, line), 182.25 / 183.0);
    TArray<double> level = arrayOf({0.1, 0.1, 0.1});  // whose sums of squares are rounded
    EXPECT_TRUE(std::isnan(CalcR2(level, y)) && std::isnan(CalcR2(y, level)) && std::isnan(CalcR2(level, level)));
}

TEST(PolyValue, SumsPowersAndRefusesASingleCoefficient) {
    TArray<double> one = arrayOf({5});
    TArray<double> c = arrayOf({1, -2, 0.1, 3e-3});
    EXPECT_EQ(PolyValue(3.0, one), 0.0);
    const double x = 1.7;
    double want = 0.0;
    for (uint32_t i = 0; i < 4; ++i) want += std::pow(x, double(i)) * c.data()[i];
    EXPECT_EQ(PolyValue(x, c), want);
    TArray<double> curve = arrayOf({0, 1.7});
    PolyCurve(curve, curve, c);
    EXPECT_EQ(valuesOf(curve), (std::vector<double>{1.0, want}));
}

// lmfit: certified parameters from both published starting points
// ------------------------------------------------------

TArray<bool> allFree(size_t count) {
    TArray<bool> fit;
    for (size_t i = 0; i < count; ++i) fit.Add(true);
    return fit;
}

/// Digits reached from one starting point. MINPACK's own routine reaches 5.2 on ENSO and more on every other set:
/// forward differences allow no better.
void checkProblem(const char* name, const nist::Problem& problem, nist::Model model, nist::Model2 model2) {
    for (const std::vector<double>& start : problem.start) {
        TArray<double> x1 = arrayOf(problem.x1);
        TArray<double> x2 = arrayOf(problem.x2);
        TArray<double> y = arrayOf(problem.y);
        TArray<double> b = arrayOf(start);
        const TArray<bool> fit = allFree(start.size());
        const bool converged =
            model != nullptr ? lmfit(x1, y, b, fit, model, 10000) : lmfit2(x1, x2, y, b, fit, model2, 10000);
        EXPECT_TRUE(converged) << name;
        EXPECT_GE(nist::digits(b.data(), problem.certified), 5.0) << name << " from " << start[0];
    }
}

nist::Model modelOf(const std::string& name) {
    for (const nist::Named& named : nist::models) {
        if (name == named.name) return named.model;
    }
    return nullptr;
}

TEST(LmFit, ReachesCertifiedParametersOfSmallSets) {
    const nist::Problem misra1a{
        {{500, 0.0001}, {250, 0.0005}},
        {2.3894212918E+02, 5.5015643181E-04},
        {10.07, 14.73, 17.94, 23.93, 29.61, 35.18, 40.02, 44.82, 50.76, 55.05, 61.01, 66.40, 75.47, 81.78},
        {77.6, 114.9, 141.1, 190.8, 239.9, 289.0, 332.8, 378.4, 434.8, 477.3, 536.8, 593.1, 689.1, 760.0},
        {}};
    checkProblem("Misra1a", misra1a, modelOf("Misra1a"), nullptr);
}

TEST(LmFit, ReachesCertifiedParametersOfPublishedFiles) {
    for (const nist::Named& named : nist::models) {
        nist::Problem problem;
        if (!nist::load(std::string(QV_DATA_DIR "/nist/") + named.name + ".dat", problem)) {
            GTEST_SKIP() << "no " << named.name << " in " QV_DATA_DIR;
        }
        checkProblem(named.name, problem, named.model, nullptr);
    }
}

TEST(LmFit2, SolvesNelson) {
    nist::Problem problem;
    if (!nist::load(QV_DATA_DIR "/nist/Nelson.dat", problem)) GTEST_SKIP() << "no Nelson in " QV_DATA_DIR;
    for (double& y : problem.y) y = std::log(y);
    checkProblem("Nelson", problem, nullptr, nist::nelson);
}

double planeModel(double x1, double x2, double* p, int count) {
    EXPECT_EQ(count, 3);
    return p[0] + p[1] * x1 + p[2] * x2;
}
double lineModel(double x, double* p, int) { return p[0] + p[1] * x; }
double hillModel(double x, double* p, int) { return p[0] > 2.0 ? std::nan("") : p[0] * x; }
int steepCalls = 0;
double steepModel(double, double* p, int) {
    ++steepCalls;
    return 1e308 * p[0];
}
double brokenModel(double, double*, int) { return std::nan(""); }

TEST(LmFit2, KeepsParametersThatAreNotFree) {
    TArray<double> x1 = arrayOf({0, 1, 2, 3, 4});
    TArray<double> x2 = arrayOf({1, 0, 2, 1, 5});
    TArray<double> y;
    for (uint32_t i = 0; i < 5; ++i) y.Add(2 + 3 * x1.data()[i] - x2.data()[i]);
    TArray<double> p = arrayOf({0, 3, 0});
    TArray<bool> fit = allFree(3);
    fit[1] = false;
    ASSERT_TRUE(lmfit2(x1, x2, y, p, fit, planeModel, 1000));
    EXPECT_NEAR(p.data()[0], 2.0, 1e-12);
    EXPECT_EQ(p.data()[1], 3.0);
    EXPECT_NEAR(p.data()[2], -1.0, 1e-12);
}

TEST(LmFit, RefusalsLeaveTheParameters) {
    TArray<double> x = arrayOf({1, 2, 3});
    TArray<double> y = arrayOf({2, 4, 6});
    TArray<double> two = arrayOf({1, 2});
    TArray<double> one = arrayOf({1});
    const struct {
        const char* what;
        TArray<double>& x;
        TArray<double>& y;
        TArray<bool> fit;
        double (*model)(double, double*, int);
        int maxCalls;
    } rows[] = {
        {"nothing free", x, y, TArray<bool>{false, false}, lineModel, 100},
        {"no entries", x, y, {}, lineModel, 100},
        {"unequal lengths", two, y, allFree(2), lineModel, 100},
        {"too few points", one, one, allFree(2), lineModel, 100},
        {"no calls", x, y, allFree(2), lineModel, 0},
        {"never finite", x, y, allFree(2), brokenModel, 100},
        {"calls ran out", x, y, allFree(2), lineModel, 1},
    };
    for (const auto& row : rows) {
        TArray<double> p = arrayOf({0.5, 0.5});
        EXPECT_FALSE(lmfit(row.x, row.y, p, row.fit, row.model, row.maxCalls)) << row.what;
        if (row.maxCalls != 1) {
            EXPECT_EQ(valuesOf(p), (std::vector<double>{0.5, 0.5})) << row.what;
        }
    }
}

TEST(LmFit, TakesBackStepsIntoValuesThatAreNotFinite) {
    TArray<double> x = arrayOf({1, 2, 3});
    TArray<double> y = arrayOf({1.9, 3.8, 5.7});
    TArray<double> p = arrayOf({0.001});
    EXPECT_TRUE(lmfit(x, y, p, allFree(1), hillModel, 1000));
    EXPECT_NEAR(p.data()[0], 1.9, 1e-9);
}

TEST(LmFit, EndsWhereNoStepIsFinite) {
    TArray<double> x = arrayOf({1, 2});
    TArray<double> y = arrayOf({1.7e308, 0});
    TArray<double> p = arrayOf({0});
    EXPECT_FALSE(lmfit(x, y, p, allFree(1), steepModel, 100000));
    EXPECT_LT(steepCalls, 100);
}

}  // namespace
