// A small JSON value for the command's output: objects keep their keys in the
// order they were added, so every line reads the same way each time.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace corvane {

class Json {
public:
    enum Kind { NUL, BOOL, INT, REAL, STRING, ARRAY, OBJECT };

    Json() : m_kind(NUL) {}
    Json(std::nullptr_t) : m_kind(NUL) {}                              // NOLINT
    Json(bool in_b) : m_kind(BOOL), m_bool(in_b) {}                    // NOLINT
    Json(int in_i) : m_kind(INT), m_int(in_i) {}                       // NOLINT
    Json(long in_i) : m_kind(INT), m_int(in_i) {}                      // NOLINT
    Json(long long in_i) : m_kind(INT), m_int(in_i) {}                 // NOLINT
    Json(unsigned in_i) : m_kind(INT), m_int(in_i) {}                  // NOLINT
    Json(unsigned long in_i) : m_kind(INT), m_int(static_cast<long long>(in_i)) {}  // NOLINT
    Json(double in_d) : m_kind(REAL), m_real(in_d) {}                  // NOLINT
    Json(const char* in_s) : m_kind(in_s ? STRING : NUL), m_string(in_s ? in_s : "") {}  // NOLINT
    Json(std::string in_s) : m_kind(STRING), m_string(std::move(in_s)) {}  // NOLINT

    static Json array() { Json j; j.m_kind = ARRAY; return j; }
    static Json object() { Json j; j.m_kind = OBJECT; return j; }

    // Object: adds (or replaces) a key; returns *this for chaining.
    Json& set(const std::string& in_key, Json in_value);
    // Array: appends an element.
    Json& push(Json in_value);

    Kind kind() const { return m_kind; }
    bool isNull() const { return m_kind == NUL; }
    bool asBool() const { return m_bool; }
    const std::string& asString() const { return m_string; }
    const std::vector<std::pair<std::string, Json>>& members() const { return m_members; }
    const std::vector<Json>& elements() const { return m_elements; }
    // The value of a key of an object, or null.
    const Json& get(const std::string& in_key) const;

    // Compact text: {"a": 1, "b": "x"}.
    std::string dump() const;
    // For people: one "key: value" line per member, nested objects indented.
    std::string pretty(int in_indent = 0) const;

    static std::string quote(const std::string& in_s);

private:
    Kind m_kind;
    bool m_bool = false;
    long long m_int = 0;
    double m_real = 0;
    std::string m_string;
    std::vector<Json> m_elements;
    std::vector<std::pair<std::string, Json>> m_members;
};

}  // namespace corvane
