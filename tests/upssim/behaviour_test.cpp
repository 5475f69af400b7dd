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
  bool answered = false;                            // with noError
  std::vector<std::pair<int, std::size_t>> values;  // ASN.1 type and length of each variable
};

class BehaviourTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {  // numeric OIDs; the sessions set everything snmp.conf could
    snmp_disable_log();
    init_snmp("upssim-tests");
  }
  // SIGTERM stops it; under the sanitizers a leak or undefined behaviour shows as its exit status.
  void TearDown() override {
    sim_->Stop();
    EXPECT_EQ(sim_->ExitStatus(), 0) << "the simulator did not stop cleanly";
  }

  // One GET of ups0 without retries; a quarter of a second is far above a loopback round trip.
  Answer Get(const std::string &object) {
    netsnmp_pdu *request = snmp_pdu_create(SNMP_MSG_GET);
    oid name[MAX_OID_LEN];
    size_t length = MAX_OID_LEN;
    read_objid(object.c_str(), name, &length);  // a mistake here shows as a request without values
    snmp_add_null_var(request, name, length);
    netsnmp_session settings;
    snmp_sess_init(&settings);
    std::string peer = sim_->Address("ups0") + ":" + std::to_string(sim_->Port());
    settings.peername = peer.data();
    settings.version = SNMP_VERSION_1;
    settings.community = reinterpret_cast<u_char *>(community_.data());
    settings.community_len = community_.size();
    settings.timeout = 250000;
    settings.retries = 0;
    void *session = snmp_sess_open(&settings);
    if (session == nullptr) throw std::runtime_error("cannot open an SNMP session to " + peer);
    netsnmp_pdu *response = nullptr;
    Answer answer;
    if (snmp_sess_synch_response(session, request, &response) == STAT_SUCCESS) {
      answer.answered = response->errstat == SNMP_ERR_NOERROR;
      for (netsnmp_variable_list *var = response->variables; var; var = var->next_variable)
        answer.values.emplace_back(var->type, var->val_len);
    }
    snmp_free_pdu(response);
    snmp_sess_close(session);
    return answer;
  }

  std::unique_ptr<Simulator> sim_ = Simulator::Start({{.name = "ups0"}});
  std::string community_ = "public";
};

// After the set-up, GETs give `pattern`: 'a' answered, 'd' lost; 'w' with a wrong community is
// never answered and never counted.
TEST_F(BehaviourTest, DropsLoseExactlyTheCountedRequests) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"drop ups0 2"}, "ddaa"},
      {{"drop ups0 every 2"}, "awdwad"},
      {{"drop ups0 3", "drop ups0 every 2", "drop ups0 off"}, "aaa"},
      {{"drop ups0 1", "drop ups0 every 2"}, "ddad"},  // each request counts for both
  };
  for (const auto &[setup, pattern] : cases) {
    SCOPED_TRACE(setup.back());
    sim_->Command("drop * off");
    for (const std::string &line : setup) sim_->Command(line);
    std::string seen;
    for (char step : pattern) {
      community_ = step == 'w' ? "guess" : "public";
      bool answered = Get(mib::upsCommStatus).answered;
      seen += step == 'w' ? (answered ? '!' : 'w') : (answered ? 'a' : 'd');
    }
    EXPECT_EQ(seen, pattern);
  }
}

TEST_F(BehaviourTest, HostileCardAnswersBadValuesTheSameForTheSameSeed) {
  std::vector<std::pair<int, std::size_t>> runs[2];
  for (auto &seen : runs) {
    sim_->Command("hostile ups0 7");
    for (int i = 0; i < 200; ++i) {
      Answer answer = Get(i % 2 ? mib::upsBasicOutputStatus : mib::upsAdvIdentSerialNumber);
      EXPECT_TRUE(answer.answered);
      seen.insert(seen.end(), answer.values.begin(), answer.values.end());
    }
  }
  EXPECT_EQ(runs[1], runs[0]) << "the same seed gives the same answers";
  std::set<int> types;  // every ASN.1 type and exception; a plain card gives two
  for (auto [type, length] : runs[0]) types.insert(type);
  EXPECT_EQ(types.size(), 14u);
  EXPECT_NE(std::ranges::find(runs[0], std::pair<int, std::size_t>{ASN_OCTET_STR, 0}),
            runs[0].end());
  sim_->Command("hostile ups0 off");
  EXPECT_EQ(Get(mib::upsAdvIdentSerialNumber).values,
            (std::vector<std::pair<int, std::size_t>>{{ASN_OCTET_STR, 16}}));
}

// The simulator's output and error output on `scenario` with an empty input; then "exit STATUS".
std::string RunToEnd(const std::string &scenario) {
  std::string output, command = "'" + SimulatorPath() + "' /dev/fd/3 2>&1 </dev/null 3<<'END'\n" +
                                scenario + "END\necho exit $?";
  if (FILE *pipe = popen(command.c_str(), "r")) {
    char chunk[512];
    while (std::fgets(chunk, sizeof chunk, pipe) != nullptr) output += chunk;
    pclose(pipe);
  }
  return output;
}

// Stopping on SIGTERM is checked at the end of each test above.
TEST(ProcessTest, RefusesCardsOutsideLoopbackAndStopsCleanlyAtTheEndOfInput) {
  for (std::string address : {"10.0.0.1", "localhost", "::1", "127.1"}) {
    EXPECT_EQ(
        RunToEnd("port 16100\ncard ok 127.16.9.9\ncard bad " + address + "\n"),
        "snmplumi-upssim: /dev/fd/3:3: card address '" + address +
            "' is not a loopback IPv4 address: the simulator binds only 127.0.0.0/8\nexit 1\n");
  }
  // An address and port of this test process, below the fixture's ports.
  EXPECT_EQ(RunToEnd("card ups0 127.15." + std::to_string(getpid() % 250) +
                     ".1:" + std::to_string(10000 + getpid() % 9000) + "\n"),
            "ready 1 cards\nexit 0\n");
}

}  // namespace
}  // namespace upssim
