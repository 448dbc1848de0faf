// What has a limit, and what others do: floods, locks that nobody lets go of, files of somebody
// else.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <time.h>

#include <functional>
#include <future>

#include "device_path.h"
#include "device_ports.h"
#include "modem.h"
#include "qcci/endpoint.h"
#include "state_reader.h"
#include "support/fake_modem.h"
#include "support/simulator_fixture.h"
#include "unix_address.h"

namespace {

// What the process asks of the kernel, for a test to look at or to meddle with.
std::function<void(const char*path)> g_on_unlink, g_on_rmdir;
std::vector<std::string> g_synced;  // paths
bool g_has_events = true;

}  // namespace

int unlink(const char* path) noexcept {
  if (g_on_unlink) g_on_unlink(path);
  return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

int rmdir(const char* path) noexcept {
  if (g_on_rmdir) g_on_rmdir(path);
  return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR));
}

int eventfd(unsigned int count, int flags) noexcept {
  if (g_has_events) return static_cast<int>(syscall(SYS_eventfd2, count, flags));
  errno = EMFILE;
  return -1;
}

int fsync(int fd) {
  g_synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)));
  return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

using namespace testing_support;
using state_files::FolderLock;
using state_files::LockPart;
using std::chrono::milliseconds;
using std::chrono::seconds;

class Limits : public Simulator {};

// A socket that listens with room for `clients`, and lets none of them in.
qmi::Descriptor mute_listener(const std::string& path, int clients) {
  sockaddr_un address;
  EXPECT_TRUE(make_unix_address(path, address));
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  qmi::Descriptor listener(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  EXPECT_EQ(bind(listener.get(), name, sizeof address), 0);
  EXPECT_EQ(listen(listener.get(), clients), 0);
  return listener;
}

TEST_F(Limits, WhyASocketCannotBeConnectedToIsSaidOnceAndNotWaitedForWithoutEnd) {
  write_file(folder / "file", "");
  mute_listener(folder / "dead", 1);
  const auto silent = mute_listener(folder / "silent", 100);
  const auto full = mute_listener(folder / "full", 0);
  const qmi::Descriptor first(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  ASSERT_EQ(connect_unix(first.get(), folder / "full"), 0);
  const struct {
    const char* path;
    const char* reason;
  } rows[] = {
      {"nobody", "no such socket"}, {"file", "not a socket"}, {"dead", "nobody serves there"},
      {"silent", "no answer"},      {"full", "no answer"},
  };
  for (const auto& row : rows) {
    const std::string modem = "unix:" + (folder / row.path);
    const auto begin = timing::Clock::now();
    const Result result =
        run("tovi", {"4", "1", "0", "550"}, {{"TOVI_MODEM", modem}, {"TOVI_TIME_SCALE", "0.1"}});
    EXPECT_EQ(result.err, "tovi: TOVI_MODEM=" + modem + ": " + row.reason + "\n");
    EXPECT_NE(result.out.find("error_code(-102)"), std::string::npos) << result.out;
    EXPECT_LT(timing::Clock::now() - begin, std::chrono::seconds(10)) << row.path;
  }
}

qmi::Descriptor connected(const std::string& path) {
  qmi::Descriptor client(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect_unix(client.get(), path), 0);
  return client;
}

enum class Treatment { Served, HungUpOn, LeftWaiting };

// What comes of asking the name service for everything.
Treatment ask(const qmi::Descriptor& client) {
  const uint32_t lookup[] = {1, 0xFFFFFFFE, 10, 0, 0, 0, 0};
  send(client.get(), lookup, sizeof lookup, MSG_NOSIGNAL);
  pollfd answer{client.get(), POLLIN, 0};
  qmi::poll_until(&answer, 1, timing::Clock::now() + std::chrono::seconds(10));
  char byte;
  const ssize_t n = recv(client.get(), &byte, 1, MSG_DONTWAIT);
  if (n > 0) return Treatment::Served;
  return n == 0 || errno == ECONNRESET ? Treatment::HungUpOn : Treatment::LeftWaiting;
}

// Until a server has seen others leave, it may still hang up on a newcomer.
bool serves_soon(const std::string& path) {
  const auto limit = timing::Clock::now() + std::chrono::seconds(10);
  while (timing::Clock::now() < limit) {
    if (ask(connected(path)) == Treatment::Served) return true;
  }
  return false;
}

std::chrono::nanoseconds processor_time(pid_t pid) {
  clockid_t clock;
  timespec used{};
  EXPECT_EQ(clock_getcpuclockid(pid, &clock), 0);
  clock_gettime(clock, &used);
  return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

TEST_F(Limits, AServerThatRunsOutOfDescriptorsHangsUpOnClientsAndServesTheOthers) {
  using namespace std::chrono_literals;
  Program server(
      "/bin/sh",
      {"-c", "ulimit -n 40; exec " TOVI_BUILD_FOLDER "/tovi-modem serve --unix " + socket}, state);
  server.wait_for_error_line("tovi-modem: ready\n");
  for (const std::string& path : {socket, folder / "state/device/dev/diag"}) {
    std::vector<qmi::Descriptor> clients;
    for (int i = 0; i < 60; ++i) clients.push_back(connected(path));
    int served = 0;
    for (const qmi::Descriptor& client : clients) {
      const Treatment treatment = ask(client);
      EXPECT_NE(treatment, Treatment::LeftWaiting) << path;
      served += treatment == Treatment::Served;
    }
    EXPECT_GE(served, 4) << path;
    EXPECT_LE(served, 30) << path;
    const auto before = processor_time(server.id());
    qmi::poll_until(nullptr, 0, timing::Clock::now() + 500ms);
    EXPECT_LT(processor_time(server.id()) - before, 250ms) << path;
    clients.clear();
    EXPECT_TRUE(serves_soon(path)) << path;
  }
  // Not even one descriptor: whoever connects waits until there is one. The server has more open
  // than that already; fewer than it polls at once would be an error of its own.
  const rlimit none{8, 40}, some{40, 40};
  prlimit(server.id(), RLIMIT_NOFILE, &none, nullptr);
  const auto client = connected(socket), diag_client = connected(folder / "state/device/dev/diag");
  const auto before = processor_time(server.id());
  qmi::poll_until(nullptr, 0, timing::Clock::now() + 500ms);
  EXPECT_LT(processor_time(server.id()) - before, 250ms);
  prlimit(server.id(), RLIMIT_NOFILE, &some, nullptr);
  EXPECT_NE(ask(client), Treatment::LeftWaiting);
  EXPECT_NE(ask(diag_client), Treatment::LeftWaiting);
  EXPECT_TRUE(serves_soon(socket) && serves_soon(folder / "state/device/dev/diag"));
  server.kill(SIGTERM);
  EXPECT_EQ(server.wait().status, 0);
}

// How long something takes.
template <typename Work>
seconds duration_of(Work work) {
  const auto begin = timing::Clock::now();
  work();
  return std::chrono::round<seconds>(timing::Clock::now() - begin);
}

TEST_F(Limits, ALockThatNobodyLetsGoOfIsWaitedForFiveSeconds) {
  std::string problem;
  const auto modem = sim::Modem::open(folder / "state", problem);
  ASSERT_NE(modem, nullptr) << problem;
  sim::Configurations& pdc = modem->configurations();
  const FolderLock held(folder / "state", LockPart::Writing);
  const std::function<void()> changes[] = {
      [&] { modem->power_down(1); },        [&] { modem->power_up(2); },
      [&] { modem->reset_euicc(); },        [&] { modem->set_sim_present(1, false); },
      [&] { pdc.select(1, 0, "x"); },       [&] { pdc.activate(1, 0); },
      [&] { pdc.deactivate(1, 0); },        [&] { pdc.remove(1, "x"); },
      [&] { pdc.add({1, "x", 1, 1, ""}); },
  };
  const std::string lock = folder / "state/lock: another process holds it\n";
  const struct {
    const char* program;
    Args args;
    int status;
    std::string said;
  } commands[] = {
      {"tovi-modem", {"setprop", "a", "1"}, 1, "tovi-modem: the property a is not set: " + lock},
      {"tovi-modem", {"reset"}, 1, "tovi-modem: " + lock},
      {"tovi", {"11", "8", "2"}, 0, ""},
  };
  const std::string before = listing();
  std::vector<std::future<void>> all;
  testing::internal::CaptureStderr();
  for (const auto& change : changes) {
    all.push_back(std::async(std::launch::async, [&] {
      EXPECT_EQ(duration_of([&] { EXPECT_THROW(change(), sim::StateError); }), seconds(5));
    }));
  }
  for (const auto& row : commands) {
    all.push_back(std::async(std::launch::async, [&] {
      const Result result = run(row.program, row.args, state);
      EXPECT_EQ(result.status, row.status);
      EXPECT_EQ(result.err, row.said);
    }));
  }
  for (auto& one : all) one.get();
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  EXPECT_NE(said.find("the modem's state cannot be changed: " + lock), std::string::npos) << said;
}

TEST_F(Limits, NoLockKeepsAServerFromItsEnd) {
  const auto server = serve();
  const auto ends_at_once = [](Program& program) {
    program.kill(SIGTERM);
    Result result{};
    EXPECT_LT(duration_of([&] { result = program.wait(); }), seconds(3));
    return result.status;
  };
  {  // A request waits.
    const FolderLock held(folder / "state", LockPart::Writing);
    Program command("tovi", {"5", "10", "1", "1"}, served);
    qmi::poll_until(nullptr, 0, timing::Clock::now() + milliseconds(500));
    EXPECT_EQ(ends_at_once(*server), 0);
  }
  {  // The ports are somebody else's.
    const FolderLock held(folder / "state", LockPart::Ports);
    Program waits("tovi-modem", {"serve", "--unix", socket}, state);
    while (!exists(socket)) std::this_thread::yield();
    EXPECT_EQ(ends_at_once(waits), 0);
    EXPECT_FALSE(exists(socket));
  }
  // Whoever locks the socket's folder has nothing to do with the socket.
  const qmi::Descriptor near(open(folder.path().c_str(), O_RDONLY | O_DIRECTORY));
  ASSERT_EQ(flock(near.get(), LOCK_EX), 0);
  EXPECT_EQ(ends_at_once(*serve()), 0);
  const std::string lock = socket + ".lock";
  EXPECT_FALSE(exists(lock));
  const qmi::Descriptor held(open(lock.c_str(), O_RDWR | O_CREAT, 0600));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  const Result refused = modem({"serve", "--unix", socket});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "tovi-modem: " + lock + ": another process holds it\n");
}

TEST_F(Limits, APortThatWasLeftBehindIsRemovedOnlyByWhoeverHoldsThePorts) {
  for (const auto& [name, value] : served) setenv(name.c_str(), value.c_str(), 1);
  const std::string port = folder / "elsewhere/device/dev/smd8";
  write_file(port, "");
  int removed = 0;
  g_on_unlink = [&](const char* path) {
    if (path != port) return;
    ++removed;
    EXPECT_TRUE(FolderLock::is_held(folder / "elsewhere", LockPart::Ports));
  };
  {
    const FolderLock used(folder / "elsewhere", LockPart::Ports);
    EXPECT_EQ(velmor_device_port("/dev/smd8"), port);
  }
  EXPECT_EQ(removed, 0);
  velmor_device_port("/dev/smd8");
  EXPECT_EQ(removed, 1);
  EXPECT_FALSE(exists(port));
}

TEST_F(Limits, AServerThatCannotStartWholeSaysWhyAndEnds) {
  std::vector<std::unique_ptr<Program>> servers;
  for (int limit = 4; limit < 20; ++limit) {
    const std::string own = folder / std::to_string(limit);
    const Variables variables = {{"TOVI_STATE", own}};
    EXPECT_EQ(run("tovi-modem", {"setprop", "a", "1"}, variables).status, 0);
    servers.push_back(std::make_unique<Program>(
        "/bin/sh",
        Args{"-c", "ulimit -n " + std::to_string(limit) + "; exec timeout --preserve-status 2 " +
                       TOVI_BUILD_FOLDER "/tovi-modem serve --unix " + own + ".socket"},
        variables));
  }
  std::string all;
  bool seen_at_every_limit = true;
  for (const auto& server : servers) {
    const auto [status, out, err] = server->wait();
    if (err.find("Sanitizer") != std::string::npos) {  // it needs descriptors itself
      seen_at_every_limit = false;
      continue;
    }
    const bool ready = err.ends_with("tovi-modem: ready\n");
    EXPECT_TRUE(status == 127 || status == (ready ? 0 : 1)) << err;  // 127: did not even begin
    EXPECT_TRUE(ready || std::count(err.begin(), err.end(), '\n') == 1) << err;
    all += err;
  }
  for (const char* failed : {"tovi-modem: epoll", "tovi-modem: socket", "/lock"}) {
    const bool is_said = all.find(std::string(failed) + ": Too many open files\n") != all.npos;
    EXPECT_TRUE(is_said || !seen_at_every_limit) << all;
  }
  EXPECT_EQ(all.find("Bad file descriptor"), std::string::npos) << all;
  EXPECT_NE(all.find("ready"), std::string::npos);
  // Ports that could not be stopped are not served.
  std::string problem;
  const auto modem = sim::Modem::open(folder / "state", problem);
  ASSERT_NE(modem, nullptr) << problem;
  g_has_events = false;
  sim::DevicePorts ports(*modem);
  EXPECT_EQ(ports.open(sim::DevicePorts::Owner::Server, problem),
            sim::DevicePorts::Outcome::Failed);
  EXPECT_EQ(problem, "eventfd: Too many open files");
}

TEST_F(Limits, WhatIsStoredIsOnTheDiskWhenThatWasAskedFor) {
  const std::string state_folder = folder / "state", item = state_folder + "/nv/0/9";
  EXPECT_TRUE(state_files::write(state_folder, item, "x"));
  EXPECT_EQ(g_synced, Args{});
  state_files::sync_to_disk();
  EXPECT_TRUE(state_files::write(state_folder, item, "y"));
  ASSERT_EQ(g_synced.size(), 2u);
  EXPECT_TRUE(g_synced[0].starts_with(state_folder + "/tmp/"));
  EXPECT_EQ(g_synced[1], state_folder + "/nv/0");
  g_synced.clear();
  EXPECT_TRUE(state_files::remove(item));
  EXPECT_TRUE(state_files::make_folder(folder / "new/one"));
  EXPECT_EQ(g_synced, (Args{state_folder + "/nv/0", folder.path(), folder / "new"}));
}

TEST_F(Limits, AResetSaysThatACommandIsWriting) {
  EXPECT_EQ(modem({"setprop", "a", "1"}).status, 0);
  g_on_rmdir = [&](const char* path) {
    if (path == folder / "state/nv/0") write_file(folder / "state/nv/0/1", "x");
  };
  std::string problem;
  EXPECT_FALSE(sim::Modem::reset(folder / "state", problem));
  EXPECT_EQ(problem, folder / "state/nv/0: a command is writing into it");
}

// What came from a server until it fell silent.
struct Heard {
  size_t bytes = 0;
  size_t packets = 0;
  bool hung_up = false;
};
std::vector<Heard> hear_out(const std::vector<qmi::Descriptor>& clients) {
  std::vector<Heard> all(clients.size());
  std::vector<pollfd> ready;
  for (const qmi::Descriptor& client : clients) ready.push_back({client.get(), POLLIN, 0});
  while (qmi::poll_until(ready.data(), ready.size(), timing::Clock::now() + milliseconds(500)) >
         0) {
    for (size_t i = 0; i < all.size(); ++i) {
      if (ready[i].revents == 0) continue;
      uint8_t packet[1024];
      const ssize_t n = recv(clients[i].get(), packet, sizeof packet, 0);
      if (n > 0) {
        all[i].bytes += static_cast<size_t>(n);
        ++all[i].packets;
      } else {
        all[i].hung_up = true;
        ready[i].fd = -1;
      }
    }
  }
  return all;
}

// A packet to the name service: a lookup of every service.
Bytes lookup_of_all() {
  return bytes("01000000 feffffff 0a000000 00000000 00000000 00000000 00000000");
}

TEST_F(Limits, WhatWaitsForAClientThatDoesNotReadIsBounded) {
  const auto server = serve();
  const auto good = connected(socket);
  constexpr size_t kLookups = 128, kMegabyte = 1 << 20, kKernel = 300000;
  std::vector<qmi::Descriptor> asker(1);
  asker[0] = connected(socket);
  for (int i = 0; i < 200; ++i) send(asker[0].get(), lookup_of_all().data(), 28, 0);
  EXPECT_EQ(hear_out(asker)[0].packets, kLookups * 7);  // six services and the end of the list

  // The extension service came last, on port 6; each read of an NV item is answered with 541 bytes.
  Bytes read =
      bytes("00000000 06000000 00 0100 0200 1102 01 0400 02000000 02 0400 0c000000 10 0002");
  read.resize(read.size() + 512);
  ASSERT_EQ(read.size(), 8u + 7 + 14 + 3 + 512);
  std::vector<qmi::Descriptor> greedy;
  for (int i = 0; i < 80; ++i) {
    greedy.push_back(connected(socket));
    for (int n = 0;
         n < 2500 && send(greedy.back().get(), read.data(), read.size(), MSG_NOSIGNAL) > 0;)
      ++n;
  }
  EXPECT_EQ(ask(good), Treatment::Served);
  int hung_up = 0;
  for (const Heard& heard : hear_out(greedy)) {
    hung_up += heard.hung_up;
    EXPECT_LE(heard.bytes, kMegabyte + kKernel);
    EXPECT_TRUE(heard.hung_up || heard.bytes > kMegabyte / 2) << heard.bytes;
  }
  EXPECT_GE(hung_up, 10);
  EXPECT_LE(hung_up, 30);
}

// How long each command waits, in seconds, and the line of README's table that says so.
struct Wait {
  Args args;
  double absent;  // no such service
  double silent;  // no answer
  const char* line;
};
constexpr const char* kExchanges =
    "| 3, 4, 5 1 to 5 6, 6, 7 1, 11 | 1 s an exchange | 3 s an exchange; an EFS file takes one for "
    "414 bytes written, 424 read |";
constexpr const char* kCards =
    "| 5 10 | 4 s; `5 10 3` 9 s | 3 s an exchange; `5 10 1` asks for the EID 30 times: 93 s, 119 s "
    "when the service leaves after the power-up |";
const Wait kWaits[] = {
    {{"4", "1", "0", "550"}, 1, 3, kExchanges},
    {{"5", "2", "0"}, 1, 3, kExchanges},
    {{"6", "4", "35"}, 1, 3, kExchanges},
    {{"7", "1", "1"}, 1, 3, kExchanges},
    {{"11", "2"}, 1, 3, kExchanges},
    {{"5", "5"}, 0, 30, "| 5 5 | at once | 30 s |"},
    {{"5", "10", "1", "0"}, 4, 3, kCards},
    {{"5", "10", "3", "0"}, 9, 6, kCards},
    {{"5", "10", "4", "0"}, 4, 3, kCards},
    {{"8", "AT"}, 0, 0, "| 8 | at once without the port | 6 s |"},
    {{"9", "8", "0"}, 9, 60, "| 9 | 9 s | 60 s |"},
    {{"10", "0", "1"}, 100, 10, "| 10 | 100 s | 10 s a request, 5 s for its outcome |"},
    {{"12", "0"}, 5, 10, "| 12 | 5 s | 10 s |"},
};

class Waits : public Limits {
 protected:
  // Begins a command that is to end after `wait` seconds, or up to `more` later, were it not that
  // time runs ten times as fast.
  void begin(const Args& args, const std::string& modem, double wait, double more = 0) {
    const Variables variables = {{"TOVI_MODEM", "unix:" + modem},
                                 {"TOVI_STATE", folder / std::to_string(running_.size())},
                                 {"TOVI_LOG", "/dev/null"},
                                 {"TOVI_TIME_SCALE", "0.1"}};
    running_.push_back(std::async(std::launch::async, [=] {
      using Seconds = std::chrono::duration<double>;
      constexpr double kMachine = 2.5;  // for the machine that is busy with all of them
      double took = 0;
      // A machine that is busy may miss an answer, and then a command ends early.
      for (int tries = 0; tries < 10 && took < wait * 0.09; ++tries) {
        const auto start = timing::Clock::now();
        run("tovi", args, variables);
        took = Seconds(timing::Clock::now() - start).count();
      }
      const std::string what = args[0] + " " + args[1] + " at " + modem;
      EXPECT_GE(took, wait * 0.09) << what;
      EXPECT_LE(took, (wait + more) * 0.105 + kMachine) << what;
    }));
    usleep(20000);  // all at once would hold each other up
  }

  void wait_for_all() {
    for (auto& one : running_) one.get();
  }

 private:
  std::vector<std::future<void>> running_;
};

std::unique_ptr<FakeModem> silent_modem(const std::string& path) {
  auto modem = std::make_unique<FakeModem>(path);
  for (const uint32_t service : {0xFFE4u, 0x0Bu, 0x03u, 0x11u, 0x24u, 0xE4u}) {
    modem->add_service(service, service);
  }
  return modem;
}

TEST_F(Waits, EndWhenTheReadmeSays) {
  const std::string readme = read_file(TOVI_TEST_DATA "/../README.md");
  const FakeModem absent(folder / "absent");
  const auto silent = silent_modem(folder / "silent");
  const auto mute = mute_listener(folder / "mute", 100);
  const auto full = mute_listener(folder / "full", 0);
  const auto only_one = connected(folder / "full");
  std::vector<std::unique_ptr<Program>> servers;
  const std::pair<const char*, double> faults[] = {{"b/65=drop", 93}, {"b/65#1=down", 119}};
  for (const auto& [fault, wait] : faults) {
    const std::string path = folder / ("server" + std::to_string(servers.size()));
    servers.push_back(std::make_unique<Program>("tovi-modem",
                                                Args{"serve", "--unix", path, "--faults", fault},
                                                Variables{{"TOVI_STATE", path + ".state"}}));
    servers.back()->wait_for_error_line("tovi-modem: ready\n");
    begin({"5", "10", "1", "0"}, path, wait);
  }
  sleep(1);  // what they ask before that is to be answered in time
  for (const auto& [args, absent_s, silent_s, line] : kWaits) {
    EXPECT_NE(readme.find(std::string(line) + "\n"), std::string::npos) << line;
    begin(args, folder / "absent", absent_s);
    begin(args, folder / "silent", silent_s);
    begin(args, folder / "mute", absent_s, 1);
    begin(args, folder / "full", absent_s, 1);
  }
  wait_for_all();
}

// Whoever waits for a packet looks at the clock meanwhile.
TEST_F(Limits, WhatIsNoPacketIsReceivedAsNothing) {
  const auto listener = mute_listener(folder / "modem", 1);
  const qmi::Opened opened = qmi::open_unix_endpoint(folder / "modem", timing::kNever);
  ASSERT_NE(opened.endpoint, nullptr);
  const qmi::Descriptor modem(accept(listener.get(), nullptr, nullptr));
  constexpr size_t kAddress = sizeof(qmi::Address), kTooLong = kAddress + qmi::kMaxPacketBytes + 1;
  for (const size_t size : {size_t{1}, kAddress - 1, kTooLong, size_t{100000}, kAddress + 1}) {
    const Bytes sent(size, 7);
    ASSERT_EQ(send(modem.get(), sent.data(), size, 0), static_cast<ssize_t>(size));
    qmi::Address source;
    std::span<const uint8_t> packet;
    EXPECT_EQ(opened.endpoint->receive(source, packet, timing::kPast),
              qmi::Endpoint::Received::Packet);
    const bool good = size == kAddress + 1;
    EXPECT_EQ(packet.size(), good ? 1 : 0) << size;
    EXPECT_EQ(source, good ? (qmi::Address{0x07070707, 0x07070707}) : qmi::kNowhere) << size;
  }
}

TEST_F(Waits, AFloodMakesNoWaitLonger) {
  FakeModem absent(folder / "absent");
  const auto silent = silent_modem(folder / "silent");
  absent.flood();
  silent->flood();
  for (const auto& [args, absent_s, silent_s, line] : kWaits) {
    if (absent_s > 5 || silent_s > 5) continue;
    begin(args, folder / "absent", 0, absent_s);
    begin(args, folder / "silent", 0, silent_s);
  }
  wait_for_all();
}

}  // namespace
