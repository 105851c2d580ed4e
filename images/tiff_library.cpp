#include "images/tiff_library.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace qv::Private {

namespace {

TiffFile& fileOf(thandle_t handle) { return *static_cast<TiffFile*>(handle); }

tmsize_t onRead(thandle_t handle, void* data, tmsize_t count) {
    tmsize_t done = 0;
    while (done < count) {
        const auto wanted = static_cast<uint32_t>(std::min<tmsize_t>(count - done, 1 << 30));
        const uint32_t got = readQuietly(fileOf(handle).file(), static_cast<uint8_t*>(data) + done, wanted);
        done += std::min(got, wanted);
        if (got < wanted) {
            fileOf(handle).cameShort();
            break;
        }
    }
    return done;
}

tmsize_t onWrite(thandle_t handle, void* data, tmsize_t count) {
    tmsize_t done = 0;
    while (done < count && fileOf(handle).mayWrite()) {
        const auto wanted = static_cast<uint32_t>(std::min<tmsize_t>(count - done, 1 << 30));
        const uint32_t got = writeQuietly(fileOf(handle).file(), static_cast<uint8_t*>(data) + done, wanted);
        done += std::min(got, wanted);
        if (got < wanted) break;
    }
    return done;
}

toff_t onSeek(thandle_t handle, toff_t offset, int whence) {
    IFile& file = fileOf(handle).file();
    const uint32_t origin = whence == SEEK_SET   ? IFile::fromBegin
                            : whence == SEEK_CUR ? IFile::fromCurrent
                                                 : IFile::fromEnd;
    const auto target = static_cast<int64_t>(offset);
    if (whence == SEEK_SET && target < 0) return ~toff_t{0};
    if (seekQuietly(file, target, origin)) return static_cast<toff_t>(positionQuietly(file));
    fileOf(handle).lostPlace();
    return ~toff_t{0};
}

int onClose(thandle_t) { return 0; }

toff_t onSize(thandle_t handle) { return fileOf(handle).size(); }

/// A file in memory is read in place.
int onMap(thandle_t handle, void** base, toff_t* size) {
    auto* const memory = dynamic_cast<CMemFile*>(&fileOf(handle).file());
    if (memory == nullptr || memory->GetData() == nullptr) return 0;
    *base = memory->GetData();
    *size = memory->size();
    return 1;
}

void onUnmap(thandle_t, void*, toff_t) {}

int onError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    static_cast<TiffFile*>(user)->keepError(format, arguments);
    return 1;  // goes no further
}

int onWarning(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    static_cast<TiffFile*>(user)->keepWarning(format, arguments);
    return 1;
}

}  // namespace

void TiffFile::keepError(const char* format, va_list arguments) {
    std::vsnprintf(m_error, sizeof m_error, format, arguments);
}

void TiffFile::keepWarning(const char* format, va_list arguments) {
    if (std::string_view(format).starts_with("Unknown field")) return;  // another program's own tag is no fault
    if (m_warning[0] == 0) std::vsnprintf(m_warning, sizeof m_warning, format, arguments);
}

uint64_t TiffFile::size() const { return static_cast<uint64_t>(std::max<int64_t>(sizeQuietly(*m_file), 0)); }

bool TiffFile::open(IFile& file, const char* mode, uint64_t largest) {
    close();
    m_file = &file;
    m_abandoned = false;
    m_writes = *mode != 'r';
    m_appends = *mode == 'a';
    m_error[0] = m_warning[0] = 0;
    TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
    if (options == nullptr) return false;
    TIFFOpenOptionsSetErrorHandlerExtR(options, onError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options, onWarning, this);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(std::max({believedBytes, size() * 8, largest})));
    // Pages are written behind what there is.
    if (*mode == 'w' && file.GetSize() > 0) file.SetSize(0);
    file.SeekToBegin();
    m_tiff =
        TIFFClientOpenExt("picture", mode, this, onRead, onWrite, onSeek, onClose, onSize, onMap, onUnmap, options);
    TIFFOpenOptionsFree(options);
    return m_tiff != nullptr;
}

bool TiffFile::close() {
    if (m_tiff == nullptr) return true;
    const bool written = !m_writes || TIFFFlush(m_tiff) != 0;
    TIFFClose(m_tiff);
    m_tiff = nullptr;
    return (written && !m_abandoned) || fail(u"room for a TIFF picture");
}

void TiffFile::abandon() {
    m_abandoned = true;
    close();
}

bool TiffFile::fail(const char16_t* expected) const {
    return refuse(*m_file, expected, CString(m_error[0] != 0 ? m_error : "something else"));
}

void TiffFile::tellWarning() const {
    if (m_warning[0] != 0) refuse(*m_file, u"a TIFF picture without a fault", CString(m_warning));
}

bool TiffChain::readNumber(IFile& file, uint64_t at, uint32_t bytes, uint64_t& value) const {
    uint8_t raw[8];
    value = 0;
    const auto end = static_cast<uint64_t>(std::max<int64_t>(file.GetSize(), 0));
    if (at > end || end - at < bytes) return false;
    file.SetPosition(static_cast<int64_t>(at));
    if (!file.ReadBytes(raw, bytes)) return false;
    for (uint32_t i = 0; i < bytes; ++i) value = value << 8 | raw[m_bigEndian ? i : bytes - 1 - i];
    return true;
}

bool TiffChain::fail(IFile& file, uint64_t at) const {
    return refuse(file, CString::FromFormat(u"page %u of the file, or its end", m_directories.size() + 1),
                  u"a place without a page", static_cast<int64_t>(at));
}

bool TiffChain::follow(IFile& file) {
    uint8_t mark[2];
    m_directories.clear();
    m_seen.clear();
    m_reached = 0;
    file.SeekToBegin();
    if (!file.ReadBytes(mark, 2)) return fail(file, 0);
    m_bigEndian = mark[0] == 'M' || mark[0] == 'P';
    uint64_t version = 0;
    if (!readNumber(file, 2, 2, version)) return fail(file, 2);
    m_big = version == TIFF_VERSION_BIG;
    m_link = m_big ? 8 : 4;
    return followOn(file);
}

bool TiffChain::followOn(IFile& file) {
    const uint32_t placeBytes = m_big ? 8 : 4, countBytes = m_big ? 8 : 2, entryBytes = m_big ? 20 : 12;
    const size_t before = m_directories.size();
    const uint64_t linkBefore = m_link;
    for (;;) {
        uint64_t place = 0, entries = 0;
        if (!readNumber(file, m_link, placeBytes, place)) break;
        if (place == 0) return true;
        if (!readNumber(file, place, countBytes, entries) || entries > 0xFFFF || !m_seen.insert(place).second) break;
        m_directories.push_back(place);
        m_reached = static_cast<uint32_t>(m_directories.size());
        m_link = place + countBytes + entries * entryBytes;
    }
    fail(file, m_link);
    // What was known before is known again.
    for (; m_directories.size() > before; m_directories.pop_back()) m_seen.erase(m_directories.back());
    m_link = linkBefore;
    return false;
}

bool TiffChain::endHere(IFile& file) const {
    const uint8_t nothing[8] = {};
    file.SetPosition(static_cast<int64_t>(m_link));
    return file.WriteBytes(nothing, m_big ? 8 : 4);
}

}  // namespace qv::Private
