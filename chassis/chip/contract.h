// The frame of every contract function: count the request, refuse it if so ordered, carry it out,
// write it down, and let the slots report.
//
// A contract function is one call of answer<Function::name>(operation, its arguments...).  The
// operations below put, create and drop objects of a kind; Accepted does for what is not modelled.
#pragma once

#include "chassis/chassis.h"
#include "chassis/chip/objects.h"
#include "dpm_api.h"
#include "platform/dal.h"
#include "platform/hal.h"

#include <span>

namespace chassis::chip {

// A request for single slots: it programs again what is there.  0 and all ones mean every slot.
constexpr bool is_again(std::uint32_t slot_bits) {
    return slot_bits != 0 && slot_bits != ~0u;
}

inline std::array<std::uint8_t, 6> mac_of(const std::uint8_t *mac) {
    std::array<std::uint8_t, 6> bytes;
    std::copy_n(mac, bytes.size(), bytes.begin());
    return bytes;
}

inline Ipv4 ipv4(const std::uint8_t *address) {
    return {address[0], address[1], address[2], address[3]};
}

// What is refused without being a mistake.
inline constexpr int already_taken = -17, out_of_range = -22;

// --- arguments that no kind tells of -----------------------------------------------------------

struct Mac {
    const std::uint8_t *bytes;
};

std::string text_of(std::uint32_t number);
std::string text_of(Mac mac);
std::string text_of(const hal_mac_match &match);

// Named; valid as long as what it was made from.
struct Argument {
    template <class Value>
    Argument(const char *argument, const Value &from)
        : name(argument), value(&from),
          text([](const void *value) { return text_of(*static_cast<const Value *>(value)); }) {}
    const char *name;
    const void *value;
    std::string (*text)(const void *value);
};

class Arguments {
public:
    Arguments(std::initializer_list<Argument> arguments = {})
        : list_(arguments.begin(), arguments.end()) {}
    std::string text() const; // each with a blank in front

private:
    std::vector<Argument> list_;
};

// --- operations --------------------------------------------------------------------------------

struct Operation {
    virtual ~Operation() = default;
    virtual Chip::Outcome act(Chip &chip, bool again) = 0;
    virtual std::string text() const = 0;  // what it was asked, once it has been carried out
    virtual void hand_out(Chip &) const {} // the indexes alone
    virtual void excuse(Chip &) const {}   // it was refused on order
};

template <class Kind> std::string key_argument(const typename Kind::Key &key) {
    if constexpr (Kind::is_indexed)
        return std::string(Kind::index_name) + " " + Kind::key_text(key);
    else
        return Kind::key_text(key);
}

template <class Kind> struct Put : Operation {
    Put(typename Kind::Key key, typename Kind::Value value, Arguments more = {})
        : key(key), value(value), more(std::move(more)) {}
    Chip::Outcome act(Chip &chip, bool again) override { return chip.put<Kind>(key, value, again); }
    std::string text() const override {
        return key_argument<Kind>(key) + " " + Kind::value_text(value) + more.text();
    }
    void excuse(Chip &chip) const override {
        if (Kind::is_unheard(value))
            chip.excuse<Kind>(key);
    }
    const typename Kind::Key key;
    typename Kind::Value value;
    const Arguments more;
};

template <class Kind> struct Create : Operation {
    Create(Index *index, typename Kind::Value value) : index(index), value(std::move(value)) {}
    Chip::Outcome act(Chip &chip, bool again) override {
        return chip.create<Kind>(*index, value, again);
    }
    std::string text() const override {
        return Kind::value_text(value) + " " + key_argument<Kind>(*index);
    }
    void hand_out(Chip &chip) const override { *index = chip.new_index(); }
    Index *const index;
    const typename Kind::Value value;
};

// Another value of an object that is there.
template <class Kind> struct Renew : Put<Kind> {
    using Put<Kind>::Put;
    Chip::Outcome act(Chip &chip, bool) override {
        if (!chip.held<Kind>().contains(this->key))
            return mistake("no such ", Kind::name);
        return chip.keep<Kind>(this->key, this->value), Chip::Outcome();
    }
    std::string text() const override {
        return Kind::value_text(this->value) + " " + key_argument<Kind>(this->key);
    }
};

// With a value: the object must have it.
template <class Kind> struct Drop : Operation {
    using Value = typename Kind::Value;
    Drop(typename Kind::Key key, std::optional<Value> value = {}, Arguments more = {})
        : key(key), value(value), more(std::move(more)) {}
    Chip::Outcome act(Chip &chip, bool) override { return chip.drop<Kind>(key, value); }
    std::string text() const override {
        return key_argument<Kind>(key) + (value ? " " + Kind::value_text(*value) : "") +
               more.text();
    }
    // What it would have let go stays in use.
    void excuse(Chip &chip) const override {
        if (Kind::is_unheard(value.value_or(Value())))
            chip.excuse<Kind>(key);
        if (value)
            Kind::uses(*value, [&]<class... Used>(Use<Used...> use) {
                (chip.excuse_named<Used>(use.key), ...);
            });
    }
    const typename Kind::Key key;
    const std::optional<Value> value;
    const Arguments more;
};

// An object that is there or not.
template <class Kind> struct Switch : Operation {
    Switch(typename Kind::Key key, bool on, Arguments more = {})
        : key(key), on(on), more(std::move(more)) {}
    Chip::Outcome act(Chip &chip, bool again) override {
        return on ? chip.put<Kind>(key, Nothing(), again) : chip.drop<Kind>(key);
    }
    std::string text() const override {
        return key_argument<Kind>(key) + (on ? " on" : " off") + more.text();
    }
    void excuse(Chip &chip) const override {
        if (Kind::is_unheard(Nothing()))
            chip.excuse<Kind>(key);
    }
    const typename Kind::Key key;
    const bool on;
    const Arguments more;
};

// Not modelled: accepted.
struct Accepted : Operation {
    Accepted(std::initializer_list<Argument> arguments = {}) : arguments(arguments) {}
    Chip::Outcome act(Chip &, bool) override { return {}; }
    std::string text() const override { return arguments.text().erase(0, 1); }
    const Arguments arguments;
};

// --- the frame ---------------------------------------------------------------------------------

// The library's callback of a request; null in a process without the library, and where there is
// none.
template <Function function> constexpr auto slot_answer() {
    return nullptr;
}
#define CHIP_ANSWER(name, word, answer)                                                            \
    extern "C" [[gnu::weak]] decltype(::answer) answer;                                            \
    template <> constexpr auto slot_answer<Function::name>() {                                     \
        return &::answer;                                                                          \
    }
#define CHIP_SILENT(...)
CHIP_FUNCTIONS(CHIP_ANSWER, CHIP_SILENT)
#undef CHIP_ANSWER
#undef CHIP_SILENT

struct Contract {
    struct SlotAnswer {
        std::uint32_t bit;
        int code;
    };
    struct Done {
        int result = 0;
        std::vector<SlotAnswer> slots = {};
    };
    static Done carry_out(Function function, std::uint32_t slot_bits, Operation &operation);

private:
    static std::vector<SlotAnswer> answers(Chip &chip, Function function, std::uint32_t slot_bits,
                                           int result);
};

// Carries a request out and answers it.  The last argument of a contract function is its slot bits;
// the callback takes the others, the slot's bit and its code.
template <Function function, class... Arguments>
int answer(Operation &&operation, Arguments... arguments) {
    [[maybe_unused]] const std::tuple all(arguments...);
    [[maybe_unused]] const auto callback = slot_answer<function>();
    if constexpr (std::is_null_pointer_v<std::remove_const_t<decltype(callback)>>) {
        return Contract::carry_out(function, 0, operation).result;
    } else {
        constexpr std::size_t count = sizeof...(arguments) - 1;
        const auto done = Contract::carry_out(function, std::get<count>(all), operation);
        const auto report = [&]<std::size_t... place>(Contract::SlotAnswer slot,
                                                      std::index_sequence<place...>) {
            (void)callback(std::get<place>(all)..., slot.bit, slot.code);
        };
        if (callback != nullptr)
            for (const Contract::SlotAnswer &slot : done.slots)
                report(slot, std::make_index_sequence<count>());
        return done.result;
    }
}

} // namespace chassis::chip
