// The relay of the host process's proxy ARP: its packets, ticks and data go through the worker's
// queue, so that its work is done on the worker, between the table's own messages.
#include "dpm_api.h"

#include "dpm_msg.h"
#include "platform/hss.h"

namespace {

// A copy of the host's data, whose block the message's owner frees.
int relay(std::uint32_t code, const void *data, std::uint32_t length_bytes,
          const dpm::send_error &error) {
    void *copy = bep_mallocEx(length_bytes, __FILE__, __LINE__);
    if (copy == nullptr)
        return -1;
    std::memcpy(copy, data, length_bytes);
    if (dpm::post_words(code, length_bytes, reinterpret_cast<std::uint32_t>(copy), error) == 0)
        return 0;
    bep_freeEx(copy, __FILE__, __LINE__);
    return -1;
}

} // namespace

int dpm_api_proxy_arp_packet_send(const void *packet, std::uint32_t length_bytes) {
    if (packet == nullptr)
        return dpm::null_parameter();
    return relay(DPM_MSG_PROXY_PACKET, packet, length_bytes,
                 DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_proxy_arp_timer_send() {
    return dpm::post_words(DPM_MSG_PROXY_TIMER, 0, 0, DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_api_proxy_arp_slave_sync(const void *data, std::uint32_t length_bytes) {
    if (hss_IsSmuMaster() == 1)
        return 0;
    if (data == nullptr)
        return dpm::null_parameter();
    return relay(DPM_MSG_PROXY_SLAVE_SYNC, data, length_bytes,
                 DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}
