#include "qv/cmdline.h"

#include <string_view>
#include <type_traits>

#include "core/text.h"
#include "qv/diagnostic.h"
#include "qv/values.h"

namespace qv {

namespace {

using View = std::u16string_view;

void refuse(const CString& option, const char16_t* expected, const CString& found) {
    SetDiagnostic(CString(), CString(expected) + u" for option " + option, found);
}

/// A minus, then a digit, or a point and a digit.
bool isNegativeNumber(View text) {
    const size_t at = text.size() > 1 && text[1] == u'.' ? 2 : 1;
    return text.size() > at && text[0] == u'-' && text::isDigit(text[at]);
}

template <class T>
EParse parseValue(const CString& text, T& value) {
    constexpr bool integer = std::is_integral_v<T> && !std::is_same_v<T, bool>;
    if (integer && text.StartsWithNoCase(u"0x")) return TValueText<T>::ParseHex(text, value);
    return TValueText<T>::Parse(text, value);
}

}  // namespace

// Options -------------------------------------------------------------------------------------------------------------

/// Goes through the arguments once and tells them apart.
class CCmdLine::Reader {
public:
    explicit Reader(CCmdLine& line) : m_line(line), m_windows(line.m_style == Style::windows) {}

    bool read() {
        bool onlyPositional = false;
        for (m_at = 1; m_at < m_line.m_all.size(); ++m_at) {
            const CString argument = m_line.m_all.ConstGetItem(m_at);
            const View text = argument.view();
            if (onlyPositional || !startsOption(text)) {
                m_line.m_positional.Add(argument);
            } else if (text == u"--") {
                onlyPositional = true;
            } else if (m_windows || text.substr(0, 2) == u"--") {
                named(text.substr(text.substr(0, 2) == u"--" ? 2 : 1));
            } else {
                letters(text.substr(1));
            }
        }
        return m_complete;
    }

private:
    bool startsOption(View text) const {
        if (text.size() < 2 || !(text[0] == u'-' || (m_windows && text[0] == u'/'))) return false;
        return !isNegativeNumber(text) || takesValue(m_line.findDeclared(CString(text.substr(1, 1))));
    }
    bool takesValue(int declared) const {
        return declared >= 0 && m_line.m_declared.ConstGetItem(static_cast<uint32_t>(declared)).takesValue;
    }

    /// `name` with a value attached or behind it.
    void named(View text) {
        const size_t cut = text.find_first_of(m_windows ? View(u":=") : View(u"="));
        Option option = made(text.substr(0, cut));
        if (cut != View::npos) {
            attach(option, text.substr(cut + 1));
        } else if (takesValue(option.declared)) {
            takeNext(option);
        }
        m_line.m_options.Add(option);
    }

    /// One-letter options together; a value ends them.
    void letters(View text) {
        while (!text.empty()) {
            const size_t size = text.size() > 1 && (text[0] & 0xFC00) == 0xD800 ? 2 : 1;
            Option option = made(text.substr(0, size));
            text.remove_prefix(size);
            const bool takes = takesValue(option.declared), equals = !text.empty() && text[0] == u'=';
            if (equals || (takes && !text.empty())) {
                attach(option, text.substr(equals ? 1 : 0));
                text = View();
            } else if (takes) {
                takeNext(option);
            }
            m_line.m_options.Add(option);
        }
    }

    Option made(View name) const {
        Option option;
        option.name = CString(name);
        option.declared = m_line.findDeclared(option.name);
        return option;
    }
    static void attach(Option& option, View value) {
        option.value = CString(value);
        option.hasValue = true;
    }
    void takeNext(Option& option) {
        if (m_at + 1 < m_line.m_all.size()) {
            attach(option, m_line.m_all.ConstGetItem(++m_at).view());
        } else {
            refuse(option.name, u"a value", u"the end of the command line");
            m_complete = false;
        }
    }

    CCmdLine& m_line;
    const bool m_windows;
    uint32_t m_at = 0;
    bool m_complete = true;
};

void CCmdLine::declare(const CString& names, bool takesValue) {
    Declared option;
    names.Split(option.names, u"|");
    option.takesValue = takesValue;
    m_declared.Add(option);
}

bool CCmdLine::parseAll() {
    m_program = m_all.size() == 0 ? CString() : m_all.ConstGetItem(0);
    m_positional.Empty();
    m_options.Empty();
    return Reader(*this).read();
}

bool CCmdLine::Parse(int argc, const char* const* argv, Style style) {
    m_style = style;
    m_all.Empty();
    for (int i = 0; i < argc && argv[i] != nullptr; ++i) m_all.Add(CString(argv[i]));
    return parseAll();
}

bool CCmdLine::Parse(const CString& commandLine, Style style) {
    m_style = style;
    const bool cut = SplitArguments(m_all, commandLine, style);
    const CDiagnostic why = LastDiagnostic();
    const bool complete = parseAll();
    if (!cut) SetDiagnostic(why.file, why.expected, why.found);
    return cut && complete;
}

bool CCmdLine::sameName(const CString& a, const CString& b) const {
    return m_style == Style::windows ? text::compareNoCase(a.view(), b.view()) == 0 : a.view() == b.view();
}

int CCmdLine::findDeclared(const CString& name) const {
    for (uint32_t i = 0; i < m_declared.size(); ++i) {
        for (const CString& known : m_declared.ConstGetItem(i).names) {
            if (sameName(known, name)) return static_cast<int>(i);
        }
    }
    return -1;
}

template <class Visit>
void CCmdLine::visitOptions(const CString& name, Visit visit) const {
    const int declared = findDeclared(name);
    for (const Option& option : m_options) {
        if (declared >= 0 ? option.declared == declared : sameName(option.name, name)) visit(option);
    }
}

const CCmdLine::Option* CCmdLine::last(const CString& name) const {
    const Option* found = nullptr;
    visitOptions(name, [&found](const Option& option) { found = &option; });
    return found;
}

uint32_t CCmdLine::GetCount(const CString& name) const {
    uint32_t count = 0;
    visitOptions(name, [&count](const Option&) { ++count; });
    return count;
}

TArray<CString> CCmdLine::GetValues(const CString& name) const {
    TArray<CString> values;
    visitOptions(name, [&values](const Option& option) { values.Add(option.value); });
    return values;
}

TArray<CString> CCmdLine::GetUnknown() const {
    TArray<CString> names;
    for (const Option& option : m_options) {
        bool listed = option.declared >= 0;
        for (const CString& name : names) listed = listed || sameName(name, option.name);
        if (!listed) names.Add(option.name);
    }
    return names;
}

bool CCmdLine::Read(const CString& name, CString& value) const {
    const Option* option = last(name);
    if (option != nullptr) value = option->value;
    return option != nullptr;
}

bool CCmdLine::Read(const CString& name, bool& value) const {
    const Option* option = last(name);
    if (option == nullptr || option->hasValue) return readValue(name, value);
    return value = true;
}

template <class T>
bool CCmdLine::readValue(const CString& name, T& value) const {
    const Option* option = last(name);
    if (option == nullptr) return false;
    T read{};
    const EParse outcome = parseValue(option->value, read);
    if (outcome == EParse::ok) {
        value = read;
        return true;
    }
    const char16_t* kind = std::is_same_v<T, bool> ? u"true or false" : u"a number";
    refuse(name, outcome == EParse::range ? u"a number in the range of its type" : kind, option->value);
    return false;
}

bool CCmdLine::Read(const CString& name, int32_t& value) const { return readValue(name, value); }
bool CCmdLine::Read(const CString& name, uint32_t& value) const { return readValue(name, value); }
bool CCmdLine::Read(const CString& name, int64_t& value) const { return readValue(name, value); }
bool CCmdLine::Read(const CString& name, uint64_t& value) const { return readValue(name, value); }
bool CCmdLine::Read(const CString& name, double& value) const { return readValue(name, value); }

}  // namespace qv
