// Load and save of a tag dictionary of 20,000 entries with two text values each: as a structured tree, as a dictionary,
// and the same tree as XML in pugixml. Items are entries.
#include "rows.h"

#include <cstdlib>
#include <string>

#include "qv/file.h"
#include "qv/sb_file.h"
#include "qv/tag_file.h"

#if defined(QV_PEER_PUGIXML)
#include <pugixml.hpp>
#endif

namespace {

using File = qv::TSharedPtr<qv::IFile>;

constexpr int entryCount = 20'000;

qv::CTagFile& dictionary() {
    static qv::CTagFile made;
    if (!made.empty()) return made;
    made.SetGrowthRate(qv::Private::doublingRate);
    for (int i = 0; i < entryCount; ++i) {
        qv::CTagEntry entry;
        entry.SetName(qv::CString::FromFormat(u"Tag%05d", i));
        entry.SetDescription(qv::CString::FromFormat(u"Detector temperature %d in \u00B0C, before & after", i));
        entry.SetDataType(qv::CTagEntry::DATA_TYPE::Flt64);
        entry.SetNumericBounds(true, -0.25 - i, 1.0 * i);
        entry.SetTextValuesMode(qv::CTagEntry::TEXT_VALUES_MODE::UseAsSuggestions);
        entry.SetCategory(static_cast<qv::CTagEntry::CATEGORY>(i % 18));
        entry.SetUnits(static_cast<qv::CTagEntry::UNITS>(i % 20));
        entry.AddTextValue(qv::CString::FromFormat(u"value %d", i).c_str());
        entry.AddTextValue(u"other");
        made.Add(entry);
    }
    return made;
}

/// The dictionary as a member of its own writes it.
qv::TSharedPtr<qv::CMemFile> written(bool (qv::CTagFile::*save)(File)) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    if (!(dictionary().*save)(File(file))) std::abort();
    return file;
}

template <class Loaded>
void load(benchmark::State& state, bool (Loaded::*read)(File)) {
    const qv::TSharedPtr<qv::CMemFile> file = written(&qv::CTagFile::SaveSBF);
    for (auto _ : state) {
        Loaded loaded;
        file->SeekToBegin();
        if (!(loaded.*read)(File(file))) std::abort();
        benchmark::DoNotOptimize(loaded);
    }
    bench::setItems(state, entryCount);
}
void loadTree(benchmark::State& state) { load<qv::CSBFile>(state, &qv::CSBFile::Load); }
void loadDictionary(benchmark::State& state) { load<qv::CTagFile>(state, &qv::CTagFile::LoadSBF); }
QV_ROW("load a structured tree", "qv", loadTree)->Unit(benchmark::kMillisecond);
QV_ROW("load a tag dictionary", "qv", loadDictionary)->Unit(benchmark::kMillisecond);

void saveTree(benchmark::State& state) {
    const qv::TSharedPtr<qv::CMemFile> file = written(&qv::CTagFile::SaveSBF);
    qv::CSBFile tree;
    file->SeekToBegin();
    if (!tree.Load(File(file))) std::abort();
    for (auto _ : state) {
        file->Reset();
        if (!tree.Save(File(file))) std::abort();
    }
    bench::setItems(state, entryCount);
}
QV_ROW("save a structured tree", "qv", saveTree)->Unit(benchmark::kMillisecond);

void saveDictionary(benchmark::State& state) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    for (auto _ : state) {
        file->Reset();
        if (!dictionary().SaveSBF(File(file))) std::abort();
    }
    bench::setItems(state, entryCount);
}
QV_ROW("save a tag dictionary", "qv", saveDictionary)->Unit(benchmark::kMillisecond);

#if defined(QV_PEER_PUGIXML)
void loadPugixml(benchmark::State& state) {
    const qv::TSharedPtr<qv::CMemFile> file = written(&qv::CTagFile::SaveXML);
    for (auto _ : state) {
        pugi::xml_document document;
        if (!document.load_buffer(file->GetData(), file->size())) std::abort();
        benchmark::DoNotOptimize(document.first_child());
    }
    bench::setItems(state, entryCount);
}
QV_ROW("load a structured tree", "pugixml", loadPugixml)->Unit(benchmark::kMillisecond);

void savePugixml(benchmark::State& state) {
    struct StringWriter : pugi::xml_writer {
        void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
        std::string text;
    };
    const qv::TSharedPtr<qv::CMemFile> file = written(&qv::CTagFile::SaveXML);
    pugi::xml_document document;
    if (!document.load_buffer(file->GetData(), file->size())) std::abort();
    for (auto _ : state) {
        StringWriter writer;
        document.save(writer);
        benchmark::DoNotOptimize(writer.text.size());
    }
    bench::setItems(state, entryCount);
}
QV_ROW("save a structured tree", "pugixml", savePugixml)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
