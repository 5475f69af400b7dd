// The simulator's promises the library's tests rely on: drops, hostile values, refusals, stops.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "powernet.h"
#include "upssim_fixture.h"

namespace upssim {
namespace {

namespace mib = snmplumi::mib;

struct Answer {
  bool answered = false;
  long error_status = 0;
  std::vector<std::pair<int, std::size_t>> values;  // ASN.1 type and length of each variable
};

class BehaviourTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {  // numeric OIDs, no snmp.conf
    setenv("MIBS", "", 1);
    setenv("MIBDIRS", "", 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    snmp_disable_log();
    init_snmp("upssim-tests");
  }
  // Under the sanitizers a leak or undefined behaviour in the simulator shows as its exit status.
  void TearDown() override {
    sim_->Stop();
    EXPECT_EQ(sim_->ExitStatus(), 0) << "the simulator did not stop cleanly";
  }

  // One request to ups0 without retries: a GET, or a SET when `type` (an snmpset letter) is given.
  Answer Exchange(const std::string &object, char type = 0, const std::string &value = "") {
    netsnmp_pdu *request = snmp_pdu_create(type ? SNMP_MSG_SET : SNMP_MSG_GET);
    oid name[MAX_OID_LEN];
    size_t length = MAX_OID_LEN;
    if (read_objid(object.c_str(), name, &length) == 0 ||
        (type ? snmp_add_var(request, name, length, type, value.c_str()) != 0
              : snmp_add_null_var(request, name, length) == nullptr)) {
      snmp_free_pdu(request);
      throw std::runtime_error("cannot encode " + object);
    }
    netsnmp_session settings;
    snmp_sess_init(&settings);
    std::string peer = sim_->Address("ups0") + ":" + std::to_string(sim_->Port());
    settings.peername = peer.data();
    settings.version = SNMP_VERSION_1;
    settings.community = reinterpret_cast<u_char *>(community_.data());
    settings.community_len = community_.size();
    settings.timeout = wait_us_;
    settings.retries = 0;
    void *session = snmp_sess_open(&settings);
    if (session == nullptr) throw std::runtime_error("cannot open an SNMP session to " + peer);
    netsnmp_pdu *response = nullptr;
    Answer answer;
    if (snmp_sess_synch_response(session, request, &response) == STAT_SUCCESS) {
      answer = {true, response->errstat, {}};
      for (netsnmp_variable_list *var = response->variables; var; var = var->next_variable)
        answer.values.emplace_back(var->type, var->val_len);
    }
    snmp_free_pdu(response);
    snmp_sess_close(session);
    return answer;
  }

  std::unique_ptr<Simulator> sim_ = Simulator::Start({{.name = "ups0"}});
  std::string community_ = "public";
  long wait_us_ = 1000000;
};

// After the set-up, GETs give `pattern`: 'a' answered, 'd' lost; 'w' with a wrong community is
// never answered and never counted.
TEST_F(BehaviourTest, DropsLoseExactlyTheCountedRequests) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"drop ups0 2"}, "ddaa"},
      {{"drop ups0 2", "drop ups0 0"}, "aa"},
      {{"drop ups0 every 2"}, "awdwad"},
      {{"drop ups0 every 2", "drop ups0 every 0"}, "aaa"},
      {{"drop ups0 3", "drop ups0 every 2", "drop ups0 off"}, "aaa"},
      {{"drop ups0 1", "drop ups0 every 2"}, "ddad"},  // each request counts for both
  };
  wait_us_ = 250000;  // far above a loopback round trip
  for (const auto &[setup, pattern] : cases) {
    SCOPED_TRACE(setup.back());
    sim_->Command("drop * off");
    for (const std::string &line : setup) sim_->Command(line);
    std::string seen;
    for (char step : pattern) {
      community_ = step == 'w' ? "guess" : "public";
      bool answered = Exchange(mib::upsCommStatus).answered;
      seen += step == 'w' ? (answered ? '!' : 'w') : (answered ? 'a' : 'd');
    }
    EXPECT_EQ(seen, pattern);
  }
  // A lost SET is not carried out; the journal shows that it arrived.
  sim_->Drop("ups0", 1);
  EXPECT_FALSE(Exchange(mib::upsAdvControlUpsOff, 'i', "2").answered);
  EXPECT_EQ(sim_->Value("ups0", mib::upsBasicOutputStatus), "2");
  EXPECT_EQ(sim_->Journal().back().answer, "dropped");
}

TEST_F(BehaviourTest, HostileCardAnswersEveryKindOfBadValueTheSameForTheSameSeed) {
  std::vector<std::pair<int, std::size_t>> runs[2];
  for (auto &seen : runs) {
    sim_->Command("hostile ups0 7");
    for (int i = 0; i < 200; ++i) {
      Answer answer = Exchange(i % 2 ? mib::upsBasicOutputStatus : mib::upsAdvIdentSerialNumber);
      EXPECT_TRUE(answer.answered && answer.error_status == 0);
      seen.insert(seen.end(), answer.values.begin(), answer.values.end());
    }
  }
  EXPECT_EQ(runs[1], runs[0]) << "the same seed gives the same answers";
  std::set<int> types;
  std::set<std::size_t> lengths;  // of the strings
  for (auto [type, length] : runs[0]) {
    types.insert(type);
    if (type == ASN_OCTET_STR) lengths.insert(length);
  }
  EXPECT_EQ(types, (std::set<int>{ASN_INTEGER, ASN_OCTET_STR, ASN_NULL, ASN_OBJECT_ID,
                                  ASN_IPADDRESS, ASN_COUNTER, ASN_GAUGE, ASN_TIMETICKS, ASN_OPAQUE,
                                  ASN_COUNTER64, ASN_UINTEGER, SNMP_NOSUCHOBJECT,
                                  SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW}));
  EXPECT_TRUE(lengths.contains(0) && *lengths.rbegin() >= 1024);
  sim_->Command("hostile ups0 off");
  EXPECT_EQ(Exchange(mib::upsAdvIdentSerialNumber).values,
            (std::vector<std::pair<int, std::size_t>>{{ASN_OCTET_STR, 16}}));
}

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
}  // namespace upssim
