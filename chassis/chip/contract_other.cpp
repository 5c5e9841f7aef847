// The contract functions of what the model does not keep yet: pseudowires.
//
// They are accepted, stand in the journal, and hand out indexes that entries and groups may name.
#include "chassis/chip/contract.h"

using namespace chassis::chip;

// --- point-to-point pseudowires --------------------------------------------------------------

int dal_driver_vpws_entry_add(const void *ac, const void *pw, uint32_t *ac_nhid, uint32_t *pw_nhid,
                              uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return answer<Function::vpws_entry_add>(
        Accepted({{"ac", ac_nhid}, {"pw", pw_nhid}, {"aps", aps_id}}), ac, pw, ac_nhid, pw_nhid,
        aps_id, value, slot_bits);
}

int dal_driver_vpws_entry_del(const void *request, uint32_t value, uint32_t slot_bits) {
    return answer<Function::vpws_entry_del>(Accepted(), request, value, slot_bits);
}

int dal_driver_vpws_entry_update(const void *ac, const void *pw, uint32_t *pw_nhid,
                                 uint32_t *aps_id, uint32_t value, uint32_t slot_bits) {
    return answer<Function::vpws_entry_update>(Accepted({{"pw", pw_nhid}, {"aps", aps_id}}), ac, pw,
                                               pw_nhid, aps_id, value, slot_bits);
}

int dal_driver_vpws_entry_add_test(const void *ac, const void *pw, uint32_t *ac_nhid,
                                   uint32_t *pw_nhid, uint32_t *aps_id, uint32_t value,
                                   const uint16_t *vlans, uint32_t vlan_count, uint32_t slot_bits) {
    return answer<Function::vpws_entry_add_test>(
        Accepted({{"ac", ac_nhid}, {"pw", pw_nhid}, {"aps", aps_id}, {"vlans", vlan_count}}), ac,
        pw, ac_nhid, pw_nhid, aps_id, value, vlans, vlan_count, slot_bits);
}

int dal_driver_vpws_entry_del_test(const void *request, uint32_t value, const uint16_t *vlans,
                                   uint32_t vlan_count, uint32_t slot_bits) {
    return answer<Function::vpws_entry_del_test>(Accepted({{"vlans", vlan_count}}), request, value,
                                                 vlans, vlan_count, slot_bits);
}

int dal_driver_pw_group_switch(uint32_t group, uint32_t protect, uint32_t slot_bits) {
    return answer<Function::pw_group_switch>(Accepted({{"group", group}, {"protect", protect}}),
                                             group, protect, slot_bits);
}

// --- multipoint pseudowires ------------------------------------------------------------------

int dal_driver_vpls_add(uint16_t vpls_id, uint32_t fid, uint32_t slot_bits) {
    return answer<Function::vpls_add>(Accepted({{"vpls", vpls_id}, {"fid", fid}}), vpls_id, fid,
                                      slot_bits);
}

int dal_driver_vpls_del(uint16_t vpls_id, uint32_t slot_bits) {
    return answer<Function::vpls_del>(Accepted({{"vpls", vpls_id}}), vpls_id, slot_bits);
}

int dal_driver_vpls_ac_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return answer<Function::vpls_ac_entry_add>(Accepted({{"nhid", nhid}, {"port", logic_port}}),
                                               request, nhid, logic_port, slot_bits);
}

int dal_driver_vpls_ac_entry_del(const void *request, uint32_t slot_bits) {
    return answer<Function::vpls_ac_entry_del>(Accepted(), request, slot_bits);
}

int dal_driver_vpls_pw_entry_add(const void *request, uint32_t *nhid, uint32_t *logic_port,
                                 uint32_t slot_bits) {
    return answer<Function::vpls_pw_entry_add>(Accepted({{"nhid", nhid}, {"port", logic_port}}),
                                               request, nhid, logic_port, slot_bits);
}

int dal_driver_vpls_pw_entry_del(const void *request, uint32_t slot_bits) {
    return answer<Function::vpls_pw_entry_del>(Accepted(), request, slot_bits);
}
