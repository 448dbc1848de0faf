#include "velmor_tovi_test_cmn_esim.h"

#include <stdio.h>
#include <string.h>

#include <string>

#include "timing.h"
#include "utilities/velmor_log.h"
#include "velmor_efs_files.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_cmn_uim.h"
#include "velmor_extend_nvefs.h"
#include "velmor_tovi_test_parse.h"
#include "velmor_utils.h"

namespace {

constexpr uint8_t kSlot = 2;  // the one that is shared
constexpr size_t kEidBytes = 16;
constexpr uint32_t kEidPauseMs = 100;

uint8_t IS_EID_SAVE;  // 1 once the EID is known to be stored in the modem

// Powers the slot down, and up again with `up` as its new content. False when either fails.
bool power_cycle(const UiccPowerParams& down, const UiccPowerParams& up, Speaker speaker) {
  int res = velmor_esim_request_uicc_power_ex(&down);
  velmor_log(LogLevel::Debug, speaker, "POWER_DOWN_UIM2 res = %d", res);
  if (res != 0) return false;
  res = velmor_esim_request_uicc_power_ex(&up);
  velmor_log(LogLevel::Debug, speaker, "POWER_UP_UIM2 res = %d", res);
  return res == 0;
}

// Asks for the EID until its first byte is not 0: a card takes its time after it is powered up.
bool poll_eid(uint8_t eid[kEidBytes], int attempts, Speaker speaker) {
  memset(eid, 0, kEidBytes);
  for (int i = 0; i < attempts; ++i) {
    timing::sleep_ms(kEidPauseMs);
    velmor_log(LogLevel::Debug, speaker, "try get eid loop = %d", i);
    velmor_uim_request_eid(&kSlot, eid);
    if (eid[0] != 0) return true;
  }
  return false;
}

std::string hex_text(const void* bytes, size_t count) {
  std::string text(2 * count, '0');
  auto* from = static_cast<unsigned char*>(const_cast<void*>(bytes));
  velmor_byte_to_hex(from, static_cast<int>(count), text.data());
  return text;
}

// The cases of the test. Each prints its result and gives true, or false for one that failed
// without more to say.

bool switch_to_esim(Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "switch to eSIM");
  constexpr UiccPowerParams kDown = {
      .power_up = 0, .slot = kSlot, .ignore_hotswap = 0, .esim_enable = 0};
  constexpr UiccPowerParams kUp = {
      .power_up = 1, .slot = kSlot, .ignore_hotswap = 1, .esim_enable = 1};
  if (!power_cycle(kDown, kUp, speaker)) return false;
  uint8_t eid[kEidBytes];
  if (!poll_eid(eid, 30, speaker)) {
    velmor_log(LogLevel::Debug, speaker, "get eid timeout");
    return false;
  }
  const std::string text = hex_text(eid, sizeof eid);
  if (is_eid_valid(text.c_str())) {
    save_eid_to_efs(eid);
    printf("eID=%s\n", text.c_str());
  } else {
    printf("value=FAILED - %s\n", text.c_str());
  }
  return true;
}

bool switch_to_sim2(Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "switch to SIM2");
  constexpr UiccPowerParams kDown = {
      .power_up = 0, .slot = kSlot, .ignore_hotswap = 0, .esim_enable = 1};
  constexpr UiccPowerParams kUp = {
      .power_up = 1, .slot = kSlot, .ignore_hotswap = 0, .esim_enable = 0};
  if (!power_cycle(kDown, kUp, speaker)) return false;
  velmor_log(LogLevel::Debug, speaker, "SIM2 Power Up successfully");
  puts("value=SUCCEED");
  return true;
}

bool show_eid(Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "velmor get eid");
  uint8_t eid[kEidBytes];
  if (!poll_eid(eid, 2, speaker)) return false;
  printf("eID=%s\n", hex_text(eid, sizeof eid).c_str());
  return true;
}

bool show_card_status(Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "try get simcard status");
  UimCardStatus status{};
  if (velmor_uim_get_card_status(&status) != 0) return false;
  velmor_log(LogLevel::Debug, speaker, "card_status, [%d, %d]", status.state[0], status.state[1]);
  map_sim_state(status.state);
  return true;
}

// The card's two good answers to a memory reset: the length of the answer, the answer.
constexpr const char* kResetDone = "08bf34038001009000";
constexpr const char* kNothingToDelete = "08bf34038001019000";

bool reset_euicc(Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "Start eUICC Reset");
  constexpr UimOpenChannelParams kOpen = {.slot = kSlot, .file_control_information = 1};
  uint8_t channel_id = 0xFF;
  int res = velmor_uim_open_channel(&kOpen, &channel_id);
  velmor_log(LogLevel::Debug, speaker, "velmor_uim_open_channel res = %d, channel_id = %d", res,
             channel_id);
  if (res != 0) return false;

  // STORE DATA with EuiccMemoryReset (BF34), all three options set.
  const UimApduRequest reset = {
      .slot = kSlot,
      .channel_id = channel_id,
      .apdu_len = 13,
      .apdu = {0x80, 0xE2, 0x91, 0x00, 0x07, 0xBF, 0x34, 0x04, 0x82, 0x02, 0x05, 0xE0, 0x00}};
  UimApduResponse response{};
  res = velmor_uim_send_apdu(&reset, &response);
  velmor_log(LogLevel::Debug, speaker, "velmor_uim_send_apdu res = %d", res);
  if (res != 0) return false;

  const std::string apdu = hex_text(&response, 9);
  velmor_log(LogLevel::Debug, speaker, "apdu=%s", apdu.c_str());
  if (apdu == kResetDone) {
    velmor_log(LogLevel::Debug, speaker, "velmor_uim_send_apdu, delete profile successfully.");
  } else if (apdu == kNothingToDelete) {
    velmor_log(LogLevel::Debug, speaker, "velmor_uim_send_apdu, nothing to delete.");
  } else {
    velmor_log(LogLevel::Debug, speaker, "velmor_uim_send_apdu, apdu rsp check failed.");
    return false;
  }
  const UimCloseChannelParams close = {.slot = kSlot, .channel_id = channel_id};
  res = velmor_uim_close_channel(&close);
  velmor_log(LogLevel::Debug, speaker, "velmor_uim_close_channel res = %d", res);
  puts("value=SUCCEED");
  return true;
}

bool refuse(Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "invalid input skip");
  return false;
}

using Case = bool (*)(Speaker speaker);
constexpr Case kCases[] = {refuse,   switch_to_esim,   switch_to_sim2,
                           show_eid, show_card_status, reset_euicc};

}  // namespace

int velmor_cmn_esim_test(int argc, char** argv) {
  if (argc < 5) {
    VELMOR_LOG_DEBUG("invalid input");
    return -1;
  }
  const int esim_on = velmor_atoi(argv[3]);
  const int debug_on = velmor_atoi(argv[4]);
  if (debug_on == 0) {
    g_velmor_extend_print_flag = 0;
    g_velmor_shell_print_flag = 0;
  }
  const bool known = esim_on > 0 && esim_on < static_cast<int>(std::size(kCases));
  const Case run = kCases[known ? esim_on : 0];
  if (!run(Speaker::here())) puts("value=FAILED");
  return 0;
}

bool is_eid_valid(const char* eid_text) {
  VELMOR_LOG_DEBUG("check whether eid valid");
  int r = 0;
  for (size_t i = 0; i < 2 * kEidBytes; ++i) r = (r * 10 + (eid_text[i] - '0')) % 97;
  if (r == 1) {
    VELMOR_LOG_DEBUG("eid validate pass");
    return true;
  }
  VELMOR_LOG_DEBUG("eid validate failed, result = %d", r);
  return false;
}

void save_eid_to_efs(const uint8_t eid[16]) {
  if (IS_EID_SAVE != 0) {
    VELMOR_LOG_DEBUG("EID already saved, skip");
    return;
  }
  unsigned char buf[kEidBytes] = {};
  unsigned int len = sizeof buf;
  const int error_code = velmor_efs_read(1, kEfsEsimEid.path, kEfsEsimEid.path_len(), buf, &len);
  if (error_code == 0) {
    VELMOR_LOG_DEBUG("EID already exists, set IS_EID_SAVE TRUE");
    IS_EID_SAVE = 1;
    return;
  }
  VELMOR_LOG_DEBUG("efs read failed and try save it. error_code : %d", error_code);
  memcpy(buf, eid, sizeof buf);
  const int result = velmor_efs_write(1, kEfsEsimEid.path, kEfsEsimEid.path_len(), buf, sizeof buf);
  VELMOR_LOG_DEBUG("save eid efs result = %d", result);
  if (result != 0) return;
  VELMOR_LOG_DEBUG("save eid successfully, set IS_EID_SAVE TRUE");
  IS_EID_SAVE = 1;
}

void map_sim_state(const uint8_t state[2]) {
  VELMOR_LOG_DEBUG("map_sim_state ...");
  constexpr const char* kWords[] = {"ABSENT", "PRESENT", "ERROR"};
  const auto word = [&](uint8_t value) {
    return value < std::size(kWords) ? kWords[value] : "UNKNOWN";
  };
  printf("%s,%s\n", word(state[0]), word(state[1]));
}
