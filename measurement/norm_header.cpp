// The header of Norm files.
#include "measurement/norm_format.h"
#include "qv/datetime.h"

namespace qv {

namespace {

constexpr uint32_t storedStampBytes = sizeof CNormFile::SFileHeader::timeStamp / 2;
constexpr uint32_t storedTextBytes = sizeof CNormFile::SFileHeader::text1 / 2;

int dayOfYear(const CDateTime& time) {
    int day = time.GetDay();
    for (int month = 1; month < time.GetMonth(); ++month) day += CDateTime::DaysInMonth(time.GetYear(), month);
    return day;
}

void stamp(CNormFile::SFileHeader& header) {
    const CDateTime now = CDateTime::Now();
    const auto fraction = static_cast<int>(now.ToFileTime() % CDateTime::ticksPerSecond / 1000);  // of 0.1 ms
    const CString text = CString::FromFormat(u"%03d:%02d:%02d:%02d.%04d", dayOfYear(now), now.GetHour(),
                                             now.GetMinute(), now.GetSecond(), fraction);
    std::copy_n(text.c_str(), std::min<size_t>(text.size(), std::size(header.timeStamp) - 1), header.timeStamp);
}

}  // namespace

bool CNormFile::NewHeader(SFileHeader& header, FILE_TYPE type, uint16_t xPixels, uint16_t yPixels, uint16_t subframe) {
    header = SFileHeader();
    if (type > TYPE_BAD_PIXEL) return false;
    header.type = type;
    header.xPixels = xPixels;
    header.yPixels = yPixels;
    header.subframe = subframe;
    stamp(header);
    header.calType = 3;
    header.flag2 = header.flag3 = 1;
    header.numAvg = 10;
    header.bpTol = 0.5F;
    return true;
}

bool CNormFile::ReadHeader(TSharedPtr<IFile> file, SFileHeader& header) {
    header = SFileHeader();
    if (!file) return false;
    uint8_t type = TYPE_NONE;
    bool read = file->GetUInt8(header.version) && file->GetUInt8(type) && file->GetUInt16(header.xPixels) &&
                file->GetUInt16(header.yPixels) && file->GetUInt16(header.subframe) &&
                file->ReadBytes(header.timeStamp, storedStampBytes);
    header.type = static_cast<FILE_TYPE>(type);
    if (read && header.version > 1) {
        read = file->GetUInt8(header.calType) && file->GetUInt8(header.flag2) && file->GetUInt8(header.flag3) &&
               file->GetUInt16(header.numAvg) && file->GetFlt32(header.bpTol) &&
               file->ReadBytes(header.text1, storedTextBytes) && file->ReadBytes(header.text2, storedTextBytes) &&
               file->ReadBytes(header.text3, storedTextBytes);
    }
    if (!read) SetDiagnostic(CString(), u"the header of a Norm file", u"the end of the file", file->GetPosition());
    return read;
}

bool CNormFile::WriteHeader(TSharedPtr<IFile> file, const SFileHeader& header) {
    if (!file) return false;
    bool written = file->PutUInt8(header.version) && file->PutUInt8(header.type) && file->PutUInt16(header.xPixels) &&
                   file->PutUInt16(header.yPixels) && file->PutUInt16(header.subframe) &&
                   file->WriteBytes(header.timeStamp, storedStampBytes);
    if (written && header.version > 1) {
        written = file->PutUInt8(header.calType) && file->PutUInt8(header.flag2) && file->PutUInt8(header.flag3) &&
                  file->PutUInt16(header.numAvg) && file->PutFlt32(header.bpTol) &&
                  file->WriteBytes(header.text1, storedTextBytes) && file->WriteBytes(header.text2, storedTextBytes) &&
                  file->WriteBytes(header.text3, storedTextBytes);
    }
    if (!written) SetDiagnostic(CString(), u"room for the header", u"a short write", file->GetPosition());
    return written;
}

}  // namespace qv
