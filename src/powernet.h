// Every MIB object the library reads or writes, as the numeric OID text of its scalar instance.
// PowerNet objects live under .1.3.6.1.4.1.318.1.1.1 (apc.products.hardware.ups). Enumeration
// values the library writes or tests are given next to the code that uses them, with their MIB
// names.
#pragma once

namespace snmplumi::mib {

// MIB-II system group.
inline constexpr char sysDescr[] = ".1.3.6.1.2.1.1.1.0";

// upsIdent
inline constexpr char upsBasicIdentModel[] = ".1.3.6.1.4.1.318.1.1.1.1.1.1.0";
inline constexpr char upsBasicIdentName[] = ".1.3.6.1.4.1.318.1.1.1.1.1.2.0";
inline constexpr char upsAdvIdentFirmwareRevision[] = ".1.3.6.1.4.1.318.1.1.1.1.2.1.0";
inline constexpr char upsAdvIdentSerialNumber[] = ".1.3.6.1.4.1.318.1.1.1.1.2.3.0";

// upsBattery
inline constexpr char upsBasicBatteryTimeOnBattery[] = ".1.3.6.1.4.1.318.1.1.1.2.1.2.0";
inline constexpr char upsAdvBatteryCapacity[] = ".1.3.6.1.4.1.318.1.1.1.2.2.1.0";
inline constexpr char upsAdvBatteryTemperature[] = ".1.3.6.1.4.1.318.1.1.1.2.2.2.0";
inline constexpr char upsAdvBatteryRunTimeRemaining[] = ".1.3.6.1.4.1.318.1.1.1.2.2.3.0";
inline constexpr char upsAdvBatteryReplaceIndicator[] = ".1.3.6.1.4.1.318.1.1.1.2.2.4.0";
inline constexpr char upsAdvBatteryNumOfBattPacks[] = ".1.3.6.1.4.1.318.1.1.1.2.2.5.0";
inline constexpr char upsAdvBatteryNumOfBadBattPacks[] = ".1.3.6.1.4.1.318.1.1.1.2.2.6.0";

// upsInput
inline constexpr char upsBasicInputPhase[] = ".1.3.6.1.4.1.318.1.1.1.3.1.1.0";
inline constexpr char upsAdvInputLineVoltage[] = ".1.3.6.1.4.1.318.1.1.1.3.2.1.0";
inline constexpr char upsAdvInputMaxLineVoltage[] = ".1.3.6.1.4.1.318.1.1.1.3.2.2.0";
inline constexpr char upsAdvInputMinLineVoltage[] = ".1.3.6.1.4.1.318.1.1.1.3.2.3.0";
inline constexpr char upsAdvInputFrequency[] = ".1.3.6.1.4.1.318.1.1.1.3.2.4.0";
inline constexpr char upsAdvInputLineFailCause[] = ".1.3.6.1.4.1.318.1.1.1.3.2.5.0";

// upsOutput
inline constexpr char upsBasicOutputStatus[] = ".1.3.6.1.4.1.318.1.1.1.4.1.1.0";
inline constexpr char upsBasicOutputPhase[] = ".1.3.6.1.4.1.318.1.1.1.4.1.2.0";
inline constexpr char upsAdvOutputVoltage[] = ".1.3.6.1.4.1.318.1.1.1.4.2.1.0";
inline constexpr char upsAdvOutputFrequency[] = ".1.3.6.1.4.1.318.1.1.1.4.2.2.0";
inline constexpr char upsAdvOutputLoad[] = ".1.3.6.1.4.1.318.1.1.1.4.2.3.0";
inline constexpr char upsAdvOutputCurrent[] = ".1.3.6.1.4.1.318.1.1.1.4.2.4.0";

// upsConfig
inline constexpr char upsAdvConfigHighTransferVolt[] = ".1.3.6.1.4.1.318.1.1.1.5.2.2.0";
inline constexpr char upsAdvConfigLowTransferVolt[] = ".1.3.6.1.4.1.318.1.1.1.5.2.3.0";
inline constexpr char upsAdvConfigAlarm[] = ".1.3.6.1.4.1.318.1.1.1.5.2.4.0";
inline constexpr char upsAdvConfigAlarmTimer[] = ".1.3.6.1.4.1.318.1.1.1.5.2.5.0";
inline constexpr char upsAdvConfigMinReturnCapacity[] = ".1.3.6.1.4.1.318.1.1.1.5.2.6.0";
inline constexpr char upsAdvConfigSensitivity[] = ".1.3.6.1.4.1.318.1.1.1.5.2.7.0";
inline constexpr char upsAdvConfigLowBatteryRunTime[] = ".1.3.6.1.4.1.318.1.1.1.5.2.8.0";
inline constexpr char upsAdvConfigReturnDelay[] = ".1.3.6.1.4.1.318.1.1.1.5.2.9.0";
inline constexpr char upsAdvConfigShutoffDelay[] = ".1.3.6.1.4.1.318.1.1.1.5.2.10.0";
inline constexpr char upsAdvConfigUpsSleepTime[] = ".1.3.6.1.4.1.318.1.1.1.5.2.11.0";
inline constexpr char upsAdvConfigBattExhaustThresh[] = ".1.3.6.1.4.1.318.1.1.1.5.2.14.0";

// upsControl
inline constexpr char upsBasicControlConserveBattery[] = ".1.3.6.1.4.1.318.1.1.1.6.1.1.0";
inline constexpr char upsAdvControlUpsOff[] = ".1.3.6.1.4.1.318.1.1.1.6.2.1.0";
inline constexpr char upsAdvControlUpsSleep[] = ".1.3.6.1.4.1.318.1.1.1.6.2.3.0";
inline constexpr char upsAdvControlTurnOnUPS[] = ".1.3.6.1.4.1.318.1.1.1.6.2.6.0";

// upsTest
inline constexpr char upsAdvTestDiagnosticSchedule[] = ".1.3.6.1.4.1.318.1.1.1.7.2.1.0";

// upsComm
inline constexpr char upsCommStatus[] = ".1.3.6.1.4.1.318.1.1.1.8.1.0";

// upsSyncCtrlGroup
inline constexpr char upsSCGMembershipGroupNumber[] = ".1.3.6.1.4.1.318.1.1.1.10.1.1.0";
inline constexpr char upsSCGActiveMembershipStatus[] = ".1.3.6.1.4.1.318.1.1.1.10.1.2.0";
inline constexpr char upsSCGPowerSynchronizationDelayTime[] = ".1.3.6.1.4.1.318.1.1.1.10.1.3.0";
inline constexpr char upsSCGReturnBatteryCapacityOffset[] = ".1.3.6.1.4.1.318.1.1.1.10.1.4.0";
inline constexpr char upsSCGMultiCastIP[] = ".1.3.6.1.4.1.318.1.1.1.10.1.5.0";
inline constexpr char upsSCGNumOfGroupMembers[] = ".1.3.6.1.4.1.318.1.1.1.10.2.1.0";

// upsState
inline constexpr char upsBasicStateOutputState[] = ".1.3.6.1.4.1.318.1.1.1.11.1.1.0";

}  // namespace snmplumi::mib
