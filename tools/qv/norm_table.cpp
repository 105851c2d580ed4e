#include "norm_table.h"

#include <algorithm>

#include "command.h"
#include "places.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "source.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

using qv::CNormFile;

constexpr uint32_t openShared = 0x2 | 0x10 | 0x200;  // existing, read, share reading
constexpr uint8_t newestVersion = 2;

/// The bytes behind the table that a header describes: below 0 when it is cut off.
int64_t bytesBehind(const CNormFile::SFileHeader& header, int64_t headerBytes, int64_t length) {
    const int64_t pixels = int64_t{header.xPixels} * header.yPixels;
    const int64_t element = header.type == CNormFile::TYPE_GAIN     ? 4
                            : header.type == CNormFile::TYPE_OFFSET ? 2
                            : header.version > 1                    ? 5
                                                                    : 1;
    return length - headerBytes - pixels * element;
}

}  // namespace

NormFit fitOf(const qv::TSharedPtr<qv::IFile>& file, bool bigEndian) {
    NormFit fit;
    CNormFile::SFileHeader& header = fit.header;
    file->SeekToBegin();
    swapFlag(*file) = bigEndian;
    if (!CNormFile::ReadHeader(file, header)) return {};
    fit.plausible = header.version >= 1 && header.version <= newestVersion &&
                    header.type <= CNormFile::TYPE_BAD_PIXEL && header.xPixels != 0 && header.yPixels != 0;
    fit.behind = bytesBehind(header, file->GetPosition(), file->GetSize());
    const bool twice = header.type == CNormFile::TYPE_BAD_PIXEL && header.version > 1 &&
                       fit.behind == int64_t{header.xPixels} * header.yPixels * 4;
    fit.exact = fit.plausible && (fit.behind == 0 || twice);
    if (twice) fit.behind = 0;
    return fit;
}

std::string normWord(CNormFile::FILE_TYPE type) {
    switch (type) {
        case CNormFile::TYPE_GAIN: return "gain";
        case CNormFile::TYPE_OFFSET: return "offset";
        case CNormFile::TYPE_BAD_PIXEL: return "bad-pixel";
        default: return "no";
    }
}

NormTable loadNorm(const std::string& path) {
    qv::ClearDiagnostic();
    requireFile(path);
    const qv::TSharedPtr<qv::IFile> file = files().CreateFileW(wide(path).c_str(), openShared);
    if (!file) throw diagnosed(Exit::io, path, "cannot be opened");
    NormTable table;
    const NormFit little = fitOf(file, false);
    const NormFit big = fitOf(file, true);
    table.bigEndian = !little.exact &&
                      (big.exact || (big.plausible && (!little.plausible || (little.behind < 0 && big.behind >= 0))));
    const NormFit& fit = table.bigEndian ? big : little;
    if (!fit.plausible) throw Failure(Exit::wrongKind, path + ": is no Norm table (type, version and size do not fit)");
    table.trailing = std::max<int64_t>(fit.behind, 0);
    file->SeekToBegin();
    swapFlag(*file) = table.bigEndian;
    qv::ClearDiagnostic();
    if (!table.norm.Load(file)) throw diagnosed(Exit::damaged, path, "is damaged");
    return table;
}

NormTable loadNorm(const std::string& path, CNormFile::FILE_TYPE type) {
    NormTable table = loadNorm(path);
    if (table.norm.GetType() == type) return table;
    throw Failure(Exit::wrongKind, path + ": is of type " + normWord(table.norm.GetType()) + ", not " + normWord(type));
}

void saveNorm(const CNormFile& norm, const std::string& path, bool force) {
    Target target(path, force);
    qv::ClearDiagnostic();
    if (!norm.Save(target.open())) throw diagnosed(Exit::io, path, "cannot be written (is the disk full?)");
    target.commit();
}

const Cluster* Clusters::largest() const {
    const auto found = std::max_element(list.begin(), list.end(),
                                        [](const Cluster& a, const Cluster& b) { return a.pixels < b.pixels; });
    return found == list.end() ? nullptr : &*found;
}

Clusters findClusters(const uint8_t* flags, uint32_t width, uint32_t height) {
    Clusters clusters;
    clusters.of.assign(size_t{width} * height, 0);
    std::vector<uint32_t> waiting;
    for (uint32_t first = 0; first < clusters.of.size(); ++first) {
        if (flags[first] != 1 || clusters.of[first] != 0) continue;
        Cluster cluster{0, first % width, first / width, first % width, first / width};
        const auto id = static_cast<uint32_t>(clusters.list.size() + 1);
        clusters.of[first] = id;
        waiting.push_back(first);
        while (!waiting.empty()) {
            const uint32_t x = waiting.back() % width;
            const uint32_t y = waiting.back() / width;
            waiting.pop_back();
            ++cluster.pixels;
            cluster.left = std::min(cluster.left, x);
            cluster.right = std::max(cluster.right, x);
            cluster.top = std::min(cluster.top, y);
            cluster.bottom = std::max(cluster.bottom, y);
            for (uint32_t v = y - (y > 0); v <= y + (y + 1 < height); ++v) {
                for (uint32_t u = x - (x > 0); u <= x + (x + 1 < width); ++u) {
                    const uint32_t i = v * width + u;
                    if (flags[i] != 1 || clusters.of[i] != 0) continue;
                    clusters.of[i] = id;
                    waiting.push_back(i);
                }
            }
        }
        clusters.list.push_back(cluster);
    }
    return clusters;
}

MapCounts countFlags(const CNormFile::BPINFO& map, uint32_t pixels) {
    MapCounts counts;
    for (uint32_t i = 0; i < pixels; ++i) {
        ++(map.flags[i] == 0 ? counts.good : map.flags[i] == 1 ? counts.bad : counts.other);
        if (map.flags[i] == 1 && map.subs[i] == i) ++counts.withoutSubstitute;
    }
    return counts;
}

std::string share(uint64_t part, uint64_t whole) {
    const double percent = whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
    return std::to_string(part) + " (" + number(percent, 3) + " %)";
}

}  // namespace tool
