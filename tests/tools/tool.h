// Runs the built program as a user would, and looks at what it prints.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/temp_folder.h"

namespace qv::test {

struct ToolRun {
    int exitCode;
    std::string out;
    std::string error;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// A folder in which the program runs.
class Workplace {
public:
    /// The program with arguments as a shell takes them.
    ToolRun qv(const std::string& arguments) const {
        const std::string command = "cd '" + path() + "' && '" QV_TOOL "' " + arguments + " >.out 2>.error";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(".out"), read(".error")};
    }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(path() + "/" + name, std::ios::binary) << text;
    }
    std::string read(const std::string& name) const { return readFile(path() + "/" + name); }
    bool exists(const std::string& name) const { return std::filesystem::exists(path() + "/" + name); }
    std::string path() const { return CStringMB(m_folder.path().c_str()).c_str(); }

private:
    TempFolder m_folder;
};

}  // namespace qv::test
