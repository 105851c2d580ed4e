// Exceptions of the arrays and files under a table become results.
#pragma once

#include <new>

#include "qv/diagnostic.h"
#include "qv/exception.h"

namespace qv::Private {

/// What `work` gives; false when it throws, with the diagnostic set.
template <class Work>
bool guarded(Work work) {
    try {
        return work();
    } catch (const CException& failure) {
        if (!LastDiagnostic().IsSet()) SetDiagnostic(CString(), u"a table in order", failure.message());
    } catch (const std::bad_alloc&) {
        SetDiagnostic(CString(), u"memory for the table", u"none");
    }
    return false;
}

}  // namespace qv::Private
