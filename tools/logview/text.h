// The log texts for the terminal: the library writes its Japanese messages in EUC-JP.
#pragma once

#include <iconv.h>

#include <string>
#include <string_view>

namespace logview {

class Converter {
 public:
  // To the charset of the locale (LC_CTYPE), or UTF-8 when the locale names none beyond ASCII.
  // raw keeps the bytes as they are in the file.
  explicit Converter(bool raw);
  ~Converter();
  Converter(const Converter &) = delete;
  Converter &operator=(const Converter &) = delete;

  // The charset written, or empty when the bytes pass unchanged.
  const std::string &target() const { return target_; }

  // A byte that is not EUC-JP, or a character the target cannot show, becomes '?'; so does a
  // character that the 80-byte message field cut in half.
  std::string Convert(std::string_view text);

 private:
  iconv_t cd_ = reinterpret_cast<iconv_t>(-1);
  std::string target_;
};

}  // namespace logview
