// Hostile bytes for both ends of a modem's device. The first byte tells in what pieces the others
// come, the second who sends them: the frames must be the same in any pieces, and neither end may
// come to harm.
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "fuzz.h"
#include "modem.h"
#include "qcci/qmux_link.h"
#include "qmux_server.h"

namespace {

using qmi::qmux::FrameReader;
using qmi::qmux::Sender;

std::vector<std::vector<uint8_t>> frames_in(Sender sender, std::span<const uint8_t> stream,
                                            size_t piece) {
  FrameReader reader(sender);
  std::vector<std::vector<uint8_t>> frames;
  while (!stream.empty()) {
    const auto room = reader.room();
    const size_t count = std::min({piece, stream.size(), room.size()});
    std::copy_n(stream.begin(), count, room.begin());
    reader.filled(count);
    stream = stream.subspan(count);
    while (const auto frame = reader.next()) {
      frames.push_back(qmi::qmux::make_frame(sender, *frame));
    }
  }
  return frames;
}

struct Port final : qmi::QmuxLink::Port {
  void on_message(uint8_t, std::span<const uint8_t> message) override {
    fuzz::require(message.size() >= qmi::kHeaderBytes);
  }
  void on_lost() override {}
};

// What a modem may say to a client that asks for its services and sends to two of them, a piece
// before each.
void say_to_client(std::span<const uint8_t> stream, size_t piece) {
  int ends[2];
  fuzz::require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) == 0);
  const qmi::Descriptor modem(ends[0]);
  qmi::QmuxLink link{qmi::Descriptor(ends[1])};
  Port port;
  link.attach(port);
  const uint8_t message[qmi::kHeaderBytes] = {};
  link.greet(timing::kPast);
  for (const uint8_t service : {uint8_t{0x0B}, uint8_t{0x11}}) {
    const auto said = stream.first(std::min(piece, stream.size()));
    if (write(modem.get(), said.data(), said.size()) < 0 && !said.empty()) return;
    stream = stream.subspan(said.size());
    link.send(port, service, message, timing::kPast);
  }
  while (link.read() && !stream.empty()) {
    const ssize_t n = write(modem.get(), stream.data(), stream.size());
    if (n < 0) break;
    stream = stream.subspan(static_cast<size_t>(n));
  }
  link.greet(timing::kPast);
  link.detach(port);
}

// What a client may say to the modem, which has forgotten the one before.
void say_to_modem(std::span<const uint8_t> stream) {
  static const fuzz::Folder folder;
  std::string problem;
  static const auto modem = sim::Modem::open(folder.path + "/state", problem);
  fuzz::require(modem != nullptr);
  static sim::QmuxServer server(*modem, {});
  static const bool listens = server.listen(folder.path + "/link", problem);
  fuzz::require(listens);
  server.take(stream);
  const uint8_t sync[] = {1, 11, 0, 0, 0, 0, 0, 1, 0x27, 0, 0, 0};
  server.take(sync);
}

}  // namespace

// Where a link's transactions begin: an input meets the same in each process.
extern "C" pid_t getpid() {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::span<const uint8_t> stream(data + 2, size - 2);
  const Sender sender = (data[1] & 1) != 0 ? Sender::Modem : Sender::Host;
  fuzz::require(frames_in(sender, stream, 1 + data[0]) == frames_in(sender, stream, SIZE_MAX));
  if (sender == Sender::Modem) {
    say_to_client(stream, 1 + data[0]);
  } else {
    say_to_modem(stream);
  }
  return 0;
}
