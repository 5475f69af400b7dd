#include "control.h"

#include <charconv>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "agent.h"

namespace upssim {
namespace {

constexpr std::chrono::milliseconds kDefaultSelfTest{10000};
constexpr long kMaxDelayMs = 600000;
constexpr std::size_t kMaxOversize = 65535;
constexpr long kMaxDrops = 1000000;
constexpr long kMaxSpecificTrap = 2147483647;
constexpr long kMaxPort = 65535;
constexpr long kMaxSeed = 2147483647;

// SNMPv1 generic trap types, by their RFC 1157 names (their numbers 0 to 6 work too).
constexpr const char *kGenericTraps[] = {
    "coldStart",       "warmStart",          "linkDown", "linkUp", "authenticationFailure",
    "egpNeighborLoss", "enterpriseSpecific",
};

// Thrown by a command handler; becomes the "error ..." reply.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Words {
  std::string_view rest;

  std::string_view Next() { return NextWord(rest); }
  std::string_view Need(const char *usage) {
    std::string_view word = Next();
    if (word.empty()) throw CommandError(std::string("usage: ") + usage);
    return word;
  }
  void End(const char *usage) {
    if (!Next().empty()) throw CommandError(std::string("usage: ") + usage);
  }
  // The value: everything after the one blank that ends the previous word.
  std::string_view Value() {
    if (!rest.empty()) rest.remove_prefix(1);
    return rest;
  }
};

long ParseCount(std::string_view text, long max, const char *what) {
  long number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0 || number > max) {
    throw CommandError("'" + std::string(text) + "' is not " + what + " (0 to " +
                       std::to_string(max) + ")");
  }
  return number;
}

std::size_t Object(std::string_view text) {
  auto object = FindObject(text);
  if (!object) throw CommandError("unknown object '" + std::string(text) + "'");
  return *object;
}

constexpr char kHelp[] =
    "ok commands: get CARD OBJECT | set CARD OBJECT TYPE VALUE | power CARD fail [CAUSE] | "
    "power CARD restore | selftest CARD [SECONDS] | silent CARD on|off | "
    "error CARD OBJECT get|set STATUS|none | error CARD clear | delay CARD MS | "
    "oversize CARD OBJECT LENGTH | hostile CARD SEED|off | drop CARD N | drop CARD every K | "
    "drop CARD off | "
    "trap CARD GENERIC SPECIFIC ADDRESS:PORT | show CARD | cards | quit  (CARD may be * for every "
    "card except in get and show; see --help)";

}  // namespace

Control::Control(std::vector<Card> &cards, TrapSender send_trap)
    : cards_(cards), send_trap_(std::move(send_trap)) {
  for (Card &card : cards_) by_name_.emplace(card.name(), &card);
}

std::vector<Card *> Control::Targets(std::string_view name) {
  std::vector<Card *> targets;
  if (name == "*") {
    for (Card &card : cards_) targets.push_back(&card);
    return targets;
  }
  auto found = by_name_.find(name);
  if (found == by_name_.end()) throw CommandError("unknown card '" + std::string(name) + "'");
  targets.push_back(found->second);
  return targets;
}

Control::Reply Control::Execute(std::string_view line, Clock::time_point now) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  Words words{line};
  std::string_view command = words.Next();
  if (command.empty() || command.front() == '#') return {};
  try {
    auto one = [&](const char *usage) {
      std::string_view name = words.Need(usage);
      if (name == "*") throw CommandError(std::string("usage: ") + usage + " (one card)");
      return Targets(name).front();
    };
    if (command == "get") {
      constexpr char kUsage[] = "get CARD OBJECT";
      Card *card = one(kUsage);
      std::size_t object = Object(words.Need(kUsage));
      words.End(kUsage);
      Value value = card->Read(object, now);
      return {"ok " + std::string(1, static_cast<char>(value.type)) + " " + FormatValue(value)};
    }
    if (command == "set") {
      constexpr char kUsage[] = "set CARD OBJECT TYPE VALUE";
      auto targets = Targets(words.Need(kUsage));
      std::size_t object = Object(words.Need(kUsage));
      std::string_view type = words.Need(kUsage);
      if (type.size() != 1) throw CommandError("type must be one letter: i u t a s x, or =");
      std::string error;
      auto value = ParseValue(Objects()[object], type.front(), words.Value(), error);
      if (!value) throw CommandError(std::string(Objects()[object].name) + ": " + error);
      for (Card *card : targets) card->Force(object, *value, now);
      return {"ok"};
    }
    if (command == "power") {
      constexpr char kUsage[] = "power CARD fail [CAUSE] | power CARD restore";
      auto targets = Targets(words.Need(kUsage));
      std::string_view what = words.Need(kUsage);
      if (what == "fail") {
        int cause = line_fail_cause::kBlackout;
        if (std::string_view text = words.Next(); !text.empty()) {
          auto named = EnumLookup(LineFailCauses(), text);
          if (!named) throw CommandError("'" + std::string(text) + "' is not a line-fail cause");
          cause = *named;
        }
        words.End(kUsage);
        for (Card *card : targets) card->PowerFailure(cause, now);
      } else if (what == "restore") {
        words.End(kUsage);
        for (Card *card : targets) card->PowerRestore(now);
      } else {
        throw CommandError(std::string("usage: ") + kUsage);
      }
      return {"ok"};
    }
    if (command == "selftest") {
      constexpr char kUsage[] = "selftest CARD [SECONDS]";
      auto targets = Targets(words.Need(kUsage));
      std::chrono::milliseconds on_battery = kDefaultSelfTest;
      if (std::string_view text = words.Next(); !text.empty()) {
        on_battery = std::chrono::seconds(ParseCount(text, 3600, "a number of seconds"));
      }
      words.End(kUsage);
      for (Card *card : targets) card->SelfTest(on_battery, now);
      return {"ok"};
    }
    if (command == "silent") {
      constexpr char kUsage[] = "silent CARD on|off";
      auto targets = Targets(words.Need(kUsage));
      std::string_view state = words.Need(kUsage);
      words.End(kUsage);
      if (state != "on" && state != "off") throw CommandError(std::string("usage: ") + kUsage);
      for (Card *card : targets) card->faults().silent = state == "on";
      return {"ok"};
    }
    if (command == "error") {
      constexpr char kUsage[] = "error CARD OBJECT get|set STATUS|none | error CARD clear";
      auto targets = Targets(words.Need(kUsage));
      std::string_view object_text = words.Need(kUsage);
      if (object_text == "clear") {
        words.End(kUsage);
        for (Card *card : targets) card->faults().errors.clear();
        return {"ok"};
      }
      std::size_t object = Object(object_text);
      std::string_view operation_text = words.Need(kUsage);
      std::string_view status_text = words.Need(kUsage);
      words.End(kUsage);
      if (operation_text != "get" && operation_text != "set") {
        throw CommandError("operation must be get or set, not '" + std::string(operation_text) +
                           "'");
      }
      Operation operation = operation_text == "get" ? Operation::kGet : Operation::kSet;
      if (status_text == "none") {
        for (Card *card : targets) card->faults().errors.erase({object, operation});
        return {"ok"};
      }
      auto status = ParseErrorStatus(status_text);
      if (!status) {
        throw CommandError("'" + std::string(status_text) +
                           "' is not an error status (noSuchName badValue readOnly genErr tooBig, "
                           "or 1 to 18)");
      }
      for (Card *card : targets) card->faults().errors[{object, operation}] = *status;
      return {"ok"};
    }
    if (command == "delay") {
      constexpr char kUsage[] = "delay CARD MILLISECONDS";
      auto targets = Targets(words.Need(kUsage));
      long delay = ParseCount(words.Need(kUsage), kMaxDelayMs, "a delay in milliseconds");
      words.End(kUsage);
      for (Card *card : targets) card->faults().delay = std::chrono::milliseconds(delay);
      return {"ok"};
    }
    if (command == "drop") {
      constexpr char kUsage[] = "drop CARD N | drop CARD every K | drop CARD off";
      auto targets = Targets(words.Need(kUsage));
      std::string_view what = words.Need(kUsage);
      if (what == "off") {
        words.End(kUsage);
        for (Card *card : targets) card->faults().drop_next = card->faults().drop_every = 0;
      } else if (what == "every") {
        long every = ParseCount(words.Need(kUsage), kMaxDrops, "a request count");
        words.End(kUsage);
        if (every == 1) throw CommandError("every 1 would lose every request: use silent");
        for (Card *card : targets) {
          card->faults().drop_every = every;
          card->faults().drop_count = 0;
        }
      } else {
        long next = ParseCount(what, kMaxDrops, "a request count");
        words.End(kUsage);
        for (Card *card : targets) card->faults().drop_next = next;
      }
      return {"ok"};
    }
    if (command == "oversize") {
      constexpr char kUsage[] = "oversize CARD OBJECT LENGTH";
      auto targets = Targets(words.Need(kUsage));
      std::size_t object = Object(words.Need(kUsage));
      auto length = static_cast<std::size_t>(
          ParseCount(words.Need(kUsage), static_cast<long>(kMaxOversize), "a length in bytes"));
      words.End(kUsage);
      if (Objects()[object].type != Type::kOctetString) {
        throw CommandError(std::string(Objects()[object].name) + " is not an OCTET STRING");
      }
      for (Card *card : targets) {
        if (length == 0) {
          card->faults().oversize.erase(object);
        } else {
          card->faults().oversize[object] = length;
        }
      }
      return {"ok"};
    }
    if (command == "hostile") {
      constexpr char kUsage[] = "hostile CARD SEED|off";
      auto targets = Targets(words.Need(kUsage));
      std::string_view seed_text = words.Need(kUsage);
      words.End(kUsage);
      std::optional<std::uint64_t> seed;
      if (seed_text != "off") seed = ParseCount(seed_text, kMaxSeed, "a seed");
      for (Card *card : targets) {
        card->faults().hostile_seed = seed;
        card->faults().hostile_count = 0;
      }
      return {"ok"};
    }
    if (command == "trap") {
      constexpr char kUsage[] = "trap CARD GENERIC SPECIFIC ADDRESS:PORT";
      auto targets = Targets(words.Need(kUsage));
      std::string_view generic_text = words.Need(kUsage);
      long generic = -1;
      for (std::size_t i = 0; i < std::size(kGenericTraps); ++i) {
        if (generic_text == kGenericTraps[i]) generic = static_cast<long>(i);
      }
      if (generic < 0) generic = ParseCount(generic_text, 6, "a generic trap type");
      long specific = ParseCount(words.Need(kUsage), kMaxSpecificTrap, "a specific trap type");
      std::string_view destination = words.Need(kUsage);
      words.End(kUsage);
      std::size_t colon = destination.rfind(':');
      if (colon == std::string_view::npos) throw CommandError(std::string("usage: ") + kUsage);
      std::string address(destination.substr(0, colon));
      long port = ParseCount(destination.substr(colon + 1), kMaxPort, "a UDP port");
      if (port == 0) throw CommandError("'0' is not a UDP port (1 to 65535)");
      if (!IsLoopbackAddress(address)) {
        throw CommandError("'" + address +
                           "' is not a loopback address: traps go to 127.0.0.0/8 only");
      }
      if (!send_trap_) throw CommandError("this simulator cannot send traps");
      for (Card *card : targets) {
        std::string failure =
            send_trap_(*card, generic, specific, address, static_cast<std::uint16_t>(port));
        if (!failure.empty()) throw CommandError(failure);
      }
      return {"ok"};
    }
    if (command == "show") {
      constexpr char kUsage[] = "show CARD";
      Card *card = one(kUsage);
      words.End(kUsage);
      return {"ok " + card->name() + " " + card->address() + ":" + std::to_string(card->port()) +
              " " + card->Describe(now)};
    }
    if (command == "cards") {
      words.End("cards");
      std::string text = "ok " + std::to_string(cards_.size());
      for (const Card &card : cards_) {
        text += " " + card.name() + "=" + card.address() + ":" + std::to_string(card.port());
      }
      return {text};
    }
    if (command == "help") return {kHelp};
    if (command == "quit" || command == "exit") return {"ok bye", true};
    throw CommandError("unknown command '" + std::string(command) + "' (try help)");
  } catch (const CommandError &error) {
    return {std::string("error ") + error.what()};
  }
}

}  // namespace upssim
