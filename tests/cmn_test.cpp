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
  static size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++n;
    return n;
  }
};

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
  const std::string f = "velmor_cmn_diag_cmd_send";
  const std::string failure =
      line(f, "function entry ------------->") + "diag cmd:\n0x01 \n" +
      line(f, "callback mode with result") + line(f, "velmor_diag_cmd_send fail") +
      line(f, "function exit <-------------") +
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
