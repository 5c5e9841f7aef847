// The contract functions of what the model does not keep yet: labels, pseudowires, port fields,
// GRE.
//
// They are accepted, stand in the journal, and hand out indexes that entries and groups may name.
#include "chassis/chip/contract.h"

#include "dpm_api.h"
#include "platform/dal.h"

#define SLOT_ANSWER(name) extern "C" [[gnu::weak]] decltype(name) name
SLOT_ANSWER(dpm_driver_mpls_ftn_add_result);
SLOT_ANSWER(dpm_driver_mpls_ftn_del_result);
SLOT_ANSWER(dpm_driver_mpls_ilm_add_result);
SLOT_ANSWER(dpm_driver_mpls_ilm_del_result);
SLOT_ANSWER(dpm_driver_vpws_entry_add_result);
SLOT_ANSWER(dpm_driver_vpws_entry_del_result);
SLOT_ANSWER(dpm_driver_vpws_entry_update_result);
SLOT_ANSWER(dpm_driver_vpws_entry_add_result_test);
SLOT_ANSWER(dpm_driver_vpws_entry_del_result_test);
SLOT_ANSWER(dpm_driver_pw_group_switch_result);
SLOT_ANSWER(dpm_driver_vpls_add_result);
SLOT_ANSWER(dpm_driver_vpls_del_result);
SLOT_ANSWER(dpm_driver_vpls_ac_entry_add_result);
SLOT_ANSWER(dpm_driver_vpls_ac_entry_del_result);
SLOT_ANSWER(dpm_driver_vpls_pw_entry_add_result);
SLOT_ANSWER(dpm_driver_vpls_pw_entry_del_result);
SLOT_ANSWER(dpm_driver_port_scl_key_type_set_result);
SLOT_ANSWER(dpm_driver_add_gre_tunnel_result);
SLOT_ANSWER(dpm_driver_del_gre_tunnel_result);
SLOT_ANSWER(dpm_driver_add_gre_nexthop_result);
SLOT_ANSWER(dpm_driver_update_gre_nexthop_result);
SLOT_ANSWER(dpm_driver_del_gre_nexthop_result);
#undef SLOT_ANSWER

using namespace chassis::chip;

namespace {

// The outputs of a request, by name.
std::string outputs_text(std::initializer_list<std::pair<const char *, const uint32_t *>> outputs) {
    std::string line = "request";
    for (const auto &[name, value] : outputs)
        line += text(" %s %d", name, value != nullptr ? int(*value) : -1);
    return line;
}

std::string tunnel_text(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                        uint32_t key, uint32_t checksum) {
    return text("vrf %u source %s destination %s key %u checksum %u", vrf,
                address_text(1, source).c_str(), address_text(1, destination).c_str(), key,
                checksum);
}

std::string request_only() {
    return "request";
}

} // namespace

// --- labels
// ---------------------------------------------------------------------------------------------------------

int dal_driver_mpls_ftn_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {nhid, tunnel_id},
                            [&] {
                                return outputs_text({{"nhid", nhid}, {"tunnel", tunnel_id}});
                            })
        .report(dpm_driver_mpls_ftn_add_result, request, nhid, tunnel_id);
}

int dal_driver_mpls_ftn_del(const void *request, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {}, request_only)
        .report(dpm_driver_mpls_ftn_del_result, request);
}

int dal_driver_mpls_ilm_add(const void *request, uint32_t *nhid, uint32_t *tunnel_id,
                            uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {nhid, tunnel_id},
                            [&] {
                                return outputs_text({{"nhid", nhid}, {"tunnel", tunnel_id}});
                            })
        .report(dpm_driver_mpls_ilm_add_result, request, nhid, tunnel_id);
}

int dal_driver_mpls_ilm_del(const void *request, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {}, request_only)
        .report(dpm_driver_mpls_ilm_del_result, request);
}

// --- point-to-point pseudowires
// -------------------------------------------------------------------------------------

int dal_driver_vpws_entry_add(const void *ac, const void *pw, uint32_t *ac_nhid, uint32_t *pw_nhid,
                              uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return Contract::accept(
               __func__, slot_bits, {ac_nhid, pw_nhid, aps_id},
               [&] {
                   return outputs_text({{"ac", ac_nhid}, {"pw", pw_nhid}, {"aps", aps_id}});
               })
        .report(dpm_driver_vpws_entry_add_result, ac, pw, ac_nhid, pw_nhid, aps_id, value);
}

int dal_driver_vpws_entry_del(const void *request, uint32_t value, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {}, request_only)
        .report(dpm_driver_vpws_entry_del_result, request, value);
}

int dal_driver_vpws_entry_update(const void *ac, const void *pw, uint32_t *pw_nhid,
                                 uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {pw_nhid, aps_id},
                            [&] {
                                return outputs_text({{"pw", pw_nhid}, {"aps", aps_id}});
                            })
        .report(dpm_driver_vpws_entry_update_result, ac, pw, pw_nhid, aps_id, value);
}

int dal_driver_vpws_entry_add_test(const void *ac, const void *pw, uint32_t *ac_nhid,
                                   uint32_t *pw_nhid, uint32_t *aps_id, uint32_t value,
                                   const uint16_t *vlans, uint32_t vlan_count, uint32_t slot_bits) {
    const auto describe = [&] {
        return outputs_text({{"ac", ac_nhid}, {"pw", pw_nhid}, {"aps", aps_id}}) +
               text(" vlans %u", vlan_count);
    };
    return Contract::accept(__func__, slot_bits, {ac_nhid, pw_nhid, aps_id}, describe)
        .report(dpm_driver_vpws_entry_add_result_test, ac, pw, ac_nhid, pw_nhid, aps_id, value,
                vlans, vlan_count);
}

int dal_driver_vpws_entry_del_test(const void *request, uint32_t value, const uint16_t *vlans,
                                   uint32_t vlan_count, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {},
                            [&] { return text("request vlans %u", vlan_count); })
        .report(dpm_driver_vpws_entry_del_result_test, request, value, vlans, vlan_count);
}

int dal_driver_pw_group_switch(uint32_t group, uint32_t protect, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {},
                            [&] { return text("group %u protect %u", group, protect); })
        .report(dpm_driver_pw_group_switch_result, group, protect);
}

// --- multipoint pseudowires
// -----------------------------------------------------------------------------------------

int dal_driver_vpls_add(uint16_t vpls_id, uint32_t *fid, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {fid},
                            [&] { return text("vpls %u fid %u", vpls_id, *fid); })
        .report(dpm_driver_vpls_add_result, vpls_id, fid);
}

int dal_driver_vpls_del(uint16_t vpls_id, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {}, [&] { return text("vpls %u", vpls_id); })
        .report(dpm_driver_vpls_del_result, vpls_id);
}

int dal_driver_vpls_ac_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {nhid, logic_port},
                            [&] {
                                return outputs_text({{"nhid", nhid}, {"port", logic_port}});
                            })
        .report(dpm_driver_vpls_ac_entry_add_result, request, nhid, logic_port);
}

int dal_driver_vpls_ac_entry_del(const void *request, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {}, request_only)
        .report(dpm_driver_vpls_ac_entry_del_result, request);
}

int dal_driver_vpls_pw_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {nhid, logic_port},
                            [&] {
                                return outputs_text({{"nhid", nhid}, {"port", logic_port}});
                            })
        .report(dpm_driver_vpls_pw_entry_add_result, request, nhid, logic_port);
}

int dal_driver_vpls_pw_entry_del(const void *request, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {}, request_only)
        .report(dpm_driver_vpls_pw_entry_del_result, request);
}

int dal_driver_port_scl_key_type_set(uint32_t port_type, uint16_t port, uint16_t subport,
                                     uint8_t direction, uint8_t key_type, uint32_t slot_bits) {
    const auto describe = [&] {
        return text("type %u port %u subport %u direction %u key %u", port_type, port, subport,
                    direction, key_type);
    };
    return Contract::accept(__func__, slot_bits, {}, describe)
        .report(dpm_driver_port_scl_key_type_set_result, port_type, port, subport, direction,
                key_type);
}

// --- GRE
// ------------------------------------------------------------------------------------------------------------

int dal_driver_add_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key, uint32_t checksum, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {},
                            [&] { return tunnel_text(vrf, source, destination, key, checksum); })
        .report(dpm_driver_add_gre_tunnel_result, vrf, source, destination, key, checksum);
}

int dal_driver_del_gre_tunnel(uint32_t vrf, const uint8_t *source, const uint8_t *destination,
                              uint32_t key, uint32_t checksum, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {},
                            [&] { return tunnel_text(vrf, source, destination, key, checksum); })
        .report(dpm_driver_del_gre_tunnel_result, vrf, source, destination, key, checksum);
}

int dal_driver_add_gre_nexthop(uint32_t port_type, uint32_t port_id, const uint8_t *mac,
                               uint32_t vid, uint32_t ivid, uint32_t vrf, const uint8_t *source,
                               const uint8_t *destination, uint32_t key, uint32_t checksum,
                               uint32_t *id, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {id},
                            [&] {
                                return tunnel_text(vrf, source, destination, key, checksum) +
                                       text(" index %u", *id);
                            })
        .report(dpm_driver_add_gre_nexthop_result, port_type, port_id, mac, vid, ivid, vrf, source,
                destination, key, checksum, id);
}

// The next hop keeps its index.
int dal_driver_update_gre_nexthop(uint32_t port_type, uint32_t port_id, const uint8_t *mac,
                                  uint32_t vid, uint32_t ivid, uint32_t vrf, const uint8_t *source,
                                  const uint8_t *destination, uint32_t key, uint32_t checksum,
                                  uint32_t *id, uint32_t slot_bits) {
    return Contract::accept(__func__, slot_bits, {},
                            [&] {
                                return tunnel_text(vrf, source, destination, key, checksum) +
                                       text(" index %u", *id);
                            })
        .report(dpm_driver_update_gre_nexthop_result, port_type, port_id, mac, vid, ivid, vrf,
                source, destination, key, checksum, id);
}

int dal_driver_del_gre_nexthop(uint32_t id, uint32_t slot_bits) {
    return Contract::perform(
               {Function::other, __func__, slot_bits, {}}, {},
               [&](Chip &chip) { return chip.delete_other(id); },
               [&] { return text("index %u", id); })
        .report(dpm_driver_del_gre_nexthop_result, id);
}
