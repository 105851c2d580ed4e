// Checksums beside zlib, ISA-L and Boost, compressed files beside a bare zlib loop.
#include "rows.h"

#define ZLIB_CONST
#include <zlib.h>

#include <cstring>
#include <random>
#include <vector>

#include "qv/crc.h"
#include "qv/gz_file.h"
#ifdef QV_PEER_ISAL
#include <isa-l/crc.h>
#endif
#ifdef QV_PEER_BOOST
#include <boost/crc.hpp>
#endif

namespace {

using namespace qv;

std::vector<unsigned char> bytes(size_t count) {
    std::mt19937 random(1);
    std::vector<unsigned char> result(count);
    for (auto& b : result) b = static_cast<unsigned char>(random());
    return result;
}

template <class Calculate>
void checksum(benchmark::State& state, Calculate calculate) {
    static const auto data = bytes(64 << 20);
    const auto size = static_cast<uint32_t>(state.range(0));
    bench::setAnswer(state, static_cast<double>(calculate(data.data(), size)));
    for (auto _ : state) benchmark::DoNotOptimize(calculate(data.data(), size));
    bench::setBytes(state, size);
}
#define QV_SIZES ->ArgName("bytes")->Arg(64)->Arg(1024)->Arg(512 << 10)->Arg(64 << 20)

void crc32Ours(benchmark::State& state) { checksum(state, CalcBlockCRC32); }
void crc32Zlib(benchmark::State& state) {
    checksum(state, [](const unsigned char* data, uint32_t size) { return crc32_z(0, data, size); });
}
void crc16Ours(benchmark::State& state) { checksum(state, CalcBlockCRC16); }
QV_ROW("CRC-32", "qv", crc32Ours) QV_SIZES;
QV_ROW("CRC-32", "zlib", crc32Zlib) QV_SIZES;
#ifdef QV_PEER_ISAL
void crc32IsaL(benchmark::State& state) {
    checksum(state, [](const unsigned char* data, uint32_t size) { return crc32_gzip_refl(0, data, size); });
}
QV_ROW("CRC-32", "isa-l", crc32IsaL) QV_SIZES;
#endif
QV_ROW("CRC-16", "qv", crc16Ours) QV_SIZES;
#ifdef QV_PEER_BOOST
void crc16Boost(benchmark::State& state) {
    checksum(state, [](const unsigned char* data, uint32_t size) {
        boost::crc_optimal<16, 0x1021> crc;
        crc.process_bytes(data, size);
        return crc.checksum();
    });
}
QV_ROW("CRC-16", "boost", crc16Boost) QV_SIZES;
#endif

/// Text-like data of 4 MB, in calls of 64 KiB.
constexpr uint32_t plainBytes = 1 << 22, callBytes = 1 << 16, wrapperBytes = 14;
const std::vector<unsigned char>& plain() {
    static const std::vector<unsigned char> made = [] {
        auto data = bytes(plainBytes);
        for (auto& b : data) b = static_cast<unsigned char>("abcdefgh ijklmno"[b & 15]);
        return data;
    }();
    return made;
}

void compressOurs(benchmark::State& state) {
    TSharedPtr<IFile> inner;
    for (auto _ : state) {
        inner = TSharedPtr<IFile>(CMemFile::Create());
        CGZFile file(inner, CFile::accessWrite);
        for (uint32_t at = 0; at < plainBytes; at += callBytes) file.Write(plain().data() + at, callBytes);
    }
    bench::setAnswer(state, static_cast<double>(inner->GetSize()) - wrapperBytes);
    state.SetBytesProcessed(state.iterations() * plainBytes);
}
std::vector<unsigned char> compressBare() {
    std::vector<unsigned char> out;
    unsigned char buffer[16384];
    z_stream z = {};
    deflateInit(&z, Z_DEFAULT_COMPRESSION);
    for (uint32_t at = 0; at <= plainBytes; at += callBytes) {
        z.next_in = plain().data() + (at < plainBytes ? at : 0);
        z.avail_in = at < plainBytes ? callBytes : 0;
        do {
            z.next_out = buffer;
            z.avail_out = sizeof buffer;
            deflate(&z, at < plainBytes ? Z_NO_FLUSH : Z_FINISH);
            out.insert(out.end(), buffer, buffer + (sizeof buffer - z.avail_out));
        } while (z.avail_out == 0);
    }
    deflateEnd(&z);
    return out;
}
void compressZlib(benchmark::State& state) {
    bench::setAnswer(state, static_cast<double>(compressBare().size()));
    for (auto _ : state) benchmark::DoNotOptimize(compressBare());
    state.SetBytesProcessed(state.iterations() * plainBytes);
}

void expandOurs(benchmark::State& state) {
    const auto inner = CMemFile::Create();
    const auto stream = compressBare();
    inner->WriteBytes("TGZF\0", 6);
    inner->PutInt64(plainBytes);
    inner->WriteBytes(stream.data(), static_cast<uint32_t>(stream.size()));
    std::vector<unsigned char> out(callBytes);
    for (auto _ : state) {
        CGZFile file(CBoundedFile::Create(inner, 0, inner->GetSize()), CFile::accessRead);
        uint32_t got = 0;
        while (const uint32_t part = file.Read(out.data(), callBytes)) got += part;
        if (got != plainBytes || !std::equal(out.begin(), out.end(), plain().end() - callBytes)) {
            state.SkipWithError("other bytes");
        }
    }
    state.SetBytesProcessed(state.iterations() * plainBytes);
}
void expandZlib(benchmark::State& state) {
    const auto stream = compressBare();
    std::vector<unsigned char> out(callBytes), buffer(16384);
    for (auto _ : state) {
        z_stream z = {};
        inflateInit(&z);
        size_t at = 0;
        for (int result = Z_OK; result == Z_OK;) {
            z.next_out = out.data();
            z.avail_out = callBytes;
            while (result == Z_OK && z.avail_out != 0) {
                if (z.avail_in == 0) {
                    const size_t part = std::min(buffer.size(), stream.size() - at);
                    std::memcpy(buffer.data(), stream.data() + at, part);
                    at += part;
                    z.next_in = buffer.data();
                    z.avail_in = static_cast<uInt>(part);
                }
                result = inflate(&z, Z_NO_FLUSH);
            }
        }
        if (z.total_out != plainBytes) state.SkipWithError("short");
        inflateEnd(&z);
    }
    state.SetBytesProcessed(state.iterations() * plainBytes);
}
QV_ROW("compress 4 MB", "qv", compressOurs)->Unit(benchmark::kMillisecond);
QV_ROW("compress 4 MB", "zlib", compressZlib)->Unit(benchmark::kMillisecond);
QV_ROW("expand 4 MB", "qv", expandOurs)->Unit(benchmark::kMillisecond);
QV_ROW("expand 4 MB", "zlib", expandZlib)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
