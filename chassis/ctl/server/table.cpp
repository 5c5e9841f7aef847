#include "chassis/ctl/server/table.h"

#include <algorithm>
#include <cstdio>
#include <functional>

namespace ctl::server {

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

std::string upper(std::string_view name) {
    std::string text(name);
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c == '_' ? ' ' : char(std::toupper(c)); });
    return text;
}

} // namespace

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

Table::Table(std::vector<std::string_view> columns) {
    for (std::string_view name : columns) {
        const bool hidden = name.front() == '+';
        columns_.push_back({name.substr(hidden ? 1 : 0), !hidden});
    }
}

void Table::row(std::vector<Cell> cells) {
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
}

std::string Table::text() const {
    std::vector<std::vector<std::string>> lines{{}};
    std::vector<std::size_t> widths(columns_.size());
    for (const Column &column : columns_)
        lines[0].push_back(upper(column.name));
    for (const std::vector<Cell> &cells : rows_) {
        std::vector<std::string> &line = lines.emplace_back();
        for (const Cell &cell : cells)
            line.push_back(plain(cell));
    }
    for (const auto &line : lines)
        for (std::size_t i = 0; i < line.size(); i++)
            widths[i] = std::max(widths[i], line[i].size());
    std::string text;
    for (const auto &line : lines) {
        for (std::size_t i = 0; i < line.size(); i++)
            if (columns_[i].shown)
                text += line[i] + std::string(widths[i] + 2 - line[i].size(), ' ');
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    }
    return text;
}

std::string Table::json() const {
    std::string text = "[";
    for (std::size_t at = 0; at < rows_.size(); at++) {
        text += at ? ",\n {" : "\n {";
        for (std::size_t i = 0; i < columns_.size(); i++)
            text += (i ? ", " : "") + json_string(columns_[i].name) + ": " + json_of(rows_[at][i]);
        text += "}";
    }
    return text + (rows_.empty() ? "]\n" : "\n]\n");
}

} // namespace ctl::server
