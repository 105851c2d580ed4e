// CSAFFile: tags in memory, reading, and the three ways of saving.
#include "qv/saf_file.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "core/text.h"
#include "measurement/saf_lines.h"
#include "measurement/saf_pad.h"
#include "qv/diagnostic.h"
#include "qv/tag_file.h"

namespace qv {

namespace {

constexpr uint32_t openForReading = 0x212;  // existing, read, share reading
constexpr uint32_t openForCopying = 0x12;   // existing, read
constexpr uint32_t openForCreating = 0x28;  // create truncating, write
constexpr uint32_t openForUpdating = 0x32;  // existing, read, write
constexpr uint32_t copyBlockBytes = 0x500000;
/// More header lines than any real file has; what ends the reading of a file that is no header at all.
constexpr uint32_t tagLimit = 0x40000;

constexpr char16_t sizeTag[] = u"HdSize";
constexpr char16_t dataTag[] = u"DATA";
constexpr char16_t padTag[] = u"saf_padding";

bool same(const CString& a, const char16_t* b) {
    return text::compareNoCase(a.c_str(), b) == 0;
}

SAF_TAG makeTag(const char16_t* name, const char16_t* value) {
    return {CString(name), CString(value)};
}

bool startsAsHeader(IFile& file) {
    char first[6];
    return file.ReadBytes(first, sizeof first) &&
           text::compareNoCase(std::string_view(first, sizeof first), std::string_view("HdSize")) == 0;
}

// What of a tag's text reaches the file: up to its first NUL.
std::u16string_view written(const CString& value) {
    return value.c_str();
}

void appendUtf8(std::string& out, const CString& value) {
    const size_t start = out.size();
    out.resize(start + text::convertedLength(written(value)));
    text::convert(written(value), out.data() + start, out.size() - start);
}

/// `header` is the header's size without a pad, `dataPosition` where the data begin now.
SAF_SAVE_PLAN planSplice(int64_t header, int64_t dataPosition) {
    if (header == dataPosition) return {};
    if (header + safPad::least > dataPosition) return {safPad::fresh + header - dataPosition, 0, safPad::fresh};
    if (header + safPad::most < dataPosition) return {0, dataPosition - header - safPad::fresh, safPad::fresh};
    return {0, 0, static_cast<uint32_t>(dataPosition - header)};
}

/// Makes room for the header, sets the pad to write and leaves the position at 0. False when the data could not be moved
/// whole: a header written then would destroy what still stands in front.
bool spliceFront(IFile& file, int64_t header, int64_t dataPosition, uint32_t& pad) {
    const SAF_SAVE_PLAN plan = planSplice(header, dataPosition);
    pad = plan.pad;
    if (plan.movesData()) {
        const int64_t before = file.GetSize();
        const int64_t expected = before == 0 ? 0 : std::max<int64_t>(before + plan.insert - plan.remove, 0);
        const CDiagnostic earlier = LastDiagnostic();
        ClearDiagnostic();  // the moves report a short write by nothing else
        plan.insert > 0 ? file.Insert(0, plan.insert) : file.Remove(0, plan.remove);
        if (LastDiagnostic().IsSet()) return false;
        if (file.GetSize() != expected) {
            SetDiagnostic(CString(), u"room to move the data segment", u"none", dataPosition);
            return false;
        }
        if (earlier.IsSet()) {
            SetDiagnostic(earlier.file, earlier.expected, earlier.found, earlier.byteOffset, earlier.line);
        }
    }
    file.SeekToBegin();
    return true;
}

/// Copies everything from `source`'s position to `target`'s.
bool copyRest(IFile& source, IFile& target) {
    TSimpleArray<char> block;
    if (!block.SetSize(copyBlockBytes)) return false;
    for (;;) {
        const uint32_t got = source.Read(block.data(), copyBlockBytes);
        if (got == 0) return true;
        if (!target.WriteBytes(block.data(), got)) {
            SetDiagnostic(CString(), u"room for the data segment", u"a short write", target.GetPosition());
            return false;
        }
    }
}

}  // namespace

// Tags in memory -----------------------------------------------------------------------------------------------------

CSAFFile::CTagValue::operator const char16_t*() const {
    return ToString();
}
const char16_t* CSAFFile::CTagValue::ToString() const {
    return m_file->GetTagValue(m_name);
}
bool CSAFFile::CTagValue::Exists() const {
    return ToString() != nullptr;
}
CSAFFile::CTagValue::operator int32_t() const {
    return ToLong(0);
}
CSAFFile::CTagValue::operator double() const {
    return ToDouble(0.0);
}
int32_t CSAFFile::CTagValue::ToLong(int32_t absent) const {
    const char16_t* value = ToString();
    return value == nullptr ? absent : text::wtol(value);
}
double CSAFFile::CTagValue::ToDouble(double absent) const {
    const char16_t* value = ToString();
    return value == nullptr ? absent : text::wtof(value);
}
CSAFFile::CTagValue& CSAFFile::CTagValue::operator=(const char16_t* text) {
    m_file->SetTagValue(m_name, text);
    return *this;
}
CSAFFile::CTagValue& CSAFFile::CTagValue::operator=(int32_t number) {
    return *this = CString::FromFormat(u"%d", number).c_str();
}
CSAFFile::CTagValue& CSAFFile::CTagValue::operator=(double number) {
    return *this = CString::FromFormat(u"%e", number).c_str();
}

CSAFFile::CSAFFile() : m_tagFile(&qv::GetTagFile()) {}

bool CSAFFile::New(bool keepFile) {
    if (!keepFile) DropData();
    m_tags.Empty();
    m_tags.Add(makeTag(sizeTag, u"auto"));
    m_tags.Add(makeTag(dataTag, u""));
    return true;
}

void CSAFFile::Destroy() {
    DropData();
    m_tags.Empty();
}

void CSAFFile::DropData() {
    m_path.Empty();
    m_fileSystem = nullptr;
    m_dataPosition = 0;
}

bool CSAFFile::MakeDuplicate(CSAFFile& to) const {
    if (&to == this) return to.New(false);
    to.New(false);
    const TArray<SAF_TAG>& tags = m_tags;
    for (uint32_t i = 1; i + 1 < tags.size(); ++i) {
        if (!to.AddTag(tags[i].name.c_str(), tags[i].value.c_str())) return false;
    }
    return true;
}

bool CSAFFile::FindTag(const char16_t* name, uint32_t& index) const {
    for (uint32_t i = 0; name != nullptr && i < m_tags.size(); ++i) {
        if (same(m_tags.data()[i].name, name)) {
            index = i;
            return true;
        }
    }
    return false;
}

SAF_TAG* CSAFFile::findTag(const char16_t* name) {
    uint32_t index = 0;
    return FindTag(name, index) ? &m_tags[index] : nullptr;
}

const char16_t* CSAFFile::GetTagValue(const char16_t* name) const {
    uint32_t index = 0;
    return FindTag(name, index) ? m_tags.data()[index].value.c_str() : nullptr;
}

bool CSAFFile::AddTag(const char16_t* name, const char16_t* value) {
    return m_tags.Insert(makeTag(name, value), m_tags.size() - 1);
}

bool CSAFFile::SetTagValue(const char16_t* name, const char16_t* value) {
    if (m_tags.empty()) return false;
    if (SAF_TAG* tag = findTag(name)) {
        tag->value = CString(value);
        return true;
    }
    return AddTag(name, value);
}

bool CSAFFile::SetTagValue(uint32_t index, const char16_t* value) {
    const CString copy(value);
    if (index != 0xFFFFFFFFu && m_tags.ImplicitAddition(index + 1)) m_tags[index].value = copy;
    return true;
}

bool CSAFFile::RemoveTag(const char16_t* name) {
    uint32_t index = 0;
    return FindTag(name, index) && m_tags.Remove(index);
}

bool CSAFFile::RemoveTag(uint32_t index) {
    return m_tags.Remove(index);
}

// Reading ------------------------------------------------------------------------------------------------------------

bool CSAFFile::IsSAFFile(IFileSystem* fs, const char16_t* path) {
    if (fs == nullptr || path == nullptr) return false;
    TSharedPtr<IFile> file = fs->CreateFileW(path, openForReading);
    return file && startsAsHeader(*file);
}

bool CSAFFile::Load(const char16_t* path) {
    return Load(&fileSystem(), path);
}

bool CSAFFile::Load(IFileSystem* fs, const char16_t* path) {
    const CString kept(path);  // `path` may be this object's own
    Destroy();
    if (fs == nullptr || path == nullptr) return false;
    TSharedPtr<IFile> file = fs->CreateFileW(kept.c_str(), openForReading);
    if (!file) return false;
    if (!Load(file)) {
        SetDiagnosticFile(kept);
        return false;
    }
    m_path = kept;
    m_fileSystem = fs;
    return true;
}

bool CSAFFile::Load(TSharedPtr<IFile> file) {
    Destroy();
    if (!file) return false;
    if (!startsAsHeader(*file)) {
        SetDiagnostic(CString(), u"a header that begins with \"HdSize\"", u"another beginning", 0);
        return false;
    }
    file->SeekToBegin();
    // However many lines there are, the tags are not moved for every few of them.
    const uint16_t rate = m_tags.SetGrowthRate(Private::doublingRate);
    const bool loaded = parse(*file);
    m_tags.SetGrowthRate(rate);
    return loaded;
}

bool CSAFFile::parse(IFile& file) {
    SafLines lines(file);
    int32_t expectedSize = -1;
    bool ended = false;
    while (!ended && lines.next()) {
        if (m_tags.size() == tagLimit) {
            SetDiagnostic(CString(), u"the end of the header", CString::FromFormat(u"more than %u lines", tagLimit),
                          lines.position());
            return false;
        }
        if (!addLine(lines.line(), expectedSize, static_cast<uint32_t>(lines.position()), ended)) return false;
    }
    file.SetPosition(lines.position());
    m_dataPosition = static_cast<uint32_t>(lines.position());
    if (m_tags.empty() || !same(m_tags.front().name, sizeTag)) {
        SetDiagnostic(CString(), u"HdSize as the first tag", m_tags.empty() ? CString() : m_tags.front().name, 0);
        return false;
    }
    if (!same(m_tags.front().value, u"Auto")) {
        m_tags.front().value = CString(u"Auto");
        if (!same(m_tags.back().name, dataTag)) return m_tags.Add(makeTag(dataTag, u""));
    }
    return true;
}

/// Takes one line in; `position` is the file's behind it. `ended` is set by the header's last line.
bool CSAFFile::addLine(const char* line, int32_t& expectedSize, uint32_t position, bool& ended) {
    const std::string_view all(line);
    const size_t blank = all.find(' ');
    std::string_view value = blank == all.npos ? std::string_view() : all.substr(blank);
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    value = value.substr(0, value.find_last_not_of(' ') + 1);

    const SAF_TAG tag{CString(all.substr(0, blank)), CString(value)};
    if (same(tag.name, sizeTag) && !same(tag.value, u"Auto")) expectedSize = text::wtol(tag.value.c_str());
    // A padding line that ends where a fixed-size header should is passed over all the same.
    if (same(tag.name, padTag)) return true;
    ended = same(tag.name, dataTag) || (expectedSize != -1 && position == static_cast<uint32_t>(expectedSize));
    // By its own step the array would grow once for every five lines.
    if (m_tags.size() == m_tags.capacity() && !m_tags.reserve(2 * m_tags.size())) return false;
    return m_tags.Add(tag);
}

// Writing ------------------------------------------------------------------------------------------------------------

uint32_t CSAFFile::HeaderSize() const {
    if (m_tags.empty()) return sizeof("DATA\r\n") - 1;  // what the writer puts out then
    size_t bytes = 0;
    for (const SAF_TAG& tag : m_tags)
        bytes += text::convertedLength(written(tag.name)) + text::convertedLength(written(tag.value)) + 3;
    return static_cast<uint32_t>(bytes - 1);
}

SAF_SAVE_PLAN CSAFFile::PlanSave() const {
    return planSplice(HeaderSize(), m_dataPosition);
}

bool CSAFFile::Save() {
    return Save(nullptr, nullptr, true);
}
bool CSAFFile::Save(const char16_t* path, bool addPad) {
    return Save(&fileSystem(), path, addPad);
}

bool CSAFFile::Save(IFileSystem* fs, const char16_t* path, bool addPad) {
    const CString kept(path);  // `path` may be this object's own
    const bool named = path != nullptr;
    bool saved = false;
    if (m_path.IsEmpty()) {
        saved = saveNew(fs, named ? kept.c_str() : nullptr, addPad);
    } else if (named && (!same(m_path, kept.c_str()) || fs != m_fileSystem)) {
        saved = saveCopy(fs, kept.c_str());
    } else {
        saved = saveInPlace();
    }
    if (saved && named) {
        m_path = kept;
        m_fileSystem = fs;
    }
    return saved;
}

bool CSAFFile::saveNew(IFileSystem* fs, const char16_t* path, bool addPad) {
    if (fs == nullptr || path == nullptr) return false;
    TSharedPtr<IFile> file = fs->CreateFileW(path, openForCreating);
    if (!file) return false;
    writeHeader(*file, addPad ? safPad::fresh : 0);
    m_dataPosition = static_cast<uint32_t>(file->GetPosition());
    return true;
}

/// The data segment goes along; a copy that fails half-way is deleted.
bool CSAFFile::saveCopy(IFileSystem* fs, const char16_t* path) {
    if (fs == nullptr || m_fileSystem == nullptr) return false;
    TSharedPtr<IFile> source = m_fileSystem->CreateFileW(m_path.c_str(), openForCopying);
    if (!source) return false;
    const uint32_t pad = source->GetSize() > m_dataPosition ? safPad::fresh : 0;
    TSharedPtr<IFile> target = fs->CreateFileW(path, openForCreating);
    if (!target) return false;
    source->SetPosition(m_dataPosition);
    target->SetPosition(int64_t{HeaderSize()} + pad);
    if (!copyRest(*source, *target)) {
        target.Release();
        fs->DeleteFileW(path);
        SetDiagnosticFile(path);
        return false;
    }
    target->SeekToBegin();
    writeHeader(*target, pad);
    m_dataPosition = static_cast<uint32_t>(target->GetPosition());
    return true;
}

bool CSAFFile::saveInPlace() {
    if (m_fileSystem == nullptr) return false;
    TSharedPtr<IFile> file = m_fileSystem->CreateFileW(m_path.c_str(), openForUpdating);
    if (!file) return false;
    const int64_t header = HeaderSize();
    uint32_t pad = 0;
    if (file->GetSize() == m_dataPosition) {
        file->SetSize(header);
    } else {
        if (!spliceFront(*file, header, m_dataPosition, pad)) return false;
    }
    writeHeader(*file, pad);
    m_dataPosition = static_cast<uint32_t>(file->GetPosition());
    return true;
}

bool CSAFFile::SaveTo(TSharedPtr<IFile> file, uint32_t& dataPosition, bool addPad) {
    dataPosition = 0;
    return Update(file, dataPosition, addPad);
}

bool CSAFFile::Update(TSharedPtr<IFile> file, uint32_t& dataPosition, bool addPad) {
    if (!file) return true;
    uint32_t pad = addPad ? safPad::fresh : 0;
    if (file->GetSize() == 0 && dataPosition == 0) {
        file->SeekToBegin();
    } else {
        if (!spliceFront(*file, HeaderSize(), dataPosition, pad)) return true;
    }
    writeHeader(*file, pad);
    dataPosition = static_cast<uint32_t>(file->GetPosition());
    return true;
}

/// Writes the header from the current position in one piece.
void CSAFFile::writeHeader(IFile& file, uint32_t pad) {
    std::string header;
    header.reserve(size_t{HeaderSize()} + pad);
    for (uint32_t i = 0; i + 1 < m_tags.size(); ++i) {
        appendUtf8(header, m_tags[i].name);
        header += ' ';
        appendUtf8(header, m_tags[i].value);
        header += "\r\n";
    }
    safPad::append(header, pad);
    header += "DATA\r\n";
    if (file.WriteBytes(header.data(), static_cast<uint32_t>(header.size()))) return;
    SetDiagnostic(CString(), u"room for the header", u"a short write", file.GetPosition());
}

template class TArray<SAF_TAG>;

}  // namespace qv
