// Containers: files that hold files, whatever their format.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qv/file.h"

namespace tool {

/// What a stream of a composite file is beside its name.
struct StreamKind {
    uint16_t type = 1;
    uint16_t subtype = 0;
    uint32_t version = 100;
    uint32_t id = 0xFFFFFFFF;  ///< The next free one.
};

/// An open container. It closes with the object.
class Container {
public:
    struct Entry {
        std::string name;
        int64_t offset = 0;  ///< In the host file.
        int64_t size = 0;
        int64_t room = 0;  ///< Bytes that are kept for it; 0 where there is no such thing.
        StreamKind kind;   ///< Of composite files.
    };

    virtual ~Container() = default;

    virtual std::string format() const = 0;
    /// Whether entries have a StreamKind; their names are ids then, or "@" and the position where an id stands twice.
    virtual bool hasKinds() const = 0;
    virtual int64_t base() const { return 0; }
    /// The byte of the host file behind the table.
    virtual int64_t tableEnd() const = 0;
    virtual std::vector<Entry> entries() = 0;
    /// Null when there is no such entry.
    virtual qv::TSharedPtr<qv::IFile> open(const std::string& name) = 0;
    /// A new, empty entry; null when the name is taken or not possible.
    virtual qv::TSharedPtr<qv::IFile> create(const std::string& name, const StreamKind& kind) = 0;
    /// Removes the entries, each of which is named as it is before any of them goes. Names of which there is none are
    /// left out. False when one stays.
    virtual bool remove(const std::vector<std::string>& names) = 0;
    /// Writes what is not written yet. False when that fails.
    virtual bool save() = 0;
};

/// Null when the file is no container; fails when it is one that cannot be opened.
std::unique_ptr<Container> openContainer(const std::string& path, bool readOnly);
/// The same, which fails for a file that is no container.
std::unique_ptr<Container> requireContainer(const std::string& path, bool readOnly);
/// A new container in a new file, of the format "cdfs", "aff" or "kmr".
std::unique_ptr<Container> createContainer(const std::string& path, const std::string& format);
/// A new container behind the bytes of a file.
std::unique_ptr<Container> attachContainer(const std::string& path);

}  // namespace tool
