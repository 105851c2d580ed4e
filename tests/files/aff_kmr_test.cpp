// The two container formats with a table of streams: what both do is tested over both.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "qv/aff_file.h"
#include "qv/diagnostic.h"
#include "qv/kmr_file.h"
#include "qv/saf_file.h"
#include "support/faulty_file.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

using CIndex = CAFFFile::CIndex;

// Bytes from hexadecimal digits; `*n` repeats the byte before.
std::string hex(const char* digits) {
    std::string bytes;
    for (const char* at = digits; *at != 0;) {
        if (*at == ' ') {
            ++at;
        } else if (*at == '*') {
            char* end = nullptr;
            bytes.append(std::strtoul(at + 1, &end, 10) - 1, bytes.back());
            at = end;
        } else {
            bytes += static_cast<char>(std::stoi(std::string(at, 2), nullptr, 16));
            at += 2;
        }
    }
    return bytes;
}

/// A disk with one file on it, which may fail and may be protected against writing.
class OneFileDisk : public CFileSystem {
public:
    OneFileDisk() = default;
    explicit OneFileDisk(const std::string& bytes) : inner(memoryFile(bytes)) {}
    TSharedPtr<IFile> CreateFileW(const char16_t*, uint32_t flags) override {
        lastFlags = flags;
        if (isProtected && (flags & CFile::accessWrite) != 0) return nullptr;
        if ((flags & CFile::createTruncate) != 0) inner->SetSize(0);
        inner->SeekToBegin();
        return TSharedPtr<IFile>(&file, TSharedPtr<IFile>::notOwned());
    }
    std::string bytes() const { return bytesOf(*inner); }

    TSharedPtr<IFile> inner = memoryFile("");
    FaultyFile file{inner};
    bool isProtected = false;
    uint32_t lastFlags = 0;
};

bool openWritable(CAFFFile& file, OneFileDisk& disk) { return file.Open(&disk, u"c", false); }
bool openWritable(CKMRFile& file, OneFileDisk& disk) { return file.Open(&disk, u"c", true) && file.ReOpenForWrite(); }

/// Writes at a place of a stream and makes its record say what it has become.
uint32_t write(CIndex& index, int64_t at, const std::string& bytes) {
    index.file.Seek(at, IFile::fromBegin);
    const uint32_t done = index.file.Write(bytes.data(), static_cast<uint32_t>(bytes.size()));
    index.sizeWord = static_cast<uint32_t>(index.size);
    index.count = 1;
    return done;
}

template <class File>
class TableOfStreams : public testing::Test {};
using Formats = testing::Types<CAFFFile, CKMRFile>;
TYPED_TEST_SUITE(TableOfStreams, Formats);

// Bytes --------------------------------------------------------------------------------------------------------------

template <class File>
constexpr bool isAff = std::is_same_v<File, CAFFFile>;

const char affBytes[] =
    "41464600 00*16 00000064 00000040 00000004 00000002 00*16 0000CAFE 00*8 "
    "0102 0003 01020304 00000001 000000C0 00000003 11223344 00000001 00000000 00*96 414243";
const char kmrBytes[] =
    "4B4D5200 00*16 00000064 00000040 00000004 00000002 00*28 "
    "0102 0003 01020304 00000001 000000C0 00000003 11223344 00000007 00000000 00*96 414243";
const char kmrLittleEndian[] =
    "4B4D5200 00*16 64000000 40000000 04000000 02000000 0100 00*26 "
    "0201 0300 04030201 01000000 C0000000 03000000 44332211 07000000 00000000 00*96 414243";
template <class File>
constexpr const char* golden = isAff<File> ? affBytes : kmrBytes;

TYPED_TEST(TableOfStreams, HasTheseBytes) {
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c"));
    EXPECT_EQ(disk.lastFlags, 0x38u);
    ASSERT_EQ(file.CreateIndex(0x0102, 3, 0x01020304, TypeParam::automaticId), 0u);
    CIndex& made = *file.GetIndex(0);
    EXPECT_TRUE(made.file.WriteBytes("ABC", 3));  // AFF: size word and count are both 0, and Save sets them
    made.opaque = 0x11223344;
    if constexpr (isAff<TypeParam>) {
        file.SetUserWord(0xCAFE);
    } else {
        made.count = 7;
    }
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(disk.bytes(), hex(golden<TypeParam>));

    for (const char* const bytes : {golden<TypeParam>, isAff<TypeParam> ? affBytes : kmrLittleEndian}) {
        OneFileDisk other(hex(bytes));
        ASSERT_TRUE(openWritable(file, other));
        CIndex& index = *file.GetIndex(0x0102, 3, 0, 0xFFFFFFFF, 0);
        EXPECT_EQ(index.version, 0x01020304u);
        EXPECT_EQ(index.id, 1u);
        EXPECT_EQ(index.opaque, 0x11223344u);
        EXPECT_EQ(index.getOffset(), 192u);
        EXPECT_EQ(bytesOf(index.file), "ABC");
        EXPECT_EQ(file.GetNextId(), 2u);
        EXPECT_FALSE(swapFlag(*file.GetContainer()));
        EXPECT_TRUE(file.Close());
        EXPECT_EQ(other.bytes(), hex(golden<TypeParam>)) << "what is saved is big-endian";
    }
}

/// A header with a capacity and a table, big-endian, and 40 bytes of data.
std::string image(const char* magic, int version, int capacity, const char* records, uint8_t word = 0) {
    std::string bytes(64, '\0');
    bytes.replace(0, 4, magic, 4);
    bytes[23] = static_cast<char>(version);
    bytes[27] = 64;
    bytes[31] = static_cast<char>(capacity);
    bytes[55] = static_cast<char>(word);
    bytes += hex(records);
    bytes.resize(64 + static_cast<size_t>(capacity) * 32 + 40);
    return bytes;
}

bool openForReading(CAFFFile& file, const TSharedPtr<IFile>& container) { return file.Open(container); }
bool openForReading(CKMRFile& file, const TSharedPtr<IFile>& container) { return file.Open(container, true); }

TYPED_TEST(TableOfStreams, IsReadOrRefused) {
    constexpr bool aff = isAff<TypeParam>;
    const char* const magic = aff ? "AFF\0" : "KMR\0";
    const char* const otherMagic = aff ? "AFFx" : "KMRx";
    const char records[] =
        "0000 FF*30 0001 0002 00000003 00000004 000000C0 0000000A 00000000 00000003 00000000 "
        "0001 0002 00000003 00000005 000000C0 0000000A 00000000 00000000 00000000";
    const std::string whole = image(magic, 100, 4, records);
    const struct {
        const char* what;
        std::string bytes;
        int streams;  // -1: refused
    } rows[] = {
        {"whole", whole, 2},
        {"other fourth byte", image(otherMagic, 100, 4, records), -1},
        {"100 slots", image(magic, 100, 100, records), 2},
        {"101 slots", image(magic, 100, 101, records), -1},
        {"another version", image(magic, 7, 4, records), 2},
        {"cut behind the offset of the second record", whole.substr(0, 64 + 32 + 16), 1},
        {"cut inside the header", whole.substr(0, 30), 0},
        {"empty", "", -1},
    };
    for (const auto& row : rows) {
        TypeParam file;
        EXPECT_EQ(openForReading(file, memoryFile(row.bytes)), row.streams >= 0) << row.what;
        EXPECT_EQ(static_cast<int>(file.nIndices()), std::max(row.streams, 0)) << row.what;
        EXPECT_TRUE(file.IsReadOnly());
        if (row.streams < 2) continue;
        EXPECT_EQ(file.GetIndex(0)->size, aff ? 30 : 10) << row.what;  // three elements
        EXPECT_EQ(file.GetIndex(1)->size, 10) << row.what;             // 0 count as one
    }
}

TEST(KmrFile, TellsTheEndOfItsDataFromVersion101On) {
    const char records[] = "0001 0002 00000003 00000004 000000C0 0000000A";
    for (const int version : {100, 101}) {
        CKMRFile kmr;
        ASSERT_TRUE(kmr.Open(memoryFile(image("KMR\0", version, 4, records, 250)), true));
        EXPECT_EQ(kmr.GetDataEnd(), version == 101 ? 250 : 202);
    }
}

TEST(Saving, PutsTheUsedRecordsFirst) {
    OneFileDisk disk(image("KMR\0", 100, 4, "00*32 0001 0002 00000003 00000004 000000C0 0000000A 00*12"));
    CKMRFile kmr;
    ASSERT_TRUE(openWritable(kmr, disk) && kmr.Close());
    EXPECT_EQ(disk.bytes().substr(64, 128), hex("0001 0002 00000003 00000004 000000C0 0000000A 00*108"));
}

// Streams -------------------------------------------------------------------------------------------------------------

TYPED_TEST(TableOfStreams, TheFifthMovesTheStreamsAlone) {
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c"));
    const struct {
        uint32_t id, got, next;
    } rows[] = {{7, 7, 8}, {3, 3, 8}, {TypeParam::automaticId, 8, 9}, {9, 9, 10}};
    for (uint32_t i = 0; i < 4; ++i) {
        ASSERT_EQ(file.CreateIndex(1, 2, i, rows[i].id), i);
        EXPECT_EQ(file.GetIndex(i)->id, rows[i].got);
        EXPECT_EQ(file.GetNextId(), rows[i].next);
        ASSERT_EQ(write(*file.GetIndex(i), 0, std::string(10, static_cast<char>('a' + i))), 10u);
    }
    const std::string before = disk.bytes();
    ASSERT_EQ(file.CreateIndex(1, 2, 4, TypeParam::automaticId), 4u);
    EXPECT_EQ(disk.bytes().substr(320), before.substr(192));
    EXPECT_EQ(file.GetIndexOffset(), 64u);
    EXPECT_EQ(file.GetIndexCapacity(), 8u);
    for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(file.GetIndex(i)->getOffset(), 320 + 10 * i);

    for (const auto& [start, found] : {std::pair(0u, 1u), {3u, 3u}, {4u, TypeParam::notFound}}) {
        EXPECT_EQ(file.FindIndex(1, 2, 1, 3, start), found);
    }
    EXPECT_EQ(file.GetIndex(2, 2, 0, 9, 0), nullptr);
}

TYPED_TEST(TableOfStreams, StreamsThatWereEmptiedStayClearOfEachOther) {
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c"));
    for (int i = 0; i < 3; ++i) {
        CIndex* const index = file.GetIndex(file.CreateIndex(1, 0, 100, CAFFFile::automaticId));
        ASSERT_TRUE(index->GetFile()->WriteBytes(std::string(300, 'a').data(), 300));
    }
    for (uint32_t i = 0; i < 3; ++i) ASSERT_TRUE(file.GetIndex(i)->GetFile()->SetSize(0)) << i;
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_GE(file.GetIndex(i)->getOffset(), file.GetTableEnd());
        const std::string text(10 + i, static_cast<char>('x' + i));
        file.GetIndex(i)->GetFile()->SetPosition(0);
        ASSERT_TRUE(file.GetIndex(i)->GetFile()->WriteBytes(text.data(), 10 + i)) << i;
    }
    for (uint32_t i = 0; i < 3; ++i) {
        std::string text(10 + i, '?');
        file.GetIndex(i)->GetFile()->SetPosition(0);
        ASSERT_TRUE(file.GetIndex(i)->GetFile()->ReadBytes(text.data(), 10 + i));
        EXPECT_EQ(text, std::string(10 + i, static_cast<char>('x' + i)));
    }
}

TYPED_TEST(TableOfStreams, AHundredAndFirstIsOneTooMany) {
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c"));
    for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(file.CreateIndex(1, 1, 1, i), i);
    ASSERT_TRUE(file.Close() && openWritable(file, disk));
    ASSERT_EQ(file.CreateIndex(1, 1, 1, 1), 100u);
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(openWritable(file, disk));
}

/// Any order of operations leaves the streams that a list of strings says.
TYPED_TEST(TableOfStreams, FollowsAModel) {
    std::mt19937 random(20240611);
    const auto upTo = [&random](size_t limit) { return static_cast<uint32_t>(random() % (limit + 1)); };
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c"));
    std::vector<std::string> model;
    for (int step = 0; step < 3000; ++step) {
        const uint32_t stream = model.empty() ? 0 : upTo(model.size() - 1);
        CIndex* const index = file.GetIndex(stream);
        switch (upTo(9)) {
            case 0:
                if (model.size() >= 20) break;
                ASSERT_EQ(file.CreateIndex(1, 1, 1, TypeParam::automaticId), model.size());
                model.emplace_back();
                break;
            case 1:
                if (index == nullptr || upTo(1) == 0) break;
                ASSERT_TRUE(file.RemoveIndex(stream));
                model.erase(model.begin() + stream);
                break;
            case 2:  // sets the flags back, saves, reads all again
                ASSERT_TRUE(upTo(1) == 0 ? file.Close() : file.Save());
                ASSERT_TRUE(openWritable(file, disk));
                ASSERT_EQ(file.nIndices(), model.size());
                break;
            case 3:
                if (index == nullptr) break;
                model[stream].resize(upTo(model[stream].size()));
                ASSERT_TRUE(index->file.SetSize(static_cast<int64_t>(model[stream].size())));
                write(*index, 0, "");
                break;
            default:
                if (index == nullptr) break;
                const uint32_t at = upTo(model[stream].size());
                const std::string bytes(upTo(60), static_cast<char>(random()));
                ASSERT_EQ(write(*index, at, bytes), bytes.size());
                model[stream].replace(at, std::min(bytes.size(), model[stream].size() - at), bytes);
        }
        for (uint32_t i = 0; i < model.size(); ++i) ASSERT_EQ(bytesOf(file.GetIndex(i)->file), model[i]) << step;
    }
    size_t bytes = 0;
    for (const std::string& stream : model) bytes += stream.size();
    EXPECT_EQ(disk.bytes().size(), 64 + file.GetIndexCapacity() * 32 + bytes) << "nothing overlaps, nothing is wasted";
}

TYPED_TEST(TableOfStreams, AStreamIsAFileWithOnePosition) {
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c") && file.CreateIndex(1, 1, 1, 1) == 0 && file.CreateIndex(1, 1, 1, 2) == 1);
    write(*file.GetIndex(1), 0, "behind");
    IFile& stream = file.GetIndex(0)->file;
    write(*file.GetIndex(0), 0, "0123456789");
    const struct {
        int64_t offset;
        uint32_t origin;
        int64_t position;
    } seeks[] = {{4, 1, 4}, {-2, 2, 2}, {-3, 3, 7}, {1, 0, 7}, {-99, 2, 0}, {100, 3, 110}, {INT64_MAX, 2, INT64_MAX}};
    for (const auto& seek : seeks) EXPECT_EQ(stream.Seek(seek.offset, seek.origin), seek.position);
    char byte = 0;
    EXPECT_EQ(stream.Read(&byte, 1), 0u);
    EXPECT_EQ(stream.Write(&byte, 1), 0u);
    EXPECT_EQ(file.GetIndex(0)->GetFile()->GetPosition(), INT64_MAX);
    for (const int64_t size : {int64_t{-1}, INT64_MIN}) EXPECT_FALSE(stream.SetSize(size));
    EXPECT_FALSE(stream.SetSize(10 + 0x100000000));
    EXPECT_FALSE(stream.SetSize(0xFFFFFFFF)) << "the stream behind it would have no offset";
    EXPECT_EQ(file.GetIndex(0)->file.GetType(), 0xFFFFFFFFu);
    EXPECT_EQ(bytesOf(stream), "0123456789");
    EXPECT_EQ(bytesOf(file.GetIndex(1)->file), "behind");
}

TYPED_TEST(TableOfStreams, ASafHeaderInAStreamIsEditedInPlace) {
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c") && file.CreateIndex(1, 1, 1, 1) == 0 && file.CreateIndex(1, 1, 1, 2) == 1);
    write(*file.GetIndex(1), 0, "behind");
    std::string expected;
    for (const bool inStream : {false, true}) {
        const TSharedPtr<IFile> target = inStream ? file.GetIndex(0)->GetFile() : memoryFile("");
        const std::string whole = "HdSize auto\r\nCamera MW1\r\nDATA\r\n12345678";
        target->WriteBytes(whole.data(), static_cast<uint32_t>(whole.size()));
        target->SeekToBegin();
        CSAFFile header;
        ASSERT_TRUE(header.Load(target));
        uint32_t position = header.GetDataPosition();
        for (const char16_t* const camera : {u"MW2, north window", u"MW3"}) {  // moves the data, is absorbed
            header[u"Camera"] = camera;
            ASSERT_TRUE(header.Update(target, position, true));
        }
        if (!inStream) expected = bytesOf(*target);
    }
    EXPECT_EQ(bytesOf(file.GetIndex(0)->file), expected);
    EXPECT_GT(expected.size(), 2048u);
    EXPECT_EQ(expected.substr(expected.size() - 8), "12345678");
    EXPECT_EQ(bytesOf(file.GetIndex(1)->file), "behind");
}

TYPED_TEST(TableOfStreams, ACopyIsAReadOnlyViewOfItsOwn) {
    OneFileDisk disk;
    TypeParam file;
    ASSERT_TRUE(file.Create(&disk, u"c") && file.CreateIndex(1, 1, 1, 1) == 0);
    write(*file.GetIndex(0), 0, "bytes");
    const std::string unsaved = disk.bytes();
    {
        const TypeParam copy(file);
        EXPECT_TRUE(copy.IsReadOnly());
        EXPECT_EQ(bytesOf(copy.GetIndex(0)->file), "bytes");
        EXPECT_FALSE(copy.GetIndex(0)->file.SetSize(2));
        TypeParam assigned;
        assigned = copy;
        EXPECT_EQ(assigned.CreateIndex(1, 1, 1, 1), TypeParam::notFound);
    }
    EXPECT_EQ(disk.bytes(), unsaved);
    EXPECT_EQ(bytesOf(file.GetIndex(0)->file), "bytes");
}

// States --------------------------------------------------------------------------------------------------------------

TYPED_TEST(TableOfStreams, WithoutWriteAccessReadsGoOn) {
    OneFileDisk disk(hex(golden<TypeParam>));
    TypeParam file;
    ASSERT_TRUE(file.Open(&disk, u"c", true));
    EXPECT_EQ(disk.lastFlags, 0x12u);
    disk.isProtected = true;
    EXPECT_FALSE(file.ReOpenForWrite());
    EXPECT_TRUE(file.IsReadOnly());
    EXPECT_EQ(bytesOf(file.GetIndex(0)->file), "ABC");
    disk.isProtected = false;
    EXPECT_TRUE(file.ReOpenForWrite());
    EXPECT_EQ(disk.lastFlags, 0x32u);
    EXPECT_FALSE(file.IsReadOnly());
    EXPECT_TRUE(file.ReOpenForRead());
    EXPECT_EQ(disk.lastFlags, 0x12u);
    EXPECT_TRUE(file.IsReadOnly());
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(file.ReOpenForWrite());
}

TEST(States, OfAFileThatIsNotOpenedByPath) {
    CAFFFile aff;
    ASSERT_TRUE(aff.Open(memoryFile(hex(affBytes))));
    EXPECT_TRUE(aff.ReOpenForRead());
    EXPECT_FALSE(aff.ReOpenForWrite());
    CKMRFile kmr;
    ASSERT_TRUE(kmr.Open(memoryFile(hex(kmrBytes)), false));
    EXPECT_FALSE(kmr.IsReadOnly());
    EXPECT_TRUE(kmr.ReOpenForRead());
    EXPECT_TRUE(kmr.ReOpenForWrite());
    EXPECT_TRUE(kmr.Create(memoryFile("what was there")));
    EXPECT_EQ(kmr.GetContainer()->GetSize(), 192);
    OneFileDisk disk(hex(kmrBytes));
    EXPECT_TRUE(CKMRFile().Open(&disk, u"c", false));
    EXPECT_EQ(disk.lastFlags, 0x12u) << "the access is chosen by the state before the call";
}

// Damage and faults ---------------------------------------------------------------------------------------------------

/// No record makes anything larger than the file, and none destroys the header or the table.
TEST(Damage, StreamsThatLieWhereTheyCannot) {
    struct Row {
        const char* record;  // offset and size
        int64_t bytes;       // what the stream gives
        bool grows, shrinks;
    };
    const Row rows[] = {
        {"000000C0 00000028", 40, true, true},     // the whole of the data
        {"000000C0 00000029", 40, false, true},    // one byte more than there is
        {"000000E8 FFFFFFFF", 0, false, true},     // at the end
        {"FFFFFFF0 00000010", 0, false, true},     // behind it
        {"00000000 00000020", 32, false, false},   // the header
        {"00000040 00000010", 16, false, false},   // the table
        {"00000000 FFFFFFFF", 232, false, false},  // everything
        {"000000A0 00000020", 32, true, false},    // its last slot
    };
    for (const Row& row : rows) {
        const std::string record = std::string("0001 0001 00000001 00000001 ") + row.record + "00*12";
        const std::string whole = image("KMR\0", 100, 4, record.c_str());
        const TSharedPtr<IFile> container = memoryFile(whole);
        CKMRFile kmr;
        ASSERT_TRUE(kmr.Open(container, false));
        IFile& stream = kmr.GetIndex(0)->file;
        const int64_t stated = kmr.GetIndex(0)->size;
        EXPECT_EQ(stream.GetSize(), row.bytes) << row.record;
        EXPECT_EQ(static_cast<int64_t>(bytesOf(stream).size()), row.bytes);
        EXPECT_EQ(stream.SetSize(stated + 1), row.grows) << row.record;
        EXPECT_LE(container->GetSize(), 233);
        stream.Seek(stated - 1, IFile::fromBegin);
        (void)stream.Write("x", 1);
        EXPECT_LE(container->GetSize(), 233);
        EXPECT_EQ(stream.SetSize(1), row.shrinks) << row.record;
        EXPECT_LE(container->GetSize(), 233);
    }
    for (const char* const offset : {"00000020", "FFFFFFF0"}) {  // the table in the header, behind the end
        const std::string whole = image("KMR\0", 100, 4, "").replace(24, 4, hex(offset));
        const TSharedPtr<IFile> container = memoryFile(whole);
        CKMRFile kmr;
        ASSERT_TRUE(kmr.Open(container, false));
        EXPECT_EQ(kmr.CreateIndex(1, 1, 1, 1), CKMRFile::notFound);
        EXPECT_FALSE(kmr.Close());
        EXPECT_EQ(bytesOf(*container), whole);
    }
}

TEST(Damage, ATableBehindAStreamMovesOrStops) {
    std::string bytes = image("KMR\0", 100, 1, "64*32 0001 0001 00000001 00000001 00000040 00000020 00*12");
    bytes[27] = 96;
    const TSharedPtr<IFile> container = memoryFile(bytes);
    CKMRFile kmr;
    ASSERT_TRUE(kmr.Open(container, false));
    EXPECT_FALSE(kmr.GetIndex(0)->file.SetSize(33)) << "the table would stay, and lie over the stream";
    EXPECT_TRUE(kmr.GetIndex(0)->file.SetSize(10));
    EXPECT_EQ(kmr.GetIndexOffset(), 74u);
    EXPECT_TRUE(kmr.Close() && kmr.Open(container, true));
    EXPECT_EQ(bytesOf(kmr.GetIndex(0)->file), std::string(10, 'd'));
}

struct Outcome {
    bool opened = false, grew = false, shrank = false, closed = false;
    uint32_t created = 0;
};

const std::string streamA(100, 'A'), streamB(300, 'B'), streamC(50, 'C'), more(40, 'm');

/// Three streams; then one grows, one shrinks, two are added, for which the table has to grow.
template <class File>
std::string threeStreams() {
    OneFileDisk disk;
    File file;
    EXPECT_TRUE(file.Create(&disk, u"c"));
    for (const std::string* stream : {&streamA, &streamB, &streamC}) {
        write(*file.GetIndex(file.CreateIndex(1, 1, 1, 1)), 0, *stream);
    }
    EXPECT_TRUE(file.Close());
    return disk.bytes();
}

template <class File>
Outcome change(OneFileDisk& disk) {
    Outcome outcome;
    File file;
    outcome.opened = openWritable(file, disk);
    if (!outcome.opened) return outcome;
    outcome.grew = write(*file.GetIndex(1), 300, more) == more.size();
    outcome.shrank = file.GetIndex(0)->file.SetSize(60);
    write(*file.GetIndex(0), 0, "");
    for (int i = 0; i < 2; ++i) {
        const uint32_t position = file.CreateIndex(2, 1, 1, 9);
        if (position == File::notFound) continue;
        outcome.created += write(*file.GetIndex(position), 0, more) == more.size() ? 1 : 0;
    }
    outcome.closed = file.Close();
    return outcome;
}

/// What was there is there, and what was reported as done is done.
template <class File>
void expectWhole(const std::string& bytes, const Outcome& outcome) {
    OneFileDisk disk(bytes);
    File file;
    ASSERT_TRUE(file.Open(&disk, u"c", true));
    ASSERT_GE(file.nIndices(), 3u);
    const std::string a = bytesOf(file.GetIndex(0)->file), b = bytesOf(file.GetIndex(1)->file);
    EXPECT_EQ(a.substr(0, 60), streamA.substr(0, 60));
    EXPECT_EQ(a.size(), outcome.shrank ? 60u : 100u);
    EXPECT_EQ(b.substr(0, 300), streamB);
    EXPECT_TRUE(!outcome.grew || b == streamB + more);
    EXPECT_EQ(bytesOf(file.GetIndex(2)->file), streamC);
    uint32_t created = 0;
    for (uint32_t i = 3; i < file.nIndices(); ++i) created += bytesOf(file.GetIndex(i)->file) == more ? 1 : 0;
    EXPECT_EQ(created, outcome.created);
}

TYPED_TEST(TableOfStreams, AFaultInAnyOperationLosesNothing) {
    const std::string before = threeStreams<TypeParam>();
    for (const FaultyFile::Fault fault : FaultyFile::faults) {
        for (uint64_t n = 1;; ++n) {
            SCOPED_TRACE(testing::Message() << "operation " << n << ", fault " << static_cast<int>(fault));
            OneFileDisk disk(before);
            disk.file.failAt(n, fault);
            const Outcome outcome = change<TypeParam>(disk);
            if (outcome.opened) {
                EXPECT_TRUE(outcome.closed);  // a second attempt goes through
                expectWhole<TypeParam>(disk.bytes(), outcome);
            } else {
                EXPECT_EQ(disk.bytes(), before);
            }
            if (testing::Test::HasFailure()) return;
            if (disk.file.hasFailed()) continue;
            EXPECT_TRUE(outcome.grew && outcome.shrank && outcome.created == 2);
            EXPECT_GT(n, 20u);
            break;
        }
    }
}

TYPED_TEST(TableOfStreams, AFullDiskLosesNothing) {
    const std::string before = threeStreams<TypeParam>();
    for (int64_t room = 0; room <= 260; room += 4) {
        SCOPED_TRACE(room);
        OneFileDisk disk(before);
        disk.file.limitSize(static_cast<int64_t>(before.size()) + room);
        const Outcome outcome = change<TypeParam>(disk);
        EXPECT_TRUE(outcome.closed);
        expectWhole<TypeParam>(disk.bytes(), outcome);
        EXPECT_EQ(outcome.grew, room >= 40);
    }
}

TYPED_TEST(TableOfStreams, AFailureIsReported) {
    OneFileDisk disk;
    TypeParam file;
    disk.file.limitSize(100);
    EXPECT_FALSE(file.Create(&disk, u"c"));
    EXPECT_FALSE(file.IsOpen());
    disk.file.limitSize(INT64_MAX);
    ASSERT_TRUE(file.Create(&disk, u"c"));
    disk.file.failAt(1, FaultyFile::Fault::fails, true);
    ClearDiagnostic();
    EXPECT_EQ(file.Save(), false);
    EXPECT_TRUE(LastDiagnostic().IsSet());
    EXPECT_FALSE(file.Close());
}

}  // namespace
}  // namespace qv::test
