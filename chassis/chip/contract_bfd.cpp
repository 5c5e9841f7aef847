// The contract functions of BFD, and what its peers do.
//
// Updates name an end point by type and discriminator.  One that was to be deleted, and was kept on
// order, is not meant.
#include "chassis/chip/bfd.h"
#include "chassis/chip/contract.h"
#include "platform/hw.h"

namespace chassis::chip {

namespace {

using Outcome = Chip::Outcome;
using kinds::bfd_local;
using kinds::bfd_remote;

enum State : std::uint32_t { down = 1, up = 3 };
constexpr std::uint32_t time_expired = 1; // diagnostic code

template <class Kind>
const Mep *find_mep(const Chip &chip, std::uint32_t type, std::uint32_t local_disc) {
    for (const auto &[index, mep] : chip.held<Kind>())
        if ((type == 0 || mep.record.type == type) && mep.record.local_disc == local_disc &&
            !chip.is_excused<Kind>(index))
            return &mep;
    return nullptr;
}

// The library hears that one was refused, and goes on without it.
template <class Kind> struct PutMep : Put<Kind> {
    explicit PutMep(const hw_bfd_mep &record) : Put<Kind>(record.index, Kind::told(record)) {}
    void excuse(Chip &) const override {}
};

template <class Kind> struct UpdateMep : Operation {
    explicit UpdateMep(const hw_bfd_update &update) : update(update) {}
    Outcome act(Chip &chip, bool) override {
        const Mep *const present = find_mep<Kind>(chip, update.type, update.local_disc);
        if (present == nullptr)
            return mistake("no such ", Kind::name);
        Mep mep = *present;
        if (!apply(mep))
            return mistake("an impossible update of a ", Kind::name);
        return chip.keep<Kind>(mep.record.index, mep), Outcome();
    }
    std::string text() const override {
        std::string text = "disc " + std::to_string(update.local_disc) + " ";
        switch (update.kind) {
        case HW_BFD_UPDATE_REMOTE:
            return text + "of " + std::to_string(update.value);
        case HW_BFD_UPDATE_CC:
            return text + (update.value ? "cc on" : "cc off");
        case HW_BFD_UPDATE_STATE:
            return text + "state " + std::to_string(update.value);
        default:
            text += "timers " + std::to_string(update.value);
            for (const std::uint32_t value : update.more)
                text += "," + std::to_string(value);
            return text;
        }
    }
    bool apply(Mep &mep) const;
    const hw_bfd_update &update;
};

template <> bool UpdateMep<bfd_remote>::apply(Mep &mep) const {
    mep.record.remote_disc = update.value;
    return update.kind == HW_BFD_UPDATE_REMOTE && update.sub_kind == HW_BFD_SUB_REMOTE_DISC;
}

template <> bool UpdateMep<bfd_local>::apply(Mep &mep) const {
    if (update.kind == HW_BFD_UPDATE_CC) {
        mep.cc = update.value;
        return update.sub_kind == 0 && update.value <= 1;
    }
    if (update.kind == HW_BFD_UPDATE_STATE) {
        mep.record.state = std::uint8_t(update.value);
        return update.sub_kind == 0;
    }
    mep.record.timer1 = update.value;
    mep.record.timer3 = std::uint8_t(update.more[0]);
    mep.record.timer2 = update.more[1];
    return update.kind == HW_BFD_UPDATE_TIMERS && update.sub_kind == 0 &&
           update.more[0] == update.more[2];
}

// No end point, no packets.
struct ReadRemote : Operation {
    ReadRemote(std::uint32_t type, std::uint32_t local_disc, std::uint32_t *heard)
        : type(type), local_disc(local_disc), heard(heard) {}
    Outcome act(Chip &chip, bool) override {
        const Mep *const mep = find_mep<bfd_remote>(chip, type, local_disc);
        *heard = mep ? mep->heard : 0;
        return {mep ? 0 : -1};
    }
    std::string text() const override {
        return "disc " + std::to_string(local_disc) + " of " + std::to_string(*heard);
    }
    const std::uint32_t type, local_disc;
    std::uint32_t *const heard;
};

std::string report(const Chip &chip, std::uint32_t local_disc, State state, std::uint32_t diag) {
    if (chip.bfd_handler == nullptr)
        return "nobody asked for reports";
    return chip.bfd_handler(local_disc, state, diag) == 0 ? "" : "the report was not taken";
}

// What the remote end point hears from now on; false: the chip has none of this discriminator.
bool hear(Chip &chip, std::uint32_t local_disc, std::uint32_t remote_disc) {
    const Mep *const present = find_mep<bfd_remote>(chip, 0, local_disc);
    if (present == nullptr)
        return false;
    Mep mep = *present;
    mep.heard = remote_disc;
    chip.keep<bfd_remote>(mep.record.index, mep);
    return true;
}

} // namespace

std::string bfd_peer_talks(Chip &chip, std::uint32_t local_disc, std::uint32_t remote_disc) {
    {
        const auto lock = chip.lock();
        if (!hear(chip, local_disc, remote_disc))
            return "the chip has no end point of this session";
    }
    return report(chip, local_disc, up, 0);
}

std::string bfd_peer_is_lost(Chip &chip, std::uint32_t local_disc) {
    {
        const auto lock = chip.lock();
        const Mep *const local = find_mep<bfd_local>(chip, 0, local_disc);
        if (local == nullptr || !hear(chip, local_disc, 0))
            return "the chip has no end point of this session";
        if (local->cc == 0)
            return "the chip does not check the continuity of this session";
    }
    return report(chip, local_disc, down, time_expired);
}

} // namespace chassis::chip

using namespace chassis::chip;

#define BFD_MEP(end)                                                                               \
    int hw_driver_bfd_##end##_add(uint32_t, const hw_bfd_mep *record) {                            \
        return answer<Function::bfd_##end##_add>(PutMep<end##_kind>(*record));                     \
    }                                                                                              \
    int hw_driver_bfd_##end##_del(uint32_t, const hw_bfd_mep *record) {                            \
        return answer<Function::bfd_##end##_del>(Drop<end##_kind>(record->index));                 \
    }                                                                                              \
    int hw_driver_bfd_##end##_update(uint32_t, const hw_bfd_update *record) {                      \
        return answer<Function::bfd_##end##_update>(UpdateMep<end##_kind>(*record));               \
    }
using lmep_kind = kinds::bfd_local;
using rmep_kind = kinds::bfd_remote;
BFD_MEP(lmep)
BFD_MEP(rmep)
#undef BFD_MEP

int hw_driver_bfd_get_remote_disc(uint32_t, uint32_t type, uint32_t local_disc,
                                  uint32_t *remote_disc) {
    return answer<Function::bfd_get_remote_disc>(ReadRemote(type, local_disc, remote_disc));
}

int hw_driver_register_bfd_handler(uint32_t, int (*handler)(uint32_t, uint32_t, uint32_t)) {
    chassis::card().chip.bfd_handler = handler;
    return 0;
}
