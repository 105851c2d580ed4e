#include "qv/diagnostic.h"

namespace qv {

namespace {
CDiagnostic& current() {
    static thread_local CDiagnostic diagnostic;
    return diagnostic;
}
}  // namespace

bool CDiagnostic::IsSet() const { return !file.IsEmpty() || !expected.IsEmpty() || !found.IsEmpty(); }

CString CDiagnostic::ToString() const {
    CString text;
    if (!IsSet()) return text;
    if (!file.IsEmpty()) text += file + u": ";
    if (!expected.IsEmpty()) text += u"expected " + expected;
    if (!found.IsEmpty()) text += (expected.IsEmpty() ? CString(u"found ") : CString(u", found ")) + found;
    if (line >= 0) text += CString::FromFormat(u" (line %I64d)", line);
    if (byteOffset >= 0) text += CString::FromFormat(u" (byte %I64d)", byteOffset);
    return text;
}

CDiagnostic LastDiagnostic() { return current(); }
void ClearDiagnostic() { current() = CDiagnostic(); }

void SetDiagnostic(const CString& file, const CString& expected, const CString& found, int64_t byteOffset,
                   int64_t line) noexcept {
    try {
        current() = CDiagnostic{file, expected, found, byteOffset, line};
    } catch (...) {
        current().file.Empty();
    }
}

void SetDiagnosticFile(const CString& file) noexcept {
    try {
        if (current().IsSet() && current().file.IsEmpty()) current().file = file;
    } catch (...) {
    }
}

}  // namespace qv
