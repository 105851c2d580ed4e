// The expression by which a catalogue chooses among the plural forms of a language.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace qv {

/// An expression of the C language over one unsigned variable n: decimal numbers, ?:, ||, &&, comparisons, + - * / %, !
/// and parentheses. Arithmetic is unsigned in 64 bits; a division by zero gives 0.
class PluralExpression {
public:
    /// "n != 1", with two forms.
    PluralExpression();
    /// Reads the value of a header field "Plural-Forms": "nplurals=3; plural=...;". False, with nothing changed, when
    /// it is none, or nested too deeply.
    bool parse(std::string_view field);
    /// The form for a count; 0 where the expression gives one that there is not.
    uint64_t formOf(uint64_t n) const;

private:
    friend class PluralParser;
    enum class Op : uint8_t {
        number,
        count,
        negate,
        multiply,
        divide,
        modulo,
        add,
        subtract,
        less,
        lessEqual,
        greater,
        greaterEqual,
        equal,
        notEqual,
        both,
        either,
        choose
    };
    /// Operands are earlier nodes; the last node is the result.
    struct Node {
        Op op;
        uint64_t value = 0;
        uint32_t first = 0, second = 0, third = 0;
    };
    uint64_t valueOf(uint32_t node, uint64_t n) const;
    static uint64_t combine(Op op, uint64_t a, uint64_t b);

    std::vector<Node> m_nodes;
    uint64_t m_forms = 2;
};

}  // namespace qv
