#include "card.h"

#include <cstdio>
#include <stdexcept>

namespace upssim {
namespace {

std::size_t Require(std::string_view name) {
  auto object = FindObject(name);
  if (!object) throw std::logic_error("object table lacks " + std::string(name));
  return *object;
}

// The objects the card's behaviour touches, resolved once from the table.
struct Ids {
  std::size_t ident_name = Require("upsBasicIdentName");
  std::size_t serial = Require("upsAdvIdentSerialNumber");
  std::size_t time_on_battery = Require("upsBasicBatteryTimeOnBattery");
  std::size_t input_voltage = Require("upsAdvInputLineVoltage");
  std::size_t line_fail_cause = Require("upsAdvInputLineFailCause");
  std::size_t output_status = Require("upsBasicOutputStatus");
  std::size_t output_voltage = Require("upsAdvOutputVoltage");
  std::size_t output_load = Require("upsAdvOutputLoad");
  std::size_t output_current = Require("upsAdvOutputCurrent");
  std::size_t return_delay = Require("upsAdvConfigReturnDelay");
  std::size_t sleep_time = Require("upsAdvConfigUpsSleepTime");
  std::size_t conserve_battery = Require("upsBasicControlConserveBattery");
  std::size_t ups_off = Require("upsAdvControlUpsOff");
  std::size_t ups_sleep = Require("upsAdvControlUpsSleep");
  std::size_t turn_on = Require("upsAdvControlTurnOnUPS");
  std::size_t output_state = Require("upsBasicStateOutputState");
};

const Ids &Id() {
  static const Ids ids;
  return ids;
}

// Flag positions in upsBasicStateOutputState, from 0.
constexpr std::size_t kFlagOnBattery = 1;
constexpr std::size_t kFlagOnLine = 3;

// Codes of the order objects that act; 1 (noTurnUpsOff and the like) is accepted and does nothing.
constexpr long kTurnUpsOff = 2, kTurnUpsOffGracefully = 3;
constexpr long kPutUpsToSleep = 2, kPutUpsToSleepGracefully = 3;
constexpr long kTurnOffUpsToConserveBattery = 2;
constexpr long kTurnOnUps = 2;

constexpr std::size_t kMaxDisplayString = 255;

bool OutputLive(int status) {
  using namespace output_status;
  return status != kOff && status != kTimedSleeping && status != kSleepingUntilPowerReturn;
}

Clock::duration Ticks(std::int64_t hundredths) {
  return std::chrono::milliseconds(hundredths * 10);
}

Value InitialValue(const ObjectDef &object) {
  std::string error;
  auto value = ParseValue(object, '=', object.initial, error);
  if (!value) throw std::logic_error(std::string(object.name) + ": bad initial value: " + error);
  return *value;
}

}  // namespace

std::string ErrorStatusName(int status) {
  switch (status) {
    case kNoError:
      return "noError";
    case kTooBig:
      return "tooBig";
    case kNoSuchName:
      return "noSuchName";
    case kBadValue:
      return "badValue";
    case kReadOnly:
      return "readOnly";
    case kGenErr:
      return "genErr";
    default:
      return "error(" + std::to_string(status) + ")";
  }
}

std::optional<int> ParseErrorStatus(std::string_view text) {
  // Beyond genErr only numbers: statuses no v1 card sends, for testing a client's fallback.
  constexpr int kLastStatus = 18;
  for (int status = kTooBig; status <= kLastStatus; ++status) {
    if (text == ErrorStatusName(status) || text == std::to_string(status)) return status;
  }
  return std::nullopt;
}

bool Faults::Lose() {
  bool lose = false;
  if (drop_next > 0) {
    --drop_next;
    lose = true;
  }
  if (drop_every > 0 && ++drop_count % drop_every == 0) lose = true;
  return lose;
}

Card::Card(std::string name, std::string address, std::uint16_t port, std::string community,
           std::size_t number)
    : name_(std::move(name)),
      address_(std::move(address)),
      port_(port),
      community_(std::move(community)) {
  for (const ObjectDef &object : Objects()) values_.push_back(InitialValue(object));
  values_[Id().ident_name].octets = name_;
  char serial[32];
  std::snprintf(serial, sizeof serial, "AS0812%06zu    ", number % 1000000);
  values_[Id().serial].octets = serial;
}

int Card::OutputStatus() const {
  const Value &status = values_[Id().output_status];
  return status.type == Type::kInteger ? static_cast<int>(status.number) : 0;
}

Value Card::Read(std::size_t object, Clock::time_point now) {
  Advance(now);
  Value value = values_[object];
  if (object == Id().time_on_battery && OutputStatus() == output_status::kOnBattery) {
    auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - on_battery_since_);
    std::int64_t ticks = on_battery_base_ + elapsed.count() / 10;
    value.number = ticks & 0xffffffff;
  }
  return value;
}

int Card::CheckSet(std::size_t object, const Value &value, Clock::time_point now) {
  Advance(now);
  const ObjectDef &def = Objects()[object];
  if (def.access == Access::kReadOnly) return kNoSuchName;  // RFC 1157: not available for set
  if (value.type != def.type) return kBadValue;
  if (!def.values.empty() && EnumName(def.values, value.number).empty()) return kBadValue;
  if (value.type == Type::kOctetString && value.octets.size() > kMaxDisplayString) return kBadValue;
  // A card refuses to conserve battery unless the UPS runs on it; the library then falls back
  // to a sleep order.
  if (object == Id().conserve_battery && value.number == kTurnOffUpsToConserveBattery &&
      OutputStatus() != output_status::kOnBattery) {
    return kBadValue;
  }
  return kNoError;
}

void Card::ApplySet(std::size_t object, const Value &value, Clock::time_point now) {
  Advance(now);
  const Ids &id = Id();
  if (object == id.conserve_battery || object == id.ups_off || object == id.ups_sleep ||
      object == id.turn_on) {
    Order(object, static_cast<long>(value.number), now);  // orders read back as their idle value
    return;
  }
  values_[object] = value;
}

void Card::Force(std::size_t object, const Value &value, Clock::time_point now) {
  Advance(now);
  const Ids &id = Id();
  if (object == id.output_status && value.type == Type::kInteger) {
    SetOutputStatus(static_cast<int>(value.number), now);
    return;
  }
  if (object == id.time_on_battery && OutputStatus() == output_status::kOnBattery) {
    on_battery_base_ = static_cast<std::uint32_t>(value.number);
    on_battery_since_ = now;
  }
  values_[object] = value;
}

void Card::Order(std::size_t object, long code, Clock::time_point now) {
  using namespace output_status;
  const Ids &id = Id();
  if (object == id.ups_off && (code == kTurnUpsOff || code == kTurnUpsOffGracefully)) {
    SetOutputStatus(kOff, now);
  } else if (object == id.ups_sleep &&
             (code == kPutUpsToSleep || code == kPutUpsToSleepGracefully)) {
    if (power_failed_) {
      SetOutputStatus(kSleepingUntilPowerReturn, now);  // wakes when the mains return
      wake_at_.reset();
    } else {
      SetOutputStatus(kTimedSleeping, now);
      wake_at_ = now + Ticks(values_[id.sleep_time].number);
    }
  } else if (object == id.conserve_battery && code == kTurnOffUpsToConserveBattery) {
    SetOutputStatus(kSleepingUntilPowerReturn, now);
    wake_at_.reset();
  } else if (object == id.turn_on && code == kTurnOnUps && !OutputLive(OutputStatus())) {
    SetOutputStatus(power_failed_ ? kOnBattery : kOnLine, now);
  }
}

void Card::PowerFailure(int cause, Clock::time_point now) {
  Advance(now);
  const Ids &id = Id();
  if (!power_failed_) held_input_voltage_ = values_[id.input_voltage];
  power_failed_ = true;
  self_test_until_.reset();
  values_[id.line_fail_cause] = NumberValue(Type::kInteger, cause);
  values_[id.input_voltage].number = 0;
  int status = OutputStatus();
  if (status == output_status::kSleepingUntilPowerReturn) {
    wake_at_.reset();  // the mains failed again during the return delay
  } else if (OutputLive(status) && status != output_status::kOnBattery) {
    SetOutputStatus(output_status::kOnBattery, now);
  }
}

void Card::PowerRestore(Clock::time_point now) {
  Advance(now);
  if (!power_failed_) return;
  power_failed_ = false;
  if (held_input_voltage_) values_[Id().input_voltage] = *held_input_voltage_;
  held_input_voltage_.reset();
  int status = OutputStatus();
  if (status == output_status::kOnBattery) {
    SetOutputStatus(output_status::kOnLine, now);
  } else if (status == output_status::kSleepingUntilPowerReturn) {
    wake_at_ = now + Ticks(values_[Id().return_delay].number);
    Advance(now);
  }
}

void Card::SelfTest(std::chrono::milliseconds on_battery, Clock::time_point now) {
  Advance(now);
  values_[Id().line_fail_cause] = NumberValue(Type::kInteger, line_fail_cause::kSelfTest);
  if (on_battery.count() > 0 && !power_failed_ && OutputStatus() == output_status::kOnLine) {
    SetOutputStatus(output_status::kOnBattery, now);
    self_test_until_ = now + on_battery;
  }
}

// Timed changes are applied lazily, whenever the card is looked at.
void Card::Advance(Clock::time_point now) {
  using namespace output_status;
  if (self_test_until_ && now >= *self_test_until_) {
    self_test_until_.reset();
    if (OutputStatus() == kOnBattery && !power_failed_) SetOutputStatus(kOnLine, now);
  }
  if (wake_at_ && now >= *wake_at_) {
    wake_at_.reset();
    if (OutputStatus() == kTimedSleeping) {
      SetOutputStatus(power_failed_ ? kSleepingUntilPowerReturn : kOnLine, now);
    } else if (OutputStatus() == kSleepingUntilPowerReturn && !power_failed_) {
      SetOutputStatus(kOnLine, now);
    }
  }
}

void Card::SetOutputStatus(int status, Clock::time_point now) {
  using namespace output_status;
  const Ids &id = Id();
  int old = OutputStatus();
  bool was_live = OutputLive(old), live = OutputLive(status);
  if (was_live && !live) {
    held_output_.clear();
    for (std::size_t object : {id.output_voltage, id.output_load, id.output_current}) {
      held_output_.emplace_back(object, values_[object]);
      values_[object].number = 0;
    }
  } else if (!was_live && live) {
    for (auto &[object, value] : held_output_) values_[object] = value;
    held_output_.clear();
  }
  if (status == kOnBattery && old != kOnBattery) {
    on_battery_base_ = 0;
    on_battery_since_ = now;
  }
  if (status != kOnBattery) {
    values_[id.time_on_battery] = NumberValue(Type::kTimeTicks, 0);
    self_test_until_.reset();
  }
  if (status != kTimedSleeping && status != kSleepingUntilPowerReturn) wake_at_.reset();
  values_[id.output_status] = NumberValue(Type::kInteger, status);
  SetFlag(kFlagOnBattery, status == kOnBattery);
  SetFlag(kFlagOnLine, status == kOnLine);
}

void Card::SetFlag(std::size_t position, bool on) {
  std::string &flags = values_[Id().output_state].octets;
  if (position < flags.size()) flags[position] = on ? '1' : '0';
}

std::string Card::Describe(Clock::time_point now) {
  const Ids &id = Id();
  Value status = Read(id.output_status, now);
  Value on_battery = Read(id.time_on_battery, now);
  Value cause = Read(id.line_fail_cause, now);
  auto named = [](std::size_t object, const Value &value) {
    std::string text = FormatValue(value);
    std::string_view name = EnumName(Objects()[object].values, value.number);
    return name.empty() ? text : text + "(" + std::string(name) + ")";
  };
  std::string text = "status=" + named(id.output_status, status);
  text += power_failed_ ? " power=failed" : " power=ok";
  text += " cause=" + named(id.line_fail_cause, cause);
  text += " on_battery=" + FormatValue(on_battery);
  text += faults_.silent ? " silent=on" : " silent=off";
  text += " delay=" + std::to_string(faults_.delay.count()) + "ms";
  text += " drop=" + std::to_string(faults_.drop_next);
  text += " drop_every=" + std::to_string(faults_.drop_every);
  text += " requests=" + std::to_string(requests_);
  for (const auto &[key, error] : faults_.errors) {
    text += std::string(" error:") + (key.second == Operation::kGet ? "get:" : "set:") +
            std::string(Objects()[key.first].name) + "=" + ErrorStatusName(error);
  }
  if (faults_.hostile_seed) text += " hostile=" + std::to_string(*faults_.hostile_seed);
  for (const auto &[object, length] : faults_.oversize) {
    text += " oversize:" + std::string(Objects()[object].name) + "=" + std::to_string(length);
  }
  return text;
}

}  // namespace upssim
