#include "qv/temperature.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "numerics/block_order.h"
#include "numerics/kernels/kernel_table.h"

namespace qv {

namespace {

using kernels::AffineTerms;
using kernels::KernelTable;
using kernels::pairKernel;

constexpr double degreesPerRadian = 57.2958;
constexpr double celsiusPerFahrenheit = 0.5555555555555556;
constexpr double fahrenheitPerCelsius = 1.8;
constexpr double zeroCelsius = 273.15;     // in kelvin
constexpr double zeroFahrenheit = 459.67;  // in degrees Rankine
constexpr double freezingFahrenheit = 32.0;

constexpr const char16_t* scaleNames[] = {u"Celsius", u"Fahrenheit", u"Kelvin", u"Rankine"};
constexpr size_t scaleCount = std::size(scaleNames);

/// How one scale leads to another.
struct Formula {
    AffineTerms terms;
    bool divides = false;
};

/// [from][to]. The diagonal is a copy.
constexpr Formula formulas[scaleCount][scaleCount] = {
    {{},
     {{.scale = fahrenheitPerCelsius, .after = freezingFahrenheit}},
     {{.before = zeroCelsius}},
     {{.before = zeroCelsius, .scale = fahrenheitPerCelsius}}},
    {{{.before = -freezingFahrenheit, .scale = fahrenheitPerCelsius}, true},
     {},
     {{.before = zeroFahrenheit, .scale = fahrenheitPerCelsius}, true},
     {{.before = zeroFahrenheit}}},
    {{{.before = -zeroCelsius}},
     {{.scale = fahrenheitPerCelsius, .after = -zeroFahrenheit}},
     {},
     {{.scale = fahrenheitPerCelsius}}},
    {{{.scale = fahrenheitPerCelsius, .after = -zeroCelsius}, true},
     {{.before = -zeroFahrenheit}},
     {{.scale = fahrenheitPerCelsius}, true},
     {}},
};

/// Any pair of types: a block becomes double, is moved to the other scale, and becomes elements of dst. Arrays that
/// overlap so that a block would read what it has written go one element at a time.
void convertBlocks(STypedData dst, STypedData src, uint32_t count, const Formula& formula) {
    const KernelTable& table = kernels::kernels();
    const auto read = pairKernel(table.convert, EDataType::flt64, src.type);
    const auto write = pairKernel(table.convert, dst.type, EDataType::flt64);
    if (read == nullptr || write == nullptr) return;
    constexpr size_t blockLength = 512;
    double block[blockLength];
    const size_t step = blocksKeepOrder(dst, src, count) ? blockLength : 1;
    for (size_t done = 0; done < count; done += step) {
        const size_t n = std::min<size_t>(step, count - done);
        read(block, elementAt(src, done), n);
        table.affine[1][formula.divides](block, block, n, formula.terms);
        write(elementAt(dst, done), block, n);
    }
}

}  // namespace

const char16_t* TempTypeToString(ETempType type) {
    const auto scale = static_cast<uint32_t>(type);
    return scale < scaleCount ? scaleNames[scale] : u"Error";
}

double CMath::Cosine(double x) { return std::cos(x); }
double CMath::Sine(double x) { return std::sin(x); }
double CMath::AbsoluteValue(double x) { return std::fabs(x); }
double CMath::RoundUp(double x) { return std::ceil(x); }
double CMath::RoundDown(double x) { return std::floor(x); }

double CMath::Round(double x) {
    constexpr double wholeFrom = 1e18;
    if (x >= wholeFrom || x <= -wholeFrom) return x;
    return static_cast<double>(kernels::hardwareTruncate<int64_t>(x >= 0.0 ? x + 0.5 : x - 0.5));
}

double CMath::RadiansToDegrees(double x) { return x * degreesPerRadian; }
double CMath::DegreesToRadians(double x) { return x / degreesPerRadian; }
double CMath::FahrenheitToCelsius(double x) { return (x - freezingFahrenheit) * celsiusPerFahrenheit; }
double CMath::CelsiusToFahrenheit(double x) { return x * fahrenheitPerCelsius + freezingFahrenheit; }
double CMath::KelvinToCelsius(double x) { return x - zeroCelsius; }
double CMath::CelsiusToKelvin(double x) { return x + zeroCelsius; }
double CMath::KelvinToFahrenheit(double x) { return x * fahrenheitPerCelsius - zeroFahrenheit; }
double CMath::FahrenheitToKelvin(double x) { return (x - freezingFahrenheit) * celsiusPerFahrenheit + zeroCelsius; }

void CMath::ConvertTemperature(STypedData dst, STypedData src, uint32_t count, ETempType from, ETempType to) {
    const auto row = static_cast<uint32_t>(from);
    const auto column = static_cast<uint32_t>(to);
    if (row >= scaleCount || column >= scaleCount) return;
    if (from == to) return ConvertArray(dst, src, count);
    const Formula& formula = formulas[row][column];
    const bool floats = dst.type == src.type && (dst.type == EDataType::flt32 || dst.type == EDataType::flt64);
    if (floats && (dst.pointer == src.pointer || blocksKeepOrder(dst, src, count))) {
        const auto& kernel = kernels::kernels().affine[dst.type == EDataType::flt64 ? 1 : 0];
        return kernel[formula.divides](dst.pointer, src.pointer, count, formula.terms);
    }
    convertBlocks(dst, src, count, formula);
}

}  // namespace qv
