// Helpers for the Pack & Go tests: scoped replacements of the process-wide state the module reads
// (code page, path maps, registered package, DOM hook, existence test), package documents built as
// text, and readers that take the written documents apart again with pugixml.
#ifndef NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_
#define NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "NOMSOITypes.h"
#include "platform/env.h"
#include "services/NOMZUBDOMWrapper.h"
#include "support/test_support.h"

namespace nomtest {

// The text of an information line as the module writes it ("Info:\t " + text) at level 0.
LogLine InfoLine(const std::string& text);
// The text of an error line as the module writes it ("****** ERROR:\t " + text) at level 0.
LogLine ErrorLine(const std::string& text);
// The line logged when an existence test fails for path.
LogLine UnableToOpen(const std::string& path);
// The line logged for a failed copy: both paths and the code's text ("File Not Found", ...).
LogLine CopyError(const std::string& source, const std::string& target,
                  const std::string& codeText);
// The records the module itself wrote (levels 0 and 1), in order; the services' own diagnostics
// (level 2) are left out.
std::vector<LogLine> ModuleLines(const LogCapture& capture);

// Sets the process's code page for its lifetime and restores the previous one.
class ScopedCodePage {
 public:
  explicit ScopedCodePage(UINT codePage);
  ~ScopedCodePage();
  ScopedCodePage(const ScopedCodePage&) = delete;
  ScopedCodePage& operator=(const ScopedCodePage&) = delete;
  // True when the page could be set.
  bool ok() const { return ok_; }

 private:
  UINT previous_;
  bool ok_;
};

// Forgets every drive and share mapping on entry and again on exit, so that a test's maps never
// leak into another test.
class ScopedPathMaps {
 public:
  ScopedPathMaps();
  ~ScopedPathMaps();
  ScopedPathMaps(const ScopedPathMaps&) = delete;
  ScopedPathMaps& operator=(const ScopedPathMaps&) = delete;
};

// Registers a package (main document and view file, module paths) for its lifetime; forgets the
// registered package on exit.
class ScopedPackage {
 public:
  ScopedPackage(const std::string& mainPath, const std::string& viewPath);
  ~ScopedPackage();
  ScopedPackage(const ScopedPackage&) = delete;
  ScopedPackage& operator=(const ScopedPackage&) = delete;
};

// Installs itself as the DOM hook for its lifetime (restoring the previous hook after), records
// every wrapper call with its main argument, and fails the calls it was told to fail.
class DomRecorder : public nomzub::DomHook {
 public:
  struct Call {
    nomzub::DomCall call;
    std::string argument;
  };
  DomRecorder();
  ~DomRecorder() override;
  DomRecorder(const DomRecorder&) = delete;
  DomRecorder& operator=(const DomRecorder&) = delete;

  // Makes every call of that kind whose argument equals argument (any argument when empty)
  // fail with code.
  void Fail(nomzub::DomCall call, const std::string& argument, HRESULT code);
  HRESULT Before(nomzub::DomCall call, const std::string& argument) override;

  const std::vector<Call>& calls() const { return calls_; }
  // The arguments of the recorded calls of one kind, in order.
  std::vector<std::string> Arguments(nomzub::DomCall call) const;
  // How many calls of one kind were recorded.
  int Count(nomzub::DomCall call) const;

 private:
  struct Failure {
    nomzub::DomCall call;
    std::string argument;
    HRESULT code;
  };
  nomzub::DomHook* previous_;
  std::vector<Call> calls_;
  std::vector<Failure> failures_;
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

// One list group of a main document: its Ident and the IsInstanceOf values of its children
// (a value of kAbsent gives a child without the attribute).
struct ListGroup {
  std::string ident;
  std::vector<std::string> references;
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

}  // namespace nomtest

#endif  // NOM_TESTS_SUPPORT_PACKNGO_SUPPORT_H_
