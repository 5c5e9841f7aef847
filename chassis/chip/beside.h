// What a kind keeps beside its objects, so that a request costs what it changes.
//
// It follows from the objects alone.  Changes that are applied may contradict each other: two objects
// that claim the same are both kept.
#pragma once

#include "chassis/chip/kinds.h"

#include <map>
#include <set>

namespace chassis::chip {

template <class Kind> struct Beside {
    void add(const typename Kind::Key &, const typename Kind::Value &) {}
    void remove(const typename Kind::Key &, const typename Kind::Value &) {}
};

// Entries shorter than a host by network (the last one answers), and their number by length for
// each VRF and family.
template <> struct Beside<kinds::entry> {
    void add(const Address &key, Index);
    void remove(const Address &key, Index);

    std::map<Address, std::vector<Address>> networks;
    std::map<std::pair<std::int32_t, std::uint32_t>, std::array<unsigned, 129>> lengths;
};

// Keys by something that their objects have.
template <class By, class Key> struct Lookup {
    std::set<std::pair<By, Key>> all;

    const Key *find(const By &by) const {
        const auto found = all.lower_bound({by, Key()});
        return found != all.end() && found->first == by ? &found->second : nullptr;
    }
    // The first that `accepts` takes.
    const Key *find_if(const By &by, const auto &accepts) const {
        for (auto at = all.lower_bound({by, Key()}); at != all.end() && at->first == by; at++)
            if (accepts(at->second))
                return &at->second;
        return nullptr;
    }
};

template <> struct Beside<kinds::ftn> {
    void add(const FtnKey &key, const Ftn &value) {
        paths.all.emplace(kinds::ftn::name_of(value), key);
    }
    void remove(const FtnKey &key, const Ftn &value) {
        paths.all.erase({kinds::ftn::name_of(value), key});
    }
    const FtnKey *find(const LabelPath &name) const { return paths.find(name); }

    Lookup<LabelPath, FtnKey> paths;
};

// Circuits by the frames that they match.
template <class Kind> struct Circuits {
    using Key = typename Kind::Key;

    void add(const Key &key, const typename Kind::Value &value) {
        for (const Match &match : Kind::matches(key, value))
            frames.all.emplace(match, key);
    }
    void remove(const Key &key, const typename Kind::Value &value) {
        for (const Match &match : Kind::matches(key, value))
            frames.all.erase({match, key});
    }
    // One that takes a frame with these tags; an inner tag of its own counts before any.
    const Key *find(const Match &frame) const {
        const Key *const exact = frames.find(frame);
        return exact != nullptr ? exact : frames.find({frame.port, frame.outer, 0});
    }
    // One that takes frames which this one would take, too.
    const Key *find_clash(const Match &match, const auto &counts) const {
        if (match.inner != 0) {
            const Key *const exact = frames.find_if(match, counts);
            return exact != nullptr ? exact : frames.find_if({match.port, match.outer, 0}, counts);
        }
        for (auto at = frames.all.lower_bound({match, Key()});
             at != frames.all.end() && at->first.port == match.port &&
             at->first.outer == match.outer;
             at++)
            if (counts(at->second))
                return &at->second;
        return nullptr;
    }

    Lookup<Match, Key> frames;
};

// Pseudowires by the label with which their frames come.
template <class Kind> struct Labels {
    void add(const Pseudowire &key, const typename Kind::Value &value) {
        in_labels.all.emplace(value.wire.in_label, key);
    }
    void remove(const Pseudowire &key, const typename Kind::Value &value) {
        in_labels.all.erase({value.wire.in_label, key});
    }

    Lookup<std::uint32_t, Pseudowire> in_labels;
};

template <> struct Beside<kinds::vpws> : Circuits<kinds::vpws>, Labels<kinds::vpws> {
    void add(const Pseudowire &key, const Vpws &value) {
        Circuits::add(key, value);
        Labels::add(key, value);
        members.all.emplace(value.aps_id, key);
    }
    void remove(const Pseudowire &key, const Vpws &value) {
        Circuits::remove(key, value);
        Labels::remove(key, value);
        members.all.erase({value.aps_id, key});
    }

    Lookup<Index, Pseudowire> members; // of redundancy groups
};

template <> struct Beside<kinds::vpls_ac> : Circuits<kinds::vpls_ac> {};
template <> struct Beside<kinds::vpls_pw> : Labels<kinds::vpls_pw> {};

} // namespace chassis::chip
