// The layers of a CMergedFileSystem and how a path is looked up in them. Nothing here locks.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "qv/file_system.h"

namespace qv::Private {

using Entry = IFileSystem::CDirectoryEntry;

struct Layer {
    TSharedPtr<IFileSystem> system;
    int32_t priority;
    bool writable;
    std::u16string root;             // Absolute in `system`.
    std::set<std::u16string> marks;  // Paths in `system`, as it spells them, that are hidden with all below them.

    /// Where a path of the view lies in the layer's file system.
    std::u16string path(const std::u16string& viewPath) const;
    /// What the layer has at a path of the view; typeNothing also for what is hidden.
    Entry info(const std::u16string& viewPath) const;
    bool isDirectory(const std::u16string& viewPath) const { return info(viewPath).type == IFileSystem::typeDirectory; }
    /// Whether `layerPath`, as the file system spells it, or a directory above it is hidden.
    bool isMarked(std::u16string layerPath) const;
    /// Whether a file lies where the way to a path leads through, so that no lower layer may have the path.
    bool cutsOff(const std::u16string& viewPath) const;
};

class Layers {
public:
    /// False when that would be a second writable one.
    bool add(Layer layer);
    bool remove(const IFileSystem& system);

    /// The topmost layer that has the path, and what it has there; null when none has. "/" is always a directory, of
    /// the topmost layer.
    Layer* find(const std::u16string& path, Entry& entry);
    uint32_t typeAt(const std::u16string& path);
    /// Whether the path would still be there without what `layer` has of it: in one below.
    bool showsWithout(const Layer& layer, const std::u16string& path);
    Layer* writable();
    /// Whether a layer above the writable one has the path.
    bool isPinned(const std::u16string& path);
    /// Adds what the directories at `path` hold, each name once; false without memory.
    bool list(const std::u16string& path, const char16_t* pattern, TArray<Entry>& entries);
    /// Hides what other layers than the writable one have at the path.
    void mark(const std::u16string& path);

private:
    bool isShadowed(const Layer& layer, const std::u16string& path) const;

    std::vector<Layer> m_layers;  // The topmost first.
};

}  // namespace qv::Private
