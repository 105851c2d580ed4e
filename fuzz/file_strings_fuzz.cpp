// The string readers of IFile: the first byte chooses the byte order, the next ones the readers, the rest is the file.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "qv/file.h"

namespace {

void readOne(qv::IFile& file, uint8_t reader) {
    static char narrow[300];
    static char16_t wide[300];
    qv::CString text;
    qv::CStringMB bytes;
    int32_t character = 0;
    switch (reader % 14) {
        case 0: (void)file.GetString(text); break;
        case 1: (void)file.GetString(bytes); break;
        case 2: (void)file.GetString(narrow, 300); break;
        case 3: (void)file.GetString(wide, 300); break;
        case 4: (void)file.GetString(1252, text); break;
        case 5: (void)file.GetString(1252, wide, 300); break;
        case 6: (void)file.GetUnicodeString(text); break;
        case 7: (void)file.GetUnicodeString(wide, 300); break;
        case 8: (void)file.GetArchiveString(text); break;
        case 9: (void)file.SkipArchiveString(); break;
        case 10: (void)file.GetLine(narrow, 300); break;
        case 11: (void)file.GetFixedLengthString(bytes, file.GetDWORD()); break;
        case 12: (void)file.GetUTF8Character(character); break;
        case 13: (void)file.SkipString(); break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t readers = 8;
    if (size < 1 + readers) return 0;
    qv::CMemFile file;
    file.Write(data + 1 + readers, static_cast<uint32_t>(size - 1 - readers));
    qv::swapFlag(file) = (data[0] & 1) != 0;
    file.SeekToBegin();
    for (size_t i = 0; i < readers && file.GetRemaining() > 0; ++i) {
        readOne(file, data[1 + i]);
        if (file.GetSize() != static_cast<int64_t>(size - 1 - readers)) std::abort();
    }
    return 0;
}
