// Host status codes and the one-character error status of a unit response.
#include <array>
#include <cstdint>

#include "snmplumi.h"

namespace snmplumi {
namespace {

struct StatusRow {
  DWORD code;
  const char *message;
  char status;
};

constexpr std::array kStatusRows = {
    StatusRow{UPS_ERROR, "Command Error(UPS_ERROR)", 'F'},
    StatusRow{UPS_E_BAD_PROTCOL, "Command Error(UPS_E_BAD_PROTCOL)", 'F'},
    StatusRow{UPS_E_UNAVAILABLE, "Command Error(UPS_E_UNAVAILABLE)", 'A'},
    StatusRow{UPS_E_INVALID_PARAM, "Command Error(UPS_E_INVALID_PARAM)", 'A'},
    StatusRow{UPS_E_NO_REGISTER, "Command Error(UPS_E_NO_REGISTER)", 'F'},
    StatusRow{UPS_E_NOT_KAVPC, "Command Error(UPS_E_NOT_KAVPC)", 'F'},
    StatusRow{UPS_E_MANAGER_CONNECTED, "Command Error(UPS_E_MANAGER_CONNECTED)", '9'},
    StatusRow{UPSC_E_PROCESS_NOW, "Command Error(UPSC_E_PROCESS_NOW)", '7'},
    StatusRow{UPS_ERROR_ABNORMAL, "Command Error(UPS_ERROR_ABNORMAL)", 'F'},
    StatusRow{UPS_E_NO_SERVER, "Command Error(UPS_E_NO_SERVER)", '7'},
    StatusRow{UPS_E_CANT_ACCESS, "Command Error(UPS_E_CANT_ACCESS)", 'F'},
    StatusRow{UPS_E_CANT_SERVER_ATTACH, "Command Error(UPS_E_CANT_SERVER_ATTACH)", 'F'},
    StatusRow{UPS_E_SERVER_SHUTDOWN_NOW, "Command Error(UPS_E_SERVER_SHUTDOWN_NOW)", 'F'},
    StatusRow{UPS_E_SHUTDOWN_NOW, "Command Error(UPS_E_SHUTDOWN_NOW)", 'F'},
    StatusRow{UPS_E_NO_SHUTDOWN, "Command Error(UPS_E_NO_SHUTDOWN)", 'F'},
    StatusRow{UPS_E_REGISTER_FAIL, "Command Error(UPS_E_REGISTER_FAIL)", 'F'},
    StatusRow{UPS_E_NOT_COMMAND_UPS, "Command Error(UPS_E_NOT_COMMAND_UPS)", 'A'},
};

constexpr StatusRow kUnknownStatus{0, "Command Error(?)", 'F'};

}  // namespace
}  // namespace snmplumi

char SetErs2Status(int mode, DWORD status) {
  if (status == 0) return '0';
  const snmplumi::StatusRow *row = &snmplumi::kUnknownStatus;
  for (const auto &candidate : snmplumi::kStatusRows) {
    if (candidate.code == status) row = &candidate;
  }
  LumiLocalLog(row->message, static_cast<DWORD>(mode));
  return row->status;
}
