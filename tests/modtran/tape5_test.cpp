// Decks: golden bytes both ways, the rules of Fortran for what others write, codes, runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "qv/diagnostic.h"
#include "qv/memory_file_system.h"
#include "qv/tape5_cards.h"
#include "qv/tape5_file.h"
#include "support/memory_file.h"

namespace qv::test {

namespace {

using RUN = CModtranTape5File::RUN;

// Lines that end in blanks have a bar behind them.
constexpr char golden[] = R"deck(T   7    2    2   -1    6    6    6    6    6    6    2    1   -1 300.250BRDF
Tt  8T   5   380.500g    2.500a    0.300 T T T F  1367.000
DATA/sun.dat                                                                    |
DATA/B2001_05.BIN                                                               |
DATA/camera.flt                                                                 |
A+  1N   2USS 3    5   18    1    23.000     1.500     0.000     0.000     1.250
        1         3         2                             4        10         0
        0         0         0                             0         0         0
   1.000  10.000   0.140
     2.000     0.200    -1.000
    2    1    1                                                       two levels
     0.0001013.00000 288.150007750.00000 380.50000   0.02660AAA A          A
   0.32000   0.15000   1.700002.0900E+05   0.000302.5000E-07   0.00000-1.250E-07
   0.00005
   0.00014   0.000243.0000E-06   0.00000   0.00000   0.00000   0.00000   0.00000
   0.00000   0.00000   0.00000   0.000001.000E-100
               0.100     0.000     0.500    0    5    0    1    0
    12.500 178.50000 218.20000   2.30000 380.500002.5000E-07ABG66666666666  |
   0.32000   0.15000   1.700002.0900E+05   0.000302.5000E-07   0.00000-1.250E-07
   0.00005
   0.00014   0.000243.0000E-06   0.00000   0.00000   0.00000   0.00000   0.00000
   0.00000   0.00000   0.00000   0.000001.000E-100
               0.000     0.250     0.000    0    0    2    2    1
    4    0    0    2
   0.03900desert                                                                  |
  0.20 1.0167 0.4350 0.880  0.55 1.0000 0.2194 0.798 10.59 0.6921 0.2760 0.681
300.00 0.0001 0.0000-0.125
   0.00000                                                                        |
  0.20 1.0167 0.4350 0.880 10.59 0.6921 0.2760 0.681
     1.500     0.250   100.000     0.000     0.000  6371.230    1    12.500
    1    1   93    0
    48.000    11.500     0.000     0.000    12.500   180.000     0.000
    2    0
   0.00000   0.50000   0.25000   0.12500   0.06250
 180.00000   0.010002.5000E-06   0.00000   0.00000
     8.000    12.000     0.010     0.020RM      $$MGAAS T
2      295
                                                                         ross-li
1 0.000000 0.000000
0.550000 0.200000 0.100000 0.050000 2.000000 1.000000
                                                                               4
2 0.000000 10.000000
0.550000 0.100000 0.200000 0.300000 0.400000 0.000000
11.000000 0.100000 0.200000 0.300000 0.400000 0.000000
    3
     3.000     0.000   120.000     0.000     0.000  6371.230    1     0.000
    1    1   93    0
    48.000    11.500     0.000     0.000    12.500   180.000     0.000
    2    9
         0       180
 3.000E+00 3.250E+00 3.500E+00 3.750E+00 4.000E+00 4.250E+00 4.500E+00 4.750E+00
 5.000E+00
 1.000E-01 2.000E-02 3.000E-03 4.000E-04 5.000E-05 6.000E-06 7.000E-07 8.000E-08
 9.000E-09
 1.010E-01 2.010E-02 3.010E-03 4.010E-04 5.010E-05 6.010E-06 7.010E-07 8.010E-08
 9.010E-09
 1.100E-01 2.100E-02 3.100E-03 4.100E-04 5.100E-05 6.100E-06 7.100E-07 8.100E-08
 9.100E-09
 1.110E-01 2.110E-02 3.110E-03 4.110E-04 5.110E-05 6.110E-06 7.110E-07 8.110E-08
 9.110E-09
 1.200E-01 2.200E-02 3.200E-03 4.200E-04 5.200E-05 6.200E-06 7.200E-07 8.200E-08
 9.200E-09
 1.210E-01 2.210E-02 3.210E-03 4.210E-04 5.210E-05 6.210E-06 7.210E-07 8.210E-08
 9.210E-09
 1.300E-01 2.300E-02 3.300E-03 4.300E-04 5.300E-05 6.300E-06 7.300E-07 8.300E-08
 9.300E-09
 1.310E-01 2.310E-02 3.310E-03 4.310E-04 5.310E-05 6.310E-06 7.310E-07 8.310E-08
 9.310E-09
2      295
                                                                         ross-li
1 0.000000 0.000000
0.550000 0.200000 0.100000 0.050000 2.000000 1.000000
                                                                               4
2 0.000000 10.000000
0.550000 0.100000 0.200000 0.300000 0.400000 0.000000
11.000000 0.100000 0.200000 0.300000 0.400000 0.000000
   -4
     3.000     5.000     0.010     0.020          M      |
2      295
                                                                         ross-li
1 0.000000 0.000000
0.550000 0.200000 0.100000 0.050000 2.000000 1.000000
                                                                               4
2 0.000000 10.000000
0.550000 0.100000 0.200000 0.300000 0.400000 0.000000
11.000000 0.100000 0.200000 0.300000 0.400000 0.000000
    1
K1  6    3    3    0    0    0    0    0    0    0    0    0    0   0.000LAMBER
FF  4F   0   365.000+a3000.000   1.50000 2 F F F    -1.000
   -1    0    0    0    5    0     0.000     0.000     0.000     2.500     0.000
  -9.000   0.500   1.200   3   2   0.550  -9.000  -9.000  -9.000  -9.000  -9.000
   0.50000   0.30000   0.00000   0.00000
   1.00000   0.30000   0.01000   2.50000
   1.50000   0.00000   0.00000   0.00000
   0.55000 120.50000  -0.00100   0.85000   3.25000   0.00000   0.70000
  12.00000  95.00000   0.50000   0.80000   2.00000   0.10000   0.75000
     0.000     0.000    45.000  172          0.000    1    90.000
  2000.000  3000.000     1.000     2.000TW        W      |
1        0
                                                               DATA/spec_alb.dat
                                                                              37
   -1
T   0    1    1    0    6    6    6    6    6    6    1    1    0   0.000  -3.00
FF  8F   0     0.000                     F F F F     0.000
    1    0    0    0    3    0     0.000     0.000     0.000     0.000     0.000
  -9.000  -9.000  -9.000  -9   1  -9.000  -9.000  -9.000  -9.000  -9.000  -9.000
    1    0    2                                                                 |
     0.500 950.00000  18.00000  60.00000   0.00000   0.00000ABH             |
               0.100               0.500     0.200     0.300     0.400
cloud.dat                                                                       |
Cumulus                                                                         |
                                                                                |
     0.500     0.000     0.000     5.000     0.000     0.000    0     0.000
  2000.000  3335.000     5.000    10.000RW               |
    0
)deck";

/// The text as a deck: lines end in CR LF, bars go.
std::string deckOf(std::string text) {
    std::string deck;
    for (const char c : text) {
        if (c == '\n') deck += "\r\n";
        if (c != '|' && c != '\n') deck += c;
    }
    return deck;
}

std::string saved(const CModtranTape5File& deck) {
    const TSharedPtr<IFile> file = memoryFile("");
    EXPECT_TRUE(deck.Save(file)) << CStringMB(deck.LastError()).c_str();
    return bytesOf(*file);
}

::testing::AssertionResult loads(CModtranTape5File& deck, const std::string& bytes) {
    if (deck.Load(memoryFile(bytes))) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << CStringMB(deck.LastError()).c_str();
}

std::string errorOf(const CModtranTape5File& deck) { return CStringMB(deck.LastError()).c_str(); }

std::vector<std::string> warningsOf(const std::string& bytes) {
    TArray<TAPE5_WARNING> warnings;
    EXPECT_TRUE(LintTape5(memoryFile(bytes), warnings));
    std::vector<std::string> list;
    for (const TAPE5_WARNING& warning : warnings) {
        list.push_back(std::to_string(warning.line) + ":" + std::to_string(warning.first) + " " + warning.name.c_str() +
                       " " + CStringMB(warning.text).c_str());
    }
    return list;
}

}  // namespace

TEST(Tape5, DefaultRunIsASummerPathInTheThermalInfrared) {
    CModtranTape5File deck;
    deck.New();
    EXPECT_EQ(saved(deck), deckOf(R"(T   2    2    1    0    0    0    0    0    0    0    0    0    0   0.000   0.00
FF  8F   0   365.000                     F F F F     0.000
    1    0    0    0    0    0     0.000     0.000     0.000     0.000     0.000
     0.000     1.000    60.000     0.000     0.000     0.000    0     0.000
  2000.000  3335.000     5.000    10.000RW               |
    0
)"));
    EXPECT_EQ(errorOf(deck), "No Error");
    EXPECT_TRUE(warningsOf(saved(deck)).empty());
}

TEST(Tape5, GoldenDeckReadsIntoItsFieldsAndIsWrittenByteForByte) {
    CModtranTape5File deck;
    ASSERT_TRUE(loads(deck, deckOf(golden)));
    EXPECT_EQ(saved(deck), deckOf(golden));
    ASSERT_EQ(deck.nRuns(), 5);
    ASSERT_EQ(deck.CurrentRun(), 0);
    int32_t model, im, imult, nstr;
    double co2, water, ozone;
    char dis, disazm, waterUnit, plus, ozoneUnit;
    ASSERT_TRUE(deck.GetAtmosphereModel(model, im, co2, waterUnit, water, plus, ozoneUnit, ozone));
    EXPECT_EQ(std::tie(model, im, co2, waterUnit, water, plus, ozoneUnit, ozone),
              std::make_tuple(7, 1, 380.5, 'g', 2.5, ' ', 'a', 0.3));
    ASSERT_TRUE(deck.GetMultipleScattering(imult, dis, disazm, nstr));
    EXPECT_EQ(std::tie(imult, dis, disazm, nstr), std::make_tuple(-1, 'T', 't', 8));
    char lsun, lsunfl;
    int32_t isun;
    CStringMB sun;
    double solcon;
    ASSERT_TRUE(deck.GetSolarIrradiance(lsun, isun, lsunfl, sun, solcon));
    EXPECT_EQ(sun, "DATA/sun.dat");
    EXPECT_EQ(solcon, 1367.0);

    RUN first, repeated, clouds, single;
    ASSERT_TRUE(deck.GetRun(0, first) && deck.GetRun(1, repeated) && deck.GetRun(3, clouds) && deck.GetRun(4, single));
    EXPECT_EQ(first.surface, 1);
    EXPECT_EQ(first.scale[0], 2.0);
    EXPECT_EQ(first.zaer2[1], 10.0);
    ASSERT_EQ(first.levels.size(), 2u);
    EXPECT_EQ(first.levels[0].wmol[6], 209000.0);
    EXPECT_EQ(first.levels[1].wmol[10], -1.25e-7);
    EXPECT_EQ(first.levels[1].wmolx[12], 1e-100);
    EXPECT_EQ(first.levels[0].aerosolModelType, 1);
    EXPECT_EQ(first.levels[0].aerosolModel, 5);
    EXPECT_EQ(first.levels[1].aerosolModelType, 2);
    EXPECT_EQ(std::string(first.levels[1].jchar, 14), "ABG66666666666");
    EXPECT_EQ(first.regions[0].spectra[3].asym, -0.125);
    EXPECT_EQ(first.regions[3].spectra.size(), 2u);
    EXPECT_EQ(first.phi, 12.5);
    EXPECT_EQ(first.phaseValues[5], 0.0);
    EXPECT_EQ(first.surfaces[0].brdf, 12);
    EXPECT_EQ(first.surfaces[1].rows[1].wvsurf, 11.0);
    EXPECT_EQ(first.irpt, 3);
    // A repeated run keeps what its cards do not give.
    EXPECT_EQ(repeated.levels.size(), 2u);
    EXPECT_EQ(repeated.h1, 3.0);
    ASSERT_EQ(repeated.phaseWavelengths.size(), 9u);
    EXPECT_EQ(repeated.phaseValues[(2 * 2 + 1) * 9 + 8], 9.21e-9);
    EXPECT_EQ(clouds.albedo, 0.0);
    EXPECT_EQ(clouds.surfaces[0].csalb, "37");
    EXPECT_EQ(clouds.boundaries[1].rr, 2.5);
    EXPECT_EQ(clouds.cloudSpectra[0].absc[0], -0.001);
    EXPECT_EQ(clouds.anglem, 90.0);
    EXPECT_EQ(clouds.h2oUnlimited, '+');
    EXPECT_EQ(single.albedo, -3.0);
    EXPECT_EQ(single.cldtyp, "Cumulus");
    EXPECT_EQ(single.levels[0].ahaze[3], 0.4);
}

TEST(Tape5, OneRunAtATimeGivesTheSameDeck) {
    const TSharedPtr<IFile> in = memoryFile(deckOf(golden)), out = memoryFile("");
    CModtranTape5File deck;
    while (in->GetRemaining() > 0) ASSERT_TRUE(deck.LoadRun(in)) << errorOf(deck);
    ASSERT_EQ(deck.nRuns(), 5);
    for (int32_t i = 0; i < 5; ++i) EXPECT_TRUE(deck.SaveRun(out, i));
    EXPECT_EQ(bytesOf(*out), deckOf(golden));
    EXPECT_FALSE(deck.LoadRun(in));
}

TEST(Tape5, OthersLayoutsAndNumbersAreRead) {
    const struct {
        const char* what;
        std::string from, to;
        const char* field;
        const char* value;
    } cases[] = {
        {"published place of SOLCON", "F F F F     0.000", "F F F F F -1367.125", "SOLCON", "-1367.125"},
        {"published place of PHI", "    0     0.000\r", "    0          45.250\r", "PHI", "45.25"},
        {"blank is 0", "    60.000", "          ", "ANGLE", "0"},
        {"implied decimals", "    60.000", "     60250", "ANGLE", "60.25"},
        {"blanks inside", "    60.000", "  6 0 .5  ", "ANGLE", "60.5"},
        {"exponent D", "    60.000", "   6.05D+1", "ANGLE", "60.5"},
        {"exponent without a letter", "    60.000", "6.0250-100", "ANGLE", "6.025e-100"},
        {"short line", "RW               \r", "\r", "YFLAG", " "},
        {"keyword for SURREF", "   0.00\r", " -1.00 \r", "SURREF", "-1.00"},
        {"remark behind the fields", "F F F F     0.000", "F F F F     0.000  ! no sun", "SOLCON", "0"},
    };
    CModtranTape5File deck;
    deck.New();
    for (const auto& test : cases) {
        std::string bytes = saved(deck);
        const size_t at = bytes.find(test.from);
        ASSERT_NE(at, bytes.npos) << test.what;
        bytes.replace(at, test.from.size(), test.to);
        CModtranTape5File read;
        ASSERT_TRUE(loads(read, bytes)) << test.what;
        RUN run;
        CStringMB value, card;
        ASSERT_TRUE(read.GetRun(0, run) && GetTape5Field(run, test.field, value, card)) << test.what;
        EXPECT_STREQ(value.c_str(), test.value) << test.what;
    }
}

TEST(Tape5, DecksThatCannotBeReadLeaveTheOldOne) {
    const std::string whole = deckOf(golden);
    CModtranTape5File deck;
    ASSERT_TRUE(loads(deck, whole));
    const auto changed = [&whole](const std::string& from, const std::string& to) {
        std::string bytes = whole;
        return bytes.replace(bytes.find(from), from.size(), to);
    };
    for (const std::string& bytes :
         {std::string(), std::string("\0\0\0", 3), std::string("FREQ  TOT TRANS\n"), whole.substr(0, whole.size() / 2),
          changed("    2    1    1 ", "99999    1    1 "), changed("    2    9\r", "99999 9999\r"),
          changed("    1    1   93", "    1    x   93"), changed("  6371.230", "   1E99999"),
          changed("     ross-li", "     lambert"), changed("    4    0    0    2", " 9999    0    0    2")}) {
        EXPECT_FALSE(deck.Load(memoryFile(bytes))) << bytes.substr(0, 100);
        EXPECT_NE(errorOf(deck), "No Error");
        EXPECT_EQ(saved(deck), whole);
    }
}

TEST(Tape5, EveryBadCodeHasItsMessageAndNothingIsWritten) {
    const struct {
        std::function<void(RUN&)> spoil;
        const char* message;
    } cases[] = {
        {[](RUN& r) { r.modtrn = 'Q'; }, "Unrecognized modtran model Q."},
        {[](RUN& r) { r.speed = 'Q'; }, "Unrecognized modtran correlation k speed option Q."},
        {[](RUN& r) { r.model = 9; }, "Unrecognized atmosphere model 9."},
        {[](RUN& r) { r.itype = 0; }, "Unrecognized LOS Type 0."},
        {[](RUN& r) { r.iemsct = 4; }, "Unrecognized Execution Mode 4."},
        {[](RUN& r) { r.imult = 2; }, "Unrecognized Multiple Scattering option 2,"},
        {[](RUN& r) { r.mdef = 3; }, "Unrecognized Heavy Spiecies option 3."},
        {[](RUN& r) { r.im = 2; }, "Unrecognized Atmosphere Cache option 2."},
        {[](RUN& r) { r.surface = 3; }, "Unrecognized Surface Reflectance option 3."},
        {[](RUN& r) { r.dis = 'Q'; }, "Unrecognized Scattering Algorithm option Q."},
        {[](RUN& r) { r.disazm = 'Q'; }, "Unrecognized Asimuth Dependance option Q."},
        {[](RUN& r) { r.lsun = 'Q'; }, "Unrecognized bSolarIrradianceFile option Q."},
        {[](RUN& r) { r.lsunfl = '5'; }, "Unrecognized bSolarIrradianceUserFile option 5."},
        {[](RUN& r) { r.lbmnam = 'Q'; }, "Unrecognized bBandModelFile option Q."},
        {[](RUN& r) { r.lfltnm = 'Q'; }, "Unrecognized bInstrumentFilterFile option Q."},
        {[](RUN& r) { r.h2oaer = 'Q'; }, "Unrecognized bUpdateH2OAerosol option Q."},
        {[](RUN& r) { r.ihaze = -2; }, "Unknown AerosolAttenuation option -2."},
        {[](RUN& r) { r.iseasn = 3; }, "Unknown Season option 3."},
        {[](RUN& r) { r.ivulcn = 9; }, "Unknown VolcanoInfo option 9."},
        {[](RUN& r) { r.icld = 12; }, "Unrecognized CloudRainModel option 12."},
        {[](RUN& r) { r.levels[0].aerosolModelType = 3; }, "Unknown AerosolModelType option 3."},
        {[](RUN& r) { r.regions[1].spectra.SetSize(4); },
         "The number of spectra for an aresol region is specified but user supplied spectra is not set."},
        {[](RUN& r) { r.lenn = 2; }, "Unknown PathLength option 2."},
        {[](RUN& r) { r.isourc = 2; }, "Unknown Source option 2."},
        {[](RUN& r) { r.iph = 3; }, "Unknown PhaseFunctionType 3."},
        {[](RUN& r) { r.output.yflag = 'Q'; }, "Unrecognized output y unit Q."},
        {[](RUN& r) { r.output.xflag = 'Q'; }, "Unrecognized output x unit Q."},
        {[](RUN& r) { r.output.flags[0] = 'Q'; }, "Urecognized input x unit Q."},
        {[](RUN& r) { r.output.flags[1] = '8'; }, "Urecognized slit function 8."},
        {[](RUN& r) { r.output.flags[2] = 'Q'; }, "Urecognized FWHMType Q."},
        {[](RUN& r) { r.output.flags[3] = 'Q'; }, "Urecognized DegradeType Q."},
        {[](RUN& r) { r.output.flags[4] = 'Q'; }, "Urecognized bSaveNonDegraded Q."},
        {[](RUN& r) { r.output.flags[5] = 'Q'; }, "Urecognized bUseSavedDegraded Q."},
        {[](RUN& r) { r.output.flags[6] = 'Q'; }, "Urecognized FluxTableType Q."},
        {[](RUN& r) { r.irpt = 2; }, "Unknown repeat flag option 2."},
        // What would not stand on the card as it is.
        {[](RUN& r) { r.h1 = 1e9; }, "H1 of card 3 does not fit its columns: 1e+09."},
        {[](RUN& r) { r.angle = std::nan(""); }, "ANGLE of card 3 cannot be written: nan."},
        {[](RUN& r) { r.h2oUnit = 'x'; }, "H2OSTR of card 1A does not fit its columns: ."},
        {[](RUN& r) { r.output.dlimit = "123456789"; }, "DLIMIT of card 4 does not fit its columns: 123456789."},
        {[](RUN& r) { r.ldatdr = 'T'; }, "LDATDR of card 1A has no place on the card: T."},
        {[](RUN& r) { r.output.mlflx = 3; }, "MLFLX of card 4 has no place on the card: 3."},
    };
    CMemoryFileSystem files;
    for (const auto& test : cases) {
        CModtranTape5File deck;
        deck.New();
        RUN run = CModtranTape5File::DefaultRun();
        run.levels.SetSize(1);
        ASSERT_TRUE(deck.SetRun(0, run) && deck.Save(&files, u"/old"));
        test.spoil(run);
        ASSERT_TRUE(deck.SetRun(0, run));
        EXPECT_FALSE(deck.Save(&files, u"/old"));
        EXPECT_EQ(errorOf(deck), test.message);
        EXPECT_FALSE(deck.Save(&files, u"/new"));
        EXPECT_FALSE(deck.CheckRun(0));
        EXPECT_FALSE(files.FileExists(u"/new"));
        EXPECT_TRUE(deck.Load(&files, u"/old")) << "the old deck stays";
    }
}

TEST(Tape5, RunsAndTheirErrors) {
    CModtranTape5File deck;
    double tptemp = 0.0;
    RUN run;
    EXPECT_FALSE(deck.Save(memoryFile("")));
    EXPECT_EQ(errorOf(deck), "No runs to save.");
    EXPECT_FALSE(deck.GetTempAtFirstBoundary(tptemp));
    EXPECT_EQ(errorOf(deck), "Current run not selected.");
    EXPECT_FALSE(deck.SaveRun(memoryFile("")));
    EXPECT_EQ(errorOf(deck), "Current run not selected.");
    deck.New();
    EXPECT_FALSE(deck.RemoveRun(0));
    EXPECT_EQ(errorOf(deck), "Can't remove last run; use ResetRun instead.");
    for (const auto& bad : std::vector<std::function<bool()>>{
             [&] { return deck.UseRun(-1); }, [&] { return deck.RemoveRun(7); }, [&] { return deck.CopyRun(7); },
             [&] { return deck.GetRun(7, run); }, [&] { return deck.SaveRun(memoryFile(""), 7); }}) {
        EXPECT_FALSE(bad());
        EXPECT_TRUE(errorOf(deck).starts_with("Run ") && errorOf(deck).ends_with(" does not exist."));
    }
    EXPECT_FALSE(deck.Load(u"/nowhere/deck"));
    EXPECT_EQ(errorOf(deck), "Can't open file /nowhere/deck.");
    EXPECT_FALSE(deck.Save(u"/nowhere/deck"));
    EXPECT_EQ(errorOf(deck), "Can't create file /nowhere/deck.");

    // The flags stay a chain; what a repeated run does not write has to be as in the run before.
    ASSERT_TRUE(deck.SetTempAtFirstBoundary(300.0) && deck.SetRepeatFlag(3) && deck.AddRun());
    EXPECT_EQ(deck.CurrentRun(), 1);
    ASSERT_TRUE(deck.SetGeometry(2, 0, 120, 0, 0, 0, 0) && deck.CopyRun(0) && deck.AddRun());
    EXPECT_EQ(deck.nRuns(), 4);
    EXPECT_TRUE(deck.Save(memoryFile(""))) << errorOf(deck);
    ASSERT_TRUE(deck.UseRun(1) && deck.SetTempAtFirstBoundary(290.0));
    EXPECT_FALSE(deck.Save(memoryFile("")));
    EXPECT_EQ(errorOf(deck),
              "Run 1 is repeated in part, but differs from the run before in a card that is not written.");
    ASSERT_TRUE(deck.ResetRun() && deck.GetTempAtFirstBoundary(tptemp));
    EXPECT_EQ(tptemp, 0.0);
    ASSERT_TRUE(deck.RemoveRun(1) && deck.RemoveRun(2));
    EXPECT_TRUE(deck.Save(memoryFile(""))) << errorOf(deck);
    ASSERT_TRUE(deck.UseRun(0) && deck.SetRepeatFlag(0));
    EXPECT_FALSE(deck.Save(memoryFile("")));
    EXPECT_EQ(errorOf(deck), "Run 0 ends the deck, but another follows.");
    CModtranTape5File& same = deck;
    deck = same;
    EXPECT_EQ(deck.nRuns(), 2);
}

TEST(Tape5, ListsAreReachedByIndexAndUnitsByLetter) {
    CModtranTape5File deck;
    deck.New();
    double a, b, c, d, gases[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9}, heavy[13] = {13}, four[4] = {1, 2, 3, 4};
    EXPECT_FALSE(deck.SetLayerBoundary(0, 1, 2, 3, 4, 5, 6));
    EXPECT_EQ(errorOf(deck), "There is no level 0; there are 0.");
    EXPECT_FALSE(deck.SetUserDefinedModel(5000, 0, 0, ""));
    ASSERT_TRUE(deck.SetUserDefinedModel(2, 1, 2, "two") && deck.SetLayerBoundary(1, gases) &&
                deck.SetLayerBoundary(1, heavy) && deck.SetAerosolProfile(1, four, 0.5));
    RUN run;
    ASSERT_TRUE(deck.GetRun(0, run));
    EXPECT_EQ(run.levels[1].wmol[11], 9.0);
    EXPECT_EQ(run.levels[1].ahaze[3], 4.0);
    ASSERT_TRUE(deck.SetAerosolRegion(2, 47, 0.04, "grid") && deck.GetAerosolRegionSpectra(2, 46, a, b, c, d));
    EXPECT_EQ(a, 300.0);
    EXPECT_FALSE(deck.GetAerosolRegionSpectra(2, 47, a, b, c, d));
    const TArray<double> angles{0.0, 90.0, 180.0}, wavelengths{3.0, 5.0};
    ASSERT_TRUE(deck.SetPhaseFunction(angles, wavelengths) && deck.SetPhaseFunction(2, 1, four));
    double f[4] = {};
    ASSERT_TRUE(deck.GetPhaseFunction(2, 1, f));
    EXPECT_EQ(f[3], 4.0);
    EXPECT_FALSE(deck.GetPhaseFunction(2, 2, f));
    int32_t ncralt, ncrspc;
    ASSERT_TRUE(deck.SetCloudProfile(3, 1) && deck.GetCloudProfile(ncralt, ncrspc));
    EXPECT_EQ(std::tie(ncralt, ncrspc), std::make_tuple(3, 1));

    using UNITS = CModtranTape5File::ABUNITS;
    UNITS unit;
    EXPECT_EQ(CModtranTape5File::ABUnits2char(UNITS::RelativeHumidity), 'H');
    EXPECT_EQ(CModtranTape5File::ABUnits2char(UNITS::USStandard), '6');
    EXPECT_EQ(CModtranTape5File::ABUnits2char(static_cast<UNITS>(99)), '?');
    ASSERT_TRUE(CModtranTape5File::ABUnits2char('b', 1, unit));
    EXPECT_EQ(unit, UNITS::Celsius);
    EXPECT_FALSE(CModtranTape5File::ABUnits2char('H', 3, unit));
}

// Random runs: the fields of a saved deck are those that were set, and saving again changes nothing.
TEST(Tape5, RandomRunsSurviveSaveAndLoad) {
    std::mt19937 random(20030211);
    const auto below = [&random](uint32_t n) { return static_cast<int32_t>(random() % n); };
    TArray<TAPE5_FIELD> fields;
    ASSERT_TRUE(ListTape5Fields(memoryFile(deckOf(golden)), fields));
    for (int round = 0; round < 150; ++round) {
        CModtranTape5File deck;
        ASSERT_TRUE(loads(deck, deckOf(golden)));
        RUN run;
        ASSERT_TRUE(deck.GetRun(std::vector{0, 3, 4}[static_cast<size_t>(below(3))], run));
        run.irpt = 0;
        deck.New();
        ASSERT_TRUE(deck.SetRun(0, run));
        for (int change = 0; change < 60; ++change) {
            const TAPE5_FIELD& field = fields[static_cast<uint32_t>(below(fields.size()))];
            CStringMB value = CStringMB::FromInt(below(11) - 1);
            if (field.kind == TAPE5_FIELD::Real) value = CStringMB::FromFormat("%d.%d", below(90), below(2) * 5);
            if (field.kind == TAPE5_FIELD::Character) value = CStringMB(std::string(1, " TFAS1"[below(6)]));
            if (field.kind == TAPE5_FIELD::Text) {
                value = std::vector<const char*>{"", "2", "A+", "USS"}[static_cast<size_t>(below(4))];
            }
            RUN changed = run;
            if (field.name == "IRPT" || !SetTape5Field(changed, field.name, value)) continue;
            ASSERT_TRUE(deck.SetRun(0, changed));
            if (deck.CheckRun(0)) run = changed;  // others are refused by a save
        }
        ASSERT_TRUE(deck.SetRun(0, run));
        const std::string bytes = saved(deck);
        CModtranTape5File again;
        ASSERT_TRUE(loads(again, bytes)) << bytes;
        ASSERT_EQ(saved(again), bytes);
        RUN read;
        ASSERT_TRUE(again.GetRun(0, read));
        TArray<TAPE5_FIELD> now;
        ASSERT_TRUE(ListTape5Fields(memoryFile(bytes), now));
        for (const TAPE5_FIELD& field : now) {
            CStringMB was, is, card;
            ASSERT_TRUE(GetTape5Field(run, field.name, was, card) && GetTape5Field(read, field.name, is, card));
            const std::string name = field.name.c_str();
            if (name.starts_with("ZAER") || name.starts_with("SCALE") || name == "AATEMP" || name == "SURREF" ||
                name == "LDATDR" || name.starts_with("VARSPC") ||
                (name.starts_with("ANGF") && std::string(card.c_str()) == "3C1")) {
                continue;  // written with fewer decimals, or as a blank
            }
            EXPECT_EQ(std::string(was.c_str()), is.c_str()) << name << "\n" << bytes;
        }
    }
}

TEST(Tape5, WarningsOfWhatTheProgramReadsOtherwise) {
    CModtranTape5File deck;
    deck.New();
    const auto warnings = [&deck](const char* name, const char* value, const char* name2 = nullptr,
                                  const char* value2 = nullptr) {
        RUN run = CModtranTape5File::DefaultRun();
        EXPECT_TRUE(SetTape5Field(run, name, value));
        EXPECT_TRUE(name2 == nullptr || SetTape5Field(run, name2, value2));
        deck.SetRun(0, run);
        return warningsOf(saved(deck));
    };
    using List = std::vector<std::string>;
    EXPECT_EQ(warnings("PHI", "45"), List{"4:66 PHI the program looks at columns 71 to 80 and reads 5 instead of 45"});
    EXPECT_TRUE(warnings("PHI", "5").empty());
    EXPECT_EQ(warnings("SOLCON", "-12367.5"),
              List{"2:49 SOLCON the program looks at columns 51 to 60 and reads 2367.5 instead of -12367.5"});
    EXPECT_TRUE(warnings("SOLCON", "1367").empty());
    EXPECT_EQ(warnings("APLUS", "A+", "ZAER11", "123456789"),
              List{"4:1 ZAER11 the program looks at columns 2 to 10 and reads 23456789 instead of 123456789"});
    EXPECT_TRUE(warnings("APLUS", "A+", "ZAER11", "12345678").empty());
    EXPECT_EQ(warnings("ICLD", "5", "IHAZE", "0").size(), 1u);
    EXPECT_EQ(warnings("IMULT", "1", "ITYPE", "1").size(), 1u);
    std::string bytes = (deck.New(), saved(deck));
    bytes.replace(bytes.find("    60.000"), 10, "        60") += "the end";
    EXPECT_EQ(warningsOf(bytes), (List{"4:21 ANGLE \"60\" has no decimal point and reads as 0.06",
                                       "7:0  lines behind the end of the deck are never read"}));
    EXPECT_FALSE(warningsOf(deckOf(golden)).empty());
}

TEST(Tape5, CodesThatAreTakenOtherwiseAreWarnedOf) {
    const struct {
        std::string meant, found;
        std::vector<std::string> warnings;
    } cases[] = {
        {"    0.000     0.000     0.000    2    0    0    0    0",
         "    0.000     0.000     0.000    2    0    3    0    0",
         {"6:51 IVUL1.1 of IHA1, ICLD1 and IVUL1 the first that is not 0 counts; this 3 does not"}},
        {"   47    2    0    0",
         "    1    2    0    0",
         {"7:1 IREG1 1 is taken as 47 points; with USS some builds of the program read 1 point"}},
        {"   47    2    0    0", "   47    2    0   -5", {"7:16 IREG4 -5 is taken as 0"}},
    };
    CModtranTape5File deck;
    deck.New();
    RUN run = CModtranTape5File::DefaultRun();
    for (const char* set : {"MODEL=7", "IM=1", "ML=1", "IRD2=1", "IHA1.1=2", "ARUSS=USS", "IREG1=47", "IREG2=2"}) {
        const std::string text = set;
        const size_t equals = text.find('=');
        ASSERT_TRUE(SetTape5Field(run, CStringMB(text.substr(0, equals)), CStringMB(text.substr(equals + 1)))) << set;
    }
    ASSERT_TRUE(deck.SetRun(0, run));
    const std::string plain = saved(deck);
    ASSERT_EQ(warningsOf(plain), std::vector<std::string>{});
    for (const auto& c : cases) {
        std::string bytes = plain;
        const size_t at = bytes.find(c.meant);
        ASSERT_NE(at, bytes.npos) << bytes;
        EXPECT_EQ(warningsOf(bytes.replace(at, c.meant.size(), c.found)), c.warnings);
    }
}

TEST(Tape5, RealDecksAreReadAndSavedWithTheSameFields) {
    const std::string folder = std::string(QV_DATA_DIR) + "/modtran";
    if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no real decks here";
    int decks = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".tape5") continue;
        ++decks;
        CModtranTape5File deck;
        ASSERT_TRUE(deck.Load(CString(entry.path().string()).c_str())) << entry.path() << ": " << errorOf(deck);
        const std::string bytes = saved(deck);
        CModtranTape5File again;
        ASSERT_TRUE(loads(again, bytes));
        EXPECT_EQ(saved(again), bytes);
    }
    EXPECT_GT(decks, 0);
}

}  // namespace qv::test
