// The lines of a header, cut from large blocks of the file by the rule of IFile::GetLine with a 512-byte buffer.
#pragma once

#include <cstdint>

#include "qv/array.h"
#include "qv/file.h"

namespace qv {

/// Reads ahead of the file position that it reports: the caller seeks to position() when it is done.
class SafLines {
public:
    /// Starts at the file's current position.
    explicit SafLines(IFile& file);

    /// Goes to the next line. False at the end of the file, and for a line that does not end within 512 bytes.
    bool next();
    /// The line without its end. It is cut at its first CR or NUL.
    const char* line() const { return m_line; }
    /// The file position behind the line.
    int64_t position() const { return m_blockStart + m_at; }

private:
    static constexpr uint32_t lineBytes = 512;
    static constexpr uint32_t blockBytes = 0x10000;

    uint32_t fill();

    IFile& m_file;
    TSimpleArray<char> m_block;
    int64_t m_blockStart;
    uint32_t m_at = 0;
    uint32_t m_end = 0;
    bool m_fileEnded = false;
    char m_line[lineBytes];
};

}  // namespace qv
