#include "images/jpeg_library.h"

#include <algorithm>
#include <cstring>

#include "images/kvor.h"

namespace qv::Private {

namespace {

/// More scans than an encoder writes, and few enough that a small file cannot keep a decoder busy.
constexpr int mostScans = 500;

JpegErrors& errorsOf(j_common_ptr library) { return *reinterpret_cast<JpegErrors*>(library->err); }

[[noreturn]] void onError(j_common_ptr library) {
    JpegErrors& errors = errorsOf(library);
    errors.base.format_message(library, errors.error);
    std::longjmp(errors.place, 1);
}

/// A coded segment that ends before its pixels do is a cut picture, unless a restart marker begins the next one: then
/// some bytes between are damaged, and libjpeg goes on.
bool isCut(j_common_ptr library) {
    if (library->err->msg_code != JWRN_HIT_MARKER || !library->is_decompressor) return false;
    const int marker = reinterpret_cast<j_decompress_ptr>(library)->unread_marker;
    return marker < JPEG_RST0 || marker > JPEG_RST0 + 7;
}

void onMessage(j_common_ptr library, int level) {
    if (level >= 0) return;  // tracing
    JpegErrors& errors = errorsOf(library);
    if (isCut(library)) onError(library);
    if (errors.base.num_warnings++ == 0) errors.base.format_message(library, errors.warning);
}

void onOutput(j_common_ptr) {}

JpegSource& sourceOf(j_decompress_ptr decoder) { return *reinterpret_cast<JpegSource*>(decoder->src); }

void startSource(j_decompress_ptr) {}

boolean fillSource(j_decompress_ptr decoder) {
    JpegSource& source = sourceOf(decoder);
    uint32_t count = std::min(readQuietly(*source.file, source.buffer, sizeof source.buffer),
                              static_cast<uint32_t>(sizeof source.buffer));
    if (count == 0) {
        source.ended = true;
        source.buffer[0] = 0xFF;
        source.buffer[1] = JPEG_EOI;
        count = 2;
    }
    source.base.next_input_byte = source.buffer;
    source.base.bytes_in_buffer = count;
    return TRUE;
}

void skipSource(j_decompress_ptr decoder, long count) {
    JpegSource& source = sourceOf(decoder);
    if (count <= 0) return;
    const auto wanted = static_cast<size_t>(count);
    const size_t buffered = std::min(wanted, source.base.bytes_in_buffer);
    source.base.next_input_byte += buffered;
    source.base.bytes_in_buffer -= buffered;
    if (wanted > buffered) seekQuietly(*source.file, static_cast<int64_t>(wanted - buffered), IFile::fromCurrent);
}

void endSource(j_decompress_ptr) {}

JpegDestination& destinationOf(j_compress_ptr encoder) { return *reinterpret_cast<JpegDestination*>(encoder->dest); }

void startDestination(j_compress_ptr encoder) {
    JpegDestination& to = destinationOf(encoder);
    to.base.next_output_byte = to.buffer;
    to.base.free_in_buffer = sizeof to.buffer;
}

void writeOut(j_compress_ptr encoder, size_t count) {
    JpegDestination& to = destinationOf(encoder);
    const auto wanted = static_cast<uint32_t>(count);
    if (wanted != 0 && writeQuietly(*to.file, to.buffer, wanted) != wanted) ERREXIT(encoder, JERR_FILE_WRITE);
}

boolean emptyDestination(j_compress_ptr encoder) {
    writeOut(encoder, sizeof destinationOf(encoder).buffer);
    startDestination(encoder);
    return TRUE;
}

void endDestination(j_compress_ptr encoder) {
    writeOut(encoder, sizeof destinationOf(encoder).buffer - destinationOf(encoder).base.free_in_buffer);
}

void onProgress(j_common_ptr library) {
    if (!library->is_decompressor) return;
    if (reinterpret_cast<j_decompress_ptr>(library)->input_scan_number > mostScans) {
        ERREXITS(library, JERR_BAD_PROGRESSION, "too many scans");
    }
}

/// Inks, possibly stored inverted, to light.
void convertInks(const uint8_t* in, uint32_t width, bool inverted, uint8_t* out) {
    for (uint32_t x = 0; x < width; ++x, in += 4, out += 3) {
        const uint32_t flip = inverted ? 0 : 255;
        for (uint32_t channel = 0; channel < 3; ++channel) {
            out[2 - channel] = static_cast<uint8_t>(((in[channel] ^ flip) * (in[3] ^ flip) + 127) / 255);
        }
    }
}

}  // namespace

void JpegErrors::install() {
    jpeg_std_error(&base);
    base.error_exit = onError;
    base.emit_message = onMessage;
    base.output_message = onOutput;
    error[0] = warning[0] = 0;
}

void JpegSource::install(j_decompress_ptr decoder, IFile& from) {
    std::memset(&base, 0, sizeof base);
    base.init_source = startSource;
    base.fill_input_buffer = fillSource;
    base.skip_input_data = skipSource;
    base.resync_to_restart = jpeg_resync_to_restart;
    base.term_source = endSource;
    file = &from;
    ended = false;
    decoder->src = &base;
}

void JpegDestination::install(j_compress_ptr encoder, IFile& to) {
    std::memset(&base, 0, sizeof base);
    base.init_destination = startDestination;
    base.empty_output_buffer = emptyDestination;
    base.term_destination = endDestination;
    file = &to;
    encoder->dest = &base;
}

JpegReader::JpegReader() {
    std::memset(&m_decoder, 0, sizeof m_decoder);
    std::memset(&m_progress, 0, sizeof m_progress);
    m_source.file = nullptr;
    m_source.ended = false;
    m_errors.install();
    m_decoder.err = &m_errors.base;
}

JpegReader::~JpegReader() { jpeg_destroy_decompress(&m_decoder); }

bool JpegReader::fail() {
    return refuse(*m_source.file, u"a JPEG picture",
                  m_source.ended ? CString(u"the end of the file") : CString(m_errors.error));
}

/// The next byte of the file; the source always has one.
static JOCTET nextByte(j_decompress_ptr decoder) {
    jpeg_source_mgr& source = *decoder->src;
    if (source.bytes_in_buffer == 0) (void)source.fill_input_buffer(decoder);
    --source.bytes_in_buffer;
    return *source.next_input_byte++;
}

/// Reads an APP1 segment in place of the library, which would look through all that it kept for each further one.
boolean JpegReader::onSegment(j_decompress_ptr decoder) {
    JpegReader& self = *static_cast<JpegReader*>(decoder->client_data);
    const size_t high = nextByte(decoder), length = high << 8 | nextByte(decoder);
    if (length < 2) ERREXIT(decoder, JERR_BAD_LENGTH);
    for (size_t i = 0; i + 2 < length; ++i) self.m_segment[i] = nextByte(decoder);
    if (!self.take(length - 2)) ERREXIT1(decoder, JERR_OUT_OF_MEMORY, 0);
    return TRUE;
}

/// False without memory.
bool JpegReader::take(size_t size) noexcept {
    if (!kvor::isSegment(m_segment.data(), static_cast<uint32_t>(size))) return true;
    try {
        const auto begin = m_segment.begin() + kvor::headerBytes;
        m_payload.insert(m_payload.end(), begin, begin + kvor::dataIn(static_cast<uint32_t>(size)));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool JpegReader::readHeader(IFile& file, bool keepPayload) {
    constexpr size_t longestSegment = 65533;
    if (keepPayload) m_segment.resize(longestSegment);
    m_source.file = &file;
    file.SeekToBegin();
    return run([&] {
        // The version is that of the library that is linked: it refuses any other.
        jpeg_create_decompress(&m_decoder);
        m_source.install(&m_decoder, file);
        m_progress.progress_monitor = onProgress;
        m_decoder.progress = &m_progress;
        m_decoder.client_data = this;
        if (keepPayload) jpeg_set_marker_processor(&m_decoder, kvor::marker, onSegment);
        jpeg_read_header(&m_decoder, TRUE);
    });
}

bool JpegReader::isPlausible() {
    IFile& file = *m_source.file;
    const int64_t left = file.GetSize() - file.GetPosition() + static_cast<int64_t>(m_source.base.bytes_in_buffer);
    const uint64_t pixels = uint64_t{m_decoder.image_width} * m_decoder.image_height;
    // A block of 64 pixels takes at least one bit, but where arithmetic codes make less of many.
    if (m_decoder.arith_code && pixels <= believedPixels) return true;
    if (left > 0 && canHold(static_cast<uint64_t>(left), 512, pixels)) return true;
    return refuse(file, CString::FromFormat(u"the pixels of %u by %u", m_decoder.image_width, m_decoder.image_height),
                  CString::FromFormat(u"%I64d bytes", left));
}

bool JpegReader::startDecoding() {
    return run([&] {
        const bool inks = m_decoder.jpeg_color_space == JCS_CMYK || m_decoder.jpeg_color_space == JCS_YCCK;
        m_decoder.out_color_space = inks ? JCS_CMYK : JCS_EXT_BGR;
        jpeg_start_decompress(&m_decoder);
    });
}

bool JpegReader::readRows(const SBitmap& bitmap) {
    const bool inks = m_decoder.out_color_space == JCS_CMYK;
    std::vector<uint8_t> row(inks ? size_t{bitmap.width} * 4 : 0);
    const bool done = run([&] {
        while (m_decoder.output_scanline < m_decoder.output_height) {
            uint8_t* const target = rowOf(bitmap, m_decoder.output_scanline);
            JSAMPROW rows[1] = {inks ? row.data() : target};
            jpeg_read_scanlines(&m_decoder, rows, 1);
            if (inks) convertInks(row.data(), bitmap.width, m_decoder.saw_Adobe_marker != 0, target);
        }
    });
    // Several scans are read to the end before the first row comes: where the file is over, there may have been more.
    // Arithmetic codes never tell that they are over.
    return done && !(m_source.ended && (jpeg_has_multiple_scans(&m_decoder) || m_decoder.arith_code));
}

bool JpegReader::finish() {
    return run([&] { jpeg_finish_decompress(&m_decoder); });
}

}  // namespace qv::Private
