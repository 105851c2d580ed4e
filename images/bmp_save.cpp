#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "images/bmp_format.h"
#include "images/picture_file.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

uint32_t colourOf(const uint8_t* pixel) { return pixel[0] | uint32_t{pixel[1]} << 8 | uint32_t{pixel[2]} << 16; }

/// The colours of a picture, in ascending order, and the index of each.
class Colours {
public:
    /// False when the picture has more than `limit`.
    bool gather(PixelRows& rows, size_t limit) {
        for (uint32_t y = 0; y < rows.height(); ++y) {
            const uint8_t* pixel = rows.row(y);
            uint32_t last = ~0u;
            for (uint32_t x = 0; x < rows.width(); ++x, pixel += 3) {
                const uint32_t colour = colourOf(pixel);
                if (colour == last) continue;
                last = colour;
                if (m_indexes.try_emplace(colour, uint8_t{0}).second && m_indexes.size() > limit) return false;
            }
        }
        for (const auto& [colour, index] : m_indexes) m_sorted.push_back(colour);
        std::sort(m_sorted.begin(), m_sorted.end());
        for (size_t i = 0; i < m_sorted.size(); ++i) m_indexes[m_sorted[i]] = static_cast<uint8_t>(i);
        return true;
    }
    const std::vector<uint32_t>& sorted() const { return m_sorted; }
    uint8_t index(const uint8_t* pixel) const { return m_indexes.find(colourOf(pixel))->second; }

private:
    std::unordered_map<uint32_t, uint8_t> m_indexes;
    std::vector<uint32_t> m_sorted;
};

/// Packs indexes, the leftmost in the highest bits.
void packIndexes(const std::vector<uint8_t>& indexes, uint32_t bits, uint8_t* out) {
    const uint32_t perByte = 8 / bits;
    for (size_t x = 0; x < indexes.size(); ++x) {
        const auto shift = static_cast<uint32_t>(perByte - 1 - x % perByte) * bits;
        out[x / perByte] = static_cast<uint8_t>(out[x / perByte] | indexes[x] << shift);
    }
}

/// Run-length codes one row of indexes, its end included.
class RunWriter {
public:
    RunWriter(uint32_t bits, std::vector<uint8_t>& out) : m_bits(bits), m_out(out) {}

    void row(const std::vector<uint8_t>& indexes) {
        for (size_t at = 0; at < indexes.size();) {
            if (const size_t run = runAt(indexes, at); run >= shortestRun) {
                at += put(run, indexes[at]);
            } else {
                at += literals(indexes, at);
            }
        }
        m_out.insert(m_out.end(), {0, bmp::endOfLine});
    }

private:
    static constexpr size_t shortestRun = 3;  ///< Fewer equal pixels break no row of literals.

    static size_t runAt(const std::vector<uint8_t>& indexes, size_t at) {
        size_t end = at;
        while (end < indexes.size() && end - at < 255 && indexes[end] == indexes[at]) ++end;
        return end - at;
    }

    size_t put(size_t run, uint8_t index) {
        m_out.push_back(static_cast<uint8_t>(run));
        m_out.push_back(static_cast<uint8_t>(m_bits == 4 ? index << 4 | index : index));
        return run;
    }

    size_t literals(const std::vector<uint8_t>& indexes, size_t begin) {
        size_t end = begin;
        while (end < indexes.size() && end - begin < 255 && runAt(indexes, end) < shortestRun) ++end;
        const size_t count = end - begin;
        if (count <= bmp::move) {  // a count that would read as something else
            for (size_t i = begin; i < end; ++i) put(1, indexes[i]);
            return count;
        }
        m_out.push_back(0);
        m_out.push_back(static_cast<uint8_t>(count));
        const size_t from = m_out.size(), bytes = (count * m_bits + 7) / 8;
        m_out.resize(from + bytes + (bytes & 1));
        packIndexes({indexes.begin() + static_cast<ptrdiff_t>(begin), indexes.begin() + static_cast<ptrdiff_t>(end)},
                    m_bits, m_out.data() + from);
        return count;
    }

    uint32_t m_bits;
    std::vector<uint8_t>& m_out;
};

/// Writes one picture.
class Writer {
public:
    Writer(HBITMAP bitmap, IFile& file, const CPropertyArray& properties)
        : m_rows(bitmap), m_file(file), m_bits(static_cast<uint32_t>(numberOf(properties, u"bits", 0))) {
        if (m_bits == 0) m_bits = GetBitmapBits(bitmap);
        const bool coded = CString(properties.GetValue(u"compression")) == CString(u"rle");
        if (coded && (m_bits == 4 || m_bits == 8)) m_compression = m_bits == 4 ? bmp::rle4 : bmp::rle8;
        m_topDown = m_compression == bmp::none && numberOf(properties, u"topDown", 0) != 0;
    }

    bool write() {
        if (m_bits != 1 && m_bits != 4 && m_bits != 8 && m_bits != 16 && m_bits != 24 && m_bits != 32) {
            return refuse(m_file, u"\"bits\" of 1, 4, 8, 16, 24 or 32", CString::FromFormat(u"%u", m_bits));
        }
        if (m_bits <= 8 && !m_colours.gather(m_rows, size_t{1} << m_bits)) {
            return refuse(m_file, CString::FromFormat(u"a picture of at most %u colours", 1u << m_bits), u"more");
        }
        m_file.SeekToBegin();
        if (m_compression != bmp::none) return writeCoded();
        const uint64_t pixels = bmp::paddedRow(m_rows.width(), m_bits) * m_rows.height();
        return writeHeader(pixels) && writePlain() && endPictureHere(m_file);
    }

private:
    bool put(const uint8_t* bytes, size_t count) {
        if (m_file.WriteBytes(bytes, static_cast<uint32_t>(count))) return true;
        return refuse(m_file, u"room for a BMP picture", u"none", m_file.GetPosition());
    }

    bool writeHeader(uint64_t pixelBytes) {
        const auto entries = static_cast<uint32_t>(m_colours.sorted().size());
        const uint32_t pixelsAt = bmp::fileHeaderBytes + bmp::infoHeaderBytes + entries * 4;
        if (pixelBytes > UINT32_MAX - pixelsAt) {
            return refuse(m_file, u"a picture below 4 GiB", CString::FromFormat(u"%I64u bytes", pixelBytes));
        }
        std::vector<uint8_t> bytes(pixelsAt);
        bytes[0] = 'B';
        bytes[1] = 'M';
        bmp::put32(&bytes[2], pixelsAt + static_cast<uint32_t>(pixelBytes));
        bmp::put32(&bytes[10], pixelsAt);
        uint8_t* const picture = &bytes[bmp::fileHeaderBytes];
        bmp::put32(picture, bmp::infoHeaderBytes);
        bmp::put32(picture + 4, m_rows.width());
        bmp::put32(picture + 8, m_topDown ? 0u - m_rows.height() : m_rows.height());
        bmp::put16(picture + 12, 1);
        bmp::put16(picture + 14, m_bits);
        bmp::put32(picture + 16, m_compression);
        bmp::put32(picture + 20, static_cast<uint32_t>(pixelBytes));
        bmp::put32(picture + 32, entries);
        for (uint32_t i = 0; i < entries; ++i) {
            bmp::put32(picture + bmp::infoHeaderBytes + size_t{i} * 4, m_colours.sorted()[i]);
        }
        return put(bytes.data(), bytes.size());
    }

    void findIndexes(uint32_t y) {
        const uint8_t* const pixels = m_rows.row(y);
        m_indexes.resize(m_rows.width());
        for (size_t x = 0; x < m_indexes.size(); ++x) m_indexes[x] = m_colours.index(pixels + x * 3);
    }

    /// One row into `out`, which is zeroed.
    void convert(uint32_t y, uint8_t* out) {
        if (m_bits <= 8) {
            findIndexes(y);
            packIndexes(m_indexes, m_bits, out);
            return;
        }
        const uint8_t* in = m_rows.row(y);
        const uint32_t width = m_rows.width();
        if (m_bits == 24) {
            std::memcpy(out, in, size_t{width} * 3);
            return;
        }
        for (uint32_t x = 0; x < width; ++x, in += 3, out += m_bits / 8) {
            if (m_bits == 32) {
                std::memcpy(out, in, 3);
            } else {
                bmp::put16(out, uint32_t{in[0]} >> 3 | (uint32_t{in[1]} >> 3) << 5 | (uint32_t{in[2]} >> 3) << 10);
            }
        }
    }

    bool writePlain() {
        const auto stride = static_cast<size_t>(bmp::paddedRow(m_rows.width(), m_bits));
        const uint32_t height = m_rows.height();
        const auto rowsAtOnce = static_cast<uint32_t>(std::clamp<size_t>((size_t{1} << 18) / stride, 1, height));
        std::vector<uint8_t> bytes;
        for (uint32_t y = 0; y < height;) {
            const uint32_t rows = std::min(rowsAtOnce, height - y);
            bytes.assign(stride * rows, 0);
            for (uint32_t i = 0; i < rows; ++i, ++y) convert(m_topDown ? y : height - 1 - y, &bytes[stride * i]);
            if (!put(bytes.data(), bytes.size())) return false;
        }
        return true;
    }

    /// The coded size stands in the header, so everything is coded first.
    bool writeCoded() {
        std::vector<uint8_t> coded;
        RunWriter runs(m_bits, coded);
        for (uint32_t y = m_rows.height(); y-- > 0;) {
            findIndexes(y);
            runs.row(m_indexes);
        }
        coded.insert(coded.end(), {0, bmp::endOfPicture});
        return writeHeader(coded.size()) && put(coded.data(), coded.size()) && endPictureHere(m_file);
    }

    PixelRows m_rows;
    IFile& m_file;
    uint32_t m_bits;
    uint32_t m_compression = bmp::none;
    bool m_topDown = false;
    Colours m_colours;
    std::vector<uint8_t> m_indexes;
};

}  // namespace

bool SaveBMP(HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties) {
    if (bitmap == nullptr || !file) return false;
    return Writer(bitmap, *file, properties).write();
}

}  // namespace qv
