// CTagFile: the sorted dictionary and its binary and XML forms; CTagArray.
#include "qv/tag_file.h"

#include <algorithm>
#include <cstring>

#include "core/text.h"
#include "measurement/tag_name.h"
#include "qv/diagnostic.h"
#include "qv/xml_file.h"

namespace qv {

namespace {

constexpr char magic[4] = {'T', 'A', 'G', 'F'};
constexpr uint8_t currentVersion = 3;
constexpr uint32_t openForReading = 0x212;  // existing, read, share reading
constexpr uint32_t openForWriting = 0x28;   // create truncating, write

int compareEntryNames(const void* a, const void* b) {
    return text::compareNoCase(static_cast<const CTagEntry*>(a)->GetName().c_str(),
                               static_cast<const CTagEntry*>(b)->GetName().c_str());
}

/// Opens `path` and hands the file to a member that works on open files.
bool withFile(CTagFile& tags, bool (CTagFile::*action)(TSharedPtr<IFile>), IFileSystem* fs, const char16_t* path,
              uint32_t flags) {
    if (fs == nullptr || path == nullptr) return false;
    const CString kept(path);  // `path` may stand in an entry
    TSharedPtr<IFile> file = fs->CreateFileW(path, flags);
    if (!file) return false;
    const bool done = (tags.*action)(file);
    if (!done) SetDiagnosticFile(kept);
    return done;
}

/// Adds `count` entries from where the file stands.
bool loadEntries(CTagFile& tags, IFile& file, uint8_t version, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        CTagEntry entry;
        const int64_t start = file.GetPosition();
        if (!entry.Load(file, version)) {
            SetDiagnostic(CString(), CString::FromFormat(u"entry %u of %u", i + 1, count), u"the end of the file",
                          start);
            return false;
        }
        if (!tags.Add(entry)) return false;
    }
    return true;
}

}  // namespace

bool CTagFile::AddTagEntry(const CTagEntry& entry) {
    for (const CTagEntry& known : *this) {
        if (compareEntryNames(&known, &entry) == 0) return false;
    }
    return Add(entry);
}

CTagEntry& CTagFile::GetTagEntry(uint32_t index) {
    static CTagEntry absent;
    return index < size() ? data()[index] : absent;
}

void CTagFile::Sort() { TArray<CTagEntry>::Sort(&compareEntryNames); }

bool CTagFile::FindTag(const char16_t* name, uint32_t& index) const {
    if (name == nullptr) return false;
    uint32_t low = 0;
    uint32_t high = size();
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        const char16_t* pattern = data()[middle].GetName().c_str();
        if (matchesTagPattern(pattern, name)) {
            index = middle;
            return true;
        }
        if (text::compareNoCase(name, pattern) < 0) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    return false;
}

bool CTagFile::GetVars(const char16_t* name, uint32_t index, TArray<int32_t>& vars) const {
    if (name == nullptr || index >= size()) return false;
    return tagVariables(data()[index].GetName().c_str(), name, vars);
}

int CTagFile::CompareTags(const char16_t* lhs, const char16_t* rhs) const {
    uint32_t left = 0;
    uint32_t right = 0;
    if (!FindTag(lhs, left) || !FindTag(rhs, right) || left != right) return text::compareNoCase(lhs, rhs);
    TArray<int32_t> leftVars;
    TArray<int32_t> rightVars;
    GetVars(lhs, left, leftVars);
    GetVars(rhs, right, rightVars);
    for (uint32_t i = std::min(leftVars.size(), rightVars.size()); i-- > 0;) {
        const int64_t difference = int64_t{leftVars.data()[i]} - rightVars.data()[i];
        if (difference != 0) return static_cast<int>(std::clamp<int64_t>(difference, INT32_MIN, INT32_MAX));
    }
    return 0;
}

bool CTagFile::IsComment(const char16_t* name) const {
    uint32_t index = 0;
    return FindTag(name, index) && data()[index].GetCategory() == CTagEntry::CATEGORY::Comment;
}

bool CTagFile::Load(TSharedPtr<IFile> file) {
    Destroy();
    if (!file) return false;
    char first[4] = {};
    file->ReadBytes(first, sizeof first);
    file->SeekToBegin();
    if (std::memcmp(first, magic, sizeof magic) == 0) return LoadBinary(file);
    if (std::memcmp(first, "SBF", 3) == 0) return LoadSBF(file);
    return LoadXML(file);
}

bool CTagFile::Save(TSharedPtr<IFile> file) { return SaveBinary(file); }

bool CTagFile::LoadBinary(TSharedPtr<IFile> file) {
    Destroy();
    if (!file) return false;
    char first[4] = {};
    if (!file->ReadBytes(first, sizeof first) || std::memcmp(first, magic, sizeof magic) != 0) {
        SetDiagnostic(CString(), u"\"TAGF\"", u"another beginning", 0);
        return false;
    }
    uint8_t version = 0;
    if (!file->GetUInt8(version) || version > currentVersion) {
        SetDiagnostic(CString(), u"a tag dictionary of version 0 to 3", CString::FromFormat(u"version %d", version), 4);
        return false;
    }
    uint32_t count = 0;
    if (!file->GetUInt32(count)) {
        SetDiagnostic(CString(), u"an entry count", u"the end of the file", file->GetPosition());
        return false;
    }
    const uint16_t rate = SetGrowthRate(Private::doublingRate);
    const bool loaded = loadEntries(*this, *file, version, count);
    SetGrowthRate(rate);
    if (loaded) Sort();
    return loaded;
}

bool CTagFile::SaveBinary(TSharedPtr<IFile> file) {
    if (!file) return false;
    Sort();
    const bool written = file->WriteBytes(magic, sizeof magic) && file->PutUInt8(currentVersion) &&
                         file->PutUInt32(size()) &&
                         std::all_of(begin(), end(), [&](const CTagEntry& entry) { return entry.Save(*file); });
    if (!written) SetDiagnostic(CString(), u"room for the dictionary", u"a short write", file->GetPosition());
    return written;
}

bool CTagFile::LoadXML(TSharedPtr<IFile> file) {
    Destroy();
    CXMLFile xml;
    if (!file || !xml.Load(file)) return false;
    if (!xml.FindFirst(u"TagFile")) {
        SetDiagnostic(CString(), u"a TagFile element", u"none");
        return false;
    }
    // Elements of other names are passed over.
    const uint16_t rate = SetGrowthRate(Private::doublingRate);
    bool loaded = true;
    for (bool found = xml.FindFirstChild(u"TagEntry"); loaded && found; found = xml.FindNext(u"TagEntry")) {
        CTagEntry entry;
        loaded = entry.Load(xml) && Add(entry);
    }
    SetGrowthRate(rate);
    if (loaded) Sort();
    return loaded;
}

bool CTagFile::SaveXML(TSharedPtr<IFile> file) {
    if (!file) return false;
    Sort();
    CXMLFile xml;
    auto* prolog = new CXMLFile::CNode(CXMLFile::NODETYPE_PI, u"xml");
    prolog->attributes[u"version"] = u"1.0";
    prolog->attributes[u"encoding"] = u"UTF-8";
    xml.Insert(prolog, true);
    xml.Insert(new CXMLFile::CNode(CXMLFile::NODETYPE_ELEMENT, u"TagFile"), true);
    for (const CTagEntry& entry : *this) {
        if (!entry.Save(xml)) return false;
    }
    return xml.Save(file);
}

#define QV_DEFINE_PATH_FORMS(Name, flags)                         \
    bool CTagFile::Name(IFileSystem* fs, const char16_t* path) {  \
        return withFile(*this, &CTagFile::Name, fs, path, flags); \
    }                                                             \
    bool CTagFile::Name(const char16_t* path) { return Name(&fileSystem(), path); }
QV_DEFINE_PATH_FORMS(Load, openForReading)
QV_DEFINE_PATH_FORMS(LoadXML, openForReading)
QV_DEFINE_PATH_FORMS(LoadBinary, openForReading)
QV_DEFINE_PATH_FORMS(LoadSBF, openForReading)
QV_DEFINE_PATH_FORMS(Save, openForWriting)
QV_DEFINE_PATH_FORMS(SaveXML, openForWriting)
QV_DEFINE_PATH_FORMS(SaveBinary, openForWriting)
QV_DEFINE_PATH_FORMS(SaveSBF, openForWriting)
#undef QV_DEFINE_PATH_FORMS

CTagFile& GetTagFile() {
    static CTagFile dictionary;
    return dictionary;
}

CTagArray::TAG& CTagArray::TAG::operator=(const char16_t* text) {
    value = text;
    return *this;
}
CTagArray::TAG& CTagArray::TAG::operator=(int32_t number) {
    value.Format(u"%d", number);
    return *this;
}
CTagArray::TAG& CTagArray::TAG::operator=(double number) {
    value.Format(u"%g", number);
    return *this;
}

uint32_t CTagArray::FindTag(const char16_t* name) const {
    for (uint32_t i = 0; name != nullptr && i < m_tags.size(); ++i) {
        if (text::compareNoCase(m_tags.data()[i].name.c_str(), name) == 0) return i;
    }
    return 0xFFFFFFFFu;
}

bool CTagArray::Exists(const char16_t* name) const { return FindTag(name) != 0xFFFFFFFFu; }

const char16_t* CTagArray::GetTagValue(const char16_t* name) const {
    const uint32_t index = FindTag(name);
    return index < m_tags.size() ? m_tags.data()[index].value.c_str() : nullptr;
}

void CTagArray::SetTagValue(const char16_t* name, const char16_t* value) {
    if (name != nullptr) (*this)[name] = value;
}

bool CTagArray::RemoveTag(const char16_t* name) {
    const uint32_t index = FindTag(name);
    return index < m_tags.size() && m_tags.Remove(index);
}

CTagArray::TAG& CTagArray::operator[](int32_t index) {
    static TAG dummy;
    if (index < 0 || static_cast<uint32_t>(index) > m_tags.size()) return dummy;
    return m_tags[static_cast<uint32_t>(index)];
}

CTagArray::TAG& CTagArray::operator[](const char16_t* name) {
    const uint32_t index = FindTag(name);
    if (index < m_tags.size()) return m_tags[index];
    TAG& added = m_tags[m_tags.size()];
    added.name = name;
    return added;
}

}  // namespace qv
