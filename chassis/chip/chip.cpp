// What the chip refuses, counts and writes down.
//
// The library sets its marks for some objects (interfaces, ARP rules, interface addresses) whatever
// the chip says, so a refusal there that was ordered is followed by an add of what stayed or a
// delete of what never came.  In the same way a next hop is deleted whose entry or group stayed on
// order.  Such objects are excused: the chip does not hold that against the library.
#include "chassis/chip/chip.h"

namespace chassis::chip {

namespace {

constexpr std::size_t mistake_lines_kept = 1000;

} // namespace

void Chip::refuse(Function function, unsigned count, int code, unsigned skip) {
    const std::lock_guard guard(mutex_);
    refusals_.at(std::size_t(function)) = {skip, count, code};
}

// The code of an ordered refusal that is due, else 0.
int Chip::ordered_refusal(Function function) {
    Refusal &refusal = refusals_[std::size_t(function)];
    if (refusal.count == 0)
        return 0;
    if (refusal.skip > 0) {
        refusal.skip--;
        return 0;
    }
    refusal.count--;
    return refusal.code;
}

void Chip::note(Function function, const Outcome &outcome, const std::string &arguments,
                std::uint32_t slot_bits) {
    char end[40];
    std::snprintf(end, sizeof end, " slots 0x%x -> %d", slot_bits, outcome.code);
    const std::string line =
        std::string(name_of(function)) + (arguments.empty() ? "" : " ") + arguments + end;
    if (watcher_)
        watcher_(line);
    if (outcome.mistake.empty())
        return;
    mistakes_++;
    if (mistake_lines_.size() == mistake_lines_kept)
        mistake_lines_.pop_front();
    mistake_lines_.push_back(std::string(name_of(function)) + ": " + outcome.mistake + ": " + line);
}

std::uint64_t Chip::requests(Function function) const {
    const std::lock_guard guard(mutex_);
    return requests_.at(std::size_t(function));
}

std::uint64_t Chip::mistakes() const {
    const std::lock_guard guard(mutex_);
    return mistakes_;
}

std::vector<std::string> Chip::mistake_lines() const {
    const std::lock_guard guard(mutex_);
    return {mistake_lines_.begin(), mistake_lines_.end()};
}

void Chip::watch(std::function<void(const std::string &)> watcher) {
    const std::lock_guard guard(mutex_);
    watcher_ = std::move(watcher);
}

void Chip::answer_slots(std::vector<unsigned> slots) {
    const std::lock_guard guard(mutex_);
    slots_ = std::move(slots);
}

void Chip::fail_slot(Function function, unsigned slot, int code) {
    const std::lock_guard guard(mutex_);
    failing_slots_[{function, slot}] = code;
}

void Chip::set_null(bool on) {
    const std::lock_guard guard(mutex_);
    null_ = on;
}

} // namespace chassis::chip
