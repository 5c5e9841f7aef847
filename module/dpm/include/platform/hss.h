/*
 * Contract: hot-standby service (card roles, presence, callbacks, the remote call by name) and card
 * numbers.
 *
 * The host supplies every function of this header.  The queries may be called from any thread and
 * must not block.
 */
#ifndef DPM_PLATFORM_HSS_H
#define DPM_PLATFORM_HSS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The state that hss_GetSmuState reports on the master; any other is a standby. */
#define HSS_STATE_MASTER 4

/* This library's place in the order of the connected callbacks. */
#define HSS_DPM_CLIENT 11

typedef int (*hss_callback)(void);

/* Writes the MAC address of this device, 6 bytes in wire order.  Any thread. */
int hss_get_device_mac(uint8_t mac[6]);

/* State of this control card; HSS_STATE_MASTER on the master. */
int hss_GetSmuState(void);

/* 1 on the master card, else 0. */
int hss_IsSmuMaster(void);

/* 1 while the other control card is present, else 0. */
int hss_IsPeerExist(void);

/* Slot numbers of this control card and of the other one (1 to 20); 1 while the standby card is fit
 * for use. */
int get_core_card_self_cardnumber(void);
int get_bakup_core_card_cardnumber(void);
int get_standby_corecard_can_be_use(void);

/* Called once each, from dpm_main_init.  `connected` is called on the master when the standby card
 * connects, on a thread of the service that may be blocked for up to 600 seconds (the tables travel
 * meanwhile); `to_master` on the former standby when it becomes master.  Never call either from the
 * worker. */
int hss_backupConnectedRegister(int client, hss_callback connected);
int hssSlaveToMasterRtnReg(hss_callback to_master);

/* Carries `length_bytes` of `buffer` to the peer card and calls there the exported function of that
 * name with (copy of the buffer, length), on a thread of the service, in the order in which the
 * calls were made, once its queue has room for all that the function may post.  `name` and `buffer`
 * are copied before the call returns, and it does not wait for the peer.  0 when the call was
 * accepted, else -1; the peer's result is not known. */
int hss_TellBackToExcuteSpe(const char *name, const void *buffer, uint32_t length_bytes);

#ifdef __cplusplus
}
#endif

#endif
