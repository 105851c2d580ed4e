// CKMRFile: several streams in one file, format KMR. Start with Open or Create, then GetIndex and CIndex::file.
#pragma once

#include "qv/indexed_file.h"

namespace qv {

/// A container of format KMR: read in either byte order and written big-endian; new streams behind the last one.
///
/// What it can do says Private::CIndexedFile; the bytes are in docs/formats/composite.md.
/// A stream of 4 GiB or more is read back with its size modulo 2^32.
class QV_API CKMRFile : public Private::CIndexedFile {
public:
    CKMRFile();
    /// A read-only view on the same underlying file; see CIndexedFile.
    CKMRFile(const CKMRFile& other);
    CKMRFile& operator=(const CKMRFile& other);
    ~CKMRFile() override;

    /// Opens an existing file, on disk when no file system is given. What is refused and what opens: as CAFFFile::Open.
    /// The access to the file is chosen by IsReadOnly() as it was before the call, and `readOnly` counts only
    /// afterwards: a closed object opens for reading alone, and with `readOnly` false its Save fails. To get a writable
    /// one, Open(path, true) and ReOpenForWrite().
    /// A file that cannot be opened leaves what was open as it was; what opens and cannot be read closes it.
    bool Open(const char16_t* path, bool readOnly);
    bool Open(IFileSystem* fileSystem, const char16_t* path, bool readOnly);
    /// From the file's beginning. The file is not closed with the container.
    bool Open(TSharedPtr<IFile> file, bool readOnly);

    /// Closes, then makes a file without streams and with four slots, over the one that is there. False when it cannot
    /// be opened or written.
    bool Create(const char16_t* path);
    bool Create(IFileSystem* fileSystem, const char16_t* path);
    /// Empties the file first, where it can be cut.
    bool Create(TSharedPtr<IFile> file);

    /// Where the file's data end, by its header from version 101 on, otherwise by its records; moves with the data.
    int64_t GetDataEnd() const { return m_dataEnd; }

private:
    static const TRAITS format;

    bool isBigEndian(const uint8_t* header) const override;
    void setHeaderWord(uint32_t word) override;
    uint32_t headerWord() const override;
    int64_t storedSize(const CIndex& index) const override;
    void storeSize(CIndex& index) const override;
    int64_t nextOffset() const override;
    void dataMoved(int64_t delta) override;
    int64_t firstFree() const;

    int64_t m_dataEnd = 0;
};

}  // namespace qv
