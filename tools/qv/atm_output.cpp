// qv atm csv, plot, band and curve: what the atmosphere program put out.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>

#include "atm_commands.h"
#include "atm_plot.h"
#include "atm_table.h"
#include "command.h"
#include "json.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

using Column = qv::ETape7Column;

struct Options {
    std::string file;
    std::optional<uint32_t> run;
    std::string output;
    std::optional<double> from, to;
    bool force = false;
    bool json = false;
};

std::string axisUnit(qv::ETape7Axis axis) {
    switch (axis) {
        case qv::ETape7Axis::microns: return "um";
        case qv::ETape7Axis::nanometres: return "nm";
        default: return "1/cm";
    }
}

void write(const Options& options, const std::string& text) {
    requireOther(options.output, {options.file});
    Target target(options.output, options.force);
    if (!target.open()->WriteBytes(text.data(), static_cast<uint32_t>(text.size()))) {
        throw Failure(Exit::io, options.output + ": cannot be written (is the disk full?)");
    }
    target.commit();
}

/// One line about an output that was written.
void report(const Options& options, const std::string& schema, const AtmTable& atm) {
    const auto rows = static_cast<uint64_t>(atm.table().data.size());
    if (options.json) {
        Json::document(schema).set("output", options.output).set("run", atm.run()).set("rows", rows).print(std::cout);
    } else {
        std::cout << options.output << ": run " << atm.run() << ", " << rows << " rows\n";
    }
}

// csv ----------------------------------------------------------------------------------------------------------------

Exit csv(const Options& options) {
    const AtmTable atm(options.file, options.run);
    const qv::TAPE7_RUN& table = atm.table();
    std::vector<Table::Column> heads{{"wavenumber [1/cm]"}, {"wavelength [um]"}};
    for (const Column column : table.columns) {
        const AtmQuantity quantity = quantityOf(column);
        heads.push_back({nameOf(column) + " [" + unitOf(quantity) +
                         (isSpectral(quantity) ? " per " + axisUnit(table.axis) : std::string()) + "]"});
    }
    Table(heads).printCsv(std::cout);
    std::string line;  // numbers need no quotes, and there may be a million rows
    for (const qv::TAPE7_DATA& row : table.data) {
        line = exact(atm.wavenumber(row.freq));
        line += ',';
        if (row.freq > 0.0) line += exact(atm.microns(row.freq));
        for (const Column column : table.columns) {
            line += ',';
            if (row.Has(column)) line += exact(row[column]);
        }
        std::cout << line << '\n';
    }
    return Exit::done;
}

// band ---------------------------------------------------------------------------------------------------------------

/// The part of a table between two wavelengths, with rows of their own at its ends.
class Band {
public:
    Band(const AtmTable& atm, const Options& options) : m_atm(atm) {
        const qv::TArray<qv::TAPE7_DATA>& rows = atm.table().data;
        const auto begin = std::find_if(rows.begin(), rows.end(), [](const auto& row) { return row.freq > 0.0; });
        if (begin == rows.end()) throw Failure(Exit::damaged, atm.path() + ": no row has a wavelength");
        const auto [low, high] = std::minmax({atm.microns(begin->freq), atm.microns(rows.back().freq)});
        m_from = options.from.value_or(low);
        m_to = options.to.value_or(high);
        // Ends that were printed with few digits still count as the table's.
        constexpr double slack = 1e-6;
        if (m_from < low - slack || m_to > high + slack) {
            throw Failure(Exit::negative, atm.path() + ": run " + std::to_string(atm.run()) + " covers " +
                                              number(low, 7) + " to " + number(high, 7) + " um, not " +
                                              number(m_from, 7) + " to " + number(m_to, 7));
        }
        m_from = std::max(m_from, low);
        m_to = std::min(m_to, high);
        if (!(m_from < m_to)) throw Failure(Exit::usage, "--from and --to: there is nothing between them");
        const auto [first, last] = std::minmax({atm.freqOf(m_from), atm.freqOf(m_to)});
        warnOfGaps(first, last);
        (void)atm.file().GetData(atm.run(), std::max(first, begin->freq), m_first);
        (void)atm.file().GetData(atm.run(), std::min(last, rows.back().freq), m_last);
        const auto isInside = [&, last = last](const auto& row) { return row.freq > m_first.freq && row.freq < last; };
        m_inside = std::find_if(rows.begin(), rows.end(), isInside);
        m_insideEnd = std::find_if_not(m_inside, rows.end(), isInside);
    }

    double from() const { return m_from; }
    double to() const { return m_to; }
    size_t rows() const { return static_cast<size_t>(m_insideEnd - m_inside) + 2; }

    /// Mean over wavelength: a pure number as it is, a radiance per micron. Not a number where a value is absent.
    double mean(Column column) const {
        return isSpectral(quantityOf(column))
                   ? integral(column) / (m_to - m_from)
                   : sum(column, [this](double freq) { return m_atm.microns(freq); }) / (m_to - m_from);
    }
    /// Of a radiance, over the band.
    double integral(Column column) const {
        return sum(column, [](double freq) { return freq; });
    }

private:
    void warnOfGaps(double first, double last) const {
        const qv::TArray<qv::TAPE7_DATA>& rows = m_atm.table().data;
        for (uint32_t i = 1; i < rows.size(); ++i) {
            const double low = rows.data()[i - 1].freq, high = rows.data()[i].freq;
            if (!m_atm.isBehindGap(i) || high <= first || low >= last) continue;
            const auto [from, to] = std::minmax({m_atm.microns(low), m_atm.microns(high)});
            std::cerr << "qv: warning: " << m_atm.path() << ": there are no rows between " << number(from, 7) << " and "
                      << number(to, 7) << " um; the values there are made up from both ends\n";
        }
    }

    /// Trapezoids over what `place` makes of the axis.
    template <class Place>
    double sum(Column column, Place place) const {
        double total = 0.0;
        const qv::TAPE7_DATA* left = &m_first;
        const auto add = [&](const qv::TAPE7_DATA& right) {
            total += 0.5 * std::fabs(place(right.freq) - place(left->freq)) * (right[column] + (*left)[column]);
            left = &right;
        };
        std::for_each(m_inside, m_insideEnd, add);
        add(m_last);
        return total;
    }

    const AtmTable& m_atm;
    double m_from = 0.0;
    double m_to = 0.0;
    qv::TAPE7_DATA m_first, m_last;            ///< At the band's ends.
    const qv::TAPE7_DATA* m_inside = nullptr;  ///< Rows of the table between them.
    const qv::TAPE7_DATA* m_insideEnd = nullptr;
};

/// Averages of an optical depth or a temperature stand for nothing.
bool hasMean(AtmQuantity quantity) { return quantity != AtmQuantity::depth && quantity != AtmQuantity::temperature; }

Exit band(const Options& options) {
    const AtmTable atm(options.file, options.run);
    const Band part(atm, options);
    Table lines({{"quantity", Table::Align::left},
                 {"mean"},
                 {"unit", Table::Align::left},
                 {"in the band"},
                 {"unit", Table::Align::left}});
    Json values = Json::array();
    for (const Column column : atm.table().columns) {
        const AtmQuantity quantity = quantityOf(column);
        const double mean = part.mean(column);
        if (!hasMean(quantity) || std::isnan(mean)) continue;
        Json value = Json::object().set("column", keyOf(column)).set("mean", mean);
        if (isSpectral(quantity)) {
            const std::string unit = unitOf(quantity);
            lines.add({nameOf(column), number(mean, 6), unit + " per um", number(part.integral(column), 6), unit});
            value.set("meanUnit", unit + " per um").set("integral", part.integral(column)).set("integralUnit", unit);
        } else {
            lines.add({nameOf(column), fixed(mean, 6), "1"});
            value.set("meanUnit", "1");
        }
        values.push(value);
    }
    if (options.json) {
        Json::document("qv.atm.band.1")
            .set("file", options.file)
            .set("run", atm.run())
            .set("fromMicrons", part.from())
            .set("toMicrons", part.to())
            .set("values", values)
            .print(std::cout);
    } else {
        std::cout << options.file << ", run " << atm.run() << ": " << atm.modeName() << ", " << number(part.from(), 7)
                  << " to " << number(part.to(), 7) << " um, " << part.rows() << " points\n";
        lines.print(std::cout, "  ");
    }
    return Exit::done;
}

// curve --------------------------------------------------------------------------------------------------------------

/// The text that calibrations read, whose integrals over microns take the path radiance as it stands there.
Exit curve(const Options& options) {
    const AtmTable atm(options.file, options.run);
    if (!atm.has(Column::pathThermal)) {
        throw Failure(Exit::negative, options.file + ": run " + std::to_string(atm.run()) + " is of the mode " +
                                          atm.modeName() + " and has no path radiance");
    }
    std::string text =
        "Transmittance, and path thermal radiance in W/(sr-cm^2) per micron, over wavenumbers\nFREQ "
        "TRANS PTH_THRML\n";
    std::vector<std::string> lines;
    for (const qv::TAPE7_DATA& row : atm.table().data) {
        if (!row.Has(Column::transmittance) || !row.Has(Column::pathThermal)) {
            throw Failure(Exit::damaged, options.file + ": the row at " + exact(row.freq) + " has a value missing");
        }
        if (!std::isfinite(row[Column::pathThermal] * atm.perMicron(row.freq))) {
            throw Failure(Exit::damaged, options.file + ": the row at " + exact(row.freq) + " has no finite radiance");
        }
        lines.push_back(exact(atm.wavenumber(row.freq)) + " " + exact(row[Column::transmittance]) + " " +
                        exact(row[Column::pathThermal] * atm.perMicron(row.freq)) + "\n");
    }
    // Curves come by ascending wavenumber.
    if (atm.table().axis != qv::ETape7Axis::wavenumbers) std::reverse(lines.begin(), lines.end());
    for (const std::string& line : lines) text += line;
    write(options, text + "-9999.\n");
    report(options, "qv.atm.curve.1", atm);
    return Exit::done;
}

Exit plot(const Options& options) {
    const AtmTable atm(options.file, options.run);
    write(options, drawAtmosphere(atm));
    report(options, "qv.atm.plot.1", atm);
    return Exit::done;
}

CLI::App* addVerb(CLI::App& atm, const std::shared_ptr<Options>& options, const std::string& name,
                  const std::string& summary, const std::string& examples, Exit (*body)(const Options&)) {
    CLI::App* verb = addCommand(atm, name, summary, examples, [options, body] { return body(*options); });
    verb->add_option("file", options->file, "Output of the program, tape7 or tape7.scn")->required();
    verb->add_option("--run", options->run, "Run, from 0 (the first that has rows)");
    return verb;
}

void addOutput(CLI::App* verb, const std::shared_ptr<Options>& options, const std::string& what) {
    verb->add_option("-o,--output", options->output, what)->required();
    verb->add_flag("--force", options->force, "Replace the output when it exists");
}

}  // namespace

void addAtmOutput(CLI::App& atm) {
    auto options = std::make_shared<Options>();
    addVerb(atm, options, "csv",
            "A run's table as comma-separated text with the unit in every head; what is absent stays empty.",
            "  qv atm csv path.tape7\n  qv atm csv path.tape7 --run 1 > path.csv", csv);

    CLI::App* verb = addVerb(atm, options, "plot",
                             "Draw a run as an SVG over wavelength: its transmittance, and the radiance of its path.",
                             "  qv atm plot path.tape7 -o path.svg\n"
                             "  qv atm plot path.tape7 --run 1 -o night.svg --force",
                             plot);
    addOutput(verb, options, "Drawing to write");
    verb->add_flag("--json", options->json, "Facts as JSON");

    verb = addVerb(atm, options, "band", "Averages over a band of wavelengths, and the radiance within it.",
                   "  qv atm band path.tape7 --from 3.4 --to 4.1\n  qv atm band path.tape7 --json", band);
    verb->add_option("--from", options->from, "Shortest wavelength [um] (that of the table)");
    verb->add_option("--to", options->to, "Longest wavelength [um] (that of the table)");
    verb->add_flag("--json", options->json, "Facts as JSON");

    verb = addVerb(atm, options, "curve",
                   "Write a run's transmittance and path radiance as qv rcal --modtran takes them: calibrations "
                   "integrate over microns, and the program's radiances are per 1/cm.",
                   "  qv atm curve path.tape7 -o path.curve\n"
                   "  qv atm curve path.tape7 --run 1 -o night.curve --force",
                   curve);
    addOutput(verb, options, "Curve file to write");
    verb->add_flag("--json", options->json, "Facts as JSON");
}

}  // namespace tool
