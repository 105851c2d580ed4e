// The nonlinear problems of the Statistical Reference Datasets (US National Institute of Standards and Technology,
// public domain): their models, and a reader of the files in which they are published.
#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace nist {

using Model = double (*)(double x, double* b, int count);
using Model2 = double (*)(double x1, double x2, double* b, int count);

struct Problem {
    std::vector<double> start[2];
    std::vector<double> certified;
    std::vector<double> y;
    std::vector<double> x1;
    std::vector<double> x2;
};

/// The numbers of a line that begins with one; the exponent letter may be E.
inline std::vector<double> numbersOf(const std::string& line) {
    std::vector<double> numbers;
    const char* at = line.c_str();
    for (char* end = nullptr;; at = end) {
        const double value = std::strtod(at, &end);
        if (end == at) return numbers;
        numbers.push_back(value);
    }
}

/// Reads one published file: "b1 = start1 start2 certified deviation" lines, then, from line 61 on, "y x" or "y x1 x2".
inline bool load(const std::string& path, Problem& problem) {
    std::ifstream in(path);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const size_t equals = line.find('=');
        const size_t name = line.find_first_not_of(' ');
        if (number >= 61) {
            const std::vector<double> row = numbersOf(line);
            if (row.size() < 2) continue;
            problem.y.push_back(row[0]);
            problem.x1.push_back(row[1]);
            if (row.size() > 2) problem.x2.push_back(row[2]);
        } else if (number >= 41 && equals != std::string::npos && line[name] == 'b') {
            const std::vector<double> row = numbersOf(line.substr(equals + 1));
            if (row.size() < 3) return false;
            problem.start[0].push_back(row[0]);
            problem.start[1].push_back(row[1]);
            problem.certified.push_back(row[2]);
        }
    }
    return !problem.y.empty() && !problem.certified.empty();
}

struct Named {
    const char* name;
    Model model;
};

inline constexpr Named models[] = {
    {"Misra1a", [](double x, double* b, int) { return b[0] * (1 - std::exp(-b[1] * x)); }},
    {"Misra1b", [](double x, double* b, int) { return b[0] * (1 - std::pow(1 + b[1] * x / 2, -2)); }},
    {"Chwirut2", [](double x, double* b, int) { return std::exp(-b[0] * x) / (b[1] + b[2] * x); }},
    {"DanWood", [](double x, double* b, int) { return b[0] * std::pow(x, b[1]); }},
    {"Lanczos3",
     [](double x, double* b, int) {
         return b[0] * std::exp(-b[1] * x) + b[2] * std::exp(-b[3] * x) + b[4] * std::exp(-b[5] * x);
     }},
    {"Gauss1",
     [](double x, double* b, int) {
         const auto peak = [x](double height, double centre, double width) {
             return height * std::exp(-(x - centre) * (x - centre) / (width * width));
         };
         return b[0] * std::exp(-b[1] * x) + peak(b[2], b[3], b[4]) + peak(b[5], b[6], b[7]);
     }},
    {"Kirby2",
     [](double x, double* b, int) { return (b[0] + b[1] * x + b[2] * x * x) / (1 + b[3] * x + b[4] * x * x); }},
    {"Hahn1",
     [](double x, double* b, int) {
         return (b[0] + x * (b[1] + x * (b[2] + x * b[3]))) / (1 + x * (b[4] + x * (b[5] + x * b[6])));
     }},
    {"MGH17", [](double x, double* b, int) { return b[0] + b[1] * std::exp(-x * b[3]) + b[2] * std::exp(-x * b[4]); }},
    {"Roszman1",
     [](double x, double* b, int) { return b[0] - b[1] * x - std::atan(b[2] / (x - b[3])) / std::numbers::pi; }},
    {"ENSO",
     [](double x, double* b, int) {
         const auto wave = [x](double c, double s, double period) {
             const double angle = 2 * std::numbers::pi * x / period;
             return c * std::cos(angle) + s * std::sin(angle);
         };
         return b[0] + wave(b[1], b[2], 12) + wave(b[4], b[5], b[3]) + wave(b[7], b[8], b[6]);
     }},
    {"Thurber",
     [](double x, double* b, int) {
         return (b[0] + x * (b[1] + x * (b[2] + x * b[3]))) / (1 + x * (b[4] + x * (b[5] + x * b[6])));
     }},
    {"Rat42", [](double x, double* b, int) { return b[0] / (1 + std::exp(b[1] - b[2] * x)); }},
    {"Eckerle4",
     [](double x, double* b, int) {
         const double z = (x - b[2]) / b[1];
         return b[0] / b[1] * std::exp(-0.5 * z * z);
     }},
};

/// Of log(y).
inline double nelson(double x1, double x2, double* b, int) { return b[0] - b[1] * x1 * std::exp(-b[2] * x2); }

/// Decimal digits on which all fitted values agree with the certified ones.
inline double digits(const double* fitted, const std::vector<double>& certified) {
    double worst = 17.0;
    for (size_t i = 0; i < certified.size(); ++i) {
        const double error = std::fabs(fitted[i] - certified[i]) / std::fabs(certified[i]);
        const double right = error > 0.0 ? -std::log10(error) : (error == 0.0 ? 17.0 : 0.0);
        if (right < worst) worst = right;
    }
    return worst;
}

}  // namespace nist
