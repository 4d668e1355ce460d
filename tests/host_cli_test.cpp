// nomsoi's command-line conventions, driven in process: --version, -q and -v and what they do to
// standard error and the log, the verify command, the "Example:" line of every --help, and the
// manual page and bash completion generated from the same definitions as --help.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
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

// The lines of text, each without its newline.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The lines of text that start with prefix.
std::vector<std::string> LinesStartingWith(const std::string& text, const std::string& prefix) {
  std::vector<std::string> found;
  for (const std::string& line : Lines(text)) {
    if (line.compare(0, prefix.size(), prefix) == 0) found.push_back(line);
  }
  return found;
}

// The version that project() gives in the top-level CMakeLists.txt: the one place it is written.
std::string ProjectVersion() {
  const char* source = std::getenv("NOMSOI_SOURCE_DIR");
  if (source == nullptr) return "";
  const std::string cmake = ReadFile(std::string(source) + "/CMakeLists.txt");
  std::smatch match;
  if (!std::regex_search(cmake, match, std::regex(R"(project\([^)]*VERSION\s+([0-9.]+))")))
    return "";
  return match[1];
}

// A view file naming the main document and a shared resource by bare names.
std::string BareViewDocument() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<VgxViews Document=\"SOI.vgxXml\">\n"
         "  <View Ident=\"V1\" Name=\"Front\"/>\n"
         "  <Resource File=\"Line.png\"/>\n"
         "</VgxViews>\n";
}

class HostCli : public ::testing::Test {
 protected:
  HostCli() : log_(nomzub::SetLogSink(nullptr)) {}
  ~HostCli() override {
    nomzub::SetLogEcho(nullptr);
    nomzub::SetStderrLogFilter(nullptr);
    nomzub::ResetLogConfiguration();
    nomzub::SetLogSink(log_);
    nomsoi::SetVerbosity(nomsoi::Verbosity::kNormal);
    nomzub::ClearPackage();
  }

  // Runs nomsoi with args (the program's name added); keeps standard output in out_ and standard
  // error, the log records written to it included, in err_.
  int Nomsoi(std::vector<std::string> args) {
    args.insert(args.begin(), "nomsoi");
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = nomsoi::RunCommandLine(static_cast<int>(argv.size()), argv.data());
    nomzub::FlushLog();
    err_ = testing::internal::GetCapturedStderr();
    out_ = testing::internal::GetCapturedStdout();
    return status;
  }

  // A package to pack: pkg/SOI.vgxXml names lib/A.vgxXml, which names lib/B.vgxXml.
  void WritePackage() {
    WriteProduct("lib/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
    WriteProduct("lib/B.vgxXml", AssemblyDocument({kAbsent}));
    WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
              nomtest::MainDocument({{"ProductList", {"..\\lib\\A.vgxXml"}}}));
    WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  }

  void WriteProduct(const std::string& rel, const std::string& body) {
    WriteFile(dir_.Sub(rel), body);
    WriteFile(dir_.Sub(rel.substr(0, rel.size() - 6) + "vgxGeom"), "glb:" + rel);
  }

  // Packs the package of WritePackage into out_rel, with extra options before the command.
  int Pack(std::vector<std::string> options, const std::string& out_rel) {
    options.insert(options.end(), {"pack", "--main", dir_.Sub("pkg/SOI.vgxXml"), "--view",
                                   dir_.Sub("pkg/SOI.vgxView"), "--out", dir_.Sub(out_rel)});
    return Nomsoi(options);
  }

  // A self-contained package in pkg/: SOI.vgxXml -> A.vgxXml -> B.vgxXml, each with geometry,
  // and a view file with a shared resource.
  void WriteSelfContainedPackage() {
    WriteFile(dir_.Sub("pkg/SOI.vgxXml"), nomtest::MainDocument({{"ProductList", {"A.vgxXml"}}}));
    WriteFile(dir_.Sub("pkg/SOI.vgxView"), BareViewDocument());
    WriteFile(dir_.Sub("pkg/Line.png"), "png");
    WriteProduct("pkg/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
    WriteProduct("pkg/B.vgxXml", AssemblyDocument({kAbsent}));
  }

  int Verify(const std::string& rel, std::vector<std::string> options = {}) {
    options.insert(options.end(), {"verify", dir_.Sub(rel)});
    return Nomsoi(options);
  }

  // nomsoi connect to a database that cannot be opened: the connector logs why at level 2.
  int ConnectNowhere(std::vector<std::string> options) {
    options.insert(options.end(), {"connect", "--server", "sqlite:" + dir_.Sub("none/x.db"),
                                   "--login", "u", "--password", "p", "--project", "prj"});
    return Nomsoi(options);
  }

  nomtest::TempDir dir_;
  nomplat::ScopedPathMaps maps_;
  nomtest::ScopedEnvVar log_variable_{"NOMZUB_LOG", std::nullopt};
  nomtest::ScopedEnvVar format_variable_{"NOMZUB_LOG_FORMAT", std::nullopt};
  std::string out_;
  std::string err_;

 private:
  nomzub::LogSink* log_;
};

// --- --version -------------------------------------------------------------------------------

TEST_F(HostCli, Version_PrintsTheProjectVersionAndExitsZero) {
  const std::string version = ProjectVersion();
  ASSERT_FALSE(version.empty()) << "NOMSOI_SOURCE_DIR must name the source tree";
  EXPECT_EQ(Nomsoi({"--version"}), 0) << err_;
  EXPECT_EQ(out_, "nomsoi " + version + "\n");
  EXPECT_EQ(err_, "");
}

TEST_F(HostCli, Version_AfterGlobalOptionsStillNeedsNoCommand) {
  EXPECT_EQ(Nomsoi({"-q", "--log-format", "raw", "--version"}), 0) << err_;
  EXPECT_EQ(out_, nomsoi::VersionText() + "\n");
}

// --- -q and -v -------------------------------------------------------------------------------

TEST_F(HostCli, Normal_SuccessfulPackPrintsSummaryAndLog) {
  WritePackage();
  EXPECT_EQ(Pack({"--log-format", "raw"}, "out"), 0) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "nomsoi pack: 2 documents, 2 geometry files").size(), 1u)
      << err_;
  EXPECT_FALSE(LinesStartingWith(err_, "1\tInfo:\t Handle Product Child Nodes").empty()) << err_;
}

TEST_F(HostCli, Quiet_SuccessfulPackPrintsNothing) {
  WritePackage();
  EXPECT_EQ(Pack({"-q", "--log-format", "raw"}, "out"), 0) << err_;
  EXPECT_EQ(err_, "");
  EXPECT_EQ(out_, "");
  EXPECT_TRUE(nomtest::FileExists(dir_.Sub("out/B.vgxGeom")));
}

TEST_F(HostCli, Quiet_MissingFilesKeepTheSummaryAndTheirList) {
  WritePackage();
  WriteFile(dir_.Sub("lib/A.vgxXml"), AssemblyDocument({"Gone.vgxXml"}));
  EXPECT_EQ(Pack({"--quiet", "--log-format", "raw"}, "out"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "nomsoi pack: ").size(), 1u) << err_;
  EXPECT_NE(err_.find("1 missing, 0 failed"), std::string::npos) << err_;
  std::string gone = dir_.Sub("lib/Gone.vgxXml");
  for (char& c : gone) c = c == '/' ? '\\' : c;
  EXPECT_EQ(LinesStartingWith(err_, "  missing document "),
            std::vector<std::string>{"  missing document '" + gone + "' (named by '" +
                                     gone.substr(0, gone.size() - 11) + "A.vgxXml')"})
      << err_;
}

TEST_F(HostCli, Quiet_LogOnStderrKeepsOnlyErrorRecords) {
  WritePackage();
  WriteFile(dir_.Sub("lib/A.vgxXml"), AssemblyDocument({"Gone.vgxXml"}));
  EXPECT_EQ(Pack({"-q", "--log-format", "raw"}, "out"), 3) << err_;
  // The module's "Unable to open Document" and progress records are information: not shown.
  EXPECT_EQ(LinesStartingWith(err_, "0\t").size(), 0u) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "1\t").size(), 0u) << err_;
}

TEST_F(HostCli, Quiet_FailedCopyShowsTheModuleErrorRecord) {
  WritePackage();
  pk::ScopedFaults faults;
  faults.env().FailOn(nomplat::FaultInjectionEnv::kCopyFile, 1, 5, /*sticky=*/true);
  EXPECT_EQ(Pack({"-q", "--log-format", "raw"}, "out"), 1) << err_;
  EXPECT_FALSE(LinesStartingWith(err_, "0\t****** ERROR:\t Copying File. ").empty()) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "1\t").size(), 0u) << err_;
  EXPECT_NE(err_.find("access denied"), std::string::npos) << err_;
  EXPECT_NE(err_.find("put back as they were"), std::string::npos) << err_;
}

TEST_F(HostCli, Quiet_ServiceErrorRecordsAndModuleErrorsShownInformationNot) {
  EXPECT_EQ(ConnectNowhere({"-q", "--log-format", "raw"}), 1) << err_;
  EXPECT_FALSE(LinesStartingWith(err_, "2\t****** ERROR:\t ").empty()) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "0\t****** ERROR:\t FAILED to Connect").size(), 1u) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "0\tInfo:").size(), 0u) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "2\tInfo:").size(), 0u) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "nomsoi connect: not connected to ").size(), 1u) << err_;
}

TEST_F(HostCli, Quiet_LogFileIsNotFiltered) {
  WritePackage();
  EXPECT_EQ(Pack({"-q", "--log-format", "raw", "--log", dir_.Sub("log")}, "out"), 0) << err_;
  EXPECT_EQ(err_, "");
  EXPECT_FALSE(LinesStartingWith(ReadFile(dir_.Sub("log")), "1\tInfo:\t Handle Product").empty());
}

TEST_F(HostCli, Quiet_RefusalIsStillShown) {
  EXPECT_EQ(Nomsoi({"-q", "--log-format", "raw", "pack", "--main", dir_.Sub("none.vgxXml"), "--out",
                    dir_.Sub("out")}),
            2);
  const std::vector<std::string> lines = Lines(err_);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "nomsoi pack: --main: '" + dir_.Sub("none.vgxXml") +
                          "' does not exist (expected an XML document)");
  // The DOM wrapper's cause is an error record: it stays.
  for (size_t i = 1; i < lines.size(); ++i)
    EXPECT_EQ(lines[i].rfind("2\t****** ERROR:\t ", 0), 0u) << lines[i];
}

TEST_F(HostCli, Normal_LogFileKeepsServiceRecordsOffStderr) {
  EXPECT_EQ(ConnectNowhere({"--log-format", "raw", "--log", dir_.Sub("log")}), 1) << err_;
  EXPECT_FALSE(LinesStartingWith(ReadFile(dir_.Sub("log")), "2\t").empty());
  EXPECT_EQ(LinesStartingWith(err_, "2\t").size(), 0u) << err_;
}

TEST_F(HostCli, Verbose_LogFileServiceRecordsAlsoOnStderrExactly) {
  EXPECT_EQ(ConnectNowhere({"-v", "--log-format", "raw", "--log", dir_.Sub("log")}), 1) << err_;
  const std::vector<std::string> in_file = LinesStartingWith(ReadFile(dir_.Sub("log")), "2\t");
  ASSERT_FALSE(in_file.empty());
  EXPECT_EQ(LinesStartingWith(err_, "2\t"), in_file) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "0\t").size(), 0u) << err_;
}

TEST_F(HostCli, Verbose_TextRecordsKeepTheirTimestampOnStderr) {
  EXPECT_EQ(ConnectNowhere({"--verbose", "--log", dir_.Sub("log")}), 1) << err_;
  std::vector<std::string> in_file;
  for (const std::string& line : Lines(ReadFile(dir_.Sub("log")))) {
    if (line.find(" L2 ") == 24) in_file.push_back(line);
  }
  ASSERT_FALSE(in_file.empty());
  for (const std::string& line : in_file) EXPECT_NE(err_.find(line + "\n"), std::string::npos);
}

TEST_F(HostCli, Verbose_LogOnStderrIsNotDoubled) {
  EXPECT_EQ(ConnectNowhere({"-v", "--log-format", "raw"}), 1) << err_;
  const std::vector<std::string> service = LinesStartingWith(err_, "2\t");
  ASSERT_FALSE(service.empty()) << err_;
  for (const std::string& line : service) {
    EXPECT_EQ(err_.find(line + "\n"), err_.rfind(line + "\n")) << line;
  }
  EXPECT_FALSE(LinesStartingWith(err_, "0\tInfo:").empty()) << err_;
}

TEST_F(HostCli, QuietAndVerbose_IsAUsageError) {
  WritePackage();
  EXPECT_EQ(Pack({"-q", "-v"}, "out"), 2);
  EXPECT_NE(err_.find("--quiet excludes --verbose"), std::string::npos) << err_;
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("out")));
}

TEST_F(HostCli, QuietAfterTheCommandAndVerboseBefore_IsAUsageError) {
  WritePackage();
  EXPECT_EQ(Nomsoi({"--verbose", "verify", dir_.Sub("pkg"), "--quiet"}), 2);
  EXPECT_NE(err_.find("excludes"), std::string::npos) << err_;
}

TEST_F(HostCli, Quiet_ConnectedPrintsNothing) {
  // A database with the sample project, then a login that reaches it.
  const std::string server = "sqlite:" + dir_.Sub("plan.db");
  ASSERT_EQ(Nomsoi({"--log", dir_.Sub("log"), "db", "sample", "--server", server}), 0) << err_;
  EXPECT_EQ(Nomsoi({"--log", dir_.Sub("log"), "connect", "--server", server, "--login", "planner",
                    "--password", "planner", "--project", "AssemblyLine"}),
            0)
      << err_;
  EXPECT_NE(out_.find("connected to project 'AssemblyLine'"), std::string::npos) << out_;
  EXPECT_EQ(Nomsoi({"-q", "--log", dir_.Sub("log"), "connect", "--server", server, "--login",
                    "planner", "--password", "planner", "--project", "AssemblyLine"}),
            0)
      << err_;
  EXPECT_EQ(out_, "");
  EXPECT_EQ(err_, "");
}

// --- verify ----------------------------------------------------------------------------------

TEST_F(HostCli, Verify_BareNamesOfPresentFilesExitZero) {
  WriteSelfContainedPackage();
  EXPECT_EQ(Verify("pkg"), 0) << err_;
  EXPECT_EQ(err_, "nomsoi verify: '" + dir_.Sub("pkg") +
                      "' is self-contained: 4 documents, 6 references (2 geometry files) "
                      "checked\n");
}

TEST_F(HostCli, Verify_PathReferenceIsNotABareName) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
            nomtest::MainDocument({{"ProductList", {"..\\lib\\A.vgxXml"}}}));
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "document "),
            std::vector<std::string>{
                "document 'SOI.vgxXml' references '..\\lib\\A.vgxXml': not a bare name"});
}

TEST_F(HostCli, Verify_SlashSeparatedReferenceIsNotABareName) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"), AssemblyDocument({"parts/B.vgxXml"}));
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(
      LinesStartingWith(err_, "document "),
      std::vector<std::string>{"document 'A.vgxXml' references 'parts/B.vgxXml': not a bare name"});
}

TEST_F(HostCli, Verify_DriveReferenceIsNotABareName) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"), AssemblyDocument({"C:B.vgxXml"}));
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(
      LinesStartingWith(err_, "document "),
      std::vector<std::string>{"document 'A.vgxXml' references 'C:B.vgxXml': not a bare name"});
}

TEST_F(HostCli, Verify_ShareReferenceIsNotABareName) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"), AssemblyDocument({"\\\\srv\\pub\\B.vgxXml"}));
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "document "),
            std::vector<std::string>{
                "document 'A.vgxXml' references '\\\\srv\\pub\\B.vgxXml': not a bare name"});
}

TEST_F(HostCli, Verify_MissingGeometryIsNamedWithItsDocument) {
  WriteSelfContainedPackage();
  ASSERT_EQ(std::remove(dir_.Sub("pkg/B.vgxGeom").c_str()), 0);
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "document "),
            std::vector<std::string>{
                "document 'A.vgxXml' references 'B.vgxGeom' (geometry of 'B.vgxXml'): missing"});
}

TEST_F(HostCli, Verify_MissingDocumentIsMissing) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"), AssemblyDocument({"B.vgxXml", "Gone.vgxXml"}));
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "document "),
            std::vector<std::string>{"document 'A.vgxXml' references 'Gone.vgxXml': missing"});
  EXPECT_EQ(LinesStartingWith(err_, "nomsoi verify: '" + dir_.Sub("pkg") +
                                        "' is not self-contained: 1 problems; ")
                .size(),
            1u)
      << err_;
}

TEST_F(HostCli, Verify_MissingSharedResourceIsMissing) {
  WriteSelfContainedPackage();
  ASSERT_EQ(std::remove(dir_.Sub("pkg/Line.png").c_str()), 0);
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "document "),
            std::vector<std::string>{"document 'SOI.vgxView' references 'Line.png': missing"});
}

TEST_F(HostCli, Verify_ViewNamingAnotherMainDocumentIsMissing) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/SOI.vgxView"),
            "<VgxViews Document=\"AssemblyLine.vgxXml\"><View Name=\"Front\"/></VgxViews>\n");
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(
      LinesStartingWith(err_, "document "),
      std::vector<std::string>{"document 'SOI.vgxView' references 'AssemblyLine.vgxXml': missing"});
}

TEST_F(HostCli, Verify_CaseMismatchIsFoundWithoutLetterCase) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"), AssemblyDocument({"b.VGXXML"}));
  EXPECT_EQ(Verify("pkg"), 0) << err_;
}

TEST_F(HostCli, Verify_CaseMismatchIsMissingWhenLetterCaseCounts) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"), AssemblyDocument({"b.VGXXML"}));
  nomplat::SetCaseInsensitiveLookup(false);
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "document "),
            std::vector<std::string>{"document 'A.vgxXml' references 'b.VGXXML': missing"});
}

TEST_F(HostCli, Verify_DocumentThatIsNotXmlExitsTwoNamingIt) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/B.vgxXml"), "<VgxDocument><CLitAssyGroup></VgxDocument>");
  EXPECT_EQ(Verify("pkg", {"--log-format", "raw", "--log", dir_.Sub("log")}), 2) << err_;
  EXPECT_EQ(err_, "nomsoi verify: document 'B.vgxXml' is not well-formed XML\n");
  // The DOM wrapper has logged why.
  EXPECT_FALSE(
      LinesStartingWith(ReadFile(dir_.Sub("log")), "2\t****** ERROR:\t Cannot parse XML document ")
          .empty());
}

TEST_F(HostCli, Verify_EmptyDirectoryExitsTwo) {
  ASSERT_TRUE(std::filesystem::create_directory(dir_.Sub("empty")));
  EXPECT_EQ(Verify("empty"), 2) << err_;
  EXPECT_EQ(err_, "nomsoi verify: '" + dir_.Sub("empty") +
                      "' holds no package document (*.vgxXml or *.vgxView)\n");
}

TEST_F(HostCli, Verify_DirectoryOfOtherFilesExitsTwo) {
  WriteFile(dir_.Sub("other/Mapping.xml"), "<Mapping/>");
  WriteFile(dir_.Sub("other/A.vgxGeom"), "glb");
  EXPECT_EQ(Verify("other"), 2) << err_;
  EXPECT_EQ(err_, "nomsoi verify: '" + dir_.Sub("other") +
                      "' holds no package document (*.vgxXml or *.vgxView)\n");
}

TEST_F(HostCli, Verify_MissingDirectoryExitsTwo) {
  EXPECT_EQ(Verify("none"), 2) << err_;
  EXPECT_EQ(err_, "nomsoi verify: '" + dir_.Sub("none") + "' does not exist\n");
}

TEST_F(HostCli, Verify_FileInsteadOfDirectoryExitsTwo) {
  WriteFile(dir_.Sub("file"), "x");
  EXPECT_EQ(Verify("file"), 2) << err_;
  EXPECT_EQ(err_, "nomsoi verify: '" + dir_.Sub("file") + "' is not a directory\n");
}

TEST_F(HostCli, Verify_EachProblemOnALineOfItsOwnInDocumentOrder) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"),
            AssemblyDocument({"..\\B.vgxXml", "Gone.vgxXml", "Gone.vgxXml", "B.vgxXml"}));
  ASSERT_EQ(std::remove(dir_.Sub("pkg/Line.png").c_str()), 0);
  EXPECT_EQ(Verify("pkg"), 3) << err_;
  EXPECT_EQ(LinesStartingWith(err_, "document "),
            (std::vector<std::string>{
                "document 'A.vgxXml' references '..\\B.vgxXml': not a bare name",
                "document 'A.vgxXml' references 'Gone.vgxXml': missing",
                "document 'SOI.vgxView' references 'Line.png': missing",
            }));
}

TEST_F(HostCli, Verify_QuietSuccessPrintsNothing) {
  WriteSelfContainedPackage();
  EXPECT_EQ(Verify("pkg", {"-q"}), 0) << err_;
  EXPECT_EQ(err_, "");
}

TEST_F(HostCli, Verify_QuietProblemsAndSummaryStillShown) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/A.vgxXml"), AssemblyDocument({"Gone.vgxXml"}));
  EXPECT_EQ(Verify("pkg", {"-q"}), 3) << err_;
  EXPECT_EQ(Lines(err_).size(), 2u) << err_;
  EXPECT_EQ(Lines(err_)[0], "document 'A.vgxXml' references 'Gone.vgxXml': missing");
  EXPECT_EQ(Lines(err_)[1].rfind("nomsoi verify: '", 0), 0u) << err_;
}

TEST_F(HostCli, Verify_PackedOutputIsSelfContained) {
  WritePackage();
  ASSERT_EQ(Pack({"--log", dir_.Sub("log")}, "out"), 0) << err_;
  EXPECT_EQ(Verify("pkg"), 3) << err_;  // the input still names ..\lib\A.vgxXml
  EXPECT_EQ(Verify("out"), 0) << err_;
}

TEST_F(HostCli, VerifyPackage_CountsTheDocumentsInNameOrder) {
  WriteSelfContainedPackage();
  WriteFile(dir_.Sub("pkg/Mapping.xml"), "<Mapping/>");
  const nomsoi::VerifyResult result = nomsoi::VerifyPackage(dir_.Sub("pkg"));
  EXPECT_TRUE(result.SelfContained());
  EXPECT_EQ(result.documents,
            (std::vector<std::string>{"A.vgxXml", "B.vgxXml", "SOI.vgxView", "SOI.vgxXml"}));
  EXPECT_EQ(result.references, 6u);
  EXPECT_EQ(result.geometry, 2u);
}

TEST_F(HostCli, VerifyPackage_ReadsThroughAMappedDrive) {
  WriteSelfContainedPackage();
  nomplat::MapDrive('P', dir_.Sub("pkg"));
  const nomsoi::VerifyResult result = nomsoi::VerifyPackage("P:\\");
  EXPECT_EQ(result.refused, "");
  EXPECT_EQ(result.documents.size(), 4u);
  EXPECT_TRUE(result.SelfContained());
}

// --- --help, the manual page and the completion script ---------------------------------------

// Each command's name, from the definitions themselves.
std::vector<std::string> CommandNames() {
  nomsoi::CommandLine line;
  std::vector<std::string> names;
  for (const nomsoi::Command& command : line.commands()) names.push_back(command.app->get_name());
  return names;
}

TEST_F(HostCli, Help_TopLevelEndsWithAnExampleLine) {
  EXPECT_EQ(Nomsoi({"--help"}), 0);
  const std::vector<std::string> lines = Lines(out_);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back().rfind("Example: nomsoi ", 0), 0u) << out_;
}

TEST_F(HostCli, Help_EveryCommandEndsWithItsExampleLine) {
  const std::vector<std::string> names = CommandNames();
  ASSERT_EQ(names.size(), 7u);
  for (const std::string& name : names) {
    EXPECT_EQ(Nomsoi({name, "--help"}), 0) << name;
    const std::vector<std::string> lines = Lines(out_);
    ASSERT_FALSE(lines.empty()) << name;
    EXPECT_EQ(lines.back().rfind("Example: nomsoi " + name + " ", 0), 0u) << out_;
  }
}

TEST_F(HostCli, Help_EveryExampleIsAValidInvocation) {
  nomsoi::CommandLine reference;
  for (const nomsoi::Command& command : reference.commands()) {
    std::istringstream words(command.example);
    std::vector<std::string> args;
    for (std::string word; words >> word;) args.push_back(word);
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    nomsoi::CommandLine line;  // parses only: runs nothing
    EXPECT_NO_THROW(line.app().parse(static_cast<int>(argv.size()), argv.data()))
        << command.example;
    bool parsed = false;
    for (const nomsoi::Command& candidate : line.commands()) {
      if (candidate.app->parsed()) parsed = candidate.app->get_name() == command.app->get_name();
    }
    EXPECT_TRUE(parsed) << command.example;
  }
}

// The manual page's text for an option name: hyphens escaped as roff needs them.
std::string RoffName(const std::string& name) {
  std::string out;
  for (const char c : name) out += c == '-' ? std::string("\\-") : std::string(1, c);
  return out;
}

// The text of the manual page section whose heading line is heading, up to the next heading.
std::string Section(const std::string& page, const std::string& heading) {
  const std::string::size_type start = page.find("\n" + heading + "\n");
  if (start == std::string::npos) return "";
  const std::string::size_type end = page.find("\n.S", start + heading.size() + 2);
  return page.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// Every name of an option, "--x" and "-x", or a positional's type name.
std::vector<std::string> OptionNames(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

TEST_F(HostCli, ManPage_HasTheSectionsInOrder) {
  nomsoi::CommandLine line;
  const std::string page = nomsoi::ManPage(line);
  size_t at = 0;
  for (const char* heading : {".SH NAME", ".SH SYNOPSIS", ".SH DESCRIPTION", ".SH OPTIONS",
                              ".SH \"EXIT STATUS\"", ".SH ENVIRONMENT", ".SH EXAMPLES"}) {
    const size_t found = page.find(std::string("\n") + heading + "\n", at);
    ASSERT_NE(found, std::string::npos) << heading;
    at = found + 1;
  }
  EXPECT_EQ(page.find(".TH NOMSOI 1 "), page.find('\n') + 1) << page.substr(0, 200);
}

TEST_F(HostCli, ManPage_ListsEveryOptionOfEveryCommand) {
  nomsoi::CommandLine line;
  const std::string page = nomsoi::ManPage(line);
  const std::string global = Section(page, ".SS \"Global options\"");
  ASSERT_FALSE(global.empty());
  for (const CLI::Option* option : line.app().get_options()) {
    for (const std::string& name : OptionNames(*option))
      EXPECT_NE(global.find("\\fB" + RoffName(name) + "\\fR"), std::string::npos) << name;
  }
  for (const nomsoi::Command& command : line.commands()) {
    const std::string section =
        Section(page, ".SS \"nomsoi " + RoffName(command.app->get_name()) + "\"");
    ASSERT_FALSE(section.empty()) << command.app->get_name();
    for (const CLI::Option* option : command.app->get_options()) {
      if (option == command.app->get_help_ptr()) continue;
      for (const std::string& name : OptionNames(*option)) {
        EXPECT_NE(section.find("\\fB" + RoffName(name) + "\\fR"), std::string::npos)
            << command.app->get_name() << " " << name;
      }
      if (option->get_positional()) {
        EXPECT_NE(section.find("\\fI" +
                               RoffName(option->get_type_name().substr(
                                   0, option->get_type_name().find(':'))) +
                               "\\fR"),
                  std::string::npos)
            << command.app->get_name() << " " << option->get_name(true);
      }
    }
    EXPECT_NE(Section(page, ".SH EXAMPLES").find(RoffName(command.example)), std::string::npos)
        << command.example;
  }
}

TEST_F(HostCli, ManPage_ListsEveryExitStatusAndEnvironmentVariable) {
  nomsoi::CommandLine line;
  const std::string page = nomsoi::ManPage(line);
  const std::string statuses = Section(page, ".SH \"EXIT STATUS\"");
  for (const nomsoi::HelpEntry& status : nomsoi::ExitStatuses())
    EXPECT_NE(statuses.find(".TP\n\\fB" + status.name + "\\fR\n"), std::string::npos);
  const std::string environment = Section(page, ".SH ENVIRONMENT");
  for (const nomsoi::HelpEntry& variable : nomsoi::EnvironmentVariables())
    EXPECT_NE(environment.find("\\fB" + variable.name + "\\fR"), std::string::npos);
}

// The completion script's arm for a command, from "    name)" to its ";;".
std::string CompletionArm(const std::string& script, const std::string& name) {
  const std::string::size_type start = script.find("\n    " + name + ")\n");
  if (start == std::string::npos) return "";
  return script.substr(start, script.find(";;", start) - start);
}

// The words of the first "_nomsoi_words" call in text, whose list opens with quote.
std::vector<std::string> OfferedWords(const std::string& text, char quote) {
  const std::string opening = std::string("_nomsoi_words ") + quote;
  const std::string::size_type start = text.find(opening);
  if (start == std::string::npos) return {};
  const std::string::size_type from = start + opening.size();
  std::istringstream list(text.substr(from, text.find(quote, from) - from));
  std::vector<std::string> words;
  for (std::string word; list >> word;) words.push_back(word);
  return words;
}

bool Holds(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

TEST_F(HostCli, Completion_ListsEveryOptionOfEveryCommand) {
  nomsoi::CommandLine line;
  const std::string script = nomsoi::BashCompletion(line);
  for (const nomsoi::Command& command : line.commands()) {
    const std::string name = command.app->get_name();
    const std::vector<std::string> offered = OfferedWords(CompletionArm(script, name), '\'');
    ASSERT_FALSE(offered.empty()) << name;
    for (const CLI::Option* option : command.app->get_options()) {
      for (const std::string& option_name : OptionNames(*option)) {
        EXPECT_TRUE(Holds(offered, option_name)) << name << " " << option_name;
        // An option that takes a value has a case of its own for the value.
        if (option->get_expected_max() != 0) {
          EXPECT_NE(script.find("'" + name + " " + option_name + "'"), std::string::npos)
              << name << " " << option_name;
        }
      }
    }
  }
  const std::vector<std::string> top = OfferedWords(CompletionArm(script, "\"\""), '"');
  for (const nomsoi::Command& command : line.commands())
    EXPECT_TRUE(Holds(top, command.app->get_name())) << command.app->get_name();
  for (const CLI::Option* option : line.app().get_options()) {
    for (const std::string& option_name : OptionNames(*option))
      EXPECT_TRUE(Holds(top, option_name)) << option_name;
  }
  EXPECT_NE(script.find("\ncomplete -F _nomsoi nomsoi\n"), std::string::npos);
}

TEST_F(HostCli, Completion_OffersTheAllowedWordsOfEveryOptionThatTakesOneOfASet) {
  nomsoi::CommandLine line;
  const std::string script = nomsoi::BashCompletion(line);
  std::vector<CLI::App*> apps = {&line.app()};
  for (const nomsoi::Command& command : line.commands()) apps.push_back(command.app);
  int sets = 0;
  for (CLI::App* app : apps) {
    for (const CLI::Option* option : app->get_options()) {
      const std::string type = option->get_type_name();
      const std::string::size_type set = type.find(":{");
      if (set == std::string::npos) continue;
      ++sets;
      std::string words = type.substr(set + 2, type.size() - set - 3);
      for (char& c : words) c = c == ',' ? ' ' : c;
      EXPECT_NE(script.find("_nomsoi_words '" + words + "' \"$cur\""), std::string::npos) << type;
    }
  }
  EXPECT_EQ(sets, 3);  // --log-format, --position, db's action
}

TEST_F(HostCli, Completion_CompletesFileAndDirectoryValuesAsSuch) {
  nomsoi::CommandLine line;
  const std::string script = nomsoi::BashCompletion(line);
  const auto arm_of = [&script](const std::string& pattern) {
    const std::string::size_type at = script.find(pattern);
    return at == std::string::npos ? std::string() : script.substr(at, script.find(";;", at) - at);
  };
  EXPECT_NE(arm_of("'pack --main'").find("_nomsoi_files"), std::string::npos);
  EXPECT_NE(arm_of("'pack --out'").find("_nomsoi_dirs"), std::string::npos);
  EXPECT_NE(CompletionArm(script, "verify").find("_nomsoi_dirs"), std::string::npos);
}

}  // namespace
