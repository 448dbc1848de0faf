// The vendor extension service: the process's one client of it, the exchange that tunnels opaque
// payloads of up to 512 bytes, and the common requests built on that exchange.
//
// The client is opened by the first exchange and lives until the process ends; a failed open is
// tried again by the next exchange. All exchanges of the process are serialised.
#pragma once

#include <atomic>
#include <cstdint>

#include "qmi_client.h"
#include "velmor_extend_payload.h"
#include "velmor_extend_service.h"

// Gates what the client prints to standard output; 0 keeps all but a few lines quiet.
extern std::atomic<uint32_t> g_velmor_extend_print_flag;

// Results of velmor_extend_qmi_send_sync.
enum : int {
  VELMOR_EXTEND_OK = 0,
  VELMOR_EXTEND_BAD_ARGUMENT = -1,
  VELMOR_EXTEND_NO_CLIENT = -2,  // no client could be opened
  VELMOR_EXTEND_FAILED = -3,     // transport failure, time-out, or refused by the service
};

// Sends `data_len` (0 to 512) bytes of `data` as a payload of the kind `request_id` and waits up to
// 3 s for the answer. `*resp_len` is the room in `resp` (at most 512) on entry and the number of
// bytes stored on return; a longer answer is cut. On failure neither is written.
int velmor_extend_qmi_send_sync(unsigned int request_id, const unsigned char* data, int data_len,
                                unsigned char* resp, unsigned int* resp_len);

// The process's client, opened if need be; null on failure.
qmi_client_type velmor_extend_qmi_client_open();

// The indication callback of the client. Runs on a thread of the QMI library.
void velmor_extend_qmi_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf,
                              unsigned int len, void* cb_data);

// Receives the payload of indication 0x03 for one `ind_id`.
using velmor_extend_ind_handler = void (*)(unsigned int ind_id, const unsigned char* data,
                                           unsigned int data_len);
// Receives indications 0x05 to 0x09, decoded into their C structure of `c_len` bytes.
using velmor_extend_generic_ind_handler = void (*)(unsigned int msg_id, const void* c_struct,
                                                   unsigned int c_len);

inline constexpr unsigned int kExtendIndSlots = 7;  // ind_id 0 to 6

// Install a handler, or null for none. False when `ind_id` has no slot.
bool velmor_extend_set_ind_handler(unsigned int ind_id, velmor_extend_ind_handler handler);
void velmor_extend_set_generic_ind_handler(velmor_extend_generic_ind_handler handler);

// Send a common request as it stands and receive the answer, however short: what it leaves out of
// `*rsp` stays as it was. The exchange's result.
int velmor_send_common_payload(const velmor_common_tlv_req& req, velmor_common_rsp* rsp);
int velmor_send_common_payload(const velmor_common_direct_req& req, velmor_common_rsp* rsp);

// Send the common request `t` with `l` bytes of value `v` (null only when `l` is 0) and receive the
// answer into `rsp`, a velmor_common_rsp. The first sends type, length and value, `l` up to 491;
// the second type and value only, `l` up to 499. The exchange's result, or VELMOR_INVALID_ARGUMENT;
// an answer of fewer than 8 bytes holds no `result` and counts as a failed exchange. Success does
// not mean that the modem did the work: `rsp`'s `result` says that.
int velmor_send_common_qmi_msg(unsigned int t, unsigned int l, void* v, void* rsp);
int velmor_common_qmi_req(unsigned int t, unsigned int l, void* v, void* rsp);

// The modem's SAR DSI, asked of the SAR service through a client that lives for this call only;
// -1 when that fails. The result inside the response is not looked at.
int velmor_get_sar_dsi();

// Sends one NAS request on a client that lives for this call only: `req` and `resp` are the C
// structures of message `msg_id` with their sizes. 0; -1 for a null structure or when no client
// could be opened within 5 s; else the library's result of the send. What the modem's result in the
// response says is the caller's. One caller at a time.
int velmor_send_nas_qmi_req_msg(unsigned int msg_id, void* req, unsigned int req_len, void* resp,
                                unsigned int resp_len, unsigned int time_out_ms);

// Called before and after that client is released: for whoever waits for what the modem tells after
// its response. Null, the default, for nobody.
extern void (*g_velmor_nas_release_hook)(bool released);

// Callbacks for clients that only want to be heard of in the log. They run on threads of the QMI
// library.
void velmor_qmi_client_common_empty_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id,
                                                 void* buf, unsigned int len, void* cb_data);
void velmor_qmi_client_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf,
                                    unsigned int len, void* cb_data);
void velmor_qmi_client_error_cb(qmi_client_type handle, qmi_client_error_type error, void* cb_data);
