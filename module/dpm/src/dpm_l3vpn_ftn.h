// A tunnel and the VPN routes that it carries.  For the sources of the label tables alone.
#pragma once

#include "dpm_l3vpn_record.h"

// A tunnel is about to leave the chip, or to be told anew: the VPN routes to its far end leave the
// chip first.  0, or -1 for null.
int dpm_mpls_ftn_update_for_vpnv4_del(dpm_ftn *tunnel);

namespace dpm {

// The tunnel stays after all: the VPN routes and pseudowires that left for it are programmed again.
void restore_carried(dpm_ftn &tunnel);

// The pseudowires to the far end of a tunnel come to where the tables want them.
void settle_pseudowires(const dpm_ftn &tunnel);

} // namespace dpm
