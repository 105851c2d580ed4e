#include "files/merged_layers.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "files/virtual_path.h"
#include "qv/file.h"

namespace qv::Private {

std::u16string Layer::path(const std::u16string& viewPath) const {
    if (root == u"/") return viewPath;
    return viewPath == u"/" ? root : root + viewPath;
}

Entry Layer::info(const std::u16string& viewPath) const {
    const Entry entry = system->GetFileInfo(path(viewPath).c_str());
    return entry.type != IFileSystem::typeNothing && isMarked(entry.path) ? Entry() : entry;
}

bool Layer::isMarked(std::u16string layerPath) const {
    if (marks.empty()) return false;
    for (; layerPath.size() > 1; layerPath = parentPath(layerPath)) {
        if (marks.contains(layerPath)) return true;
    }
    return false;
}

bool Layer::cutsOff(const std::u16string& viewPath) const {
    for (std::u16string above = parentPath(viewPath); above != u"/"; above = parentPath(above)) {
        const uint32_t type = info(above).type;
        if (type != IFileSystem::typeNothing) return type == IFileSystem::typeFile;
    }
    return false;
}

bool Layers::add(Layer layer) {
    if (layer.writable && writable() != nullptr) return false;
    const auto isLower = [&layer](const Layer& other) { return other.priority <= layer.priority; };
    m_layers.insert(std::find_if(m_layers.begin(), m_layers.end(), isLower), std::move(layer));
    return true;
}

bool Layers::remove(const IFileSystem& system) {
    return std::erase_if(m_layers, [&system](const Layer& layer) { return layer.system.get() == &system; }) != 0;
}

Layer* Layers::find(const std::u16string& path, Entry& entry) {
    for (Layer& layer : m_layers) {
        entry = layer.info(path);
        if (path == u"/") entry.type = IFileSystem::typeDirectory;
        if (entry.type != IFileSystem::typeNothing) return &layer;
        if (layer.cutsOff(path)) break;
    }
    return nullptr;
}

uint32_t Layers::typeAt(const std::u16string& path) {
    Entry entry;
    return path == u"/" ? IFileSystem::typeDirectory
                        : (find(path, entry) == nullptr ? IFileSystem::typeNothing : entry.type);
}

bool Layers::showsWithout(const Layer& layer, const std::u16string& path) {
    bool isBelow = false;
    for (Layer& each : m_layers) {
        if (isBelow && each.info(path).type != IFileSystem::typeNothing) return true;
        isBelow = isBelow || &each == &layer;
        if (isBelow && each.cutsOff(path)) break;
    }
    return false;
}

Layer* Layers::writable() {
    const auto found = std::find_if(m_layers.begin(), m_layers.end(), [](const Layer& one) { return one.writable; });
    return found == m_layers.end() ? nullptr : &*found;
}

bool Layers::isPinned(const std::u16string& path) {
    for (const Layer& layer : m_layers) {
        if (layer.writable) break;
        if (layer.info(path).type != IFileSystem::typeNothing) return true;
    }
    return false;
}

/// Whether a layer above has the path.
bool Layers::isShadowed(const Layer& layer, const std::u16string& path) const {
    for (const Layer* above = m_layers.data(); above != &layer; ++above) {
        if (above->info(path).type != IFileSystem::typeNothing) return true;
    }
    return false;
}

bool Layers::list(const std::u16string& path, const char16_t* pattern, TArray<Entry>& entries) {
    std::unordered_set<std::u16string> names;  // Folded: only a name that is there may be shadowed.
    for (const Layer& layer : m_layers) {
        const uint32_t type = layer.info(path).type;
        if (type == IFileSystem::typeFile || (type == IFileSystem::typeNothing && layer.cutsOff(path))) break;
        if (type == IFileSystem::typeNothing) continue;
        IFileSystem::CDirectoryListing own = layer.system->GetDirectoryListing(layer.path(path).c_str(), pattern);
        for (Entry& entry : own.entries) {
            if (layer.isMarked(entry.path)) continue;
            const std::u16string viewPath = joinedPath(path, entry.name);
            if (!names.insert(folded(entry.name)).second && isShadowed(layer, viewPath)) continue;
            if (setPath(entry, viewPath) && !entries.Add(entry)) return false;
        }
    }
    return true;
}

void Layers::mark(const std::u16string& path) {
    for (Layer& layer : m_layers) {
        const Entry entry = layer.writable ? Entry() : layer.info(path);
        if (entry.type != IFileSystem::typeNothing) layer.marks.insert(entry.path);
    }
}

}  // namespace qv::Private
