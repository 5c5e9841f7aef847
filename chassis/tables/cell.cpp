#include "chassis/tables/cell.h"

#include <cstdio>
#include <functional>

namespace chassis::tables {

namespace {

template <class... Cases> struct Overloaded : Cases... { using Cases::operator()...; };
template <class... Cases> Overloaded(Cases...) -> Overloaded<Cases...>; // clang 14 needs it

template <class List, class Text> std::string joined(const List &list, Text text_of) {
    std::string text;
    for (const auto &each : list)
        text += (text.empty() ? "" : ", ") + text_of(each);
    return text;
}

constexpr auto decimal = [](std::int64_t number) { return std::to_string(number); };

} // namespace

std::string plain(const Cell &cell) {
    const std::string text = std::visit(
        Overloaded{
            decimal,
            [](const std::string &text) { return text; },
            [](const std::vector<std::string> &list) { return joined(list, std::identity()); },
            [](const std::vector<std::int64_t> &list) { return joined(list, decimal); },
            [](const TwoForms &forms) { return forms.text; },
        },
        cell);
    return text.empty() ? "-" : text;
}

std::string json_of(const Cell &cell) {
    return std::visit(
        Overloaded{
            decimal,
            [](const std::string &text) { return json_string(text); },
            [](const std::vector<std::string> &list) {
                return "[" + joined(list, json_string) + "]";
            },
            [](const std::vector<std::int64_t> &list) { return "[" + joined(list, decimal) + "]"; },
            [](const TwoForms &forms) { return forms.json; },
        },
        cell);
}

std::string json_string(std::string_view text) {
    std::string quoted = "\"";
    for (const char character : text) {
        char escape[8];
        if (character == '"' || character == '\\') {
            quoted += {'\\', character};
        } else if (static_cast<unsigned char>(character) < ' ') {
            std::snprintf(escape, sizeof escape, "\\u%04x", unsigned(character));
            quoted += escape;
        } else {
            quoted += character;
        }
    }
    return quoted + "\"";
}

} // namespace chassis::tables
