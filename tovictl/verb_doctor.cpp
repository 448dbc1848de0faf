// tovictl doctor: where the modem is, what of it is there, and what is wrong.
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bus_survey.h"
#include "descriptor.h"
#include "device_path.h"
#include "environment.h"
#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_service.h"
#include "modem_files.h"
#include "pdc_service.h"
#include "qcci/qrtr_socket.h"
#include "results.h"
#include "uim_service.h"
#include "unix_address.h"
#include "velmor_utils.h"
#include "verbs.h"

namespace ctl {
namespace {

struct Arguments {
  bool ask = false;
};

// What is found, line by line, and the worst of it.
class Findings {
 public:
  explicit Findings(bool shown) : shown_(shown) {}

  void note(const std::string& what, const std::string& text, Verdict verdict = {}) {
    lines_.push_back({{"what", what}, {"found", text}, {"ok", verdict.ok()}});
    if (shown_) {
      char line[256];
      snprintf(line, sizeof line, "%-4s %-12s ", verdict.ok() ? "ok" : "BAD", what.c_str());
      results::print(line + text + "\n");
    }
    if (!verdict.ok() && verdict.cause.empty()) verdict.cause = what + ": " + text;
    worst_ = worse(std::move(worst_), std::move(verdict));
  }
  const Verdict& worst() const { return worst_; }
  const Json& lines() const { return lines_; }

 private:
  const bool shown_;
  Json lines_ = Json::array();
  Verdict worst_;
};

std::string why(int error) {
  return std::string(strerror(error)) +
         (error == EACCES || error == EPERM
              ? "; who may use it? on a phone also: does SELinux let this program (getenforce)?"
              : "");
}

bool is_device(const environment::ModemChoice& modem) {
  return modem.kind == environment::ModemKind::Qmux ||
         modem.kind == environment::ModemKind::QmuxProxy;
}

// Out of the file itself: a program without shared libraries cannot ask elsewhere.
std::string group_name(gid_t id) {
  std::string name = std::to_string(id);
  FILE* groups = fopen("/etc/group", "re");
  if (groups == nullptr) return name;
  while (const group* entry = fgetgrent(groups)) {
    if (entry->gr_gid == id) name = entry->gr_name;
  }
  fclose(groups);
  return name;
}

// What is wrong with a modem's device, or nothing. The proxy opens it with rights of its own.
std::string device_problem(const environment::ModemChoice& modem) {
  struct stat status {};
  if (stat(modem.path.c_str(), &status) != 0) {
    return errno == ENOENT ? "no such device: is the modem there?" : why(errno);
  }
  if (!S_ISCHR(status.st_mode)) return "not a character device";
  if (modem.kind == environment::ModemKind::QmuxProxy) return "";
  const qmi::Descriptor device(
      open(modem.path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!device && errno == EACCES) {
    return "no permission: its group is " + group_name(status.st_gid);
  }
  const bool busy =
      device ? flock(device.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK : errno == EBUSY;
  if (busy) return "busy, another program uses it; programs share it through qmux-proxy:PATH";
  return device ? "" : why(errno);
}

// Whether somebody is at the end that TOVI_MODEM names.
Verdict look_at_transport(const environment::ModemChoice& modem, Findings& findings) {
  const auto bad = [&](const std::string& text) {
    findings.note(is_device(modem) ? "device" : "socket", text,
                  {Status::Unreachable, modem.text + ": " + text});
    return findings.worst();
  };
  if (modem.kind == environment::ModemKind::Simulated) {
    const std::string* state = environment::state_folder();
    if (state == nullptr) return bad("no folder for the modem's state: set TOVI_STATE or HOME");
    findings.note("state", *state);
    return {};
  }
  if (modem.kind == environment::ModemKind::Qrtr) {
    qmi::QrtrSocket socket;
    if (!socket.open()) {
      return bad(errno == EAFNOSUPPORT ? "this kernel has no QRTR: is the module qrtr loaded?"
                                       : why(errno));
    }
    findings.note("socket", "QRTR, node " + std::to_string(socket.name_service().node));
    return {};
  }
  if (is_device(modem)) {
    const std::string problem = device_problem(modem);
    if (!problem.empty()) return bad(problem);
    findings.note("device", modem.path);
    return {};
  }
  struct stat status {};
  if (stat(modem.path.c_str(), &status) != 0) {
    return bad(errno == ENOENT ? "no such socket" : why(errno));
  }
  if (!S_ISSOCK(status.st_mode)) return bad("not a socket");
  const qmi::Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const int error = connect_unix_until(socket.get(), modem.path, timing::peer_deadline(1000));
  if (error == EAGAIN) {
    findings.note("socket", "nobody lets us in", {Status::NoAnswer, ""});
    return findings.worst();
  }
  if (error != 0) return bad(error == ECONNREFUSED ? "nobody serves there" : why(error));
  findings.note("socket", modem.path);
  return {};
}

std::string places(const BusSurvey::Service& found, uint8_t version, bool& usable) {
  std::string text;
  for (const qmi::Server& server : found.servers) {
    const auto has = static_cast<unsigned int>(server.instance & 0xFF);
    if (!text.empty()) text += "; ";
    const std::string node = std::to_string(server.address.node);
    if (has == version) {
      text += "version " + std::to_string(has) + ", node " + node + ", port " +
              std::to_string(server.address.port);
      usable = true;
    } else {
      text += "version " + std::to_string(has) + " on node " + node + ": not used";
    }
  }
  return text;
}

void look_at_services(const environment::ModemChoice& modem, Findings& findings, uint32_t ms) {
  const auto services = known_services();
  std::vector<uint32_t> ids;
  for (const KnownService& service : services) ids.push_back(service.description()->service_id);
  const BusSurvey survey = survey_bus(ids, ms);
  if (!survey.reached && is_device(modem)) {
    findings.note("names", "no modem answers behind it", {Status::NoAnswer, ""});
    return;
  }
  if (!survey.reached) {
    const bool simulated = modem.kind == environment::ModemKind::Simulated;
    findings.note("names",
                  simulated ? "the simulated modem cannot use its folder" : "cannot be asked",
                  {Status::Unreachable, ""});
    return;
  }
  if (!survey.services.back().answered) {
    findings.note("names", "no answer",
                  {Status::NoAnswer, "the name service of " + modem.text + " does not answer"});
    return;
  }
  findings.note("names", "the name service answers");
  for (size_t i = 0; i < services.size(); ++i) {
    const std::string title = services[i].title;
    const uint8_t version = services[i].description()->major_version;
    bool usable = false;
    const std::string text = places(survey.services[i], version, usable);
    Verdict verdict;
    const bool has_no_way = is_device(modem) && services[i].description()->service_id > UINT8_MAX;
    if (text.empty() && has_no_way) {
      findings.note(title, "not there: its number does not fit a device's frames");
      continue;
    }
    if (text.empty()) {
      verdict = {Status::NoService, "no " + title + " service; it is for " + services[i].used_for};
    } else if (!usable) {
      verdict = {Status::NoService, title + ": only " + text};
    }
    findings.note(title, text.empty() ? "not there" : text, verdict);
  }
}

void look_at_switches(Findings& findings) {
  const velmor_print_flags flags = velmor_utils_get_print_flags();
  findings.note("log", flags.print == 1 ? "messages go to the system log"
                                        : "off: persist.vendor.velmor.print");
  findings.note("echo", flags.shell_print != 0
                            ? "tovi prints its messages"
                            : "off: persist.vendor.velmor.shell_print; tovi prints results only");
}

// The ports are for modules 5 and 8 alone: that one is missing is told, and no more.
void look_at_ports(const environment::ModemChoice& modem, Findings& findings) {
  for (const char* port : {"/dev/diag", "/dev/smd8"}) {
    if (modem.kind == environment::ModemKind::Simulated) {
      findings.note(port + 5, "made when it is opened");
      continue;
    }
    const std::string path = velmor_device_path(port);
    const bool there = access(path.c_str(), R_OK | W_OK) == 0;
    findings.note(port + 5, there ? path : path + ": " + why(errno));
  }
}

// A request to each service that changes nothing.
template <typename Request, typename Response>
Verdict ask_service(qmi_idl_service_object_type service, uint16_t message, Request req,
                    uint32_t ms) {
  qmi_client_type client = nullptr;
  qmi_client_os_params os_params{};
  const auto opened = qmi_client_init_instance(service, QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr,
                                               &os_params, 1000, &client);
  if (opened != QMI_NO_ERR) return why_no_client(*service);
  const auto resp = std::make_unique<Response>();
  void* const body = service->find(qmi::Kind::Request, message)->c_bytes > 0 ? &req : nullptr;
  const unsigned int size = body != nullptr ? sizeof req : 0;
  const auto error =
      qmi_client_send_msg_sync(client, message, body, size, resp.get(), sizeof *resp, ms);
  qmi_client_release(client);
  if (error == QMI_INTERNAL_ERR) return {Status::Malformed, "an answer that cannot be decoded"};
  if (error != QMI_NO_ERR) return {Status::NoAnswer, "no answer"};
  if (resp->resp.result != 0) return {Status::Refused, qmi_error_text(resp->resp.error)};
  return {};
}

struct Nothing {};

Verdict ask_extension(uint32_t ms) {
  std::string bytes;
  const ModemFiles::Done done = ModemFiles(ms).read({true, kImeiItem, "", 0}, bytes);
  if (done.absent) return {};
  return done;
}

void ask_services(const environment::ModemChoice& modem, Findings& findings, uint32_t ms) {
  const auto object = [](size_t i) { return known_services()[i].description(); };
  pdc_get_selected_config_req_msg_v01 software{};
  software.config_type = PDC_CONFIG_TYPE_MODEM_SW_V01;
  const Verdict answers[] = {
      is_device(modem) ? Verdict{} : ask_extension(ms),
      ask_service<uim_get_card_status_req_msg_v01, uim_get_card_status_resp_msg_v01>(
          object(1), QMI_UIM_GET_CARD_STATUS_REQ_V01, {}, ms),
      // Switches on for this client what it has already: the subscription that it is bound to.
      ask_service<nas_bind_subscription_req_msg_v01, nas_bind_subscription_resp_msg_v01>(
          object(2), QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01, {}, ms),
      ask_service<Nothing, sar_rf_get_state_resp_msg_v01>(object(3),
                                                          QMI_SAR_RF_GET_STATE_REQ_MSG_V01, {}, ms),
      ask_service<pdc_get_selected_config_req_msg_v01, pdc_resp_msg_v01>(
          object(4), QMI_PDC_GET_SELECTED_CONFIG_REQ_V01, software, ms),
      ask_service<vs_set_feature_req_msg_v01, vs_resp_msg_v01>(
          object(5), kVsSetFeatureMsg, {.feature = 2, .status = 1, .option_valid = 1, .option = 1},
          ms),
  };
  for (size_t i = 0; i < std::size(answers); ++i) {
    Verdict verdict = answers[i];
    if (i == 0 && is_device(modem)) continue;
    const std::string title = known_services()[i].title;
    const std::string text = verdict.ok() ? "answers" : verdict.text();
    if (!verdict.ok()) verdict.cause = "the " + title + " service: " + verdict.cause;
    findings.note("ask " + title, text, verdict);
  }
}

Outcome doctor(const Arguments& arguments, const Settings& settings) {
  Findings findings(!settings.json);
  const char* variable = getenv("TOVI_MODEM");
  const bool given = variable != nullptr && *variable != '\0';
  const environment::ModemChoice* modem = environment::modem();
  if (modem == nullptr) {
    findings.note("TOVI_MODEM", given ? variable : "(default)",
                  {Status::Unreachable, "a TOVI_ variable cannot be used"});
  } else {
    findings.note("TOVI_MODEM", modem->text + (given ? "" : ", the default: it is not set"));
    if (look_at_transport(*modem, findings).ok()) {
      const uint32_t ms = std::min<uint32_t>(settings.timeout_ms(), 3000);
      look_at_services(*modem, findings, ms);
      look_at_switches(findings);
      look_at_ports(*modem, findings);
      if (arguments.ask && findings.worst().ok()) ask_services(*modem, findings, ms);
    }
  }
  const Verdict& worst = findings.worst();
  if (!settings.json) {
    results::print(worst.ok() ? "nothing is wrong\n" : "wrong: " + worst.cause + "\n");
  }
  Outcome outcome(worst);
  outcome.values = {{"findings", findings.lines()}};
  return outcome;
}

}  // namespace

Run declare_doctor(Words& words, const Settings& settings) {
  const auto arguments = std::make_shared<Arguments>();
  words.flag("--ask", arguments->ask, "send each service a request that changes nothing");
  return [arguments, &settings] { return doctor(*arguments, settings); };
}

}  // namespace ctl
