#include "measurement/saf_lines.h"

#include <algorithm>
#include <cstring>

namespace qv {

SafLines::SafLines(IFile& file) : m_file(file), m_blockStart(file.GetPosition()), m_line{} {
    m_block.SetSize(blockBytes);
}

/// Makes a whole line buffer's worth of bytes available where the file has them; returns how many there are.
uint32_t SafLines::fill() {
    if (m_end - m_at < lineBytes && !m_fileEnded) {
        std::memmove(m_block.data(), m_block.data() + m_at, m_end - m_at);
        m_blockStart += m_at;
        m_end -= m_at;
        m_at = 0;
        const uint32_t got = m_file.Read(m_block.data() + m_end, m_block.size() - m_end);
        m_fileEnded = got == 0;
        m_end += got;
    }
    return std::min(m_end - m_at, lineBytes);
}

bool SafLines::next() {
    const uint32_t available = fill();
    if (available == 0) return false;
    const char* start = m_block.data() + m_at;
    const auto* lineFeed = static_cast<const char*>(std::memchr(start, '\n', available));
    if (lineFeed == nullptr && available == lineBytes) return false;
    const auto length = static_cast<uint32_t>(lineFeed == nullptr ? available : lineFeed - start);
    std::memcpy(m_line, start, length);
    m_line[length] = '\0';
    if (auto* carriageReturn = static_cast<char*>(std::memchr(m_line, '\r', length))) *carriageReturn = '\0';
    m_at += length + (lineFeed == nullptr ? 0 : 1);
    return true;
}

}  // namespace qv
