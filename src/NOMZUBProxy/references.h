// The references from package documents to product documents in the product cache, written in
// the forms and with the separator the generator option asks for, taking the forms in turn.
#ifndef NOM_NOMZUBPROXY_REFERENCES_H_
#define NOM_NOMZUBPROXY_REFERENCES_H_

#include <filesystem>
#include <string>
#include <vector>

#include "NOMZUBProxy/generator_options.h"
#include "NOMZUBProxy/package_paths.h"

namespace nomzub::proxy {

// Writes the references of one package, counting them so that the forms take turns across all
// its documents.
class ReferenceWriter {
 public:
  // References to documents in cache, written in style; both must outlive the writer.
  ReferenceWriter(const RefStyle& style, const PackageDirectory& cache);

  // The start of a reference, per form, from a document in the native directory dir: relative
  // ("sub\", or "..\" when the cache lies outside dir), dot (".\" before the relative form),
  // climb (out of dir with "..\" and back in when the relative form does not already climb),
  // drive (the cache's module path).
  std::vector<std::string> Prefixes(const std::filesystem::path& dir) const;

  // The next reference to oid's document from a document whose prefixes are given: the next form
  // in turn, with the style's separator for this round of forms.
  std::string Next(const std::vector<std::string>& prefixes, const std::string& oid);

 private:
  const RefStyle& style_;
  const PackageDirectory& cache_;
  size_t written_ = 0;
};

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_REFERENCES_H_
