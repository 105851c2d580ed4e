#include "demo_data.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

#include "text.h"

namespace tool::demo {

namespace {

// Radiation constants of spectral radiance per micron, W um^4/(cm^2 sr) and um K: 2hc^2 and hc/k of CODATA 2018.
constexpr double firstConstant = 11910.42972;
constexpr double secondConstant = 14387.76877;
constexpr double zeroCelsius = 273.15;

/// 0 below `from`, 1 above `to`, and smooth between.
double softStep(double x, double from, double to) {
    const double t = std::clamp((x - from) / (to - from), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

double planck(double microns, double celsius) {
    return firstConstant / std::pow(microns, 5) / std::expm1(secondConstant / (microns * (celsius + zeroCelsius)));
}

/// Mean counts of a surface of the scene's paint.
double surfaceCounts(double celsius) {
    static const double surroundings = Camera::blackbodyRadiance(Scene::surroundingsCelsius);
    return Camera::meanCounts(Scene::emissivity * Camera::blackbodyRadiance(celsius) +
                              (1.0 - Scene::emissivity) * surroundings);
}

/// The mean counts of each pixel of a frame.
void drawFrame(uint32_t frame, const std::vector<double>& wall, const std::vector<double>& targetCounts,
               std::vector<double>& mean) {
    for (uint32_t y = 0; y < Scene::height; ++y) {
        std::copy(wall.begin(), wall.end(), mean.begin() + static_cast<ptrdiff_t>(y * Scene::width));
    }
    for (size_t i = 0; i < targetCounts.size(); ++i) {
        const Target& target = Scene::targets()[i];
        for (uint32_t y = 0; y < Scene::height; ++y) {
            for (uint32_t x = 0; x < Scene::width; ++x) {
                if (target.contains(frame, x, y, 0.0)) mean[y * Scene::width + x] = targetCounts[i];
            }
        }
    }
}

}  // namespace

double Noise::operator()() {
    m_hasSpare = !m_hasSpare;
    if (!m_hasSpare) return m_spare;
    const double radius = std::sqrt(-2.0 * std::log(uniform()));
    const double angle = 2.0 * std::numbers::pi * uniform();
    m_spare = radius * std::sin(angle);
    return radius * std::cos(angle);
}

double Camera::response(double microns) {
    return softStep(microns, 2.95, 3.15) * (1.0 - softStep(microns, 4.85, 5.05)) * microns / 5.0;
}

double Camera::blackbodyRadiance(double celsius) {
    constexpr int intervals = 1100;  // even; steps of 2 nm
    constexpr double step = (longestMicrons - shortestMicrons) / intervals;
    double sum = 0.0;
    for (int i = 0; i <= intervals; ++i) {
        const double microns = shortestMicrons + step * i;
        const double weight = i == 0 || i == intervals ? 1.0 : i % 2 == 1 ? 4.0 : 2.0;
        sum += weight * response(microns) * planck(microns, celsius);
    }
    return sum * step / 3.0;
}

double Camera::meanCounts(double radiance) {
    const double linear = gain * radiance;
    return offsetCounts + linear * (1.0 - 0.015 * linear / mostCounts);
}

uint16_t Camera::read(double mean, Noise& noise) {
    return static_cast<uint16_t>(std::lround(std::clamp(mean + noiseCounts * noise(), 0.0, mostCounts)));
}

bool Target::contains(uint32_t frame, double px, double py, double margin) const {
    const double dx = std::fabs(px - xIn(frame));
    const double dy = std::fabs(py - y);
    return round ? std::hypot(dx, dy) <= radius - margin : std::max(dx, dy) <= radius - margin;
}

const std::vector<Target>& Scene::targets() {
    static const std::vector<Target> all = {
        {"reference 1", 15.0, 42.0, 216.0, 0.0, 18.0, false},  {"reference 2", 35.0, 89.0, 216.0, 0.0, 18.0, false},
        {"reference 3", 55.0, 136.0, 216.0, 0.0, 18.0, false}, {"reference 4", 75.0, 183.0, 216.0, 0.0, 18.0, false},
        {"reference 5", 95.0, 230.0, 216.0, 0.0, 18.0, false}, {"reference 6", 115.0, 277.0, 216.0, 0.0, 18.0, false},
        {"moving disc", 85.0, 60.0, 96.0, 6.5, 40.4, true},
    };
    return all;
}

std::string responseText() {
    constexpr int intervals = 110;
    constexpr double step = (Camera::longestMicrons - Camera::shortestMicrons) / intervals;
    std::string text;
    for (int i = 0; i <= intervals; ++i) {
        const double microns = Camera::shortestMicrons + step * i;
        text += fixed(microns, 2) + "," + fixed(Camera::response(microns), 6) + "\n";
    }
    return text;
}

double Air::transmittance(double microns) {
    const auto band = [microns](double centre, double width, double depth) {
        const double distance = (microns - centre) / width;
        return depth * std::exp(-distance * distance);
    };
    return std::exp(-0.08 - band(2.7, 0.35, 3.0) - band(4.28, 0.1, 9.0) - band(5.4, 0.5, 2.5));
}

std::string atmosphereText() {
    constexpr int firstWavenumber = 1960, lastWavenumber = 3460, step = 5;
    const auto line = [](const char* format, auto... values) {
        char text[160];
        return std::string(text, static_cast<size_t>(std::snprintf(text, sizeof text, format, values...)));
    };
    std::string text = "T   0    1    1    0    0    0    0    0    0    0    0    0    0   0.000   0.00\n";
    for (const char* card : {"    0    0    0    0    0    0   0.00000   0.00000   0.00000   0.00000   0.00000",
                             " -99.000 -99.000 -99.000", " -99.00000 -99.00000 -99.00000", "    1DEMONSTRATION",
                             "   0.00000   0.00000   0.50000", "  -99  -99  -99  -99", " -99.00000 -99.00000"}) {
        text += std::string(card) + "\n";
    }
    text += line("%10d%10d%10d%10d\n", firstWavenumber, lastWavenumber, step, step);
    text +=
        "    0   0    0.000  0    0.000  0    1.000\n    FREQ  TOT TRANS  PTH THRML  SURF EMIS  TOTAL RAD   DEPTH\n";
    for (int wavenumber = firstWavenumber; wavenumber <= lastWavenumber; wavenumber += step) {
        const double microns = 1e4 / wavenumber;
        const double through = Air::transmittance(microns);
        // Planck's law per 1/cm.
        const double thermal = (1.0 - through) * planck(microns, Air::celsius) * microns * microns / 1e4;
        text += line("%8.2f%11.8f%11.4E%11.4E%11.4E%8.3f\n", static_cast<double>(wavenumber), through, thermal, 0.0,
                     thermal, -std::log(through));
    }
    return text + " -9999.\n";
}

std::string pointsText(uint64_t seed) {
    constexpr int pixels = 64 * 64;
    Noise noise(seed);
    std::string text = "temperature,counts\n";
    for (const double celsius : blackbodyCelsius) {
        const double mean = Camera::meanCounts(Camera::blackbodyRadiance(celsius));
        double sum = 0.0;
        for (int i = 0; i < pixels; ++i) sum += Camera::read(mean, noise);
        text += fixed(celsius, 1) + "," + fixed(sum / pixels, 3) + "\n";
    }
    return text;
}

std::string truthText() {
    std::string text = "name,temperature,x,y,xPerFrame,radius,shape\n";
    for (const Target& t : Scene::targets()) {
        text += t.name + "," + fixed(t.celsius, 1) + "," + fixed(t.x, 1) + "," + fixed(t.y, 1) + "," +
                fixed(t.xPerFrame, 1) + "," + fixed(t.radius, 1) + "," + (t.round ? "disc" : "square") + "\n";
    }
    return text;
}

std::vector<uint8_t> rawFrames(uint64_t seed) {
    std::vector<double> wall(Scene::width);
    for (uint32_t x = 0; x < Scene::width; ++x) {
        const double part = static_cast<double>(x) / (Scene::width - 1);
        wall[x] = surfaceCounts(std::lerp(Scene::wallLeftCelsius, Scene::wallRightCelsius, part));
    }
    std::vector<double> targetCounts;
    for (const Target& target : Scene::targets()) targetCounts.push_back(surfaceCounts(target.celsius));

    Noise noise(seed);
    std::vector<double> mean(size_t{Scene::width} * Scene::height);
    std::vector<uint8_t> bytes;
    bytes.reserve(mean.size() * Scene::frames * 2);
    for (uint32_t frame = 0; frame < Scene::frames; ++frame) {
        drawFrame(frame, wall, targetCounts, mean);
        for (const double value : mean) {
            const uint16_t counts = Camera::read(value, noise);
            bytes.push_back(static_cast<uint8_t>(counts & 0xFF));
            bytes.push_back(static_cast<uint8_t>(counts >> 8));
        }
    }
    return bytes;
}

}  // namespace tool::demo
