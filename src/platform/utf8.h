// Decoding UTF-8: the one rule for what a well-formed sequence is, used wherever the platform layer
// and the log step through UTF-8 text. Internal to libNOMZUBBase.
#ifndef NOM_PLATFORM_UTF8_H_
#define NOM_PLATFORM_UTF8_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace nomplat {

// Length (1 to 4) of the well-formed UTF-8 sequence that starts at s[i], its code point in
// *codePoint when that is not null; 0 (and *codePoint untouched) when the sequence there is
// malformed: a stray trail byte, a lead byte that cannot start one, a sequence cut short, an
// overlong form, a surrogate or a value beyond U+10FFFF. i must be less than s.size().
size_t Utf8SequenceLength(std::string_view s, size_t i, char32_t* codePoint = nullptr);

// Appends text to *out with each byte that starts no well-formed sequence replaced by U+FFFD
// (EF BF BD); every well-formed character is copied as it is, except that each ASCII byte is
// handed to escapeAscii, when given, to append in its own way.
void AppendValidUtf8(std::string_view text, std::string* out,
                     void (*escapeAscii)(unsigned char c, std::string* out) = nullptr);

}  // namespace nomplat

#endif  // NOM_PLATFORM_UTF8_H_
