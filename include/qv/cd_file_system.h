// CCDFileSystem: a flat set of named files inside one file (the format CDFS), which may also hang on the end of another
// file. Start with Create or Open; files are opened as on the disk.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "qv/api.h"
#include "qv/file.h"
#include "qv/flat_file_system.h"
#include "qv/shared_ptr.h"

namespace qv {

/// A CDFS container.
///
/// Everything is counted from the base B, the byte of the host file at which the container begins: 0 where it is a file
/// of its own. Little-endian.
///
///     B                     the table: "CDFS", two bytes 0, the entry of the root, the count of files as 4 bytes, the
///                           entry of each file
///     B + Offset of a file  its bytes; room for Capacity bytes
///     B + NextFileOffset    the footer: B as 8 bytes, "CDFSFOOT"
///
///     entry  name and path as texts (4 bytes of length, UTF-8), 4 bytes type (1 directory, 2 file), 8 bytes size,
///            8 bytes time of change (FILETIME), 4 bytes count of properties, for each a name and a value as texts. The
///            properties are "Offset" and "Capacity", in decimal digits; without the latter the size stands in for it.
///
/// Growing: room comes in steps of 4096 bytes and is never given back; what stands behind a file that grows is moved by
/// IFile::Insert. The space of a deleted file is used again only when it was the last. Names and paths have at most
/// 259 characters; a table with longer ones is damaged.
/// The table is written by Flush, by the closing of each file and by Close. While the table itself outgrows its room,
/// the entries already written hold the offsets from before the move; they are right with the next Flush, and Close
/// makes as many as are needed. A write that fails in the middle of a table leaves part old, part new; where there is
/// no room for a larger table, it is written without the newest files, and Flush is false. Sharing: one object works on
/// a host file at a time; there are no locks between processes. Limits: 262,144 files. Threads: one lock, also for all
/// files of the container, so that they may be used from several threads; Lock and Unlock hold it over several calls. A
/// file may outlive the container, and reads and writes nothing from then on.
class QV_API CCDFileSystem : public CFlatFileSystem {
public:
    class QV_API CCDFile;

    CCDFileSystem();
    /// Closes.
    ~CCDFileSystem() override;

    /// True for "CDFS" at the beginning, or a footer at the very end that leads to it. Open also finds a footer with
    /// other data behind it.
    static bool IsCDFile(const char16_t* path);
    static bool IsCDFile(IFileSystem* fileSystem, const char16_t* path);

    /// Opens the container in a host file: at its beginning, or by the footer, which has to lie within the last 8192
    /// bytes. Closes what was open.
    /// @param readOnly  Nothing is changed or created in the container. Without it, a host that does not exist is made
    ///                  by Create; a container whose entries have other properties than the two is refused, for what
    ///                  would be written of it could not be read again, and so is one with entries beyond the end of
    ///                  the host, which its footer would be written behind.
    /// @return  False, with nothing open and the host left alone, for anything else and for a damaged table.
    bool Open(const char16_t* path, bool readOnly);
    bool Open(IFileSystem* fileSystem, const char16_t* path, bool readOnly);

    /// Makes an empty container: a new file, or behind the bytes of an existing one.
    /// @param append  An existing host is taken; without it, that is false. A host takes one container only.
    bool Create(const char16_t* path, bool append);
    bool Create(IFileSystem* fileSystem, const char16_t* path, bool append);

    bool IsOpen() const { return static_cast<bool>(m_container); }
    bool IsReadOnly() const { return m_readOnly; }
    /// The byte of the host at which the container begins.
    int64_t GetBase() const { return m_base; }
    /// The byte of the host behind the room of the table.
    int64_t GetTableEnd() const;
    /// Files that are still open read and write nothing from then on.
    void Close();
    /// Writes table and footer, unless nothing has changed since they were. False when that fails.
    bool Flush();

    bool SaveFileTable();
    /// False, with no files, for a table that is damaged.
    bool LoadFileTable();
    /// One entry of the table. It is written with as many properties as the root has.
    bool PutDirectoryEntry(IFile* file, CDirectoryEntry* entry);
    bool GetDirectoryEntry(IFile* file, CDirectoryEntry* entry);
    /// Where the next new file begins, from the base.
    int64_t NextFileOffset();

    void Lock() { m_lock->lock(); }
    void Unlock() { m_lock->unlock(); }
    uint32_t GetType() const { return 0xFFFFFFFF; }

    /// A file by the flag word of CFile::Open, of which createNew, openExisting, createTruncate and append count.
    /// Several of one name share its bytes, each with a position of its own. One that this call created is not told
    /// when files in front of it are deleted, and then stands for the file behind its own: close it before that.
    TSharedPtr<IFile> CreateFileW(const char16_t* path, uint32_t flags) override;
    /// True also when there is no such file. Those who have it open read and write nothing from then on.
    bool DeleteFileW(const char16_t* path) override;
    bool UpdateDirectoryEntry(const char16_t* path, const CDirectoryEntry& entry) override;

private:
    struct Session;
    class TableImage;
    friend class CCDFile;

    static constexpr int table = -1, deleted = -2;

    void resetRoot();
    bool openContainer(int64_t base);
    bool canBeWritten();
    bool openByFooter();
    bool createContainer(IFileSystem* fileSystem, const char16_t* path, bool append);
    bool isHostTaken();
    void drop();
    /// Offset and Capacity as numbers.
    struct Place {
        int64_t offset;
        int64_t capacity;
        bool isTold = true;  ///< The entry's properties say the same.
    };
    CDirectoryEntry* entryOf(int index);
    void learnPlaces();
    const Place& placeOf(int index);
    void setPlace(int index, int64_t offset, int64_t capacity);
    void tellPlace(int index);
    int64_t setEntrySize(int index, int64_t size);
    bool growEntry(int index, int64_t size);
    void adjustOffsets(int64_t position, int64_t delta);
    uint32_t readEntry(int index, int64_t position, void* data, uint32_t count);
    uint32_t writeEntry(int index, int64_t position, const void* data, uint32_t count);
    bool readTable(CMemFile& image);
    bool parseTable(CMemFile& image);

    TSharedPtr<IFile> m_container;
    std::shared_ptr<Session> m_session;  ///< What files know of this object; a new one for each container.
    std::vector<CCDFile*> m_openFiles;   ///< Those that are renumbered when a file is deleted.
    CDirectoryEntry m_root;
    std::deque<Place> m_places;  ///< Of the root and of all files, or empty while they are not known.
    int64_t m_base = 0;
    bool m_readOnly = false;
    bool m_saving = false;   ///< Places are told entry by entry, since a table that grows moves all files many times.
    bool m_changed = false;  ///< The table on disk is not what it should be.
    bool m_written = false;  ///< Since the container was flushed.
};

/// A file of a container. Closing it flushes the container.
class QV_API CCDFileSystem::CCDFile : public IFile {
public:
    CCDFile(std::shared_ptr<Session> session, int index);
    /// Closes.
    ~CCDFile() override;
    CCDFile(const CCDFile&) = delete;
    CCDFile& operator=(const CCDFile&) = delete;

    char16_t* GetFilename(char16_t* buffer, int bufferChars) override;  ///< Its full path.
    IFileSystem& GetFileSystem() override;                              ///< The container.
    uint32_t Write(const void* data, uint32_t count) override;
    uint32_t Read(void* data, uint32_t count) override;
    int64_t GetSize() override;
    int64_t GetPosition() override { return m_position; }
    int64_t Seek(int64_t offset, uint32_t origin) override;  ///< Not in front of the first byte.
    bool SetSize(int64_t size) override;
    void Flush() override;
    void Close() override;
    uint32_t GetType() const { return 0xFFFFFFFF; }

private:
    friend class CCDFileSystem;

    std::shared_ptr<Session> m_session;
    int m_index;
    int64_t m_position = 0;
};

}  // namespace qv
