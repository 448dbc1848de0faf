// Module 12: starts network scans.
//
//   tovi 12 0    full scan
//   tovi 12 1    incremental scan
//
// Only whether the request went through is reported; what the modem found is dropped.
#include "velmor_tovi_qmi.h"

#include "modem_api/nas/nas_service.h"
#include "velmor_extend_cmn.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

constexpr int kModule = 12;
constexpr uint32_t kScanTimeOutMs = 10000;

// The word at the end of two lines is part of the text.
// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: qmi option cmd", {kModule}},
  {"   tovi %d %d arlist               /* nas_perform_network_scan_req_msg_v01 */VELMOR_LOG_DEBUG", {kModule, 0}},
  {"   tovi %d %d arlist               /* nas_perform_incremental_network_scan_req_msg_v01 */VELMOR_LOG_DEBUG", {kModule, 1}},
};
// clang-format on

// Sends one scan request in the name of `speaker`; the scope is not part of it.
template <typename Request, typename Response>
int scan(uint16_t msg_id, Speaker speaker) {
  LogScope scope(speaker);
  velmor_log(LogLevel::Debug, speaker, "%s, scan_scope = %d", speaker.function,
             static_cast<int>(NAS_SCAN_SCOPE_FULL_BAND_V01));
  Request req{};
  Response resp{};
  const int result =
      velmor_send_nas_qmi_req_msg(msg_id, &req, sizeof req, &resp, sizeof resp, kScanTimeOutMs);
  if (result != 0) {
    velmor_log(LogLevel::Debug, speaker, "qmi_client_send_msg_sync fail, qmi_client_error = %d",
               result);
  }
  return result;
}

int velmor_send_nas_perform_network_scan_req_msg_v01(nas_scan_scope_enum_v01) {
  return scan<nas_perform_network_scan_req_msg_v01, nas_perform_network_scan_resp_msg_v01>(
      QMI_NAS_PERFORM_NETWORK_SCAN_REQ_MSG_V01, Speaker::here());
}

int velmor_send_nas_perform_incremental_network_scan_req_msg_v01(nas_scan_scope_enum_v01) {
  return scan<nas_perform_incremental_network_scan_req_msg_v01,
              nas_perform_incremental_network_scan_resp_msg_v01>(
      QMI_NAS_PERFORM_INCREMENTAL_NETWORK_SCAN_REQ_MSG_V01, Speaker::here());
}

constexpr int (*kCommands[])(nas_scan_scope_enum_v01) = {
    velmor_send_nas_perform_network_scan_req_msg_v01,
    velmor_send_nas_perform_incremental_network_scan_req_msg_v01,
};

}  // namespace

void velmor_test_qmi_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_qmi_do(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, 3)) return 0;
  const int command = velmor_atoi(argv[2]);
  if (command < 0 || command >= static_cast<int>(std::size(kCommands))) {
    velmor_refuse_command(kModule);
    return 0;
  }
  if (const int result = kCommands[command](NAS_SCAN_SCOPE_FULL_BAND_V01)) {
    VELMOR_LOG_DEBUG("VELMOR_LOG_DEBUGnote: Error happen! error_code(%d)VELMOR_LOG_DEBUG", result);
    show_help(kModule);
  }
  return 0;
}
