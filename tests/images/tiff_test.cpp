#include <gtest/gtest.h>
#include <tiffio.h>
#include <zlib.h>

#include <cstring>

#include "images/support.h"
#include "qv/multi_page_tiff.h"
#include "support/faulty_file.h"
#include "support/temp_folder.h"

namespace qv {
namespace {

using namespace test;

template <class T>
std::string bytesAs(const std::vector<T>& values) {
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

std::string contents(const CString& path) {
    const auto file = fileSystem().CreateFileW(path.c_str(), CFile::openExisting | CFile::accessRead);
    return file ? bytesOf(*file) : "";
}

TEST(TIFF, RawFilesToTheByte) {
    const auto saved = [](const std::string& values, uint32_t width, EDataType type) {
        const auto file = memoryFile(std::string(1000, 'x'));
        EXPECT_TRUE(SaveTIFFRaw(file, values.data(), width, 1, type)) << diagnostic();
        return toHex(bytesOf(*file));
    };
    // Header, pixels, then the directory with its long values behind it.
    const std::string software = "5465736E6F72696B00";  // "Tesnorik"
    EXPECT_EQ(saved("\x01\x02\x03\x04", 2, EDataType::uint16),
              toHex(fromHex("4949 2A00 0C000000 01020304 0B00"
                            "0001 0300 01000000 02000000 0101 0300 01000000 01000000 0201 0300 01000000 10000000"
                            "0301 0300 01000000 01000000 0601 0300 01000000 01000000 1101 0400 01000000 08000000 1201 "
                            "0300 01000000 01000000"
                            "1501 0300 01000000 01000000 1701 0400 01000000 04000000 1C01 0300 01000000 01000000"
                            "3101 0200 09000000 96000000 00000000" +
                            software)));
    const std::string flt = saved("\x01\x02\x03\x04", 1, EDataType::flt32);
    EXPECT_NE(flt.find(toHex(fromHex("5301 0300 01000000 03000000"))), std::string::npos) << "sample format";
    EXPECT_NE(flt.find(toHex(fromHex("0201 0300 01000000 20000000"))), std::string::npos) << "bits";
    const std::string rgb = saved("\x01\x02\x03", 1, EDataType::rgb24);
    EXPECT_NE(rgb.find(toHex(fromHex("0601 0300 01000000 02000000"))), std::string::npos) << "photometric";
    EXPECT_EQ(rgb.find("53010300"), std::string::npos);
    EXPECT_FALSE(SaveTIFFRaw(memoryFile(""), "1234", 1, 1, EDataType::int32));
}

TEST(TIFF, RawValuesReturn) {
    const TempFolder folder;
    for (const EDataType type : {EDataType::uint16, EDataType::flt32, EDataType::flt64, EDataType::rgb24}) {
        const std::string values = someBytes(7 * 5 * DataTypeSize(type));
        const CString path = folder.path(u"raw.tif");
        ASSERT_TRUE(SaveTIFFRaw(path.c_str(), values.data(), 7, 5, type));
        const auto file = fileSystem().CreateFileW(path.c_str(), CFile::openExisting | CFile::accessRead);
        uint32_t width = 0, height = 0, pages = 0;
        EDataType found = EDataType::none;
        ASSERT_TRUE(GetTIFFInfo(file, width, height, found, pages));
        EXPECT_EQ(std::tuple(width, height, found, pages), std::tuple(7u, 5u, type, 1u));
        std::string back(values.size(), '\0');
        EXPECT_FALSE(LoadTIFFRaw(file, back.data(), static_cast<uint32_t>(back.size() - 1)));
        ASSERT_TRUE(LoadTIFFRaw(file, back.data(), static_cast<uint32_t>(back.size())));
        EXPECT_TRUE(back == values);
    }
}

struct Layout {
    const char* name;
    const char* mode;
    int compression;
    bool tiled;
    bool separate;
    int predictor;
};

void writeTags(TIFF* tif, uint32_t width, uint32_t height, uint32_t bits, uint16_t samples, int compression) {
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, samples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
}

/// A page of 40 by 21 pixels by libtiff itself.
std::string madeTIFF(const TempFolder& folder, const Layout& layout, EDataType type, std::string values) {
    const CString path = folder.path(u"made.tif");
    TIFF* const tif = TIFFOpen(CStringMB(path.c_str()).c_str(), layout.mode);
    const uint16_t samples = type == EDataType::rgb24 ? 3 : 1;
    const uint32_t sampleBytes = DataTypeSize(type) / samples, pixelBytes = DataTypeSize(type);
    writeTags(tif, 40, 21, sampleBytes * 8, samples, layout.compression);
    TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, samples == 1 && sampleBytes > 2 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, layout.separate ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    if (layout.predictor != 0) TIFFSetField(tif, TIFFTAG_PREDICTOR, layout.predictor);
    if (layout.tiled) {
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, 32);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 4);
    }
    const auto at = [&](uint32_t x, uint32_t y, uint32_t s) {
        return values.data() + (size_t{y} * 40 + x) * pixelBytes + s * sampleBytes;
    };
    const uint32_t planes = layout.separate ? samples : 1, unit = layout.separate ? sampleBytes : pixelBytes;
    const uint32_t width = layout.tiled ? 32 : 40, height = layout.tiled ? 16 : 1;
    for (uint16_t plane = 0; plane < planes; ++plane) {
        for (uint32_t top = 0; top < 21; top += height) {
            for (uint32_t left = 0; left < 40; left += width) {
                std::string block(size_t{width} * height * unit, '\0');
                for (uint32_t y = top; y < std::min(top + height, 21u); ++y) {
                    for (uint32_t x = left; x < std::min(left + width, 40u); ++x) {
                        std::memcpy(&block[(size_t{y - top} * width + x - left) * unit], at(x, y, plane), unit);
                    }
                }
                if (layout.tiled) {
                    TIFFWriteTile(tif, block.data(), left, top, 0, plane);
                } else {
                    TIFFWriteScanline(tif, block.data(), top, plane);
                }
            }
        }
    }
    TIFFClose(tif);
    return contents(path);
}

TEST(TIFF, ReadsWhatOthersWrite) {
    const TempFolder folder;
    const Layout layouts[] = {
        {"big-endian strips", "wb", COMPRESSION_NONE, false, false, 0},
        {"deflate, planes", "wl", COMPRESSION_ADOBE_DEFLATE, false, true, 0},
        {"LZW with differences, tiles", "wb", COMPRESSION_LZW, true, false, PREDICTOR_HORIZONTAL},
        {"tiles of planes, BigTIFF", "wl8", COMPRESSION_PACKBITS, true, true, 0},
    };
    for (const Layout& layout : layouts) {
        for (const EDataType type : {EDataType::uint16, EDataType::flt32, EDataType::flt64, EDataType::rgb24}) {
            const std::string values = someBytes(size_t{40} * 21 * DataTypeSize(type));
            const std::string made = madeTIFF(folder, layout, type, values);
            const auto file = memoryFile(made);
            std::string back(values.size(), '\0');
            EXPECT_TRUE(IsTIFF(file)) << layout.name;
            EXPECT_TRUE(LoadTIFFRaw(file, back.data(), static_cast<uint32_t>(back.size()))) << diagnostic();
            EXPECT_TRUE(back == values) << layout.name << static_cast<int>(type);
            if (type != EDataType::rgb24) continue;
            Picture picture;
            ASSERT_TRUE(LoadTIFF(file, picture.bitmap())) << diagnostic();
            for (size_t i = 0; i < values.size(); ++i) {
                const auto x = static_cast<uint32_t>(i / 3 % 40), y = static_cast<uint32_t>(i / 120);
                ASSERT_EQ(picture.at(x, y)[2 - i % 3], static_cast<uint8_t>(values[i])) << layout.name << x << ' ' << y;
            }
        }
    }
}

TEST(TIFF, PicturesReturnAndTurn) {
    Picture picture(3, 2), back;
    const auto file = memoryFile("");
    ASSERT_TRUE(SaveTIFF(picture.handle(), file));
    std::string bytes = bytesOf(*file);
    const size_t orientation = bytes.find(fromHex("1201 0300 01000000")) + 8;
    const char* const turned[] = {
        "000064 050065 0A0066 / 000767 050768 0A0769", "0A0066 050065 000064 / 0A0769 050768 000767",
        "0A0769 050768 000767 / 0A0066 050065 000064", "000767 050768 0A0769 / 000064 050065 0A0066"};
    for (char value = 1; value <= 4; ++value) {
        bytes[orientation] = value;
        ASSERT_TRUE(LoadTIFF(memoryFile(bytes), back.bitmap())) << diagnostic();
        EXPECT_EQ(back.text(), turned[value - 1]) << int{value};
    }
    EXPECT_NE(bytes.find("Tesnorik"), std::string::npos);
}

TEST(TIFF, ALargePictureInOneStripLoads) {
    // 288 MB of black in 280 kB, and the same header in front of fewer bytes than they can be made of.
    constexpr uint32_t width = 8000, height = 6000;
    std::string packed(size_t{1} << 19, '\0');
    z_stream stream = {};
    ASSERT_EQ(deflateInit(&stream, 6), Z_OK);
    const std::string row(size_t{width} * 6, '\0');
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    for (uint32_t y = 0; y < height; ++y) {
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(row.data()));
        stream.avail_in = static_cast<uInt>(row.size());
        ASSERT_EQ(deflate(&stream, y + 1 == height ? Z_FINISH : Z_NO_FLUSH), y + 1 == height ? Z_STREAM_END : Z_OK);
    }
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    const TempFolder folder;
    const CString path = folder.path(u"large.tif");
    for (const size_t size : {packed.size(), size_t{1000}}) {
        TIFF* const tif = TIFFOpen(CStringMB(path.c_str()).c_str(), "w");
        writeTags(tif, width, height, 16, 3, COMPRESSION_ADOBE_DEFLATE);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, height);
        TIFFWriteRawStrip(tif, 0, packed.data(), static_cast<tmsize_t>(size));
        TIFFClose(tif);
        SImageInfo info;
        Picture picture;
        const auto file = fileSystem().CreateFileW(path.c_str(), CFile::openExisting | CFile::accessRead);
        ASSERT_TRUE(GetImageInfo(file, info));
        EXPECT_EQ(info.whole, size == packed.size());
        EXPECT_EQ(LoadTIFF(file, picture.bitmap()), size == packed.size()) << diagnostic();
    }
}

TEST(TIFF, HostileFilesAreRefused) {
    Picture picture;
    uint16_t values[16];
    const auto raw = memoryFile("");
    ASSERT_TRUE(SaveTIFFRaw(raw, values, 4, 4, EDataType::uint16));
    std::string huge = bytesOf(*raw);
    for (const char* tag : {"0001 0300 01000000", "0101 0300 01000000"})
        huge.replace(huge.find(fromHex(tag)) + 8, 2, "\xFF\xFF");
    EXPECT_FALSE(LoadTIFF(memoryFile(huge), picture.bitmap()));
    EXPECT_TRUE(isZeroed(picture.bitmap()));
    EXPECT_TRUE(diagnostic().starts_with("expected the pixels of 65535 by 65535")) << diagnostic();

    std::string circle = bytesOf(*raw);
    const size_t next = circle.find("Tesnorik") - 4;  // the place of the next directory is that of the first
    circle.replace(next, 4, circle.substr(4, 4));
    uint32_t width = 0, height = 0, pages = 0;
    EDataType type;
    EXPECT_TRUE(GetTIFFInfo(memoryFile(circle), width, height, type));
    EXPECT_FALSE(GetTIFFInfo(memoryFile(circle), width, height, type, pages));
    SImageInfo info;
    EXPECT_TRUE(GetImageInfo(memoryFile(circle), info) && LoadTIFF(memoryFile(circle), picture.bitmap()));
    EXPECT_TRUE(!info.whole && info.pages == 1);
    EXPECT_TRUE(GetImageInfo(raw, info) && info.whole);
    EXPECT_FALSE(CMultiPageTIFFFile().Open(memoryFile(circle)));
    EXPECT_FALSE(IsTIFF(memoryFile("II*")));
    EXPECT_FALSE(IsTIFF(memoryFile(fromHex("4D4D 2A00 00000008"))));
}

TEST(MultiPageTIFF, PagesOfDifferentKinds) {
    const TempFolder folder;
    const CString path = folder.path(u"stack.tif");
    const struct {
        uint32_t width, height;
        EDataType type;
    } pages[] = {
        {3, 2, EDataType::uint16}, {1, 9, EDataType::flt64}, {5, 5, EDataType::rgb24}, {4, 1, EDataType::flt32}};
    const auto bytes = [&](size_t i) {
        return std::string(size_t{pages[i].width} * pages[i].height * DataTypeSize(pages[i].type),
                           static_cast<char>('a' + i));
    };
    for (const bool big : {false, true}) {
        CMultiPageTIFFFile stack;
        ASSERT_TRUE(stack.Create(&fileSystem(), path.c_str(), big));
        for (size_t i = 0; i < 4; ++i) {
            if (i == 2) {
                ASSERT_TRUE(stack.OpenToAppend(&fileSystem(), path.c_str())) << diagnostic();
            }
            ASSERT_TRUE(stack.AppendPage(bytes(i).data(), pages[i].width, pages[i].height, pages[i].type))
                << diagnostic();
            ASSERT_EQ(stack.GetPageCount(), i + 1);
            for (size_t back = i + 1; back-- > 0;) {
                std::string read = bytes(back);
                std::fill(read.begin(), read.end(), '\0');
                ASSERT_TRUE(stack.ReadPage(static_cast<uint32_t>(back), read.data(), read.size())) << diagnostic();
                EXPECT_EQ(read, bytes(back));
            }
        }
        EXPECT_TRUE(stack.Close());
        ASSERT_TRUE(stack.Open(&fileSystem(), path.c_str()));
        ASSERT_EQ(stack.GetPageCount(), 4u);
        uint32_t width = 0, height = 0;
        EDataType type = EDataType::none;
        for (uint32_t i = 4; i-- > 0;) {
            ASSERT_TRUE(stack.GetPageInfo(i, width, height, type));
            EXPECT_EQ(std::tuple(width, height, type), std::tuple(pages[i].width, pages[i].height, pages[i].type));
        }
        EXPECT_FALSE(stack.GetPageInfo(4, width, height, type));
        EXPECT_FALSE(stack.AppendPage("1", 1, 1, EDataType::rgb24)) << "opened for reading";
    }
    ASSERT_TRUE(CMultiPageTIFFFile().Create(&fileSystem(), path.c_str()));
    EXPECT_FALSE(fileSystem().FileExists(path.c_str())) << "without a page it is none";
}

TEST(MultiPageTIFF, APageThatFailsLeavesTheOthers) {
    const std::string page = someBytes(600);
    for (uint64_t n = 1; n < 60; ++n) {
        const auto inner = memoryFile("");
        CMultiPageTIFFFile stack;
        ASSERT_TRUE(stack.Create(inner));
        ASSERT_TRUE(stack.AppendPage(page.data(), 20, 10, EDataType::rgb24) && stack.Close());
        const auto faulty = TSharedPtr<FaultyFile>(new FaultyFile(inner));
        if (!stack.OpenToAppend(TSharedPtr<IFile>(faulty))) FAIL() << diagnostic();
        faulty->failAt(n, FaultyFile::Fault::shortens);
        const bool appended = stack.AppendPage(page.data(), 20, 10, EDataType::rgb24);
        const bool struck = faulty->hasFailed();
        stack.Close();
        uint32_t width = 0, height = 0, pages = 0;
        EDataType type;
        ASSERT_TRUE(GetTIFFInfo(inner, width, height, type, pages)) << n << appended << diagnostic();
        EXPECT_EQ(pages, appended ? 2u : 1u) << n;
        if (!struck) return;
    }
    FAIL() << "every append failed";
}

}  // namespace
}  // namespace qv
