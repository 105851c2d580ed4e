// CModtranTape7File: values of its runs.
#include "qv/tape7_file.h"

#include <algorithm>

#include "qv/diagnostic.h"

namespace qv {

namespace {

constexpr double sameFreq = 1e-8;

/// The first row at or above `freq`, from row `from` on.
uint32_t rowAtOrAbove(const TArray<TAPE7_DATA>& rows, double freq, uint32_t from) {
    const auto isBelow = [](const TAPE7_DATA& row, double value) { return row.freq < value; };
    return static_cast<uint32_t>(std::lower_bound(rows.begin() + from, rows.end(), freq, isBelow) - rows.begin());
}

void mix(const TAPE7_DATA& left, const TAPE7_DATA& right, TAPE7_DATA& out) {
    const double part = (out.freq - left.freq) / (right.freq - left.freq);
    for (uint32_t i = 0; i < TAPE7_DATA::columnCount; ++i) {
        out.values[i] = part * (right.values[i] - left.values[i]) + left.values[i];
    }
}

/// Sets `out` to the rows' values at `freq`; `right` is the first row at or above it. False outside the rows.
bool valueAt(const TArray<TAPE7_DATA>& rows, double freq, uint32_t right, TAPE7_DATA& out) {
    out = TAPE7_DATA();
    out.freq = freq;
    const TAPE7_DATA* const row = rows.data() + right;
    const auto isSame = [freq](const TAPE7_DATA& other) { return std::fabs(other.freq - freq) <= sameFreq; };
    if (right < rows.size() && isSame(*row)) {
        std::copy_n(row->values, TAPE7_DATA::columnCount, out.values);
    } else if (right > 0 && isSame(row[-1])) {
        std::copy_n(row[-1].values, TAPE7_DATA::columnCount, out.values);
    } else if (right > 0 && right < rows.size()) {
        mix(row[-1], *row, out);
    } else {
        return false;
    }
    return true;
}

bool refuseRun(uint32_t run, uint32_t runs) {
    SetDiagnostic(CString(), CString::FromFormat(u"a run below %u", runs), CString::FromFormat(u"run %u", run));
    return false;
}

}  // namespace

uint32_t CModtranTape7File::nPoints(uint32_t run) const {
    return run < nRuns() ? m_runs.ConstGetItem(run).data.size() : 0;
}

double CModtranTape7File::GetFreq(uint32_t run, uint32_t point) const {
    return point < nPoints(run) ? m_runs.ConstGetItem(run).data.ConstGetItem(point).freq : 0.0;
}

bool CModtranTape7File::GetData(uint32_t run, double freq, TAPE7_DATA& data) const {
    data = TAPE7_DATA();
    data.freq = freq;
    if (run >= nRuns()) return refuseRun(run, nRuns());
    const TArray<TAPE7_DATA>& rows = m_runs.ConstGetItem(run).data;
    if (valueAt(rows, freq, rowAtOrAbove(rows, freq, 0), data)) return true;
    SetDiagnostic(CString(),
                  rows.empty() ? CString(u"a run with rows")
                               : CString::FromFormat(u"a frequency from %g to %g", rows.front().freq, rows.back().freq),
                  rows.empty() ? CString(u"none") : CString::FromFormat(u"%g", freq));
    return false;
}

bool CModtranTape7File::GetData(uint32_t run, const TArray<double>& freqs, TArray<TAPE7_DATA>& data) const {
    data.Empty();
    return run < nRuns() ? Interpolate(m_runs.ConstGetItem(run), freqs, data) : refuseRun(run, nRuns());
}

bool CModtranTape7File::Interpolate(const TAPE7_RUN& run, const TArray<double>& freqs, TArray<TAPE7_DATA>& rows) {
    if (!rows.SetSize(freqs.size())) {
        SetDiagnostic(CString(), CString::FromFormat(u"memory for %u rows", freqs.size()), u"too little");
        return false;
    }
    uint32_t right = 0;
    for (uint32_t i = 0; i < freqs.size(); ++i) {
        const double freq = freqs.data()[i];
        const bool ascends = i > 0 && freq >= freqs.data()[i - 1];
        right = rowAtOrAbove(run.data, freq, ascends ? right : 0);
        (void)valueAt(run.data, freq, right, rows.data()[i]);
    }
    return true;
}

}  // namespace qv
