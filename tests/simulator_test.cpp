// The simulated modem as a program, its state folder, and several programs at once.
#include <signal.h>

#include <sstream>

#include "sim_extension.h"
#include "sim_nas.h"
#include "sim_pdc.h"
#include "sim_sar.h"
#include "sim_uim.h"
#include "sim_vs.h"
#include "support/fake_modem.h"
#include "support/simulator_fixture.h"

namespace {

using namespace testing_support;

using Services = std::map<std::string, std::unique_ptr<sim::Service>>;

Services services_of(sim::Modem& modem) {
  Services all;
  all["extend"] = std::make_unique<sim::ExtensionService>(modem);
  all["uim"] = std::make_unique<sim::UimService>(modem);
  all["pdc"] = std::make_unique<sim::PdcService>(modem.configurations());
  all["nas"] = std::make_unique<sim::NasService>(modem);
  all["sar"] = std::make_unique<sim::SarService>(modem);
  all["vs"] = std::make_unique<sim::VsService>(modem.statistics());
  return all;
}

// TLVs as words, "01:0a0b+2" for one with the bytes 0a 0b 00 00, to a message's body and back.
Bytes body_of(std::istringstream& words) {
  Bytes body;
  for (std::string word; words >> word;) {
    const size_t plus = std::min(word.find('+'), word.size());
    Bytes value = bytes(word.substr(3, plus - 3));
    if (plus < word.size()) value.resize(value.size() + std::stoul(word.substr(plus)));
    body.push_back(bytes(word.substr(0, 2))[0]);
    body.insert(body.end(), {uint8_t(value.size() & 255), uint8_t(value.size() >> 8)});
    body.insert(body.end(), value.begin(), value.end());
  }
  return body;
}
std::string words_of(std::span<const uint8_t> body) {
  std::string text;
  while (body.size() >= 3) {
    const size_t end = 3 + body[1] + body[2] * size_t{256};
    if (end > body.size()) break;
    const auto value = body.subspan(3, end - 3);
    size_t shown = value.size();
    while (shown > 16 && value[shown - 1] == 0) --shown;
    text += " " + hex(body.first(1)) + ":" + hex(value.first(shown));
    if (shown < value.size()) text += "+" + std::to_string(value.size() - shown);
    body = body.subspan(end);
  }
  return body.empty() ? text : text + " and " + hex(body);
}

// A line for what a service says to the request with this transaction.
std::string line_of(const sim::Delivery& said, uint16_t transaction) {
  const auto header = qmi::read_header(said.packet).value();
  const bool responds = header.kind == qmi::Kind::Response;
  EXPECT_EQ(header.transaction == transaction, responds);
  EXPECT_EQ(qmi::kHeaderBytes + header.length, said.packet.size());
  std::string line = "< " + hex(Bytes{uint8_t(header.message >> 8), uint8_t(header.message)});
  if (!responds) {
    line += " indication " + std::to_string(header.transaction) + " after " +
            std::to_string(said.delay_ms) + " ms";
  }
  return line + words_of(std::span(said.packet).subspan(qmi::kHeaderBytes)) + "\n";
}

// The requests of tests/golden/exchanges.txt, after the name of a service those of a client that is
// not the first, and what the services say to each: below a line with "--" those of a new modem,
// below one with "$" after a command in its state folder, below "gone" without that client.
// TOVI_TEST_UPDATE=1 writes it anew.
TEST_F(Simulator, SendsMessagesAsPhonesLayThemOut) {
  const std::string path = TOVI_TEST_DATA "/golden/exchanges.txt", golden = read_file(path);
  std::unique_ptr<sim::Modem> modem;
  Services services;
  sim::Faults no_faults;
  std::minstd_rand random;
  std::istringstream lines(golden);
  std::string all, problem;
  uint16_t transaction = 0x100;
  for (std::string line, mark, name, id; std::getline(lines, line);) {
    if (line.starts_with("<")) continue;
    all += line + "\n";
    std::istringstream words(line);
    words >> mark >> name;
    if (mark == "--") {
      modem = sim::Modem::open(folder / ("phone" + std::to_string(all.size())), problem);
      ASSERT_NE(modem, nullptr) << problem;
      services = services_of(*modem);
    } else if (mark == "$") {
      const std::string command = "cd " + modem->folder() + "; " + line.substr(2);
      EXPECT_EQ(run("/bin/sh", {"-c", command}, {}).err, "");
    } else {
      const size_t slash = std::min(name.find('/'), name.size());
      const bool first = slash == name.size();
      const qmi::Address client{1, first ? 1 : static_cast<uint32_t>(name[slash + 1] - '0')};
      sim::Service& service = *services.at(name.substr(0, slash));
      if (mark == "gone") {
        service.client_gone(client);
        continue;
      }
      words >> id;
      const Bytes request = packet(qmi::Kind::Request, ++transaction,
                                   uint16_t(std::stoul(id, nullptr, 16)), body_of(words));
      for (const auto& said :
           sim::carry_out(service, client, request, no_faults, random).deliveries) {
        all += line_of(said, transaction);
      }
    }
  }
  expect_golden(path, all);
}

// Two hundred times: three indications of the extension service, and the one of an activation.
TEST_F(Simulator, IndicationsThatComeBeforeTheLastAnswerArePrintedOnEveryRun) {
  FakeModem modem(socket);
  modem.add_service(0xFFE4, 7);
  modem.on_request([](const Bytes& request) {
    const Bytes indication =
        packet(qmi::Kind::Indication, 1, 3, bytes("01 0400 02000000 02 0400 00000000"));
    Bytes body = bytes("01 0400 00000000 02 0400 15000000 10 0002");
    body.resize(body.size() + 512);
    body[body.size() - 512 + 4] = 1;
    const auto transaction = static_cast<uint16_t>(request[1] | request[2] << 8);
    return Replies{indication, indication, indication,
                   packet(qmi::Kind::Response, transaction, 2, body)};
  });
  Variables early = state;
  early["TOVI_SIM_FAULTS"] = "24/27=ind-first";
  const struct {
    Args args;
    const Variables& variables;
    const char* line;
    int times;
  } rows[] = {
      {{"4", "1", "0", "10"}, served, "No function defined to handle indication: 2", 3},
      {{"10", "0", "1"}, early, "entering qmi_pdc_activate_config_ind_hdlr", 1},
  };
  for (const auto& row : rows) {
    const std::string first = run("tovi", row.args, row.variables).out;
    int times = 0;
    for (size_t at = 0; (at = first.find(row.line, at)) != std::string::npos; ++at) ++times;
    EXPECT_EQ(times, row.times) << first;
    for (int i = 1; i < 200; ++i) ASSERT_EQ(run("tovi", row.args, row.variables).out, first) << i;
  }
}

TEST_F(Simulator, EightProgramsAtOnceLoseAndMixNothing) {
  const auto server = serve();
  for (const Variables& variables : {served, state}) {
    for (int round = 0; round < 5; ++round) {
      std::vector<Args> writes, reads;
      for (int i = 0; i < 8; ++i) {
        const std::string path = "/parallel/" + std::to_string(i);
        writes.push_back({"4", "5", std::to_string(i % 2), path});
        writes.back().insert(writes.back().end(), 300, std::to_string(16 * round + i));
        reads.push_back({"4", "4", std::to_string(i % 2), path});
      }
      together(writes, variables);
      const auto out = together(reads, variables);
      for (int i = 0; i < 8; ++i) {
        char value[8];
        snprintf(value, sizeof value, ":  %02X\n", 16 * round + i);
        size_t count = 0;
        for (size_t at = 0; (at = out[size_t(i)].find(value, at)) != std::string::npos; ++at) {
          ++count;
        }
        EXPECT_EQ(count, 300u) << i;
      }
    }
  }
}

TEST_F(Simulator, EightProgramsMayMakeTheStateAtOnceAndWriteOneFile) {
  std::vector<Args> writes;
  for (int i = 1; i <= 8; ++i) {
    writes.push_back({"4", "5", "0", "/one"});
    writes.back().insert(writes.back().end(), static_cast<size_t>(i) * 20, std::to_string(i));
  }
  together(writes, state);
  const std::string stored = read_file(folder / "state/efs/0/one");
  ASSERT_FALSE(stored.empty());
  EXPECT_EQ(stored, std::string(static_cast<size_t>(stored[0]) * 20, stored[0]));
  EXPECT_TRUE(std::filesystem::is_empty(folder / "state/tmp"));
}

TEST_F(Simulator, AServerReplacesADeadSocketAndRefusesALiveOne) {
  auto server = serve();
  const Result second = modem({"serve", "--unix", socket});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "tovi-modem: " + socket + ": a server is already there\n");
  server->kill(SIGKILL);
  EXPECT_EQ(server->wait().status, 128 + SIGKILL);
  EXPECT_TRUE(exists(socket));
  for (const int signal : {SIGTERM, SIGINT}) {
    server = serve();
    EXPECT_NE(run("tovi", {"4", "1", "0", "550"}, served).out.find("data len(9)"),
              std::string::npos);
    server->kill(signal);
    EXPECT_EQ(server->wait().status, 0);
    EXPECT_FALSE(exists(socket));
  }
  write_file(socket, "a file, not a socket");
  EXPECT_EQ(modem({"serve", "--unix", socket}).status, 1);
  EXPECT_EQ(read_file(socket), "a file, not a socket");
}

TEST_F(Simulator, OfTwoServersStartedTogetherOneServes) {
  serve()->kill(SIGKILL);  // leaves a dead socket
  std::vector<std::unique_ptr<Program>> servers;
  for (int i = 0; i < 6; ++i) {
    servers.push_back(
        std::make_unique<Program>("tovi-modem", Args{"serve", "--unix", socket}, state));
  }
  for (auto& server : servers) server->wait_for_error_line("tovi-modem: ");
  EXPECT_NE(run("tovi", {"4", "1", "0", "550"}, served).out.find("data len(9)"), std::string::npos);
  int refused = 0;
  for (auto& server : servers) server->kill(SIGTERM);
  for (auto& server : servers) refused += server->wait().status == 1;
  EXPECT_EQ(refused, 5);
  EXPECT_FALSE(exists(socket));
}

// A tree of the script and of a build that copies one file, in place of the real one.
TEST(Run, SaysThatItBuildsOnlyWhenThereIsSomethingToBuild) {
  const ScratchFolder folder;
  const std::string script = folder / "run";
  std::filesystem::copy(TOVI_TEST_DATA "/../run", folder.path());
  write_file(folder / "build/release/build.ninja",
             "rule copy\n command = cp $in $out && chmod +x $out\n"
             "build tovi: copy source\nbuild tovi-modem: copy source\n"
             "build tovictl: copy source\n");
  const Variables path = {{"PATH", getenv("PATH")}};
  for (const std::string word : {"one", "two"}) {
    write_file(folder / "build/release/source", "#!/bin/sh\necho " + word + " $1\n");
    for (const char* said : {"run: building what has changed\n", ""}) {
      const Result result = run(script, {"x"}, path);
      EXPECT_EQ(result.out, word + " x\n");
      EXPECT_EQ(result.err, said);
    }
  }
  std::filesystem::remove(folder / "build/release/source");
  const Result broken = run(script, {"x"}, path);
  EXPECT_EQ(broken.status, 1);
  EXPECT_NE(broken.err.find("run: the build failed:\n"), std::string::npos) << broken.err;
}

}  // namespace
