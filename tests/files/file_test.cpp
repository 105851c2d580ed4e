#include "qv/file.h"

#include <algorithm>
#include <cstring>
#include <random>

#include "qv/diagnostic.h"
#include "support.h"
#include "support/slots.h"

namespace qv::test {
namespace {

/// Notes which virtual operation was reached, by its place in the interface.
class Recorder : public IFile {
public:
    char16_t* GetFilename(char16_t* buffer, int) override { return called = 2, buffer; }
    IFileSystem& GetFileSystem() override { return called = 3, fileSystem(); }
    uint32_t Write(const void*, uint32_t) override { return called = 4, 0u; }
    uint32_t Read(void*, uint32_t) override { return called = 5, 0u; }
    int64_t GetSize() override { return called = 6, 0; }
    int64_t GetPosition() override { return called = 7, 0; }
    int64_t Seek(int64_t, uint32_t) override { return called = 8, 0; }
    bool SetSize(int64_t) override { return called = 9, false; }
    void Flush() override { called = 10; }
    void Close() override { called = 11; }
    int called = 0;
};

TEST(IFileInterface, SlotsStandInTheirOrder) {
    // The destructor has two entries in front of these.
    EXPECT_EQ(slotOf(&IFile::GetFilename), 2u);
    EXPECT_EQ(slotOf(&IFile::GetFileSystem), 3u);
    EXPECT_EQ(slotOf(&IFile::Write), 4u);
    EXPECT_EQ(slotOf(&IFile::Read), 5u);
    EXPECT_EQ(slotOf(&IFile::GetSize), 6u);
    EXPECT_EQ(slotOf(&IFile::GetPosition), 7u);
    EXPECT_EQ(slotOf(&IFile::Seek), 8u);
    EXPECT_EQ(slotOf(&IFile::SetSize), 9u);
    EXPECT_EQ(slotOf(&IFile::Flush), 10u);
    EXPECT_EQ(slotOf(&IFile::Close), 11u);
}

// The typed family --------------------------------------------------------------------------------------------------

template <class T>
struct Forms {
    const char* name;
    T value;
    bool (IFile::*put)(T);
    bool (IFile::*get)(T&);
    T (IFile::*getValue)();
    bool (IFile::*skip)();
};

template <class T>
void checkForms(const Forms<T>& forms, bool swaps) {
    SCOPED_TRACE(forms.name);
    Bytes expected(sizeof(T));
    std::memcpy(expected.data(), &forms.value, sizeof(T));
    if (swaps) std::reverse(expected.begin(), expected.end());
    CMemFile file;
    swapFlag(file) = swaps;
    EXPECT_TRUE((file.*forms.put)(forms.value));
    EXPECT_EQ(bytesOf(file), expected);
    file.SeekToBegin();
    T read{};
    EXPECT_TRUE((file.*forms.get)(read));
    EXPECT_EQ(read, forms.value);
    EXPECT_FALSE((file.*forms.get)(read));
    file.SeekToBegin();
    EXPECT_EQ((file.*forms.getValue)(), forms.value);
    file.SeekToBegin();
    EXPECT_TRUE((file.*forms.skip)());
    EXPECT_EQ(file.GetPosition(), int64_t{sizeof(T)});
}

#define QV_FORMS(Name, Type, value) \
    Forms<Type> { #Name, value, &IFile::Put##Name, &IFile::Get##Name, &IFile::Get##Name, &IFile::Skip##Name }

TEST(TypedFamily, EveryMemberRoundTripsInBothByteOrders) {
    for (const bool swaps : {false, true}) {
        checkForms(QV_FORMS(BYTE, uint8_t, 0x9A), swaps);
        checkForms(QV_FORMS(Char, char, 'q'), swaps);
        checkForms(QV_FORMS(Int8, int8_t, -3), swaps);
        checkForms(QV_FORMS(UInt8, uint8_t, 0xFE), swaps);
        checkForms(QV_FORMS(WORD, uint16_t, 0xA1B2), swaps);
        checkForms(QV_FORMS(Short, int16_t, -12345), swaps);
        checkForms(QV_FORMS(Int16, int16_t, 12345), swaps);
        checkForms(QV_FORMS(UInt16, uint16_t, 54321), swaps);
        checkForms(QV_FORMS(DWORD, uint32_t, 0xA1B2C3D4), swaps);
        checkForms(QV_FORMS(Long, int32_t, -123456789), swaps);
        checkForms(QV_FORMS(Int32, int32_t, 123456789), swaps);
        checkForms(QV_FORMS(UInt32, uint32_t, 0xFEDCBA98), swaps);
        checkForms(QV_FORMS(Float, float, 1.5f), swaps);
        checkForms(QV_FORMS(Flt32, float, -0.1f), swaps);
        checkForms(QV_FORMS(QWORD, uint64_t, 0xA1B2C3D4E5F60718), swaps);
        checkForms(QV_FORMS(Int64, int64_t, -5'000'000'000), swaps);
        checkForms(QV_FORMS(UInt64, uint64_t, 5'000'000'000), swaps);
        checkForms(QV_FORMS(Double, double, 3.141592653589793), swaps);
        checkForms(QV_FORMS(Flt64, double, -1e300), swaps);
        checkForms(QV_FORMS(Bool, bool, true), swaps);
    }
}

TEST(TypedFamily, BytesAreThoseOfTheFormat) {
    const GUID guid{0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
    const auto write = [&guid](CMemFile& file) {
        file.PutBYTE(0x01);
        file.PutWORD(0x0203);
        file.PutDWORD(0x04050607);
        file.PutQWORD(0x08090A0B0C0D0E0F);
        file.PutFloat(1.0f);
        file.PutDouble(-2.0);
        file.PutBOOL(7);
        file.PutBool(true);
        file.PutGUID(guid);
    };
    CMemFile little, big;
    write(little);
    swapFlag(big) = true;
    write(big);
    const Bytes littleBytes = {1,                                               // BYTE
                               3,    2,                                         // WORD
                               7,    6,    5,    4,                             // DWORD
                               0xF,  0xE,  0xD,  0xC,  0xB,  0xA,  9,    8,     // QWORD
                               0,    0,    0x80, 0x3F,                          // Float
                               0,    0,    0,    0,    0,    0,    0,    0xC0,  // Double
                               7,    0,    0,    0,    1,                       // BOOL, Bool
                               0x44, 0x33, 0x22, 0x11, 0x66, 0x55, 0x88, 0x77, 1, 2, 3, 4, 5, 6, 7, 8};
    const Bytes bigBytes = {1,                                              //
                            2,    3,                                        //
                            4,    5,    6,    7,                            //
                            8,    9,    0xA,  0xB,  0xC,  0xD,  0xE,  0xF,  //
                            0x3F, 0x80, 0,    0,                            //
                            0xC0, 0,    0,    0,    0,    0,    0,    0,    //
                            0,    0,    0,    7,    1,                      //
                            0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(bytesOf(little), littleBytes);
    EXPECT_EQ(bytesOf(big), bigBytes);
    big.SetPosition(32);
    GUID read;
    EXPECT_TRUE(big.GetGUID(read));
    EXPECT_EQ(read, guid);
    EXPECT_FALSE(big.GetGUID(read));
    EXPECT_EQ(big.GetGUID(), GUID{});
    big.SetPosition(1);
    EXPECT_TRUE(big.SkipGUID());
    EXPECT_EQ(big.GetPosition(), 17);
}

TEST(TypedFamily, BoolsHaveTheirOwnRules) {
    CMemFile file;
    fill(file, "\x02\x01");
    bool value = true;
    EXPECT_TRUE(file.GetBool(value));
    EXPECT_FALSE(value);
    EXPECT_TRUE(file.GetBool());
    int32_t number = 5;
    EXPECT_TRUE(file.GetBOOL(number));  // At the end of the file.
    EXPECT_FALSE(file.GetBool(value));
}

TEST(TypedFamily, NoBytesAreNoCall) {
    Recorder file;
    EXPECT_TRUE(file.ReadBytes(nullptr, 0));
    EXPECT_TRUE(file.WriteBytes(nullptr, 0));
    EXPECT_TRUE(file.ReadArray(nullptr, 0x10000, 0x10000));  // The product is 0 in 32 bits.
    EXPECT_TRUE(file.WriteArray(nullptr, 0, 8));
    EXPECT_EQ(file.called, 0);
}

TEST(TypedArrays, SwappingReversesEachElement) {
    Bytes data(24);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
    for (const uint32_t size : {1u, 2u, 3u, 4u, 8u, 12u}) {
        const auto count = static_cast<uint32_t>(data.size()) / size;
        Bytes expected = data;
        for (auto at = expected.begin(); at != expected.end(); at += size) std::reverse(at, at + size);
        CMemFile file;
        EXPECT_TRUE(file.WriteArray(data.data(), count, size));
        EXPECT_EQ(bytesOf(file), data);
        file.Reset();
        swapFlag(file) = true;
        EXPECT_FALSE(file.WriteArray(data.data(), count, size));
        EXPECT_EQ(bytesOf(file), expected) << size;
        file.SeekToBegin();
        Bytes read(data.size());
        EXPECT_TRUE(file.ReadArray(read.data(), count, size));
        EXPECT_EQ(read, data) << size;
        EXPECT_FALSE(file.ReadArray(read.data(), 1, size));
    }
}

// Characters --------------------------------------------------------------------------------------------------------

TEST(Utf8Characters, AreWrittenInTheClassicForms) {
    struct Row {
        int32_t c;
        Bytes bytes;
    };
    const Row rows[] = {
        {0x41, {0x41}},
        {0x7F, {0x7F}},
        {-1, {0xFF}},
        {0x80, {0xC2, 0x80}},
        {0x7FF, {0xDF, 0xBF}},
        {0x800, {0xE0, 0xA0, 0x80}},
        {0x20AC, {0xE2, 0x82, 0xAC}},
        {0xFFFF, {0xEF, 0xBF, 0xBF}},
        {0x10000, {0xF0, 0x90, 0x80, 0x80}},
        {0x1FFFFF, {0xF7, 0xBF, 0xBF, 0xBF}},
        {0x200000, {0xF8, 0x88, 0x80, 0x80, 0x80}},
        {0x3FFFFFF, {0xFB, 0xBF, 0xBF, 0xBF, 0xBF}},
        {0x4000000, {0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}},
        {0x7FFFFFFF, {0xFD, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF}},
    };
    for (const Row& row : rows) {
        CMemFile file;
        EXPECT_TRUE(file.PutUTF8Character(row.c));
        EXPECT_EQ(bytesOf(file), row.bytes) << std::hex << row.c;
    }
}

TEST(Utf8Characters, ReadingCombinesSignExtendedBytes) {
    struct Row {
        const char* bytes;
        bool works;
        int32_t c;
    };
    const Row rows[] = {
        {"A", true, 0x41},
        {"\xC2\x41", true, 0x80 | 0x41},
        {"\xC2\x80", true, static_cast<int32_t>(0xFFFFFF80)},
        {"\xE2\x01\x02", true, (2 << 12) | (1 << 6) | 2},
        {"\xF7\x01\x02\x03", true, (7 << 18) | (1 << 12) | (2 << 6) | 3},
        {"\xFD\x01\x02\x03\x04\x05", true, (1 << 30) | (1 << 24) | (2 << 18) | (3 << 12) | (4 << 6) | 5},
        {"\x80", false, 0},
        {"\xFE", false, 0},
        {"\xE2\x01", false, 0},
        {"", false, 0},
    };
    for (const Row& row : rows) {
        CMemFile file;
        fill(file, row.bytes);
        int32_t c = 0;
        EXPECT_EQ(file.GetUTF8Character(c), row.works);
        EXPECT_EQ(c, row.c);
        file.SeekToBegin();
        EXPECT_EQ(file.GetUTF8Character(), row.c);
    }
}

// Insert and Remove -------------------------------------------------------------------------------------------------

TEST(InPlaceEditing, FollowsAModel) {
    std::mt19937 random(20240506);
    const auto upTo = [&random](size_t limit) { return static_cast<ptrdiff_t>(random() % (limit + 1)); };
    CMemFile file;
    Bytes model(300);
    for (uint8_t& byte : model) byte = static_cast<uint8_t>(random());
    file.Write(model.data(), static_cast<uint32_t>(model.size()));
    for (int step = 0; step < 2000; ++step) {
        const auto oldSize = static_cast<ptrdiff_t>(model.size());
        const ptrdiff_t position = upTo(model.size()), count = upTo(40);
        if (step % 2 == 0) {
            ASSERT_TRUE(file.Insert(position, count));
            if (position < oldSize) {
                const Bytes tail(model.begin() + position, model.end());
                model.resize(model.size() + static_cast<size_t>(count));
                std::copy(tail.begin(), tail.end(), model.begin() + position + count);
                // Of a gap that reaches past the old end, the part behind it has no old bytes to keep.
                for (ptrdiff_t i = oldSize; i < position + count; ++i) model[static_cast<size_t>(i)] = file.data()[i];
            }
        } else {
            ASSERT_TRUE(file.Remove(position, count));
            const auto first = model.begin() + position;
            model.erase(first, first + std::min(count, oldSize - position));
        }
        ASSERT_EQ(bytesOf(file), model) << step;
    }
}

TEST(InPlaceEditing, StepsGrowWithTheFile) {
    class CountingFile : public CMemFile {
    public:
        uint32_t Read(void* data, uint32_t count) override {
            largest = std::max(largest, count);
            return CMemFile::Read(data, count);
        }
        uint32_t largest = 0;
    };
    struct Row {
        uint32_t size, chunk;
    };
    const Row rows[] = {{0xA00000, 0x80000},   {0xA00001, 0x100000},  {0x1900000, 0x100000},
                        {0x1900001, 0x200000}, {0x3200000, 0x200000}, {0x3200001, 0x500000}};
    for (const Row& row : rows) {
        CountingFile file;
        file.SetSize(row.size);
        // Marks at both sides of each chunk's edge, so that a lost or doubled byte shows.
        for (uint32_t at = row.chunk; at < row.size; at += row.chunk) {
            file.data()[at - 1] = static_cast<uint8_t>(at / row.chunk);
            file.data()[at] = 0xEE;
        }
        const Bytes before = bytesOf(file);
        ASSERT_TRUE(file.Insert(5, 1000));
        EXPECT_EQ(file.largest, row.chunk) << row.size;
        ASSERT_EQ(file.GetSize(), int64_t{row.size} + 1000);
        EXPECT_EQ(std::memcmp(file.data() + 1005, before.data() + 5, before.size() - 5), 0) << row.size;
        ASSERT_TRUE(file.Remove(5, 1000));
        EXPECT_TRUE(bytesOf(file) == before) << row.size;
    }
}

TEST(InPlaceEditing, WhatIsNoGapDoesNothing) {
    const int64_t rows[][2] = {{3, 10}, {0, -1}, {2, -2}, {-1, 1}, {INT64_MIN, 1}, {1, INT64_MAX}, {INT64_MAX, 1}};
    CMemFile file;
    fill(file, "abc");
    for (const auto& [position, count] : rows) {
        EXPECT_TRUE(file.Insert(position, count));
        EXPECT_EQ(textOf(file), "abc") << position << " " << count;
        EXPECT_TRUE(file.Remove(position, count));
        EXPECT_EQ(textOf(file), "abc") << position << " " << count;
    }
}

TEST(InPlaceEditing, AFullDeviceLosesNothing) {
    CMemFile file;
    fill(file, "abcdef");
    file.SetGrow(false);
    ClearDiagnostic();
    EXPECT_TRUE(file.Insert(2, 3));
    EXPECT_EQ(textOf(file), "abcdef");
    EXPECT_TRUE(LastDiagnostic().IsSet());
}

TEST(FileInfo, ComesFromTheFilesOwnFileSystem) {
    const TempFolder folder;
    writeFile(folder.path(u"a.bin"), "12345");
    const TSharedPtr<IFile> file = CFile::Create(folder.path(u"a.bin").c_str(), CFile::accessRead);
    const auto info = file->GetFileInfo();
    EXPECT_EQ(info.type, uint32_t{IFileSystem::typeFile});
    EXPECT_EQ(info.size, 5);
    EXPECT_EQ(CString(info.name), CString(u"a.bin"));
}

}  // namespace
}  // namespace qv::test
