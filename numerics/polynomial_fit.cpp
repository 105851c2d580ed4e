// LinearLeastSquareFit. The normal equations of powers of x lose twice the digits that the powers themselves lose:
// degree 10 on an axis from -9 to -3 loses thirty. So the axis is first moved to [-1, 1], where degree 10 loses eight,
// and the sums and the solution carry 106 bits. Every step into that axis is exact: the shift is kept as two doubles,
// the scales are powers of two.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "numerics/double_double.h"
#include "qv/curve_fit.h"

namespace qv {

namespace {

constexpr int highestOrder = 63;
constexpr double smallestPivot = 1e-26;
/// Keeps powers of two and their inverses normal numbers.
constexpr int highestExponent = 1000;

// Two lanes are what the baseline instruction set has; they are also part of the result's last bits.
typedef double Lanes __attribute__((vector_size(16)));
constexpr uint32_t laneCount = sizeof(Lanes) / sizeof(double);
using Lanes2 = DoubleDouble<Lanes>;

int boundedExponent(double x) {
    int exponent = 0;
    std::frexp(x, &exponent);
    return std::clamp(exponent, -highestExponent, highestExponent);
}

struct Range {
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    bool finite = true;
    double magnitude() const { return std::max(std::fabs(low), std::fabs(high)); }
};

Range rangeOf(const double* values, uint32_t count) {
    Range range;
    for (uint32_t i = 0; i < count; ++i) {
        range.finite &= std::fabs(values[i]) <= std::numeric_limits<double>::max();
        range.low = std::min(range.low, values[i]);
        range.high = std::max(range.high, values[i]);
    }
    return range;
}

/// x = ((t * 2^widthExponent) + centre) * 2^xExponent and y = u * 2^yExponent, with t and u in [-1, 1].
struct Scaling {
    int xExponent;
    int yExponent;
    int widthExponent;
    double centre;

    Scaling(const Range& x, const Range& y)
        : xExponent(boundedExponent(x.magnitude())), yExponent(boundedExponent(y.magnitude())) {
        const double unit = std::ldexp(1.0, -xExponent);
        centre = 0.5 * (x.low * unit + x.high * unit);
        widthExponent = boundedExponent(0.5 * (x.high * unit - x.low * unit));
    }
};

/// The sums that the normal equations are made of.
struct Moments {
    std::vector<Double2> powers;    ///< of t^k, k = 0 to 2 * order
    std::vector<Double2> products;  ///< of t^k * u, k = 0 to order
};

/// Sums moments block by block: for each power one short loop over the block, whose state stays in the cache.
class MomentSum {
public:
    explicit MomentSum(int order)
        : m_order(static_cast<size_t>(order)), m_powers(2 * m_order + 1), m_products(m_order + 1) {}

    Moments sum(const double* x, const double* y, uint32_t count, const Scaling& scaling) {
        for (size_t first = 0; first < count; first += blockPoints) {
            const size_t n = std::min<size_t>(blockPoints, count - first);
            takeBlock(x + first, y + first, static_cast<uint32_t>(n), scaling);
            addBlock();
        }
        Moments moments;
        for (const Lanes2& s : m_powers) moments.powers.push_back(total(s));
        for (const Lanes2& s : m_products) moments.products.push_back(total(s));
        moments.powers[0] = {static_cast<double>(count), 0.0};
        return moments;
    }

private:
    static constexpr uint32_t blockPoints = 128;
    static constexpr uint32_t blockLanes = blockPoints / laneCount;

    static Double2 total(const Lanes2& s) {
        Double2 sum{};
        for (uint32_t lane = 0; lane < laneCount; ++lane) sum = sum + twoSum(s.hi[lane], s.lo[lane]);
        return sum;
    }

    /// Scales the points of a block. Lanes behind the last point are zero and add nothing to any sum but that of t^0.
    void takeBlock(const double* x, const double* y, uint32_t count, const Scaling& scaling) {
        const double xUnit = std::ldexp(1.0, -scaling.xExponent);
        const double yUnit = std::ldexp(1.0, -scaling.yExponent);
        const double width = std::ldexp(1.0, -scaling.widthExponent);
        for (uint32_t i = 0; i < blockPoints; ++i) {
            const bool isPoint = i < count;
            const Double2 t = isPoint ? twoSum(x[i] * xUnit, -scaling.centre) : Double2{};
            m_t[i / laneCount].hi[i % laneCount] = t.hi * width;
            m_t[i / laneCount].lo[i % laneCount] = t.lo * width;
            m_u[i / laneCount][i % laneCount] = isPoint ? y[i] * yUnit : 0.0;
        }
    }

    void addBlock() {
        Lanes2 constant = m_products[0];
        for (uint32_t i = 0; i < blockLanes; ++i) {
            accumulate(constant, {m_u[i], Lanes{}});
            m_power[i] = m_t[i];
        }
        m_products[0] = constant;
        addPower<true>(1);
        for (size_t k = 2; k <= m_order; ++k) nextPower<true>(k);
        for (size_t k = m_order + 1; k <= 2 * m_order; ++k) nextPower<false>(k);
    }

    template <bool withProduct>
    void nextPower(size_t k) {
        for (uint32_t i = 0; i < blockLanes; ++i) m_power[i] = m_power[i] * m_t[i];
        addPower<withProduct>(k);
    }

    template <bool withProduct>
    void addPower(size_t k) {
        Lanes2 power = m_powers[k];
        Lanes2 product = withProduct ? m_products[k] : Lanes2{};
        for (uint32_t i = 0; i < blockLanes; ++i) {
            accumulate(power, m_power[i]);
            if constexpr (withProduct) {
                Lanes2 term = twoProduct(m_power[i].hi, m_u[i]);
                term.lo += m_power[i].lo * m_u[i];
                accumulate(product, term);
            }
        }
        m_powers[k] = power;
        if constexpr (withProduct) m_products[k] = product;
    }

    size_t m_order;
    std::vector<Lanes2> m_powers;
    std::vector<Lanes2> m_products;
    Lanes2 m_t[blockLanes];
    Lanes2 m_power[blockLanes];
    Lanes m_u[blockLanes];
};

/// The normal equations G a = T, G[i][j] = S(t^(i+j)), by the root-free Cholesky decomposition G = L D L'. G is
/// positive definite, so no pivot need be searched; one that has almost vanished against its diagonal element ends the
/// attempt.
bool solveNormalEquations(const Moments& moments, std::vector<Double2>& solution) {
    const size_t n = moments.products.size();
    std::vector<Double2> lower(n * n);
    std::vector<Double2> pivot(n);
    solution = moments.products;
    for (size_t j = 0; j < n; ++j) {
        for (size_t i = j; i < n; ++i) {
            Double2 sum = moments.powers[i + j];
            for (size_t k = 0; k < j; ++k) sum = sum - lower[i * n + k] * lower[j * n + k] * pivot[k];
            if (i != j) {
                lower[i * n + j] = sum / pivot[j];
            } else if (sum.hi > smallestPivot * moments.powers[2 * j].hi) {
                pivot[j] = sum;
            } else {
                return false;
            }
        }
        for (size_t k = 0; k < j; ++k) solution[j] = solution[j] - lower[j * n + k] * solution[k];
    }
    for (size_t j = n; j-- > 0;) {
        solution[j] = solution[j] / pivot[j];
        for (size_t i = j + 1; i < n; ++i) solution[j] = solution[j] - lower[i * n + j] * solution[i];
    }
    return true;
}

/// Turns the polynomial in t into one in x and rounds it. False when a coefficient leaves the range of double.
bool toOriginalAxis(std::vector<Double2>& a, const Scaling& scaling, std::vector<double>& coefficients) {
    const size_t n = a.size();
    for (size_t k = 0; k < n; ++k) {
        const int exponent = -scaling.widthExponent * static_cast<int>(k);
        a[k] = {std::ldexp(a[k].hi, exponent), std::ldexp(a[k].lo, exponent)};
    }
    for (size_t i = 0; i + 1 < n; ++i) {
        for (size_t k = n - 1; k-- > i;) a[k] = a[k] - a[k + 1] * scaling.centre;
    }
    bool finite = true;
    for (size_t k = 0; k < n; ++k) {
        coefficients[k] = std::ldexp(a[k].hi, scaling.yExponent - scaling.xExponent * static_cast<int>(k));
        finite &= std::isfinite(coefficients[k]);
    }
    return finite;
}

}  // namespace

bool LinearLeastSquareFit(TArray<double>& x, TArray<double>& y, int order, TArray<double>& coefficients) {
    const uint32_t count = x.size();
    if (order < 1 || order > highestOrder || y.size() != count || count <= static_cast<uint32_t>(order)) return false;
    const Range xRange = rangeOf(x.data(), count);
    const Range yRange = rangeOf(y.data(), count);
    if (!xRange.finite || !yRange.finite || xRange.low == xRange.high) return false;

    const Scaling scaling(xRange, yRange);
    std::vector<Double2> solution;
    if (!solveNormalEquations(MomentSum(order).sum(x.data(), y.data(), count, scaling), solution)) return false;
    std::vector<double> rounded(solution.size());
    if (!toOriginalAxis(solution, scaling, rounded)) return false;
    if (!coefficients.SetSize(static_cast<uint32_t>(rounded.size()))) return false;
    std::copy(rounded.begin(), rounded.end(), coefficients.begin());
    return true;
}

}  // namespace qv
