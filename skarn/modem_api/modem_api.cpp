#include "modem_api/modem_api.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "modem_api/nas/nas_0_client.h"
#include "modem_api/nas/nas_1_client.h"
#include "modem_api/nas/nas_client.h"
#include "modem_api/sar/sar_client.h"
#include "modem_api/vs/vs_client.h"
#include "modem_api/vs/vs_service.h"
#include "mutex.h"
#include "skarn_common/skarn_mem.h"
#include "utilities/velmor_log.h"

namespace {

struct modem_api_client {
  int client_type;
  pid_t pid;
  int operational_status;
  modem_api_event_cb event_cb;
  modem_api_status_cb status_cb;
};

// One kind of client, by its type.
struct ClientKind {
  const char* word;         // in the log
  const char* client_word;  // there, with what follows it
  void (*reset)();
  void (*set_status_callback)(modem_api_status_report_cb);
  bool (*init)(modem_api_event_cb);
  void (*release)();
};
constexpr ClientKind kKinds[] = {
    {"vs", "vs client", vs_init, vs_client_set_operational_status_callback, vs_client_init,
     vs_client_release},
    {"sar", "sar client", sar_init, sar_client_set_operational_status_callback, sar_client_init,
     sar_client_release},
    {"nas", "nas 0 client", nas_0_init, nas_0_client_set_operational_status_callback,
     nas_0_client_init, nas_0_client_release},
    {"nas", "nas 0 client", nas_1_init, nas_1_client_set_operational_status_callback,
     nas_1_client_init, nas_1_client_release},
};
constexpr int kTypes = static_cast<int>(std::size(kKinds));

// Lock order: g_init_mutex or g_table_mutex, the lock of a service client, g_slots_lock. The last
// is held over no call out; status reports take only that one, since a client is released, and
// reports, under the table mutex.
Mutex g_init_mutex;
int g_init_count GUARDED_BY(g_init_mutex);
Mutex g_table_mutex;
Mutex g_slots_lock;
modem_api_client* g_clients[kModemApiClients] GUARDED_BY(g_slots_lock);  // by client id

void clear_slots(Speaker speaker = Speaker::here()) {
  velmor_log(LogLevel::Debug, speaker, "reset client table");
  MutexLock hold(g_slots_lock);
  std::fill(std::begin(g_clients), std::end(g_clients), nullptr);
}

bool is_client_id(int client_id) {
  return client_id >= 0 && client_id < kModemApiClients;
}

// Whether a request may be made of a client: it has the type and is operational.
bool may_request(int client_id, int client_type, Speaker speaker = Speaker::here()) {
  {
    MutexLock hold(g_slots_lock);
    const modem_api_client* client = is_client_id(client_id) ? g_clients[client_id] : nullptr;
    if (client != nullptr && client->client_type == client_type &&
        client->operational_status == MODEM_API_OPERATIONAL) {
      return true;
    }
  }
  velmor_log(LogLevel::Error, speaker, "Unexpected condition, return error %d!",
             MODEM_API_INVALID_CLIENT);
  return false;
}

// The status of the first client of a type, or -1 for none.
int status_of_type(int client_type) {
  MutexLock hold(g_slots_lock);
  for (const modem_api_client* client : g_clients) {
    if (client != nullptr && client->client_type == client_type) return client->operational_status;
  }
  return -1;
}

// Puts a record into the lowest free slot; its id, or -1.
int store(modem_api_client* record) {
  MutexLock hold(g_slots_lock);
  for (int id = 0; id < kModemApiClients; ++id) {
    if (g_clients[id] != nullptr) continue;
    g_clients[id] = record;
    return id;
  }
  return -1;
}

void clear_slot(int client_id) {
  MutexLock hold(g_slots_lock);
  g_clients[client_id] = nullptr;
}

// Whether a client of the type may be registered; the code that says why not.
int check_type(int client_type, Speaker speaker) {
  if (client_type < 0 || client_type >= kTypes) {
    velmor_log(LogLevel::Error, speaker, "modem api client type %d not supported", client_type);
    return MODEM_API_NOT_SUPPORTED;
  }
  const int status = status_of_type(client_type);
  if (status == MODEM_API_OPERATIONAL) {
    velmor_log(LogLevel::Debug, speaker, "Already another client init %s client successfully",
               kKinds[client_type].word);
    return MODEM_API_ALREADY_CONNECTED;
  }
  if (status >= 0) {
    velmor_log(LogLevel::Debug, speaker, "Another client init %s with operational status %d",
               kKinds[client_type].client_word, status);
    return MODEM_API_ALREADY_CONNECTING;
  }
  return MODEM_API_OK;
}

}  // namespace

int modem_api_init() {
  LogScope scope;
  {
    MutexLock hold(g_init_mutex);
    if (g_init_count == 0) {
      ++g_init_count;
      clear_slots();
    }
  }
  for (const ClientKind& kind : kKinds) kind.reset();
  return MODEM_API_OK;
}

int modem_api_release() {
  LogScope scope;
  MutexLock hold(g_init_mutex);
  if (g_init_count > 0) {
    --g_init_count;
    clear_slots();
  }
  return MODEM_API_OK;
}

int modem_api_init_client(int client_type, modem_api_event_cb event_cb,
                          modem_api_status_cb status_cb, int* client_id_out) {
  LogScope scope;
  auto* record = static_cast<modem_api_client*>(
      skarn_malloc_adv(sizeof(modem_api_client), __func__, __LINE__));
  if (record == nullptr) {
    VELMOR_LOG_ERROR("could not allocate memory");
    return MODEM_API_NO_MEMORY;
  }
  const auto give_up = [&](int result) {
    skarn_free_adv(record, "modem_api_init_client", __LINE__);
    return result;
  };
  if (const int refused = check_type(client_type, Speaker::here())) return give_up(refused);
  *record = {client_type, getpid(), MODEM_API_RELEASED, event_cb, status_cb};
  const int client_id = store(record);
  if (client_id < 0) {
    VELMOR_LOG_ERROR("no more client can be added");
    return give_up(MODEM_API_TABLE_FULL);
  }
  const ClientKind& kind = kKinds[client_type];
  kind.set_status_callback(modem_api_operational_status_cb);
  if (!kind.init(event_cb)) {
    clear_slot(client_id);
    return give_up(MODEM_API_FAILED);
  }
  *client_id_out = client_id;
  VELMOR_LOG_DEBUG("new client: type %d, id %d", client_type, client_id);
  if (client_type == MODEM_API_NAS_0) modem_api_util_enable_networking_indications(client_id, 0);
  if (client_type == MODEM_API_NAS_1) modem_api_util_enable_networking_indications(client_id, 1);
  return MODEM_API_OK;
}

void modem_api_operational_status_cb(int client_type, int operational_status) {
  LogScope scope;
  for (int id = 0; id < kModemApiClients; ++id) {
    modem_api_status_cb status_cb;
    {
      MutexLock hold(g_slots_lock);
      modem_api_client* client = g_clients[id];
      if (client == nullptr || client->client_type != client_type) continue;
      client->operational_status = operational_status;
      status_cb = client->status_cb;
    }
    VELMOR_LOG_DEBUG("client type %d, client id %d, operational_status %d", client_type, id,
                     operational_status);
    if (status_cb == nullptr) continue;
    if (operational_status == MODEM_API_OPERATIONAL) {
      status_cb(MODEM_API_SERVICE_AVAILABLE, client_type);
    } else if (operational_status == MODEM_API_SUSPENDING) {
      status_cb(MODEM_API_SERVICE_UNAVAILABLE, client_type);
    }
  }
}

int modem_api_free_client(int client_id) {
  LogScope scope;
  VELMOR_LOG_DEBUG("client_id %d", client_id);
  if (!is_client_id(client_id)) {
    VELMOR_LOG_ERROR("invalid client_id %d", client_id);
    return MODEM_API_INVALID_CLIENT;
  }
  MutexLock hold(g_table_mutex);
  modem_api_client* record;
  {
    MutexLock slots(g_slots_lock);
    record = g_clients[client_id];
  }
  if (record == nullptr) {
    VELMOR_LOG_ERROR("client already freed");
    return MODEM_API_OK;
  }
  kKinds[record->client_type].release();
  clear_slot(client_id);
  skarn_free_adv(record, __func__, __LINE__);
  return MODEM_API_OK;
}

int modem_api_map_qmi_error_to_modem_api(int transport_error, const qmi_response_type_v01* resp) {
  LogScope scope;
  switch (transport_error) {
    case QMI_NO_ERR:
    case QMI_SERVICE_ERR: break;
    case QMI_INTERNAL_ERR:
    case QMI_PORT_NOT_OPEN_ERR: return MODEM_API_TRANSPORT_FAILED;
    case QMI_TIMEOUT_ERR: return MODEM_API_TIMED_OUT;
    default: return MODEM_API_FAILED;
  }
  if (resp->result == 0) return MODEM_API_OK;
  if (resp->result != 1) return MODEM_API_FAILED;
  switch (resp->error) {
    case 0x00:  // none
    case 0x1A:  // no effect
      return MODEM_API_OK;
    case 0x04: return MODEM_API_ABORTED;
    case 0x11:  // missing argument
    case 0x13:  // argument too long
    case 0x30:  // invalid argument
    case 0x31:  // invalid index
      return MODEM_API_INVALID_ARGUMENT;
    case 0x18:  // network unsupported
    case 0x2A:  // requested number unsupported
    case 0x4D:  // bundling not supported
    case 0x5E:  // not supported
      return MODEM_API_NOT_SUPPORTED;
    case 0x34: return MODEM_API_NOT_READY;
    default: return MODEM_API_FAILED;
  }
}

void modem_api_process_response(unsigned int msg_id, void* resp, unsigned int resp_len,
                                modem_api_response_record* record, int transport_error) {
  LogScope scope;
  if (record != nullptr && record->callback != nullptr) {
    const auto answer = [&](void* data, int data_len, int status) {
      record->callback(data, data_len, record->user, status);
    };
    const auto* result = static_cast<const qmi_response_type_v01*>(resp);
    const bool empty = resp == nullptr || resp_len < sizeof *result;
    const int status =
        empty ? MODEM_API_NO_MEMORY : modem_api_map_qmi_error_to_modem_api(transport_error, result);
    if (status != MODEM_API_OK) {
      answer(nullptr, 0, status);
    } else {
      if (msg_id == 0 && resp_len >= sizeof(vs_raw_resp_msg_v01)) {
        const auto* raw = static_cast<const vs_raw_resp_msg_v01*>(resp);
        const uint32_t data_len = std::min(raw->data_len, kVsMaxRawBytes);
        void* copy = skarn_malloc_adv(data_len, __func__, __LINE__);
        if (copy != nullptr) {
          memcpy(copy, raw->data, data_len);
          answer(copy, static_cast<int>(data_len), MODEM_API_OK);
        } else {
          answer(nullptr, 0, MODEM_API_NO_MEMORY);
        }
      }
      answer(nullptr, 0, MODEM_API_END_OF_RESPONSE);
    }
  }
  skarn_free_adv(resp, __func__, __LINE__);
  skarn_free_adv(record, __func__, __LINE__);
}

int modem_api_util_enable_networking_indications(int client_id, int nas_index) {
  LogScope scope;
  const int type = nas_index == 0 ? MODEM_API_NAS_0 : MODEM_API_NAS_1;
  if (!may_request(client_id, type)) return MODEM_API_INVALID_CLIENT;
  auto req = nas_no_serving_system_indications();
  nas_indication_register_resp_msg_v01 resp{};
  const auto send = nas_index == 0 ? nas_0_client_send_msg_sync : nas_1_client_send_msg_sync;
  const int error =
      send(QMI_NAS_INDICATION_REGISTER_REQ_MSG_V01, &req, sizeof req, &resp, sizeof resp);
  const int result = modem_api_map_qmi_error_to_modem_api(error, &resp.resp);
  VELMOR_LOG_DEBUG("enable_indication result: %d", result);
  return result;
}

int modem_api_set_skarn_feature_status(int client_id, uint32_t feature, uint8_t status,
                                       uint8_t option_present, uint8_t option) {
  LogScope scope;
  if (!may_request(client_id, MODEM_API_VS)) return MODEM_API_INVALID_CLIENT;
  vs_set_feature_req_msg_v01 req{};
  req.feature = feature;
  req.status = status;
  req.option_valid = option_present != 0 ? 1 : 0;
  req.option = option;
  vs_resp_msg_v01 resp{};
  const int error = vs_client_send_msg_sync(kVsSetFeatureMsg, &req, sizeof req, &resp, sizeof resp);
  const int result = modem_api_map_qmi_error_to_modem_api(error, &resp.resp);
  VELMOR_LOG_DEBUG("result %d", result);
  return result;
}

namespace {

void fill_request(uint16_t sub, uint16_t slot, const modem_stats_para_data& data,
                  vs_get_stats_req_msg_v01& req, Speaker speaker) {
  req.sub = sub;
  req.slot = slot;
  req.stats_len = data.para_num;
  for (uint32_t i = 0; i < data.para_num; ++i) {
    const modem_stats_para_entry& entry = data.entries[i];
    vs_stat_v01& stat = req.stats[i];
    stat.id = entry.id;
    stat.value_len = std::min(entry.value_len, kVsMaxValue);
    memcpy(stat.value, entry.value, sizeof stat.value);
    uint32_t type;
    memcpy(&type, entry.value, sizeof type);
    velmor_log(LogLevel::Debug, speaker, "ids[%d] = %d, value_len = %d, type = %d, value: %s",
               static_cast<int>(i), static_cast<int>(entry.id), static_cast<int>(entry.value_len),
               static_cast<int>(type), skarn_get_print_buf(entry.value + sizeof type));
  }
}

void take_response(const vs_get_stats_resp_msg_v01& resp, modem_stats_para_data& data) {
  data.para_num = std::min(resp.stats_len, kStatsMax);
  for (uint32_t i = 0; i < data.para_num; ++i) {
    const vs_stat_v01& stat = resp.stats[i];
    modem_stats_para_entry& entry = data.entries[i];
    entry.sub = stat.sub;
    entry.word = stat.word;
    entry.id = stat.id;
    entry.value_len = std::min(stat.value_len, kStatsValueMax);
    memcpy(entry.value, stat.value, entry.value_len);
  }
}

}  // namespace

int modem_api_get_stats_parameter(int client_id, uint16_t sub, uint16_t slot,
                                  modem_stats_para_data* data) {
  LogScope scope;
  VELMOR_LOG_DEBUG("client_id = %d, sub = %d, slot = %d", client_id, sub, slot);
  if (!may_request(client_id, MODEM_API_VS)) return MODEM_API_INVALID_CLIENT;
  if (data == nullptr) {
    VELMOR_LOG_DEBUG("stats_para_data is null");
    return MODEM_API_INVALID_ARGUMENT;
  }
  if (data->para_num < 1 || data->para_num > kStatsMax) {
    VELMOR_LOG_DEBUG("para_num(%d) is invalid", static_cast<int>(data->para_num));
    return MODEM_API_INVALID_ARGUMENT;
  }
  vs_get_stats_req_msg_v01 req{};
  vs_get_stats_resp_msg_v01 resp{};
  fill_request(sub, slot, *data, req, Speaker::here());
  const int error = vs_client_send_msg_sync(kVsGetStatsMsg, &req, sizeof req, &resp, sizeof resp);
  const int result = modem_api_map_qmi_error_to_modem_api(error, &resp.resp);
  if (result != MODEM_API_OK) return result;
  if (resp.stats_valid == 0) return MODEM_API_FAILED;
  take_response(resp, *data);
  return MODEM_API_OK;
}
