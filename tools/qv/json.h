// Facts for programs: a small JSON tree with stable order.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace tool {

/// A JSON value. Numbers that are not finite are written as null.
class Json {
public:
    Json() : m_text("null") {}
    Json(const char* text) : m_text(quoted(text)) {}
    Json(const std::string& text) : m_text(quoted(text)) {}
    Json(bool value) : m_text(value ? "true" : "false") {}
    Json(int value) : m_text(std::to_string(value)) {}
    Json(int64_t value) : m_text(std::to_string(value)) {}
    Json(uint32_t value) : m_text(std::to_string(value)) {}
    Json(uint64_t value) : m_text(std::to_string(value)) {}
    /// The shortest text that reads back to the same number.
    Json(double value);

    static Json object() { return Json(Kind::object); }
    static Json array() { return Json(Kind::array); }
    /// The top of an output: an object that begins with "schema".
    static Json document(const std::string& schema) { return object().set("schema", schema); }

    Json& set(const std::string& name, Json value) {
        m_members.emplace_back(name, std::move(value));
        return *this;
    }
    Json& push(Json value) { return set(std::string(), std::move(value)); }

    void print(std::ostream& out, int indent = 0) const;
    /// All on one line, for streams of values.
    void printLine(std::ostream& out) const;

private:
    enum class Kind { scalar, object, array };
    explicit Json(Kind kind) : m_kind(kind) {}
    void printCompact(std::ostream& out) const;
    static std::string quoted(const std::string& text);

    Kind m_kind = Kind::scalar;
    std::string m_text;
    std::vector<std::pair<std::string, Json>> m_members;
};

}  // namespace tool
