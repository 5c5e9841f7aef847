// Requests to the chip for label entries and label switching: a table's entry becomes the driver's
// record, with what the settings say of TTL and EXP.  On the worker, under the DPM lock.
//
// Each answers the driver's result, or -1 for a null argument.  What the driver says of next hop and
// tunnel is written through the pointers; the entry itself stays as it is.
#pragma once

#include "dpm_api.h"
#include "platform/dal.h"

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dal_label) == 12);
static_assert(offsetof(dal_label, ttl_mode) == 4);
static_assert(offsetof(dal_label, exp) == 7);

static_assert(sizeof(dal_ftn_request) == 88);
static_assert(offsetof(dal_ftn_request, mac) == 12);
static_assert(offsetof(dal_ftn_request, vlan) == 18);
static_assert(offsetof(dal_ftn_request, tunnel_family) == 22);
static_assert(offsetof(dal_ftn_request, tunnel_address) == 24);
static_assert(offsetof(dal_ftn_request, vpn_family) == 40);
static_assert(offsetof(dal_ftn_request, vpn_address) == 44);
static_assert(offsetof(dal_ftn_request, labels) == 64);

static_assert(sizeof(dal_ilm_request) == 124);
static_assert(offsetof(dal_ilm_request, port_type) == 16);
static_assert(offsetof(dal_ilm_request, mac) == 24);
static_assert(offsetof(dal_ilm_request, vlan) == 30);
static_assert(offsetof(dal_ilm_request, family) == 34);
static_assert(offsetof(dal_ilm_request, address) == 36);
static_assert(offsetof(dal_ilm_request, address_family) == 52);
static_assert(offsetof(dal_ilm_request, labels) == 76);

int dpm_hw_driver_mpls_ftn_add(const dpm_ftn *ftn, std::uint32_t *nhid, std::uint32_t *tunnel_id,
                               std::uint32_t slot_bits);
int dpm_hw_driver_mpls_ftn_del(const dpm_ftn *ftn);
int dpm_hw_driver_mpls_ilm_add(const dpm_ilm *ilm, std::uint32_t *nhid, std::uint32_t *tunnel_id,
                               std::uint32_t slot_bits);
int dpm_hw_driver_mpls_ilm_del(const dpm_ilm *ilm);

// Label switching on a VLAN.
int dpm_hw_driver_mpls_if_add(std::uint32_t vlan, std::uint32_t slot_bits);
int dpm_hw_driver_mpls_if_del(std::uint32_t vlan);
