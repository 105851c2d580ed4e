#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "numerics/kernels/kernel_table.h"

namespace {

using namespace qv::kernels;

TEST(KernelChoice, TakesTheForcedTableOnlyWhenTheMachineHasIt) {
    EXPECT_EQ(&chooseKernels(0, "baseline"), &baseline::table);
    EXPECT_EQ(&chooseKernels(0, nullptr), &baseline::table);
    EXPECT_EQ(&chooseKernels(0, "no such table"), &baseline::table);
    EXPECT_EQ(&chooseKernels(~0u, nullptr), allKernels().back());
    for (const KernelTable* table : allKernels()) {
        EXPECT_EQ(&chooseKernels(~0u, table->name), table);
        if (table->features != 0) {
            EXPECT_NE(&chooseKernels(0, table->name), table);
        }
    }
}

std::vector<const KernelTable*> kernelsOfThisMachine() {
    std::vector<const KernelTable*> found;
    for (const KernelTable* table : allKernels()) {
        if ((table->features & ~machineFeatures()) == 0) found.push_back(table);
    }
    return found;
}

/// Every test below runs once for each table that the machine has; the test's name says which.
class Kernels : public testing::TestWithParam<const KernelTable*> {};
INSTANTIATE_TEST_SUITE_P(Machine, Kernels, testing::ValuesIn(kernelsOfThisMachine()),
                         [](const auto& one) { return std::string(one.param->name); });

using Bytes = std::vector<unsigned char>;

/// `count` elements: the ends of the types, what lies just outside them, NaN of several kinds, infinities, and others.
template <class T>
Bytes elements(size_t count, unsigned seed) {
    std::mt19937_64 random(seed);
    std::vector<T> values(count);
    for (T& value : values) {
        if constexpr (std::is_integral_v<T>) {
            using Limits = std::numeric_limits<T>;
            const T ends[] = {Limits::min(), T(Limits::min() + 1), T(-1),        T(0),
                              T(1),          T(Limits::max() - 1), Limits::max()};
            value = random() % 2 == 0 ? ends[random() % std::size(ends)] : static_cast<T>(random());
        } else {
            constexpr T inf = std::numeric_limits<T>::infinity();
            const T ends[] = {T(0),      T(-0.0),    inf,       -inf,      T(std::nan("")), -T(std::nan("")),
                              T(0x1p31), T(-0x1p31), T(0x1p32), T(0x1p63), T(-0x1p63),      T(0x1p64),
                              T(1e30),   T(1e-40)};
            // The neighbours of the ends, and numbers with a fraction of every size that an integer has.
            const T any = std::ldexp(static_cast<T>(static_cast<int64_t>(random())), -static_cast<int>(random() % 68));
            value = random() % 2 == 0 ? ends[random() % std::size(ends)] : any;
            if (random() % 4 == 0) value = std::nextafter(value, random() % 2 == 0 ? T(0) : 2 * value);
        }
    }
    Bytes bytes(count * sizeof(T));
    if (count != 0) std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

/// Lengths around the vectors of every width and element size, and the blocks of the longer ways.
constexpr size_t lengths[] = {0,  1,  2,  3,  4,  5,  7,   8,   9,   15,  16,  17,
                              31, 32, 33, 63, 64, 65, 127, 128, 129, 255, 257, 1100};

/// Where dst and src begin in one piece of memory, in bytes: apart at odd addresses, one and the same, and overlapping
/// either way by less than an element, an element, and a vector.
struct Places {
    size_t dst;
    size_t src;
};
constexpr size_t apart = 9001;
constexpr Places places[] = {{1, apart}, {0, 0}, {0, 1}, {1, 0}, {0, 4}, {8, 0}, {0, 8}, {64, 0}, {3, 70}, {0, 64}};

template <class T>
T wrappingSum(T a, T b) {
    if constexpr (std::is_integral_v<T>) return static_cast<T>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
    return a + b;
}

/// The four operations of two operands as plain ascending loops.
template <class D, class S, class Operation>
void plainLoop(unsigned char* dst, const unsigned char* src, size_t count, Operation operation) {
    for (size_t i = 0; i < count; ++i) store(dst, i, operation(load<D>(dst, i), convert<D>(load<S>(src, i))));
}

/// Which NaN the sum of two is, the language leaves open: all are taken for one.
template <class D>
void unifyNaNs(unsigned char* elements, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (std::isnan(load<D>(elements, i))) store(elements, i, std::numeric_limits<D>::quiet_NaN());
    }
}

template <size_t d, size_t s>
void checkPair(const KernelTable& table) {
    using D = Element<d>;
    using S = Element<s>;
    Bytes before = elements<D>(1200, d);
    before.resize(apart);
    const Bytes source = elements<S>(1200, 100 + s);
    before.insert(before.end(), source.begin(), source.end());
    const auto check = [&](KernelTable::Binary kernel, const char* name, auto operation) {
        const bool anyNaN = std::is_floating_point_v<D> && kernel == table.sum[d][s];
        for (const Places& place : places) {
            if (anyNaN && place.src != apart) continue;
            for (const size_t count : lengths) {
                if (count > 300 && place.src != apart && place.dst != place.src) continue;
                Bytes found = before;
                Bytes expected = before;
                kernel(found.data() + place.dst, found.data() + place.src, count);
                plainLoop<D, S>(expected.data() + place.dst, expected.data() + place.src, count, operation);
                if constexpr (std::is_floating_point_v<D>) {
                    if (anyNaN) {
                        unifyNaNs<D>(found.data() + place.dst, count);
                        unifyNaNs<D>(expected.data() + place.dst, count);
                    }
                }
                ASSERT_TRUE(found == expected)
                    << name << ' ' << d << ", " << s << " at " << place.dst << ", " << place.src << ": " << count;
            }
        }
    };
    check(table.convert[d][s], "convert", [](D, D c) { return c; });
    check(table.min[d][s], "min", [](D x, D c) { return x < c ? x : c; });
    check(table.max[d][s], "max", [](D x, D c) { return x > c ? x : c; });
    check(table.sum[d][s], "sum", [](D x, D c) { return wrappingSum(x, c); });
}

/// Calls `use` with every tag that takes part in array operations, as a compile-time number.
template <class Use>
void forTags(Use use) {
    const auto one = [&]<size_t tag>(std::integral_constant<size_t, tag> constant) {
        if constexpr (tag != tagUInt64) use(constant);
    };
    [&]<size_t... tag>(std::index_sequence<tag...>) { (one(std::integral_constant<size_t, tag>()), ...); }
    (std::make_index_sequence<typeCount>());
}

TEST_P(Kernels, PairsHaveTheBitsOfThePlainLoop) {
    forTags([&]<size_t d>(std::integral_constant<size_t, d>) {
        forTags([&]<size_t s>(std::integral_constant<size_t, s>) { checkPair<d, s>(*GetParam()); });
    });
}

TEST_P(Kernels, HandleEveryTypeButUInt64) {
    const KernelTable& table = *GetParam();
    for (size_t a = 0; a < typeCount; ++a) {
        for (size_t b = 0; b < typeCount; ++b) {
            const bool handled = a != tagUInt64 && b != tagUInt64;
            for (const auto* pairs : {&table.convert, &table.min, &table.max, &table.sum}) {
                EXPECT_EQ((*pairs)[a][b] != nullptr, handled) << a << ' ' << b;
            }
            EXPECT_EQ(table.span[a][b] != nullptr, handled);
        }
        EXPECT_EQ(table.div[a] != nullptr, a != tagUInt64);
        for (const auto& row : table.minMax) EXPECT_EQ(row[a] != nullptr, a != tagUInt64);
    }
}

TEST_P(Kernels, SpansHaveTheBitsOfThePlainLoop) {
    const KernelTable& table = *GetParam();
    forTags([&]<size_t a>(std::integral_constant<size_t, a>) {
        forTags([&]<size_t b>(std::integral_constant<size_t, b>) {
            using A = Element<a>;
            using B = Element<b>;
            const Bytes left = elements<A>(1200, 1);
            const Bytes right = elements<B>(1200, 2);
            for (const size_t count : lengths) {
                std::vector<SpanType<A, B>> found(count + 1), expected(count + 1);
                table.span[a][b](found.data(), left.data(), right.data(), count);
                for (size_t i = 0; i < count; ++i)
                    expected[i] = span(load<A>(left.data(), i), load<B>(right.data(), i));
                ASSERT_EQ(std::memcmp(found.data(), expected.data(), count * sizeof found[0]), 0) << a << ' ' << b;
            }
        });
        using D = Element<a>;
        const Bytes magnitudes = elements<uint32_t>(1200, 3);
        std::vector<D> found(1100), expected(1100);
        table.convertSpan[a](found.data(), magnitudes.data(), 1100);
        for (size_t i = 0; i < 1100; ++i) expected[i] = convertSpan<D>(load<uint32_t>(magnitudes.data(), i));
        EXPECT_EQ(found, expected) << a;
    });
}

template <size_t t, size_t s>
void checkMinMax(const KernelTable& table) {
    using T = std::tuple_element_t<t, MinMaxTypes>;
    using S = Element<s>;
    for (unsigned seed = 0; seed < 6; ++seed) {
        Bytes data = elements<S>(1200, seed);
        if (seed % 2 == 1) {  // Nothing but zeros of both signs above or below other values.
            for (size_t i = 0; i < 1200; ++i)
                store(data.data(), i, static_cast<S>(i % 3 == 0 ? S(0) : i % 3 == 1 ? -S(0) : S(seed)));
        }
        for (const size_t count : lengths) {
            if (count == 0) continue;
            const unsigned char* first = data.data() + seed * sizeof(S);
            T min, max;
            table.minMax[t][s](first, count, &min, &max);
            T low = convert<T>(load<S>(first, 0));
            T high = low;
            for (size_t i = 1; i < count; ++i) {
                const T x = convert<T>(load<S>(first, i));
                low = x < low ? x : low;
                high = x > high ? x : high;
            }
            ASSERT_TRUE(std::memcmp(&min, &low, sizeof min) == 0 && std::memcmp(&max, &high, sizeof max) == 0)
                << table.name << " output " << t << " of " << s << ", seed " << seed << ", " << count << ": " << min
                << ' ' << low << ' ' << max << ' ' << high;
        }
    }
}

TEST_P(Kernels, MinMaxHasTheBitsOfThePlainLoop) {
    forTags([&]<size_t s>(std::integral_constant<size_t, s>) {
        [&]<size_t... t>(std::index_sequence<t...>) { (checkMinMax<t, s>(*GetParam()), ...); }
        (std::make_index_sequence<std::tuple_size_v<MinMaxTypes>>());
    });
}

template <class T>
T quotient(T x, T d) {
    if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
        if (d == T(-1)) return static_cast<T>(0 - static_cast<uint64_t>(x));
    }
    return static_cast<T>(x / d);
}

template <class T>
std::vector<T> divisors() {
    if constexpr (std::is_floating_point_v<T>)
        return {T(0.1), T(-3), T(0), std::numeric_limits<T>::infinity(), T(1e-30)};
    std::vector<T> found;
    for (unsigned bit = 0; bit < 8 * sizeof(T); ++bit) {
        for (const int offset : {-1, 0, 1})
            found.push_back(static_cast<T>((uint64_t{1} << bit) + static_cast<uint64_t>(offset)));
    }
    for (const uint32_t any : {3u, 7u, 10u, 100u, 641u, 1000u, 0x9E3779B9u}) found.push_back(static_cast<T>(any));
    for (size_t i = 0, n = found.size(); i < n; ++i)
        found.push_back(static_cast<T>(0 - static_cast<uint64_t>(found[i])));
    std::erase(found, T(0));
    return found;
}

TEST_P(Kernels, DivisionHasTheBitsOfThePlainLoop) {
    forTags([&]<size_t tag>(std::integral_constant<size_t, tag>) {
        using T = Element<tag>;
        Bytes data = elements<T>(1200, 5);
        if constexpr (sizeof(T) <= 2) {  // every element there is
            data.resize(size_t{65536} * sizeof(T));
            for (size_t i = 0; i < 65536; ++i) store(data.data(), i, static_cast<T>(i));
        }
        const size_t all = data.size() / sizeof(T);
        const auto check = [&](T divisor, size_t count) {
            Bytes found(1, 0);  // odd addresses
            found.insert(found.end(), data.begin(), data.end());
            GetParam()->div[tag](found.data() + 1, &divisor, count);
            for (size_t i = 0; i < all; ++i) {
                const T x = load<T>(data.data(), i);
                const T expected = i < count ? quotient(x, divisor) : x;
                const T got = load<T>(found.data() + 1, i);
                ASSERT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << tag << ": " << x << " / " << divisor;
            }
        };
        for (const T divisor : divisors<T>()) check(divisor, all);
        for (const size_t count : lengths) check(T(7), std::min(count, all));
        T zero{};
        GetParam()->div[tag](nullptr, &zero, 0);  // divides nothing
    });
}

template <class T>
void checkAffine(const KernelTable& table, size_t type) {
    const Bytes source = elements<T>(1200, 9);
    const AffineTerms terms{.before = 273.15, .scale = 1.8, .after = -32.0};
    for (const bool divides : {false, true}) {
        for (const AffineTerms& t : {terms, AffineTerms{}, AffineTerms{.after = 0.1}}) {
            for (const size_t count : lengths) {
                Bytes found = source;  // in place, at an odd address
                found.insert(found.begin(), 0);
                table.affine[type][divides](found.data() + 1, found.data() + 1, count, t);
                for (size_t i = 0; i < count; ++i) {
                    const double moved = static_cast<double>(load<T>(source.data(), i)) + t.before;
                    const T expected = static_cast<T>((divides ? moved / t.scale : moved * t.scale) + t.after);
                    const T got = load<T>(found.data() + 1, i);
                    ASSERT_TRUE(std::isnan(expected) ? std::isnan(got) : std::memcmp(&got, &expected, sizeof got) == 0)
                        << table.name << i;
                }
            }
        }
    }
}

TEST_P(Kernels, TemperatureScalesHaveTheBitsOfThePlainLoop) {
    checkAffine<float>(*GetParam(), 0);
    checkAffine<double>(*GetParam(), 1);
}

TEST_P(Kernels, PlanckHasTheBitsOfTheBaseline) {
    std::vector<double> x = {0.0, -0.0, -2.5, 1e-70, 1e70, 5e-324, 1e-40, 1e60, INFINITY, -INFINITY, NAN};
    std::mt19937_64 random(7);
    while (x.size() < 5000)
        x.push_back(std::ldexp(static_cast<double>(random() >> 11) * 0x1p-53, static_cast<int>(random() % 12)));
    std::vector<double> response(x.size());
    for (double& r : response) r = static_cast<double>(random() >> 11) * 0x1p-53;
    for (const size_t count : lengths) {
        const double* axis = x.data() + (count < 20 ? 0 : 11);
        for (const double kelvin : {300.0, 77.0, 0.0, -5.0, 1e6, 1e-3}) {
            std::vector<double> curves[2];
            double bands[2];
            for (const int forced : {0, 1}) {
                const KernelTable& table = forced == 0 ? baseline::table : *GetParam();
                std::vector<double> strengths(count);
                curves[forced].resize(count);
                table.planckStrengths(axis, strengths.data(), count);
                table.planckCurve(axis, strengths.data(), curves[forced].data(), count, kelvin, 0.95);
                bands[forced] = table.planckBand(axis, strengths.data(), response.data(), count, kelvin, 0.95);
                // The integral adds in the order of the axis.
                double sum = 0.0;
                for (size_t i = 1; i < count; ++i) {
                    const double left = curves[forced][i - 1] * response[i - 1];
                    const double dx = axis[i] - axis[i - 1];
                    sum += dx * (curves[forced][i] * response[i] - left) + dx * left;
                }
                EXPECT_TRUE(bands[forced] == sum || (std::isnan(sum) && std::isnan(bands[forced])))
                    << count << ' ' << kelvin;
            }
            for (size_t i = 0; i < count; ++i) {
                ASSERT_TRUE(std::bit_cast<uint64_t>(curves[0][i]) == std::bit_cast<uint64_t>(curves[1][i]) ||
                            (std::isnan(curves[0][i]) && std::isnan(curves[1][i])))
                    << axis[i] << ' ' << kelvin;
            }
        }
    }
}

template <size_t s>
void checkFrames(const KernelTable& table, const std::vector<float>& values) {
    using T = Element<s>;
    constexpr size_t kind = std::is_signed_v<T> ? 1 : 0;
    const Bytes data = elements<T>(1200, 11);
    for (const size_t count : lengths) {
        const unsigned char* counts = data.data() + count % 2;  // at odd addresses as well
        Bytes memory((count + 1) * sizeof(float) + 1, 0x5A);
        unsigned char* found = memory.data() + 1;
        const float untouched = load<float>(found, count);
        int32_t lowest = 0, highest = 0, low = INT32_MAX, high = INT32_MIN;
        uint32_t below = 5, above = 6, less = 5, more = 6;
        if (count != 0) table.lookUp[kind](found, counts, count, values.data(), lowest, highest);
        table.countOutside[kind](counts, count, -3, 40000, below, above);
        for (size_t i = 0; i < count; ++i) {
            const int32_t x = load<T>(counts, i);
            low = std::min(low, x);
            high = std::max(high, x);
            less += x < -3 ? 1 : 0;
            more += x > 40000 ? 1 : 0;
            ASSERT_EQ(load<float>(found, i), values[static_cast<uint16_t>(x)]) << s << ' ' << count << ' ' << i;
        }
        EXPECT_EQ(load<float>(found, count), untouched);
        EXPECT_TRUE(count == 0 || (lowest == low && highest == high)) << s << ' ' << count;
        EXPECT_TRUE(below == less && above == more) << s << ' ' << count;
    }
}

TEST_P(Kernels, FramesHaveTheBitsOfThePlainLoop) {
    std::vector<float> values(65536);
    for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i) * 0.37f;
    checkFrames<2>(*GetParam(), values);
    checkFrames<3>(*GetParam(), values);

    const double coefficients[] = {-12.25, 0.017, -3.1e-6, 1.7e-10};
    for (const size_t count : lengths) {
        std::vector<double> x(count + 1, 77.0), expected(count);
        for (size_t i = 0; i < count; ++i) x[i] = i % 17 == 3 ? NAN : 31.7 * static_cast<double>(i) - 500.0;
        for (size_t i = 0; i < count; ++i) {
            volatile double value = 0.0;  // every step rounded
            for (size_t k = std::size(coefficients); k-- > 0;) {
                value = value * x[i];
                value = value + coefficients[k];
            }
            expected[i] = value;
        }
        GetParam()->horner(x.data(), count, coefficients, std::size(coefficients));
        EXPECT_EQ(x[count], 77.0);
        for (size_t i = 0; i < count; ++i) {
            ASSERT_TRUE(x[i] == expected[i] || (std::isnan(x[i]) && std::isnan(expected[i]))) << count << ' ' << i;
        }
    }
}

}  // namespace
