// SNMP v1 as a card answers it: the objects it serves, error statuses and indexes, all-or-nothing
// SETs, communities, versions, traps; and the journal of every SET received.
#include <arpa/inet.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using ProtocolTest = CardsTest;

// Every OID the library names, in the order of its header.
std::vector<std::string> LibraryOids() {
  std::vector<std::string> oids;
  std::ifstream header(SNMPLUMI_POWERNET_H);
  std::smatch match;
  for (std::string line; std::getline(header, line);) {
    if (std::regex_search(line, match, std::regex(R"re(\[\] = "([.0-9]+)";)re"))) {
      oids.push_back(match[1]);
    }
  }
  return oids;
}

// Per object in OID order, its type as the control channel gives it (s OCTET STRING, t TimeTicks,
// u Gauge32, i INTEGER, a IpAddress); upper case when a SET of its own value is taken, lower case
// when that answers noSuchName.
TEST_F(ProtocolTest, WalkServesEveryLibraryObjectWithItsMibTypeAndAccess) {
  constexpr char kTypes[] = "ssSss tuutiii iuuuui iiuuuu IIITIITTTTT IIII I i IIIIAi s";
  const std::map<char, int> asn = {{'s', ASN_OCTET_STR},
                                   {'t', ASN_TIMETICKS},
                                   {'u', ASN_GAUGE},
                                   {'i', ASN_INTEGER},
                                   {'a', ASN_IPADDRESS}};
  std::vector<std::string> walked;
  std::string types;
  Answer answer;
  for (std::string at = ".1.3.6.1"; (answer = Get(ups0_, {at}, true)).error_status == 0;) {
    ASSERT_TRUE(answer.answered && walked.size() < 100);
    walked.push_back(at = answer.variables.at(0).oid);
    std::string own = sim_->Command("get ups0 " + at);  // "TYPE VALUE"
    EXPECT_EQ(answer.variables[0].type, asn.at(own[0])) << at;
    long status = Set(ups0_, {{at, own[0], own.substr(2)}}).error_status;
    types += status == SNMP_ERR_NOERROR      ? std::toupper(own[0])
             : status == SNMP_ERR_NOSUCHNAME ? own[0]
                                             : '?';
  }
  EXPECT_EQ(walked, LibraryOids());
  EXPECT_EQ(types, std::regex_replace(kTypes, std::regex(" "), ""));
  EXPECT_EQ(answer.error_status, SNMP_ERR_NOSUCHNAME);
  EXPECT_EQ(answer.error_index, 1);
}

TEST_F(ProtocolTest, EachCardHasItsNameAndASerialNumberOfItsOwn) {
  EXPECT_EQ(Read(ups1_, mib::upsBasicIdentName).octets, "ups1");
  std::string serial = Read(ups0_, mib::upsAdvIdentSerialNumber).octets;
  EXPECT_TRUE(std::regex_match(serial, std::regex(R"(AS0812\d{6}    )"))) << serial;
  EXPECT_NE(Read(ups1_, mib::upsAdvIdentSerialNumber).octets, serial);
}

// An unknown object, or one with an injected error on its card, answers at its index with the
// request's variables.
TEST_F(ProtocolTest, GetErrorAnswersAtItsIndexWithTheRequestEchoed) {
  constexpr char kUnknown[] = ".1.3.6.1.4.1.318.1.1.1.4.1.9.0";
  sim_->InjectError("ups0", mib::upsBasicIdentModel, Op::kGet, SNMP_ERR_GENERR);
  for (auto [oid, status] : {std::pair<const char *, long>{kUnknown, SNMP_ERR_NOSUCHNAME},
                             {mib::upsBasicIdentModel, SNMP_ERR_GENERR}}) {
    Answer answer = Get(ups0_, {mib::upsCommStatus, oid, mib::sysDescr});
    EXPECT_EQ(std::pair(answer.error_status, answer.error_index), std::pair(status, 2L));
    ASSERT_EQ(answer.variables.size(), 3u);
    EXPECT_EQ(answer.variables[1].oid, oid);
    for (const Variable &variable : answer.variables) EXPECT_EQ(variable.type, ASN_NULL);
  }
  EXPECT_EQ(Read(ups1_, mib::upsBasicIdentModel).type, ASN_OCTET_STR);
  sim_->ClearErrors("ups0");
  EXPECT_EQ(Read(ups0_, mib::upsBasicIdentModel).type, ASN_OCTET_STR);
}

// Each journal line: a time to the millisecond, card, OID, type letter, value and the answer.
void ExpectJournal(const Simulator &simulator, const std::vector<std::string> &expected) {
  std::vector<std::string> lines;
  for (const JournalEntry &entry : simulator.Journal()) {
    EXPECT_TRUE(
        std::regex_match(entry.time, std::regex(R"(\d{4}(-\d\d){2}T(\d\d:){2}\d\d\.\d{3})")))
        << entry.time;
    lines.push_back(entry.card + " " + entry.oid + " " + entry.type + " " + entry.value + " " +
                    entry.answer);
  }
  EXPECT_EQ(lines, expected);
}

// Wrong types, values outside the enumeration and injected errors; a read-only object is in the
// walk above.
TEST_F(ProtocolTest, SetIsCheckedWholeKeptOnlyWhenEveryVariableIsAcceptedAndJournaled) {
  struct Case {
    std::vector<Write> writes;
    long status, index;
    const char *answer;
  };
  const std::string volts = mib::upsAdvConfigHighTransferVolt,
                    delay = mib::upsAdvConfigShutoffDelay,
                    sensitivity = mib::upsAdvConfigSensitivity, alarm = mib::upsAdvConfigAlarm;
  sim_->InjectError("ups0", alarm, Op::kSet, SNMP_ERR_READONLY);
  const Case cases[] = {
      {{{delay, 'i', "100"}}, SNMP_ERR_BADVALUE, 1, "badValue"},  // TimeTicks in the MIB
      {{{mib::upsSCGMultiCastIP, 's', "224.0.0.1"}}, SNMP_ERR_BADVALUE, 1, "badValue"},
      {{{volts, 'i', "110"}, {sensitivity, 'i', "9"}}, SNMP_ERR_BADVALUE, 2, "badValue"},
      {{{volts, 'i', "110"}, {alarm, 'i', "3"}}, SNMP_ERR_READONLY, 2, "readOnly"},
      {{{volts, 'i', "110"}, {sensitivity, 'i', "2"}}, SNMP_ERR_NOERROR, 0, "noError"},
      {{{delay, 't', "12300"}}, SNMP_ERR_NOERROR, 0, "noError"},
  };
  std::vector<std::string> journal;
  for (const Case &c : cases) {
    SCOPED_TRACE(c.writes.back().oid + " " + c.writes.back().value);
    std::map<std::string, std::string> before;
    for (const Write &write : c.writes) before[write.oid] = sim_->Value("ups0", write.oid);
    Answer answer = Set(ups0_, c.writes);
    EXPECT_TRUE(answer.answered && answer.error_status == c.status) << answer.error_status;
    EXPECT_EQ(answer.error_index, c.index);
    for (const Write &write : c.writes) {
      EXPECT_EQ(sim_->Value("ups0", write.oid), c.status ? before[write.oid] : write.value);
      journal.push_back("ups0 " + write.oid + " " + write.type + " " + write.value + " " +
                        c.answer);
    }
  }
  ExpectJournal(*sim_, journal);
  EXPECT_EQ(Read(ups0_, alarm).number, 1);  // a SET error leaves its GET alone
  EXPECT_EQ(sim_->Value("ups1", mib::upsAdvConfigShutoffDelay), "9000");  // each card its own
}

// Neither answered nor counted nor carried out: v2c, and a community not the card's.
TEST_F(ProtocolTest, OnlyV1WithTheCardsOwnCommunityIsAnswered) {
  EXPECT_TRUE(Get(ups2_, {mib::upsCommStatus}).answered);
  const Target refused[] = {{ups0_.address, ups0_.port, "public", 1, kNoAnswerWait},
                            {ups2_.address, ups2_.port, "public", 0, kNoAnswerWait},
                            {ups0_.address, ups0_.port, "private", 0, kNoAnswerWait}};
  for (const Target &target : refused) {
    EXPECT_FALSE(Get(target, {mib::upsCommStatus}).answered);
    EXPECT_FALSE(Set(target, {{mib::upsAdvConfigAlarm, 'i', "3"}}).answered);
  }
  EXPECT_EQ(sim_->Requests("ups0") + sim_->Requests("ups2"), 1);
  EXPECT_EQ(
      sim_->Value("ups0", mib::upsAdvConfigAlarm) + sim_->Value("ups2", mib::upsAdvConfigAlarm),
      "11");
  std::string alarm = std::string(mib::upsAdvConfigAlarm) + " i 3 badCommunity";
  ExpectJournal(*sim_, {"ups2 " + alarm, "ups0 " + alarm});  // not the v2c one
}

// The next datagram to a UDP socket on 127.0.0.1 within the timeout, "" if none; `from` gets its
// source address.
struct TrapSocket {
  TrapSocket() {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof local;
    bind(socket, reinterpret_cast<sockaddr *>(&local), length);
    getsockname(socket, reinterpret_cast<sockaddr *>(&local), &length);
    to = " 127.0.0.1:" + std::to_string(ntohs(local.sin_port));
  }
  ~TrapSocket() { close(socket); }
  std::string Next(std::chrono::milliseconds timeout) {
    pollfd readable{socket, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(timeout.count())) <= 0) return "";
    char data[1500];
    sockaddr_in source{};
    socklen_t length = sizeof source;
    ssize_t size =
        recvfrom(socket, data, sizeof data, 0, reinterpret_cast<sockaddr *>(&source), &length);
    from = inet_ntoa(source.sin_addr);
    return std::string(data, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  }
  const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  std::string to, from;  // to: " ADDRESS:PORT" as a control line ends
};

// A v1 trap: after the version its community, later enterprise apc, the agent address and the
// generic and specific types; from the card's own address. Any other destination is refused.
TEST_F(ProtocolTest, TrapGoesFromTheCardsAddressWithItsCommunityToLoopbackOnly) {
  TrapSocket traps;
  in_addr agent{};
  inet_pton(AF_INET, ups2_.address.c_str(), &agent);
  std::string fields = std::string("\x06\x07\x2b\x06\x01\x04\x01\x82\x3e\x40\x04", 11) +
                       std::string(reinterpret_cast<const char *>(&agent), 4) + "\x02\x01\x06";
  for (const char *generic : {"enterpriseSpecific", "6"}) {
    sim_->Command(std::string("trap ups2 ") + generic + " 5" + traps.to);
    std::string trap = traps.Next(std::chrono::seconds(2));
    EXPECT_EQ(traps.from, ups2_.address);
    EXPECT_EQ(trap.find(std::string("\x02\x01\x00\x04\x07private", 12)), 2u);
    EXPECT_NE(trap.find(fields + "\x02\x01\x05"), std::string::npos);
  }
  for (const std::string &line : std::vector<std::string>{
           "trap ups0 6 1 10.0.0.1:162", "trap ups0 6 1 localhost:162", "trap ups0 7 0" + traps.to,
           "trap ups0 6 -1" + traps.to, "trap ups0 6 1 127.0.0.1", "trap ups0 6 1 127.0.0.1:0",
           "trap ups0 6 1 127.0.0.1:65536", "trap ups9 6 1" + traps.to,
           "trap ups0 6 1" + traps.to + " x"}) {
    EXPECT_THROW(sim_->Command(line), std::runtime_error) << line;
  }
  EXPECT_EQ(traps.Next(kNoAnswerWait), "") << "a refused trap was sent";
}

}  // namespace
}  // namespace upssim::testing
