// Multicast towards the chip: the one way in which groups and their members get there, on this card
// and, as an echo of each request that succeeded, on the standby card; and the records that keep
// the standby's tables equal.
//
// Each control card has a chip of its own here.  A mask names the cards by the bits of their
// numbers; 0 is this card alone.  Under the DPM lock.
#pragma once

#include "dpm_api.h"

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_ipmc_group) == 52);
static_assert(offsetof(dpm_ipmc_group, group) == 20);
static_assert(offsetof(dpm_ipmc_group, src_cnt) == 48);
static_assert(sizeof(dpm_ipmc_out_vlan) == 12);
static_assert(sizeof(dpm_ipmc_source) == 292);
static_assert(offsetof(dpm_ipmc_source, in_vlan) == 28);
static_assert(offsetof(dpm_ipmc_source, out) == 32);
static_assert(offsetof(dpm_ipmc_source, gid) == 288);
static_assert(sizeof(dpm_ipmc_member) == 60);
static_assert(offsetof(dpm_ipmc_member, timer) == 20);
static_assert(offsetof(dpm_ipmc_member, phy) == 56);
static_assert(sizeof(dpm_ipmc_group_image) == 344);
static_assert(sizeof(dpm_ipmc_member_image) == 404);
static_assert(sizeof(dpm_ipmc_echo) == 128);
static_assert(sizeof(dpm_ipmc_settings) == 64);

inline constexpr std::uint32_t DPM_CARDS_ALL = 0xFFFFFFFF;

// A source of a group, or a member of it, in the chips of the cards in the mask; the tables of the
// standby follow.  The chip's answer here, or 0 when this card is not in the mask; -1 for null or a
// family that there is not.  A create keeps the chip's group id in the source.
int dpm_driver_group_create(dpm_ipmc_group *group, dpm_ipmc_source *source, std::uint32_t mask);
int dpm_driver_group_destroy(dpm_ipmc_group *group, dpm_ipmc_source *source, std::uint32_t mask);
int dpm_driver_group_member_add(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                dpm_ipmc_member *member, std::uint32_t mask);
int dpm_driver_group_member_del(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                dpm_ipmc_member *member, std::uint32_t mask);

// The chips alone.  `op` 1 creates or adds, 0 destroys or deletes.
int dpm_driver_group_create_or_destroy(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                       std::uint32_t op, std::uint32_t mask);
int dpm_driver_group_member_add_or_del(dpm_ipmc_group *group, dpm_ipmc_source *source,
                                       dpm_ipmc_member *member, std::uint32_t op,
                                       std::uint32_t mask);

// Settings; the chip's answer.
int dpm_driver_ipmc_enable(std::uint32_t type, std::uint32_t vlan, std::uint32_t enable);
int dpm_driver_unknown_ipmc_to_cpu_set(std::uint32_t family, std::uint32_t state,
                                       std::uint32_t cpu_queue, std::uint32_t cpu_rate,
                                       std::uint32_t *gid);

namespace dpm {

// The bit of a card in a mask.
std::uint32_t this_card();
std::uint32_t standby_card();

// The standby's tables alone: a member that goes although the chip kept it.
void mirror_member_del(const dpm_ipmc_member &member);

// The standby card does as this one: where multicast goes that no group knows.
void echo_unknown_ipmc(std::uint32_t family, std::uint32_t state, std::uint32_t gid);

// The change that belongs to the last echo is here; or it will not come, since its sender is gone,
// and the chip goes back to what the tables say.
void ipmc_echo_ends(bool is_followed);

// The last echo of a sync is behind: any that comes is younger than what the sync brought.  On the
// hot-standby service's thread.
void ipmc_echoes_restart();

} // namespace dpm
