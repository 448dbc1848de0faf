#include "sim_nas.h"

#include "modem.h"
#include "modem_api/nas/nas_service.h"

namespace sim {
namespace {

uint8_t status_of(const RadioNetwork& network) {
  return static_cast<uint8_t>((network.serving ? 0x01 : 0x02) | (network.home ? 0x04 : 0x08) |
                              (network.forbidden ? 0x10 : 0x20) |
                              (network.preferred ? 0x40 : 0x80));
}

uint8_t number_of(Radio radio) {
  switch (radio) {
    case Radio::Gsm: return 4;
    case Radio::Umts: return 5;
    case Radio::Lte: return 8;
    case Radio::TdScdma: return 9;
    case Radio::Nr: return 12;
  }
  return 0;
}

// What can be told of them.
std::vector<RadioNetwork> found_by(const Modem& modem) {
  std::vector<RadioNetwork> networks = modem.networks();
  if (networks.size() > kNasMaxNetworks) networks.resize(kNasMaxNetworks);
  return networks;
}

template <typename Entry>
void put_network(const RadioNetwork& network, Entry& entry) {
  entry.mcc = network.mcc;
  entry.mnc = network.mnc;
  entry.status = status_of(network);
  entry.name_len = static_cast<uint32_t>(
      network.name.copy(reinterpret_cast<char*>(entry.name), sizeof entry.name));
}

void full_scan(const Modem& modem, nas_perform_network_scan_resp_msg_v01& resp) {
  resp.network_valid = resp.rat_valid = resp.mnc_valid = resp.scan_result_valid = 1;
  for (const RadioNetwork& network : found_by(modem)) {
    put_network(network, resp.network[resp.network_len++]);
    resp.rat[resp.rat_len++] = {network.mcc, network.mnc, number_of(network.radio)};
    resp.mnc[resp.mnc_len++] = {network.mcc, network.mnc, 0};
  }
}

constexpr uint32_t kFindMs = 500;

// Each network is reported when it is found, together with those before it.
void incremental_scan(const Modem& modem, Aftermath& aftermath) {
  nas_perform_incremental_network_scan_ind_msg_v01 ind{};
  ind.network_valid = 1;
  ind.scan_status = 1;
  const std::vector<RadioNetwork> networks = found_by(modem);
  const auto report = [&] {
    if (ind.network_len == networks.size()) ind.scan_status = 0;
    aftermath.indicate(QMI_NAS_PERFORM_INCREMENTAL_NETWORK_SCAN_REQ_MSG_V01, &ind,
                       ind.network_len * kFindMs);
  };
  for (const RadioNetwork& network : networks) {
    nas_found_network_v01& entry = ind.network[ind.network_len++];
    put_network(network, entry);
    entry.rat = number_of(network.radio);
    report();
  }
  if (networks.empty()) report();
}

}  // namespace

const qmi_idl_service_object& NasService::description() const {
  return *nas_get_service_object_internal_v01(1, 397, 6);
}

uint32_t NasService::answer(qmi::Address, uint16_t message, const void* request, void* response,
                            Aftermath& aftermath) {
  switch (message) {
    case QMI_NAS_PERFORM_NETWORK_SCAN_REQ_MSG_V01:
      full_scan(modem_, *static_cast<nas_perform_network_scan_resp_msg_v01*>(response));
      return 0;
    case QMI_NAS_PERFORM_INCREMENTAL_NETWORK_SCAN_REQ_MSG_V01:
      incremental_scan(modem_, aftermath);
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
