// Ways a modem can misbehave: the rules that describe them, and what they do to an exchange.
#include "faults.h"

#include <string.h>

#include <regex>

#include "gtest/gtest.h"
#include "service.h"
#include "support/fake_modem.h"
#include "support/tool.h"

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

}  // namespace
