#include <algorithm>

#include "images/formats.h"
#include "images/jpeg_library.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

bool deliver(const std::vector<uint8_t>& data, IFile& payload) {
    if (auto* const memory = dynamic_cast<CMemFile*>(&payload)) memory->SetSize(static_cast<int64_t>(data.size()));
    constexpr size_t most = 1U << 30;
    for (size_t at = 0; at < data.size(); at += most) {
        const auto count = static_cast<uint32_t>(std::min(data.size() - at, most));
        if (payload.WriteBytes(data.data() + at, count)) continue;
        return refuse(payload, u"room for the measurement of a JPEG picture", u"none", payload.GetPosition());
    }
    return true;
}

bool decode(JpegReader& reader, IFile& file, SBitmap& bitmap) {
    if (!reader.isPlausible()) return false;
    if (!reader.startDecoding()) return reader.fail();
    const jpeg_decompress_struct& decoder = reader.decoder();
    if (!CreateBitmap(decoder.output_width, decoder.output_height, 24, bitmap)) {
        return refuse(file, u"memory for the picture", u"none");
    }
    return reader.readRows(bitmap) || reader.fail();
}

}  // namespace

bool IsJPEG(const TSharedPtr<IFile>& file) {
    if (!file) return false;
    const bool is = JpegReader().readHeader(*file, false);
    file->SeekToBegin();
    return is;
}

bool LoadJPEG(const TSharedPtr<IFile>& file, SBitmap& bitmap, const TSharedPtr<IFile>& payload) {
    PendingBitmap pending(bitmap);
    if (!file) return false;
    JpegReader reader;
    if (!reader.readHeader(*file, payload != nullptr)) return reader.fail();
    if (!decode(reader, *file, bitmap)) return false;
    if (payload && !deliver(reader.payload(), *payload)) return false;
    if (!reader.finish()) return reader.fail();
    if (reader.errors().warning[0] != 0) {
        refuse(*file, u"a JPEG picture without a fault", CString(reader.errors().warning));
    }
    return pending.keep();
}

bool RadiometricJPEG(const TSharedPtr<IFile>& file, const TSharedPtr<IFile>& payload) {
    if (!file || !payload) return false;
    if (!IsJPEG(file)) return refuse(*file, u"a JPEG picture", u"something else");
    payload->SeekToBegin();
    SBitmap picture;
    const bool loaded = LoadJPEG(file, picture, payload);
    payload->SeekToBegin();
    DestroyBitmap(picture);
    if (!loaded) return false;
    const int64_t size = payload->GetSize();
    if (size > int64_t{largestMetadata}) return true;
    return refuse(*file, CString::FromFormat(u"a measurement of more than %u bytes in the picture", largestMetadata),
                  CString::FromFormat(u"%I64d bytes", size));
}

bool Private::readJPEGInfo(IFile& file, SImageInfo& info) {
    JpegReader reader;
    if (!reader.readHeader(file, false)) return false;
    info.format = EImageFormat::jpeg;
    info.width = reader.decoder().image_width;
    info.height = reader.decoder().image_height;
    info.bitsPerSample = static_cast<uint32_t>(reader.decoder().data_precision);
    info.samples = static_cast<uint32_t>(reader.decoder().num_components);
    info.pages = 1;
    info.whole = reader.isPlausible();
    return true;
}

}  // namespace qv
