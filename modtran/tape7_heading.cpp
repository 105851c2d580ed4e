#include "modtran/tape7_heading.h"

#include <algorithm>
#include <string>

#include "core/text.h"

namespace qv::Private {

namespace {

using enum ETape7Column;

struct Label {
    std::string_view text;
    ETape7Column column;
};

/// Words of both lines of a heading of mode 0; some versions spell some of them otherwise.
constexpr Label transmittanceLabels[] = {
    {"COMBIN TRANS", transmittance},
    {"TOTAL TRANS", transmittance},
    {"H2O TRANS", water},
    {"UMIX TRANS", mixedGases},
    {"O3 TRANS", ozone},
    {"TRACE TRANS", traceGases},
    {"N2 CONT", nitrogenContinuum},
    {"H2O CONT", waterContinuum},
    {"MOLEC SCAT", molecularScatter},
    {"AER+CLD TRANS", aerosolCloud},
    {"AER-CLD TRANS", aerosolCloud},
    {"HNO3 TRANS", nitricAcid},
    {"AER+CLD ABTRNS", aerosolCloudAbsorption},
    {"AER-CLD ABTRNS", aerosolCloudAbsorption},
    {"-LOG COMBIN", opticalDepth},
    {"-LOG TOTAL", opticalDepth},
    {"CO2 TRANS", co2},
    {"CO TRANS", co},
    {"CH4 TRANS", ch4},
    {"N2O TRANS", n2o},
    {"O2 TRANS", o2},
    {"NH3 TRANS", nh3},
    {"NO TRANS", no},
    {"NO2 TRANS", no2},
    {"SO2 TRANS", so2},
    {"CLOUD TRANS", cloud},
    {"CFC11 TRANS", cfc11},
    {"CFC12 TRANS", cfc12},
    {"CFC13 TRANS", cfc13},
    {"CFC14 TRANS", cfc14},
    {"CFC22 TRANS", cfc22},
    {"CFC113 TRANS", cfc113},
    {"CFC114 TRANS", cfc114},
    {"CFC115 TRANS", cfc115},
    {"CLONO2 TRANS", clono2},
    {"HNO4 TRANS", hno4},
    {"CHCL2F TRANS", chcl2f},
    {"CCL4 TRANS", ccl4},
    {"N2O5 TRANS", n2o5},
};

/// Of modes 1 and 2, and of their convolved form.
constexpr Label radianceLabels[] = {
    {"TOT TRANS", transmittance},
    {"TRANS", transmittance},
    {"PTH THRML", pathThermal},
    {"THRML SCT", scatteredThermal},
    {"SURF EMIS", surfaceEmission},
    {"SOL SCAT", pathSolar},
    {"SING SCAT", singleScatterSolar},
    {"GRND RFLT", groundReflected},
    {"DRCT RFLT", directGroundReflected},
    {"TOTAL RAD", totalRadiance},
    {"REF SOL", reflectedSun},
    {"SOL@OBS", sunAtObserver},
    {"DEPTH", opticalDepth},
    {"DIR EM", surfaceEmissivity},
    {"TOA SUN", sunAtTop},
    {"BBODY T[K]", brightnessTemperature},
};

/// A word of a heading, in upper case, and where it ends.
struct Word {
    std::string text;
    size_t end;
};

/// Underscores part words as blanks do.
std::vector<Word> wordsOf(std::string_view line) {
    std::vector<Word> words;
    bool within = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const bool blank = text::isSpace(line[i]) || line[i] == '_';
        if (!blank) {
            if (!within) words.emplace_back();
            words.back().text += text::toUpper(line[i]);
            words.back().end = i + 1;
        }
        within = !blank;
    }
    return words;
}

template <size_t count>
ETape7Column columnOf(const Label (&labels)[count], std::string_view text) {
    const auto found = std::find_if(labels, labels + count, [&](const Label& label) { return label.text == text; });
    return found == labels + count ? ETape7Column::count : found->column;
}

/// Adds fields from left to right, each from where the last one ended.
class LayoutMaker {
public:
    explicit LayoutMaker(ETape7Axis axis, size_t freqEnd) : m_at(freqEnd) {
        m_layout.axis = axis;
        m_layout.freq = {0, freqEnd, ETape7Column::count};
    }
    /// A column that is not known, or there already, takes its place alone.
    void addUpTo(size_t end, ETape7Column column) {
        const auto isSame = [&](const Tape7Field& field) { return field.column == column; };
        if (column != ETape7Column::count && std::ranges::none_of(m_layout.columns, isSame)) {
            m_layout.columns.push_back({m_at, end, column});
            m_layout.width = end;
        }
        m_at = end;
    }
    void addWide(size_t width, ETape7Column column) { addUpTo(m_at + width, column); }

    /// A table without the transmittance in front is none; nor is one without `needed`.
    std::optional<Tape7Layout> made(ETape7Column needed) {
        const std::vector<Tape7Field>& fields = m_layout.columns;
        const auto isNeeded = [&](const Tape7Field& field) { return field.column == needed; };
        if (fields.empty() || fields.front().column != transmittance || fields.front().begin != m_layout.freq.end ||
            std::ranges::none_of(fields, isNeeded)) {
            return std::nullopt;
        }
        return std::move(m_layout);
    }

private:
    Tape7Layout m_layout;
    size_t m_at;
};

/// Version 3.5 sets its headings two columns further left than its fields are, so its fields are counted.
constexpr size_t oldFreqEnd = 6;

std::optional<Tape7Layout> oldTransmittance() {
    constexpr size_t fieldWidth = 6;
    LayoutMaker maker(ETape7Axis::wavenumbers, oldFreqEnd);
    for (const ETape7Column column : {transmittance,
                                      water,
                                      mixedGases,
                                      ozone,
                                      traceGases,
                                      nitrogenContinuum,
                                      waterContinuum,
                                      molecularScatter,
                                      aerosolCloud,
                                      nitricAcid,
                                      aerosolCloudAbsorption,
                                      opticalDepth,
                                      co2,
                                      co,
                                      ch4,
                                      n2o,
                                      o2,
                                      nh3,
                                      no,
                                      no2,
                                      so2}) {
        maker.addWide(column == opticalDepth ? fieldWidth + 1 : fieldWidth, column);
    }
    return maker.made(transmittance);
}

std::optional<Tape7Layout> oldRadiance() {
    LayoutMaker maker(ETape7Axis::wavenumbers, oldFreqEnd + 1);
    for (const ETape7Column column : {transmittance, pathThermal, scatteredThermal, surfaceEmission, pathSolar,
                                      singleScatterSolar, groundReflected, directGroundReflected, totalRadiance}) {
        maker.addWide(11, column);
    }
    maker.addWide(9, reflectedSun);
    maker.addWide(9, sunAtObserver);
    maker.addWide(8, opticalDepth);
    return maker.made(pathThermal);
}

/// Each field ends where its word in the second line does; of the first line, words may end before.
std::optional<Tape7Layout> transmittanceLayout(const std::vector<Word>& first, const std::vector<Word>& second) {
    if (second.size() < 2 || second[0].text != "CM-1") return std::nullopt;
    if (first[0].end == oldFreqEnd) return oldTransmittance();
    LayoutMaker maker(ETape7Axis::wavenumbers, second[0].end);
    auto upper = first.begin();
    for (size_t i = 1; i < second.size(); ++i) {
        while (upper != first.end() && upper->end <= second[i - 1].end) ++upper;
        const bool fits = upper != first.end() && upper->end <= second[i].end;
        const std::string label = (fits ? upper->text : std::string()) + " " + second[i].text;
        maker.addUpTo(second[i].end, columnOf(transmittanceLabels, label));
    }
    return maker.made(transmittance);
}

/// The axis that the first words name, and how many words that takes.
std::optional<ETape7Axis> axisOf(const std::vector<Word>& words, size_t& used) {
    used = 1;
    const std::string unit = words.size() > 1 ? words[1].text : std::string();
    const bool frequency = words[0].text.starts_with("FREQ");
    if (frequency && unit != "CM-1") return ETape7Axis::wavenumbers;
    used = 2;
    if (frequency) return ETape7Axis::wavenumbers;
    if (unit == "MCRN") return ETape7Axis::microns;
    if (unit == "NM") return ETape7Axis::nanometres;
    return std::nullopt;
}

/// Each field ends where its label does.
std::optional<Tape7Layout> radianceLayout(const std::vector<Word>& words) {
    size_t at = 0;
    const std::optional<ETape7Axis> axis = axisOf(words, at);
    if (!axis) return std::nullopt;
    if (at == 1 && words[0].end == oldFreqEnd) return oldRadiance();
    LayoutMaker maker(*axis, words[at - 1].end);
    for (; at < words.size(); ++at) {
        ETape7Column column = columnOf(radianceLabels, words[at].text);
        if (column == ETape7Column::count && at + 1 < words.size()) {
            column = columnOf(radianceLabels, words[at].text + " " + words[at + 1].text);
            if (column != ETape7Column::count) ++at;
        }
        maker.addUpTo(words[at].end, column);
    }
    return maker.made(pathThermal);
}

/// The labels of this heading do not stand over their fields, and the last field has none.
std::optional<Tape7Layout> irradianceLayout(const std::vector<Word>& words) {
    constexpr std::string_view labels[] = {"FREQ", "TRANS", "SOL", "TR", "SOLAR"};
    const auto isLabel = [](const Word& word, std::string_view label) { return word.text == label; };
    if (!std::ranges::equal(words, labels, isLabel)) return std::nullopt;
    LayoutMaker maker(ETape7Axis::wavenumbers, words[0].end == oldFreqEnd ? oldFreqEnd + 1 : words[0].end);
    maker.addWide(8, transmittance);
    maker.addWide(9, transmittedSun);
    maker.addWide(9, sunAtTop);
    maker.addUpTo(95, ETape7Column::count);
    maker.addWide(10, opticalDepth);
    return maker.made(transmittedSun);
}

}  // namespace

std::string_view Tape7Field::in(std::string_view row) const {
    std::string_view field = row.substr(std::min(begin, row.size()));
    field = field.substr(0, end - begin);
    while (!field.empty() && text::isSpace(field.front())) field.remove_prefix(1);
    while (!field.empty() && text::isSpace(field.back())) field.remove_suffix(1);
    return field;
}

bool isTape7Heading(std::string_view line) {
    line = line.substr(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(" _"));
    constexpr std::string_view known[] = {"FREQ", "FREQUENCY", "WAVLEN", "WAVELENGTH"};
    return std::ranges::any_of(known, [&](std::string_view name) { return text::compareNoCase(word, name) == 0; });
}

std::optional<Tape7Layout> tape7Layout(int mode, std::string_view first, std::string_view second) {
    const std::vector<Word> words = wordsOf(first);
    if (words.empty()) return std::nullopt;
    switch (mode) {
        case 0: return transmittanceLayout(words, wordsOf(second));
        case 1:
        case 2: return radianceLayout(words);
        case 3: return irradianceLayout(words);
        default: return std::nullopt;
    }
}

}  // namespace qv::Private
