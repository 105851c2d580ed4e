// IFile: the one abstraction through which bytes are read and written, with its typed family; CFile (a disk file),
// CMemFile (a block of memory) and CBoundedFile (a window onto another file). Files are passed as TSharedPtr<IFile> and
// normally come from an IFileSystem.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/file_system.h"
#include "qv/guid.h"
#include "qv/shared_ptr.h"
#include "qv/string.h"

namespace qv {

/// A stream of bytes with a position and a size.
///
/// A derived class gives the ten virtual operations; the typed family below is built on them alone.
/// Failure:  a short count, false or null; the string readers leave the reason in LastDiagnostic().
/// Threads:  a file belongs to one thread at a time; nothing locks.
/// Hostile data: no reader allocates by a stored length before the bytes are known to be there (GetRemaining), so a
/// derived class has to report its size.
class QV_API IFile {
public:
    /// Origins of Seek; any other value moves nothing.
    enum : uint32_t { fromBegin = 1, fromCurrent = 2, fromEnd = 3 };

    virtual ~IFile();

    // Virtual operations; their order is part of the interface ----------------------------------------------------

    /// Copies the file's name, cut to `bufferChars - 1` characters and terminated; returns `buffer`.
    virtual char16_t* GetFilename(char16_t* buffer, int bufferChars) = 0;
    /// The file system that this file lives in.
    virtual IFileSystem& GetFileSystem() = 0;
    /// Returns the count of bytes written.
    virtual uint32_t Write(const void* data, uint32_t count) = 0;
    /// Returns the count of bytes read; a short count means the end of the data or a failure.
    virtual uint32_t Read(void* data, uint32_t count) = 0;
    /// In bytes.
    virtual int64_t GetSize() = 0;
    /// In bytes from the beginning.
    virtual int64_t GetPosition() = 0;
    /// Returns the new position. Origins as in the enumeration above.
    virtual int64_t Seek(int64_t offset, uint32_t origin) = 0;
    /// Cuts the file or lengthens it; false when it cannot.
    virtual bool SetSize(int64_t size) = 0;
    /// Hands what is buffered to the system.
    virtual void Flush() = 0;
    /// Ends the use of the file; the object may be destroyed, or opened anew where its class can.
    virtual void Close() = 0;

    // Basics -----------------------------------------------------------------------------------------------------

    /// What the file's own file system knows of its name (cut at 511 characters).
    IFileSystem::CDirectoryEntry GetFileInfo();
    /// The position afterwards, as Seek gives it.
    int64_t SetPosition(int64_t position) { return Seek(position, fromBegin); }
    int64_t SeekToBegin() { return Seek(0, fromBegin); }
    int64_t SeekToEnd() { return Seek(0, fromEnd); }
    int64_t GetLength() { return GetSize(); }
    void SetLength(int64_t size) { (void)SetSize(size); }
    /// Bytes from the position to the end; below 0 when the position lies behind it.
    int64_t GetRemaining() { return GetSize() - GetPosition(); }
    /// Whether all `count` bytes came or went; true without a call for 0 bytes.
    bool ReadBytes(void* data, uint32_t count) { return count == 0 || Read(data, count) == count; }
    bool WriteBytes(const void* data, uint32_t count) { return count == 0 || Write(data, count) == count; }

    /// Reads `count` elements of `size` bytes and reverses the bytes of each when the file swaps.
    /// The product is taken in 32 bits: one that does not fit reads its low 32 bits' worth.
    /// @return  True when all came or the product is 0.
    bool ReadArray(void* data, uint32_t count, uint32_t size);
    /// Writes `count` elements of `size` bytes, reversing the bytes of each on the way when the file swaps. The product
    /// as in ReadArray.
    /// @return  True when all went or the product is 0. On a swapping file always false (but for the product 0),
    ///          although the reversed bytes were written.
    bool WriteArray(const void* data, uint32_t count, uint32_t size);

    // The typed family -------------------------------------------------------------------------------------------
    // Values are little-endian, or big-endian when the file swaps (swapFlag).
    //   PutX(value)   whether the full width was written; nothing is taken back on a short write.
    //   GetX(out)     false on a short read, with `out` partly filled. GetBOOL(out) is true whatever came.
    //   GetX()        the value; undefined after a short read.
    //   SkipX()       whether the position behind the value is above 0; the end of the file is not looked at.

    // X(name, type in memory): the width in the file is the type's.
    // clang-format off
#define QV_FILE_SCALARS(X)                                                           \
    X(BYTE, uint8_t)   X(Char, char)     X(Int8, int8_t)   X(UInt8, uint8_t)         \
    X(WORD, uint16_t)  X(Short, int16_t) X(Int16, int16_t) X(UInt16, uint16_t)       \
    X(DWORD, uint32_t) X(Long, int32_t)  X(Int32, int32_t) X(UInt32, uint32_t)       \
    X(QWORD, uint64_t) X(Int64, int64_t) X(UInt64, uint64_t)                         \
    X(Float, float)    X(Flt32, float)   X(Double, double) X(Flt64, double)
    // clang-format on
#define QV_FILE_SCALAR_MEMBERS(Name, Type)                                 \
    bool Put##Name(Type value) { return putScalar(&value, sizeof(Type)); } \
    bool Get##Name(Type& out) { return getScalar(&out, sizeof(Type)); }    \
    Type Get##Name() {                                                     \
        Type value{};                                                      \
        (void)getScalar(&value, sizeof(Type));                             \
        return value;                                                      \
    }                                                                      \
    bool Skip##Name() { return Seek(sizeof(Type), fromCurrent) > 0; }
    QV_FILE_SCALARS(QV_FILE_SCALAR_MEMBERS)
#undef QV_FILE_SCALAR_MEMBERS
#undef QV_FILE_SCALARS

    bool PutBOOL(int32_t value) { return putScalar(&value, sizeof value); }
    /// True also at the end of the file.
    bool GetBOOL(int32_t& out) {
        (void)getScalar(&out, sizeof out);
        return true;
    }
    int32_t GetBOOL() { return GetLong(); }
    bool SkipBOOL() { return SkipLong(); }

    /// One byte, 1 for true and 0 for false. Only the byte 1 reads as true.
    bool PutBool(bool value) { return PutBYTE(value ? 1 : 0); }
    bool GetBool(bool& out);
    bool GetBool() { return GetBYTE() == 1; }
    bool SkipBool() { return SkipBYTE(); }

    /// Data1, Data2 and Data3 as values, the bytes of Data4 as they are.
    bool PutGUID(const GUID& value);
    bool GetGUID(GUID& out);
    /// All zero on failure.
    GUID GetGUID();
    bool SkipGUID() { return Seek(sizeof(GUID), fromCurrent) > 0; }

    // Characters and strings -------------------------------------------------------------------------------------

    /// The classic form of one to six bytes for code points up to 31 bits; a negative value is written as one byte.
    /// Always true.
    bool PutUTF8Character(int32_t c);
    /// Combines the lead byte's bits with each further byte as a sign-extended number, without masking: a true
    /// continuation byte therefore sets the high bits of the result.
    /// @return  False on a short read or a byte that leads nothing.
    bool GetUTF8Character(int32_t& c);
    /// 0 when the read fails.
    int32_t GetUTF8Character();

    /// A length of 4 bytes (by the swap rule), then the text without a terminator.
    /// Writing: a null pointer writes length 0; a body that was not written whole is taken back by a seek to the
    /// prefix, with false.
    /// Reading: a short prefix is false. A short body, too little memory or too small a buffer is false with the
    /// position back at the prefix; the target is left as it was, but a buffer may hold what was read. Text ends at its
    /// first NUL in a string target.
    bool PutString(const char* text);
    /// As UTF-8, or in the given code page.
    bool PutString(const char16_t* text);
    bool PutString(uint32_t codePage, const char16_t* text);
    bool GetString(CString& out);
    bool GetString(CStringMB& out);
    bool GetString(char* buffer, int size);
    bool GetString(char16_t* buffer, int size);
    bool GetString(uint32_t codePage, CString& out);
    bool GetString(uint32_t codePage, char16_t* buffer, int size);
    /// Empty on failure.
    CString GetString();
    CString GetString(uint32_t codePage);

    /// A count of 16-bit characters (by the swap rule), then the characters, which are never swapped.
    bool PutUnicodeString(const char16_t* text);
    bool GetUnicodeString(CString& out);
    bool GetUnicodeString(char16_t* buffer, int size);
    CString GetUnicodeString();

    /// Reads a length and seeks over that many bytes; whether the position is above 0 then.
    bool SkipString();
    /// The same as SkipString: it seeks over count bytes, not twice count, and stops in the middle of the characters.
    bool SkipUnicodeString() { return SkipString(); }

    /// A narrow string whose length takes 1 byte (below 255), 0xFF and 2 bytes (below 65535), or 0xFF, 0xFFFF and 4
    /// bytes. False for an empty string, although its prefix was written.
    bool PutArchiveString(const char* text);
    /// True whatever the reads gave (a short body gives what was there); false only without memory.
    bool GetArchiveString(CString& out);
    CString GetArchiveString();
    bool SkipArchiveString();

    /// Reads one line, terminated, without its LF; each CR becomes NUL. `buffer` has `size` bytes.
    /// @return  False at the end of the data, and for a line that does not fit, with the position back at its start.
    bool GetLine(char* buffer, int size);

    /// The bytes up to the NUL, without terminator or prefix.
    bool WriteString(const char* text);
    /// Formats by the rules of CStringMB::FromFormat and writes the text without a terminator.
    template <class... Args>
    bool WriteFormattedString(const char* format, const Args&... args) {
        const CStringMB text = CStringMB::FromFormat(format, args...);
        return WriteString(text.c_str());
    }

    /// Reads `n` bytes and stores a NUL at buffer[n]: the buffer has room for n + 1. Whether all came.
    bool ReadString(char* buffer, uint32_t n);
    bool GetFixedLengthString(char* buffer, uint32_t n) { return ReadString(buffer, n); }
    /// The text of an n-byte field up to its first NUL. On a short read the narrow string is emptied and the wide one
    /// left as it was.
    bool GetFixedLengthString(CStringMB& out, uint32_t n);
    bool GetFixedLengthString(CString& out, uint32_t n);
    /// The text cut or padded with zeros to n bytes. False only when the text itself came short.
    bool PutFixedLengthString(const char* text, uint32_t n);
    /// Writes `count` bytes of 0; false on a short write.
    bool WriteZeros(uint32_t count);

    // Editing in place -------------------------------------------------------------------------------------------
    // Both work through one buffer of at most 512 KiB to 5 MiB by the file's size, and leave the position anywhere.
    // False only without memory for the buffer. A read or write that comes short ends the work with a diagnostic and
    // the same result, and what had moved goes back: the file has its old size and contents, but for the bytes that
    // Remove was to close. A negative position or count does nothing, nor does one that leads past 2^63 - 1.

    /// Closes the gap of `count` bytes at `position` and shortens the file.
    bool Remove(int64_t position, int64_t count);
    /// Opens a gap of `count` bytes, which keeps its old bytes. At the end of the file nothing happens.
    bool Insert(int64_t position, int64_t count);

    /// For format readers: whether multi-byte values are stored big-endian. False after construction.
    friend bool& swapFlag(IFile& file) { return file.m_swap; }

protected:
    IFile() = default;
    IFile(const IFile&) = default;
    IFile& operator=(const IFile&) = default;

    bool m_swap = false;

private:
    /// A value of `width` bytes, at most 8, reversed on the way when the file swaps.
    bool putScalar(const void* value, uint32_t width);
    bool getScalar(void* out, uint32_t width);
};

/// The file's byte order as a reader may set it: see IFile.
bool& swapFlag(IFile& file);

/// A file on disk: a thin layer over a descriptor, with nothing buffered.
///
/// A copy carries the same descriptor without sharing it: whoever closes first closes both, and the copy must not be
/// used or closed after that. A copy never deletes the file on close.
class QV_API CFile : public IFile {
public:
    /// Bits of the flag word of Open.
    enum : uint32_t {
        openOrCreate = 0x01,    ///< First in priority when several of these four are given.
        openExisting = 0x02,    ///< Second, and the meaning when none of the four is given.
        createTruncate = 0x08,  ///< Third.
        createNew = 0x04,
        accessRead = 0x10,
        accessWrite = 0x20,
        /// A seek to the end after the open. A file without read access goes on writing at the end, also behind what
        /// others appended meanwhile and never over it, until Seek leaves the end, or SetSize or Detach is called.
        append = 0x40,
        shareWrite = 0x100,
        shareRead = 0x200,
        denyRead = 0x400,  ///< This and denyWrite count only when neither of the two share bits is given.
        denyWrite = 0x800,
        attributeNormal = 0x1000,    ///< Wins over the next four.
        attributeReadOnly = 0x2000,  ///< A file that this call creates gets no write permission.
        attributeHidden = 0x4000,    ///< Hidden, system and temporary have no meaning here.
        attributeSystem = 0x8000,
        attributeTemporary = 0x10000,
        deleteOnClose = 0x100000,
        writeThrough = 0x200000,
        everyoneMayAccess = 0x800000  ///< A file that this call creates gets mode 0666 whatever the umask.
    };

    /// Null when Open fails.
    static TSharedPtr<IFile> Create(const char16_t* filename, uint32_t flags);
    /// Wraps an open descriptor, which is then closed with the object.
    static TSharedPtr<IFile> Create(void* handle);

    /// A closed file.
    CFile();
    /// Takes over an open descriptor (Attach).
    explicit CFile(void* handle);
    CFile(const CFile& other);
    CFile& operator=(const CFile& other);
    ~CFile() override;

    /// The handle of a closed file: all bits set. An open one carries its descriptor as a number.
    static void* InvalidHandle() { return reinterpret_cast<void*>(~uintptr_t{0}); }

    /// Takes over a handle without closing the old one. The name stays; no share mode is claimed.
    void Attach(void* handle);
    /// Gives the handle to the caller and leaves the file closed. The file is not deleted on close any more.
    void* Detach();

    /// Opens a file, closing the one that was open.
    ///
    /// Sharing: what this opener does (reads, writes) and what it denies to others hold against every other open CFile
    /// on the file, in this process and in others; the later of two that conflict fails. Without share and deny bits a
    /// reader denies writing and a writer denies both. It is decided before anything is truncated, and truncating is
    /// writing, whatever the access. Programs that do not use this library are not held to it, nor are file systems
    /// without locks.
    /// An access that denies nothing costs two fcntl calls for reading and two for writing; each denial two more.
    /// Reads and writes cost nothing. Two that conflict and open at the very same moment may both fail.
    /// A child process that inherits the descriptor without an exec keeps the file claimed until it exits.
    /// @return  False with the reason in LastDiagnostic() and a line "CFile::Open(path) FAILED." in the log (gLog); the
    ///          stored name is then the one that was tried.
    bool Open(const char16_t* filename, uint32_t flags);

    /// Deletes a file, read-only ones too where the directory permits.
    static bool Remove(const char16_t* filename);
    using IFile::Remove;
    /// Makes the present position the end of the file.
    bool SetEOF();

    /// The full path that was opened; empty for a file made from a handle.
    char16_t* GetFilename(char16_t* buffer, int bufferChars) override;
    IFileSystem& GetFileSystem() override;
    /// One system call each, repeated only where a signal interrupts it and beyond the kernel's limit of 2 GiB.
    uint32_t Write(const void* data, uint32_t count) override;
    uint32_t Read(void* data, uint32_t count) override;
    /// 0 when the file is closed.
    int64_t GetSize() override;
    /// -1 when the file is closed or cannot seek.
    int64_t GetPosition() override;
    /// 0 for an unknown origin, -1 (and nothing moved) for a target before the start.
    int64_t Seek(int64_t offset, uint32_t origin) override;
    /// Always true; a size that could not be set leaves a diagnostic.
    bool SetSize(int64_t size) override;
    /// Waits until the data is on the device.
    void Flush() override;
    void Close() override;

private:
    void logOpenFailure(int error);
    void endAppending();

    void* m_handle = InvalidHandle();
    CString m_path;
    bool m_deleteOnClose = false;
    bool m_appends = false;
};

/// A file in a growable block of memory on the process heap.
///
/// The position is 32 bits wide: a target below 0 becomes 0 and one above 2^32 - 1 becomes that. It may lie beyond the
/// size; reads there give 0. A write there fills the gap with the block's old bytes, or zeros where the block was never
/// written.
class QV_API CMemFile : public IFile {
public:
    static TSharedPtr<CMemFile> Create();

    /// An empty file that may grow.
    CMemFile();
    /// Copies position, grow flag and bytes. The copy owns its bytes, also when the other does not.
    CMemFile(const CMemFile& other);
    CMemFile& operator=(const CMemFile& other);
    ~CMemFile() override;

    /// Frees the old block, whether owned or not, and takes `data`, `size` bytes on the process heap. The position is
    /// kept. With `own` false the block is not freed by the destructor; growing it makes a block of the file's own.
    void Attach(uint8_t* data, uint32_t size, bool own);
    /// Gives the block to the caller (HeapFree). Size and position stay as they were: Empty or Attach before use.
    uint8_t* Detach();
    /// Frees the block, whether owned or not; size 0.
    void Destroy();
    /// Size 0; block and position stay.
    void Empty();
    /// Size 0 and position 0.
    void Reset();
    /// False: the file has a fixed size, and a write that would pass it writes nothing. True after construction.
    void SetGrow(bool grow);
    /// How the block grows: doubling from 65535 on (the start value is all bits set), else to the multiple of `rate`
    /// strictly above the request. Returns the old rate. 0 counts as 1.
    uint32_t SetGrowthRate(uint32_t rate);

    /// The block, for GetSize() bytes; null when there is none. Any call that grows the file may move it.
    uint8_t* GetData() { return m_data; }
    uint8_t* data() { return m_data; }
    const uint8_t* data() const { return m_data; }
    uint32_t ConstGetSize() const { return m_size; }
    uint32_t size() const { return m_size; }
    uint32_t nItems() const { return m_size; }

    /// The empty string.
    char16_t* GetFilename(char16_t* buffer, int bufferChars) override;
    IFileSystem& GetFileSystem() override;
    /// All or nothing. 0 when memory ran out or the end would not fit 32 bits. `data` may lie in the file's own block.
    uint32_t Write(const void* data, uint32_t count) override;
    uint32_t Read(void* data, uint32_t count) override;
    int64_t GetSize() override;
    int64_t GetPosition() override;
    int64_t Seek(int64_t offset, uint32_t origin) override;
    /// False, with nothing changed, above 0x40000000 (or below 0). Otherwise true, also when memory ran out and the
    /// size stayed.
    bool SetSize(int64_t size) override;
    void Flush() override;
    void Close() override;

private:
    bool ensureCapacity(uint64_t wanted);
    void clearUpTo(uint64_t end);

    uint32_t m_position = 0;
    bool m_grow = true;
    bool m_owned = true;
    uint8_t* m_data = nullptr;
    uint32_t m_capacity = 0;
    uint32_t m_size = 0;
    uint32_t m_growthRate = 0xFFFFFFFFu;
    uint32_t m_written = 0;  // The block's bytes below this have had a value; those above are raw memory.
};

/// A window onto `size` bytes of another file, beginning at `start`.
///
/// Lets a reader that was written for a whole file work inside a container.
/// Ownership: shares the underlying file and keeps it alive; Close() leaves it open.
/// Position:  each Read and Write moves the underlying file's own position and leaves it there, so windows on one file
///            may take turns.
/// Threads:   no locks; a window, its siblings and their file stay on one thread.
/// Limits:    transfers are cut at the window's end, Seek clamps to [0, size], SetSize is false. Nothing is read or
///            written in front of the underlying file's beginning.
class QV_API CBoundedFile : public IFile {
public:
    /// No file: reads and writes give 0.
    CBoundedFile();
    /// The window [start, start + size) of `file`, with the position at its beginning.
    CBoundedFile(TSharedPtr<IFile> file, int64_t start, int64_t size);
    CBoundedFile(const CBoundedFile& other);
    CBoundedFile& operator=(const CBoundedFile& other);
    ~CBoundedFile() override;
    static TSharedPtr<IFile> Create(TSharedPtr<IFile> file, int64_t start, int64_t size);

    /// Where the window begins in the underlying file.
    int64_t GetStartPos() const { return m_start; }

    /// The empty string.
    char16_t* GetFilename(char16_t* buffer, int bufferChars) override;
    /// The disk's.
    IFileSystem& GetFileSystem() override;
    uint32_t Write(const void* data, uint32_t count) override;
    uint32_t Read(void* data, uint32_t count) override;
    int64_t GetSize() override;
    int64_t GetPosition() override;
    int64_t Seek(int64_t offset, uint32_t origin) override;
    bool SetSize(int64_t size) override;
    void Flush() override;
    void Close() override;

private:
    uint32_t clip(uint32_t count) const;
    bool seekUnderlying();

    TSharedPtr<IFile> m_file;
    int64_t m_start = 0;
    int64_t m_size = 0;
    int64_t m_position = 0;
};

}  // namespace qv
