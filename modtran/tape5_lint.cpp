// What the program would read otherwise than it was meant.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include "core/text.h"
#include "modtran/tape5_number.h"
#include "modtran/tape5_reader.h"
#include "qv/tape5_cards.h"

namespace qv {

namespace {

using namespace tape5;

bool isOneOf(int32_t code, std::initializer_list<int32_t> codes) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}
bool isLetter(char letter, std::string_view letters) { return letters.find(text::toUpper(letter)) != letters.npos; }
bool hasClouds(const RUN& r) { return r.icld >= 1 && r.icld <= 10; }
bool hasOwnSpectra(const RUN& r) { return r.aruss.view() == "USS"; }
bool hasRegions(const RUN& r) { return r.ihaze == 7 || r.icld == 11 || hasOwnSpectra(r); }
bool hasProfile(const RUN& r) { return isOneOf(r.model, {0, 7, 8}) && r.im == 1; }

bool isOffGrid(const RUN& r) {
    if (!hasRegions(r) || hasOwnSpectra(r)) return false;
    for (const CModtranTape5File::REGION& region : r.regions) {
        for (uint32_t k = 0; k < std::min(region.spectra.size(), gridPoints); ++k) {
            if (std::fabs(region.spectra[k].varspc - aerosolGrid[k]) > 0.006 * std::max(1.0, aerosolGrid[k]))
                return true;
        }
    }
    return false;
}

/// What is doubtful in the values of a run, and the field that the warning stands at.
struct Rule {
    const char* field;
    bool (*applies)(const RUN&);
    const char16_t* text;
};

constexpr Rule rules[] = {
    {"IMULT",
     [](const RUN& r) {
         return r.imult != 0 && (isOneOf(r.iemsct, {0, 3}) || r.itype == 1);
     },
     u"multiple scattering is switched off for transmittance, irradiance and horizontal paths"},
    {"MODTRN",
     [](const RUN& r) {
         return isLetter(r.modtrn, "CK") && isOneOf(r.iemsct, {0, 3});
     },
     u"correlated k is for radiance only"},
    {"IM",
     [](const RUN& r) {
         return r.im == 1 && !isOneOf(r.model, {0, 7, 8});
     },
     u"this model reads no atmosphere of the user's"},
    {"NSTR",
     [](const RUN& r) {
         return r.imult != 0 && isLetter(r.dis, "TS") && !isOneOf(r.nstr, {2, 4, 8, 16});
     },
     u"DISORT takes 2, 4, 8 or 16 streams"},
    {"LSUNFL", [](const RUN& r) { return isLetter(r.lsunfl, "T") && !isLetter(r.lsun, "T"); },
     u"the solar file has no effect without LSUN"},
    {"APLUS", [](const RUN& r) { return r.aplus.view() == "A+" && (r.ihaze < 0 || r.ihaze == 7 || r.icld == 11); },
     u"the program switches this off, and does not read card 2A+"},
    {"APLUS",
     [](const RUN& r) {
         return r.aplus.view() == "A+" && (isLetter(r.cnovam, "N") || (hasProfile(r) && isOneOf(r.ird2, {1, 2})));
     },
     u"has no effect with NOVAM or with the aerosols of card 2C3"},
    {"APLUS", [](const RUN& r) { return !r.aplus.IsEmpty() && r.aplus.view() != "A+"; },
     u"only A+ in upper case is known"},
    {"ARUSS", [](const RUN& r) { return !r.aruss.IsEmpty() && !hasOwnSpectra(r); }, u"only USS in upper case is known"},
    {"ICLD", [](const RUN& r) { return r.ihaze == 0 && (hasClouds(r) || r.icld >= 18); },
     u"with IHAZE 0 the program takes ICLD as 0 and reads no cards 2A and 2E; IHAZE -1 is clouds without aerosol"},
    {"ICLD",
     [](const RUN& r) {
         return hasClouds(r) && hasRegions(r) &&
                (r.boundaries.size() >= 3 || r.ncrspc == 1 || r.cloudSpectra.size() >= 2);
     },
     u"cards 2D and 2E are both there: some builds of the program read 2E first"},
    {"GNDALT", [](const RUN& r) { return r.gndalt >= 6.0; }, u"6 km and more are taken as 0"},
    {"IVSA",
     [](const RUN& r) { return r.ivsa == 1 && hasProfile(r) && r.model != 8 && (r.levels.size() > 24 || r.ird2 != 0); },
     u"with this profile the program reads at most 24 levels and another form of card 2C3"},
    {"NCRALT", [](const RUN& r) { return hasClouds(r) && r.boundaries.size() > 16; }, u"the program takes at most 16"},
    {"ML", [](const RUN& r) { return hasProfile(r) && r.levels.empty(); }, u"the profile has no levels"},
    {"ML", [](const RUN& r) { return r.model == 0 && hasProfile(r) && r.levels.size() > 1; }, u"model 0 has one level"},
    {"IREG1", isOffGrid,
     u"without USS the wavelengths of card 2D2 are ignored, and these are not on the program's grid"},
    {"IPARM",
     [](const RUN& r) {
         return r.iemsct == 2 && isOneOf(r.iparm, {1, 11}) && r.isourc == 1;
     },
     u"the moon cannot be placed by time"},
    {"IPARM",
     [](const RUN& r) {
         return r.iemsct == 2 && !isOneOf(r.iparm, {0, 1, 2, 10, 11, 12});
     },
     u"is none of 0, 1, 2, 10, 11, 12"},
    {"IPH", [](const RUN& r) { return r.iemsct == 2 && r.iph == 0 && r.g == 0.0; },
     u"the asymmetry factor G of card 3A2 is 0, as in every deck that this library writes: scattering is isotropic"},
    {"NANGLS", [](const RUN& r) { return r.iemsct == 2 && r.iph == 1 && r.phaseAngles.size() > 50; },
     u"the program takes at most 50"},
    {"FLAGS5",
     [](const RUN& r) {
         const char(&f)[7] = r.output.flags;
         return f[0] == ' ' && f[1] == ' ' && f[2] == ' ' && f[3] == ' ' && (f[4] != ' ' || f[5] != ' ');
     },
     u"FLAGS 5 and 6 are ignored while FLAGS 1 to 4 are blank"},
    {"DV", [](const RUN& r) { return r.output.dv <= 0.0; }, u"the step is not above 0"},
    {"NSURF",
     [](const RUN& r) {
         return isOneOf(r.surface, {1, 2}) && (r.surfaces.empty() || r.surfaces.size() > 2);
     },
     u"there are 1 or 2 surfaces"},
    {"IRPT",
     [](const RUN& r) {
         return isOneOf(r.irpt, {2, -2});
     },
     u"the program takes 2 as 0: the deck ends here"},
};

/// Remembers where the fields of a run stand, and judges each as it comes.
class Judge : public Visitor {
public:
    explicit Judge(TArray<TAPE5_WARNING>& warnings) : m_warnings(warnings) {}

    void field(const Seen& seen, const RUN& run) override {
        m_places.push_back({seen.lineNumber, seen.columns, seen.card.name, seen.field.name, seen.index});
        judgeColumns(seen, run);
        judgePoint(seen);
        judgeCode(seen, run);
        const bool endsDeck = isOneOf(run.irpt, {2, -2}) && std::string_view(seen.card.name) == "5";  // a rule says so
        if (!endsDeck && !isLegal(run, seen.field, seen.index)) {
            warn(seen, CString::FromFormat(u"%s The program may stop.", illegal(run, seen.field, seen.index)));
        }
        if (std::string_view(seen.card.name) == "5") endRun(run);
    }

private:
    struct Place {
        int64_t line;
        Columns columns;
        const char* card;
        const char* field;
        Index index;
    };

    void warn(const Seen& seen, const CString& text) {
        TAPE5_WARNING made{m_run, seen.lineNumber, seen.columns.first, seen.columns.last, seen.card.name, {}, text};
        made.name = CStringMB(fullName(seen.block, seen.card, seen.field, seen.index));
        m_warnings.Add(made);
    }

    /// A number that the library finds in wider columns than the program looks at.
    void judgeColumns(const Seen& seen, const RUN& run) {
        if (seen.columns == seen.published || seen.columns.first == 0) return;
        if (std::string_view(seen.card.name) == "2C") return judgeTitle(seen, run);
        const double meant = seen.field.access.realOf(run, seen.index);
        double read = 0.0;
        const std::string_view there = cutOut(seen.line, seen.published);
        const bool isNumber = readReal(there, seen.field.decimals, read);
        if (isNumber && read == meant) return;
        warn(seen, CString::FromFormat(u"the program looks at columns %u to %u and reads %s instead of %s",
                                       unsigned{seen.published.first}, unsigned{seen.published.last},
                                       isNumber ? shortest(read) : std::string("no number"), shortest(meant)));
    }

    static std::string_view cutOut(std::string_view line, Columns columns) {
        return columns.first > line.size() ? std::string_view() : line.substr(columns.first - 1u, columns.width());
    }
    static std::string shortest(double number) {
        char digits[32];
        return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
    }

    /// The title of card 2C, behind whose first 20 columns some programs look for numbers.
    void judgeTitle(const Seen& seen, const RUN& run) {
        const bool isRadius = run.model == 8 && !trimmed(cutOut(seen.line, {36, 45})).empty();
        const bool isScale = run.model != 8 && !trimmed(cutOut(seen.line, {46, 75})).empty();
        if (isRadius) warn(seen, u"the title stands in columns 36 to 45, where the program reads the Earth's radius");
        if (isScale) warn(seen, u"the title stands in columns 46 to 75, where some builds read scale factors");
    }

    /// Fortran puts a point into a number that has none.
    void judgePoint(const Seen& seen) {
        if (seen.field.decimals == 0 || seen.field.access.storage != Storage::real || seen.columns.first == 0) return;
        const std::string_view text = trimmed(seen.text);
        double asRead = 0.0;
        if (text.find('.') != text.npos || !readReal(text, seen.field.decimals, asRead) || asRead == 0.0) return;
        warn(seen, CString::FromFormat(u"\"%s\" has no decimal point and reads as %s", text, shortest(asRead)));
    }

    /// A number that the library takes as another.
    void judgeCode(const Seen& seen, const RUN& run) {
        int32_t there = 0;
        if (seen.field.access.storage != Storage::derivedInteger || !readInteger(seen.text, there)) return;
        const int32_t taken = seen.field.access.integerOf(run, seen.index);
        if (there == taken) return;
        if (std::string_view(seen.card.name) == "2C3") {
            warn(seen, CString::FromFormat(u"of IHA1, ICLD1 and IVUL1 the first that is not 0 counts; this %d does not",
                                           there));
        } else if (hasOwnSpectra(run) && there == 1) {
            warn(seen, CString::FromFormat(u"1 is taken as %d points; with USS some builds of the program read 1 point",
                                           taken));
        } else {
            warn(seen, CString::FromFormat(u"%d is taken as %d", there, taken));
        }
    }

    void endRun(const RUN& run) {
        for (const Rule& rule : rules) {
            const auto place = std::find_if(m_places.begin(), m_places.end(), [&rule](const Place& known) {
                return std::string_view(known.field) == rule.field;
            });
            if (place == m_places.end() || !rule.applies(run)) continue;
            m_warnings.Add(
                {m_run, place->line, place->columns.first, place->columns.last, place->card, rule.field, rule.text});
        }
        m_places.clear();
        ++m_run;
    }

    TArray<TAPE5_WARNING>& m_warnings;
    std::vector<Place> m_places;
    int32_t m_run = 0;
};

int byLine(const void* a, const void* b) {
    const auto* left = static_cast<const TAPE5_WARNING*>(a);
    const auto* right = static_cast<const TAPE5_WARNING*>(b);
    if (left->line != right->line) return left->line < right->line ? -1 : 1;
    return left->first == right->first ? 0 : left->first < right->first ? -1 : 1;
}

void addForLine(TArray<TAPE5_WARNING>& warnings, int32_t run, int64_t line, const char* card, const char16_t* text) {
    warnings.Add({run, line, 0, 0, card, {}, text});
}

}  // namespace

bool LintTape5(TSharedPtr<IFile> file, TArray<TAPE5_WARNING>& warnings) {
    warnings.Empty();
    (void)warnings.SetGrowthRate(0xFFFF);
    std::string bytes;
    if (!file || !readBytes(*file, bytes)) return false;
    Judge judge(warnings);
    Reader reader(bytes, 1, &judge);
    TArray<RUN> runs;
    if (!readDeck(reader, runs)) return false;
    const int32_t last = static_cast<int32_t>(runs.size()) - 1;
    if (reader.isFive()) {
        addForLine(warnings, 0, 1, "1",
                   u"the cards are laid out as MODTRAN 5 has them; a save lays them out for MODTRAN 4");
    }
    if (!reader.isAtEnd()) {
        addForLine(warnings, last, reader.lineNumber() + 1, "5", u"lines behind the end of the deck are never read");
    }
    warnings.Sort(byLine);
    return true;
}

}  // namespace qv
