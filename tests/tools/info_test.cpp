#include <gtest/gtest.h>

#include "qv/rcal_file.h"
#include "qv/tag_file.h"
#include "tools/support.h"

namespace qv::test {
namespace {

using namespace std::string_literals;

class Info : public testing::Test {
protected:
    void SetUp() override {
        shop.write("run.saf", recording<uint16_t>(2, 2, "UInt16", {1, 2, 3, 4, 5, 6, 7, 8}));
        shop.write("plain.saf", "HdSize auto\r\nNote none\r\nDATA\r\nabc");
        CRCalFile calibration;
        calibration.spectralResponse().setType(ESpectralResponseType::tophat);
        calibration.tophat().setStart(3.5);
        const int32_t page = calibration.calPages().Add();
        for (const double celsius : {20.0, 60.0, 40.0}) {
            CAL_POINT point;
            point.temperature = celsius;
            point.measurement = 1000.0 + 10.0 * celsius;
            calibration.calPage(page).points().Add(point);
        }
        calibration.calPage(page).range().setAuto(true);
        const double used[] = {1.0, 2.0};
        calibration.SetUsedCoefficients(page, 1, used, true);
        calibration.SetTag(u"InstrumentTemperature", u"31.2", page);
        ASSERT_TRUE(calibration.Save(&fileSystem(), CString(shop.file("camera.rcal")).c_str(), CRCalFile::saveXml));
        CTagFile dictionary;
        CTagEntry entry;
        entry.SetName(u"Height");
        entry.SetDescription(u"above the ground");
        entry.SetDataType(CTagEntry::DATA_TYPE::Flt64);
        entry.SetNumericBounds(true, 0.0, 500.0);
        entry.SetUnits(CTagEntry::UNITS::Meters);
        entry.SetCategory(CTagEntry::CATEGORY::SensorInfo);
        dictionary.AddTagEntry(entry);
        ASSERT_TRUE(dictionary.SaveXML(CString(shop.file("tags.xml")).c_str()));
        ASSERT_TRUE(dictionary.SaveBinary(CString(shop.file("tags.bin")).c_str()));
    }
    Workshop shop;
};

TEST_F(Info, TellsEachKindByItsContent) {
    const ToolRun outcome = shop.qv("info run.saf plain.saf camera.rcal tags.xml tags.bin --json");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
    auto facts = JsonReader::flatten(outcome.out);
    EXPECT_EQ(facts["schema"], "qv.info.1");
    EXPECT_EQ(facts["files.0.kind"], "recording");
    EXPECT_EQ(facts["files.0.frames"], "2");
    EXPECT_EQ(facts["files.0.type"], "UInt16");
    EXPECT_EQ(facts["files.0.pad"], "0");
    EXPECT_EQ(facts["files.0.dataBytes"], "16");
    EXPECT_EQ(facts["files.1.kind"], "measurement");
    EXPECT_EQ(facts["files.1.dataBytes"], "3");
    EXPECT_EQ(facts["files.2.kind"], "calibration");
    EXPECT_EQ(facts["files.2.bandMicrons.0"], "3.5");
    EXPECT_EQ(facts["files.2.pages.0.points.1.temperatureCelsius"], "40");
    EXPECT_EQ(facts["files.2.pages.0.range.highCounts"], "1600");
    EXPECT_EQ(facts["files.2.pages.0.radianceFit.overridden"], "true");
    EXPECT_EQ(facts["files.2.pages.0.radianceFit.overrideCoefficients.1"], "2");
    EXPECT_EQ(facts["files.2.pages.0.tags.0.value"], "31.2");
    for (const std::string file : {"files.3", "files.4"}) {
        EXPECT_EQ(facts[file + ".kind"], "dictionary");
        EXPECT_EQ(facts[file + ".entries.0.name"], "Height");
        EXPECT_EQ(facts[file + ".entries.0.category"], "Sensor Info");
        EXPECT_EQ(facts[file + ".entries.0.permitted"], "0 to 500");
    }
}

TEST_F(Info, ParameterAndNormTables) {
    const std::string head = "HdSize auto\r\nKeyWrd POD\r\nNumDPs auto\r\nPNSize 1\r\nPUSize 1\r\nNParam ";
    shop.write("track.pod", head + "2\r\nDATA\r\ntime range\r\nsec m\r\n1 2\r\n3 4\r\n5 6\r\n");
    shop.write("broken.pod", head + "x\r\nDATA\r\n");
    // Version, type, a size of 3 by 2, subframe, nine characters of time, and the table.
    const std::string stamp = "1\0002\0003\000:\0004\0005\000:\0006\0007\0"s;
    const std::string norm = "\1\1\3\0\2\0\0\0"s + stamp + std::string(12, '\0');
    shop.write("offset.nrm", norm);
    shop.write("longer.nrm", norm + "x");
    shop.write("big.nrm", "\1\2\0\3\0\2\0\0"s + stamp + std::string(6, '\0'));
    shop.write("stamp.nrm", std::string(norm).replace(8, 1, 1, '\1'));
    const ToolRun outcome = shop.qv("info track.pod offset.nrm big.nrm longer.nrm stamp.nrm broken.pod --json");
    EXPECT_EQ(outcome.exitCode, 4) << outcome.error;
    auto facts = JsonReader::flatten(outcome.out);
    EXPECT_EQ(facts["files.0.kind"] + facts["files.0.rowCount"] + facts["files.0.columnCount"], "table32");
    EXPECT_EQ(facts["files.0.columns.1.name"] + facts["files.0.columns.1.units"], "rangem");
    EXPECT_EQ(facts["files.1.kind"] + facts["files.1.table"] + facts["files.1.width"], "normoffset3");
    EXPECT_EQ(facts["files.1.timeStamp"] + facts["files.1.byteOrder"], "123:45:67LSBFirst");
    EXPECT_EQ(facts["files.2.table"] + facts["files.2.height"] + facts["files.2.byteOrder"], "bad-pixel2MSBFirst");
    EXPECT_EQ(facts["files.3.kind"] + facts["files.4.kind"], "unknownunknown");
    EXPECT_EQ(facts["files.5.kind"], "table");
    EXPECT_NE(shop.qv("info track.pod").out.find("1  range  m"), std::string::npos);
}

TEST_F(Info, PrintsTablesWithUnitsInTheirHeads) {
    const std::string out = shop.qv("info camera.rcal tags.xml run.saf").out;
    for (const char* wanted : {"camera.rcal: calibration\n", "temperature [C]", "radiance [W/(sr-cm^2)]",
                               "top-hat from 3.5 to 5 um", "Sensor Info\n", "run.saf: recording\n", "2 pixels\n"}) {
        EXPECT_NE(out.find(wanted), std::string::npos) << wanted << "\n" << out;
    }
}

TEST_F(Info, VersionRecordsOfPrograms) {
    const std::string corpus = QV_SOURCE_DIR "/fuzz/corpus/version_info_fuzz/";
    auto facts = JsonReader::flatten(shop.qv("info " + corpus + "pe32plus.dll --json").out);
    EXPECT_EQ(facts["files.0.kind"], "program");
    EXPECT_EQ(facts["files.0.fileVersion"], "3.14.15.9");
    EXPECT_EQ(facts["files.0.productVersion"], "2.7.1.8");
    EXPECT_EQ(facts["files.0.versionStrings.0.language"], "0409");
    EXPECT_EQ(facts["files.0.versionStrings.0.strings.0.value"], "Fields & Co");
    const ToolRun damaged = shop.qv("info " + corpus + "truncated.dll");
    EXPECT_EQ(damaged.exitCode, 4);
    EXPECT_TRUE(isOneSentence(damaged.error)) << damaged.error;
}

TEST_F(Info, EndsWithTheCodeOfTheWorstFileAndStillPrintsTheOthers) {
    shop.write("cut.saf", shop.read("run.saf").substr(0, shop.read("run.saf").size() - 3));
    shop.write("cut.rcal", shop.read("camera.rcal").substr(0, 500));
    shop.write("cut.bin", shop.read("tags.bin").substr(0, 12));
    const struct {
        const char* files;
        int code;
    } cases[] = {{"run.saf", 0},  {"cut.saf", 4},      {"cut.rcal run.saf", 4},
                 {"cut.bin", 4},  {".out run.saf", 3}, {"absent run.saf .error", 5},
                 {". run.saf", 5}};
    for (const auto& row : cases) {
        const ToolRun outcome = shop.qv(std::string("info ") + row.files);
        EXPECT_EQ(outcome.exitCode, row.code) << row.files << '\n' << outcome.error;
        if (std::string(row.files).find("run.saf") == std::string::npos) continue;
        EXPECT_NE(outcome.out.find("run.saf: recording"), std::string::npos) << row.files;
    }
    EXPECT_TRUE(isOneSentence(shop.qv("info cut.saf").error));
}

}  // namespace
}  // namespace qv::test
