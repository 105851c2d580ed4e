// Bytes into the reader of message catalogues; what loads is asked for texts and plural forms.
#include <cstdint>

#include "qv/file.h"
#include "qv/locale.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qv::CMemFile file;
    file.WriteBytes(data, static_cast<uint32_t>(size));
    file.SeekToBegin();
    CMoTranslator translator;
    if (!translator.Load(&file)) return 0;
    (void)translator.GetHeader();
    (void)translator.Translate(u"menu", u"Open");
    for (const uint64_t n : {uint64_t{0}, uint64_t{1}, uint64_t{2}, uint64_t{11}, ~uint64_t{0}}) {
        (void)translator.TranslatePlural(nullptr, u"file", n);
    }
    return 0;
}
