#include "qv/rcal_frames.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "qv/rcal_file.h"

namespace {

using namespace qv;

/// A calibration with one page of a few points.
void fill(CRCalFile& calibration) {
    calibration.spectralResponse().setType(ESpectralResponseType::tophat);
    const int32_t page = calibration.calPages().Add();
    for (int t = 0; t <= 100; t += 20) {
        CAL_POINT point;
        point.temperature = t;
        point.measurement = 1000.0 + 6e6 * calibration.CalcRadiance(t, 1.0);
        calibration.calPage(page).points().Add(point);
    }
    calibration.calPage(page).range().setAuto(true);
}

TEST(CountsConverter, GivesThePagesTemperatureForEveryTypeAndCountsWhatLiesOutside) {
    CRCalFile calibration;
    fill(calibration);
    CRCalFile::CCalPage page = calibration.calPage(0);
    constexpr uint32_t count = 5003;  // several blocks and a rest
    for (const EDataType type : {EDataType::int8, EDataType::uint8, EDataType::int16, EDataType::uint16,
                                 EDataType::int32, EDataType::uint64, EDataType::flt32, EDataType::flt64}) {
        const TSharedPtr<ITypedBuffer> counts = AllocTypedBuffer(type, count);
        for (uint32_t i = 0; i < count; ++i) counts->setAt(i, 37.0 * i - 500.0);
        for (const EDataType to : {EDataType::flt32, EDataType::flt64, EDataType::int16}) {
            const TSharedPtr<ITypedBuffer> values = AllocTypedBuffer(to, count);
            const CCountsConverter converter(calibration, 0, type);
            ASSERT_TRUE(converter.IsValid());
            const COUNTS_OUTSIDE outside = converter.Convert(values->typedData(), counts->typedData(), count);
            COUNTS_OUTSIDE expected;
            for (uint32_t i = 0; i < count; ++i) {
                const double value = counts->getAt(i);
                expected.below += value < page.range().getMinCounts() ? 1 : 0;
                expected.above += value > page.range().getMaxCounts() ? 1 : 0;
                const double celsius = page.getTemperature(page.getRadiance(value));
                const double tolerance = to == EDataType::int16 ? 1.0 : 1e-6 + 1e-6 * std::fabs(celsius);
                if (std::fabs(celsius) < 30000.0) {
                    ASSERT_NEAR(values->getAt(i), celsius, tolerance) << int(type) << ' ' << int(to) << ' ' << value;
                }
            }
            EXPECT_TRUE(outside.below == expected.below && outside.above == expected.above)
                << int(type) << ' ' << int(to);
        }
    }
}

TEST(CountsConverter, TableAndFunctionGiveTheSameBits) {
    const auto function = [](double x) { return x < 100.0 ? std::nan("") : std::log(x) * 17.0; };
    std::vector<uint16_t> counts(70000);
    for (size_t i = 0; i < counts.size(); ++i) counts[i] = static_cast<uint16_t>(i);
    std::vector<float> table(counts.size()), direct(counts.size());
    const auto n = static_cast<uint32_t>(counts.size());
    for (const auto& [low, high] : {std::pair{1000.5, 60000.5}, {-1e300, 1e300}, {1e9, -1e9}, {NAN, NAN}}) {
        const CCountsConverter fast(function, low, high, EDataType::uint16);
        const CCountsConverter plain(function, low, high, EDataType::none);
        const COUNTS_OUTSIDE a = fast.Convert({table.data(), EDataType::flt32}, {counts.data(), EDataType::uint16}, n);
        const COUNTS_OUTSIDE b =
            plain.Convert({direct.data(), EDataType::flt32}, {counts.data(), EDataType::uint16}, n);
        EXPECT_TRUE(a.below == b.below && a.above == b.above) << low;
        for (uint32_t i = 0; i < n; ++i) {
            ASSERT_TRUE(table[i] == direct[i] || (std::isnan(table[i]) && std::isnan(direct[i]))) << i;
        }
    }
}

TEST(CountsConverter, WithoutAPageOrForOtherTypesItWritesNothing) {
    CRCalFile calibration;
    const CCountsConverter none(calibration, 0, EDataType::uint16);
    EXPECT_FALSE(none.IsValid());
    fill(calibration);
    const CCountsConverter converter(calibration, 0, EDataType::uint16);
    uint16_t counts[] = {2000};
    double out = 7.0;
    none.Convert({&out, EDataType::flt64}, {counts, EDataType::uint16}, 1);
    converter.Convert({&out, EDataType::uint64}, {counts, EDataType::uint16}, 1);
    converter.Convert({&out, EDataType::flt64}, {counts, EDataType::rgb24}, 1);
    EXPECT_EQ(out, 7.0);
}

}  // namespace
