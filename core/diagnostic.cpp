#include "qv/diagnostic.h"

namespace qv {

namespace {

/// Set when the thread's diagnostic is gone, which a destructor that runs later on the thread may ask of it.
thread_local constinit bool ended = false;

struct Holder {
    ~Holder() { ended = true; }
    CDiagnostic diagnostic;
};

/// Null on a thread that is about to end.
CDiagnostic* current() {
    if (ended) return nullptr;
    static thread_local Holder holder;
    return &holder.diagnostic;
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

CDiagnostic LastDiagnostic() {
    const CDiagnostic* last = current();
    return last != nullptr ? *last : CDiagnostic();
}

void ClearDiagnostic() {
    if (CDiagnostic* last = current()) *last = CDiagnostic();
}

void SetDiagnostic(const CString& file, const CString& expected, const CString& found, int64_t byteOffset,
                   int64_t line) noexcept {
    CDiagnostic* last = current();
    if (last == nullptr) return;
    try {
        *last = CDiagnostic{file, expected, found, byteOffset, line};
    } catch (...) {
        last->file.Empty();
    }
}

void SetDiagnosticFile(const CString& file) noexcept {
    CDiagnostic* last = current();
    if (last == nullptr || !last->IsSet() || !last->file.IsEmpty()) return;
    try {
        last->file = file;
    } catch (...) {
    }
}

}  // namespace qv
