#include <gtest/gtest.h>

#include <cmath>

#include "numerics/planck.h"
#include "qv/spectral.h"

namespace {

using namespace qv;

TEST(PlanckAxis, GivesTheBitsOfThePlainFunctions) {
    TArray<double> x;
    XAxis(x, 2.9, 5.1, 777u);
    TArray<double> response;
    for (const double v : x) response.Add(std::exp(-(v - 4) * (v - 4)));
    const PlanckAxis axis(x);
    for (const double celsius : {-40.0, 0.1, 36.6, 1500.0}) {
        TArray<double> plain;
        TArray<double> kept;
        Planck(x, plain, celsius, 0.97);
        axis.curve(kept, celsius, 0.97);
        ASSERT_EQ(kept.size(), plain.size());
        for (uint32_t i = 0; i < plain.size(); ++i) {
            ASSERT_EQ(kept.data()[i], plain.data()[i]);
            plain.data()[i] *= response.data()[i];
        }
        EXPECT_EQ(axis.inBand(response, celsius, 0.97), IntegrateRectTR(x, plain));
    }
}

TEST(PlanckAxis, FollowsAnAxisThatChanges) {
    TArray<double> x;
    x << 3.0 << 4.0;
    PlanckAxis axis(x);
    TArray<double> before;
    TArray<double> after;
    axis.curve(before, 20.0, 1.0);
    x.data()[1] = 5.0;
    axis.assign(x);
    axis.curve(after, 20.0, 1.0);
    EXPECT_NE(after[1], before[1]);
    TArray<double> none;
    axis.assign(none);
    EXPECT_EQ(axis.size(), 0u);
    EXPECT_EQ(axis.inBand(x, 20.0, 1.0), 0.0);
}

}  // namespace
