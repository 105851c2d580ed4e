// The standard library's interface of CString and CStringMB.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "qv/exception.h"
#include "qv/string.h"

namespace qv {
namespace {

template <class S>
class StringStdTest : public testing::Test {};
using Widths = testing::Types<CString, CStringMB>;
TYPED_TEST_SUITE(StringStdTest, Widths);

TYPED_TEST(StringStdTest, BadPositionsThrowWithTheirTexts) {
    using S = TypeParam;
    using Ch = typename S::value_type;
    const struct {
        void (*act)(S& s, const S& other);
        const char* text;
    } rows[] = {
        {[](S& s, const S&) { s.at(3); }, "at: pos is invalid"},
        {[](S&, const S& other) { other.at(2); }, "at: pos is invalid"},
        {[](S& s, const S&) { s.clear(), s.back(); }, "at: pos is invalid"},
        {[](S& s, const S&) { s.Empty(), s.at(0); }, "at: pos is invalid"},
        {[](S& s, const S&) { s.erase(4); }, "erase: invalid index"},
        {[](S& s, const S& other) { s.append(other, 3, 1); }, "append: start pos exceeds string length."},
        {[](S& s, const S& other) { s.assign(other, 3, 1); }, "append: start pos exceeds string length."},
        {[](S& s, const S&) { s.substr(4); }, "append: start pos exceeds string length."},
        {[](S& s, const S& other) { s.compare(0, 1, other, 3, 1); }, "compare: pos2 is past str.length()."},
        {[](S& s, const S& other) { s.compare(4, 1, other); }, "compare: pos is past length."},
        {[](S& s, const S& other) { s.compare(4, 1, other, 3, 1); }, "compare: pos2 is past str.length()."},
        {[](S& s, const S& other) { s.replace(0, 1, other, 3, 1); }, "replace: pos2 is past str.length()."},
        {[](S& s, const S& other) { s.replace(4, 1, other); }, "replace: pos is past length()."},
        {[](S& s, const S& other) { s.insert(4, other); }, "replace: pos is past length()."},
        {[](S& s, const S&) {
             Ch dst[1];
             s.copy(dst, 1, 4);
         },
         "copy: pos is past length()."},
    };
    const std::string name = std::is_same_v<Ch, char> ? "CStringMB::" : "CString::";
    for (const auto& row : rows) {
        S s("abc");
        try {
            row.act(s, S("de"));
            ADD_FAILURE() << row.text;
        } catch (const COutOfRangeException& error) {
            EXPECT_EQ(error.what(), name + row.text);
        }
    }
}

TYPED_TEST(StringStdTest, CompareLooksAtTheBeginningWhateverThePosition) {
    using S = TypeParam;
    const S s("abcab");
    EXPECT_EQ(s.compare(3, 2, S("ab")), 0);
    EXPECT_EQ(s.compare(1, 2, S("bc")), -1);
    EXPECT_EQ(s.compare(1, 2, S("ab")), 0);
    EXPECT_EQ(s.compare(4, 9, S("a")), 0);  // One character lies behind 4.
    EXPECT_EQ(s.compare(4, 9, S("ab")), -1);
    EXPECT_EQ(s.compare(5, 9, S("a")), -1);
    EXPECT_EQ(s.compare(0, 5, S("abc"), 0, 2), 1);
    EXPECT_EQ(s.compare(S("abcab")), 0);
    EXPECT_EQ(S("a\xC3\xBF").compare(S("az")), 1);
}

TYPED_TEST(StringStdTest, FindLooksAtTheBeginningWhateverThePosition) {
    using S = TypeParam;
    const S s("abc");
    const size_t none = S::npos;
    const struct {
        size_t found, expected;
    } rows[] = {
        {s.find(S("b"), 0), none},
        {s.find(S("a"), 1), 1},
        {s.find(S("ab"), 1), 1},
        {s.find(S("ab"), 2), none},
        {s.find(S(""), 7), 7},
        {s.find(S("abcd")), none},
        {s.find('a', 2), 2},
        {s.find('b'), none},
        {s.find(S("abx").c_str(), 0, 2), none},
        {s.find(S("ab").c_str(), 0, 2), 0},
        {s.find('a', none), none},
        {s.rfind(S("a")), 2},
        {s.rfind(S("ab"), 0), 0},
        {s.rfind(S("ab")), 1},
        {s.rfind(S("c")), none},
        {s.rfind(S("")), 3},
        {s.rfind(S(""), 1), 1},
        {s.rfind(S("abcd")), none},
        {s.rfind('a', 1), 1},
        {S().find(S("")), 0},
        {S().find('x'), none},
        {S().rfind('x'), none},
    };
    for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(rows[i].found, rows[i].expected) << i;
}

TYPED_TEST(StringStdTest, SizesAndLimits) {
    using S = TypeParam;
    const size_t greatest = std::is_same_v<S, CString> ? size_t{0x7FFFFFFFFFFFFFFF} : ~size_t{0};
    EXPECT_EQ(S().max_size(), greatest);
    EXPECT_EQ(S::npos, ~size_t{0});
    S s("abc");
    s.resize(5);
    EXPECT_EQ(s.length(), 5u);
    EXPECT_EQ(s.back(), 0);
    s.resize(1);
    EXPECT_EQ(s.capacity(), 5u);
    s.pop_back();
    s.pop_back();
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(*s.end(), 0);
}

TYPED_TEST(StringStdTest, ErasingNothingKeepsSharing) {
    using S = TypeParam;
    const S s("abc");
    S t = s;
    t.erase(3);
    t.erase(1, 0);
    EXPECT_EQ(t.c_str(), s.c_str());
    t.erase(1, 1);
    EXPECT_NE(t.c_str(), s.c_str());
}

/// Applies the same random operation to a string and to its model. The searches of the interface that differ from the
/// standard's are not among them.
template <class S>
class Twins {
public:
    using Ch = typename S::value_type;
    using Model = std::basic_string<Ch>;

    void step() {
        const size_t pos = number(m_model.size()), n = number(6);
        const Model text = randomText();
        switch (number(15)) {
            case 0: m_s.append(text), m_model.append(text); break;
            case 1: m_s.append(n, 'x'), m_model.append(n, 'x'); break;
            case 2: m_s.insert(pos, text), m_model.insert(pos, text); break;
            case 3: m_s.insert(pos, n, 'y'), m_model.insert(pos, n, 'y'); break;
            case 4: m_s.erase(pos, n), m_model.erase(pos, n); break;
            case 5: m_s.replace(pos, n, text), m_model.replace(pos, n, text); break;
            case 6: m_s.replace(pos, n, n, 'z'), m_model.replace(pos, n, n, 'z'); break;
            case 7: m_s.assign(text.data(), text.size() / 2), m_model.assign(text.data(), text.size() / 2); break;
            case 8: m_s.resize(pos + n, 'r'), m_model.resize(pos + n, 'r'); break;
            case 9: m_s = m_s.substr(pos, 40), m_model = m_model.substr(pos, 40); break;
            case 10:
                m_s.insert(m_s.begin() + pos, 'i'), m_model.insert(m_model.begin() + static_cast<ptrdiff_t>(pos), 'i');
                break;
            case 11: m_s.append(m_s, pos, n), m_model.append(Model(m_model), pos, n); break;
            case 12: std::reverse(m_s.begin(), m_s.end()), std::reverse(m_model.begin(), m_model.end()); break;
            case 13: m_other = m_s, m_otherModel = m_model; break;
            case 14: m_s.swap(m_other), m_model.swap(m_otherModel); break;
            default: m_s.reserve(m_model.size() + n); break;
        }
    }
    void compare() {
        ASSERT_EQ(m_s.view(), m_model);
        ASSERT_EQ(m_other.view(), m_otherModel);
        ASSERT_EQ(m_s.c_str()[m_s.length()], 0);
        const Model set = randomText();
        const size_t pos = number(m_model.size() + 2);
        ASSERT_EQ(m_s.find_first_of(set, pos), m_model.find_first_of(set, pos));
        ASSERT_EQ(m_s.find_first_not_of(set, pos), m_model.find_first_not_of(set, pos));
        ASSERT_EQ(m_s.find_last_of(set, pos), m_model.find_last_of(set, pos));
        ASSERT_EQ(m_s.find_last_not_of(set, pos), m_model.find_last_not_of(set, pos));
        ASSERT_EQ(m_s.FindString(set), static_cast<int>(m_model.find(set)));
        ASSERT_TRUE(std::equal(m_s.crbegin(), m_s.crend(), m_model.crbegin(), m_model.crend()));
    }

private:
    size_t number(size_t most) { return std::uniform_int_distribution<size_t>(0, most)(m_random); }
    Model randomText() {
        Model text(number(7), 'a');
        for (Ch& ch : text) ch = static_cast<Ch>('a' + number(4));
        return text;
    }

    std::mt19937 m_random{12};
    S m_s, m_other;
    Model m_model, m_otherModel;
};

TYPED_TEST(StringStdTest, RandomOperationsAgreeWithTheStandardString) {
    Twins<TypeParam> twins;
    for (int i = 0; i < 20000; ++i) {
        twins.step();
        twins.compare();
        if (this->HasFatalFailure()) FAIL() << "step " << i;
    }
}

}  // namespace
}  // namespace qv
