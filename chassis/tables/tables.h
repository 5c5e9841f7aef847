// The tables, by name and all together.
#pragma once

#include "chassis/tables/list.h"
#include "chassis/tables/table.h"

namespace chassis::tables {

// Records of tables that the chassis keeps itself.
using suite::Vrf;

struct Timer {
    const char *name;
    std::uint32_t vrf;
    dpm_prefix prefix;
    std::string about; // the prefix in words
    const dpm_timer_node *node;
};

struct Mroute {
    std::uint32_t vrf;
    dpm_prefix group, source; // family 0: any source
    std::uint32_t in_vlan, out_count, gid;
};

struct MrouteMember {
    std::uint32_t vrf;
    dpm_prefix group, source;
    std::uint32_t vlan, inner_vlan, port;
    dpm_timer_node timer;
};

#define CHASSIS_TABLE(ROW, name, record, scope, help) extern const TableOf<record> name;
CHASSIS_TABLES(CHASSIS_TABLE, )
#undef CHASSIS_TABLE

const std::vector<Table> &all(); // in the order of the list
const Table *find(std::string_view name);

// Whether an interface's index is what its name leads to on this card: 0 when the card has no such
// interface, 1 when it is, 2 when it is not.
std::uint32_t leads(const Reading &reading, const char *ifname, std::uint32_t ifindex);

// Whether a resolved neighbour has this address of a VRF.
bool is_neighbour(const Reading &reading, const Place &address);

// What the tables of neighbours answer for an address: one is there, waited for, or held.
std::string why_neighbour(const Place &place, const Reading &reading);

} // namespace chassis::tables
