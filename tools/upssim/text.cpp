#include "text.h"

namespace upssim {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Escape(std::string_view bytes) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size());
  for (char c : bytes) {
    auto byte = static_cast<unsigned char>(c);
    if (c == '\\') {
      text += "\\\\";
    } else if (c == '\n') {
      text += "\\n";
    } else if (c == '\r') {
      text += "\\r";
    } else if (c == '\t') {
      text += "\\t";
    } else if (byte < 0x20 || byte > 0x7e) {
      text += "\\x";
      text += kHex[byte >> 4];
      text += kHex[byte & 0xf];
    } else {
      text += c;
    }
  }
  return text;
}

std::optional<std::string> Unescape(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
      continue;
    }
    if (++i == text.size()) return std::nullopt;
    switch (text[i]) {
      case '\\':
        bytes += '\\';
        break;
      case 'n':
        bytes += '\n';
        break;
      case 'r':
        bytes += '\r';
        break;
      case 't':
        bytes += '\t';
        break;
      case 'x': {
        if (i + 2 >= text.size()) return std::nullopt;
        int high = HexDigit(text[i + 1]);
        int low = HexDigit(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes += static_cast<char>(high * 16 + low);
        i += 2;
        break;
      }
      default:
        return std::nullopt;
    }
  }
  return bytes;
}

std::string_view NextWord(std::string_view &rest) {
  std::size_t start = rest.find_first_not_of(" \t");
  if (start == std::string_view::npos) {
    rest = {};
    return {};
  }
  rest.remove_prefix(start);
  std::size_t end = rest.find_first_of(" \t");
  std::string_view word = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
  return word;
}

}  // namespace upssim
