// Looks over the modem's packet network: is anybody there, does the name service answer, which
// servers does it tell of. Beside the QMI client library, which keeps that to itself.
#pragma once

#include <span>
#include <vector>

#include "catalogue.h"
#include "qcci/directory.h"
#include "verdict.h"

namespace ctl {

struct BusSurvey {
  struct Service {
    bool answered = false;  // the name service has told all there are
    std::vector<qmi::Server> servers;
  };
  bool reached = false;
  std::vector<Service> services;  // in the order asked for
};

// Asks for services by their ids and waits up to `ms` for the name service.
BusSurvey survey_bus(std::span<const uint32_t> services, uint32_t ms);

// Why a client of a service cannot be opened.
Verdict why_no_client(const qmi_idl_service_object& service);

}  // namespace ctl
