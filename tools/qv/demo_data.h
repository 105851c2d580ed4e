// The demonstration's simulated camera and scene.
//
// The physics stands on its own feet: Planck's law with the CODATA 2018 constants, integrated by Simpson's rule over
// the camera's analytic response. Nothing of the library's radiometry is used, so that what the library makes of the
// counts can be held against the truth.
#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace tool::demo {

/// Normal deviates by Box and Muller's method: the same sequence on every machine, for one seed.
class Noise {
public:
    explicit Noise(uint64_t seed) : m_engine(seed) {}
    double operator()();

private:
    /// Within (0, 1], from the upper 53 bits.
    double uniform() { return (static_cast<double>(m_engine() >> 11) + 1.0) * 0x1p-53; }

    std::mt19937_64 m_engine;
    double m_spare = 0.0;
    bool m_hasSpare = false;
};

/// A camera for 3 to 5 microns with 14 bits.
class Camera {
public:
    static constexpr double shortestMicrons = 2.9;
    static constexpr double longestMicrons = 5.1;
    static constexpr double offsetCounts = 900.0;
    /// Counts per W/(sr cm^2) at weak light; strong light gives up to 1.5 percent less.
    static constexpr double gain = 6.5e6;
    static constexpr double noiseCounts = 2.0;
    static constexpr double mostCounts = 16383.0;

    /// Relative response, 0 to 1, with soft edges.
    static double response(double microns);
    /// In-band radiance of a blackbody, W/(sr cm^2).
    static double blackbodyRadiance(double celsius);
    /// Mean counts, before noise and rounding.
    static double meanCounts(double radiance);
    /// What a pixel reads.
    static uint16_t read(double mean, Noise& noise);
};

/// Something in the picture whose temperature is known.
struct Target {
    std::string name;
    double celsius;
    double x;  ///< Centre in the first frame, pixels.
    double y;
    double xPerFrame;
    double radius;  ///< Pixels. Squares: half a side.
    bool round;

    double xIn(uint32_t frame) const { return x + xPerFrame * frame; }
    /// The pixel lies inside by at least `margin` pixels.
    bool contains(uint32_t frame, double px, double py, double margin) const;
};

/// A wall at room temperature, a row of reference surfaces, and a warm disc that moves from left to right. Everything
/// is painted with one emissivity, and reflects surroundings of one temperature.
struct Scene {
    static constexpr uint32_t width = 320;
    static constexpr uint32_t height = 256;
    static constexpr uint32_t frames = 30;
    static constexpr double emissivity = 0.95;
    static constexpr double surroundingsCelsius = 22.0;
    static constexpr double wallLeftCelsius = 18.0;
    static constexpr double wallRightCelsius = 26.0;

    static const std::vector<Target>& targets();
};

/// The blackbody temperatures of the calibration points, degrees Celsius.
inline constexpr std::array blackbodyCelsius = {10.0, 20.0, 30.0, 40.0,  50.0,  60.0,
                                                70.0, 80.0, 90.0, 100.0, 110.0, 120.0};

/// The response as "microns,response" lines.
std::string responseText();
/// A horizontal path of air at one temperature, between the camera and a scene: bands in which water and carbon dioxide
/// absorb, and weak absorption between them.
struct Air {
    static constexpr double celsius = 15.0;
    static double transmittance(double microns);
};

/// The air as the atmosphere program would put it out: a table of a thermal radiance run over the camera's band.
std::string atmosphereText();
/// The points as CSV with a head line; each the mean of 64 x 64 pixels.
std::string pointsText(uint64_t seed);
/// True temperature, place and size of every target, as CSV with a head line.
std::string truthText();
/// All frames, one behind the other, row by row: 16 bits, the least significant byte first.
std::vector<uint8_t> rawFrames(uint64_t seed);

}  // namespace tool::demo
