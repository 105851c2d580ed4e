#include <gtest/gtest.h>

#include <random>

#include "images/support.h"
#include "qv/memory_file_system.h"
#include "support/faulty_file.h"

namespace qv {
namespace {

using namespace test;

const char16_t* const names[] = {u"a.bmp", u"a.png", u"a.JPG", u"a.jpeg", u"a.Tif", u"a.tiff", u"a.gif", u"none"};
const EImageFormat formats[] = {EImageFormat::bmp,  EImageFormat::png,  EImageFormat::jpeg, EImageFormat::jpeg,
                                EImageFormat::tiff, EImageFormat::tiff, EImageFormat::bmp,  EImageFormat::bmp};

TEST(ImageFile, TheExtensionDecidesAndTheContentsAreKnown) {
    CMemoryFileSystem fs;
    Picture picture(9, 4);
    for (size_t i = 0; i < std::size(names); ++i) {
        ASSERT_TRUE(SaveHBITMAP(picture.handle(), &fs, names[i])) << diagnostic();
        const auto file = fs.CreateFileW(names[i], CFile::openExisting | CFile::accessRead);
        SImageInfo info;
        ASSERT_TRUE(GetImageInfo(file, info));
        EXPECT_TRUE(info.format == formats[i] && info.whole) << i;
        EXPECT_EQ(std::tuple(info.width, info.height, info.bitsPerSample, info.samples, info.pages),
                  std::tuple(9u, 4u, 8u, 3u, 1u));
        EXPECT_TRUE(IsImageFile(&fs, names[i]));
        Picture back;
        ASSERT_TRUE(LoadBitmapW(&fs, names[i], back.bitmap())) << diagnostic();
        EXPECT_EQ(back.text() == picture.text(), formats[i] != EImageFormat::jpeg) << i;
        const HBITMAP handle = LoadHBITMAP(file);
        EXPECT_EQ(GetBitmapBits(handle), 24u);
        ReleaseBitmap(handle);
        EXPECT_EQ(int{IsBMP(file)} + int{IsPNG(file)} + int{IsJPEG(file)} + int{IsTIFF(file)}, 1);
    }
    Picture back(1, 1);
    EXPECT_FALSE(LoadBitmapW(memoryFile("no picture"), back.bitmap()));
    EXPECT_EQ(diagnostic(), "expected a BMP, PNG, JPEG or TIFF picture, found something else (byte 0)");
    EXPECT_TRUE(isZeroed(back.bitmap()));
    EXPECT_EQ(LoadHBITMAP(&fs, u"missing.png"), nullptr);
    // A JPEG is not larger than 65500 pixels either way; what was begun is removed.
    Picture wide(65501, 1);
    EXPECT_FALSE(SaveHBITMAP(wide.handle(), &fs, u"wide.jpg"));
    EXPECT_FALSE(fs.FileExists(u"wide.jpg"));
}

TEST(Bitmap, DepthsAndReferences) {
    const struct {
        uint32_t bits, bytesPerRow;
        std::string row;
        const char* text;
    } cases[] = {{1, 4, "A0", "FFFFFF 000000 FFFFFF"},       {4, 4, "0F80", "000000 FFFFFF 888888"},
                 {8, 4, "00FF80", "000000 FFFFFF 808080"},   {16, 8, "1F00 E003 007C", "FF0000 00FF00 0000FF"},
                 {24, 12, "010203", "010203 000000 000000"}, {32, 12, "010203FF", "010203 000000 000000"}};
    for (const auto& c : cases) {
        SBitmap made, other;
        ASSERT_TRUE(CreateBitmap(3, 1, c.bits, made));
        EXPECT_EQ(made.bytesPerRow, c.bytesPerRow);
        const std::string row = fromHex(c.row);
        std::copy(row.begin(), row.end(), made.pixels);
        ASSERT_TRUE(GetBitmap(made.handle, other));
        DestroyBitmap(made);
        EXPECT_TRUE(isZeroed(made));
        const auto file = memoryFile("");
        ASSERT_TRUE(SavePNG(other.handle, file));  // the other reference keeps it
        DestroyBitmap(other);
        Picture back;
        ASSERT_TRUE(LoadBitmapW(file, back.bitmap()));
        EXPECT_EQ(back.text(), c.text) << c.bits;
    }
    SBitmap none;
    for (const uint32_t bits : {0u, 2u, 64u}) EXPECT_FALSE(CreateBitmap(1, 1, bits, none));
    EXPECT_FALSE(CreateBitmap(0, 1, 24, none));
    EXPECT_FALSE(CreateBitmap(0x7FFFFFFF, 1, 24, none));
}

/// A small picture of each format.
std::vector<std::string> pictures() {
    std::vector<std::string> made;
    Picture picture(23, 17);
    using Save = bool (*)(HBITMAP, const TSharedPtr<IFile>&, const CPropertyArray&);
    const Save saves[] = {SaveBMP, SavePNG, SaveTIFF,
                          [](HBITMAP bitmap, const TSharedPtr<IFile>& file, const CPropertyArray& properties) {
                              return SaveJPEG(bitmap, file, memoryFile(someBytes(300)), properties);
                          }};
    for (const Save save : saves) {
        const auto file = memoryFile("");
        EXPECT_TRUE(save(picture.handle(), file, CPropertyArray()));
        made.push_back(bytesOf(*file));
    }
    return made;
}

TEST(ImageFile, CutAndDamagedFilesDoNoHarm) {
    std::mt19937 random(7);
    for (const std::string& whole : pictures()) {
        for (int round = 0; round < 600; ++round) {
            std::string bytes = whole;
            for (uint32_t flips = random() % 4; flips > 0; --flips) {
                bytes[random() % bytes.size()] = static_cast<char>(random());
            }
            if (random() % 2 == 0) bytes.resize(random() % bytes.size());
            const auto file = memoryFile(bytes), payload = memoryFile("");
            SBitmap bitmap;
            const bool loaded = LoadBitmapW(file, bitmap);
            ASSERT_EQ(isZeroed(bitmap), !loaded);
            DestroyBitmap(bitmap);
            RadiometricJPEG(file, payload);
            if (SRadiometricInfo info; GetRadiometricInfo(file, info)) {
                const auto stripped = memoryFile("");
                ASSERT_TRUE(StripRadiometricJPEG(file, stripped));
                SRadiometricInfo without;
                ASSERT_TRUE(GetRadiometricInfo(stripped, without));
                ASSERT_EQ(without.segments, 0u);
            }
        }
    }
}

TEST(ImageFile, AFileThatFailsAtAnyOperation) {
    const std::vector<std::string> files = pictures();
    for (const std::string& whole : files) {
        Picture right;
        ASSERT_TRUE(LoadBitmapW(memoryFile(whole), right.bitmap()));
        const std::string text = right.text();
        bool struck = true;
        for (uint64_t n = 1; struck; ++n) {
            const TSharedPtr<FaultyFile> faulty(new FaultyFile(memoryFile(whole)));
            faulty->failAt(n, FaultyFile::Fault::fails, true);
            Picture picture;
            const bool loaded = LoadBitmapW(TSharedPtr<IFile>(faulty), picture.bitmap());
            EXPECT_EQ(picture.text(), loaded ? text : "") << n;
            struck = faulty->hasFailed();
        }
    }
    Picture picture(400, 300);
    for (const char16_t* name : names) {
        CMemoryFileSystem fs;
        ASSERT_TRUE(SaveHBITMAP(picture.handle(), &fs, name));
        const TSharedPtr<FaultyFile> full(
            new FaultyFile(fs.CreateFileW(name, CFile::openExisting | CFile::accessRead | CFile::accessWrite)));
        full->limitSize(full->GetSize() / 2);
        full->SetSize(0);
        ClearDiagnostic();
        EXPECT_FALSE(SaveHBITMAP(picture.handle(), TSharedPtr<IFile>(full))) << CStringMB(name).c_str();
        EXPECT_TRUE(LastDiagnostic().IsSet());
    }
}

}  // namespace
}  // namespace qv
