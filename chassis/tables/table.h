// What is told of a table, once.
//
// A description (TableOf) says where its records come from, how one is named and found, what of it
// is the card's own, its columns, what the chip must hold for it, and what it waits for.  From the
// descriptions come `show`, its JSON and filters, `digest` and `verify`, `chip check`, `why`, and
// the laws of the tests.  Those loop over all tables and see a record as a Row, which is valid
// while it is visited.
//
// What a function of a record needs beside the record is asked of the Reading.
#pragma once

#include "chassis/chassis.h"
#include "chassis/tables/cell.h"
#include "dpm_api.h"

#include <concepts>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeindex>
#include <vector>

namespace chassis::tables {

class Wanted;

// One reading of a card's tables: the card is current and the DPM lock held for as long as it
// lives.
class Reading {
public:
    explicit Reading(Card &card) : card(card), scope_(card) { norix_dpm_sem_take(); }
    ~Reading() { norix_dpm_sem_give(); }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;

    // What descriptions look up in other tables: an Index is made of this reading when it is first
    // asked for.
    template <class Index> const Index &made() const {
        std::shared_ptr<const void> &index = made_[typeid(Index)];
        if (!index)
            index = std::make_shared<const Index>(*this);
        return *static_cast<const Index *>(index.get());
    }

    Card &card;

private:
    CardScope scope_;
    mutable std::map<std::type_index, std::shared_ptr<const void>> made_;
};

// Where a record is found: an address, with the host length, or a network of a VRF; or, without
// either, the VRF alone.  Of a layer-2 service its number besides.
struct Place {
    std::uint32_t vrf;
    std::optional<dpm_prefix> prefix = {};
    std::uint32_t service = 0;
};

// Whether two are the same address or network, whatever host bits they were given with.
bool is_same(const Place &one, const Place &other);

// A function of a record, or of a record and the reading.
template <class Record, class Result>
class Of : public std::function<Result(const Record &, const Reading &)> {
    using Function = std::function<Result(const Record &, const Reading &)>;

public:
    Of() = default;
    template <class Callable>
    requires std::invocable<Callable, const Record &, const Reading &> Of(Callable function)
        : Function(std::move(function)) {}
    template <class Callable>
    requires std::invocable<Callable, const Record &> Of(Callable function)
        : Function([function](const Record &record, const Reading &) -> Result {
              return std::invoke(function, record);
          }) {}
};

// A column.  A name that begins with '+' stands in JSON only.
template <class Record> struct Column {
    template <class Callable>
    Column(std::string_view name, Callable function)
        : name(name), cell([value = Of<Record, Value<Callable>>(std::move(function))](
                               const Record &record, const Reading &reading) -> Cell {
              if constexpr (std::is_integral_v<Value<Callable>>)
                  return std::int64_t(value(record, reading));
              else
                  return value(record, reading);
          }) {}

    std::string_view name;
    std::function<Cell(const Record &, const Reading &)> cell;

private:
    template <class Callable, class... Arguments>
    using Answer = std::decay_t<std::invoke_result_t<Callable, Arguments...>>;
    template <class Callable> static auto answer_of() {
        if constexpr (std::invocable<Callable, const Record &>)
            return std::type_identity<Answer<Callable, const Record &>>();
        else
            return std::type_identity<Answer<Callable, const Record &, const Reading &>>();
    }
    template <class Callable> using Told = typename decltype(answer_of<Callable>())::type;
    template <class Callable> // text by value
    using Value = std::conditional_t<std::is_convertible_v<Told<Callable>, std::string_view>,
                                     std::string, Told<Callable>>;
};

// A column of a member; by value, since label entries are packed.
#define TABLE_MEMBER(member) [](const auto &record) { return record.member; }

template <class Record> struct TableOf {
    using Visit = std::function<void(const Record &)>;

    std::function<void(const Visit &)> each; // of the current card
    Of<Record, std::string> key = {};        // in words, unlike any other's
    Of<Record, std::vector<Place>> places = {};
    // Makes zero what is the card's own, and of an interface's index what it leads to (Leads).
    std::function<void(Record &, const Reading &)> own = {};
    std::vector<Column<Record>> columns = {};
    std::function<void(const Record &, Wanted &)> in_chip = {};
    Of<Record, std::string> waits_for = {}; // empty: for nothing
    Of<Record, std::string> why = {};       // lines for whoever asks for one of its places
};

// A record of any table.
class Row {
public:
    virtual ~Row() = default;
    virtual std::string key() const = 0;
    virtual std::vector<Place> places() const = 0;
    virtual std::vector<Cell> cells() const = 0;
    virtual std::string bytes() const = 0; // without what is the card's own
    virtual void want(Wanted &wanted) const = 0;
    virtual std::string why() const = 0;
    virtual const void *record() const = 0;
};

// A table of any kind.
struct Table {
    std::string_view name;
    bool is_mirrored;
    bool answers_why;
    std::vector<std::string_view> columns;
    std::function<void(const Reading &, const std::function<void(const Row &)> &)> each;
};

} // namespace chassis::tables
