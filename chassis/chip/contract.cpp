// The contract functions of what the model keeps: interfaces, rules, address entries, next hops,
// groups.
//
// Each is one call of the frame (contract.h): the operation on the chip, the text of its arguments,
// and the library's callback for the slots' own answers.  The callbacks are weak, so that a process
// without the library links.
#include "chassis/chip/contract.h"

#include "dpm_api.h"
#include "platform/dal.h"
#include "platform/hal.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#define SLOT_ANSWER(name) extern "C" [[gnu::weak]] decltype(name) name
SLOT_ANSWER(dpm_driver_add_l3_intf_result);
SLOT_ANSWER(dpm_driver_delete_l3_intf_result);
SLOT_ANSWER(dpm_driver_interface_vrf_set_result);
SLOT_ANSWER(dpm_driver_interface_mpls_enable_result);
SLOT_ANSWER(dpm_driver_add_ip_entry_result);
SLOT_ANSWER(dpm_driver_del_ip_entry_result);
SLOT_ANSWER(dpm_driver_default_route_set_result);
SLOT_ANSWER(dpm_driver_add_ip_nexthop_result);
SLOT_ANSWER(dpm_driver_del_ip_nexthop_result);
SLOT_ANSWER(dpm_driver_add_ecmp_nexthop_result);
SLOT_ANSWER(dpm_driver_update_ecmp_nexthop_result);
SLOT_ANSWER(dpm_driver_del_ecmp_nexthop_result);
SLOT_ANSWER(dpm_driver_set_ecmp_hash_ctl_result);
#undef SLOT_ANSWER

namespace chassis::chip {

std::string text(const char *format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return line;
}

std::string address_text(std::uint32_t family, const void *address) {
    char line[INET6_ADDRSTRLEN];
    if (family != 1 && family != 2)
        return "?";
    return inet_ntop(family == 1 ? AF_INET : AF_INET6, address, line, sizeof line);
}

std::string mac_text(const std::uint8_t *mac) {
    return text("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

void Contract::hand_out(Chip &chip, std::initializer_list<std::uint32_t *> outputs) {
    for (std::uint32_t *output : outputs)
        if (output != nullptr) {
            *output = chip.new_index();
            if (!chip.null_)
                chip.others_.insert(*output);
        }
}

std::string Contract::line(const Call &call, const std::string &arguments, int result) {
    std::string_view name = call.function;
    for (const std::string_view prefix : {"dal_driver_", "hal_"})
        if (name.starts_with(prefix))
            name.remove_prefix(prefix.size());
    return text("%.*s %s slots 0x%x -> %d", int(name.size()), name.data(), arguments.c_str(),
                call.slot_bits, result);
}

// Which slots report, and what.
Done Contract::done(Chip &chip, const Call &call, int result) {
    Done done{result, {}};
    for (const unsigned slot : chip.slots_) {
        const std::uint32_t bit = 1u << (slot & 31);
        if (call.slot_bits != 0 && (call.slot_bits & bit) == 0)
            continue;
        const auto failing = chip.failing_slots_.extract({call.kind, slot});
        done.slots.push_back({bit, failing ? failing.mapped() : result});
    }
    return done;
}

namespace {

using Outcome = Chip::Outcome;

Address entry_key(std::int32_t vrf, std::uint32_t family, const void *address,
                  std::uint32_t prefix_len) {
    Address key{vrf, family, {}, prefix_len};
    if (family == 1 || family == 2)
        std::memcpy(key.bytes.data(), address, family == 1 ? 4 : 16);
    return key;
}

std::string entry_text(const Address &key, std::uint32_t index) {
    return text("vrf %d %s/%u nexthop %u", key.vrf,
                address_text(key.family, key.bytes.data()).c_str(), key.prefix_len, index);
}

std::span<const std::uint32_t> member_list(std::uint32_t count, const void *members) {
    return {static_cast<const std::uint32_t *>(members),
            std::min<std::uint32_t>(count, DAL_ECMP_MEMBER_BYTES / 4)};
}

std::string members_text(std::span<const std::uint32_t> members) {
    std::string line = "members";
    for (const std::uint32_t member : members)
        line += " " + std::to_string(member);
    return line;
}

// The rules that are settings: setting one that is set, or removing one that is not there, is
// nothing.
template <class Rules> Outcome set_rule(Rules &rules, typename Rules::key_type vlan, bool on) {
    on ? void(rules.insert(vlan)) : void(rules.erase(vlan));
    return {};
}

std::string rule_text(std::uint32_t vlan, std::uint32_t on) {
    return text("vlan %u %s", vlan, on ? "on" : "off");
}

} // namespace
} // namespace chassis::chip

using namespace chassis::chip;

// --- interfaces
// -----------------------------------------------------------------------------------------------------

int dal_driver_add_l3_intf(const uint8_t *mac, uint16_t vlan, uint32_t *id, uint32_t) {
    return Contract::perform(
               {Function::add_l3_intf, __func__, 0, vlan}, {id},
               [&](Chip &chip) { return chip.add_interface(vlan, mac, id); },
               [&] { return text("vlan %u mac %s id %u", vlan, mac_text(mac).c_str(), *id); })
        .report(dpm_driver_add_l3_intf_result, mac, vlan, id);
}

int dal_driver_delete_l3_intf(const uint8_t *mac, uint16_t vlan, uint32_t) {
    return Contract::perform(
               {Function::delete_l3_intf, __func__, 0, vlan}, {},
               [&](Chip &chip) { return chip.delete_interface(vlan); },
               [&] { return text("vlan %u mac %s", vlan, mac_text(mac).c_str()); })
        .report(dpm_driver_delete_l3_intf_result, mac, vlan);
}

// A VLAN without interface (management) takes a VRF as well.
int dal_driver_interface_vrf_set(int32_t vlan, uint16_t vrf, uint32_t slot_bits) {
    const auto set_vrf = [&](Chip &chip) {
        const auto found = chip.interfaces.find(std::uint16_t(vlan));
        if (found != chip.interfaces.end())
            found->second.vrf = vrf;
        return Outcome{};
    };
    return Contract::perform({Function::interface_vrf_set, __func__, slot_bits, {}}, {}, set_vrf,
                             [&] { return text("vlan %d vrf %u", vlan, vrf); })
        .report(dpm_driver_interface_vrf_set_result, vlan, vrf);
}

int dal_driver_interface_mpls_enable(uint16_t vlan, uint8_t enable, uint32_t slot_bits) {
    return Contract::perform(
               {Function::interface_mpls_enable, __func__, slot_bits, {}}, {},
               [&](Chip &) { return Outcome{}; },
               [&] { return text("vlan %u enable %u", vlan, enable); })
        .report(dpm_driver_interface_mpls_enable_result, vlan, enable);
}

// --- address entries
// ------------------------------------------------------------------------------------------------

int dal_driver_add_ip_entry(int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                            uint32_t nexthop_id, uint32_t slot_bits) {
    const Address key = entry_key(vrf, family, address, prefix_len);
    return Contract::perform(
               {Function::add_ip_entry, __func__, slot_bits, {}}, {},
               [&](Chip &chip) { return chip.add_entry(key, nexthop_id, is_again(slot_bits)); },
               [&] { return entry_text(key, nexthop_id); })
        .report(dpm_driver_add_ip_entry_result, vrf, family, address, prefix_len, nexthop_id);
}

int dal_driver_del_ip_entry(int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len,
                            uint32_t nexthop_id, uint32_t slot_bits) {
    const Address key = entry_key(vrf, family, address, prefix_len);
    return Contract::perform(
               {Function::del_ip_entry, __func__, slot_bits, nexthop_id}, {},
               [&](Chip &chip) { return chip.delete_entry(key, nexthop_id); },
               [&] { return entry_text(key, nexthop_id); })
        .report(dpm_driver_del_ip_entry_result, vrf, family, address, prefix_len, nexthop_id);
}

int dal_driver_default_route_set(uint32_t family, uint16_t vrf, uint32_t to_cpu, uint32_t cpu_queue,
                                 uint32_t cpu_rate, uint32_t slot_bits) {
    const auto set_default = [&](Chip &chip) { return chip.set_default(family, vrf, to_cpu == 1); };
    const auto describe = [&] {
        return text("vrf %u family %u %s queue %u rate %u", vrf, family,
                    to_cpu == 1 ? "to-cpu" : "drop", cpu_queue, cpu_rate);
    };
    return Contract::perform({Function::default_route_set, __func__, slot_bits, {}}, {},
                             set_default, describe)
        .report(dpm_driver_default_route_set_result, family, vrf, to_cpu, cpu_queue, cpu_rate);
}

// --- next hops and groups
// -------------------------------------------------------------------------------------------

int dal_driver_add_ip_nexthop(uint32_t port_type, uint32_t port_id, uint32_t *id, uint16_t svlan,
                              uint16_t cvlan, const uint8_t *mac, uint32_t slot_bits) {
    const NextHop nexthop{port_type, port_id, svlan, cvlan, mac_of(mac)};
    const auto describe = [&] {
        return text("%s %u svlan %u cvlan %u mac %s index %u", port_type == 1 ? "trunk" : "port",
                    port_id, svlan, cvlan, mac_text(mac).c_str(), *id);
    };
    return Contract::perform(
               {Function::add_ip_nexthop, __func__, slot_bits, {}}, {id},
               [&](Chip &chip) { return chip.add_nexthop(nexthop, id, is_again(slot_bits)); },
               describe)
        .report(dpm_driver_add_ip_nexthop_result, port_type, port_id, id, svlan, cvlan, mac);
}

int dal_driver_del_ip_nexthop(uint32_t id, uint32_t slot_bits) {
    return Contract::perform(
               {Function::del_ip_nexthop, __func__, slot_bits, {}}, {},
               [&](Chip &chip) { return chip.delete_nexthop(id); },
               [&] { return text("index %u", id); })
        .report(dpm_driver_del_ip_nexthop_result, id);
}

int dal_driver_add_ecmp_nexthop(int32_t *group, uint32_t operation, uint32_t count,
                                const void *members, uint32_t slot_bits) {
    const std::span list = member_list(count, members);
    return Contract::perform(
               {Function::add_ecmp_nexthop, __func__, slot_bits, {}},
               {reinterpret_cast<std::uint32_t *>(group)},
               [&](Chip &chip) {
                   return chip.add_group(group, {list.begin(), list.end()}, is_again(slot_bits));
               },
               [&] { return text("%s group %d", members_text(list).c_str(), *group); })
        .report(dpm_driver_add_ecmp_nexthop_result, group, operation, count, members);
}

int dal_driver_update_ecmp_nexthop(int32_t group, uint32_t operation, uint32_t count,
                                   const void *members, uint32_t slot_bits) {
    const std::span list = member_list(count, members);
    const auto update = [&](Chip &chip) {
        if (operation != 1 && operation != 2)
            return Outcome{-1, "no such operation"};
        return chip.update_group(group, operation == 1, {list.begin(), list.end()},
                                 is_again(slot_bits));
    };
    const auto describe = [&] {
        return text("group %d %s %s", group, operation == 1 ? "add" : "remove",
                    members_text(list).c_str());
    };
    const auto forgiven = list.empty() ? std::nullopt : std::optional(list.front());
    return Contract::perform({Function::update_ecmp_nexthop, __func__, slot_bits, forgiven}, {},
                             update, describe)
        .report(dpm_driver_update_ecmp_nexthop_result, group, operation, count, members);
}

int dal_driver_del_ecmp_nexthop(int32_t group, uint32_t slot_bits) {
    return Contract::perform(
               {Function::del_ecmp_nexthop, __func__, slot_bits, {}}, {},
               [&](Chip &chip) { return chip.delete_group(group); },
               [&] { return text("group %d", group); })
        .report(dpm_driver_del_ecmp_nexthop_result, group);
}

int dal_driver_set_ecmp_hash_ctl(uint32_t hash_mode, uint32_t slot_bits) {
    const auto set_mode = [&](Chip &chip) { return chip.set_hash(hash_mode); };
    return Contract::perform({Function::set_ecmp_hash_ctl, __func__, slot_bits, {}}, {}, set_mode,
                             [&] { return text("mode %u", hash_mode); })
        .report(dpm_driver_set_ecmp_hash_ctl_result, hash_mode);
}

// --- rules that trap packets to the CPU
// -----------------------------------------------------------------------------

int hal_set_arp_to_cpu(uint16_t vlan, uint32_t, uint32_t on) {
    return Contract::perform(
               {Function::set_arp_to_cpu, __func__, 0, vlan}, {},
               [&](Chip &chip) { return chip.set_arp_rule(vlan, on == 1); },
               [&] { return rule_text(vlan, on); })
        .result;
}

int hal_set_ospf_to_cpu_ex(uint32_t vlan, uint32_t on) {
    return Contract::perform(
               {Function::set_ospf_to_cpu, __func__, 0, {}}, {},
               [&](Chip &chip) { return set_rule(chip.ospf_rules, vlan, on == 1); },
               [&] { return rule_text(vlan, on); })
        .result;
}

int hal_set_ipv6_ns_rule(uint32_t on, uint16_t vlan, const hal_mac_match *match) {
    const auto describe = [&] {
        return rule_text(vlan, on) + text(" match 0x%04x/0x%04x", match->value, match->mask);
    };
    return Contract::perform(
               {Function::set_ipv6_ns_rule, __func__, 0, {}}, {},
               [&](Chip &chip) { return set_rule(chip.nd_rules, vlan, on == 1); }, describe)
        .result;
}
