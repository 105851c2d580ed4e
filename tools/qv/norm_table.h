// Norm tables as the tool reads, writes and describes them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qv/norm_file.h"

namespace tool {

/// How well a file is a Norm table in one byte order. The format has no mark of its own.
struct NormFit {
    qv::CNormFile::SFileHeader header;
    bool plausible = false;  ///< Known version and type, and a size.
    bool exact = false;      ///< The length is that of the table, or holds the substitutes a second time.
    int64_t behind = 0;      ///< Bytes behind the table; below 0 when it is cut off.
};
NormFit fitOf(const qv::TSharedPtr<qv::IFile>& file, bool bigEndian);

/// A table and the byte order that its file is in.
struct NormTable {
    qv::CNormFile norm;
    bool bigEndian = false;
    int64_t trailing = 0;  ///< Bytes behind the table that readers pass over.

    uint32_t pixels() const { return uint32_t{norm.xPixels()} * norm.yPixels(); }
};

/// "gain", "offset" or "bad-pixel".
std::string normWord(qv::CNormFile::FILE_TYPE type);

/// Loads a table. A file has no mark of its own, so its byte order is the one in which header and length agree. Fails
/// with a sentence.
NormTable loadNorm(const std::string& path);
/// The same; fails when the table is of another type.
NormTable loadNorm(const std::string& path, qv::CNormFile::FILE_TYPE type);

/// Writes a table, whole or not at all.
void saveNorm(const qv::CNormFile& norm, const std::string& path, bool force);

/// Bad pixels that touch each other, also at corners.
struct Cluster {
    uint32_t pixels = 0;
    uint32_t left = 0, top = 0, right = 0, bottom = 0;  ///< The smallest rectangle, its ends included.
};
struct Clusters {
    std::vector<Cluster> list;
    /// For each pixel one more than its cluster's index; 0 for none.
    std::vector<uint32_t> of;

    const Cluster* largest() const;
};
Clusters findClusters(const uint8_t* flags, uint32_t width, uint32_t height);

/// Sizes that clusters are counted by.
struct ClusterSize {
    const char* name;
    uint32_t least;
    uint32_t most;
};
inline constexpr ClusterSize clusterSizes[] = {
    {"single", 1, 1}, {"2 to 4", 2, 4}, {"5 to 9", 5, 9}, {"10 or more", 10, 0xFFFFFFFFu}};

/// What a bad-pixel table says.
struct MapCounts {
    uint64_t good = 0;
    uint64_t bad = 0;
    uint64_t other = 0;              ///< Of another flag: left alone.
    uint64_t withoutSubstitute = 0;  ///< Bad, with their own index.
};
MapCounts countFlags(const qv::CNormFile::BPINFO& map, uint32_t pixels);

/// "12 (0.0037 %)".
std::string share(uint64_t part, uint64_t whole);

}  // namespace tool
