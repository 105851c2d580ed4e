#include "qv/gz_file.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <random>
#include <string>

#include "qv/diagnostic.h"
#include "qv/file_stream.h"
#include "support/faulty_file.h"
#include "support/memory_file.h"

namespace qv {
namespace {

using test::bytesOf;
using test::memoryFile;
using State = CGZFile::State;

/// A text that compresses to more than one buffer of 16384 bytes.
std::string longText(size_t length) {
    std::mt19937 random(7);
    std::string text(length, '\0');
    for (char& c : text) c = static_cast<char>(random() % 32 + (random() % 4 == 0 ? 200 : 0));
    return text;
}

/// `flagsByte` 8 adds a name to the header.
std::string gzip(const std::string& text, bool named = false) {
    std::string result(text.size() + text.size() / 100 + 200, '\0');
    z_stream z = {};
    deflateInit2(&z, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    gz_header header = {};
    Bytef name[] = "name";
    header.name = name;
    if (named) deflateSetHeader(&z, &header);
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    z.avail_in = static_cast<uInt>(text.size());
    z.next_out = reinterpret_cast<Bytef*>(result.data());
    z.avail_out = static_cast<uInt>(result.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    result.resize(z.total_out);
    deflateEnd(&z);
    return result;
}

std::string wrapped(const std::string& text, bool swap = false) {
    const TSharedPtr<IFile> inner = memoryFile("");
    swapFlag(*inner) = swap;
    CGZFile file(inner, CFile::accessWrite);
    EXPECT_EQ(file.GetState(), State::writing);
    for (size_t at = 0; at < text.size(); at += 10000) {
        const std::string part = text.substr(at, 10000);
        EXPECT_TRUE(file.WriteBytes(part.data(), static_cast<uint32_t>(part.size())));
    }
    EXPECT_EQ(file.Seek(0, IFile::fromBegin), static_cast<int64_t>(text.size()));
    EXPECT_EQ(file.GetSize(), static_cast<int64_t>(text.size()));
    file.Close();
    EXPECT_EQ(file.Write("x", 1), 0u);
    return bytesOf(*inner);
}

TEST(GZFile, TheWrapperIsThatOfTheFormat) {
    const std::string magic("TGZF\0\0", 6), size("\3\0\0\0\0\0\0\0", 8);
    std::string zlib(64, '\0');
    uLongf length = zlib.size();
    ASSERT_EQ(compress2(reinterpret_cast<Bytef*>(zlib.data()), &length, reinterpret_cast<const Bytef*>("abc"), 3, -1),
              Z_OK);
    zlib.resize(length);
    EXPECT_EQ(wrapped("abc"), magic + size + zlib);
    EXPECT_EQ(wrapped("abc", true), magic + std::string(size.rbegin(), size.rend()) + zlib);
}

TEST(GZFile, ReadsWhatItWroteAndGzipFromAnywhere) {
    const std::string text = longText(100'000);
    for (const std::string& compressed : {wrapped(text), gzip(text), text}) {
        CGZFile file(memoryFile(compressed), CFile::accessRead);
        EXPECT_EQ(file.GetState(), compressed == text ? State::raw : State::reading);
        EXPECT_EQ(file.GetSize(), 100'000);
        std::string read(text.size() + 5, '\0');
        EXPECT_EQ(file.Read(read.data(), 40'000), 40'000u);
        EXPECT_EQ(file.Read(read.data() + 40'000, 70'000), 60'000u);
        EXPECT_EQ(read.substr(0, text.size()), text);
        std::mt19937 random(3);
        for (int i = 0; i < 20; ++i) {
            const int64_t at = static_cast<int64_t>(random() % text.size());
            const int64_t now = file.Seek(at, IFile::fromBegin);
            EXPECT_EQ(now, compressed == text ? 0 : at);
            EXPECT_EQ(file.GetBYTE(), static_cast<uint8_t>(text[static_cast<size_t>(at)]));
        }
        EXPECT_EQ(file.Write("x", 1), compressed == text ? 1u : 0u);
    }
    CGZFile file(memoryFile(wrapped(text)), CFile::accessRead);
    EXPECT_EQ(file.Seek(-1, IFile::fromEnd), 99'999);
    EXPECT_EQ(file.Seek(5, IFile::fromEnd), 100'000);
    EXPECT_EQ(file.Seek(INT64_MAX, IFile::fromEnd), 100'000);
    EXPECT_EQ(file.Seek(-200'000, IFile::fromCurrent), 0);
    EXPECT_EQ(file.Seek(1, 9), 0);
}

TEST(GZFile, ItsStateFollowsFlagsAndContent) {
    const struct {
        std::string content;
        uint32_t flags;
        State state;
    } rows[] = {
        {"", CFile::accessWrite, State::writing},
        {"x", CFile::accessWrite, State::unset},
        {"", CFile::accessRead, State::unset},
        {"x", CFile::accessRead | CFile::accessWrite, State::unset},
        {"x", 0, State::unset},
        {"x", CFile::accessRead, State::raw},
        {"TGZ", CFile::accessRead, State::raw},
        {"TGZF", CFile::accessRead, State::reading},
        {gzip("named", true), CFile::accessRead, State::raw},
        {gzip("plain"), CFile::accessRead, State::reading},
    };
    for (const auto& row : rows) {
        const TSharedPtr<IFile> inner = memoryFile(row.content);
        CGZFile file(inner, row.flags);
        EXPECT_EQ(file.GetState(), row.state) << row.content;
        if (row.state == State::raw) {
            EXPECT_EQ(file.GetBYTE(), static_cast<uint8_t>(row.content[0]));
        }
        if (row.state == State::unset) {
            EXPECT_EQ(file.Write("abc", 3), 0u);
            EXPECT_EQ(file.GetSize(), 0);
            EXPECT_EQ(bytesOf(*inner), row.content);
        }
    }
    CGZFile nothing(TSharedPtr<IFile>(), CFile::accessRead);
    EXPECT_EQ(nothing.GetState(), State::unset);
    nothing.Flush();
}

TEST(GZFile, DamageGivesAShortCount) {
    const std::string text = longText(50'000);
    const std::string zlib = wrapped(text), gz = gzip(text), members = gz + gzip("second");
    std::string larger = zlib, negative = zlib, bent = zlib;
    larger[9] = 1;
    negative[13] = static_cast<char>(0x80);
    bent[20'000] = static_cast<char>(bent[20'000] + 1);
    for (const std::string& damaged :
         {larger, bent, zlib.substr(0, 20'000), zlib.substr(0, 14), gz.substr(0, 30'000)}) {
        CGZFile file(memoryFile(damaged), CFile::accessRead);
        std::string read(text.size(), '\0');
        const uint32_t got = file.Read(read.data(), static_cast<uint32_t>(read.size()));
        EXPECT_EQ(file.GetPosition(), got);
        EXPECT_TRUE(damaged == bent || text.starts_with(read.substr(0, got)));
        EXPECT_TRUE(damaged != larger || got == text.size());
        EXPECT_EQ(file.Read(read.data(), 1), 0u);
        EXPECT_LE(file.Seek(0, IFile::fromEnd), static_cast<int64_t>(text.size()));
    }
    EXPECT_EQ(CGZFile(memoryFile(negative), CFile::accessRead).GetSize(), 0);
    CGZFile first(memoryFile(members), CFile::accessRead);
    EXPECT_EQ(first.GetSize(), 6);
    EXPECT_EQ(first.Seek(0, IFile::fromEnd), 6);
}

TEST(GZFile, AFullInnerFileLeavesTheSizeZero) {
    struct Full : CMemFile {
        uint32_t Write(const void* data, uint32_t count) override {
            return CMemFile::Write(data, std::min(count, 20'000 - std::min(20'000u, size())));
        }
    };
    const TSharedPtr<IFile> inner(new Full);
    const std::string text = longText(100'000);
    {
        CGZFile file(inner, CFile::accessWrite);
        ASSERT_EQ(file.GetState(), State::writing);
        EXPECT_LT(file.Write(text.data(), 100'000), 100'000u);
        EXPECT_EQ(file.Write("x", 1), 0u);
    }
    EXPECT_EQ(bytesOf(*inner).substr(6, 8), std::string(8, '\0'));
}

TEST(GZFile, AnInnerFileThatFailsIsToldOf) {
    const std::string text = longText(50'000);
    for (uint64_t n = 1, done = n; n <= done; ++n) {
        const TSharedPtr<IFile> inner = memoryFile("");
        test::FaultyFile faulty(inner);
        faulty.failAt(n, test::FaultyFile::Fault::fails);
        ClearDiagnostic();
        CGZFile(TSharedPtr<IFile>(&faulty, TSharedPtr<IFile>::notOwned()), CFile::accessWrite)
            .Write(text.data(), 50'000);
        done = faulty.operations();
        std::string read(text.size(), '\0');
        CGZFile back(inner, CFile::accessRead);
        EXPECT_TRUE(LastDiagnostic().IsSet() || (back.Read(read.data(), 50'000) == 50'000 && read == text)) << n;
    }
}

TEST(FileStream, ShowsAFileAsAComponent) {
    EXPECT_FALSE(CreateFileStream(TSharedPtr<IFile>()));
    const TSharedPtr<IFile> file = memoryFile("hello");
    const TCOMPtr<IStream> stream = CreateFileStream(file);
    uint64_t position = 0;
    uint32_t count = 0;
    EXPECT_EQ(stream->Seek(-2, 2, &position), S_OK);
    EXPECT_EQ(position, 3u);
    EXPECT_EQ(stream->Seek(0, 3, nullptr), E_INVALIDARG);
    char two[3] = {};
    EXPECT_EQ(stream->Read(two, 3, &count), S_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(std::string(two), "lo");
    EXPECT_EQ(stream->Write("!", 1, nullptr), S_OK);
    EXPECT_EQ(stream->SetSize(4), S_OK);
    EXPECT_EQ(stream->SetSize(UINT64_MAX), E_FAIL);
    EXPECT_EQ(stream->Clone(nullptr), E_NOTIMPL);
    EXPECT_EQ(bytesOf(*file), "hell");
    void* object = nullptr;
    EXPECT_EQ(stream->QueryInterface(IID_IStream, &object), S_OK);
    EXPECT_EQ(object, stream.get());
    EXPECT_EQ(stream->QueryInterface(GUID{}, &object), E_NOINTERFACE);
    EXPECT_EQ(stream->AddRef(), 2u);
    EXPECT_EQ(stream->Release(), 1u);
    STATSTG stat;
    EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
    EXPECT_EQ(stat.cbSize, 4u);
    EXPECT_EQ(stat.pwcsName, nullptr);
    EXPECT_EQ(stream->Stat(&stat, STATFLAG_DEFAULT), S_OK);
    EXPECT_NE(stat.pwcsName, nullptr);
    CoTaskMemFree(stat.pwcsName);
}

}  // namespace
}  // namespace qv
