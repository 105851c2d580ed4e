// Runs a fuzz target over the files and folders named on the command line, and over every prefix of each file of at
// most 4096 bytes, so that saved crashes and truncated inputs are replayed by the ordinary test run.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

constexpr size_t prefixLimitBytes = 4096;

size_t replay(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t first = bytes.size() <= prefixLimitBytes ? 0 : bytes.size();
    for (size_t n = first; n <= bytes.size(); ++n) {
        // An allocation of exactly n bytes lets AddressSanitizer see a read past the end.
        const std::vector<uint8_t> input(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(n));
        LLVMFuzzerTestOneInput(input.data(), n);
    }
    return bytes.size() - first + 1;
}

}  // namespace

int main(int argc, char** argv) {
    size_t inputs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (!std::filesystem::is_directory(path)) {
            inputs += replay(path);
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
            if (entry.is_regular_file()) inputs += replay(entry.path());
        }
    }
    std::printf("%zu inputs replayed\n", inputs);
    return inputs == 0 ? 1 : 0;
}
