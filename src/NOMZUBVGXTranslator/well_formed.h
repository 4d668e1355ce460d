// The well-formedness rules pugixml does not enforce, checked so that a malformed document is
// refused as any conforming XML parser would refuse it.
#ifndef NOM_NOMZUBVGXTRANSLATOR_WELL_FORMED_H_
#define NOM_NOMZUBVGXTRANSLATOR_WELL_FORMED_H_

#include <pugixml.hpp>
#include <string>

namespace nomzub {

// Scans the raw text before parsing: no text outside the document element, every "&" starts a
// predefined entity or a character reference, no "<" stands inside an attribute value, no "]]>"
// stands in text. Entity references are not checked in a document with an internal DTD subset (it
// may declare its own entities). Returns "" when the text passes, else what is wrong and its byte
// offset.
std::string CheckRawText(const std::string& text);

// Checks the parsed tree: exactly one document element, no attribute twice on one element. Returns
// "" or what is wrong.
std::string CheckTree(pugi::xml_document& document);

}  // namespace nomzub

#endif  // NOM_NOMZUBVGXTRANSLATOR_WELL_FORMED_H_
