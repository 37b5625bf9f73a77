#include "Json.h"

#include <cstdio>

namespace corvane {

Json& Json::set(const std::string& in_key, Json in_value) {
    for (auto& member : m_members) {
        if (member.first == in_key) {
            member.second = std::move(in_value);
            return *this;
        }
    }
    m_members.emplace_back(in_key, std::move(in_value));
    return *this;
}

Json& Json::push(Json in_value) {
    m_elements.push_back(std::move(in_value));
    return *this;
}

const Json& Json::get(const std::string& in_key) const {
    static const Json s_null;
    for (const auto& member : m_members) {
        if (member.first == in_key) return member.second;
    }
    return s_null;
}

std::string Json::quote(const std::string& in_s) {
    std::string out = "\"";
    for (unsigned char c : in_s) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            default:
                if (c < 0x20 || c == 0x7f) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else if (c >= 0x80) {
                    // Bytes that are not text are shown as their Latin-1 code points,
                    // so every line stays valid JSON whatever the input held.
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

std::string Json::dump() const {
    switch (m_kind) {
        case NUL: return "null";
        case BOOL: return m_bool ? "true" : "false";
        case INT: return std::to_string(m_int);
        case REAL: {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%.3f", m_real);
            return buf;
        }
        case STRING: return quote(m_string);
        case ARRAY: {
            std::string out = "[";
            for (size_t i = 0; i < m_elements.size(); ++i) {
                if (i) out += ", ";
                out += m_elements[i].dump();
            }
            return out + "]";
        }
        case OBJECT: {
            std::string out = "{";
            for (size_t i = 0; i < m_members.size(); ++i) {
                if (i) out += ", ";
                out += quote(m_members[i].first) + ": " + m_members[i].second.dump();
            }
            return out + "}";
        }
    }
    return "null";
}

std::string Json::pretty(int in_indent) const {
    if (m_kind != OBJECT) return dump() + "\n";
    std::string out;
    const std::string pad(static_cast<size_t>(in_indent), ' ');
    for (const auto& member : m_members) {
        const Json& value = member.second;
        if (value.m_kind == OBJECT) {
            out += pad + member.first + ":\n" + value.pretty(in_indent + 2);
        } else if (value.m_kind == STRING && value.m_string.find('\n') != std::string::npos) {
            out += pad + member.first + ":\n";
            std::string line;
            for (char c : value.m_string + "\n") {
                if (c == '\n') {
                    out += pad + "  " + line + "\n";
                    line.clear();
                } else {
                    line += c;
                }
            }
        } else if (value.m_kind == STRING) {
            out += pad + member.first + ": " + value.m_string + "\n";
        } else {
            out += pad + member.first + ": " + value.dump() + "\n";
        }
    }
    return out;
}

}  // namespace corvane
