#include "modtran/tape5_writer.h"

#include <algorithm>
#include <cmath>

#include "core/format.h"
#include "core/text.h"
#include "modtran/tape5_number.h"
#include "modtran/tape5_texts.h"

namespace qv::tape5 {

namespace {

constexpr std::string_view lineEnd = "\r\n";

/// A pattern cut into pieces with one conversion each, the text in front of it included.
class Pieces {
public:
    explicit Pieces(std::string_view pattern) : m_rest(pattern) {}
    std::string_view next() {
        const size_t percent = m_rest.find('%');
        const size_t end = percent == m_rest.npos ? m_rest.npos : m_rest.find_first_of("cdfs", percent);
        const std::string_view piece = m_rest.substr(0, end == m_rest.npos ? end : end + 1);
        m_rest.remove_prefix(piece.size());
        return piece;
    }
    std::string_view rest() const { return m_rest; }

private:
    std::string_view m_rest;
};

bool isPrintable(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) return false;
    }
    return true;
}

class Writer {
public:
    Writer(const RUN& run, std::string& out, CString& reason) : m_run(run), m_out(out), m_reason(reason) {}

    bool write(const Block& block) {
        const uint32_t count = block.countOf(m_run);
        for (uint32_t i = 0; i < count; ++i) {
            for (const Card& card : block.cards) {
                if (card.applies(m_run, i) && !write(card, i)) return false;
            }
        }
        return true;
    }

private:
    bool write(const Card& card, uint32_t i) {
        if (card.format == nullptr) return true;
        if (card.elements == nullptr) return write(card, Index{i, 0});
        const uint32_t count = card.elements(m_run, i);
        const bool endsLines = std::string_view(card.format).ends_with(lineEnd);
        for (uint32_t j = 0; j < count; ++j) {
            if (!write(card, Index{i, j})) return false;
            if (!endsLines && ((j + 1) % card.perLine == 0 || j + 1 == count)) m_out += lineEnd;
        }
        return true;
    }

    bool write(const Card& card, Index x) {
        Pieces pieces(card.format);
        const Field* last = nullptr;
        for (const Field& field : card.fields) {
            if (isOnCard(card, field)) last = &field;
        }
        for (const Field& field : card.fields) {
            if (!isOnCard(card, field)) continue;
            if (!field.isWritten) {
                if (!isUnset(field, x)) return refuse(card, field, x, u"has no place on the card");
                continue;
            }
            if (!write(card, field, x, pieces.next(), &field == last)) return false;
        }
        m_out += pieces.rest();
        return true;
    }

    /// Cards of free format have fields without columns.
    static bool isOnCard(const Card& card, const Field& field) {
        return field.published.first != 0 || card.values != nullptr;
    }

    bool isUnset(const Field& field, Index x) const {
        switch (field.access.storage) {
            case Storage::real: return field.access.realOf(m_run, x) == 0.0;
            case Storage::character: {
                const char flag = text::toUpper(field.access.characterOf(m_run, x));
                return flag == ' ' || flag == 'F';
            }
            default: return field.access.integerOf(m_run, x) == 0;
        }
    }

    bool write(const Card& card, const Field& field, Index x, std::string_view piece, bool isLast) {
        const size_t percent = piece.find('%');
        m_out += piece.substr(0, percent);
        piece.remove_prefix(percent);
        const size_t begin = m_out.size();
        if (!format(field, x, piece)) return refuse(card, field, x, u"cannot be written");
        const size_t width = widthOf(piece, field), size = m_out.size() - begin;
        const bool fits = width == 0 || size == width || (isLast && size < width);
        return fits || refuse(card, field, x, u"does not fit its columns");
    }

    /// Columns that a conversion fills; 0 for one of free format.
    static size_t widthOf(std::string_view piece, const Field& field) {
        const size_t digits = piece.find_first_of("123456789.");
        if (digits != piece.npos && piece[digits] != '.') return text::readNumber<uint32_t>(piece.substr(digits)).value;
        return field.published.width();
    }

    bool format(const Field& field, Index x, std::string_view piece) {
        const Access& access = field.access;
        if (access.isInteger()) {
            put(piece, access.integerOf(m_run, x));
        } else if (access.isText()) {
            const CStringMB text = access.textOf(m_run, x);
            if (!isPrintable(text.view())) return false;
            put(piece, text);
            // APLUS and ARUSS fill their columns.
            if (access.storage == Storage::text && piece == "%s") pad(field, text.view().size());
        } else if (access.storage == Storage::character) {
            const char letter = access.characterOf(m_run, x);
            if (!isPrintable({&letter, 1}) || static_cast<unsigned char>(letter) > 0x7E) return false;
            put(piece, letter);
        } else {
            const double number = access.realOf(m_run, x);
            if (!std::isfinite(number)) return false;
            if (piece.ends_with('s')) {
                put(piece, preparedNumber(number, field.published.width()));
            } else {
                put(piece, number);
            }
        }
        return true;
    }

    void pad(const Field& field, size_t size) {
        if (size < field.published.width()) m_out.append(field.published.width() - size, ' ');
    }

    template <class T>
    void put(std::string_view piece, const T& value) {
        text::format(m_out, piece, Private::packArgs(value));
    }

    bool refuse(const Card& card, const Field& field, Index x, const char16_t* what) {
        m_reason.Format(u"%s of card %s %s: %s.", field.name, card.name, what, valueOf(m_run, field, x));
        return false;
    }

    const RUN& m_run;
    std::string& m_out;
    CString& m_reason;
};

/// What the lists of a run would lose on its cards.
bool checkLists(const RUN& run, CString& reason) {
    const bool hasClouds = run.ihaze != 0 && run.icld >= 1 && run.icld <= 10;
    if (hasClouds && !run.boundaries.empty() && run.boundaries.size() < 3) {
        reason = u"A cloud has 3 altitudes at least on card 2E1.";
    } else if (hasClouds && run.cloudSpectra.size() == 1) {
        reason = u"A cloud has 2 wavelengths at least on card 2E2.";
    } else if (run.aruss.view() == "USS" &&
               std::ranges::any_of(run.regions, [](const auto& region) { return region.spectra.size() == 1; })) {
        reason = u"The user's aerosol spectra have 2 wavelengths at least on card 2D2.";
    } else if (std::max({run.levels.size(), run.boundaries.size(), run.cloudSpectra.size(), run.surfaces.size(),
                         run.phaseAngles.size(), run.phaseWavelengths.size()}) > CModtranTape5File::listLimit) {
        reason = u"A list of a run has 4096 elements at most.";
    } else if (run.surface == 1 &&
               !std::ranges::all_of(run.surfaces, isReflectanceModel, &CModtranTape5File::SURFACE::brdf)) {
        reason = u"The reflectance model of a surface on card 4B1 is unknown.";
    } else if (run.phaseValues.size() != phaseIndex(run, 4, 0, 0)) {
        reason = u"The phase functions do not have 4 values for each angle and wavelength.";
    } else {
        return true;
    }
    return false;
}

}  // namespace

bool write(const RUN& run, uint8_t part, bool inverted, std::string& out, CString& reason) {
    if (!checkLists(run, reason)) return false;
    Writer writer(run, out, reason);
    for (const Block& block : deckOrder()) {
        if (((block.parts & part) != 0) == inverted) continue;
        if (!writer.write(block)) return false;
    }
    return true;
}

CString firstIllegal(const RUN& run) {
    for (const Block& block : deckOrder()) {
        const uint32_t count = block.countOf(run);
        for (const Card& card : block.cards) {
            const char16_t* complaint = card.complaint == nullptr ? nullptr : card.complaint(run);
            if (complaint != nullptr) return complaint;
            if (card.elements != nullptr) continue;  // lists hold no codes
            for (uint32_t i = 0; i < count; ++i) {
                for (const Field& field : card.fields) {
                    if (!isLegal(run, field, {i, 0})) return illegal(run, field, {i, 0});
                }
            }
        }
    }
    return {};
}

}  // namespace qv::tape5
