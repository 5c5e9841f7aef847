// Intake of IGMP and MLD from the ports.
#pragma once

#include "dpm_msg.h" // the owners of the messages
#include "platform/uv.h"

#include <cstdint>

// Binds the hook to every port, from the lowest service port to the highest uplink port; at
// start-up.  0.
int dpm_ipmc_register_rx_handler();

// The hook: hands reports over to the worker.  On the platform's receive thread; UV_NOT_TAKEN.
int dpm_ipmc_receive_packet(const std::uint8_t *frame, std::uint32_t length_bytes,
                            const uv_rx_descriptor *descriptor);

// The reports of the third version of IGMP and the second of MLD, from the message's type on; on
// the worker.  0.
int dpm_ipmc_igmpv3_process(const std::uint8_t *message, std::uint32_t length_bytes,
                            const uv_rx_descriptor *from);
int dpm_ipmc_mldv2_process(const std::uint8_t *message, std::uint32_t length_bytes,
                           const uv_rx_descriptor *from);
