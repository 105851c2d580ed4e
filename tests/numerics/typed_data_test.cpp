#include "qv/typed_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

using namespace qv;

constexpr EDataType handledTypes[] = {EDataType::int8,   EDataType::uint8, EDataType::int16,
                                      EDataType::uint16, EDataType::int32, EDataType::uint32,
                                      EDataType::int64,  EDataType::flt32, EDataType::flt64};

// The oracle: an element as an exact number ---------------------------------------------------------------------------
// long double holds every int64 and every double, so the rule can be written down without the types it is about.

using Exact = long double;

struct Kind {
    int bits;
    bool isSigned;
    bool isFloat;
};

/// Calls `use` with a value of the element type.
template <class Use>
auto withType(EDataType type, Use use) {
    if (type == EDataType::int8) return use(int8_t());
    if (type == EDataType::uint8) return use(uint8_t());
    if (type == EDataType::int16) return use(int16_t());
    if (type == EDataType::uint16) return use(uint16_t());
    if (type == EDataType::int32) return use(int32_t());
    if (type == EDataType::uint32) return use(uint32_t());
    if (type == EDataType::int64) return use(int64_t());
    if (type == EDataType::flt32) return use(float());
    return use(double());
}

template <class T>
Kind kindOf(T) {
    return {int(sizeof(T) * 8), std::is_signed_v<T>, std::is_floating_point_v<T>};
}
Kind kindOf(EDataType type) {
    return withType(type, [](auto element) { return kindOf(element); });
}

Exact exactAt(const void* data, EDataType type, size_t i) {
    return withType(type, [&]<class T>(T) { return static_cast<Exact>(static_cast<const T*>(data)[i]); });
}

/// The low bits of an integer as a number of the kind.
Exact wrapped(Exact integer, Kind kind) {
    const Exact modulus = std::ldexp(Exact(1), kind.bits);
    Exact low = std::fmod(integer, modulus);
    if (low < 0) low += modulus;
    return kind.isSigned && low >= modulus / 2 ? low - modulus : low;
}

Exact rounded(Exact value, Kind kind) { return kind.bits == 32 ? Exact(float(double(value))) : Exact(double(value)); }

Exact converted(Exact value, Kind from, Kind to) {
    if (to.isFloat) return to.bits == 32 ? Exact(static_cast<float>(value)) : Exact(static_cast<double>(value));
    if (!from.isFloat) return wrapped(value, to);
    const int through = to.bits < 32 || (to.bits == 32 && to.isSigned) ? 32 : 64;
    const Exact limit = std::ldexp(Exact(1), through - 1);
    const Exact whole = std::trunc(value);
    return wrapped(whole >= -limit && whole < limit ? whole : -limit, to);
}

bool same(Exact a, Exact b) { return std::isnan(a) ? std::isnan(b) : a == b; }

/// Elements that lie at the edges of every type, as bytes of `type`.
std::vector<uint64_t> edgeElements(EDataType type, size_t& count) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // clang-format off
    const std::vector<double> edges = {
        0, 1, -1, 2.5, -1.9, 44, 100, 127, 128, 200, -128, -129, 255, 256, 300, 300.7, 32767, 32768, -32769, 65535,
        65536, 2147483520.0, 2147483647.0, 2147483648.0, -2147483648.0, -2147483648.9, -2147483649.0, 3e9,
        4294967295.0, 4294967296.0, 1e10, -1e10, 9.2e18, 0x1p63, -0x1p63, 1e19, -1e19, 1e300, 1e-300, inf, -inf, nan};
    // clang-format on
    count = edges.size();
    std::vector<uint64_t> storage(count);
    const STypedData data(storage.data(), type);
    for (size_t i = 0; i < count; ++i) data[static_cast<int>(i)] = edges[i];
    return storage;
}

std::string pairName(EDataType a, EDataType b) {
    return "types " + std::to_string(static_cast<int>(a)) + ", " + std::to_string(static_cast<int>(b));
}

/// Runs a binary operation over edge elements of every pair of types, each source against each destination element, and
/// compares with `expected(dst, converted src)`.
template <class Operation, class Expected>
void checkAllPairs(Operation operation, Expected expected) {
    for (const EDataType d : handledTypes) {
        for (const EDataType s : handledTypes) {
            SCOPED_TRACE(pairName(d, s));
            size_t count = 0;
            const std::vector<uint64_t> before = edgeElements(d, count);
            std::vector<uint64_t> source = edgeElements(s, count);
            for (size_t shift = 0; shift < count; ++shift) {
                std::vector<uint64_t> target = before;
                const auto n = static_cast<uint32_t>(count - shift);
                auto* shifted = reinterpret_cast<unsigned char*>(source.data()) + shift * DataTypeSize(s);
                operation({target.data(), d}, {shifted, s}, n);
                for (size_t i = 0; i < n; ++i) {
                    const Exact c = converted(exactAt(source.data(), s, i + shift), kindOf(s), kindOf(d));
                    const Exact want = expected(exactAt(before.data(), d, i), c, kindOf(d));
                    ASSERT_TRUE(same(exactAt(target.data(), d, i), want))
                        << "element " << i << " shift " << shift << ": " << double(want);
                }
            }
        }
    }
}

TEST(TypedArrays, ConversionFollowsTheElementRuleForAllPairs) {
    checkAllPairs(ConvertArray, [](Exact, Exact c, Kind) { return c; });
}
TEST(TypedArrays, MinFollowsTheElementRuleForAllPairs) {
    checkAllPairs(TypedMin, [](Exact d, Exact c, Kind) { return d < c ? d : c; });
}
TEST(TypedArrays, MaxFollowsTheElementRuleForAllPairs) {
    checkAllPairs(TypedMax, [](Exact d, Exact c, Kind) { return d > c ? d : c; });
}
TEST(TypedArrays, SumWrapsIntegersAndRoundsFloatsForAllPairs) {
    checkAllPairs(TypedSum, [](Exact d, Exact c, Kind kind) {
        if (!kind.isFloat) return wrapped(d + c, kind);
        return kind.bits == 32 ? Exact(float(d) + float(c)) : Exact(double(d) + double(c));
    });
}

/// |b - a| by the language's arithmetic type of the pair.
Exact expectedSpan(Exact a, Kind ka, Exact b, Kind kb) {
    if (ka.isFloat || kb.isFloat) {
        const bool isSingle = !(ka.isFloat && ka.bits == 64) && !(kb.isFloat && kb.bits == 64);
        if (isSingle) return std::fabs(Exact(float(b) - float(a)));
        return std::fabs(Exact(double(b) - double(a)));
    }
    Kind pair{32, true, false};
    if (ka.bits == 64 || kb.bits == 64) {
        pair.bits = 64;
    } else if ((ka.bits == 32 && !ka.isSigned) || (kb.bits == 32 && !kb.isSigned)) {
        pair.isSigned = false;
    }
    return std::fabs(rounded(wrapped(b - a, pair), {64, true, true}));
}

TEST(TypedArrays, SpanFollowsTheElementRuleForAllTriples) {
    for (const EDataType ta : handledTypes) {
        for (const EDataType tb : handledTypes) {
            size_t count = 0;
            std::vector<uint64_t> a = edgeElements(ta, count);
            std::vector<uint64_t> b = edgeElements(tb, count);
            // Every element meets every other: b is turned one element further each time.
            const size_t width = DataTypeSize(tb);
            for (size_t turn = 0; turn < count; ++turn) {
                for (const EDataType td : handledTypes) {
                    std::vector<uint64_t> target(count);
                    TypedSpan({target.data(), td}, {a.data(), ta}, {b.data(), tb}, static_cast<uint32_t>(count));
                    for (size_t i = 0; i < count; ++i) {
                        const Exact span =
                            expectedSpan(exactAt(a.data(), ta, i), kindOf(ta), exactAt(b.data(), tb, i), kindOf(tb));
                        const Exact want = converted(span, {64, true, true}, kindOf(td));
                        ASSERT_TRUE(same(exactAt(target.data(), td, i), want))
                            << pairName(ta, tb) << " to " << int(td) << " element " << i << ": " << double(want);
                    }
                }
                auto* bytes = reinterpret_cast<unsigned char*>(b.data());
                std::rotate(bytes, bytes + width, bytes + count * width);
            }
        }
    }
}

template <class T>
void checkMinMaxOf(EDataType type) {
    const Kind to = kindOf(T());
    size_t count = 0;
    std::vector<uint64_t> data = edgeElements(type, count);
    T min = 3;
    T max = 5;
    MinMax({data.data(), type}, 0, min, max);
    EXPECT_TRUE(min == 3 && max == 5) << "an empty array must leave the outputs";
    MinMax({data.data(), type}, static_cast<uint32_t>(count), min, max);
    Exact low = converted(exactAt(data.data(), type, 0), kindOf(type), to);
    Exact high = low;
    for (size_t i = 1; i < count; ++i) {
        const Exact x = converted(exactAt(data.data(), type, i), kindOf(type), to);
        if (x > high) high = x;
        if (x < low) low = x;
    }
    EXPECT_TRUE(same(min, low) && same(max, high)) << int(type) << " as " << sizeof(T) << " bytes";
}

TEST(TypedArrays, MinMaxComparesInTheTypeOfTheOutputs) {
    const auto check = []<class... T>(std::tuple<T...>, EDataType type) { (checkMinMaxOf<T>(type), ...); };
    for (const EDataType type : handledTypes) {
        check(std::tuple<uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, float, double>(), type);
    }
}

TEST(TypedArrays, NaNCountsInMinMaxOnlyAsTheFirstElement) {
    double data[] = {std::nan(""), 1.0, 2.0, std::nan("")};
    double min = 0;
    double max = 0;
    MinMax({data, EDataType::flt64}, 4, min, max);
    EXPECT_TRUE(std::isnan(min) && std::isnan(max));
    MinMax({data + 1, EDataType::flt64}, 3, min, max);
    EXPECT_EQ(min, 1.0);
    EXPECT_EQ(max, 2.0);
}

template <class T, class D>
std::vector<T> divided(std::vector<T> values, EDataType type, D divisor) {
    TypedDiv({values.data(), type}, divisor, static_cast<uint32_t>(values.size()));
    return values;
}

TEST(TypedArrays, DivisionConvertsTheDivisorOnceAndTruncates) {
    constexpr int32_t lowest32 = std::numeric_limits<int32_t>::min();
    constexpr int64_t lowest64 = std::numeric_limits<int64_t>::min();
    EXPECT_EQ(divided<int16_t>({7, -7, -32768}, EDataType::int16, 2.5f), (std::vector<int16_t>{3, -3, -16384}));
    EXPECT_EQ(divided<uint8_t>({200, 7}, EDataType::uint8, int32_t{256 + 3}), (std::vector<uint8_t>{66, 2}));
    EXPECT_EQ(divided<int8_t>({-128, 127}, EDataType::int8, char(-1)), (std::vector<int8_t>{-128, -127}));
    EXPECT_EQ(divided<int32_t>({lowest32, 9}, EDataType::int32, int16_t{-1}), (std::vector<int32_t>{lowest32, -9}));
    EXPECT_EQ(divided<int64_t>({lowest64, 9}, EDataType::int64, -1.0), (std::vector<int64_t>{lowest64, -9}));
    EXPECT_EQ(divided<uint32_t>({4000000000u}, EDataType::uint32, int32_t{-1}), (std::vector<uint32_t>{0}));
    EXPECT_EQ(divided<float>({1.0f}, EDataType::flt32, 0.1), (std::vector<float>{1.0f / 0.1f}));
    EXPECT_EQ(divided<double>({1.0, -0.5}, EDataType::flt64, 0.1), (std::vector<double>{1.0 / 0.1, -0.5 / 0.1}));
    EXPECT_EQ(divided<uint64_t>({8}, EDataType::uint64, int32_t{2}), (std::vector<uint64_t>{8}));
}

TEST(TypedArrays, OperandsThatAreNotHandledLeaveEverythingAlone) {
    const EDataType unhandled[] = {EDataType::uint64, EDataType::rgb24, EDataType::rgb48,
                                   EDataType::none,   EDataType(13),    EDataType(-1)};
    for (const EDataType type : unhandled) {
        uint64_t out[2] = {1, 2};
        uint64_t in[2] = {3, 4};
        const STypedData good(in, EDataType::uint8);
        const STypedData bad(in, type);
        const STypedData targets[][2] = {{{out, type}, good}, {{out, EDataType::int32}, bad}};
        for (const auto& [dst, src] : targets) {
            ConvertArray(dst, src, 2);
            TypedMin(dst, src, 2);
            TypedMax(dst, src, 2);
            TypedSum(dst, src, 2);
            TypedSpan(dst, src, good, 2);
            TypedSpan(dst, good, src, 2);
        }
        TypedDiv({out, type}, 2.0, 2);
        int16_t min = -7;
        int16_t max = 7;
        MinMax(bad, 2, min, max);
        EXPECT_TRUE(out[0] == 1 && out[1] == 2 && min == -7 && max == 7) << int(type);
    }
}

/// The same operation element by element, which is what overlapping arrays must come out as.
template <class Operation>
void checkOverlap(EDataType d, EDataType s, size_t dstOffset, size_t srcOffset, Operation operation) {
    constexpr uint32_t count = 700;
    std::vector<unsigned char> whole(8 * count + 64);
    for (size_t i = 0; i < whole.size(); ++i) whole[i] = static_cast<unsigned char>(i * 37 + i / 251);
    std::vector<unsigned char> single = whole;
    operation(STypedData(whole.data() + dstOffset, d), STypedData(whole.data() + srcOffset, s), count);
    for (uint32_t i = 0; i < count; ++i) {
        operation(STypedData(single.data() + dstOffset + i * DataTypeSize(d), d),
                  STypedData(single.data() + srcOffset + i * DataTypeSize(s), s), 1u);
    }
    EXPECT_EQ(whole, single) << pairName(d, s) << " at " << dstOffset << ", " << srcOffset;
}

TEST(TypedArrays, OverlappingArraysGiveWhatAnAscendingLoopGives) {
    const auto spanWithItself = [](STypedData dst, STypedData src, uint32_t n) { TypedSpan(dst, src, dst, n); };
    const EDataType types[] = {EDataType::uint8, EDataType::uint16, EDataType::int32, EDataType::int64};
    for (const EDataType d : types) {
        for (const EDataType s : types) {
            for (const auto& [to, from] : {std::pair<size_t, size_t>{0, 0}, {8, 0}, {0, 8}, {3, 0}, {1, 2}, {48, 1}}) {
                checkOverlap(d, s, to, from, ConvertArray);
                checkOverlap(d, s, to, from, TypedSum);
                checkOverlap(d, s, to, from, TypedMax);
                checkOverlap(d, s, to, from, spanWithItself);
            }
        }
    }
    // In place between types of one width, as images are converted.
    checkOverlap(EDataType::flt32, EDataType::int32, 0, 0, ConvertArray);
    checkOverlap(EDataType::int32, EDataType::flt32, 0, 0, ConvertArray);
}

TEST(TypedArrays, LargeResultsAreThoseOfManySmallCalls) {
    constexpr uint32_t piece = 1 << 16;
    const auto check = [&](EDataType d, EDataType s, size_t offset) {
        const uint32_t count = (uint32_t{17} << 20) / DataTypeSize(d) + 5;
        std::vector<unsigned char> source(size_t{count} * DataTypeSize(s) + 1);
        for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<unsigned char>((i * 2654435761u) >> 23);
        std::vector<unsigned char> large(size_t{count} * DataTypeSize(d) + 100, 0x5A);
        std::vector<unsigned char> small = large;
        ConvertArray({large.data() + offset, d}, {source.data() + 1, s}, count);
        for (uint32_t i = 0; i < count; i += piece) {
            ConvertArray({small.data() + offset + size_t{i} * DataTypeSize(d), d},
                         {source.data() + 1 + size_t{i} * DataTypeSize(s), s}, std::min(piece, count - i));
        }
        EXPECT_TRUE(large == small) << pairName(d, s) << " at " << offset;
    };
    for (const size_t offset : {size_t{0}, size_t{8}, size_t{13}}) {
        check(EDataType::flt32, EDataType::uint16, offset);
        check(EDataType::flt64, EDataType::flt32, offset);
        check(EDataType::int16, EDataType::int8, offset);
    }
}

// Buffers -------------------------------------------------------------------------------------------------------------

TEST(TypedBuffer, ElementSizesFollowTheTable) {
    const uint32_t sizes[] = {1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 3, 6, 1, 1};
    for (int i = 0; i < 14; ++i) EXPECT_EQ(DataTypeSize(EDataType(i)), sizes[i]) << i;
    EXPECT_EQ(DataTypeSize(EDataType(-1)), 1u);
}

TEST(TypedBuffer, VirtualOperationsKeepTheirSlots) {
    CTypedBuffer buffer;
    ASSERT_TRUE(buffer.Alloc(EDataType::flt32, 7));
    // Behind the two entries of the destructor stand type, data and size.
    void** slots = *reinterpret_cast<void***>(static_cast<ITypedBuffer*>(&buffer));
    EXPECT_EQ(reinterpret_cast<EDataType (*)(ITypedBuffer*)>(slots[2])(&buffer), EDataType::flt32);
    EXPECT_EQ(reinterpret_cast<void* (*)(ITypedBuffer*)>(slots[3])(&buffer), buffer.data());
    EXPECT_EQ(reinterpret_cast<uint32_t (*)(ITypedBuffer*)>(slots[4])(&buffer), 7u);
}

TEST(TypedBuffer, RefusedTypesKeepTheContent) {
    CTypedBuffer buffer;
    EXPECT_TRUE(buffer.type() == EDataType::none && buffer.data() == nullptr && buffer.size() == 0);
    ASSERT_TRUE(buffer.Alloc(EDataType::uint16, 3));
    void* data = buffer.data();
    for (const EDataType type : {EDataType::rgb48, EDataType::none, EDataType(-1)}) {
        EXPECT_FALSE(buffer.Alloc(type, 1));
        EXPECT_TRUE(buffer.type() == EDataType::uint16 && buffer.data() == data && buffer.sizeInBytes() == 6);
        EXPECT_FALSE(AllocTypedBuffer(type, 1));
    }
}

TEST(TypedBuffer, SizesThatDoNotFit32BitsFailAndEmptyTheBuffer) {
    CTypedBuffer buffer;
    ASSERT_TRUE(buffer.Alloc(EDataType::uint8, 3));
    EXPECT_FALSE(buffer.Alloc(EDataType::flt64, 0x20000001u));
    EXPECT_TRUE(buffer.type() == EDataType::none && buffer.data() == nullptr && buffer.size() == 0);
}

TEST(TypedBuffer, CopyIsShallow) {
    CTypedBuffer owner;
    ASSERT_TRUE(owner.Alloc(EDataType::int32, 2));
    alignas(CTypedBuffer) unsigned char memory[sizeof(CTypedBuffer)];
    auto* copy = new (memory) CTypedBuffer(owner);  // never destroyed: the data is the owner's
    EXPECT_EQ(copy->data(), owner.data());
    EXPECT_EQ(copy->size(), 2u);
}

TEST(TypedBuffer, ElementsReadAndWriteAsDoubles) {
    const struct {
        EDataType type;
        double stored;
        double read;
    } rows[] = {
        {EDataType::int8, 300.7, 44.0},          {EDataType::uint16, -1.9, 65535.0},
        {EDataType::int32, 1e10, -2147483648.0}, {EDataType::uint32, 4e9, 4e9},
        {EDataType::int64, -5.5, -5.0},          {EDataType::uint64, 18446744073709549568.0, 18446744073709549568.0},
        {EDataType::uint64, 3.9, 3.0},           {EDataType::uint64, 9223372036854775808.0, 9223372036854775808.0},
        {EDataType::flt32, 0.1, double(0.1f)},   {EDataType::flt64, 0.1, 0.1},
    };
    for (const auto& row : rows) {
        const TSharedPtr<ITypedBuffer> buffer = AllocTypedBuffer(row.type, 2);
        ASSERT_TRUE(buffer);
        buffer->setAt(1, row.stored);
        EXPECT_EQ(buffer->getAt(1), row.read) << int(row.type);
        STypedData data = buffer->typedData();
        data[0] = data[1];
        EXPECT_EQ(data[0], row.read) << int(row.type);
    }
}

TEST(TypedBuffer, UInt64ReadsAsASignedNumberRaisedBy2To64) {
    const TSharedPtr<ITypedBuffer> buffer = AllocTypedBuffer(EDataType::uint64, 1);
    buffer->uint64()[0] = 0x8000000000000401;  // to 2^63 + 1024, half way, and on to the even neighbour
    EXPECT_EQ(buffer->getAt(0), 0x1p63);
}

TEST(TypedBuffer, RGBReadsAsTheMeanAndIsNotWritten) {
    const TSharedPtr<ITypedBuffer> buffer = AllocTypedBuffer(EDataType::rgb24, 2);
    buffer->rgb24()[1] = {1, 2, 6};
    buffer->setAt(1, 200.0);
    EXPECT_EQ(buffer->getAt(1), 3.0);
}

/// Calling a member on null is undefined for the sanitizers, and a result here.
__attribute__((no_sanitize("undefined"), noinline)) double readFrom(ITypedBuffer* buffer) {
    buffer->setAt(0, 1.0);
    return buffer->getAt(0);
}

TEST(TypedBuffer, NullBuffersReadAsZero) {
    ITypedBuffer* volatile none = nullptr;
    EXPECT_EQ(readFrom(none), 0.0);
    CTypedBuffer empty;
    EXPECT_EQ(readFrom(&empty), 0.0);
}

}  // namespace
