#include "qv/temperature.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace qv;

constexpr ETempType C = ETempType::Celsius;
constexpr ETempType F = ETempType::Fahrenheit;
constexpr ETempType K = ETempType::Kelvin;
constexpr ETempType R = ETempType::Rankine;

TEST(Temperature, ScalesHaveNames) {
    EXPECT_EQ(TempTypeToString(C), std::u16string(u"Celsius"));
    EXPECT_EQ(TempTypeToString(F), std::u16string(u"Fahrenheit"));
    EXPECT_EQ(TempTypeToString(K), std::u16string(u"Kelvin"));
    EXPECT_EQ(TempTypeToString(R), std::u16string(u"Rankine"));
    EXPECT_EQ(TempTypeToString(ETempType(4)), std::u16string(u"Error"));
    EXPECT_EQ(TempTypeToString(ETempType(-1)), std::u16string(u"Error"));
}

TEST(Temperature, ScalarsAreTheirFormulas) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    const double below = std::nextafter(0.5, 0.0);
    const double rounds[][2] = {{2.5, 3},       {-2.5, -3},   {2.4, 2},   {-0.4, 0},  {1e19, 1e19},
                                {-1e19, -1e19}, {1e18, 1e18}, {inf, inf}, {below, 1}, {1e15 + 0.5, 1e15 + 1}};
    for (const auto& [x, expected] : rounds) EXPECT_EQ(CMath::Round(x), expected) << x;
    const struct {
        double (*function)(double);
        double x, expected;
    } rows[] = {
        {CMath::Cosine, 2.0, std::cos(2.0)},
        {CMath::Sine, 2.0, std::sin(2.0)},
        {CMath::AbsoluteValue, -1.5, 1.5},
        {CMath::RoundUp, -1.5, -1.0},
        {CMath::RoundDown, -1.5, -2.0},
        {CMath::RadiansToDegrees, 2.0, 114.5916},
        {CMath::DegreesToRadians, 114.5916, 2.0},
        {CMath::FahrenheitToCelsius, 101.0, 69.0 * 0.5555555555555556},
        {CMath::CelsiusToFahrenheit, 36.6, 36.6 * 1.8 + 32.0},
        {CMath::KelvinToCelsius, 300.0, 300.0 - 273.15},
        {CMath::CelsiusToKelvin, 36.6, 36.6 + 273.15},
        {CMath::KelvinToFahrenheit, 300.0, 300.0 * 1.8 - 459.67},
        {CMath::FahrenheitToKelvin, 101.0, 69.0 * 0.5555555555555556 + 273.15},
    };
    for (const auto& row : rows) EXPECT_EQ(row.function(row.x), row.expected) << row.x;
}

/// The table of formulas as it stands in the documentation of the scales.
double onScale(double x, ETempType from, ETempType to) {
    // clang-format off
    const double table[4][4] = {
        {x,                x * 1.8 + 32.0,    x + 273.15,         (x + 273.15) * 1.8},
        {(x - 32.0) / 1.8, x,                 (x + 459.67) / 1.8, x + 459.67},
        {x - 273.15,       x * 1.8 - 459.67,  x,                  x * 1.8},
        {x / 1.8 - 273.15, x - 459.67,        x / 1.8,            x}};
    // clang-format on
    return table[int(from)][int(to)];
}

constexpr EDataType handledTypes[] = {EDataType::int8,   EDataType::uint8, EDataType::int16,
                                      EDataType::uint16, EDataType::int32, EDataType::uint32,
                                      EDataType::int64,  EDataType::flt32, EDataType::flt64};

TSharedPtr<ITypedBuffer> temperatures(EDataType type, uint32_t count) {
    const TSharedPtr<ITypedBuffer> buffer = AllocTypedBuffer(type, count);
    for (uint32_t i = 0; i < count; ++i) buffer->setAt(i, i * 7.3 - 300.0);
    return buffer;
}

TEST(ConvertTemperature, ComputesInDoubleAndStoresByTheElementRuleForEveryPair) {
    constexpr uint32_t count = 1100;
    for (const EDataType s : handledTypes) {
        for (const EDataType d : handledTypes) {
            const auto source = temperatures(s, count);
            for (int pair = 0; pair < 16; ++pair) {
                const auto from = ETempType(pair / 4);
                const auto to = ETempType(pair % 4);
                const auto found = AllocTypedBuffer(d, count);
                const auto expected = AllocTypedBuffer(d, count);
                CMath::ConvertTemperature(found->typedData(), source->typedData(), count, from, to);
                if (from == to) {
                    ConvertArray(expected->typedData(), source->typedData(), count);
                } else {
                    std::vector<double> values(count);
                    for (uint32_t i = 0; i < count; ++i) values[i] = onScale(source->getAt(i), from, to);
                    ConvertArray(expected->typedData(), {values.data(), EDataType::flt64}, count);
                }
                for (uint32_t i = 0; i < count; ++i) {
                    ASSERT_EQ(found->getAt(i), expected->getAt(i)) << int(d) << int(s) << ' ' << pair << ": " << i;
                }
            }
        }
    }
}

TEST(ConvertTemperature, TruncatesAndDoesNotClamp) {
    int8_t celsius[] = {0, -10};
    uint16_t kelvin[2];
    CMath::ConvertTemperature({kelvin, EDataType::uint16}, {celsius, EDataType::int8}, 2, C, K);
    EXPECT_EQ(kelvin[0], 273);
    uint8_t copied[2];
    CMath::ConvertTemperature({copied, EDataType::uint8}, {celsius, EDataType::int8}, 2, C, C);
    EXPECT_EQ(copied[1], 246);
    CMath::ConvertTemperature({copied, EDataType::uint8}, {celsius, EDataType::int8}, 2, C, K);
    EXPECT_EQ(copied[0], 273 - 256);
}

TEST(ConvertTemperature, ArraysMayBeOneAndMayOverlap) {
    constexpr uint32_t count = 700;
    for (const EDataType type : handledTypes) {
        for (const uint32_t shift : {0u, 1u, 3u}) {  // elements by which dst begins behind src
            const auto whole = temperatures(type, count + 3);
            const auto single = temperatures(type, count + 3);
            const uint32_t size = DataTypeSize(type);
            const auto place = [&](const TSharedPtr<ITypedBuffer>& buffer, uint32_t i) {
                return STypedData(buffer->uint8() + size_t{i} * size, type);
            };
            CMath::ConvertTemperature(place(whole, shift), place(whole, 0), count, K, C);
            for (uint32_t i = 0; i < count; ++i) {
                CMath::ConvertTemperature(place(single, i + shift), place(single, i), 1, K, C);
            }
            for (uint32_t i = 0; i < count + 3; ++i) ASSERT_EQ(whole->getAt(i), single->getAt(i)) << int(type) << i;
        }
    }
}

TEST(ConvertTemperature, LeavesAloneWhatItDoesNotKnow) {
    uint64_t out[] = {1, 2};
    double in[] = {3, 4};
    const STypedData source(in, EDataType::flt64);
    for (const EDataType type : {EDataType::uint64, EDataType::rgb24, EDataType::none}) {
        CMath::ConvertTemperature({out, type}, source, 2, C, K);
        CMath::ConvertTemperature({out, EDataType::flt64}, {in, type}, 2, C, K);
    }
    CMath::ConvertTemperature({out, EDataType::flt64}, source, 2, ETempType(4), K);
    CMath::ConvertTemperature({out, EDataType::flt64}, source, 2, ETempType(4), ETempType(4));
    CMath::ConvertTemperature({out, EDataType::flt64}, source, 2, C, ETempType(-1));
    CMath::ConvertTemperature({out, EDataType::flt64}, source, 0, C, K);
    EXPECT_TRUE(out[0] == 1 && out[1] == 2);
}

}  // namespace
