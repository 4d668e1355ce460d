// Helpers shared by the module's operations: the log call, the multibyte path pieces every
// Pack & Go step uses, and the table of the main document's list groups.
#ifndef NOM_UTILITY_MODULE_INTERNAL_H_
#define NOM_UTILITY_MODULE_INTERNAL_H_

#include <string>
#include <utility>

#include "platform/codepage.h"
#include "services/NOMZUBLog.h"
#include "win_types.h"

namespace nomsoi {

// Writes one complete log line.
inline void Log(std::string message, int32_t level = 0) {
  NOMZUBLog::WriteMsg(std::move(message), level);
}

// True when the first occurrence of needle in s (multibyte-aware) is at index 0.
inline bool FoundAtStart(const std::string& s, const char* needle) {
  return nomplat::MbsFind(s, needle) == 0;
}

// Turns every "/" of path into a backslash, stepping by multibyte characters so that a trail byte
// equal to "/" is never touched.
inline void ToBackslashes(std::string& path) {
  if (path.empty()) return;
  const auto* begin = reinterpret_cast<const unsigned char*>(path.c_str());
  for (const unsigned char* p = begin; *p != 0; p = nomplat::_mbsinc(p)) {
    if (*p == '/') path[static_cast<std::string::size_type>(p - begin)] = '\\';
  }
}

// The directory of path: the characters before its last backslash, or "" without one.
inline std::string DirectoryOf(const std::string& path) {
  const std::string::size_type p = nomplat::MbsFindLast(path, '\\');
  return p == std::string::npos ? std::string() : path.substr(0, p);
}

// The characters of s from index p to its end; the whole of s when p is npos.
inline std::string TailFrom(const std::string& s, std::string::size_type p) {
  return p == std::string::npos ? s : s.substr(p);
}

// A product document's geometry file: the path less its last six characters (cut blindly,
// whatever they are) followed by "vgxGeom". A path shorter than six characters gives "vgxGeom".
inline std::string GeometryPathOf(const std::string& path) {
  return (path.size() < 6 ? std::string() : path.substr(0, path.size() - 6)) + "vgxGeom";
}

// Where a list child's geometry file lands: the normalised SOI directory followed by the
// geometry path's part from its last backslash; the whole geometry path when it has none.
inline std::string ListChildGeometryTarget(const std::string& normalisedSoi,
                                           const std::string& geometry) {
  return normalisedSoi + TailFrom(geometry, nomplat::MbsFindLast(geometry, '\\'));
}

// Where a nested reference's geometry file lands: the document's target with the geometry
// extension rule applied to it.
inline std::string NestedGeometryTarget(const std::string& documentTarget) {
  return GeometryPathOf(documentTarget);
}

// The main document's list groups, in the order they are handled, with their progress lines.
struct ListGroup {
  const char* ident;
  const char* before;
  const char* after;
};
inline constexpr ListGroup kListGroups[] = {
    {"ProductList", "Info:\t Handle Product Child Nodes ... ",
     "Info:\t Handle Product Child Nodes ... Done!"},
    {"ResourceList", "Info:\t Handle Resource Child Nodes ... ",
     "Info:\t Handle Resource Child Nodes ... Done!"},
    {"ManufProd", "Info:\t Handle MP Child Nodes ... ", "Info:\t Handle MP Child Nodes ... Done!"},
    {"PlanningContext", "Info:\t Handle Context Child Nodes ...",
     "Info:\t Handle Context Child Nodes ... Done!"},
};

inline constexpr const char kUpdatingRelativePaths[] =
    "Info:\t Updating the relative paths in extracted <KRTProduct>.vgxXml files...";
inline constexpr const char kRelativePathsDone[] = "Info:\t Updation of relative paths done...";
inline constexpr const char kLightModeRequested[] =
    "Info:\t Pack & Go Light Mode Requested. Pointed geometry (*.vgxXml + *.vgxGeom) will NOT be "
    "copied to SOI directory.";
inline constexpr const char kUnableToOpen[] = "Info:\t Unable to open Document - ";

}  // namespace nomsoi

#endif  // NOM_UTILITY_MODULE_INTERNAL_H_
