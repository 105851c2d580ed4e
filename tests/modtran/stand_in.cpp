// Stands in for the atmosphere program: reads the deck "tape5" of the folder in which it runs, checks the first card,
// and writes a table of the deck's mode and range to "tape7". Words behind column 80 of the first card, or in the
// environment variable QV_STAND_IN, have it behave otherwise:
//
//   fail     print the failure marker and write nothing
//   marker   print the marker and write the output all the same
//   split    the same with one write in which the marker crosses the border of 1023 bytes
//   flood    print a megabyte first
//   silent   write no output
//   cut      write the output without its end marker
//   code     end with code 3
//   die      end by a signal, with the output written
//   hang     wait for ever, with the output written; so does a process that it starts
//   orphan   leave a process behind that waits for ever and holds what this one printed to
//            (the file that QV_STAND_IN_LOCK names, if any, stays locked as long as it waits)
//   look     write the numbers of its open descriptors to the file "descriptors"
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> deck() {
    std::vector<std::string> cards;
    std::ifstream in("tape5");
    for (std::string line; std::getline(in, line);) {
        if (line.ends_with('\r')) line.pop_back();
        cards.push_back(line);
    }
    return cards;
}

double field(const std::string& card, size_t begin, size_t width) {
    return card.size() > begin ? std::atof(card.substr(begin, width).c_str()) : 0.0;
}

[[noreturn]] void refuse(const std::string& why) {
    std::printf(" *ERR* %s\n", why.c_str());
    std::exit(1);
}

bool has(const std::string& orders, const std::string& word) {
    return (" " + orders + " ").find(" " + word + " ") != std::string::npos;
}

/// One row as the program prints it: a transmittance that falls with the frequency, and what air of 290 K radiates.
void writeRow(std::FILE* out, int mode, double freq, double low, double high) {
    const double transmittance = 0.9 - 0.3 * (freq - low) / (high - low);
    const double depth = -std::log(transmittance);
    const double thermal =
        (1.0 - transmittance) * 1.191042972e-12 * std::pow(freq, 3) / std::expm1(1.438776877 * freq / 290.0);
    switch (mode) {
        case 0: std::fprintf(out, "%8.2f %6.4f %6.4f %7.3f\n", freq, transmittance, transmittance, depth); break;
        case 3:
            std::fprintf(out, "%8.2f%8.4f%9.2E%9.2E%61s%10.3E\n", freq, transmittance, 1e-7, 2e-7, "", depth);
            break;
        default: std::fprintf(out, "%8.2f%11.8f%11.4E%11s%11.4E%8.3f\n", freq, transmittance, thermal, "", 0.0, depth);
    }
}

void writeOutput(const std::string& card1, int mode, double low, double high, bool ended) {
    static const char* const headings[] = {
        "    FREQ COMBIN    H2O    -LOG\n    CM-1  TRANS  TRANS  COMBIN\n",
        "    FREQ  TOT TRANS  PTH THRML  THRML SCT  SURF EMIS   DEPTH\n",
        "    FREQ  TOT TRANS  PTH THRML  THRML SCT  SURF EMIS   DEPTH\n",
        "    FREQ   TRANS     SOL TR  SOLAR\n",
    };
    std::FILE* out = std::fopen("tape7", "w");
    if (out == nullptr) refuse("tape7 cannot be written");
    std::fprintf(out, "%.80s\n", card1.c_str());
    for (int line = 2; line <= 10; ++line) std::fprintf(out, "%5d\n", line);
    std::fputs(headings[mode], out);
    constexpr int intervals = 100;
    for (int i = 0; i <= intervals; ++i) writeRow(out, mode, low + (high - low) * i / intervals, low, high);
    if (ended) std::fputs(" -9999.\n", out);
    std::fclose(out);
}

void listDescriptors() {
    std::string numbers;
    DIR* open = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(open)) {
        const std::string name = entry->d_name;
        if (name[0] != '.' && name != std::to_string(dirfd(open))) numbers += name + " ";
    }
    closedir(open);
    std::ofstream("descriptors") << numbers;
}

void put(const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (written <= 0) return;
        done += static_cast<size_t>(written);
    }
}

}  // namespace

int main() {
    const std::vector<std::string> cards = deck();
    if (cards.size() < 4) refuse("no deck");
    const std::string& card1 = cards[0];
    const int model = static_cast<int>(field(card1, 2, 3));
    const int path = static_cast<int>(field(card1, 5, 5));
    const int mode = static_cast<int>(field(card1, 10, 5));
    if (model < 0 || model > 8 || path < 1 || path > 3 || mode < 0 || mode > 3) refuse("card 1");
    const char* environment = std::getenv("QV_STAND_IN");
    const std::string orders =
        (environment == nullptr ? "" : environment) + (card1.size() > 80 ? " " + card1.substr(80) : std::string());
    if (has(orders, "fail")) refuse("as told");

    // Card 4 stands before the last one.
    const std::string& card4 = cards[cards.size() - 2];
    double low = field(card4, 0, 10);
    double high = field(card4, 10, 10);
    const char unit = card4.size() > 40 ? card4[40] : ' ';
    if (unit == 'M' || unit == 'N') {
        const double scale = unit == 'M' ? 1e4 : 1e7;
        const double first = scale / high;
        high = scale / low;
        low = first;
    }
    if (!(low > 0.0 && low < high)) refuse("card 4");

    if (has(orders, "flood")) put(std::string(1 << 20, '.'));
    if (has(orders, "marker")) put(" *ERR* but it goes on\n");
    if (has(orders, "split")) put(std::string(1021, '.') + "*ERR*");
    if (!has(orders, "silent")) writeOutput(card1, mode, low, high, !has(orders, "cut"));
    if (has(orders, "look")) listDescriptors();
    if (has(orders, "orphan") || has(orders, "hang")) {
        const char* const lock = std::getenv("QV_STAND_IN_LOCK");
        if (lock != nullptr) (void)flock(open(lock, O_RDWR | O_CREAT, 0600), LOCK_EX);
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < 600; ++i) sleep(1);
            _exit(0);
        }
        std::ofstream("child") << child;
    }
    if (has(orders, "hang")) {
        for (;;) pause();
    }
    if (has(orders, "die")) (void)kill(getpid(), SIGKILL);
    return has(orders, "code") ? 3 : 0;
}
