// Requests about the objects of a kind, by the kind's rules.
//
// The contract functions come in here with the lock held.  Every change of an object passes through
// keep and forget, so that what stands beside it is kept up and an observer misses none.
#pragma once

#include "chassis/chip/chip.h"

namespace chassis::chip {

inline Chip::Outcome mistake(std::string_view what, std::string_view name,
                             std::string_view how = "") {
    return {-1, std::string(what) + std::string(name) + std::string(how)};
}

// What users call an object that is held.
template <class Kind>
const NameOf<Kind> &name_in(const auto &object) requires is_named_by_key<Kind> {
    return object.first;
}
template <class Kind> NameOf<Kind> name_in(const auto &object) {
    return Kind::name_of(object.second);
}

template <class Kind> const typename Kind::Key *Chip::key_of(const NameOf<Kind> &name) const {
    if constexpr (is_named_by_key<Kind>) {
        const auto found = held<Kind>().find(name);
        return found != held<Kind>().end() ? &found->first : nullptr;
    } else {
        return beside<Kind>().find(name);
    }
}

template <class Kind>
Chip::Outcome Chip::put(const typename Kind::Key &key, const typename Kind::Value &value,
                        bool again) {
    if (!Kind::is_valid(key, value))
        return mistake("an impossible ", Kind::name);
    if (const std::string_view name = lacking<Kind>(value); !name.empty())
        return mistake("no such ", name);
    Objects<Kind> &own = objects<Kind>();
    const auto found = own.held.find(key);
    const bool is_there = found != own.held.end(), is_same = is_there && found->second == value;
    if (again && !Kind::is_setting)
        return is_same ? Outcome() : mistake("no such ", Kind::name, " to program again");
    const bool is_allowed = Kind::is_setting || (Kind::is_replaced && !is_same);
    const bool is_excused = Kind::is_unheard(value) && own.excused.erase(key) > 0;
    if (is_there && !is_allowed && Kind::is_ambiguous)
        return {-1};
    if (is_there && !is_allowed && !is_excused)
        return mistake("the ", Kind::name, " is there");
    if (!is_same)
        keep<Kind>(key, value);
    return {};
}

template <class Kind>
Chip::Outcome Chip::create(Index &index, const typename Kind::Value &value, bool again) {
    static_assert(Kind::is_indexed);
    if (again)
        return held<Kind>().contains(index) ? Outcome()
                                            : mistake("no such ", Kind::name, " to program again");
    const Index made = next_index_;
    Outcome outcome = put<Kind>(made, value);
    if (outcome.code == 0)
        index = made;
    return outcome;
}

template <class Kind>
Chip::Outcome Chip::drop(const typename Kind::Key &key,
                         const std::optional<typename Kind::Value> &value) {
    Objects<Kind> &own = objects<Kind>();
    const bool is_excused =
        Kind::is_unheard(value.value_or(typename Kind::Value())) && own.excused.erase(key) > 0;
    const bool is_blameless = is_excused || (value && Kind::is_shared(*value));
    const auto found = own.held.find(key);
    if (found == own.held.end() && Kind::is_setting)
        return {};
    if (found == own.held.end())
        return is_blameless ? Outcome{-1} : mistake("no such ", Kind::name);
    if (value && found->second != *value)
        return is_blameless ? Outcome{-1} : mistake("the ", Kind::name, " is another");
    if (own.users.contains(name_in<Kind>(*found)))
        return own.excused.contains(key) ? Outcome{-1} : mistake("the ", Kind::name, " is in use");
    forget<Kind>(key);
    return {};
}

template <class Kind> std::string_view Chip::lacking(const typename Kind::Value &value) const {
    std::string_view name;
    Kind::uses(value, [&]<class First, class... Others>(Use<First, Others...> use) {
        if (key_of<First>(use.key) == nullptr && !(key_of<Others>(use.key) || ...))
            name = First::name;
    });
    return name;
}

template <class Kind> void Chip::count_uses(const typename Kind::Value &value, int change) {
    const auto count = [&]<class Used>(Used, const auto &key) {
        if constexpr (Used::is_pinned)
            if (auto &users = objects<Used>().users; (users[key] += unsigned(change)) == 0)
                users.erase(key);
    };
    Kind::uses(value, [&]<class... Used>(Use<Used...> use) { (count(Used(), use.key), ...); });
}

template <class Kind>
void Chip::tell(const typename Kind::Key &key, const typename Kind::Value *value) const {
    if constexpr (Kind::outlives_card)
        if (observer_)
            observer_(change_of<Kind>(key, value));
}

// What stands on a value that goes.
template <class Value> void Chip::lose(const Value &value) {
    if constexpr (requires { value.logic_port; })
        learning.forget(value.logic_port);
}

// A new object, or another value of one that is there.
template <class Kind>
void Chip::keep(const typename Kind::Key &key, const typename Kind::Value &value) {
    if constexpr (Kind::is_indexed)
        take_index(key);
    Kind::indexes(value, [this](Index index) { take_index(index); });
    Objects<Kind> &own = objects<Kind>();
    const auto [place, is_new] = own.held.try_emplace(key, value);
    if (!is_new) {
        count_uses<Kind>(place->second, -1);
        lose(place->second);
        own.beside.remove(key, place->second);
        place->second = value;
    }
    count_uses<Kind>(value, 1);
    own.beside.add(key, value);
    tell<Kind>(key, &value);
}

template <class Kind> void Chip::forget(const typename Kind::Key &key) {
    Objects<Kind> &own = objects<Kind>();
    const auto place = own.held.find(key);
    count_uses<Kind>(place->second, -1);
    lose(place->second);
    own.beside.remove(key, place->second);
    own.excused.erase(key);
    tell<Kind>(key, nullptr);
    own.held.erase(place);
}

} // namespace chassis::chip
