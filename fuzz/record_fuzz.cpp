// Any text as a record of a session, which is then replayed: asked for what it has, in its order or
// from its end, and for what it has not.
#include <stdlib.h>

#include "fuzz.h"
#include "record_file.h"
#include "replay.h"
#include "words.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static fuzz::MemoryFile file;
  fuzz::Input input(data, size);
  const uint8_t how = input.byte();
  file.hold(fuzz::text_of(input.rest()));
  std::string problem;
  const auto record = sim::Record::read(file.path(), problem);
  if (!record) {
    fuzz::require(!problem.empty());
    return 0;
  }
  sim::Replay replay;
  replay.play(*record, (how & 1) != 0);
  for (const sim::RecordedSearch& search : record->searches) replay.sought(search.service);
  const size_t count = record->exchanges.size();
  for (size_t i = 0; i < count; ++i) {
    const auto& exchange = record->exchanges[(how & 2) != 0 ? count - 1 - i : i];
    auto request = exchange.request.bytes;
    if ((how & 4) != 0) request.back() = static_cast<uint8_t>(request.back() ^ how);
    const fuzz::Exact asked(request);
    const auto answer = replay.answer(*exchange.service, asked);
    fuzz::require(answer.has_value() || (how & 6) != 0);
  }
  replay.finish();
  return 0;
}
