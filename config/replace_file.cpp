#include "config/replace_file.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>
#include <system_error>

#include "files/native_path.h"
#include "platform/file.h"
#include "qv/diagnostic.h"
#include "qv/string.h"

namespace qv::Private {

namespace {

namespace fs = std::filesystem;

bool refuse(const char16_t* path, const CString& expected, const CString& found) {
    SetDiagnostic(path, expected, found);
    return false;
}

/// The file that is to be replaced, behind symbolic links; false when something else is there, or a file that nobody
/// may write.
bool findTarget(fs::path& target, std::error_code& error) {
    for (int links = 0; links < 40 && fs::is_symlink(fs::symlink_status(target, error)); ++links) {
        const fs::path next = fs::read_symlink(target, error);
        if (error) return false;
        target = next.is_absolute() ? next : target.parent_path() / next;
    }
    const fs::file_status status = fs::status(target, error);
    if (!fs::exists(status)) return status.type() == fs::file_type::not_found;
    constexpr fs::perms writable = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    return fs::is_regular_file(status) && (status.permissions() & writable) != fs::perms::none;
}

constexpr std::string_view mark = ".tmp";
constexpr size_t digits = 8;

/// A new file beside `target`, and its name.
int createBeside(const fs::path& target, fs::path& name, platform::FileHandle& file) {
    std::random_device random;
    int error = 0;
    for (int attempt = 0; attempt < 16; ++attempt) {
        name = target;
        name += CStringMB::FromFormat(".%08x", random()).c_str();
        name += mark;
        platform::OpenRequest request{};
        request.path = name.c_str();
        request.disposition = platform::Disposition::createNew;
        request.write = true;
        error = platform::openFile(request, file);
        std::error_code unknown;
        if (error == 0 || !fs::exists(name, unknown)) break;
    }
    return error;
}

/// The name of a file that createBeside() made for a target of this name.
bool isMadeFor(std::string_view target, std::string_view name) {
    if (name.size() != target.size() + 1 + digits + mark.size() || !name.starts_with(target)) return false;
    name.remove_prefix(target.size());
    return name.front() == '.' && name.ends_with(mark) &&
           name.substr(1, digits).find_first_not_of("0123456789abcdef") == name.npos;
}

/// Writes everything and brings it to the device.
int writeWhole(platform::FileHandle file, std::span<const std::string_view> parts) {
    for (std::string_view bytes : parts) {
        while (!bytes.empty()) {
            int error = 0;
            // A device that fills up takes a part first; the next call has the reason.
            const uint32_t size = static_cast<uint32_t>(std::min<size_t>(bytes.size(), 0x40000000));
            const uint32_t done = platform::writeFile(file, bytes.data(), size, error);
            if (error != 0) return error;
            bytes.remove_prefix(done);
        }
    }
    return platform::flushFile(file);
}

}  // namespace

bool replaceFile(const char16_t* path, std::span<const std::string_view> parts) {
    if (path == nullptr || *path == 0) return refuse(u"", u"the name of a file", u"none");
    fs::path target(nativePath(path)), temporary;
    std::error_code error;
    if (!findTarget(target, error)) return refuse(path, u"a file that may be written", u"something else");
    platform::FileHandle file = platform::invalidFile;
    if (!succeeded(createBeside(target, temporary, file), path, u"a place for a new file")) return false;
    if (fs::exists(target, error)) fs::permissions(temporary, fs::status(target, error).permissions(), error);
    bool done = succeeded(writeWhole(file, parts), path, u"room for the file");
    platform::closeFile(file);
    if (done) {
        fs::rename(temporary, target, error);
        done = !error;
        if (!done) SetDiagnostic(path, u"a file to replace", CString(error.message()));
    }
    if (!done) fs::remove(temporary, error);
    return done;
}

void removeLeftovers(const char16_t* path) {
    const fs::path target(nativePath(path));
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(1);
    std::error_code error;
    fs::directory_iterator at(target.parent_path(), error);
    for (const fs::directory_iterator end; !error && at != end; at.increment(error)) {
        if (!isMadeFor(target.filename().native(), at->path().filename().native())) continue;
        std::error_code none;
        const auto written = fs::last_write_time(at->path(), none);
        if (!none && written < old) fs::remove(at->path(), none);
    }
}

}  // namespace qv::Private
