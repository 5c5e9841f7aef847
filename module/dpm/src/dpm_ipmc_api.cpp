// Multicast requests and settings of the routing suite, and the receivers of the standby card; all
// on their callers' threads.  A setting acts at once.
#include "dpm_address.h"
#include "dpm_bridge.h"
#include "dpm_ipmc_driver.h"
#include "dpm_ipmc_global.h"
#include "dpm_locks.h"
#include "dpm_mirror.h"
#include "dpm_msg.h"
#include "platform/hal.h"

namespace {

constexpr std::uint32_t cpu_queue = 20;
constexpr std::uint32_t cpu_rate = 128;
constexpr std::uint32_t last_vlan = 4085; // the others are the device's own

// What a family is set to, and the chip's group of what none of its groups knows.
struct family_settings {
    std::uint32_t &state;
    std::uint32_t &gid;
};

family_settings settings_of(std::uint32_t family) {
    if (family == DPM_FAMILY_IPV4)
        return {g_ipmc_global.ipv4_state, g_ipmc_global.unknown_ipv4_gid};
    return {g_ipmc_global.ipv6_state, g_ipmc_global.unknown_ipv6_gid};
}

void trap_no_more(std::uint32_t family) {
    if (family == DPM_FAMILY_IPV4)
        (void)hal_set_igmp_to_cpu(0, 0);
    else
        (void)hal_set_mld_to_cpu(0);
}

int trap_on_vlan(int (*trap)(std::uint32_t vlan, std::uint32_t on), std::uint32_t vlan,
                 std::uint32_t enable) {
    if (vlan < 1 || vlan > last_vlan)
        return -1;
    (void)trap(vlan, enable == DPM_ENABLE);
    return 0;
}

} // namespace

int dpm_api_set_ipmc_proc(const dpm_ipmc_request *request, std::uint32_t oper) {
    if (request == nullptr)
        return dpm::null_parameter();
    return dpm::post_copy<dpm_ipmc_request>(
        request, oper == DPM_OPER_ADD ? DPM_MSG_ADD_IPMC_GOURP : DPM_MSG_DEL_IPMC_GOURP,
        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

// Asked by the receive thread for each frame that is a report, without the lock.
int dpm_api_get_ipmc_global_enable(std::uint32_t family) {
    const bool ipv4 = __atomic_load_n(&g_ipmc_global.ipv4_state, __ATOMIC_RELAXED) == DPM_ENABLE;
    const bool ipv6 = __atomic_load_n(&g_ipmc_global.ipv6_state, __ATOMIC_RELAXED) == DPM_ENABLE;
    if (family == DPM_FAMILY_IPV4)
        return ipv4;
    return family == DPM_FAMILY_IPV6 ? ipv6 : ipv4 || ipv6;
}

int dpm_api_set_ipmc_enable(std::uint32_t type, std::uint32_t vlan, std::uint32_t enable) {
    const dpm::dpm_lock lock;
    return dpm_driver_ipmc_enable(type, vlan, enable);
}

int dpm_api_set_unknown_ipmc_to_cpu(std::uint32_t family, std::uint32_t state) {
    const dpm::dpm_lock lock;
    if (dpm_bridge_self_is_slave() || !dpm::is_known_family(family))
        return 0;
    const family_settings settings = settings_of(family);
    if (settings.state == state)
        return 0;
    if (state != DPM_ENABLE)
        trap_no_more(family);
    __atomic_store_n(&settings.state, state, __ATOMIC_RELAXED);
    // deliberate: the state is the suite's, whatever the chip says
    if (dpm_driver_unknown_ipmc_to_cpu_set(family, state, cpu_queue, cpu_rate, &settings.gid) != 0)
        return 0;
    dpm::echo_unknown_ipmc(family, state, settings.gid);
    if (state == DPM_DISABLE)
        settings.gid = 0;
    return 0;
}

int dpm_api_set_unknown_ipmc_to_cpu_slave(const void *buffer, std::uint32_t length_bytes) {
    int result;
    if (!dpm::mirror_may_receive(buffer, length_bytes == sizeof(dpm_ipmc_settings), DPM_CALL_SITE,
                                 result))
        return -1;
    const auto &received = *static_cast<const dpm_ipmc_settings *>(buffer);
    if (!dpm::is_iptype(received.family, DPM_CALL_SITE))
        return -1;
    std::uint32_t gid = 0;
    for (const std::uint8_t byte : received.gid)
        gid = gid << 8 | byte;
    const dpm::ipmc_chip_lock lock;
    const family_settings settings = settings_of(received.family);
    result = dpm_driver_unknown_ipmc_to_cpu_set(received.family, received.state, cpu_queue,
                                                cpu_rate, &gid);
    settings.gid = received.state == DPM_ENABLE ? gid : 0;
    __atomic_store_n(&settings.state, std::uint32_t{received.state}, __ATOMIC_RELAXED);
    return result;
}

int dpm_api_set_igmp_to_cpu(std::uint32_t vlan, std::uint32_t enable) {
    return trap_on_vlan(hal_set_igmp_vlan_to_cpu, vlan, enable);
}

int dpm_api_set_mld_to_cpu(std::uint32_t vlan, std::uint32_t enable) {
    return trap_on_vlan(hal_set_mld_vlan_to_cpu, vlan, enable);
}

// A receiver of a master's change: what it posts, and of which record.
#define RECEIVER(name, image, code)                                                                \
    int name(const void *buffer, std::uint32_t length_bytes) {                                     \
        dpm::ipmc_echo_ends(true);                                                                 \
        return dpm::mirror_receive<image>(code, buffer, length_bytes, DPM_CALL_SITE);              \
    }
// clang-format off
RECEIVER(dpm_ipmc_api_slave_group_create,     dpm_ipmc_group_image,  DPM_MSG_SLAVE_ADD_IPMC_GOURP)
RECEIVER(dpm_ipmc_api_slave_group_destroy,    dpm_ipmc_group_image,  DPM_MSG_SLAVE_DEL_IPMC_GOURP)
RECEIVER(dpm_ipmc_api_slave_group_member_add, dpm_ipmc_member_image, DPM_MSG_SLAVE_ADD_IPMC_GOURP_MEMBER)
RECEIVER(dpm_ipmc_api_slave_group_member_del, dpm_ipmc_member_image, DPM_MSG_SLAVE_DEL_IPMC_GOURP_MEMBER)
// clang-format on
#undef RECEIVER
