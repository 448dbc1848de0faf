#include "words.h"

#include <algorithm>
#include <iterator>

#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_service.h"
#include "pdc_service.h"
#include "uim_service.h"
#include "velmor_extend_payload.h"
#include "velmor_extend_service.h"

namespace sim {
namespace {

using Services = std::span<const qmi_idl_service_object_type>;

Services all_services() {
  static const qmi_idl_service_object_type services[] = {
      nas_get_service_object_internal_v01(1, 397, 6),
      uim_get_service_object_internal_v01(1, 109, 6),
      sar_get_service_object_internal_v01(1, 15, 6),
      pdc_get_service_object_internal_v01(1, 16, 6),
      vs_get_service_object_internal_v01(1, 2, 6),
      velmor_extend_get_service_object_internal_v01(1, 1, 6),
  };
  return services;
}

const qmi_idl_service_object* find_service(auto is_it) {
  const Services services = all_services();
  const auto found = std::find_if(services.begin(), services.end(), is_it);
  return found != services.end() ? *found : nullptr;
}

}  // namespace

const qmi_idl_service_object* service_named(std::string_view name) {
  return find_service([&](qmi_idl_service_object_type service) { return service->name == name; });
}

const qmi_idl_service_object* service_of(uint32_t id) {
  return find_service(
      [&](qmi_idl_service_object_type service) { return service->service_id == id; });
}

const qmi::Message* request_named(const qmi_idl_service_object& service, std::string_view name) {
  for (const qmi::Message& message : service.messages) {
    if (message.kind == qmi::Kind::Request && message.name == name) return &message;
  }
  return nullptr;
}

std::string_view operation_named(const qmi_idl_service_object& service, std::string_view word) {
  if (has_payloads(service.service_id)) {
    if (word == "restart") return "modem_ssr";
    return velmor_extend_is_operation(word) ? word : "";
  }
  return service_named("uim") == &service && word == "memory_reset" ? word : "";
}

bool has_payloads(uint32_t service) {
  return service_named("extend")->service_id == service;
}

Asked::Asked(const qmi_idl_service_object& service, std::span<const uint8_t> packet)
    : service(service), message(0) {
  const auto header = qmi::read_header(packet);
  if (!header) return;
  message = header->message;
  const qmi::Message* known = service.find(qmi::Kind::Request, message);
  if (known == nullptr) return;
  const auto body = packet.subspan(qmi::kHeaderBytes);
  for (const qmi::Field& row : known->fields) {
    if (row.shape.payload != nullptr) operation = row.shape.payload(qmi::Kind::Request, body).name;
  }
}

}  // namespace sim
