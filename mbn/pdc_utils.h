// The program's client of the modem's PDC service, as blocking calls. One at a time of each kind.
//
// Results: 0, one of these, or for an outcome of the modem's -1.
#pragma once

#include <cstdint>

#include "pdc_service.h"

enum : int {
  PDC_OK = 0,
  PDC_FAILED = -1,           // not sent, refused, or no outcome within 5 s
  PDC_BUSY = -2,             // a call of the same kind is running
  PDC_FRAME_RESET = -3,      // of a load
  PDC_INVALID_ID = -4,       // of a load; or the id to select is longer than 124 bytes
  PDC_NO_MEMORY = -5,        // of a load
  PDC_NO_CONFIGURATION = -6  // nothing is selected, or the list is empty
};

// A configuration's identifier, as the modem gives it.
struct pdc_config_pdc_info {
  uint32_t config_id_len;
  uint8_t config_id[kPdcMaxId];
};

// Connects to the service with a fresh state: at most 20 attempts, 5 s after each that failed.
// 0 or -1.
int pdc_init();

// Releases the connection, if there is one.
void pdc_clean();

// The selected configuration of `type` for subscription `sub` into `out`.
int pdc_get_current_config(pdc_config_pdc_info* out, pdc_config_type_enum_v01 type, uint32_t sub);

int pdc_select_config(pdc_config_pdc_info* cfg, pdc_config_type_enum_v01 type, uint32_t sub);

// Activate what is selected. The outcome is not waited for: 0 means that the request was sent.
int pdc_activate_config(pdc_config_type_enum_v01 type, uint32_t sub);
int pdc_activate_config_ex(pdc_config_type_enum_v01 type, pdc_activation_type_enum_v01 act,
                           uint32_t sub, uint32_t slot);

int pdc_deactivate_config(uint32_t sub, pdc_config_type_enum_v01 type);
