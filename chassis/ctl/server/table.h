// A table of rows, printed with aligned columns for people or as JSON for programs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ctl::server {

// What people read and programs read in another form.
struct TwoForms {
    std::string text, json;
};

using Cell = std::variant<std::int64_t, std::string, std::vector<std::string>,
                          std::vector<std::int64_t>, TwoForms>;

class Table {
public:
    // A name that begins with '+' stands in JSON only.
    explicit Table(std::vector<std::string_view> columns);

    void row(std::vector<Cell> cells);
    std::size_t rows() const { return rows_.size(); }
    std::string text() const;
    std::string json() const; // an array of objects

private:
    struct Column {
        std::string_view name;
        bool shown;
    };
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

std::string json_string(std::string_view text);

} // namespace ctl::server
