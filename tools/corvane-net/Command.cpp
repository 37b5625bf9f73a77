// What the commands share: their registry, output, item lists and number options.
#include "Command.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>

namespace corvane {

namespace {

std::vector<Command>& registry() {
    static std::vector<Command> s_commands;
    return s_commands;
}

// For people: one "key: value" line per member, nested objects indented, a
// multi-line text under its key.
std::string forPeople(const Json& in_item, size_t in_indent) {
    if (!in_item.is_object()) return dumpJson(in_item) + "\n";
    std::string out;
    const std::string pad(in_indent, ' ');
    for (const auto& member : in_item.items()) {
        const Json& value = member.value();
        if (value.is_object()) {
            out += pad + member.key() + ":\n" + forPeople(value, in_indent + 2);
        } else if (value.is_string()) {
            const std::string& text = value.get_ref<const std::string&>();
            if (text.find('\n') == std::string::npos) {
                out += pad + member.key() + ": " + text + "\n";
                continue;
            }
            out += pad + member.key() + ":\n";
            for (size_t from = 0; from <= text.size();) {
                const size_t end = std::min(text.find('\n', from), text.size());
                out += pad + "  " + text.substr(from, end - from) + "\n";
                from = end + 1;
            }
        } else {
            out += pad + member.key() + ": " + dumpJson(value) + "\n";
        }
    }
    return out;
}

}  // namespace

CommandRegistrar::CommandRegistrar(const Command& in_command) {
    registry().push_back(in_command);
    std::sort(registry().begin(), registry().end(),
              [](const Command& a, const Command& b) { return a.order < b.order; });
}

const std::vector<Command>& commands() { return registry(); }

std::string dumpJson(const Json& in_value) {
    // One line, with a blank after every ":" and ",", as scripts have always
    // read it; the library writes the texts and numbers.
    if (in_value.is_object()) {
        std::string out = "{";
        for (const auto& member : in_value.items()) {
            if (out.size() > 1) out += ", ";
            out += dumpJson(Json(member.key())) + ": " + dumpJson(member.value());
        }
        return out + "}";
    }
    if (in_value.is_array()) {
        std::string out = "[";
        for (const Json& element : in_value) {
            if (out.size() > 1) out += ", ";
            out += dumpJson(element);
        }
        return out + "]";
    }
    return in_value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void CommandContext::emit(const Json& in_item) const {
    *out << (json ? dumpJson(in_item) + "\n" : forPeople(in_item, 0) + "\n");
    out->flush();
}

std::vector<std::string> expandItems(const std::vector<std::string>& in_args) {
    std::vector<std::string> items;
    for (const std::string& arg : in_args) {
        if (arg != "-") {
            items.push_back(arg);
            continue;
        }
        std::string line;
        while (std::getline(std::cin, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            items.push_back(line);
        }
    }
    return items;
}

CLI::Option* addNumberOption(CLI::App& io_app, const std::string& in_name, long& out_value,
                             const std::string& in_description) {
    // CLI11 reads integers with base 0 ("010" is 8); the value is rewritten in
    // decimal first so that it reads as the person meant it.
    const CLI::Validator decimal(
        [](std::string& io_text) -> std::string {
            errno = 0;
            char* pEnd = nullptr;
            const long value = std::strtol(io_text.c_str(), &pEnd, 10);
            if (io_text.empty() || *pEnd != '\0' || errno == ERANGE) {
                return "takes a whole number, not \"" + io_text + "\"";
            }
            io_text = std::to_string(value);
            return std::string();
        },
        "", "decimal");
    return io_app.add_option(in_name, out_value, in_description)
        ->transform(decimal)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

CLI::Validator notNegative(const std::string& in_message) {
    return CLI::Validator(
        [in_message](std::string& io_text) -> std::string { return io_text[0] == '-' ? in_message : ""; }, "",
        "not negative");
}

}  // namespace corvane
