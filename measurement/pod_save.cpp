// CPODFile: saving.
#include <string>

#include "core/text.h"
#include "measurement/pod_columns.h"
#include "measurement/pod_guard.h"
#include "measurement/pod_line.h"
#include "measurement/pod_rows.h"
#include "measurement/saf_pad.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/pod_file.h"

namespace qv {

namespace {

constexpr uint32_t openForReading = 0x212;  // existing, read, share reading
constexpr uint32_t openForCreating = 0x28;  // create truncating, write

/// Writes a header that reads again: a caller may have put a tag into it that is longer than a line, or has an end of
/// line in it, and the rows behind such a header would be lost.
bool writeHeader(CSAFFile& header, IFile& file, bool addPad) {
    const uint32_t end = header.nTags();
    if (end != 0 && text::compareNoCase(header[end - 1].name.c_str(), u"DATA") != 0) {
        // A header that ended with its file: the writer would put DATA in the place of its last tag.
        const SAF_TAG last = header[end - 1];
        header.AddTag(last.name.c_str(), last.value.c_str());
        header[end].name = u"DATA";
        header[end].value.Empty();
    }
    uint32_t dataPosition = 0;
    TSharedPtr<IFile> shared(&file, TSharedPtr<IFile>::notOwned());
    header.SaveTo(shared, dataPosition, addPad);
    if (file.GetSize() != int64_t{header.HeaderSize()} + (addPad ? safPad::fresh : 0)) {
        SetDiagnostic(CString(), u"room for the header", u"a short write", file.GetSize());
        return false;
    }
    CSAFFile written;
    file.SeekToBegin();
    if (!written.Load(shared) || written.nTags() != header.nTags() || written.GetDataPosition() != dataPosition) {
        SetDiagnostic(CString(), u"tags of which each fits a line of 511 bytes", u"a header that does not read again");
        return false;
    }
    file.SetPosition(dataPosition);
    return true;
}

/// Copies a finished file and closes the copy. One that did not take everything is deleted.
bool copyWhole(TSharedPtr<IFile> from, TSharedPtr<IFile>& to, IFileSystem* fs, const CString& path) {
    from->SeekToBegin();
    const bool copied = IFileSystem::CopyFileW(from, to) && to->GetSize() == from->GetSize();
    to.Release();
    if (!copied) {
        fs->DeleteFileW(path.c_str());
        SetDiagnostic(path, u"room for the table", u"a short write");
    }
    return copied;
}

}  // namespace

namespace Private {

/// Lines on their way into a file, in large blocks.
class PodWriter {
public:
    explicit PodWriter(IFile& file) : m_file(file), m_position(file.GetPosition()) {
        m_block.reserve(writeBytes + podLineBytes);
    }

    std::string& block() { return m_block; }
    /// Ends the line that was appended to block(). False when it is longer than `limit`, or the file did not take it.
    bool endLine(size_t limit, const CString& name) {
        if (m_block.size() - m_lineStart > limit) {
            const CString found = CString::FromFormat(u"%u bytes", static_cast<uint32_t>(m_block.size() - m_lineStart));
            SetDiagnostic(CString(), CString::FromFormat(u"%s of at most %u bytes", name, static_cast<uint32_t>(limit)),
                          found);
            return false;
        }
        if (m_position + static_cast<int64_t>(m_lineStart) > int64_t{0xFFFFFFFF}) {
            SetDiagnostic(CString(), u"rows within the first 4 GiB", u"a row behind them", m_position);
            return false;
        }
        m_lineStart = m_block.size();
        return m_block.size() < writeBytes || flush();
    }
    bool flush() {
        if (!m_file.WriteBytes(m_block.data(), static_cast<uint32_t>(m_block.size()))) {
            SetDiagnostic(CString(), u"room for the table", u"a short write", m_file.GetPosition());
            return false;
        }
        m_position += static_cast<int64_t>(m_block.size());
        m_block.clear();
        m_lineStart = 0;
        return true;
    }

private:
    static constexpr size_t writeBytes = 0x80000;

    IFile& m_file;
    std::string m_block;
    size_t m_lineStart = 0;
    int64_t m_position;  ///< Of the block in the file.
};

}  // namespace Private

bool CPODFile::Save(IFileSystem* fs, const char16_t* path, bool reloadHeader, bool addPad) {
    if (!m_open || fs == nullptr || path == nullptr) return false;
    const CString kept(path);  // `path` may be the text of a cell
    return Private::guarded([&] {
        CSAFFile header(m_header);
        if (reloadHeader && !header.Load(fs, kept.c_str())) return false;
        TSharedPtr<IFile> temporary = fileSystem().CreateTempFile();
        if (!temporary || !write(header, *temporary, addPad)) return false;
        if (isOwnPath(fs, kept.c_str())) return replaceOwn(temporary, fs, kept);
        TSharedPtr<IFile> target = fs->CreateFileW(kept.c_str(), openForCreating);
        if (!target || !copyWhole(temporary, target, fs, kept)) return false;
        m_header = header;
        m_modified = false;
        return true;
    });
}

bool CPODFile::write(CSAFFile& header, IFile& file, bool addPad) {
    uint32_t inUse = 0, last = none;
    for (uint32_t i = 0; i < nParams(); ++i) {
        if (holds(i)) ++inUse, last = i;
    }
    const char16_t* points = header.GetTagValue(u"NumDPs");
    if (points == nullptr || text::compareNoCase(points, u"auto") != 0) {
        header.SetTagValue(u"NumDPs", CString::FromFormat(u"%u", nDPs()).c_str());
    }
    header[u"NParam"] = static_cast<int32_t>(inUse);
    header[u"KeyWrd"] = u"POD";
    if (!writeHeader(header, file, addPad)) return false;
    Private::PodWriter writer(file);
    if (!writeDescriptions(header, writer)) return false;
    bool written = true;
    m_rows->expectOrder();
    for (uint32_t row = 0; written && row < nDPs(); ++row) {
        m_rows->appendLine(writer.block(), row, last);
        written = writer.endLine(Private::podLineBytes, u"a row");
    }
    m_rows->fitWindow();
    return written && writer.flush();
}

bool CPODFile::writeDescriptions(CSAFFile& header, Private::PodWriter& writer) {
    for (const Private::PodDescription& description : Private::podDescriptions) {
        if (header[description.tag].ToLong(0) == 0) continue;
        bool first = true;
        for (COLUMN& column : m_columns) {
            if (column.state != 1) continue;
            if (!first) writer.block() += '\t';
            first = false;
            Private::appendPodField(writer.block(), text::toUtf8(description.text(column)));
        }
        writer.block() += "\r\n";
        if (!writer.endLine(Private::podDescriptionBytes, description.tag)) return false;
    }
    return true;
}

/// Whether `path` names the file that was loaded.
bool CPODFile::isOwnPath(IFileSystem* fs, const char16_t* path) const {
    if (fs != m_fileSystem || m_path.IsEmpty()) return false;
    const CString mine = fs->GetFullPath(m_path), other = fs->GetFullPath(CString(path));
    if (mine.IsEmpty() || other.IsEmpty()) return IFileSystem::IsSamePath(m_path.c_str(), path);
    return IFileSystem::IsSamePath(mine.c_str(), other.c_str());
}

/// Copies the finished file over the one that was loaded, and loads that. When its bytes may be damaged already, the
/// table goes on from the finished file.
bool CPODFile::replaceOwn(TSharedPtr<IFile> temporary, IFileSystem* fs, const CString& path) {
    const CString ownPath = m_path;
    m_rows->setFile(nullptr);  // it denies writing
    TSharedPtr<IFile> target = fs->CreateFileW(path.c_str(), openForCreating);
    if (!target) {
        const CDiagnostic why = LastDiagnostic();
        m_rows->setFile(fs->CreateFileW(ownPath.c_str(), openForReading));
        SetDiagnostic(path, why.expected, why.found);
        return false;
    }
    const bool copied = copyWhole(temporary, target, fs, path);
    if (copied && Load(fs, path.c_str(), true)) return true;
    const CDiagnostic why = LastDiagnostic();
    temporary->SeekToBegin();
    m_header.Load(temporary);
    if (!attach(temporary, m_header.GetDataPosition())) {
        Destroy();
        return false;
    }
    m_fileSystem = fs;
    m_path = ownPath;
    m_modified = true;
    SetDiagnostic(path, why.expected, why.found, why.byteOffset);
    return false;
}

}  // namespace qv
