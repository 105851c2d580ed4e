// The substitutes of bad pixels.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>

#include "qv/norm_file.h"

namespace qv {

namespace {

constexpr int64_t lastRing = 18;  // of side 41

/// Finds the substitutes of the pixels of one frame.
class Search {
public:
    Search(const uint8_t* flags, int64_t width, int64_t height) : m_flags(flags), m_width(width), m_height(height) {}

    /// The index of the substitute of (x, y), or its own where nothing is found.
    int64_t substitute(int64_t x, int64_t y) {
        for (const auto& [dx, dy] : neighbours) {
            if (isGood(x + dx, y + dy, 0)) return at(x + dx, y + dy);
        }
        int64_t found = inRing(x, y, 0);
        for (int64_t ring = 1; found < 0 && ring <= lastRing; ++ring) {
            if (ring == 1) ring = std::max(ring, firstRingWorthWhile(x, y));
            if (ring <= lastRing) found = inRing(x, y, ring);
        }
        return found < 0 ? at(x, y) : found;
    }

private:
    struct Step {
        int8_t dx, dy;
    };
    static constexpr Step neighbours[] = {{0, -1}, {-1, 0}, {0, 1}, {1, 0}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}};
    /// Ring k reaches k + 3 pixels far; distances are counted to one more than the last ring reaches.
    static constexpr int64_t reachOfFirst = 3;
    static constexpr uint8_t farAway = lastRing + reachOfFirst + 1;

    int64_t at(int64_t x, int64_t y) const { return y * m_width + x; }

    /// A good pixel that lies at least `margin` pixels inside every edge.
    bool isGood(int64_t x, int64_t y, int64_t margin) const {
        return x >= margin && y >= margin && x < m_width - margin && y < m_height - margin && m_flags[at(x, y)] == 0;
    }

    /// Walks ring k; -1 when there is no hit.
    int64_t inRing(int64_t x, int64_t y, int64_t k) const {
        const int64_t side = 5 + 2 * k;
        const struct {
            Step step;
            int64_t count;
        } legs[] = {{{1, 0}, side}, {{0, 1}, side}, {{-1, 0}, side - 1}, {{0, -1}, 16 + 8 * k - (3 * side - 1)}};
        x -= 2 + k;
        y -= 2 + k;
        for (const auto& [step, count] : legs) {
            for (int64_t i = 0; i < count; ++i) {
                x += step.dx;
                y += step.dy;
                if (isGood(x, y, 1)) return at(x, y);
            }
        }
        return -1;
    }

    /// The first ring that reaches as far as the nearest pixel that counts. It keeps large dead areas from costing
    /// 1672 looks a pixel.
    int64_t firstRingWorthWhile(int64_t x, int64_t y) {
        if (!m_measured) measureDistances();
        m_measured = true;
        return m_distances.empty() ? 0 : m_distances[static_cast<uint32_t>(at(x, y))] - reachOfFirst;
    }

    /// For each pixel the larger of the steps across and down to the nearest one that counts in a ring, held to
    /// farAway. Without memory there are no distances.
    void measureDistances() {
        const auto pixels = static_cast<uint32_t>(m_width * m_height);
        if (!m_distances.SetSize(pixels)) return;
        for (int64_t y = 0; y < m_height; ++y) {
            for (int64_t x = 0; x < m_width; ++x) relax(x, y, -1, isGood(x, y, 1) ? 0 : farAway);
        }
        for (int64_t y = m_height; y-- > 0;) {
            for (int64_t x = m_width; x-- > 0;) relax(x, y, 1, m_distances[static_cast<uint32_t>(at(x, y))]);
        }
    }
    /// Sets a distance from `known` and those of the row above (-1) or below (1) and the neighbour on that side.
    void relax(int64_t x, int64_t y, int64_t side, int64_t known) {
        const auto look = [&](int64_t u, int64_t v) {
            if (u < 0 || v < 0 || u >= m_width || v >= m_height) return;
            known = std::min<int64_t>(known, m_distances[static_cast<uint32_t>(at(u, v))] + 1);
        };
        look(x + side, y);
        for (int64_t dx = -1; dx <= 1; ++dx) look(x + dx, y + side);
        m_distances[static_cast<uint32_t>(at(x, y))] = static_cast<uint8_t>(known);
    }

    const uint8_t* m_flags;
    int64_t m_width;
    int64_t m_height;
    TSimpleArray<uint8_t> m_distances;
    bool m_measured = false;
};

}  // namespace

void CNormFile::SetupBPSubs(const uint8_t* flags, uint32_t* subs, uint32_t width, uint32_t height) {
    const size_t pixels = size_t{width} * height;
    std::iota(subs, subs + pixels, 0u);
    Search search(flags, width, height);
    for (size_t i = 0; i < pixels; ++i) {
        const void* const bad = std::memchr(flags + i, 1, pixels - i);
        if (bad == nullptr) return;
        i = static_cast<size_t>(static_cast<const uint8_t*>(bad) - flags);
        const auto index = static_cast<int64_t>(i);
        subs[i] = static_cast<uint32_t>(search.substitute(index % width, index / width));
    }
}

}  // namespace qv
