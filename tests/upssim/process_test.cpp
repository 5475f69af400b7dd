// The simulator as a program, and the fixture that runs it: what it refuses, how it stops.
#include <unistd.h>

#include <set>

#include "test_cards.h"

namespace upssim::testing {
namespace {

// The simulator's output and error output on `args` (by default `text` as /dev/fd/3), with `input`
// on its standard input, behind `wrapper` if any; then "exit STATUS".
std::string RunToEnd(const std::string &text, const std::string &input = "",
                     const std::string &wrapper = "", const std::string &args = "/dev/fd/3") {
  std::string output, command = "printf '%s' '" + input + "' | " + wrapper + " '" +
                                SimulatorPath() + "' " + args + " 2>&1 3<<'END'\n" + text +
                                "END\necho exit $?";
  if (FILE *pipe = popen(command.c_str(), "r")) {
    char chunk[512];
    while (std::fgets(chunk, sizeof chunk, pipe) != nullptr) output += chunk;
    pclose(pipe);
  }
  return output;
}

// One card at an address and port of this test process, below the fixture's ports.
std::string OneCard() {
  return "card ups0 127.15." + std::to_string(getpid() % 250) +
         ".1:" + std::to_string(10000 + getpid() % 9000) + "\n";
}

TEST(ProcessTest, ScenarioMistakesAndAddressesOutsideLoopbackNameTheFileAndLine) {
  std::vector<std::pair<std::string, std::string>> cases = {
      {"card ups0 127.16.0.1:16100\nbogus line\n", ":2: unknown keyword 'bogus'"},
      {"card ups0 127.16.0.1:99999\n", ":1: '99999' is not a UDP port"},
      {"port 16100\ncard ups0 127.16.0.1\ncard ups0 127.16.0.2\n", ":3: card name 'ups0'"},
      {"card ups0 127.16.0.1:16100\nset upsAdvOutputLoad u lots\n", ":2: upsAdvOutputLoad: "},
      {"card ups0 127.16.0.1:16100\nset upsFrobnicator i 1\n", ":2: unknown object"},
      {"card ups0 127.16.0.1:16100\nset upsBasicIdentName\n", ":2: set needs OBJECT TYPE VALUE"},
      {"card ups/0 127.16.0.1:16100\n", ":1: 'ups/0' is not a card name"},
      {"port 16100\ncard a 127.16.0.1\ncard b 127.16.0.1\n", ":3: card b is on 127.16.0.1:16100"},
      {"port 16100\ncard ok 127.16.9.9\ncard bad 127.0.0.1\n", ":3: 127.0.0.1 marks an empty slot"},
      {"# nothing\n", ": no cards"},
  };
  for (std::string address : {"10.0.0.1", "localhost", "::1", "127.1"}) {
    cases.emplace_back("port 16100\ncard ok 127.16.9.9\ncard bad " + address + "\n",
                       ":3: card address '" + address + "' is not a loopback IPv4 address");
  }
  for (const auto &[text, message] : cases) {
    std::string run = RunToEnd(text);
    EXPECT_EQ(run.rfind("snmplumi-upssim: /dev/fd/3" + message, 0), 0u) << run;
    EXPECT_TRUE(run.ends_with("\nexit 1\n")) << run;
    EXPECT_EQ(std::count(run.begin(), run.end(), '\n'), 2) << run;  // one line, never ready
  }
  EXPECT_TRUE(RunToEnd("", "", "", "/nonexistent.scenario").ends_with("\nexit 1\n"));
  EXPECT_TRUE(RunToEnd(OneCard(), "", "", "--frobnicate /dev/fd/3").ends_with("\nexit 1\n"));
}

TEST(ProcessTest, QuitEndOfInputAndSigtermStopTheSimulatorCleanly) {
  std::string run =
      RunToEnd("", "show server\nnot a command\nquit\nshow server\n", "", UPSSIM_EXAMPLE_SCENARIO);
  EXPECT_EQ(run.rfind("ready 6 cards\nok server 127.16.0.2:16161 status=2(onLine) ", 0), 0u) << run;
  EXPECT_TRUE(run.ends_with("\nerror unknown command 'not' (try help)\nok bye\nexit 0\n")) << run;
  EXPECT_EQ(RunToEnd(OneCard()), "ready 1 cards\nexit 0\n");  // end of input
  // Without a control channel the end of input does not stop it; SIGTERM does.
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(
      RunToEnd(OneCard(), "", "timeout --preserve-status -s TERM 1", "--no-control /dev/fd/3"),
      "ready 1 cards\nexit 0\n");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

}  // namespace
}  // namespace upssim::testing
