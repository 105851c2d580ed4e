// Decks from any bytes: what loads is saved to a deck that loads and is saved to the same, or is refused; its fields
// and warnings are listed.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qv/file.h"
#include "qv/tape5_cards.h"
#include "qv/tape5_file.h"

namespace {

qv::TSharedPtr<qv::IFile> fileOf(const std::string& bytes) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    return qv::TSharedPtr<qv::IFile>(file);
}

bool save(const qv::CModtranTape5File& deck, std::string& bytes) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    if (!deck.Save(qv::TSharedPtr<qv::IFile>(file))) return false;
    bytes.assign(reinterpret_cast<const char*>(file->GetData()), file->size());
    return true;
}

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    qv::CModtranTape5File deck, again;
    const bool loaded = deck.Load(fileOf(bytes));
    qv::TArray<qv::TAPE5_FIELD> fields;
    qv::TArray<qv::TAPE5_WARNING> warnings;
    require(qv::ListTape5Fields(fileOf(bytes), fields) == loaded);
    require(qv::LintTape5(fileOf(bytes), warnings) == loaded);
    std::string first, second;
    if (!loaded || !save(deck, first)) return 0;
    require(again.Load(fileOf(first)));
    require(save(again, second));
    require(first == second);
    return 0;
}
