// BFD for its callers: requests of the routing suite, the chip's reports, and readers.
#include "dpm_bfd.h"

#include "dpm_address.h"
#include "dpm_bfd_record.h"
#include "dpm_bridge.h"
#include "dpm_locks.h"
#include "dpm_trace.h"

#include <cstdio>

namespace {

constexpr dpm::oper_codes request_codes = {DPM_MSG_BFD_ADD, DPM_MSG_BFD_DEL};

// The standby takes no request, and says so.
bool is_standby(const dpm::call_site &caller) {
    if (!dpm_bridge_self_is_slave())
        return false;
    DPM_LOG_FROM(caller, "%s %d::it is slave.\r\n");
    return true;
}

void print_session(const dpm_bfd_sess &session) {
    const dpm_bfd_told &told = session.told;
    std::printf("\n\r bfd session local_disc %u remote_disc %u type %d state %d ifindex %d"
                "\n\r   local %s peer %s nexthop %s timers %u %u %u"
                "\n\r   arp_state %d hw_state %d cc_state %d cc_hold %d debounce %d"
                "\n\r   lmep %d rmep %d port type %d port %d out_port 0x%x vlan %d "
                "mac %x.%x.%x.%x.%x.%x\n\r",
                told.local_disc, told.remote_disc, told.type, told.state, told.ifindex,
                dpm::address_text(told.local).c_str(), dpm::address_text(told.peer).c_str(),
                dpm::address_text(told.next_hop).c_str(), told.timer[0], told.timer[1],
                told.timer[2], session.arp_state, session.hw_state, session.cc_state,
                session.cc_hold, session.debounce, session.local_mep, session.remote_mep,
                session.port_type, session.port_id, session.out_port, session.vlan,
                DPM_FOUR_BYTES(session.mac), session.mac[4], session.mac[5]);
}

} // namespace

int dpm_api_bfd_proc(const dpm_bfd_request *request, std::uint32_t enable) {
    if (is_standby(DPM_CALL_SITE))
        return 0;
    if (request == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_oper(enable)) {
        DPM_TRACE("%s %d::rev msg from norix, unkown enable %d !\r\n", enable);
        return -1;
    }
    return dpm::post_copy<dpm_bfd_request>(request, request_codes.of(enable),
                                           DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_bfd_session_update(std::uint32_t local_disc, std::uint32_t kind, std::uint32_t value1,
                               std::uint32_t value2, std::uint32_t value3, std::uint32_t value4) {
    if (is_standby(DPM_CALL_SITE))
        return 0;
    const dpm_bfd_update update = {local_disc, kind, {value1, value2, value3, value4}};
    return dpm::post_copy<dpm_bfd_update>(&update, DPM_MSG_BFD_UPDATE,
                                          DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_bfd_notifier(std::uint32_t local_disc, std::uint32_t state, std::uint32_t diag) {
    if (is_standby(DPM_CALL_SITE))
        return 0;
    const dpm_bfd_notice notice = {local_disc, state, diag, {}, 0};
    return dpm::post_copy<dpm_bfd_notice>(&notice, DPM_MSG_BFD_NOTIFY,
                                          DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

const dpm_bfd_sess *dpm_bfd_sess_first() {
    return dpm::bfd_sessions().first();
}

const dpm_bfd_sess *dpm_bfd_sess_next(const dpm_bfd_sess *entry) {
    if (entry != nullptr)
        return dpm::bfd_sessions().next(*entry);
    (void)dpm::null_parameter();
    return nullptr;
}

void dpm_bfd_sess_show_avl_tree() {
    const dpm::dpm_lock lock;
    std::printf("\n\r bfd session table: total count %d", dpm::bfd_sessions().count());
    for (const dpm_bfd_sess &session : dpm::bfd_sessions())
        print_session(session);
}
