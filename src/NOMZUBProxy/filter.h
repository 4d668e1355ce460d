// The filter expression that restricts which top-level entries of a project are loaded into a
// package (an entry brings its whole product structure with it).
//
//   expression := term { "or" term }
//   term       := factor { "and" factor }
//   factor     := "not" factor | "(" expression ")" | field operator value
//   field      := "kind" | "name" | "oid" | "ident"
//   operator   := "=" | "!=" | "~" | "!~"
//   value      := word | '"' text '"'       (in quotes, \" and \\ stand for " and \)
//
// kind is the entry's product kind (product, resource, manufactured, context), name and ident the
// entry's own, oid its product's OID. "=" and "!=" compare exactly; "~" and "!~" match a pattern
// where "*" is any run of characters and "?" one character, ignoring ASCII case. Keywords and
// field names are case-insensitive. A word is a run of characters other than blanks, parentheses,
// quotes, "=", "!" and "~". The empty expression selects everything.
// Examples:  kind=resource    name~"Robot*" or kind!=context    not (oid=P-1 or ident~*.2)
// Each "not" and each "(" opens a nesting level; more than kMaxFilterNesting levels open at once
// is a syntax error at the "not" or "(" that would open one too many.
#ifndef NOM_NOMZUBPROXY_FILTER_H_
#define NOM_NOMZUBPROXY_FILTER_H_

#include <memory>
#include <string>

namespace nomzub::proxy {

// The most nesting levels ("not" and "(") a filter may hold open at once.
constexpr int kMaxFilterNesting = 256;

struct FilterSubject {
  const std::string& kind;
  const std::string& name;
  const std::string& oid;
  const std::string& ident;
};

class Filter {
 public:
  // Selects everything.
  Filter();
  ~Filter();
  Filter(const Filter&);
  Filter& operator=(const Filter&);

  // Parses text into *filter. False on a syntax error, with *error naming the 1-based character
  // position and what was expected there (or that the nesting went too deep); *filter is then
  // unchanged.
  static bool Parse(const std::string& text, Filter* filter, std::string* error);

  bool Matches(const FilterSubject& subject) const;

  struct Node;

 private:
  std::shared_ptr<const Node> root_;  // null: everything
};

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_FILTER_H_
