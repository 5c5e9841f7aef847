// The contract functions of what the model keeps: interfaces, rules, address entries, next hops,
// groups, GRE, settings.  Each is one call of the frame (contract.h).
#include "chassis/chip/contract.h"

namespace chassis::chip {

std::string text_of(std::uint32_t number) {
    return std::to_string(number);
}

std::string text_of(Mac mac) {
    return mac_text(mac.bytes);
}

std::string text_of(const hal_mac_match &match) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04x/0x%04x", match.value, match.mask);
    return text;
}

std::string Arguments::text() const {
    std::string line;
    for (const Argument &argument : list_)
        line += std::string(" ") + argument.name + " " + argument.text(argument.value);
    return line;
}

Contract::Done Contract::carry_out(Function function, std::uint32_t slot_bits,
                                   Operation &operation) {
    Chip &chip = card().chip;
    const std::lock_guard guard(chip.mutex_);
    chip.requests_[std::size_t(function)]++;
    if (chip.null_) {
        operation.hand_out(chip);
        return {};
    }
    Chip::Outcome outcome{chip.ordered_refusal(function)};
    if (outcome.code == 0)
        outcome = operation.act(chip, is_again(slot_bits));
    else
        operation.excuse(chip);
    if (chip.watcher_ || !outcome.mistake.empty())
        chip.note(function, outcome, operation.text(), slot_bits);
    return {outcome.code, answers(chip, function, slot_bits, outcome.code)};
}

// Which slots report, and what.
std::vector<Contract::SlotAnswer> Contract::answers(Chip &chip, Function function,
                                                    std::uint32_t slot_bits, int result) {
    std::vector<SlotAnswer> slots;
    for (const unsigned slot : chip.slots_) {
        const std::uint32_t bit = 1u << (slot & 31);
        if (slot_bits != 0 && (slot_bits & bit) == 0)
            continue;
        const auto failing = chip.failing_slots_.extract({function, slot});
        slots.push_back({bit, failing ? failing.mapped() : result});
    }
    return slots;
}

namespace {

using Outcome = Chip::Outcome;

Address entry_key(std::int32_t vrf, std::uint32_t family, const void *address,
                  std::uint32_t prefix_len) {
    return {vrf, family, address_bytes(family, address), prefix_len};
}

Members member_list(std::uint32_t count, const void *members) {
    const auto *const first = static_cast<const Index *>(members);
    return {first, first + std::min<std::uint32_t>(count, DAL_ECMP_MEMBER_BYTES / 4)};
}

// The id is handed out, and the interface's own.
struct NewInterface : Put<kinds::interface> {
    NewInterface(std::uint16_t vlan, const std::uint8_t *mac, Index *id)
        : Put(vlan, {0, 0, mac_of(mac)}), id(id) {}
    Outcome act(Chip &chip, bool) override {
        value.id = chip.new_index();
        Outcome outcome = chip.put<kinds::interface>(key, value);
        if (outcome.code == 0)
            *id = value.id;
        return outcome;
    }
    void hand_out(Chip &chip) const override { *id = chip.new_index(); }
    Index *const id;
};

// A VLAN without interface (management) takes a VRF as well.
struct SetVrf : Operation {
    SetVrf(std::int32_t vlan, std::uint16_t vrf) : vlan(vlan), vrf(vrf) {}
    Outcome act(Chip &chip, bool) override {
        const auto found = chip.held<kinds::interface>().find(std::uint16_t(vlan));
        if (found == chip.held<kinds::interface>().end())
            return {};
        Interface changed = found->second;
        changed.vrf = vrf;
        chip.keep<kinds::interface>(found->first, changed);
        return {};
    }
    std::string text() const override {
        return "vlan " + std::to_string(vlan) + " vrf " + std::to_string(vrf);
    }
    const std::int32_t vlan;
    const std::uint16_t vrf;
};

struct ChangeMembers : Operation {
    ChangeMembers(std::int32_t group, std::uint32_t operation, Members members)
        : group(Index(group)), operation(operation), members(std::move(members)) {}
    Outcome act(Chip &chip, bool again) override;
    std::string text() const override {
        return "group " + std::to_string(group) + (operation == 1 ? " add " : " remove ") +
               kinds::group::value_text(members);
    }
    void excuse(Chip &chip) const override {
        for (const Index member : members)
            chip.excuse<kinds::nexthop>(member), chip.excuse<kinds::gre_nexthop>(member);
    }
    const Index group;
    const std::uint32_t operation; // 1 adds, 2 removes
    const Members members;
};

Outcome ChangeMembers::act(Chip &chip, bool again) {
    const bool adding = operation == 1;
    const auto found = chip.held<kinds::group>().find(group);
    if (operation != 1 && operation != 2)
        return {-1, "no such operation"};
    if (found == chip.held<kinds::group>().end())
        return mistake("no such ", kinds::group::name);
    if (const auto name = chip.lacking<kinds::group>(members); adding && !name.empty())
        return mistake("no such ", name);
    Members changed = found->second;
    for (const Index member : members) {
        const auto place = std::find(changed.begin(), changed.end(), member);
        if (again && adding == (place != changed.end()))
            continue;
        if (again)
            return {-1, "the group's members differ from those to program again"};
        if (!adding && place == changed.end())
            return {-1}; // one that was refused, or whose group was full when it came
        adding ? changed.push_back(member) : void(changed.erase(place));
    }
    if (!kinds::group::is_valid(group, changed))
        return {-1};
    if (!again)
        chip.keep<kinds::group>(group, changed);
    return {};
}

} // namespace
} // namespace chassis::chip

using namespace chassis::chip;

// --- interfaces ------------------------------------------------------------------------------

int dal_driver_add_l3_intf(const uint8_t *mac, uint16_t vlan, uint32_t *id, uint32_t reserved) {
    return answer<Function::add_l3_intf>(NewInterface(vlan, mac, id), mac, vlan, id, reserved);
}

int dal_driver_delete_l3_intf(const uint8_t *mac, uint16_t vlan, uint32_t reserved) {
    return answer<Function::delete_l3_intf>(Drop<kinds::interface>(vlan, {}, {{"mac", Mac{mac}}}),
                                            mac, vlan, reserved);
}

int dal_driver_interface_vrf_set(int32_t vlan, uint16_t vrf, uint32_t slot_bits) {
    return answer<Function::interface_vrf_set>(SetVrf(vlan, vrf), vlan, vrf, slot_bits);
}

int dal_driver_interface_mpls_enable(uint16_t vlan, uint8_t enable, uint32_t slot_bits) {
    return answer<Function::interface_mpls_enable>(Switch<kinds::mpls_vlan>(vlan, enable == 1),
                                                   vlan, enable, slot_bits);
}

// --- address entries -------------------------------------------------------------------------

int dal_driver_add_ip_entry(int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                            uint32_t nexthop_id, uint32_t slot_bits) {
    const Address key = entry_key(vrf, family, address, prefix_len);
    return answer<Function::add_ip_entry>(Put<kinds::entry>(key, nexthop_id), vrf, family, address,
                                          prefix_len, nexthop_id, slot_bits);
}

int dal_driver_del_ip_entry(int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                            uint32_t nexthop_id, uint32_t slot_bits) {
    const Address key = entry_key(vrf, family, address, prefix_len);
    return answer<Function::del_ip_entry>(Drop<kinds::entry>(key, nexthop_id), vrf, family, address,
                                          prefix_len, nexthop_id, slot_bits);
}

int dal_driver_default_route_set(uint32_t family, uint16_t vrf, uint32_t to_cpu, uint32_t cpu_queue,
                                 uint32_t cpu_rate, uint32_t slot_bits) {
    return answer<Function::default_route_set>(
        Put<kinds::cpu_default>({family, vrf}, to_cpu == 1,
                                {{"queue", cpu_queue}, {"rate", cpu_rate}}),
        family, vrf, to_cpu, cpu_queue, cpu_rate, slot_bits);
}

// --- next hops and groups --------------------------------------------------------------------

int dal_driver_add_ip_nexthop(uint32_t port_type, uint32_t port_id, uint32_t *id, uint16_t svlan,
                              uint16_t cvlan, const uint8_t *mac, uint32_t slot_bits) {
    const NextHop nexthop{port_type, port_id, svlan, cvlan, mac_of(mac)};
    return answer<Function::add_ip_nexthop>(Create<kinds::nexthop>(id, nexthop), port_type, port_id,
                                            id, svlan, cvlan, mac, slot_bits);
}

int dal_driver_del_ip_nexthop(uint32_t id, uint32_t slot_bits) {
    return answer<Function::del_ip_nexthop>(Drop<kinds::nexthop>(id), id, slot_bits);
}

int dal_driver_add_ecmp_nexthop(int32_t *group, uint32_t operation, uint32_t count,
                                const void *members, uint32_t slot_bits) {
    auto *const index = reinterpret_cast<Index *>(group);
    return answer<Function::add_ecmp_nexthop>(
        Create<kinds::group>(index, member_list(count, members)), group, operation, count, members,
        slot_bits);
}

int dal_driver_update_ecmp_nexthop(int32_t group, uint32_t operation, uint32_t count,
                                   const void *members, uint32_t slot_bits) {
    return answer<Function::update_ecmp_nexthop>(
        ChangeMembers(group, operation, member_list(count, members)), group, operation, count,
        members, slot_bits);
}

int dal_driver_del_ecmp_nexthop(int32_t group, uint32_t slot_bits) {
    return answer<Function::del_ecmp_nexthop>(Drop<kinds::group>(Index(group)), group, slot_bits);
}

int dal_driver_set_ecmp_hash_ctl(uint32_t hash_mode, uint32_t slot_bits) {
    return answer<Function::set_ecmp_hash_ctl>(Put<kinds::hash_mode>({}, hash_mode), hash_mode,
                                               slot_bits);
}

// --- GRE -------------------------------------------------------------------------------------

int dal_driver_add_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key, uint32_t checksum, uint32_t slot_bits) {
    const GreTunnel tunnel{vrf, ipv4(source), ipv4(destination), key, checksum};
    return answer<Function::add_gre_tunnel>(Put<kinds::gre_tunnel>(tunnel, {}), vrf, source,
                                            destination, key, checksum, slot_bits);
}

int dal_driver_del_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key, uint32_t checksum, uint32_t slot_bits) {
    const GreTunnel tunnel{vrf, ipv4(source), ipv4(destination), key, checksum};
    return answer<Function::del_gre_tunnel>(Drop<kinds::gre_tunnel>(tunnel), vrf, source,
                                            destination, key, checksum, slot_bits);
}

// Made, or with another value: they take the same.
#define GRE_NEXTHOP(name, function, operation)                                                     \
    int name(uint32_t port_type, uint32_t port_id, const uint8_t *mac, uint32_t vid,               \
             uint32_t ivid, uint32_t vrf, const uint8_t *source, const uint8_t *destination,       \
             uint32_t key, uint32_t checksum, uint32_t *id, uint32_t slot_bits) {                  \
        const GreTunnel tunnel{vrf, ipv4(source), ipv4(destination), key, checksum};               \
        const GreNextHop nexthop{port_type, port_id, vid, ivid, tunnel, mac_of(mac)};              \
        return answer<function>(operation, port_type, port_id, mac, vid, ivid, vrf, source,        \
                                destination, key, checksum, id, slot_bits);                        \
    }
GRE_NEXTHOP(dal_driver_add_gre_nexthop, Function::add_gre_nexthop,
            Create<kinds::gre_nexthop>(id, nexthop))
GRE_NEXTHOP(dal_driver_update_gre_nexthop, Function::update_gre_nexthop,
            Renew<kinds::gre_nexthop>(*id, nexthop))
#undef GRE_NEXTHOP

int dal_driver_del_gre_nexthop(uint32_t id, uint32_t slot_bits) {
    return answer<Function::del_gre_nexthop>(Drop<kinds::gre_nexthop>(id), id, slot_bits);
}

// --- what packets are told by ----------------------------------------------------------------

int dal_driver_port_scl_key_type_set(uint32_t port_type, uint16_t port, uint16_t subport,
                                     uint8_t direction, uint8_t key_type, uint32_t slot_bits) {
    return answer<Function::port_scl_key_type_set>(
        Put<kinds::port_key>({port_type, port, subport, direction}, key_type), port_type, port,
        subport, direction, key_type, slot_bits);
}

// --- rules that trap packets to the CPU ------------------------------------------------------

int hal_set_arp_to_cpu(uint16_t vlan, uint32_t, uint32_t on) {
    return answer<Function::set_arp_to_cpu>(Switch<kinds::arp_rule>(vlan, on == 1));
}

int hal_set_ospf_to_cpu_ex(uint32_t vlan, uint32_t on) {
    return answer<Function::set_ospf_to_cpu_ex>(Switch<kinds::ospf_rule>(vlan, on == 1));
}

int hal_set_ipv6_ns_rule(uint32_t on, uint16_t vlan, const hal_mac_match *match) {
    return answer<Function::set_ipv6_ns_rule>(
        Switch<kinds::nd_rule>(vlan, on == 1, {{"match", *match}}));
}
