// The SNMP side of the simulator: one net-snmp server session per card on its loopback address,
// v1 GET / GETNEXT / SET answered from the card, faults applied, SETs journaled, delayed answers
// held until due.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "card.h"
#include "journal.h"

struct snmp_session;
struct snmp_pdu;

namespace upssim {

// Initialises net-snmp for a server that loads no MIB files, reads no snmp.conf of the user and
// writes no persistent state.
void InitNetSnmp();
void ShutdownNetSnmp();

// True for an IPv4 address text in 127.0.0.0/8 (dotted quad only, no names).
bool IsLoopbackAddress(const std::string &address);

class Agent {
 public:
  Agent(std::vector<Card> &cards, Journal &journal);
  Agent(const Agent &) = delete;
  Agent &operator=(const Agent &) = delete;
  ~Agent();

  // Binds every card. Returns false and a one-line reason in `error` for the first card that
  // could not be bound; `address_in_use` tells a clash with another socket from other failures.
  bool Bind(std::string &error, bool &address_in_use);

  // Sends the delayed answers that are due; returns how long until the next one (or nullopt).
  std::optional<Clock::duration> SendDue(Clock::time_point now);

  // Sends an SNMP v1 trap from the card's own socket to address:port (a loopback address):
  // enterprise apc (.1.3.6.1.4.1.318), agent address the card's, the card's community, time stamp
  // the time since the simulator started, no variables. False with a reason in `error`.
  bool SendTrap(const Card &card, long generic, long specific, const std::string &address,
                std::uint16_t port, std::string &error);

 private:
  struct Endpoint;
  struct Pending;

  static int Callback(int operation, snmp_session *session, int request_id, snmp_pdu *pdu,
                      void *magic);
  void Answer(Card &card, snmp_session *session, snmp_pdu *request);
  int Get(Card &card, snmp_pdu *response, bool next, Clock::time_point now, long &error_index);
  int Set(Card &card, snmp_pdu *request, Clock::time_point now, long &error_index);
  void JournalSet(const Card &card, snmp_pdu *request, const std::string &answer);
  void Send(snmp_session *session, snmp_pdu *response, snmp_pdu *request);

  std::vector<Card> &cards_;
  Journal &journal_;
  std::vector<std::unique_ptr<Endpoint>> endpoints_;
  std::vector<Pending> pending_;
  Clock::time_point started_ = Clock::now();
};

}  // namespace upssim
