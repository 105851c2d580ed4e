// Ten thousand small files: out of one container, and as files of a folder.
#include "rows.h"

#include <string>
#include <vector>

#include "qv/cd_file_system.h"

namespace {

using namespace qv;

constexpr uint32_t files = 10'000, fileBytes = 1000;

const std::vector<CString>& names() {
    static const std::vector<CString> made = [] {
        std::vector<CString> all;
        for (uint32_t i = 0; i < files; ++i) all.push_back(CString::FromFormat(u"frame%05u.saf", i));
        return all;
    }();
    return made;
}

/// A folder and a container with the same files; they go at the end of the program.
struct Data {
    CString folder = fileSystem().CreateTempDirectory();
    CString container = folder + u"/all.cdfs";
    Data() {
        const std::string bytes(fileBytes, 'x');
        CCDFileSystem all;
        all.Create(container.c_str(), false);
        std::vector<TSharedPtr<IFile>> open;  // closing one writes the table
        for (const CString& name : names()) {
            open.push_back(all.CreateFileW(name.c_str(), CFile::createNew));
            open.back()->WriteBytes(bytes.data(), fileBytes);
            CFile::Create((folder + u"/" + name).c_str(), CFile::createNew | CFile::accessWrite)
                ->WriteBytes(bytes.data(), fileBytes);
        }
    }
    ~Data() { fileSystem().RemoveDirectoryW(folder.c_str(), true); }
};
const Data& data() {
    static const Data made;
    return made;
}

void readAll(benchmark::State& state, IFileSystem& system, const CString& prefix) {
    std::vector<char> bytes(fileBytes);
    for (const CString& name : names()) {
        const TSharedPtr<IFile> file =
            system.CreateFileW((prefix + name).c_str(), CFile::openExisting | CFile::accessRead);
        if (!file || !file->ReadBytes(bytes.data(), fileBytes)) state.SkipWithError("short");
    }
}

void readContainer(benchmark::State& state) {
    CCDFileSystem container;
    container.Open(data().container.c_str(), true);
    for (auto _ : state) readAll(state, container, u"");
    state.SetItemsProcessed(state.iterations() * files);
}
void openAndReadContainer(benchmark::State& state) {
    for (auto _ : state) {
        CCDFileSystem container;
        container.Open(data().container.c_str(), true);
        readAll(state, container, u"");
    }
    state.SetItemsProcessed(state.iterations() * files);
}
void readFolder(benchmark::State& state) {
    for (auto _ : state) readAll(state, fileSystem(), data().folder + u"/");
    state.SetItemsProcessed(state.iterations() * files);
}
QV_ROW("read 10000 files of an open container", "qv", readContainer)->Unit(benchmark::kMillisecond);
QV_ROW("open a container and read 10000 files", "qv", openAndReadContainer)->Unit(benchmark::kMillisecond);
QV_ROW("read 10000 files of an open container", "folder", readFolder)->Unit(benchmark::kMillisecond);
QV_ROW("open a container and read 10000 files", "folder", readFolder)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
