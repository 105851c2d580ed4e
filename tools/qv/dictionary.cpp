#include "dictionary.h"

#include <bit>
#include <cstdint>

#include "command.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {

using Entry = qv::CTagEntry;

/// One field of two entries is the same.
struct Field {
    const char* name;
    bool (*same)(const Entry& a, const Entry& b);
};

bool sameBounds(const Entry& a, const Entry& b) {
    bool useA = false, useB = false;
    double lowA = 0.0, lowB = 0.0, highA = 0.0, highB = 0.0;
    a.GetNumericBounds(useA, lowA, highA);
    b.GetNumericBounds(useB, lowB, highB);
    const auto same = [](double x, double y) { return std::bit_cast<uint64_t>(x) == std::bit_cast<uint64_t>(y); };
    return useA == useB && same(lowA, lowB) && same(highA, highB);
}

bool sameTextValues(const Entry& a, const Entry& b) {
    bool same = a.nTextValues() == b.nTextValues();
    for (uint32_t i = 0; same && i < a.nTextValues(); ++i) {
        same = std::u16string_view(a.GetTextValue(i)) == std::u16string_view(b.GetTextValue(i));
    }
    return same;
}

constexpr Field fields[] = {
    {"name", [](const Entry& a, const Entry& b) { return a.GetName() == b.GetName(); }},
    {"description", [](const Entry& a, const Entry& b) { return a.GetDescription() == b.GetDescription(); }},
    {"data type", [](const Entry& a, const Entry& b) { return a.GetDataType() == b.GetDataType(); }},
    {"bounds", sameBounds},
    {"text values mode", [](const Entry& a, const Entry& b) { return a.GetTextValuesMode() == b.GetTextValuesMode(); }},
    {"text values", sameTextValues},
    {"category", [](const Entry& a, const Entry& b) { return a.GetCategory() == b.GetCategory(); }},
    {"write mode", [](const Entry& a, const Entry& b) { return a.GetWriteMode() == b.GetWriteMode(); }},
    {"units", [](const Entry& a, const Entry& b) { return a.GetUnits() == b.GetUnits(); }},
    {"location", [](const Entry& a, const Entry& b) { return a.GetLocation() == b.GetLocation(); }},
};

}  // namespace

DictionaryForm dictionaryForm(std::string_view head) {
    if (head.starts_with("TAGF")) return DictionaryForm::binary;
    if (head.starts_with("SBF") && head.substr(3).substr(0, 5).ends_with("TAGF")) return DictionaryForm::structured;
    return head.find("<TagFile") == head.npos ? DictionaryForm::unknown : DictionaryForm::xml;
}

void loadDictionary(qv::CTagFile& dictionary, const std::string& path) {
    const bool known = dictionaryForm(headOf(path)) != DictionaryForm::unknown;
    qv::ClearDiagnostic();
    if (dictionary.Load(&files(), wide(path).c_str())) return;
    throw known ? diagnosed(Exit::damaged, path, "is a damaged tag dictionary")
                : Failure(Exit::wrongKind, path + ": is no tag dictionary");
}

std::string dictionaryBytes(qv::CTagFile& dictionary, DictionaryForm form, const std::string& path) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    const qv::TSharedPtr<qv::IFile> target(file);
    qv::ClearDiagnostic();
    const bool saved = form == DictionaryForm::xml          ? dictionary.SaveXML(target)
                       : form == DictionaryForm::structured ? dictionary.SaveSBF(target)
                                                            : dictionary.SaveBinary(target);
    // A write that failed is told by the diagnostic alone in XML.
    if (!saved || qv::LastDiagnostic().IsSet()) throw diagnosed(Exit::io, path, "cannot be written");
    return {reinterpret_cast<const char*>(file->GetData()), file->size()};
}

std::vector<DictionaryLoss> dictionaryLosses(qv::CTagFile& wanted, const std::string& bytes, const std::string& path) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    qv::CTagFile kept;
    qv::ClearDiagnostic();
    if (!kept.Load(qv::TSharedPtr<qv::IFile>(file)) || kept.size() != wanted.size()) {
        throw diagnosed(Exit::usage, path, "cannot hold this dictionary");
    }
    std::vector<DictionaryLoss> losses;
    for (uint32_t i = 0; i < wanted.size(); ++i) {
        for (const Field& field : fields) {
            if (!field.same(wanted[i], kept[i])) losses.push_back({narrow(wanted[i].GetName()), field.name});
        }
    }
    return losses;
}

}  // namespace tool
