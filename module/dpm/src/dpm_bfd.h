// BFD sessions that the chip runs: what other sources ask of them.  On the worker, under the DPM
// lock.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_if.h"
#include "dpm_msg.h"    // the owners of the messages
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_bfd_told) == 176);
static_assert(offsetof(dpm_bfd_told, option) == 20);
static_assert(offsetof(dpm_bfd_told, local_disc) == 24);
static_assert(offsetof(dpm_bfd_told, remote_disc) == 28);
static_assert(offsetof(dpm_bfd_told, address) == 32);
static_assert(offsetof(dpm_bfd_told, sub_type) == 57);
static_assert(offsetof(dpm_bfd_told, identifier) == 60);
static_assert(offsetof(dpm_bfd_told, local) == 72);
static_assert(offsetof(dpm_bfd_told, next_hop) == 112);
static_assert(offsetof(dpm_bfd_told, timer) == 136);
static_assert(sizeof(dpm_bfd_request) == DPM_BFD_REQUEST_BYTES);
static_assert(offsetof(dpm_bfd_request, cc_hold) == 176);
static_assert(offsetof(dpm_bfd_request, bytes) == 180);
static_assert(offsetof(dpm_bfd_request, byte_option) == 200);
static_assert(sizeof(dpm_bfd_sess) == 292);
static_assert(offsetof(dpm_bfd_sess, told) == 16);
static_assert(offsetof(dpm_bfd_sess, bytes) == 192);
static_assert(offsetof(dpm_bfd_sess, arp_state) == 216);
static_assert(offsetof(dpm_bfd_sess, hw_state) == 226);
static_assert(offsetof(dpm_bfd_sess, local_mep) == 232);
static_assert(offsetof(dpm_bfd_sess, mac) == 240);
static_assert(offsetof(dpm_bfd_sess, debounce) == 256);
static_assert(offsetof(dpm_bfd_sess, timer) == 260);
static_assert(sizeof(dpm_bfd_update) == 24);

// Body of a report of the chip.
struct dpm_bfd_notice {
    std::uint32_t local_disc;
    std::uint32_t state;
    std::uint32_t diag;
    std::uint32_t zero[3];
    std::uint32_t remote_disc; // 0: the chip is asked for it
};
static_assert(sizeof(dpm_bfd_notice) == 28);

// A host has come or goes.
int dpm_bfd_host_notify(const dpm_host_entry *host, std::uint32_t event);

// This card became master: sessions look for their next hops again, and their timers run.
int dpm_bfd_slave_to_master_pro();

namespace dpm {

// What sessions do when interfaces change.
extern const if_follower bfd_sessions_on_interfaces;

} // namespace dpm
