// Copies and releases of strings beside std::shared_ptr, conversion between UTF-8 and UTF-16 beside ICU, formatting
// beside snprintf.
#include "rows.h"

#include <cstdio>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qv/string.h"

#ifdef QV_PEER_ICU
#include <unicode/ustring.h>
#endif

namespace {

constexpr int64_t copies = 1000000;
constexpr size_t textBytes = 1 << 20;

/// 1 MB of UTF-8 in words that follow each other without a period: all of them ASCII, or also such as are not.
std::string makeText(bool mixed) {
    const char* const words[] = {"frame",     "temperature",     "at",
                                 "of",        "640x512",         "counts",
                                 "36.6",      "Gr\u00FC\u00DFe", "\u00B0C",
                                 "Zo\u00EB",  "\u6E29\u5EA6",    "\U0001F600",
                                 "\u00FCber", "m\u00B2",         "\u0442\u0435\u043F\u043B\u043E"};
    std::mt19937 random(1);
    std::string text;
    while (text.size() < textBytes) text.append(words[random() % (mixed ? std::size(words) : 7)]) += ' ';
    return text;
}

// Copies --------------------------------------------------------------------------------------------------------------

/// std::shared_ptr counts without atomics until a process has had a second thread; a CString never does.
void makeMultithreaded() {
    static const bool done = (std::thread([] {}).join(), true);
    benchmark::DoNotOptimize(done);
}

template <class Handle>
void copyAll(benchmark::State& state, const std::vector<Handle>& source) {
    makeMultithreaded();
    for (auto _ : state) {
        const std::vector<Handle> target(source);
        benchmark::DoNotOptimize(target.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(source.size()));
}

void CopyCString(benchmark::State& state) {
    std::vector<qv::CString> source;
    for (int64_t i = 0; i < copies; ++i) source.push_back(qv::CString::FromFormat(u"string %I64d", i));
    copyAll(state, source);
}
QV_ROW("copy 1 M strings", "qv", CopyCString);

void CopySharedPtr(benchmark::State& state) {
    std::vector<std::shared_ptr<const std::u16string>> source;
    for (int64_t i = 0; i < copies; ++i)
        source.push_back(std::make_shared<std::u16string>(qv::CString::FromFormat(u"string %I64d", i)));
    copyAll(state, source);
}
QV_ROW("copy 1 M strings", "shared_ptr", CopySharedPtr);

// Conversion ----------------------------------------------------------------------------------------------------------

void Utf8ToUtf16(benchmark::State& state) {
    const std::string text = makeText(state.range(0) != 0);
    std::u16string out(text.size(), u'\0');
    const auto size = static_cast<int>(text.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(qv::CString::ConvertToUTF16(text.data(), size, out.data(), size));
    }
    if (qv::CString(out.c_str()) != qv::CString(text) || qv::CStringMB(qv::CString(text)) != text)
        state.SkipWithError("wrong text");
    state.SetBytesProcessed(state.iterations() * size);
}
QV_ROW("UTF-8 to UTF-16", "qv", Utf8ToUtf16)->ArgName("mixed")->Arg(0)->Arg(1);

void Utf16ToUtf8(benchmark::State& state) {
    const std::string text = makeText(state.range(0) != 0);
    const qv::CString wide(text);
    std::string out(text.size(), '\0');
    const auto size = static_cast<int>(text.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(qv::CString::ConvertToUTF8(wide.c_str(), wide.GetLength(), out.data(), size));
    }
    if (out != text) state.SkipWithError("wrong text");
    state.SetBytesProcessed(state.iterations() * size);
}
QV_ROW("UTF-16 to UTF-8", "qv", Utf16ToUtf8)->ArgName("mixed")->Arg(0)->Arg(1);

#ifdef QV_PEER_ICU
void IcuUtf8ToUtf16(benchmark::State& state) {
    const std::string text = makeText(state.range(0) != 0);
    std::u16string out(text.size(), u'\0');
    const auto size = static_cast<int32_t>(text.size());
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        int32_t units = 0;
        u_strFromUTF8WithSub(out.data(), size, &units, text.data(), size, 0xFFFD, nullptr, &error);
        benchmark::DoNotOptimize(units);
    }
    if (qv::CString(out.c_str()) != qv::CString(text)) state.SkipWithError("wrong text");
    state.SetBytesProcessed(state.iterations() * size);
}
QV_ROW("UTF-8 to UTF-16", "icu", IcuUtf8ToUtf16)->ArgName("mixed")->Arg(0)->Arg(1);

void IcuUtf16ToUtf8(benchmark::State& state) {
    const std::string text = makeText(state.range(0) != 0);
    const qv::CString wide(text);
    std::string out(text.size(), '\0');
    const auto size = static_cast<int32_t>(text.size());
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        int32_t units = 0;
        u_strToUTF8WithSub(out.data(), size, &units, wide.c_str(), wide.GetLength(), 0xFFFD, nullptr, &error);
        benchmark::DoNotOptimize(units);
    }
    if (out != text) state.SkipWithError("wrong text");
    state.SetBytesProcessed(state.iterations() * size);
}
QV_ROW("UTF-16 to UTF-8", "icu", IcuUtf16ToUtf8)->ArgName("mixed")->Arg(0)->Arg(1);
#endif

// Formatting ----------------------------------------------------------------------------------------------------------

void FormatLine(benchmark::State& state) {
    qv::CStringMB line;
    for (auto _ : state) {
        line.Format("%-8s = %d, %.14g [%5.1f]", "xPixls", 640, 3.141592653589793, 21.5);
        benchmark::DoNotOptimize(line.c_str());
    }
    if (line != "xPixls   = 640, 3.1415926535898 [ 21.5]") state.SkipWithError("wrong text");
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("format a line", "qv", FormatLine);

void SnprintfLine(benchmark::State& state) {
    char line[256];
    for (auto _ : state) {
        std::snprintf(line, sizeof(line), "%-8s = %d, %.14g [%5.1f]", "xPixls", 640, 3.141592653589793, 21.5);
        benchmark::DoNotOptimize(line);
    }
    state.SetItemsProcessed(state.iterations());
}
QV_ROW("format a line", "snprintf", SnprintfLine);

}  // namespace

BENCHMARK_MAIN();
