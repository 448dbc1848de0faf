// Any text as the rules by which the modem misbehaves. One that is taken is taken again as it is
// kept, and every request can meet it.
#include <vector>

#include "faults.h"
#include "fuzz.h"
#include "qcci/packet.h"
#include "words.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string rules(fuzz::text_of({data, size}));
  std::string problem;
  auto faults = sim::Faults::parse(rules, problem);
  fuzz::require(faults.has_value() == problem.empty());
  if (!faults) return 0;
  for (const char* name : {"extend", "uim", "nas", "sar", "pdc", "vs"}) {
    const auto* service = sim::service_named(name);
    faults->absence(service->service_id);
    for (const qmi::Message& message : service->messages) {
      uint8_t packet[qmi::kHeaderBytes + 1] = {};
      qmi::write_header({message.kind, 1, message.id, 0}, packet);
      const sim::Fault* met = faults->meet(sim::Asked(*service, {packet, qmi::kHeaderBytes}));
      if (met == nullptr) continue;
      fuzz::require(sim::Faults::parse(met->rule, problem).has_value());
    }
  }
  return 0;
}
