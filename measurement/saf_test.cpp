// safTest: the header's own test, for users who want to know that saving in place works on their file system.
#include <algorithm>
#include <cstring>

#include "core/text.h"
#include "qv/file.h"
#include "qv/file_system.h"
#include "qv/saf_file.h"

namespace qv {

namespace {

constexpr uint32_t dataWords = 0x14000;
constexpr uint32_t dataModulus = 0x4000;
constexpr uint32_t compareBlockBytes = 0x80000;

/// What one case does to a header before it is saved.
struct Case {
    const char16_t* title;
    const char16_t* tag;  ///< The tag that is added or removed; null for none.
    uint32_t lineBytes;   ///< Bytes of its line in the file.
    enum { nothing, add, remove, addSaveRemove } action;
};

constexpr Case cases[] = {
    {u"Not modifying anything.", nullptr, 0, Case::nothing},
    {u"Adding 8 characters of data.", u"8chAdd", 8, Case::add},
    {u"Removing 8 characters of data.", u"8ch", 8, Case::remove},
    {u"Adding 16 characters of data.", u"16charsAdd", 16, Case::add},
    {u"Removing 16 characters of data.", u"16chars", 16, Case::remove},
    {u"Adding 26 characters of data.", u"26charsAdd", 26, Case::add},
    {u"Removing 26 characters of data.", u"26chars", 26, Case::remove},
    {u"Adding, Saving, then Removing 4k characters of data.", u"4k", 4096, Case::addSaveRemove},
    {u"Adding, Saving, then Removing 4k + 8 characters of data.", u"4k8", 4104, Case::addSaveRemove},
};

/// Three ways of saving what a case made.
struct Route {
    const char16_t* suffix;
    enum { asNew, inPlace, asCopy } way;
};
constexpr Route routes[] = {
    {u".new.test%02d.lmseq", Route::asNew},
    {u".save.test%02d.lmseq", Route::inPlace},
    {u".saveas.test%02d.lmseq", Route::asCopy},
};

/// Adds tags under `name` until their lines make up `bytes`. A line holds at most 400, so that it can be read back.
void addLines(CSAFFile& header, const char16_t* name, uint32_t bytes) {
    constexpr uint32_t longest = 400;
    const auto frame = static_cast<uint32_t>(CString(name).GetLength()) + 3;
    while (bytes > 0) {
        const uint32_t line = bytes <= longest ? bytes : std::min(longest, bytes - frame - 1);
        header.AddTag(name, CString(line > frame ? line - frame : 0u, u'x').c_str());
        bytes -= std::min(bytes, line);
    }
}

void removeLines(CSAFFile& header, const char16_t* name) {
    while (header.RemoveTag(name)) {
    }
}

class SafTest {
public:
    SafTest(const CString& folder, TArray<CString>& report) : m_folder(folder), m_report(report) {}

    bool run() {
        fileSystem().CreateDirectoryW(m_folder.c_str(), true);
        m_log = CFile::Create(path(u"safTest.log").c_str(), 0x28);
        bool passed = writeBase(u"safTest", false, false) && writeBase(u"safTest.pad", true, false) &&
                      writeBase(u"safTest.data", true, true);
        for (const char16_t* variant : {u"safTest", u"safTest.pad", u"safTest.data"}) {
            for (const Route& route : routes) passed = runCases(variant, route) && passed;
        }
        say(passed ? u"Test passed." : u"Test failed.");
        return passed;
    }

private:
    CString path(const char16_t* name) const { return IFileSystem::MakePath(m_folder, name, u'/'); }

    void say(const CString& line) {
        m_report.Add(line);
        if (m_log) m_log->WriteFormattedString("%s\r\n", line);
    }

    bool writeBase(const CString& name, bool pad, bool data) {
        CSAFFile header;
        header.New(false);
        const char16_t* const tags[][2] = {
            {u"KeyWrd", u"safTest"}, {u"Multi", u"NoHeaders"}, {u"BytOrd", u"LSBFirst"},
            {u"DaType", u"UInt16"},  {u"ADBits", u"14"},       {u"xPixls", u"320"},
            {u"yPixls", u"256"},     {u"IMSize", u"163480"},   {u"NumDPs", u"1"},
        };
        for (const auto& tag : tags) header.AddTag(tag[0], tag[1]);
        for (const Case& test : cases) {
            if (test.action == Case::remove) addLines(header, test.tag, test.lineBytes);
        }
        const CString target = path((name + u".lmseq").c_str());
        return header.Save(target.c_str(), pad) && (!data || appendData(target, header.GetDataPosition()));
    }

    bool appendData(const CString& target, uint32_t position) {
        TSharedPtr<IFile> file = CFile::Create(target.c_str(), 0x22);
        if (!file) return false;
        TArray<uint16_t> words(dataWords);
        for (uint32_t i = 0; i < dataWords; ++i) words[i] = static_cast<uint16_t>(i % dataModulus);
        file->SetPosition(position);
        return file->WriteBytes(words.data(), dataWords * 2);
    }

    bool runCases(const CString& variant, const Route& route) {
        bool passed = true;
        for (uint32_t i = 0; i < std::size(cases); ++i) {
            const CString base = path((variant + u".lmseq").c_str());
            const CString target = path((variant + CString::FromFormat(route.suffix, i + 1)).c_str());
            say(cases[i].title);
            const bool good = runCase(cases[i], route, base, target) && compare(base, target, cases[i].tag);
            say(good ? u"Passed." : u"Failed.");
            passed = passed && good;
        }
        return passed;
    }

    bool runCase(const Case& test, const Route& route, const CString& base, const CString& target) {
        CSAFFile header;
        if (route.way == Route::inPlace) {
            IFileSystem::CopyFileW(&fileSystem(), base.c_str(), &fileSystem(), target.c_str(), true, nullptr, nullptr);
        }
        if (!header.Load(route.way == Route::inPlace ? target.c_str() : base.c_str())) return false;
        if (test.action == Case::add || test.action == Case::addSaveRemove) addLines(header, test.tag, test.lineBytes);
        if (test.action == Case::remove) removeLines(header, test.tag);
        if (!save(header, route, base, target)) return false;
        if (test.action != Case::addSaveRemove) return true;
        removeLines(header, test.tag);
        return header.Save();
    }

    bool save(CSAFFile& header, const Route& route, const CString& base, const CString& target) {
        if (route.way == Route::inPlace) return header.Save();
        if (route.way == Route::asCopy) return header.Save(target.c_str(), true);
        header.DropData();
        if (!header.Save(target.c_str(), true)) return false;
        CSAFFile original;
        TSharedPtr<IFile> source = CFile::Create(base.c_str(), 0x12);
        const bool hasData = source && original.Load(source) && source->GetSize() > int64_t{original.GetDataPosition()};
        return !hasData || appendData(target, header.GetDataPosition());
    }

    /// Every tag of `base` but those named `changed` stands in `target` with the same value, and the data are equal.
    bool compare(const CString& base, const CString& target, const char16_t* changed) {
        say(CString::FromFormat(u"Comparing %s to %s.", base, target));
        TSharedPtr<IFile> files[2];
        CSAFFile headers[2];
        const CString* names[2] = {&base, &target};
        for (int i = 0; i < 2; ++i) {
            files[i] = CFile::Create(names[i]->c_str(), 0x212);
            if (!files[i]) return fail(CString::FromFormat(u"Could not open file \"%s\".", *names[i]));
            if (!headers[i].Load(files[i])) {
                return fail(CString::FromFormat(u"Could not load header for file \"%s\".", *names[i]));
            }
        }
        return compareTags(headers[0], headers[1], base, target, changed) &&
               compareTags(headers[1], headers[0], target, base, changed) && say(u"Tag values match.", true) &&
               compareData(*files[0], headers[0].GetDataPosition(), *files[1], headers[1].GetDataPosition());
    }

    bool compareTags(const CSAFFile& a, const CSAFFile& b, const CString& nameA, const CString& nameB,
                     const char16_t* changed) {
        for (uint32_t i = 0; i < a.nTags(); ++i) {
            const SAF_TAG& tag = a[i];
            if (changed != nullptr && text::compareNoCase(tag.name.c_str(), changed) == 0) continue;
            const char16_t* other = b.GetTagValue(tag.name.c_str());
            if (other == nullptr) {
                return fail(CString::FromFormat(u"Tag %s exists in %s, but not in %s.", tag.name, nameA, nameB));
            }
            if (StrCmp(tag.value.c_str(), other) != 0) {
                return fail(CString::FromFormat(u"Tag %s is different (%s vs. %s).", tag.name, tag.value, other));
            }
        }
        return true;
    }

    bool compareData(IFile& a, uint32_t positionA, IFile& b, uint32_t positionB) {
        int64_t left = a.GetSize() - positionA;
        if (left != b.GetSize() - positionB) return fail(u"Data segment sizes do not match.");
        TSimpleArray<char> blockA(compareBlockBytes);
        TSimpleArray<char> blockB(compareBlockBytes);
        a.SetPosition(positionA);
        b.SetPosition(positionB);
        while (left > 0) {
            const auto count = static_cast<uint32_t>(std::min<int64_t>(left, compareBlockBytes));
            if (!a.ReadBytes(blockA.data(), count) || !b.ReadBytes(blockB.data(), count)) return fail(u"FileIO error.");
            if (std::memcmp(blockA.data(), blockB.data(), count) != 0) return fail(u"Data segments are different.");
            left -= count;
        }
        return say(u"Data segments match.", true);
    }

    bool fail(const CString& line) { return say(line, false); }
    bool say(const CString& line, bool result) {
        say(line);
        return result;
    }

    CString m_folder;
    TArray<CString>& m_report;
    TSharedPtr<IFile> m_log;
};

}  // namespace

bool safTest(const char16_t* folder, TArray<CString>& report) { return SafTest(folder, report).run(); }

bool safTest(TArray<CString>& report) {
    const CString temporary = fileSystem().GetTempFilename();
    fileSystem().DeleteFileW(temporary.c_str());
    char16_t folder[2048] = {};
    IFileSystem::GetDirectory(folder, temporary.c_str());
    return safTest(IFileSystem::MakePath(CString(folder), u"safTest", u'/').c_str(), report);
}

bool safTest() {
    TArray<CString> report;
    return safTest(report);
}

}  // namespace qv
