// The keys of a header of the older form and of its include file.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "qv/file_system.h"
#include "qv/saf_file.h"
#include "qv/string.h"

namespace qv::rcalHeader {

/// Header and include file, looked up by name without regard to case. The first of a name counts, the header's before
/// the include's.
class Keys {
public:
    /// False when the header cannot be read. An include file that cannot be read leaves a diagnostic.
    bool load(IFileSystem* fs, const CString& path);

    /// The text of a key; null when it is absent.
    const char16_t* find(const CString& name) const;
    /// The key of a page, "stem_N"; page 0 also has the plain stem.
    const char16_t* ofPage(const CString& stem, int32_t page) const;
    /// A companion's path as it is reached from here; empty when the key is absent or empty.
    CString companion(const CString& value) const;
    /// Number of pages that the keys speak of.
    int32_t pages() const;

    /// Runs `each` (void(const SAF_TAG&)) on every tag but the first and last of both files.
    template <class Each>
    void forEach(Each each) const {
        for (const CSAFFile* file : {&m_header, &m_include}) {
            for (uint32_t i = 1; i + 1 < file->nTags(); ++i) each((*file)[i]);
        }
    }

private:
    void index(const CSAFFile& file);

    CString m_path;
    CSAFFile m_header;
    CSAFFile m_include;
    std::unordered_map<std::u16string, const char16_t*> m_values;
};

/// `text` says `own`: to seven digits, as export writes them, or to as many as it has when those are more.
bool agrees(const char16_t* text, double own);

}  // namespace qv::rcalHeader
