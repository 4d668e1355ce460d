#include "NOMZUBVGXTranslator/well_formed.h"

#include <expat.h>
#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <set>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace nomzub {
namespace {

// What is wrong with a text and where: a byte offset into the text, or no place at all.
struct Problem {
  std::string what;  // empty: nothing is wrong
  size_t offset = 0;
  bool placed = true;
  explicit operator bool() const { return !what.empty(); }
};

Problem At(std::string what, size_t offset) { return Problem{std::move(what), offset, true}; }
Problem Unplaced(std::string what) { return Problem{std::move(what), 0, false}; }

// "what at line L, column C": how refusals are worded.
std::string WithPosition(const std::string& text, const Problem& problem) {
  if (!problem || !problem.placed) return problem.what;
  const TextPosition at = PositionOf(text, problem.offset);
  return problem.what + " at line " + std::to_string(at.line) + ", column " +
         std::to_string(at.column);
}

// "what at offset N": how the earlier checks worded their refusals.
std::string WithOffset(const Problem& problem) {
  if (!problem || !problem.placed) return problem.what;
  return problem.what + " at offset " + std::to_string(problem.offset);
}

std::string Hex(uint32_t value, int digits) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string out;
  do {
    out.insert(out.begin(), kDigits[value & 0xF]);
    value >>= 4;
  } while (value != 0 || static_cast<int>(out.size()) < digits);
  return out;
}

// "U+0001", "U+1F600".
std::string CodePointName(char32_t c) { return "U+" + Hex(c, 4); }

bool StartsWith(std::string_view s, size_t at, std::string_view prefix) {
  return at <= s.size() && s.size() - at >= prefix.size() &&
         s.compare(at, prefix.size(), prefix) == 0;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
    const char y = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] - 'A' + 'a') : b[i];
    if (x != y) return false;
  }
  return true;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool IsAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// ---------------------------------------------------------------------------------------------
// Characters

// XML's Char production.
bool IsXmlChar(char32_t c) {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
         (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

bool IsNameStartChar(char32_t c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == ':' || c == '_' ||
         (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
         (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
         (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
         (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
         (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
         (c >= 0x10000 && c <= 0xEFFFF);
}

bool IsNameChar(char32_t c) {
  return IsNameStartChar(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
         (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// Decodes the UTF-8 sequence that starts at s[i] (i < s.size()). Returns its length and stores
// its code point, or returns 0 and stores why it is malformed.
size_t DecodeUtf8(std::string_view s, size_t i, char32_t* c, const char** why) {
  const unsigned char lead = static_cast<unsigned char>(s[i]);
  if (lead < 0x80) {
    *c = lead;
    return 1;
  }
  if (lead < 0xC0) {
    *why = "unexpected continuation byte";
    return 0;
  }
  if (lead < 0xC2) {
    *why = "overlong form";
    return 0;
  }
  if (lead >= 0xF8) {
    *why = "byte that never occurs in UTF-8";
    return 0;
  }
  const size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  char32_t value = lead & (length == 2 ? 0x1F : length == 3 ? 0x0F : 0x07);
  for (size_t k = 1; k < length; ++k) {
    if (i + k >= s.size() || (static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) {
      *why = "truncated sequence";
      return 0;
    }
    value = (value << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
  }
  if ((length == 3 && value < 0x800) || (length == 4 && value < 0x10000)) {
    *why = "overlong form";
    return 0;
  }
  if (value >= 0xD800 && value <= 0xDFFF) {
    *why = "encoded surrogate";
    return 0;
  }
  if (value > 0x10FFFF) {
    *why = "value beyond U+10FFFF";
    return 0;
  }
  *c = value;
  return length;
}

// The refusal of the malformed UTF-8 sequence at s[i], naming its bytes.
Problem Utf8Problem(std::string_view s, size_t i, const char* why) {
  std::string bytes = Hex(static_cast<unsigned char>(s[i]), 2);
  // The lead byte and the continuation bytes that follow it (at most three).
  size_t count = 1;
  for (size_t k = i + 1;
       k < s.size() && k < i + 4 && (static_cast<unsigned char>(s[i]) & 0xC0) == 0xC0 &&
       (static_cast<unsigned char>(s[k]) & 0xC0) == 0x80;
       ++k, ++count) {
    bytes += " " + Hex(static_cast<unsigned char>(s[k]), 2);
  }
  return At(
      std::string("invalid UTF-8: ") + why + (count == 1 ? " (byte " : " (bytes ") + bytes + ")",
      i);
}

Problem CharacterProblem(char32_t c, size_t offset) {
  if (c < 0x20) {
    return At("control character " + CodePointName(c) + " is not allowed in XML", offset);
  }
  return At("character " + CodePointName(c) + " is not allowed in XML", offset);
}

// What is wrong with the character at s[i] (malformed UTF-8, or no XML character); nothing when
// it is a character XML allows, or i is the end.
Problem CharacterProblemAt(std::string_view s, size_t i) {
  if (i >= s.size()) return Problem();
  char32_t c = 0;
  const char* why = "";
  if (DecodeUtf8(s, i, &c, &why) == 0) return Utf8Problem(s, i, why);
  return IsXmlChar(c) ? Problem() : CharacterProblem(c, i);
}

// A character for a message: itself, or its code point when it is blank or invisible.
std::string Shown(std::string_view s, size_t i) {
  char32_t c = 0;
  const char* why = "";
  const size_t length = DecodeUtf8(s, i, &c, &why);
  if (length == 0) return "byte 0x" + Hex(static_cast<unsigned char>(s[i]), 2);
  if (c <= 0x20 || c == 0x7F) return CodePointName(c);
  return "'" + std::string(s.substr(i, length)) + "'";
}

// Bytes that end a fast scan in a context: markup delimiters of the context, every control byte
// and every byte of a multi-byte character (checked one character at a time).
struct ByteSet {
  bool has[256];
};

constexpr ByteSet StopsAt(const char* delimiters) {
  ByteSet set{};
  for (int c = 0; c < 256; ++c)
    set.has[c] = c >= 0x80 || (c < 0x20 && c != 9 && c != 10 && c != 13);
  for (const char* p = delimiters; *p != '\0'; ++p) set.has[static_cast<unsigned char>(*p)] = true;
  return set;
}

constexpr ByteSet kTextStops = StopsAt("<&]");
constexpr ByteSet kValueStops = StopsAt("<&\"'");
constexpr ByteSet kCommentStops = StopsAt("-");
constexpr ByteSet kPiStops = StopsAt("?");
constexpr ByteSet kCdataStops = StopsAt("]");
constexpr ByteSet kLiteralStops = StopsAt("\"'");

constexpr ByteSet AsciiNameChars(bool start) {
  ByteSet set{};
  for (int c = 0; c < 128; ++c) {
    set.has[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == ':' || c == '_' ||
                 (!start && ((c >= '0' && c <= '9') || c == '-' || c == '.'));
  }
  return set;
}

constexpr ByteSet kAsciiNameStart = AsciiNameChars(true);
constexpr ByteSet kAsciiNameChar = AsciiNameChars(false);

bool IsPredefinedEntity(std::string_view name) {
  return name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
}

// "1." followed by digits.
bool IsXmlVersion(std::string_view v) {
  if (v.size() < 3 || v[0] != '1' || v[1] != '.') return false;
  return std::all_of(v.begin() + 2, v.end(), IsDigit);
}

// [A-Za-z] ([A-Za-z0-9._] | '-')*
bool IsEncodingName(std::string_view name) {
  if (name.empty() || !IsAsciiLetter(name[0])) return false;
  return std::all_of(name.begin() + 1, name.end(), [](char c) {
    return IsAsciiLetter(c) || IsDigit(c) || c == '.' || c == '_' || c == '-';
  });
}

// Reads the character reference at s[at] ("&#" digits ";" or "&#x" hex digits ";"): its value
// (capped at 0x110000) and the offset after its ';'. False when it is malformed.
bool ReadCharacterReference(std::string_view s, size_t at, uint32_t* value, size_t* end) {
  size_t j = at + 2;
  const bool hex = j < s.size() && s[j] == 'x';
  if (hex) ++j;
  const size_t digits = j;
  *value = 0;
  while (j < s.size() && (hex ? IsHexDigit(s[j]) : IsDigit(s[j]))) {
    const char d = s[j];
    const uint32_t digit = IsDigit(d) ? d - '0' : (d | 0x20) - 'a' + 10;
    *value = std::min<uint32_t>(*value * (hex ? 16 : 10) + digit, 0x110000);
    ++j;
  }
  if (j == digits || j >= s.size() || s[j] != ';') return false;
  *end = j + 1;
  return true;
}

// The refusal of a character reference (s[at] to end) to something that is no XML character.
Problem ReferenceToNonCharacter(std::string_view s, size_t at, size_t end, uint32_t value) {
  std::string reference(s.substr(at, end - at));
  if (reference.size() > 20) reference = reference.substr(0, 16) + "...;";
  const std::string names = value > 0x10FFFF ? "a value beyond U+10FFFF" : CodePointName(value);
  return At(
      "character reference '" + reference + "' names " + names + ", which is not an XML character",
      at);
}

// ---------------------------------------------------------------------------------------------
// The scanner: one pass over a document without an internal DTD subset, by XML's grammar.

class Scanner {
 public:
  explicit Scanner(std::string_view s) : s_(s), n_(s.size()) {
    // Room for what ordinary documents need, so that judging one allocates twice.
    open_.reserve(32);
    attributes_.reserve(16);
  }

  // Judges the document. Stops without a problem at an internal DTD subset, with
  // *internal_subset set (the caller has the document judged by a full parser).
  Problem Run(bool* internal_subset) {
    *internal_subset = false;
    if (StartsWith(s_, 0, "\xEF\xBB\xBF")) i_ = 3;
    start_ = i_;
    if (StartsWith(s_, i_, "<?xml") && IsSpace(Byte(i_ + 5)) && !XmlDeclaration()) {
      return problem_;
    }
    bool root_done = false;
    bool doctype_seen = false;
    for (;;) {
      SkipSpace();
      if (i_ >= n_) {
        if (!root_done) Fail(At("no document element", i_));
        break;
      }
      if (s_[i_] != '<') {
        if (Problem p = CharacterProblemAt(s_, i_)) {
          Fail(std::move(p));
        } else {
          Fail(At("text outside the document element", i_));
        }
        break;
      }
      const unsigned char next = Byte(i_ + 1);
      if (next == '?') {
        if (!Pi()) break;
      } else if (StartsWith(s_, i_, "<!--")) {
        if (!Comment()) break;
      } else if (StartsWith(s_, i_, "<!DOCTYPE")) {
        if (root_done) {
          Fail(At("document type declaration after the document element", i_));
          break;
        }
        if (doctype_seen) {
          Fail(At("second document type declaration", i_));
          break;
        }
        doctype_seen = true;
        if (!Doctype(internal_subset) || *internal_subset) break;
      } else if (StartsWith(s_, i_, "<![CDATA[")) {
        Fail(At("CDATA section outside the document element", i_));
        break;
      } else if (next == '!') {
        Fail(At("'<!' starts no comment or document type declaration", i_));
        break;
      } else if (next == '/') {
        Fail(At("end tag outside the document element", i_));
        break;
      } else if (root_done) {
        Fail(At("more than one document element", i_));
        break;
      } else {
        if (!Element()) break;
        root_done = true;
      }
    }
    return problem_;
  }

 private:
  struct Tag {
    size_t name;    // offset of the name
    size_t length;  // of the name
    size_t at;      // offset of the '<'
  };

  unsigned char Byte(size_t i) const { return i < n_ ? static_cast<unsigned char>(s_[i]) : 0; }
  std::string Text(size_t at, size_t length) const { return std::string(s_.substr(at, length)); }

  bool Fail(Problem problem) {
    problem_ = std::move(problem);
    return false;
  }

  // What stands at i where it does not belong, or the end of the document.
  Problem Unexpected(size_t i, const std::string& where) const {
    if (i >= n_) return At("the document ends " + where, i);
    if (Problem p = CharacterProblemAt(s_, i)) return p;
    return At("unexpected " + Shown(s_, i) + " " + where, i);
  }

  bool SkipSpace() {
    const size_t from = i_;
    while (i_ < n_ && IsSpace(static_cast<unsigned char>(s_[i_]))) ++i_;
    return i_ != from;
  }

  // The end of the Name that starts at i (i itself when none does).
  size_t NameEnd(size_t i) const {
    size_t j = i;
    while (j < n_) {
      const unsigned char b = static_cast<unsigned char>(s_[j]);
      if (b < 0x80) {
        if (!(j == i ? kAsciiNameStart : kAsciiNameChar).has[b]) break;
        ++j;
        continue;
      }
      char32_t c = 0;
      const char* why = "";
      const size_t length = DecodeUtf8(s_, j, &c, &why);
      if (length == 0 || !(j == i ? IsNameStartChar(c) : IsNameChar(c))) break;
      j += length;
    }
    return j;
  }

  // Takes the character at i_ (one that stopped a fast scan) when XML allows it.
  bool TakeCharacter() {
    const unsigned char b = static_cast<unsigned char>(s_[i_]);
    if (b < 0x80) {
      if (b < 0x20 && b != 9 && b != 10 && b != 13) return Fail(CharacterProblem(b, i_));
      ++i_;
      return true;
    }
    char32_t c = 0;
    const char* why = "";
    const size_t length = DecodeUtf8(s_, i_, &c, &why);
    if (length == 0) return Fail(Utf8Problem(s_, i_, why));
    if (!IsXmlChar(c)) return Fail(CharacterProblem(c, i_));
    i_ += length;
    return true;
  }

  // Advances i_ to the next delimiter of stops (or the end), taking the characters on the way.
  bool ScanTo(const ByteSet& stops) {
    for (;;) {
      while (i_ < n_ && !stops.has[static_cast<unsigned char>(s_[i_])]) ++i_;
      if (i_ >= n_) return true;
      const unsigned char b = static_cast<unsigned char>(s_[i_]);
      if (b >= 0x20 && b < 0x80) return true;
      if (!TakeCharacter()) return false;
    }
  }

  // '<?xml' S VersionInfo EncodingDecl? SDDecl? S? '?>' at i_.
  bool XmlDeclaration() {
    i_ += 5;
    SkipSpace();
    if (!StartsWith(s_, i_, "version")) {
      return Fail(At("the XML declaration does not start with the version", i_));
    }
    i_ += 7;
    std::string_view value;
    size_t value_at = 0;
    if (!DeclarationValue("version", &value, &value_at)) return false;
    if (!IsXmlVersion(value)) {
      return Fail(At("unsupported XML version '" + std::string(value) + "'", value_at));
    }
    bool space = SkipSpace();
    if (space && StartsWith(s_, i_, "encoding")) {
      i_ += 8;
      if (!DeclarationValue("encoding", &value, &value_at)) return false;
      if (!IsEncodingName(value)) {
        return Fail(At("malformed encoding name '" + std::string(value) + "'", value_at));
      }
      space = SkipSpace();
    }
    if (space && StartsWith(s_, i_, "standalone")) {
      i_ += 10;
      if (!DeclarationValue("standalone", &value, &value_at)) return false;
      if (value != "yes" && value != "no") {
        return Fail(
            At("standalone must be 'yes' or 'no', not '" + std::string(value) + "'", value_at));
      }
      SkipSpace();
    }
    if (!StartsWith(s_, i_, "?>")) return Fail(Unexpected(i_, "in the XML declaration"));
    i_ += 2;
    return true;
  }

  // Eq followed by a quoted value, after the pseudo-attribute name of the XML declaration.
  bool DeclarationValue(const char* name, std::string_view* value, size_t* value_at) {
    SkipSpace();
    if (Byte(i_) != '=') {
      return Fail(Unexpected(i_, std::string("after '") + name + "' in the XML declaration"));
    }
    ++i_;
    SkipSpace();
    const unsigned char quote = Byte(i_);
    if (quote != '"' && quote != '\'') {
      return Fail(Unexpected(i_, std::string("instead of the quoted ") + name));
    }
    *value_at = ++i_;
    const size_t end = s_.find(static_cast<char>(quote), i_);
    const size_t line = s_.find_first_of("\n\r<>?", i_);
    if (end == std::string_view::npos || (line != std::string_view::npos && line < end)) {
      return Fail(At(std::string("unterminated ") + name + " in the XML declaration", i_ - 1));
    }
    *value = s_.substr(i_, end - i_);
    i_ = end + 1;
    return true;
  }

  // '<!DOCTYPE' S Name (S ExternalID)? S? ('[' ...)? '>' at i_. An internal subset is left to
  // the full parser.
  bool Doctype(bool* internal_subset) {
    const size_t at = i_;
    i_ += 9;
    if (!SkipSpace()) return Fail(Unexpected(i_, "after '<!DOCTYPE'"));
    const size_t name_end = NameEnd(i_);
    if (name_end == i_) return Fail(Unexpected(i_, "instead of the document type name"));
    i_ = name_end;
    bool space = SkipSpace();
    if (space && (StartsWith(s_, i_, "SYSTEM") || StartsWith(s_, i_, "PUBLIC"))) {
      const bool is_public = s_[i_] == 'P';
      i_ += 6;
      if (is_public && !Literal(true)) return false;
      if (!Literal(false)) return false;
      SkipSpace();
    }
    if (Byte(i_) == '[') {
      *internal_subset = true;
      return true;
    }
    if (Byte(i_) != '>') {
      return Fail(i_ >= n_ ? At("the document ends inside the document type declaration", at)
                           : Unexpected(i_, "in the document type declaration"));
    }
    ++i_;
    return true;
  }

  // S followed by a quoted system or public identifier.
  bool Literal(bool is_public) {
    const char* what = is_public ? "public identifier" : "system identifier";
    if (!SkipSpace()) return Fail(Unexpected(i_, std::string("before the ") + what));
    const unsigned char quote = Byte(i_);
    if (quote != '"' && quote != '\'') {
      return Fail(Unexpected(i_, std::string("instead of the quoted ") + what));
    }
    const size_t at = i_++;
    for (;;) {
      if (!ScanTo(kLiteralStops)) return false;
      if (i_ >= n_) {
        return Fail(At(std::string("the document ends inside the ") + what, at));
      }
      const unsigned char c = static_cast<unsigned char>(s_[i_]);
      if (c == quote) break;
      ++i_;
    }
    if (is_public) {
      static const char kPubidPunctuation[] = " \r\n-'()+,./:=?;!*#@$_%";
      for (size_t k = at + 1; k < i_; ++k) {
        const char c = s_[k];
        if (!IsAsciiLetter(c) && !IsDigit(c) && std::strchr(kPubidPunctuation, c) == nullptr) {
          return Fail(At("unexpected " + Shown(s_, k) + " in the public identifier", k));
        }
      }
    }
    ++i_;
    return true;
  }

  // '<?' PITarget (S chars)? '?>' at i_.
  bool Pi() {
    const size_t at = i_;
    i_ += 2;
    const size_t target_end = NameEnd(i_);
    if (target_end == i_) return Fail(Unexpected(i_, "after '<?'"));
    const std::string target = Text(i_, target_end - i_);
    if (EqualsIgnoringCase(target, "xml")) {
      if (at == start_ && target == "xml") return Fail(At("malformed XML declaration", at));
      return Fail(At(target == "xml"
                         ? std::string("XML declaration not at the start of the document")
                         : "processing instruction target '" + target + "' is reserved",
                     at));
    }
    i_ = target_end;
    if (StartsWith(s_, i_, "?>")) {
      i_ += 2;
      return true;
    }
    if (!SkipSpace()) {
      return Fail(Unexpected(i_, "after the processing instruction target '" + target + "'"));
    }
    for (;;) {
      if (!ScanTo(kPiStops)) return false;
      if (i_ >= n_) return Fail(At("the document ends inside a processing instruction", at));
      if (Byte(i_ + 1) == '>') {
        i_ += 2;
        return true;
      }
      ++i_;
    }
  }

  // '<!--' ... '-->' at i_, without "--" inside.
  bool Comment() {
    const size_t at = i_;
    i_ += 4;
    for (;;) {
      if (!ScanTo(kCommentStops)) return false;
      if (i_ >= n_) return Fail(At("the document ends inside a comment", at));
      if (Byte(i_ + 1) != '-') {
        ++i_;
      } else if (Byte(i_ + 2) == '>') {
        i_ += 3;
        return true;
      } else {
        return Fail(At("'--' inside a comment", i_));
      }
    }
  }

  // '<![CDATA[' ... ']]>' at i_.
  bool Cdata() {
    const size_t at = i_;
    i_ += 9;
    for (;;) {
      if (!ScanTo(kCdataStops)) return false;
      if (i_ >= n_) return Fail(At("the document ends inside a CDATA section", at));
      if (StartsWith(s_, i_, "]]>")) {
        i_ += 3;
        return true;
      }
      ++i_;
    }
  }

  // A character or entity reference at i_ ('&'). Without a DTD only the predefined entities are
  // declared.
  bool Reference() {
    const size_t at = i_;
    if (Byte(i_ + 1) == '#') {
      uint32_t value = 0;
      size_t end = 0;
      if (!ReadCharacterReference(s_, at, &value, &end)) {
        return Fail(At("malformed character reference", at));
      }
      i_ = end;
      if (!IsXmlChar(value)) return Fail(ReferenceToNonCharacter(s_, at, end, value));
      return true;
    }
    const size_t name_end = NameEnd(i_ + 1);
    if (name_end == i_ + 1) return Fail(At("'&' starts no reference", at));
    const std::string_view name = s_.substr(i_ + 1, name_end - i_ - 1);
    if (Byte(name_end) != ';') {
      return Fail(At("entity reference '&" + std::string(name) + "' lacks its ';'", at));
    }
    i_ = name_end + 1;
    if (!IsPredefinedEntity(name)) {
      return Fail(At("reference to undeclared entity '" + std::string(name) + "'", at));
    }
    return true;
  }

  // A start tag at i_: pushed on the open tags unless it is empty (*empty).
  bool StartTag(bool* empty) {
    const size_t at = i_;
    const size_t name_end = NameEnd(i_ + 1);
    if (name_end == i_ + 1) return Fail(Unexpected(i_ + 1, "after '<'"));
    const Tag tag{i_ + 1, name_end - i_ - 1, at};
    // Built only for a message: most tags need none.
    const auto where = [&] { return "in the start tag of '" + Text(tag.name, tag.length) + "'"; };
    i_ = name_end;
    attributes_.clear();
    if (!attribute_set_.empty()) attribute_set_.clear();
    for (;;) {
      const bool space = SkipSpace();
      const unsigned char b = Byte(i_);
      if (i_ < n_ && b == '>') {
        ++i_;
        *empty = false;
        open_.push_back(tag);
        return true;
      }
      if (i_ < n_ && b == '/') {
        if (Byte(i_ + 1) != '>') return Fail(Unexpected(i_ + 1, "after '/' " + where()));
        i_ += 2;
        *empty = true;
        return true;
      }
      const size_t name = i_;
      const size_t attribute_end = NameEnd(i_);
      if (attribute_end == i_) return Fail(Unexpected(i_, where()));
      const std::string_view attribute = s_.substr(name, attribute_end - name);
      if (!space) {
        return Fail(
            At("no space before attribute '" + std::string(attribute) + "' " + where(), name));
      }
      if (IsRepeated(attribute)) {
        return Fail(At("attribute '" + std::string(attribute) + "' given twice " + where(), name));
      }
      i_ = attribute_end;
      SkipSpace();
      if (Byte(i_) != '=' || i_ >= n_) {
        return Fail(i_ >= n_ ? At("the document ends " + where(), at)
                             : At("attribute '" + std::string(attribute) + "' has no value", name));
      }
      ++i_;
      SkipSpace();
      const unsigned char quote = Byte(i_);
      if (i_ >= n_ || (quote != '"' && quote != '\'')) {
        return Fail(
            i_ >= n_
                ? At("the document ends " + where(), at)
                : At("the value of attribute '" + std::string(attribute) + "' is not quoted", i_));
      }
      ++i_;
      if (!AttributeValue(quote, attribute, name)) return false;
    }
  }

  // The rest of an attribute value after its opening quote.
  bool AttributeValue(unsigned char quote, std::string_view attribute, size_t name) {
    for (;;) {
      if (!ScanTo(kValueStops)) return false;
      if (i_ >= n_) {
        return Fail(
            At("the document ends inside the value of attribute '" + std::string(attribute) + "'",
               name));
      }
      const unsigned char c = static_cast<unsigned char>(s_[i_]);
      if (c == quote) {
        ++i_;
        return true;
      }
      if (c == '<') {
        return Fail(At("'<' in the value of attribute '" + std::string(attribute) + "'", i_));
      }
      if (c == '&') {
        if (!Reference()) return false;
      } else {
        ++i_;  // the other quote
      }
    }
  }

  // Whether the start tag being read already has this attribute (recorded when not).
  bool IsRepeated(std::string_view attribute) {
    constexpr size_t kLinear = 16;  // beyond this, a hash set
    if (attributes_.size() < kLinear) {
      for (std::string_view seen : attributes_) {
        if (seen == attribute) return true;
      }
    } else {
      if (attribute_set_.empty()) attribute_set_.insert(attributes_.begin(), attributes_.end());
      if (!attribute_set_.insert(attribute).second) return true;
    }
    attributes_.push_back(attribute);
    return false;
  }

  // '</' Name S? '>' at i_, matching the innermost open tag.
  bool EndTag() {
    const size_t at = i_;
    const size_t name_end = NameEnd(i_ + 2);
    if (name_end == i_ + 2) return Fail(Unexpected(i_ + 2, "after '</'"));
    const std::string_view name = s_.substr(i_ + 2, name_end - i_ - 2);
    i_ = name_end;
    SkipSpace();
    if (i_ >= n_ || s_[i_] != '>') {
      return Fail(Unexpected(i_, "in the end tag of '" + std::string(name) + "'"));
    }
    ++i_;
    const Tag& open = open_.back();
    if (name != s_.substr(open.name, open.length)) {
      return Fail(At("end tag '" + std::string(name) + "' does not match start tag '" +
                         Text(open.name, open.length) + "'",
                     at));
    }
    open_.pop_back();
    return true;
  }

  // The document element at i_, with all its content, without recursion.
  bool Element() {
    open_.clear();
    bool empty = false;
    if (!StartTag(&empty)) return false;
    while (!open_.empty()) {
      while (i_ < n_ && !kTextStops.has[static_cast<unsigned char>(s_[i_])]) ++i_;
      if (i_ >= n_) {
        const Tag& open = open_.back();
        return Fail(At("element '" + Text(open.name, open.length) + "' is not closed", open.at));
      }
      const unsigned char b = static_cast<unsigned char>(s_[i_]);
      if (b == '<') {
        const unsigned char next = Byte(i_ + 1);
        bool ok = true;
        if (next == '/') {
          ok = EndTag();
        } else if (next == '?') {
          ok = Pi();
        } else if (StartsWith(s_, i_, "<!--")) {
          ok = Comment();
        } else if (StartsWith(s_, i_, "<![CDATA[")) {
          ok = Cdata();
        } else if (StartsWith(s_, i_, "<!DOCTYPE")) {
          ok = Fail(At("document type declaration inside an element", i_));
        } else if (next == '!') {
          ok = Fail(At("'<!' starts no comment or CDATA section", i_));
        } else {
          ok = StartTag(&empty);
        }
        if (!ok) return false;
      } else if (b == '&') {
        if (!Reference()) return false;
      } else if (b == ']') {
        if (StartsWith(s_, i_, "]]>")) return Fail(At("']]>' in text", i_));
        ++i_;
      } else if (!TakeCharacter()) {
        return false;
      }
    }
    return true;
  }

  std::string_view s_;
  size_t n_;
  size_t i_ = 0;
  size_t start_ = 0;  // after a byte-order mark
  Problem problem_;
  std::vector<Tag> open_;
  std::vector<std::string_view> attributes_;
  std::unordered_set<std::string_view> attribute_set_;
};

// ---------------------------------------------------------------------------------------------
// Documents with an internal DTD subset: expat judges them, reading the subset's declarations.

// The name (a run of name characters) at i, for messages.
std::string NameAt(std::string_view s, size_t i) {
  size_t j = i;
  while (j < s.size() && (static_cast<unsigned char>(s[j]) >= 0x80 ||
                          kAsciiNameChar.has[static_cast<unsigned char>(s[j])])) {
    ++j;
  }
  return std::string(s.substr(i, std::min<size_t>(j - i, 64)));
}

Problem ExpatProblem(const std::string& text) {
  XML_Parser parser = XML_ParserCreate("UTF-8");  // the text is UTF-8, whatever it declares
  if (parser == nullptr) throw std::bad_alloc();
  XML_Status status = XML_STATUS_OK;
  constexpr size_t kPiece = size_t{1} << 30;  // XML_Parse takes an int length
  size_t done = 0;
  do {
    const size_t piece = std::min(kPiece, text.size() - done);
    status =
        XML_Parse(parser, text.data() + done, static_cast<int>(piece), done + piece == text.size());
    done += piece;
  } while (status == XML_STATUS_OK && done < text.size());
  Problem problem;
  if (status != XML_STATUS_OK) {
    const XML_Error code = XML_GetErrorCode(parser);
    const XML_Index index = XML_GetCurrentByteIndex(parser);
    const size_t at = index < 0 ? text.size() : std::min<size_t>(index, text.size());
    const std::string_view s(text);
    switch (code) {
      case XML_ERROR_NO_MEMORY:
        XML_ParserFree(parser);
        throw std::bad_alloc();
      case XML_ERROR_INVALID_TOKEN:
      case XML_ERROR_PARTIAL_CHAR:
        if ((problem = CharacterProblemAt(s, at))) break;
        if (StartsWith(s, at, "]]>")) {
          problem = At("']]>' in text", at);
        } else if (StartsWith(s, at, "--")) {
          problem = At("'--' inside a comment", at);
        } else {
          problem = At(XML_ErrorString(code), at);
        }
        break;
      case XML_ERROR_BAD_CHAR_REF: {
        uint32_t value = 0;
        size_t end = 0;
        problem = StartsWith(s, at, "&#") && ReadCharacterReference(s, at, &value, &end)
                      ? ReferenceToNonCharacter(s, at, end, value)
                      : At(XML_ErrorString(code), at);
        break;
      }
      case XML_ERROR_ASYNC_ENTITY:
        problem =
            StartsWith(s, at, "&")
                ? At("entity '" + NameAt(s, at + 1) + "' does not expand to balanced markup", at)
                : At("an entity does not expand to balanced markup", at);
        break;
      case XML_ERROR_RECURSIVE_ENTITY_REF:
        problem = StartsWith(s, at, "&")
                      ? At("entity '" + NameAt(s, at + 1) + "' refers to itself", at)
                      : At("an entity refers to itself", at);
        break;
      case XML_ERROR_UNDEFINED_ENTITY:
        problem = At("reference to undeclared entity '" + NameAt(s, at + 1) + "'", at);
        break;
      case XML_ERROR_TAG_MISMATCH:
        problem = At("end tag '" + NameAt(s, at) + "' does not match its start tag", at);
        break;
      case XML_ERROR_DUPLICATE_ATTRIBUTE:
        problem = At("attribute '" + NameAt(s, at) + "' given twice", at);
        break;
      case XML_ERROR_JUNK_AFTER_DOC_ELEMENT: {
        const bool element = StartsWith(s, at, "<") && at + 1 < s.size() &&
                             kAsciiNameStart.has[static_cast<unsigned char>(s[at + 1])];
        problem = At(
            element ? "more than one document element" : "text outside the document element", at);
        break;
      }
      default:
        problem = At(XML_ErrorString(code), at);
        break;
    }
  }
  XML_ParserFree(parser);
  return problem;
}

// What is wrong with a UTF-8 text by XML's rules; nothing when it is well-formed.
Problem Judge(const std::string& text) {
  bool internal_subset = false;
  Scanner scanner(text);
  Problem problem = scanner.Run(&internal_subset);
  if (!problem && internal_subset) problem = ExpatProblem(text);
  return problem;
}

// ---------------------------------------------------------------------------------------------
// Encodings

// The encoding named by the XML declaration that starts at `from`, and the offset of the name;
// false when there is no declaration or it names none.
bool DeclaredEncoding(std::string_view s, size_t from, std::string* name, size_t* at) {
  if (!StartsWith(s, from, "<?xml") || s.size() <= from + 5 ||
      !IsSpace(static_cast<unsigned char>(s[from + 5]))) {
    return false;
  }
  const size_t end = s.find("?>", from);
  const std::string_view declaration = s.substr(
      from, end == std::string_view::npos ? std::min<size_t>(s.size() - from, 256) : end - from);
  size_t key = declaration.find("encoding");
  while (key != std::string_view::npos &&
         !IsSpace(static_cast<unsigned char>(declaration[key - 1]))) {
    key = declaration.find("encoding", key + 1);
  }
  if (key == std::string_view::npos) return false;
  size_t i = key + 8;
  while (i < declaration.size() && IsSpace(static_cast<unsigned char>(declaration[i]))) ++i;
  if (i >= declaration.size() || declaration[i] != '=') return false;
  ++i;
  while (i < declaration.size() && IsSpace(static_cast<unsigned char>(declaration[i]))) ++i;
  if (i >= declaration.size() || (declaration[i] != '"' && declaration[i] != '\'')) return false;
  const size_t close = declaration.find(declaration[i], i + 1);
  if (close == std::string_view::npos) return false;
  *name = std::string(declaration.substr(i + 1, close - i - 1));
  *at = from + i + 1;
  return true;
}

bool IsUtf8Name(std::string_view name) {
  return EqualsIgnoringCase(name, "UTF-8") || EqualsIgnoringCase(name, "UTF8");
}

void AppendUtf8(char32_t c, std::string* out) {
  if (c < 0x80) {
    out->push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (c >> 6)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (c >> 12)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (c >> 18)));
    out->push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

// UTF-16 after its byte-order mark, as UTF-8 in *out; "" or what is wrong.
std::string Utf16ToUtf8(const std::string& bytes, bool little_endian, std::string* out) {
  out->reserve(bytes.size() + bytes.size() / 2);
  const auto unit = [&](size_t i) -> char32_t {
    const unsigned char a = static_cast<unsigned char>(bytes[i]);
    const unsigned char b = static_cast<unsigned char>(bytes[i + 1]);
    return little_endian ? (b << 8) | a : (a << 8) | b;
  };
  size_t i = 2;
  for (; i + 1 < bytes.size(); i += 2) {
    char32_t c = unit(i);
    if (c >= 0xD800 && c <= 0xDFFF) {
      const char32_t low = i + 3 < bytes.size() ? unit(i + 2) : 0;
      if (c > 0xDBFF || low < 0xDC00 || low > 0xDFFF) {
        return WithPosition(*out, At("unpaired UTF-16 surrogate 0x" + Hex(c, 4), out->size()));
      }
      c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
      i += 2;
    }
    AppendUtf8(c, out);
  }
  if (i != bytes.size()) {
    return WithPosition(*out, At("the document ends inside a UTF-16 code unit", out->size()));
  }
  return std::string();
}

// Bytes in the 8-bit encoding `name` (as iconv knows it) as UTF-8 in *out; "" or what is wrong.
std::string EightBitToUtf8(const std::string& bytes, const std::string& name, size_t name_at,
                           std::string* out) {
  iconv_t cd = iconv_open("UTF-8", name.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    if (errno == ENOMEM) throw std::bad_alloc();
    return WithPosition(bytes, At("encoding '" + name + "' is not supported", name_at));
  }
  std::string problem;
  char* in = const_cast<char*>(bytes.data());
  size_t in_left = bytes.size();
  char buffer[16384];
  while (in_left > 0) {
    char* put = buffer;
    size_t put_left = sizeof buffer;
    const size_t rc = iconv(cd, &in, &in_left, &put, &put_left);
    const int error = errno;
    out->append(buffer, static_cast<size_t>(put - buffer));
    if (rc != static_cast<size_t>(-1) || error == E2BIG) continue;
    if (error == EILSEQ) {
      problem = WithPosition(*out, At("byte 0x" + Hex(static_cast<unsigned char>(*in), 2) +
                                          " is not a character of encoding '" + name + "'",
                                      out->size()));
    } else {
      problem = WithPosition(
          *out, At("the document ends inside a character of encoding '" + name + "'", out->size()));
    }
    break;
  }
  iconv_close(cd);
  return problem;
}

// ---------------------------------------------------------------------------------------------
// The checks the DOM service made before it judged documents by XML's grammar. They decide the
// wording of a refusal for the documents they refuse.

// Whether an internal DTD subset may declare further entities.
bool HasInternalSubset(const std::string& s) {
  const size_t doctype = s.find("<!DOCTYPE");
  if (doctype == std::string::npos) return false;
  const size_t end = s.find('>', doctype);
  const size_t bracket = s.find('[', doctype);
  return bracket != std::string::npos && (end == std::string::npos || bracket < end);
}

// True when the text at "&" (index at) is a predefined entity or a character reference.
bool IsReference(const std::string& s, size_t at) {
  static const char* const kPredefined[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
  for (const char* entity : kPredefined) {
    if (StartsWith(s, at, entity)) return true;
  }
  size_t i = at + 1;
  if (i >= s.size() || s[i] != '#') return false;
  ++i;
  const bool hex = i < s.size() && s[i] == 'x';
  if (hex) ++i;
  const size_t digits = i;
  while (i < s.size() && (hex ? IsHexDigit(s[i]) : IsDigit(s[i]))) ++i;
  return i > digits && i < s.size() && s[i] == ';';
}

Problem RawTextProblem(const std::string& s) {
  const bool checkEntities = !HasInternalSubset(s);
  int depth = 0;                                        // open elements
  size_t i = StartsWith(s, 0, "\xEF\xBB\xBF") ? 3 : 0;  // a byte-order mark is no text
  while (i < s.size()) {
    const char c = s[i];
    if (depth == 0 && c != '<' && c != ' ' && c != '\t' && c != '\r' && c != '\n') {
      return At("text outside the document element", i);
    }
    if (c == '&') {
      if (checkEntities && !IsReference(s, i)) return At("'&' starts no reference", i);
      ++i;
    } else if (c == ']' && StartsWith(s, i, "]]>")) {
      return At("']]>' in text", i);
    } else if (c != '<') {
      ++i;
    } else if (StartsWith(s, i, "<!--")) {
      const size_t end = s.find("-->", i + 4);
      i = end == std::string::npos ? s.size() : end + 3;
    } else if (StartsWith(s, i, "<![CDATA[")) {
      const size_t end = s.find("]]>", i + 9);
      i = end == std::string::npos ? s.size() : end + 3;
    } else if (StartsWith(s, i, "<?")) {
      const size_t end = s.find("?>", i + 2);
      i = end == std::string::npos ? s.size() : end + 2;
    } else if (StartsWith(s, i, "<!")) {
      // A document type declaration: its internal subset may hold '>' inside brackets.
      int brackets = 0;
      for (++i; i < s.size() && !(s[i] == '>' && brackets == 0); ++i) {
        brackets += s[i] == '[' ? 1 : s[i] == ']' ? -1 : 0;
      }
      ++i;
    } else {
      // A tag: attribute values are quoted; '<' and '&' inside them follow the rules above.
      const bool endTag = StartsWith(s, i, "</");
      char quote = 0;
      for (++i; i < s.size(); ++i) {
        const char t = s[i];
        if (quote != 0) {
          if (t == quote) {
            quote = 0;
          } else if (t == '<') {
            return At("'<' in an attribute value", i);
          } else if (t == '&' && checkEntities && !IsReference(s, i)) {
            return At("'&' starts no reference", i);
          }
        } else if (t == '"' || t == '\'') {
          quote = t;
        } else if (t == '>') {
          break;
        }
      }
      if (endTag) {
        --depth;
      } else if (i < s.size() && s[i - 1] != '/') {
        ++depth;
      }
      ++i;
    }
  }
  return Problem();
}

pugi::xml_parse_result Load(std::string* text, pugi::xml_document* document) {
  return document->load_buffer_inplace(text->data(), text->size(), kXmlParseOptions,
                                       pugi::encoding_utf8);
}

}  // namespace

TextPosition PositionOf(const std::string& text, size_t offset) {
  offset = std::min(offset, text.size());
  TextPosition at;
  size_t i = StartsWith(text, 0, "\xEF\xBB\xBF") ? 3 : 0;
  if (offset < i) return at;
  size_t line_start = i;
  for (; i < offset; ++i) {
    const char c = text[i];
    if (c == '\n' || (c == '\r' && (i + 1 >= text.size() || text[i + 1] != '\n'))) {
      ++at.line;
      line_start = i + 1;
    }
  }
  for (size_t j = line_start; j < offset; ++j) {
    if ((static_cast<unsigned char>(text[j]) & 0xC0) != 0x80) ++at.column;
  }
  return at;
}

std::string DecodeXmlBytes(std::string* bytes, bool* converted) {
  *converted = false;
  const std::string& b = *bytes;
  std::string name;
  size_t name_at = 0;
  if (StartsWith(b, 0, "\xEF\xBB\xBF")) {
    if (DeclaredEncoding(b, 3, &name, &name_at) && !IsUtf8Name(name)) {
      return WithPosition(
          b, At("the byte-order mark says UTF-8 but the XML declaration names '" + name + "'",
                name_at));
    }
    return std::string();
  }
  if (StartsWith(b, 0, std::string_view("\xFF\xFE\0\0", 4)) ||
      StartsWith(b, 0, std::string_view("\0\0\xFE\xFF", 4))) {
    return WithPosition(b, At("UTF-32 documents are not supported", 0));
  }
  if (StartsWith(b, 0, "\xFF\xFE") || StartsWith(b, 0, "\xFE\xFF")) {
    const bool little_endian = b[0] == '\xFF';
    std::string text;
    std::string problem = Utf16ToUtf8(b, little_endian, &text);
    if (!problem.empty()) return problem;
    if (DeclaredEncoding(text, 0, &name, &name_at) && !EqualsIgnoringCase(name, "UTF-16") &&
        !EqualsIgnoringCase(name, little_endian ? "UTF-16LE" : "UTF-16BE")) {
      return WithPosition(text, At(std::string("the byte-order mark says ") +
                                       (little_endian ? "UTF-16LE" : "UTF-16BE") +
                                       " but the XML declaration names '" + name + "'",
                                   name_at));
    }
    *bytes = std::move(text);
    *converted = true;
    return std::string();
  }
  if (StartsWith(b, 0, std::string_view("<\0", 2)) ||
      StartsWith(b, 0, std::string_view("\0<", 2))) {
    return WithPosition(b, At("a UTF-16 document must start with a byte-order mark", 0));
  }
  if (!DeclaredEncoding(b, 0, &name, &name_at) || IsUtf8Name(name)) return std::string();
  if (!IsEncodingName(name)) {
    return WithPosition(b, At("malformed encoding name '" + name + "'", name_at));
  }
  if (EqualsIgnoringCase(std::string_view(name).substr(0, 6), "UTF-16")) {
    return WithPosition(
        b, At("the XML declaration names '" + name + "' but there is no byte-order mark", name_at));
  }
  std::string text;
  std::string problem = EightBitToUtf8(b, name, name_at, &text);
  if (!problem.empty()) return problem;
  // The declaration is ASCII in every encoding read here; an encoding that changes it (UTF-32,
  // EBCDIC) is not the one the bytes are in.
  const size_t declaration_end = b.find("?>");
  if (declaration_end == std::string::npos ||
      text.compare(0, declaration_end + 2, b, 0, declaration_end + 2) != 0) {
    return WithPosition(
        b, At("the XML declaration is not written in its encoding '" + name + "'", name_at));
  }
  *bytes = std::move(text);
  *converted = true;
  return std::string();
}

std::string CheckWellFormed(const std::string& text) { return WithPosition(text, Judge(text)); }

std::string ParseXmlText(std::string* text, pugi::xml_document* document, bool converted,
                         bool known_good) {
  if (known_good) {
    const pugi::xml_parse_result parsed = Load(text, document);
    return parsed ? std::string() : WithOffset(At(parsed.description(), parsed.offset));
  }
  // Judged first: pugixml parses in place, and changes the text as it goes.
  const Problem judged = Judge(*text);
  if (judged && converted) return WithPosition(*text, judged);
  const std::string refusal = WithPosition(*text, judged);
  // The earlier checks, whose words a refused document read as UTF-8 keeps.
  Problem earlier = judged ? RawTextProblem(*text) : Problem();
  std::string before;  // the text as read, to place pugixml's failure in a converted document
  if (converted) before = *text;
  if (!earlier) {
    const pugi::xml_parse_result parsed = Load(text, document);
    if (!parsed) {
      earlier = At(parsed.description(), parsed.offset);
    } else if (judged) {
      earlier = Unplaced(CheckTree(*document));
    }
  }
  if (earlier) return converted ? WithPosition(before, earlier) : WithOffset(earlier);
  return refusal;
}

std::string XmlBytesProblem(const std::string& bytes) {
  std::string text = bytes;
  bool converted = false;
  std::string problem = DecodeXmlBytes(&text, &converted);
  if (!problem.empty()) return problem;
  pugi::xml_document document;
  return ParseXmlText(&text, &document, converted, false);
}

std::string CheckRawText(const std::string& s) { return WithOffset(RawTextProblem(s)); }

std::string CheckTree(pugi::xml_document& document) {
  int elements = 0;
  for (pugi::xml_node child : document.children()) {
    if (child.type() == pugi::node_element) ++elements;
  }
  if (elements != 1) {
    return elements == 0 ? "no document element" : "more than one document element";
  }
  std::string problem;
  struct DuplicateFinder : pugi::xml_tree_walker {
    std::string* problem;
    bool for_each(pugi::xml_node& node) override {
      std::set<std::string> names;
      for (pugi::xml_attribute a : node.attributes()) {
        if (!names.insert(a.name()).second) {
          *problem =
              std::string("attribute '") + a.name() + "' twice on element '" + node.name() + "'";
          return false;
        }
      }
      return true;
    }
  } finder;
  finder.problem = &problem;
  document.traverse(finder);
  return problem;
}

}  // namespace nomzub
