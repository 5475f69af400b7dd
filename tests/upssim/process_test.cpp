// The simulator as a program: what it refuses, how it reports mistakes, how it stops.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "test_cards.h"

extern char **environ;

namespace upssim::testing {
namespace {

namespace fs = std::filesystem;

struct Outcome {
  int exit_status = -1;
  std::string out, err;
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

  // Starts the simulator with `input` on standard input and its output in files.
  pid_t Spawn(const std::vector<std::string> &args, const std::string &input = "") {
    std::string in = dir_ / "in", out = dir_ / "out", err = dir_ / "err";
    std::ofstream(in) << input;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<std::string> all = {SimulatorPath()};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &arg : all) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
  }

  Outcome Finish(pid_t pid) {
    Outcome run;
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
      run.exit_status = WEXITSTATUS(status);
    }
    run.out = Slurp(dir_ / "out");
    run.err = Slurp(dir_ / "err");
    return run;
  }

  // Runs the simulator to its end.
  Outcome RunSimulator(const std::vector<std::string> &args, const std::string &input = "") {
    return Finish(Spawn(args, input));
  }

  static std::string Slurp(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  // A card address and port of its own for a run outside the fixture, below the ports the fixture
  // draws from.
  static std::string FreshPlace() {
    std::random_device random;
    return "127." + std::to_string(16 + random() % 200) + "." + std::to_string(random() % 256) +
           "." + std::to_string(1 + random() % 254) + ":" + std::to_string(10000 + random() % 9000);
  }

  fs::path dir_;
  int files_ = 0;
};

TEST_F(ProcessTest, RefusesEveryCardAddressOutsideLoopback) {
  for (std::string address : {"10.0.0.1", "192.168.1.20", "0.0.0.0", "255.255.255.255", "localhost",
                              "::1", "127.0.0.1", "127.1", "8.8.8.8"}) {
    SCOPED_TRACE(address);
    std::string path = Scenario("port 16100\ncard good 127.16.9.9\ncard bad " + address + "\n");
    Outcome run = RunSimulator({path});
    EXPECT_EQ(run.exit_status, 1);
    EXPECT_EQ(run.out, "");  // never ready
    EXPECT_EQ(run.err.rfind("snmplumi-upssim: " + path + ":3: ", 0), 0u) << run.err;
    EXPECT_NE(run.err.find("127."), std::string::npos);
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1);
  }
}

// Inode -> local address of every UDP socket in /proc/net/udp and udp6.
std::map<std::string, std::string> UdpSockets() {
  std::map<std::string, std::string> sockets;
  for (const char *table : {"/proc/net/udp", "/proc/net/udp6"}) {
    std::ifstream in(table);
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
      std::istringstream fields(line);
      std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
      fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >>
          timeout >> inode;
      sockets[inode] = local;
    }
  }
  return sockets;
}

TEST_F(ProcessTest, EverySocketOfTheSimulatorIsBoundToLoopback) {
  auto simulator = StartCards(3);
  auto udp = UdpSockets();
  int bound = 0;
  for (const auto &entry :
       fs::directory_iterator("/proc/" + std::to_string(simulator->Pid()) + "/fd")) {
    std::string target = fs::read_symlink(entry.path()).string();
    if (target.rfind("socket:[", 0) != 0) continue;
    std::string inode = target.substr(8, target.size() - 9);
    auto local = udp.find(inode);
    if (local == udp.end()) continue;  // the control channel, a Unix socket
    ++bound;
    // /proc shows the IPv4 address as little-endian hex: 127.x.y.z ends in "7F" before the port.
    EXPECT_EQ(local->second.size(), 13u) << "not an IPv4 socket: " << local->second;
    EXPECT_EQ(local->second.substr(6, 2), "7F") << local->second;
  }
  EXPECT_EQ(bound, 3);
}

TEST_F(ProcessTest, ScenarioMistakesNameTheFileAndLine) {
  const std::pair<std::string, std::string> cases[] = {
      {"card ups0 127.16.0.1:16100\nbogus line\n", ":2: unknown keyword 'bogus'"},
      {"card ups0 127.16.0.1:99999\n", ":1: '99999' is not a UDP port"},
      {"port 16100\ncard ups0 127.16.0.1\ncard ups0 127.16.0.2\n", ":3: card name 'ups0'"},
      {"port 16100\ncard a 127.16.0.1\ncard b 127.16.0.1\n", ":3: card b is on 127.16.0.1:16100"},
      {"card ups0 127.16.0.1:16100\nset upsAdvOutputLoad u lots\n", ":2: upsAdvOutputLoad: "},
      {"card ups0 127.16.0.1:16100\nset upsFrobnicator i 1\n", ":2: unknown object"},
      {"card ups0 127.16.0.1:16100\nset upsBasicIdentName\n", ":2: set needs OBJECT TYPE VALUE"},
      {"card ups/0 127.16.0.1:16100\n", ":1: 'ups/0' is not a card name"},
      {"# nothing\n", ": no cards"},
  };
  for (const auto &[text, message] : cases) {
    std::string path = Scenario(text);
    Outcome run = RunSimulator({path});
    EXPECT_EQ(run.exit_status, 1) << text;
    EXPECT_NE(run.err.find(path + message), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
  EXPECT_EQ(RunSimulator({dir_ / "missing.scenario"}).exit_status, 1);
  EXPECT_EQ(RunSimulator({"--frobnicate"}).exit_status, 1);
}

TEST_F(ProcessTest, EndOfInputStopsTheSimulatorCleanly) {
  std::string place = FreshPlace();
  Outcome run = RunSimulator({Scenario("card ups0 " + place + "\n")},
                             "show ups0\nnot a command\nquit\nshow ups0\n");
  EXPECT_EQ(run.exit_status, 0);
  std::istringstream lines(run.out);
  std::string ready, show, error, bye, extra;
  std::getline(lines, ready);
  std::getline(lines, show);
  std::getline(lines, error);
  std::getline(lines, bye);
  EXPECT_EQ(ready, "ready 1 cards");
  EXPECT_EQ(show.rfind("ok ups0 " + place + " status=2(onLine)", 0), 0u) << show;
  EXPECT_EQ(error, "error unknown command 'not' (try help)");
  EXPECT_EQ(bye, "ok bye");
  EXPECT_FALSE(std::getline(lines, extra));  // nothing after quit
  EXPECT_EQ(RunSimulator({Scenario("card ups0 " + FreshPlace() + "\n")}, "").exit_status, 0);
}

TEST_F(ProcessTest, SigtermStopsTheSimulatorCleanly) {
  auto simulator = StartCards(1);
  kill(simulator->Pid(), SIGTERM);
  simulator->Stop();
  EXPECT_EQ(simulator->ExitStatus(), 0);

  // Without a control channel, the end of input does not stop it; SIGTERM does.
  pid_t pid = Spawn({"--no-control", Scenario("card ups0 " + FreshPlace() + "\n")});
  ASSERT_GT(pid, 0);
  for (int i = 0; i < 200 && Slurp(dir_ / "out").empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0);  // still serving
  kill(pid, SIGTERM);
  Outcome run = Finish(pid);
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(run.out, "ready 1 cards\n");
}

TEST_F(ProcessTest, MalformedCommandsGetOneErrorLineAndChangeNothing) {
  auto simulator = StartCards(1);
  for (const char *line :
       {"set ups0", "set ups0 upsAdvOutputLoad", "set ups0 upsAdvOutputLoad q 1",
        "set ups0 upsAdvOutputLoad u -1", "get ups9 upsCommStatus", "get * upsCommStatus",
        "power ups0 explode", "power ups0 fail 99", "delay ups0 -5",
        "delay ups0 99999999999999999999", "silent ups0 maybe",
        "error ups0 upsCommStatus put genErr", "selftest ups0 x",
        "oversize ups0 upsBasicIdentModel 1 2", "\x01\x02\xff", "set ups0 \\ s"}) {
    EXPECT_THROW(simulator->Command(line), std::runtime_error) << line;
  }
  EXPECT_NE(simulator->Command("show ups0").find(" status=2(onLine) power=ok "), std::string::npos);
  EXPECT_EQ(simulator->Value("ups0", "upsAdvOutputLoad"), "23");
  EXPECT_THROW(simulator->Command(std::string(70000, 'x')), std::runtime_error);  // too long
  EXPECT_EQ(simulator->Command("cards").rfind("1 ups0=", 0), 0u);
  simulator->Stop();
  EXPECT_EQ(simulator->ExitStatus(), 0);
}

TEST_F(ProcessTest, GarbageDatagramsAreIgnored) {
  auto simulator = StartCards(1);
  Target ups0 = CardTarget(*simulator, "ups0");
  std::mt19937 random(42);
  for (int i = 0; i < 300; ++i) {
    std::string bytes(std::uniform_int_distribution<int>(0, 600)(random), '\0');
    for (char &c : bytes) c = static_cast<char>(random());
    if (i % 3 == 0 && !bytes.empty()) bytes[0] = 0x30;  // looks like a BER sequence
    SendDatagram(ups0, bytes);
    // A round trip now and then drains the socket, so no datagram is lost to a full buffer.
    if (i % 25 == 24) {
      ASSERT_EQ(Read(ups0, oid::kCommStatus).number, 1);
    }
  }
  // A v1 GET of sysDescr cut short at every length.
  const std::string get(
      "\x30\x26\x02\x01\x00\x04\x06public\xa0\x19\x02\x01\x01\x02\x01\x00\x02"
      "\x01\x00\x30\x0e\x30\x0c\x06\x08\x2b\x06\x01\x02\x01\x01\x01\x00\x05\x00",
      40);
  for (std::size_t length = 0; length < get.size(); ++length)
    SendDatagram(ups0, get.substr(0, length));
  EXPECT_EQ(Read(ups0, oid::kCommStatus).number, 1);
  SendDatagram(ups0, get);
  EXPECT_EQ(Read(ups0, oid::kIdentName).octets, "ups0");
  simulator->Stop();
  EXPECT_EQ(simulator->ExitStatus(), 0);
}

TEST_F(ProcessTest, ExampleScenarioStarts) {
  Outcome run = RunSimulator({UPSSIM_EXAMPLE_SCENARIO}, "show server\nquit\n");
  EXPECT_EQ(run.exit_status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("ready 6 cards\nok server 127.16.0.2:16161 status=2(onLine)", 0), 0u)
      << run.out;
}

// What the library does: net-snmp with SNMPCONFPATH at the fixture's directory, a peer name
// without a port.
TEST_F(ProcessTest, ClientConfigLeadsNetSnmpToTheCardsPortWithShortTimeouts) {
  auto simulator = StartCards(2);
  simulator->Silent("ups1", true);
  auto snmpget = [&](const std::string &card) {
    std::string command = "SNMPCONFPATH='" + simulator->ClientConfigDir() +
                          "' MIBS= snmpget -v1 -c public -On -m '' " + simulator->Address(card) +
                          " " + oid::kIdentName + " 2>&1";
    std::string output;
    if (FILE *pipe = popen(command.c_str(), "r")) {
      char chunk[512];
      while (std::fgets(chunk, sizeof chunk, pipe) != nullptr) output += chunk;
      pclose(pipe);
    }
    return output;
  };
  EXPECT_NE(snmpget("ups0").find("STRING: \"ups0\""), std::string::npos) << snmpget("ups0");
  auto start = std::chrono::steady_clock::now();
  EXPECT_NE(snmpget("ups1").find("Timeout"), std::string::npos);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
}

}  // namespace
}  // namespace upssim::testing
