// IGMP and MLD from the ports: a hook that parses and posts, and the decoders that tell the groups
// (dpm_ipmc_rx.cpp) what was reported.
//
// No frame is taken: each goes on to the host's stack, and so to the routing suite's own IGMP and
// MLD.  A report that cannot be handed over is lost in silence; hosts repeat theirs.  A record that
// does not lie whole inside the message ends it, and those before it stand.
#include "dpm_ipmc_pkt.h"

#include "dpm_api.h"
#include "dpm_bridge.h"
#include "dpm_ipmc.h"
#include "dpm_ipmc_report.h"
#include "dpm_memory.h"
#include "platform/hal.h"

#include <cstring>
#include <initializer_list>

static_assert(sizeof(uv_rx_descriptor) == 32);
static_assert(offsetof(uv_rx_descriptor, vlan) == 2);
static_assert(offsetof(uv_rx_descriptor, inner_vlan) == 4);
static_assert(offsetof(uv_rx_descriptor, port) == 20);

namespace {

constexpr std::uint16_t vlan_count = 4096;

// What the two protocols differ in.
struct protocol {
    std::uint32_t family;
    std::uint32_t group_at; // of a message that reports one group
    std::initializer_list<std::uint8_t> joins;
    std::uint8_t leave;
    std::uint8_t report; // of records
    int (*read_report)(const std::uint8_t *message, std::uint32_t length_bytes,
                       const uv_rx_descriptor *from);
};
constexpr protocol igmp = {DPM_FAMILY_IPV4, 4, {0x12, 0x16}, 0x17, 0x22, dpm_ipmc_igmpv3_process};
constexpr protocol mld = {DPM_FAMILY_IPV6, 8, {131}, 132, 143, dpm_ipmc_mldv2_process};

bool is_join(const protocol &reported, std::uint8_t type) {
    for (const std::uint8_t join : reported.joins)
        if (type == join)
            return true;
    return false;
}

int process(const protocol &reported, const std::uint8_t *message, std::uint32_t length_bytes,
            const uv_rx_descriptor *descriptor) {
    if (length_bytes == 0 || dpm_bridge_self_is_slave())
        return 0;
    uv_rx_descriptor from = *descriptor;
    from.vlan %= vlan_count;
    from.inner_vlan %= vlan_count;
    const std::uint8_t type = message[0];
    if (type == reported.report)
        return reported.read_report(message, length_bytes, &from);
    dpm_prefix group;
    if (!dpm::read_address(message, length_bytes, reported.group_at, reported.family, group))
        return 0;
    if (is_join(reported, type))
        (void)dpm_ipmc_join_group(&group, &from);
    else if (type == reported.leave)
        (void)dpm_ipmc_leave_group(&group, &from);
    return 0;
}

// Nobody waits for the answers: a report that does not fit what is there changes nothing.
void apply(const dpm::group_record &record, const uv_rx_descriptor *from) {
    using type = dpm::record_type;
    const dpm_prefix *const group = &record.group, *const sources = record.sources;
    const std::uint32_t count = record.source_count;
    switch (record.type) {
    case type::is_include:
        return (void)dpm_ipmc_restart_group(group, sources, count, DPM_IPMC_INCLUDE, from);
    case type::is_exclude:
        return (void)dpm_ipmc_restart_group(group, sources, count, DPM_IPMC_EXCLUDE, from);
    case type::to_include:
        return (void)dpm_ipmc_exchange_to_include(group, sources, count, from);
    case type::to_exclude:
        return (void)dpm_ipmc_exchange_to_exclude(group, sources, count, from);
    case type::allow:
        return (void)dpm_ipmc_new_src(group, sources, count, from);
    case type::block:
        return (void)dpm_ipmc_block_src(group, sources, count, from);
    }
}

int apply_records(std::uint32_t family, const std::uint8_t *message, std::uint32_t length_bytes,
                  const uv_rx_descriptor *from) {
    dpm::record_reader reader(message, length_bytes, family);
    for (dpm::group_record record; reader.next(record);)
        apply(record, from);
    return 0;
}

// What stands on the queue: the descriptor, and the message behind the IP headers.
void hand_over(const uv_rx_descriptor &descriptor, const std::uint8_t *message,
               std::uint32_t message_bytes, std::uint32_t code) {
    const std::uint32_t length_bytes = sizeof descriptor + message_bytes;
    auto *const block = static_cast<std::uint8_t *>(dpm_malloc(length_bytes));
    if (block == nullptr)
        return;
    std::memcpy(block, &descriptor, sizeof descriptor);
    std::memcpy(block + sizeof descriptor, message, message_bytes);
    const dpm_msg msg = {code, length_bytes, 0, reinterpret_cast<std::uint32_t>(block)};
    if (dpm_msg_send(&msg) != 0)
        dpm_free(block);
}

} // namespace

int dpm_ipmc_register_rx_handler() {
    for (std::uint32_t port = hal_get_min_server_logic_slot(); port <= hal_get_max_uplink_portid();
         port++) {
        (void)uv_portBindStack(port, 0x0800, UV_BIND_MASK, UV_BIND_LEVEL, dpm_ipmc_receive_packet,
                               0, "IPMC_IPV4");
        (void)uv_portBindStack(port, 0x86DD, UV_BIND_MASK, UV_BIND_LEVEL, dpm_ipmc_receive_packet,
                               0, "IPMC_IPV6");
    }
    return 0;
}

int dpm_ipmc_receive_packet(const std::uint8_t *frame, std::uint32_t length_bytes,
                            const uv_rx_descriptor *descriptor) {
    std::uint32_t offset, family;
    if (frame == nullptr || descriptor == nullptr ||
        dpm_ipmc_packet_parser(frame, length_bytes, &offset, &family) != 0 ||
        offset >= length_bytes || dpm_api_get_ipmc_global_enable(family) == 0 ||
        dpm_bridge_self_is_slave()) // which learns groups from its master
        return UV_NOT_TAKEN;
    hand_over(*descriptor, frame + offset, length_bytes - offset,
              family == DPM_FAMILY_IPV4 ? DPM_MSG_IGMP_RX : DPM_MSG_MLD_RX);
    return UV_NOT_TAKEN;
}

int dpm_ipmc_igmp_process(const std::uint8_t *message, std::uint32_t length_bytes,
                          const uv_rx_descriptor *descriptor) {
    return process(igmp, message, length_bytes, descriptor);
}

int dpm_ipmc_igmpv3_process(const std::uint8_t *message, std::uint32_t length_bytes,
                            const uv_rx_descriptor *from) {
    return apply_records(DPM_FAMILY_IPV4, message, length_bytes, from);
}

int dpm_ipmc_mld_process(const std::uint8_t *message, std::uint32_t length_bytes,
                         const uv_rx_descriptor *descriptor) {
    return process(mld, message, length_bytes, descriptor);
}

int dpm_ipmc_mldv2_process(const std::uint8_t *message, std::uint32_t length_bytes,
                           const uv_rx_descriptor *from) {
    return apply_records(DPM_FAMILY_IPV6, message, length_bytes, from);
}
