// A table of rows, printed with aligned columns for people or as JSON for programs.
#pragma once

#include "chassis/tables/cell.h"

namespace ctl::server {

using chassis::tables::Cell;

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

} // namespace ctl::server
