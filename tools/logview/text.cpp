#include "text.h"

#include <langinfo.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>

namespace logview {
namespace {

constexpr char kSource[] = "EUC-JP";

bool IsAscii(std::string_view text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

// The bytes of the bad EUC-JP character at the start of text: SS2 (0x8e) leads a half-width
// kana, SS3 (0x8f) a JIS X 0212 kanji, 0xa1..0xfe a JIS X 0208 character. A trail byte is
// always 0xa1..0xfe, so an ASCII byte after a lead is never taken with it.
std::size_t BadCharacterLength(std::string_view text) {
  auto lead = static_cast<unsigned char>(text[0]);
  std::size_t length = lead == 0x8f ? 3 : (lead == 0x8e || lead >= 0xa1) ? 2 : 1;
  std::size_t taken = 1;
  while (taken < length && taken < text.size() && static_cast<unsigned char>(text[taken]) >= 0xa1) {
    ++taken;
  }
  return taken;
}

}  // namespace

Converter::Converter(bool raw) {
  if (raw) return;
  std::setlocale(LC_CTYPE, "");
  std::string codeset = nl_langinfo(CODESET);
  if (codeset.empty() || codeset == "ANSI_X3.4-1968" || codeset == "ASCII") codeset = "UTF-8";
  if (codeset == kSource || codeset == "EUC-JP-MS" || codeset == "eucJP") return;
  cd_ = iconv_open(codeset.c_str(), kSource);
  if (cd_ == reinterpret_cast<iconv_t>(-1)) {
    std::fprintf(stderr, "snmplumi-logview: cannot convert %s to %s; texts are shown as found\n",
                 kSource, codeset.c_str());
    return;
  }
  target_ = codeset;
}

Converter::~Converter() {
  if (cd_ != reinterpret_cast<iconv_t>(-1)) iconv_close(cd_);
}

std::string Converter::Convert(std::string_view text) {
  if (cd_ == reinterpret_cast<iconv_t>(-1) || IsAscii(text)) return std::string(text);
  iconv(cd_, nullptr, nullptr, nullptr, nullptr);
  std::string out;
  char buffer[256];
  auto *in = const_cast<char *>(text.data());
  std::size_t in_left = text.size();
  while (in_left > 0) {
    char *to = buffer;
    std::size_t to_left = sizeof buffer;
    std::size_t result = iconv(cd_, &in, &in_left, &to, &to_left);
    out.append(buffer, static_cast<std::size_t>(to - buffer));
    if (result != static_cast<std::size_t>(-1) || errno == E2BIG) continue;
    // EILSEQ or EINVAL: show one mark for the whole character and go on after it.
    std::size_t skip = BadCharacterLength(std::string_view(in, in_left));
    out += '?';
    in += skip;
    in_left -= skip;
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
  }
  char *to = buffer;  // a stateful target returns to its initial state
  std::size_t to_left = sizeof buffer;
  iconv(cd_, nullptr, nullptr, &to, &to_left);
  out.append(buffer, static_cast<std::size_t>(to - buffer));
  return out;
}

}  // namespace logview
