// The control channel: one command per line, one reply line per command ("ok ..." or
// "error ..."). The same commands serve a test through the fixture and a person at a terminal;
// --help lists them.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "card.h"

namespace upssim {

class Control {
 public:
  explicit Control(std::vector<Card> &cards);

  struct Reply {
    std::string text;  // empty for a blank or comment line: nothing to answer
    bool quit = false;
  };
  Reply Execute(std::string_view line, Clock::time_point now);

 private:
  std::vector<Card *> Targets(std::string_view name);  // a card name, or * for all

  std::vector<Card> &cards_;
  std::map<std::string, Card *, std::less<>> by_name_;
};

}  // namespace upssim
