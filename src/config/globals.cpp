// The process-wide UPS table, status words, settings and flags. Plain exported globals: the
// host reads them, and sets the fault words, in place. All zero at load except running.
#include "snmplumi.h"

char UpsIp[130][64];
char UpsIpServer[16][64];
char ServerIP[16][64];
char UpsIpOther[16][64];

int ups_X1[130][9];
int ups_Other_X1[4][16];
int ups_Other_X1_t;

int ups_Falut;
int ups_Server_Falut[4][16];
int ups_Other_Falut[4][16];

char UpsCommunity[64];
char UpsOffMode[16];
char DilayTimeCut[16];
DWORD PowerFailWait;
DWORD PowerFailWaitOther;
DWORD OtherUpsOnWait;
DWORD SnmpTrapInt;
unsigned int GetRetryMax;
unsigned int SetRetryMax;
char SecurityName[16];
unsigned short CommunicationPortNo;
unsigned short ArmPortNo;
char SendIp[64];
int NO_TRAP_SERVICE;
BOOL g_bAC_MIBConvertMode;
int g_Auto_Reboot_Org;
int OffRequestCount;
int OffRequestInterval;
int upsAdvConfigHighTransferVolt;
int upsAdvConfigLowTransferVolt;
int upsAdvConfigAlarm;
DWORD upsAdvConfigAlarmTimer;
int upsAdvConfigMinReturnCapacity;
int upsAdvConfigSensitivity;
DWORD upsAdvConfigLowBatteryRunTime;
DWORD upsAdvConfigBattExhaustThresh;
int upsAdvTestDiagnosticSchedule;
char upsBasicIdentName[40];

int TovLumiStopFlag;
BOOL TovLumiGet_RunFlag;
int running = 1;
int TrapRetStatus;
int WatchingCounter;
int OID2upsSCGMembershipGroupNumberErrorCount;
int UpscApiSupportLevel;
char LumiPathName[256];
DWORD SignalResponse1;
DWORD SignalResponse2;

BOOL DisableDromUpsFlag;
BOOL GetUpsPowerStatusControlFlag;
BOOL GetUpsPowerStatusRunFlag;
BOOL DromLumiDebug;
BOOL DromLumiTrace;
int upsAdvConfigRatedOutputVoltage;

pthread_mutex_t g_hMutexTovLumiStopControl = PTHREAD_MUTEX_INITIALIZER;
