// A tag changed in place in a file of one gigabyte, beside what writing the same header bytes costs.
#include "rows.h"

#include <string>

#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/saf_file.h"

namespace {

constexpr int64_t fileBytes = int64_t{1} << 30;

/// A recording with twenty tags and a gigabyte of data (a hole: nothing of it is read or written).
class BigRecording {
public:
    BigRecording() : m_path(qv::fileSystem().GetTempFilename()) {
        qv::CSAFFile header;
        header.New(false);
        for (int i = 0; i < 20; ++i) {
            header.AddTag(qv::CString::FromFormat(u"Tag%d", i).c_str(), u"a value of usual length");
        }
        header.Save(m_path.c_str(), true);
        m_headerBytes = header.GetDataPosition();
        qv::CFile file;
        file.Open(m_path.c_str(), 0x32);
        file.SetSize(fileBytes);
    }
    ~BigRecording() { qv::fileSystem().DeleteFileW(m_path.c_str()); }
    const char16_t* path() const { return m_path.c_str(); }
    uint32_t headerBytes() const { return m_headerBytes; }

private:
    qv::CString m_path;
    uint32_t m_headerBytes = 0;
};

void changeTagInPlace(benchmark::State& state) {
    const BigRecording recording;
    int32_t value = 0;
    for (auto _ : state) {
        qv::CSAFFile header;
        header.Load(recording.path());
        header[u"Tag7"] = ++value;
        if (!header.Save()) state.SkipWithError("the header was not saved");
    }
    qv::CSAFFile header;
    header.Load(recording.path());
    if (header.GetDataPosition() != recording.headerBytes()) state.SkipWithError("the data moved");
    state.SetBytesProcessed(state.iterations() * recording.headerBytes());
}
QV_ROW("change a tag in place", "qv", changeTagInPlace)->Unit(benchmark::kMicrosecond);

void writeHeaderBytes(benchmark::State& state) {
    const BigRecording recording;
    std::string bytes(recording.headerBytes(), 'x');
    for (auto _ : state) {
        qv::CFile file;
        file.Open(recording.path(), 0x32);
        file.Read(bytes.data(), recording.headerBytes());
        file.SeekToBegin();
        benchmark::DoNotOptimize(file.Write(bytes.data(), recording.headerBytes()));
    }
    state.SetBytesProcessed(state.iterations() * recording.headerBytes());
}
QV_ROW("change a tag in place", "system call", writeHeaderBytes)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
