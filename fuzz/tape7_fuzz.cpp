// Any bytes as an output table; what loads keeps to its columns, ascends, and can be interpolated anywhere.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "qv/file.h"
#include "qv/tape7_file.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void check(const qv::CModtranTape7File& tape7, uint32_t run) {
    const qv::TAPE7_RUN& table = tape7.GetRun(run);
    require(table.mode >= -1 && table.mode <= 3);
    require(table.columns.size() <= qv::TAPE7_DATA::columnCount);
    qv::TArray<double> freqs;
    for (uint32_t i = 0; i < table.data.size(); ++i) {
        const qv::TAPE7_DATA& row = table.data.ConstGetItem(i);
        require(std::isfinite(row.freq) && (i == 0 || row.freq >= table.data.ConstGetItem(i - 1).freq));
        freqs.Add(row.freq + 0.25);
        freqs.Add(-row.freq);
    }
    qv::TArray<qv::TAPE7_DATA> rows;
    require(tape7.GetData(run, freqs, rows) && rows.size() == freqs.size());
    for (uint32_t i = 0; i < rows.size() && i < 16; ++i) {
        qv::TAPE7_DATA single;
        (void)tape7.GetData(run, freqs.data()[i], single);
        for (uint32_t c = 0; c < qv::TAPE7_DATA::columnCount; ++c) {
            const double a = single.values[c], b = rows.data()[i].values[c];
            require(a == b || (std::isnan(a) && std::isnan(b)));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->Write(data, static_cast<uint32_t>(size));
    file->SeekToBegin();
    qv::CModtranTape7File tape7;
    if (!tape7.Load(qv::TSharedPtr<qv::IFile>(file))) require(tape7.nRuns() == 0);
    for (uint32_t run = 0; run < tape7.nRuns(); ++run) check(tape7, run);
    return 0;
}
