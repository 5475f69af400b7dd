#include <algorithm>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

bool NoTempFiles(const std::string &dir) {
  return std::none_of(std::filesystem::directory_iterator(dir), {},
                      [](const auto &entry) { return entry.path().extension() == ".TMP"; });
}

class ProfileTest : public HomeTest {
 protected:
  // The value ReadConfigFileEx gives for key of section in data file file.
  std::string Read(const char *section, const char *key, const char *file = "snmp.apc") {
    char value[260];
    std::memset(value, '#', sizeof value);
    ReadConfigFileEx(file, section, key, value);
    EXPECT_EQ(value[251], '#') << "a read fills at most 251 bytes";
    return value;
  }
};

TEST_F(ProfileTest, ReadRules) {
  const std::string a509(509, 'a'), x251(251, 'x'), y250(250, 'y');
  // A content of snmp.apc, and keys of section Snmp with the value a read gives.
  const std::pair<std::string, std::vector<std::pair<const char *, std::string>>> rows[] = {
      {"[snmp] ; settings\nA=lower\n[Other]\nB=2\n[Snmp]\nC=3\n",
       {{"A", "lower"}, {"B", "<default>"}, {"C", "<default>"}}},
      {"  [Snmp]\nA=indented\n[ Snmp ]\nB=blanks\n[Snmpx]\nC=longer\n[Snm]\nD=shorter\n",
       {{"A", "<default>"}, {"B", "<default>"}, {"C", "<default>"}, {"D", "<default>"}}},
      {"[Snmp]\nUPS_IP = 10.0.0.1  \nCRLF=value\r\nTAB=\t\t x\nEMPTY=\nLAST=x y",
       {{"UPS_IP", "10.0.0.1  "}, {"CRLF", "value"}, {"TAB", "x"}, {"EMPTY", ""}, {"LAST", "x y"}}},
      {"[Snmp]\nups_ip=10.0.0.1\nUPS_IP=10.0.0.2\nUPS_IP=10.0.0.3\n",
       {{"UPS_IP", "10.0.0.2"}, {"ups_ip", "10.0.0.1"}, {"UPS_I", "<default>"}}},
      {"[Snmp]\n; note\n# A=hidden\nplain text\nA=1\n[not a header\nB=2\n",
       {{"A", "1"}, {"#", "hidden"}, {"B", "<default>"}}},
      {"[Snmp]\nX=" + a509 + "B=tail\n", {{"B", "tail"}, {"X", a509.substr(0, 249)}}},  // 511 + 6
      {"[Snmp]\nA=" + x251 + "\nB=" + y250 + "\n", {{"A", x251.substr(0, 249)}, {"B", y250}}},
  };
  for (const auto &[content, values] : rows) {
    PutFile(home_.data("snmp.apc"), content);
    for (const auto &[key, expected] : values) {
      EXPECT_EQ(Read("Snmp", key), expected) << key << " in " << content;
    }
  }
}

// Lines other than the key's are copied as formats without arguments.
TEST_F(ProfileTest, WriteRules) {
  // The file before (nullptr: none), section, key and value written, the file after.
  const std::tuple<const char *, const char *, const char *, const char *, const char *> rows[] = {
      {nullptr, "Section", "KEY", "value", "\n[Section]\nKEY=value\n"},
      {"[Snmp]\nA=1\n  A = 2\nB=3\nA=4\n[Other]\nA=5\n", "SNMP", "A", "new",
       "[Snmp]\nA=new\nA=new\nB=3\nA=new\n[Other]\nA=5\n"},
      {"[Snmp]\nA=1\n\n\n[Other]\nB=2\n", "Snmp", "C", "3", "[Snmp]\nA=1\n\n\nC=3\n[Other]\nB=2\n"},
      {"[Snmp]\nA=1\n[Other]\nB=2\n", "Other", "D", "4", "[Snmp]\nA=1\n[Other]\nB=2\nD=4\n"},
      {"[Snmp]\nA=1\n", "Third", "E", "5", "[Snmp]\nA=1\n\n[Third]\nE=5\n"},
      {"[Snmp]\nA=1\n[Snmp]\nB=2\n", "Snmp", "B", "9", "[Snmp]\nA=1\nB=9\n[Snmp]\nB=9\n"},
      {"[Other]\nrate=100%d\npercent=50%%\nname=%s!\ncount=%n.\n[Snmp]\nA=1\n", "Snmp", "A",
       "100%d", "[Other]\nrate=1000\npercent=50%\nname=!\ncount=.\n[Snmp]\nA=100%d\n"},
  };
  const std::string path = home_.data("UPS/w.ini");  // file names may hold subdirectories
  for (const auto &[before, section, key, value, after] : rows) {
    std::filesystem::remove(path);
    if (before != nullptr) PutFile(path, before);
    WriteConfigFileEx("UPS/w.ini", section, key, value);
    EXPECT_EQ(FileText(path), after) << key << " into " << (before ? before : "no file");
    EXPECT_TRUE(NoTempFiles(home_.data()));
  }
}

TEST_F(ProfileTest, Win32CallsCountAsWin32Does) {
  std::string path = home_.data("p.ini");
  PutFile(path, "[S]\nK=abcdef\nN=42abc\nNEG=-5\nTEXT=abc\n");
  // Section, key, default and size given; the result, and the first 12 bytes of the buffer.
  const std::tuple<const char *, const char *, const char *, int, int, std::string> rows[] = {
      {"S", "K", "dflt", 6, 6, std::string("abcdef\0#####", 12)},  // NUL one past the size
      {"S", "X", "dflt", 10, 9, std::string("dflt\0####\0##", 12)},
      {"S", "X", "dflt", 0, 0, std::string(12, '#')},
      {nullptr, "K", "dflt", 8, 7, std::string("dflt\0##\0####", 12)},
  };
  for (const auto &[section, key, fallback, size, result, bytes] : rows) {
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(GetPrivateProfileString(section, key, fallback, buffer, size, path.c_str()), result)
        << key << " size " << size;
    EXPECT_EQ(std::string(buffer, 12), bytes) << key << " size " << size;
  }
  const std::pair<const char *, unsigned> numbers[] = {{"N", 42u}, {"NEG", 0u}, {"MISSING", 7u}};
  for (const auto &[key, value] : numbers) {
    EXPECT_EQ(GetPrivateProfileInt("S", key, 7, path.c_str()), value) << key;
  }
}

TEST_F(ProfileTest, EmptyFileIsDeletedByTheNextCheckedRead) {
  PutFile(home_.data("snmp.apc"), "");
  char value[251];
  ReadConfigFileEx2("snmp.apc", "Snmp", "A", value);
  EXPECT_STREQ(value, "<default>");
  EXPECT_TRUE(FileExists(home_.data("snmp.apc"))) << "the unchecked variant deletes nothing";
  EXPECT_EQ(Read("Snmp", "A"), "<default>");
  EXPECT_FALSE(FileExists(home_.data("snmp.apc")));
}

// A failed write returns 0, leaves the target as it was and no temporary file behind.
TEST_F(ProfileTest, FailedWriteKeepsTheTarget) {
  const std::pair<std::string, std::function<void()>> rows[] = {
      {home_.data("dir.ini"),
       [&] { std::filesystem::create_directories(home_.data("dir.ini/k")); }},
      // The copy is finished, but the target's filesystem takes no file beside it.
      {"/proc/version", [] {}},
      // Only the empty file created before the copy remains.
      {home_.root() + "/outside.ini", [&] { std::filesystem::remove_all(home_.data()); }},
  };
  auto state = [](const std::string &path) {
    return std::filesystem::is_directory(path) ? "a directory" : FileText(path);
  };
  for (const auto &[target, prepare] : rows) {
    prepare();
    auto before = state(target);
    EXPECT_EQ(WritePrivateProfileString("S", "K", "v", target.c_str()), 0) << target;
    EXPECT_EQ(state(target), before) << target;
    EXPECT_TRUE(!FileExists(home_.data()) || NoTempFiles(home_.data())) << target;
  }
}

}  // namespace
}  // namespace snmplumi::testing
