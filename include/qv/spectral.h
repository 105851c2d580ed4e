// Spectra and radiometry: the Planck curve, integrals, axes and responses, interpolation, microns and wavenumbers, the
// readers of the two text formats of curves, and reversed calibration polynomials.
//
// A spectrum is a pair of arrays of one length: x, wavelengths in microns, ascending, and y, the values. Equal lengths
// are the caller's duty; where they differ, what has no partner is ignored. Arrays that a function does not say it
// changes are only read, although they are taken non-const; an output must not be one of the inputs unless it says so.
// Threads: calls that share no changed array may run at the same time.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/array.h"

namespace qv {

class IFileSystem;

/// First radiation constant for radiance per micron, W um^4/(cm^2 sr), as calibrations in use have it: CODATA 2018
/// gives 11910.430, but another value would move their temperatures.
inline constexpr double firstRadiationConstant = 11910.06;
/// Second radiation constant, um K; CODATA 2018 gives 14387.769.
inline constexpr double secondRadiationConstant = 14388.3;

/// Spectral radiance of a grey body, W/(sr cm^2) per micron:
/// e * (11910.06 / pow(x, 5.0)) * (1.0 / (exp(14388.3 / ((t + 273.15) * x)) - 1.0)), in that order of operations. exp
/// and the fifth power are the library's own, the same with every kernel, within 2 units in the last place of the exact
/// value; the power of an x outside 1e-40 to 1e60 is the C library's.
/// @param y  Replaced by one value for each x.
/// @param temperature  Degrees Celsius.
QV_API void Planck(TArray<double>& x, TArray<double>& y, double temperature, double emissivity);

// Integrals of y over x, summed over neighbours in array order: widths dx, rises dy, left heights y[i]. 0.0 for fewer
// than two points; negative on a descending axis. The unit is that of x times that of y.
/// dx*dy*0.5 + dx*y[i]: the trapezoidal rule (Abramowitz & Stegun 25.4.2, for unequal steps).
QV_API double IntegrateTrap(TArray<double>& x, TArray<double>& y);
/// The same function as IntegrateTrap.
QV_API double IntegrateRectMid(TArray<double>& x, TArray<double>& y);
/// dx*dy + dx*y[i]: rectangles of the right-hand height.
QV_API double IntegrateRectTR(TArray<double>& x, TArray<double>& y);
/// dx*y[i]: rectangles of the left-hand height.
QV_API double IntegrateRectTL(TArray<double>& x, TArray<double>& y);

/// `count` evenly spaced points: i * step + start with step (end - start) / (count - 1), the last exactly `end`, the
/// first exactly `start`. One point is `start`. `x` is left empty when there is no memory.
QV_API void XAxis(TArray<double>& x, double start, double end, uint32_t count);

/// As many points as `delta` fits into the span, rounded up, but at least 10: a coarser delta is not honoured, and nor
/// is a negative one. start and end are swapped when they descend. The step that results is not `delta` but the one
/// that makes the count come out. `x` is left empty when the count would be above 16,777,216 or not a number (delta 0,
/// for one).
QV_API void XAxis(TArray<double>& x, double start, double end, double delta);

/// y becomes 1.0 at every x.
QV_API void Tophat(TArray<double>& x, TArray<double>& y);

/// Divides by the maximum, unless that is within 1e-8 of 1.0. A maximum of 0 is not tested for.
QV_API void ScaleToOne(TArray<double>& y);
/// Multiplies by value / maximum, unless the maximum is within 1e-8 of `value`.
QV_API void ScaleTo(TArray<double>& y, double value);

/// The curve y(x) at each of newX, which must ascend: y of the first x at or above the point when it is within 1e-8,
/// otherwise on the straight line from the point before it; `below` before the first x, `above` behind the last.
/// @param newY  Replaced by one value for each newX.
QV_API void Interpolate(TArray<double>& x, TArray<double>& y, TArray<double>& newX, TArray<double>& newY, double below,
                        double above);
/// The same with one value outside.
QV_API void Interpolate(TArray<double>& x, TArray<double>& y, TArray<double>& newX, TArray<double>& newY,
                        double outside);

/// dst becomes the elements of src. An array copied onto itself ends up empty.
QV_API void CopyAxis(TArray<double>& dst, TArray<double>& src);

// Microns and wavenumbers (1/cm): each is 10000.0 over the other, so both names are one function. The array forms
// change their arguments in place and are false, with nothing changed, when any element of x is 0. The forms with a
// spectrum keep its radiance: each y is multiplied by the square of the old x, and both arrays are reversed when x
// comes out descending.
QV_API double ToMicrons(double wavenumber);
QV_API bool ToMicrons(TArray<double>& x);
QV_API bool ToMicrons(TArray<double>& x, TArray<double>& y);
QV_API double ToWavenumbers(double microns);
QV_API bool ToWavenumbers(TArray<double>& x);
QV_API bool ToWavenumbers(TArray<double>& x, TArray<double>& y);

QV_API void Reverse(TArray<double>& x);
QV_API void Reverse(TArray<double>& x, TArray<double>& y);

/// Reads a text file of "x y" lines, the numbers separated by commas, blanks or tabs. More columns and blank lines are
/// ignored; a token that is no number reads as 0. Lines end in LF or CR LF and have at most 65,536 bytes.
/// @return  False when the file cannot be opened or a line has fewer than two tokens (see LastDiagnostic); the arrays,
///          which are emptied first, then hold what was read so far.
QV_API bool ReadXYFile(TArray<double>& x, TArray<double>& y, IFileSystem* fs, const char16_t* path);

/// Reads the curves of a MODTRAN output text (tape7): wavenumber, total transmission and path thermal radiance, the
/// first three columns of each row. What precedes the heading line, whose first word is FREQ, is skipped, and so is a
/// second heading line that begins with CM-1. The rows end with the file or at a line that begins with -9999. Of
/// several runs the first is read.
/// @param x  Microns; rows of ascending wavenumber come out ascending in microns. The values of the other two stay as
///           they stand in the file (path thermal in W/(cm^2 sr) per 1/cm).
/// @return  As ReadXYFile, with three tokens; also false when there is no heading line.
QV_API bool ReadModtranFile(TArray<double>& x, TArray<double>& transmission, TArray<double>& pathThermal,
                            IFileSystem* fs, const char16_t* path);

// Reversed polynomials, fitted at the 16384 counts 0 to 16383 by LinearLeastSquareFit, with PolyValue giving the
// samples. False, with nothing changed, when a polynomial has fewer than two coefficients or the fit fails.
/// Replaces a polynomial from counts to radiance by one of the same order from radiance to counts.
QV_API bool CalcRadToCountsFromCountsToRad(TArray<double>& coefficients);
/// Replaces b, a polynomial from radiance to temperature, by one of the same order from temperature to radiance. The
/// radiances are those that `a` gives for the counts; `a` stays.
QV_API bool CalcTempToRadFromRadToTemp(TArray<double>& a, TArray<double>& b);

}  // namespace qv
