// snmplumi-host: loads libsnmplumi.so the way a host service does and drives it by hand, one
// subcommand per host call or group of calls.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "decode.h"
#include "host.h"

namespace host {

namespace {

// The subcommand being run, for error lines.
std::string current;

struct Command {
  const char *name;
  const char *synopsis;
  const char *summary;
  const char *details;
  int (*run)(const Library &, Args &);
  bool needs_installation = true;
};

const Command kCommands[] = {
    {"status", "", "one line per configured UPS, read with SnmpGetR",
     "For every UPS of snmp.apc (UPS_IP, UPS_IP1 ... UPS_IP129, the servers' UPS_IP_S0 ... and\n"
     "the other group's UPS_IP_O0 ...) reads the model, output status, input and output\n"
     "voltage, load, battery capacity and run time ('-' for what did not answer). This is\n"
     "the command when none is given. Fails when no UPS answered.\n",
     Status},
    {"register", "RECORD ADDRESS SECTION", "record a UPS card in UPS/UPSinfo.ini, as a host does",
     "Writes the host's part of data/UPS/UPSinfo.ini with the library's WriteConfigFileEx:\n"
     "[index] ADDRESS=RECORD, and in section [RECORD] the keys IP=ADDRESS and path=SECTION.\n"
     "RECORD is 1000 to 8999; SECTION names the UPS's parameters in data/ac_e_net.apc.\n"
     "check RECORD then identifies the card and configures the UPS.\n",
     Register},
    {"startup", "", "the start-up wait: WaitDromStartUp",
     "Clears the status words, asks every configured UPS whether it communicates and, when\n"
     "one does, writes the UPS parameters of snmp.apc to every configured UPS. Prints the\n"
     "parameters written. Fails when no card answered (then nothing is written).\n",
     Startup},
    {"check", "RECORD", "identify and configure a registered UPS: UPSCheckSnmpRequest",
     "Reads the card's description and the UPS's model and serial number; a new card or UPS\n"
     "is recorded in [RECORD] of UPS/UPSinfo.ini, and a new UPS gets its parameters from\n"
     "its section of ac_e_net.apc. Prints the record afterwards; the status report goes to\n"
     "data/UPS/UPS<RECORD>.LOG. Fails when the UPS could not be identified and configured.\n",
     Check},
    {"watch", "[--passes N] [--interval S]", "the power-state watch: KavAcSnmpCheck",
     "Runs the watch every S seconds (default 1, at least 0.1) for N passes (default 0:\n"
     "until Ctrl-C) and prints the status words of every watched UPS when they change, bit\n"
     "by bit:\n"
     "  word 0  0x10 on battery (10 s or more), 0x08 power-fail wait exceeded\n"
     "  word 1  0x80 out of service (unused slot, output off, or already reported)\n"
     "The other group (UPS_IP_O0 ...) has one word with the bits of word 0. Each run of\n"
     "this program starts with cleared words, as the library does when it is loaded.\n",
     Watch},
    {"wait", "[--interval S] [--timeout S] [--poll] [--shutdown]",
     "the event wait: TovLumiGet, with the watch beside it",
     "Blocks in TovLumiGet as a host's event thread does, while a second thread runs the\n"
     "watch every S seconds (default 1; 0: none) and prints the status words as they change.\n"
     "Returns after the first event or stop and decodes the 48-character status string.\n"
     "Ctrl-C (or --timeout S) calls TovLumiStop from a third thread.\n"
     "Unless NO_TRAP=1 in snmp.apc, the wait listens for traps on UDP port 162; with the port\n"
     "open it returns only on a stop, or when a host sets TrapRetStatus. Where the port is\n"
     "taken or not permitted, each call reports from the status words instead: an event once\n"
     "every UPS in service is past its power-fail wait (or a UPS of the other group is).\n"
     "  --poll      hold 127.0.0.1:162 in this program, so the wait reports from the status\n"
     "              words whoever runs it\n"
     "  --shutdown  after an event, send \"V00\": every UPS in service is ordered down\n"
     "Exit status 0 after an event, 1 after a stop.\n",
     Wait},
    {"send", "CODE [DATA]", "one command frame: TovLumiSend",
     "Builds the 48-character frame (code, \"0\", length in three hex digits, DATA, padded\n"
     "with \"0\"), sends it and prints the answer: code, length, data and the status\n"
     "character with its name, and what the library asked this program's simulated unit.\n"
     "Fails when the status is not \"0\". The codes: see the list below. Each run starts with\n"
     "cleared status words, so \"V00\" with UPS_Off=S orders nothing unless a watch has seen\n"
     "a UPS past its wait: wait --shutdown sends it in the same process.\n",
     Send},
    {"query", "ADDRESS", "the status queries of one UPS",
     "Calls GetUpsStatusFromSnmp, GetUpsInputStatusFromSnmp, GetUpsDetailStatusFromSnmp2\n"
     "(which writes the card's upsBasicIdentName back to it as a write test) and\n"
     "GetUpsDetailStatusFromSnmp3 with ADDRESS and prints their results decoded ('-' for\n"
     "what was not read). Fails when a query returned 0.\n",
     Query},
    {"report", "INDEX", "one status report line: SnmpGetReport",
     "INDEX: 9000 to 9004 the slots 0 to 4, 0 to 15 the servers' UPSes, 100 to 115 the other\n"
     "group, 1000 to 8999 a record of UPS/UPSinfo.ini. Prints the line and its columns.\n",
     Report},
    {"info", "", "version, API level and the settings read at load",
     "Prints GetDromlumiDllVersion, GetUpscApiSupportLevel, the installation directory and\n"
     "every setting the library read from data/snmp.apc when it was loaded, then the\n"
     "simulated unit's alarm flags as ReadX1x reads them.\n",
     Info},
    {"exports", "", "every export with its kind and size",
     "Lists the names of the library's export list, each found with dlsym, as a function or\n"
     "a variable with its size. Fails when one is missing. Needs no installation directory.\n",
     Exports, false},
};

void PrintUsage(const char *program) {
  std::printf(
      "Usage: %s [--library PATH] COMMAND [ARGUMENTS]\n"
      "\n"
      "Loads the snmplumi library with dlopen, as a host service does, and drives it by\n"
      "hand. Loading runs the library's start-up: it reads data/config.apc and\n"
      "data/snmp.apc of its installation directory. This program fills the host's\n"
      "call-back table with a simulated local unit (clock, reap counter, event log, alarm\n"
      "flags) that answers the channel commands CM, CU, CGnn and Cp.\n"
      "\n"
      "Commands (COMMAND --help for each):\n",
      program);
  for (const Command &command : kCommands) {
    if (*command.synopsis == '\0') {
      std::printf("  %-10s %s\n", command.name, command.summary);
    } else {
      std::printf("  %s %s\n  %-10s %s\n", command.name, command.synopsis, "", command.summary);
    }
  }
  std::printf(
      "\n"
      "  --library PATH  the library to load (default: %s, found next to this program\n"
      "                  in a build tree or by the usual dynamic loader search)\n"
      "\n"
      "Environment: SNMPLUMI_HOME, read when the library loads, is its installation\n"
      "directory (default /usr/local/TELMAR). SNMPLUMI_TRAP_REPORT_IP names the card the\n"
      "trap report reads; this program sets it to 127.0.0.1 unless it is set. net-snmp's\n"
      "SNMPCONFPATH may point at an snmp.conf with timeout, retries and defaultPort (the\n"
      "library adds no port to a UPS address).\n"
      "\n"
      "Exit status: 0 done, 1 failed, 2 wrong arguments, 3 the library or its installation\n"
      "directory is missing.\n",
      SNMPLUMI_SONAME);
}

void PrintCommandHelp(const char *program, const Command &command) {
  std::printf("Usage: %s %s %s\n       %s\n\n%s", program, command.name, command.synopsis,
              command.summary, command.details);
  if (std::strcmp(command.name, "send") == 0) {
    std::printf("\n");
    for (const FrameCommand &frame : Commands()) {
      std::printf("  %s  %-18s %s\n", frame.code, frame.handler, frame.what);
    }
  }
}

const Command *Find(const std::string &name) {
  for (const Command &command : kCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

int Run(int argc, char **argv) {
  std::string library_path = SNMPLUMI_SONAME;
  int at = 1;
  for (; at < argc && argv[at][0] == '-'; ++at) {
    std::string option = argv[at];
    if (option == "--help" || option == "-h") {
      PrintUsage(argv[0]);
      return 0;
    }
    if (option == "--library" && at + 1 < argc) {
      library_path = argv[++at];
    } else if (option == "--exports") {
      break;  // the former spelling of the exports command
    } else {
      UsageError("unknown option " + option);
    }
  }
  std::string name = at < argc ? argv[at++] : "status";
  if (name == "--exports") name = "exports";
  const Command *command = Find(name);
  if (command == nullptr) UsageError("unknown command " + name);
  current = std::string(" ") + command->name;
  std::vector<std::string> arguments(argv + at, argv + argc);
  for (const std::string &argument : arguments) {
    if (argument == "--help" || argument == "-h") {
      PrintCommandHelp(argv[0], *command);
      return 0;
    }
  }
  Library library(library_path, command->needs_installation);
  Args args(std::move(arguments));
  return command->run(library, args);
}

}  // namespace

int Main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    return Run(argc, argv);
  } catch (const Error &error) {
    std::fprintf(stderr, "snmplumi-host%s: %s%s\n", current.c_str(), error.what(),
                 error.status == kExitUsage ? " (see --help)" : "");
    return error.status;
  }
}

}  // namespace host

int main(int argc, char **argv) { return host::Main(argc, argv); }
