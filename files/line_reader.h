// Text files line by line, read in large blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "qv/file.h"

namespace qv {

/// Lines of an open file from its present position on. They end in LF or CR LF; the last one may lack its end. A UTF-8
/// byte order mark in front of the first line is dropped. The file's position afterwards is not stated.
class LineReader {
public:
    /// Longest line, in bytes.
    static constexpr size_t lineLimit = 65536;

    /// Keeps no share of the file: it must outlive the reader.
    explicit LineReader(IFile& file) : m_file(file) {}

    /// The next line, without its end, valid until the next call. False behind the last line, and at a line that is
    /// longer than lineLimit.
    bool next(std::string_view& line);

    /// Number of the line that next() gave last, or stopped at; from 1.
    int64_t lineNumber() const { return m_lineNumber; }

    /// Whether it was a line's length that made next() false.
    bool isLineTooLong() const { return m_tooLong; }

private:
    bool fill();
    bool endOfLine(size_t& length);

    static constexpr size_t bufferSize = 2 * lineLimit;

    IFile& m_file;
    std::unique_ptr<char[]> m_buffer;
    size_t m_begin = 0;  // of what has not been given out, up to m_end
    size_t m_end = 0;
    int64_t m_lineNumber = 0;
    bool m_tooLong = false;
};

}  // namespace qv
