// The cards of a deck: one table of their order, conditions, fields, columns and formats, from which decks are read,
// written, checked and shown.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "qv/tape5_file.h"

namespace qv::tape5 {

using RUN = CModtranTape5File::RUN;

/// Which of several: the repetition of a card (or of its group), and the element on it.
struct Index {
    uint32_t i = 0;
    uint32_t j = 0;
};

/// A count that stands for the length of a list, or a number that is made from others.
struct DerivedInteger {
    int32_t (*get)(const RUN&, Index);
    bool (*set)(RUN&, Index, int32_t);  ///< False for a list that is too long.
    bool isCount = true;
};
/// A text on a card that is made from other values.
struct DerivedText {
    CStringMB (*get)(const RUN&, Index);
    bool (*set)(RUN&, Index, std::string_view);  ///< False for a text that means nothing.
};

enum class Storage : uint8_t { integer, real, character, text, derivedInteger, derivedText };

/// Where a run keeps a field.
struct Access {
    template <class F>
    requires std::is_invocable_v<F, RUN&, Index>
    constexpr Access(F place) {
        using T = std::remove_pointer_t<std::invoke_result_t<F, RUN&, Index>>;
        T* (*function)(RUN&, Index) = place;
        if constexpr (std::is_same_v<T, int32_t>) {
            storage = Storage::integer, integer = function;
        } else if constexpr (std::is_same_v<T, double>) {
            storage = Storage::real, real = function;
        } else if constexpr (std::is_same_v<T, char>) {
            storage = Storage::character, character = function;
        } else {
            storage = Storage::text, text = function;
        }
    }
    constexpr Access(DerivedInteger made) : storage(Storage::derivedInteger), derivedInteger(made) {}
    constexpr Access(DerivedText made) : storage(Storage::derivedText), derivedText(made) {}

    bool isInteger() const { return storage == Storage::integer || storage == Storage::derivedInteger; }
    bool isText() const { return storage == Storage::text || storage == Storage::derivedText; }

    // What reads leaves the run as it is.
    int32_t integerOf(const RUN& run, Index x) const;
    double realOf(const RUN& run, Index x) const { return *real(const_cast<RUN&>(run), x); }
    char characterOf(const RUN& run, Index x) const { return *character(const_cast<RUN&>(run), x); }
    CStringMB textOf(const RUN& run, Index x) const;
    bool setInteger(RUN& run, Index x, int32_t value) const;
    bool setText(RUN& run, Index x, std::string_view value) const;

    Storage storage = Storage::integer;
    union {
        int32_t* (*integer)(RUN&, Index) = nullptr;
        double* (*real)(RUN&, Index);
        char* (*character)(RUN&, Index);
        CStringMB* (*text)(RUN&, Index);
        DerivedInteger derivedInteger;
        DerivedText derivedText;
    };
};

/// The codes of an option, and what is said of any other.
struct Legal {
    const char16_t* message = nullptr;
    const char* letters = nullptr;  ///< Upper case; either case is legal.
    std::span<const int32_t> codes;
};

/// Columns from 1; a first of 0 is no column.
struct Columns {
    uint8_t first = 0, last = 0;
    size_t width() const { return first == 0 ? 0 : size_t{last} - first + 1; }
    bool operator==(const Columns&) const = default;
};

/// One field of a card, or (without columns) a value behind fields.
struct Field {
    const char* name;
    Columns published;
    Access access;
    const char* meaning;
    Columns seen;          ///< Where the reader looks, so that both layouts are taken.
    uint8_t decimals = 0;  ///< Of a number that has no point.
    bool isWritten = true;
    Legal legal = {};
    /// Columns that depend on the line; `isFive` for a deck of MODTRAN 5.
    Columns (*seenOn)(std::string_view line, const RUN&, bool isFive) = nullptr;

    constexpr Field(const char* fieldName, uint8_t first, uint8_t last, Access place, const char* what)
        : name(fieldName), published{first, last}, access(place), meaning(what), seen{first, last} {}
    constexpr Field implied(uint8_t count) const {
        Field made = *this;
        made.decimals = count;
        return made;
    }
    constexpr Field from(uint8_t first, uint8_t last) const {
        Field made = *this;
        made.seen = {first, last};
        return made;
    }
    constexpr Field from(Columns (*columns)(std::string_view, const RUN&, bool)) const {
        Field made = *this;
        made.seenOn = columns;
        return made;
    }
    constexpr Field unwritten() const {
        Field made = *this;
        made.isWritten = false;
        return made;
    }
    constexpr Field only(const char16_t* message, const char* letters) const {
        Field made = *this;
        made.legal = {message, letters, {}};
        return made;
    }
    constexpr Field only(const char16_t* message, std::span<const int32_t> codes) const {
        Field made = *this;
        made.legal = {message, nullptr, codes};
        return made;
    }
};

/// Cards whose columns MODTRAN 5 has laid out anew.
enum class Layout : uint8_t { plain, main, driver };

/// One line of a deck, or several that hold the elements of a list.
struct Card {
    const char* name;
    const char* title;
    const char* format;  ///< Of the line, or of one element; null for a card that is not written.
    std::span<const Field> fields;
    bool (*applies)(const RUN&, uint32_t i);
    Layout layout = Layout::plain;
    // Lists: how many elements, how many on a line, and columns of one.
    uint32_t (*elements)(const RUN&, uint32_t i) = nullptr;
    uint8_t perLine = 1, width = 0;
    // Free format: how many values the program reads.
    uint32_t (*values)(const RUN&, uint32_t i) = nullptr;
    /// A judgement beyond single fields; null for none.
    const char16_t* (*complaint)(const RUN&) = nullptr;
};

/// How much of a run is given: bits of Block::parts.
enum : uint8_t { inFull = 1, fromGeometry = 2, fromSpectrum = 4 };
/// What the repeat flag in front of a run says.
uint8_t partOf(int32_t irpt);

/// Cards that repeat together.
struct Block {
    uint8_t parts;
    std::span<const Card> cards;
    uint32_t (*count)(const RUN&) = nullptr;  ///< Null for once.

    uint32_t countOf(const RUN& run) const { return count == nullptr ? 1 : count(run); }
};

/// All blocks in the order of a deck.
std::span<const Block> deckOrder();

/// The program's grid of wavelengths for aerosol regions [microns].
inline constexpr uint32_t gridPoints = 47;
extern const double aerosolGrid[gridPoints];

/// Sets the length of a region's spectra; 47 new points of an empty one get the grid. False beyond listLimit.
bool setPoints(CModtranTape5File::REGION& region, uint32_t points);
/// Sets the sizes of the phase functions, with all values 0 when a size changes.
bool setPhaseSizes(RUN& run, uint32_t angles, uint32_t wavelengths);
inline uint32_t phaseIndex(const RUN& run, uint32_t aerosol, uint32_t angle, uint32_t wavelength) {
    const uint32_t columns = run.phaseWavelengths.empty() ? 1 : run.phaseWavelengths.size();
    return (aerosol * run.phaseAngles.size() + angle) * columns + wavelength;
}

/// A list that grows by doubling while it is resized; false beyond listLimit.
template <class T>
bool resize(TArray<T>& list, int64_t count) {
    if (count > int64_t{CModtranTape5File::listLimit}) return false;
    return list.SetSize(count < 0 ? 0 : static_cast<uint32_t>(count));
}

/// NCRALT and NCRSPC: the length of a list, or a lower code that stands for none. False beyond listLimit.
bool setCloudAltitudes(RUN& run, int32_t code);
bool setCloudWavelengths(RUN& run, int32_t code);

/// The name with the indexes that it has, from 1: "ZM.3", "EXTC.1.12".
std::string fullName(const Block& block, const Card& card, const Field& field, Index x);

/// The value of a field as text: shortest that reads back to the same number.
std::string valueOf(const RUN& run, const Field& field, Index x);

/// Whether a code is legal; always of a field that has no list.
bool isLegal(const RUN& run, const Field& field, Index x);
CString illegal(const RUN& run, const Field& field, Index x);

std::string_view trimmed(std::string_view text);

}  // namespace qv::tape5
