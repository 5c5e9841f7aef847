// From descriptions of records to tables and rows of any kind.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

#include <algorithm>

namespace chassis::tables {

namespace {

template <class Record> class RowOf : public Row {
public:
    RowOf(const TableOf<Record> &table, const Record &record, const Reading &reading)
        : table_(table), record_(record), reading_(reading) {}

    std::string key() const override { return ask(table_.key); }
    std::vector<Place> places() const override { return ask(table_.places); }
    std::string why() const override { return ask(table_.why); }
    const void *record() const override { return &record_; }

    std::vector<Cell> cells() const override {
        std::vector<Cell> cells;
        for (const Column<Record> &column : table_.columns)
            cells.push_back(column.cell(record_, reading_));
        if (table_.waits_for)
            cells.push_back(ask(table_.waits_for));
        return cells;
    }

    std::string bytes() const override {
        Record copy = record_;
        if (table_.own)
            table_.own(copy, reading_);
        if constexpr (std::is_trivially_copyable_v<Record>)
            return {reinterpret_cast<const char *>(&copy), sizeof copy};
        return {};
    }

    void want(Wanted &wanted) const override {
        if (table_.in_chip)
            table_.in_chip(record_, wanted);
    }

private:
    template <class Result> Result ask(const Of<Record, Result> &function) const {
        return function ? function(record_, reading_) : Result();
    }

    const TableOf<Record> &table_;
    const Record &record_;
    const Reading &reading_;
};

template <class Record>
Table table_of(std::string_view name, bool is_mirrored, const TableOf<Record> &description) {
    Table table{name, is_mirrored, bool(description.why), {}, {}};
    for (const Column<Record> &column : description.columns)
        table.columns.push_back(column.name);
    if (description.waits_for)
        table.columns.push_back("+waits_for");
    table.each = [&description](const Reading &reading, const auto &visit) {
        description.each([&](const Record &record) { visit(RowOf(description, record, reading)); });
    };
    return table;
}

// The lines of a table's records in one place.
template <class Record>
std::string why_there(const TableOf<Record> &table, const Place &wanted, const Reading &reading) {
    std::string text;
    table.each([&](const Record &record) {
        for (const Place &place : table.places(record, reading))
            if (is_same(place, wanted))
                text += table.why(record, reading);
    });
    return text;
}

enum class Scope { mirrored, local, history };

} // namespace

const std::vector<Table> &all() {
    static const std::vector<Table> tables = {
#define CHASSIS_TABLE(ROW, name, record, scope, help)                                              \
    table_of(typed_name<#name>, Scope::scope == Scope::mirrored, name),
        CHASSIS_TABLES(CHASSIS_TABLE, )
#undef CHASSIS_TABLE
    };
    return tables;
}

const Table *find(std::string_view name) {
    const auto found = std::ranges::find(all(), name, &Table::name);
    return found == all().end() ? nullptr : &*found;
}

bool is_same(const Place &one, const Place &other) {
    return one.vrf == other.vrf && one.prefix && other.prefix &&
           one.prefix->prefix_len == other.prefix->prefix_len && covers(*one.prefix, *other.prefix);
}

std::string why_neighbour(const Place &place, const Reading &reading) {
    return why_there(hosts, place, reading) + why_there(unreachable, place, reading) +
           why_there(hold, place, reading);
}

} // namespace chassis::tables
