#include "atm_table.h"

#include <algorithm>
#include <iostream>

#include "command.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/spectral.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

using enum AtmQuantity;

struct ColumnFacts {
    const char* key;
    const char* name;
    AtmQuantity quantity;
};

/// By ETape7Column.
constexpr ColumnFacts facts[] = {
    {"transmittance", "transmittance", transmittance},
    {"opticalDepth", "optical depth", depth},
    {"water", "water lines", transmittance},
    {"mixedGases", "mixed gases", transmittance},
    {"ozone", "ozone", transmittance},
    {"traceGases", "trace gases", transmittance},
    {"nitrogenContinuum", "nitrogen continuum", transmittance},
    {"waterContinuum", "water continuum", transmittance},
    {"molecularScatter", "molecular scattering", transmittance},
    {"aerosolCloud", "aerosol and cloud", transmittance},
    {"nitricAcid", "nitric acid", transmittance},
    {"aerosolCloudAbsorption", "aerosol and cloud absorption", transmittance},
    {"co2", "CO2", transmittance},
    {"co", "CO", transmittance},
    {"ch4", "CH4", transmittance},
    {"n2o", "N2O", transmittance},
    {"o2", "O2", transmittance},
    {"nh3", "NH3", transmittance},
    {"no", "NO", transmittance},
    {"no2", "NO2", transmittance},
    {"so2", "SO2", transmittance},
    {"cloud", "cloud", transmittance},
    {"cfc11", "CFC11", transmittance},
    {"cfc12", "CFC12", transmittance},
    {"cfc13", "CFC13", transmittance},
    {"cfc14", "CFC14", transmittance},
    {"cfc22", "CFC22", transmittance},
    {"cfc113", "CFC113", transmittance},
    {"cfc114", "CFC114", transmittance},
    {"cfc115", "CFC115", transmittance},
    {"clono2", "ClONO2", transmittance},
    {"hno4", "HNO4", transmittance},
    {"chcl2f", "CHCl2F", transmittance},
    {"ccl4", "CCl4", transmittance},
    {"n2o5", "N2O5", transmittance},
    {"pathThermal", "path thermal radiance", radiance},
    {"scatteredThermal", "scattered thermal radiance", radiance},
    {"surfaceEmission", "surface emission", radiance},
    {"pathSolar", "path solar radiance", radiance},
    {"singleScatterSolar", "single-scatter solar radiance", radiance},
    {"groundReflected", "ground-reflected radiance", radiance},
    {"directGroundReflected", "direct ground-reflected radiance", radiance},
    {"totalRadiance", "total radiance", radiance},
    {"reflectedSun", "sun over the target", irradiance},
    {"sunAtObserver", "sun at the observer", irradiance},
    {"surfaceEmissivity", "surface emissivity", emissivity},
    {"brightnessTemperature", "brightness temperature", temperature},
    {"sunAtTop", "sun at the top", irradiance},
    {"transmittedSun", "transmitted sun", irradiance},
};
static_assert(std::size(facts) == qv::TAPE7_DATA::columnCount);

const ColumnFacts& factsOf(qv::ETape7Column column) { return facts[static_cast<size_t>(column)]; }

/// The middle one of the steps between rows.
double usualStep(const qv::TArray<qv::TAPE7_DATA>& rows) {
    std::vector<double> steps;
    for (uint32_t i = 1; i < rows.size(); ++i) steps.push_back(rows.data()[i].freq - rows.data()[i - 1].freq);
    if (steps.empty()) return 0.0;
    const auto middle = steps.begin() + static_cast<ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    return *middle;
}

bool hasRows(const qv::CModtranTape7File& file, uint32_t run) { return file.nPoints(run) > 0; }

}  // namespace

AtmTable::AtmTable(const std::string& path, std::optional<uint32_t> run) : m_path(path) {
    requireFile(path);
    qv::ClearDiagnostic();
    if (!m_file.Load(&files(), wide(path).c_str())) {
        // Behind the first line it was such a file for a while.
        const bool begins = qv::LastDiagnostic().line > 1;
        throw diagnosed(begins ? Exit::damaged : Exit::wrongKind, path, "is no output of the atmosphere program");
    }
    if (qv::LastDiagnostic().IsSet()) {
        std::cerr << "qv: warning: " << diagnosed(Exit::damaged, path, "").what() << "; the file was cut off\n";
    }
    const uint32_t runs = m_file.nRuns();
    if (run && *run >= runs) {
        throw Failure(Exit::negative, path + ": there is no run " + std::to_string(*run) + " (it has " +
                                          std::to_string(runs) + ", from 0)");
    }
    while (!run && m_run + 1 < runs && !hasRows(m_file, m_run)) ++m_run;
    m_run = run.value_or(m_run);
    if (!hasRows(m_file, m_run)) {
        throw Failure(Exit::negative, path + ": run " + std::to_string(m_run) + " has no rows");
    }
    if (!run && runs > 1) {
        remark("qv: " + path + ": run " + std::to_string(m_run) + " of " + std::to_string(runs) +
               " (--run N takes another)");
    }
    constexpr double manySteps = 10.0;
    m_widestStep = manySteps * usualStep(table().data);
}

bool AtmTable::isBehindGap(uint32_t row) const {
    const qv::TAPE7_DATA* const rows = table().data.data();
    return row > 0 && rows[row].freq - rows[row - 1].freq > m_widestStep;
}

bool AtmTable::has(qv::ETape7Column column) const {
    const qv::TArray<qv::ETape7Column>& columns = table().columns;
    return std::find(columns.begin(), columns.end(), column) != columns.end();
}

std::string AtmTable::modeName() const {
    static const char* const names[] = {"transmittance", "thermal radiance", "thermal and solar radiance",
                                        "solar irradiance"};
    return names[table().mode];
}

double AtmTable::microns(double freq) const {
    switch (table().axis) {
        case qv::ETape7Axis::microns: return freq;
        case qv::ETape7Axis::nanometres: return freq / 1000.0;
        default: return qv::ToMicrons(freq);
    }
}

double AtmTable::wavenumber(double freq) const {
    return table().axis == qv::ETape7Axis::wavenumbers ? freq : qv::ToWavenumbers(microns(freq));
}

double AtmTable::freqOf(double microns) const {
    switch (table().axis) {
        case qv::ETape7Axis::microns: return microns;
        case qv::ETape7Axis::nanometres: return microns * 1000.0;
        default: return qv::ToWavenumbers(microns);
    }
}

double AtmTable::perMicron(double freq) const {
    switch (table().axis) {
        case qv::ETape7Axis::microns: return 1.0;
        case qv::ETape7Axis::nanometres: return 1000.0;
        default: return freq * freq / 10000.0;  // 1/cm to a micron, there
    }
}

AtmQuantity quantityOf(qv::ETape7Column column) { return factsOf(column).quantity; }
std::string nameOf(qv::ETape7Column column) { return factsOf(column).name; }
std::string keyOf(qv::ETape7Column column) { return factsOf(column).key; }

std::string unitOf(AtmQuantity quantity) {
    switch (quantity) {
        case radiance: return "W/(sr-cm^2)";
        case irradiance: return "W/cm^2";
        case temperature: return "K";
        default: return "1";
    }
}

}  // namespace tool
