// The small files that the tool is run on, and readers for what it makes of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "qv/saf_file.h"
#include "tools/tool.h"

namespace qv::test {

/// A folder in which the program runs, with what the tests of recordings need besides.
class Workshop : public Workplace {
public:
    std::string file(const std::string& name) const { return path() + "/" + name; }
    /// The names in the folder, those that begin with a dot apart.
    std::vector<std::string> listing() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path())) {
            const std::string name = entry.path().filename().string();
            if (!name.starts_with('.')) names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

/// The data segment of a measurement file as elements.
template <class T>
std::vector<T> dataOf(const std::string& path) {
    CSAFFile header;
    if (!header.Load(CString(path).c_str())) throw std::runtime_error(path + " has no header");
    const std::string bytes = readFile(path).substr(header.GetDataPosition());
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
