#include "images/formats.h"
#include "images/jpeg_library.h"
#include "images/kvor.h"
#include "qv/image.h"

namespace qv {

namespace {

using namespace Private;

/// Calls `each` with the data of every segment of a measurement, in file order, until it is false.
template <class Each>
bool forEachPiece(const jpeg_decompress_struct& decoder, Each each) {
    for (const jpeg_marker_struct* at = decoder.marker_list; at != nullptr; at = at->next) {
        if (at->marker != kvor::marker || !kvor::isSegment(at->data, at->data_length)) continue;
        const uint32_t size = kvor::dataIn(at->data_length);
        if (size != 0 && !each(at->data + kvor::headerBytes, size)) return false;
    }
    return true;
}

bool deliver(const jpeg_decompress_struct& decoder, IFile& payload) {
    if (auto* const memory = dynamic_cast<CMemFile*>(&payload)) {
        int64_t size = 0;
        forEachPiece(decoder, [&](const uint8_t*, uint32_t count) {
            size += count;
            return true;
        });
        memory->SetSize(size);
    }
    const bool all =
        forEachPiece(decoder, [&](const uint8_t* data, uint32_t count) { return payload.WriteBytes(data, count); });
    return all || refuse(payload, u"room for the measurement of a JPEG picture", u"none", payload.GetPosition());
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
    SImageInfo info;
    if (!file) return false;
    const bool is = readJPEGInfo(*file, info);
    file->SeekToBegin();
    return is;
}

bool LoadJPEG(const TSharedPtr<IFile>& file, SBitmap& bitmap, const TSharedPtr<IFile>& payload) {
    PendingBitmap pending(bitmap);
    if (!file) return false;
    JpegReader reader;
    if (!reader.readHeader(*file, payload != nullptr)) return reader.fail();
    if (!decode(reader, *file, bitmap)) return false;
    if (payload && !deliver(reader.decoder(), *payload)) return false;
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
    return true;
}

}  // namespace qv
