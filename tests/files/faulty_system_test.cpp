// What a failing file system does to those who work on it: every operation in turn, and what was there stays.
#include <gtest/gtest.h>

#include <functional>

#include "qv/aff_file.h"
#include "qv/cd_file_system.h"
#include "qv/memory_file_system.h"
#include "qv/merged_file_system.h"
#include "qv/saf_file.h"
#include "qv/sb_file.h"
#include "support/faulty_file_system.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

using FS = IFileSystem;

bool put(FS& system, const char16_t* path, const std::string& text) {
    const auto file = system.CreateFileW(path, CFile::createTruncate | CFile::accessWrite);
    return file && file->WriteBytes(text.data(), static_cast<uint32_t>(text.size()));
}
std::string get(FS& system, const char16_t* path) {
    const auto file = system.CreateFileW(path, CFile::openExisting | CFile::accessRead);
    return file ? bytesOf(*file) : "(none)";
}

bool editHeader(FS& system) {
    CSAFFile header;
    if (!header.Load(&system, u"/h.saf")) return false;
    header[u"Camera"] = u"MW1";
    return header.Save(&system, u"/h.saf", true);
}

bool attachContainer(FS& system) {
    CCDFileSystem container;
    return container.Create(&system, u"/host", true) && put(container, u"entry", "text") && container.Flush();
}

bool makeComposite(FS& system) {
    CAFFFile composite;
    if (!composite.Create(&system, u"/new.aff")) return false;
    const uint32_t position = composite.CreateIndex(1, 0, 100, CAFFFile::automaticId);
    return position == 0 && composite.GetIndex(position)->file.WriteBytes("text", 4) && composite.Close();
}

bool writeThroughLayers(FS& system) {
    CMergedFileSystem merged;
    CMemoryFileSystem below;
    return put(below, u"/under", "below") && merged.AddLayer(below, 0) && merged.AddLayer(system, 1, true) &&
           merged.CopyFileW(&merged, u"/under", &merged, u"/copy", true) &&
           merged.CreateFileW(u"/under", CFile::openExisting | CFile::accessWrite) != nullptr;
}

TEST(FaultyFileSystem, NoFailureTouchesWhatWasThere) {
    const struct {
        const char* name;
        std::function<bool(FS&)> work;
    } scenarios[] = {
        {"copy", [](FS& system) { return FS::CopyFileW(&system, u"/a", &system, u"/b", false); }},
        {"header", editHeader},
        {"container", attachContainer},
        {"composite", makeComposite},
        {"tree", [](FS& system) { return CSBFile().Save(&system, u"/t.sbf"); }},
        {"layers", writeThroughLayers},
    };
    for (const auto& scenario : scenarios) {
        bool failed = true;
        for (uint64_t n = 1; failed && n < 200; ++n) {
            SCOPED_TRACE(std::string(scenario.name) + ", operation " + std::to_string(n));
            CMemoryFileSystem disk;
            CSAFFile header;
            header.New(false);
            ASSERT_TRUE(put(disk, u"/a", "aaaa") && put(disk, u"/host", "host") && header.Save(&disk, u"/h.saf", true));
            FaultyFileSystem system(disk);
            system.failAt(n);
            const bool done = scenario.work(system);
            failed = system.hasFailed();
            EXPECT_TRUE(done || failed);
            EXPECT_EQ(get(disk, u"/a"), "aaaa");
            EXPECT_EQ(get(disk, u"/host").substr(0, 4), "host");
            CSAFFile after;
            EXPECT_TRUE(after.Load(&disk, u"/h.saf"));
        }
        EXPECT_FALSE(failed) << scenario.name;
    }
}

}  // namespace
}  // namespace qv::test
