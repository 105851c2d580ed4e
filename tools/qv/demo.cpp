// qv demo: a simulated camera's data set, and the road from its counts to temperatures.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>

#include "command.h"
#include "demo_data.h"
#include "json.h"
#include "qv/diagnostic.h"
#include "qv/file_system.h"
#include "qv/rcal_file.h"
#include "recording.h"
#include "table.h"
#include "target.h"
#include "text.h"

namespace tool {

namespace {

constexpr uint64_t pointsSeed = 1;
constexpr uint64_t framesSeed = 2;
/// What the demonstration promises: recovered temperatures are this near to the true ones.
constexpr double promisedKelvin = 0.2;
/// Pixels at a target's rim that are left out of its mean.
constexpr double rimPixels = 2.0;

struct Options {
    std::string folder;
    bool force = false;
};

/// The files of the data set, by name.
class Folder {
public:
    explicit Folder(const Options& options) : m_path(options.folder), m_force(options.force) {
        qv::IFileSystem& disk = qv::fileSystem();
        qv::ClearDiagnostic();
        const auto type = disk.GetFileInfo(wide(m_path).c_str()).type;
        if (type == qv::IFileSystem::typeFile) throw Failure(Exit::io, m_path + ": is a file, not a folder");
        if (type == qv::IFileSystem::typeNothing && !disk.CreateDirectoryW(wide(m_path).c_str(), true)) {
            throw diagnosed(Exit::io, m_path, "cannot be created");
        }
    }

    std::string file(const std::string& name) const { return (std::filesystem::path(m_path) / name).string(); }

    void write(const std::string& name, const void* data, size_t size) const {
        Target target(file(name), m_force);
        if (!target.open()->WriteBytes(data, static_cast<uint32_t>(size))) {
            throw Failure(Exit::io, file(name) + ": cannot be written (is the disk full?)");
        }
        target.commit();
        std::cout << "  " << file(name) << ", " << bytes(static_cast<double>(size)) << '\n';
    }
    void write(const std::string& name, const std::string& text) const { write(name, text.data(), text.size()); }

    /// Runs a subcommand and shows its command line.
    void run(std::vector<std::string> arguments, bool writes) const {
        std::cout << "\n$ qv";
        for (const std::string& argument : arguments) {
            const bool quoted = argument.find(' ') != std::string::npos;
            std::cout << ' ' << (quoted ? "\"" + argument + "\"" : argument);
        }
        std::cout << '\n';
        if (writes && m_force) arguments.push_back("--force");
        const Exit result = runCommand(std::move(arguments));
        if (result != Exit::done) throw Failure(result, "the demonstration's own command came out negative");
    }

private:
    std::string m_path;
    bool m_force;
};

void writeData(const Folder& folder) {
    std::cout << "A simulated camera, 3 to 5 microns, 14 bits, noise of " << number(demo::Camera::noiseCounts)
              << " counts, writes its data:\n";
    folder.write("response.txt", demo::responseText());
    folder.write("points.csv", demo::pointsText(pointsSeed));
    folder.write("truth.csv", demo::truthText());
    folder.write("atmosphere.tape7", demo::atmosphereText());
    const std::vector<uint8_t> frames = demo::rawFrames(framesSeed);
    folder.write("frames.raw", frames.data(), frames.size());
}

/// A difference with its sign; what rounds to zero has none.
std::string signedKelvin(double kelvin) {
    const std::string text = fixed(std::fabs(kelvin), 3);
    return text == "0.000" ? text : (kelvin < 0.0 ? "-" : "+") + text;
}

/// Temperatures that were found where a target is.
struct Found {
    double mean = 0.0;
    double deviation = 0.0;   ///< Of single pixels.
    double worstFrame = 0.0;  ///< Largest difference of a frame's mean from the truth, with its sign.
};

class Finder {
public:
    explicit Finder(const std::string& path) : m_recording(path), m_values(m_recording.layout().frames) {
        FrameReader reader(m_recording);
        for (uint32_t frame = 0; frame < m_recording.layout().frames; ++frame) {
            m_values[frame].resize(m_recording.layout().pixels());
            reader.read(frame, m_values[frame].data());
        }
    }

    Found find(const demo::Target& target) const {
        Found found;
        double sum = 0.0;
        double squares = 0.0;
        double count = 0.0;
        for (uint32_t frame = 0; frame < m_values.size(); ++frame) {
            const Sums sums = sumsOf(target, frame);
            const double difference = sums.sum / sums.count;
            if (std::fabs(difference) > std::fabs(found.worstFrame)) found.worstFrame = difference;
            sum += sums.sum;
            squares += sums.squares;
            count += sums.count;
        }
        found.mean = target.celsius + sum / count;
        found.deviation = std::sqrt(std::max(squares / count - sum / count * (sum / count), 0.0));
        return found;
    }

private:
    struct Sums {
        double sum = 0.0;
        double squares = 0.0;
        double count = 0.0;
    };

    /// Sums of the differences from the target's true temperature.
    Sums sumsOf(const demo::Target& target, uint32_t frame) const {
        const Layout& layout = m_recording.layout();
        Sums sums;
        for (uint32_t y = 0; y < layout.height; ++y) {
            for (uint32_t x = 0; x < layout.width; ++x) {
                if (!target.contains(frame, x, y, rimPixels)) continue;
                const double difference = double{m_values[frame][y * layout.width + x]} - target.celsius;
                sums.sum += difference;
                sums.squares += difference * difference;
                ++sums.count;
            }
        }
        return sums;
    }

    Recording m_recording;
    std::vector<std::vector<float>> m_values;
};

/// True and recovered temperatures. Negative when one of them misses the promise.
Exit compare(const std::string& path) {
    const Finder finder(path);
    Table table({{"target", Table::Align::left},
                 {"true [C]"},
                 {"recovered [C]"},
                 {"difference [K]"},
                 {"worst frame [K]"},
                 {"noise of a pixel [K]"}});
    double worst = 0.0;
    for (const demo::Target& target : demo::Scene::targets()) {
        const Found found = finder.find(target);
        table.add({target.name, fixed(target.celsius, 3), fixed(found.mean, 3),
                   signedKelvin(found.mean - target.celsius), signedKelvin(found.worstFrame),
                   fixed(found.deviation, 3)});
        // Not a number counts as a miss.
        if (!(std::fabs(found.worstFrame) <= worst)) worst = std::fabs(found.worstFrame);
    }
    std::cout << "\nTrue temperatures of the scene, and those recovered over " << demo::Scene::frames << " frames:\n";
    table.print(std::cout, "  ");
    const bool kept = worst <= promisedKelvin;
    std::cout << "  largest difference in any frame " << fixed(worst, 3) << " K: " << (kept ? "within" : "NOT within")
              << " " << fixed(promisedKelvin, 1) << " K\n";
    return kept ? Exit::done : Exit::negative;
}

/// Response, points and fit, and what they are worth in kelvin.
void calibrateCamera(const Folder& folder, const std::string& path) {
    folder.run({"rcal", "new", path, "--response", folder.file("response.txt"), "--tag", "Camera=demonstration"}, true);
    folder.run({"rcal", "points", path, folder.file("points.csv")}, false);
    folder.run({"rcal", "fit", path, "--order", "3", "--temp-order", "11", "--lookup", "10:120:1"}, false);
}

/// What a path of air in front of the scene would do to the temperatures, were it not taken into account.
void showAtmosphere(const Folder& folder) {
    const std::string table = folder.file("atmosphere.tape7");
    const std::string curve = folder.file("atmosphere.curve");
    const std::string calibration = folder.file("air.rcal");
    folder.run({"atm", "band", table, "--from", "3", "--to", "5"}, false);
    folder.run({"atm", "plot", table, "-o", folder.file("atmosphere.svg")}, true);
    folder.run({"atm", "curve", table, "-o", curve}, true);
    folder.run({"rcal", "new", calibration, "--response", folder.file("response.txt"), "--modtran", curve,
                "--transmission", "--path"},
               true);
    folder.run({"rcal", "whatif", calibration, "--celsius", "0", "15", "35", "75", "115"}, false);
}

Exit demonstrate(const Options& options) {
    const Folder folder(options);
    const std::string counts = folder.file("counts.saf");
    const std::string calibration = folder.file("camera.rcal");
    const std::string celsius = folder.file("celsius.saf");
    const std::string picture = folder.file("celsius.png");
    writeData(folder);
    folder.run({"import", "--raw", std::to_string(demo::Scene::width) + "x" + std::to_string(demo::Scene::height),
                "--type", "uint16", folder.file("frames.raw"), "--tag", "Camera=demonstration", "-o", counts},
               true);
    calibrateCamera(folder, calibration);
    folder.run({"info", counts, calibration}, false);
    folder.run({"calibrate", counts, "--rcal", calibration, "--emissivity", exact(demo::Scene::emissivity),
                "--reflected", exact(demo::Scene::surroundingsCelsius), "-o", celsius},
               true);
    folder.run({"render", celsius, "--frame", "12", "-o", picture}, true);
    const std::string binary = folder.file("camera.bin");
    const std::string header = folder.file("header.cal");
    folder.run({"rcal", "convert", calibration, "-o", binary}, true);
    folder.run({"rcal", "export", calibration, "-o", header}, true);
    showAtmosphere(folder);
    const Exit result = compare(celsius);
    std::cout << "\nResults:\n  " << calibration << "  the calibration\n  " << binary << "  the same in binary form\n  "
              << header << "  the same as a text header\n  " << celsius << "  temperatures, 32-bit floats\n  "
              << picture << "  frame 12 as a picture\n  " << folder.file("air.rcal")
              << "  the camera behind air, its curves in " << folder.file("atmosphere.curve") << '\n';
    return result;
}

}  // namespace

void addDemo(CLI::App& root) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        addCommand(root, "demo", "Write a small simulated data set and turn its counts into temperatures.",
                   "  qv demo demo\n  qv demo demo --force", [options] { return demonstrate(*options); });
    command->add_option("folder", options->folder, "Folder to write to; made when absent")->required();
    command->add_flag("--force", options->force, "Replace files of the data set that exist");
}

}  // namespace tool
