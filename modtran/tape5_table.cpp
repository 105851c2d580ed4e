// The table of cards, in the order of a deck. Columns are the published ones, formats those that are written.
#include "modtran/tape5_table.h"

#include "modtran/tape5_texts.h"

namespace qv::tape5 {

namespace {

using File = CModtranTape5File;

#define QV_AT(expression) [](RUN& r, Index x) { return (void)r, (void)x, &(expression); }
#define QV_WHEN(expression) [](const RUN& r, uint32_t i) -> bool { return (void)r, (void)i, expression; }
#define QV_COUNT(expression) [](const RUN& r, uint32_t i) -> uint32_t { return (void)r, (void)i, expression; }

constexpr auto always = QV_WHEN(true);

bool isTrue(char flag) { return flag == 'T' || flag == 't'; }
bool isLogical(char flag) { return isTrue(flag) || flag == 'F' || flag == 'f'; }

// Conditions ----------------------------------------------------------------------------------------------------------

bool hasAdjustments(const RUN& r) { return r.aplus.view() == "A+" && r.ihaze >= 0 && r.ihaze != 7 && r.icld != 11; }
// Without aerosols (IHAZE 0) the program takes clouds out, and reads no card of theirs.
bool hasCirrus(const RUN& r) { return r.ihaze != 0 && (r.icld == 18 || r.icld == 19); }
bool hasClouds(const RUN& r) { return r.ihaze != 0 && r.icld >= 1 && r.icld <= 10; }
bool hasProfile(const RUN& r) { return (r.model == 0 || r.model == 7 || r.model == 8) && r.im == 1; }
bool hasOwnSpectra(const RUN& r) { return r.aruss.view() == "USS"; }
bool hasRegions(const RUN& r) { return r.ihaze == 7 || r.icld == 11 || hasOwnSpectra(r); }
bool hasPath(const RUN& r) { return r.iemsct >= 0 && r.iemsct <= 2; }
bool hasPhase(const RUN& r) { return r.iemsct == 2 && r.iph == 1; }
bool hasPhaseTables(const RUN& r) { return hasPhase(r) && !r.phaseWavelengths.empty(); }

// Lengths of lists ----------------------------------------------------------------------------------------------------

#define QV_LIST(list)                                                                              \
    DerivedInteger {                                                                               \
        [](const RUN& r, Index x) { return (void)x, static_cast<int32_t>((list).size()); },        \
            [](RUN& r, Index x, int32_t count) { return (void)x, resize((list), int64_t{count}); } \
    }

template <class T>
int32_t codeOf(const TArray<T>& list, int32_t code) {
    return list.empty() ? code : static_cast<int32_t>(list.size());
}
/// A count below `least` is a code that stands for no list.
template <class T>
bool setCode(TArray<T>& list, int32_t& code, int32_t count, int32_t least) {
    if (!resize(list, count < least ? 0 : int64_t{count})) return false;
    if (count < least) code = count;
    return true;
}
constexpr DerivedInteger ncralt{[](const RUN& r, Index) { return codeOf(r.boundaries, r.ncralt); },
                                [](RUN& r, Index, int32_t count) { return setCloudAltitudes(r, count); }};
constexpr DerivedInteger ncrspc{[](const RUN& r, Index) { return codeOf(r.cloudSpectra, r.ncrspc); },
                                [](RUN& r, Index, int32_t count) { return setCloudWavelengths(r, count); }};

template <uint32_t region>
constexpr DerivedInteger ireg{
    [](const RUN& r, Index) {
        const auto points = static_cast<int32_t>(r.regions[region].spectra.size());
        return points == static_cast<int32_t>(gridPoints) && !hasOwnSpectra(r) ? 1 : points;
    },
    [](RUN& r, Index, int32_t count) {
        if (count <= 0) return setPoints(r.regions[region], 0);
        return setPoints(r.regions[region], hasOwnSpectra(r) && count > 1 ? static_cast<uint32_t>(count) : gridPoints);
    }};

constexpr DerivedInteger nangls{[](const RUN& r, Index) { return static_cast<int32_t>(r.phaseAngles.size()); },
                                [](RUN& r, Index, int32_t count) {
                                    return setPhaseSizes(r, count < 0 ? 0 : static_cast<uint32_t>(count),
                                                         r.phaseWavelengths.size());
                                }};
constexpr DerivedInteger nwlf{[](const RUN& r, Index) { return static_cast<int32_t>(r.phaseWavelengths.size()); },
                              [](RUN& r, Index, int32_t count) {
                                  return setPhaseSizes(r, r.phaseAngles.size(),
                                                       count < 0 ? 0 : static_cast<uint32_t>(count));
                              }};

/// IHA1, ICLD1 and IVUL1 (types 0, 1, 2): the first that is not 0 counts.
template <int32_t type>
constexpr DerivedInteger levelModel{[](const RUN& r, Index x) {
                                        const File::LEVEL& level = r.levels[x.i];
                                        return level.aerosolModelType == type ? level.aerosolModel : 0;
                                    },
                                    [](RUN& r, Index x, int32_t code) {
                                        File::LEVEL& level = r.levels[x.i];
                                        if (code != 0 && (level.aerosolModel == 0 || level.aerosolModelType >= type)) {
                                            level.aerosolModelType = type;
                                            level.aerosolModel = code;
                                        } else if (code == 0 && level.aerosolModelType == type) {
                                            level.aerosolModelType = level.aerosolModel = 0;
                                        }
                                        return true;
                                    },
                                    false};

const char16_t* spectraComplaint(const RUN& r) {
    if (hasOwnSpectra(r)) return nullptr;
    for (const File::REGION& region : r.regions) {
        if (!region.spectra.empty() && region.spectra.size() != gridPoints) {
            return u"The number of spectra for an aresol region is specified but user supplied spectra is not set.";
        }
    }
    return nullptr;
}

// Columns that depend on the line -------------------------------------------------------------------------------------

char columnOf(std::string_view line, size_t column) { return column <= line.size() ? line[column - 1] : ' '; }

/// SOLCON is written from column 49, where decks with the flag LDATDR in column 50 have it from 51.
Columns solconOn(std::string_view line, const RUN&, bool isFive) {
    return {static_cast<uint8_t>(isFive || isLogical(columnOf(line, 50)) ? 51 : 49), 60};
}
Columns ldatdrOn(std::string_view line, const RUN&, bool) {
    return isLogical(columnOf(line, 50)) ? Columns{50, 50} : Columns{};
}

/// The radius stands behind a title of 20 columns; a written title reaches column 80.
bool hasRadius(std::string_view line, const RUN& r, bool isFive) {
    if (isFive) return true;
    if (r.model != 8 || line.size() < 36) return false;
    const std::string_view radius = trimmed(line.substr(35, 10));
    return !radius.empty() && radius.find_first_not_of("0123456789.+-EeDd") == radius.npos &&
           (line.size() <= 45 || trimmed(line.substr(45)).empty());
}
Columns hmodelOn(std::string_view line, const RUN& r, bool isFive) {
    return {16, static_cast<uint8_t>(hasRadius(line, r, isFive) ? 35 : 80)};
}
Columns reeOn(std::string_view line, const RUN& r, bool isFive) {
    return hasRadius(line, r, isFive) && r.model == 8 ? Columns{36, 45} : Columns{};
}

// Codes ---------------------------------------------------------------------------------------------------------------

constexpr int32_t modelCodes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
constexpr int32_t pathTypes[] = {1, 2, 3};
constexpr int32_t executionModes[] = {0, 1, 2, 3};
constexpr int32_t scatterings[] = {-1, 0, 1};
constexpr int32_t zeroToTwo[] = {0, 1, 2};
constexpr int32_t zeroOrOne[] = {0, 1};
constexpr int32_t hazeCodes[] = {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
constexpr int32_t volcanicCodes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
constexpr int32_t cloudCodes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 18, 19};
constexpr int32_t repeatFlags[] = {0, 1, -1, 3, -3, 4, -4};

// Cards 1 to 2B -------------------------------------------------------------------------------------------------------

constexpr Field card1[] = {
    Field("MODTRN", 1, 1, QV_AT(r.modtrn), "band model").only(u"Unrecognized modtran model %c.", "TMCKFL "),
    Field("SPEED", 2, 2, QV_AT(r.speed), "speed of the correlated-k model")
        .only(u"Unrecognized modtran correlation k speed option %c.", "SM1 "),
    Field("MODEL", 3, 5, QV_AT(r.model), "atmosphere").only(u"Unrecognized atmosphere model %d.", modelCodes),
    Field("ITYPE", 6, 10, QV_AT(r.itype), "kind of path").only(u"Unrecognized LOS Type %d.", pathTypes),
    Field("IEMSCT", 11, 15, QV_AT(r.iemsct), "execution mode").only(u"Unrecognized Execution Mode %d.", executionModes),
    Field("IMULT", 16, 20, QV_AT(r.imult), "multiple scattering")
        .only(u"Unrecognized Multiple Scattering option %d,", scatterings),
    Field("M1", 21, 25, QV_AT(r.m[0]), "model of temperature and pressure"),
    Field("M2", 26, 30, QV_AT(r.m[1]), "model of H2O"),
    Field("M3", 31, 35, QV_AT(r.m[2]), "model of O3"),
    Field("M4", 36, 40, QV_AT(r.m[3]), "model of CH4"),
    Field("M5", 41, 45, QV_AT(r.m[4]), "model of N2O"),
    Field("M6", 46, 50, QV_AT(r.m[5]), "model of CO"),
    Field("MDEF", 51, 55, QV_AT(r.mdef), "other gases").only(u"Unrecognized Heavy Spiecies option %d.", zeroToTwo),
    Field("IM", 56, 60, QV_AT(r.im), "read the user's atmosphere")
        .only(u"Unrecognized Atmosphere Cache option %d.", zeroOrOne),
    Field("NOPRNT", 61, 65, QV_AT(r.noprnt), "amount of output"),
    Field("TPTEMP", 66, 73, QV_AT(r.tptemp), "temperature at the first boundary [K]").implied(3),
    Field("SURREF", 74, 80, Access(surrefText), "surface: albedo, BRDF or LAMBER"),
    Field("SURFACE", 0, 0, QV_AT(r.surface), "0 albedo, 1 BRDF, 2 LAMBER")
        .only(u"Unrecognized Surface Reflectance option %d.", zeroToTwo),
    Field("ALBEDO", 0, 0, QV_AT(r.albedo), "albedo, or minus the number of a curve"),
};

constexpr Field card1A[] = {
    Field("DIS", 1, 1, QV_AT(r.dis), "scattering algorithm")
        .only(u"Unrecognized Scattering Algorithm option %c.", "TSF "),
    Field("DISAZM", 2, 2, QV_AT(r.disazm), "azimuth dependence")
        .only(u"Unrecognized Asimuth Dependance option %c.", "TF "),
    Field("NSTR", 3, 5, QV_AT(r.nstr), "streams of DISORT"),
    Field("LSUN", 6, 6, QV_AT(r.lsun), "solar irradiance from a file")
        .only(u"Unrecognized bSolarIrradianceFile option %c.", "TF "),
    Field("ISUN", 7, 10, QV_AT(r.isun), "smoothing of the solar irradiance [cm-1]"),
    Field("CO2MX", 11, 20, QV_AT(r.co2mx), "CO2 [ppmv]").implied(5),
    Field("H2OSTR", 21, 30, Access(waterText), "water column"),
    Field("O3STR", 31, 40, Access(ozoneText), "ozone column"),
    Field("LSUNFL", 42, 42, QV_AT(r.lsunfl), "card 1A1 names the solar file")
        .only(u"Unrecognized bSolarIrradianceUserFile option %c.", "TF 1234"),
    Field("LBMNAM", 44, 44, QV_AT(r.lbmnam), "card 1A2 names the band model file")
        .only(u"Unrecognized bBandModelFile option %c.", "TF "),
    Field("LFLTNM", 46, 46, QV_AT(r.lfltnm), "card 1A3 names the filter file")
        .only(u"Unrecognized bInstrumentFilterFile option %c.", "TF "),
    Field("H2OAER", 48, 48, QV_AT(r.h2oaer), "aerosols follow the water column")
        .only(u"Unrecognized bUpdateH2OAerosol option %c.", "TF "),
    Field("LDATDR", 50, 50, QV_AT(r.ldatdr), "card 1A4 names the data folder").from(ldatdrOn).unwritten(),
    Field("SOLCON", 51, 60, QV_AT(r.solcon), "solar constant [W/m2], or minus a factor").implied(3).from(solconOn),
};

constexpr Field card1A1[] = {Field("SUNFL2", 1, 80, QV_AT(r.sunfl2), "solar irradiance: 1 to 4 or a file")};
constexpr Field card1A2[] = {Field("BMNAME", 1, 80, QV_AT(r.bmname), "band model file")};
constexpr Field card1A3[] = {Field("FILTNM", 1, 80, QV_AT(r.filtnm), "filter file")};
constexpr Field card1A4[] = {Field("DATDIR", 1, 80, QV_AT(r.datdir), "folder of the data files")};

constexpr Field card2[] = {
    Field("APLUS", 1, 2, QV_AT(r.aplus), "A+: card 2A+ follows"),
    Field("IHAZE", 3, 5, QV_AT(r.ihaze), "aerosol").only(u"Unknown AerosolAttenuation option %d.", hazeCodes),
    Field("CNOVAM", 6, 6, QV_AT(r.cnovam), "N: NOVAM"),
    Field("ISEASN", 7, 10, QV_AT(r.iseasn), "season").only(u"Unknown Season option %d.", zeroToTwo),
    Field("ARUSS", 11, 13, QV_AT(r.aruss), "USS: the user's aerosol spectra"),
    Field("IVULCN", 14, 15, QV_AT(r.ivulcn), "stratospheric aerosol")
        .only(u"Unknown VolcanoInfo option %d.", volcanicCodes),
    Field("ICSTL", 16, 20, QV_AT(r.icstl), "air mass"),
    Field("ICLD", 21, 25, QV_AT(r.icld), "cloud or rain").only(u"Unrecognized CloudRainModel option %d.", cloudCodes),
    Field("IVSA", 26, 30, QV_AT(r.ivsa), "Army vertical structure algorithm"),
    Field("VIS", 31, 40, QV_AT(r.vis), "range of sight [km]").implied(5),
    Field("WSS", 41, 50, QV_AT(r.wss), "wind [m/s]").implied(5),
    Field("WHH", 51, 60, QV_AT(r.whh), "wind, mean of 24 h [m/s]").implied(5),
    Field("RAINRT", 61, 70, QV_AT(r.rainrt), "rain [mm/h]").implied(5),
    Field("GNDALT", 71, 80, QV_AT(r.gndalt), "altitude of the ground [km]").implied(5),
};

// Written one column in front of the published one; the reader's columns hold both.
constexpr Field card2Aplus1[] = {
    Field("ZAER11", 2, 10, QV_AT(r.zaer1[0]), "base of aerosol 1 [km]").from(1, 10),
    Field("ZAER12", 12, 20, QV_AT(r.zaer2[0]), "top [km]").from(11, 20),
    Field("SCALE1", 22, 30, QV_AT(r.scale[0]), "factor").from(21, 30),
    Field("ZAER21", 52, 60, QV_AT(r.zaer1[1]), "base of aerosol 2 [km]").from(51, 60),
    Field("ZAER22", 62, 70, QV_AT(r.zaer2[1]), "top [km]").from(61, 70),
    Field("SCALE2", 72, 80, QV_AT(r.scale[1]), "factor").from(71, 80),
};
constexpr Field card2Aplus2[] = {
    Field("ZAER31", 2, 10, QV_AT(r.zaer1[2]), "base of aerosol 3 [km]").from(1, 10),
    Field("ZAER32", 12, 20, QV_AT(r.zaer2[2]), "top [km]").from(11, 20),
    Field("SCALE3", 22, 30, QV_AT(r.scale[2]), "factor").from(21, 30),
    Field("ZAER41", 52, 60, QV_AT(r.zaer1[3]), "base of aerosol 4 [km]").from(51, 60),
    Field("ZAER42", 62, 70, QV_AT(r.zaer2[3]), "top [km]").from(61, 70),
    Field("SCALE4", 72, 80, QV_AT(r.scale[3]), "factor").from(71, 80),
};

constexpr Field cthik = Field("CTHIK", 1, 8, QV_AT(r.clouds.cthik), "thickness [km]").implied(3);
constexpr Field calt = Field("CALT", 9, 16, QV_AT(r.clouds.calt), "base [km]").implied(3);
constexpr Field cext = Field("CEXT", 17, 24, QV_AT(r.clouds.cext), "extinction [1/km]").implied(3);
constexpr Field card2ACirrus[] = {cthik, calt, cext};
constexpr Field card2AClouds[] = {
    cthik,
    calt,
    cext,
    Field("NCRALT", 25, 28, Access(ncralt), "altitudes on card 2E1"),
    Field("NCRSPC", 29, 32, Access(ncrspc), "wavelengths on card 2E2"),
    Field("CWAVLN", 33, 40, QV_AT(r.clouds.cwavln), "wavelength of CEXT [microns]").implied(3),
    Field("CCOLWD", 41, 48, QV_AT(r.clouds.ccolwd), "column of droplets [km g/m3]").implied(3),
    Field("CCOLIP", 49, 56, QV_AT(r.clouds.ccolip), "column of ice [km g/m3]").implied(3),
    Field("CHUMID", 57, 64, QV_AT(r.clouds.chumid), "relative humidity [%]").implied(3),
    Field("ASYMWD", 65, 72, QV_AT(r.clouds.asymwd), "asymmetry of droplets").implied(3),
    Field("ASYMIP", 73, 80, QV_AT(r.clouds.asymip), "asymmetry of ice").implied(3),
};
constexpr Field card2B[] = {
    Field("ZCVSA", 1, 10, QV_AT(r.zcvsa), "cloud ceiling [km]").implied(3),
    Field("ZTVSA", 11, 20, QV_AT(r.ztvsa), "thickness of cloud or fog [km]").implied(3),
    Field("ZINVSA", 21, 30, QV_AT(r.zinvsa), "height of the inversion [km]").implied(3),
};

constexpr char fileName[] = "%-80s\r\n";
constexpr Card driverCards[] = {
    {"1", "main options", "%c%c%3d%5d%5d%5d%5d%5d%5d%5d%5d%5d%5d%5d%5d%8.3f%s\r\n", card1, always, Layout::main},
    {"1A", "options of the calculation", "%c%c%3d%c%4d%10.3f%s%s %c %c %c %c%10.3f\r\n", card1A, always,
     Layout::driver},
    {"1A1", "solar irradiance file", fileName, card1A1, QV_WHEN(isTrue(r.lsunfl))},
    {"1A2", "band model file", fileName, card1A2, QV_WHEN(isTrue(r.lbmnam))},
    {"1A3", "instrument filter file", fileName, card1A3, QV_WHEN(isTrue(r.lfltnm))},
    {"1A4", "data folder", nullptr, card1A4, QV_WHEN(isTrue(r.ldatdr))},
    {"2", "aerosols and clouds", "%s%3d%c%4d%s%2d%5d%5d%5d%10.3f%10.3f%10.3f%10.3f%10.3f\r\n", card2, always},
    {"2A+", "moved aerosols 1 and 2", "%9.0f %9.0f %9.0f                     %9.0f %9.0f %9.0f\r\n", card2Aplus1,
     QV_WHEN(hasAdjustments(r))},
    {"2A+", "moved aerosols 3 and 4", "%9.0f %9.0f %9.0f                     %9.0f %9.0f %9.0f\r\n", card2Aplus2,
     QV_WHEN(hasAdjustments(r))},
    {"2A", "cirrus", "%8.3f%8.3f%8.3f\r\n", card2ACirrus, QV_WHEN(hasCirrus(r))},
    {"2A", "clouds",
     "%8.3f%8.3f%8.3f%4d%4d%8.3f"
     "%8.3f%8.3f%8.3f%8.3f%8.3f\r\n",
     card2AClouds, QV_WHEN(hasClouds(r))},
    {"2B", "Army vertical structure", "%10.3f%10.3f%10.3f\r\n", card2B, QV_WHEN(r.ivsa == 1)},
};

// Cards 2C ------------------------------------------------------------------------------------------------------------

constexpr Field card2C[] = {
    Field("ML", 1, 5, Access(QV_LIST(r.levels)), "levels"),
    Field("IRD1", 6, 10, QV_AT(r.ird1), "1: card 2C2"),
    Field("IRD2", 11, 15, QV_AT(r.ird2), "1 or 2: card 2C3"),
    Field("HMODEL", 16, 35, QV_AT(r.hmodel), "title").from(hmodelOn),
    Field("REE", 36, 45, QV_AT(r.ree), "radius of the Earth [km]").from(reeOn).unwritten(),
};

#define QV_LEVEL(member) QV_AT(r.levels[x.i].member)
#define QV_JCHAR(number, what) Field("JCHAR" #number, 60 + number, 60 + number, QV_LEVEL(jchar[number - 1]), what)
constexpr Field card2C1[] = {
    Field("ZM", 1, 10, QV_LEVEL(zm), "altitude [km]").implied(3),
    Field("P", 11, 20, QV_LEVEL(p), "pressure").implied(3),
    Field("T", 21, 30, QV_LEVEL(t), "temperature").implied(3),
    Field("WMOL1", 31, 40, QV_LEVEL(wmol[0]), "H2O").implied(3),
    Field("WMOL2", 41, 50, QV_LEVEL(wmol[1]), "CO2").implied(3),
    Field("WMOL3", 51, 60, QV_LEVEL(wmol[2]), "O3").implied(3),
    QV_JCHAR(1, "unit of the pressure"),
    QV_JCHAR(2, "unit of the temperature"),
    QV_JCHAR(3, "unit of H2O"),
    QV_JCHAR(4, "unit of CO2"),
    QV_JCHAR(5, "unit of O3"),
    QV_JCHAR(6, "unit of N2O"),
    QV_JCHAR(7, "unit of CO"),
    QV_JCHAR(8, "unit of CH4"),
    QV_JCHAR(9, "unit of O2"),
    QV_JCHAR(10, "unit of NO"),
    QV_JCHAR(11, "unit of SO2"),
    QV_JCHAR(12, "unit of NO2"),
    QV_JCHAR(13, "unit of NH3"),
    QV_JCHAR(14, "unit of HNO3"),
    Field("JCHARX", 76, 76, QV_LEVEL(jcharx), "unit of the heavy species"),
};
#define QV_GAS(name, array, index, first, last, what) Field(name, first, last, QV_LEVEL(array[index]), what).implied(3)
constexpr Field card2C2a[] = {
    QV_GAS("WMOL4", wmol, 3, 1, 10, "N2O"),   QV_GAS("WMOL5", wmol, 4, 11, 20, "CO"),
    QV_GAS("WMOL6", wmol, 5, 21, 30, "CH4"),  QV_GAS("WMOL7", wmol, 6, 31, 40, "O2"),
    QV_GAS("WMOL8", wmol, 7, 41, 50, "NO"),   QV_GAS("WMOL9", wmol, 8, 51, 60, "SO2"),
    QV_GAS("WMOL10", wmol, 9, 61, 70, "NO2"), QV_GAS("WMOL11", wmol, 10, 71, 80, "NH3"),
};
constexpr Field card2C2b[] = {QV_GAS("WMOL12", wmol, 11, 1, 10, "HNO3")};
constexpr Field card2C2Xa[] = {
    QV_GAS("WMOLX1", wmolx, 0, 1, 10, "CFC-11"),   QV_GAS("WMOLX2", wmolx, 1, 11, 20, "CFC-12"),
    QV_GAS("WMOLX3", wmolx, 2, 21, 30, "CFC-13"),  QV_GAS("WMOLX4", wmolx, 3, 31, 40, "CFC-14"),
    QV_GAS("WMOLX5", wmolx, 4, 41, 50, "CFC-22"),  QV_GAS("WMOLX6", wmolx, 5, 51, 60, "CFC-113"),
    QV_GAS("WMOLX7", wmolx, 6, 61, 70, "CFC-114"), QV_GAS("WMOLX8", wmolx, 7, 71, 80, "CFC-115"),
};
constexpr Field card2C2Xb[] = {
    QV_GAS("WMOLX9", wmolx, 8, 1, 10, "ClONO2"),    QV_GAS("WMOLX10", wmolx, 9, 11, 20, "HNO4"),
    QV_GAS("WMOLX11", wmolx, 10, 21, 30, "CHCl2F"), QV_GAS("WMOLX12", wmolx, 11, 31, 40, "CCl4"),
    QV_GAS("WMOLX13", wmolx, 12, 41, 50, "N2O5"),
};
constexpr Field card2C3One[] = {
    Field("AHAZE1", 11, 20, QV_LEVEL(ahaze[0]), "extinction at 0.55 microns [1/km]").implied(3),
    Field("EQLWCZ", 21, 30, QV_LEVEL(eqlwcz), "liquid water [g/m3]").implied(3),
    Field("RRATZ", 31, 40, QV_LEVEL(rratz), "rain [mm/h]").implied(3),
    Field("IHA1", 41, 45, Access(levelModel<0>), "aerosol, as IHAZE"),
    Field("ICLD1", 46, 50, Access(levelModel<1>), "cloud, as ICLD"),
    Field("IVUL1", 51, 55, Access(levelModel<2>), "stratospheric aerosol, as IVULCN"),
    Field("ISEA1", 56, 60, QV_LEVEL(isea1), "season, as ISEASN"),
    Field("ICHR", 61, 65, QV_LEVEL(ichr), "1: boundary between regions"),
    Field("AEROSOLMODELTYPE", 0, 0, QV_LEVEL(aerosolModelType), "0 IHA1, 1 ICLD1, 2 IVUL1 carries the model")
        .only(u"Unknown AerosolModelType option %d.", zeroToTwo),
    Field("AEROSOLMODEL", 0, 0, QV_LEVEL(aerosolModel), "code of the model"),
};
constexpr Field card2C3Four[] = {
    Field("AHAZE1", 11, 20, QV_LEVEL(ahaze[0]), "extinction of aerosol 1 at 0.55 microns [1/km]"),
    Field("RRATZ", 31, 40, QV_LEVEL(rratz), "rain [mm/h]"),
    Field("AHAZE2", 41, 50, QV_LEVEL(ahaze[1]), "extinction of aerosol 2 [1/km]"),
    Field("AHAZE3", 51, 60, QV_LEVEL(ahaze[2]), "extinction of aerosol 3 [1/km]"),
    Field("AHAZE4", 61, 70, QV_LEVEL(ahaze[3]), "extinction of aerosol 4 [1/km]"),
};

constexpr Card profileCards[] = {{"2C", "user's profile", "%5d%5d%5d%65s\r\n", card2C, QV_WHEN(hasProfile(r))}};
constexpr Card levelCards[] = {
    {"2C1", "level", "%10.3f%10s%10s%10s%10s%10s%c%c%c%c%c%c%c%c%c%c%c%c%c%c %c\r\n", card2C1, QV_WHEN(hasProfile(r))},
    {"2C2", "minor gases", "%10s%10s%10s%10s%10s%10s%10s%10s\r\n", card2C2a, QV_WHEN(hasProfile(r) && r.ird1 == 1)},
    {"2C2", "nitric acid", "%10s\r\n", card2C2b, QV_WHEN(hasProfile(r) && r.ird1 == 1)},
    {"2C2X", "heavy species", "%10s%10s%10s%10s%10s%10s%10s%10s\r\n", card2C2Xa,
     QV_WHEN(hasProfile(r) && r.ird1 == 1 && r.mdef == 2)},
    {"2C2X", "heavy species", "%10s%10s%10s%10s%10s\r\n", card2C2Xb,
     QV_WHEN(hasProfile(r) && r.ird1 == 1 && r.mdef == 2)},
    {"2C3", "aerosol of the level",
     "          %10.3f%10.3f%10.3f%5d%5d%5d"
     "%5d%5d\r\n",
     card2C3One, QV_WHEN(hasProfile(r) && r.ird2 == 1)},
    {"2C3", "four aerosols of the level",
     "          %10.3f          %10.3f"
     "%10.3f%10.3f%10.3f\r\n",
     card2C3Four, QV_WHEN(hasProfile(r) && r.ird2 == 2)},
};

// Cards 2D and 2E -----------------------------------------------------------------------------------------------------

constexpr Field card2D[] = {
    Field("IREG1", 1, 5, Access(ireg<0>), "spectra of region 1"),
    Field("IREG2", 6, 10, Access(ireg<1>), "spectra of region 2"),
    Field("IREG3", 11, 15, Access(ireg<2>), "spectra of region 3"),
    Field("IREG4", 16, 20, Access(ireg<3>), "spectra of region 4"),
};
constexpr Field card2D1[] = {
    Field("AWCCON", 1, 10, QV_AT(r.regions[x.i].awccon), "extinction to liquid water [km g/m3]").implied(3),
    Field("TITLE", 11, 82, QV_AT(r.regions[x.i].title), "title"),
};
#define QV_POINT(member) QV_AT(r.regions[x.i].spectra[x.j].member)
constexpr Field card2D2[] = {
    Field("VARSPC", 1, 6, QV_POINT(varspc), "wavelength [microns]").implied(2),
    Field("EXTC", 7, 13, QV_POINT(extc), "extinction").implied(5),
    Field("ABSC", 14, 20, QV_POINT(absc), "absorption").implied(5),
    Field("ASYM", 21, 26, QV_POINT(asym), "asymmetry").implied(4),
};
constexpr Field card2E1[] = {
    Field("ZCLD", 1, 10, QV_AT(r.boundaries[x.i].zcld), "altitude above ground [km]").implied(5),
    Field("CLD", 11, 20, QV_AT(r.boundaries[x.i].cld), "droplets [g/m3]").implied(5),
    Field("CLDICE", 21, 30, QV_AT(r.boundaries[x.i].cldice), "ice [g/m3]").implied(5),
    Field("RR", 31, 40, QV_AT(r.boundaries[x.i].rr), "rain [mm/h]").implied(5),
};
#define QV_CLOUD(member) QV_AT(r.cloudSpectra[x.i].member)
constexpr Field card2E2[] = {
    Field("WAVLEN", 1, 10, QV_CLOUD(wavlen), "wavelength [microns]").implied(5),
    Field("EXTC6", 11, 20, QV_CLOUD(extc[0]), "extinction of droplets [m3/(km g)]").implied(5),
    Field("ABSC6", 21, 30, QV_CLOUD(absc[0]), "absorption of droplets").implied(5),
    Field("ASYM6", 31, 40, QV_CLOUD(asym[0]), "asymmetry of droplets").implied(5),
    Field("EXTC7", 41, 50, QV_CLOUD(extc[1]), "extinction of ice [m3/(km g)]").implied(5),
    Field("ABSC7", 51, 60, QV_CLOUD(absc[1]), "absorption of ice").implied(5),
    Field("ASYM7", 61, 70, QV_CLOUD(asym[1]), "asymmetry of ice").implied(5),
};
constexpr Field cardCfile[] = {Field("CFILE", 1, 80, QV_AT(r.cfile), "cloud data file")};
constexpr Field cardCldtyp[] = {Field("CLDTYP", 1, 80, QV_AT(r.cldtyp), "type of water cloud")};
constexpr Field cardCirtyp[] = {Field("CIRTYP", 1, 80, QV_AT(r.cirtyp), "type of ice cloud")};

bool hasCloudTexts(const RUN& r) { return hasClouds(r) && r.cloudSpectra.empty() && r.ncrspc == 1; }

constexpr Card regionsCards[] = {{"2D", "user's aerosols", "%5d%5d%5d%5d\r\n", card2D, QV_WHEN(hasRegions(r)),
                                  Layout::plain, nullptr, 1, 0, nullptr, spectraComplaint}};
constexpr Card regionCards[] = {
    {"2D1", "aerosol region", "%10s%-72s\r\n", card2D1, QV_WHEN(hasRegions(r) && !r.regions[i].spectra.empty())},
    {"2D2", "optical constants", "%6.2f%7.4f%7.4f%6.3f", card2D2, QV_WHEN(hasRegions(r)), Layout::plain,
     QV_COUNT(r.regions[i].spectra.size()), 3, 26},
};
constexpr Card boundaryCards[] = {
    {"2E1", "altitude of the cloud", "%10.5f%10.5f%10.5f%10.5f\r\n", card2E1, QV_WHEN(hasClouds(r))}};
constexpr Card cloudCards[] = {{"2E2", "wavelength of the cloud", "%10.5f%10.5f%10.5f%10.5f%10.5f%10.5f%10.5f\r\n",
                                card2E2, QV_WHEN(hasClouds(r))}};
constexpr Card cloudTextCards[] = {
    {"2E2", "cloud data file", fileName, cardCfile, QV_WHEN(hasCloudTexts(r))},
    {"2E2", "type of water cloud", fileName, cardCldtyp, QV_WHEN(hasCloudTexts(r))},
    {"2E2", "type of ice cloud", fileName, cardCirtyp, QV_WHEN(hasCloudTexts(r))},
};

// Cards 3 -------------------------------------------------------------------------------------------------------------

constexpr Field h1 = Field("H1", 1, 10, QV_AT(r.h1), "altitude of the observer [km]").implied(3);
constexpr Field h2 = Field("H2", 11, 20, QV_AT(r.h2), "final altitude or tangent height [km]").implied(3);
constexpr char16_t unknownSource[] = u"Unknown Source option %d.";

constexpr Field card3[] = {
    h1,
    h2,
    Field("ANGLE", 21, 30, QV_AT(r.angle), "zenith angle at H1 [degrees]").implied(3),
    Field("RANGE", 31, 40, QV_AT(r.range), "length of the path [km]").implied(3),
    Field("BETA", 41, 50, QV_AT(r.beta), "angle at the Earth's centre [degrees]").implied(3),
    Field("RO", 51, 60, QV_AT(r.ro), "radius of the Earth [km]").implied(3),
    Field("LENN", 61, 65, QV_AT(r.lenn), "1: long path").only(u"Unknown PathLength option %d.", zeroOrOne),
    Field("PHI", 71, 80, QV_AT(r.phi), "zenith angle at H2 [degrees]").implied(3).from(66, 80),
};
constexpr Field card3Solar[] = {
    h1,
    h2,
    Field("ANGLE", 21, 30, QV_AT(r.angle), "zenith angle of sun or moon at H1 [degrees]").implied(3),
    Field("IDAY", 31, 35, QV_AT(r.iday), "day of the year"),
    Field("RO", 41, 50, QV_AT(r.ro), "radius of the Earth [km]").implied(3),
    Field("ISOURC", 51, 55, QV_AT(r.isourc), "0 sun, 1 moon").only(unknownSource, zeroOrOne),
    Field("ANGLEM", 56, 65, QV_AT(r.anglem), "phase of the moon [degrees]").implied(3),
};
constexpr Field card3A1[] = {
    Field("IPARM", 1, 5, QV_AT(r.iparm), "meaning of PARM"),
    Field("IPH", 6, 10, QV_AT(r.iph), "phase function").only(u"Unknown PhaseFunctionType %d.", zeroToTwo),
    Field("IDAY", 11, 15, QV_AT(r.iday), "day of the year"),
    Field("ISOURC", 16, 20, QV_AT(r.isourc), "0 sun, 1 moon").only(unknownSource, zeroOrOne),
};
constexpr Field card3A2[] = {
    Field("PARM1", 1, 10, QV_AT(r.parm[0]), "by IPARM [degrees]").implied(3),
    Field("PARM2", 11, 20, QV_AT(r.parm[1]), "by IPARM [degrees]").implied(3),
    Field("PARM3", 21, 30, QV_AT(r.parm[2]), "by IPARM [degrees]").implied(3),
    Field("PARM4", 31, 40, QV_AT(r.parm[3]), "by IPARM [degrees]").implied(3),
    Field("TIME", 41, 50, QV_AT(r.time), "Greenwich time [h]").implied(3),
    Field("PSIPO", 51, 60, QV_AT(r.psipo), "azimuth of the path [degrees]").implied(3),
    Field("ANGLEM", 61, 70, QV_AT(r.anglem), "phase of the moon [degrees]").implied(3),
    Field("G", 71, 80, QV_AT(r.g), "asymmetry factor").implied(3).unwritten(),
};
constexpr Field card3B1[] = {
    Field("NANGLS", 1, 5, Access(nangls), "angles of the phase functions"),
    Field("NWLF", 6, 10, Access(nwlf), "wavelengths of the phase functions"),
};

#define QV_PHASE(aerosol, angle, wavelength) QV_AT(r.phaseValues[phaseIndex(r, aerosol, angle, wavelength)])
constexpr Field card3B2[] = {
    Field("ANGF", 1, 10, QV_AT(r.phaseAngles[x.j]), "angle [degrees]").implied(3),
    Field("F1", 11, 20, QV_PHASE(0, x.j, 0), "phase function of aerosol 1 [1/sr]").implied(3),
    Field("F2", 21, 30, QV_PHASE(1, x.j, 0), "of aerosol 2").implied(3),
    Field("F3", 31, 40, QV_PHASE(2, x.j, 0), "of aerosol 3").implied(3),
    Field("F4", 41, 50, QV_PHASE(3, x.j, 0), "of aerosol 4").implied(3),
};
constexpr Field card3C1[] = {Field("ANGF", 2, 10, QV_AT(r.phaseAngles[x.j]), "angle [degrees]")};
constexpr Field card3C2[] = {Field("WLF", 2, 10, QV_AT(r.phaseWavelengths[x.j]), "wavelength [microns]")};
constexpr Field card3C3[] = {
    Field("F1", 2, 10, QV_PHASE(0, x.i, x.j), "phase function of aerosol 1 [1/sr]").implied(3)};
constexpr Field card3C4[] = {Field("F2", 2, 10, QV_PHASE(1, x.i, x.j), "of aerosol 2").implied(3)};
constexpr Field card3C5[] = {Field("F3", 2, 10, QV_PHASE(2, x.i, x.j), "of aerosol 3").implied(3)};
constexpr Field card3C6[] = {Field("F4", 2, 10, QV_PHASE(3, x.i, x.j), "of aerosol 4").implied(3)};

constexpr auto angleCount = QV_COUNT(r.phaseAngles.size());
constexpr auto wavelengthCount = QV_COUNT(r.phaseWavelengths.size());
constexpr Card geometryCards[] = {
    {"3", "line of sight", "%10.3f%10.3f%10.3f%10.3f%10.3f%10.3f%5d%10.3f\r\n", card3, QV_WHEN(hasPath(r))},
    {"3", "line of sight to sun or moon", "%10.3f%10.3f%10.3f%5d     %10.3f%5d%10.3f\r\n", card3Solar,
     QV_WHEN(r.iemsct == 3)},
    {"3A1", "sun or moon", "%5d%5d%5d%5d\r\n", card3A1, QV_WHEN(r.iemsct == 2)},
    {"3A2", "place of sun or moon", "%10.3f%10.3f%10.3f%10.3f%10.3f%10.3f%10.3f\r\n", card3A2, QV_WHEN(r.iemsct == 2)},
    {"3B1", "phase functions", "%5d%5d\r\n", card3B1, QV_WHEN(hasPhase(r))},
    {"3B2", "angle of the phase functions", "%10s%10s%10s%10s%10s\r\n", card3B2,
     QV_WHEN(hasPhase(r) && r.phaseWavelengths.empty()), Layout::plain, angleCount, 1, 50},
    {"3C1", "angles", " %9.0f", card3C1, QV_WHEN(hasPhaseTables(r)), Layout::plain, angleCount, 8, 10},
    {"3C2", "wavelengths", " %9s", card3C2, QV_WHEN(hasPhaseTables(r)), Layout::plain, wavelengthCount, 8, 10},
};
#define QV_PHASE_CARD(name, title, fields)                                                                 \
    {                                                                                                      \
        { name, title, " %9s", fields, QV_WHEN(hasPhaseTables(r)), Layout::plain, wavelengthCount, 8, 10 } \
    }
constexpr Card phase1[] = QV_PHASE_CARD("3C3", "phase function of aerosol 1", card3C3);
constexpr Card phase2[] = QV_PHASE_CARD("3C4", "phase function of aerosol 2", card3C4);
constexpr Card phase3[] = QV_PHASE_CARD("3C5", "phase function of aerosol 3", card3C5);
constexpr Card phase4[] = QV_PHASE_CARD("3C6", "phase function of aerosol 4", card3C6);

// Cards 4 and 5 -------------------------------------------------------------------------------------------------------

constexpr Field card4[] = {
    Field("V1", 1, 10, QV_AT(r.output.v1), "first frequency or wavelength"),
    Field("V2", 11, 20, QV_AT(r.output.v2), "last"),
    Field("DV", 21, 30, QV_AT(r.output.dv), "step"),
    Field("FWHM", 31, 40, QV_AT(r.output.fwhm), "width of the slit"),
    Field("YFLAG", 41, 41, QV_AT(r.output.yflag), "what is plotted").only(u"Unrecognized output y unit %c.", "TR "),
    Field("XFLAG", 42, 42, QV_AT(r.output.xflag), "abscissa of the plot")
        .only(u"Unrecognized output x unit %c.", "WMN "),
    Field("DLIMIT", 43, 50, QV_AT(r.output.dlimit), "separates runs in the plot"),
    Field("FLAGS1", 51, 51, QV_AT(r.output.flags[0]), "unit of V1 to FWHM")
        .only(u"Urecognized input x unit %c.", " WMN"),
    Field("FLAGS2", 52, 52, QV_AT(r.output.flags[1]), "slit").only(u"Urecognized slit function %c.", " 1234567TRGSCHU"),
    Field("FLAGS3", 53, 53, QV_AT(r.output.flags[2]), "FWHM absolute or percent")
        .only(u"Urecognized FWHMType %c.", " AR"),
    Field("FLAGS4", 54, 54, QV_AT(r.output.flags[3]), "degrade all components")
        .only(u"Urecognized DegradeType %c.", " A"),
    Field("FLAGS5", 55, 55, QV_AT(r.output.flags[4]), "save what is not degraded")
        .only(u"Urecognized bSaveNonDegraded %c.", " S"),
    Field("FLAGS6", 56, 56, QV_AT(r.output.flags[5]), "use what was saved")
        .only(u"Urecognized bUseSavedDegraded %c.", " R"),
    Field("FLAGS7", 57, 57, QV_AT(r.output.flags[6]), "flux file").only(u"Urecognized FluxTableType %c.", " TF"),
    Field("MLFLX", 58, 60, QV_AT(r.output.mlflx), "levels in the flux file").unwritten(),
};
constexpr Field card4A[] = {
    Field("NSURF", 1, 1, Access(QV_LIST(r.surfaces)), "surfaces"),
    Field("AATEMP", 2, 10, QV_AT(r.aatemp), "temperature of the ground around [K]"),
};
constexpr Field card4B1[] = {Field("CBRDF", 1, 80, Access(brdfText), "reflectance model")};
constexpr Field card4B2[] = {
    Field("NWVSRF", 0, 0, Access(QV_LIST(r.surfaces[x.i].rows)), "wavelengths"),
    Field("SURFZN", 0, 0, QV_AT(r.surfaces[x.i].surfzn), "zenith angle of the normal [degrees]"),
    Field("SURFAZ", 0, 0, QV_AT(r.surfaces[x.i].surfaz), "azimuth of the normal [degrees]"),
};
#define QV_ROW(member) QV_AT(r.surfaces[x.i].rows[x.j].member)
constexpr Field card4B3[] = {
    Field("WVSURF", 0, 0, QV_ROW(wvsurf), "wavelength [microns]"),
    Field("PARAMETER1", 0, 0, QV_ROW(parameters[0]), "parameter of the model"),
    Field("PARAMETER2", 0, 0, QV_ROW(parameters[1]), "parameter of the model"),
    Field("PARAMETER3", 0, 0, QV_ROW(parameters[2]), "parameter of the model"),
    Field("PARAMETER4", 0, 0, QV_ROW(parameters[3]), "parameter of the model"),
    Field("PARAMETER5", 0, 0, QV_ROW(parameters[4]), "parameter of the model"),
};
constexpr Field card4L1[] = {Field("SALBFL", 1, 80, QV_AT(r.salbfl), "file of albedo curves")};
constexpr Field card4L2[] = {Field("CSALB", 1, 80, QV_AT(r.surfaces[x.i].csalb), "number or name of a curve")};
constexpr Field card5[] = {Field("IRPT", 1, 5, QV_AT(r.irpt), "how the next run is given")
                               .only(u"Unknown repeat flag option %d.", repeatFlags)};

constexpr Card spectrumCards[] = {
    {"4", "spectrum and output", "%10.3f%10.3f%10.3f%10.3f%c%c%8s%c%c%c%c%c%c%c\r\n", card4, always}};
constexpr Card surfacesCards[] = {
    {"4A", "surfaces", "%1d%9.0f\r\n", card4A, QV_WHEN(r.surface == 1 || r.surface == 2)}};
constexpr Card brdfCards[] = {
    {"4B1", "reflectance model", "%80s\r\n", card4B1, QV_WHEN(r.surface == 1)},
    {"4B2", "wavelengths of the model", "%d %f %f\r\n", card4B2, QV_WHEN(r.surface == 1), Layout::plain, nullptr, 1, 0,
     QV_COUNT(3)},
    {"4B3", "parameters of the model", "%f %f %f %f %f %f\r\n", card4B3, QV_WHEN(r.surface == 1), Layout::plain,
     QV_COUNT(r.surfaces[i].rows.size()), 1, 0, QV_COUNT(1 + brdfParameters(r.surfaces[i].brdf))},
};
constexpr Card albedoFileCards[] = {{"4L1", "albedo file", "%80s\r\n", card4L1, QV_WHEN(r.surface == 2)}};
constexpr Card albedoCards[] = {{"4L2", "albedo curve", "%80s\r\n", card4L2, QV_WHEN(r.surface == 2)}};
constexpr Card repeatCards[] = {{"5", "repeat flag", "%5d\r\n", card5, always}};

constexpr uint8_t geometry = inFull | fromGeometry;
constexpr uint8_t spectrum = inFull | fromSpectrum;
constexpr uint8_t anyPart = inFull | fromGeometry | fromSpectrum;

uint32_t angles(const RUN& r) { return r.phaseAngles.size(); }
uint32_t surfaces(const RUN& r) { return r.surfaces.size(); }

constexpr Block order[] = {
    {inFull, driverCards},
    {inFull, profileCards},
    {inFull, levelCards, [](const RUN& r) { return r.levels.size(); }},
    {inFull, regionsCards},
    {inFull, regionCards, [](const RUN&) { return uint32_t{4}; }},
    {inFull, boundaryCards, [](const RUN& r) { return r.boundaries.size(); }},
    {inFull, cloudCards, [](const RUN& r) { return r.cloudSpectra.size(); }},
    {inFull, cloudTextCards},
    {geometry, geometryCards},
    {geometry, phase1, angles},
    {geometry, phase2, angles},
    {geometry, phase3, angles},
    {geometry, phase4, angles},
    {spectrum, spectrumCards},
    {anyPart, surfacesCards},
    {anyPart, brdfCards, surfaces},
    {anyPart, albedoFileCards},
    {anyPart, albedoCards, surfaces},
    {anyPart, repeatCards},
};

}  // namespace

const double aerosolGrid[gridPoints] = {
    0.2,  0.3,  0.3371, 0.55, 0.6943, 1.06, 1.536, 2.0,  2.25, 2.5,  2.7,  3.0,    3.3923, 3.75,  4.5,  5.0,
    5.5,  6.0,  6.2,    6.5,  7.2,    7.9,  8.2,   8.7,  9.0,  9.2,  10.0, 10.591, 11.0,   11.5,  12.5, 14.8,
    15.0, 16.4, 17.2,   18.5, 21.3,   25.0, 30.0,  40.0, 50.0, 60.0, 80.0, 100.0,  150.0,  200.0, 300.0};

std::span<const Block> deckOrder() { return order; }

uint8_t partOf(int32_t irpt) {
    switch (irpt) {
        case 3:
        case -3: return fromGeometry;
        case 4:
        case -4: return fromSpectrum;
        default: return inFull;
    }
}

bool setPoints(File::REGION& region, uint32_t points) {
    const bool isNewGrid = region.spectra.empty() && points == gridPoints;
    if (!resize(region.spectra, int64_t{points})) return false;
    for (uint32_t k = 0; isNewGrid && k < gridPoints; ++k) region.spectra[k].varspc = aerosolGrid[k];
    return true;
}

bool setCloudAltitudes(RUN& run, int32_t code) { return setCode(run.boundaries, run.ncralt, code, 3); }
bool setCloudWavelengths(RUN& run, int32_t code) { return setCode(run.cloudSpectra, run.ncrspc, code, 2); }

bool setPhaseSizes(RUN& run, uint32_t angles, uint32_t wavelengths) {
    if (angles == run.phaseAngles.size() && wavelengths == run.phaseWavelengths.size() &&
        run.phaseValues.size() == phaseIndex(run, 4, 0, 0)) {
        return true;
    }
    const uint64_t values = uint64_t{4} * angles * (wavelengths == 0 ? 1 : wavelengths);
    if (angles > File::listLimit || wavelengths > File::listLimit || values > 64 * uint64_t{File::listLimit}) {
        return false;
    }
    run.phaseValues.Empty();
    return run.phaseAngles.SetSize(angles) && run.phaseWavelengths.SetSize(wavelengths) &&
           run.phaseValues.SetSize(static_cast<uint32_t>(values));
}

}  // namespace qv::tape5
