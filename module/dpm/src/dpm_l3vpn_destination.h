// A tunnel and the IP route to the same prefix.  For the sources of the label tables alone.
//
// fec_route_deleted of a tunnel is the truth about the route's entry in the chip: 1 while it is out
// for the sake of a tunnel.  Of several tunnels for one prefix the last that goes puts it back.
#pragma once

#include "dpm_l3vpn_record.h"

namespace dpm {

// The route that points somewhere leaves the chip.  0, or the driver's answer when it would not.
int take_destination(dpm_ftn &tunnel);

// Whether there is a tunnel for the prefix of an image; those below are told when that has changed.
bool is_claimed_by_label(const dpm_ftn &image);
void tell_of_claim(const dpm_ftn &image);

// The chip refused the tunnel: the route is put back, unless another tunnel keeps it out.
void return_destination(dpm_ftn &tunnel);

// The tunnel goes: the next one keeps the route out, or it is put back.
void leave_destination(dpm_ftn &tunnel);

} // namespace dpm
