// L3 interfaces.  They are not mirrored: each card has its own, with indexes of its own.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"
#include "platform/nsm.h"

namespace chassis::tables {

namespace {

std::string type_text(const dpm_if_entry &interface) {
    static constexpr const char *types[] = {"vlan", "?", "super", "sub"};
    return interface.if_type < std::size(types) ? types[interface.if_type] : "?";
}

std::vector<std::string> address_texts(const dpm_if_entry &interface) {
    std::vector<std::string> texts;
    for (const dpm_if_ip_entry *address : addresses_of(interface))
        texts.push_back(prefix_text(address->ip));
    return texts;
}

std::vector<std::int64_t> sub_vlans_of(const dpm_if_entry &interface) {
    std::vector<std::int64_t> all;
    for (const list_head *link = interface.sub_list.next; link != &interface.sub_list;
         link = link->next)
        all.push_back(reinterpret_cast<const dpm_if_entry *>(link)->if_id);
    return all;
}

std::vector<Place> places_of(const dpm_if_entry &interface) {
    std::vector<Place> places{{interface.vrf}};
    for (const dpm_if_ip_entry *address : addresses_of(interface))
        places.push_back({interface.vrf, host_of(address->ip.family, address->ip.address)});
    return places;
}

// OSPF's packets may be taken on the sub-VLANs of such an interface.  Whether they are depends on
// what came first, since nobody tells the library when OSPF begins to run.
bool runs_ospf(const dpm_if_entry &interface) {
    for (const dpm_if_ip_entry *address : addresses_of(interface))
        if (address->ip.family == DPM_FAMILY_IPV4 &&
            dpm_if_ip_ospf_network_exist(address->ip.address, address->ip.prefix_len) == 1)
            return true;
    return false;
}

// What names lead to.
struct IndexesByName {
    explicit IndexesByName(const Reading &) {
        interfaces.each(
            [this](const dpm_if_entry &entry) { indexes.emplace(entry.ifname, entry.if_index); });
    }
    std::map<std::string, std::uint32_t> indexes;
};

} // namespace

std::uint32_t leads(const Reading &reading, const char *ifname, std::uint32_t ifindex) {
    const auto &indexes = reading.made<IndexesByName>().indexes;
    const auto found = indexes.find(ifname);
    if (found == indexes.end())
        return 0;
    return found->second == ifindex ? 1 : 2;
}

const TableOf<dpm_if_entry> interfaces{
    .each = walk<dpm_api_get_if_entry_first, dpm_api_get_if_entry_next>,
    .key = [](auto &interface) { return std::string("dev ") + interface.ifname; },
    .places = places_of,
    .columns = {{"interface", TABLE_MEMBER(ifname)},
                {"vrf", TABLE_MEMBER(vrf)},
                {"vlan", TABLE_MEMBER(if_id)},
                {"type", type_text},
                {"ifindex", TABLE_MEMBER(if_index)},
                {"mac", [](auto &interface) { return mac_text(interface.mac); }},
                {"chip", [](auto &interface) { return yes_or_no(interface.l3_programmed); }},
                {"arp", [](auto &interface) { return yes_or_no(interface.arp_programmed); }},
                {"addresses", address_texts},
                {"sub_vlans", sub_vlans_of},
                {"+mtu", TABLE_MEMBER(mtu)},
                {"+l3_intf_id", TABLE_MEMBER(l3_intf_id)}},
    .in_chip =
        [](auto &interface, Wanted &wanted) {
            const chip::Interface object{interface.l3_intf_id, interface.vrf,
                                         mac_of(interface.mac)};
            if (interface.l3_programmed)
                wanted.want<kinds::interface>(interface.if_id, object);
            if (interface.arp_programmed)
                wanted.want<kinds::arp_rule>(interface.if_id, chip::Nothing());
            if (runs_ospf(interface))
                for (const std::int64_t vlan : sub_vlans_of(interface))
                    wanted.permit<kinds::ospf_rule>(std::uint32_t(vlan), chip::Nothing());
        },
    .why = [](auto &interface) { return std::string("an address of ") + interface.ifname + "\n"; },
};

} // namespace chassis::tables
