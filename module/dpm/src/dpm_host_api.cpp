// Neighbour reports of the routing suite and the IP stack, and diagnostics.
//
// Everything here runs on its caller's thread and only builds and posts.
#include "dpm_host.h"

#include "dpm_locks.h"
#include "dpm_msg.h"
#include "dpm_state.h"
#include "dpm_trace.h"

// 1 while an IPv6 conformance test runs: then reports and routes are dropped with success.
DPM_STATE std::uint32_t ipv6_ready_test_switch;

namespace {

constexpr std::uint8_t test_mac[DPM_MAC_BYTES] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05};

bool is_test_running() {
    return dpm_get_ipv6_ready_test_switch_state() == 1;
}

constexpr dpm::oper_codes host_codes = {DPM_MSG_ADD_HOST, DPM_MSG_DEL_HOST};

// What every report looks at first; false when the call ends with `result`.
bool may_report(const void *record, const dpm::call_site &caller, int &result) {
    if (is_test_running()) {
        result = 0;
        return false;
    }
    if (record == nullptr) {
        result = dpm::null_parameter(caller.function, caller.line);
        return false;
    }
    return true;
}

void fill_ports(dpm_host_msg &body, const auto &record) {
    std::memcpy(body.mac, record.mac, sizeof body.mac);
    body.svlan = record.svlan;
    body.cvlan = record.cvlan;
    body.supervlan = record.supervlan;
    body.port_type = record.port_type;
    body.log_port_id = record.log_port_id;
    body.phy_port_id = record.phy_port_id;
}

void fill_body(dpm_host_msg &body, const dpm_host_info &info) {
    body.vrf = info.vrf;
    body.ifindex = info.ifindex;
    body.ip = dpm::host_prefix(info.family, info.address);
    fill_ports(body, info);
}

int post_test_host(std::uint32_t code, std::uint32_t address, std::uint32_t ifindex,
                   std::uint32_t svlan, std::uint32_t port_type, std::uint32_t log_port_id,
                   std::uint32_t phy_port_id, const dpm::send_error &error) {
    dpm::request<dpm_host_msg> body;
    if (!body)
        return -1;
    body->ifindex = ifindex;
    body->ip = dpm::host_prefix(DPM_FAMILY_IPV4, &address);
    std::memcpy(body->mac, test_mac, sizeof body->mac);
    body->svlan = svlan;
    body->port_type = port_type;
    body->log_port_id = log_port_id;
    body->phy_port_id = phy_port_id;
    return body.post(code, error);
}

// What the lines about a report tell of its body, in their order.
#define REPORT_FIELDS(body)                                                                        \
    (body)->vrf, dpm::address_text((body)->ip).c_str(), (body)->mac[0], (body)->mac[1],            \
        (body)->mac[2], (body)->mac[3], (body)->mac[4], (body)->mac[5], (body)->ifindex,           \
        (body)->log_port_id, (body)->phy_port_id, (body)->port_type, (body)->cvlan, (body)->svlan, \
        (body)->supervlan

} // namespace

int dpm_api_host_pro(const dpm_host_info *info, std::uint32_t oper) {
    int result;
    if (!may_report(info, DPM_CALL_SITE, result))
        return result;
    if (!dpm::is_known_oper(oper, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_host_msg> body;
    if (!body)
        return -1;
    if (!dpm::is_iptype(info->family, DPM_CALL_SITE))
        return -1;
    fill_body(*body, *info);
    DPM_TRACE(
        "%s %d::host_msg vrf %d ip %s mac %x.%x.%x.%x.%x.%x ifindex %d port %d/0x%x port_type %d \t\tcvlan %d svlan %d supervlan %d \r\n",
        REPORT_FIELDS(body));
    return body.post(host_codes.of(oper), DPM_SEND_ERROR("%s %d::send msg is err!\r\n"));
}

int dpm_api_notify_ipstack_host(const dpm_host_info *info) {
    int result;
    if (!may_report(info, DPM_CALL_SITE, result))
        return result;
    if (!dpm::is_known_oper(info->oper, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_host_msg> body;
    if (!body)
        return -1;
    if (!dpm::is_known_family(info->family)) {
        DPM_TRACE("%s %d::iptype %d is err!\r\n", info->family);
        return -1;
    }
    fill_body(*body, *info);
    DPM_TRACE(
        "%s %d::oper %d host_msg vrf %d ip %s mac %x.%x.%x.%x.%x.%x ifindex %d port %d/0x%x \t\t port_type %d cvlan %d svlan %d supervlan %d \r\n",
        info->oper, REPORT_FIELDS(body));
    return body.post(host_codes.of(info->oper), DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_host_msg_send(const dpm_host_entry *entry, std::uint32_t oper) {
    int result;
    if (!may_report(entry, DPM_CALL_SITE, result))
        return result;
    if (!dpm::is_known_oper(oper, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_host_msg> body;
    if (!body)
        return -1;
    if (!dpm::is_iptype(entry->ip.family, DPM_CALL_SITE))
        return -1;
    body->vrf = entry->vrf;
    body->ifindex = entry->ifindex;
    body->ip = dpm::host_prefix(entry->ip.family, entry->ip.address);
    fill_ports(*body, *entry);
    return body.post(host_codes.of(oper), DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_host_test_add(std::uint32_t address, std::uint32_t ifindex, std::uint32_t svlan,
                      std::uint32_t port_type, std::uint32_t log_port_id,
                      std::uint32_t phy_port_id) {
    return post_test_host(DPM_MSG_ADD_HOST, address, ifindex, svlan, port_type, log_port_id,
                          phy_port_id, DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_host_test_del(std::uint32_t address, std::uint32_t ifindex, std::uint32_t svlan,
                      std::uint32_t port_type, std::uint32_t log_port_id,
                      std::uint32_t phy_port_id) {
    return post_test_host(DPM_MSG_DEL_HOST, address, ifindex, svlan, port_type, log_port_id,
                          phy_port_id, DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_ipv6_ready_test_switch_open() {
    __atomic_store_n(&ipv6_ready_test_switch, 1, __ATOMIC_RELAXED);
    return 0;
}

int dpm_ipv6_ready_test_switch_close() {
    __atomic_store_n(&ipv6_ready_test_switch, 0, __ATOMIC_RELAXED);
    return 0;
}

std::uint32_t dpm_get_ipv6_ready_test_switch_state() {
    return __atomic_load_n(&ipv6_ready_test_switch, __ATOMIC_RELAXED);
}

int dpm_host_start_delete_time_test() {
    const dpm::dpm_lock lock;
    return dpm_host_start_delete_time();
}
