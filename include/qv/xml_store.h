// CXMLStore: settings in an XML file.
#pragma once

#include "qv/api.h"
#include "qv/config_store.h"
#include "qv/shared_ptr.h"
#include "qv/xml_file.h"

namespace qv {

class IFile;
class IFileSystem;

/// A store kept in an XML file: an element "store" with nested elements "entry", each with its name in the attribute
/// `name` and, where it has no entries below it, its value as text.
///
/// What the form loses: types (all values are strings after a load), empty values, values of paths that have something
/// below them, and white space around a value. A section whose name ends in a backslash comes back as one with the name
/// behind it.
class QV_API CXMLStore : public CMemStore {
public:
    CXMLStore() = default;
    ~CXMLStore() override;

    /// Replaces the contents by those of the first top-level element "store", in any case. Entries that stand more than
    /// 128 deep are left out.
    /// @return  False, with the store as it was and a diagnostic, when the file is no XML or has no such element.
    bool Load(const char16_t* path);
    bool Load(IFileSystem* fileSystem, const char16_t* path);
    bool Load(TSharedPtr<IFile> file);

    /// Writes the document in the layout of CXMLFile::Save. The first form writes a new disk file beside the old one
    /// and renames it over that, so that a failure leaves the old one whole; the second truncates what is there.
    /// @return  False when not everything was written.
    bool Save(const char16_t* path) const;
    bool Save(IFileSystem* fileSystem, const char16_t* path) const;
    bool Save(TSharedPtr<IFile> file) const;

private:
    bool take(const CXMLFile& document);
    void Load(const CXMLFile::CNode* node, CString path, uint32_t depth);
    void SaveNode(int index, CXMLFile::CNode* parent) const;
    bool render(CMemFile& bytes) const;
};

}  // namespace qv
