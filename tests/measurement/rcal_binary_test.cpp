// The binary form of calibrations.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/rcal_file.h"
#include "rcal_support.h"

namespace qv {
namespace {

using test::everything;
using test::load;

/// Bytes of a file, put together by hand.
struct Bytes {
    bool bigEndian = false;
    std::string text;
    std::vector<size_t> counts;  // where they stand

    Bytes& raw(const std::string& bytes) {
        text += bytes;
        return *this;
    }
    template <class T>
    Bytes& number(T value) {
        char bytes[sizeof(T)];
        std::copy_n(reinterpret_cast<const char*>(&value), sizeof(T), bytes);
        if (bigEndian) std::reverse(bytes, bytes + sizeof(T));
        return raw(std::string(bytes, sizeof(T)));
    }
    Bytes& u32(uint32_t value) { return number(value); }
    Bytes& count(uint32_t value) {
        counts.push_back(text.size());
        return number(value);
    }
    Bytes& f64(std::initializer_list<double> values) {
        for (const double value : values) number(value);
        return *this;
    }
    Bytes& list(std::initializer_list<double> values) {
        return count(static_cast<uint32_t>(values.size())).f64(values);
    }
    Bytes& flag(bool value) { return raw(std::string(1, value ? '\1' : '\0')); }
    Bytes& string(const std::string& value) { return u32(static_cast<uint32_t>(value.size())).raw(value); }
};

constexpr double sum = 0.1 + 0.2;  // 17 digits, no fewer
const double oddNumber = std::bit_cast<double>(uint64_t{0x7FF4000000000123});

/// Every field, none at its default.
Bytes golden(bool bigEndian) {
    const std::string longPath(300, 'p');
    Bytes b{bigEndian, {}, {}};
    b.raw("____RCAL").raw({"\0\0", 2}).raw("\7/r&d.xy").raw("\xFF").number(uint16_t{300}).raw(longPath);
    b.count(1).raw("\4/l.x");
    b.count(1);
    // flags, check, points
    b.flag(false).u32(4).u32(2).f64({1000, 0.5, 20.5, 20.75}).count(2);
    b.f64({10, 0.98, 2.5, 30, 900}).u32(1).f64({0.5, 23, 1e-6}).flag(true).f64({sum});
    b.f64({40, 0.97, 2.5, 30, 4100}).u32(2).f64({0.75, 24, -0.0}).flag(false).f64({5e-324});
    // range, polynomials, lookup, overrides
    b.flag(false).f64({900, 4100, 1e-4, 4e-4, 10, 40});
    b.u32(2).f64({0.875}).list({1.25e-05, 3.5e-08, -sum}).u32(3).f64({0.5}).list({-12, 3000.5, -7, 1.0 / 3.0});
    b.f64({-10, 90, 2.5, 0.96}).list({5e-05, 1.0 / 7.0}).list({-10, 90});
    b.u32(0xFFFFFFFF).flag(true).list({0.1, 0.2}).u32(1).flag(true).list({-20, 1e5});
    b.f64({1.02}).flag(true).u32(3).f64({17.5});
    // two pictures, one of them without pixels
    b.count(2).u32(16).u32(0xFFFFFFFF).u32(3).u32(1).raw("\3").flag(true).raw({"\1\0\2\0\xFF\xFF", 6});
    b.u32(0).u32(8).u32(640).u32(512).raw("\1").flag(false);
    // the calibration's values
    b.f64({3, 3.5, 0.1, 3.05, 3.85, 3.1, 3.8}).flag(true).f64({1500.5}).flag(true).f64({11, 8.8}).flag(true);
    b.u32(1).flag(false).flag(true).flag(true);
    b.list({3, 4}).list({0.8, 0.9}).list({3, 4}).list({sum, oddNumber});
    b.flag(true).list({2.5, 6}).list({0.95, 0.85}).flag(false);
    b.count(1).string("Kamera").string("W\xC3\xA4rmebild").count(2).string("a").string("").string("b").string("x\r\ny");
    return b;
}

TSharedPtr<IFile> fileOf(const std::string& bytes, bool bigEndian) {
    TSharedPtr<IFile> file = test::memoryFile(bytes);
    swapFlag(*file) = bigEndian;
    return file;
}

std::string savedBinary(CRCalFile& calibration, bool bigEndian = false) {
    const TSharedPtr<IFile> file = fileOf("", bigEndian);
    return calibration.Save(file, 0) ? test::bytesOf(*file) : "";
}

TEST(RCalBinary, HasTheLayoutInBothByteOrders) {
    for (const bool bigEndian : {false, true}) {
        const std::string bytes = golden(bigEndian).text;
        CRCalFile calibration;
        TSharedPtr<IFile> file = fileOf(bytes + "behind", bigEndian);
        ASSERT_TRUE(calibration.Load(file, 0)) << CStringMB(LastDiagnostic().ToString().c_str()).c_str();
        EXPECT_EQ(file->GetPosition(), static_cast<int64_t>(bytes.size()));
        EXPECT_EQ(calibration.getRevision(), 8);
        EXPECT_FALSE(calibration.getAutoLookupUpdate());
        EXPECT_EQ(calibration.GetPage(0)->points.data()[0].radiance, sum);
        EXPECT_EQ(calibration.GetPage(0)->points.data()[1].reflectedRadianceType, EReflectedRadianceType::calculate);
        EXPECT_EQ(calibration.calPage(0).tempCoefficients()[1], 1e5);
        EXPECT_EQ(calibration.GetBackgroundFile(0, 16, 0xFFFFFFFF)->uint16()[2], 0xFFFF);
        EXPECT_EQ(calibration.modtran().getFile().length(), 300u);
        EXPECT_EQ(calibration.axis().getCount(), 10u);
        EXPECT_EQ(savedBinary(calibration, bigEndian), bytes);
        EXPECT_EQ(savedBinary(calibration, !bigEndian), golden(!bigEndian).text);
    }
}

TEST(RCalBinary, HoldsWhatTheXmlFormHolds) {
    CRCalFile fromXml;
    ASSERT_TRUE(load(fromXml, everything));
    CRCalFile fromBinary;
    ASSERT_TRUE(load(fromBinary, savedBinary(fromXml)));
    EXPECT_EQ(test::saved(fromBinary), everything);
    EXPECT_TRUE(fromBinary.getAutoLookupUpdate());
    CRCalFile empty;
    ASSERT_TRUE(load(fromBinary, savedBinary(empty)));
    EXPECT_EQ(fromBinary.calPages().getCount(), 0);
    EXPECT_EQ(savedBinary(fromBinary), savedBinary(empty));
}

TEST(RCalBinary, FailsAtEveryCutAndSaysWhere) {
    const std::string bytes = golden(false).text;
    for (size_t size = 8; size < bytes.size(); ++size) {
        CRCalFile calibration;
        ClearDiagnostic();
        EXPECT_FALSE(load(calibration, bytes.substr(0, size))) << size;
        EXPECT_TRUE(LastDiagnostic().IsSet()) << size;
        EXPECT_EQ(calibration.calPages().getCount(), 0) << size;
    }
}

TEST(RCalBinary, RefusesCountsBeyondTheFileAndTheLimits) {
    const Bytes whole = golden(false);
    for (const size_t at : whole.counts) {
        for (const char high : {'\x7F', '\xFF', '\x01'}) {
            std::string bytes = whole.text;
            bytes[at + 3] = high;
            CRCalFile calibration;
            ClearDiagnostic();
            EXPECT_FALSE(load(calibration, bytes)) << at;
            EXPECT_TRUE(LastDiagnostic().IsSet()) << at;
        }
    }
    const auto replacedAt = [&](size_t at, const std::string& with, const std::string& behind) {
        std::string bytes = whole.text;
        return bytes.replace(at, with.size(), with) + behind;
    };
    const std::string room(20 << 20, '\0');
    const struct {
        std::string bytes;
        const char* diagnostic;
    } rows[] = {
        {replacedAt(whole.counts[0], {"\x41\0\0\0", 4}, room), "at most 64 additional responses, found 65"},
        {replacedAt(whole.counts[1], {"\1\0\1\0", 4}, room), "at most 65536 pages, found 65537"},
        {replacedAt(whole.counts[2], {"\0\0\1\0", 4}, ""), "points of page 0, found a count of 65536"},
        {test::replaced(whole.text, {"\xFF\xFF\xFF\xFF\3\0\0\0", 8}, {"\xFF\xFF\xFF\xFF\3\0\0\x7F", 8}),
         "background picture of page 0, found a size beyond"},
    };
    for (const auto& row : rows) {
        CRCalFile calibration;
        EXPECT_FALSE(load(calibration, row.bytes));
        const std::string reason = CStringMB(LastDiagnostic().ToString().c_str()).c_str();
        EXPECT_NE(reason.find(row.diagnostic), std::string::npos) << reason;
    }
}

TEST(RCalBinary, TellsOfAFullDisk) {
    CRCalFile calibration;
    const TSharedPtr<CMemFile> full = CMemFile::Create();
    full->SetGrow(false);
    ClearDiagnostic();
    for (const uint32_t form : {0u, CRCalFile::saveXml}) {
        ClearDiagnostic();
        EXPECT_FALSE(calibration.Save(full, form)) << form;
        EXPECT_TRUE(LastDiagnostic().IsSet()) << form;
    }
    EXPECT_FALSE(calibration.Save(&fileSystem(), u"/absent/folder/a.rcal", 0));
}

}  // namespace
}  // namespace qv
