// What the tables want of the chip: the descriptions tell it (in_chip), the law compares (law.h).
#pragma once

#include "chassis/chip/chip.h"
#include "chassis/tables/table.h"

#include <algorithm>

namespace chassis::tables {

// What a difference may come from.
enum class Cause {
    fault,
    drift, // of a route that does not follow its gateways since the chip refused something
};

class Wanted {
public:
    explicit Wanted(const Reading &reading) : reading(reading) {}

    const Reading &reading;

    // The chip is to hold this object for one record alone; without a value it is not to hold it.
    template <class Kind>
    void want(const typename Kind::Key &key, std::optional<typename Kind::Value> value,
              Cause cause = Cause::fault) {
        Object<Kind> &object = object_of<Kind>(key);
        if (object.value && value && !Kind::is_setting)
            differ("more than one record wants " + name_of<Kind>(key));
        if (value)
            object.value = in_order(*value);
        object.cause = cause;
    }
    // What nobody wants may be there with this value: one object, or any.
    template <class Kind>
    void permit(const typename Kind::Key &key, const typename Kind::Value &value) {
        object_of<Kind>(key).permitted = value;
    }
    template <class Kind> void permit_any(const typename Kind::Value &value) {
        objects_of<Kind>().permitted = value;
    }
    // The record uses an object that another one wants.
    template <class Kind> void use(const typename Kind::Key &key) { object_of<Kind>(key).uses++; }
    // So many users are counted of an object.
    template <class Kind> void count(const typename Kind::Key &key, unsigned users) {
        object_of<Kind>(key).counted = users;
    }
    // Records contradict each other.
    void differ(std::string text, Cause cause = Cause::fault) {
        differences.push_back({std::move(text), cause});
    }

    struct Difference {
        std::string text;
        Cause cause;
    };
    std::vector<Difference> differences;

    template <class Kind> struct Object {
        std::optional<typename Kind::Value> value, permitted;
        std::optional<unsigned> counted;
        unsigned uses = 0;
        Cause cause = Cause::fault;
    };
    template <class Kind> struct Objects {
        std::map<typename Kind::Key, Object<Kind>> by_key;
        std::optional<typename Kind::Value> permitted;
    };
    template <class Kind> Objects<Kind> &objects_of() { return std::get<Objects<Kind>>(objects_); }

    template <class Kind> static std::string name_of(const typename Kind::Key &key) {
        return std::string(Kind::name) + " " + Kind::key_text(key);
    }
    // Members stand in a group in the order in which they came, which no table keeps.
    template <class Value> static Value in_order(Value value) {
        if constexpr (std::is_same_v<Value, chip::Members>)
            std::ranges::sort(value);
        return value;
    }

private:
    template <class Kind> Object<Kind> &object_of(const typename Kind::Key &key) {
        return objects_of<Kind>().by_key[key];
    }
    chip::ForEachKind<Objects> objects_;
};

// A record has a group of its own with these members.
void want_group(const std::string &owner, std::uint32_t index, chip::Members members,
                Wanted &wanted, Cause cause = Cause::fault);

} // namespace chassis::tables
