// The contract functions of multicast: groups and members, what no group knows, and trap rules.
//
// A create without a gid is given one; with one it comes from the master card, and the indexes of
// this chip go on behind it.
#include "chassis/chip/contract.h"
#include "platform/hw.h"

namespace chassis::chip {

namespace {

using Outcome = Chip::Outcome;

McastGroup group_of(const hw_ipmc_record &record) {
    return {record.vrf, record.family, address_bytes(record.family, record.group),
            address_bytes(record.family, record.source), record.source_len};
}

McastMember member_of(const hw_ipmc_record &record) {
    return {group_of(record), record.port, record.vlan};
}

Index new_or_given(Chip &chip, Index &gid, Index present) {
    if (gid == 0)
        gid = present != 0 ? present : chip.new_index();
    chip.take_index(gid);
    return gid;
}

template <class Kind> Index present(const Chip &chip, const typename Kind::Key &key) {
    const auto found = chip.held<Kind>().find(key);
    return found == chip.held<Kind>().end() ? 0 : Index(found->second);
}

struct NewMcastGroup : Operation {
    explicit NewMcastGroup(hw_ipmc_record &from) : record(from), key(group_of(from)) {}
    Outcome act(Chip &chip, bool) override {
        const Index gid = new_or_given(chip, record.gid, present<kinds::mcast_group>(chip, key));
        return chip.put<kinds::mcast_group>(key, gid);
    }
    std::string text() const override {
        return kinds::mcast_group::key_text(key) + " gid " + std::to_string(record.gid);
    }
    void hand_out(Chip &chip) const override { record.gid = chip.new_index(); }
    void excuse(Chip &chip) const override { chip.excuse<kinds::mcast_group>(key); }
    hw_ipmc_record &record;
    const McastGroup key;
};

// Its members go with it.
struct EndMcastGroup : Drop<kinds::mcast_group> {
    explicit EndMcastGroup(const hw_ipmc_record &record) : Drop(group_of(record)) {}
    Outcome act(Chip &chip, bool again) override {
        const auto &members = chip.held<kinds::mcast_member>();
        for (auto at = members.lower_bound({key, 0, 0});
             at != members.end() && at->first.of == key;)
            (void)chip.drop<kinds::mcast_member>(McastMember((at++)->first));
        return Drop::act(chip, again);
    }
};

struct NewMcastMember : Put<kinds::mcast_member> {
    explicit NewMcastMember(const hw_ipmc_record &record) : Put(member_of(record), {}) {}
    Outcome act(Chip &chip, bool again) override {
        if (!chip.held<kinds::mcast_group>().contains(key.of))
            return mistake("no such ", kinds::mcast_group::name);
        return Put::act(chip, again);
    }
};

struct TrapUnknown : Operation {
    TrapUnknown(std::uint32_t family, bool on, Index *gid) : family(family), on(on), gid(gid) {}
    Outcome act(Chip &chip, bool) override {
        if (!on)
            return chip.drop<kinds::mcast_unknown>(family);
        (void)new_or_given(chip, *gid, 0);
        return chip.put<kinds::mcast_unknown>(family, Nothing());
    }
    std::string text() const override {
        return kinds::mcast_unknown::key_text(family) + (on ? " on" : " off") + " gid " +
               std::to_string(*gid);
    }
    void hand_out(Chip &chip) const override { *gid = chip.new_index(); }
    void excuse(Chip &chip) const override { chip.excuse<kinds::mcast_unknown>(family); }
    const std::uint32_t family;
    const bool on;
    Index *const gid;
};

} // namespace
} // namespace chassis::chip

using namespace chassis::chip;

int hw_driver_ipmc_group_set(uint32_t, hw_ipmc_record *record, uint32_t on) {
    if (on)
        return answer<Function::ipmc_group_create>(NewMcastGroup(*record));
    return answer<Function::ipmc_group_destroy>(EndMcastGroup(*record));
}

int hw_driver_ipmc_member_set(uint32_t, const hw_ipmc_record *record, uint32_t on) {
    if (on)
        return answer<Function::ipmc_member_add>(NewMcastMember(*record));
    return answer<Function::ipmc_member_del>(Drop<kinds::mcast_member>(member_of(*record)));
}

int hw_driver_interface_ipmc_enable(uint32_t, uint16_t vlan, uint32_t type, uint32_t enable) {
    const uint32_t number = vlan, every_slot = 0;
    return answer<Function::interface_ipmc_enable>(
        Accepted({{"vlan", number}, {"type", type}, {"enable", enable}}), number, type, enable,
        every_slot);
}

int hw_driver_unknown_ipmc_to_cpu_set(uint32_t, uint32_t family, uint32_t state, uint32_t, uint32_t,
                                      uint32_t *gid) {
    return answer<Function::unknown_ipmc_set>(TrapUnknown(family, state == 1, gid));
}

// --- rules that trap packets to the CPU ------------------------------------------------------

int hal_set_igmp_to_cpu(uint32_t on, uint32_t) {
    return answer<Function::set_igmp_to_cpu>(Accepted({{"on", on}}));
}

int hal_set_mld_to_cpu(uint32_t on) {
    return answer<Function::set_mld_to_cpu>(Accepted({{"on", on}}));
}

int hal_set_igmp_vlan_to_cpu(uint32_t vlan, uint32_t on) {
    return answer<Function::set_igmp_to_cpu>(Accepted({{"vlan", vlan}, {"on", on}}));
}

int hal_set_mld_vlan_to_cpu(uint32_t vlan, uint32_t on) {
    return answer<Function::set_mld_to_cpu>(Accepted({{"vlan", vlan}, {"on", on}}));
}
