// The NV/EFS library: what it sends, byte for byte, what it makes of whatever comes back, and files
// of every size on their way through the simulated modem.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <sstream>
#include <thread>

#include "modem.h"
#include "sim_extension.h"
#include "support/extend_fixture.h"
#include "velmor_extend_nvefs.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

class Nvefs : public Extend {};

char g_path[] = "/ab";

TEST_F(Nvefs, NvefsChecksItsArgumentsInOrderAndSendsNothing) {
  unsigned char buf[512] = {};
  unsigned int room = 8, none = 0;
  const struct {
    int code;
    std::function<int()> call;
  } rows[] = {
      {-104, [&] { return velmor_nv_read(2, 9999, nullptr, nullptr); }},
      {-109, [&] { return velmor_nv_read(0, 7233, nullptr, nullptr); }},
      {-107, [&] { return velmor_nv_read(0, 1, nullptr, nullptr); }},
      {-108, [&] { return velmor_nv_read(0, 1, buf, nullptr); }},
      {-108, [&] { return velmor_nv_read(0, 1, buf, &none); }},
      {-109, [&] { return velmor_nv_write_ex(0, 0xFFFFFFFF, nullptr, 0); }},
      {-107, [&] { return velmor_nv_write_ex(0, 1, nullptr, 0); }},
      {-108, [&] { return velmor_nv_write_ex(0, 1, buf, 0); }},
      {-108, [&] { return velmor_nv_write_ex(0, 1, buf, 425); }},
      {-108, [&] { return velmor_nv_write_ex(0, 1, buf, -1); }},
      {-104, [&] { return velmor_nv_delete(2, 1); }},
      {-109, [&] { return velmor_nv_delete(1, 7233); }},
      {-104, [&] { return velmor_efs_read(2, nullptr, 0, nullptr, nullptr); }},
      {-105, [&] { return velmor_efs_read(0, nullptr, 0, nullptr, nullptr); }},
      {-106, [&] { return velmor_efs_read(0, g_path, 0, nullptr, nullptr); }},
      {-106, [&] { return velmor_efs_read(0, g_path, 72, nullptr, nullptr); }},
      {-106, [&] { return velmor_efs_read(0, g_path, -3, nullptr, nullptr); }},
      {-107, [&] { return velmor_efs_read(0, g_path, 3, nullptr, nullptr); }},
      {-108, [&] { return velmor_efs_read(0, g_path, 3, buf, nullptr); }},
      {-108, [&] { return velmor_efs_read(0, g_path, 3, buf, &none); }},
      {-106, [&] { return velmor_efs_write(0, g_path, 71, nullptr, 0); }},
      {-107, [&] { return velmor_efs_write(0, g_path, 3, nullptr, 0); }},
      {-108, [&] { return velmor_efs_write(0, g_path, 3, buf, 0); }},
      {-108, [&] { return velmor_efs_write(0, g_path, 3, buf, 102411); }},
      {-105, [&] { return velmor_efs_delete(0, nullptr, 3); }},
      {-106, [&] { return velmor_efs_delete(0, g_path, 71); }},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.call(), row.code) << &row - rows;
  }
  EXPECT_TRUE(modem.requests().empty());

  char longest[72];
  memset(longest, 'p', sizeof longest);
  reply(nvefs_rsp(1, 1, 0, {1}));
  EXPECT_EQ(velmor_efs_read(0, longest, 71, buf, &room), 0);
  EXPECT_EQ(velmor_efs_write(0, longest, 70, buf, 1), 0);
  EXPECT_EQ(velmor_nv_write_ex(0, 1, buf, 424), 0);
  EXPECT_EQ(modem.requests().size(), 3u);
}

TEST_F(Nvefs, NoMoreIsStoredThanThereIsRoomFor) {
  unsigned char buf[64];
  unsigned int room;
  const std::function<int()> reads[] = {
      [&] { return velmor_nv_read(0, 1, buf, &(room = 8)); },
      [&] { return velmor_efs_read(0, g_path, 3, buf, &(room = 8)); }};
  for (const auto& read : reads) {
    memset(buf, 0xee, sizeof buf);
    reply(nvefs_rsp(20, 20, 0, Bytes(20)));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(room, 8u);
    EXPECT_EQ(buf[7], 0);
    EXPECT_EQ(buf[8], 0xee);
  }
}

TEST_F(SilentModem, AnAnswerThatDoesNotComeIsAFailedExchange) {
  unsigned char byte = 7;
  modem.on_request([](const Bytes&) { return Replies{}; });
  EXPECT_EQ(velmor_efs_write(0, g_path, 3, &byte, 1), -103);
}

// Runs `call` with 0 and with 1, thirty times on a thread each.
void on_two_threads(const std::function<void(uint8_t)>& call) {
  std::vector<std::thread> threads;
  for (uint8_t which : {uint8_t{0}, uint8_t{1}}) {
    threads.emplace_back([&call, which] {
      for (int i = 0; i < 30; ++i) call(which);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// Standard output into a pipe that is read slowly: who logs between two exchanges waits there, and
// another thread comes to its turn.
class SlowOutput {
 public:
  SlowOutput() : kept_(dup(STDOUT_FILENO)) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    fflush(stdout);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    reader_ = std::thread([end = ends[0]] {
      char text[1024];
      while (read(end, text, sizeof text) > 0) usleep(500);
      close(end);
    });
  }
  ~SlowOutput() {
    fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
    reader_.join();
  }

 private:
  const int kept_;
  std::thread reader_;
};

TEST_F(Nvefs, OperationsOfTwoThreadsNeverMix) {
  reply(bytes("00000000 01000000 01000000 00000000 00000000 aa"));
  auto output = std::make_unique<SlowOutput>();
  // One thread writes a file of many chunks, the other small ones for as long as that takes.
  std::atomic<bool> done = false;
  std::thread small([&] {
    char path[] = "/b";
    unsigned char byte = 1;
    while (!done) EXPECT_EQ(velmor_efs_write(1, path, 2, &byte, 1), 0);
  });
  std::vector<unsigned char> file(kEfsWriteMax);
  char path[] = "/a";
  EXPECT_EQ(velmor_efs_write(0, path, 2, file.data(), kEfsWriteMax), 0);
  done = true;
  small.join();
  output.reset();
  std::string subs;
  for (const Bytes& chunk : modem.requests()) {
    subs += static_cast<char>('0' + chunk[qmi::kHeaderBytes + 17 + 1]);
  }
  const size_t first = subs.find('0'), last = subs.rfind('0');
  EXPECT_EQ(subs.substr(first, last + 1 - first), std::string(248, '0'));

  testing::internal::CaptureStdout();
  on_two_threads([](uint8_t which) {
    unsigned char item[8];
    unsigned int room = sizeof item;
    EXPECT_EQ(velmor_nv_read(which, 10, item, &room), 0);
  });
  std::istringstream said(testing::internal::GetCapturedStdout());
  std::string line, under_way;
  while (std::getline(said, line)) {
    if (line.find("velmor_nv_read, sub_id") != std::string::npos) {
      EXPECT_EQ(under_way, "");
      under_way = line;
    }
    if (line.find("rsp.data_len_all") != std::string::npos) under_way.clear();
  }
}

TEST_F(Nvefs, AShortAnswerLowersTheRoomForTheRestOfAnEfsRead) {
  int chunk = 0;
  modem.on_request([&](const Bytes& request) {
    const size_t data = chunk++ == 0 ? 10 : 100;
    const auto size = static_cast<uint32_t>(data);
    return Replies{answer(request, nvefs_rsp(30, size, 0, Bytes(data, 7)))};
  });
  unsigned char buf[64];
  unsigned int room = sizeof buf;
  EXPECT_EQ(velmor_efs_read(0, g_path, 3, buf, &room), 0);
  EXPECT_EQ(room, 30u);
  EXPECT_EQ(modem.requests().size(), 3u);
}

TEST_F(Nvefs, AnEfsReadEndsAfter300Exchanges) {
  reply(nvefs_rsp(100000, 1, 0, {7}));
  Bytes buf(1000);
  unsigned int room = 1000;
  EXPECT_EQ(velmor_efs_read(0, g_path, 3, buf.data(), &room), 0);
  EXPECT_EQ(room, 300u);
  EXPECT_EQ(modem.requests().size(), 300u);
}

// The real modem's rules, without a process in between.
class NvefsWithModem : public Nvefs {
 protected:
  void SetUp() override {
    Extend::SetUp();
    std::string problem;
    simulated_ = sim::Modem::open(folder_.path(), problem);
    ASSERT_NE(simulated_, nullptr) << problem;
    service_ = std::make_unique<sim::ExtensionService>(*simulated_);
    modem.on_request([this](const Bytes& request) {
      Replies replies;
      for (const auto& said :
           sim::carry_out(*service_, {1, 1}, request, faults_, random_).deliveries) {
        replies.push_back(said.packet);
      }
      return replies;
    });
    g_velmor_extend_print_flag = 0;
    g_velmor_shell_print_flag = 0;
  }
  void TearDown() override {
    g_velmor_shell_print_flag = 1;
    FakeModemTest::TearDown();
  }

  ScratchFolder folder_;
  std::unique_ptr<sim::Modem> simulated_;
  std::unique_ptr<sim::ExtensionService> service_;
  sim::Faults faults_;
  std::minstd_rand random_;
};

TEST_F(NvefsWithModem, FilesOfEverySizeGoThereAndBackWhole) {
  const struct {
    unsigned int size;
    size_t writes, reads;
  } rows[] = {{1, 1, 1},   {413, 1, 1}, {414, 1, 1},       {415, 2, 1},
              {424, 2, 1}, {425, 2, 2}, {102410, 248, 242}};
  Bytes data(102410), back(102411);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + i / 251);
  char path[] = "/nv/item_files/modem/big";
  const int path_len = static_cast<int>(strlen(path));
  size_t before = 0;
  for (const auto& row : rows) {
    EXPECT_EQ(velmor_efs_write(1, path, path_len, data.data(), row.size), 0) << row.size;
    EXPECT_EQ(modem.requests().size() - before, row.writes) << row.size;
    before += row.writes;
    const std::string stored = read_file(folder_ / "efs/1/nv/item_files/modem/big");
    ASSERT_EQ(stored.size(), row.size);
    EXPECT_EQ(memcmp(stored.data(), data.data(), row.size), 0);
    unsigned int room = static_cast<unsigned int>(back.size());
    EXPECT_EQ(velmor_efs_read(1, path, path_len, back.data(), &room), 0) << row.size;
    EXPECT_EQ(room, row.size);
    EXPECT_EQ(memcmp(back.data(), data.data(), row.size), 0);
    EXPECT_EQ(modem.requests().size() - before, row.reads) << row.size;
    before += row.reads;
  }
  unsigned int room = 1000;
  EXPECT_EQ(velmor_efs_read(1, path, path_len, back.data(), &room), 0);
  EXPECT_EQ(room, 1000u);
  EXPECT_FALSE(exists(folder_ / "efs/0/nv/item_files/modem/big"));
}

TEST_F(NvefsWithModem, AChunkQuotesTheInstanceItWasGiven) {
  unsigned char data[415] = {};
  EXPECT_EQ(velmor_efs_write(0, g_path, 3, data, 415), 0);
  const auto requests = modem.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(payload_of(requests[0]).substr(0, 8), "0500ff00");
  EXPECT_EQ(payload_of(requests[1]).substr(0, 8), "0500e803");
}

// The response's TLVs begin at 0, 7, 14 and, after one that nobody knows, 18; they end at 533.
TEST_F(NvefsWithModem, AFileEndsBeforeTheExchangeThatFails) {
  constexpr unsigned int kSize = 2000, kChunk = 424, kExchanges = 5;
  Bytes data(kSize), back(kSize + 1);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + i / 251);
  EXPECT_EQ(velmor_efs_write(0, g_path, 3, data.data(), kSize), 0);
  for (const std::string action :
       {"twice", "short:533", "error:9", "garbage", "short:0", "short:1", "short:6", "short:7",
        "short:8", "short:13", "short:14", "short:15", "short:18", "short:19", "short:532"}) {
    const bool good = action == "twice" || action == "short:533";
    for (unsigned int n = 1; n <= kExchanges; ++n) {
      const std::string rule = "ffe4/2#" + std::to_string(n) + "=" + action;
      std::string problem;
      faults_ = *sim::Faults::parse(rule, problem);
      unsigned int len = kSize + 1;
      const int code = velmor_efs_read(0, g_path, 3, back.data(), &len);
      EXPECT_EQ(code, good ? 0 : -103) << rule;
      if (code == 0 || n > 1) {
        EXPECT_EQ(len, good ? kSize : kChunk * (n - 1)) << rule;
        EXPECT_EQ(memcmp(back.data(), data.data(), len), 0) << rule;
      }
      faults_ = *sim::Faults::parse(rule, problem);
      EXPECT_EQ(velmor_efs_write(0, g_path, 3, data.data(), kSize), good ? 0 : -103) << rule;
      EXPECT_EQ(velmor_nv_delete(0, 7232), 5) << rule;
    }
  }
  EXPECT_EQ(read_file(folder_ / "efs/0/ab"), std::string(data.begin(), data.end()));
}

}  // namespace
