// The worker's steps and the handshake of the two cards, as far as start-up and dispatch name them.
#pragma once

#include "dpm_api.h"
#include "dpm_tables.h"

#include <cstdint>

// One pass of the worker: at most one message, then the timers.  dpm_task is a loop over it.
extern "C" int dpm_task_pass(void);

// The mirrored tables, in the order in which they travel.
#define DPM_ROW(table, record, add, del, all) &dpm::table,
inline constexpr const dpm::mirrored *dpm_mirrored_tables[] = {
    DPM_TABLES(DPM_ROW) & dpm::mirrored_multicast, DPM_LAST_TABLES(DPM_ROW)};
#undef DPM_ROW

// A slot came up: its chip is re-programmed, and the peer card's tables are sent if it is the
// peer's slot.
int dpm_slave_up_process(std::uint32_t slot);

// The standby card gets every table from here on.  The count is that of records lost before.
int dpm_sync_begin(std::uint32_t lost_before);

// The standby card has applied every table: drops what was not among them, and tells the master.
int dpm_slave_up_pro_over_sync_process();

// This card became master: the tables start the timers that only a master runs.
int dpm_slave_to_master_process();

// Looks whether the standby card is still usable; every 10 seconds while it is.
int dpm_peer_can_be_use();

// Card data and the end marker of the handshake.
int dpm_main_entry_sync_all_send(std::uint32_t slot);
int dpm_slave_up_pro_over_sync_send(std::uint32_t slot);
