// Reading a document's bytes as XML the way a conforming XML 1.0 parser does: its encoding, its
// well-formedness and its tree. pugixml builds the tree but takes documents that XML forbids, so
// every document is judged before pugixml parses it.
#ifndef NOM_NOMZUBVGXTRANSLATOR_WELL_FORMED_H_
#define NOM_NOMZUBVGXTRANSLATOR_WELL_FORMED_H_

#include <cstddef>
#include <pugixml.hpp>
#include <string>

#include "NOMSOITypes.h"

namespace nomzub {

// The options the DOM service parses with: every node kind, whitespace-only text kept, line ends
// kept as they are (no parse_eol), so that an unchanged document is saved as it was read.
constexpr unsigned kXmlParseOptions = (pugi::parse_full | pugi::parse_ws_pcdata) & ~pugi::parse_eol;

// A place in a text: line and column, both from 1. Lines end at LF, CR LF or a lone CR; the
// column counts characters (a UTF-8 sequence is one), not bytes.
struct TextPosition {
  size_t line = 1;
  size_t column = 1;
};

// The line and column of byte offset in UTF-8 text (an offset past the end counts as the end). A
// byte-order mark at the start takes no column.
NOM_API TextPosition PositionOf(const std::string& text, size_t offset);

// Turns a document's bytes, as read, into its text in UTF-8, in place. Bytes that are already
// UTF-8 (a UTF-8 byte-order mark, or none and an XML declaration naming UTF-8 or no encoding) are
// left as they are and *converted is false. UTF-16 with a byte-order mark (either byte order) and
// 8-bit encodings named by the XML declaration (ISO-8859-1, US-ASCII, windows-1252, ...) are
// converted and *converted is true. Returns "" on success; else what is wrong with its line and
// column (UTF-16 or UTF-32 without a usable byte-order mark, an encoding the mark contradicts or
// that is unknown, bytes invalid in it), and *bytes is unchanged. Empty bytes pass.
NOM_API std::string DecodeXmlBytes(std::string* bytes, bool* converted);

// Judges UTF-8 text as a conforming XML 1.0 processor judges well-formedness: characters (valid
// UTF-8, nothing outside XML's Char production, literally or by character reference), markup
// syntax, names, one document element, matching tags, unique attributes, references only to
// predefined or declared entities. A document with a document type declaration is judged by
// expat, which also reads its internal subset. Returns "" when well-formed, else what is wrong
// and where ("... at line L, column C"). Empty text has no document element.
NOM_API std::string CheckWellFormed(const std::string& text);

// Judges text (UTF-8, as DecodeXmlBytes leaves it) and parses it with pugixml into *document in
// place (with kXmlParseOptions), so *text then holds pugixml's buffer. converted says whether
// the text was converted from another encoding. known_good skips the judgement (bytes found
// well-formed before). Returns "" when the document is well-formed and parsed, else the cause
// the DOM service logs: what the earlier checks (CheckRawText, pugixml, CheckTree) reported, in
// their words and with a byte offset, for a document read as UTF-8 that they refuse, so those
// refusals read as they always have; else what is wrong with its line and column.
NOM_API std::string ParseXmlText(std::string* text, pugi::xml_document* document, bool converted,
                                 bool known_good);

// The cause the DOM service would log for a document with these bytes ("" when it reads it):
// DecodeXmlBytes and ParseXmlText on a copy. For callers that check documents without keeping
// them (nomsoi's input checks).
NOM_API std::string XmlBytesProblem(const std::string& bytes);

// Scans the raw text before parsing: no text outside the document element, every "&" starts a
// predefined entity or a character reference, no "<" stands inside an attribute value, no "]]>"
// stands in text. Entity references are not checked in a document with an internal DTD subset (it
// may declare its own entities). Returns "" when the text passes, else what is wrong and its byte
// offset.
NOM_API std::string CheckRawText(const std::string& text);

// Checks the parsed tree: exactly one document element, no attribute twice on one element. Returns
// "" or what is wrong.
NOM_API std::string CheckTree(pugi::xml_document& document);

}  // namespace nomzub

#endif  // NOM_NOMZUBVGXTRANSLATOR_WELL_FORMED_H_
