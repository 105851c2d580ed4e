// The older header form of calibrations, pages that move between calibrations, and background pictures.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "qv/crc.h"
#include "qv/diagnostic.h"
#include "qv/norm_file.h"
#include "qv/rcal_file.h"
#include "rcal_support.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using test::everything;
using test::load;
using test::TempFolder;
using test::writeText;

std::string headerOf(const std::string& lines) {
    return "HdSize auto\r\n" + test::replaced(lines, "\n", "\r\n") + "DATA\r\n";
}

std::string contentOf(const CString& path) {
    const TSharedPtr<IFile> file = fileSystem().CreateFileW(path.c_str(), 0x212);
    return file ? test::bytesOf(*file) : "absent";
}

TSharedPtr<ITypedBuffer> pixels(EDataType type, const std::vector<double>& values) {
    TSharedPtr<ITypedBuffer> buffer = AllocTypedBuffer(type, static_cast<uint32_t>(values.size()));
    for (uint32_t i = 0; i < values.size(); ++i) buffer->setAt(i, values[i]);
    return buffer;
}

std::string binaryOf(CRCalFile& calibration) {
    const TSharedPtr<IFile> file = CMemFile::Create();
    return calibration.Save(file, 0) ? test::bytesOf(*file) : "";
}

std::string text(const char16_t* value) { return value == nullptr ? "(none)" : CStringMB(value).c_str(); }

// Reserved names -----------------------------------------------------------------------------------------------------

TEST(RCalHeader, KnowsReservedNames) {
    for (const char16_t* name :
         {u"HdSize", u"hdsize",   u"CAFile",       u"Group",       u"SBPUp",           u"SBPLo",
          u"IHFOV",  u"IVFOV",    u"SltRng",       u"TPFact",      u"tpfact_3",        u"BgType_0",
          u"BgFile", u"BgValu_1", u"PolyOrder",    u"PolyOrder_2", u"TempPolyOrder_0", u"Coeff0",
          u"CoeffX", u"Coeff9_2", u"TEMPCOEFF4_3", u"TempCoeff4"}) {
        EXPECT_TRUE(CRCalFile::IsReservedTagName(name)) << text(name);
    }
    for (const char16_t* name : {u"", u"Coeff", u"Coeff1_4", u"Coeff10", u"Coeff1_", u"TempCoeff1_4", u"TPFact_",
                                 u"TPFact_4", u"XTPFact", u"Group2", u"KeyWrd", u"BPFile", u"Camera"}) {
        EXPECT_FALSE(CRCalFile::IsReservedTagName(name)) << text(name);
    }
    EXPECT_FALSE(CRCalFile::IsReservedTagName(nullptr));
}

// Import -------------------------------------------------------------------------------------------------------------

TEST(RCalHeader, ReadsAHeaderWithItsIncludeAndTables) {
    const TempFolder folder;
    CNormFile gains;
    ASSERT_TRUE(gains.New(CNormFile::TYPE_GAIN, 2, 1, 0, 3, 10, 0.5F));
    gains.GetGains()[1] = 1.25F;
    ASSERT_TRUE(gains.Save(&fileSystem(), folder.path(u"g.nrm").c_str()));
    writeText(folder.path(u"old.inc"), headerOf("Coeff0_1 7\nSBPLo 9\nLens 50 mm\nCoeff1_1 0.5\nPolyOrder_1 1\n"));
    const CString path = writeText(
        folder.path(u"old.cal"),
        headerOf(
            "KeyWrd CAL\nInclude old.inc\nCGFile g.nrm\nCOFile g.nrm\nBPFile absent.nrm\nsbplo 3.4\nSBPUp 4.1\n"
            "IHFOV 11\nIVFOV 8.25\nSltRng 1500\nCAFile absent.rcal\nPolyOrder 2\nCoeff0 -1.5e-5\nCoeff1 9\n"
            "Coeff1_0 2.5e-8\nCoeff2 1e-14\nTempPolyOrder 3\nTempCoeff0 1\nTPFact_0 1.02\nTPFact 3\n"
            "BgType fix\nBgValu 17.5\nBgType_1 none\nBgFile_1 absent.bgimg\nCoeff0_4 5\nLens 25 mm\nCamera MW 1\n"));
    CRCalFile calibration;
    CNormFile offsets, badPixels;
    ASSERT_TRUE(calibration.Import(&fileSystem(), path.c_str(), &gains, &offsets, &badPixels));
    EXPECT_EQ(gains.GetGains()[1], 1.25F);
    EXPECT_EQ(offsets.GetType(), CNormFile::TYPE_NONE) << "a gain table is none of offsets";
    EXPECT_EQ(badPixels.GetType(), CNormFile::TYPE_NONE);

    double low = 0, high = 0, horz = 0, vert = 0, range = 0, factor = 0;
    bool valid = false;
    calibration.GetBandpass(low, high);
    EXPECT_TRUE(low == 3.4 && high == 4.1 && !calibration.GetBandpassOverridden());
    EXPECT_GT(calibration.CalcRadiance(30, 1), 0.0);
    calibration.GetFOV(horz, vert, valid);
    EXPECT_TRUE(valid && horz == 11 && vert == 8.25);
    calibration.GetRange(range, valid);
    EXPECT_TRUE(valid && range == 1500);

    ASSERT_EQ(calibration.calPages().getCount(), 2);
    TArray<double> values;
    bool overridden = false;
    ASSERT_TRUE(calibration.GetUsedCoefficients(0, values, &overridden));
    EXPECT_TRUE(overridden);
    EXPECT_EQ(std::vector<double>(values.begin(), values.end()), (std::vector<double>{-1.5e-5, 2.5e-8, 1e-14}));
    calibration.GetCoefficients(1, values);
    EXPECT_EQ(std::vector<double>(values.begin(), values.end()), (std::vector<double>{7, 0.5}));
    EXPECT_FALSE(calibration.GetTempCoeffsOverridden(0)) << "three of its coefficients are missing";
    EXPECT_TRUE(calibration.GetTPFact(0, factor, valid) && valid && factor == 1.02);
    EXPECT_TRUE(calibration.GetTPFact(1, factor, valid) && !valid);
    EXPECT_EQ(calibration.GetBackgroundValueEx(0), 17.5);
    EXPECT_EQ(calibration.GetBackgroundType(1), BACKGROUND_TYPE::none);

    std::string tags;
    for (const CTagArray::TAG& tag : calibration.GetTags())
        tags += text(tag.name.c_str()) + "=" + text(tag.value.c_str()) + ";";
    EXPECT_EQ(tags, "KeyWrd=CAL;CGFile=g.nrm;COFile=g.nrm;BPFile=absent.nrm;Coeff0_4=5;Lens=25 mm;Camera=MW 1;");
}

TEST(RCalHeader, TakesNothingFromWhatIsNoNumber) {
    const TempFolder folder;
    const CString path =
        writeText(folder.path(u"a.cal"), headerOf("SBPLo nan\nSBPUp -1e400\nIHFOV inf\nIVFOV\nSltRng far\nTPFact nan\n"
                                                  "PolyOrder 1\nCoeff0 2\nCoeff1 none\nTempPolyOrder_3 x\n"));
    CRCalFile calibration;
    ASSERT_TRUE(calibration.Import(&fileSystem(), path.c_str()));
    double low = 0, high = 0, value = 0;
    bool valid = true;
    calibration.GetBandpass(low, high);
    EXPECT_TRUE(low == 3.0 && high == 5.0 && !calibration.GetBandpassOverridden());
    calibration.GetFOV(low, high, valid);
    EXPECT_FALSE(valid);
    calibration.GetRange(value, valid);
    EXPECT_FALSE(valid);
    EXPECT_TRUE(calibration.GetTPFact(0, value, valid) && !valid);
    EXPECT_FALSE(calibration.GetCoeffsOverridden(0)) << "one of two coefficients";
    // New pages have the table of a page that was added.
    ASSERT_EQ(calibration.calPages().getCount(), 4);
    const CAL_PAGE& page = *calibration.GetPage(3);
    ASSERT_EQ(page.lookupRadiance.size(), 100u);
    EXPECT_EQ(page.lookupRadiance.data()[30], calibration.CalcRadiance(page.lookupTemperature.data()[30], 1));
}

TEST(RCalHeader, RefusesWhatIsNoHeaderAndLeavesDefaults) {
    const TempFolder folder;
    const CString path = writeText(folder.path(u"a.cal"), "Coeff0 5\r\n");
    CRCalFile calibration;
    calibration.calPages().Add();
    ClearDiagnostic();
    EXPECT_FALSE(calibration.Import(&fileSystem(), path.c_str()));
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_EQ(calibration.calPages().getCount(), 0);
    EXPECT_FALSE(calibration.Import(&fileSystem(), u"/absent/a.cal"));
    EXPECT_FALSE(calibration.Import(nullptr, nullptr));
}

// Export -------------------------------------------------------------------------------------------------------------

/// Two pages with overrides, backgrounds of each kind, and values of more than seven digits.
void fill(CRCalFile& calibration) {
    ASSERT_TRUE(load(calibration, everything));
    const double forward[] = {-500.123456789, 3.5e-08 / 3};
    const double reverse[] = {1.0 / 7, 2e5 / 3, -1e20 / 3};
    ASSERT_TRUE(calibration.SetUsedCoefficients(0, 1, forward, true));
    ASSERT_TRUE(calibration.SetUsedTempCoefficients(0, 2, reverse, true));
    calibration.SetTag(u"Group", u"is reserved");
    calibration.SetTag(u"two words", u"no line holds this name");
    calibration.setAutoLookupUpdate(false);
    calibration.calPages().Add();
    calibration.SetBackgroundType(1, BACKGROUND_TYPE::value);
    calibration.SetBackgroundValue(1, 100.0 / 3);
    ASSERT_TRUE(calibration.AddBackgroundFile(0, 2, 3, 2, 2, pixels(EDataType::flt32, {1, 2, 3, 4.5})));
}

TEST(RCalHeader, ComesBackFromExportEqual) {
    const TempFolder folder;
    CRCalFile calibration;
    fill(calibration);
    ASSERT_TRUE(calibration.Export(&fileSystem(), folder.path(u"cam.cal").c_str()));
    EXPECT_EQ(
        contentOf(folder.path(u"cam.cal")),
        headerOf("Include cam.inc\nSBPLo 3.100000e+00\nSBPUp 3.800000e+00\nIHFOV 1.100000e+01\nIVFOV 8.800000e+00\n"
                 "SltRng 1.500500e+03\nCAFile cam.rcal\nKamera W\xC3\xA4rmebild\n"));
    EXPECT_EQ(
        contentOf(folder.path(u"cam.inc")),
        headerOf("EuRaw_0 Raw\nStdUnt_0 17\nDaUnit_0 W/(sr-cm^2)\nBgType_0 file\nBgFile_0 cam-PS0.bgimg\n"
                 "TPFact_0 1.020000e+00\nTPFact 1.020000e+00\nPolyOrder_0 1\nCoeff0_0 -5.001235e+02\n"
                 "Coeff1_0 1.166667e-08\nTempPolyOrder_0 2\nTempCoeff0_0 1.428571e-01\nTempCoeff1_0 6.666667e+04\n"
                 "TempCoeff2_0 -3.333333e+19\nEuRaw_1 Raw\nStdUnt_1 17\nDaUnit_1 W/(sr-cm^2)\nBgType_1 fix\n"
                 "BgValu_1 3.333333e+01\nPolyOrder_1 1\nTempPolyOrder_1 6\nEuRaw_2 Raw\nStdUnt_2 17\n"
                 "DaUnit_2 W/(sr-cm^2)\nBgType_2 none\nPolyOrder_2 1\nTempPolyOrder_2 6\n"));
    CRCalFile back;
    ASSERT_TRUE(back.Import(&fileSystem(), folder.path(u"cam.cal").c_str()));
    EXPECT_EQ(binaryOf(back), binaryOf(calibration)) << "the companion's numbers are the header's, to its digits";

    // Without the companion the header alone counts: seven digits, and the pictures of pages that use them.
    ASSERT_TRUE(fileSystem().DeleteFileW(folder.path(u"cam.rcal").c_str()));
    ASSERT_TRUE(back.Import(&fileSystem(), folder.path(u"cam.cal").c_str()));
    TArray<double> values;
    ASSERT_TRUE(back.GetCoefficients(0, values));
    EXPECT_EQ(std::vector<double>(values.begin(), values.end()), (std::vector<double>{-500.1235, 1.166667e-08}));
    EXPECT_EQ(back.GetBackgroundFile(0, 16, 0xFFFFFFFF)->uint16()[2], 0xFFFF);
    EXPECT_EQ(back.GetBackgroundFile(0, 2, 3, 2, 2)->flt32()[3], 4.5F);
    EXPECT_EQ(back.GetBackgroundType(0), BACKGROUND_TYPE::file);
    EXPECT_EQ(back.GetBackgroundValueEx(1), 33.33333);
}

TEST(RCalHeader, TakesWhatTheHeaderSaysOtherwise) {
    const TempFolder folder;
    CRCalFile calibration;
    fill(calibration);
    const CString path = folder.path(u"cam.cal");
    ASSERT_TRUE(calibration.Export(&fileSystem(), path.c_str()));
    const CString include = folder.path(u"cam.inc");
    const struct {
        const char* from;
        const char* to;
        bool changes;
    } rows[] = {
        {"Coeff1_0 1.166667e-08", "Coeff1_0 1.1667e-08", true},
        {"Coeff1_0 1.166667e-08", "Coeff1_0 1.166668e-08", true},
        {"Coeff1_0 1.166667e-08", "Coeff1_0 1.1666666666e-08", true},  // rounded, that is ...667
        {"Coeff0_0 -5.001235e+02", "Coeff0_0 -500.12346", false},
        {"Coeff0_0 -5.001235e+02", "Coeff0_0 none", false},
        {"PolyOrder_0 1", "PolyOrder_0 0", false},
        {"BgValu_1 3.333333e+01", "BgValu_1 33.33333", false},
        {"BgValu_1 3.333333e+01", "BgValu_1 33", true},
        {"TPFact_0 1.020000e+00", "TPFact_0 1", true},
        {"BgType_2 none", "BgType_2 fix", true},
    };
    const std::string whole = contentOf(include);
    for (const auto& row : rows) {
        writeText(include, test::replaced(whole, row.from, row.to));
        CRCalFile back;
        ASSERT_TRUE(back.Import(&fileSystem(), path.c_str()));
        EXPECT_EQ(binaryOf(back) != binaryOf(calibration), row.changes) << row.to;
    }
}

TEST(RCalHeader, UpdatesAnIncludeInPlace) {
    const TempFolder folder;
    const CString path =
        writeText(folder.path(u"a.inc"),
                  headerOf("Lens 50 mm\nCoeff0_0 1\nCoeff12_3 1\nDaUnit counts\nTPFact 2\nCoeff0_4 5\n") + "data");
    CRCalFile calibration;
    const double values[] = {2, 3};
    calibration.calPages().Add();
    calibration.SetUsedCoefficients(0, 1, values, true);
    ASSERT_TRUE(calibration.UpdateInclude(&fileSystem(), path.c_str()));
    std::string kept = contentOf(path);
    kept.erase(kept.find("saf_padding"), kept.rfind("DATA") - kept.find("saf_padding"));
    EXPECT_EQ(kept, test::replaced("HdSize auto\nLens 50 mm\nDaUnit counts\nCoeff0_4 5\nEuRaw_0 Raw\nStdUnt_0 17\n"
                                   "DaUnit_0 W/(sr-cm^2)\nBgType_0 none\nPolyOrder_0 1\nCoeff0_0 2.000000e+00\n"
                                   "Coeff1_0 3.000000e+00\nTempPolyOrder_0 6\nDATA\ndata",
                                   "\n", "\r\n"));
    EXPECT_FALSE(fileSystem().FileExists(folder.path(u"a.cal").c_str()));
    EXPECT_FALSE(calibration.UpdateInclude(&fileSystem(), folder.path(u"absent.inc").c_str()));
    EXPECT_FALSE(calibration.Export(&fileSystem(), folder.path(u"absent/cam").c_str()));
}

// Pages --------------------------------------------------------------------------------------------------------------

/// A calibration whose pages tell their number and whose tag tells its own.
CRCalFile numbered(int32_t number, int32_t pages) {
    CRCalFile calibration;
    calibration.SetTag(u"Number", CString::FromFormat(u"%d", number).c_str());
    for (int32_t i = 0; i < pages; ++i) {
        calibration.calPages().Add();
        calibration.SetTPFact(i, number * 10 + i, true);
    }
    return calibration;
}

std::string told(const CRCalFile& calibration) {
    std::string result = text(calibration.GetTag(u"Number")) + ":";
    for (int32_t i = 0; calibration.GetPage(i) != nullptr; ++i) {
        result += ' ';
        result += std::to_string(static_cast<int>(calibration.GetPage(i)->tpfact));
    }
    return result;
}

TEST(RCalPages, AreExtractedMergedAndRemoved) {
    CRCalFile three = numbered(3, 3);
    CRCalFile target = numbered(9, 1);
    EXPECT_TRUE(three.Extract(target, 1));
    EXPECT_EQ(told(target), "3: 31");
    EXPECT_FALSE(three.Extract(target, 3));
    EXPECT_EQ(told(three), "3: 30 31 32");
    EXPECT_TRUE(three.Extract(three, 2));
    EXPECT_EQ(told(three), "3: 32");
    EXPECT_TRUE(three.RemoveAllExcept(0));
    EXPECT_EQ(told(three), "3: 32");
    EXPECT_FALSE(three.RemoveAllExcept(1));
    EXPECT_FALSE(three.RemoveAllExcept(-1));

    CRCalFile a = numbered(1, 2), b = numbered(2, 1), c = numbered(3, 1), d = numbered(4, 1), merged;
    const char* expected[] = {"1", "2", "3", "4", "1", "1"};
    const int32_t which[] = {0, 1, 2, 3, 4, -1};
    for (size_t i = 0; i < std::size(which); ++i) {
        EXPECT_TRUE(merged.Merge(a, b, c, d, which[i]));
        EXPECT_EQ(told(merged), std::string(expected[i]) + ": 10 20 30 40") << which[i];
    }
    TArray<CRCalFile*> list{&d, &a};
    EXPECT_TRUE(a.Merge(list, 1));
    EXPECT_EQ(told(a), "1: 40 10");
    CRCalFile empty;
    EXPECT_FALSE(a.Merge(b, c, empty, d, 0));
    EXPECT_FALSE(a.Merge(TArray<CRCalFile*>(), 0));
    EXPECT_EQ(told(a), "1: 40 10");
}

TEST(RCalPages, AreImportedAsPresets) {
    CRCalFile source = numbered(5, 2);
    source.calPage(1).points().Add({20, 1, 0, 0, 100});
    source.calPage(1).points().Add({40, 1, 0, 0, 200});
    CRCalFile calibration;
    calibration.spectralResponse().setType(ESpectralResponseType::tophat);
    for (const int32_t refused : {-1, 4}) EXPECT_FALSE(calibration.ImportPreset(source, 1, refused));
    EXPECT_FALSE(calibration.ImportPreset(source, 2, 0));
    calibration.setAutoLookupUpdate(false);
    ASSERT_TRUE(calibration.ImportPreset(source, 1, 3));
    EXPECT_EQ(told(calibration), "(none): 1 1 1 51");
    const CAL_PAGE& page = *calibration.GetPage(3);
    EXPECT_EQ(page.points.data()[0].radiance, calibration.CalcRadiance(20, 1)) << "calculated by the new responses";
    EXPECT_EQ(page.maxCounts, 200);
    EXPECT_EQ(page.lookupRadiance.size(), page.lookupTemperature.size());
    EXPECT_NEAR(page.lookupRadiance.data()[20], calibration.CalcRadiance(page.lookupTemperature.data()[20], 1), 1e-12);
    EXPECT_TRUE(calibration.ImportPreset(calibration, 3, 0));
    EXPECT_EQ(told(calibration), "(none): 51 1 1 51");
}

// Background pictures ------------------------------------------------------------------------------------------------

TEST(RCalBackgrounds, AreKnownByPlaceAndSize) {
    CRCalFile calibration;
    calibration.calPages().Add();
    const TSharedPtr<ITypedBuffer> row = pixels(EDataType::uint16, {1, 2, 3});
    EXPECT_TRUE(calibration.AddBackgroundFile(0, 4, 5, row));
    EXPECT_TRUE(calibration.AddBackgroundFile(0, 4, 5, 1, 3, row)) << "another size";
    EXPECT_TRUE(calibration.AddBackgroundFile(0, 4, 5, pixels(EDataType::uint8, {'1', '2', '3'}))) << "the first anew";
    EXPECT_EQ(calibration.GetPage(0)->backgroundFiles.size(), 2u);
    EXPECT_FALSE(calibration.AddBackgroundFile(0, 0, 0, 2, 2, row));
    EXPECT_FALSE(calibration.AddBackgroundFile(1, 0, 0, row));
    EXPECT_FALSE(calibration.AddBackgroundFile(0, 0, 0, TSharedPtr<ITypedBuffer>()));
    EXPECT_TRUE(calibration.HasBackgroundFile(0, 4, 5));
    EXPECT_FALSE(calibration.HasBackgroundFile(0, 4, 5, 2, 2));
    EXPECT_EQ(calibration.GetBackgroundFile(0, 4, 5)->type(), EDataType::uint8);
    EXPECT_EQ(calibration.GetBackgroundFile(0, 4, 5, 1, 3)->type(), EDataType::uint16);
    BACKGROUND_FILE picture;
    EXPECT_TRUE(calibration.GetBackgroundFile(0, 1, picture) && picture.height == 3);
    EXPECT_FALSE(calibration.GetBackgroundFile(0, 2, picture));
    uint32_t crc = 0;
    InitCRC32Table(0x1EDC6F41);  // another polynomial, which the pictures' checksums do not follow or change
    EXPECT_TRUE(calibration.GetBackgroundFileCRC(0, 4, 5, crc));
    EXPECT_EQ(CalcBlockCRC32(calibration.GetBackgroundFile(0, 4, 5)->uint8(), 3), 0x107B2FB2u);
    InitCRC32Table(crc32Polynomial);
    EXPECT_EQ(crc, 0x884863D2u) << "of \"123\"";
    EXPECT_FALSE(calibration.GetBackgroundFileCRC(0, 5, 4, crc));
    EXPECT_TRUE(calibration.RemoveBackgroundFile(0, 4, 5, 1, 3));
    EXPECT_FALSE(calibration.RemoveBackgroundFile(0, 4, 5, 1, 3));
    EXPECT_TRUE(calibration.RemoveBackgroundFile(0, 4, 5));
    EXPECT_FALSE(calibration.RemoveBackgroundFile(0, 4, 5));
    EXPECT_TRUE(calibration.ClearBackgroundFiles(0));
    EXPECT_FALSE(calibration.ClearBackgroundFiles(1));
}

TEST(RCalBackgrounds, HaveFilesOfTheirOwn) {
    const std::string first =
        "HdSize auto\r\nKeyWrd IMG\r\nxPixls 3\r\nyPixls 1\r\nNumDPs 1\r\nDaType UInt16\r\nBytOrd LSBFirst\r\n"
        "xOffst 4\r\nyOffst 4294967295\r\nDATA\r\n\x01\x02\x03\x04\x05\x06";
    const std::string second = test::replaced(test::replaced(first, "LSB", "MSB"), "xOffst 4", "xOffst 7");
    CRCalFile calibration;
    calibration.calPages().Add();
    ASSERT_TRUE(calibration.ImportBackgroundFile(0, test::memoryFile(first + second + "rest")));
    EXPECT_EQ(calibration.GetBackgroundFile(0, 4, 0xFFFFFFFF)->uint16()[2], 0x0605);
    EXPECT_EQ(calibration.GetBackgroundFile(0, 7, 0xFFFFFFFF)->uint16()[2], 0x0506);
    const TSharedPtr<IFile> file = CMemFile::Create();
    ASSERT_TRUE(calibration.ExportBackgroundFile(0, 4, 0xFFFFFFFF, file));
    EXPECT_EQ(test::bytesOf(*file), first);
    EXPECT_FALSE(calibration.ExportBackgroundFile(0, 4, 4, file));

    calibration.ClearBackgroundFiles(0);
    const std::pair<const char*, const char*> wrong[] = {
        {"xPixls 3", "xPixls 0"},
        {"xPixls 3", "xPixls 4000000000"},
        {"yPixls 1", "yPixls -1"},
        {"DaType UInt16", "DaType Int"},
        {"DaType UInt16", "DaType RGB48"},
        {"DaType UInt16", "DaType Flt64"},
        {"HdSize", "Header"},
    };
    for (const auto& [from, to] : wrong) {
        ClearDiagnostic();
        EXPECT_FALSE(calibration.ImportBackgroundFile(0, test::memoryFile(test::replaced(first, from, to)))) << to;
        EXPECT_TRUE(LastDiagnostic().IsSet()) << to;
    }
    EXPECT_FALSE(calibration.ImportBackgroundFile(0, test::memoryFile(first + first.substr(0, 40)))) << "all or none";
    std::string many;
    for (int i = 0; i < 4097; ++i) many += first;
    EXPECT_FALSE(calibration.ImportBackgroundFile(0, test::memoryFile(many)));
    EXPECT_FALSE(calibration.HasBackgroundFile(0, 4, 0xFFFFFFFF));
}

}  // namespace
}  // namespace qv
