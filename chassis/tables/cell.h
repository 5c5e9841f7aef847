// A value in a column of a table, as people and as programs read it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace chassis::tables {

// What people read and programs read in another form.
struct TwoForms {
    std::string text, json;
};

using Cell = std::variant<std::int64_t, std::string, std::vector<std::string>,
                          std::vector<std::int64_t>, TwoForms>;

std::string plain(const Cell &cell); // "-" for an empty one
std::string json_of(const Cell &cell);
std::string json_string(std::string_view text);

} // namespace chassis::tables
