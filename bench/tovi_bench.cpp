// What the layers cost, measured against a bare version of the same work in the same run. The last
// table gives the ratios; docs/performance.md says what they should be.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "qcci/qmi_codec.h"
#include "qmi_client.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_nvefs.h"
#include "velmor_tovi_skarn_unpk.h"
#include "velmor_utils.h"

namespace {

constexpr size_t kPacketBytes = 8 + 7 + 529;  // of message 0x02 on the unix endpoint
std::string g_folder;

std::string folder_file(const char* name) {
  return g_folder + "/" + name;
}

void pin_to_core_0() {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(0, &cores);
  sched_setaffinity(0, sizeof cores, &cores);
}

pid_t start(const std::vector<std::string>& command, int err = -1) {
  std::vector<char*> argv;
  for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  if (err >= 0) posix_spawn_file_actions_adddup2(&actions, err, 2);
  pid_t child;
  if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0) abort();
  posix_spawn_file_actions_destroy(&actions);
  return child;
}

void start_server() {
  int err[2];
  if (pipe(err) != 0) abort();
  static pid_t server = 0;
  server =
      start({TOVI_BUILD_FOLDER "/tovi-modem", "serve", "--unix", folder_file("modem")}, err[1]);
  char ready[64];
  if (read(err[0], ready, sizeof ready) <= 0) abort();
  atexit([] { kill(server, SIGKILL); });
}

// The same bytes there and back over the same kind of socket, and nothing else.
void BM_ping_pong(benchmark::State& state) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) abort();
  const pid_t child = fork();
  char packet[kPacketBytes] = {};
  if (child == 0) {
    close(ends[0]);
    while (recv(ends[1], packet, sizeof packet, 0) > 0) send(ends[1], packet, sizeof packet, 0);
    _exit(0);
  }
  close(ends[1]);
  for (auto _ : state) {
    send(ends[0], packet, sizeof packet, 0);
    recv(ends[0], packet, sizeof packet, 0);
  }
  close(ends[0]);
  waitpid(child, nullptr, 0);
}
BENCHMARK(BM_ping_pong)->UseRealTime();

void BM_send_sync(benchmark::State& state) {
  g_velmor_extend_print_flag = 0;
  unsigned char request[512] = {35};
  unsigned char response[512];
  for (auto _ : state) {
    unsigned int room = sizeof response;
    if (velmor_extend_qmi_send_sync(REQUEST_ID_COMMON, request, 512, response, &room) != 0) {
      state.SkipWithError("the exchange failed");
      break;
    }
  }
}
BENCHMARK(BM_send_sync)->UseRealTime();

// The largest file, with log and echo on: the time of one exchange of it.
template <typename Transfer>
void largest_file(benchmark::State& state, double exchanges, Transfer transfer) {
  g_velmor_extend_print_flag = 1;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    if (transfer() != 0) state.SkipWithError("the transfer failed");
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(took.count() / exchanges);
  }
}

char g_path[] = "/bench/largest";
constexpr int kPathLen = sizeof g_path - 1;
unsigned char g_file[kEfsWriteMax];

void BM_efs_write_exchange(benchmark::State& state) {
  largest_file(state, 248,
               [] { return velmor_efs_write(0, g_path, kPathLen, g_file, kEfsWriteMax); });
}
BENCHMARK(BM_efs_write_exchange)->UseManualTime()->Iterations(100);

void BM_efs_read_exchange(benchmark::State& state) {
  largest_file(state, 242, [] {
    unsigned int room = kEfsWriteMax;
    return velmor_efs_read(0, g_path, kPathLen, g_file, &room);
  });
}
BENCHMARK(BM_efs_read_exchange)->UseManualTime()->Iterations(100);

void whole_process(benchmark::State& state, const std::vector<std::string>& command) {
  for (auto _ : state) {
    int status;
    waitpid(start(command), &status, 0);
  }
}
BENCHMARK_CAPTURE(whole_process, bin_true, std::vector<std::string>{"/bin/true"})->UseRealTime();
BENCHMARK_CAPTURE(whole_process, tovi_4_1_0_550,
                  std::vector<std::string>{TOVI_BUILD_FOLDER "/tovi", "4", "1", "0", "550"})
    ->UseRealTime();

const qmi::Message& send_data(qmi::Kind kind) {
  return *velmor_extend_get_service_object_internal_v01(1, 1, 6)->find(kind, kExtendSendDataMsg);
}

void BM_encode(benchmark::State& state) {
  velmor_extend_send_data_req_msg_v01 req{
      .request_id = 2, .data_len = 512, .data_valid = 1, .data = {}};
  uint8_t wire[529];
  for (auto _ : state) {
    benchmark::DoNotOptimize(qmi::encode(send_data(qmi::Kind::Request), &req, wire));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_encode);

void BM_decode(benchmark::State& state) {
  velmor_extend_send_data_resp_msg_v01 resp{
      .result = 0, .data_len = 512, .data_valid = 1, .data = {}};
  uint8_t wire[529];
  const qmi::Message& message = send_data(qmi::Kind::Response);
  qmi::encode(message, &resp, wire);
  for (auto _ : state) {
    benchmark::DoNotOptimize(qmi::decode(message, wire, &resp));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_decode);

// One record, unpacked without a trace or output.
void BM_unpack(benchmark::State& state) {
  std::vector<uint8_t> payload(kUnpkBufBytes, 0x5a);
  const uint32_t version = 0x30002;
  memcpy(payload.data(), &version, sizeof version);
  modem_stats_single_data_common_type record;
  for (auto _ : state) {
    benchmark::DoNotOptimize(velmor_unpack_record(payload.data(), false, record));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_unpack);

// Many clients at once on one server: the time of one exchange, of all clients together. A client
// is bare here (socket and bytes), so that the server is what is measured.
void BM_clients(benchmark::State& state) {
  const auto count = static_cast<size_t>(state.range(0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = folder_file("modem");
  memcpy(address.sun_path, path.c_str(), path.size());
  std::vector<int> clients;
  uint32_t server[2] = {};
  for (size_t i = 0; i < count; ++i) {
    clients.push_back(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    if (connect(clients[i], reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) abort();
  }
  const uint32_t lookup[] = {1, 0xFFFFFFFE, 10, 0xFFE4, 0, 0, 0};
  uint32_t found[7];
  send(clients[0], lookup, sizeof lookup, 0);
  recv(clients[0], found, sizeof found, 0);
  memcpy(server, &found[5], sizeof server);
  recv(clients[0], found, sizeof found, 0);

  uint8_t packet[kPacketBytes];
  memcpy(packet, server, 8);
  velmor_extend_send_data_req_msg_v01 req{
      .request_id = 4, .data_len = 512, .data_valid = 1, .data = {35}};
  qmi::encode(send_data(qmi::Kind::Request), &req, std::span(packet).subspan(15));
  const uint8_t header[] = {0, 1, 0, 2, 0, 0x11, 2};
  memcpy(packet + 8, header, sizeof header);
  uint8_t answer[kPacketBytes];
  for (auto _ : state) {
    for (const int client : clients) send(client, packet, sizeof packet, 0);
    for (const int client : clients) {
      if (recv(client, answer, sizeof answer, 0) != ssize_t{kPacketBytes}) abort();
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  for (const int client : clients) close(client);
}
BENCHMARK(BM_clients)->Arg(1)->Arg(10)->Arg(100)->UseRealTime();

// Keeps the real times, in nanoseconds.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const std::string name =
          run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
      times[name] = run.error_occurred ? 0 : run.GetAdjustedRealTime();
    }
  }
  std::map<std::string, double> times;
};

void print_results(FILE* out, std::map<std::string, double>& ns) {
  fprintf(out, "%-40s %12s\n", "measured", "us");
  for (const auto& [name, time] : ns) fprintf(out, "%-40s %12.3f\n", name.c_str(), time / 1000);

  const double ping = ns["BM_ping_pong"];
  fprintf(out, "\n%-40s %12s %12s\n", "against the bare version", "ratio", "more, us");
  const auto row = [&](const char* what, double measured, double base) {
    fprintf(out, "%-40s %12.2f %12.2f\n", what, measured / base, (measured - base) / 1000);
  };
  row("exchange / ping-pong", ns["BM_send_sync"], ping);
  row("exchange of a full EFS write / ping-pong", ns["BM_efs_write_exchange"], ping);
  row("exchange of a full EFS read / ping-pong", ns["BM_efs_read_exchange"], ping);
  row("tovi 4 1 0 550 / /bin/true", ns["whole_process/tovi_4_1_0_550"],
      ns["whole_process/bin_true"]);
  row("exchange, 10 clients / 1 client", ns["BM_clients/10"] / 10, ns["BM_clients/1"]);
  row("exchange, 100 clients / 1 client", ns["BM_clients/100"] / 100, ns["BM_clients/1"]);
  fprintf(out, "\nmillion messages a second: encode %.1f, decode %.1f\n", 1000 / ns["BM_encode"],
          1000 / ns["BM_decode"]);
  fprintf(out, "million records a second: unpack %.1f\n", 1000 / ns["BM_unpack"]);
  fflush(out);
}

}  // namespace

int main(int argc, char** argv) {
  char folder[] = "/tmp/tovi-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) return 1;
  g_folder = folder;
  pin_to_core_0();
  setenv("TOVI_STATE", folder_file("state").c_str(), 1);
  setenv("TOVI_MODEM", ("unix:" + folder_file("modem")).c_str(), 1);
  setenv("TOVI_LOG", folder_file("log").c_str(), 1);
  start_server();
  // The program's own output goes to a file, the results to where this program's went.
  FILE* results = fdopen(dup(STDOUT_FILENO), "w");
  if (results == nullptr || freopen(folder_file("out").c_str(), "w", stdout) == nullptr) return 1;
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  benchmark::Initialize(&argc, argv);
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  print_results(results, collector.times);
  return system(("rm -rf " + g_folder).c_str());
}
