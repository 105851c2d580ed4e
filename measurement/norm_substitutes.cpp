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
        int64_t found = -1;
        for (int64_t ring = firstRing(x, y); found < 0 && ring <= lastRing; ++ring) {
            found = inRing(x, y, ring);
            m_walked += 16 + 8 * ring;
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

    /// The first ring that can have a hit. Once the walks have cost as many looks as the frame has pixels, it is the
    /// one that reaches as far as the nearest pixel that counts: large dead areas would cost 1672 looks a pixel.
    int64_t firstRing(int64_t x, int64_t y) {
        if (m_walked < m_width * m_height) return 0;
        if (!m_measured) measureDistances();
        m_measured = true;
        return m_distances.empty() ? 0 : std::max<int64_t>(0, *distance(x, y) - reachOfFirst);
    }

    /// For each pixel the larger of the steps across and down to the nearest one that counts in a ring, held to
    /// farAway, in rows with a margin of one. Without memory there are no distances.
    void measureDistances() {
        const int64_t stride = m_width + 2;
        const int64_t count = stride * (m_height + 2);
        if (count > 0xFFFFFFFF || !m_distances.SetSize(static_cast<uint32_t>(count))) return;
        std::fill(m_distances.begin(), m_distances.end(), farAway);
        for (int64_t y = 1; y < m_height - 1; ++y) {
            for (int64_t x = 1; x < m_width - 1; ++x) *distance(x, y) = m_flags[at(x, y)] == 0 ? 0 : farAway;
        }
        for (int64_t y = 0; y < m_height; ++y) relaxRow(distance(0, y), 1, -stride);
        for (int64_t y = m_height; y-- > 0;) relaxRow(distance(m_width - 1, y), -1, stride);
    }
    /// Brings a row up to date with the one beside it (`other` bytes away) and, in the direction of `step`, with
    /// itself.
    void relaxRow(uint8_t* pixel, int64_t step, int64_t other) const {
        int known = farAway;
        for (int64_t i = 0; i < m_width; ++i, pixel += step) {
            const uint8_t* const beside = pixel + other;
            const int nearest = std::min({int{beside[-1]}, int{beside[0]}, int{beside[1]}, known});
            known = std::min(int{*pixel}, nearest + 1);
            *pixel = static_cast<uint8_t>(known);
        }
    }
    uint8_t* distance(int64_t x, int64_t y) { return m_distances.data() + (y + 1) * (m_width + 2) + x + 1; }

    const uint8_t* m_flags;
    int64_t m_width;
    int64_t m_height;
    TSimpleArray<uint8_t> m_distances;
    bool m_measured = false;
    int64_t m_walked = 0;
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
