#include "target.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include "command.h"
#include "container.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "source.h"
#include "text.h"

namespace tool {

namespace {
namespace fs = std::filesystem;
constexpr uint32_t createNew = 0x4 | 0x10 | 0x20 | 0x300;  // create new, read, write, share everything
constexpr uint32_t openAgain = 0x2 | 0x10 | 0x20 | 0x300;

/// What an interrupt or a termination removes on its way; empty for nothing.
char unfinished[4096];

extern "C" void endInterrupted(int signal) {
    if (unfinished[0] != 0) (void)std::remove(unfinished);
    (void)std::signal(signal, SIG_DFL);
    (void)std::raise(signal);
}

void removeWhenInterrupted(const std::string& path) {
    unfinished[0] = 0;
    if (path.empty() || path.size() >= sizeof unfinished) return;
    // The first character comes last: the signal finds a whole name or none.
    std::copy(path.begin() + 1, path.end(), unfinished + 1);
    unfinished[path.size()] = 0;
    std::atomic_signal_fence(std::memory_order_release);
    unfinished[0] = path[0];
    for (const int signal : {SIGINT, SIGTERM}) {
        if (std::signal(signal, endInterrupted) == SIG_IGN) (void)std::signal(signal, SIG_IGN);
    }
}

/// A new file may take this place: nothing is there, or with force a file. A rename over a device or a pipe would put
/// a file in its stead, for everybody.
void checkPlace(const std::string& path, bool force) {
    if (path.empty()) throw Failure(Exit::usage, "the output needs a name");
    if (!isNameable(path)) throw Failure(Exit::io, path + ": is not a name in UTF-8 without backslashes");
    std::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    if (type == fs::file_type::not_found) {
        const std::optional<Inside> inside = insideOf(path);
        if (inside && openContainer(inside->container, true) != nullptr) {
            throw Failure(Exit::usage, path + ": leads into a container, where only qv pack add makes entries");
        }
        if (!fs::is_symlink(path, error)) return;
        throw Failure(Exit::io, path + ": is a symbolic link that leads nowhere");
    }
    if (type == fs::file_type::none) throw Failure(Exit::io, path + ": " + error.message());
    if (type == fs::file_type::directory) throw Failure(Exit::io, path + ": is a folder");
    if (type != fs::file_type::regular) throw Failure(Exit::io, path + ": is a device or a pipe, and stays as it is");
    if (!force) throw Failure(Exit::negative, path + ": exists already (--force replaces it)");
}

}  // namespace

void requireOther(const std::string& output, const std::vector<std::string>& inputs) {
    for (const std::string& input : inputs) {
        std::error_code error;
        if (fs::equivalent(input, output, error)) throw Failure(Exit::usage, output + ": is an input as well");
    }
}

Target::Target(const std::string& path, bool force) : m_path(path), m_force(force) {
    qv::IFileSystem& disk = qv::fileSystem();
    checkPlace(path, force);
    // A forced output goes where the link leads, as an edit in place would.
    std::error_code none;
    if (force && fs::is_symlink(path, none)) m_path = fs::canonical(path, none).string();
    for (int attempt = 0; attempt < 100; ++attempt) {
        m_temporary = m_path + ".part" + (attempt == 0 ? "" : std::to_string(attempt));
        qv::ClearDiagnostic();
        if (disk.CreateFileW(wide(m_temporary).c_str(), createNew)) {
            if (force && fs::exists(m_path, none)) {
                fs::permissions(m_temporary, fs::status(m_path, none).permissions() | fs::perms::owner_write, none);
            }
            removeWhenInterrupted(m_temporary);
            return;
        }
        if (disk.GetFileInfo(wide(m_temporary).c_str()).type == qv::IFileSystem::typeNothing) break;
    }
    throw diagnosed(Exit::io, path, "cannot be created");
}

Target::~Target() {
    if (!m_committed) qv::fileSystem().DeleteFileW(wide(m_temporary).c_str());
    removeWhenInterrupted("");
}

qv::TSharedPtr<qv::IFile> Target::open() const {
    qv::TSharedPtr<qv::IFile> file = qv::fileSystem().CreateFileW(wide(m_temporary).c_str(), openAgain);
    if (!file) throw diagnosed(Exit::io, m_temporary, "cannot be opened");
    return file;
}

void Target::commit() {
    // The library's move refuses a place that has been taken meanwhile; with force, what is there is replaced in one
    // step.
    if (m_force) {
        std::error_code error;
        fs::rename(m_temporary, m_path, error);
        if (error) throw Failure(Exit::io, m_path + ": cannot be replaced: " + error.message());
    } else if (!qv::fileSystem().MoveFileW(wide(m_temporary).c_str(), wide(m_path).c_str())) {
        throw diagnosed(Exit::io, m_path, "cannot be put into its place");
    }
    m_committed = true;
}

}  // namespace tool
