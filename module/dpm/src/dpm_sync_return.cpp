// What the chip driver reports back, slot by slot.
//
// The driver calls one of these for each slot that a request reached, with the request's own
// arguments.  Success is silent; a failure is logged with the request's key fields, so that the
// slot which failed to program an entry can be found.  Nothing is kept.  They run on whatever
// thread the driver reports from and take no lock.
//
// Also here: the chip's logical port behind an interface.
#include "dpm_api.h"

#include "dpm_driver.h"
#include "dpm_trace.h"
#include "platform/nsm.h"
#include "platform/uv.h"

using std::int32_t;
using std::uint16_t;
using std::uint32_t;
using std::uint8_t;

namespace {

enum : uint32_t { ecmp_op_create = 0, ecmp_op_add = 1 };

const char *family_word(uint32_t family) {
    return family == DPM_FAMILY_IPV4 ? "ipv4" : "ipv6";
}

const char *ecmp_operation_word(uint32_t operation) {
    return operation == ecmp_op_create ? "create" : operation == ecmp_op_add ? "add" : "remove";
}

const char *enable_word(uint32_t enable) {
    return enable != 0 ? "enable" : "disable";
}

// An index behind a pointer of the request.
int32_t read(const void *index) {
    return index != nullptr ? *static_cast<const int32_t *>(index) : 0;
}

// The bytes behind a pointer of the request; zeros for none, so that the line is not lost.
const uint8_t *bytes_of(const void *bytes) {
    static constexpr uint8_t none[16] = {};
    return bytes != nullptr ? static_cast<const uint8_t *>(bytes) : none;
}

void detail_mac(const uint8_t *request_mac) {
    const uint8_t *mac = bytes_of(request_mac);
    DPM_PLAIN("\t mac %02x-%02x-%02x-%02x-%02x-%02x \n\r", mac[0], mac[1], mac[2], mac[3], mac[4],
              mac[5]);
}

void detail_vlan_mac(uint32_t vlan, const uint8_t *request_mac) {
    const uint8_t *mac = bytes_of(request_mac);
    DPM_PLAIN("\t vid %d mac %02x-%02x-%02x-%02x-%02x-%02x \n\r", vlan, mac[0], mac[1], mac[2],
              mac[3], mac[4], mac[5]);
}

void detail_address(uint32_t family, const void *address, uint32_t prefix_len) {
    const uint8_t *ip = bytes_of(address);
    if (family == DPM_FAMILY_IPV4)
        DPM_PLAIN("\t ip %x.%x.%x.%x mask_len %d \n\r", ip[0], ip[1], ip[2], ip[3], prefix_len);
    else if (family == DPM_FAMILY_IPV6)
        DPM_PLAIN("\t ip %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x mask_len %d \n\r", ip[0],
                  ip[1], ip[2], ip[3], ip[4], ip[5], ip[6], ip[7], ip[8], ip[9], ip[10], ip[11],
                  ip[12], ip[13], ip[14], ip[15], prefix_len);
}

void detail_entry(int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len) {
    DPM_PLAIN("\t vrf_id %d ip_type %s \n\r", vrf, family_word(family));
    detail_address(family, address, prefix_len);
}

// Values are cut here to the widths of the requests, whatever the driver leaves in the upper bits.
constexpr uint32_t low16(uint32_t value) {
    return value & 0xFFFF;
}
constexpr uint32_t low8(uint32_t value) {
    return value & 0xFF;
}

constexpr uint32_t registry_name_bytes = 128;

} // namespace

// One callback: its name, its parameters (with obj_bit and result last), and the lines behind the
// first.
#define RESULT(name, parameters, ...)                                                              \
    int name parameters {                                                                          \
        if (result != 0) {                                                                         \
            DPM_PLAIN(#name " obj_bit %d result %d \n\r", obj_bit, result);                        \
            __VA_ARGS__;                                                                           \
        }                                                                                          \
        return 0;                                                                                  \
    }

RESULT(dpm_driver_add_ip_nexthop_result,
       (uint32_t port_type, uint32_t port_id, const uint32_t *, uint32_t svlan, uint32_t cvlan,
        const uint8_t *mac, uint32_t obj_bit, int result),
       DPM_PLAIN("\t port_type %d port_tgid %d vid %d ivid %d\n\r", port_type, port_id,
                 low16(svlan), low16(cvlan)),
       detail_mac(mac))

RESULT(dpm_driver_del_ip_nexthop_result, (uint32_t, uint32_t obj_bit, int result), )

RESULT(dpm_driver_update_ip_nexthop_result,
       (uint32_t port_type, uint32_t port_id, const uint32_t *, uint32_t svlan, uint32_t cvlan,
        const uint8_t *mac, uint32_t obj_bit, int result),
       DPM_PLAIN("\t port_type %d port_tgid %d vid %d ivid %d \n\r", port_type, port_id,
                 low16(svlan), low16(cvlan)),
       detail_mac(mac))

RESULT(dpm_driver_add_ip_entry_result,
       (int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len, uint32_t,
        uint32_t obj_bit, int result),
       detail_entry(vrf, family, address, prefix_len))

RESULT(dpm_driver_del_ip_entry_result,
       (int32_t vrf, uint32_t family, const void *address, uint32_t prefix_len, uint32_t,
        uint32_t obj_bit, int result),
       detail_entry(vrf, family, address, prefix_len))

RESULT(dpm_driver_add_ecmp_nexthop_result,
       (const int32_t *, uint32_t, uint32_t, const void *, uint32_t obj_bit, int result), )

RESULT(dpm_driver_del_ecmp_nexthop_result, (int32_t, uint32_t obj_bit, int result), )

RESULT(dpm_driver_update_ecmp_nexthop_result,
       (int32_t, uint32_t operation, uint32_t, const void *, uint32_t obj_bit, int result),
       DPM_PLAIN("\t op_type %s \n\r", ecmp_operation_word(operation)))

RESULT(dpm_driver_add_l3_intf_result,
       (const uint8_t *mac, uint32_t vlan, const uint32_t *id, uint32_t obj_bit, int result),
       DPM_PLAIN("\t vid %d ifid %d \n\r", low16(vlan), read(id)), detail_mac(mac))

RESULT(dpm_driver_delete_l3_intf_result,
       (const uint8_t *mac, uint32_t vlan, uint32_t obj_bit, int result),
       detail_vlan_mac(low16(vlan), mac))

RESULT(dpm_driver_interface_vrf_set_result,
       (int32_t vlan, uint32_t vrf, uint32_t obj_bit, int result),
       DPM_PLAIN("\t vrf_id %d vid %d \n\r", low16(vrf), vlan))

RESULT(dpm_driver_interface_ipmc_enable_result,
       (uint32_t vlan, uint32_t type, uint32_t enable, uint32_t obj_bit, int result),
       DPM_PLAIN("\t vid %d type %d enable %d \n\r", low16(vlan), type, enable))

RESULT(dpm_driver_default_route_set_result,
       (uint32_t family, uint32_t vrf, uint32_t to_cpu, uint32_t, uint32_t, uint32_t obj_bit,
        int result),
       DPM_PLAIN("\t vrf_id %d ip_type %d state %d \n\r", low16(vrf), family, to_cpu))

RESULT(dpm_driver_mpls_ftn_add_result,
       (const void *, const uint32_t *nhid, const uint32_t *tunnel_id, uint32_t obj_bit,
        int result),
       DPM_PLAIN("\t nhid %d tunnel_id %d \n\r", read(nhid), read(tunnel_id)))

RESULT(dpm_driver_mpls_ftn_del_result, (const void *, uint32_t obj_bit, int result), )

RESULT(dpm_driver_mpls_ilm_add_result,
       (const void *, const uint32_t *nhid, const uint32_t *tunnel_id, uint32_t obj_bit,
        int result),
       DPM_PLAIN("\t nhid %d tunnel_id %d \n\r", read(nhid), read(tunnel_id)))

RESULT(dpm_driver_mpls_ilm_del_result, (const void *, uint32_t obj_bit, int result), )

RESULT(dpm_driver_vpls_add_result,
       (uint32_t vpls_id, uint32_t fid, uint32_t obj_bit, int result),
       DPM_PLAIN("\t vpls_id %d fid %d \n\r", low16(vpls_id), fid))

RESULT(dpm_driver_vpls_del_result, (uint32_t, uint32_t obj_bit, int result), )

RESULT(dpm_driver_vpls_ac_entry_add_result,
       (const void *, const uint32_t *nhid, const uint32_t *logic_port, uint32_t obj_bit,
        int result),
       DPM_PLAIN("\t nhid %d logic_port %d \n\r", read(nhid), read(logic_port)))

RESULT(dpm_driver_vpls_ac_entry_del_result, (const void *, uint32_t obj_bit, int result), )

RESULT(dpm_driver_vpls_pw_entry_add_result,
       (const void *, const uint32_t *nhid, const uint32_t *logic_port, uint32_t obj_bit,
        int result),
       DPM_PLAIN("\t nhid %d logic_port %d \n\r", read(nhid), read(logic_port)))

RESULT(dpm_driver_vpls_pw_entry_del_result, (const void *, uint32_t obj_bit, int result), )

RESULT(dpm_driver_vpws_entry_add_result,
       (const void *, const void *, const uint32_t *ac_nhid, const uint32_t *pw_nhid,
        const uint32_t *aps_id, uint32_t, uint32_t obj_bit, int result),
       DPM_PLAIN("\t ac_nhid %d pw_nhid %d aps_id %d \n\r", read(ac_nhid), read(pw_nhid),
                 read(aps_id)))

RESULT(dpm_driver_vpws_entry_del_result, (const void *, uint32_t, uint32_t obj_bit, int result), )

RESULT(dpm_driver_vpws_entry_add_result_test,
       (const void *, const void *, const uint32_t *ac_nhid, const uint32_t *pw_nhid,
        const uint32_t *aps_id, uint32_t, const uint16_t *, uint32_t, uint32_t obj_bit, int result),
       DPM_PLAIN("\t ac_nhid %d pw_nhid %d aps_id %d \n\r", read(ac_nhid), read(pw_nhid),
                 read(aps_id)))

RESULT(dpm_driver_vpws_entry_del_result_test,
       (const void *, uint32_t, const uint16_t *, uint32_t, uint32_t obj_bit, int result), )

RESULT(dpm_driver_vpws_entry_update_result,
       (const void *, const void *, const uint32_t *pw_nhid, const uint32_t *aps_id, uint32_t,
        uint32_t obj_bit, int result),
       DPM_PLAIN("\t pw_nhid %d aps_id %d \n\r", read(pw_nhid), read(aps_id)))

RESULT(dpm_driver_interface_mpls_enable_result,
       (uint32_t vlan, uint32_t enable, uint32_t obj_bit, int result),
       DPM_PLAIN("\t vid %d enable %s \n\r", low16(vlan), enable_word(low8(enable))))

RESULT(dpm_driver_pw_group_switch_result,
       (uint32_t group, uint32_t protect, uint32_t obj_bit, int result),
       DPM_PLAIN("\t pw_id %d protect_en %s \n\r", group, enable_word(protect)))

RESULT(dpm_driver_port_scl_key_type_set_result,
       (uint32_t port_type, uint32_t port, uint32_t subport, uint32_t direction, uint32_t key_type,
        uint32_t obj_bit, int result),
       DPM_PLAIN("\t port_type %d port %d subport %d direction %d key_type %d\n\r", port_type,
                 low16(port), low16(subport), low8(direction), low8(key_type)))

// The members whose one line differs from the family's.

int dpm_driver_set_ecmp_hash_ctl_result(uint32_t hash_mode, uint32_t obj_bit, int result) {
    if (result != 0)
        DPM_PLAIN("dpm_driver_set_ecmp_hash_ctl_result psc %d obj_bit %d result %d \n\r", hash_mode,
                  obj_bit, result);
    return 0;
}

// clang-format off
#define GRE_TUNNEL_RESULT(name)                                                                    \
    int name(uint32_t vrf, const uint8_t *source, const uint8_t *destination, uint32_t key,        \
             uint32_t checksum, uint32_t obj_bit, int result)                                      \
    {                                                                                              \
        const uint8_t *sip = bytes_of(source), *dip = bytes_of(destination);                       \
        if (result != 0)                                                                           \
            DPM_TRACE("%s %d:: vrf %d sip %x.%x.%x.%x dip %x.%x.%x.%x key %d checksum %d obj_bit %x result %d\r\n", \
                      vrf, sip[0], sip[1], sip[2], sip[3], dip[0], dip[1], dip[2], dip[3], key,    \
                      checksum, obj_bit, result);                                                  \
        return 0;                                                                                  \
    }
#define GRE_NEXTHOP_RESULT(name)                                                                   \
    int name(uint32_t port_type, uint32_t port_id, const uint8_t *request_mac, uint32_t vid,       \
             uint32_t ivid, uint32_t vrf, const uint8_t *source, const uint8_t *destination,       \
             uint32_t key, uint32_t checksum, const uint32_t *id, uint32_t obj_bit, int result)    \
    {                                                                                              \
        const uint8_t *mac = bytes_of(request_mac);                                                \
        const uint8_t *sip = bytes_of(source), *dip = bytes_of(destination);                       \
        if (result != 0)                                                                           \
            DPM_TRACE("%s %d:: porttype %d port_tgid %d mac %x-%x-%x-%x-%x-%x vid %d ivid %d vrf %d sip %x.%x.%x.%x dip %x.%x.%x.%x key %d checksum %d sdk_index %d obj_bit %x result %d\r\n", \
                      port_type, port_id, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5], vid,     \
                      ivid, vrf, sip[0], sip[1], sip[2], sip[3], dip[0], dip[1], dip[2], dip[3],   \
                      key, checksum, read(id), obj_bit, result);                                   \
        return 0;                                                                                  \
    }
// clang-format on

GRE_TUNNEL_RESULT(dpm_driver_add_gre_tunnel_result)
GRE_TUNNEL_RESULT(dpm_driver_del_gre_tunnel_result)
GRE_NEXTHOP_RESULT(dpm_driver_add_gre_nexthop_result)
GRE_NEXTHOP_RESULT(dpm_driver_update_gre_nexthop_result)

int dpm_driver_del_gre_nexthop_result(uint32_t id, uint32_t obj_bit, int result) {
    if (result != 0)
        DPM_TRACE("%s %d:: sdk_index %d obj_bit %x result %d\r\n", id, obj_bit, result);
    return 0;
}

int dpm_driver_ifindex_to_logical(uint32_t ifindex, uint32_t *logical_port, int *vlan) {
    char name[registry_name_bytes] = {};
    if (nsm_ifp_get_ifnamebyindex(ifindex, name) != 0)
        return -1;
    *vlan = nsm_get_vlanid_by_ifname(name);
    if (*vlan < 0)
        return -1;
    *logical_port = 0;
    uv_vlan_port first = {};
    uv_lock_outside();
    if (uv_get_fst_vlan_port_cfg(static_cast<uint32_t>(*vlan), &first) == 0)
        *logical_port = first.logical_port;
    uv_unlock_outside();
    return *logical_port == 0 ? -1 : 0;
}
