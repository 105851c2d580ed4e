#include "modtran/tape5_reader.h"

#include <algorithm>

#include "core/text.h"
#include "modtran/tape5_number.h"
#include "qv/diagnostic.h"

namespace qv::tape5 {

namespace {

constexpr uint64_t deckLimit = uint64_t{16} << 20;  // bytes

/// What stands in columns; a line ends in blanks without end.
std::string_view cut(std::string_view line, Columns columns) {
    if (columns.first == 0 || columns.first > line.size()) return {};
    return line.substr(columns.first - 1u, columns.width());
}

char columnOf(std::string_view line, size_t column) { return column <= line.size() ? line[column - 1] : ' '; }

Columns moved(Columns columns, uint8_t shift) {
    if (columns.first == 0) return columns;
    return {static_cast<uint8_t>(columns.first + shift), static_cast<uint8_t>(columns.last + shift)};
}

/// One value of a list-directed line, without its separator. False at the end of the line and at a slash.
bool takeToken(std::string_view& line, std::string_view& token, bool& isClosed) {
    const size_t begin = line.find_first_not_of(" ,");
    line.remove_prefix(std::min(begin, line.size()));
    isClosed = !line.empty() && line[0] == '/';
    if (line.empty() || isClosed) return false;
    token = line.substr(0, line.find_first_of(" ,/"));
    line.remove_prefix(token.size());
    return true;
}

bool isRepeat(int32_t flag) { return flag == 1 || flag == -1 || partOf(flag) != inFull; }

}  // namespace

Reader::Reader(std::string_view bytes, int64_t firstLine, Visitor* visitor)
    : m_bytes(bytes), m_lineNumber(firstLine - 1), m_visitor(visitor) {
    m_linesLeft = static_cast<uint64_t>(std::count(bytes.begin(), bytes.end(), '\n'));
    if (!bytes.empty() && bytes.back() != '\n') ++m_linesLeft;
}

bool Reader::isAtEnd() const { return m_bytes.find_first_not_of(" \t\r\n\x1A", m_position) == std::string_view::npos; }

// Lines ---------------------------------------------------------------------------------------------------------------

bool Reader::readLine(const Card& card) {
    if (m_position >= m_bytes.size()) {
        ++m_lineNumber;
        return refuse(card, u"a line", u"the end of the deck");
    }
    const size_t end = std::min(m_bytes.find('\n', m_position), m_bytes.size());
    m_line.assign(m_bytes.substr(m_position, end - m_position));
    std::replace_if(
        m_line.begin(), m_line.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, ' ');
    m_position = std::min(end + 1, m_bytes.size());
    ++m_lineNumber;
    --m_linesLeft;
    return adapt(card);
}

/// Brings the line of a MODTRAN 5 deck into the columns of MODTRAN 4.
bool Reader::adapt(const Card& card) {
    if (card.layout == Layout::plain) return true;
    m_line.resize(std::max<size_t>(m_line.size(), 80), ' ');
    if (card.layout == Layout::driver) return adaptDriver();
    // MODEL needs one column; in front of it stand BINARY and LYMOLC, of which one at least is not blank.
    constexpr std::string_view flags = "TtFf";
    const bool hasBinary = flags.find(m_line[2]) != flags.npos;
    m_isFive =
        m_line[3] == ' ' ? hasBinary : (hasBinary || m_line[2] == ' ') && std::string_view("+TtFf").find(m_line[3]) < 5;
    if (!m_isFive) return true;
    if (text::toUpper(m_line[2]) == 'T') return refuseFive(u"binary output");
    if (m_line[3] != ' ' && text::toUpper(m_line[3]) != 'F') return refuseFive(u"further molecules (LYMOLC)");
    m_line[2] = m_line[3] = ' ';
    return true;
}

bool Reader::adaptDriver() {
    m_isFive = m_isFive || text::isLetter(m_line[2]);
    if (!m_isFive) return true;
    if (text::toUpper(m_line[2]) == 'T') return refuseFive(u"the spherical albedo of DISALB");
    if (m_line[40] != ' ' && m_line[40] != '0') return refuseFive(u"scaled profiles (C_PROF)");
    if (m_line.find_first_of("123456789Tt", 60) < 110) return refuseFive(u"changed aerosols (columns 61 to 110)");
    // NSTR stands one column further right, where LSUN was.
    std::copy(m_line.begin() + 3, m_line.begin() + 6, m_line.begin() + 2);
    m_line[5] = 'F';
    const size_t point = m_line.find('.', 6);
    if (point < 10) std::fill(m_line.begin() + static_cast<ptrdiff_t>(point), m_line.begin() + 10, ' ');
    m_line[40] = ' ';
    if (text::isLetter(m_line[50])) m_line[50] = ' ';
    return true;
}

// Cards ---------------------------------------------------------------------------------------------------------------

bool Reader::readRun(RUN& run, uint8_t part) {
    for (const Block& block : deckOrder()) {
        if ((block.parts & part) == 0) continue;
        const uint32_t count = block.countOf(run);
        for (uint32_t i = 0; i < count; ++i) {
            for (const Card& card : block.cards) {
                if (card.applies(run, i) && !readCard(block, card, run, i)) return false;
            }
        }
    }
    return true;
}

bool Reader::readCard(const Block& block, const Card& card, RUN& run, uint32_t i) {
    if (card.elements != nullptr) return readElements(block, card, run, i);
    if (card.values != nullptr) return readFree(block, card, run, {i, 0});
    if (!readLine(card) || !readFields(block, card, run, {i, 0}, 0)) return false;
    if (m_isFive && card.layout == Layout::main && run.itype == 4) return refuseFive(u"a path of type 4");
    return true;
}

bool Reader::readElements(const Block& block, const Card& card, RUN& run, uint32_t i) {
    const uint32_t count = card.elements(run, i);
    for (uint32_t j = 0; j < count; ++j) {
        const uint32_t onLine = j % card.perLine;
        if (card.values != nullptr) {
            if (!readFree(block, card, run, {i, j})) return false;
            continue;
        }
        if (onLine == 0 && !readLine(card)) return false;
        if (!readFields(block, card, run, {i, j}, static_cast<uint8_t>(onLine * card.width))) return false;
    }
    return true;
}

bool Reader::readFields(const Block& block, const Card& card, RUN& run, Index x, uint8_t shift) {
    for (const Field& field : card.fields) {
        if (field.published.first == 0) continue;
        const Columns own = field.seenOn == nullptr ? field.seen : field.seenOn(m_line, run, m_isFive);
        const Columns columns = moved(own, shift);
        const std::string_view text = cut(m_line, columns);
        if (!store(card, field, run, x, text)) return false;
        visit(block, card, field, run, x, columns, moved(field.published, shift), text);
    }
    return true;
}

/// Values between blanks or commas, on as many lines as they take; what follows on the last line is left.
bool Reader::readFree(const Block& block, const Card& card, RUN& run, Index x) {
    const uint32_t needed = card.values(run, x.i);
    uint32_t taken = 0;
    bool isClosed = false;
    while (taken < needed && !isClosed) {
        if (!readLine(card)) return false;
        std::string_view rest = m_line, token;
        while (taken < card.fields.size() && takeToken(rest, token, isClosed)) {
            const Field& field = card.fields[taken];
            double number = 0.0;
            if (!readReal(token, 0, number)) {
                if (taken >= needed) break;  // a remark
                return refuseField(card, field, u"a number", token);
            }
            if (!store(card, field, run, x, token)) return false;
            visit(block, card, field, run, x, {}, {}, token);
            ++taken;
        }
    }
    return true;
}

void Reader::visit(const Block& block, const Card& card, const Field& field, RUN& run, Index x, Columns columns,
                   Columns published, std::string_view text) {
    if (m_visitor != nullptr) {
        m_visitor->field({block, card, field, x, m_lineNumber, columns, published, text, m_line}, run);
    }
}

bool Reader::store(const Card& card, const Field& field, RUN& run, Index x, std::string_view text) {
    const Access& access = field.access;
    switch (access.storage) {
        case Storage::real:
            return readReal(text, field.decimals, *access.real(run, x)) || refuseField(card, field, u"a number", text);
        case Storage::character: *access.character(run, x) = columnOf(text, 1); return true;
        case Storage::text: return access.setText(run, x, text);
        case Storage::derivedText:
            return access.setText(run, x, text) || refuseField(card, field, u"a known text", text);
        default: break;
    }
    int32_t number = 0;
    if (!readInteger(text, number)) return refuseField(card, field, u"a whole number", text);
    if (access.storage == Storage::derivedInteger && access.derivedInteger.isCount && !isPossible(number)) {
        return refuseField(card, field, u"a count of what the deck holds", text);
    }
    return access.setInteger(run, x, number) || refuseField(card, field, u"a list of at most 4096", text);
}

bool Reader::refuse(const Card& card, const char16_t* expected, const CString& found) {
    SetDiagnostic(CString(), CString::FromFormat(u"%s (card %s, %s)", expected, card.name, card.title), found, -1,
                  m_lineNumber);
    return false;
}

bool Reader::refuseField(const Card& card, const Field& field, const char16_t* expected, std::string_view found) {
    constexpr size_t quoted = 80;
    SetDiagnostic(CString(), CString::FromFormat(u"%s (%s of card %s)", expected, field.name, card.name),
                  CString::FromFormat(u"\"%s\"", found.substr(0, quoted)), -1, m_lineNumber);
    return false;
}

bool Reader::refuseFive(const char16_t* option) {
    SetDiagnostic(CString(), u"a deck of MODTRAN 4", CString::FromFormat(u"an option of MODTRAN 5: %s", option), -1,
                  m_lineNumber);
    return false;
}

// Decks ---------------------------------------------------------------------------------------------------------------

bool readDeck(Reader& reader, TArray<RUN>& runs) {
    (void)runs.SetGrowthRate(0xFFFF);
    uint64_t held = 0;
    int32_t repeat = 1;
    while (repeat != 0) {
        const uint8_t part = runs.empty() ? uint8_t{inFull} : partOf(repeat);
        RUN run = part == inFull ? RUN() : runs.back();
        if (!reader.readRun(run, part)) return false;
        held += footprint(run);
        if (held > footprintLimit || runs.size() == CModtranTape5File::listLimit || !runs.Add(run)) {
            SetDiagnostic(CString(), u"a deck of at most 4096 runs and 64 MiB", u"more", -1, reader.lineNumber());
            return false;
        }
        // The program takes a 2 as a 0. Behind a code that is none nothing is known.
        if (run.irpt == 2 || run.irpt == -2) runs.back().irpt = 0;
        repeat = isRepeat(run.irpt) ? run.irpt : 0;
    }
    return true;
}

bool readBytes(IFile& file, std::string& bytes) {
    const int64_t left = std::max<int64_t>(file.GetRemaining(), 0);
    if (static_cast<uint64_t>(left) > deckLimit) {
        SetDiagnostic(CString(), u"a deck of at most 16 MiB", CString::FromFormat(u"%I64d bytes", left));
        return false;
    }
    bytes.resize(static_cast<size_t>(left));
    if (file.ReadBytes(bytes.data(), static_cast<uint32_t>(left))) return true;
    SetDiagnostic(CString(), CString::FromFormat(u"%I64d bytes", left), u"a short read");
    return false;
}

uint64_t footprint(const RUN& run) {
    using File = CModtranTape5File;
    uint64_t bytes = sizeof(RUN) + run.levels.size() * sizeof(File::LEVEL) +
                     run.boundaries.size() * sizeof(File::CLOUD_BOUNDARY) +
                     run.cloudSpectra.size() * sizeof(File::CLOUD_SPECTRUM) +
                     (run.phaseAngles.size() + run.phaseWavelengths.size() + run.phaseValues.size()) * sizeof(double);
    for (const File::REGION& region : run.regions) bytes += region.spectra.size() * sizeof(File::SPECTRUM);
    for (const File::SURFACE& surface : run.surfaces) {
        bytes += sizeof surface + surface.rows.size() * sizeof(File::BRDF);
    }
    return bytes;
}

}  // namespace qv::tape5
