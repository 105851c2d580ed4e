// Checksums: CRC-16 and CRC-32 of blocks, of streams of blocks, of files, and of whatever is written into a sink.
//
// One block: CalcBlockCRC16, or InitCRC32Table(crc32Polynomial) and CalcBlockCRC32. A stream: InitCRC32,
// CalcMultBlockCRC32 for each block, FiniCRC32. A writer's output: CCalcCRC32File in place of its file.
//
// The 16-bit CRC is CRC-16/XMODEM: polynomial 0x1021, most significant bit first, start value 0, no final inversion.
// The 32-bit CRC is reflected, with start value and final inversion of all bits; with crc32Polynomial it is that of
// zlib and Ethernet. Both run at the speed of carry-less multiplication where the processor has it (the 32-bit one with
// crc32Polynomial), and by tables of 16 bytes a step elsewhere.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/file.h"

namespace qv {

/// The CRC of a block; 0 for an empty or null one.
QV_API uint16_t CalcBlockCRC16(const unsigned char* data, uint32_t size);
/// Continues a stream from `crc`, which comes back as it is for an empty or null block.
QV_API uint16_t CalcMultBlockCRC16(const unsigned char* data, uint32_t size, uint16_t crc);
/// The CRC of a stream that ends here: `crc` itself.
QV_API uint16_t FiniCRC16(uint16_t crc);

/// The polynomial of zlib and Ethernet.
inline constexpr uint32_t crc32Polynomial = 0x04C11DB7;

/// Chooses the polynomial of all CRC-32 in the process. Nothing is done when it is chosen already; crc32Polynomial is
/// from the start. Two threads may choose it at the same time, but nobody may change it while another thread
/// calculates.
QV_API void InitCRC32Table(uint32_t polynomial);
/// The start value of a stream.
QV_API uint32_t InitCRC32();
/// The CRC of a block; 0 for an empty or null one.
QV_API uint32_t CalcBlockCRC32(const unsigned char* data, uint32_t size);
/// Continues a stream from `crc`, which comes back as it is for an empty or null block.
QV_API uint32_t CalcMultBlockCRC32(const unsigned char* data, uint32_t size, uint32_t crc);
/// The CRC of a stream that ends here.
QV_API uint32_t FiniCRC32(uint32_t crc);

// Files: from the present position to the end, in chunks of 512 KiB. The 32-bit forms choose crc32Polynomial. What
// `crc` held does not matter. False for a null file or file system, for a path that does not open, without memory, and,
// with the CRC of what came, when the file gives less than it says to hold.
QV_API bool CalcCRC16(uint16_t& crc, TSharedPtr<IFile> file);
QV_API bool CalcCRC16(uint16_t& crc, IFileSystem* fileSystem, CString path);
QV_API bool CalcCRC32(uint32_t& crc, TSharedPtr<IFile> file);
QV_API bool CalcCRC32(uint32_t& crc, IFileSystem* fileSystem, CString path);

/// A file that keeps nothing but the CRC and the count of what is written to it. Reading gives 0, seeking the count and
/// SetSize false, each with a line of debug output.
/// Threads: none of it is thread-safe.
class QV_API CCalcCRCFile : public IFile {
public:
    char16_t* GetFilename(char16_t* buffer, int bufferChars) override;  ///< "none"
    IFileSystem& GetFileSystem() override;                              ///< fileSystem()
    uint32_t Read(void* data, uint32_t count) override;
    int64_t GetSize() override { return m_count; }
    int64_t GetPosition() override { return m_count; }
    int64_t Seek(int64_t offset, uint32_t origin) override;
    bool SetSize(int64_t size) override;
    void Flush() override {}
    void Close() override {}

protected:
    explicit CCalcCRCFile(const char* className) : m_className(className) {}
    void notImplemented(const char* operation) const;

    const char* m_className;
    int64_t m_count = 0;
};

/// A CCalcCRCFile of the 16-bit CRC.
class QV_API CCalcCRC16File : public CCalcCRCFile {
public:
    CCalcCRC16File() : CCalcCRCFile("CCalcCRC16File") {}
    uint32_t Write(const void* data, uint32_t count) override;
    uint16_t GetCRC() const { return FiniCRC16(m_crc); }
    void Reset();

private:
    uint16_t m_crc = 0;
};

/// A CCalcCRCFile of the 32-bit CRC; the polynomial is that of InitCRC32Table.
class QV_API CCalcCRC32File : public CCalcCRCFile {
public:
    CCalcCRC32File() : CCalcCRCFile("CCalcCRC32File") {}
    uint32_t Write(const void* data, uint32_t count) override;
    uint32_t GetCRC() const { return FiniCRC32(m_crc); }
    void Reset();

private:
    uint32_t m_crc = InitCRC32();
};

}  // namespace qv
