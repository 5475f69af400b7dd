#include "runtime/format_line.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace snmplumi {
namespace {

std::string Render(const std::string &line) {
  char *buffer = nullptr;
  std::size_t size = 0;
  std::FILE *out = open_memstream(&buffer, &size);
  WriteLineAsFormat(out, line.c_str());
  std::fclose(out);
  std::string result(buffer, size);
  std::free(buffer);
  return result;
}

TEST(FormatLineTest, PlainTextIsCopied) {
  EXPECT_EQ(Render("UPS_IP=10.0.0.1\n"), "UPS_IP=10.0.0.1\n");
  EXPECT_EQ(Render(""), "");
}

TEST(FormatLineTest, NumericConversionsPrintZero) {
  EXPECT_EQ(Render("100%d\n"), "1000\n");
  EXPECT_EQ(Render("[%5d|%-3i|%05u|%+d|% d]"), "[    0|0  |00000|+0| 0]");
  EXPECT_EQ(Render("%x %X %#o %lld %hhu %zd %jd"), "0 0 0 0 0 0 0");
  EXPECT_EQ(Render("%f %.2e %g %5.1F"), "0.000000 0.00e+00 0   0.0");
  EXPECT_EQ(Render("%p"), "(nil)");
  EXPECT_EQ(Render("%b"), "0");
}

TEST(FormatLineTest, TextConversionsPrintNothingButTheirWidth) {
  EXPECT_EQ(Render("name=%s!"), "name=!");
  EXPECT_EQ(Render("[%5s][%-3c][%c][%ls][%m]"), "[     ][   ][][][]");
}

TEST(FormatLineTest, PercentPercentAndCountConversion) {
  EXPECT_EQ(Render("50%% off"), "50% off");
  EXPECT_EQ(Render("count=%n."), "count=.");
  EXPECT_EQ(Render("%hhn%lln|"), "|");
}

TEST(FormatLineTest, StarsAndPositionsTakeNoArgument) {
  EXPECT_EQ(Render("%*d|%.*f|%1$s|%2$*3$d"), "0|0||0");
}

TEST(FormatLineTest, WhatIsNoConversionStaysAsWritten) {
  EXPECT_EQ(Render("a%yb"), "a%yb");
  EXPECT_EQ(Render("100%\n"), "100%\n");
  EXPECT_EQ(Render("ends with %"), "ends with ");
  EXPECT_EQ(Render("ends with %-5"), "ends with %-5");
}

TEST(FormatLineTest, HugeWidthIsBounded) { EXPECT_EQ(Render("%999999999999d").size(), 4096u); }

}  // namespace
}  // namespace snmplumi
