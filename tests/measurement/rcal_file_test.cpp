#include "qv/rcal_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/xml_file.h"
#include "rcal_support.h"

namespace qv {
namespace {

using test::everything;
using test::load;
using test::replaced;
using test::saved;

/// A page and a point of which nothing was said. The body of the top-hat is left out.
const std::string defaults = replaced(R"xml(<rcal revision="8">
	<bandpass low="3" high="5"/>
	<bandpassOverride low="3" high="5" valid="false"/>
	<range value="1" valid="false"/>
	<fov horz="0" vert="0" valid="false"/>
	<spectralResponse file="" start="3" end="5" delta="0.001" type="1"></spectralResponse>
	<modtran file="" totTransEnabled="false" pathThrmlEnabled="false"/>
	<additonalResponses>
		<additionalResponse file="" enabled="true"/>
	</additonalResponses>
	<calPages>
		<calPage radiance="true" areaUnits="cm(squared)" distanceUnits="cm">
			<range auto="true" minCounts="0" maxCounts="0" minRadiance="0" maxRadiance="0" minTemperature="0" maxTemperature="0"/>
			<coeffs order="1" r2="0"/>
			<coeffsOverride order="0" valid="false"/>
			<tempCoeffs order="6" r2="0"/>
			<tempCoeffsOverride order="0" valid="false"/>
			<tpfact value="1" valid="false"/>
			<background type="notSet" value="0"/>
			<backgroundFiles/>
			<check counts="0" radiance="0" temperature="0" lookup="0"/>
			<calPoints>
				<calPoint enabled="true" temperature="0" emissivity="1" area="0" distance="0" radiance="0" measurement="0" reflectedRadianceType="none" reflectedEmissivity="1" reflectedTemperature="0" reflectedRadiance="0"/>
			</calPoints>
			<lookup start="0" end="100" delta="1" emissivity="1"/>
			<tags/>
		</calPage>
	</calPages>
	<tags/>
</rcal>
)xml",
                                      "\n", "\r\n");

TEST(RCalXml, SavesByteForByteWhatItLoaded) {
    CRCalFile calibration;
    ASSERT_TRUE(load(calibration, everything));
    EXPECT_EQ(saved(calibration), everything);
    const CRCalFile copy(calibration);
    calibration.Destroy();
    CRCalFile assigned;
    assigned = copy;
    EXPECT_EQ(saved(assigned), everything);
}

TEST(RCalXml, HandsOutWhatItRead) {
    CRCalFile calibration;
    ASSERT_TRUE(load(calibration, everything));
    EXPECT_EQ(calibration.getRevision(), 8);
    EXPECT_EQ(calibration.spectralResponse().getBandpassLow(), 3.1);
    double low = 0.0, high = 0.0, vert = 0.0, horz = 0.0;
    bool valid = false;
    calibration.GetCalcBandpass(low, high);
    EXPECT_EQ(high, 3.85);
    calibration.GetFOV(horz, vert, valid);
    EXPECT_TRUE(valid && horz == 11 && vert == 8.8);
    EXPECT_EQ(calibration.spectralResponse().getType(), ESpectralResponseType::tophat);
    EXPECT_EQ(calibration.modtran().getStatus(), EResponseStatus::fileMissing);
    EXPECT_EQ(calibration.modtran()[1].getRawCurve().getY(1), 2.5e-06);
    EXPECT_EQ(calibration.additionalResponses()[0].getStatus(), EResponseStatus::fileMissing);
    const CAL_PAGE& page = *calibration.GetPage(0);
    EXPECT_EQ(page.areaUnits, 4);
    EXPECT_EQ(page.distanceUnits, 2);
    EXPECT_EQ(page.backgroundFiles.data()[0].pixels->uint16()[2], 0xFFFF);
    EXPECT_FALSE(page.backgroundFiles.data()[1].pixels);
    EXPECT_EQ(page.points.data()[1].reflectedRadianceType, EReflectedRadianceType::calculate);
    // The override's two values are what is used, and the special order has two.
    double values[2] = {};
    ASSERT_TRUE(calibration.GetCoefficients(0, values));
    EXPECT_EQ(values[1], 0.2);
    EXPECT_EQ(calibration.calPage(0).getPolyOrder(), -1);
    EXPECT_EQ(calibration.GetTag(u"note", 0), CString(u"first\r\n<light>"));
    EXPECT_EQ(calibration.GetTag(u"Kamera"), CString("Wärmebild"));
}

TEST(RCalXml, TakesElementsInAnyOrder) {
    CXMLFile xml;
    ASSERT_TRUE(xml.Load(test::memoryFile(everything)));
    // Reverses the children of the root and of the pages; what is a list keeps its order.
    const auto reverse = [](CXMLFile::CNode& node) {
        std::vector<CXMLFile::CNode*> copies;
        for (CXMLFile::CNode* child = node.Child(); child != nullptr; child = child->Next()) {
            copies.push_back(child->Duplicate());
        }
        auto* turned = new CXMLFile::CNode(node.name, node.attributes);
        for (CXMLFile::CNode* copy : copies) turned->InsertChild(copy, false);
        return turned;
    };
    CXMLFile::CNode* root = reverse(*xml.GetRoot());
    CXMLFile::CNode* pages = root->FindChild(u"calPages");
    auto* turnedPages = new CXMLFile::CNode(CString(u"calPages"));
    for (CXMLFile::CNode* page = pages->Child(); page != nullptr; page = page->Next()) {
        turnedPages->InsertChild(reverse(*page), true);
    }
    CXMLFile turned;
    root->InsertChild(turnedPages, false);  // the first of that name is the one that counts
    turned.Insert(root, true);
    TSharedPtr<IFile> file = CMemFile::Create();
    turned.Save(file);
    CRCalFile calibration;
    ASSERT_TRUE(load(calibration, test::bytesOf(*file)));
    EXPECT_EQ(saved(calibration), everything);
}

TEST(RCalXml, KeepsDefaultsWhereNothingIsSaid) {
    CRCalFile calibration;
    ASSERT_TRUE(load(calibration,
                     "<rcal revision=\"8\"><spectralResponse type=\"1\"/><additonalResponses><additionalResponse/>"
                     "</additonalResponses><calPages><calPage><calPoints><calPoint/></calPoints></calPage></calPages>"
                     "</rcal>"));
    std::string text = saved(calibration);
    const size_t body = text.find("type=\"1\">") + 9;
    text.erase(body, text.find('<', body) - body);  // two thousand points of the top-hat
    EXPECT_EQ(text, defaults);
    EXPECT_EQ(calibration.axis().getCount(), 2000u);
}

TEST(RCalXml, KnowsEveryWordAndTakesOthersForTheFirst) {
    const struct {
        const char* attribute;  // as it stands in the document
        std::vector<const char*> words;
    } rows[] = {
        {"areaUnits=\"in(diameter)\"",
         {"cm(squared)", "cm(diameter)", "cm(side)", "in(squared)", "in(diameter)", "in(side)"}},
        {"distanceUnits=\"ft\"", {"cm", "in", "ft"}},
        {"background type=\"file\"", {"notSet", "none", "value", "file"}},
        {"reflectedRadianceType=\"calculate\"", {"none", "constant", "calculate"}},
    };
    for (const auto& row : rows) {
        const std::string attribute = row.attribute;
        const std::string name = attribute.substr(0, attribute.find('"') + 1);
        const auto loadedAndSaved = [&](const std::string& word) {
            CRCalFile calibration;
            EXPECT_TRUE(load(calibration, replaced(everything, attribute, name + word + "\"")));
            return saved(calibration);
        };
        for (const char* word : row.words) {
            EXPECT_EQ(loadedAndSaved(word), replaced(everything, attribute, name + word + "\"")) << word;
        }
        for (const char* other : {"error", "", "CM", "3"}) {
            EXPECT_EQ(loadedAndSaved(other), replaced(everything, attribute, name + row.words[0] + "\"")) << other;
        }
    }
    CRCalFile calibration;
    calibration.calPages().Add();
    calibration.SetBackgroundType(0, static_cast<BACKGROUND_TYPE>(4));
    EXPECT_NE(saved(calibration).find("<background type=\"error\""), std::string::npos);
}

TEST(RCalXml, SurvivesHostileBodies) {
    const std::string picture = "width=\"3\" height=\"1\" type=\"3\"";
    std::string numbers;
    for (int i = 0; i < 200000; ++i) numbers += "1 ";
    const struct {
        const char* name;
        std::string from, to;
        std::string kept;  // what the saved document holds then
    } rows[] = {
        {"a huge picture", picture, "width=\"65536\" height=\"65536\" type=\"3\"", "type=\"3\"/>"},
        {"a size that wraps to 3 in 32 bits", picture, "width=\"4294967295\" height=\"4294967293\" type=\"3\"",
         "type=\"3\"/>"},
        {"an unknown type", picture, "width=\"3\" height=\"2\" type=\"77\"", "type=\"77\"/>"},
        {"a short picture", "AQACAP//", "AQACAA==", "type=\"3\"/>"},
        {"a broken list", ">-12,3000.5,-7,0.33333333333333<", ">-12,3000.5x,-7<", "r2=\"0.875\">-12<"},
        {"an empty list", ">-20,100000<", ">,<", "order=\"1\" valid=\"true\"/>"},
        {"half a pair", ">5e-05,-10|\r\n0.0012345678901235,90<", ">1,2|\r\n3,4|\r\n5<", ">1,2|\r\n3,4</lookup>"},
        {"a pair without comma", ">5e-05,-10|\r\n", ">1,2|\r\n3|\r\n", ">1,2</lookup>"},
        {"numbers without separators", ">5e-05,-10|\r\n", ">" + numbers, "emissivity=\"0.96\"/>"},
        {"an odd number of pairs", "\r\n4,2.5e-06</modtran>", "\r\n</modtran>", ">3,0.8|\r\n4,0.9</modtran>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string document = replaced(everything, row.from, row.to);
        ASSERT_NE(document, everything);
        CRCalFile calibration;
        ASSERT_TRUE(load(calibration, document));
        EXPECT_NE(saved(calibration).find(row.kept), std::string::npos) << saved(calibration);
    }
}

TEST(RCalXml, RefusesWhatAsksForTooMuch) {
    const auto many = [](const char* list, const char* item, int count) {
        std::string text = std::string("<") + list + ">";
        for (int i = 0; i < count; ++i) text += item;
        return text + "</" + list + ">";
    };
    const struct {
        std::string content;
        const char* diagnostic;
    } rows[] = {
        {many("calPages", "<calPage/>", 1000000), "at most 65536 pages"},
        {many("additonalResponses", "<additionalResponse file='x'/>", 65), "at most 64 additional responses"},
        {"<spectralResponse delta='1e-9'/>", "at most 262144 points of the top-hat"},
        {"<spectralResponse delta='1e-5'/><calPages><calPage>" + many("calPoints", "<calPoint/>", 3000) +
             "</calPage></calPages>",
         "at most 536870912 radiance values"},
    };
    for (const auto& row : rows) {
        CRCalFile calibration;
        ClearDiagnostic();
        EXPECT_FALSE(load(calibration, "<rcal revision=\"2\">" + row.content + "</rcal>")) << row.diagnostic;
        EXPECT_NE(std::string(CStringMB(LastDiagnostic().ToString().c_str()).c_str()).find(row.diagnostic),
                  std::string::npos);
        EXPECT_TRUE(load(calibration, everything)) << "after " << row.diagnostic;
    }
    CRCalFile most;
    EXPECT_TRUE(load(most, "<rcal>" + many("calPages", "<calPage/>", 65536) + "</rcal>"));
    EXPECT_EQ(most.calPages().getCount(), 65536);
}

TEST(RCalXml, FailsAtEveryCutBeforeTheEnd) {
    const size_t whole = everything.size() - 2;  // the last line break may be missing
    for (size_t size = 0; size <= everything.size(); ++size) {
        CRCalFile calibration;
        EXPECT_EQ(load(calibration, everything.substr(0, size)), size >= whole) << size;
    }
}

TEST(RCalFile, IsRecognisedByItsFirstBytes) {
    const struct {
        std::string bytes;
        bool known;
    } rows[] = {
        {"<rcal re", true},
        {"<rcal revision=\"8\"/>", true},
        {"<RCAL revision=\"8\"/>", false},
        {"<rcal/>  ", false},
        {"____RCAL" + std::string(2, '\0'), true},
        {"abcdRCAL\xFF\xFF", true},
        {std::string("____RCAL\1\0", 10), false},
        {"____RCAL", false},
        {"<rcal r", false},
        {"", false},
    };
    for (const auto& row : rows) EXPECT_EQ(CRCalFile::IsRCalFile(test::memoryFile(row.bytes)), row.known) << row.bytes;
    EXPECT_FALSE(CRCalFile::IsRCalFile(&fileSystem(), CString(u"/absent/a.rcal")));
    EXPECT_FALSE(CRCalFile::IsRCalFile(TSharedPtr<IFile>()));
}

TEST(RCalFile, TellsWhyItDoesNotLoad) {
    const struct {
        std::string bytes, reason;
    } rows[] = {
        {"<other/>", "rcal"},
        {"", "rcal"},
        {"____RCAL" + std::string(2, '\0'), "spectral response file"},
        {std::string("____RCAL\1\0", 10), "version 1"},
        {"<rcal revision=\"8\">", "line 1"},
    };
    for (const auto& row : rows) {
        CRCalFile calibration;
        ClearDiagnostic();
        EXPECT_FALSE(load(calibration, row.bytes)) << row.bytes;
        const std::string reason = CStringMB(LastDiagnostic().ToString().c_str()).c_str();
        EXPECT_NE(reason.find(row.reason), std::string::npos) << reason;
        EXPECT_EQ(calibration.calPages().getCount(), 0);
    }
    CRCalFile calibration;
    EXPECT_FALSE(calibration.Load(&fileSystem(), u"/absent/a.rcal", 0));
    EXPECT_FALSE(calibration.Save(&fileSystem(), u"/absent/folder/a.rcal", CRCalFile::saveXml));
}

}  // namespace
}  // namespace qv
