// nomsoi's commands around the module, driven in process so that failures can be injected
// through the platform seam: the exit status says what the user got, a failed copy or save puts
// the main document and view file back, an interrupted run is put back by the next one, and the
// input stays untouched when the output lies elsewhere.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands.h"
#include "host/journal.h"
#include "platform/paths.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"
#include "support/driver_package.h"
#include "support/fault_injection_env.h"
#include "support/packngo_support.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomtest::AssemblyDocument;
using nomtest::kAbsent;
using nomtest::ReadFile;
using nomtest::WriteFile;

class HostSafety : public ::testing::Test {
 protected:
  HostSafety() {
    WriteProduct("lib/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
    WriteProduct("lib/B.vgxXml", AssemblyDocument({kAbsent}));
    WriteProduct("lib/C.vgxXml", "<VgxDocument/>");  // refers to nothing: rewriting it fails
    WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
              nomtest::MainDocument({{"ProductList", {"..\\lib\\A.vgxXml", "..\\lib\\C.vgxXml"}}}));
    WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
    main_before_ = ReadFile(dir_.Sub("pkg/SOI.vgxXml"));
    view_before_ = ReadFile(dir_.Sub("pkg/SOI.vgxView"));
  }
  ~HostSafety() override {
    nomzub::ResetLogConfiguration();
    nomzub::ClearPackage();
  }

  void WriteProduct(const std::string& rel, const std::string& body) {
    WriteFile(dir_.Sub(rel), body);
    WriteFile(dir_.Sub(rel.substr(0, rel.size() - 6) + "vgxGeom"), "glb:" + rel);
  }

  // Runs nomsoi with a raw log in the temporary directory; keeps standard error in stderr_.
  int Nomsoi(std::vector<std::string> args) {
    args.insert(args.begin(), {"nomsoi", "--log-format", "raw", "--log", dir_.Sub("log")});
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    testing::internal::CaptureStderr();
    const int status = nomsoi::RunCommandLine(static_cast<int>(argv.size()), argv.data());
    stderr_ = testing::internal::GetCapturedStderr();
    return status;
  }

  // The module path the module builds for a file under the temporary directory: its native path
  // with backslashes.
  std::string Backslashed(const std::string& rel) const {
    std::string path = dir_.Sub(rel);
    for (char& c : path) c = c == '/' ? '\\' : c;
    return path;
  }

  int Pack(const std::string& out_rel) {
    return Nomsoi({"pack", "--main", dir_.Sub("pkg/SOI.vgxXml"), "--view",
                   dir_.Sub("pkg/SOI.vgxView"), "--out", dir_.Sub(out_rel)});
  }

  void ExpectPackageAsBefore() {
    EXPECT_EQ(ReadFile(dir_.Sub("pkg/SOI.vgxXml")), main_before_);
    EXPECT_EQ(ReadFile(dir_.Sub("pkg/SOI.vgxView")), view_before_);
    EXPECT_FALSE(nomtest::FileExists(dir_.Sub("pkg/.nomsoi-journal/entries")));
  }

  nomtest::TempDir dir_;
  nomplat::ScopedPathMaps maps_;
  std::string main_before_;
  std::string view_before_;
  std::string stderr_;
};

TEST_F(HostSafety, PackCompleteExitsZeroWhateverTheModuleResult) {
  // The last copied document refers to nothing, so the module's own result is a failure.
  EXPECT_EQ(Pack("pkg"), 0) << stderr_;
  EXPECT_NE(stderr_.find("nomsoi pack: 3 documents, 3 geometry files, 0 resources, "),
            std::string::npos)
      << stderr_;
  EXPECT_NE(
      stderr_.find("0 missing, 0 failed; output " + dir_.Sub("pkg") + "; module result 0x80004005"),
      std::string::npos)
      << stderr_;
  EXPECT_EQ(nomtest::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ProductList"),
            (std::vector<std::string>{"A.vgxXml", "C.vgxXml"}));
}

TEST_F(HostSafety, PackWithMissingReferenceExitsThree) {
  WriteFile(dir_.Sub("lib/A.vgxXml"), AssemblyDocument({"Gone.vgxXml"}));
  EXPECT_EQ(Pack("pkg"), 3) << stderr_;
  EXPECT_NE(stderr_.find("1 missing, 0 failed"), std::string::npos) << stderr_;
  EXPECT_NE(stderr_.find("missing document '" + Backslashed("lib/Gone.vgxXml") + "' (named by '" +
                         Backslashed("lib/A.vgxXml") + "')"),
            std::string::npos)
      << stderr_;
}

TEST_F(HostSafety, ReadOnlyOutputPutsTheMainDocumentBack) {
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCopyFile, 1, 5, /*sticky=*/true);
  EXPECT_EQ(Pack("pkg"), 1) << stderr_;
  ExpectPackageAsBefore();
  EXPECT_NE(stderr_.find("access denied"), std::string::npos) << stderr_;
  EXPECT_NE(stderr_.find("put back as they were"), std::string::npos) << stderr_;
}

TEST_F(HostSafety, DiskFullMidwayPutsTheMainDocumentBack) {
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCopyFile, 3, 112, /*sticky=*/true);
  EXPECT_EQ(Pack("pkg"), 1) << stderr_;
  ExpectPackageAsBefore();
  EXPECT_NE(stderr_.find("disk full"), std::string::npos) << stderr_;
}

TEST_F(HostSafety, FailedSaveOfACopyPutsTheMainDocumentBack) {
  pk::ScopedFaults faults;
  // The main document and view file are saved first; the third save rewrites the first copy.
  faults.env().FailOn(nomplat::FaultInjectionEnv::kWriteFileAtomic, 3, 112);
  EXPECT_EQ(Pack("pkg"), 1) << stderr_;
  ExpectPackageAsBefore();
  EXPECT_NE(stderr_.find("failed save"), std::string::npos) << stderr_;
}

TEST_F(HostSafety, OutputElsewhereLeavesTheInputUntouched) {
  const std::string a_before = ReadFile(dir_.Sub("lib/A.vgxXml"));
  EXPECT_EQ(Pack("out"), 0) << stderr_;
  ExpectPackageAsBefore();
  EXPECT_EQ(ReadFile(dir_.Sub("lib/A.vgxXml")), a_before);
  EXPECT_EQ(nomtest::ListReferences(dir_.Sub("out/SOI.vgxXml"), "ProductList"),
            (std::vector<std::string>{"A.vgxXml", "C.vgxXml"}));
  EXPECT_EQ(nomtest::ElementAttribute(dir_.Sub("out/SOI.vgxView"), "VgxView", "Document"),
            "SOI.vgxXml");
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("out")),
            (std::vector<std::string>{"A.vgxGeom", "A.vgxXml", "B.vgxGeom", "B.vgxXml", "C.vgxGeom",
                                      "C.vgxXml", "SOI.vgxView", "SOI.vgxXml"}));
}

TEST_F(HostSafety, InterruptedRunIsPutBackByTheNextRun) {
  // A run that died after saving the main document with bare names, before the copies landed.
  nomsoi::Journal journal;
  ASSERT_EQ(journal.Begin(dir_.Sub("pkg"), {dir_.Sub("pkg/SOI.vgxXml")}), "");
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
            nomtest::MainDocument({{"ProductList", {"A.vgxXml", "C.vgxXml"}}}));
  EXPECT_EQ(Pack("pkg"), 0) << stderr_;
  EXPECT_NE(stderr_.find("put back '" + dir_.Sub("pkg/SOI.vgxXml") +
                         "' as it was before an interrupted run"),
            std::string::npos)
      << stderr_;
  EXPECT_TRUE(nomtest::FileExists(dir_.Sub("pkg/A.vgxXml")));
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("pkg/.nomsoi-journal/entries")));
}

TEST_F(HostSafety, RefusedRunWritesNothing) {
  WriteFile(dir_.Sub("lib/B.vgxXml"), AssemblyDocument({"A.vgxXml"}));
  EXPECT_EQ(Pack("out"), 2) << stderr_;
  EXPECT_NE(stderr_.find("nomsoi pack: refused: reference cycle: '"), std::string::npos) << stderr_;
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("out")));
  ExpectPackageAsBefore();
}

}  // namespace
