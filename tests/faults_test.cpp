// Ways a modem can misbehave: the rules that describe them, and what they do to every exchange of
// every operation.
#include "faults.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <regex>

#include "descriptor.h"
#include "gtest/gtest.h"
#include "service.h"
#include "support/fake_modem.h"
#include "support/slow.h"
#include "support/tool.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_nvefs.h"
#include "velmor_utils.h"

namespace {

using namespace testing_support;

TEST(FaultRules, AreReadOrRefusedWhole) {
  const auto no_message = [](const std::string& word) {
    return "'" + word +
           "' is no message of the service, by name or in hexadecimal, nor an operation";
  };
  const struct {
    const char* rules;
    std::string why = "";  // it cannot be read
  } rows[] = {
      {""},
      {";"},
      {"ffe4=drop"},
      {"0xFFE4/0x2#3=delay:20;11=error:0x5e"},
      {"b/3b=error:94;24=ind-other:21;24=no-ind;24=ind-first"},
      {"3=down;3=down:5;3=restart;3=restart:5;3=short:0;3=garbage;3=twice"},
      {"extend/nv_write#2=result:-22;ffe4/restart=len:5;uim/memory_reset=stray;vs=absent:50"},
      {"# a comment; 3=oops\n uim/power_up=error:94 ;; \n\n\t3=absent\n"},
      {"drop", "it has no ="},
      {"=drop", "'' is no service, by name or in hexadecimal"},
      {"xyz=drop", "'xyz' is no service, by name or in hexadecimal"},
      {"3/=drop", no_message("")},
      {"3/10000=drop", no_message("10000")},
      {"nas/nv_write=drop", no_message("nv_write")},
      {"3=result:6", "only the extension service has a payload for that"},
      {"ffe4=result:x", "'x' is no number: result:N"},
      {"3/21=absent", "'absent' is about a whole service"},
      {"3#=drop", "'' behind # is no decimal number above 0"},
      {"3#0=drop", "'0' behind # is no decimal number above 0"},
      {"3=explode", "'explode' is no action; tovi-modem --help names them"},
      {"3=drop:1", "'drop' takes no value"},
      {"3=delay", "'delay' needs a value: delay:MS"},
      {"3=delay:", "'' is no number: delay:MS"},
      {"3=delay:-1", "'-1' is no number: delay:MS"},
      {"3=delay:1x", "'1x' is no number: delay:MS"},
      {"3=drop;3=oops", "'oops' is no action; tovi-modem --help names them"},
  };
  for (const auto& row : rows) {
    std::string problem;
    EXPECT_EQ(sim::Faults::parse(row.rules, problem).has_value(), row.why.empty()) << row.rules;
    if (problem.empty()) continue;
    const std::string rule = strrchr(row.rules, ';') ? strrchr(row.rules, ';') + 1 : row.rules;
    EXPECT_EQ(problem, "the fault rule '" + rule + "' cannot be read: " + row.why);
  }
}

// Every word of the table that reads rules.
TEST(FaultRules, StandInTheManualAndInTheGuide) {
  const std::string root = TOVI_TEST_DATA "/../";
  const std::string code = read_file(root + "simulator/tester/faults.cpp");
  const std::string manual = read_file(root + "docs/man/tovi-modem.1");
  const std::string guide = read_file(root + "docs/simulator.md");
  const std::regex row("\\{\"([a-z-]+)\", Action::");
  size_t words = 0;
  for (std::sregex_iterator at(code.begin(), code.end(), row), end; at != end; ++at, ++words) {
    const std::string word = (*at)[1];
    EXPECT_TRUE(std::regex_search(manual, std::regex("\n\\.It ([^\n]* )?" + word + "[ \n]")))
        << word;
    EXPECT_TRUE(std::regex_search(guide, std::regex("\n\\|[^|]*`" + word + "[:`]"))) << word;
  }
  EXPECT_EQ(words, 17u);
}

TEST(FaultRules, TheFirstThatMatchesWinsAndCountsItsOwnRequests) {
  std::string problem;
  auto faults = *sim::Faults::parse("3/21#2=drop;3=error:7;ffe4#1=twice", problem);
  const auto action = [&](uint32_t service, uint8_t message) {
    const uint8_t request[] = {0, 1, 0, message, 0, 0, 0};
    const sim::Fault* fault = faults.meet(sim::Asked(*sim::service_of(service), request));
    return fault != nullptr ? static_cast<int>(fault->action) : -1;
  };
  using Action = sim::Fault::Action;
  EXPECT_EQ(action(3, 0x21), int(Action::Error));
  EXPECT_EQ(action(3, 0x22), int(Action::Error));
  EXPECT_EQ(action(3, 0x21), int(Action::Drop));
  EXPECT_EQ(action(3, 0x21), int(Action::Error));
  EXPECT_EQ(action(0xFFE4, 2), int(Action::Twice));
  EXPECT_EQ(action(0xFFE4, 2), -1);
  EXPECT_EQ(action(0x11, 0x21), -1);
}

// Answers with one byte and raises two indications.
struct OneByte {
  uint8_t value;
};
constexpr qmi::Field kOneByte[] = {{0x01, qmi::Required, qmi::U8, QMI_FIELD(OneByte, value)}};
constexpr qmi::Message kDemoMessages[] = {
    {qmi::Kind::Request, 5, "demo"},
    {qmi::Kind::Response, 5, "demo", 4, sizeof(OneByte), kOneByte},
    {qmi::Kind::Indication, 6, "demo", 4, sizeof(OneByte), kOneByte},
};
constexpr qmi_idl_service_object kDemo = {"demo", 0x77, 1, 0, 6, 4, kDemoMessages};

class DemoService final : public sim::Service {
 public:
  const qmi_idl_service_object& description() const override { return kDemo; }
  uint32_t answer(qmi::Address, uint16_t, const void*, void* response,
                  sim::Aftermath& aftermath) override {
    static_cast<OneByte*>(response)->value = 0xaa;
    for (const uint8_t value : {uint8_t{0xb1}, uint8_t{0xb2}}) {
      const OneByte indication{value};
      aftermath.indicate(6, &indication);
    }
    return 0;
  }
  void client_gone(qmi::Address) override {}
  void all_clients_gone() override {}
};

TEST(Faults, ChangeAnswerAndIndications) {
  const std::string aa = "02010005000400010100aa", b1 = "04010006000400010100b1",
                    b2 = "04020006000400010100b2";
  const struct {
    const char* rule;
    std::string deliveries;  // "delay:packet "
  } rows[] = {
      {"", "0:" + aa + " 0:" + b1 + " 0:" + b2 + " "},
      {"77=drop", "0:" + b1 + " 0:" + b2 + " "},
      {"77=delay:9", "9:" + aa + " 0:" + b1 + " 0:" + b2 + " "},
      {"77=twice", "0:" + aa + " 0:" + aa + " 0:" + b1 + " 0:" + b2 + " "},
      {"77=stray", "0:02018005000400010100aa 0:" + b1 + " 0:" + b2 + " "},
      {"77=short:2", "0:020100050002000101 0:" + b1 + " 0:" + b2 + " "},
      {"77=error:94", "0:02010005000700020400010" + std::string("05e00 ")},
      {"77=ind-first", "0:" + b1 + " 0:" + b2 + " 0:" + aa + " "},
      {"77=ind-delay:9", "0:" + aa + " 9:" + b1 + " 9:" + b2 + " "},
      {"77=ind-twice", "0:" + aa + " 0:" + b1 + " 0:" + b1 + " 0:" + b2 + " 0:" + b2 + " "},
      {"77=ind-other:0x1234", "0:" + aa + " 0:04010034120400010100b1 0:04020034120400010100b2 "},
      {"77=no-ind", "0:" + aa + " "},
      {"77=down", ""},
  };
  std::minstd_rand random;
  for (const auto& row : rows) {
    DemoService service;
    std::string problem, got;
    auto faults = *sim::Faults::parse(row.rule, problem);
    for (const auto& delivery :
         sim::carry_out(service, {}, bytes("00010005000000"), faults, random).deliveries) {
      got += std::to_string(delivery.delay_ms) + ":" + hex(delivery.packet) + " ";
    }
    EXPECT_EQ(got, row.deliveries) << row.rule;
  }
  DemoService service;
  sim::Faults none;
  for (const char* packet : {"", "00", "020100050000", "04010005000000", "0001000500010000 00"}) {
    EXPECT_TRUE(sim::carry_out(service, {}, bytes(packet), none, random).deliveries.empty());
  }
}

// What a run of one operation in a process of its own came to.
struct Outcome {
  int code;
  unsigned int stored;  // of a read
  bool bytes_right;
  int next_code;  // of another operation after it
};

constexpr unsigned int kFileBytes = 2000;
char g_path[] = "/file";
const int kPathLen = static_cast<int>(strlen(g_path));

unsigned char pattern(unsigned int i) {
  return static_cast<unsigned char>(i * 7 + i / 251);
}

struct Operation {
  const char* name;
  int exchanges;
  std::function<int(unsigned char* buf, unsigned int* len)> call;
  unsigned int chunk;  // bytes a read gets with each exchange; 0: no read
};

const Operation kOperations[] = {
    {"nv_read", 1, [](auto* buf, auto* len) { return velmor_nv_read(0, 7, buf, len); }, 200},
    {"nv_write", 1, [](auto* buf, auto*) { return velmor_nv_write_ex(0, 8, buf, 200); }, 0},
    {"nv_delete", 1, [](auto*, auto*) { return velmor_nv_delete(0, 7); }, 0},
    {"efs_read", 5,
     [](auto* buf, auto* len) { return velmor_efs_read(0, g_path, kPathLen, buf, len); }, 424},
    {"efs_write", 5,
     [](auto* buf, auto*) { return velmor_efs_write(0, g_path, kPathLen, buf, kFileBytes); }, 0},
    {"efs_delete", 1, [](auto*, auto*) { return velmor_efs_delete(0, g_path, kPathLen); }, 0},
};

// An operation in a process of its own, with a modem of its own that keeps to `rule`.
class Trial {
 public:
  Trial(const Operation& operation, bool served, const std::string& rule, const char* time_scale)
      : what_(std::string(operation.name) + " " + rule) {
    for (unsigned int i = 0; i < kFileBytes; ++i) file_ += static_cast<char>(pattern(i));
    Variables variables = {{"TOVI_STATE", folder_ / "state"}, {"TOVI_TIME_SCALE", time_scale}};
    std::filesystem::copy(new_state(), folder_ / "state", std::filesystem::copy_options::recursive);
    write_file(folder_ / "state/nv/0/7", file_.substr(0, 200));
    write_file(folder_ / "state/efs/0/file", file_);
    if (served) {
      variables["TOVI_MODEM"] = "unix:" + (folder_ / "socket");
      server_ = std::make_unique<Program>(
          "tovi-modem", Args{"serve", "--unix", folder_ / "socket", "--faults", rule}, variables);
      server_->wait_for_error_line("tovi-modem: ready\n");
    }
    variables["TOVI_SIM_FAULTS"] = rule;
    variables["TOVI_LOG"] = "/dev/null";
    int result[2];
    EXPECT_EQ(pipe2(result, O_CLOEXEC), 0);
    result_ = qmi::Descriptor(result[0]);
    const qmi::Descriptor end(result[1]);
    child_ = fork();
    if (child_ == 0) {
      alarm(20);
      for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
      const Outcome outcome = carry_out(operation);
      _exit(write(end.get(), &outcome, sizeof outcome) == sizeof outcome ? 0 : 1);
    }
  }

  Outcome wait() {
    Outcome outcome{};
    EXPECT_EQ(read(result_.get(), &outcome, sizeof outcome), ssize_t{sizeof outcome}) << what_;
    int status = 0;
    waitpid(child_, &status, 0);
    EXPECT_EQ(status, 0) << what_;
    return outcome;
  }

  const std::string& what() const { return what_; }
  bool file_is_whole() const { return read_file(folder_ / "state/efs/0/file") == file_; }

 private:
  // A folder of factory content: to copy it is faster than to have it made, safely, each time.
  static std::string new_state() {
    static const ScratchFolder folder;
    static const Result made =
        run("tovi-modem", {"setprop", "a", "1"}, {{"TOVI_STATE", folder / "state"}});
    EXPECT_EQ(made.status, 0) << made.err;
    return folder / "state";
  }

  static Outcome carry_out(const Operation& operation) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    g_velmor_shell_print_flag = 0;
    g_velmor_extend_print_flag = 0;
    unsigned char buf[kFileBytes + 1] = {};
    const bool reads = operation.chunk > 0;
    for (unsigned int i = 0; !reads && i < kFileBytes; ++i) buf[i] = pattern(i);
    unsigned int len = sizeof buf;
    Outcome outcome{};
    outcome.code = operation.call(buf, &len);
    outcome.stored = len;
    outcome.bytes_right = true;
    for (unsigned int i = 0; reads && i < len && i < kFileBytes; ++i) {
      outcome.bytes_right = outcome.bytes_right && (len == sizeof buf || buf[i] == pattern(i));
    }
    unsigned char value[8] = {};
    unsigned int room = sizeof value;
    outcome.next_code = velmor_nv_read(0, 550, value, &room);
    return outcome;
  }

  const std::string what_;
  ScratchFolder folder_;
  std::string file_;
  std::unique_ptr<Program> server_;
  qmi::Descriptor result_;
  pid_t child_;
};

// Against the embedded modem, and against one that is served.
class FaultLoop : public testing::TestWithParam<bool> {
 protected:
  // Every exchange of every operation meets the fault, all at the same time; the operation must
  // end with one of `codes`.
  static void every_exchange(const std::string& action, const std::vector<int>& codes,
                             bool lasting = false, const char* time_scale = "1") {
    struct Case {
      const Operation& operation;
      int exchange;
      std::unique_ptr<Trial> trial;
    };
    std::vector<Case> cases;
    for (const Operation& operation : kOperations) {
      // A sanitizer is slow to start, and cuts are many: there the first and the last will do.
      const bool ends_only = kSlow || action.starts_with("short");
      const int step = ends_only ? std::max(1, operation.exchanges - 1) : 1;
      for (int n = 1; n <= operation.exchanges; n += step) {
        const std::string rule = "ffe4/2#" + std::to_string(n) + "=" + action;
        cases.push_back(
            {operation, n, std::make_unique<Trial>(operation, GetParam(), rule, time_scale)});
      }
    }
    for (const auto& [operation, n, trial] : cases) {
      const Outcome outcome = trial->wait();
      EXPECT_NE(std::find(codes.begin(), codes.end(), outcome.code), codes.end())
          << trial->what() << " " << outcome.code;
      EXPECT_TRUE(outcome.bytes_right) << trial->what();
      if (operation.chunk > 0 && outcome.code == 0) {
        EXPECT_EQ(outcome.stored, operation.exchanges == 1 ? 200 : kFileBytes) << trial->what();
      } else if (operation.chunk > 0 && n > 1) {
        EXPECT_EQ(outcome.stored, operation.chunk * static_cast<unsigned int>(n - 1))
            << trial->what();
      }
      EXPECT_EQ(outcome.next_code, lasting ? VELMOR_NVEFS_EXCHANGE_FAILED : 0) << trial->what();
      if (outcome.code == 0 && strcmp(operation.name, "efs_write") == 0) {
        EXPECT_TRUE(trial->file_is_whole()) << trial->what();
      }
    }
  }
};

TEST_P(FaultLoop, EveryFaultAtEveryExchangeHasADocumentedEnd) {
  const std::vector<int> good = {0}, failed = {-103};
  every_exchange("twice", good);
  every_exchange("delay:200", good);
  every_exchange("delay:20000", failed, false, "0.34");
  every_exchange("drop", failed, false, "0.34");
  every_exchange("error:9", failed);
  every_exchange("garbage", failed);
  every_exchange("down", failed, true);
  every_exchange("down:0", failed, true);
  every_exchange("restart", failed, true);
}

// The response's TLVs begin at 0, 7, 14 and, after one that nobody knows, 18; they end at 533.
TEST_P(FaultLoop, AResponseCutAtABorderIsNoSuccess) {
  for (const int size : {0, 1, 6, 7, 8, 13, 14, 15, 18, 19, 532}) {
    every_exchange("short:" + std::to_string(size),
                   size == 14 || size == 18 ? std::vector{-103, -108} : std::vector{-103});
  }
  every_exchange("short:533", {0});
}

INSTANTIATE_TEST_SUITE_P(Modem, FaultLoop, testing::Values(false, true),
                         [](const auto& served) { return served.param ? "served" : "embedded"; });

}  // namespace
