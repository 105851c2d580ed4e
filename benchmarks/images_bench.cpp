// JPEG with a measurement, 16-bit PNG and raw TIFF beside the bare codec libraries, all in memory. Bytes are those of
// the pixels, and of the payload where there is one.
#include "rows.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include "qv/image.h"

namespace {

using namespace qv;

constexpr uint32_t width = 640, height = 512, pixels = width * height, payloadBytes = 1 << 20, segmentBytes = 65524;

/// A smooth scene with some noise, as frames are.
uint32_t scene(uint32_t i) { return (i % width) * 40 + (i / width) * 25 + (i * 2654435761u >> 27); }

std::vector<uint8_t> rgb() {
    std::vector<uint8_t> made(size_t{pixels} * 3);
    for (uint32_t i = 0; i < pixels; ++i) {
        for (uint32_t k = 0; k < 3; ++k) made[i * 3 + k] = static_cast<uint8_t>(scene(i) >> (7 + k));
    }
    return made;
}
std::vector<uint16_t> grey() {
    std::vector<uint16_t> made(pixels);
    for (uint32_t i = 0; i < pixels; ++i) made[i] = static_cast<uint16_t>(scene(i));
    return made;
}

struct Picture {
    Picture() {
        if (!CreateBitmap(width, height, 24, bitmap)) std::abort();
        const std::vector<uint8_t> from = rgb();
        for (uint32_t i = 0; i < pixels; ++i) {
            uint8_t* const to = bitmap.pixels + size_t{i / width} * bitmap.bytesPerRow + i % width * 3;
            to[0] = from[i * 3 + 2], to[1] = from[i * 3 + 1], to[2] = from[i * 3];
        }
    }
    ~Picture() { DestroyBitmap(bitmap); }
    SBitmap bitmap;
};

TSharedPtr<CMemFile> filled(uint32_t bytes) {
    const TSharedPtr<CMemFile> file = CMemFile::Create();
    const std::vector<uint8_t> data(bytes, 0x5A);
    file->WriteBytes(data.data(), bytes);
    return file;
}

// JPEG ----------------------------------------------------------------------------------------------------------------

void jpegSave(benchmark::State& state) {
    const Picture picture;
    const TSharedPtr<IFile> payload(filled(payloadBytes));
    const TSharedPtr<CMemFile> file = CMemFile::Create();
    for (auto _ : state) {
        file->SeekToBegin();
        if (!SaveJPEG(picture.bitmap.handle, file, payload)) std::abort();
    }
    SRadiometricInfo info;
    if (!GetRadiometricInfo(file, info) || info.payloadSize != payloadBytes) return state.SkipWithError("lost bytes");
    bench::setBytes(state, size_t{pixels} * 3 + payloadBytes);
}
QV_ROW("save JPEG with 1 MB of measurement", "qv", jpegSave)->Unit(benchmark::kMicrosecond);

/// What the codec writes, with the payload in its markers; to be freed.
std::pair<unsigned char*, unsigned long> bareJpeg(const std::vector<uint8_t>& from, std::vector<uint8_t>& block) {
    jpeg_compress_struct codec;
    jpeg_error_mgr errors;
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&codec, &out, &size);
    codec.image_width = width, codec.image_height = height, codec.input_components = 3;
    codec.in_color_space = JCS_RGB;
    jpeg_set_defaults(&codec);
    jpeg_start_compress(&codec, TRUE);
    for (uint32_t left = payloadBytes; left > 0;) {
        const uint32_t part = left < segmentBytes ? left : segmentBytes;
        std::memcpy(block.data(), "KVOR\0\1\0\0", 8);
        jpeg_write_marker(&codec, 0xE1, block.data(), part + 8);
        left -= part;
    }
    while (codec.next_scanline < height) {
        JSAMPROW row = const_cast<uint8_t*>(from.data()) + size_t{codec.next_scanline} * width * 3;
        jpeg_write_scanlines(&codec, &row, 1);
    }
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
    return {out, size};
}

void jpegSaveBare(benchmark::State& state) {
    const std::vector<uint8_t> from = rgb();
    std::vector<uint8_t> block(segmentBytes + 8, 0x5A);
    for (auto _ : state) std::free(bareJpeg(from, block).first);
    bench::setBytes(state, size_t{pixels} * 3 + payloadBytes);
}
QV_ROW("save JPEG with 1 MB of measurement", "libjpeg", jpegSaveBare)->Unit(benchmark::kMicrosecond);

void jpegLoad(benchmark::State& state) {
    const Picture picture;
    const TSharedPtr<CMemFile> file = CMemFile::Create(), payload = CMemFile::Create();
    if (!SaveJPEG(picture.bitmap.handle, file, filled(payloadBytes), {})) std::abort();
    for (auto _ : state) {
        SBitmap bitmap;
        payload->SeekToBegin();
        if (!LoadJPEG(file, bitmap, payload)) std::abort();
        DestroyBitmap(bitmap);
    }
    if (payload->size() != payloadBytes) return state.SkipWithError("lost bytes");
    bench::setBytes(state, size_t{pixels} * 3 + payloadBytes);
}
QV_ROW("load JPEG with 1 MB of measurement", "qv", jpegLoad)->Unit(benchmark::kMicrosecond);

void jpegLoadBare(benchmark::State& state) {
    std::vector<uint8_t> block(segmentBytes + 8, 0x5A), to(size_t{pixels} * 3), payload(payloadBytes);
    const auto [bytes, size] = bareJpeg(rgb(), block);
    for (auto _ : state) {
        jpeg_decompress_struct codec;
        jpeg_error_mgr errors;
        codec.err = jpeg_std_error(&errors);
        jpeg_create_decompress(&codec);
        jpeg_mem_src(&codec, bytes, size);
        jpeg_save_markers(&codec, 0xE1, 65535);
        jpeg_read_header(&codec, TRUE);
        jpeg_start_decompress(&codec);
        while (codec.output_scanline < height) {
            JSAMPROW row = to.data() + size_t{codec.output_scanline} * width * 3;
            jpeg_read_scanlines(&codec, &row, 1);
            for (uint32_t x = 0; x < width; ++x) std::swap(row[x * 3], row[x * 3 + 2]);
        }
        size_t at = 0;
        for (jpeg_saved_marker_ptr each = codec.marker_list; each != nullptr; each = each->next) {
            std::memcpy(payload.data() + at, each->data + 8, each->data_length - 8);
            at += each->data_length - 8;
        }
        jpeg_finish_decompress(&codec);
        jpeg_destroy_decompress(&codec);
    }
    std::free(bytes);
    bench::setBytes(state, size_t{pixels} * 3 + payloadBytes);
}
QV_ROW("load JPEG with 1 MB of measurement", "libjpeg", jpegLoadBare)->Unit(benchmark::kMicrosecond);

// PNG, 16 bits --------------------------------------------------------------------------------------------------------

void png16Load(benchmark::State& state) {
    const std::vector<uint16_t> from = grey();
    std::vector<uint16_t> to(pixels);
    const TSharedPtr<IFile> file(CMemFile::Create());
    if (!SavePNG16(file, from.data(), width, height)) std::abort();
    for (auto _ : state) {
        if (!LoadPNG16(file, to.data(), pixels * 2)) std::abort();
    }
    if (to != from) return state.SkipWithError("other values");
    bench::setBytes(state, size_t{pixels} * 2);
}
QV_ROW("load 16-bit PNG", "qv", png16Load)->Unit(benchmark::kMicrosecond);

struct Bytes {
    std::vector<uint8_t> data;
    size_t at = 0;
};

void png16LoadBare(benchmark::State& state) {
    const std::vector<uint16_t> from = grey();
    std::vector<uint16_t> to(pixels);
    const TSharedPtr<CMemFile> file = CMemFile::Create();
    if (!SavePNG16(TSharedPtr<IFile>(file), from.data(), width, height)) std::abort();
    Bytes bytes{{static_cast<const uint8_t*>(file->data()), static_cast<const uint8_t*>(file->data()) + file->size()}};
    for (auto _ : state) {
        bytes.at = 0;
        png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        png_set_read_fn(png, &bytes, [](png_structp codec, png_bytep out, size_t count) {
            Bytes& source = *static_cast<Bytes*>(png_get_io_ptr(codec));
            std::memcpy(out, source.data.data() + source.at, count);
            source.at += count;
        });
        png_read_info(png, info);
        png_set_swap(png);
        for (uint32_t y = 0; y < height; ++y)
            png_read_row(png, reinterpret_cast<png_bytep>(&to[size_t{y} * width]), nullptr);
        png_read_end(png, nullptr);
        png_destroy_read_struct(&png, &info, nullptr);
    }
    if (to != from) return state.SkipWithError("other values");
    bench::setBytes(state, size_t{pixels} * 2);
}
QV_ROW("load 16-bit PNG", "libpng", png16LoadBare)->Unit(benchmark::kMicrosecond);

// Raw TIFF ------------------------------------------------------------------------------------------------------------

void tiffRawLoad(benchmark::State& state) {
    const std::vector<uint16_t> from = grey();
    std::vector<uint16_t> to(pixels);
    const TSharedPtr<IFile> file(CMemFile::Create());
    if (!SaveTIFFRaw(file, from.data(), width, height, EDataType::uint16)) std::abort();
    for (auto _ : state) {
        if (!LoadTIFFRaw(file, to.data(), pixels * 2)) std::abort();
    }
    if (to != from) return state.SkipWithError("other values");
    bench::setBytes(state, size_t{pixels} * 2);
}
QV_ROW("load raw TIFF", "qv", tiffRawLoad)->Unit(benchmark::kMicrosecond);

tmsize_t readBytes(thandle_t handle, void* out, tmsize_t count) {
    Bytes& source = *static_cast<Bytes*>(handle);
    const size_t got = std::min(static_cast<size_t>(count), source.data.size() - source.at);
    std::memcpy(out, source.data.data() + source.at, got);
    source.at += got;
    return static_cast<tmsize_t>(got);
}
toff_t seekBytes(thandle_t handle, toff_t offset, int whence) {
    Bytes& source = *static_cast<Bytes*>(handle);
    source.at = static_cast<size_t>(offset) + (whence == SEEK_CUR   ? source.at
                                               : whence == SEEK_END ? source.data.size()
                                                                    : 0);
    return source.at;
}

void tiffRawLoadBare(benchmark::State& state) {
    const std::vector<uint16_t> from = grey();
    std::vector<uint16_t> to(pixels);
    const TSharedPtr<CMemFile> file = CMemFile::Create();
    if (!SaveTIFFRaw(TSharedPtr<IFile>(file), from.data(), width, height, EDataType::uint16)) std::abort();
    Bytes bytes{{static_cast<const uint8_t*>(file->data()), static_cast<const uint8_t*>(file->data()) + file->size()}};
    for (auto _ : state) {
        bytes.at = 0;
        TIFF* const tiff = TIFFClientOpen(
            "", "rm", &bytes, readBytes, [](thandle_t, void*, tmsize_t) { return tmsize_t{0}; }, seekBytes,
            [](thandle_t) { return 0; },
            [](thandle_t handle) { return static_cast<toff_t>(static_cast<Bytes*>(handle)->data.size()); }, nullptr,
            nullptr);
        for (uint32_t y = 0; y < height; ++y) TIFFReadScanline(tiff, &to[size_t{y} * width], y);
        TIFFClose(tiff);
    }
    if (to != from) return state.SkipWithError("other values");
    bench::setBytes(state, size_t{pixels} * 2);
}
QV_ROW("load raw TIFF", "libtiff", tiffRawLoadBare)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
