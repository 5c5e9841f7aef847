#include "chassis/ctl/server/table.h"

#include <algorithm>

namespace ctl::server {

using chassis::tables::json_of;
using chassis::tables::json_string;
using chassis::tables::plain;

namespace {

std::string upper(std::string_view name) {
    std::string text(name);
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c == '_' ? ' ' : char(std::toupper(c)); });
    return text;
}

} // namespace

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
