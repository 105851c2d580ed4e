// Temperature scales: scalar conversions (CMath) and whole typed arrays (CMath::ConvertTemperature).
//
// The scalar conversions multiply by 0.5555555555555556 where the array conversion divides by 1.8: the two may differ
// in the last bit.
#pragma once

#include <cstdint>

#include "qv/api.h"
#include "qv/typed_data.h"

namespace qv {

/// Temperature scales. The numbers are part of the interface.
enum class ETempType : int32_t { Celsius = 0, Fahrenheit = 1, Kelvin = 2, Rankine = 3 };

/// "Celsius", "Fahrenheit", "Kelvin", "Rankine"; "Error" for any other value. The text is the library's.
QV_API const char16_t* TempTypeToString(ETempType type);

/// Static helpers. Threads: calls on disjoint arrays may run at the same time.
class QV_API CMath {
public:
    /// cos, sin and fabs of the runtime; angles in radians.
    static double Cosine(double x);
    static double Sine(double x);
    static double AbsoluteValue(double x);
    /// Ceiling and floor.
    static double RoundUp(double x);
    static double RoundDown(double x);
    /// To the nearest whole number, halves away from zero: x + 0.5 (x - 0.5 below zero) truncated. So the largest
    /// double below 0.5 gives 1. From 1e18 on, in either direction, x itself; NaN gives -2^63.
    static double Round(double x);

    /// The angle constant has five decimals, 57.2958 degrees to the radian; it is not 180 over pi.
    static double RadiansToDegrees(double x);
    static double DegreesToRadians(double x);

    static double FahrenheitToCelsius(double x);
    static double CelsiusToFahrenheit(double x);
    static double KelvinToCelsius(double x);
    static double CelsiusToKelvin(double x);
    static double KelvinToFahrenheit(double x);
    static double FahrenheitToKelvin(double x);

    /// dst[i] = src[i] on another scale, computed in double whatever the types, and stored by the element rule of
    /// qv/typed_data.h: truncated, not clamped.
    ///
    /// Equal scales copy like ConvertArray. uint64, the types that are no numbers, and unknown scales leave dst as it
    /// is. dst and src may be one array; those that overlap otherwise give what the ascending loop gives.
    static void ConvertTemperature(STypedData dst, STypedData src, uint32_t count, ETempType from, ETempType to);
};

}  // namespace qv
