#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "mutex.h"
#include "velmor_extend_cmn.h"

std::atomic<uint32_t> g_velmor_extend_print_flag = 1;

namespace {

constexpr uint32_t kSendTimeOutMs = 3000;
constexpr int kServiceSearches = 50;
constexpr uint32_t kServiceSearchMs = 20;
constexpr unsigned int kMaxServers = 32;

struct ExtendQmiClient {
  bool is_set_up;
  velmor_extend_send_data_req_msg_v01 req;
  velmor_extend_send_data_resp_msg_v01 resp;
  qmi_idl_service_object_type service;
  qmi_client_type handle;
  qmi_client_type notifier;
  qmi_client_os_params os_params;
};

// Taken after the NV or the EFS lock, before everything inside the QMI library.
Mutex g_extend_lock;
ExtendQmiClient g_extend_client GUARDED_BY(g_extend_lock);

std::atomic<velmor_extend_ind_handler> g_ind_handlers[kExtendIndSlots];
std::atomic<velmor_extend_generic_ind_handler> g_generic_ind_handler;

[[gnu::format(printf, 1, 2)]] void extend_print(const char* format, ...) {
  if (g_velmor_extend_print_flag == 0) return;
  va_list args;
  va_start(args, format);
  vprintf(format, args);
  va_end(args);
}

int low_word(const void* pointer) {
  return static_cast<int>(reinterpret_cast<uintptr_t>(pointer));
}

void set_up_once() REQUIRES(g_extend_lock) {
  if (g_extend_client.is_set_up) return;
  g_extend_client.is_set_up = true;
  g_extend_client.service = velmor_extend_get_service_object_internal_v01(1, 1, 6);
  if (g_extend_client.service == nullptr) puts("QMI get service obj failed. Check .c and .h");
}

int finish(int result) {
  extend_print("velmor_extend_qmi_handle_req_cb result:%d\n", result);
  return result;
}

qmi_client_type open_client() REQUIRES(g_extend_lock) {
  ExtendQmiClient& client = g_extend_client;
  if (client.notifier != nullptr) qmi_client_release(client.notifier);  // of an attempt that failed
  qmi_client_notifier_init(client.service, &client.os_params, &client.notifier);

  unsigned int num_entries = 0;
  unsigned int num_services = 0;
  for (int search = 0; search < kServiceSearches; ++search) {
    const qmi_client_error_type error =
        qmi_client_get_service_list(client.service, nullptr, &num_entries, &num_services);
    extend_print("VELMOR_QMI_NV: qmi_client_get_service_list() returned %d num_services = %d\n",
                 error, static_cast<int>(num_services));
    if (error == QMI_NO_ERR) break;
    qmi_cci_os_signal_wait(&client.os_params, kServiceSearchMs);
  }

  qmi_service_info list[kMaxServers] = {};
  num_entries = std::min(num_services, kMaxServers);
  qmi_client_error_type error =
      qmi_client_get_service_list(client.service, list, &num_entries, &num_services);
  extend_print("qmi_client_get_service_list, err = %d, num_entries = %d, num_services = %d", error,
               static_cast<int>(num_entries), static_cast<int>(num_services));

  qmi_client_type handle = nullptr;
  error = qmi_client_init(&list[0], client.service, velmor_extend_qmi_ind_cb, nullptr, nullptr,
                          &handle);
  extend_print("qmi_client_init, err = %d, handle = %d, client_handle = %d", error,
               low_word(handle), low_word(client.handle));
  if (error != QMI_NO_ERR) {
    printf("%d QMI client init failed\n", error);
    return nullptr;
  }
  extend_print("QMI client inited\n");
  return handle;
}

// The process's client, opened if need be; null on failure.
qmi_client_type client_handle() REQUIRES(g_extend_lock) {
  if (g_extend_client.handle == nullptr) g_extend_client.handle = open_client();
  return g_extend_client.handle;
}

// Sends `data` and leaves the answer in the client's response record.
int exchange(unsigned int request_id, const unsigned char* data, int data_len)
    REQUIRES(g_extend_lock) {
  ExtendQmiClient& client = g_extend_client;
  if (client_handle() == nullptr) return VELMOR_EXTEND_NO_CLIENT;

  memset(&client.req, 0, sizeof client.req);
  memset(&client.resp, 0, sizeof client.resp);
  client.req.request_id = request_id;
  memcpy(client.req.data, data, static_cast<size_t>(data_len));
  client.req.data_len = static_cast<uint32_t>(data_len);
  client.req.data_valid = 1;

  const qmi_client_error_type error =
      qmi_client_send_msg_sync(client.handle, kExtendSendDataMsg, &client.req, sizeof client.req,
                               &client.resp, sizeof client.resp, kSendTimeOutMs);
  if (error != QMI_NO_ERR) {
    extend_print("send msg sync failed:%d\n", error);
    return VELMOR_EXTEND_FAILED;
  }
  if (client.resp.result != 0) {
    extend_print("%d QMI service framework error. Check client\n",
                 static_cast<int>(client.resp.result));
    return VELMOR_EXTEND_FAILED;
  }
  return VELMOR_EXTEND_OK;
}

}  // namespace

int velmor_extend_qmi_send_sync(unsigned int request_id, const unsigned char* data, int data_len,
                                unsigned char* resp, unsigned int* resp_len) {
  MutexLock hold(g_extend_lock);
  set_up_once();
  if (data == nullptr || resp == nullptr || resp_len == nullptr) {
    extend_print("%x,  put Invalid param\n", static_cast<unsigned int>(low_word(data)));
    return VELMOR_EXTEND_BAD_ARGUMENT;
  }
  constexpr int kMax = kExtendDataBytes;
  if (data_len < 0 || data_len > kMax || *resp_len > kExtendDataBytes) {
    extend_print("put data_len %d > max %d\n", data_len, kMax);
    return VELMOR_EXTEND_BAD_ARGUMENT;
  }

  const int result = exchange(request_id, data, data_len);
  if (result != VELMOR_EXTEND_OK) return finish(result);
  const velmor_extend_send_data_resp_msg_v01& answer = g_extend_client.resp;
  *resp_len = answer.data_valid != 0 ? std::min(*resp_len, answer.data_len) : 0;
  memcpy(resp, answer.data, *resp_len);
  extend_print("velmor_extend_qmi_send_sync resp_len:%d\n", static_cast<int>(*resp_len));
  return finish(VELMOR_EXTEND_OK);
}

qmi_client_type velmor_extend_qmi_client_open() {
  MutexLock hold(g_extend_lock);
  set_up_once();
  return client_handle();
}

bool velmor_extend_set_ind_handler(unsigned int ind_id, velmor_extend_ind_handler handler) {
  if (ind_id >= kExtendIndSlots) return false;
  g_ind_handlers[ind_id] = handler;
  return true;
}

void velmor_extend_set_generic_ind_handler(velmor_extend_generic_ind_handler handler) {
  g_generic_ind_handler = handler;
}

namespace {

void handle_data_ind(qmi_client_type handle, void* buf, unsigned int len) {
  printf("VELMOR__EXTEND_QMI: Indication msg_id=0x%x buf_len=%d \n", kExtendDataInd,
         static_cast<int>(len));
  // A malformed indication leaves the record cleared and so counts as one with ind_id 0.
  velmor_extend_data_ind_msg_v01 ind{};
  qmi_client_message_decode(handle, QMI_IDL_INDICATION, kExtendDataInd, buf, len, &ind, sizeof ind);
  if (ind.ind_id >= kExtendIndSlots) {
    printf("Indicaion: %d greater than maximum known indication.", static_cast<int>(ind.ind_id));
    return;
  }
  const velmor_extend_ind_handler handler = g_ind_handlers[ind.ind_id];
  if (handler == nullptr) {
    printf("No function defined to handle indication: %d", static_cast<int>(ind.ind_id));
    return;
  }
  const unsigned int held = ind.data_valid != 0 ? std::min(ind.data_len, kExtendDataBytes) : 0;
  handler(ind.ind_id, ind.data, held);
}

void handle_generic_ind(qmi_client_type handle, unsigned int msg_id, void* buf, unsigned int len) {
  // The largest of the structures, so that each of them fits.
  alignas(uint64_t) unsigned char c_struct[sizeof(velmor_extend_item_lists_ind_msg_v01)] = {};
  uint32_t c_len = 0;
  qmi_idl_get_message_c_struct_len(velmor_extend_get_service_object_internal_v01(1, 1, 6),
                                   QMI_IDL_INDICATION, msg_id, &c_len);
  if (qmi_client_message_decode(handle, QMI_IDL_INDICATION, msg_id, buf, len, c_struct,
                                sizeof c_struct) != QMI_NO_ERR) {
    return;
  }
  const velmor_extend_generic_ind_handler handler = g_generic_ind_handler;
  if (handler != nullptr) handler(msg_id, c_struct, c_len);
}

}  // namespace

void velmor_extend_qmi_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf,
                              unsigned int len, void* /*cb_data*/) {
  if (msg_id == kExtendDataInd) {
    handle_data_ind(handle, buf, len);
  } else if (msg_id >= 0x05 && msg_id <= 0x09) {
    handle_generic_ind(handle, msg_id, buf, len);
  }
}
