// Modules 5 and 8 as a person at the shell sees them: cards, eSIM, diag and AT port.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>

#include <filesystem>
#include <thread>

#include "descriptor.h"
#include "support/cli_fixture.h"
#include "unix_address.h"

namespace {

using namespace testing_support;

class Cmn : public Cli {
 protected:
  std::string esim(const std::string& test, const std::string& faults = "") {
    variables["TOVI_SIM_FAULTS"] = faults;
    return tovi({"5", "10", test, "0"});
  }
  static size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++n;
    return n;
  }
  // Sets one line of a file of the modem's state.
  void edit(const std::string& file, const std::string& from, const std::string& to) {
    std::string text = read_file(folder / "state/" + file);
    const size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos);
    write_file(folder / "state/" + file, text.replace(at, from.size(), to));
  }

  const std::string uimdrv = folder / "state/efs/1/nv/item_files/modem/uim/uimdrv/";
};

constexpr const char* kEid = "eID=89049032123451234512345678901235\n";
constexpr const char* kFailed = "value=FAILED\n";

TEST_F(Cmn, TheSlotIsSwitchedBetweenEsimAndSim) {
  EXPECT_EQ(esim("1"), kEid);
  EXPECT_EQ(read_file(uimdrv + "esim_enable"), std::string("\x01\0\0\0", 4));
  EXPECT_EQ(read_file(uimdrv + "esim_eid"),
            "\x89\x04\x90\x32\x12\x34\x51\x23\x45\x12\x34\x56\x78\x90\x12\x35");
  EXPECT_EQ(esim("3"), kEid);
  EXPECT_EQ(esim("2"), "value=SUCCEED\n");
  EXPECT_EQ(read_file(uimdrv + "esim_enable"), std::string(4, '\0'));
  EXPECT_EQ(esim("3"), kFailed);  // a removable SIM has no EID
  EXPECT_EQ(esim("5"), kFailed);  // and no ISD-R
  EXPECT_EQ(esim("4"), "PRESENT,PRESENT\n");
  edit("slot/2", "sim=present", "sim=absent");
  EXPECT_EQ(esim("4"), "PRESENT,ABSENT\n");
  edit("slot/1", "power=on", "power=off");
  EXPECT_EQ(esim("4"), "ERROR,ABSENT\n");
  EXPECT_EQ(esim("4", "b/2f=error:3"), "UNKNOWN,UNKNOWN\n");
  variables["TOVI_TIME_SCALE"] = "0.1";
  EXPECT_EQ(esim("4", "b/2f=drop"), kFailed);
  EXPECT_EQ(esim("7"), kFailed);
  EXPECT_EQ(esim("0"), kFailed);
  const std::string f = "velmor_cmn_esim_test";
  EXPECT_EQ(tovi({"5", "10", "7", "1"}), line(f, "invalid input skip") + kFailed);
}

TEST_F(Cmn, AStoredEidIsKeptAndAnInvalidOneIsNot) {
  variables["TOVI_TIME_SCALE"] = "0.1";
  esim("4");
  edit("euicc", "901235", "901236");
  EXPECT_EQ(esim("1"), "value=FAILED - 89049032123451234512345678901236\n");
  EXPECT_FALSE(exists(uimdrv + "esim_eid"));
  write_file(uimdrv + "esim_eid", "sixteen bytes....");
  edit("euicc", "901236", "901235");
  EXPECT_EQ(esim("1"), kEid);
  EXPECT_EQ(read_file(uimdrv + "esim_eid"), "sixteen bytes....");
  edit("euicc", "eid=89", "eid=00");
  const std::string out = tovi({"5", "10", "1", "1"});
  EXPECT_EQ(count(out, "try get eid loop = "), 30u);
  EXPECT_TRUE(out.ends_with(line("velmor_cmn_esim_test", "get eid timeout") + kFailed));
}

TEST_F(Cmn, AMemoryResetDeletesTheProfilesOnce) {
  const std::string f = "velmor_cmn_esim_test";
  const auto reset = [&] { return tovi({"5", "10", "5", "1"}); };
  const std::string first = reset();
  EXPECT_NE(first.find(line(f, "velmor_uim_open_channel res = 0, channel_id = 1")),
            std::string::npos);
  EXPECT_NE(
      first.find(line(f, "velmor_uim_send_apdu res = 0") + line(f, "apdu=08bf34038001009000") +
                 line(f, "velmor_uim_send_apdu, delete profile successfully.")),
      std::string::npos);
  EXPECT_NE(read_file(folder / "state/euicc").find("\nprofiles=\n"), std::string::npos);
  const std::string second = reset();
  EXPECT_NE(second.find(line(f, "apdu=08bf34038001019000") +
                        line(f, "velmor_uim_send_apdu, nothing to delete.")),
            std::string::npos);
  for (const std::string& out : {first, second}) {
    EXPECT_TRUE(out.ends_with(line(f, "velmor_uim_close_channel res = 0") + "value=SUCCEED\n"));
  }
  EXPECT_EQ(esim("5", "b/3f=error:3"), "value=SUCCEED\n");
  for (const char* faults : {"b/42=error:3", "b/3b=error:3", "b/3b=drop"}) {
    EXPECT_EQ(esim("5", faults), kFailed) << faults;
  }
}

TEST_F(Cmn, ALateCardAndARestartInTheMiddleAreLivedThrough) {
  variables["TOVI_TIME_SCALE"] = "0.25";
  const struct {
    const char* faults;
    const char* out;
  } rows[] = {
      {"b/65#1=error:52;b/65#2=drop;b/65#3=error:52", kEid},  // late
      {"b/65#2=restart;b/65#1=error:52", kEid},
      {"b/65=error:52", kFailed},
      {"b/30=error:3;b/31=error:26", kEid},  // refusals are not looked at
      {"b/30#1=restart", kFailed},
      {"b/31#1=restart", kFailed},
      {"b/31=drop", kFailed},
      {"ffe4/2#2=error:1", kFailed},  // the mode cannot be stored
      {"b=down", kFailed},
  };
  for (const auto& row : rows) EXPECT_EQ(esim("1", row.faults), row.out) << row.faults;
}

TEST_F(Cmn, CardStatusOverTheExtensionService) {
  const auto dump = [&](const Args& args) {
    const std::string out = tovi(args);
    const size_t at = out.find("data len(");
    return at == std::string::npos ? out : out.substr(at);
  };
  EXPECT_EQ(dump({"5", "1"}),
            "data len(16)\ndata: 27 00 00 00 08 00 00 00 01 00 00 00 01 00 00 00\n");
  EXPECT_EQ(dump({"5", "3", "0", "1", "0"}), "data len(8)\ndata: 00 00 00 00 00 00 00 00\n");
  EXPECT_EQ(dump({"5", "2", "0"}), "data len(12)\ndata: 37 00 00 00 04 00 00 00 00 00 00 00\n");
  EXPECT_EQ(esim("4"), "ABSENT,PRESENT\n");
  EXPECT_EQ(dump({"5", "4"}), "data len(12)\ndata: 38 00 00 00 04 00 00 00 02 00 00 00\n");
  EXPECT_EQ(dump({"5", "6", "1", "10", "10", "3"}), "data len(8)\ndata: 00 00 00 00 00 00 00 00\n");

  const std::string error = line("velmor_test_cmn_do", "note: Error happen! error_code(268431370)");
  const std::string set = "velmor_cmn_card_status_set", swap = "velmor_cmn_card_hotswap_test";
  const auto need = [](const std::string& f, const std::string& n) {
    return line(f, "note: need " + n + " inputs, Pls refer to the following cmd:");
  };
  EXPECT_EQ(tovi({"5", "3", "0", "1"}),
            line(set, set) + need("velmor_cmn_card_status_cmd", "6") + error + help("5: cmn"));
  EXPECT_EQ(tovi({"5", "6", "1", "10"}), line(swap, swap) + line(swap, "opt: 1") +
                                             need("velmor_cmn_card_status_cmd_ex", "7") + error +
                                             help("5: cmn"));
  EXPECT_EQ(tovi({"5", "6"}),
            line(swap, swap) +
                line(swap, "note: need 4 inputs at least, Pls refer to the following cmd:") +
                error + help("5: cmn"));
  EXPECT_EQ(tovi({"5", "10", "1"}),
            line("velmor_cmn_esim_test", "invalid input") +
                line("velmor_test_cmn_do", "note: Error happen! error_code(-1)") + help("5: cmn"));
}

TEST_F(Cmn, TheSarDsiIsAskedForOnlyWhileTheEchoIsOn) {
  variables["TOVI_TRACE"] = folder / "trace";
  EXPECT_TRUE(tovi({"5", "5"}).ends_with("SAR DSI: 3\n"));
  EXPECT_FALSE(read_file(folder / "trace").empty());
  write_file(folder / "trace", "");
  set_property("persist.vendor.velmor.shell_print", "0");
  EXPECT_EQ(tovi({"5", "5"}), "");
  EXPECT_EQ(read_file(folder / "trace"), "");
}

std::string diag_lines(const std::string& mode, const std::string& bytes_sent,
                       const std::string& rest) {
  const std::string f = "velmor_cmn_diag_cmd_send";
  return line(f, "function entry ------------->") + "diag cmd:\n" + bytes_sent + "\n" +
         line(f, mode) + rest + line(f, "function exit <-------------");
}

TEST_F(Cmn, DiagCommandsInEachOfTheFourWays) {
  EXPECT_EQ(tovi({"5", "0", "0", "0", "1000", "0x4B", "75", "0x1FF"}),
            diag_lines("callback mode with result", "0x4B 0x4B 0xFF ",
                       "rsp data len(4)\nrsp data: 0x13 0x4B 0x4B 0xFF\n"));
  EXPECT_EQ(tovi({"5", "0", "1", "0", "1000", "0x26", "10", "0"}).substr(0, 230).substr(150),
            tovi({"5", "0", "9", "0", "1000", "0x26", "10", "0"}).substr(0, 230).substr(150));
  EXPECT_EQ(tovi({"5", "0", "0", "1", "0", "0"}),
            diag_lines("callback mode without result", "0x00 ", "done without rsp data\n"));
  EXPECT_EQ(tovi({"5", "0", "1", "1", "0", "0"}),
            diag_lines("dci mode without result", "0x00 ", "done without rsp data\n"));
  const struct {
    const char* command;
    const char* answer;
  } rows[] = {
      {"0x00", "rsp data len(55)\nrsp data: 0x00 0x4A 0x61 0x6E"},
      {"0x7C", "rsp data len(47)\nrsp data: 0x7C 0x02 0x00 0x00"},
      {"0x26", "rsp data len(2)\nrsp data: 0x15 0x26\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(count(tovi({"5", "0", "0", "0", "1000", row.command}), row.answer), 1u);
  }
  EXPECT_EQ(count(tovi({"5", "0", "0", "0", "1000", "0x26", "0x26", "2"}),
                  "rsp data len(133)\nrsp data: 0x26 0x26 0x02 0x08 0x0A 0x10 0x10"),
            1u);
  const std::string f = "velmor_cmn_diag_cmd_send";
  EXPECT_EQ(tovi({"5", "0", "0", "0", "1000"}),
            line(f, "function entry ------------->") +
                line(f, "note: Too few inputs, Pls refer to the following cmd:") +
                line(f, "function exit <-------------"));
  Args many = {"5", "0", "0", "0", "1000"};
  many.insert(many.end(), 5000, "1");
  const std::string out = tovi(many);
  EXPECT_EQ(count(out, "0x01 "), 4096u + 4095u);
  EXPECT_EQ(count(out, "rsp data len(4097)"), 1u);
  EXPECT_FALSE(exists(folder / "state/device/dev/diag"));
}

// Also who asked for nothing.
TEST_F(Cmn, TheDiagPortTellsEveryClientWhatTheModemSays) {
  Program server("tovi-modem", {"serve", "--unix", folder / "socket"}, variables);
  server.wait_for_error_line("tovi-modem: ready\n");
  const auto client = [&] {
    qmi::Descriptor port(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect_unix(port.get(), folder / "state/device/dev/diag"), 0);
    return port;
  };
  const auto heard = [](const qmi::Descriptor& port) {
    char bytes[256];
    return std::string(
        bytes, static_cast<size_t>(std::max<ssize_t>(recv(port.get(), bytes, sizeof bytes, 0), 0)));
  };
  const qmi::Descriptor listens = client(), asks = client();
  for (const char* command : {"\x26", ""}) {
    EXPECT_EQ(send(asks.get(), command, 1, 0), 1);
    for (const qmi::Descriptor* port : {&listens, &asks}) {
      const std::string log = heard(*port), others = heard(*port), answer = heard(*port);
      EXPECT_EQ(log, std::string("\x10\0\x0c\0\x0c\0\x01\x10\0\0\0\0\0\0\0\0", 16));
      EXPECT_EQ(others.substr(0, 1), *command != 0 ? std::string(1, '\0') : "\x7c");
      EXPECT_EQ(answer.substr(0, 2), *command != 0 ? "\x15\x26" : std::string("\0J", 2));
    }
  }
}

// A diag port that answers one command with `size` bytes, or hangs up.
TEST_F(Cmn, DiagAnswersAreCutAndWithoutOneThereIsAnError) {
  const std::string path = folder / "dev/diag";
  variables = {{"TOVI_MODEM", "unix:" + (folder / "nobody")},
               {"TOVI_DEVICE_ROOT", folder.path()},
               {"TOVI_LOG", folder / "log"}};
  const Args command = {"5", "0", "0", "0", "1000", "1"};
  const std::string failure =
      diag_lines("callback mode with result", "0x01 ",
                 line("velmor_cmn_diag_cmd_send", "velmor_diag_cmd_send fail")) +
      line("velmor_test_cmn_do", "note: Error happen! error_code(-1)") + help("5: cmn");
  EXPECT_EQ(tovi(command), failure);  // no port

  std::filesystem::create_directory(folder / "dev");
  const qmi::Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  sockaddr_un address;
  ASSERT_TRUE(make_unix_address(path, address));
  ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener.get(), 1), 0);
  for (const int size : {-1, 0, 10240, 10241, 60000}) {
    std::thread port([&] {
      const qmi::Descriptor client(accept(listener.get(), nullptr, nullptr));
      char byte;
      EXPECT_EQ(recv(client.get(), &byte, 1, 0), 1);
      const std::string answer(static_cast<size_t>(std::max(size, 0)), '\x01');
      if (size > 0) send(client.get(), answer.data(), answer.size(), 0);
      if (size >= 0) recv(client.get(), &byte, 1, 0);  // until the other side gives up
    });
    const std::string out = tovi(command);
    port.join();
    if (size <= 0) {
      EXPECT_EQ(out, failure);
    } else {
      EXPECT_EQ(count(out, "rsp data len(10240)\n"), 1u) << size;
      EXPECT_EQ(count(out, " 0x01"), 10240u);
    }
  }
}

TEST_F(Cmn, AnAtCommandIsSentAndItsAnswerLogged) {
  variables["TOVI_TIME_SCALE"] = "0.2";
  const std::string f = "velmor_test_at_cmd_do", s = "velmor_test_at_cmd_send",
                    r = "velmor_test_at_cmd_receive";
  const auto whole = [&](const std::string& scanned, const std::string& text,
                         const std::string& answer) {
    return line(f, "At cmd you input: sscanf(" + scanned + "), len (" +
                       std::to_string(text.size()) + "), " + text) +
           line(f, "Will create a thread to receive data from serial") +
           line(r, "The thread to receive data from serial is started") +
           line(s, "at shell cmd: echo \"" + text + "\r\" > /dev/smd8") +
           line(s, "echo, ret_sys: 0") + line(s, "Success to send at shell cmd") + answer +
           line(f, "Will close channel: /dev/smd8");
  };
  const auto answered = [&](const std::string& text) {
    return line(r, "Receive the AT reponse: len(" + std::to_string(text.size()) + ")") +
           line(r, text);
  };
  const struct {
    const char* input;
    const char* sent;
    const char* answer;
  } rows[] = {
      {"AT+CSQ", "AT+CSQ", "AT+CSQ\r\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
      {"AT+CSQ extra", "AT+CSQ", "AT+CSQ\r\r\n+CSQ: 24,99\r\n\r\nOK\r\n"},
      {"AT", "AT", "AT\r\r\nOK\r\n"},
      {"ati", "ati", "ati\r\r\ntovi simulated modem\r\n\r\nOK\r\n"},
      {"AT+CGSN", "AT+CGSN", "AT+CGSN\r\r\n001012345678902\r\n\r\nOK\r\n"},
      {"AT+COPS?", "AT+COPS?",
       "AT+COPS?\r\r\n+CREG: 0,1\r\n\r\n+COPS: 0,0,\"TEST 1\",7\r\n\r\nOK\r\n"},
      {"AT+CPIN?", "AT+CPIN?", "AT+CPIN?\r\r\n+CPIN: READY\r\n\r\nOK\r\n"},
      {"AT+FOO", "AT+FOO", "AT+FOO\r\r\nERROR\r\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(tovi({"8", row.input}), whole("1", row.sent, answered(row.answer)));
  }
  edit("slot/1", "sim=present", "sim=absent");
  EXPECT_EQ(
      tovi({"8", "AT+COPS?"}),
      whole("1", "AT+COPS?", answered("AT+COPS?\r\r\n+CREG: 0,0\r\n\r\n+COPS: 0\r\n\r\nOK\r\n")));
  EXPECT_EQ(tovi({"8", "AT+CPIN?"}), whole("1", "AT+CPIN?", answered("AT+CPIN?\r\r\nERROR\r\n")));
  EXPECT_EQ(tovi({"8", "  "}), whole("-1", "", answered("\r")));
  signal(SIGCHLD, SIG_IGN);
  Program deaf("tovi", {"8", "AT"}, variables);
  signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(without_lines(deaf.wait().out), whole("1", "AT", answered("AT\r\r\nOK\r\n")));
  const std::string hundred(100, 'x');
  EXPECT_EQ(tovi({"8", hundred}), whole("1", hundred, answered(hundred + "\r\r\nERROR\r\n")));
  EXPECT_EQ(tovi({"8", hundred + "x"}),
            line(f,
                 "note: the second parameters length should <= 100, Pls refer to the following "
                 "cmd:") +
                help("8: velmor at"));
  EXPECT_EQ(tovi({"8"}),
            line(f, "note: The number of inputs should be 2, Pls refer to the following cmd:") +
                help("8: velmor at"));
  EXPECT_EQ(tovi({"8", "AT", "I"}), tovi({"8"}));

  // Where there is no port, the shell makes a file; neither that nor its absence is read from.
  take_modem_away();
  variables["TOVI_DEVICE_ROOT"] = folder / "a phone's root";
  std::filesystem::create_directories(folder / "a phone's root/dev");
  for (int i = 0; i < 2; ++i) {
    std::string out = tovi({"8", "AT"});
    EXPECT_EQ(count(out, line(r, "The at channel is not opened, g_at_serial_fd 0")), 1u);
    EXPECT_EQ(count(out, "Will close"), 0u);
    EXPECT_EQ(read_file(folder / "a phone's root/dev/smd8"), "AT\r\n");
  }
}

// The port is a terminal as a phone has it after the start, with line editing and echo.
TEST_F(Cmn, AnAtAnswerIsReadWhenThePortHasBecomeQuiet) {
  const qmi::Descriptor modem(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(grantpt(modem.get()), 0);
  ASSERT_EQ(unlockpt(modem.get()), 0);
  const qmi::Descriptor held(open(ptsname(modem.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  std::filesystem::create_directory(folder / "dev");
  std::filesystem::create_symlink(ptsname(modem.get()), folder / "dev/smd8");
  variables = {{"TOVI_MODEM", "unix:" + (folder / "nobody")},
               {"TOVI_DEVICE_ROOT", folder.path()},
               {"TOVI_LOG", folder / "log"},
               {"TOVI_TIME_SCALE", "0.2"}};
  const std::string r = "velmor_test_at_cmd_receive", hundred(100, 'x');
  const struct {
    std::vector<std::string> pieces;
    std::string logged;
  } rows[] = {
      {{}, line(r, "Failed to receive bytes from server")},
      {{"AT\r", "\r\n+CREG: 0,1\r\n", "\r\n+CSQ: 1,99\r\n", "\r\nOK", "\r\n"},
       line(r, "Receive the AT reponse: len(37)") +
           line(r, "AT\r\r\n+CREG: 0,1\r\n\r\n+CSQ: 1,99\r\n\r\nOK\r\n")},
      {std::vector<std::string>(70, hundred),
       line(r, "Receive the AT reponse: len(511)") + line(r, std::string(511, 'x'))},
  };
  for (const auto& row : rows) {
    std::string heard;
    std::thread speaker([&] {
      for (char c = 0; c != '\n' && read(modem.get(), &c, 1) == 1;) heard += c;
      for (const std::string& piece : row.pieces) {
        EXPECT_EQ(write(modem.get(), piece.data(), piece.size()), std::ssize(piece));
        usleep(20000);
      }
    });
    const std::string out = tovi({"8", "AT"});
    speaker.join();
    EXPECT_EQ(count(out, row.logged), 1u) << out;
    EXPECT_EQ(heard, "AT\r\n");
    pollfd own_words{modem.get(), POLLIN, 0};
    EXPECT_EQ(poll(&own_words, 1, 0), 0);
    tcflush(held.get(), TCIFLUSH);
  }
}

TEST_F(Cmn, ProgramsSideBySideEachGetTheirAnswer) {
  const auto sixteen_answers = [&] {
    std::vector<std::unique_ptr<Program>> programs;
    for (int i = 0; i < 16; ++i) {
      programs.push_back(
          std::make_unique<Program>("tovi", Args{"5", "0", "0", "0", "5000", "0x7C"}, variables));
    }
    size_t answers = 0;
    for (const auto& program : programs) answers += count(program->wait().out, "data len(47)");
    return answers;
  };
  EXPECT_EQ(sixteen_answers(), 16u);  // each with a modem of its own
  // A server waits for a command that has the ports.
  Program busy("tovi", {"8", " "}, variables);
  while (!exists(folder / "state/device/dev/smd8")) usleep(1000);
  Program server("tovi-modem", {"serve", "--unix", folder / "socket"}, variables);
  server.wait_for_error_line("tovi-modem: ready\n");
  busy.wait();
  EXPECT_EQ(sixteen_answers(), 16u);  // of the server, whose state they share
  variables["TOVI_MODEM"] = "unix:" + (folder / "socket");
  EXPECT_EQ(sixteen_answers(), 16u);
  variables["TOVI_TIME_SCALE"] = "0.2";
  EXPECT_EQ(count(tovi({"8", "ATE0"}), " ATE0\r\r\nOK\r\n"), 1u);
  EXPECT_EQ(count(tovi({"8", "AT"}), " \r\nOK\r\n"), 1u);
  EXPECT_EQ(count(tovi({"8", "ate1"}), " \r\nOK\r\n"), 1u);
  EXPECT_EQ(count(tovi({"8", "AT"}), " AT\r\r\nOK\r\n"), 1u);
  server.kill(SIGTERM);
  const Result ended = server.wait();
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err, "tovi-modem: ready\n");
  EXPECT_TRUE(std::filesystem::is_empty(folder / "state/device/dev"));
}

TEST_F(Cmn, APortThatAKilledProcessLeftIsNobodysTerminal) {
  tovi({"5", "1"});
  std::filesystem::create_directories(folder / "state/device/dev");
  const qmi::Descriptor somebody(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_EQ(grantpt(somebody.get()), 0);
  ASSERT_EQ(unlockpt(somebody.get()), 0);
  std::filesystem::create_symlink(ptsname(somebody.get()), folder / "state/device/dev/smd8");
  take_modem_away();
  EXPECT_EQ(count(tovi({"8", "AT"}), "The at channel is not opened, g_at_serial_fd 0"), 1u);
  char byte;
  EXPECT_EQ(read(somebody.get(), &byte, 1), -1);
}

}  // namespace
