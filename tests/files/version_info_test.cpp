#include "qv/version_info.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "qv/diagnostic.h"
#include "qv/file.h"
#include "support/memory_file.h"

namespace qv::test {
namespace {

std::string little(uint64_t value, int bytes) {
    std::string text;
    for (; bytes-- > 0; value >>= 8) text += static_cast<char>(value);
    return text;
}

std::string wide(const std::string& ascii) {
    std::string text;
    for (const char c : ascii + '\0') text += {c, '\0'};
    return text;
}

void pad(std::string& text) { text.resize((text.size() + 3) & ~size_t{3}); }

/// A block of the record: lengths, name, value and what stands inside it.
std::string block(const std::string& name, const std::string& value, size_t valueSize, int type,
                  const std::string& inside = "") {
    std::string rest = little(valueSize, 2) + little(static_cast<uint64_t>(type), 2) + wide(name);
    for (const std::string& part : {value, inside}) {
        if (part.empty()) continue;
        rest.resize(((rest.size() + 2 + 3) & ~size_t{3}) - 2);
        rest += part;
    }
    return little(rest.size() + 2, 2) + rest;
}

std::string padded(std::string text) {
    pad(text);
    return text;
}

std::string entry(const std::string& name, const std::string& value) {
    return padded(block(name, wide(value), value.size() + 1, 1));
}

std::string record(bool fixedInfo = true) {
    const std::string english = entry("FileVersion", "1.2") + entry("CompanyName", "Optics") + entry("Empty", "");
    const std::string german = entry("CompanyName", "Optik");
    const std::string tables =
        padded(block("StringFileInfo", "", 0, 1,
                     padded(block("040704B0", "", 0, 1, german)) + block("040904b0", "", 0, 1, english)));
    const std::string languages =
        block("VarFileInfo", "", 0, 1,
              block("Translation", little(0x0C0C, 2) + little(1200, 2) + little(0x0409, 2) + little(1200, 2), 8, 0));
    std::string fixed = little(0xFEEF04BD, 4) + little(0x10000, 4);
    for (const uint32_t value : {0x00010002u, 0x00030004u, 0x00050006u, 0x00070008u, 0x3Fu, 0x2u, 0x40004u, 2u, 7u,
                                 0x01DA0000u, 0x12345678u}) {
        fixed += little(value, 4);
    }
    if (!fixedInfo) fixed.clear();
    return block("VS_VERSION_INFO", fixed, fixed.size(), 0, tables + languages);
}

/// Directory with one entry.
std::string directory(uint32_t id, uint32_t target) {
    return little(0, 12) + little(0, 2) + little(1, 2) + little(id, 4) + little(target, 4);
}

/// An executable whose only section holds resources, at address 0x2000.
std::string executable(bool plus, const std::string& versionRecord) {
    constexpr uint32_t address = 0x2000, deeper = 0x80000000u;
    std::string section = directory(16, deeper | 24) + directory(1, deeper | 48) + directory(0x409, 72);
    section += little(address + 88, 4) + little(versionRecord.size(), 4) + little(0, 8) + versionRecord;
    const uint32_t optionalSize = plus ? 240 : 224, headers = 64 + 24 + optionalSize + 40;
    std::string file = "MZ" + std::string(58, '\0') + little(64, 4);
    file += std::string("PE\0\0", 4) + little(plus ? 0x8664 : 0x14C, 2) + little(1, 2) + little(0, 12) +
            little(optionalSize, 2) + little(0x2022, 2);
    std::string optional = little(plus ? 0x20B : 0x10B, 2);
    optional.resize(plus ? 108 : 92);
    optional += little(16, 4) + little(0, 16) + little(address, 4) + little(section.size(), 4);
    optional.resize(optionalSize);
    file += optional + std::string(".rsrc\0\0\0", 8);
    for (const size_t field : {section.size(), size_t{address}, section.size() + 8, size_t{headers}})
        file += little(field, 4);
    return file + little(0, 16) + section + std::string(8, '\0');
}

TEST(VersionInfo, ReadsBothKindsOfExecutable) {
    for (const bool plus : {false, true}) {
        CVersionInfo info;
        ASSERT_TRUE(info.Load(&*memoryFile(executable(plus, record())))) << LastDiagnostic().ToString().GetUTF8();
        EXPECT_TRUE(info.HasFixedInfo());
        EXPECT_STREQ(info.GetFileVersion().ToString().GetUTF8(), "1.2.3.4");
        EXPECT_STREQ(info.GetProductVersion().ToString().GetUTF8(), "5.6.7.8");
        EXPECT_LT(info.GetFileVersion(), info.GetProductVersion());
        const CVersionInfo::FixedInfo& fixed = info.GetFixedInfo();
        EXPECT_EQ(fixed.flagsMask, 0x3Fu);
        EXPECT_EQ(fixed.flags, 2u);
        EXPECT_EQ(fixed.os, 0x40004u);
        EXPECT_EQ(fixed.type, 2u);
        EXPECT_EQ(fixed.subtype, 7u);
        EXPECT_EQ(fixed.date, 0x01DA000012345678u);
        EXPECT_EQ(info.GetTranslations().size(), 2u);
        EXPECT_EQ(info.GetStringTables().size(), 2u);
        EXPECT_STREQ(info.GetString(u"companyname").GetUTF8(), "Optics");
        EXPECT_STREQ(info.GetString(u"CompanyName", {0x407, 1200}).GetUTF8(), "Optik");
        EXPECT_STREQ(info.GetString(u"FileVersion").GetUTF8(), "1.2");
        EXPECT_TRUE(info.GetString(u"Empty").IsEmpty() && info.GetString(u"FileVersion", {0x407, 1200}).IsEmpty());
        EXPECT_FALSE(info.Load(&*memoryFile("MZ")));
        EXPECT_TRUE(!info.HasFixedInfo() && info.GetStringTables().size() == 0);
    }
    CVersionInfo info;
    EXPECT_TRUE(info.Load(&*memoryFile(executable(false, record(false)))));
    EXPECT_FALSE(info.HasFixedInfo());
    EXPECT_STREQ(info.GetString(u"CompanyName").GetUTF8(), "Optics");
}

TEST(VersionInfo, TruncatedAndDamagedFilesAreRefusedOrRead) {
    const std::string whole = executable(false, record());
    const size_t end = whole.size() - 8;
    CVersionInfo info;
    for (size_t size = 0; size < end; ++size) {
        ClearDiagnostic();
        EXPECT_FALSE(info.Load(&*memoryFile(whole.substr(0, size)))) << size;
        EXPECT_TRUE(LastDiagnostic().IsSet());
    }
    EXPECT_TRUE(info.Load(&*memoryFile(whole.substr(0, end))));
    std::mt19937 random(11);
    int loaded = 0;
    for (int i = 0; i < 20'000; ++i) {
        std::string damaged = whole;
        for (unsigned n = random() % 4 + 1; n-- > 0;) damaged[random() % damaged.size()] = static_cast<char>(random());
        loaded += info.Load(&*memoryFile(damaged));
    }
    EXPECT_TRUE(loaded > 1000 && loaded < 19'000) << loaded;
}

TEST(VersionInfo, DirectoriesThatLeadBackAreRefused) {
    std::string whole = executable(true, record());
    const size_t section = whole.find(directory(16, 0x80000000u | 24));
    const std::string good = whole;
    whole.replace(section + 72 - 4, 4, little(0x80000000u, 4));  // The languages lead to the root.
    CVersionInfo info;
    EXPECT_FALSE(info.Load(&*memoryFile(whole)));
    whole = good;
    whole.replace(section + 20, 4,
                  little(0x80000000u, 4));  // The kinds lead to themselves, which are no languages' data.
    EXPECT_FALSE(info.Load(&*memoryFile(whole)));
    whole = good;
    whole.replace(section + 16, 4, little(15, 4));
    EXPECT_FALSE(info.Load(&*memoryFile(whole)));
}

TEST(VersionInfo, OfThisLibrary) {
    EXPECT_STREQ(CVersionInfo::LibraryVersionText().GetUTF8(), QV_VERSION_STRING);
    EXPECT_EQ(CVersionInfo::LibraryVersion().ToString(), CVersionInfo::LibraryVersionText() + u".0");
}

}  // namespace
}  // namespace qv::test
