// The tables of multipoint pseudowires: virtual bridges, attachment circuits, ways out, ways in.
//
// An entry is in the chip (1) or waits (2), ways out and in on their pend lists.  Entries are made
// by requests (dpm_vpls_bind.cpp), or from a mirrored image on the standby card.  When they are
// programmed is told in dpm_vpls_service.cpp.
#include "dpm_vpls_record.h"

namespace dpm {

int vpls_vsi_order(const dpm_vpls_vsi &a, const dpm_vpls_vsi &b) {
    return three_way(a.vpls_id, b.vpls_id);
}
int vpls_acif_order(const dpm_vpls_acif &a, const dpm_vpls_acif &b) {
    return circuit_order(a, b);
}
int vpls_vc_fib_order(const dpm_vpls_vc_fib &a, const dpm_vpls_vc_fib &b) {
    return pseudowire_order(a.vpls_id, b.vpls_id, a, b);
}
int vpls_vc_ilm_order(const dpm_vpls_vc_ilm &a, const dpm_vpls_vc_ilm &b) {
    return pseudowire_order(a.vpls_id, b.vpls_id, a, b);
}

vpls_vsi_table vpls_vsis() {
    return vpls_vsi_table(g_dpm_vpn.vpls_vsi_tree);
}
vpls_acif_table vpls_acifs() {
    return vpls_acif_table(g_dpm_vpn.vpls_acif_tree);
}
vpls_vc_fib_table vpls_vc_fibs() {
    return vpls_vc_fib_table(g_dpm_vpn.vpls_vc_fib_tree);
}
vpls_vc_ilm_table vpls_vc_ilms() {
    return vpls_vc_ilm_table(g_dpm_vpn.vpls_vc_ilm_tree);
}
pend_list<dpm_vpls_vc_fib> pend_vpls_vc_fibs() {
    return pend_list<dpm_vpls_vc_fib>(g_dpm_vpn.pend_vpls_vc_fib_list);
}
pend_list<dpm_vpls_vc_ilm> pend_vpls_vc_ilms() {
    return pend_list<dpm_vpls_vc_ilm>(g_dpm_vpn.pend_vpls_vc_ilm_list);
}

} // namespace dpm
