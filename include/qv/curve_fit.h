// Curve fitting: models of the caller's own (lmfit, lmfit2), polynomials and three two-parameter forms by least
// squares, the values and curves of those forms, and R². Start with LinearLeastSquareFit.
//
// All arrays are only read, although most are taken non-const, except where a parameter says that it is written.
// Nothing here throws by itself (memory apart); `false` leaves every output as it was unless the function says
// otherwise. Threads: calls that share no written array may run at the same time.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"

namespace qv {

/// Fits `params` so that model(x[i]) comes as near to y[i] as possible in the sum of squares, by Levenberg-Marquardt.
///
/// The algorithm is lmdif of MINPACK (J. Moré, B. Garbow, K. Hillstrom, ANL-80-74, 1980): a trust region scaled by the
/// Jacobian's column norms, forward differences, QR with column pivoting. Tolerances on the sum of squares, the
/// parameters and orthogonality, and the difference step, are 30 machine epsilons; the first step bound is 100.
/// @param x, y      The data, equally many.
/// @param params    In: the starting point. Out: the solution, also after a `false` that ended a running fit.
/// @param model     Called with x, all parameters (free and fixed) and their number. A trial step into values that are
///                  not finite is taken back.
/// @param fit       Which parameters are free; the others keep their value. Missing entries count as false.
/// @param maxCalls  Bound on evaluations of the whole data set; those of the Jacobian, one per free parameter, count.
/// @return  True when a convergence test was met or no further gain is possible in double precision. False when
///          maxCalls ran out or the model's values, derivatives or the next step are not finite where the fit stands;
///          and, with `params` untouched, for no free parameter, fewer points than free parameters, unequal lengths, or
///          maxCalls below 1.
QV_API bool lmfit(TArray<double>& x, TArray<double>& y, TArray<double>& params, TArray<bool> fit,
                  double (*model)(double x, double* params, int count), int maxCalls);

/// lmfit with two independent variables.
QV_API bool lmfit2(TArray<double>& x1, TArray<double>& x2, TArray<double>& y, TArray<double>& params, TArray<bool> fit,
                   double (*model)(double x1, double x2, double* params, int count), int maxCalls);

/// Least-squares polynomial of degree `order` through the points; `coefficients` receives order + 1 values, lowest
/// power first.
///
/// Solves the normal equations, summed from products of powers. Sums and solution carry 106 bits, and the axis is
/// centred and scaled without rounding, so that the coefficients are right to the last digits also where the equations
/// in plain double precision would have lost all of them (the certified NIST set Filip of degree 10 comes out to all 14
/// digits of its certificate).
/// @return  False when order < 1 or > 63, the lengths differ, there are fewer points than coefficients, a value or a
///          resulting coefficient is not finite, or the system is singular: too few distinct x, seen as a pivot below
///          1e-26 of its diagonal element. (From order 64 on that holds for any points.)
QV_API bool LinearLeastSquareFit(TArray<double>& x, TArray<double>& y, int order, TArray<double>& coefficients);

// Fits of the forms y = a * exp(b * x), y = a * log(x) + b and y = a * pow(x, b): a straight line through the points
// with the natural logarithm taken of y, of x, or of both. The squares that are least are therefore those of the
// logarithms. False as LinearLeastSquareFit. A logarithm of zero or less is not tested for: the result is false, and a
// and b are NaN.
QV_API bool ExpLeastSquareFit(TArray<double>& x, TArray<double>& y, double& a, double& b);
QV_API bool LogLeastSquareFit(TArray<double>& x, TArray<double>& y, double& a, double& b);
QV_API bool PowLeastSquareFit(TArray<double>& x, TArray<double>& y, double& a, double& b);

/// The squared correlation of y and the polynomial's values p at x (Horner's rule):
/// (n*S(p*y) - S(p)*S(y))^2 / ((n*S(p*p) - S(p)^2) * (n*S(y*y) - S(y)^2)), summed in 106 bits.
///
/// 0.0 with fewer than two coefficients, and when |S(y)| or |S(p)| is below 1e-8: a curve that averages to zero counts
/// as no fit. NaN when all y or all p are equal. Surplus elements of the longer array are ignored.
QV_API double CalcR2(TArray<double>& x, TArray<double>& y, TArray<double>& coefficients);

/// The same between two arrays, `a` in place of p and `b` in place of y.
QV_API double CalcR2(TArray<double>& a, TArray<double>& b);

/// The polynomial at x as the sum of pow(x, i) * coefficients[i], in ascending order: the last bits may differ from
/// Horner's rule. 0.0 with fewer than two coefficients, also where there is one.
QV_API double PolyValue(double x, TArray<double>& coefficients);
/// exp(x * b) * a
QV_API double ExpValue(double x, double a, double b);
/// log(x) * a + b
QV_API double LogValue(double x, double a, double b);
/// pow(x, b) * a
QV_API double PowValue(double x, double a, double b);

// The value functions at every x. `y` is replaced; it may be `x` itself.
QV_API void PolyCurve(TArray<double>& x, TArray<double>& y, TArray<double>& coefficients);
QV_API void ExpCurve(TArray<double>& x, TArray<double>& y, double a, double b);
QV_API void LogCurve(TArray<double>& x, TArray<double>& y, double a, double b);
QV_API void PowCurve(TArray<double>& x, TArray<double>& y, double a, double b);

}  // namespace qv
