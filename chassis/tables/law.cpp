#include "chassis/tables/law.h"

#include "chassis/chip/objects.h"
#include "chassis/tables/tables.h"
#include "chassis/tables/wanted.h"

#include <functional>

namespace chassis::tables {

namespace {

using chip::Chip;
namespace kinds = chip::kinds;

// What no record says: settings of the whole card, and what the library leaves behind.
void want_settings(Wanted &wanted) {
    wanted.want<kinds::hash_mode>({}, dpm_api_get_ecmp_hash());
    // A default route that goes gives its place to the CPU, in a VRF that was never enabled too.
    wanted.permit_any<kinds::cpu_default>(true);
    chip::each_kind([&]<class Kind>(Kind) {
        if constexpr (Kind::is_left_behind)
            wanted.permit_any<Kind>({});
    });
    for (const std::uint32_t family : {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6})
        if (dpm_api_get_ipmc_global_enable(family))
            wanted.want<kinds::mcast_unknown>(family, chip::Nothing());
}

Wanted wanted_of(const Reading &reading) {
    Wanted wanted(reading);
    want_settings(wanted);
    for (const Table &table : all())
        table.each(reading, [&](const Row &row) { row.want(wanted); });
    return wanted;
}

// Whether a table wants an object that the chip holds, or nobody minds it.
template <class Kind>
bool is_accepted(const Wanted::Objects<Kind> &objects, const typename Kind::Key &key,
                 const typename Kind::Value &value) {
    if (objects.permitted == value)
        return true;
    const auto found = objects.by_key.find(key);
    return found != objects.by_key.end() &&
           (found->second.value || found->second.permitted == value);
}

template <class Kind> class Judge {
public:
    Judge(Wanted &wanted, const Chip &chip, Verdict &verdict)
        : objects_(wanted.objects_of<Kind>()), held_(chip.held<Kind>()), chip_(chip),
          verdict_(verdict) {}

    void judge() {
        for (const auto &[key, object] : objects_.by_key) {
            if (object.value && !may_differ(key))
                compare(key, *object.value, object.cause);
            compare_uses(key, object);
        }
        for (const auto &[key, value] : held_)
            if (!is_accepted<Kind>(objects_, key, value) && !may_differ(key))
                tell("no table has " + Wanted::name_of<Kind>(key), cause_of(key));
    }

private:
    using Key = typename Kind::Key;
    using Value = typename Kind::Value;
    using Object = Wanted::Object<Kind>;

    bool may_differ(const Key &key) const {
        return Kind::may_differ && chip_.is_excused<Kind>(key);
    }

    void tell(std::string text, Cause cause) {
        (cause == Cause::drift ? verdict_.drifts : verdict_.faults).push_back(std::move(text));
    }

    void compare(const Key &key, const Value &value, Cause cause) {
        if constexpr (!std::is_same_v<Key, chip::Nothing>)
            verdict_.wanted[Kind::name]++;
        const auto found = held_.find(key);
        if (found == held_.end())
            tell("the chip lacks " + Wanted::name_of<Kind>(key), cause);
        else if (Wanted::in_order(found->second) != value)
            tell("the chip has another " + Wanted::name_of<Kind>(key) + ": " +
                     Kind::value_text(found->second) + ", not " + Kind::value_text(value),
                 cause);
    }

    void compare_uses(const Key &key, const Object &object) {
        const std::string name = Wanted::name_of<Kind>(key);
        const unsigned counted = object.counted.value_or(object.uses);
        const std::string text = name + " counts " + std::to_string(counted) + " users and has " +
                                 std::to_string(object.uses);
        if (object.uses > 0 && !object.value)
            tell("no table has " + name + ", which is used", Cause::fault);
        else if (counted < object.uses)
            tell(text, Cause::fault);
        else if (counted > object.uses) {
            verdict_.leaks.push_back(text);
            verdict_.leaked[Kind::name] += counted - object.uses;
        }
    }

    Cause cause_of(const Key &key) const {
        const auto found = objects_.by_key.find(key);
        return found == objects_.by_key.end() ? Cause::fault : found->second.cause;
    }

    Wanted::Objects<Kind> &objects_;
    const std::map<Key, Value> &held_;
    const Chip &chip_;
    Verdict &verdict_;
};

// Objects that name another are counted there, so that it stays as long as they do.
template <class Used> std::map<chip::NameOf<Used>, unsigned> users_of(const Chip &chip) {
    std::map<chip::NameOf<Used>, unsigned> users;
    const auto count = [&]<class... Kinds>(chip::Use<Kinds...> use) {
        if constexpr ((std::is_same_v<Kinds, Used> || ...)) // the indexes of all kinds are one row
            users[use.key]++;
    };
    chip::each_kind([&]<class Kind>(Kind) {
        for (const auto &[key, value] : chip.held<Kind>())
            Kind::uses(value, count);
    });
    return users;
}

template <class Kind> void judge_users(const Chip &chip, Verdict &verdict) {
    if constexpr (Kind::is_pinned)
        if (users_of<Kind>(chip) != chip.users<Kind>())
            verdict.faults.push_back("the chip counts the users of a " + std::string(Kind::name) +
                                     " wrong");
}

template <class Kind> unsigned put_wanted(const Wanted::Objects<Kind> &objects, Chip &chip) {
    unsigned put = 0;
    for (const auto &[key, object] : objects.by_key) {
        const auto found = chip.held<Kind>().find(key);
        const bool is_right =
            found != chip.held<Kind>().end() && Wanted::in_order(found->second) == object.value;
        if (object.value && !is_right)
            chip.keep<Kind>(key, *object.value), put++;
    }
    return put;
}

template <class Kind> unsigned drop_unwanted(const Wanted::Objects<Kind> &objects, Chip &chip) {
    unsigned dropped = 0;
    for (const auto &[key, value] : std::map(chip.held<Kind>()))
        if (!is_accepted<Kind>(objects, key, value))
            dropped += chip.drop<Kind>(key).code == 0;
    return dropped;
}

struct DpmLock {
    DpmLock() { norix_dpm_sem_take(); }
    ~DpmLock() { norix_dpm_sem_give(); }
};

using Records = std::map<std::string, std::string>; // bytes by key

Records records_of(const Table &table, Card &card) {
    const Reading reading(card);
    Records records;
    table.each(reading, [&](const Row &row) { records[row.key()] += row.bytes(); });
    return records;
}

void compare(const Table &table, const Records &master, const Records &standby, Lines &lines) {
    const auto tell = [&](const std::string &key, const std::string &text) {
        lines.push_back(std::string(table.name) + ": " + key + ": " + text);
    };
    for (const auto &[key, bytes] : master) {
        const auto found = standby.find(key);
        if (found == standby.end())
            tell(key, "on the master only");
        else if (found->second != bytes)
            tell(key, "the records differ from byte " +
                          std::to_string(std::ranges::mismatch(bytes, found->second).in1 -
                                         bytes.begin()));
    }
    for (const auto &[key, bytes] : standby)
        if (!master.contains(key))
            tell(key, "on the standby only");
}

} // namespace

Lines Verdict::all() const {
    Lines lines = faults;
    lines.insert(lines.end(), drifts.begin(), drifts.end());
    lines.insert(lines.end(), leaks.begin(), leaks.end());
    return lines;
}

Verdict chip_equals_tables(Card &card) {
    const Reading reading(card);
    Wanted wanted = wanted_of(reading);
    Verdict verdict;
    for (Wanted::Difference &difference : wanted.differences)
        (difference.cause == Cause::drift ? verdict.drifts : verdict.faults)
            .push_back(std::move(difference.text));
    const auto lock = card.chip.lock();
    chip::each_kind([&]<class Kind>(Kind) {
        Judge<Kind>(wanted, card.chip, verdict).judge();
        judge_users<Kind>(card.chip, verdict);
    });
    return verdict;
}

unsigned mend_chip(Card &card) {
    const DpmLock tables_lock;
    const Reading reading(card);
    Wanted wanted = wanted_of(reading);
    const auto lock = card.chip.lock();
    unsigned mended = 0;
    std::vector<std::function<unsigned()>> drops; // users go before what they use
    chip::each_kind([&]<class Kind>(Kind) {
        if constexpr (Kind::outlives_card) {
            auto &objects = wanted.objects_of<Kind>();
            mended += put_wanted<Kind>(objects, card.chip);
            drops.emplace_back([&] { return drop_unwanted<Kind>(objects, card.chip); });
        }
    });
    for (auto drop = drops.rbegin(); drop != drops.rend(); ++drop)
        mended += (*drop)();
    return mended;
}

Lines standby_equals_master(Card &master, Card &standby) {
    Lines lines;
    for (const Table &table : all())
        if (table.is_mirrored)
            compare(table, records_of(table, master), records_of(table, standby), lines);
    return lines;
}

} // namespace chassis::tables
