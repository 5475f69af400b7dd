// Reading "config.apc" and "snmp.apc" into the process-wide settings at load.
#pragma once

namespace snmplumi {

// TraceMode of "config.apc" into g_bDebugMode.
void ReadDebugSwitch();

// Every setting of "snmp.apc", in file order, each with the log line that follows it.
void ReadSettings();

}  // namespace snmplumi
