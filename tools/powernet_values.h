// The names of the PowerNet enumerations that both the card simulator serves and the host
// program shows, one table per MIB object.
#pragma once

#include <string_view>

namespace powernet_values {

struct EnumValue {
  int value;
  std::string_view name;  // a string literal: data() is a C string
};

inline constexpr EnumValue kReplaceIndicator[] = {
    {1, "noBatteryNeedsReplacing"},
    {2, "batteryNeedsReplacing"},
};

inline constexpr EnumValue kLineFailCause[] = {
    {1, "noTransfer"},
    {2, "highLineVoltage"},
    {3, "brownout"},
    {4, "blackout"},
    {5, "smallMomentarySag"},
    {6, "deepMomentarySag"},
    {7, "smallMomentarySpike"},
    {8, "largeMomentarySpike"},
    {9, "selfTest"},
    {10, "rateOfVoltageChange"},
};

inline constexpr EnumValue kOutputStatus[] = {
    {1, "unknown"},
    {2, "onLine"},
    {3, "onBattery"},
    {4, "onSmartBoost"},
    {5, "timedSleeping"},
    {6, "softwareBypass"},
    {7, "off"},
    {8, "rebooting"},
    {9, "switchedBypass"},
    {10, "hardwareFailureBypass"},
    {11, "sleepingUntilPowerReturn"},
    {12, "onSmartTrim"},
};

inline constexpr EnumValue kConfigAlarm[] = {
    {1, "timed"},
    {2, "atLowBattery"},
    {3, "never"},
    {4, "mute"},
};

inline constexpr EnumValue kSensitivity[] = {
    {1, "auto"},
    {2, "low"},
    {3, "medium"},
    {4, "high"},
};

inline constexpr EnumValue kDiagnosticSchedule[] = {
    {1, "unknown"},
    {2, "biweekly"},
    {3, "weekly"},
    {4, "atTurnOn"},
    {5, "never"},
    {6, "fourWeeks"},
    {7, "twelveWeeks"},
    {8, "biweeklySinceLastTest"},
    {9, "weeklySinceLastTest"},
};

inline constexpr EnumValue kScgActiveMembership[] = {
    {1, "enableSCG"},
    {2, "disableSCG"},
};

}  // namespace powernet_values
