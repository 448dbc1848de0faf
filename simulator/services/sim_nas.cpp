#include "sim_nas.h"

#include <string_view>

#include "modem_api/nas/nas_service.h"

namespace sim {
namespace {

struct Network {
  uint16_t mcc;
  uint16_t mnc;
  uint8_t status;
  uint8_t rat;
  std::string_view name;
};

// What is on the air: the serving home network, another one, a forbidden one, a small one in 5G.
constexpr Network kNetworks[] = {
    {1, 1, 0x01 | 0x04 | 0x20 | 0x80, 8, "TEST 1"},
    {1, 2, 0x02 | 0x08 | 0x20 | 0x80, 8, "TEST 2"},
    {1, 3, 0x02 | 0x08 | 0x10 | 0x80, 5, "TEST 3"},
    {999, 99, 0x02 | 0x08 | 0x20 | 0x80, 12, "Lab 5G"},
};

template <typename Entry>
void put_name(const Network& network, Entry& entry) {
  entry.name_len = static_cast<uint32_t>(
      network.name.copy(reinterpret_cast<char*>(entry.name), sizeof entry.name));
}

void full_scan(nas_perform_network_scan_resp_msg_v01& resp) {
  resp.network_valid = resp.rat_valid = resp.mnc_valid = resp.scan_result_valid = 1;
  for (const Network& network : kNetworks) {
    nas_network_v01& entry = resp.network[resp.network_len++];
    entry.mcc = network.mcc;
    entry.mnc = network.mnc;
    entry.status = network.status;
    put_name(network, entry);
    resp.rat[resp.rat_len++] = {network.mcc, network.mnc, network.rat};
    resp.mnc[resp.mnc_len++] = {network.mcc, network.mnc, 0};
  }
}

constexpr uint32_t kFindMs = 500;

// Each network is reported when it is found, together with those before it.
void incremental_scan(Aftermath& aftermath) {
  nas_perform_incremental_network_scan_ind_msg_v01 ind{};
  ind.network_valid = 1;
  ind.scan_status = 1;
  for (const Network& network : kNetworks) {
    nas_found_network_v01& entry = ind.network[ind.network_len++];
    entry.mcc = network.mcc;
    entry.mnc = network.mnc;
    entry.status = network.status;
    entry.rat = network.rat;
    put_name(network, entry);
    if (ind.network_len == std::size(kNetworks)) ind.scan_status = 0;
    aftermath.indicate(QMI_NAS_PERFORM_INCREMENTAL_NETWORK_SCAN_REQ_MSG_V01, &ind,
                       ind.network_len * kFindMs);
  }
}

}  // namespace

const qmi_idl_service_object& NasService::description() const {
  return *nas_get_service_object_internal_v01(1, 397, 6);
}

uint32_t NasService::answer(qmi::Address, uint16_t message, const void* request, void* response,
                            Aftermath& aftermath) {
  switch (message) {
    case QMI_NAS_PERFORM_NETWORK_SCAN_REQ_MSG_V01:
      full_scan(*static_cast<nas_perform_network_scan_resp_msg_v01*>(response));
      return 0;
    case QMI_NAS_PERFORM_INCREMENTAL_NETWORK_SCAN_REQ_MSG_V01:
      incremental_scan(aftermath);
      return 0;
    case QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01: {
      const auto& req = *static_cast<const nas_bind_subscription_req_msg_v01*>(request);
      return req.subscription < 2 ? 0 : kQmiInvalidArgument;
    }
    case QMI_NAS_INDICATION_REGISTER_REQ_MSG_V01: return 0;
    default: return kQmiNotSupported;
  }
}

}  // namespace sim
