#include "velmor_mbn_utils.h"

#include <errno.h>
#include <stdio.h>

#include <algorithm>

#include "held_signals.h"
#include "pdc_utils.h"
#include "utilities/velmor_log.h"
#include "velmor_extend_nvefs.h"

namespace {

constexpr uint32_t kSubs = 2;
constexpr uint32_t kSubMaskMax = (1 << kSubs) - 1;

int g_velmor_pdc_init_status = -1;  // of the last connection

bool are_valid(uint32_t sub_mask, uint32_t mbn_type, Speaker speaker = Speaker::here()) {
  velmor_log(LogLevel::Debug, speaker, "mbn_type %d", static_cast<int>(mbn_type));
  if (mbn_type > PDC_CONFIG_TYPE_MODEM_SW_V01) {
    velmor_log(LogLevel::Error, speaker, "config_type is invalid");
    return false;
  }
  velmor_log(LogLevel::Debug, speaker, "sub_mask %d", static_cast<int>(sub_mask));
  if (sub_mask < 1 || sub_mask > kSubMaskMax) {
    velmor_log(LogLevel::Error, speaker, "sub_mask is out of range");
    return false;
  }
  return true;
}

// For the user, who needs the id to select the configuration again.
void tell_left_without(uint32_t sub, const pdc_config_pdc_info& config) {
  char id[2 * kPdcMaxId + 1] = "";
  const size_t len = std::min<size_t>(config.config_id_len, kPdcMaxId);
  for (size_t i = 0; i < len; ++i) snprintf(id + 2 * i, 3, "%02x", config.config_id[i]);
  fprintf(stderr, "%s: subscription %u may be left without its configuration %s\n",
          program_invocation_short_name, sub, id);
}

// Deactivates `config`, which is active, and activates it again: not to be stopped in between. The
// result of the activation.
int cycle(pdc_config_pdc_info& config, pdc_config_type_enum_v01 type, uint32_t sub,
          Speaker speaker = Speaker::here()) {
  HeldSignals hold;
  velmor_mbn_deactivate_config(sub, type);
  const int selected = pdc_select_config(&config, type, sub);
  velmor_log(LogLevel::Debug, speaker, "SUB_%u pdc_select_config ret_val %d", sub, selected);
  const int activated = pdc_activate_config(type, sub);
  velmor_log(LogLevel::Debug, speaker, "SUB_%u pdc_activate_config ret_val %d", sub, activated);
  if (selected != 0 || activated != 0) tell_left_without(sub, config);
  return activated;
}

}  // namespace

int velmor_mbn_init(unsigned char force_init) {
  LogScope scope;
  if (force_init == 0 && g_velmor_pdc_init_status == 0) {
    VELMOR_LOG_DEBUG("pdc init have been done, do nothing");
    return 0;
  }
  pdc_clean();
  VELMOR_LOG_DEBUG("start velmor pdc init, g_velmor_pdc_init_status = %d, force_init = %d",
                   g_velmor_pdc_init_status, force_init);
  g_velmor_pdc_init_status = pdc_init();
  if (g_velmor_pdc_init_status != 0) {
    VELMOR_LOG_ERROR("pdc init failed, g_velmor_pdc_init_status = %d", g_velmor_pdc_init_status);
  }
  return g_velmor_pdc_init_status;
}

int velmor_refresh_mbn(uint32_t sub_mask, uint32_t mbn_type) {
  LogScope scope;
  if (const int status = velmor_mbn_init(0)) {
    VELMOR_LOG_ERROR("pdc init failed, do nothing");
    return status;
  }
  if (!are_valid(sub_mask, mbn_type)) return 0;
  int ret = 0;
  for (uint32_t sub = 0; sub < kSubs; ++sub) {
    if ((sub_mask >> sub & 1) == 0) continue;
    ret = pdc_activate_config_ex(static_cast<pdc_config_type_enum_v01>(mbn_type),
                                 PDC_ACTIVATION_REFRESH_ONLY_V01, sub, sub);
    VELMOR_LOG_DEBUG("SUB_%u pdc_activate_config_ex ret %d", sub, ret);
  }
  return ret;
}

int velmor_refresh_sw_mbn(uint32_t sub_mask) {
  return velmor_refresh_mbn(sub_mask, PDC_CONFIG_TYPE_MODEM_SW_V01);
}

int velmor_reactivate_mbn(uint32_t sub_mask, uint32_t mbn_type) {
  LogScope scope;
  if (velmor_mbn_init(1) != 0) {
    VELMOR_LOG_ERROR("pdc init failed, do nothing");
    return -1;
  }
  if (!are_valid(sub_mask, mbn_type)) return -1;
  const auto type = static_cast<pdc_config_type_enum_v01>(mbn_type);
  int ret = -1;
  for (uint32_t sub = 0; sub < kSubs; ++sub) {
    if ((sub_mask >> sub & 1) == 0) continue;
    pdc_config_pdc_info config{};
    const int ret_val = pdc_get_current_config(&config, type, sub);
    VELMOR_LOG_DEBUG("SUB_%u pdc_get_current_config ret_val %d", sub, ret_val);
    if (ret_val != 0) {
      VELMOR_LOG_ERROR("SUB_%u pdc_get_current_config fail", sub);
      return ret_val;
    }
    ret = cycle(config, type, sub);
  }
  return ret;
}

int velmor_reactivate_sw_mbn(uint32_t sub_mask) {
  return velmor_reactivate_mbn(sub_mask, PDC_CONFIG_TYPE_MODEM_SW_V01);
}

void velmor_mbn_deactivate_config(uint32_t sub, pdc_config_type_enum_v01 config_type) {
  LogScope scope;
  const int sub_number = static_cast<int>(sub), type_number = static_cast<int>(config_type);
  if (sub >= kSubs) {
    VELMOR_LOG_DEBUG("sub is invalid, sub: %d", sub_number);
    return;
  }
  if (config_type > PDC_CONFIG_TYPE_MODEM_SW_V01) {
    VELMOR_LOG_DEBUG("config_type is invalid, config_type: %d", type_number);
    return;
  }
  const int ret_pdc = pdc_deactivate_config(sub, config_type);
  const int ret_sync = velmor_nvefs_sync();
  VELMOR_LOG_DEBUG("pdc_deactivate_config, ret_pdc: %d, ret_sync: %d, sub: %d, config_type: %d",
                   ret_pdc, ret_sync, sub_number, type_number);
}
