// Writing references in the forms Pack & Go resolves.
#include "NOMZUBProxy/references.h"

#include <algorithm>

namespace nomzub::proxy {
namespace {

std::string Backslashed(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

}  // namespace

ReferenceWriter::ReferenceWriter(const RefStyle& style, const PackageDirectory& cache)
    : style_(style), cache_(cache) {}

std::vector<std::string> ReferenceWriter::Prefixes(const std::filesystem::path& dir) const {
  std::string rel = Backslashed(cache_.native.lexically_relative(dir).string());
  if (rel == ".") rel.clear();
  if (!rel.empty()) rel += '\\';
  std::vector<std::string> prefixes(kFormCount);
  prefixes[kRelative] = rel;
  prefixes[kDot] = ".\\" + rel;
  prefixes[kClimb] =
      rel.rfind("..\\", 0) == 0 ? rel : "..\\" + dir.filename().string() + "\\" + rel;
  prefixes[kDrive] = cache_.ModulePathOf("");
  return prefixes;
}

std::string ReferenceWriter::Next(const std::vector<std::string>& prefixes,
                                  const std::string& oid) {
  const size_t n = style_.forms.size();
  const size_t turn = written_++;
  std::string ref = prefixes[style_.forms[turn % n]] + oid + ".vgxXml";
  const bool slash = style_.separator == Separator::kSlash ||
                     (style_.separator == Separator::kMixed && (turn / n) % 2 == 1);
  if (slash) std::replace(ref.begin(), ref.end(), '\\', '/');
  return ref;
}

}  // namespace nomzub::proxy
