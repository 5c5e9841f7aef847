// The frame of every contract function: count the request, refuse it if so ordered, carry it out,
// write it down, and let the slots report.
#pragma once

#include "chassis/chassis.h"

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace chassis::chip {

// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string text(const char *format, ...);
std::string address_text(std::uint32_t family, const void *address);
std::string mac_text(const std::uint8_t *mac);

inline std::array<std::uint8_t, 6> mac_of(const std::uint8_t *mac) {
    std::array<std::uint8_t, 6> bytes;
    std::copy_n(mac, bytes.size(), bytes.begin());
    return bytes;
}

// A request for single slots: it programs again what is there.  0 and all ones mean every slot.
constexpr bool is_again(std::uint32_t slot_bits) {
    return slot_bits != 0 && slot_bits != ~0u;
}

struct Call {
    Function kind;
    std::string_view function; // the contract function's name
    std::uint32_t slot_bits = 0;
    std::optional<std::uint32_t>
        forgiven; // what to remember when it is refused on order (chip.cpp)
};

struct Done {
    struct SlotAnswer {
        std::uint32_t bit;
        int code;
    };
    int result = 0;
    std::vector<SlotAnswer> slots;

    // Each slot's own answer, through the library's callback (null in a process without the
    // library); the result.
    template <class Callback, class... Arguments>
    int report(Callback *callback, Arguments... arguments) const {
        if (callback != nullptr)
            for (const SlotAnswer &slot : slots)
                (void)callback(arguments..., slot.bit, slot.code);
        return result;
    }
};

struct Contract {
    // `outputs` are filled with indexes in null mode; `act` carries the request out and answers
    // Chip::Outcome; `describe` makes its arguments' text, after it was carried out.
    template <class Act, class Describe>
    static Done perform(const Call &call, std::initializer_list<std::uint32_t *> outputs, Act act,
                        Describe describe) {
        Chip &chip = card().chip;
        const std::lock_guard guard(chip.mutex_);
        chip.requests_[std::size_t(call.kind)]++;
        if (chip.null_) {
            hand_out(chip, outputs);
            return {};
        }
        Chip::Outcome outcome{chip.ordered_refusal(call.kind)};
        if (outcome.code == 0)
            outcome = act(chip);
        else if (call.forgiven)
            chip.forgiven_.insert({call.kind, *call.forgiven});
        if (chip.recording_ || outcome.mistake != nullptr)
            chip.note(call.kind, outcome, line(call, describe(), outcome.code));
        return chip.slots_.empty() ? Done{outcome.code, {}} : done(chip, call, outcome.code);
    }

    // A request that is not modelled: accepted, and its outputs filled with indexes that may be
    // named from then on.
    template <class Describe>
    static Done accept(std::string_view function, std::uint32_t slot_bits,
                       std::initializer_list<std::uint32_t *> outputs, Describe describe) {
        const auto act = [&](Chip &chip) {
            if (!is_again(slot_bits))
                hand_out(chip, outputs);
            return Chip::Outcome{};
        };
        return perform({Function::other, function, slot_bits, {}}, outputs, act, describe);
    }

private:
    static void hand_out(Chip &chip, std::initializer_list<std::uint32_t *> outputs);
    static std::string line(const Call &call, const std::string &arguments, int result);
    static Done done(Chip &chip, const Call &call, int result);
};

} // namespace chassis::chip
