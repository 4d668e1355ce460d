// The generator's input (which lists) and option (how references are written), as
// NOMZUBVGXGenerator::GenerateVGXPackage takes them.
#ifndef NOM_NOMZUBPROXY_GENERATOR_OPTIONS_H_
#define NOM_NOMZUBPROXY_GENERATOR_OPTIONS_H_

#include <set>
#include <string>
#include <vector>

namespace nomzub::proxy {

// The forms a reference to a product document takes: relative ("x.vgxXml", "..\cache\x.vgxXml"),
// dot (".\" before it), climb ("..\<dir>\" out and back in), drive (an absolute module path).
enum RefForm { kRelative, kDot, kClimb, kDrive, kFormCount };

// The separator references are written with; kMixed switches to "/" every other round of forms.
enum class Separator { kBackslash, kSlash, kMixed };

// How references are written: the forms taken in turn, and the separator.
struct RefStyle {
  std::vector<RefForm> forms = {kRelative, kDot, kClimb, kDrive};
  Separator separator = Separator::kMixed;
};

// Reads option ("" for the defaults, else "refs=FORM,..." and "sep=..." items separated by ";")
// into *style. False with the generator's message in *error for an unknown item, form or
// separator, or an empty item.
bool ParseOption(const std::string& option, RefStyle* style, std::string* error);

// Reads input ("" or "all" for the four lists, else a comma list of their idents) into *lists.
// False with the generator's message in *error for an unknown list.
bool ParseInput(const std::string& input, std::set<std::string>* lists, std::string* error);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_GENERATOR_OPTIONS_H_
