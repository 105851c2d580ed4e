#include "qv/run_modtran.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/process.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/tape5_file.h"
#include "qv/tape7_file.h"

namespace qv {

namespace {

using namespace platform;

constexpr size_t pathChars = 512;
constexpr size_t chunkBytes = 1023;
constexpr std::string_view failureMarker = "*ERR*";

char16_t exePath[pathChars] = u"c:\\modtran\\mod4v3r1.exe";

bool fail(const CString& file, const CString& expected, const CString& found) {
    SetDiagnostic(file, expected, found);
    return false;
}

/// The path that the system takes: absolute, since the program works in another folder than this one.
CString startedPath() { return fileSystem().GetFullPath(CString(exePath)); }

CString directoryOf(const CString& path) {
    std::u16string buffer(path.c_str());
    IFileSystem::GetDirectory(buffer.data());
    return buffer.c_str();
}

std::string utf8(const CString& text) { return CStringMB(text.c_str()).c_str(); }

bool removeOldOutput(const CString& path) {
    if (fileSystem().GetFileInfo(path.c_str()).type == IFileSystem::typeNothing) return true;
    return fileSystem().DeleteFileW(path.c_str()) ||
           fail(path, u"a place for the output", u"an older one that cannot be removed");
}

/// True when the program came to its end by itself and printed no failure.
bool runToEnd(const CString& exe, const CString& directory) {
    ChildProcess child;
    const int error = child.start({utf8(exe)}, {.directory = utf8(directory), .captured = true});
    if (error != 0) return fail(exe, u"a program", CString(std::generic_category().message(error)));
    bool failed = false;
    const auto look = [&](std::string_view chunk) {
        chunk = chunk.substr(0, chunk.find('\0'));  // a text ends at its first NUL
        failed = failed || chunk.find(failureMarker) != std::string_view::npos;
    };
    if (follow(child, chunkBytes, look, deadlineAfter(forever)) != Followed::toTheEnd) {
        child.stop(true);
        (void)child.finish();
        return fail(exe, u"a program whose output can be followed", u"no way to wait for it");
    }
    const ChildEnd end = child.finish();
    if (end.bySignal) return fail(exe, u"a run to its end", CString::FromFormat(u"signal %d", end.code - 128));
    return !failed || fail(exe, u"a run without failure", u"*ERR* in what it printed");
}

}  // namespace

bool SetModtranExePath(const char16_t* path) {
    if (path == nullptr || !fileSystem().FileExists(path)) {
        return fail(path, u"the atmosphere program", u"no such file");
    }
    const std::u16string_view text(path);
    const size_t kept = std::min(text.size(), pathChars - 1);
    std::fill(std::copy_n(text.data(), kept, exePath), exePath + pathChars, u'\0');
    return true;
}

const char16_t* GetModtranExePath() { return exePath; }

bool RunModtran(CModtranTape5File& tape5, CModtranTape7File& tape7, uint64_t flags) {
    const CString exe = startedPath();
    const CString directory = directoryOf(exe);
    const CString input = IFileSystem::MakePath(directory, u"tape5");
    const CString output = IFileSystem::MakePath(directory, u"tape7");
    if (!tape5.Save(&fileSystem(), input.c_str())) return fail(input, u"a deck that can be saved", tape5.LastError());
    return removeOldOutput(output) && runToEnd(exe, directory) && tape7.Load(&fileSystem(), output.c_str(), flags);
}

}  // namespace qv
