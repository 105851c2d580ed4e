#include "qv/rcal_frames.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "numerics/block_order.h"
#include "numerics/kernels/kernel_table.h"
#include "qv/rcal_file.h"

namespace qv {

namespace {

constexpr uint32_t blockLength = 2048;  // its counts, doubles and floats stay in the first-level cache
constexpr size_t tableSize = 0x10000;

bool isSigned(EDataType type) { return type == EDataType::int8 || type == EDataType::int16; }
bool hasTable(EDataType type) { return isSigned(type) || type == EDataType::uint8 || type == EDataType::uint16; }

std::vector<double> toVector(const TArray<double>& values) { return {values.begin(), values.end()}; }

/// A bound on whole counts of 16 bits as one of them, or the next one outside.
int32_t wholeBound(double bound, int32_t whenNaN) {
    return std::isnan(bound) ? whenNaN : static_cast<int32_t>(std::clamp(bound, -40000.0, 70000.0));
}

}  // namespace

CCountsConverter::CCountsConverter(const CRCalFile& calibration, int32_t page, EDataType countsType) {
    TArray<double> toRadiance;
    TArray<double> toTemperature;
    const CAL_PAGE* record = calibration.GetPage(page);
    if (record == nullptr || !calibration.GetCoefficients(page, toRadiance) ||
        !calibration.GetTempCoefficients(page, toTemperature) || toRadiance.size() < 2 || toTemperature.size() < 2) {
        return;
    }
    m_toRadiance = toVector(toRadiance);
    m_toTemperature = toVector(toTemperature);
    m_minCounts = std::min(record->minCounts, record->maxCounts);
    m_maxCounts = std::max(record->minCounts, record->maxCounts);
    makeTable(countsType);
}

CCountsConverter::CCountsConverter(std::function<double(double)> ofCounts, double minCounts, double maxCounts,
                                   EDataType countsType)
    : m_ofCounts(std::move(ofCounts)), m_minCounts(minCounts), m_maxCounts(maxCounts) {
    if (m_ofCounts != nullptr) makeTable(countsType);
}

void CCountsConverter::makeTable(EDataType countsType) {
    if (!hasTable(countsType)) return;
    m_table.resize(tableSize);
    double values[blockLength];
    for (uint32_t first = 0; first < tableSize; first += blockLength) {
        for (uint32_t i = 0; i < blockLength; ++i) {
            const uint32_t bits = first + i;
            values[i] = isSigned(countsType) ? static_cast<double>(static_cast<int16_t>(bits)) : bits;
        }
        evaluate(values, blockLength);
        ConvertArray({m_table.data() + first, EDataType::flt32}, {values, EDataType::flt64}, blockLength);
    }
    m_tableType = isSigned(countsType) ? EDataType::int16 : EDataType::uint16;
}

/// Counts to values, in place.
void CCountsConverter::evaluate(double* values, uint32_t count) const {
    if (m_ofCounts != nullptr) {
        for (uint32_t i = 0; i < count; ++i) values[i] = m_ofCounts(values[i]);
        return;
    }
    const auto horner = kernels::kernels().horner;
    horner(values, count, m_toRadiance.data(), m_toRadiance.size());
    horner(values, count, m_toTemperature.data(), m_toTemperature.size());
}

COUNTS_OUTSIDE CCountsConverter::Convert(STypedData dst, STypedData counts, uint32_t count) const {
    if (!IsValid()) return {};
    const bool sameSign = isSigned(counts.type) == (m_tableType == EDataType::int16);
    if (dst.type == EDataType::flt32 && hasTable(counts.type) && !m_table.empty() && sameSign) {
        return convertByTable(dst, counts, count);
    }
    return convertDirectly(dst, counts, count);
}

COUNTS_OUTSIDE CCountsConverter::convertByTable(STypedData dst, STypedData counts, uint32_t count) const {
    const kernels::KernelTable& table = kernels::kernels();
    const bool narrow = DataTypeSize(counts.type) == 1;
    // Counts are whole: the bounds may be rounded inwards and compared as integers.
    const int32_t low = wholeBound(std::ceil(m_minCounts), -40000);
    const int32_t high = wholeBound(std::floor(m_maxCounts), 70000);
    const size_t kind = m_tableType == EDataType::int16 ? 1 : 0;
    COUNTS_OUTSIDE outside;
    uint16_t widened[blockLength];
    for (uint64_t done = 0; done < count; done += blockLength) {
        const auto n = static_cast<uint32_t>(std::min<uint64_t>(blockLength, count - done));
        const void* bits = elementAt(counts, done);
        if (narrow) {
            ConvertArray({widened, m_tableType}, {elementAt(counts, done), counts.type}, n);
            bits = widened;
        }
        int32_t lowest = 0;
        int32_t highest = 0;
        table.lookUp[kind](elementAt(dst, done), bits, n, m_table.data(), lowest, highest);
        if (lowest >= low && highest <= high) continue;
        table.countOutside[kind](bits, n, low, high, outside.below, outside.above);
    }
    return outside;
}

COUNTS_OUTSIDE CCountsConverter::convertDirectly(STypedData dst, STypedData counts, uint32_t count) const {
    const bool readable = counts.type <= EDataType::flt64 && counts.type >= EDataType::int8;
    const auto write = kernels::pairKernel(kernels::kernels().convert, dst.type, EDataType::flt64);
    COUNTS_OUTSIDE outside;
    if (!readable || write == nullptr) return outside;
    double values[blockLength];
    for (uint64_t done = 0; done < count; done += blockLength) {
        const auto n = static_cast<uint32_t>(std::min<uint64_t>(blockLength, count - done));
        if (counts.type == EDataType::uint64) {
            for (uint32_t i = 0; i < n; ++i) {
                values[i] = kernels::fromUInt64(kernels::load<uint64_t>(counts.pointer, done + i));
            }
        } else {
            ConvertArray({values, EDataType::flt64}, {elementAt(counts, done), counts.type}, n);
        }
        for (uint32_t i = 0; i < n; ++i) {
            outside.below += values[i] < m_minCounts ? 1u : 0u;
            outside.above += values[i] > m_maxCounts ? 1u : 0u;
        }
        evaluate(values, n);
        write(elementAt(dst, done), values, n);
    }
    return outside;
}

}  // namespace qv
