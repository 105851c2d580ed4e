// "qv calibrate" of 1000 frames of 640 x 512 counts, in bytes of counts a second, beside a plain program that reads the
// frames, looks each count up in a table of 65536 floats and writes them. Files lie in memory where there is room for
// them (/dev/shm), else in the folder for temporary files.
#include "rows.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qv/file_system.h"
#include "qv/rcal_file.h"

namespace {

constexpr int width = 640;
constexpr int height = 512;
constexpr int frames = 1000;
constexpr size_t pixels = size_t{width} * height;

/// The folder with the raw frames, the recording and the calibration; removed at the end.
class Workplace {
public:
    Workplace() {
        std::error_code error;
        const std::filesystem::path memory = "/dev/shm";
        const bool fits = std::filesystem::space(memory, error).available > uint64_t{4} << 30 && !error;
        m_folder = (fits ? memory : std::filesystem::temp_directory_path()) / "qv_calibrate_bench";
        std::filesystem::create_directories(m_folder);
        writeFrames();
        writeCalibration();
        run("import --raw 640x512 --type uint16 " + file("frames.raw") + " -o " + file("frames.saf") + " --force");
    }
    ~Workplace() { std::filesystem::remove_all(m_folder); }

    std::string file(const std::string& name) const { return (m_folder / name).string(); }
    bool run(const std::string& arguments) const {
        return std::system((std::string(QV_TOOL) + " " + arguments + " -q >/dev/null").c_str()) == 0;
    }

private:
    void writeFrames() const {
        std::vector<uint16_t> frame(pixels);
        for (size_t i = 0; i < pixels; ++i) {
            frame[i] = static_cast<uint16_t>(2000 + (i * 7919) % 900 + 3000 * (i % width) / width);
        }
        std::ofstream out(file("frames.raw"), std::ios::binary);
        for (int i = 0; i < frames; ++i) {
            out.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(pixels * 2));
        }
    }
    void writeCalibration() const {
        qv::CRCalFile calibration;
        calibration.tophat().setStart(3.0);
        const int32_t page = calibration.calPages().Add();
        for (int t = 0; t <= 100; t += 10) {
            qv::CAL_POINT point;
            point.temperature = t;
            point.measurement = 1000.0 + 6e6 * calibration.CalcRadiance(t, 1.0);
            calibration.calPage(page).points().Add(point);
        }
        calibration.calPage(page).range().setAuto(true);
        calibration.Save(&qv::fileSystem(), qv::CString(file("camera.rcal")).c_str(), qv::CRCalFile::saveXml);
    }

    std::filesystem::path m_folder;
};

const Workplace& workplace() {
    static const Workplace place;
    return place;
}

void qvCalibrate(benchmark::State& state) {
    const Workplace& place = workplace();
    for (auto _ : state) {
        if (!place.run("calibrate " + place.file("frames.saf") + " --rcal " + place.file("camera.rcal") + " -o " +
                       place.file("celsius.saf") + " --force")) {
            state.SkipWithError("qv calibrate failed");
        }
    }
    state.SetBytesProcessed(state.iterations() * int64_t{frames} * pixels * 2);
}
QV_ROW("calibrate 1000 frames on disk", "qv", qvCalibrate)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(1);

void plainLoop(benchmark::State& state) {
    const Workplace& place = workplace();
    std::vector<float> table(0x10000);
    for (size_t i = 0; i < table.size(); ++i) table[i] = static_cast<float>(i) * 0.01f;
    std::vector<uint16_t> counts(pixels);
    std::vector<float> values(pixels);
    for (auto _ : state) {
        std::FILE* in = std::fopen(place.file("frames.raw").c_str(), "rb");
        std::FILE* out = std::fopen(place.file("plain.raw").c_str(), "wb");
        while (std::fread(counts.data(), 2, pixels, in) == pixels) {
            for (size_t i = 0; i < pixels; ++i) values[i] = table[counts[i]];
            std::fwrite(values.data(), 4, pixels, out);
        }
        std::fclose(in);
        std::fclose(out);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{frames} * pixels * 2);
}
QV_ROW("calibrate 1000 frames on disk", "plain program", plainLoop)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
