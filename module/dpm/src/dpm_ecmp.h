// ECMP groups: the chip's groups of next hops, one for each route with several gateways.  On the
// worker, under the DPM lock.
//
// The caller keeps the group's index and passes it by reference: 0 means that there is no group
// yet.  It is written here when the first member creates the group and when the last one ends it.
#pragma once

#include "dpm_address.h"
#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_msg.h"    // the owners of the messages
#include "dpm_tables.h" // the senders of mirroring
#include "dpm_trace.h"

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_ecmp_entry) == 60);
static_assert(offsetof(dpm_ecmp_entry, sdk_index) == 20);
static_assert(offsetof(dpm_ecmp_entry, host_cnt) == 56);

inline constexpr std::uint32_t DPM_ECMP_CAPACITY = 1024; // groups of both families
inline constexpr std::uint32_t DPM_ECMP_MEMBERS = 8;     // recorded in a group

int dpm_ecmp_add(std::uint32_t ecmp_type, std::int32_t *sdk_index, std::uint32_t host_index);
int dpm_ecmp_del(std::uint32_t ecmp_type, std::int32_t *sdk_index, std::uint32_t host_index);
int dpm_ecmp_del_all(std::uint32_t ecmp_type, std::int32_t *sdk_index);
dpm_ecmp_entry *dpm_ecmp_find_by_entry(std::uint32_t ecmp_type, const dpm_ecmp_entry *key);

// Order of the trees: the chip's index as a signed number.
inline int dpm_ecmp_compare(const dpm_ecmp_entry *a, const dpm_ecmp_entry *b) {
    if (a == nullptr || b == nullptr)
        return dpm::null_parameter(__func__, __LINE__);
    return dpm::three_way(a->sdk_index, b->sdk_index);
}

namespace dpm {

// The group behind an index that its owner keeps: 0 while there is none.  Several changes in a row
// look for its record once; the index must not be changed otherwise meanwhile.
class ecmp_group {
public:
    ecmp_group(std::uint32_t ecmp_type, std::int32_t &sdk_index)
        : ecmp_type_(ecmp_type), sdk_index_(sdk_index) {}
    int add(std::uint32_t host_index);             // as dpm_ecmp_add
    int remove(std::uint32_t host_index);          // as dpm_ecmp_del
    bool is_empty();                               // there is a group, and it has no member
    std::uint32_t count(std::uint32_t host_index); // of members that are recorded so
    bool keep(); // its members are counted as they are recorded; false: it has just gone
    // The members are these alone, those above 0; tables only.  False: no group, or no member.
    bool recount(const std::int32_t (&host_index)[DPM_ECMP_MEMBERS]);

private:
    bool is_found();

    const std::uint32_t ecmp_type_;
    std::int32_t &sdk_index_;
    dpm_ecmp_entry *entry_ = nullptr; // as found last
};

inline int ecmp_order(const dpm_ecmp_entry &a, const dpm_ecmp_entry &b) {
    return dpm_ecmp_compare(&a, &b);
}
using ecmp_table = avl_table<dpm_ecmp_entry, ecmp_order>;

ecmp_table ecmp_groups(std::uint32_t ecmp_type); // of a known family

// On a card that becomes master, tables only: no group has a member until what names it tells its
// members (recount), and those that nothing names go.
void ecmp_groups_uncount();
void ecmp_groups_drop_uncounted();

} // namespace dpm
