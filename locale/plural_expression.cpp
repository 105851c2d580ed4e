#include "locale/plural_expression.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace qv {

namespace {
constexpr int deepest = 100;
constexpr size_t mostNodes = 1000;
}  // namespace

/// By precedence, lowest first.
class PluralParser {
    using Op = PluralExpression::Op;
    using Node = PluralExpression::Node;
    struct Operator {
        std::string_view sign;
        Op op;
        int level;
    };
    // Longer signs first.
    static constexpr Operator operators[] = {
        {"||", Op::either, 0},    {"&&", Op::both, 1},         {"==", Op::equal, 2},   {"!=", Op::notEqual, 2},
        {"<=", Op::lessEqual, 3}, {">=", Op::greaterEqual, 3}, {"<", Op::less, 3},     {">", Op::greater, 3},
        {"+", Op::add, 4},        {"-", Op::subtract, 4},      {"*", Op::multiply, 5}, {"/", Op::divide, 5},
        {"%", Op::modulo, 5},
    };
    static constexpr int unaryLevel = 6;

public:
    explicit PluralParser(std::string_view text) : m_left(text) {}

    bool run(std::vector<Node>& nodes) {
        const uint32_t result = conditional();
        skipBlanks();
        if (m_failed || !(m_left.empty() || m_left.front() == ';') || result + 1 != m_nodes.size()) return false;
        nodes = std::move(m_nodes);
        return true;
    }

private:
    struct Depth {
        explicit Depth(PluralParser& in) : parser(in) {
            if (++parser.m_depth > deepest) parser.m_failed = true;
        }
        ~Depth() { --parser.m_depth; }
        PluralParser& parser;
    };

    uint32_t add(Node node) {
        if (m_nodes.size() >= mostNodes) m_failed = true;
        if (m_failed) return 0;
        m_nodes.push_back(node);
        return static_cast<uint32_t>(m_nodes.size() - 1);
    }
    void skipBlanks() {
        while (!m_left.empty() && (m_left.front() == ' ' || m_left.front() == '\t')) m_left.remove_prefix(1);
    }
    bool take(std::string_view sign) {
        skipBlanks();
        if (!m_left.starts_with(sign)) return false;
        m_left.remove_prefix(sign.size());
        return true;
    }

    uint32_t conditional() {
        const Depth depth(*this);
        if (m_failed) return 0;
        const uint32_t condition = binary(0);
        if (!take("?")) return condition;
        const uint32_t yes = conditional();
        if (!take(":")) m_failed = true;
        const uint32_t no = m_failed ? 0 : conditional();
        return add({Op::choose, 0, condition, yes, no});
    }

    const Operator* operatorOf(int level) {
        skipBlanks();
        for (const Operator& each : operators) {
            if (m_left.starts_with(each.sign)) return each.level == level ? &each : nullptr;
        }
        return nullptr;
    }

    uint32_t binary(int level) {
        if (level == unaryLevel) return unary();
        uint32_t left = binary(level + 1);
        while (const Operator* found = m_failed ? nullptr : operatorOf(level)) {
            m_left.remove_prefix(found->sign.size());
            const uint32_t right = binary(level + 1);
            left = add({found->op, 0, left, right, 0});
        }
        return left;
    }

    uint32_t unary() {
        const Depth depth(*this);
        if (m_failed) return 0;
        if (take("!")) {
            const uint32_t operand = unary();
            return add({Op::negate, 0, operand, 0, 0});
        }
        if (take("(")) {
            const uint32_t inner = conditional();
            if (!take(")")) m_failed = true;
            return inner;
        }
        if (take("n")) return add({Op::count});
        uint64_t number = 0;
        const auto [end, error] = std::from_chars(m_left.data(), m_left.data() + m_left.size(), number);
        if (error != std::errc()) {
            m_failed = true;
            return 0;
        }
        m_left.remove_prefix(static_cast<size_t>(end - m_left.data()));
        return add({Op::number, number});
    }

    std::string_view m_left;
    std::vector<Node> m_nodes;
    int m_depth = 0;
    bool m_failed = false;
};

PluralExpression::PluralExpression() { (void)parse("nplurals=2; plural=n != 1;"); }

bool PluralExpression::parse(std::string_view field) {
    const auto valueIn = [](std::string_view text, std::string_view name) {
        const size_t at = text.find(name);
        if (at == std::string_view::npos) return std::string_view();
        std::string_view rest = text.substr(at + name.size());
        const size_t sign = rest.find_first_not_of(" \t");
        if (sign == std::string_view::npos || rest[sign] != '=') return std::string_view();
        rest.remove_prefix(sign + 1);
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
        return rest;
    };
    const std::string_view count = valueIn(field, "nplurals");
    uint64_t forms = 0;
    if (std::from_chars(count.data(), count.data() + count.size(), forms).ec != std::errc() || forms == 0) return false;
    const size_t behindCount = static_cast<size_t>(count.data() - field.data());
    const size_t at = field.find("plural", behindCount);
    if (at == std::string_view::npos) return false;
    field.remove_prefix(at);
    std::vector<Node> nodes;
    if (!PluralParser(valueIn(field, "plural")).run(nodes)) return false;
    m_nodes = std::move(nodes);
    m_forms = forms;
    return true;
}

uint64_t PluralExpression::formOf(uint64_t n) const {
    const uint64_t form = valueOf(static_cast<uint32_t>(m_nodes.size() - 1), n);
    return form < m_forms ? form : 0;
}

uint64_t PluralExpression::valueOf(uint32_t index, uint64_t n) const {
    const Node& node = m_nodes[index];
    switch (node.op) {
        case Op::number: return node.value;
        case Op::count: return n;
        case Op::negate: return valueOf(node.first, n) == 0 ? 1 : 0;
        case Op::both: return valueOf(node.first, n) != 0 && valueOf(node.second, n) != 0 ? 1 : 0;
        case Op::either: return valueOf(node.first, n) != 0 || valueOf(node.second, n) != 0 ? 1 : 0;
        case Op::choose: return valueOf(valueOf(node.first, n) != 0 ? node.second : node.third, n);
        default: return combine(node.op, valueOf(node.first, n), valueOf(node.second, n));
    }
}

uint64_t PluralExpression::combine(Op op, uint64_t a, uint64_t b) {
    switch (op) {
        case Op::multiply: return a * b;
        case Op::divide: return b == 0 ? 0 : a / b;
        case Op::modulo: return b == 0 ? 0 : a % b;
        case Op::add: return a + b;
        case Op::subtract: return a - b;
        case Op::less: return a < b;
        case Op::lessEqual: return a <= b;
        case Op::greater: return a > b;
        case Op::greaterEqual: return a >= b;
        case Op::equal: return a == b;
        case Op::notEqual: return a != b;
        default: return 0;
    }
}

}  // namespace qv
