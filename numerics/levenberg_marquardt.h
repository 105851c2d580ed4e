// Nonlinear least squares by the Levenberg-Marquardt algorithm with a trust region: lmdif of MINPACK, after J. Moré,
// "The Levenberg-Marquardt algorithm: implementation and theory", Lecture Notes in Mathematics 630 (1978), and the
// guide ANL-80-74. Where the order of operations decides about the path of an iteration, it is that of the routine.
#pragma once

#include <cstddef>
#include <vector>

namespace qv {

/// Residuals as a function of the free parameters.
class IResiduals {
public:
    virtual ~IResiduals() = default;
    virtual void evaluate(const double* parameters, double* residuals) = 0;
};

struct LevenbergMarquardtSettings {
    double sumTolerance;         ///< on the relative reduction of the sum of squares
    double parameterTolerance;   ///< on the relative change of the parameters
    double orthogonalTolerance;  ///< on the cosine between the residuals and any column of the Jacobian
    double differenceError;      ///< relative error of the residuals; its root is the difference step
    double stepBound;            ///< first step bound in units of the scaled starting point
    int maxCalls;                ///< evaluations, those of the Jacobian included
};

enum class LevenbergMarquardtResult {
    badInput,      ///< no parameter, fewer residuals than parameters, or no call allowed
    converged,     ///< a tolerance was met
    exhausted,     ///< no tolerance was met, but double precision allows no further gain
    tooManyCalls,  ///< maxCalls ran out
    notFinite,     ///< the residuals, their derivatives at the point reached, or the step from it are not finite
};

/// Minimises the sum of squares of `residualCount` residuals, starting from and ending in `parameters`.
LevenbergMarquardtResult minimise(IResiduals& residuals, size_t residualCount, std::vector<double>& parameters,
                                  const LevenbergMarquardtSettings& settings);

}  // namespace qv
