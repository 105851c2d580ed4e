// Householder QR with column pivoting, and the solution of the damped least-squares problems that Levenberg-Marquardt
// poses on the factor R.
#pragma once

#include <cstddef>
#include <vector>

namespace qv {

/// A matrix stored column after column.
class ColumnMatrix {
public:
    ColumnMatrix(size_t rows, size_t columns) : m_rows(rows), m_data(rows * columns) {}
    double* column(size_t j) { return m_data.data() + j * m_rows; }
    const double* column(size_t j) const { return m_data.data() + j * m_rows; }
    double& at(size_t i, size_t j) { return m_data[j * m_rows + i]; }
    double at(size_t i, size_t j) const { return m_data[j * m_rows + i]; }
    size_t rows() const { return m_rows; }

private:
    size_t m_rows;
    std::vector<double> m_data;
};

/// Euclidean norm without overflow or harmful underflow on the way.
double norm(const double* values, size_t count);

/// A * P = Q * R for a matrix of at least as many rows as columns.
///
/// After factor(): R in the upper triangle of `matrix` and the original column norms in `columnNorms`; column j of R
/// belongs to column `order[j]` of the original.
class PivotedQR {
public:
    PivotedQR(size_t rows, size_t columns);

    ColumnMatrix matrix;
    std::vector<size_t> order;
    std::vector<double> columnNorms;

    /// Replaces `matrix` by its factors and `rhs` by Q' * rhs.
    void factor(std::vector<double>& rhs);

private:
    void bringLargestTo(size_t j);
    void reflect(size_t j);

    std::vector<double> m_diagonal;      // of R; also the norms of the columns not yet reduced
    std::vector<double> m_trustedNorms;  // those norms when they were last computed afresh
};

/// The step of the trust region: given R, P, Q'b and a scaling D, the x that minimises |Ax - b|^2 + par |Dx|^2, with
/// the smallest par >= 0 for which |Dx| is at most 1.1 times the radius. (The tenth is the routine's own tolerance.)
class TrustRegionStep {
public:
    explicit TrustRegionStep(size_t n);

    /// @param par  In: the first estimate. Out: the parameter found.
    /// @return     x
    const std::vector<double>& solve(PivotedQR& qr, const std::vector<double>& scale, const std::vector<double>& qtb,
                                     double radius, double& par);

private:
    bool gaussNewton(const PivotedQR& qr, const std::vector<double>& qtb);
    void damped(PivotedQR& qr, const std::vector<double>& damping, const std::vector<double>& qtb);
    void eliminateDamping(ColumnMatrix& r, size_t j);
    double scaledNorm(const std::vector<double>& scale);
    void normalisedGradient(const PivotedQR& qr, const std::vector<double>& scale, double length);
    double lowerBound(const PivotedQR& qr, const std::vector<double>& scale, double length, double excess,
                      double radius);
    double gradientNorm(const PivotedQR& qr, const std::vector<double>& scale, const std::vector<double>& qtb);
    double newtonCorrection(const PivotedQR& qr, const std::vector<double>& scale, double length, double excess,
                            double radius);

    size_t m_n;
    std::vector<double> m_x;
    std::vector<double> m_scaled;     // D * x
    std::vector<double> m_work;       // right-hand sides on their way to a solution
    std::vector<double> m_damping;    // sqrt(par) * D
    std::vector<double> m_row;        // the row of the damping that is being eliminated
    std::vector<double> m_diagonalS;  // diagonal of the factor of R'R + P'(par D^2)P; the rest lies below R
    std::vector<double> m_diagonalR;
    double m_rowRhs = 0.0;
};

}  // namespace qv
