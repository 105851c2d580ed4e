#include "settling.h"

#include <algorithm>
#include <utility>

namespace tool {

void Settling::take(const FileEvent& event, int64_t now, std::vector<FileEvent>& told) {
    if (m_milliseconds == 0) {
        told.push_back(event);
        return;
    }
    const int64_t until = now + m_milliseconds;
    const auto held = m_held.find(event.path);
    if (event.what == Happening::isNew || event.what == Happening::changed) {
        const bool staysNew = held != m_held.end() && held->second.what == Happening::isNew;
        m_held[event.path] = {staysNew ? Happening::isNew : event.what, until};
    } else if (event.what == Happening::renamed) {
        if (!rename(event, until)) told.push_back(event);
    } else {
        const bool neverTold = held != m_held.end() && held->second.what == Happening::isNew;
        if (held != m_held.end()) m_held.erase(held);
        if (!neverTold) told.push_back(event);
    }
}

/// Gives what is held of a file, or of those in a folder, its new path. True for a file that nobody was told of yet.
bool Settling::rename(const FileEvent& event, int64_t until) {
    m_held.erase(event.path);
    std::map<std::string, Held> kept;
    bool neverTold = false;
    for (const auto& [path, held] : m_held) {
        if (path == event.from) {
            neverTold = held.what == Happening::isNew;
            kept[event.path] = {held.what, until};
        } else if (path.starts_with(event.from + '/')) {
            kept[event.path + path.substr(event.from.size())] = held;
        } else {
            kept[path] = held;
        }
    }
    m_held = std::move(kept);
    return neverTold;
}

void Settling::takeSettled(int64_t now, std::vector<FileEvent>& told) {
    std::vector<std::pair<int64_t, FileEvent>> settled;
    for (auto held = m_held.begin(); held != m_held.end();) {
        if (held->second.until > now) {
            ++held;
            continue;
        }
        settled.push_back({held->second.until, {held->second.what, held->first, ""}});
        held = m_held.erase(held);
    }
    std::ranges::stable_sort(settled, {}, [](const auto& entry) { return entry.first; });
    for (auto& [until, event] : settled) told.push_back(std::move(event));
}

int64_t Settling::next() const {
    int64_t first = never;
    for (const auto& [path, held] : m_held) first = std::min(first, held.until);
    return first;
}

}  // namespace tool
