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

TEST_F(Simulator, TheSameCommandsPrintTheSameOverBothEndpoints) {
  const auto server = serve();
  const std::string path = "/nv/item_files/modem/mmode/device_mode";
  const Args commands[] = {
      {"4", "1", "0", "550"},
      {"4", "2", "1", "9", "1", "2"},
      {"4", "1", "1", "9"},
      {"4", "3", "1", "9"},
      {"4", "1", "1", "9"},
      {"4", "4", "0", path},
      {"4", "5", "0", path, "1", "2"},
      {"4", "4", "0", path},
      {"4", "6", "0", path},
      {"4", "6", "0", path},
      {"6", "4", "35"},
      {"6", "5", "1"},
      {"6", "2", "9"},
      {"4", "1", "0", "7233"},
  };
  Variables embedded = state;
  embedded["TOVI_STATE"] = folder / "other";
  for (const Args& args : commands) {
    EXPECT_EQ(without_lines(run("tovi", args, served).out),
              without_lines(run("tovi", args, embedded).out));
  }
  EXPECT_FALSE(exists(folder / "elsewhere"));
}

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

TEST_F(Simulator, NothingIsWrittenOutsideTheStateFolder) {
  run("tovi", {"4", "5", "0", "/plain/file", "1"}, state);
  write_file(folder / "log", "");
  Variables quiet = state;
  quiet["TOVI_LOG"] = "/dev/null";
  const std::string before = listing();
  for (const char* path : {"/../../../x", "..", "/a/../../x", "/./x", "//x", "/x/", "/", "/a//b",
                           "/plain/file/x", "/plain"}) {
    for (const char* command : {"5", "6", "4"}) {
      Args args = {"4", command, "0", path};
      if (command[0] == '5') args.push_back("1");
      EXPECT_NE(run("tovi", args, quiet).out.find("note: Error happen! error_code(-"),
                std::string::npos)
          << command << " " << path;
    }
  }
  EXPECT_EQ(listing(), before);
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

TEST_F(Simulator, ResetEmptiesOnlyAStateFolderThatNoServerUses) {
  EXPECT_EQ(modem({"reset"}).status, 0);
  EXPECT_FALSE(exists(folder / "state"));
  write_file(folder / "state/lock", "");
  EXPECT_EQ(modem({"reset"}).status, 0);
  write_file(folder / "state/precious", "x");
  EXPECT_EQ(modem({"reset"}).status, 1);
  EXPECT_EQ(read_file(folder / "state/precious"), "x");
  std::filesystem::remove(folder / "state/precious");
  auto server = serve();
  EXPECT_EQ(modem({"reset"}).err, "tovi-modem: " + (folder / "state") + ": a server is using it\n");
  EXPECT_TRUE(exists(folder / "state/nv/0/550"));
  server->kill(SIGTERM);
  server->wait();
  write_file(folder / "outside", "x");
  write_file(folder / "state/precious", "x");
  std::filesystem::create_directory_symlink(folder.path(), folder / "state/efs/link");
  EXPECT_EQ(modem({"reset"}).status, 0);
  EXPECT_FALSE(exists(folder / "state/nv"));
  EXPECT_FALSE(exists(folder / "state/precious"));
  EXPECT_TRUE(exists(folder / "outside"));
  EXPECT_NE(run("tovi", {"4", "1", "0", "550"}, state).out.find("data len(9)"), std::string::npos);
  for (const char* version : {"999\n", "", "1 x\n", "1 1 1\n", "1 -1\n", "11\n", "2 1\n"}) {
    write_file(folder / "state/version", version);
    EXPECT_NE(run("tovi", {"4", "1", "0", "550"}, state).err.find("another version"),
              std::string::npos)
        << version;
  }
}

TEST_F(Simulator, AFolderOfAnEarlierBuildGetsWhatItLacksOnce) {
  run("tovi", {"4", "1", "0", "550"}, state);
  const std::string current = read_file(folder / "state/version");
  EXPECT_EQ(current, "1 2\n");
  const std::string record = read_file(folder / "state/stats/1/110");
  const struct {
    const char* version;
    bool completes;
    std::string afterwards;
    bool adds_the_last;
  } rows[] = {{"1\n", true, current, true},
              {"1 0\n", true, current, true},
              {"1 1\n", false, current, true},
              {"1 2\n", false, current, false},
              {"1 999\n", false, "1 999\n", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.version);
    write_file(folder / "state/version", row.version);
    write_file(folder / "state/nv/0/550", "mine");
    std::filesystem::remove(folder / "state/sar");
    std::filesystem::remove(folder / "state/networks");
    std::filesystem::remove_all(folder / "state/stats");
    EXPECT_EQ(run("tovi", {"4", "1", "0", "550"}, state).err, "");
    EXPECT_EQ(exists(folder / "state/sar"), row.completes);
    EXPECT_EQ(exists(folder / "state/networks"), row.adds_the_last);
    EXPECT_EQ(exists(folder / "state/stats/1/110"), row.completes);
    EXPECT_EQ(read_file(folder / "state/nv/0/550"), "mine");
    EXPECT_EQ(read_file(folder / "state/version"), row.afterwards);
    if (row.completes) {
      EXPECT_EQ(read_file(folder / "state/stats/1/110"), record);
      EXPECT_EQ(read_file(folder / "state/sar"), "# DSI, 0 to 20\ndsi=3\n");
    }
  }
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

TEST_F(Simulator, NothingIsPrintedIntoTheFilesOfAProgramWithClosedDescriptors) {
  const std::string script = "cd " + folder.path() + " && PATH=" TOVI_BUILD_FOLDER R"(:$PATH
export TOVI_STATE=state TOVI_LOG=log TOVI_MODEM=unix:socket TOVI_TRACE=stderr
tovi-modem serve --unix socket 2>&- &
for i in $(seq 500); do [ ! -S socket ] || break; sleep 0.01; done
tovi 4 2 0 77 1 >&-
tovi 4 2 0 78 1 2>&-
TOVI_MODEM=sim tovi 4 2 0 79 1 <&- >&- 2>&-
kill $! && wait $!)";
  const Result shell = run("/bin/sh", {"-c", script}, {});
  EXPECT_EQ(shell.status, 0);
  for (const char* item : {"77", "78", "79"}) {
    EXPECT_EQ(read_file(folder / "state/nv/0/" + item), "\x01");
  }
  EXPECT_EQ(read_file(folder / "state/lock"), "");
  std::istringstream log(read_file(folder / "log"));
  for (std::string line; std::getline(log, line);) {
    EXPECT_TRUE(line.starts_with("D [tovi]") || line == "D ") << line;
  }
}

TEST_F(Simulator, PropertiesKeepWhatAPersonWroteAroundThem) {
  EXPECT_EQ(modem({"getprop", "a.b"}).out, "\n");
  EXPECT_EQ(modem({"setprop", "a.b", "1"}).status, 0);
  EXPECT_EQ(run("tovi-modem", {"getprop", "a.b"}, {{"HOME", ""}, {"XDG_STATE_HOME", ""}}).status,
            1);
  const std::string file = folder / "state/properties";
  write_file(file, "# mine\n a.b = 7 # old\nother=x\na.b=8");
  EXPECT_EQ(modem({"getprop", "a.b"}).out, "8\n");
  EXPECT_EQ(modem({"setprop", "a.b", "two words"}).status, 0);
  EXPECT_EQ(read_file(file), "# mine\na.b=two words\nother=x\n");
  for (const Args& bad :
       {Args{"setprop", "", "1"}, Args{"setprop", "a=b", "1"}, Args{"setprop", "a", "1\n2"},
        Args{"setprop", "a", std::string(92, 'x')}, Args{"setprop", "a", "#"}}) {
    EXPECT_EQ(modem(bad).status, 1);
  }
  EXPECT_EQ(read_file(file), "# mine\na.b=two words\nother=x\n");
}

TEST_F(Simulator, WrongUsageEndsWithStatus2) {
  for (const Args& args : {Args{}, Args{"fly"}, Args{"serve"}, Args{"serve", "--unix"},
                           Args{"reset", "now"}, Args{"getprop"}, Args{"setprop", "a"}}) {
    const Result result = modem(args);
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(result.err.starts_with("usage: tovi-modem serve"));
    EXPECT_EQ(result.out, "");
  }
  const std::string help = modem({"--help"}).out;
  EXPECT_TRUE(help.starts_with("usage:"));
  for (const char* action : {" drop ", " ind-other:ID ", " restart[:MS]\n"}) {
    EXPECT_NE(help.find(action), std::string::npos) << help;
  }
  EXPECT_EQ(modem({"-h"}).out, help);
  EXPECT_TRUE(modem({"--version"}).out.starts_with("tovi-modem "));
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
