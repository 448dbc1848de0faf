// A modem behind a character device: the frames, the client's end against a device that says what a
// test tells it to, and against the simulated one. Frames are written by hand.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stddef.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <thread>

#include "gtest/gtest.h"
#include "linked_terminal.h"
#include "qcci/qmux_frame.h"
#include "qmi_client.h"
#include "support/fake_modem.h"
#include "support/slow.h"
#include "support/tool.h"
#include "uim_service.h"

namespace {

using namespace testing_support;
using qmi::qmux::FrameReader;
using qmi::qmux::Sender;

// Transactions of the control service are the client's choice: "tt" stands for one.
const std::string kAskVersions = "010b0000000000tt21000000",
                  kHasOnlySar =
                      "011b0080000001tt210010000204000000000001060001110100"
                      "0f00",
                  kAskSarId =
                      "010f0000000000tt22000400010100"
                      "11",
                  kGiveSarId5 =
                      "01170080000001tt22000c000204000000000001020011"
                      "05",
                  kAskSar = "010c0000110500010002000000",
                  kSarIs3 =
                      "011a0080110502010002000e00020400000000001004000300"
                      "0000",
                  kReleaseSarId5 =
                      "01100000000000tt23000500010200"
                      "1105",
                  kReleased = "01170080000001tt23000c00020400000000000102001105";

// The frame with "tt" in place of its transaction.
std::string masked(const Bytes& frame) {
  std::string text = hex(frame);
  if (frame[4] == 0) text.replace(14, 2, "tt");
  return text;
}

std::string with_transaction(std::string text, uint8_t transaction) {
  const size_t at = text.find("tt");
  return at == std::string::npos ? text : text.replace(at, 2, hex({{transaction}}));
}

// The whole frames at the beginning of `stream`, which are taken out of it.
std::vector<Bytes> take_frames(Bytes& stream) {
  std::vector<Bytes> frames;
  while (stream.size() >= 3) {
    const size_t size = size_t{1} + stream[1] + (size_t{stream[2]} << 8);
    if (stream.size() < size) break;
    frames.emplace_back(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(size));
    stream.erase(stream.begin(), stream.begin() + static_cast<ptrdiff_t>(size));
  }
  return frames;
}

// A device whose other end is the test's, or the connection to a proxy.
class Device {
 public:
  // What to say to a frame; "tt" is its transaction.
  using Answer = std::function<std::string(const std::string& frame)>;

  Device(const std::string& link, Answer answer) : answer_(std::move(answer)) {
    std::string problem;
    EXPECT_TRUE(terminal_.open(link, problem)) << problem;
    thread_ = std::thread([this] { run(terminal_.descriptor()); });
  }
  Device(qmi::Descriptor stream, Answer answer)
      : answer_(std::move(answer)), proxied_(std::move(stream)) {
    thread_ = std::thread([this] { run(proxied_.get()); });
  }
  ~Device() { stop(); }

  // All frames that came, and what was no frame.
  std::vector<std::string> stop() {
    stop_.set();
    if (thread_.joinable()) thread_.join();
    if (!stream_.empty()) frames_.push_back("rest " + hex(stream_));
    return frames_;
  }

 private:
  void run(int device) {
    for (;;) {
      pollfd fds[] = {{device, POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}};
      qmi::poll_until(fds, 2, timing::kNever);
      uint8_t buffer[4096];
      const ssize_t n = read(device, buffer, sizeof buffer);
      if (n <= 0 && fds[1].revents != 0) return;
      if (n > 0) stream_.insert(stream_.end(), buffer, buffer + n);
      for (const Bytes& frame : take_frames(stream_)) {
        frames_.push_back(masked(frame));
        const Bytes said = bytes(with_transaction(answer_(frames_.back()), frame[7]));
        const ssize_t written = write(device, said.data(), said.size());
        EXPECT_TRUE(written == std::ssize(said) || errno == EPIPE) << frames_.back();
      }
    }
  }

  sim::LinkedTerminal terminal_;
  const Answer answer_;
  const qmi::Descriptor proxied_;
  qmi::WakeEvent stop_;
  Bytes stream_;
  std::vector<std::string> frames_;
  std::thread thread_;
};

// A modem with the SAR service alone, which answers `sar` when it is asked.
std::string sar_modem(const std::string& frame, const std::string& sar = kSarIs3) {
  if (frame == kAskVersions) return kHasOnlySar;
  if (frame == kAskSarId) return kGiveSarId5;
  if (frame == kAskSar) return sar;
  return frame == kReleaseSarId5 ? kReleased : "";
}

class Qmux : public testing::Test {
 protected:
  std::unique_ptr<Program> serve(const Args& more = {}, const std::string& scale = "1") {
    Args args = {"serve", "--qmux", link};
    args.insert(args.end(), more.begin(), more.end());
    auto server = std::make_unique<Program>("tovi-modem", args, modem_at("", scale));
    server->wait_for_error_line("tovi-modem: ready\n");
    return server;
  }

  Variables modem_at(const std::string& where, const std::string& scale = "1") {
    return {{"TOVI_MODEM", where},
            {"TOVI_STATE", folder / "state"},
            {"TOVI_LOG", folder / "log"},
            {"TOVI_TIME_SCALE", scale}};
  }

  // What the device says to a frame; nothing when it does not answer within a second.
  std::string say(const std::string& frame) {
    const qmi::Descriptor device(open(link.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK));
    const Bytes sent = bytes(with_transaction(frame, 0x42));
    EXPECT_EQ(write(device.get(), sent.data(), sent.size()), std::ssize(sent));
    Bytes stream;
    pollfd readable{device.get(), POLLIN, 0};
    while (qmi::poll_until(&readable, 1, timing::peer_deadline(1000)) == 1) {
      uint8_t buffer[4096];
      const ssize_t n = read(device.get(), buffer, sizeof buffer);
      if (n > 0) stream.insert(stream.end(), buffer, buffer + n);
      for (const Bytes& answer : take_frames(stream)) return masked(answer);
    }
    return "";
  }

  // Client ids of the SAR service that nobody has.
  int free_ids() {
    int ids = 0;
    while (say(kAskSarId).find("0204000000") != std::string::npos) ++ids;
    return ids;
  }

  ScratchFolder folder;
  const std::string link = folder / "wdm";
};

std::vector<std::string> frames_of(FrameReader& reader, const Bytes& stream, size_t piece) {
  std::vector<std::string> found;
  for (size_t at = 0; at < stream.size(); at += piece) {
    const auto room = reader.room();
    const size_t count = std::min(piece, stream.size() - at);
    std::copy_n(stream.begin() + static_cast<ptrdiff_t>(at), count, room.begin());
    reader.filled(count);
    while (const auto frame = reader.next()) {
      found.push_back(std::to_string(frame->service) + "/" + std::to_string(frame->client) + ":" +
                      hex(frame->message));
    }
  }
  return found;
}

TEST(QmuxFrames, AreFoundInAnyPiecesAndBetweenWhatIsNone) {
  const std::string sar_message =
      "02010002000e00020400000000001004000300"
      "0000";
  const std::vector<std::string> both = {"17/5:" + sar_message, "0/0:014221000000"};
  const std::string control = "010b00800000014221000000";
  const std::string streams[] = {
      kSarIs3 + control,
      "4f4b0d0a" + kSarIs3 + "ff0101" + control,         // text, bytes like a marker
      kAskSar + kSarIs3 + control,                       // an echo of the host's
      "010400800000" + kSarIs3 + control,                // too short for a message
      "01ffff80110502010002000e00" + kSarIs3 + control,  // lengths that contradict
  };
  for (const std::string& stream : streams) {
    for (size_t piece = 1; piece <= bytes(stream).size(); ++piece) {
      FrameReader reader(Sender::Modem);
      EXPECT_EQ(frames_of(reader, bytes(stream), piece), both) << stream << " by " << piece;
    }
  }
  Bytes many;
  for (int i = 0; i < 10000; ++i) {
    const Bytes frame = bytes(kSarIs3);
    many.insert(many.end(), frame.begin(), frame.end());
  }
  Bytes largest = bytes("01ffff80110502010002000000");
  largest.resize(qmi::qmux::kMaxFrameBytes);
  largest[11] = 0xF3;  // 65536 - 13
  largest[12] = 0xFF;
  constexpr size_t kPieces[] = {7, 4096, 60000};
  for (const size_t piece : kPieces) {
    FrameReader reader(Sender::Modem);
    EXPECT_EQ(frames_of(reader, many, piece), std::vector(10000, both[0]));
    EXPECT_EQ(frames_of(reader, largest, piece).size(), 1U);
    EXPECT_FALSE(reader.has_skipped());
  }
}

TEST_F(Qmux, ACommandAllocatesAClientIdAndReleasesItAndSendsNothingElse) {
  const std::string other_client =
                        "011a0080110602010002000e0002040000000000100400"
                        "07000000",
                    to_all =
                        "010c0080"
                        "11ff04010003000000",
                    twice = kSarIs3 + kSarIs3;
  for (const std::string& answer : {kSarIs3, other_client + "6f6f" + to_all + kSarIs3, twice}) {
    Device device(link, [&](const std::string& frame) { return sar_modem(frame, answer); });
    const Result result = run("tovi", {"5", "5"}, modem_at("qmux:" + link));
    EXPECT_NE(result.out.find("SAR DSI: 3\n"), std::string::npos) << result.out;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(device.stop(), (std::vector{kAskVersions, kAskSarId, kAskSar, kReleaseSarId5}));
  }
}

TEST_F(Qmux, ASignalAtAnyMomentReleasesTheClientId) {
  const struct {
    std::string during;
    int signal;
    std::vector<std::string> frames;
  } rows[] = {
      {kAskVersions, SIGTERM, {kAskVersions}},
      {kAskSarId, SIGTERM, {kAskVersions, kAskSarId, kReleaseSarId5}},
      {kAskSarId, SIGHUP, {kAskVersions, kAskSarId, kReleaseSarId5}},
      {kAskSar, SIGINT, {kAskVersions, kAskSarId, kAskSar, kReleaseSarId5}},
      {kReleaseSarId5, SIGTERM, {kAskVersions, kAskSarId, kAskSar, kReleaseSarId5}},
  };
  for (const auto& row : rows) {
    std::atomic<pid_t> command = 0;
    Device device(link, [&](const std::string& frame) -> std::string {
      if (frame == row.during) {
        while (command == 0) usleep(100);
        kill(command, row.signal);
        usleep(20'000);
        if (frame == kAskVersions) return "";
      }
      return sar_modem(frame, row.during == kAskSar ? "" : kSarIs3);
    });
    Program tovi("tovi", {"5", "5"}, modem_at("qmux:" + link));
    command = tovi.id();
    const int status = tovi.wait().status;
    // The thread sanitizer may keep a signal back until the wait in which it came is over.
    const bool ended_first = row.during == kReleaseSarId5 || (kSlow && row.during == kAskVersions);
    const bool was_done = status == 0 && ended_first;
    EXPECT_TRUE(status == 128 + row.signal || was_done) << row.during << " " << status;
    EXPECT_EQ(device.stop(), row.frames) << row.during;
  }
}

TEST_F(Qmux, WhatIsNoModemIsSaidInALineAndLeftAlone) {
  const std::string file = folder / "file";
  write_file(file, "content");
  const struct {
    std::string modem;
    std::string answer;  // of a device at the link
    std::string line;
    std::vector<std::string> frames;
  } rows[] = {
      {"qmux:" + file, "", "not a character device", {}},
      {"qmux:" + folder.path(), "", "not a character device", {}},
      {"qmux:" + (folder / "none"), "", "no such device", {}},
      {"qmux-proxy:" + (folder / "none"), "", "no such device", {}},
      {"qmux:/dev/null", "", "it has hung up", {}},
      {"qmux:", "", "a device's path has 1 to 4095 characters", {}},
      {"qmux:" + link, "", "no answer", {kAskVersions}},
      {"qmux:" + link, "4f4b0d0a", "what answers is no modem", {kAskVersions}},
      {"qmux:" + link, kAskVersions, "what answers is no modem", {kAskVersions}},
      {"qmux:" + link,
       "01120080000001tt2100070002040001005e00",
       "it tells no services",
       {kAskVersions}},
  };
  for (const auto& row : rows) {
    Device device(link, [&](const std::string&) { return row.answer; });
    const Result result = run("tovi", {"5", "5"}, modem_at(row.modem, "0.05"));
    EXPECT_EQ(result.err, "tovi: TOVI_MODEM=" + row.modem + ": " + row.line + "\n");
    EXPECT_EQ(device.stop(), row.frames) << row.modem << " " << row.answer;
  }
  EXPECT_EQ(read_file(file), "content");

  Device device(link, [](const std::string& frame) { return sar_modem(frame); });
  const qmi::Descriptor user(open(link.c_str(), O_RDWR | O_NOCTTY));
  ASSERT_EQ(flock(user.get(), LOCK_EX), 0);
  const Result result = run("tovi", {"5", "5"}, modem_at("qmux:" + link, "0.05"));
  EXPECT_NE(result.err.find(": busy, another program uses it"), std::string::npos) << result.err;
  EXPECT_EQ(device.stop(), std::vector<std::string>());
}

// The name of the proxy is one for the whole machine.
TEST_F(Qmux, AProxyOpensTheDeviceByItsWholePath) {
  signal(SIGPIPE, SIG_IGN);
  constexpr char kName[] = "\0qmi-proxy";
  const std::string null_device = hex(Bytes{'/', 'd', 'e', 'v', '/', 'n', 'u', 'l', 'l'});
  const std::string open = "01170000000000tt00ff0c00010900" + null_device,
                    opened = "01120080000001tt00ff070002040000000000",
                    not_opened = "01120080000001tt00ff070002040001000300";
  const qmi::Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{AF_UNIX, {}};
  std::copy_n(kName, sizeof kName, address.sun_path);
  bind_in_turn(listener.get(), address, offsetof(sockaddr_un, sun_path) + sizeof kName - 1);
  ASSERT_EQ(symlink("/dev/null", link.c_str()), 0);
  const Variables variables = modem_at("qmux-proxy:" + link, "0.2");
  const std::string start = "tovi: TOVI_MODEM=qmux-proxy:" + link + ": ";
  EXPECT_EQ(run("tovi", {"5", "5"}, variables).err, start + "nobody serves as qmi-proxy\n");
  ASSERT_EQ(listen(listener.get(), 1), 0);
  const struct {
    std::string answer;
    std::vector<std::string> frames;
    std::string line;
  } rows[] = {
      {opened, {open, kAskVersions, kAskSarId, kAskSar, kReleaseSarId5}, ""},
      {not_opened, {open}, "qmi-proxy does not open it"},
      {"", {open}, "no answer"},
  };
  for (const auto& row : rows) {
    Program tovi("tovi", {"5", "5"}, variables);
    Device proxy(qmi::Descriptor(accept(listener.get(), nullptr, nullptr)),
                 [&](const auto& frame) { return frame == open ? row.answer : sar_modem(frame); });
    const Result result = tovi.wait();
    EXPECT_EQ(result.out.find("SAR DSI: 3\n") != std::string::npos, row.line.empty());
    EXPECT_EQ(result.err, row.line.empty() ? "" : start + row.line + "\n");
    EXPECT_EQ(proxy.stop(), row.frames);
  }
}

TEST_F(Qmux, TheSimulatedModemHasACountedNumberOfClientIds) {
  const auto server = serve();
  const std::string refused =
                        "01120080000001tt22000700020400010005"
                        "00",
                    no_such_service = "01120080000001tt2200070002040001001f00",
                    given = "01170080000001tt22000c000204000000000001020011",
                    sync = "010b0000000000tt27000000",
                    synced =
                        "01120080000001tt270007000204000000"
                        "0000";
  EXPECT_EQ(say(kAskVersions),
            "01340080000001tt2100290002040000000000011f00"
            "06"
            "0001000500"
            "0301008d01"
            "0b01006d00"
            "1101000f00"
            "e401000200"
            "2401001000");
  for (const char* id : {"01", "02", "03", "04", "05", "06", "07", "08"}) {
    EXPECT_EQ(say(kAskSarId), given + id);
  }
  EXPECT_EQ(say(kAskSarId), refused);
  EXPECT_EQ(say(kAskSar),
            "011e00801105020100020012000204000000000"
            "03f01000010040003000000");
  EXPECT_EQ(say(kReleaseSarId5), kReleased);
  EXPECT_EQ(say(kAskSarId), given + "09");
  EXPECT_EQ(say("010f0000000000tt22000400010100e3"), no_such_service);
  EXPECT_EQ(say("010b0000000000tt26000000"), "01120080000001tt2600070002040001005e00");
  EXPECT_EQ(say(sync), synced);
  EXPECT_EQ(say("010c0000110900010002000000"),
            "01130080110902010002000700020400010007"
            "00");
}

// Passes a stream on a byte at a time, both ways.
class Drip {
 public:
  Drip(const std::string& from, const std::string& to)
      : to_(open(to.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {
    std::string problem;
    EXPECT_TRUE(from_.open(from, problem)) << problem;
    thread_ = std::thread([this] { run(); });
  }
  ~Drip() {
    stop_.set();
    thread_.join();
  }

 private:
  void run() {
    const int ends[] = {from_.descriptor(), to_.get()};
    for (;;) {
      pollfd fds[] = {{ends[0], POLLIN, 0}, {ends[1], POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}};
      qmi::poll_until(fds, 3, timing::kNever);
      if (fds[2].revents != 0) return;
      for (const int i : {0, 1}) {
        uint8_t byte;
        if (read(ends[i], &byte, 1) != 1) continue;
        EXPECT_EQ(write(ends[1 - i], &byte, 1), 1);
      }
    }
  }

  sim::LinkedTerminal from_;
  const qmi::Descriptor to_;
  qmi::WakeEvent stop_;
  std::thread thread_;
};

TEST_F(Qmux, CommandsPrintWhatTheyPrintOnAnotherEndpointAndLeakNoClientId) {
  // Indications come at no certain moment of the output unless they come before the response.
  const std::string kInOrder = "pdc=ind-first;nas=ind-first";
  const auto server = serve({"--faults", kInOrder}, "0.1");
  const std::string dripping = folder / "dripping";
  const Args commands[] = {
      {"5", "5"},
      {"5", "10", "1", "1"},
      {"5", "10", "2", "1"},
      {"5", "10", "3", "1"},
      {"5", "10", "4", "0"},
      {"9", "0", "0"},
      {"9", "7", "0"},
      {"9", "9", "1"},
      {"9", "20", "0"},
      {"9", "30", "0"},
      {"10", "0", "3"},
      {"10", "1", "3"},
      {"12", "0"},
      {"12", "1"},
      {"4", "1", "0", "550"},
  };
  Variables embedded = modem_at("sim", "0.1");
  embedded["TOVI_STATE"] = folder / "other";
  embedded["TOVI_SIM_FAULTS"] = "extend=absent;" + kInOrder;
  for (const Args& args : commands) {
    const std::string expected = without_lines(run("tovi", args, embedded).out);
    for (const bool drips : {false, true}) {
      std::optional<Drip> drip;
      if (drips) drip.emplace(dripping, link);
      const std::string modem = "qmux:" + (drips ? dripping : link);
      const Result result = run("tovi", args, modem_at(modem, "0.1"));
      EXPECT_EQ(without_lines(result.out), expected) << modem;
      EXPECT_EQ(result.err, "");
    }
  }
  EXPECT_EQ(free_ids(), 8);
}

TEST_F(Qmux, IdsOfKilledCommandsAreMissingUntilNoneIsLeft) {
  const std::string log = folder / "requests";
  const auto server = serve({"--faults", "sar=drop", "--log", log});
  for (int killed = 1; killed <= 8; ++killed) {
    Program tovi("tovi", {"5", "5"}, modem_at("qmux:" + link));
    std::string lines;
    while (std::count(lines.begin(), lines.end(), '\n') < killed) lines = read_file(log);
    tovi.kill(SIGKILL);
    EXPECT_EQ(tovi.wait().err, "");
  }
  EXPECT_EQ(run("tovi", {"5", "5"}, modem_at("qmux:" + link)).err,
            "tovi: TOVI_MODEM=qmux:" + link +
                ": the modem has no client id left; it has them back when it restarts\n");
}

// What callbacks were told, for a test to wait for.
struct Events {
  Mutex lock;
  Condition changed;
  std::string all GUARDED_BY(lock);

  void add(const std::string& event) {
    MutexLock hold(lock);
    all += event;
    changed.notify_all();
  }
  std::string when(size_t count) {
    MutexLock hold(lock);
    const auto limit = timing::Clock::now() + std::chrono::seconds(20);
    while (all.size() < count && changed.wait_until(lock, limit)) {
    }
    return all;
  }
};

TEST_F(Qmux, ServicesGoAndComeWithARestartAndWithTheDevice) {
  setenv("TOVI_MODEM", ("qmux:" + link).c_str(), 1);
  auto server = serve({"--faults", "uim#2=restart"});
  const auto uim = uim_get_service_object_internal_v01(1, 109, 6);
  qmi_client_os_params params{};
  qmi_client_type notifier = nullptr;
  Events events;
  ASSERT_EQ(qmi_client_notifier_init(uim, &params, &notifier), QMI_NO_ERR);
  qmi_client_register_notify_cb(
      notifier,
      [](qmi_client_type, qmi_idl_service_object_type, qmi_client_notify_event_type event,
         void* data) {
        static_cast<Events*>(data)->add(event == QMI_CLIENT_SERVICE_COUNT_INC ? "+" : "-");
      },
      &events);
  const auto ask = [&] {
    qmi_client_type client = nullptr;
    if (const int error = qmi_client_init_instance(uim, QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr,
                                                   nullptr, 4000, &client)) {
      return error;
    }
    uim_get_card_status_req_msg_v01 req{};
    uim_get_card_status_resp_msg_v01 resp{};
    const int error =
        qmi_client_send_msg_sync(client, 0x2F, &req, sizeof req, &resp, sizeof resp, 5000);
    qmi_client_release(client);
    return error;
  };
  EXPECT_EQ(ask(), QMI_NO_ERR);
  EXPECT_EQ(ask(), QMI_SERVICE_ERR);
  EXPECT_EQ(events.when(3), "+-+");
  EXPECT_EQ(ask(), QMI_NO_ERR);
  server->kill(SIGKILL);
  server->wait();
  EXPECT_EQ(events.when(4), "+-+-");
  server = serve();
  EXPECT_EQ(events.when(5), "+-+-+");
  EXPECT_EQ(ask(), QMI_NO_ERR);
  EXPECT_EQ(qmi_client_release(notifier), QMI_NO_ERR);
}

}  // namespace
