// Start-up of the library: state, tables, registrations, worker.
//
// dpm_main_init runs once, on the host process's start-up thread, before any other thread enters.
// Nothing is torn down: the library lives as long as the process.  The worker takes over when it is
// spawned, near the end.
#include "dpm_main.h"

#include "dpm.h"
#include "dpm_bfd.h"
#include "dpm_bridge.h"
#include "dpm_events.h"
#include "dpm_host.h"
#include "dpm_if_announced.h"
#include "dpm_ipmc.h"
#include "dpm_ipmc_main.h"
#include "dpm_l3vpn.h"
#include "dpm_l3vpn_if.h"
#include "dpm_main_launch.h"
#include "dpm_mirror.h"
#include "dpm_msg.h"
#include "dpm_policy_route.h"
#include "dpm_route.h"
#include "dpm_tunnel.h"
#include "dpm_vpn.h"
#include "dpm_vpls.h"
#include "dpm_vpws.h"
#include "dpm_vrf.h"
#include "platform/hal.h"
#include "platform/hss.h"
#include "platform/hw.h"
#include "platform/ipcomx.h"

#include <initializer_list>

namespace {

constexpr std::uint32_t mutex_options =
    BEP_SEM_Q_PRIORITY | BEP_SEM_DELETE_SAFE | BEP_SEM_INVERSION_SAFE;

constexpr std::uint32_t default_vrf = 0;
constexpr std::uint32_t default_ecmp_hash = 6;

constexpr const char *task_name = "dpm_task";

// Stops at the first that cannot be had.
bool create_locks_and_queue() {
    for (bep_sem *mutex : {&g_dpm_global.dpm_sem, &g_dpm_global.nsm_sem, &g_dpm_global.bfd_sem}) {
        *mutex = bep_semMCreateEx(mutex_options, __FILE__, __LINE__);
        if (*mutex == nullptr)
            return false;
    }
    g_dpm_global.slot_up_sem =
        bep_semBCreateEx(BEP_SEM_Q_PRIORITY, BEP_SEM_EMPTY, __FILE__, __LINE__);
    if (g_dpm_global.slot_up_sem == nullptr)
        return false;
    g_dpm_global.queue =
        bep_msgQCreateEx(DPM_QUEUE_MESSAGES, sizeof(dpm_msg), 0, __FILE__, __LINE__);
    return g_dpm_global.queue != nullptr;
}

// deliberate: the DPM lock goes once for each mutex that exists, the other two never, and no handle
// is cleared
void delete_locks_and_queue() {
    for (bep_sem mutex : {g_dpm_global.dpm_sem, g_dpm_global.nsm_sem, g_dpm_global.bfd_sem})
        if (mutex != nullptr)
            (void)bep_semDeleteEx(g_dpm_global.dpm_sem, __FILE__, __LINE__);
    if (g_dpm_global.slot_up_sem != nullptr)
        (void)bep_semDeleteEx(g_dpm_global.slot_up_sem, __FILE__, __LINE__);
    if (g_dpm_global.queue != nullptr)
        (void)bep_msgQDeleteEx(g_dpm_global.queue, __FILE__, __LINE__);
}

void init_lists() {
    INIT_LIST_HEAD(&g_dpm_global.if_list);
    INIT_LIST_HEAD(&g_dpm_global.notify_list);
    INIT_LIST_HEAD(&g_dpm_global.spare_list);
    INIT_LIST_HEAD(&g_dpm_global.unreachable_list);
    INIT_LIST_HEAD(&g_dpm_global.hold_list);
    g_dpm_global.hold_count = 0;
    g_dpm_global.slave_up = 0;
    dpm::if_announced_init();
    dpm::sync_init();
}

void create_tables() {
    dpm_vpn_main_init();
    for (const dpm::mirrored *table : dpm_mirrored_tables)
        table->create();
    dpm::policy_routes_create();
    dpm::destination_register(dpm::destination_rank::route, dpm::route_owner);
    dpm::destination_register(dpm::destination_rank::host, dpm::host_owner);
    dpm::destination_register(dpm::destination_rank::label, dpm::label_owner);
    dpm::route_notify_register(dpm_tunnel_route_notify);
    for (const dpm::if_follower *follower :
         {&dpm::hosts_on_interfaces, &dpm::routes_on_interfaces, &dpm::labels_on_interfaces,
          &dpm::mpls_ifs_on_interfaces, &dpm::vpws_on_interfaces, &dpm::vpls_on_interfaces,
          &dpm::bfd_sessions_on_interfaces, &dpm::policy_routes_on_interfaces,
          &dpm::multicast_on_interfaces})
        dpm::if_follower_register(*follower);
}

void register_callbacks() {
    (void)ipstack_no_nbase_func_register(dpm_api_notify_ipstack_host);
    (void)hss_backupConnectedRegister(HSS_DPM_CLIENT, dpm_bridge_slave_up);
    (void)hssSlaveToMasterRtnReg(dpm_bridge_slave_to_master);
    (void)hal_register_link_handler(dpm_port_link_func);
    (void)hal_register_trunk_link_handler(dpm_port_link_func);
    (void)hal_register_trunk_handler(dpm_trunk_member_change_func);
}

void register_module() {
    g_dpm_global.module_id = modInitRegister(task_name, nullptr, nullptr, nullptr);
    (void)dpm::tell_build_time(g_dpm_global.module_id);
}

} // namespace

int dpm_main_init() {
    g_dpm_global = {};
    g_dpm_index = {};
    if (!create_locks_and_queue()) {
        delete_locks_and_queue();
        return -1;
    }
    (void)hss_get_device_mac(g_dpm_global.device_mac);
    init_lists();
    create_tables();
    // Without a timer list nothing is timed, but everything else works.
    g_dpm_global.timer_list = dpm_timer_list_create();
    (void)dpm_timer_node_init(&g_dpm_global.peer_timer);
    register_callbacks();
    dpm_host_notify_register(dpm_route_host_notify);
    dpm_host_notify_register(dpm_mpls_ftn_arp_pro);
    dpm_host_notify_register(dpm_bfd_host_notify);
    dpm_host_notify_register(dpm_policy_route_host_notify);
    (void)dpm_vrf_enable(default_vrf, DPM_ENABLE);
    (void)dpm_ecmp_hash_set(default_ecmp_hash);
    (void)hw_driver_register_bfd_handler(0, dpm_api_bfd_notifier);
    (void)dpm_mpls_oam_ipuc_ilm_enable();
    if (dpm_ipmc_main_init() != 0) // unicast works without
        DPM_TRACE("%s %d::ipmc init failed!\r\n");
    (void)dpm::spawn_task(task_name, dpm_task, {});
    register_module();
    return 0;
}
