// Why the last call on this thread failed. The results of the interface are bare (false, null, a short count); the
// reason behind them is kept here.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/string.h"

namespace qv {

/// The reason of a failure: which file, what was expected there, what was found, and where.
struct QV_API CDiagnostic {
    CString file;             ///< Path or name of the file; empty when it has none.
    CString expected;         ///< What should have been there.
    CString found;            ///< What was there instead.
    int64_t byteOffset = -1;  ///< Byte position in the file, -1 when it does not apply.
    int64_t line = -1;        ///< Line number from 1, -1 when it does not apply.

    /// There is a reason to report.
    bool IsSet() const;
    /// One sentence: "frame.saf: expected a DATA line, found the end of the file (byte 512)". Empty when not set.
    CString ToString() const;
};

/// This thread's last diagnostic. Failing calls overwrite it; successful ones leave it, so clear it before the call
/// whose reason you want. Each thread has its own; the destructors that run last on a thread find none.
QV_API CDiagnostic LastDiagnostic();
QV_API void ClearDiagnostic();

/// Replaces this thread's diagnostic; called on failure paths only. It changes no result and never throws: without
/// memory the old diagnostic is dropped.
QV_API void SetDiagnostic(const CString& file, const CString& expected, const CString& found, int64_t byteOffset = -1,
                          int64_t line = -1) noexcept;

/// Fills in the file's name when the diagnostic has none: for a caller that knows the path of what a reader that saw
/// only an open file refused.
QV_API void SetDiagnosticFile(const CString& file) noexcept;

}  // namespace qv
