// The substitutes of bad pixels.
#include <cstdint>
#include <cstring>
#include <numeric>

#include "qv/norm_file.h"

namespace qv {

namespace {

constexpr int64_t lastSide = 41;

/// Finds the substitute of one pixel of a frame.
class Search {
public:
    Search(const uint8_t* flags, int64_t width, int64_t height) : m_flags(flags), m_width(width), m_height(height) {}

    /// The index of the substitute of (x, y), or its own where nothing is found.
    int64_t substitute(int64_t x, int64_t y) const {
        for (const auto& [dx, dy] : neighbours) {
            if (isGoodInside(x + dx, y + dy, 0)) return at(x + dx, y + dy);
        }
        for (int64_t side = 5; side <= lastSide; side += 2) {
            const int64_t found = inRing(x, y, side);
            if (found >= 0) return found;
        }
        return at(x, y);
    }

private:
    struct Step {
        int8_t dx, dy;
    };
    static constexpr Step neighbours[] = {{0, -1}, {-1, 0}, {0, 1}, {1, 0}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}};

    int64_t at(int64_t x, int64_t y) const { return y * m_width + x; }

    /// A good pixel that lies at least `margin` pixels inside every edge.
    bool isGoodInside(int64_t x, int64_t y, int64_t margin) const {
        return x >= margin && y >= margin && x < m_width - margin && y < m_height - margin && m_flags[at(x, y)] == 0;
    }

    /// Walks one ring; -1 when there is no hit.
    int64_t inRing(int64_t x, int64_t y, int64_t side) const {
        const int64_t k = (side - 5) / 2;
        const int64_t steps = 16 + 8 * k;
        const struct {
            Step step;
            int64_t count;
        } legs[] = {{{1, 0}, side}, {{0, 1}, side}, {{-1, 0}, side - 1}, {{0, -1}, steps - 3 * side + 1}};
        x -= 2 + k;
        y -= 2 + k;
        for (const auto& [step, count] : legs) {
            for (int64_t i = 0; i < count; ++i) {
                x += step.dx;
                y += step.dy;
                if (isGoodInside(x, y, 1)) return at(x, y);
            }
        }
        return -1;
    }

    const uint8_t* m_flags;
    int64_t m_width;
    int64_t m_height;
};

}  // namespace

void CNormFile::SetupBPSubs(const uint8_t* flags, uint32_t* subs, uint32_t width, uint32_t height) {
    const size_t pixels = size_t{width} * height;
    std::iota(subs, subs + pixels, 0u);
    const Search search(flags, width, height);
    for (size_t i = 0; i < pixels; ++i) {
        const void* const bad = std::memchr(flags + i, 1, pixels - i);
        if (bad == nullptr) return;
        i = static_cast<size_t>(static_cast<const uint8_t*>(bad) - flags);
        const auto index = static_cast<int64_t>(i);
        subs[i] = static_cast<uint32_t>(search.substitute(index % width, index / width));
    }
}

}  // namespace qv
