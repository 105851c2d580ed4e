// Text of numbers beside the C library, and an INI file of 2 MB beside Boost's property tree. Items are values.
#include "rows.h"

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qv/ini_store.h"
#include "qv/values.h"

#ifdef QV_PEER_BOOST
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <sstream>
#endif

namespace {

constexpr int sections = 200, valuesPerSection = 500;

/// Finite numbers of all magnitudes.
const std::vector<double>& numbers() {
    static const std::vector<double> made = [] {
        std::vector<double> all;
        for (std::mt19937_64 random(1); all.size() < 10000;) {
            const auto value = std::bit_cast<double>(uint64_t{random()});
            if (value - value == 0) all.push_back(value);
        }
        return all;
    }();
    return made;
}

const std::string& iniText() {
    static const std::string text = [] {
        std::string made;
        for (int s = 0; s < sections; ++s) {
            made += "[section" + std::to_string(s) + "]\n; what these are\n";
            for (int i = 0; i < valuesPerSection; ++i) {
                made += "value" + std::to_string(i) + " = " + std::to_string(i * s * 0.37) + "\n";
            }
        }
        return made;
    }();
    return text;
}

void exactText(benchmark::State& state) {
    for (auto _ : state) {
        for (const double value : numbers()) benchmark::DoNotOptimize(qv::CFlt64::ToStringExact(value));
    }
    bench::setItems(state, numbers().size());
}
QV_ROW("number to exact text", "qv", exactText);

void exactTextPrintf(benchmark::State& state) {
    for (auto _ : state) {
        for (const double value : numbers()) {
            char text[40];
            std::snprintf(text, sizeof text, "%.17g", value);
            benchmark::DoNotOptimize(std::string(text));
        }
    }
    bench::setItems(state, numbers().size());
}
QV_ROW("number to exact text", "printf", exactTextPrintf);

void parse(benchmark::State& state) {
    std::vector<qv::CString> texts;
    for (const double value : numbers()) texts.push_back(qv::CFlt64::ToStringExact(value));
    for (auto _ : state) {
        for (const qv::CString& text : texts) benchmark::DoNotOptimize(qv::CFlt64::Parse(text));
    }
    bench::setItems(state, texts.size());
}
QV_ROW("text to number", "qv", parse);

void parseStrtod(benchmark::State& state) {
    std::vector<std::string> texts;
    for (const double value : numbers()) texts.emplace_back(qv::CFlt64::ToStringExact(value).GetUTF8());
    for (auto _ : state) {
        for (const std::string& text : texts) benchmark::DoNotOptimize(std::strtod(text.c_str(), nullptr));
    }
    bench::setItems(state, texts.size());
}
QV_ROW("text to number", "strtod", parseStrtod);

void loadIni(benchmark::State& state) {
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(iniText().data(), static_cast<uint32_t>(iniText().size()));
    for (auto _ : state) {
        qv::CINIStore store;
        file->SeekToBegin();
        if (!store.Load(qv::TSharedPtr<qv::IFile>(file))) std::abort();
    }
    bench::setItems(state, size_t{sections} * valuesPerSection);
}
QV_ROW("load INI of 2 MB", "qv", loadIni)->Unit(benchmark::kMillisecond);

void readIni(benchmark::State& state) {
    qv::CINIStore store;
    const qv::TSharedPtr<qv::CMemFile> file = qv::CMemFile::Create();
    file->WriteBytes(iniText().data(), static_cast<uint32_t>(iniText().size()));
    file->SeekToBegin();
    if (!store.Load(qv::TSharedPtr<qv::IFile>(file))) std::abort();
    for (auto _ : state) {
        for (int i = 0; i < valuesPerSection; ++i) {
            benchmark::DoNotOptimize(store.GetFlt64(qv::CString::FromFormat(u"section150/value%d", i)));
        }
    }
    bench::setItems(state, valuesPerSection);
}
QV_ROW("read INI values", "qv", readIni);

#if defined(QV_PEER_BOOST)
void loadIniBoost(benchmark::State& state) {
    for (auto _ : state) {
        std::istringstream in(iniText());
        boost::property_tree::ptree tree;
        boost::property_tree::read_ini(in, tree);
        benchmark::DoNotOptimize(tree);
    }
    bench::setItems(state, size_t{sections} * valuesPerSection);
}
QV_ROW("load INI of 2 MB", "boost", loadIniBoost)->Unit(benchmark::kMillisecond);

void readIniBoost(benchmark::State& state) {
    std::istringstream in(iniText());
    boost::property_tree::ptree tree;
    boost::property_tree::read_ini(in, tree);
    for (auto _ : state) {
        for (int i = 0; i < valuesPerSection; ++i) {
            benchmark::DoNotOptimize(tree.get<double>("section150.value" + std::to_string(i)));
        }
    }
    bench::setItems(state, valuesPerSection);
}
QV_ROW("read INI values", "boost", readIniBoost);
#endif

}  // namespace

BENCHMARK_MAIN();
