#include "bus_survey.h"

#include <algorithm>

#include "environment.h"
#include "qcci/endpoint.h"

namespace ctl {
namespace {

constexpr uint32_t kSurveyMs = 1000;

// Takes what the name service says about `ids`; whether that changed anything.
void note(const qmi::ControlPacket& packet, std::span<const uint32_t> ids, BusSurvey& survey) {
  if (packet.ends_list()) {
    // A marker tells only by its order what it ends.
    for (BusSurvey::Service& service : survey.services) {
      if (service.answered) continue;
      service.answered = true;
      return;
    }
  }
  for (size_t i = 0; i < ids.size(); ++i) {
    if (ids[i] != packet.service) continue;
    auto& servers = survey.services[i].servers;
    const auto same = [&](const qmi::Server& server) { return server.address == packet.address(); };
    std::erase_if(servers, same);
    if (packet.command == qmi::Control::NewServer) {
      servers.push_back({packet.address(), packet.instance});
    }
  }
}

}  // namespace

BusSurvey survey_bus(std::span<const uint32_t> ids, uint32_t ms) {
  BusSurvey survey;
  survey.services.resize(ids.size());
  const timing::Deadline deadline = timing::peer_deadline(ms);
  const qmi::Opened opened = qmi::open_endpoint(deadline);
  survey.reached = opened.endpoint != nullptr;
  if (!survey.reached) return survey;
  qmi::Endpoint& endpoint = *opened.endpoint;
  for (const uint32_t id : ids) {
    const qmi::ControlPacket lookup{.command = qmi::Control::NewLookup, .service = id};
    if (endpoint.send(endpoint.name_service(), qmi::bytes_of(lookup), deadline) != 0) return survey;
  }
  qmi::Address source;
  std::span<const uint8_t> bytes;
  while (!survey.services.back().answered &&
         endpoint.receive(source, bytes, deadline) == qmi::Endpoint::Received::Packet) {
    const auto packet = qmi::read_control(bytes);
    if (packet && source.port == qmi::kControlPort) note(*packet, ids, survey);
  }
  return survey;
}

Verdict why_no_client(const qmi_idl_service_object& service) {
  const environment::ModemChoice* modem = environment::modem();
  if (modem == nullptr) return {Status::Unreachable, "no modem is named that can be reached"};
  const BusSurvey survey = survey_bus({&service.service_id, 1}, kSurveyMs);
  const std::string title = service_title(service);
  if (!survey.reached) return {Status::Unreachable, "nobody at " + modem->text};
  const BusSurvey::Service& found = survey.services[0];
  if (!found.answered) return {Status::NoAnswer, "the name service of " + modem->text + " is mute"};
  if (found.servers.empty()) return {Status::NoService, "no " + title + " service"};
  for (const qmi::Server& server : found.servers) {
    if ((server.instance & 0xFF) == service.major_version) {
      return {Status::NoService, "the " + title + " service was away"};
    }
  }
  return {Status::NoService, "the " + title + " service is there in version " +
                                 std::to_string(found.servers[0].instance & 0xFF) + " only, not " +
                                 std::to_string(service.major_version)};
}

}  // namespace ctl
