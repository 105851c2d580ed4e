// CString and CStringMB are one template; its jobs are defined in the headers below and instantiated here.
#include "qv/string.h"

#include "core/string_conversion.h"
#include "core/string_lifetime.h"
#include "core/string_std.h"
#include "core/string_words.h"

namespace qv {

template class TString<char>;
template class TString<char16_t>;

const CString& Private::sharedEmptyText() {
    static const CString* const empty = [] {
        auto* const made = new CString(u"");
        made->m_rep->references = CString::uncounted;
        return made;
    }();
    return *empty;
}

}  // namespace qv
