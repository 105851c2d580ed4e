#include "numerics/qr_factor.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace qv {

namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();
constexpr double smallest = std::numeric_limits<double>::min();

double dot(const double* a, const double* b, size_t from, size_t to) {
    double sum = 0.0;
    for (size_t i = from; i < to; ++i) sum += a[i] * b[i];
    return sum;
}

/// A plane rotation that turns (a, b) into (r, 0).
struct Rotation {
    double cosine;
    double sine;

    Rotation(double a, double b) {
        if (std::fabs(a) < std::fabs(b)) {
            const double cotangent = a / b;
            sine = 0.5 / std::sqrt(0.25 + 0.25 * cotangent * cotangent);
            cosine = sine * cotangent;
        } else {
            const double tangent = b / a;
            cosine = 0.5 / std::sqrt(0.25 + 0.25 * tangent * tangent);
            sine = cosine * tangent;
        }
    }

    void apply(double& a, double& b) const {
        const double turned = cosine * a + sine * b;
        b = -sine * a + cosine * b;
        a = turned;
    }
};

/// Index of the first zero on the diagonal, or the size.
template <class Diagonal>
size_t leadingNonZeros(size_t n, Diagonal diagonal) {
    for (size_t j = 0; j < n; ++j) {
        if (diagonal(j) == 0.0) return j;
    }
    return n;
}

}  // namespace

double norm(const double* values, size_t count) {
    const double sum = dot(values, values, 0, count);
    // Squares of this size have neither overflowed nor lost digits to gradual underflow.
    if (sum > 1e-280 && sum <= std::numeric_limits<double>::max()) return std::sqrt(sum);
    double largest = 0.0;
    for (size_t i = 0; i < count; ++i) largest = std::max(largest, std::fabs(values[i]));
    if (largest == 0.0 || !std::isfinite(largest)) return sum != sum ? sum : largest;
    double scaled = 0.0;
    for (size_t i = 0; i < count; ++i) scaled += (values[i] / largest) * (values[i] / largest);
    return largest * std::sqrt(scaled);
}

// PivotedQR -------------------------------------------------------------------------------------------------------

PivotedQR::PivotedQR(size_t rows, size_t columns)
    : matrix(rows, columns), order(columns), columnNorms(columns), m_diagonal(columns), m_trustedNorms(columns) {}

void PivotedQR::factor(std::vector<double>& rhs) {
    const size_t n = order.size();
    const size_t m = matrix.rows();
    for (size_t j = 0; j < n; ++j) {
        columnNorms[j] = m_diagonal[j] = m_trustedNorms[j] = norm(matrix.column(j), m);
        order[j] = j;
    }
    for (size_t j = 0; j < n; ++j) {
        bringLargestTo(j);
        reflect(j);
    }
    for (size_t j = 0; j < n; ++j) {
        double* column = matrix.column(j);
        if (column[j] != 0.0) {
            const double factor = -dot(column, rhs.data(), j, m) / column[j];
            for (size_t i = j; i < m; ++i) rhs[i] += column[i] * factor;
        }
        column[j] = m_diagonal[j];
    }
}

void PivotedQR::bringLargestTo(size_t j) {
    const auto first = m_diagonal.begin() + static_cast<ptrdiff_t>(j);
    const auto k = static_cast<size_t>(std::max_element(first, m_diagonal.end()) - m_diagonal.begin());
    if (k == j) return;
    std::swap_ranges(matrix.column(j), matrix.column(j) + matrix.rows(), matrix.column(k));
    m_diagonal[k] = m_diagonal[j];
    m_trustedNorms[k] = m_trustedNorms[j];
    std::swap(order[j], order[k]);
}

/// Reduces column j to a multiple of the j-th unit vector and applies the same reflection to the columns behind it.
void PivotedQR::reflect(size_t j) {
    const size_t n = order.size();
    const size_t m = matrix.rows();
    double* axis = matrix.column(j);
    double length = norm(axis + j, m - j);
    if (length != 0.0) {
        if (axis[j] < 0.0) length = -length;
        for (size_t i = j; i < m; ++i) axis[i] /= length;
        axis[j] += 1.0;
        for (size_t k = j + 1; k < n; ++k) {
            double* column = matrix.column(k);
            const double factor = dot(axis, column, j, m) / axis[j];
            for (size_t i = j; i < m; ++i) column[i] -= factor * axis[i];
            if (m_diagonal[k] == 0.0) continue;
            // The norm of what is left of the column follows by Pythagoras until too little of it is left to trust
            // that.
            const double share = column[j] / m_diagonal[k];
            m_diagonal[k] *= std::sqrt(std::max(0.0, 1.0 - share * share));
            const double remaining = m_diagonal[k] / m_trustedNorms[k];
            if (0.05 * (remaining * remaining) <= epsilon) {
                m_diagonal[k] = m_trustedNorms[k] = norm(column + j + 1, m - j - 1);
            }
        }
    }
    m_diagonal[j] = -length;
}

// TrustRegionStep -------------------------------------------------------------------------------------------------

TrustRegionStep::TrustRegionStep(size_t n)
    : m_n(n), m_x(n), m_scaled(n), m_work(n), m_damping(n), m_row(n), m_diagonalS(n), m_diagonalR(n) {}

/// The undamped step into m_x, with the components behind a zero of R's diagonal as zero; true when there is none.
bool TrustRegionStep::gaussNewton(const PivotedQR& qr, const std::vector<double>& qtb) {
    const ColumnMatrix& r = qr.matrix;
    const size_t rank = leadingNonZeros(m_n, [&](size_t j) { return r.at(j, j); });
    for (size_t j = 0; j < m_n; ++j) m_work[j] = j < rank ? qtb[j] : 0.0;
    for (size_t j = rank; j-- > 0;) {
        m_work[j] /= r.at(j, j);
        for (size_t i = 0; i < j; ++i) m_work[i] -= r.at(i, j) * m_work[j];
    }
    for (size_t j = 0; j < m_n; ++j) m_x[qr.order[j]] = m_work[j];
    return rank == m_n;
}

/// The damped step into m_x. The factor S of the damped system is left below the diagonal of qr's matrix (transposed)
/// and in m_diagonalS; R and its diagonal stay.
void TrustRegionStep::damped(PivotedQR& qr, const std::vector<double>& damping, const std::vector<double>& qtb) {
    ColumnMatrix& r = qr.matrix;
    for (size_t j = 0; j < m_n; ++j) {
        for (size_t i = j; i < m_n; ++i) r.at(i, j) = r.at(j, i);
        m_diagonalR[j] = r.at(j, j);
        m_work[j] = qtb[j];
    }
    for (size_t j = 0; j < m_n; ++j) {
        const double d = damping[qr.order[j]];
        if (d != 0.0) {
            std::fill(m_row.begin() + static_cast<ptrdiff_t>(j), m_row.end(), 0.0);
            m_row[j] = d;
            m_rowRhs = 0.0;
            eliminateDamping(r, j);
        }
        m_diagonalS[j] = r.at(j, j);
        r.at(j, j) = m_diagonalR[j];
    }
    const size_t rank = leadingNonZeros(m_n, [&](size_t j) { return m_diagonalS[j]; });
    std::fill(m_work.begin() + static_cast<ptrdiff_t>(rank), m_work.end(), 0.0);
    for (size_t j = rank; j-- > 0;) {
        m_work[j] = (m_work[j] - dot(r.column(j), m_work.data(), j + 1, rank)) / m_diagonalS[j];
    }
    for (size_t j = 0; j < m_n; ++j) m_x[qr.order[j]] = m_work[j];
}

/// Turns the row of the damping into the triangle, one rotation for each of its elements.
void TrustRegionStep::eliminateDamping(ColumnMatrix& r, size_t j) {
    for (size_t k = j; k < m_n; ++k) {
        if (m_row[k] == 0.0) continue;
        const Rotation rotation(r.at(k, k), m_row[k]);
        r.at(k, k) = rotation.cosine * r.at(k, k) + rotation.sine * m_row[k];
        rotation.apply(m_work[k], m_rowRhs);
        for (size_t i = k + 1; i < m_n; ++i) rotation.apply(r.at(i, k), m_row[i]);
    }
}

double TrustRegionStep::scaledNorm(const std::vector<double>& scale) {
    for (size_t j = 0; j < m_n; ++j) m_scaled[j] = scale[j] * m_x[j];
    return norm(m_scaled.data(), m_n);
}

/// P' D (D x / |D x|) into m_work.
void TrustRegionStep::normalisedGradient(const PivotedQR& qr, const std::vector<double>& scale, double length) {
    for (size_t j = 0; j < m_n; ++j) {
        const size_t l = qr.order[j];
        m_work[j] = scale[l] * (m_scaled[l] / length);
    }
}

/// A Newton step from par = 0, which cannot overshoot. For a Jacobian of full rank.
double TrustRegionStep::lowerBound(const PivotedQR& qr, const std::vector<double>& scale, double length, double excess,
                                   double radius) {
    normalisedGradient(qr, scale, length);
    for (size_t j = 0; j < m_n; ++j) {
        m_work[j] = (m_work[j] - dot(qr.matrix.column(j), m_work.data(), 0, j)) / qr.matrix.at(j, j);
    }
    const double slope = norm(m_work.data(), m_n);
    return excess / radius / slope / slope;
}

/// |D^-1 P R' Q'b|, the gradient at x = 0 in scaled parameters.
double TrustRegionStep::gradientNorm(const PivotedQR& qr, const std::vector<double>& scale,
                                     const std::vector<double>& qtb) {
    for (size_t j = 0; j < m_n; ++j) {
        m_work[j] = dot(qr.matrix.column(j), qtb.data(), 0, j + 1) / scale[qr.order[j]];
    }
    return norm(m_work.data(), m_n);
}

double TrustRegionStep::newtonCorrection(const PivotedQR& qr, const std::vector<double>& scale, double length,
                                         double excess, double radius) {
    normalisedGradient(qr, scale, length);
    for (size_t j = 0; j < m_n; ++j) {
        m_work[j] /= m_diagonalS[j];
        const double value = m_work[j];
        for (size_t i = j + 1; i < m_n; ++i) m_work[i] -= qr.matrix.at(i, j) * value;
    }
    const double slope = norm(m_work.data(), m_n);
    return excess / radius / slope / slope;
}

const std::vector<double>& TrustRegionStep::solve(PivotedQR& qr, const std::vector<double>& scale,
                                                  const std::vector<double>& qtb, double radius, double& par) {
    constexpr int maxIterations = 10;
    const bool fullRank = gaussNewton(qr, qtb);
    double length = scaledNorm(scale);
    double excess = length - radius;
    if (excess <= 0.1 * radius) {
        par = 0.0;
        return m_x;
    }

    double low = fullRank ? lowerBound(qr, scale, length, excess, radius) : 0.0;
    const double gradient = gradientNorm(qr, scale, qtb);
    double high = gradient / radius;
    if (high == 0.0) high = smallest / std::min(radius, 0.1);
    par = std::min(std::max(par, low), high);
    if (par == 0.0) par = gradient / length;

    for (int iteration = 1;; ++iteration) {
        if (par == 0.0) par = std::max(smallest, 0.001 * high);
        const double root = std::sqrt(par);
        for (size_t j = 0; j < m_n; ++j) m_damping[j] = root * scale[j];
        damped(qr, m_damping, qtb);
        length = scaledNorm(scale);
        const double before = excess;
        excess = length - radius;
        const bool onRadius = std::fabs(excess) <= 0.1 * radius;
        const bool shrinking = low == 0.0 && excess <= before && before < 0.0;
        if (onRadius || shrinking || iteration == maxIterations) return m_x;

        const double correction = newtonCorrection(qr, scale, length, excess, radius);
        if (excess > 0.0) low = std::max(low, par);
        if (excess < 0.0) high = std::min(high, par);
        par = std::max(low, par + correction);
    }
}

}  // namespace qv
