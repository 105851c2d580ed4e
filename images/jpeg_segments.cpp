// Segments of JPEG files moved about without decoding anything.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "images/kvor.h"
#include "images/picture_file.h"
#include "qv/file_system.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

enum : uint8_t { soi = 0xD8, eoi = 0xD9, sos = 0xDA, app0 = 0xE0, app15 = 0xEF, rst0 = 0xD0, rst7 = 0xD7, tem = 0x01 };

/// A stretch of a file.
struct Range {
    int64_t begin;
    int64_t end;
};

/// A KVOR segment: all of it, fill bytes in front of its marker included, and where its data begin.
struct Piece : Range {
    int64_t data;
};

/// What the segments of a JPEG file come to.
struct Layout {
    std::vector<Piece> pieces;
    int64_t insertAt = 2;  ///< Behind the last other application segment in front of the first scan.
    SRadiometricInfo info;
};

/// Walks the segments of a JPEG file from its beginning to the end of its picture.
class Walker {
public:
    explicit Walker(IFile& file) : m_file(file), m_size(file.GetSize()) { file.SeekToBegin(); }

    bool walk(Layout& layout) {
        if (byte() != 0xFF || byte() != soi) return fail(u"the first marker of a JPEG picture");
        bool scanned = false;
        for (;;) {
            const int marker = nextMarker();
            if (marker == eoi) break;
            if (marker < 0) {
                // Pictures whose last marker is lost are shown by everybody.
                if (scanned) break;
                return fail(u"the picture of a JPEG file");
            }
            // Fill bytes belong to the marker: left alone they would make another one of what comes next.
            const int64_t begin = m_markerAt;
            uint32_t size = 0;
            if (!contentsSize(size)) return fail(u"a whole segment of a JPEG picture");
            scanned = scanned || marker == sos;
            if (!take(marker, {begin, position() + size}, size, scanned, layout)) return false;
        }
        finish(layout);
        return true;
    }

private:
    int64_t position() const { return m_bufferAt + m_at; }

    bool fail(const char16_t* expected) {
        return refuse(m_file, expected, position() >= m_size ? u"the end of the file" : u"something else", position());
    }

    bool fill() {
        m_bufferAt += m_end;
        m_at = 0;
        m_end = m_file.Read(m_buffer, sizeof m_buffer);
        return m_end != 0;
    }

    /// -1 at the end.
    int byte() { return m_at < m_end || fill() ? m_buffer[m_at++] : -1; }

    void seek(int64_t target) {
        if (target <= m_bufferAt + m_end) {
            m_at = static_cast<uint32_t>(target - m_bufferAt);
            return;
        }
        m_file.SetPosition(target);
        m_bufferAt = target;
        m_at = m_end = 0;
    }

    /// The next marker that begins a segment or ends the picture; -1 at the end of the file. What stands in front of
    /// it, the coded pixels among it, is passed over.
    int nextMarker() {
        for (;;) {
            if (m_at >= m_end && !fill()) return -1;
            const void* const found = std::memchr(m_buffer + m_at, 0xFF, m_end - m_at);
            if (found == nullptr) {
                m_at = m_end;
                continue;
            }
            m_at = static_cast<uint32_t>(static_cast<const uint8_t*>(found) - m_buffer) + 1;
            m_markerAt = position() - 1;
            int marker = byte();
            while (marker == 0xFF) marker = byte();
            const bool alone = marker == 0 || marker == tem || marker == soi || (marker >= rst0 && marker <= rst7);
            if (!alone) return marker;
        }
    }

    /// The bytes of a segment behind its length. False when the file does not have them.
    bool contentsSize(uint32_t& size) {
        const int high = byte(), low = byte();
        const int length = high * 256 + low;
        if (high < 0 || low < 0 || length < 2) return false;
        size = static_cast<uint32_t>(length) - 2;
        if (position() + size <= m_size) return true;
        seek(m_size);  // for the diagnostic
        return false;
    }

    bool take(int marker, Range range, uint32_t size, bool scanned, Layout& layout) {
        const bool application = marker >= app0 && marker <= app15;
        uint8_t header[kvor::headerBytes] = {};
        const uint32_t seen = std::min(size, kvor::headerBytes);
        if (application) {
            for (uint32_t i = 0; i < seen; ++i) {
                const int value = byte();
                if (value < 0) return fail(u"a whole segment of a JPEG picture");
                header[i] = static_cast<uint8_t>(value);
            }
        }
        if (marker == kvor::marker && kvor::isSegment(header, seen)) {
            layout.info.payloadSize += kvor::dataIn(size);
            layout.pieces.push_back({range, range.end - kvor::dataIn(size)});
            m_indexes.push_back({header[kvor::indexAt], header[kvor::lastIndexAt]});
        } else if (application && !scanned) {
            layout.insertAt = range.end;
        }
        seek(range.end);
        return true;
    }

    void finish(Layout& layout) const {
        const size_t count = m_indexes.size();
        layout.info.segments = static_cast<uint32_t>(count);
        for (size_t i = 0; i < count; ++i) {
            const bool fits = m_indexes[i].first == (i & 255) && m_indexes[i].second == ((count - 1) & 255);
            layout.info.inOrder = layout.info.inOrder && fits;
        }
    }

    IFile& m_file;
    int64_t m_size;
    int64_t m_markerAt = 0;
    int64_t m_bufferAt = 0;  ///< Where the buffer begins in the file.
    uint32_t m_at = 0;
    uint32_t m_end = 0;
    uint8_t m_buffer[16384];
    std::vector<std::pair<uint8_t, uint8_t>> m_indexes;
};

bool walk(IFile& file, Layout& layout) {
    const auto walker = std::make_unique<Walker>(file);
    return walker->walk(layout);
}

bool copy(const TSharedPtr<IFile>& from, Range range, const TSharedPtr<IFile>& to) {
    if (range.end <= range.begin) return true;
    from->SetPosition(range.begin);
    if (IFileSystem::CopyFileW(from, to, range.end - range.begin)) return true;
    return refuse(*to, u"room for a copy of the file", u"none");
}

/// Copies `range` without the pieces in it.
bool copyWithout(const TSharedPtr<IFile>& from, Range range, const std::vector<Piece>& pieces,
                 const TSharedPtr<IFile>& to) {
    for (const Piece& piece : pieces) {
        if (piece.begin < range.begin || piece.begin >= range.end) continue;
        if (!copy(from, {range.begin, piece.begin}, to)) return false;
        range.begin = piece.end;
    }
    return copy(from, range, to);
}

bool writeSegments(IFile& payload, IFile& out) {
    const auto cutter = std::make_unique<kvor::Cutter>();
    cutter->begin(payload);
    bool failed = false;
    while (const uint32_t size = cutter->next(failed)) {
        const uint32_t length = size + 2;
        const uint8_t head[4] = {0xFF, kvor::marker, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
        if (!out.WriteBytes(head, sizeof head) || !out.WriteBytes(cutter->contents, size)) {
            return refuse(out, u"room for a measurement", u"none", out.GetPosition());
        }
    }
    return !failed || refuse(payload, u"the payload of a JPEG picture", u"the end of the file");
}

bool rewrite(const TSharedPtr<IFile>& file, IFile* payload, const TSharedPtr<IFile>& out) {
    Layout layout;
    if (!walk(*file, layout)) return false;
    out->SeekToBegin();
    return copyWithout(file, {0, layout.insertAt}, layout.pieces, out) &&
           (payload == nullptr || writeSegments(*payload, *out)) &&
           copyWithout(file, {layout.insertAt, file->GetSize()}, layout.pieces, out) && endPictureHere(*out);
}

}  // namespace

bool GetRadiometricInfo(const TSharedPtr<IFile>& file, SRadiometricInfo& info) {
    Layout layout;
    info = SRadiometricInfo();
    if (!file || !walk(*file, layout)) return false;
    info = layout.info;
    return true;
}

bool UnwrapRadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload) {
    Layout layout;
    if (!file || !payload || file == payload || !walk(*file, layout)) return false;
    payload->SeekToBegin();
    for (const Piece& piece : layout.pieces) {
        if (!copy(file, {piece.data, piece.end}, payload)) return false;
    }
    return endPictureHere(*payload);
}

bool WrapRadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload,
                         const TSharedPtr<IFile>& out) {
    if (!file || !payload || !out || file == payload || file == out || payload == out) return false;
    return rewrite(file, payload.get(), out);
}

bool StripRadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& out) {
    if (!file || !out || file == out) return false;
    return rewrite(file, nullptr, out);
}

}  // namespace qv
