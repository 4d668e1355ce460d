// Helpers for the Pack & Go tests: Env replacements that answer or record the existence test and
// the copies, package documents built as text, and readers that take the written documents apart
// again with pugixml. (The DOM hook recorder, ModuleLines and ListGroup come from the shared test
// support: driver_fakes.h, driver_package.h.)
#ifndef NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_
#define NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "support/driver_package.h"
#include "support/fault_injection_env.h"
#include "support/peer.h"
#include "support/test_support.h"
#include "win_types.h"

namespace nomtest {
namespace packngo {

// The text of an information line as the module writes it ("Info:\t " + text) at level 0.
LogLine InfoLine(const std::string& text);
// The text of an error line as the module writes it ("****** ERROR:\t " + text) at level 0.
LogLine ErrorLine(const std::string& text);
// The line logged when an existence test fails for path.
LogLine UnableToOpen(const std::string& path);
// The line logged for a failed copy: both paths and the code's text ("File Not Found", ...).
LogLine CopyError(const std::string& source, const std::string& target,
                  const std::string& codeText);

// The line a list group's walk starts with (level 1): "Info:\t Handle <list> Child Nodes ... ",
// without the last blank for the planning context.
LogLine Start(const std::string& list);
// The line a list group's walk ends with (level 1).
LogLine Done(const std::string& list);
// The information line giving the number of children of a list group.
LogLine Count(int n);
// The information lines around the update of the relative paths of the copied documents.
LogLine UpdatingLine();
LogLine UpdatedLine();

// The state the Pack & Go tests share: captured log lines, a temporary directory, the SOI
// directory soiRel under it (as a module path), the module object and its peer.
class PackNGoFixture : public ::testing::Test {
 protected:
  explicit PackNGoFixture(const std::string& soiRel);

  // Writes a product document (native path relative to the temporary directory) and, unless told
  // otherwise, its geometry file, whose content names the document so that copies can be told
  // apart.
  void Product(const std::string& rel, const std::string& contents, bool geometry = true);
  // The geometry file of a product document: its name with the last six characters replaced.
  static std::string GeometryOf(const std::string& rel);
  // The module path of a file under the temporary directory ("lib/a" -> "Z:\...\lib\a").
  std::string M(const std::string& rel) const;
  // The module path of a file in the SOI directory.
  std::string Out(const std::string& name) const;
  // The files in the SOI directory, sorted, without the ".keep" placeholder.
  std::vector<std::string> OutFiles() const;

  LogCapture log_;
  TempDir dir_;
  const std::string soiRel_;
  std::string soi_;
  NOMSOIUtility utility_;
  NOMSOIUtilityTestPeer peer_{utility_};
};

// An Env whose existence test answers from a list of paths that are said to exist (module paths
// compared byte for byte) and records every path it was asked about; everything else goes to the
// Env that was current when it was made. Installs itself for its lifetime.
class ExistenceFake : public nomplat::EnvWrapper {
 public:
  explicit ExistenceFake(std::set<std::string> existing);
  ~ExistenceFake() override;
  ExistenceFake(const ExistenceFake&) = delete;
  ExistenceFake& operator=(const ExistenceFake&) = delete;

  bool CanOpenForReading(const std::string& path) override;
  const std::vector<std::string>& probes() const { return probes_; }

 private:
  std::set<std::string> existing_;
  std::vector<std::string> probes_;
  nomplat::Env* previous_;
};

// An Env that records, in one sequence, every existence test ("open <path>") and every copy
// ("copy <src> -> <dst>"; "copy-if-absent ..." for a copy that may not overwrite) made through it,
// forwarding both to the Env that was current when it was made. Installs itself for its lifetime.
class FileCallRecorder : public nomplat::EnvWrapper {
 public:
  FileCallRecorder();
  ~FileCallRecorder() override;
  FileCallRecorder(const FileCallRecorder&) = delete;
  FileCallRecorder& operator=(const FileCallRecorder&) = delete;

  bool CanOpenForReading(const std::string& path) override;
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override;
  const std::vector<std::string>& calls() const { return calls_; }
  // Only the copy records, in order.
  std::vector<std::string> Copies() const;

 private:
  std::vector<std::string> calls_;
  nomplat::Env* previous_;
};
// The record FileCallRecorder makes for an existence test and for a copy.
std::string OpenCall(const std::string& path);
std::string CopyCall(const std::string& src, const std::string& dst);

// Installs a FaultInjectionEnv over the current Env for its lifetime.
class ScopedFaults {
 public:
  ScopedFaults();
  ~ScopedFaults();
  ScopedFaults(const ScopedFaults&) = delete;
  ScopedFaults& operator=(const ScopedFaults&) = delete;
  nomplat::FaultInjectionEnv& env() { return env_; }

 private:
  nomplat::FaultInjectionEnv env_;
  nomplat::Env* previous_;
};

// The document builders and readers shared with the driver tests, under the names used here.
using nomtest::AssemblyDocument;
using nomtest::ElementAttribute;
using nomtest::InstanceReferences;
using nomtest::kAbsent;
using nomtest::ListReferences;
using nomtest::MainDocument;

// A product document without any CLitAssyGroup element.
std::string LeafDocument();
// A view file whose root names the main document.
std::string ViewDocument();

// The IsInstanceOf values of the CLitAssyGroup children of a node held by an open wrapper.
std::vector<std::string> ChildReferences(NOMZUBDOMWrapper& doc, IXMLDOMNode* listNode);
// Makes a file read-only (no write permission for anyone).
void MakeReadOnly(const std::string& nativePath);
// The path's components joined with backslashes, leading "/" dropped ("/tmp/x" -> "tmp\x").
std::string BackslashedWithoutRoot(const std::string& nativePath);
// The number of backslashes in a module path.
int CountBackslashes(const std::string& modulePath);

}  // namespace packngo
}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_
