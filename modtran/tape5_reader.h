// The lines of a deck as runs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "modtran/tape5_table.h"

namespace qv::tape5 {

/// A field as it was read.
struct Seen {
    const Block& block;
    const Card& card;
    const Field& field;
    Index index;
    int64_t lineNumber;     ///< From 1.
    Columns columns;        ///< Where it was looked for; without columns it has no place on the line.
    Columns published;      ///< Where the program looks, moved like `columns` for elements of a list.
    std::string_view text;  ///< What stands there.
    std::string_view line;  ///< As the library understands it: control characters are blanks.
};

class Visitor {
public:
    virtual ~Visitor() = default;
    /// After the field has been stored.
    virtual void field(const Seen& seen, const RUN& run) = 0;
};

/// Reads runs from the bytes of a deck. What is wrong with them is said by LastDiagnostic().
class Reader {
public:
    explicit Reader(std::string_view bytes, int64_t firstLine = 1, Visitor* visitor = nullptr);

    /// Reads one run over `run`, which holds what a part leaves as it is. False at what cannot be read.
    bool readRun(RUN& run, uint8_t part);

    /// Bytes that were taken.
    size_t position() const { return m_position; }
    int64_t lineNumber() const { return m_lineNumber; }
    /// Whether the cards are those of MODTRAN 5.
    bool isFive() const { return m_isFive; }
    /// Nothing but blank lines is left.
    bool isAtEnd() const;

private:
    bool readCard(const Block& block, const Card& card, RUN& run, uint32_t i);
    bool readElements(const Block& block, const Card& card, RUN& run, uint32_t i);
    bool readFree(const Block& block, const Card& card, RUN& run, Index x);
    bool readLine(const Card& card);
    bool adapt(const Card& card);
    bool adaptDriver();
    bool readFields(const Block& block, const Card& card, RUN& run, Index x, uint8_t shift);
    bool store(const Card& card, const Field& field, RUN& run, Index x, std::string_view text);
    void visit(const Block& block, const Card& card, const Field& field, RUN& run, Index x, Columns columns,
               Columns published, std::string_view text);
    bool refuse(const Card& card, const char16_t* expected, const CString& found);
    bool refuseField(const Card& card, const Field& field, const char16_t* expected, std::string_view found);
    bool refuseFive(const char16_t* option);
    /// Whether the file may hold so many elements, 8 on a line at most.
    bool isPossible(int32_t count) const { return count <= 0 || uint64_t(count) <= 8 * m_linesLeft; }

    std::string_view m_bytes;
    size_t m_position = 0;
    uint64_t m_linesLeft = 0;
    int64_t m_lineNumber = 0;
    std::string m_line;
    bool m_isFive = false;
    Visitor* m_visitor;
};

/// All runs of a deck.
bool readDeck(Reader& reader, TArray<RUN>& runs);

/// The bytes of a file from its position on. False, with a diagnostic, for one that is larger than any deck.
bool readBytes(IFile& file, std::string& bytes);

/// About how many bytes a run holds in memory, and how many all runs of a deck may.
uint64_t footprint(const RUN& run);
inline constexpr uint64_t footprintLimit = uint64_t{64} << 20;

}  // namespace qv::tape5
