// The simulator as a program, and the fixture that runs it: what it refuses, how it reports
// mistakes, where it binds, how it stops, what it tells net-snmp clients.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "test_cards.h"

namespace upssim::testing {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Runs `command` through the shell; its standard output and error output.
std::string Shell(const std::string &command) {
  std::string output;
  if (FILE *pipe = popen((command + " 2>&1").c_str(), "r")) {
    char chunk[512];
    while (std::fgets(chunk, sizeof chunk, pipe) != nullptr) output += chunk;
    pclose(pipe);
  }
  return output;
}

// Sets an environment variable until the end of the scope.
struct ScopedEnv {
  ScopedEnv(const char *name, const char *value) : name(name) { setenv(name, value, 1); }
  ~ScopedEnv() { unsetenv(name); }
  const char *name;
};

class ProcessTest : public ::testing::Test {
 protected:
  ProcessTest() {
    std::string dir_template = fs::temp_directory_path() / "upssim-process-XXXXXX";
    if (mkdtemp(dir_template.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    dir_ = dir_template;
  }
  ~ProcessTest() override { fs::remove_all(dir_); }

  std::string Scenario(const std::string &text) {
    std::string path = dir_ / ("s" + std::to_string(++files_) + ".scenario");
    std::ofstream(path) << text;
    return path;
  }

  // Runs the simulator to its end, `input` on its standard input, behind `wrapper` if given: its
  // output and error output, then "exit STATUS".
  std::string Run(const std::string &args, const std::string &input = "",
                  const std::string &wrapper = "") {
    return Shell("printf '%s' '" + input + "' | " + wrapper + " '" + SimulatorPath() + "' " + args +
                 " 2>&1; echo exit $?");
  }

  // A scenario of one card on an address and port of its own, below the fixture's ports.
  std::string OneCard() {
    std::random_device random;
    return Scenario("card ups0 127." + std::to_string(16 + random() % 200) + "." +
                    std::to_string(random() % 256) + "." + std::to_string(1 + random() % 254) +
                    ":" + std::to_string(10000 + random() % 9000) + "\n");
  }

  fs::path dir_;
  int files_ = 0;
};

TEST_F(ProcessTest, ScenarioMistakesAndAddressesOutsideLoopbackNameTheFileAndLine) {
  std::vector<std::pair<std::string, std::string>> cases = {
      {"card ups0 127.16.0.1:16100\nbogus line\n", ":2: unknown keyword 'bogus'"},
      {"card ups0 127.16.0.1:99999\n", ":1: '99999' is not a UDP port"},
      {"port 16100\ncard ups0 127.16.0.1\ncard ups0 127.16.0.2\n", ":3: card name 'ups0'"},
      {"port 16100\ncard a 127.16.0.1\ncard b 127.16.0.1\n", ":3: card b is on 127.16.0.1:16100"},
      {"card ups0 127.16.0.1:16100\nset upsAdvOutputLoad u lots\n", ":2: upsAdvOutputLoad: "},
      {"card ups0 127.16.0.1:16100\nset upsFrobnicator i 1\n", ":2: unknown object"},
      {"card ups0 127.16.0.1:16100\nset upsBasicIdentName\n", ":2: set needs OBJECT TYPE VALUE"},
      {"card ups/0 127.16.0.1:16100\n", ":1: 'ups/0' is not a card name"},
      {"port 16100\ncard ok 127.16.9.9\ncard bad 127.0.0.1\n", ":3: 127.0.0.1 marks an empty slot"},
      {"# nothing\n", ": no cards"},
  };
  for (std::string address : {"10.0.0.1", "192.168.1.20", "0.0.0.0", "255.255.255.255", "localhost",
                              "::1", "127.1", "8.8.8.8"}) {
    cases.emplace_back("port 16100\ncard ok 127.16.9.9\ncard bad " + address + "\n",
                       ":3: card address '" + address + "' is not a loopback IPv4 address");
  }
  for (const auto &[text, message] : cases) {
    std::string path = Scenario(text);
    std::string run = Run(path);
    EXPECT_EQ(run.rfind("snmplumi-upssim: " + path + message, 0), 0u) << run;
    EXPECT_TRUE(run.ends_with("\nexit 1\n")) << run;
    EXPECT_EQ(std::count(run.begin(), run.end(), '\n'), 2) << run;  // one line, never ready
  }
  EXPECT_TRUE(Run((dir_ / "missing.scenario").string()).ends_with("\nexit 1\n"));
  EXPECT_TRUE(Run("--frobnicate").ends_with("\nexit 1\n"));
}

TEST_F(ProcessTest, QuitEndOfInputAndSigtermStopTheSimulatorCleanly) {
  std::string run = Run(UPSSIM_EXAMPLE_SCENARIO, "show server\nnot a command\nquit\nshow server\n");
  EXPECT_EQ(run.rfind("ready 6 cards\nok server 127.16.0.2:16161 status=2(onLine) ", 0), 0u) << run;
  EXPECT_TRUE(run.ends_with("\nerror unknown command 'not' (try help)\nok bye\nexit 0\n")) << run;
  EXPECT_EQ(Run(OneCard()), "ready 1 cards\nexit 0\n");  // end of input

  // Without a control channel the end of input does not stop it; SIGTERM does.
  Clock::time_point start = Clock::now();
  EXPECT_EQ(Run("--no-control " + OneCard(), "", "timeout --preserve-status -s TERM 1"),
            "ready 1 cards\nexit 0\n");
  EXPECT_GE(Clock::now() - start, milliseconds(1000));
}

// As many cards as the library ever watches (130 main, 16 server, 16 other), each on a socket of
// its own in 127.0.0.0/8; bench/upssim_start_bench.cpp measures how fast they start.
TEST_F(ProcessTest, StartsOneHundredSixtyTwoCardsAnsweringOnLoopbackOnlyAndStopsCleanly) {
  constexpr int kCards = 162;
  auto simulator = StartCards(kCards);
  for (int i = 0; i < kCards; ++i) {
    std::string name = "ups" + std::to_string(i);
    EXPECT_EQ(Read(CardTarget(*simulator, name), oid::kIdentName).octets, name);
  }
  std::set<std::string> sockets;  // "socket:[INODE]"
  for (const auto &fd :
       fs::directory_iterator("/proc/" + std::to_string(simulator->Pid()) + "/fd")) {
    sockets.insert(fs::read_symlink(fd.path()).string());
  }
  // Inode -> local address. A read of the tables can miss a line while other sockets come and go,
  // so read them until every card's socket has shown up.
  std::map<std::string, std::string> local;
  for (int read = 0; read < 5 && local.size() < kCards; ++read) {
    for (const char *table : {"/proc/net/udp", "/proc/net/udp6"}) {
      std::ifstream in(table);
      for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::vector<std::string> field{std::istream_iterator<std::string>(fields), {}};
        if (field.size() > 9 && sockets.contains("socket:[" + field[9] + "]"))
          local[field[9]] = field[1];
      }
    }
  }
  EXPECT_EQ(local.size(), static_cast<std::size_t>(kCards));
  // IPv4 in little-endian hex: 127.x.y.z ends in 7F, before the port.
  for (const auto &[inode, address] : local) {
    EXPECT_TRUE(address.size() == 13 && address.substr(6, 2) == "7F") << address;
  }
  simulator->Stop();
  EXPECT_EQ(simulator->ExitStatus(), 0);
}

// What the library does: net-snmp with SNMPCONFPATH at the fixture's directory, a peer name
// without a port, here on a network that loses every other request. A lost request costs the
// timeout of 1 s, which a retry gets past.
TEST_F(ProcessTest, ClientConfigLeadsNetSnmpToTheCardsAndItsRetriesGetPastLostRequests) {
  ScopedEnv lossy("UPSSIM_DROP_EVERY", "2");
  for (int retries : {0, 1}) {
    SCOPED_TRACE(retries);
    ScopedEnv env("UPSSIM_CLIENT_RETRIES", std::to_string(retries).c_str());
    auto simulator = StartCards(1);
    EXPECT_EQ(simulator->ClientRetries(), retries);
    std::string snmpget = "SNMPCONFPATH='" + simulator->ClientConfigDir() +
                          "' MIBS= snmpget -v1 -c public -On -m '' " + simulator->Address("ups0") +
                          " " + oid::kIdentName;
    EXPECT_NE(Shell(snmpget).find("STRING: \"ups0\""), std::string::npos);
    Clock::time_point start = Clock::now();
    std::string output = Shell(snmpget);
    EXPECT_NE(output.find(retries > 0 ? "STRING: \"ups0\"" : "Timeout"), std::string::npos)
        << output;
    EXPECT_GE(Clock::now() - start, milliseconds(900));
    EXPECT_LT(Clock::now() - start, milliseconds(2500));
  }
}

TEST_F(ProcessTest, FixtureRefusesMalformedEnvironmentSettings) {
  for (auto [name, value] : {std::pair{"UPSSIM_CLIENT_RETRIES", "-1"},
                             {"UPSSIM_CLIENT_RETRIES", "two"},
                             {"UPSSIM_CLIENT_RETRIES", "1x"},
                             {"UPSSIM_DROP_EVERY", "1"},
                             {"UPSSIM_DROP_EVERY", "x"}}) {
    ScopedEnv env(name, value);
    try {
      StartCards(1);
      ADD_FAILURE() << name << "=" << value << " accepted";
    } catch (const std::runtime_error &error) {
      EXPECT_NE(std::string(error.what()).find(name), std::string::npos) << error.what();
    }
  }
}

}  // namespace
}  // namespace upssim::testing
