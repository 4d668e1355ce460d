#include "NOMZUBVGXTranslator/well_formed.h"

#include <cstring>
#include <set>

namespace nomzub {
namespace {

bool StartsWith(const std::string& s, size_t at, const char* prefix) {
  return s.compare(at, std::strlen(prefix), prefix) == 0;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

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

// Whether an internal DTD subset may declare further entities.
bool HasInternalSubset(const std::string& s) {
  const size_t doctype = s.find("<!DOCTYPE");
  if (doctype == std::string::npos) return false;
  const size_t end = s.find('>', doctype);
  const size_t bracket = s.find('[', doctype);
  return bracket != std::string::npos && (end == std::string::npos || bracket < end);
}

std::string At(const char* what, size_t offset) {
  return std::string(what) + " at offset " + std::to_string(offset);
}

}  // namespace

std::string CheckRawText(const std::string& s) {
  const bool checkEntities = !HasInternalSubset(s);
  int depth = 0;  // open elements
  size_t i = 0;
  while (i < s.size()) {
    const char c = s[i];
    if (depth == 0 && c != '<' && c != ' ' && c != '\t' && c != '\r' && c != '\n' &&
        !(i == 0 && StartsWith(s, 0, "\xEF\xBB\xBF"))) {
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
  return std::string();
}

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
