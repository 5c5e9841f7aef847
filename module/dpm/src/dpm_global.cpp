// The contexts that the tables share.  They stand on the lowest floor, so that no source needs the
// start-up for its state.
#include "dpm.h"
#include "dpm_ipmc_global.h"
#include "dpm_vpn.h"

DPM_STATE dpm_global g_dpm_global;
DPM_STATE dpm_index g_dpm_index;
DPM_STATE dpm_vpn g_dpm_vpn;
DPM_STATE dpm_ipmc_global g_ipmc_global;
