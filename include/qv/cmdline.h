// CCmdLine: the arguments of a program, by the customs of Windows or of POSIX systems; and the quoting rules of both.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/string.h"

namespace qv {

/// A program's arguments, told apart into options with their values and positional arguments.
///
/// An option takes the value that is attached to it. Only options that TakesValue names before Parse also take the
/// argument that follows, whatever it looks like; so what is positional never hangs on guesses.
///
/// POSIX style:    `--name`, `--name=value`, `--name value`; `-n`, `-nvalue`, `-n=value`, `-n value`, and letters
///                 together: `-abc` is `-a -b -c`, where the first that takes a value takes the rest. Names regard
///                 case. A minus alone is positional, and so is a negative number (a minus, then a digit or a point and
///                 a digit) unless that digit was named as an option that takes a value.
/// Windows style:  `/name`, `/name:value`, `/name=value`, `/name value`, and the same with `-` or `--` in place of the
///                 slash; the first colon or equals sign separates. Names disregard case. A minus alone, a slash alone
///                 and negative numbers are positional.
/// Both:           behind `--` everything is positional. A repeated option keeps all its values in order.
/// Threads:        read by many at once, changed by one.
class QV_API CCmdLine {
public:
    enum class Style { posix, windows };

    /// Names options that take a value, each call one option: "o|output" are two names of the same. Naming an option
    /// that takes none (flag) joins its names and makes it known to GetUnknown. Before Parse.
    void TakesValue(const CString& names) { declare(names, true); }
    void Flag(const CString& names) { declare(names, false); }

    /// Replaces what was parsed. The first argument is the program; texts are UTF-8.
    /// @return  False, with a diagnostic, when an option at the end lacks its value; what could be read is there.
    bool Parse(int argc, const char* const* argv, Style style = Style::posix);
    /// The same from one text, cut by SplitArguments; also false when that is.
    bool Parse(const CString& commandLine, Style style = Style::posix);

    /// Argument 0; empty when there is none.
    const CString& GetProgram() const { return m_program; }
    /// The positional arguments in order.
    const TArray<CString>& GetArguments() const { return m_positional; }

    // Options are asked for by any of their names, without the leading signs.

    /// Whether the option was given, with a value or without.
    bool IsSet(const CString& name) const { return GetCount(name) != 0; }
    /// How many times.
    uint32_t GetCount(const CString& name) const;
    /// All its values in order; "" where it was given without one.
    TArray<CString> GetValues(const CString& name) const;
    /// The names, as they were written, of options that no call named before Parse; each once.
    TArray<CString> GetUnknown() const;

    /// The option's last value, read as TValueText reads a whole text; an integer also as ParseHex does, behind 0x. A
    /// truth value is true when the option stands there without a value.
    /// @return  False, `value` left as it was, when the option is absent, and with a diagnostic when its text is no
    /// such
    ///          value or does not fit the type.
    bool Read(const CString& name, bool& value) const;
    bool Read(const CString& name, int32_t& value) const;
    bool Read(const CString& name, uint32_t& value) const;
    bool Read(const CString& name, int64_t& value) const;
    bool Read(const CString& name, uint64_t& value) const;
    bool Read(const CString& name, double& value) const;
    bool Read(const CString& name, CString& value) const;
    /// The same, or `absent` wherever Read is false.
    template <class T>
    T Get(const CString& name, T absent) const {
        (void)Read(name, absent);
        return absent;
    }
    CString Get(const CString& name, const char16_t* absent) const { return Get(name, CString(absent)); }

    /// One text that SplitArguments cuts into the arguments that were parsed.
    CString ToString(Style style) const { return JoinArguments(m_all, style); }

    // Quoting ----------------------------------------------------------------------------------------------------

    /// Cuts a command line into its arguments; the first is the program.
    ///
    /// POSIX: as the shell cuts words and takes quotes off (single quotes, double quotes, backslash and line feed), and
    /// nothing else of a shell: what it would expand or obey ($ ` * ~ ; | #) stands for itself.
    /// Windows: as the C runtime does. Blanks and tabs separate. Before a double quote each pair of backslashes is one
    /// backslash; if one is left over, the quote is an ordinary character, else it begins or ends a quoted part. Two
    /// quotes inside a quoted part are one ordinary quote, and the part goes on. Elsewhere backslashes are ordinary. A
    /// quoted part without end goes to the end of the text. In the program's name, which ends at the first blank
    /// outside quotes even if that makes it empty, backslashes are always ordinary and each quote begins or ends a
    /// quoted part. An empty text has no arguments.
    /// @return  False, with a diagnostic, when a POSIX quote has no end; what stands before it is in `arguments`.
    static bool SplitArguments(TArray<CString>& arguments, const CString& commandLine, Style style);

    /// The reverse, with quotes only where they are needed. A Windows program's name cannot hold a double quote, which
    /// is left out. Arguments end at their first NUL.
    static CString JoinArguments(const TArray<CString>& arguments, Style style);
    /// One argument (other than a Windows program's name), quoted where that is needed.
    static CString QuoteArgument(const CString& argument, Style style);

private:
    /// The names of one option.
    struct Declared {
        TArray<CString> names;
        bool takesValue = false;
    };
    /// An option as it was given.
    struct Option {
        CString name, value;
        int declared = -1;  // Index into m_declared.
        bool hasValue = false;
    };
    class Reader;

    void declare(const CString& names, bool takesValue);
    bool parseAll();
    bool sameName(const CString& a, const CString& b) const;
    int findDeclared(const CString& name) const;
    template <class Visit>
    void visitOptions(const CString& name, Visit visit) const;
    const Option* last(const CString& name) const;
    template <class T>
    bool readValue(const CString& name, T& value) const;

    Style m_style = Style::posix;
    CString m_program;
    TArray<CString> m_all, m_positional;
    TArray<Declared> m_declared;
    TArray<Option> m_options;
};

}  // namespace qv
