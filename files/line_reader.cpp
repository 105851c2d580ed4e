#include "files/line_reader.h"

#include <cstring>

namespace qv {

namespace {
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
}

bool LineReader::next(std::string_view& line) {
    if (m_tooLong) return false;
    size_t length = 0;
    const bool ended = endOfLine(length);
    ++m_lineNumber;
    m_tooLong = length > lineLimit;
    if (m_tooLong || (!ended && length == 0)) return false;

    line = std::string_view(m_buffer.get() + m_begin, length);
    m_begin += length + (ended ? 1 : 0);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (m_lineNumber == 1 && line.starts_with(byteOrderMark)) line.remove_prefix(byteOrderMark.size());
    return true;
}

/// Looks for the end of the line at m_begin; `length` is the distance to it, or to the end of the data.
bool LineReader::endOfLine(size_t& length) {
    do {
        const size_t present = m_end - m_begin;
        if (present > length) {
            const char* begin = m_buffer.get() + m_begin;
            if (const void* found = std::memchr(begin + length, '\n', present - length)) {
                length = static_cast<size_t>(static_cast<const char*>(found) - begin);
                return true;
            }
            length = present;
        }
    } while (length <= lineLimit && fill());
    return false;
}

/// Moves what is left to the front and reads behind it. False at the end of the data.
bool LineReader::fill() {
    if (m_buffer == nullptr) m_buffer = std::make_unique<char[]>(bufferSize);
    const size_t kept = m_end - m_begin;
    std::memmove(m_buffer.get(), m_buffer.get() + m_begin, kept);
    m_begin = 0;
    m_end = kept;
    m_end += m_file.Read(m_buffer.get() + kept, static_cast<uint32_t>(bufferSize - kept));
    return m_end > kept;
}

}  // namespace qv
