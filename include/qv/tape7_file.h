// CModtranTape7File: the output tables of the MODTRAN atmosphere program (its file tape7). Start with Load, then
// GetData for values at frequencies, or GetRun for the rows as they stand.
//
// A file holds a table for each run of the deck: one row for each frequency, with the columns of the run's mode. A row
// has a place for every quantity that any mode prints; what the run's table does not have, and what is blank in it, is
// absent. The columns of a table are known by its heading, and cut by position.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"

namespace qv {

class IFileSystem;

/// What a column of an output table holds. Transmittances and optical depths are pure numbers; radiances are in
/// W/(cm^2 sr) and irradiances in W/cm^2, each per unit of the table's axis (per 1/cm in tape7).
enum class ETape7Column : uint8_t {
    transmittance,  ///< Of the whole path; every table has it.
    opticalDepth,   ///< Minus the natural logarithm of the transmittance, as far as the program prints it.

    // Transmittance runs: the transmittance of one constituent each.
    water,                   ///< Lines of water vapour.
    mixedGases,              ///< Uniformly mixed gases.
    ozone,                   ///< Ozone.
    traceGases,              ///< Trace gases.
    nitrogenContinuum,       ///< Continuum of nitrogen.
    waterContinuum,          ///< Continuum of water vapour.
    molecularScatter,        ///< Scattering by molecules.
    aerosolCloud,            ///< Extinction by aerosols and clouds.
    nitricAcid,              ///< Nitric acid.
    aerosolCloudAbsorption,  ///< The part of that extinction that absorbs.
    co2,
    co,
    ch4,
    n2o,
    o2,
    nh3,
    no,
    no2,
    so2,
    cloud,  ///< Clouds alone; MODTRAN 5.
    cfc11,
    cfc12,
    cfc13,
    cfc14,
    cfc22,
    cfc113,
    cfc114,
    cfc115,
    clono2,
    hno4,
    chcl2f,
    ccl4,
    n2o5,

    // Radiance runs.
    pathThermal,            ///< Radiance of the path itself, what it scatters included.
    scatteredThermal,       ///< The scattered part of it; blank with some scattering models.
    surfaceEmission,        ///< Radiance that the surface at the end of the path emits, at the sensor.
    pathSolar,              ///< Sunlight that the path scatters; runs with the sun only.
    singleScatterSolar,     ///< The part of it that was scattered once.
    groundReflected,        ///< Radiance reflected by the surface, all of it.
    directGroundReflected,  ///< The part of it that came from the sun unscattered.
    totalRadiance,          ///< At the sensor: path thermal, surface emission, path solar and ground reflected.
    reflectedSun,           ///< Solar irradiance times the transmittance from the sun over the target to the sensor.
    sunAtObserver,          ///< Solar irradiance at the sensor.
    surfaceEmissivity,      ///< Directional emissivity of the surface, a pure number; MODTRAN 5.
    brightnessTemperature,  ///< Of the total radiance, kelvin; MODTRAN 5.

    // Radiance and irradiance runs.
    sunAtTop,        ///< Solar irradiance at the top of the atmosphere.
    transmittedSun,  ///< Solar irradiance behind the path; irradiance runs.

    count  ///< How many there are; no column.
};

/// What the rows of a table lie over.
enum class ETape7Axis : uint8_t {
    wavenumbers,  ///< 1/cm; tape7 always has it.
    microns,      ///< Tables convolved with a slit function (tape7.scn) may have any of the three.
    nanometres,
};

/// One row.
struct QV_API TAPE7_DATA {
    static constexpr uint32_t columnCount = static_cast<uint32_t>(ETape7Column::count);
    static constexpr double absent = std::numeric_limits<double>::quiet_NaN();

    double freq = 0.0;           ///< Place on the table's axis.
    double values[columnCount];  ///< By ETape7Column; not a number where there is none.

    TAPE7_DATA() {
        for (double& value : values) value = absent;
    }
    double& operator[](ETape7Column column) { return values[static_cast<uint32_t>(column)]; }
    double operator[](ETape7Column column) const { return values[static_cast<uint32_t>(column)]; }
    /// There is a value: the column is in the table, and its field neither blank nor overflowed.
    bool Has(ETape7Column column) const { return !std::isnan((*this)[column]); }
};

/// One run.
struct QV_API TAPE7_RUN {
    /// The program's execution mode: 0 transmittance, 1 thermal radiance, 2 radiance with sun or moon, 3 irradiance of
    /// sun or moon; -1 for a run that the program gave up, which has an end marker and nothing else.
    int32_t mode = -1;
    ETape7Axis axis = ETape7Axis::wavenumbers;
    bool complete = false;         ///< The table's end marker is there.
    TArray<CString> header;        ///< The lines in front of the heading: the deck's cards as the program took them.
    TArray<ETape7Column> columns;  ///< The table's columns in the order of the file, the frequency left out.
    TArray<TAPE7_DATA> data;       ///< Rows by ascending frequency; equal ones occur where the program rounds them.
};

/// The output tables of the program's versions 3.5, 4 and 5.
///
/// Failure: false with a diagnostic; the object holds no runs then.
/// Tolerated: blank fields and fields of asterisks (absent), exponents without their letter or with the letter D,
/// labels with blanks or underscores, columns that are not known, either line end. In a file that was cut off the whole
/// rows count: Load is true, the run's `complete` false, and a diagnostic says so. Refused: a file without a heading, a
/// heading that does not fit the mode in the first line of the header, a field that is no number, frequencies that
/// fall. Threads: constant calls may run at the same time.
class QV_API CModtranTape7File {
public:
    /// Replaces the runs by those of the file.
    /// @param flags  Without meaning so far; give 0.
    bool Load(IFileSystem* fs, const char16_t* path, uint64_t flags = 0);
    bool Load(const char16_t* path, uint64_t flags = 0);  ///< From the disk.
    bool Load(TSharedPtr<IFile> file, uint64_t flags = 0);

    /// How many runs there are, those that failed included: run i is that of the deck's run i.
    uint32_t nRuns() const { return m_runs.size(); }
    /// Throws CException for an index out of bounds.
    const TAPE7_RUN& GetRun(uint32_t run) const { return m_runs.ConstGetItem(run); }

    /// Rows of a run; 0 for no such run.
    uint32_t nPoints(uint32_t run = 0) const;
    /// The place of a row on the run's axis; 0.0 for no such row.
    double GetFreq(uint32_t run, uint32_t point) const;

    // Values between the rows are interpolated linearly on the run's own axis; a row within 1e-8 is taken as it is.
    // Where either neighbour is absent, so is the value. Outside the run's rows all are.

    /// Values at one frequency. False outside the run's rows and for no such run; all values are absent then.
    bool GetData(uint32_t run, double freq, TAPE7_DATA& data) const;
    /// Values at many frequencies, in any order; ascending ones are quicker. False for no such run and without memory.
    bool GetData(uint32_t run, const TArray<double>& freqs, TArray<TAPE7_DATA>& data) const;

private:
    /// `rows` becomes the run's rows on another axis.
    static bool Interpolate(const TAPE7_RUN& run, const TArray<double>& freqs, TArray<TAPE7_DATA>& rows);

    TArray<TAPE7_RUN> m_runs;
};

}  // namespace qv
