#include "frame_values.h"

#include "command.h"
#include "qv/diagnostic.h"

namespace tool {

void requireFrame(const Recording& recording, uint32_t frame) {
    const Layout& layout = recording.layout();
    if (frame >= layout.frames) {
        throw Failure(Exit::negative, recording.path() + ": there is no frame " + std::to_string(frame) + " (it has " +
                                          std::to_string(layout.frames) + ", counted from 0)");
    }
    if (layout.type == qv::EDataType::uint64 || layout.type == qv::EDataType::rgb24) {
        throw Failure(Exit::damaged, recording.path() + ": frames of " + elementWord(layout.type) +
                                         " have no values that could be shown");
    }
}

qv::TSharedPtr<qv::IFile> recordingOfFrame(const Recording& recording, uint32_t frame) {
    Layout layout = recording.layout();
    std::vector<std::byte> bytes(layout.frameBytes());
    FrameReader(recording).read(frame, bytes.data());
    layout.frames = 1;
    layout.bigEndian = false;
    qv::CSAFFile header;
    recording.header().MakeDuplicate(header);
    setLayoutTags(header, layout);
    const qv::TSharedPtr<qv::IFile> file = qv::CMemFile::Create();
    uint32_t position = 0;
    qv::ClearDiagnostic();
    header.SaveTo(file, position, true);
    if (qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, recording.path(), "cannot be copied");
    file->SetPosition(position);
    if (!file->WriteBytes(bytes.data(), layout.frameBytes())) throw Failure(Exit::io, "there is no memory for a frame");
    return file;
}

}  // namespace tool
