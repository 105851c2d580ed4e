// What CAFFFile (aff_file.h) and CKMRFile (kmr_file.h) have in common: one file that holds several streams, found
// through a table of records. Use one of the two.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"

namespace qv::Private {

/// A container of streams: a header of 64 bytes, a table of records of 32 bytes, and the streams.
///
/// States:   closed, open read-only, or open writable. A stream is read and written through its CIndex::file. What
///           changes the table (CreateIndex, RemoveIndex, a stream that grows or shrinks) needs a writable container;
///           bytes inside a stream go to the underlying file whatever the state, which takes them or not.
/// Saving:   the table is kept in memory and written by Save, Close or the destructor, in place; until then the one on
///           disk may not fit streams that have moved. It is always written big-endian.
/// Growing:  a stream that grows pushes everything behind it toward the end of the file. Create streams in the order of
///           writing. Bytes that a stream gains without being written are what stood there before.
/// Limits:   a file with more than 100 slots does not open; nothing stops a writer from passing that. Offsets have 32
///           bits: a change that would push a stream past 4 GiB is refused.
/// Failure:  false, 0, null or notFound; the reason is in LastDiagnostic(). When room cannot be made, what had moved
///           goes back and every stream stays as it was.
/// Damage:   a record may claim anything. A stream gives the bytes that the file really holds. One that reaches behind
///           the end of the file does not grow, nothing is written that would leave a hole in the file, and a stream
///           that reaches into the header or the table keeps its size. One that ends where the table begins does not
///           grow: the table would stay in its place.
/// Threads:  the container, its streams and the position of the underlying file belong to one thread.
/// Ownership: the container owns its CIndex objects; they are gone after Close.
class QV_API CIndexedFile {
public:
    class CIndex;

    /// What FindIndex and CreateIndex return when there is nothing to return.
    static constexpr uint32_t notFound = 0xFFFFFFFFu;
    /// CreateIndex: take the next free id.
    static constexpr uint32_t automaticId = 0xFFFFFFFFu;
    static constexpr uint32_t headerTagBytes = 16;
    /// Slots that a file may have in order to be opened.
    static constexpr uint32_t maxSlots = 100;

    /// One stream as a file. A stream has one of these and so one position, however many users.
    class QV_API CIndexDataFile : public IFile {
    public:
        CIndexDataFile(const CIndexDataFile&) = delete;
        CIndexDataFile& operator=(const CIndexDataFile&) = delete;
        ~CIndexDataFile() override;

        /// Always 0xFFFFFFFF.
        uint32_t GetType() const { return 0xFFFFFFFFu; }

        /// The name of the file that holds the streams.
        char16_t* GetFilename(char16_t* buffer, int bufferChars) override;
        /// The disk's.
        IFileSystem& GetFileSystem() override;
        /// Past the end the stream grows first; 0 when it cannot. The gap between its end and the position keeps the
        /// bytes that stood there.
        uint32_t Write(const void* data, uint32_t count) override;
        uint32_t Read(void* data, uint32_t count) override;
        /// The stream's size; of one that reaches behind the end of the file, the bytes that are there.
        int64_t GetSize() override;
        int64_t GetPosition() override;
        /// A target below 0 becomes 0; there is no upper limit. An unknown origin moves nothing.
        int64_t Seek(int64_t offset, uint32_t origin) override;
        /// Grows or shrinks the stream, by less than 4 GiB at a time.
        bool SetSize(int64_t size) override;
        /// These two do nothing.
        void Flush() override;
        void Close() override;

    private:
        friend class CIndex;
        friend class CIndexedFile;
        explicit CIndexDataFile(CIndex& index) : m_index(index) {}

        CIndex& m_index;
        int64_t m_position = 0;
    };

    /// One record of the table, and its stream. What stands here is written by the next Save.
    class QV_API CIndex {
    public:
        CIndex(const CIndex&) = delete;
        CIndex& operator=(const CIndex&) = delete;

        uint16_t type = 0;  ///< Not 0: a record of type 0 is an empty slot when the file is read again.
        uint16_t subtype = 0;
        uint32_t version = 0;
        uint32_t id = 0;
        uint32_t opaque = 0;    ///< Kept and written back.
        uint32_t count = 0;     ///< AFF: elements, 0 counts as 1. KMR: kept and written back.
        uint32_t sizeWord = 0;  ///< AFF: bytes of one element. KMR: set by Save to the stream's size.
        int64_t size = 0;       ///< Of the stream, in bytes, at most 2^63 - 2^32; changed through `file` alone.
        uint32_t mark = 0;      ///< The application's own; not in the file.
        CIndexDataFile file;

        /// Where the stream begins in the file. Moves when another stream grows or shrinks.
        uint32_t getOffset() const { return m_offset; }
        /// The stream for readers that take a shared pointer. It does not keep the container open: drop it before
        /// Close.
        TSharedPtr<IFile> GetFile() { return TSharedPtr<IFile>(&file, TSharedPtr<IFile>::notOwned()); }

    private:
        friend class CIndexedFile;
        friend class CIndexDataFile;
        explicit CIndex(CIndexedFile& owner) : file(*this), m_owner(owner) {}

        CIndexedFile& m_owner;
        uint32_t m_offset = 0;
    };

    /// Writes header and table; nothing, with true, unless the container is open and writable. What comes short is
    /// written once more from the start; false when that fails too.
    bool Save();
    /// Saves, closes the underlying file when it was opened by path here, and lets go of it. False when Save failed;
    /// the container is closed all the same.
    bool Close();
    bool IsOpen() const { return m_open; }
    bool IsReadOnly() const { return m_readOnly; }

    /// Open the underlying file anew, by the path it was opened with. Nothing is saved first: call Save.
    /// Write: when it cannot be opened for writing it is opened for reading again, and the result is false.
    bool ReOpenForRead();
    bool ReOpenForWrite();

    /// The first position from `start` on whose type and subtype are those and whose version lies from `minVersion` to
    /// `maxVersion`. Positions count used records in the order of the table, from 0.
    uint32_t FindIndex(uint16_t type, uint16_t subtype, uint32_t minVersion, uint32_t maxVersion, uint32_t start) const;
    /// The record at that position, or null.
    CIndex* GetIndex(uint16_t type, uint16_t subtype, uint32_t minVersion, uint32_t maxVersion, uint32_t start) const;
    /// The record at a position; null from nIndices() on. Valid until it is removed or the container is closed.
    CIndex* GetIndex(uint32_t position) const;
    uint32_t nIndices() const { return m_indices.size(); }

    /// Adds an empty stream and returns its position. The table grows by four slots when it is full, and the streams
    /// move. notFound, with nothing changed, when that fails.
    uint32_t CreateIndex(uint16_t type, uint16_t subtype, uint32_t version, uint32_t id);
    /// Removes a stream, its bytes and its record; the positions behind it move up. False when its bytes stay.
    bool RemoveIndex(uint32_t position);

    /// Bytes that the format does not interpret, 0 in a new file. Set, they are written by the next Save.
    const uint8_t* GetHeaderTag() const { return m_headerTag; }
    void SetHeaderTag(const void* bytes);
    uint32_t GetVersion() const { return m_version; }
    uint32_t GetIndexOffset() const { return m_indexOffset; }
    uint32_t GetIndexCapacity() const { return m_indexCapacity; }
    uint32_t GetNextId() const { return m_nextId; }
    /// The byte of the file behind the last slot of the table.
    int64_t GetTableEnd() const;
    /// The underlying file; null when closed. Moving its position disturbs nothing.
    TSharedPtr<IFile> GetContainer() const { return m_container; }

protected:
    /// What distinguishes the formats, beside the virtual operations below.
    struct TRAITS {
        char magic[5];
        bool savesGrownTable;   ///< CreateIndex saves when the table has grown.
        bool switchesBorrowed;  ///< ReOpen… sets the flag of a file that was not opened by path; else it is false.
        bool forgetsPathOnClose;
    };

    explicit CIndexedFile(const TRAITS& traits) : m_traits(traits) {}
    /// A read-only view on the same underlying file: records and positions of its own, which neither save nor close it.
    CIndexedFile(const CIndexedFile& other);
    CIndexedFile& operator=(const CIndexedFile& other);
    /// A derived class calls Close in its destructor.
    virtual ~CIndexedFile();

    /// Whether a file with this header (64 bytes) is read big-endian.
    virtual bool isBigEndian(const uint8_t* header) const = 0;
    /// The word at byte 52 of the header, when all records have been read; and what to write there.
    virtual void setHeaderWord(uint32_t word) = 0;
    virtual uint32_t headerWord() const = 0;
    /// The stream's size by its record.
    virtual int64_t storedSize(const CIndex& index) const = 0;
    /// Sets size word and count to what the record is to say.
    virtual void storeSize(CIndex& index) const = 0;
    /// Where the next stream goes.
    virtual int64_t nextOffset() const = 0;
    /// Everything from some place on has moved.
    virtual void dataMoved(int64_t delta) = 0;

    /// Reads header and table of a file and takes it as the container; on failure all is closed. The byte order of the
    /// file's typed values is little-endian afterwards.
    bool load(const TSharedPtr<IFile>& file);
    /// Makes `file` a container without streams.
    bool create(const TSharedPtr<IFile>& file);
    bool createByPath(IFileSystem* fileSystem, const char16_t* path);

    /// Behind the stream; storedSize leaves room for the sum.
    static int64_t endOf(const CIndex& index);

    TSharedPtr<IFile> m_container;
    bool m_open = false;
    bool m_readOnly = true;
    bool m_owner = false;
    IFileSystem* m_fileSystem = nullptr;
    CString m_path;
    uint32_t m_version = 100;
    uint32_t m_indexOffset = 64;
    uint32_t m_indexCapacity = 0;
    TArray<CIndex*> m_indices;

private:
    bool readAll();
    bool readRecords(const uint8_t* table, bool bigEndian);
    bool readBlock(int64_t at, uint8_t* to, uint32_t count);
    bool writeAll();
    bool writeBlock(int64_t at, const uint8_t* from, uint32_t count);
    bool mayReopen() const;
    bool reopen(uint32_t flags);
    void copyFrom(const CIndexedFile& other);
    void deleteIndices();
    bool refuse(const char16_t* expected, const char16_t* found, int64_t at) const;

    uint32_t ReadIndex(const CIndex& index, int64_t position, void* data, uint32_t count);
    uint32_t WriteIndex(CIndex& index, int64_t position, const void* data, uint32_t count);
    int64_t SetIndexSize(CIndex& index, int64_t newSize);
    void AdjustOffsets(int64_t position, int64_t delta);
    void takeSize(CIndex& index, int64_t newSize);
    bool mayChangeTable(int64_t size) const;
    bool mayResize(const CIndex& index, int64_t position, int64_t delta, int64_t size) const;
    bool growTable(int64_t size);
    bool makeRoom(int64_t position, int64_t count, int64_t size);
    bool offsetsFit(int64_t position, int64_t delta, const CIndex* except) const;

    const TRAITS& m_traits;
    uint8_t m_headerTag[headerTagBytes] = {};
    uint32_t m_nextId = 1;
};

}  // namespace qv::Private
