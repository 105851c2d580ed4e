// CPODFile: loading, columns, rows and cells.
#include "qv/pod_file.h"

#include <algorithm>
#include <initializer_list>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "core/text.h"
#include "measurement/pod_columns.h"
#include "measurement/pod_guard.h"
#include "measurement/pod_line.h"
#include "measurement/pod_rows.h"
#include "qv/diagnostic.h"
#include "qv/exception.h"

namespace qv {

using Private::podDescriptionBytes;
using Private::podDescriptions;
using Private::PodRows;

namespace {

constexpr uint32_t openForReading = 0x212;  // existing, read, share reading

void newHeader(CSAFFile& header) {
    header.New(false);
    header.AddTag(u"KeyWrd", u"POD");
    header.AddTag(u"NumDPs", u"auto");
    header.AddTag(u"NParam", u"0");
    for (const char16_t* tag : {u"PNSize", u"PUSize", u"PCSize"}) header.AddTag(tag, u"20");
}

bool isNull(const char16_t* text) { return text == nullptr; }

/// Whether every text that is given can be written.
bool arePodTexts(std::initializer_list<const char16_t*> texts) {
    for (const char16_t* text : texts) {
        if (isNull(text) || Private::isPodText(text)) continue;
        SetDiagnostic(CString(), u"a text that a line can hold", u"a line feed, or a double quote in a wrong place");
        return false;
    }
    return true;
}

void setColumn(CPODFile::COLUMN& column, const char16_t* name, const char16_t* classification, const char16_t* units,
               const char16_t* type) {
    if (!isNull(name)) Private::copyPodText(column.name, Private::podNameChars, name);
    if (!isNull(classification)) Private::copyPodText(column.classification, Private::podNameChars, classification);
    if (!isNull(units)) Private::copyPodText(column.units, Private::podUnitsChars, units);
    if (!isNull(type)) Private::copyPodText(column.type, Private::podUnitsChars, type);
}

/// Reads one of the lines in front of the rows. Such a line has its separators still: where GetLine puts NUL for a CR,
/// the CR comes back.
bool getDescriptionLine(IFile& file, std::string& line) {
    const int64_t at = file.GetPosition();
    line.resize(podDescriptionBytes);
    if (!file.GetLine(line.data(), static_cast<int>(podDescriptionBytes))) return false;
    line.resize(static_cast<size_t>(file.GetPosition() - at));
    if (line.ends_with('\0')) line.pop_back();  // the LF
    std::replace(line.begin(), line.end(), '\0', '\r');
    return true;
}

CPODFile::COLUMN emptyColumn() {
    CPODFile::COLUMN column{};
    column.state = 1;
    return column;
}

}  // namespace

// Life ---------------------------------------------------------------------------------------------------------------

CPODFile::CPODFile() = default;
CPODFile::~CPODFile() = default;

bool CPODFile::refuse(const char16_t* expected, const CString& found, int64_t byte) {
    SetDiagnostic(m_path, expected, found, byte);
    return false;
}

void CPODFile::Destroy() {
    m_rows.reset();
    m_columns.Empty();
    m_header.Destroy();
    m_fileSystem = nullptr;
    m_path.Empty();
    m_open = m_modified = false;
}

bool CPODFile::New() {
    Destroy();
    newHeader(m_header);
    m_open = m_modified = Private::guarded([&] {
        m_rows = std::make_unique<PodRows>(0u);
        return true;
    });
    return m_open;
}

bool CPODFile::MakeDuplicate(IPODFile& to) {
    if (!m_open || &to == this || !to.New() || !m_header.MakeDuplicate(to.GetHeader())) return false;
    for (const COLUMN& column : m_columns) {
        if (column.state == 1 && !to.AddColumn(column.name, column.classification, column.units, column.type)) {
            return false;
        }
    }
    if (!to.AllocRows(nDPs())) return false;
    for (uint32_t row = 0; row < nDPs(); ++row) {
        uint32_t target = 0;
        for (uint32_t column = 0; column < nParams(); ++column) {
            if (!holds(column)) continue;
            const char16_t* text = GetValue(column, row);
            if (isNull(text) || (*text != 0 && !to.PutValue(target, row, text))) return false;
            ++target;
        }
    }
    return true;
}

// Loading ------------------------------------------------------------------------------------------------------------

bool CPODFile::Load(IFileSystem* fs, const char16_t* path, bool requireHeader) {
    const CString kept(path);  // `path` may be this object's own
    Destroy();
    if (fs == nullptr || isNull(path)) return false;
    const bool loaded = Private::guarded([&] {
        if (load(fs, kept, requireHeader)) return true;
        SetDiagnosticFile(kept);  // what is thrown is the fault of temporary files and memory
        return false;
    });
    if (!loaded) Destroy();
    return loaded;
}

bool CPODFile::load(IFileSystem* fs, const CString& path, bool requireHeader) {
    const bool hasHeader = m_header.Load(fs, path.c_str());
    if (!hasHeader && requireHeader) return false;
    TSharedPtr<IFile> file = fs->CreateFileW(path.c_str(), openForReading);
    if (!file || (!hasHeader && !makeHeaderless(*file))) return false;
    m_fileSystem = fs;
    m_path = path;
    return attach(file, m_header.GetDataPosition());
}

/// The header of a file that has none: as many columns as the first line has fields.
bool CPODFile::makeHeaderless(IFile& file) {
    newHeader(m_header);
    file.SeekToBegin();
    std::string line;
    if (!getDescriptionLine(file, line)) {
        if (file.GetSize() == 0) refuse(u"a line of names", u"an empty file", 0);
        return false;
    }
    std::vector<std::string_view> unused;
    m_header[u"NParam"] = static_cast<int32_t>(Private::splitPodLine(line, unused));
    return true;
}

/// Takes up an open file: m_header is its header.
bool CPODFile::attach(TSharedPtr<IFile> file, int64_t dataPosition) {
    const char16_t* keyWord = m_header.GetTagValue(u"KeyWrd");
    if (isNull(keyWord) || text::compareNoCase(keyWord, u"POD") != 0) {
        return refuse(u"a KeyWrd of \"POD\"", isNull(keyWord) ? CString(u"none") : CString(keyWord));
    }
    if (!m_header[u"NumDPs"].Exists()) return refuse(u"the tag NumDPs", u"none");
    const char16_t* columns = m_header.GetTagValue(u"NParam");
    const auto count = text::readNumber<uint32_t>(isNull(columns) ? std::u16string_view() : columns);
    if (count.used == 0 || !count.inRange || count.value > PodRows::maxColumns) {
        return refuse(u"a number of up to 4096 columns in NParam",
                      isNull(columns) ? CString(u"none") : CString(columns));
    }
    m_columns.Empty();
    if (!m_columns.Dimension(count.value)) throw std::bad_alloc();
    for (uint32_t i = 0; i < count.value; ++i) (void)m_columns.Add(emptyColumn());
    file->SetPosition(dataPosition);
    if (!readDescriptions(*file)) return false;
    m_rows = std::make_unique<PodRows>(count.value);
    m_open = m_rows->index(file);
    m_modified = false;
    return m_open;
}

bool CPODFile::readDescriptions(IFile& file) {
    std::vector<std::string_view> fields(m_columns.size());
    for (const Private::PodDescription& description : podDescriptions) {
        if (m_header[description.tag].ToLong(0) == 0) continue;
        const int64_t at = file.GetPosition();
        std::string line;
        if (!getDescriptionLine(file, line)) {
            return refuse(u"a line of up to 2048 bytes that describes the columns",
                          at < file.GetSize() ? u"a longer one" : u"the end of the file", at);
        }
        Private::splitPodLine(line, fields);
        for (uint32_t i = 0; i < m_columns.size(); ++i) {
            Private::decodePodText(description.text(m_columns[i]), description.chars, fields[i]);
        }
    }
    return true;
}

// Columns ------------------------------------------------------------------------------------------------------------

bool CPODFile::FindColumn(const char16_t* name, uint32_t& column) const {
    for (uint32_t i = 0; !isNull(name) && i < m_columns.size(); ++i) {
        if (!holds(i) || text::compareNoCase(m_columns.data()[i].name, name) != 0) continue;
        column = i;
        return true;
    }
    return false;
}

uint32_t CPODFile::GetColumnID(const char16_t* name) const {
    uint32_t column = none;
    (void)FindColumn(name, column);
    return column;
}

bool CPODFile::AddColumn(const char16_t* name, const char16_t* classification, const char16_t* units,
                         const char16_t* type) {
    if (!m_open || !arePodTexts({name, classification, units, type})) return false;
    if (m_columns.size() == PodRows::maxColumns) return refuse(u"at most 4096 columns", u"one more");
    COLUMN column = emptyColumn();
    setColumn(column, name, classification, units, type);
    const uint32_t rows = nDPs();
    const bool added = Private::guarded([&] {
        m_rows->addColumn();
        return m_columns.Add(column) && (m_modified = true);
    });
    // An index that is gone, or has a column more, must not be saved.
    if (!added && (nDPs() != rows || m_rows->columns() != m_columns.size())) Destroy();
    return added;
}

bool CPODFile::RemoveCol(uint32_t column) {
    return holds(column) && Private::guarded([&] {
               m_rows->removeColumn(column);
               m_columns[column].state = 0;
               return m_modified = true;
           });
}

bool CPODFile::UpdateColumn(uint32_t column, const char16_t* name, const char16_t* classification,
                            const char16_t* units, const char16_t* type) {
    if (!holds(column) || !arePodTexts({name, classification, units, type})) return false;
    setColumn(m_columns[column], name, classification, units, type);
    m_modified = true;
    return true;
}

bool CPODFile::GetColumnInfo(uint32_t column, CString* name, CString* classification, CString* units,
                             CString* type) const {
    if (!holds(column)) return false;
    const COLUMN& info = m_columns.data()[column];
    if (name != nullptr) *name = info.name;
    if (classification != nullptr) *classification = info.classification;
    if (units != nullptr) *units = info.units;
    if (type != nullptr) *type = info.type;
    return true;
}

// Rows and cells -----------------------------------------------------------------------------------------------------

uint32_t CPODFile::nDPs() const { return m_rows == nullptr ? 0 : m_rows->rows(); }
uint32_t CPODFile::GetRowEntrySize() const { return PodRows::entryBytes(nParams()); }

bool CPODFile::AddRow() { return nDPs() < none - 1 && AllocRows(nDPs() + 1); }

bool CPODFile::AllocRows(uint32_t count) {
    return m_open && count < none && Private::guarded([&] {
               for (; m_rows->rows() < count; m_modified = true) m_rows->addRow();
               m_rows->fitWindow();
               return true;
           });
}

bool CPODFile::RemoveRow(uint32_t row) {
    return row < nDPs() && Private::guarded([&] {
               m_rows->removeRow(row);
               return m_modified = true;
           });
}

const char16_t* CPODFile::GetValue(uint32_t column, uint32_t row) {
    const char16_t* text = nullptr;
    if (!holds(column) || row >= nDPs()) return nullptr;
    (void)Private::guarded([&] { return (text = m_rows->value(column, row)) != nullptr; });
    return text;
}

bool CPODFile::PutValue(uint32_t column, uint32_t row, const char16_t* text) {
    if (!holds(column) || row >= nDPs() || !arePodTexts({text})) return false;
    return Private::guarded([&] {
        m_rows->put(column, row, isNull(text) ? u"" : text);
        return m_modified = true;
    });
}

bool CPODFile::GetLineInfo(uint32_t row, LINE_INFO& info) {
    return row < nDPs() && Private::guarded([&] {
               m_rows->lineInfo(row, info);
               return true;
           });
}

}  // namespace qv
