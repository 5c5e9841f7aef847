// Virtual bridges, their circuits and pseudowires where the tables want them.  For the sources of
// these tables alone.
#pragma once

#include "dpm_vpls_chip.h"

namespace dpm {

// What is about to go, and counts as gone already.
struct vpls_leaving {
    const std::uint8_t *nexthop = nullptr; // of a label path, 16 bytes
    const void *entry = nullptr;           // a circuit, a way out or a way in
};

// Bring an entry to where the tables want it: a bridge into the chip, with all that waited for it; a
// circuit while its bridge is there and its interface has a port; a pseudowire while its bridge,
// its other half and the label path to its peer are there.  One that the chip has otherwise leaves it
// in between.  Entries that change are mirrored.  0, or the driver's refusal, which the record keeps:
// what it was about is as it was.
int vpls_settle(dpm_vpls_vsi &vsi);
int vpls_settle(dpm_vpls_acif &acif, const vpls_leaving &leaving = {});
int vpls_settle(dpm_vpls_vc_fib &fib, const vpls_leaving &leaving = {});
int vpls_settle(dpm_vpls_vc_ilm &ilm, const vpls_leaving &leaving = {});

// The same for a circuit whose port is another than it was.
int vpls_tell_anew(dpm_vpls_acif &acif);

} // namespace dpm
