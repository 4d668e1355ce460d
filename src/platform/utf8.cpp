// Decoding UTF-8.
#include "platform/utf8.h"

namespace nomplat {

size_t Utf8SequenceLength(std::string_view s, size_t i, char32_t* codePoint) {
  const auto byte = [&s](size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char lead = byte(i);
  if (lead < 0x80) {
    if (codePoint != nullptr) *codePoint = lead;
    return 1;
  }
  size_t length;
  unsigned char low = 0x80, high = 0xBF;  // allowed range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // no overlong form
    if (lead == 0xED) high = 0x9F;  // no surrogate
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;   // no overlong form
    if (lead == 0xF4) high = 0x8F;  // nothing beyond U+10FFFF
  } else {
    return 0;
  }
  if (i + length > s.size()) return 0;
  if (byte(i + 1) < low || byte(i + 1) > high) return 0;
  char32_t value = lead & (0x7F >> length);
  for (size_t k = 1; k < length; ++k) {
    const unsigned char trail = byte(i + k);
    if (trail < 0x80 || trail > 0xBF) return 0;
    value = (value << 6) | (trail & 0x3F);
  }
  if (codePoint != nullptr) *codePoint = value;
  return length;
}

void AppendValidUtf8(std::string_view text, std::string* out,
                     void (*escapeAscii)(unsigned char c, std::string* out)) {
  for (size_t i = 0; i < text.size();) {
    const size_t length = Utf8SequenceLength(text, i);
    if (length == 0) {
      *out += "\xEF\xBF\xBD";
      ++i;
    } else if (length == 1 && escapeAscii != nullptr) {
      escapeAscii(static_cast<unsigned char>(text[i]), out);
      ++i;
    } else {
      out->append(text.data() + i, length);
      i += length;
    }
  }
}

}  // namespace nomplat
