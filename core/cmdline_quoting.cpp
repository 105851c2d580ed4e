// The quoting rules of CCmdLine: one text into arguments and back.
#include <string>
#include <string_view>

#include "qv/cmdline.h"
#include "qv/diagnostic.h"

namespace qv {

namespace {

using View = std::u16string_view;

// Windows -------------------------------------------------------------------------------------------------------------

constexpr bool isBlank(char16_t c) { return c == u' ' || c == u'\t'; }

/// Takes the program's name off the front.
std::u16string takeProgram(View& rest) {
    std::u16string program;
    bool quoted = false;
    size_t at = 0;
    for (; at < rest.size() && (quoted || !isBlank(rest[at])); ++at) {
        if (rest[at] == u'"') {
            quoted = !quoted;
        } else {
            program += rest[at];
        }
    }
    rest.remove_prefix(at);
    return program;
}

/// Takes one argument, which begins at the front, off a text.
std::u16string takeWindowsArgument(View& rest) {
    std::u16string argument;
    bool quoted = false;
    size_t at = 0;
    for (;; ++at) {
        size_t slashes = 0;
        for (; at < rest.size() && rest[at] == u'\\'; ++at) ++slashes;
        const bool quote = at < rest.size() && rest[at] == u'"';
        argument.append(quote ? slashes / 2 : slashes, u'\\');
        if (at == rest.size() || (!quoted && isBlank(rest[at]))) break;
        const bool doubled = quote && quoted && at + 1 < rest.size() && rest[at + 1] == u'"';
        if (!quote || slashes % 2 != 0) {
            argument += rest[at];
        } else if (doubled) {
            argument += u'"';
            ++at;
        } else {
            quoted = !quoted;
        }
    }
    rest.remove_prefix(at);
    return argument;
}

void splitWindows(TArray<CString>& arguments, View rest) {
    if (rest.empty()) return;
    arguments.Add(CString(takeProgram(rest)));
    for (;;) {
        while (!rest.empty() && isBlank(rest.front())) rest.remove_prefix(1);
        if (rest.empty()) return;
        arguments.Add(CString(takeWindowsArgument(rest)));
    }
}

std::u16string quoteWindows(View argument) {
    if (!argument.empty() && argument.find_first_of(u" \t\n\v\"") == View::npos) return std::u16string(argument);
    std::u16string text = u"\"";
    size_t slashes = 0;
    for (const char16_t c : argument) {
        // The backslashes before a quote stand there already once.
        if (c == u'"') text.append(slashes + 1, u'\\');
        slashes = c == u'\\' ? slashes + 1 : 0;
        text += c;
    }
    text.append(slashes, u'\\');
    return text + u'"';
}

std::u16string quoteProgram(View program) {
    std::u16string name;
    for (const char16_t c : program) {
        if (c != u'"') name += c;
    }
    return name.empty() || name.find_first_of(u" \t") != View::npos ? u'"' + name + u'"' : name;
}

// POSIX ---------------------------------------------------------------------------------------------------------------

constexpr bool isWordEnd(char16_t c) { return isBlank(c) || c == u'\n'; }

/// Takes words off the front of a text.
class ShellWords {
public:
    explicit ShellWords(View text) : m_rest(text) {}

    /// False at the end of the text, and where a quote has no end.
    bool next(std::u16string& word) {
        word.clear();
        bool begun = false;
        while (!m_rest.empty()) {
            const char16_t c = take();
            if (isWordEnd(c)) {
                if (begun) return true;
            } else if (c == u'\\' && !m_rest.empty() && m_rest.front() == u'\n') {
                take();
            } else {
                begun = true;
                if (!append(word, c)) return false;
            }
        }
        return begun;
    }

    /// The quote that has no end; 0 for none.
    char16_t open() const { return m_open; }

private:
    char16_t take() {
        const char16_t c = m_rest.front();
        m_rest.remove_prefix(1);
        return c;
    }

    bool append(std::u16string& word, char16_t c) {
        if (c == u'\'' || c == u'"') return appendQuoted(word, c);
        word += c == u'\\' && !m_rest.empty() ? take() : c;
        return true;
    }

    bool appendQuoted(std::u16string& word, char16_t quote) {
        while (!m_rest.empty()) {
            const char16_t c = take();
            if (c == quote) return true;
            const bool escapes =
                quote == u'"' && c == u'\\' && !m_rest.empty() && View(u"$`\"\\\n").find(m_rest.front()) != View::npos;
            if (!escapes) {
                word += c;
            } else if (const char16_t kept = take(); kept != u'\n') {
                word += kept;
            }
        }
        m_open = quote;
        return false;
    }

    View m_rest;
    char16_t m_open = 0;
};

bool isPlain(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
           (c != 0 && View(u"_@%+=:,./-").find(c) != View::npos);
}

std::u16string quotePosix(View argument) {
    bool plain = !argument.empty();
    for (const char16_t c : argument) plain = plain && isPlain(c);
    if (plain) return std::u16string(argument);
    std::u16string text = u"'";
    for (const char16_t c : argument) {
        if (c == u'\'') text += u"'\\'";
        text += c;
    }
    return text + u'\'';
}

View toNul(const CString& text) { return View(text.c_str()); }

}  // namespace

bool CCmdLine::SplitArguments(TArray<CString>& arguments, const CString& commandLine, Style style) {
    const CString kept = commandLine;  // It may lie in the array that is emptied.
    arguments.Empty();
    if (style == Style::windows) {
        splitWindows(arguments, toNul(kept));
        return true;
    }
    ShellWords words(toNul(kept));
    std::u16string word;
    while (words.next(word)) arguments.Add(CString(word));
    if (words.open() == 0) return true;
    SetDiagnostic(CString(), words.open() == u'"' ? u"a closing double quote" : u"a closing single quote",
                  u"the end of the command line");
    return false;
}

CString CCmdLine::QuoteArgument(const CString& argument, Style style) {
    return CString(style == Style::windows ? quoteWindows(toNul(argument)) : quotePosix(toNul(argument)));
}

CString CCmdLine::JoinArguments(const TArray<CString>& arguments, Style style) {
    std::u16string line;
    for (uint32_t i = 0; i < arguments.size(); ++i) {
        const View argument = toNul(arguments.ConstGetItem(i));
        if (i != 0) line += u' ';
        line += style == Style::posix ? quotePosix(argument) : i == 0 ? quoteProgram(argument) : quoteWindows(argument);
    }
    return CString(line);
}

}  // namespace qv
