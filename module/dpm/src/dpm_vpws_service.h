// Pseudowires where the tables want them.  For the sources of the pseudowire tables alone.
#pragma once

#include "dpm_vpws_chip.h"

namespace dpm {

// Brings the pseudowires of a circuit to where the tables want them: into the chip while circuit, way
// in and the label path to the peer are there, out of it otherwise; over another path or circuit when
// that has changed.  Entries that change are mirrored.  What the chip refuses stays as it is, with the
// driver's answer.
void vpws_settle(std::uint32_t circuit, const vpws_leaving &leaving = {});

// The same when something that the chip was told of may have changed: what stays there is told anew.
void vpws_update(std::uint32_t circuit);

} // namespace dpm
