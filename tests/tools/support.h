// Runs the built tool as a script would, and makes the small files that it is run on.
#pragma once

#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "qv/saf_file.h"
#include "support/temp_folder.h"

namespace qv::test {

inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline bool exists(const std::string& path) { return std::ifstream(path).good(); }

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

struct Outcome {
    int code = -1;  ///< -1 when a signal ended the tool.
    std::string out;
    std::string err;
};

/// A fresh folder in which the tool runs.
class Workshop {
public:
    std::string file(const std::string& name) const { return narrowPath() + "/" + name; }
    void write(const std::string& name, const std::string& bytes) const { writeFile(file(name), bytes); }
    std::string read(const std::string& name) const { return contentOf(file(name)); }
    bool has(const std::string& name) const { return exists(file(name)); }

    /// `qv ARGUMENTS`, as the shell reads them.
    Outcome run(const std::string& arguments) const {
        const std::string command =
            "cd '" + narrowPath() + "' && '" QV_TOOL "' " + arguments + " >.out 2>.err </dev/null";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(".out"), read(".err")};
    }

    /// The names of what the tool left in the folder.
    std::vector<std::string> leftovers() const {
        std::vector<std::string> names;
        std::system(("ls '" + narrowPath() + "' >'" + file(".names") + "'").c_str());
        std::ifstream list(file(".names"));
        for (std::string name; std::getline(list, name);) names.push_back(name);
        return names;
    }

private:
    std::string narrowPath() const { return CStringMB(m_folder.path().c_str()).c_str(); }
    TempFolder m_folder;
};

/// The data segment of a measurement file as elements.
template <class T>
std::vector<T> dataOf(const std::string& path) {
    CSAFFile header;
    if (!header.Load(CString(path).c_str())) throw std::runtime_error(path + " has no header");
    const std::string bytes = contentOf(path).substr(header.GetDataPosition());
    std::vector<T> values(bytes.size() / sizeof(T));
    bytes.copy(reinterpret_cast<char*>(values.data()), values.size() * sizeof(T));
    return values;
}

template <class T>
std::string bytesOf(const std::vector<T>& values) {
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

/// A recording by hand: header lines, "DATA" and the elements.
template <class T>
std::string recording(uint32_t width, uint32_t height, const std::string& type, const std::vector<T>& values) {
    return "HdSize auto\r\nKeyWrd IMG\r\nxPixls " + std::to_string(width) + "\r\nyPixls " + std::to_string(height) +
           "\r\nNumDPs " + std::to_string(values.size() / (width * height)) + "\r\nDaType " + type +
           "\r\nBytOrd LSBFirst\r\nDATA\r\n" + bytesOf(values);
}

/// A strict reader of JSON: every scalar under its path, such as "files.0.kind". Texts lose their quotes.
class JsonReader {
public:
    static std::map<std::string, std::string> flatten(const std::string& text) {
        JsonReader reader(text);
        reader.value("");
        reader.skipBlanks();
        if (reader.m_at != text.size()) throw std::runtime_error("JSON: more than one value");
        return reader.m_values;
    }

private:
    explicit JsonReader(const std::string& text) : m_text(text) {}

    void skipBlanks() { m_at = std::min(m_text.find_first_not_of(" \n", m_at), m_text.size()); }
    bool take(char c) {
        skipBlanks();
        if (m_at >= m_text.size() || m_text[m_at] != c) return false;
        ++m_at;
        return true;
    }
    void expect(char c) {
        if (!take(c)) throw std::runtime_error(std::string("JSON: expected ") + c + " at " + std::to_string(m_at));
    }
    std::string quoted() {
        std::string result;
        expect('"');
        while (m_text.at(m_at) != '"') {
            if (m_text.at(m_at) == '\\') ++m_at;
            result += m_text.at(m_at++);
        }
        ++m_at;
        return result;
    }
    void members(const std::string& path, char end, bool named) {
        if (take(end)) return;
        size_t index = 0;
        do {
            const std::string name = named ? quoted() : std::to_string(index++);
            if (named) expect(':');
            value(path.empty() ? name : path + "." + name);
        } while (take(','));
        expect(end);
    }
    void value(const std::string& path) {
        if (take('{')) return members(path, '}', true);
        if (take('[')) return members(path, ']', false);
        skipBlanks();
        std::string scalar;
        if (m_text.at(m_at) == '"') {
            scalar = quoted();
        } else {
            const size_t end = std::min(m_text.find_first_of(",]} \n", m_at), m_text.size());
            scalar = m_text.substr(m_at, end - m_at);
            m_at = end;
            char* rest = nullptr;
            if (scalar != "true" && scalar != "false" && scalar != "null") std::strtod(scalar.c_str(), &rest);
            if (scalar.empty() || (rest != nullptr && *rest != '\0')) throw std::runtime_error("JSON: " + scalar);
        }
        if (!m_values.emplace(path, scalar).second) throw std::runtime_error("JSON: " + path + " occurs twice");
    }

    const std::string& m_text;
    size_t m_at = 0;
    std::map<std::string, std::string> m_values;
};

/// One sentence for people: one line, with the program's name in front.
inline bool isOneSentence(const std::string& err) {
    return err.starts_with("qv: ") && err.find('\n') == err.size() - 1 && err.size() > 12;
}

}  // namespace qv::test
