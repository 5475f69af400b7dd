// SNMP v1 as a card answers it, and the journal of every SET it receives.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using ProtocolTest = CardsTest;

// Each object's GET type is the one the control channel gives it (s OCTET STRING, t TimeTicks,
// u Gauge32, i INTEGER, a IpAddress); a SET of its own value is taken (upper case) or, when it is
// read-only, answers noSuchName (lower case). Every type and access the objects have shows. GETNEXT
// past the last object, or GET of an unknown one, answers noSuchName at its index.
TEST_F(ProtocolTest, WalkServesEveryLibraryObjectWithItsMibTypeAndAccessAndNothingElse) {
  constexpr long kNoSuchName = SNMP_ERR_NOSUCHNAME;
  const std::string letters = "stuia";
  const std::array asn = {ASN_OCTET_STR, ASN_TIMETICKS, ASN_GAUGE, ASN_INTEGER, ASN_IPADDRESS};
  std::vector<std::string> walked;
  std::set<char> kinds;
  Answer answer;
  for (std::string at = ".1.3.6.1"; (answer = Get(ups0_, {at}, true)).error_status == 0;) {
    ASSERT_TRUE(answer.answered && walked.size() < 100);
    walked.push_back(at = answer.variables.at(0).oid);
    std::string own = sim_->Command("get ups0 " + at);  // "TYPE VALUE"
    EXPECT_EQ(answer.variables[0].type, asn.at(letters.find(own[0]))) << at;
    long status = Set(ups0_, {{at, own[0], own.substr(2)}}).error_status;
    kinds.insert(status == SNMP_ERR_NOERROR      ? std::toupper(own[0])
                 : status == SNMP_ERR_NOSUCHNAME ? own[0]
                                                 : '?');
  }
  std::vector<std::string> named;  // every OID the library names, in the order of its header
  std::ifstream header(SNMPLUMI_POWERNET_H);
  std::smatch match;
  for (std::string line; std::getline(header, line);) {
    if (std::regex_search(line, match, std::regex(R"re(\[\] = "([.0-9]+)";)re"))) {
      named.push_back(match[1]);
    }
  }
  EXPECT_EQ(walked, named);
  EXPECT_EQ(kinds, (std::set<char>{'s', 'S', 't', 'T', 'u', 'i', 'I', 'A'}));
  EXPECT_EQ(std::pair(answer.error_status, answer.error_index), std::pair(kNoSuchName, 1L));
  // An error answers at its index with the request's variables.
  const char *unknown = ".1.3.6.1.4.1.318.1.1.1.4.1.9.0";
  answer = Get(ups0_, {mib::upsCommStatus, unknown, mib::sysDescr});
  EXPECT_EQ(std::pair(answer.error_status, answer.error_index), std::pair(kNoSuchName, 2L));
  ASSERT_EQ(answer.variables.size(), 3u);
  EXPECT_EQ(answer.variables[1].oid, unknown);
  for (const Variable &variable : answer.variables) EXPECT_EQ(variable.type, ASN_NULL);
}

// SETs with a wrong type, a value outside the enumeration, v2c, and a community not the card's
// (read-only objects are in the walk above, injected errors in the library's tests). Only v1 with
// the card's own community is answered and counted; a refused v1 SET is journaled. Each journal
// line: a time to the millisecond, card, OID, type letter, value and the answer.
TEST_F(ProtocolTest, SetIsCheckedWholeAnsweredOnlyForV1AndTheCardsCommunityAndJournaled) {
  struct Case {
    Target target;
    std::vector<Write> writes;
    long status, index;  // status -1: no answer
    const char *answer;  // in the journal, nullptr: not journaled
  };
  const std::string volts = mib::upsAdvConfigHighTransferVolt,
                    sensitivity = mib::upsAdvConfigSensitivity, alarm = mib::upsAdvConfigAlarm;
  Target v2c = At("ups0", kNoAnswerWait), guessed = At("ups2", kNoAnswerWait), other = v2c;
  v2c.version = 1, guessed.community = "public", other.community = "private";
  const Case cases[] = {
      {ups0_, {{mib::upsAdvConfigShutoffDelay, 'i', "100"}}, SNMP_ERR_BADVALUE, 1, "badValue"},
      {ups0_, {{volts, 'i', "110"}, {sensitivity, 'i', "9"}}, SNMP_ERR_BADVALUE, 2, "badValue"},
      {ups0_, {{volts, 'i', "110"}, {sensitivity, 'i', "2"}}, SNMP_ERR_NOERROR, 0, "noError"},
      {ups2_, {{alarm, 'i', "3"}}, SNMP_ERR_NOERROR, 0, "noError"},
      {v2c, {{alarm, 'i', "3"}}, -1, 0, nullptr},
      {guessed, {{alarm, 'i', "4"}}, -1, 0, "badCommunity"},
      {other, {{alarm, 'i', "4"}}, -1, 0, "badCommunity"},
  };
  std::vector<std::string> journal, expected;
  for (const Case &c : cases) {
    const std::string card = c.target.address == ups2_.address ? "ups2" : "ups0";
    SCOPED_TRACE(card + " " + c.target.community + " " + c.writes.back().value);
    std::map<std::string, std::string> before;
    for (const Write &write : c.writes) before[write.oid] = sim_->Value(card, write.oid);
    Answer answer = Set(c.target, c.writes);
    EXPECT_EQ(std::pair(answer.answered, answer.error_status),
              std::pair(c.status >= 0, std::max(c.status, 0L)));
    EXPECT_EQ(answer.error_index, c.index);
    EXPECT_EQ(Get(c.target, {mib::upsCommStatus}).answered, c.status >= 0);
    for (const Write &write : c.writes) {
      EXPECT_EQ(sim_->Value(card, write.oid), c.status ? before[write.oid] : write.value);
      if (c.answer) {
        expected.push_back(card + " " + write.oid + " " + write.type + " " + write.value + " " +
                           c.answer);
      }
    }
  }
  EXPECT_EQ(sim_->Requests("ups0") + sim_->Requests("ups2"), 8);  // a SET and a GET each
  for (const JournalEntry &entry : sim_->Journal()) {
    EXPECT_TRUE(
        std::regex_match(entry.time, std::regex(R"(\d{4}(-\d\d){2}T(\d\d:){2}\d\d\.\d{3})")))
        << entry.time;
    journal.push_back(entry.card + " " + entry.oid + " " + entry.type + " " + entry.value + " " +
                      entry.answer);
  }
  EXPECT_EQ(journal, expected);
}

// A v1 trap: after the version its community, later enterprise apc, the agent address and the
// generic and specific types; from the card's own address. Any other destination is refused.
TEST_F(ProtocolTest, TrapGoesFromTheCardsAddressWithItsCommunityToLoopbackOnly) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof local;
  bind(socket, reinterpret_cast<sockaddr *>(&local), length);
  getsockname(socket, reinterpret_cast<sockaddr *>(&local), &length);
  const std::string to = " 127.0.0.1:" + std::to_string(ntohs(local.sin_port));
  auto next = [&](int timeout_ms) {  // the next datagram and its source address, or ""
    pollfd readable{socket, POLLIN, 0};
    char data[1500];
    ssize_t size =
        poll(&readable, 1, timeout_ms) > 0
            ? recvfrom(socket, data, sizeof data, 0, reinterpret_cast<sockaddr *>(&local), &length)
            : 0;
    return std::pair(std::string(data, std::max<ssize_t>(size, 0)),
                     std::string(size > 0 ? inet_ntoa(local.sin_addr) : ""));
  };
  in_addr agent{};
  inet_pton(AF_INET, ups2_.address.c_str(), &agent);
  std::string fields = std::string("\x06\x07\x2b\x06\x01\x04\x01\x82\x3e\x40\x04", 11) +
                       std::string(reinterpret_cast<const char *>(&agent), 4) + "\x02\x01\x06";
  for (const char *generic : {"enterpriseSpecific", "6"}) {
    sim_->Command(std::string("trap ups2 ") + generic + " 5" + to);
    auto [trap, from] = next(2000);
    EXPECT_EQ(from, ups2_.address);
    EXPECT_EQ(trap.find(std::string("\x02\x01\x00\x04\x07private", 12)), 2u);
    EXPECT_NE(trap.find(fields + "\x02\x01\x05"), std::string::npos);
  }
  for (const std::string &line : std::vector<std::string>{
           "trap ups0 6 1 10.0.0.1:162", "trap ups0 6 1 localhost:162", "trap ups0 7 0" + to,
           "trap ups0 6 -1" + to, "trap ups0 6 1 127.0.0.1", "trap ups0 6 1 127.0.0.1:0",
           "trap ups0 6 1 127.0.0.1:65536", "trap ups9 6 1" + to, "trap ups0 6 1" + to + " x"}) {
    EXPECT_THROW(sim_->Command(line), std::runtime_error) << line;
  }
  EXPECT_EQ(next(static_cast<int>(kNoAnswerWait.count())).first, "") << "a refused trap was sent";
  close(socket);
}

}  // namespace
}  // namespace upssim::testing
