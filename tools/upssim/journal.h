// The SET journal: one line per variable of every SET a card received, flushed at once, so that a
// test can tell exactly which orders reached which card and what they were answered.
//
// Line: TIME <tab> CARD <tab> OID <tab> TYPE <tab> VALUE <tab> ANSWER
//   TIME    local time, 2024-05-01T13:45:07.123
//   TYPE    net-snmp letter of the value received (i u t a s o n c, ? for others)
//   VALUE   as the control channel writes values (strings escaped, so never a tab)
//   ANSWER  noError, noSuchName, badValue, readOnly, genErr, tooBig; or silent / dropped /
//           badCommunity for a request that got no answer
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace upssim {

class Journal {
 public:
  Journal() = default;
  Journal(const Journal &) = delete;
  Journal &operator=(const Journal &) = delete;
  ~Journal();

  // Truncates or creates `path`; false with errno set on failure.
  bool Open(const std::string &path);
  void Write(std::string_view card, std::string_view oid, char type, std::string_view value,
             std::string_view answer);

 private:
  std::FILE *file_ = nullptr;
};

}  // namespace upssim
