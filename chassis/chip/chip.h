// A model of the switching chip: it keeps what a chip keeps, answers like one, and counts mistakes.
//
// What is modelled is a kind of object (kinds.h); every other call is accepted and stands in the
// journal.  Indexes run from 16 up (0 and 2 mean something else to the library).  A mistake is a
// request that a real chip would not understand: adding what is there, deleting what is not, naming
// an object that does not exist.  It is answered with -1 and changes nothing.  A request for single
// slots programs again what is there; it changes nothing either.
#pragma once

#include "chassis/chip/beside.h"
#include "chassis/chip/change.h"
#include "chassis/chip/functions.h"
#include "chassis/chip/learning.h"

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>

namespace chassis::chip {

struct Answer { // of a lookup
    Address entry;
    std::uint32_t index; // next hop or group
    bool group;
    std::vector<std::uint32_t> members; // next hops: one, or those of the group
};

template <class Kind> struct Objects {
    std::map<typename Kind::Key, typename Kind::Value> held;
    std::map<NameOf<Kind>, unsigned> users; // of a pinned kind: who names the object
    std::set<typename Kind::Key> excused;   // a request was refused on order (chip.cpp)
    Beside<Kind> beside;
};

class Chip {
public:
    Chip() = default;

    // Longest-prefix match on what is programmed.
    std::optional<Answer> lookup(std::int32_t vrf, std::uint32_t family,
                                 const std::uint8_t *address) const;
    // The same for a host; the caller holds the lock.
    std::optional<Answer> find_entry(Address host) const;

    // What the chip holds of a kind.  Take lock() to read it in threaded mode.
    template <class Kind> const std::map<typename Kind::Key, typename Kind::Value> &held() const {
        return objects<Kind>().held;
    }
    // How many objects name one of a pinned kind; nothing when none does.
    template <class Kind> const std::map<NameOf<Kind>, unsigned> &users() const {
        return objects<Kind>().users;
    }
    template <class Kind> const Beside<Kind> &beside() const { return objects<Kind>().beside; }
    // The key of the object that has this name, if there is one.
    template <class Kind> const typename Kind::Key *key_of(const NameOf<Kind> &name) const;
    // The same as held, for a test that breaks it; what is kept beside it is not told.
    template <class Kind> std::map<typename Kind::Key, typename Kind::Value> &tamper() {
        return objects<Kind>().held;
    }

    // The record of the last label request that was carried out, as it came.
    std::vector<std::uint8_t> label_record;

    // What frames taught virtual bridges; traces are the only frames there are.
    Learning learning;

    // Where states of BFD sessions are reported; null until the library asks for them.
    int (*bfd_handler)(std::uint32_t local_disc, std::uint32_t state, std::uint32_t diag) = nullptr;

    // The next `count` requests of a function are refused with `code`, after `skip` that pass.
    void refuse(Function function, unsigned count, int code = -1, unsigned skip = 0);

    std::uint64_t requests(Function function) const; // how many came
    std::uint64_t mistakes() const;
    std::vector<std::string> mistake_lines() const;

    // Is told of each request, with its arguments, slot bits and result, as a line, on the
    // requester's thread with the lock held.
    void watch(std::function<void(const std::string &line)> watcher);

    // Each of these slots reports its own answer to every request that reaches it, through the
    // library's result callbacks, on the requester's thread before the request returns.  None at
    // first.
    void answer_slots(std::vector<unsigned> slots);
    // The next report of a slot on a request of this function carries `code`; the request's own
    // answer stays.
    void fail_slot(Function function, unsigned slot, int code = -1);

    // Accepts everything, hands out indexes and keeps nothing: for measuring the library alone.
    void set_null(bool on);

    // Takes over from another card's chip what line cards keep when the control card changes.
    void take_over(const Chip &other);

    // Is told of every change of what line cards keep, on the requester's thread with the lock
    // held.
    void observe(std::function<void(const Change &)> observer);
    // Makes a change that a chip told; nobody asks and nobody is told.  False, and nothing is done,
    // when it is not one of an object.
    bool apply(const Change &change);
    // All that line cards keep as changes, in an order that can be applied.  The caller holds the
    // lock.
    std::vector<Change> forwarding() const;

    std::unique_lock<std::mutex> lock() const { return std::unique_lock(mutex_); }

    // Carrying out requests; the caller holds the lock.  Each is carried out whole, or is a mistake
    // and changes nothing.
    struct Outcome {
        int code = 0;
        std::string mistake = {}; // empty: none
    };
    // `again`: a slot is programmed with what is there.
    template <class Kind>
    Outcome put(const typename Kind::Key &key, const typename Kind::Value &value,
                bool again = false);
    // Under an index that is handed out; when programming again, the one that is given.
    template <class Kind>
    Outcome create(Index &index, const typename Kind::Value &value, bool again = false);
    // When a value is given, the object must have it.
    template <class Kind>
    Outcome drop(const typename Kind::Key &key,
                 const std::optional<typename Kind::Value> &value = {});
    // The same as put, without asking.
    template <class Kind>
    void keep(const typename Kind::Key &key, const typename Kind::Value &value);
    // A request about an object, or one that would free it for its delete, was refused on order.
    template <class Kind> void excuse(const typename Kind::Key &key) {
        objects<Kind>().excused.insert(key);
    }
    // The same by its name, when it is there.
    template <class Kind> void excuse_named(const NameOf<Kind> &name) {
        if constexpr (is_named_by_key<Kind>)
            excuse<Kind>(name);
        else if (const typename Kind::Key *const key = key_of<Kind>(name))
            excuse<Kind>(*key);
    }
    template <class Kind> bool is_excused(const typename Kind::Key &key) const {
        return objects<Kind>().excused.contains(key);
    }
    Index new_index() { return next_index_++; }
    void take_index(Index index) { // another's
        next_index_ = std::max(next_index_, std::min(index, last_index) + 1);
    }
    // The name of the kind of an object that the value names and that is not there, or nothing.
    template <class Kind> std::string_view lacking(const typename Kind::Value &value) const;

private:
    friend struct Contract; // the contract functions' frame
    struct Refusal {
        unsigned skip = 0, count = 0;
        int code = 0;
    };
    int ordered_refusal(Function function);
    void note(Function function, const Outcome &outcome, const std::string &arguments,
              std::uint32_t slot_bits);

    template <class Kind> Objects<Kind> &objects() { return std::get<Objects<Kind>>(objects_); }
    template <class Kind> const Objects<Kind> &objects() const {
        return std::get<Objects<Kind>>(objects_);
    }
    template <class Value> void lose(const Value &value);
    template <class Kind> void forget(const typename Kind::Key &key);
    template <class Kind> void count_uses(const typename Kind::Value &value, int change);
    template <class Kind>
    void tell(const typename Kind::Key &key, const typename Kind::Value *value) const;
    template <class Kind> bool apply_to(const Change &change);

    mutable std::mutex mutex_;
    Index next_index_ = first_index;
    bool null_ = false;
    std::function<void(const Change &)> observer_;
    ForEachKind<Objects> objects_;

    std::array<Refusal, std::size_t(Function::count)> refusals_{};
    std::array<std::uint64_t, std::size_t(Function::count)> requests_{};
    std::deque<std::string> mistake_lines_;
    std::uint64_t mistakes_ = 0;
    std::function<void(const std::string &)> watcher_;
    std::vector<unsigned> slots_;
    std::map<std::pair<Function, unsigned>, int> failing_slots_;
};

} // namespace chassis::chip
