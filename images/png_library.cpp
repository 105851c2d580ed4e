#include "images/png_library.h"

#include <cstring>

namespace qv::Private {

namespace {

void onRead(png_structp png, png_bytep out, size_t count) {
    auto& in = *static_cast<ReadAhead*>(png_get_io_ptr(png));
    if (in.read(out, static_cast<uint32_t>(count)) != count) png_error(png, pngReadError);
}

void keepText(char (&kept)[128], const char* text) {
    if (kept[0] == 0) std::strncpy(kept, text, sizeof kept - 1);
}

}  // namespace

void PngTexts::onError(png_structp png, png_const_charp text) {
    auto& texts = *static_cast<PngTexts*>(png_get_error_ptr(png));
    texts.error[0] = 0;
    keepText(texts.error, text);
    std::longjmp(texts.place, 1);
}

void PngTexts::onWarning(png_structp png, png_const_charp text) {
    keepText(static_cast<PngTexts*>(png_get_error_ptr(png))->warning, text);
}

PngReader::PngReader(IFile& file) {
    m_in.file = &file;
    file.SeekToBegin();
    m_png = png_create_read_struct(pngVersion, &m_texts, PngTexts::onError, PngTexts::onWarning);
    if (m_png == nullptr) return;
    m_info = png_create_info_struct(m_png);
    png_set_read_fn(m_png, &m_in, onRead);
    png_set_user_limits(m_png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // isPlausible() is the judge
}

PngReader::~PngReader() { png_destroy_read_struct(&m_png, &m_info, nullptr); }

bool PngReader::fail() {
    return refuse(*m_in.file, u"a PNG picture", CString(m_texts.error[0] != 0 ? m_texts.error : "no memory"));
}

void PngReader::finish() {
    const bool whole = run([&] { png_read_end(m_png, nullptr); });
    const char* const fault = whole ? m_texts.warning : m_texts.error;
    if (fault[0] != 0) refuse(*m_in.file, u"a PNG picture without a fault", CString(fault));
}

bool PngReader::isPlausible() {
    // Deflate makes at most 1032 bytes of one.
    const uint64_t bytes = (uint64_t{png_get_rowbytes(m_png, m_info)} + 1) * height();
    return canHold(static_cast<uint64_t>(m_in.file->GetSize()), 1032, bytes);
}

}  // namespace qv::Private
