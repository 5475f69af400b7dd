/*
 * snmplumi: APC UPS network cards driven as one locally attached power control unit.
 *
 * Conventions of this interface:
 *  - Every name below is exported from libsnmplumi.so with C linkage.
 *  - DWORD is a 32-bit unsigned integer and BOOL an int holding 1 or 0, on every target.
 *  - Status codes are DWORD: 0 is success, failures are the UPS_* codes defined here.
 *  - Text arguments are NUL-terminated. Buffers passed in belong to the caller and must be at
 *    least as large as the comment of the call says; the library never keeps a pointer to them.
 *  - Files named without a directory are relative to the data directory, "$SNMPLUMI_HOME/data"
 *    (SNMPLUMI_HOME is read when the library is loaded; default "/usr/local/TELMAR").
 *  - The process-wide variables are plain globals, read and written in place by the host and by
 *    the library; none of them is guarded by a lock unless its comment says so.
 *  - No call throws; no call takes ownership of a caller's memory.
 */
#ifndef SNMPLUMI_H
#define SNMPLUMI_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t DWORD;
typedef int BOOL;
/* A handle is a plain file descriptor. */
typedef int HANDLE;

#define INVALID_HANDLE_VALUE ((HANDLE)-1)

/* net-snmp's own types, for the calls and variables that hand them over. */
struct snmp_session;
struct snmp_pdu;

/* ---- Host status codes ------------------------------------------------------------------- */

#define UPS_ERROR ((DWORD)0x80000000u)
#define UPS_E_BAD_PROTCOL ((DWORD)0x80000003u) /* spelled so by the host interface */
#define UPS_E_UNAVAILABLE ((DWORD)0x80000005u)
#define UPS_E_INVALID_PARAM ((DWORD)0x80000009u)
#define UPS_E_NO_REGISTER ((DWORD)0x8000000Bu)
#define UPS_E_NOT_KAVPC ((DWORD)0x8000000Eu)
#define UPS_E_MANAGER_CONNECTED ((DWORD)0x80000011u)
#define UPSC_E_PROCESS_NOW ((DWORD)0x80000012u)
#define UPS_ERROR_ABNORMAL ((DWORD)0x80100000u)
#define UPS_E_NO_SERVER ((DWORD)0x80100001u)
#define UPS_E_CANT_ACCESS ((DWORD)0x80100002u)
#define UPS_E_CANT_SERVER_ATTACH ((DWORD)0x80100004u)
#define UPS_E_SERVER_SHUTDOWN_NOW ((DWORD)0x80100006u)
#define UPS_E_SHUTDOWN_NOW ((DWORD)0x80100007u)
#define UPS_E_NO_SHUTDOWN ((DWORD)0x80100008u)
#define UPS_E_REGISTER_FAIL ((DWORD)0x8010000Au)
#define UPS_E_NOT_COMMAND_UPS ((DWORD)0x8010000Du)

/* ---- Ring-buffer logs -------------------------------------------------------------------- */

/* One record into "snmplumi.log": local time, ErrorCode as 8 hex digits, Msg cut or padded to
 * 80 characters. The file is a ring of 7929 records of 112 bytes behind a 9-byte header. */
void LumiLocalLog(const char *Msg, DWORD ErrorCode);
/* The same record into the trap log "$SNMPLUMI_HOME/data/snmptrap/snmp%03d.log" of UPS index. */
void LumiLocalLogM(int index, const char *Msg, DWORD ErrorCode);
/* One record without a code into the report log of UPS index under "UPS/": 9000 is MYUPS.LOG,
 * 9001 and up MYUPS_<n>.LOG, 1000..8999 UPS<nnnn>.LOG, anything else UPS<nnn>.LOG. A ring of
 * 9901 records of 101 bytes. */
void ReportLog(int index, const char *Msg);
/* Maps a status code to the status character of a unit response ('0' for 0) and logs every
 * code other than 0 with mode as the log code. */
char SetErs2Status(int mode, DWORD status);

/* ---- Locks and timing -------------------------------------------------------------------- */

/* Locks by g_iMutexMode: 0 blocks, 1 tries 26 times over about 5 seconds. Returns 0 when locked,
 * otherwise the failure code (-1 for an unknown mode); count only appears in error log lines. */
int kavac_pthread_mutex_lock(pthread_mutex_t *lock_mutex, int count);
/* Unlocks only when lock_result (what the lock call returned) is 0. Always returns 0. */
int kavac_pthread_mutex_unlock(pthread_mutex_t *lock_mutex, int lock_result, int count);
/* One non-blocking whole-file fcntl lock of type F_RDLCK, F_WRLCK or F_UNLCK; 1 when set. */
BOOL getlock(int fd, int type);
/* 1000 ms or more sleeps whole seconds (the remainder is dropped); less sleeps milliseconds. */
void Sleep(DWORD cMillisecond);

/* ---- Profile (INI) files ----------------------------------------------------------------- */

/* The value of key in section of the file at the full path lpFileName, or the default. Returns
 * the characters stored. A value longer than nSize is cut to nSize - 1 characters; a value of
 * exactly nSize characters is stored whole, so lpReturnedString must hold nSize + 1 bytes.
 * A missing value stores lpDefault (cut to nSize - 1), puts a NUL at lpReturnedString[nSize - 1]
 * and returns nSize - 1. nSize below 1 stores nothing and returns 0. */
int GetPrivateProfileString(const char *lpAppName, const char *lpKeyName, const char *lpDefault,
                            char *lpReturnedString, int nSize, const char *lpFileName);
/* atoi of the value, negative values as 0; nDefault when the key is missing. */
unsigned int GetPrivateProfileInt(const char *lpAppName, const char *lpKeyName, int nDefault,
                                  const char *lpFileName);
/* Rewrites the file at the full path with key set to value, through a temporary file in the
 * data directory that replaces the target in one rename. 1 on success, 0 on failure. */
BOOL WritePrivateProfileString(const char *lpAppName, const char *lpKeyName, const char *lpString,
                               const char *lpFileName);
BOOL WriteStringToFile(const char *lpFileName, const char *lpAppName, const char *lpKeyName,
                       const char *lpString);
/* Reads key from a file of the data directory into pReturnedString, which must hold 251 bytes;
 * it holds "<default>" when the file, section or key is absent. An empty file is deleted first.
 * ReadConfigFileEx serialises on g_hLocalIniFileMutex, ReadConfigFileEx3 does not, and
 * ReadConfigFileEx2 neither locks nor deletes an empty file. */
void ReadConfigFileEx(const char *pFileName, const char *pAppName, const char *pKeyName,
                      char *pReturnedString);
void ReadConfigFileEx2(const char *pFileName, const char *pAppName, const char *pKeyName,
                       char *pReturnedString);
void ReadConfigFileEx3(const char *pFileName, const char *pAppName, const char *pKeyName,
                       char *pReturnedString);
/* Sets key in a file of the data directory, with the same three locking variants. */
void WriteConfigFileEx(const char *pFileName, const char *pAppName, const char *pKeyName,
                       const char *pString);
void WriteConfigFileEx2(const char *pFileName, const char *pAppName, const char *pKeyName,
                        const char *pString);
void WriteConfigFileEx3(const char *pFileName, const char *pAppName, const char *pKeyName,
                        const char *pString);
/* Deletes the file of the data directory when it exists and is empty. */
void FileCheck(const char *pFileName);
/* 1 when line is the header "[section]" (case-insensitive, '[' in the first column). */
int IsAppName(const char *line, const char *pAppName);
/* For a line holding '=': turns the first '=' of line into a blank, stores the text after it
 * (line end removed) into value, which must hold strlen(line) bytes, and returns 1 when the
 * first word is pKeyName. A line without '=' returns 0 and stores nothing. */
int GetKeyName(char *line, const char *pKeyName, char *value);
/* The value of key in section of the file at the full path, leading blanks skipped, or NULL.
 * The text lives in a buffer of the calling thread, valid until its next call. */
char *ReadKeyValue(const char *lpFileName, const char *lpAppName, const char *lpKeyName);
void InitCfgParameterName(void);

/* ---- Platform-style calls ---------------------------------------------------------------- */

typedef struct {
  unsigned long Internal;
  unsigned long InternalHigh;
  DWORD Offset; /* WriteFile seeks here from the start of the file */
  DWORD OffsetHigh;
  void *hEvent;
} OVERLAPPED;

/* malloc; the memory is not zeroed, whatever the flags. */
void *GlobalAlloc(unsigned int uFlags, size_t dwBytes);
/* free; always returns NULL. */
void *GlobalFree(void *hMem);
/* Starts a detached thread; returns its id, or 0. */
uintptr_t _beginthread(void (*start_address)(void *), unsigned int stack_size, void *arglist);
/* close(2) of the descriptor: 0 or -1. */
int CloseHandle(HANDLE hObject);
/* System uptime in whole seconds, times 1000; 0 when unknown. */
DWORD GetTickCount(void);
/* open(2) by Win32 access bits and creation disposition 1..4 (5 is refused); -1 on failure. */
HANDLE CreateFile(const char *lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                  void *lpSecurityAttributes, DWORD dwCreationDisposition,
                  DWORD dwFlagsAndAttributes, HANDLE hTemplateFile);
/* One write(2), at lpOverlapped->Offset when given. 1 and the count written, or 0. */
BOOL WriteFile(HANDLE hFile, const void *lpBuffer, DWORD nNumberOfBytesToWrite,
               DWORD *lpNumberOfBytesWritten, OVERLAPPED *lpOverlapped);
/* Builds "<dir>/<prefix:3><counter:%4.4x>.TMP" into lpTempFileName (at least strlen(dir) + 18
 * bytes). A non-zero uUnique is used as is and nothing is created; 0 starts from the tick count
 * and creates the first free name. Returns the counter, or 0 (no directory, or no free name
 * after 65536 tries). */
unsigned int GetTempFileName(const char *lpPathName, const char *lpPrefixString,
                             unsigned int uUnique, char *lpTempFileName);
/* The path of the running program (hModule must be NULL), cut to nSize - 1 characters. */
DWORD GetModuleFileName(void *hModule, char *lpFilename, DWORD nSize);
/* The directory of the running program with a trailing '/'; 1 if it fit, 0 if not. */
DWORD GetTempPath(DWORD nBufferLength, char *lpBuffer);
/* strlen, 0 for NULL. */
int kav_strlen(const char *str);

/* ---- Start-up and identification -------------------------------------------------------- */

/* Clears the status words (unused slots get word 1 bit 0x80), checks which cards answer and, when
 * one does, writes the UPS parameters of "snmp.apc" to every configured card. WaitTime is not
 * used. 1 when a card answered, 0 when none did (nothing was written). */
BOOL WaitDromStartUp(time_t WaitTime);
/* Identifies the UPS of record index (1000..8999) of "UPS/UPSinfo.ini", records a new card or
 * UPS there and configures a new UPS from its section of "ac_e_net.apc", then writes its status
 * report to the report log. flag 1 writes only a line of placeholders. */
void UPSCheckSnmpRequest(int index, int flag);

/* ---- Host information ------------------------------------------------------------------- */

/* Writes "3.009" into Version (at least 6 bytes) and logs the main UPS's synchronized control
 * group state when it can be read. Always 1. */
BOOL GetDromlumiDllVersion(char *Version);
/* 9612. */
int GetUpscApiSupportLevel(void);
/* Copies the raw bytes of setting index (1..12) into data, which must hold the setting's whole
 * size (up to 1024 bytes). Always 1; nothing is copied for another index. */
BOOL KavAcGetInfo(char *data, int index);
/* Accepted and logged or ignored; their fixed results are what the host expects. */
BOOL UpsShutDownReserve(int WaitTime);
BOOL SetOsShutdownReserveTime(DWORD ReserveTime);
BOOL GetOsShutdownReserveTime(DWORD *ReserveTime); /* ReserveTime is not written */
BOOL SetEventCommandReserveTime(int ReserveTime);
BOOL GetEventCommandReserveTime(int ReserveTime);
BOOL GetPowerFailLastTime(time_t LastTime);
DWORD ACUpsOsShutdownMode(DWORD CmdLevel, DWORD *OffMode); /* 0; OffMode is not written */
BOOL KavAcLifeReport(void);
BOOL UpsDisableParameterSetting(int TimeOut);
BOOL DisableDromUps(int TimeOut);
BOOL UpsEnableParameterSetting(void);
BOOL UpsSetUpsParameter(void);

/* The host's call-backs: the host stores its functions here before it sends the commands that
 * use them. All NULL at load. The library calls only the first three. */
typedef DWORD (*GET_UPS_SIGNALS)(DWORD *, DWORD *, DWORD, DWORD);
typedef DWORD (*ISSUE_UPS_COMMAND)(const char *, int, char *);
typedef DWORD (*ISSUE_UPS_COMMANDAV)(const char *, int, char *);
typedef DWORD (*KAVPC_SHUTDOWN_COMMAND)(int, DWORD);
typedef DWORD (*DISABLE_PARAMETER_SETTING)(int);
typedef DWORD (*ENABLE_PARAMETER_SETTING)(void);
typedef DWORD (*SET_UPS_PARAMETER)(void);
typedef DWORD (*SHUTDOWN_APPROVE)(void);
typedef DWORD (*SHUTDOWN_RESERVE)(int);
typedef DWORD (*KAVPC_GET_INIFILE)(DWORD, DWORD *);
typedef DWORD (*KAVPC_SET_INIFILE)(DWORD, DWORD *);
typedef DWORD (*KAVPC_SET_PARAMETER)(DWORD, DWORD *);
typedef DWORD (*KAVPC_GET_PARAMETER)(DWORD, DWORD *);
typedef DWORD (*KAVPC_SHUTDOWN_DELAY_TIME)(DWORD *);
typedef DWORD (*KAVPC_COMP_SHUTDOWN)(void);

extern GET_UPS_SIGNALS DromGetUpsSignals;
extern ISSUE_UPS_COMMAND DromIssueUpsCommand;
extern ISSUE_UPS_COMMANDAV DromIssueUpsCommandAV;
extern KAVPC_SHUTDOWN_COMMAND DromShutDownCommand;
extern DISABLE_PARAMETER_SETTING DromUpsDisableParameterSetting;
extern ENABLE_PARAMETER_SETTING DromUpsEnableParameterSetting;
extern SET_UPS_PARAMETER DromUpsSetUpsParameter;
extern SHUTDOWN_APPROVE DromUpsShutdownApprove;
extern SHUTDOWN_RESERVE DromUpsShutdownReserve;
extern KAVPC_GET_INIFILE KavPcGetInifile;
extern KAVPC_SET_INIFILE KavPcSetInifile;
extern KAVPC_SET_PARAMETER KavPcSetParameter;
extern KAVPC_GET_PARAMETER KavPcGetParameter;
extern KAVPC_SHUTDOWN_DELAY_TIME KavPcShutdownDelayTime;
extern KAVPC_COMP_SHUTDOWN KavPcCompShutDown;

/* ---- Event wait ---------------------------------------------------------------------------- */

/* Blocks until the unit has something to report or the wait is stopped, then fills
 * sLumiReceiveData (at least 49 bytes) with the 48-character unit status string. The first two
 * arguments are ignored. 0: an event ("801..." written), or TrapRetStatus was set (nothing
 * written); 1: stopped by TovLumiStop (47 zeros and "8" written); -1: the trap port could not be
 * opened and no UPS is to be reported yet (call again; the call paused one second). While it
 * waits it listens for SNMP traps on UDP port 162 (unless NO_TRAP_SERVICE) and hands each to
 * snmp_input. One wait at a time. */
int TovLumiGet(int dummyLumiComPort, unsigned short *dummyLumiUa, char *sLumiReceiveData);
/* Asks the running (or the next) wait to end; does not wait for it. Always 0. */
int TovLumiStop(void);
/* Logs and sends nothing. Always 0. */
int TovLumiSendOnly(int dummy1, unsigned char dummy2, char *dummy3);
/* The trap listener's call-back: in debug mode logs " [snmp_input] end" with running as the code.
 * Always 0; the trap itself is not looked at. */
int snmp_input(int op, struct snmp_session *session, int reqid, struct snmp_pdu *pdu, void *magic);
/* The name of an SNMPv1 generic trap number ("Cold Start" ... "Enterprise Specific"), or
 * "Unknown Type". A static text. */
const char *trap_description(int trap);
/* Does nothing. */
void update_config(void);

/* The trap listener: its description, a pointer to it, and the open session (NULL when none). */
extern struct snmp_session Trap_sess;
extern struct snmp_session *Trap_session;
extern struct snmp_session *Trap_ss;
/* The result buffer of the latest TovLumiGet. */
extern char *forTrapLumiReceiveData;
/* Kept for hosts; the library neither reads nor writes them. */
extern int Print;
extern int Syslog;
extern int Event;
extern int dropauth;
extern int reconfig;
extern HANDLE hNewTraps;

/* ---- Host command channel and network settings -------------------------------------------- */

/* One exchange with the host's own unit through DromIssueUpsCommand (SendDromCommandAV: through
 * DromIssueUpsCommandAV): Cmd and the expected response length go to the call-back, whose answer
 * (up to 255 characters) is copied into Response, which must hold 256 bytes. UPS_E_NO_SERVER is
 * tried again a second later, UPS_E_BAD_PROTCOL (SendDromCommand only) at once; at most three
 * calls. The call-back's last result is returned; UPS_E_NO_SERVER when the host set none. */
DWORD SendDromCommand(const char *Cmd, int ResponseLen, char *Response);
DWORD SendDromCommandAV(const char *Cmd, int ResponseLen, char *Response);
/* Passes its arguments to DromGetUpsSignals, up to five times while it answers UPS_E_NO_SERVER
 * (one second apart); its last result, or UPS_E_NO_SERVER when the host set none. */
DWORD GetDromInterrupt(DWORD *Signal1, DWORD *Signal2, DWORD Interval, DWORD Mode);

/* Network-setting handlers of the unit protocol, passed to the host's unit through
 * SendDromCommand. Data and DataLen are a command's data and its three-hex-digit length, each
 * in a writable buffer of 256 bytes; a handler that answers rewrites them. The channel's
 * result is returned. */
DWORD WriteLanMan(char *Data, char *DataLen);
DWORD ReadLanMan(char *Data, char *DataLen);
DWORD SetNetConf(char *Data, char *DataLen);
DWORD WriteTcpPortNo(char *Data, char *DataLen);
DWORD ReadTcpPortNo(char *Data, char *DataLen);
DWORD WriteMacAddress(char *Data, char *DataLen);
DWORD ReadMacAddress(char *Data, char *DataLen);
DWORD WriteIpAddress(char *Data, char *DataLen);
DWORD ReadIpAddress(char *Data, char *DataLen);
DWORD WriteSubNetAddress(char *Data, char *DataLen);
DWORD ReadSubNetAddress(char *Data, char *DataLen);
DWORD WriteGWAddress(char *Data, char *DataLen);
DWORD ReadGWAddress(char *Data, char *DataLen);

/* ---- Unit commands ------------------------------------------------------------------------ */

/* The unit's command channel. sInData is the host's 48-character frame: code (0-2), length in
 * three hex digits (4-6), data (7-46); it is rewritten in place as the answer, position 47
 * holding the status character. Nothing past position 47 is read or written; a length past the
 * data is cut. The other arguments are ignored. 0 when the status is "0", else -1. */
int TovLumiSend(int iDummyLumiComPort, unsigned char cDummyLumiUa, char *sInData,
                int iDummyDataLen);

/* The handlers TovLumiSend selects by code, callable directly: Data and DataLen (writable,
 * 256 bytes each) hold the request's data and three-hex-digit length and receive the answer; a
 * handler that writes neither leaves the request to be echoed. 0, or the error of the exchange
 * that failed. Fixed answers of a healthy, idle unit: */
DWORD ReadPKG(char *Data, char *DataLen);           /* "002" */
DWORD ReadStatus(char *Data, char *DataLen);        /* "012" */
DWORD WriteP0x(char *Data, char *DataLen);          /* "021" */
DWORD ReadP0x(char *Data, char *DataLen);           /* "022" */
DWORD WriteP1x(char *Data, char *DataLen);          /* "031" */
DWORD ReadP1x(char *Data, char *DataLen);           /* "032" */
DWORD WriteRS232CTime(char *Data, char *DataLen);   /* "041" */
DWORD ReadRS232CTime(char *Data, char *DataLen);    /* "042" */
DWORD StopPTL(char *Data, char *DataLen);           /* "071" */
DWORD RestartPTL(char *Data, char *DataLen);        /* "081" */
DWORD ClearLumi(char *Data, char *DataLen);         /* "091" */
DWORD ReadX0x(char *Data, char *DataLen);           /* "0D2" */
DWORD WriteBootCheck(char *Data, char *DataLen);    /* "BT0" */
DWORD ReadBootCheck(char *Data, char *DataLen);     /* "BT1" */
DWORD WriteRetryOn(char *Data, char *DataLen);      /* "BT2" */
DWORD ReadRetryOn(char *Data, char *DataLen);       /* "BT3" */
DWORD WritePowerOffMode(char *Data, char *DataLen); /* "PCM" */
/* The first configured UPS's firmware revision and serial number. */
DWORD ReadRomRev(char *Data, char *DataLen);       /* "0F2" */
DWORD ReadSerialNumber(char *Data, char *DataLen); /* "H01" */
/* The host unit's alarm flags as nine status bytes (no code selects it). */
DWORD ReadX1x(char *Data, char *DataLen);
/* Delays in minutes (hex) on every configured UPS, and the scheduled power-on time. */
DWORD WriteDPTime(char *Data, char *DataLen); /* "151" */
DWORD ReadDPTime(char *Data, char *DataLen);  /* "152" */
DWORD WriteOffWT(char *Data, char *DataLen);  /* "1B1" */
DWORD ReadOffWT(char *Data, char *DataLen);   /* "1B2" */
DWORD WriteOnTime(char *Data, char *DataLen); /* "181" */
DWORD ReadOnTime(char *Data, char *DataLen);  /* "182" */
/* The host unit's clock, reap counter and event log, through SendDromCommand. */
DWORD ReadClock(char *Data, char *DataLen); /* "132" */
DWORD ReadReap(char *Data, char *DataLen);  /* "142" */
DWORD ReadLog(char *Data, char *DataLen);   /* "S30" */

/* ---- Library start and end --------------------------------------------------------------- */

/* Run by the shared library itself when it is loaded and unloaded; hosts never call them.
 * lib_init reads "config.apc" and "snmp.apc" into the settings below and creates the mutexes;
 * lib_end closes the SNMP sessions and destroys the logging mutexes. */
void lib_init(void);
void lib_end(void);
/* Reads TraceMode of section Lumi of "config.apc" into g_bDebugMode ("ON" is on). When the key
 * is absent it leaves g_bDebugMode alone and sets UpsIp[0] to "127.0.0.1". */
void DebugModeCheck(void);

/* ---- SNMP access ------------------------------------------------------------------------- */

/* SNMP v1 requests to the UPS network cards. Results: 0, UPS_E_NO_SERVER (no session, the
 * request could not be built, no answer), UPS_E_CANT_ACCESS (the card answered with an error
 * status), UPS_E_INVALID_PARAM (SET answered badValue), or 1 (GET with an unknown type letter).
 *
 * Type letters: 'i' INTEGER, 'u' Gauge32, 't' TimeTicks, 'a' IpAddress, 's'/'x'/'d' OCTET
 * STRING, 'o' OBJECT IDENTIFIER, 'n' NULL.
 *  - GET, 'i' 'u' 't' 'a': Value points to a 32-bit integer that receives the value.
 *  - GET, 's' 'x' 'd' 'o': the value's bytes are copied to Value without a terminator (clear the
 *    buffer first); SnmpGetR and SnmpGet copy at most 255 bytes.
 *  - SET, 'i': Value points to a signed 32-bit integer; 't': to an unsigned 32-bit integer;
 *    any other letter: Value is the NUL-terminated value text.
 * Requests from several threads may run at once; a card that does not answer delays only the
 * requests made to that card. */

typedef struct snmp_session *LPSNMP_MGR_SESSION;

typedef struct st_session_tbl {
  char IP[32]; /* "" marks a free entry */
  char UPSCommunity[32];
  LPSNMP_MGR_SESSION session;
} st_session_tbl;

/* One session per (address, community) pair, opened on first use; entries 0 to 998 are used. */
extern st_session_tbl g_session_tbl[1000];

/* A net-snmp session to the card at IP with the current UpsCommunity, as snmp_open returns it,
 * for the host's own use with net-snmp's traditional calls (snmp_synch_response, ...). The
 * library's requests use a private session of their own, so those calls never touch them.
 * NULL when the table is full, a session cannot be opened, or the address or community is
 * longer than 31 characters. The library keeps it and closes it in SnmpEnd. */
LPSNMP_MGR_SESSION AC_SnmpMgrOpen(const char *IP);
/* Closes every session of the table. */
void SnmpEnd(void);

/* logflag 1 logs the exchange; any other value logs only what debug mode asks for. */
DWORD SnmpGetR(const char *IP, const char *OID, char type, char *Value, int logflag);
DWORD SnmpSetR(const char *IP, const char *OID, char type, const char *Value);
/* The same for the card in row index of UpsIp (0..129; another index gives UPS_E_NO_SERVER). */
DWORD SnmpGet(const char *OID, char type, char *Value, unsigned char msgf, int index);
DWORD SnmpSet(const char *OID, char type, const char *Value, int ups_index);

/* Parses a numeric OID text into name (net-snmp's oid), whose capacity the caller gives in
 * *name_length; sets *name_length to the sub-identifiers stored and returns name, or NULL. */
unsigned long *xp_snmp_parse_oid(const char *OID, unsigned long *name, size_t *name_length);
/* The ring of the library's own OID parser: 32 slots of 64 32-bit sub-identifiers. */
extern char OIDdat[32][256];
extern signed char OIDdatc;
/* Writes of this object (upsBasicIdentName) are logged in debug mode only. */
extern const char OID2upsBasicIdentName[];

/* ---- Reports ----------------------------------------------------------------------------- */

/* One line of input, output and battery readings of the UPS that index names (9000..9004: UpsIp
 * row index - 9000; 0..15: UpsIpServer; 100..115: UpsIpOther; 1000..8999: the "IP" of record
 * index of "UPS/UPSinfo.ini"), dashes for what could not be read. msg: at least 160 bytes.
 * Returns 1 with the line, or 0 with 52 dashes when index names no UPS. */
DWORD SnmpGetReport(int index, char *msg);
/* Eight labelled lines of the same readings into the trap log of index, read from the fixed test
 * card (SNMPLUMI_TRAP_REPORT_IP at load replaces it). 1, or 0 when index names no UPS. */
DWORD GetTrapReport(int index);

/* ---- Monitoring -------------------------------------------------------------------------- */

/* One pass of the power-state watch over every configured UPS: keeps the status-word bits, raises
 * the trap-watch alarm, writes the scheduled status reports. Always 1. One pass at a time. */
BOOL KavAcSnmpCheck(void);

/* Status queries of the UPS at ip. 1 when every required value was read, else 0; outputs that
 * could not be read hold 99999 where the call presets them. */
BOOL GetUpsStatusFromSnmp(char *ip, int *sts);
BOOL GetUpsInputStatusFromSnmp(char *ip, int *sts);
BOOL GetUpsDetailStatusFromSnmp(char *ip, int *outsts, int *involt, int *charge, int *Battrun,
                                int *BatteryCause);
BOOL GetUpsDetailStatusFromSnmp2(char *ip, int *outsts, int *involt, int *charge, int *Battrun,
                                 int *temp, int *BatteryNeeds, int *BatteryCause);
/* SyncSts: at least 65 bytes. */
BOOL GetUpsDetailStatusFromSnmp3(char *ip, int *MGN, int *SCGonoff, int *PSD, int *RBCO, int *SCGN,
                                 char *SyncSts);
/* Logs the status report of record index of "UPS/UPSinfo.ini"; with flag non-zero only checks
 * that the record exists. */
BOOL UPSCheckSnmpRequest2(int index, int flag);

/* ---- Power control ----------------------------------------------------------------------- */

/* Orders to the UPS whose card is at ip. Each returns 1 when the card accepted the order and 0
 * otherwise (a NULL or unusable ip included). mode and val are PowerNet control codes, written
 * unchanged. The repeated orders try up to OffRequestCount times, OffRequestInterval seconds
 * apart, and block the calling thread throughout. */
/* upsAdvControlUpsOff = mode, repeated until accepted. */
BOOL SetUpsOffbySnmp(char *ip, int mode);
/* upsAdvControlTurnOnUPS = mode, once. */
BOOL SetUpsOnbySnmp(char *ip, int mode);
/* upsAdvConfigShutoffDelay = delay seconds, once. */
BOOL SetUpsShutdownDelaybySnmp(char *ip, DWORD delay);
/* Sets the sleep time, then upsAdvControlUpsSleep, repeated until accepted. mode above 999:
 * ontime is a duration in seconds and mode - 1000 the code; otherwise ontime is the calendar
 * time to be back on. */
BOOL SetUpsSleepOffbySnmp(char *ip, int mode, time_t ontime);
/* Zero sleep time, then conserve battery; a card that refuses sleeps until the mains return. */
BOOL SetUpsPowerFailOffbySnmp(char *ip);
/* upsSCGActiveMembershipStatus = val, once. */
BOOL SetUpsSyncActivebySnmp(char *ip, int val);
/* The handler of command "V00": orders every configured UPS down. Only Data[0] is read: '3'
 * (sleep) and '4' (off) send their orders with a type the SNMP layer refuses, so no card receives
 * them; anything else, a NULL Data included, switches each UPS in service off, to sleep or to
 * conserve battery by UpsOffMode and its status words. Neither argument is written. Returns the
 * last status of the last UPS served (1 if SetRetryMax allowed no attempt), 0 when none was;
 * blocks for every retry and pause. */
DWORD KavPcShutDown(char *Data, char *DataLen);

/* ---- Process-wide state ------------------------------------------------------------------ */

#define SNMPLUMI_UPS_SLOTS 130 /* slot 0 is the main UPS; "127.0.0.1" marks an unused slot */
#define SNMPLUMI_GROUP_SLOTS 16

/* UPS address tables (64 characters per row, NUL-terminated). */
extern char UpsIp[130][64];
extern char UpsIpServer[16][64];
extern char ServerIP[16][64];
extern char UpsIpOther[16][64];

/* Status words: word 0 bit 0x10 on battery, bit 0x08 power-fail wait exceeded; word 1 bit 0x80
 * slot out of service. Only row 0 of ups_Other_X1 is used. */
extern int ups_X1[130][9];
extern int ups_Other_X1[4][16];
extern int ups_Other_X1_t;

/* Fault words: set by the host or a test tool to force the input-status result (row 0 used). */
extern int ups_Falut;
extern int ups_Server_Falut[4][16];
extern int ups_Other_Falut[4][16];

/* Settings, read once when the library is loaded. */
extern char UpsCommunity[64];
extern char UpsOffMode[16];
extern char DilayTimeCut[16];
extern DWORD PowerFailWait;
extern DWORD PowerFailWaitOther;
extern DWORD OtherUpsOnWait;
extern DWORD SnmpTrapInt; /* milliseconds */
extern unsigned int GetRetryMax;
extern unsigned int SetRetryMax;
extern char SecurityName[16];
extern unsigned short CommunicationPortNo;
extern unsigned short ArmPortNo;
extern char SendIp[64];
extern int NO_TRAP_SERVICE;
extern BOOL g_bAC_MIBConvertMode;
extern int g_Auto_Reboot_Org;
extern int OffRequestCount;
extern int OffRequestInterval;
extern int upsAdvConfigHighTransferVolt;
extern int upsAdvConfigLowTransferVolt;
extern int upsAdvConfigAlarm;
extern DWORD upsAdvConfigAlarmTimer;
extern int upsAdvConfigMinReturnCapacity;
extern int upsAdvConfigSensitivity;
extern DWORD upsAdvConfigLowBatteryRunTime;
extern DWORD upsAdvConfigBattExhaustThresh;
extern int upsAdvTestDiagnosticSchedule;
extern char upsBasicIdentName[40];

/* Run-time flags and counters. */
extern BOOL g_bDebugMode;
extern int g_iMutexMode; /* 0 blocking locks, 1 bounded trylock */
extern int TovLumiStopFlag;
extern BOOL TovLumiGet_RunFlag;
extern int running;
/* Set it non-zero, under g_hMutexTovLumiStopControl, to make the running wait return 0. */
extern int TrapRetStatus;
extern int WatchingCounter;
extern int OID2upsSCGMembershipGroupNumberErrorCount;
extern int UpscApiSupportLevel;
extern char LumiPathName[256];
extern DWORD SignalResponse1;
extern DWORD SignalResponse2;

/* Kept for hosts; the library neither reads nor writes them. */
extern BOOL DisableDromUpsFlag;
extern BOOL GetUpsPowerStatusControlFlag;
extern BOOL GetUpsPowerStatusRunFlag;
extern BOOL DromLumiDebug;
extern BOOL DromLumiTrace;
extern int upsAdvConfigRatedOutputVoltage;

/* Process-private mutexes, default attributes. */
extern pthread_mutex_t g_hMutexTovLumiStopControl;
extern pthread_mutex_t g_hLocalLoggingMutex;
extern pthread_mutex_t g_hLocalLogging2Mutex;
extern pthread_mutex_t g_hLocalLogging3Mutex;
extern pthread_mutex_t g_hLocalIniFileMutex;

#ifdef __cplusplus
}
#endif

#endif /* SNMPLUMI_H */
