// The control channel: one command per line, one reply line per command ("ok ..." or
// "error ..."). The same commands serve a test through the fixture and a person at a terminal;
// --help lists them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "card.h"

namespace upssim {

class Control {
 public:
  // Sends a v1 trap of the card to a loopback address:port; "" when sent, else the reason.
  using TrapSender = std::function<std::string(const Card &card, long generic, long specific,
                                               const std::string &address, std::uint16_t port)>;

  explicit Control(std::vector<Card> &cards, TrapSender send_trap = nullptr);

  struct Reply {
    std::string text;  // empty for a blank or comment line: nothing to answer
    bool quit = false;
  };
  Reply Execute(std::string_view line, Clock::time_point now);

 private:
  std::vector<Card *> Targets(std::string_view name);  // a card name, or * for all

  std::vector<Card> &cards_;
  TrapSender send_trap_;
  std::map<std::string, Card *, std::less<>> by_name_;
};

}  // namespace upssim
