// Parse and write of a generated document of 5 MB, beside libxml2, pugixml and TinyXML-2. Bytes are those of the
// document.
#include "rows.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qv/file.h"
#include "qv/xml_file.h"

#if defined(QV_PEER_LIBXML2)
#include <libxml/parser.h>
#include <libxml/tree.h>
#endif
#if defined(QV_PEER_PUGIXML)
#include <pugixml.hpp>
#endif
#if defined(QV_PEER_TINYXML2)
#include <tinyxml2.h>
#endif

namespace {

constexpr size_t documentBytes = 5'000'000;

/// A tag dictionary: elements with attributes, text children, references and a few characters outside ASCII.
const std::string& document() {
    static const std::string text = [] {
        std::string made = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<TagFile>\r\n";
        for (int i = 0; made.size() < documentBytes; ++i) {
            const std::string n = std::to_string(i);
            made += "\t<TagEntry Name=\"Tag" + n + "\" Description=\"Detector temperature " + n +
                    " in \xC2\xB0"
                    "C, before &amp; after\" DataType=\"Flt64\" UseNumericBounds=\"true\" LowBound=\"-" +
                    n + ".25\" HighBound=\"" + n + "\">\r\n\t\t<TextValue>value " + n +
                    "</TextValue>\r\n\t\t<TextValue>other</TextValue>\r\n\t</TagEntry>\r\n";
        }
        return made + "</TagFile>\r\n";
    }();
    return text;
}

qv::TSharedPtr<qv::CMemFile> fileOf(const std::string& text) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(text.data(), static_cast<uint32_t>(text.size()));
    return file;
}

void parseQv(benchmark::State& state) {
    const qv::TSharedPtr<qv::IFile> file = fileOf(document());
    for (auto _ : state) {
        qv::CXMLFile xml;
        file->SeekToBegin();
        if (!xml.Load(file)) return state.SkipWithError("not parsed");
        benchmark::DoNotOptimize(xml.GetRoot());
    }
    bench::setBytes(state, document().size());
}
QV_ROW("parse XML of 5 MB", "qv", parseQv)->Unit(benchmark::kMillisecond);

void writeQv(benchmark::State& state) {
    qv::CXMLFile xml;
    const qv::TSharedPtr<qv::CMemFile> file = fileOf(document());
    file->SeekToBegin();
    if (!xml.Load(qv::TSharedPtr<qv::IFile>(file))) std::abort();
    for (auto _ : state) {
        file->Reset();
        xml.Save(qv::TSharedPtr<qv::IFile>(file));
    }
    // The document is in our own layout already, so it must come back byte for byte.
    if (std::string(reinterpret_cast<const char*>(file->GetData()), file->size()) != document()) {
        state.SkipWithError("not the document");
    }
    bench::setBytes(state, document().size());
}
QV_ROW("write XML of 5 MB", "qv", writeQv)->Unit(benchmark::kMillisecond);

#if defined(QV_PEER_LIBXML2)
void parseLibxml2(benchmark::State& state) {
    for (auto _ : state) {
        xmlDoc* const doc = xmlReadMemory(document().data(), static_cast<int>(document().size()), nullptr, nullptr, 0);
        if (doc == nullptr) return state.SkipWithError("not parsed");
        xmlFreeDoc(doc);
    }
    bench::setBytes(state, document().size());
}
QV_ROW("parse XML of 5 MB", "libxml2", parseLibxml2)->Unit(benchmark::kMillisecond);

void writeLibxml2(benchmark::State& state) {
    xmlDoc* const doc = xmlReadMemory(document().data(), static_cast<int>(document().size()), nullptr, nullptr, 0);
    for (auto _ : state) {
        xmlChar* text = nullptr;
        int size = 0;
        xmlDocDumpMemoryEnc(doc, &text, &size, "UTF-8");
        benchmark::DoNotOptimize(size);
        xmlFree(text);
    }
    xmlFreeDoc(doc);
    bench::setBytes(state, document().size());
}
QV_ROW("write XML of 5 MB", "libxml2", writeLibxml2)->Unit(benchmark::kMillisecond);
#endif

#if defined(QV_PEER_PUGIXML)
void parsePugixml(benchmark::State& state) {
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_buffer(document().data(), document().size())) return state.SkipWithError("not parsed");
        benchmark::DoNotOptimize(doc.first_child());
    }
    bench::setBytes(state, document().size());
}
QV_ROW("parse XML of 5 MB", "pugixml", parsePugixml)->Unit(benchmark::kMillisecond);

struct StringWriter : pugi::xml_writer {
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
    std::string text;
};

void writePugixml(benchmark::State& state) {
    pugi::xml_document doc;
    if (!doc.load_buffer(document().data(), document().size())) std::abort();
    for (auto _ : state) {
        StringWriter writer;
        doc.save(writer);
        benchmark::DoNotOptimize(writer.text.size());
    }
    bench::setBytes(state, document().size());
}
QV_ROW("write XML of 5 MB", "pugixml", writePugixml)->Unit(benchmark::kMillisecond);
#endif

#if defined(QV_PEER_TINYXML2)
void parseTinyxml2(benchmark::State& state) {
    for (auto _ : state) {
        tinyxml2::XMLDocument doc;
        if (doc.Parse(document().data(), document().size()) != tinyxml2::XML_SUCCESS) {
            return state.SkipWithError("not parsed");
        }
        benchmark::DoNotOptimize(doc.RootElement());
    }
    bench::setBytes(state, document().size());
}
QV_ROW("parse XML of 5 MB", "tinyxml2", parseTinyxml2)->Unit(benchmark::kMillisecond);

void writeTinyxml2(benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(document().data(), document().size());
    for (auto _ : state) {
        tinyxml2::XMLPrinter printer;
        doc.Print(&printer);
        benchmark::DoNotOptimize(printer.CStrSize());
    }
    bench::setBytes(state, document().size());
}
QV_ROW("write XML of 5 MB", "tinyxml2", writeTinyxml2)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
