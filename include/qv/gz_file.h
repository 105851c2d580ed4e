// CGZFile: a compressed file behind the interface of a plain one, in a small wrapper format of its own or, for reading,
// in gzip's.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/file.h"
#include "qv/shared_ptr.h"

namespace qv {

/// Compresses what is written and decompresses what is read, through zlib, from and to an inner file that it works on
/// alone while it is open.
///
/// The constructor decides what the object is for good:
///
///     flags         inner file                         the object
///     accessWrite   empty                              writes the wrapper format
///     accessRead    begins with "TGZF"                 reads the wrapper format
///     accessRead    begins with 31, 139, 8, 0          reads gzip
///     accessRead    anything else that is not empty    raw: all goes to the inner file, from its first byte on
///
/// Whatever else it is given (no file, both accesses or none, an inner file that is empty or is not as the table says)
/// leaves it unset: all calls fail, and the inner file is left alone. Which of them it became says GetState.
///
///     The wrapper: "TGZF", two bytes 0 that no reader looks at, the uncompressed size as Int64 in the byte order of
///     the inner file (0 until Close), at byte 14 a zlib stream.
///
/// A raw object gives the inner file's size at its construction and the position 0, always; its Seek moves the inner
/// file.
/// gzip: the size is that of the file's last 4 bytes, in the byte order of the inner file. Of a file with several
/// members the first is read, up to that size; a file whose flags byte is not 0 (a name or comment) is raw.
/// Damage: a corrupt or truncated stream gives a short count, and the position moves by what came. A size that is
/// larger than what the stream holds gives a short count too, one below 0 counts as 0. Nothing but zlib's own check
/// sums is looked at. Seeking backward decompresses from the start; forward, everything between. Threads: none of it is
/// thread-safe.
class QV_API CGZFile : public IFile {
public:
    enum class State { unset, raw, reading, writing };

    /// @param file   Shared, and closed by Close.
    /// @param flags  CFile::accessRead or CFile::accessWrite; other bits have no meaning here.
    CGZFile(TSharedPtr<IFile> file, uint32_t flags);
    /// Closes.
    ~CGZFile() override;
    CGZFile(const CGZFile&) = delete;
    CGZFile& operator=(const CGZFile&) = delete;
    static TSharedPtr<IFile> Create(TSharedPtr<IFile> file, uint32_t flags);

    State GetState() const { return m_state; }

    char16_t* GetFilename(char16_t* buffer, int bufferChars) override;  ///< The inner file's.
    IFileSystem& GetFileSystem() override;                              ///< The inner file's.
    /// The bytes taken; short, with a diagnostic, once the inner file takes no more. Nothing is taken from then on, and
    /// the size in the file stays 0.
    uint32_t Write(const void* data, uint32_t count) override;
    uint32_t Read(void* data, uint32_t count) override;
    int64_t GetSize() override { return m_size; }  ///< Uncompressed.
    int64_t GetPosition() override { return m_position; }
    /// Nothing moves while writing.
    int64_t Seek(int64_t offset, uint32_t origin) override;
    bool SetSize(int64_t size) override;  ///< False.
    void Flush() override;                ///< The inner file's; what waits in zlib's own buffers stays there.
    /// Ends the stream, fills in the size and closes the inner file. The object is unset afterwards.
    void Close() override;

private:
    struct Stream;

    void openForReading();
    void openForWriting();
    bool start(State state, int windowBits);
    bool drain();
    void finish();
    void rewind();
    void skip(int64_t count);
    void release();

    TSharedPtr<IFile> m_file;
    Stream* m_stream = nullptr;
    State m_state = State::unset;
    bool m_failed = false;  ///< The inner file took less than it was given.
    int64_t m_position = 0;
    int64_t m_size = 0;
    int64_t m_dataOffset = 0;
};

}  // namespace qv
