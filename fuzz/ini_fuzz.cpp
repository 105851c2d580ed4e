// Bytes into the INI reader. What loads is saved to the same bytes; after a change of every value, and new ones beside
// them, the saved file holds the same values again.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "qv/file.h"
#include "qv/ini_store.h"

namespace {

using Values = std::vector<std::pair<qv::CString, qv::CString>>;

bool load(qv::CINIStore& store, const std::string& bytes) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(bytes.data(), static_cast<uint32_t>(bytes.size()));
    file->SeekToBegin();
    return store.Load(qv::TSharedPtr<qv::IFile>(file));
}

std::string savedBytes(qv::CINIStore& store) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    if (!store.Save(qv::TSharedPtr<qv::IFile>(file))) std::abort();
    return {reinterpret_cast<const char*>(file->GetData()), file->size()};
}

/// Paths and texts of a store, at most 200 of them.
Values valuesOf(const qv::IConfigStore& store) {
    Values values;
    std::vector<qv::CString> pending{qv::CString()};
    while (!pending.empty() && values.size() < 200) {
        const qv::CString path = pending.back();
        pending.pop_back();
        qv::CString text;
        if (store.ReadString(path, text)) values.emplace_back(path, text);
        for (const qv::IConfigStore::SChild& child : store.GetChildren(path))
            pending.push_back(path + u"/" + child.name);
    }
    return values;
}

void expectAll(const qv::IConfigStore& store, const Values& values) {
    for (const auto& [path, text] : values) {
        qv::CString back;
        if (!store.ReadString(path, back) || back != text) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    qv::CINIStore store;
    if (!load(store, bytes)) return 0;
    if (savedBytes(store) != bytes) std::abort();

    Values values = valuesOf(store);
    size_t number = 0;
    for (auto& [path, text] : values) {
        // Texts of the file itself are as hostile as any.
        text = ++number % 3 == 0 ? qv::CString(values[number / 2].second) : text + values[number / 2].first;
        if (!store.SetString(path, text)) std::abort();
        if (number % 5 == 0) store.SetString(path + u"/new=\n]", text);
    }
    const Values expected = valuesOf(store);
    qv::CINIStore again;
    if (!load(again, savedBytes(store))) std::abort();
    expectAll(again, expected);
    expectAll(store, valuesOf(again));
    return 0;
}
