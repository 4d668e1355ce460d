// Helpers for the Pack & Go tests: Env replacements that answer or record the existence test and
// the copies, package documents built as text, and readers that take the written documents apart
// again with pugixml. (The DOM hook recorder, ModuleLines and ListGroup come from the shared test
// support: driver_fakes.h, driver_package.h.)
#ifndef NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_
#define NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "NOMSOITypes.h"
#include "platform/env.h"
#include "services/NOMZUBDOMWrapper.h"
#include "support/driver_package.h"
#include "support/test_support.h"

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

// Marks a child or element without an IsInstanceOf attribute.
extern const char kAbsent[];

// Escapes &, <, > and " for an attribute value.
std::string XmlEscape(const std::string& text);
// A main document: root VgxDocument holding the list groups in the given order.
std::string MainDocument(const std::vector<ListGroup>& lists);
// A product document whose CLitAssyGroup elements carry the given references, in order.
std::string AssemblyDocument(const std::vector<std::string>& references);
// A product document without any CLitAssyGroup element.
std::string LeafDocument();
// A view file whose root names the main document.
std::string ViewDocument();

// The IsInstanceOf values of every CLitAssyGroup element of a file on disk, in document order
// (kAbsent for an element without the attribute). Fails the test when the file does not parse.
std::vector<std::string> InstanceReferences(const std::string& nativeFile);
// The IsInstanceOf values of the children of the list group with that Ident, in order.
std::vector<std::string> ListReferences(const std::string& nativeFile, const std::string& ident);
// The IsInstanceOf values of the CLitAssyGroup children of a node held by an open wrapper.
std::vector<std::string> ChildReferences(NOMZUBDOMWrapper& doc, IXMLDOMNode* listNode);
// An attribute of the first element with that name in a file on disk (kAbsent when missing).
std::string ElementAttribute(const std::string& nativeFile, const std::string& element,
                             const std::string& attribute);

// Makes a file read-only (no write permission for anyone).
void MakeReadOnly(const std::string& nativePath);
// The path's components joined with backslashes, leading "/" dropped ("/tmp/x" -> "tmp\x").
std::string BackslashedWithoutRoot(const std::string& nativePath);
// The number of backslashes in a module path.
int CountBackslashes(const std::string& modulePath);

}  // namespace packngo
}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_
