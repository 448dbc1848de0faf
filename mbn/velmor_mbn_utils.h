// Maintenance of the modem's configurations (MBN): refresh and reactivation of what is selected.
#pragma once

#include <cstdint>

#include "pdc_service.h"

// Connects to the PDC service, unless that is done already and `force_init` is 0. 0 or -1.
int velmor_mbn_init(unsigned char force_init);

// Refreshes what is active on the subscriptions of `sub_mask` (bit 0: subscription 0, bit 1:
// subscription 1). `mbn_type` is 0 for the platform, 1 for the software configuration. The result
// of the last activation; 0 also for a type or a mask out of range; -1 without a connection.
int velmor_refresh_mbn(uint32_t sub_mask, uint32_t mbn_type);
int velmor_refresh_sw_mbn(uint32_t sub_mask);

// Reads what is selected, deactivates it, selects and activates it again, one subscription after
// the other on a new connection. The result of the last activation; that of a read that failed,
// with which the work ends; -1 for arguments out of range or without a connection. From a
// deactivation to its activation SIGINT, SIGHUP and SIGTERM wait; one line on standard error names
// a configuration that may be gone.
int velmor_reactivate_mbn(uint32_t sub_mask, uint32_t mbn_type);
int velmor_reactivate_sw_mbn(uint32_t sub_mask);

// Deactivates what is active and commits that to the modem's storage. Nothing for arguments out of
// range.
void velmor_mbn_deactivate_config(uint32_t sub, pdc_config_type_enum_v01 config_type);
