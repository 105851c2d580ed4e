// Output tables of the atmosphere program as the subcommands show them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qv/tape7_file.h"

namespace tool {

/// One run of an output file.
class AtmTable {
public:
    /// Loads the file and chooses a run; without a number the first that has rows. Fails with a sentence; warns, also
    /// when --quiet, of a file that was cut off, and remarks that there are other runs.
    AtmTable(const std::string& path, std::optional<uint32_t> run);

    const std::string& path() const { return m_path; }
    uint32_t run() const { return m_run; }
    const qv::TAPE7_RUN& table() const { return m_file.GetRun(m_run); }
    const qv::CModtranTape7File& file() const { return m_file; }
    bool has(qv::ETape7Column column) const;
    /// The table has no rows for a while in front of this one: the step to it is ten times the usual one.
    bool isBehindGap(uint32_t row) const;
    /// "transmittance", "thermal radiance", ...
    std::string modeName() const;

    /// Between the table's axis and microns or wavenumbers; the first two are their own reverse.
    double microns(double freq) const;
    double wavenumber(double freq) const;
    double freqOf(double microns) const;
    /// What turns a radiance per unit of the axis into one per micron.
    double perMicron(double freq) const;

private:
    std::string m_path;
    qv::CModtranTape7File m_file;
    uint32_t m_run = 0;
    double m_widestStep = 0.0;
};

/// What a column's values are: pure numbers, or radiances and irradiances per unit of the table's axis.
enum class AtmQuantity { transmittance, depth, emissivity, radiance, irradiance, temperature };
AtmQuantity quantityOf(qv::ETape7Column column);
/// "path thermal radiance"
std::string nameOf(qv::ETape7Column column);
/// "pathThermal", for programs.
std::string keyOf(qv::ETape7Column column);
/// The unit without what it is per; "1" for pure numbers.
std::string unitOf(AtmQuantity quantity);
inline bool isSpectral(AtmQuantity quantity) {
    return quantity == AtmQuantity::radiance || quantity == AtmQuantity::irradiance;
}

}  // namespace tool
