// Route requests of the routing suite, and readers of the route table.
#include "dpm_route.h"

#include "dpm_locks.h"
#include "dpm_memory.h"
#include "dpm_msg.h"
#include "dpm_trace.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr dpm::oper_codes route_codes = {DPM_MSG_ADD_ROUTE, DPM_MSG_DEL_ROUTE};

constexpr char vlanif_prefix[] = "vlanif";
constexpr std::size_t vlanif_length = sizeof vlanif_prefix - 1;

// A route as the management export tells it.
struct export_record {
    std::uint32_t destination_type = 1;
    std::uint32_t destination_bytes = 4;
    std::uint8_t destination[4];
    std::uint32_t prefix_len;
    std::uint32_t reserved0 = 0;
    std::uint32_t reserved1 = 0;
    std::uint32_t gateway_type = 1;
    std::uint32_t gateway_bytes = 4;
    std::uint8_t gateway[4];
    std::uint32_t reserved2 = 0;
    std::uint32_t state; // 2: the first gateway is not resolved
    std::uint32_t reserved3 = 0;
    std::uint32_t vlan;
};
static_assert(sizeof(export_record) == 13 * sizeof(std::uint32_t));

export_record export_of(const dpm_route_entry &route) {
    export_record record;
    std::memcpy(record.destination, route.destination.address, sizeof record.destination);
    record.prefix_len = route.destination.prefix_len;
    std::memcpy(record.gateway, route.np[0].address, sizeof record.gateway);
    record.state = route.host_index[0] < 0 ? 2 : 0;
    record.vlan =
        static_cast<std::uint32_t>(std::strtoul(route.np_ifname[0] + vlanif_length, nullptr, 10));
    return record;
}

bool is_exported(const dpm_route_entry &route) {
    return route.vrf == 0 && std::strncmp(route.np_ifname[0], vlanif_prefix, vlanif_length) == 0;
}

std::uint32_t export_count() {
    std::uint32_t count = 0;
    for (const dpm_route_entry &route : dpm::ipv4_routes())
        count += is_exported(route);
    return count;
}

} // namespace

int dpm_api_route_pro(const dpm_route_msg *route, std::uint32_t oper) {
    if (dpm_get_ipv6_ready_test_switch_state() == 1)
        return 0;
    if (route == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_oper(oper)) {
        DPM_TRACE("%s %d::rev msg from norix, unkown oper %d !\r\n", oper);
        return -1;
    }
    return dpm::post_copy<dpm_route_msg>(
        route, route_codes.of(oper), DPM_SEND_ERROR("%s %d::send msg err!\r\n", DPM_LEVEL_ERROR));
}

const dpm_route_entry *dpm_api_get_route_entry_first(std::uint32_t family) {
    return dpm::is_iptype(family, DPM_CALL_SITE) ? dpm::routes_of(family).first() : nullptr;
}

const dpm_route_entry *dpm_api_get_route_entry_next(const dpm_route_entry *entry) {
    if (entry == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    if (!dpm::is_iptype(entry->destination.family, DPM_CALL_SITE))
        return nullptr;
    return dpm::routes_of(entry->destination.family).next(*entry);
}

int dpm_snmp_get_route_table(void **out, std::uint32_t record_bytes) {
    if (out == nullptr) {
        DPM_PLAIN("the parameter is null!\r\n");
        return -1;
    }
    if (record_bytes < sizeof(export_record))
        return -1;
    const dpm::dpm_lock lock;
    const std::uint32_t count = export_count();
    *out = nullptr;
    if (count == 0)
        return 0;
    if (record_bytes > UINT32_MAX / count)
        return -1;
    auto *bytes = static_cast<unsigned char *>(dpm_malloc(count * record_bytes));
    if (bytes == nullptr) {
        DPM_PLAIN("malloc failed!\r\n");
        return -1;
    }
    *out = bytes;
    std::memset(bytes, 0, count * record_bytes);
    for (const dpm_route_entry &route : dpm::ipv4_routes()) {
        if (!is_exported(route))
            continue;
        const export_record record = export_of(route);
        std::memcpy(bytes, &record, sizeof record);
        bytes += record_bytes;
    }
    return static_cast<int>(count);
}

#define SHOW_ROUTE(route, bytes, format)                                                           \
    std::printf(format, (route).vrf, bytes((route).destination), (route).destination.prefix_len,   \
                bytes((route).np[0]), (route).np_ifindex[0], (route).np_ifname[0], (route).np_num, \
                (route).sdk_index)

void dpm_ipv4_route_show() {
    const dpm::dpm_lock lock;
    for (const dpm_route_entry &route : dpm::ipv4_routes())
        SHOW_ROUTE(
            route, DPM_IPV4_BYTES,
            "\n\r route entry vrf %d ip %x.%x.%x.%x masklen %d                  np %x.%x.%x.%x np_index %d np_ifname %s np_num %d sdk_index %d\n\r");
}

void dpm_ipv6_route_show() {
    const dpm::dpm_lock lock;
    for (const dpm_route_entry &route : dpm::ipv6_routes())
        SHOW_ROUTE(
            route, DPM_IPV6_BYTES,
            "\n\r route entry vrf %d ip %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x masklen %d                  np %x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x.%x np_ifindex %d np_ifname %s np_num %d sdk_index %d\n\r");
}

int dpm_ipv4_route_cnt_show() {
    const dpm::dpm_lock lock;
    return static_cast<int>(dpm::ipv4_routes().count());
}

int dpm_ipv6_route_cnt_show() {
    const dpm::dpm_lock lock;
    return static_cast<int>(dpm::ipv6_routes().count());
}
