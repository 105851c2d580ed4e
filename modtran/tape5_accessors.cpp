// CModtranTape5File: the Get and Set pairs of the current run.
#include <algorithm>
#include <iterator>
#include <tuple>

#include "core/text.h"
#include "modtran/tape5_table.h"
#include "qv/tape5_file.h"

namespace qv {

namespace {

constexpr char16_t tooLong[] = u"A list holds at most 4096 elements.";
constexpr char16_t level[] = u"level";
constexpr char16_t region[] = u"aerosol region";
constexpr char16_t surfaceWord[] = u"surface";

template <class T, size_t n>
void copy(const T (&from)[n], T (&to)[n]) {
    std::copy(from, from + n, to);
}

}  // namespace

const CModtranTape5File::RUN* CModtranTape5File::current() const {
    if (RunExists(m_current)) return &m_runs.ConstGetItem(static_cast<uint32_t>(m_current));
    fail(u"Current run not selected.");
    return nullptr;
}

bool CModtranTape5File::inRange(uint32_t index, uint32_t count, const char16_t* what) const {
    return index < count || fail(CString::FromFormat(u"There is no %s %u; there are %u.", what, index, count));
}

// A pair whose parameters are fields of the run.
#define QV_PAIR(Name, parametersOfGet, parametersOfSet, values, fields)        \
    bool CModtranTape5File::Get##Name parametersOfGet const {                  \
        return read([&](const RUN& r) { std::tie values = std::tie fields; }); \
    }                                                                          \
    bool CModtranTape5File::Set##Name parametersOfSet {                        \
        return change([&](RUN& r) { std::tie fields = std::tie values; });     \
    }

QV_PAIR(RepeatFlag, (int32_t & irpt), (int32_t irpt), (irpt), (r.irpt))

// Main options --------------------------------------------------------------------------------------------------------

QV_PAIR(AtmosphereModel,
        (int32_t & model, int32_t& im, double& co2mx, char& h2oUnit, double& h2o, char& h2oUnlimited, char& o3Unit,
         double& o3),
        (int32_t model, int32_t im, double co2mx, char h2oUnit, double h2o, char h2oUnlimited, char o3Unit, double o3),
        (model, im, co2mx, h2oUnit, h2o, h2oUnlimited, o3Unit, o3),
        (r.model, r.im, r.co2mx, r.h2oUnit, r.h2o, r.h2oUnlimited, r.o3Unit, r.o3))
QV_PAIR(LOSType, (int32_t & itype), (int32_t itype), (itype), (r.itype))
QV_PAIR(SLLOSType, (int32_t & iparm), (int32_t iparm), (iparm), (r.iparm))
QV_PAIR(ExecutionMode, (int32_t & iemsct), (int32_t iemsct), (iemsct), (r.iemsct))
QV_PAIR(MultipleScattering, (int32_t & imult, char& dis, char& disazm, int32_t& nstr),
        (int32_t imult, char dis, char disazm, int32_t nstr), (imult, dis, disazm, nstr),
        (r.imult, r.dis, r.disazm, r.nstr))
QV_PAIR(TempAtFirstBoundary, (double& tptemp), (double tptemp), (tptemp), (r.tptemp))
QV_PAIR(CorrelationKSpeed, (char& speed), (char speed), (speed), (r.speed))
QV_PAIR(BandModel, (char& modtrn), (char modtrn), (modtrn), (r.modtrn))
QV_PAIR(BandModelFile, (char& lbmnam, CStringMB& bmname), (char lbmnam, const CStringMB& bmname), (lbmnam, bmname),
        (r.lbmnam, r.bmname))
QV_PAIR(InstrumentFilterFile, (char& lfltnm, CStringMB& filtnm), (char lfltnm, const CStringMB& filtnm),
        (lfltnm, filtnm), (r.lfltnm, r.filtnm))
QV_PAIR(SolarIrradiance, (char& lsun, int32_t& isun, char& lsunfl, CStringMB& sunfl2, double& solcon),
        (char lsun, int32_t isun, char lsunfl, const CStringMB& sunfl2, double solcon),
        (lsun, isun, lsunfl, sunfl2, solcon), (r.lsun, r.isun, r.lsunfl, r.sunfl2, r.solcon))
QV_PAIR(OutputInfo, (int32_t & noprnt, OUTPUT& output), (int32_t noprnt, const OUTPUT& output), (noprnt, output),
        (r.noprnt, r.output))

bool CModtranTape5File::GetDataType(int32_t (&m)[6], int32_t& mdef) const {
    return read([&](const RUN& r) { copy(r.m, m), mdef = r.mdef; });
}
bool CModtranTape5File::SetDataType(const int32_t (&m)[6], int32_t mdef) {
    return change([&](RUN& r) { copy(m, r.m), r.mdef = mdef; });
}

// Surface -------------------------------------------------------------------------------------------------------------

QV_PAIR(SurfaceReflectance, (int32_t & surface, double& albedo, double& aatemp),
        (int32_t surface, double albedo, double aatemp), (surface, albedo, aatemp), (r.surface, r.albedo, r.aatemp))

bool CModtranTape5File::GetSurfaceReflectance(uint32_t& nsurf, CStringMB& salbfl) const {
    return read([&](const RUN& r) { nsurf = r.surfaces.size(), salbfl = r.salbfl; });
}
bool CModtranTape5File::SetSurfaceReflectance(uint32_t nsurf, const CStringMB& salbfl) {
    RUN* run = current();
    if (run == nullptr) return false;
    if (!tape5::resize(run->surfaces, int64_t{nsurf})) return fail(tooLong);
    run->salbfl = salbfl;
    return true;
}

bool CModtranTape5File::GetSurfaceReflectance(uint32_t index, int32_t& brdf, uint32_t& nwvsrf, double& surfzn,
                                              double& surfaz, CStringMB& csalb) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(index, run->surfaces.size(), surfaceWord)) return false;
    const SURFACE& surface = run->surfaces[index];
    nwvsrf = surface.rows.size();
    std::tie(brdf, surfzn, surfaz, csalb) = std::tie(surface.brdf, surface.surfzn, surface.surfaz, surface.csalb);
    return true;
}
bool CModtranTape5File::SetSurfaceReflectance(uint32_t index, int32_t brdf, uint32_t nwvsrf, double surfzn,
                                              double surfaz, const CStringMB& csalb) {
    RUN* run = current();
    if (run == nullptr || !inRange(index, run->surfaces.size(), surfaceWord)) return false;
    SURFACE& surface = run->surfaces[index];
    if (!tape5::resize(surface.rows, int64_t{nwvsrf})) return fail(tooLong);
    std::tie(surface.brdf, surface.surfzn, surface.surfaz, surface.csalb) = std::tie(brdf, surfzn, surfaz, csalb);
    return true;
}

bool CModtranTape5File::GetSurfaceReflectance(uint32_t index, uint32_t row, BRDF& brdf) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(index, run->surfaces.size(), surfaceWord)) return false;
    const TArray<BRDF>& rows = run->surfaces[index].rows;
    if (!inRange(row, rows.size(), u"row")) return false;
    brdf = rows[row];
    return true;
}
bool CModtranTape5File::SetSurfaceReflectance(uint32_t index, uint32_t row, const BRDF& brdf) {
    RUN* run = current();
    if (run == nullptr || !inRange(index, run->surfaces.size(), surfaceWord)) return false;
    TArray<BRDF>& rows = run->surfaces[index].rows;
    if (!inRange(row, rows.size(), u"row")) return false;
    rows[row] = brdf;
    return true;
}

// Aerosols ------------------------------------------------------------------------------------------------------------

QV_PAIR(AerosolInfo,
        (char& cnovam, int32_t& iseasn, CStringMB& aruss, int32_t& icstl, double& wss, double& whh, double& gndalt,
         char& h2oaer),
        (char cnovam, int32_t iseasn, const CStringMB& aruss, int32_t icstl, double wss, double whh, double gndalt,
         char h2oaer),
        (cnovam, iseasn, aruss, icstl, wss, whh, gndalt, h2oaer),
        (r.cnovam, r.iseasn, r.aruss, r.icstl, r.wss, r.whh, r.gndalt, r.h2oaer))
QV_PAIR(AerosolAdjustments, (CStringMB & aplus), (const CStringMB& aplus), (aplus), (r.aplus))
QV_PAIR(AerosolAttenuation, (int32_t & ihaze, double& vis), (int32_t ihaze, double vis), (ihaze, vis), (r.ihaze, r.vis))
QV_PAIR(VolcanoInfo, (int32_t & ivulcn), (int32_t ivulcn), (ivulcn), (r.ivulcn))
QV_PAIR(PhaseFunction, (int32_t & iph), (int32_t iph), (iph), (r.iph))

// A pair of an element: `list` of it exists for `index`.
#define QV_ITEM_PAIR(Name, parametersOfGet, parametersOfSet, index, count, what, values, fields) \
    bool CModtranTape5File::Get##Name parametersOfGet const {                                    \
        const RUN* run = current();                                                              \
        if (run == nullptr) return false;                                                        \
        const RUN& r = *run;                                                                     \
        if (!inRange(index, count, what)) return false;                                          \
        std::tie values = std::tie fields;                                                       \
        return true;                                                                             \
    }                                                                                            \
    bool CModtranTape5File::Set##Name parametersOfSet {                                          \
        RUN* run = current();                                                                    \
        if (run == nullptr) return false;                                                        \
        RUN& r = *run;                                                                           \
        if (!inRange(index, count, what)) return false;                                          \
        std::tie fields = std::tie values;                                                       \
        return true;                                                                             \
    }

QV_ITEM_PAIR(AerosolAdjustments, (uint32_t index, double& zaer1, double& zaer2, double& scale),
             (uint32_t index, double zaer1, double zaer2, double scale), index, uint32_t{4}, u"aerosol",
             (zaer1, zaer2, scale), (r.zaer1[index], r.zaer2[index], r.scale[index]))
QV_ITEM_PAIR(AerosolProfile,
             (uint32_t index, double& ahaze, double& eqlwcz, double& rratz, int32_t& aerosolModelType,
              int32_t& aerosolModel, int32_t& isea1, int32_t& ichr),
             (uint32_t index, double ahaze, double eqlwcz, double rratz, int32_t aerosolModelType, int32_t aerosolModel,
              int32_t isea1, int32_t ichr),
             index, r.levels.size(), level, (ahaze, eqlwcz, rratz, aerosolModelType, aerosolModel, isea1, ichr),
             (r.levels[index].ahaze[0], r.levels[index].eqlwcz, r.levels[index].rratz, r.levels[index].aerosolModelType,
              r.levels[index].aerosolModel, r.levels[index].isea1, r.levels[index].ichr))
QV_ITEM_PAIR(AerosolProfile, (uint32_t index, double (&ahaze)[4], double& rratz),
             (uint32_t index, const double (&ahaze)[4], double rratz), index, r.levels.size(), level,
             (ahaze[0], ahaze[1], ahaze[2], ahaze[3], rratz),
             (r.levels[index].ahaze[0], r.levels[index].ahaze[1], r.levels[index].ahaze[2], r.levels[index].ahaze[3],
              r.levels[index].rratz))

bool CModtranTape5File::GetAerosolRegion(uint32_t index, uint32_t& points, double& awccon, CStringMB& title) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(index, 4, region)) return false;
    const REGION& found = run->regions[index];
    points = found.spectra.size(), awccon = found.awccon, title = found.title;
    return true;
}
bool CModtranTape5File::SetAerosolRegion(uint32_t index, uint32_t points, double awccon, const CStringMB& title) {
    RUN* run = current();
    if (run == nullptr || !inRange(index, 4, region)) return false;
    REGION& found = run->regions[index];
    if (!tape5::setPoints(found, points)) return fail(tooLong);
    found.awccon = awccon, found.title = title;
    return true;
}

bool CModtranTape5File::GetAerosolRegionSpectra(uint32_t index, uint32_t point, double& varspc, double& extc,
                                                double& absc, double& asym) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(index, 4, region)) return false;
    const TArray<SPECTRUM>& spectra = run->regions[index].spectra;
    if (!inRange(point, spectra.size(), u"point")) return false;
    const SPECTRUM& found = spectra[point];
    std::tie(varspc, extc, absc, asym) = std::tie(found.varspc, found.extc, found.absc, found.asym);
    return true;
}
bool CModtranTape5File::SetAerosolRegionSpectra(uint32_t index, uint32_t point, double varspc, double extc, double absc,
                                                double asym) {
    RUN* run = current();
    if (run == nullptr || !inRange(index, 4, region)) return false;
    TArray<SPECTRUM>& spectra = run->regions[index].spectra;
    if (!inRange(point, spectra.size(), u"point")) return false;
    spectra[point] = {varspc, extc, absc, asym};
    return true;
}

bool CModtranTape5File::GetPhaseFunction(TArray<double>& angles, TArray<double>& wavelengths) const {
    return read([&](const RUN& r) {
        if (&angles != &r.phaseAngles) angles = r.phaseAngles;
        if (&wavelengths != &r.phaseWavelengths) wavelengths = r.phaseWavelengths;
    });
}
bool CModtranTape5File::SetPhaseFunction(const TArray<double>& angles, const TArray<double>& wavelengths) {
    RUN* run = current();
    if (run == nullptr) return false;
    if (!tape5::setPhaseSizes(*run, angles.size(), wavelengths.size())) return fail(tooLong);
    std::copy(angles.begin(), angles.end(), run->phaseAngles.begin());
    std::copy(wavelengths.begin(), wavelengths.end(), run->phaseWavelengths.begin());
    return true;
}

bool CModtranTape5File::GetPhaseFunction(uint32_t angle, uint32_t wavelength, double (&f)[4]) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(angle, run->phaseAngles.size(), u"angle") ||
        !inRange(wavelength, std::max(run->phaseWavelengths.size(), 1u), u"wavelength") ||
        !inRange(tape5::phaseIndex(*run, 3, angle, wavelength), run->phaseValues.size(), u"phase function")) {
        return false;
    }
    for (uint32_t k = 0; k < 4; ++k) f[k] = run->phaseValues[tape5::phaseIndex(*run, k, angle, wavelength)];
    return true;
}
bool CModtranTape5File::SetPhaseFunction(uint32_t angle, uint32_t wavelength, const double (&f)[4]) {
    RUN* run = current();
    if (run == nullptr || !inRange(angle, run->phaseAngles.size(), u"angle") ||
        !inRange(wavelength, std::max(run->phaseWavelengths.size(), 1u), u"wavelength") ||
        !inRange(tape5::phaseIndex(*run, 3, angle, wavelength), run->phaseValues.size(), u"phase function")) {
        return false;
    }
    for (uint32_t k = 0; k < 4; ++k) run->phaseValues[tape5::phaseIndex(*run, k, angle, wavelength)] = f[k];
    return true;
}

// Clouds --------------------------------------------------------------------------------------------------------------

QV_PAIR(Clouds, (CLOUDS & clouds), (const CLOUDS& clouds), (clouds), (r.clouds))
QV_PAIR(CloudProfile, (CStringMB & cfile, CStringMB& cldtyp, CStringMB& cirtyp),
        (const CStringMB& cfile, const CStringMB& cldtyp, const CStringMB& cirtyp), (cfile, cldtyp, cirtyp),
        (r.cfile, r.cldtyp, r.cirtyp))
QV_PAIR(CloudRainModel, (int32_t & icld, double& rainrt), (int32_t icld, double rainrt), (icld, rainrt),
        (r.icld, r.rainrt))
QV_ITEM_PAIR(CloudProfile, (uint32_t index, CLOUD_BOUNDARY& boundary), (uint32_t index, const CLOUD_BOUNDARY& boundary),
             index, r.boundaries.size(), u"altitude of the cloud", (boundary), (r.boundaries[index]))
QV_ITEM_PAIR(CloudProfile, (uint32_t index, CLOUD_SPECTRUM& spectrum), (uint32_t index, const CLOUD_SPECTRUM& spectrum),
             index, r.cloudSpectra.size(), u"wavelength of the cloud", (spectrum), (r.cloudSpectra[index]))

bool CModtranTape5File::GetCloudProfile(int32_t& ncralt, int32_t& ncrspc) const {
    return read([&](const RUN& r) {
        ncralt = r.boundaries.empty() ? r.ncralt : static_cast<int32_t>(r.boundaries.size());
        ncrspc = r.cloudSpectra.empty() ? r.ncrspc : static_cast<int32_t>(r.cloudSpectra.size());
    });
}
bool CModtranTape5File::SetCloudProfile(int32_t ncralt, int32_t ncrspc) {
    RUN* run = current();
    if (run == nullptr) return false;
    if (!tape5::setCloudAltitudes(*run, ncralt) || !tape5::setCloudWavelengths(*run, ncrspc)) return fail(tooLong);
    return true;
}

// Profile -------------------------------------------------------------------------------------------------------------

bool CModtranTape5File::GetUserDefinedModel(uint32_t& ml, int32_t& ird1, int32_t& ird2, CStringMB& hmodel) const {
    return read([&](const RUN& r) { ml = r.levels.size(), ird1 = r.ird1, ird2 = r.ird2, hmodel = r.hmodel; });
}
bool CModtranTape5File::SetUserDefinedModel(uint32_t ml, int32_t ird1, int32_t ird2, const CStringMB& hmodel) {
    RUN* run = current();
    if (run == nullptr) return false;
    if (!tape5::resize(run->levels, int64_t{ml})) return fail(tooLong);
    run->ird1 = ird1, run->ird2 = ird2, run->hmodel = hmodel;
    return true;
}

QV_ITEM_PAIR(LayerBoundary, (uint32_t index, double& zm, double& p, double& t, double& h2o, double& co2, double& o3),
             (uint32_t index, double zm, double p, double t, double h2o, double co2, double o3), index, r.levels.size(),
             level, (zm, p, t, h2o, co2, o3),
             (r.levels[index].zm, r.levels[index].p, r.levels[index].t, r.levels[index].wmol[0],
              r.levels[index].wmol[1], r.levels[index].wmol[2]))

bool CModtranTape5File::GetLayerBoundary(uint32_t index, double (&wmol)[9]) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(index, run->levels.size(), level)) return false;
    std::copy_n(run->levels[index].wmol + 3, 9, wmol);
    return true;
}
bool CModtranTape5File::SetLayerBoundary(uint32_t index, const double (&wmol)[9]) {
    RUN* run = current();
    if (run == nullptr || !inRange(index, run->levels.size(), level)) return false;
    std::copy_n(wmol, 9, run->levels[index].wmol + 3);
    return true;
}
bool CModtranTape5File::GetLayerBoundary(uint32_t index, double (&wmolx)[13]) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(index, run->levels.size(), level)) return false;
    copy(run->levels[index].wmolx, wmolx);
    return true;
}
bool CModtranTape5File::SetLayerBoundary(uint32_t index, const double (&wmolx)[13]) {
    RUN* run = current();
    if (run == nullptr || !inRange(index, run->levels.size(), level)) return false;
    copy(wmolx, run->levels[index].wmolx);
    return true;
}

bool CModtranTape5File::GetABUnits(uint32_t index, char (&units)[15]) const {
    const RUN* run = current();
    if (run == nullptr || !inRange(index, run->levels.size(), level)) return false;
    std::copy_n(run->levels[index].jchar, 14, units);
    units[14] = run->levels[index].jcharx;
    return true;
}
bool CModtranTape5File::SetABUnits(uint32_t index, const char (&units)[15]) {
    RUN* run = current();
    if (run == nullptr || !inRange(index, run->levels.size(), level)) return false;
    std::copy_n(units, 14, run->levels[index].jchar);
    run->levels[index].jcharx = units[14];
    return true;
}

namespace {

using ABUNITS = CModtranTape5File::ABUNITS;

constexpr char unitLetters[] = " 123456ABCABABCDEFGH";  // by ABUNITS

/// The units with letters of their own at a position of GetABUnits.
std::pair<ABUNITS, ABUNITS> unitsAt(uint32_t position) {
    switch (position) {
        case 0: return {ABUNITS::Millibar, ABUNITS::Torr};
        case 1: return {ABUNITS::Kelvin, ABUNITS::Celsius};
        case 2: return {ABUNITS::PPMV, ABUNITS::RelativeHumidity};
        default: return {ABUNITS::PPMV, ABUNITS::PartialMillibar};
    }
}

}  // namespace

char CModtranTape5File::ABUnits2char(ABUNITS unit) {
    const auto index = static_cast<size_t>(static_cast<int32_t>(unit));
    return index + 1 < std::size(unitLetters) ? unitLetters[index] : '?';
}

bool CModtranTape5File::ABUnits2char(char letter, uint32_t position, ABUNITS& unit) {
    const auto [first, last] = unitsAt(position);
    for (size_t i = 0; position < 15 && i + 1 < std::size(unitLetters); ++i) {
        const auto known = static_cast<ABUNITS>(i);
        const bool isThere = known < ABUNITS::Millibar || (known >= first && known <= last);
        if (!isThere || unitLetters[i] != text::toUpper(letter)) continue;
        unit = known;
        return true;
    }
    return false;
}

QV_PAIR(AVSA, (int32_t & ivsa, double& zcvsa, double& ztvsa, double& zinvsa),
        (int32_t ivsa, double zcvsa, double ztvsa, double zinvsa), (ivsa, zcvsa, ztvsa, zinvsa),
        (r.ivsa, r.zcvsa, r.ztvsa, r.zinvsa))

// Geometry ------------------------------------------------------------------------------------------------------------

QV_PAIR(Geometry, (double& h1, double& h2, double& angle, double& range, double& beta, double& ro, double& phi),
        (double h1, double h2, double angle, double range, double beta, double ro, double phi),
        (h1, h2, angle, range, beta, ro, phi), (r.h1, r.h2, r.angle, r.range, r.beta, r.ro, r.phi))
QV_PAIR(LOSPath, (int32_t & lenn), (int32_t lenn), (lenn), (r.lenn))
QV_PAIR(SolarLunarGeometry,
        (int32_t & iday, int32_t& isourc, double (&parm)[4], double& time, double& psipo, double& anglem),
        (int32_t iday, int32_t isourc, const double (&parm)[4], double time, double psipo, double anglem),
        (iday, isourc, parm[0], parm[1], parm[2], parm[3], time, psipo, anglem),
        (r.iday, r.isourc, r.parm[0], r.parm[1], r.parm[2], r.parm[3], r.time, r.psipo, r.anglem))

}  // namespace qv
