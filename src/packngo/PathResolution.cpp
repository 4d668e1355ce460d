// Turning a reference read from a package document into the path of the file it names and the
// path that file takes in the SOI directory.
#include "NOMSOIUtility.h"
#include "platform/win32.h"
#include "utility/module_internal.h"

using nomsoi::DirectoryOf;
using nomsoi::FoundAtStart;
using nomsoi::TailFrom;

// Climbs one directory level per leading "..\" of rel (and a ".\..\" right after it), recursing
// while rel still starts with "..\". A reference starting "..\.\..\" climbs one level only. The
// result is always E_FAIL, whatever happened; callers ignore it.
HRESULT NOMSOIUtility::ResolveRelativePath(std::string& base, std::string& rel) {
  std::string result = DirectoryOf(base);
  if (FoundAtStart(rel, "..\\")) rel.erase(0, 3);
  if (FoundAtStart(rel, ".\\..\\")) rel.erase(0, 5);
  if (rel.compare(0, 3, "..\\") == 0) ResolveRelativePath(result, rel);
  base = result;
  return E_FAIL;
}

HRESULT NOMSOIUtility::GetActualPath(std::string docPath, std::string& ref, std::string& target) {
  const std::string dir = DirectoryOf(docPath);
  const auto npos = std::string::npos;
  // The last backslash, else the last "/", else npos.
  auto lastSeparator = [](const std::string& s) {
    const auto p = nomplat::MbsFindLast(s, '\\');
    return p != std::string::npos ? p : nomplat::MbsFindLast(s, '/');
  };

  if (ref.compare(0, 5, ".\\..\\") == 0 || ref.compare(0, 3, "..\\") == 0) {
    std::string work = dir;
    ResolveRelativePath(work, ref);
    ref = work + "\\" + ref;
    target += TailFrom(ref, nomplat::MbsFindLast(ref, '\\'));
  } else if (FoundAtStart(ref, ".\\")) {
    target += TailFrom(ref, lastSeparator(ref));
    ref = dir + ref.substr(1);
  } else if (nomplat::MbsFind(ref, ":") == 1 || FoundAtStart(ref, "\\\\")) {
    target += TailFrom(ref, nomplat::MbsFindLast(ref, '\\'));
  } else {
    ref = dir + "\\" + ref;
    target += "\\";
    const auto p = lastSeparator(ref);
    target += TailFrom(ref, p == npos ? 0 : p + 1);
  }

  if (nomplat::CanOpenForReading(ref)) return 0;
  nomsoi::Log(nomsoi::kUnableToOpen + ref);
  return 1;
}
