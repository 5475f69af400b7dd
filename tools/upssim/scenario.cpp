#include "scenario.h"

#include <arpa/inet.h>

#include <charconv>
#include <fstream>
#include <map>
#include <set>

#include "agent.h"

namespace upssim {
namespace {

// Why `address` cannot carry a card, or "" when it can.
std::string CardAddressProblem(const std::string &address) {
  if (!IsLoopbackAddress(address)) {
    return "card address '" + address +
           "' is not a loopback IPv4 address: the simulator binds only 127.0.0.0/8";
  }
  if (address == "127.0.0.1") {
    return "127.0.0.1 marks an empty slot for the library: use 127.A.B.C with A >= 1";
  }
  return "";
}

struct Line {
  std::string_view rest;

  // The next blank-separated word; empty at the end of the line.
  std::string_view Word() { return NextWord(rest); }

  // Everything after the single blank that follows the last word: a value may hold blanks.
  std::string_view Rest() {
    if (!rest.empty()) rest.remove_prefix(1);
    return rest;
  }
};

bool ValidName(std::string_view name) {
  if (name.empty() || name.size() > 64) return false;
  for (char c : name) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '_' || c == '-' || c == '.';
    if (!ok) return false;
  }
  return true;
}

bool ValidCommunity(std::string_view community) {
  if (community.empty() || community.size() > 64) return false;
  for (char c : community) {
    if (c <= ' ' || c > '~') return false;
  }
  return true;
}

std::optional<std::uint32_t> ParseUnsigned(std::string_view text) {
  std::uint32_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return number;
}

class Parser {
 public:
  explicit Parser(std::string file_name) : file_(std::move(file_name)) {}

  std::vector<CardPlan> Parse(std::istream &in) {
    std::string text;
    while (std::getline(in, text)) {
      ++line_number_;
      if (!text.empty() && text.back() == '\r') text.pop_back();
      ParseLine(text);
    }
    if (cards_.empty()) Fail("no cards: add a line such as 'card ups0 127.16.0.1:16161'", 0);
    return std::move(cards_);
  }

 private:
  [[noreturn]] void Fail(const std::string &message, int line = -1) const {
    int where = line < 0 ? line_number_ : line;
    throw ScenarioError(where > 0 ? file_ + ":" + std::to_string(where) + ": " + message
                                  : file_ + ": " + message);
  }

  void ParseLine(std::string_view text) {
    Line line{text};
    std::string_view keyword = line.Word();
    if (keyword.empty() || keyword.front() == '#') return;
    if (keyword == "port") {
      port_ = ParsePort(line.Word());
      ExpectEnd(line);
    } else if (keyword == "community") {
      community_ = ParseCommunity(line.Word());
      ExpectEnd(line);
    } else if (keyword == "card") {
      std::string_view name = line.Word();
      auto [address, port] = ParseWhere(line.Word());
      std::string community = CommunityOrDefault(line);
      ExpectEnd(line);
      group_begin_ = cards_.size();
      AddCard(name, address, port, community);
    } else if (keyword == "cards") {
      std::string_view count_text = line.Word();
      std::string_view prefix = line.Word();
      auto [address, port] = ParseWhere(line.Word());
      std::string community = CommunityOrDefault(line);
      ExpectEnd(line);
      auto count = ParseUnsigned(count_text);
      if (!count || *count == 0) Fail("cards: '" + std::string(count_text) + "' is not a count");
      in_addr first{};
      inet_pton(AF_INET, address.c_str(), &first);
      std::uint32_t host = ntohl(first.s_addr);
      group_begin_ = cards_.size();
      for (std::uint32_t i = 0; i < *count; ++i) {
        in_addr next{htonl(host + i)};
        char text_address[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &next, text_address, sizeof text_address);
        AddCard(std::string(prefix) + std::to_string(i), text_address, port, community);
      }
    } else if (keyword == "set") {
      ParseSet(line);
    } else {
      Fail("unknown keyword '" + std::string(keyword) + "' (port, community, card, cards, set)");
    }
  }

  void ExpectEnd(Line &line) {
    std::string_view extra = line.Word();
    if (!extra.empty() && extra.front() != '#') {
      Fail("unexpected '" + std::string(extra) + "' at the end of the line");
    }
  }

  std::uint16_t ParsePort(std::string_view text) {
    auto port = ParseUnsigned(text);
    if (!port || *port == 0 || *port > 65535) {
      Fail("'" + std::string(text) + "' is not a UDP port (1 to 65535)");
    }
    return static_cast<std::uint16_t>(*port);
  }

  std::string ParseCommunity(std::string_view text) {
    if (!ValidCommunity(text)) {
      Fail("'" + std::string(text) + "' is not a community (1 to 64 printable characters)");
    }
    return std::string(text);
  }

  std::string CommunityOrDefault(Line &line) {
    Line peek = line;
    std::string_view word = peek.Word();
    if (word.empty() || word.front() == '#') return community_;
    line = peek;
    return ParseCommunity(word);
  }

  std::pair<std::string, std::uint16_t> ParseWhere(std::string_view text) {
    if (text.empty()) Fail("missing card address (127.A.B.C or 127.A.B.C:PORT)");
    std::uint16_t port = port_;
    std::size_t colon = text.find(':');
    bool ipv6 = colon != std::string_view::npos && text.find(':', colon + 1) != text.npos;
    if (colon != std::string_view::npos && !ipv6) {
      port = ParsePort(text.substr(colon + 1));
      text = text.substr(0, colon);
    }
    std::string address(text);
    if (std::string problem = CardAddressProblem(address); !problem.empty()) Fail(problem);
    return {address, port};
  }

  void AddCard(std::string_view name, const std::string &address, std::uint16_t port,
               const std::string &community) {
    if (!ValidName(name)) {
      Fail("'" + std::string(name) + "' is not a card name (letters, digits, _ - ., up to 64)");
    }
    if (std::string problem = CardAddressProblem(address); !problem.empty()) Fail(problem);
    if (!names_.insert(std::string(name)).second) {
      Fail("card name '" + std::string(name) + "' is used twice");
    }
    std::string where = address + ":" + std::to_string(port);
    if (auto [it, fresh] = places_.emplace(where, std::string(name)); !fresh) {
      Fail("card " + std::string(name) + " is on " + where + " like card " + it->second);
    }
    if (cards_.size() >= kMaxCards) Fail("more than " + std::to_string(kMaxCards) + " cards");
    cards_.push_back(CardPlan{std::string(name), address, port, community, defaults_});
  }

  void ParseSet(Line &line) {
    std::string_view object_text = line.Word();
    std::string_view type = line.Word();
    std::string_view value_text = line.Rest();
    if (object_text.empty() || type.size() != 1) {
      Fail("set needs OBJECT TYPE VALUE, e.g. 'set upsAdvOutputLoad = 42'");
    }
    auto object = FindObject(object_text);
    if (!object) Fail("unknown object '" + std::string(object_text) + "'");
    std::string error;
    auto value = ParseValue(Objects()[*object], type.front(), value_text, error);
    if (!value) Fail(std::string(Objects()[*object].name) + ": " + error);
    Override entry{*object, std::move(*value)};
    if (cards_.empty()) {
      defaults_.push_back(entry);  // before the first card: for every card
    } else {
      for (std::size_t i = group_begin_; i < cards_.size(); ++i)
        cards_[i].overrides.push_back(entry);
    }
  }

  std::string file_;
  int line_number_ = 0;
  std::uint16_t port_ = kDefaultPort;
  std::string community_ = "public";
  std::vector<Override> defaults_;
  std::vector<CardPlan> cards_;
  std::size_t group_begin_ = 0;  // first card of the last card/cards line
  std::set<std::string> names_;
  std::map<std::string, std::string> places_;
};

}  // namespace

std::vector<CardPlan> ParseScenario(std::istream &in, const std::string &file_name) {
  return Parser(file_name).Parse(in);
}

std::vector<CardPlan> LoadScenario(const std::string &path) {
  std::ifstream in(path);
  if (!in) throw ScenarioError(path + ": cannot open the scenario file");
  return ParseScenario(in, path);
}

}  // namespace upssim
