// SIM cards: the process's one client of the UIM service, and the card operations on it.
//
// The client is opened by the first operation and lives until the process ends. It is released, and
// opened again by the next operation, when the service is lost and after every third failed send.
// Operations are for one thread at a time.
//
// Each operation returns 0; -1 when no client could be opened, no memory was left, or where so
// said; else the QMI library's result of the send (-2: the service went away).
#pragma once

#include <cstdint>

inline constexpr uint8_t kUimCardStateUnknown = 3;

struct UimCardStatus {
  uint8_t state[2];  // of the first two cards: 0 absent, 1 present, 2 error, 3 unknown
};

struct UimOpenChannelParams {
  uint8_t slot;  // 1 or 2
  uint8_t file_control_information;
};

struct UimCloseChannelParams {
  uint8_t slot;
  uint8_t channel_id;
};

struct UimApduRequest {
  uint8_t slot;
  uint8_t channel_id;
  uint8_t apdu_len;
  uint8_t apdu[255];
};

struct UimApduResponse {
  uint8_t len;
  uint8_t data[63];  // with the two status bytes; what is longer is cut
};
static_assert(sizeof(UimApduResponse) == 64);

struct UiccPowerParams {
  int32_t power_up;        // 0 powers the card down
  int32_t slot;            // 1 or 2
  int32_t ignore_hotswap;  // not 0: powers up whatever the hot-swap switch says
  int32_t esim_enable;     // what the slot is to hold: 1 the eUICC, 0 the removable card
};

// The state of the cards; both unknown when the service refuses or lists none. `*out` is untouched
// when the send failed.
int velmor_uim_get_card_status(UimCardStatus* out);

// Opens a logical channel to the eUICC's root application (ISD-R). -1 also when the card refuses.
// `*channel_id` is untouched unless the service names a channel.
int velmor_uim_open_channel(const UimOpenChannelParams* in, uint8_t* channel_id);

// Closes a logical channel. 0 also when the card refuses.
int velmor_uim_close_channel(const UimCloseChannelParams* in);

// Sends a command to the card and receives its answer. -1 also when the service refuses.
int velmor_uim_send_apdu(const UimApduRequest* in, UimApduResponse* out);

// Stores `esim_enable` in the modem, then powers the card down or up. -1 also when it could not be
// stored; nothing is sent then. What the service answers is not looked at.
int velmor_esim_request_uicc_power_ex(const UiccPowerParams* params);

// The eUICC's identifier, two digits a byte. `eid` is untouched when the service has none.
int velmor_uim_request_eid(const uint8_t* slot, uint8_t eid[16]);
