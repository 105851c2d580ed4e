// CAFFFile: several streams in one file, format AFF. Start with Open or Create, then GetIndex and CIndex::file.
#pragma once

#include "qv/indexed_file.h"

namespace qv {

/// A container of format AFF: always big-endian, sizes kept as size of an element and count, new streams at the end.
///
/// What it can do says Private::CIndexedFile; the bytes are in docs/formats/composite.md.
/// A record's size word and count are the application's: Save fills them in only where both are 0, and a stream that
/// grows keeps them. Set both when a stream has been written, or it is read back with its old size.
class QV_API CAFFFile : public Private::CIndexedFile {
public:
    CAFFFile();
    /// A read-only view on the same underlying file; see CIndexedFile.
    CAFFFile(const CAFFFile& other);
    CAFFFile& operator=(const CAFFFile& other);
    ~CAFFFile() override;

    /// Closes, then opens an existing file, on disk when no file system is given. False for a file that cannot be
    /// opened, another magic, more than 100 slots, or a file whose bytes are there and cannot be read. A file that is
    /// cut short opens with the records that arrived.
    bool Open(const char16_t* path, bool readOnly);
    bool Open(IFileSystem* fileSystem, const char16_t* path, bool readOnly);
    /// Read-only, from the file's beginning. The file is not closed with the container.
    bool Open(TSharedPtr<IFile> file);
    /// The reading alone, with the flags as they are; closes first when a file is held.
    bool DoOpen(TSharedPtr<IFile> file);

    /// Closes, then makes a file without streams and with four slots, over the one that is there. False when it cannot
    /// be opened or written.
    bool Create(const char16_t* path);
    bool Create(IFileSystem* fileSystem, const char16_t* path);

    /// A value that is kept and written back; 0 in a new file.
    uint32_t GetUserWord() const { return m_userWord; }
    void SetUserWord(uint32_t word) { m_userWord = word; }

private:
    static const TRAITS format;

    bool isBigEndian(const uint8_t* header) const override;
    void setHeaderWord(uint32_t word) override;
    uint32_t headerWord() const override;
    int64_t storedSize(const CIndex& index) const override;
    void storeSize(CIndex& index) const override;
    int64_t nextOffset() const override;
    void dataMoved(int64_t delta) override;

    uint32_t m_userWord = 0;
};

}  // namespace qv
