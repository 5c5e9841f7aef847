// Hosts: the resolved neighbours (ARP and ND), which the routing suite and the IP stack report.
//
// A host takes a shared next hop and, unless its address is link-local, a host entry of the chip;
// it is mirrored to the standby card and announced to the dependants, which program whatever waited
// for it.  On its way out the dependants hear first, so that nothing points to a host entry that is
// gone.  The tables are full at a fixed count; nothing is evicted.
#include "dpm_host_record.h"

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_destination.h"
#include "dpm_if.h"
#include "dpm_nexthop.h"
#include "dpm_slot.h"
#include "dpm_trace.h"

#include <utility>

namespace {

struct notify_node {
    list_head link;
    dpm_host_callback callback;
};
static_assert(sizeof(notify_node) == 12);

using notify_list = dpm::list_view<notify_node, &notify_node::link>;

constexpr dpm::call_site adding = {"dpm_host_entry_add", __LINE__}; // whoever checks for it

std::uint32_t weight(std::uint32_t family) {
    return family == DPM_FAMILY_IPV6 ? 2 : 1;
}

std::uint32_t occupied() {
    return dpm::ipv4_hosts().count() + 2 * dpm::ipv6_hosts().count();
}

bool has_egress(const dpm_host_entry &host, dpm::egress &out, const dpm::call_site &caller) {
    if (dpm::egress_of(host, out))
        return true;
    DPM_LOG_FROM(
        caller,
        "%s %d::host_info paramter is err! port_type %d log_port_id %d phy_port_id 0x%x.\r\n",
        host.port_type, host.log_port_id, host.phy_port_id);
    return false;
}

// What can be checked before anything is changed; `own_weight` is that of an entry which the host
// replaces.
bool is_admissible(const dpm_host_entry &host, std::uint32_t own_weight, dpm::egress &out,
                   const dpm::call_site &caller) {
    if (occupied() - own_weight >= DPM_HOST_CAPACITY) {
        DPM_LOG_FROM(caller, "%s %d::host entry is full!!!\r\n");
        return false;
    }
    return dpm::is_iptype(host.ip.family, caller) && has_egress(host, out, caller);
}

void log_host(const dpm_host_entry &host, const dpm::call_site &caller) {
    DPM_LOG_FROM(
        caller,
        "%s %d::host_entry vrf %d port_type %d port %d/0x%x svlan %d ip %s mac %x.%x.%x.%x.%x.%x sdk_index %d \r\n",
        host.vrf, host.port_type, host.log_port_id, host.phy_port_id, host.svlan,
        dpm::address_text(host.ip).c_str(), host.mac[0], host.mac[1], host.mac[2], host.mac[3],
        host.mac[4], host.mac[5], host.sdk_index);
}

int nexthop_release(const dpm_host_entry &host, const dpm::egress &out) {
    return dpm_nexthop_del(out.port_type, out.port_id, host.mac, host.svlan, host.cvlan,
                           host.sdk_index, DPM_SLOT_ALL_BITS);
}

// The neighbour's link-local address is asked for, so that it is learnt too.
void solicit_linklocal(const dpm_host_entry &host) {
    std::uint8_t linklocal[16];
    (void)dpm_get_linklocal(linklocal, host.mac);
    (void)dpm_ndp_req_send(host.vrf, host.ifindex, linklocal);
}

dpm_host_entry host_of(const dpm_host_msg &body) {
    dpm_host_entry host = {};
    host.ifindex = body.ifindex != 0 ? body.ifindex : dpm_ifindex_get_by_vlan(body.supervlan);
    // The VLAN tells the VRF, whatever the reporter thinks.
    host.vrf = dpm_if_get_vrf_by_vlan(body.svlan);
    host.ip = body.ip;
    if (dpm::is_known_family(host.ip.family))
        host.ip.prefix_len = dpm::host_bits(host.ip.family);
    std::memcpy(host.mac, body.mac, sizeof host.mac);
    host.svlan = body.svlan;
    host.cvlan = body.cvlan;
    host.supervlan = body.supervlan;
    host.port_type = body.port_type;
    host.log_port_id = body.log_port_id;
    host.phy_port_id = body.phy_port_id;
    return host;
}

// The entry that a report replaces is deleted in full, its dependants told.  0, or -1 when it would
// not go.
int delete_replaced(dpm_host_entry *present) {
    return present != nullptr ? dpm_host_entry_del(present) : 0;
}

// What stands behind a host for its very address gives way, and takes the chip's entry back.
void give_way_to(const dpm_host_entry &host, dpm::way how, const dpm::call_site &caller) {
    (void)dpm::give_way_below(dpm::destination_rank::host, host.vrf, host.ip, how, caller);
}

void take_back_after(const dpm_host_entry &host) {
    dpm::take_back_below(dpm::destination_rank::host, host.vrf, host.ip);
}

// The chip's entry of a host whose delete took it out and then stood still: 0, or the driver's
// answer.
int put_back(dpm_host_entry &host) {
    const int result = dpm::program_host(host, DPM_SLOT_ALL_BITS);
    if (result != 0)
        return result;
    record_of(host).in_chip = true;
    give_way_to(host, dpm::way::overwritten, adding);
    return 0;
}

// A repeated report changes nothing, but for a host whose delete was left half done: what the
// delete took is given back.  0, or -1 when the chip refused.
int make_whole(dpm_host_entry &host) {
    host_record &record = record_of(host);
    record.is_leaving = false;
    if (!record.in_chip && !dpm::is_linklocal(host.ip) && put_back(host) != 0) {
        DPM_LOG_FROM(adding, "%s %d::host_entry add driver failed!\r\n");
        return -1;
    }
    if (!std::exchange(record.is_announced, true))
        dpm_host_notify(&host, DPM_HOST_ADDED);
    return 0;
}

} // namespace

constexpr dpm::destination_owner dpm::host_owner = {
    .holds = dpm::has_chip_host,
    .claims = dpm::has_chip_host,
    .take_over = nullptr, // a host in the chip holds already
    .give_way = nullptr,  // a host keeps its entry beside a label entry
    .take_back = nullptr,
};

void dpm_host_notify_register(dpm_host_callback callback) {
    if (callback == nullptr) {
        DPM_TRACE("%s %d::input parameter is null,err!\r\n");
        return;
    }
    dpm::block<notify_node> node;
    if (!node)
        return;
    node->callback = callback;
    list_add_tail(&node.release()->link, &g_dpm_global.notify_list);
}

void dpm_host_notify(const dpm_host_entry *entry, std::uint32_t event) {
    if (entry == nullptr) {
        DPM_TRACE("%s %d::input parameter is null,err!\r\n");
        return;
    }
    for (const notify_node &node : notify_list(g_dpm_global.notify_list))
        (void)node.callback(entry, event);
}

int dpm_host_entry_add(const dpm_host_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    dpm::egress out;
    if (!is_admissible(*entry, 0, out, DPM_CALL_SITE))
        return -1;
    dpm_host_entry host = *entry;
    if (dpm_nexthop_add(out.port_type, out.port_id, host.mac, host.svlan, host.cvlan,
                        &host.sdk_index, DPM_SLOT_ALL_BITS) != 0) {
        DPM_TRACE("%s %d::host_entry add nexthop failed!\r\n");
        return -1;
    }
    const bool in_chip = !dpm::is_linklocal(host.ip);
    if (in_chip && dpm::program_host(host, DPM_SLOT_ALL_BITS) != 0) {
        DPM_TRACE("%s %d::host_entry add driver failed!\r\n");
        return -1; // deliberate: the next-hop reference is kept
    }
    if (in_chip)
        give_way_to(host, dpm::way::overwritten, DPM_CALL_SITE);
    dpm::block<host_record> record;
    if (!record) {
        if (in_chip && dpm::withdraw_host(host) == 0)
            take_back_after(host);
        (void)nexthop_release(host, out);
        return -1;
    }
    record->entry = host;
    record->in_chip = in_chip;
    record->is_announced = true;
    dpm_host_entry &added = record.release()->entry;
    log_host(added, DPM_CALL_SITE);
    dpm::link_host(added);
    (void)dpm_host_entry_add_sync_send(&added);
    (void)dpm_host_unreachable_del(added.vrf, added.ifindex, &added.ip);
    if (added.ip.family == DPM_FAMILY_IPV6 && in_chip)
        solicit_linklocal(added);
    dpm_host_notify(&added, DPM_HOST_ADDED);
    return 0;
}

// The order differs from the add's on purpose: dependants hear before the chip's entries go.
int dpm_host_entry_del(dpm_host_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_family(entry->ip.family)) {
        DPM_TRACE("%s %d::iptype = %d is null!\r\n", entry->ip.family);
        return -1;
    }
    dpm::egress out;
    if (!has_egress(*entry, out, DPM_CALL_SITE))
        return -1;
    log_host(*entry, DPM_CALL_SITE);
    host_record &record = record_of(*entry);
    record.is_announced = false;
    dpm_host_notify(entry, DPM_HOST_DELETED);
    if (record.in_chip && dpm::withdraw_host(*entry) != 0) {
        DPM_TRACE("%s %d::host_entry del driver failed!\r\n");
        return -1;
    }
    const bool was_in_chip = std::exchange(record.in_chip, false);
    if (was_in_chip)
        take_back_after(*entry);
    if (nexthop_release(*entry, out) != 0) {
        DPM_TRACE("%s %d::host_entry del nexthop failed!\r\n");
        if (was_in_chip)
            (void)put_back(*entry); // the host stays whole, as the standby believes
        return -1;
    }
    (void)dpm_host_entry_del_sync_send(entry);
    dpm::unlink_host(*entry);
    dpm::free_host(*entry);
    return 0;
}

int dpm_host_add_msg(const dpm_host_msg *body) {
    int result;
    if (!dpm::may_change(body, result, DPM_CALL_SITE))
        return result;
    dpm_host_entry host = host_of(*body);
    if (host.ifindex == 0) {
        DPM_TRACE("%s %d::ifindex is err!\r\n");
        return 0;
    }
    (void)dpm_if_get_ifnamebyindex(host.ifindex,
                                   host.ifname); // without an interface the name stays empty
    if (dpm_if_is_manage_vlan(host.ifname)) {
        DPM_TRACE("%s %d::ifname %s\r\n", host.ifname);
        return 0;
    }
    dpm_host_entry *present = dpm_host_find_by_entry(&host);
    const bool is_same = present != nullptr && dpm_host_entry_is_same(present, &host);
    const bool replaces = present != nullptr || dpm::moved_host(host) != nullptr;
    dpm::egress out;
    if (!is_same && !is_admissible(host, replaces ? weight(host.ip.family) : 0, out, adding))
        return -1;
    give_way_to(host, dpm::way::out_of_table, DPM_CALL_SITE);
    if (dpm_hold_entry *held = dpm_host_hold_find_by_entry(&host))
        (void)dpm_host_hold_entry_del(held);
    if (is_same) {
        DPM_TRACE("%s %d::find same node in host table.\r\n");
        (void)dpm_host_unreachable_del(host.vrf, host.ifindex, &host.ip);
        return make_whole(*present);
    }
    if (present != nullptr)
        DPM_TRACE("%s %d::find same prefix and mask in host table.\r\n");
    if (delete_replaced(present) != 0 || delete_replaced(dpm::moved_host(host)) != 0)
        return -1;
    return dpm_host_entry_add(&host);
}

int dpm_host_del_msg(const dpm_host_msg *body) {
    int result;
    if (!dpm::may_change(body, result, DPM_CALL_SITE))
        return result;
    const dpm_host_entry key = host_of(*body);
    dpm_host_entry *present = dpm_host_find_by_entry(&key);
    if (present == nullptr)
        return 0;
    DPM_TRACE("%s %d::find same prefix and mask in host table.\r\n");
    return dpm_host_entry_del(present);
}
