// CNormFile: the object form of a correction table.
#include "qv/norm_file.h"

#include <algorithm>
#include <numeric>

#include "measurement/norm_format.h"
#include "measurement/whole_file.h"

namespace qv {

namespace {

template <class T>
bool setSize(TSimpleArray<T>& table, uint32_t count) {
    if (table.SetSize(count)) return true;
    SetDiagnostic(CString(), CString::FromFormat(u"memory for a table of %u elements", count), u"too little");
    return false;
}

/// Takes memory for a table of `count` elements and reads it; empty when the file does not hold so many.
template <class T>
bool loadTable(IFile& file, TSimpleArray<T>& table, uint32_t count) {
    const uint64_t bytes = uint64_t{count} * sizeof(T);
    const int64_t left = std::max<int64_t>(file.GetRemaining(), 0);
    if (bytes > static_cast<uint64_t>(left)) {
        SetDiagnostic(CString(), CString::FromFormat(u"a table of %I64u bytes", bytes),
                      CString::FromFormat(u"%I64d", left), file.GetPosition());
        return false;
    }
    if (!setSize(table, count)) return false;
    if (Private::norm::readTable(file, table.data(), bytes)) return true;
    table.Destroy();
    return false;
}

template <class T>
bool saveTable(IFile& file, const TSimpleArray<T>& table) {
    return Private::norm::writeTable(file, table.data(), uint64_t{table.size()} * sizeof(T));
}

}  // namespace

constinit const CNormFile::BPINFO CNormFile::NULL_BPINFO{};

bool CNormFile::New(FILE_TYPE type, uint16_t xPixels, uint16_t yPixels, uint16_t subframe, uint8_t calType,
                    uint16_t numAvg, float bpTol) {
    Destroy();
    if (!NewHeader(m_header, type, xPixels, yPixels, subframe)) return false;
    m_header.calType = calType;
    m_header.numAvg = numAvg;
    m_header.bpTol = bpTol;
    m_bpTol = bpTol;
    const uint32_t count = pixelCount();
    if (type == TYPE_GAIN && setSize(m_gains, count)) {
        std::fill(m_gains.begin(), m_gains.end(), 1.0F);
    } else if (type == TYPE_OFFSET && setSize(m_offsets, count)) {
        std::fill(m_offsets.begin(), m_offsets.end(), int16_t{0});
    } else if (type == TYPE_BAD_PIXEL && setSize(m_flags, count) && setSize(m_subs, count)) {
        std::fill(m_flags.begin(), m_flags.end(), uint8_t{0});
        std::iota(m_subs.begin(), m_subs.end(), 0u);
    } else {
        Destroy();
        return false;
    }
    return true;
}

void CNormFile::Destroy() {
    m_gains.Destroy();
    m_offsets.Destroy();
    m_flags.Destroy();
    m_subs.Destroy();
    m_header.type = TYPE_NONE;
}

bool CNormFile::Load(TSharedPtr<IFile> file) {
    Destroy();
    const bool known = ReadHeader(file, m_header);
    if (!known) m_header.type = TYPE_NONE;  // its sizes may be missing
    m_bpTol = m_header.bpTol;
    return known && loadTables(*file);
}

bool CNormFile::loadTables(IFile& file) {
    const uint32_t count = pixelCount();
    switch (m_header.type) {
        case TYPE_GAIN: return loadTable(file, m_gains, count);
        case TYPE_OFFSET: return loadTable(file, m_offsets, count);
        case TYPE_BAD_PIXEL: {
            if (!loadTable(file, m_flags, count)) return false;
            const bool stored = m_header.version > 1;
            if (stored ? !loadTable(file, m_subs, count) : !setSize(m_subs, count)) return false;
            if (!stored || !Private::norm::areValid(m_subs.data(), count)) SetupBPSubs();
            return true;
        }
        default:
            SetDiagnostic(CString(), u"a Norm table of type 0 to 2", CString::FromFormat(u"type %d", m_header.type), 1);
            return false;
    }
}

bool CNormFile::Load(IFileSystem* fileSystem, const char16_t* path) {
    return Private::norm::readFile(fileSystem, path, [this](const TSharedPtr<IFile>& file) { return Load(file); });
}

bool CNormFile::Save(TSharedPtr<IFile> file) const {
    if (!file || !isWhole() || !WriteHeader(file, m_header)) return false;
    return saveTable(*file, m_gains) && saveTable(*file, m_offsets) && saveTable(*file, m_flags) &&
           (m_header.version < 2 || saveTable(*file, m_subs));
}

bool CNormFile::Save(IFileSystem* fileSystem, const char16_t* path) const {
    return isWhole() &&
           Private::writeWhole(fileSystem, path, [this](const TSharedPtr<IFile>& file) { return Save(file); });
}

bool CNormFile::isWhole() const {
    const uint32_t count = pixelCount();
    switch (m_header.type) {
        case TYPE_GAIN: return m_gains.size() == count;
        case TYPE_OFFSET: return m_offsets.size() == count;
        case TYPE_BAD_PIXEL: return m_flags.size() == count && m_subs.size() == count;
        default: return false;
    }
}

bool CNormFile::SetupBPSubs() {
    if (m_header.type != TYPE_BAD_PIXEL || !isWhole()) return false;
    SetupBPSubs(m_flags.data(), m_subs.data(), m_header.xPixels, m_header.yPixels);
    return true;
}

}  // namespace qv
