// The maker's diag library: commands to the modem's diag port. On a device that is its diag router,
// where one runs, else the socket /dev/diag.
//
// Each call returns 0, or -1 when the port cannot be opened, or when not all of it is done within
// `time_out_ms` (without result: a second). What the port says that is no answer to the command is
// skipped until then.
// The two ways of the phone's library, by callback and through the DCI, make no difference on the
// one port that stands for both here.
#pragma once

// `rsp` receives the answer: `*rsp_len` is its room on entry, the bytes stored on return. A longer
// answer is cut.
int velmor_diag_cmd_send_with_result_by_callback_mode(const unsigned char* cmd,
                                                      unsigned int cmd_len,
                                                      unsigned int time_out_ms, unsigned char* rsp,
                                                      unsigned int* rsp_len);
int velmor_diag_cmd_send_with_result_by_dci_mode(const unsigned char* cmd, unsigned int cmd_len,
                                                 unsigned int time_out_ms, unsigned char* rsp,
                                                 unsigned int* rsp_len);

int velmor_diag_cmd_send_without_result_by_callback_mode(const unsigned char* cmd,
                                                         unsigned int cmd_len);
int velmor_diag_cmd_send_without_result_by_dci_mode(const unsigned char* cmd, unsigned int cmd_len);
