// A calibration is loaded, changed, saved and loaded again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "qv/file.h"
#include "qv/rcal_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(data, static_cast<uint32_t>(size));
    file->SeekToBegin();
    qv::CRCalFile calibration;
    if (!calibration.Load(file, 0)) return 0;
    calibration.calPage(0).setPolyOrder(3);
    calibration.calPage(0).points().Add(qv::CAL_POINT());
    double values[64];
    int32_t order = 0;
    if (calibration.GetPolyOrder(0, order) && order < 64) calibration.GetCoefficients(0, values);
    const qv::TSharedPtr<qv::IFile> again = qv::CMemFile::Create();
    if (!calibration.Save(again, qv::CRCalFile::saveXml)) std::abort();
    again->SeekToBegin();
    qv::CRCalFile second;
    if (!second.Load(again, 0) || second.calPages().getCount() != calibration.calPages().getCount()) std::abort();
    return 0;
}
