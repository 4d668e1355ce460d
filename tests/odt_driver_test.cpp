// The ODT-mode dump driver over packages already extracted under $ADL_ODT_IN: the input and output
// directory lines, the document opened and saved, the list-group lines, light mode, the relative
// path update of earlier copies, and the mapping stage.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "support/driver_fakes.h"
#include "support/driver_package.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

using nomtest::ListGroup;
using nomtest::LogLine;
using nomtest::ModuleLines;
using nomtest::ZPath;
using nomzub::DomCall;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const char kExtractDir[] = "\\NOMZUBVGXExtractTest";

const LogLine kIn{0, "Info:\t DumpVGXPackage_ODT ->>"};
const LogLine kGenerating{0, "Info:\t Generating VGX Package ..."};
const LogLine kOdtMode{0, "Info:\t Running in ODT mode ..."};
const LogLine kOut{0, "Info:\t <<- DumpVGXPackage_ODT "};
const LogLine kLightMode{0,
                         "Info:\t Pack & Go Light Mode Requested. Pointed geometry (*.vgxXml + "
                         "*.vgxGeom) will NOT be copied to SOI directory."};
const LogLine kRelativeStart{
    0, "Info:\t Updating the relative paths in extracted <KRTProduct>.vgxXml files..."};
const LogLine kRelativeDone{0, "Info:\t Updation of relative paths done..."};
const LogLine kMappingSkipped{0, "Info:\t Generation of MappingXML skipped - Env not set"};
const LogLine kMappingFailed{0, "****** ERROR:\t GenerateMappingXML failed..."};
const LogLine kMappingIn{0, "Info:\t GenerateMappingXML -->"};
const LogLine kMappingOut{0, "Info:\t <-- GenerateMappingXML"};
const LogLine kProductBefore{0, "Info:\t Handle Product Child Nodes ... "};
const LogLine kProductAfter{0, "Info:\t Handle Product Child Nodes ... Done!"};
const LogLine kResourceBefore{0, "Info:\t Handle Resource Child Nodes ... "};
const LogLine kResourceAfter{0, "Info:\t Handle Resource Child Nodes ... Done!"};
const LogLine kMPBefore{0, "Info:\t Handle MP Child Nodes ... "};
const LogLine kMPAfter{0, "Info:\t Handle MP Child Nodes ... Done!"};
const LogLine kContextBefore{0, "Info:\t Handle Context Child Nodes ..."};
const LogLine kContextAfter{0, "Info:\t Handle Context Child Nodes ... Done!"};
const LogLine kNoChildren{0, "Info:\t Nb Child Nodes: 0"};

const std::vector<ListGroup> kFourEmptyGroups = {
    {"ProductList", {}}, {"ResourceList", {}}, {"ManufProd", {}}, {"PlanningContext", {}}};

class OdtDriverTest : public ::testing::Test {
 protected:
  // Writes the extracted package's main document under the input directory.
  void WritePackage(const std::vector<ListGroup>& groups) {
    nomtest::WriteFile(Extracted("SOI.vgxXml"), nomtest::MainDocument(groups));
  }
  // A file of the extracted package directory (native).
  std::string Extracted(const std::string& name) const {
    return input_.Sub("NOMZUBVGXExtractTest/" + name);
  }
  void Run(bool lightMode, bool generateMapping, const std::string& positionMode = "") {
    utility_.DumpVGXPackage_ODT("ignored-input", Soi(), lightMode, "ignored-option", positionMode,
                                generateMapping);
  }
  std::string Soi() const { return ZPath(soi_.path()); }
  // The input directory as the test puts it into ADL_ODT_IN: a module path with backslashes.
  std::string InputDir() const { return ZPath(input_.path()); }
  LogLine InputLine(const std::string& inputDir) const {
    return {0, "Input Directory: " + inputDir + kExtractDir};
  }
  LogLine OutputLine() const { return {0, "Output Directory: " + Soi()}; }
  std::vector<LogLine> Prologue(const std::string& inputDir) const {
    return {kIn, kGenerating, kOdtMode, InputLine(inputDir), OutputLine()};
  }
  static std::vector<LogLine> Concat(std::vector<std::vector<LogLine>> parts) {
    std::vector<LogLine> out;
    for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
  }

  nomtest::ScopedServiceState services_;
  nomtest::TempDir input_;
  nomtest::TempDir soi_;
  nomtest::ScopedEnvVar env_{"ADL_ODT_IN", ZPath(input_.path())};
  nomtest::FakeGenerator generator_;
  nomtest::ScopedGeneratorBackend backend_{&generator_};
  nomtest::LogCapture log_;
  NOMSOIUtility utility_;
};

// ---- Edge cases ----

TEST_F(OdtDriverTest, InputDirectorySet_LinesNameItAndPackageOpenedAndSavedThere) {
  WritePackage({});
  nomtest::RecordingDomHook dom;
  Run(false, false);
  const std::string package = InputDir() + kExtractDir + "\\SOI.vgxXml";
  EXPECT_THAT(dom.Arguments(DomCall::kOpenDocument), ElementsAre(package));
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), ElementsAre(package));
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(Concat(
                  {Prologue(InputDir()), {kRelativeStart, kRelativeDone, kMappingSkipped, kOut}})));
}

TEST_F(OdtDriverTest, InputDirectoryWithForwardSlashes_LineKeepsThemPathGetsBackslashes) {
  WritePackage({});
  const std::string slashed = input_.path();  // a native path: "/tmp/..."
  nomtest::ScopedEnvVar env("ADL_ODT_IN", slashed);
  nomtest::RecordingDomHook dom;
  Run(false, false);
  std::string backslashed = slashed;
  for (char& c : backslashed) {
    if (c == '/') c = '\\';
  }
  const std::string package = backslashed + kExtractDir + "\\SOI.vgxXml";
  EXPECT_THAT(dom.Arguments(DomCall::kOpenDocument), ElementsAre(package));
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), ElementsAre(package));
  EXPECT_EQ(ModuleLines(log_).at(3), InputLine(slashed));
  EXPECT_EQ(ModuleLines(log_).at(4), OutputLine());
}

TEST_F(OdtDriverTest, LightMode_NothingOpenedLightLineAndRelativePathLines) {
  WritePackage(kFourEmptyGroups);
  const std::string before = nomtest::ReadFile(Extracted("SOI.vgxXml"));
  nomtest::RecordingDomHook dom;
  Run(true, false);
  EXPECT_THAT(dom.Arguments(DomCall::kOpenDocument), IsEmpty());
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), IsEmpty());
  EXPECT_THAT(dom.Arguments(DomCall::kGetNode), IsEmpty());
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(
                  Concat({Prologue(InputDir()),
                          {kLightMode, kRelativeStart, kRelativeDone, kMappingSkipped, kOut}})));
  EXPECT_EQ(nomtest::ReadFile(Extracted("SOI.vgxXml")), before);
}

TEST_F(OdtDriverTest, PackageWithoutManufProd_ItsLinesMissingOthersInOrder) {
  WritePackage({{"PlanningContext", {}}, {"ResourceList", {}}, {"ProductList", {}}});
  Run(false, false);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(
                  Concat({Prologue(InputDir()),
                          {kProductBefore, kNoChildren, kProductAfter, kResourceBefore, kNoChildren,
                           kResourceAfter, kContextBefore, kNoChildren, kContextAfter,
                           kRelativeStart, kRelativeDone, kMappingSkipped, kOut}})));
}

TEST_F(OdtDriverTest, AllFourGroups_LinesAtLevelZeroInFixedOrder) {
  WritePackage(kFourEmptyGroups);
  Run(false, false);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(Concat(
                  {Prologue(InputDir()),
                   {kProductBefore, kNoChildren, kProductAfter, kResourceBefore, kNoChildren,
                    kResourceAfter, kMPBefore, kNoChildren, kMPAfter, kContextBefore, kNoChildren,
                    kContextAfter, kRelativeStart, kRelativeDone, kMappingSkipped, kOut}})));
}

TEST_F(OdtDriverTest, GenerateMappingFalse_SkipLineAndNoMappingFile) {
  WritePackage({});
  nomtest::RecordingDomHook dom;
  Run(false, false);
  EXPECT_EQ(ModuleLines(log_).at(ModuleLines(log_).size() - 2), kMappingSkipped);
  EXPECT_FALSE(nomtest::FileExists(soi_.Sub("Mapping.xml")));
  EXPECT_THAT(dom.Arguments(DomCall::kCreateDocument), IsEmpty());
}

TEST_F(OdtDriverTest, PositionMode3DStates_HasNoEffect) {
  WritePackage(kFourEmptyGroups);
  Run(false, false, "3D_States");
  const std::vector<LogLine> withStates = ModuleLines(log_);
  log_.clear();
  Run(false, false, "");
  EXPECT_EQ(withStates, ModuleLines(log_));
  EXPECT_THAT(generator_.calls(), IsEmpty());
}

// ---- Further behaviour ----

TEST_F(OdtDriverTest, GenerateMappingTrue_MappingWrittenIntoOutputDirectory) {
  WritePackage({});
  nomtest::RecordingDomHook dom;
  Run(false, true);
  EXPECT_THAT(
      ModuleLines(log_),
      ElementsAreArray(Concat(
          {Prologue(InputDir()), {kRelativeStart, kRelativeDone, kMappingIn, kMappingOut, kOut}})));
  EXPECT_TRUE(nomtest::FileExists(soi_.Sub("Mapping.xml")));
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc),
              ElementsAre(InputDir() + kExtractDir + "\\SOI.vgxXml", Soi() + "\\Mapping.xml"));
}

TEST_F(OdtDriverTest, MappingFails_OnlyErrorLineOfTheDriver) {
  WritePackage({});
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kCreateDocument, E_ACCESSDENIED);
  Run(false, true);
  EXPECT_THAT(ModuleLines(log_), ElementsAreArray(Concat({Prologue(InputDir()),
                                                          {kRelativeStart, kRelativeDone,
                                                           kMappingIn, kMappingFailed, kOut}})));
}

TEST_F(OdtDriverTest, LightModeWithMapping_MappingStillWritten) {
  Run(true, true);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(Concat(
                  {Prologue(InputDir()),
                   {kLightMode, kRelativeStart, kRelativeDone, kMappingIn, kMappingOut, kOut}})));
  EXPECT_TRUE(nomtest::FileExists(soi_.Sub("Mapping.xml")));
}

TEST_F(OdtDriverTest, OutputDirectoryWithSlashes_PassedOnAsGiven) {
  WritePackage({});
  nomtest::RecordingDomHook dom;
  const std::string soi = soi_.path();  // native, with "/"
  utility_.DumpVGXPackage_ODT("", soi, false, "", "", true);
  EXPECT_EQ(ModuleLines(log_).at(4), (LogLine{0, "Output Directory: " + soi}));
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc),
              ElementsAre(InputDir() + kExtractDir + "\\SOI.vgxXml", soi + "\\Mapping.xml"));
  EXPECT_TRUE(nomtest::FileExists(soi_.Sub("Mapping.xml")));
}

TEST_F(OdtDriverTest, InputVariableUnset_InputDirectoryIsTheFolderAloneNoError) {
  nomtest::ScopedEnvVar env("ADL_ODT_IN", std::nullopt);
  nomtest::RecordingDomHook dom;
  Run(false, false);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(
                  Concat({Prologue(""), {kRelativeStart, kRelativeDone, kMappingSkipped, kOut}})));
  EXPECT_THAT(dom.Arguments(DomCall::kOpenDocument),
              ElementsAre(std::string(kExtractDir) + "\\SOI.vgxXml"));
}

TEST_F(OdtDriverTest, InputVariableEmpty_SameAsUnset) {
  nomtest::ScopedEnvVar env("ADL_ODT_IN", "");
  Run(true, false);
  EXPECT_EQ(ModuleLines(log_).at(3), InputLine(""));
}

TEST_F(OdtDriverTest, ExtractSuffixFromAssignedObject_AppendedWithoutSeparator) {
  WritePackage({});
  NOMSOIUtility carrier;
  NOMSOIUtilityTestPeer(carrier).ExtractDirSuffix() = "_B";
  utility_ = carrier;
  nomtest::RecordingDomHook dom;
  Run(false, false);
  EXPECT_EQ(ModuleLines(log_).at(3),
            (LogLine{0, "Input Directory: " + InputDir() + kExtractDir + "_B"}));
  EXPECT_THAT(dom.Arguments(DomCall::kOpenDocument),
              ElementsAre(InputDir() + kExtractDir + "_B\\SOI.vgxXml"));
}

TEST_F(OdtDriverTest, MissingPackage_NoGroupLinesAndNoError) {
  Run(false, false);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(Concat(
                  {Prologue(InputDir()), {kRelativeStart, kRelativeDone, kMappingSkipped, kOut}})));
}

TEST_F(OdtDriverTest, MainDocumentCannotBeSaved_NotReported) {
  WritePackage({{"ProductList", {}}});
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kSaveDoc, E_ACCESSDENIED);
  Run(false, false);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(Concat({Prologue(InputDir()),
                                       {kProductBefore, kNoChildren, kProductAfter, kRelativeStart,
                                        kRelativeDone, kMappingSkipped, kOut}})));
}

TEST_F(OdtDriverTest, LightModeWithEarlierCopies_RelativePathsStillUpdated) {
  nomtest::WriteFile(soi_.Sub("Earlier.vgxXml"),
                     nomtest::AssemblyDocument({"..\\Geo\\Part.vgxXml", "C:/Lib/Bolt.vgxXml"}));
  NOMSOIUtilityTestPeer(utility_).CopiedXmlFiles() = {Soi() + "\\Earlier.vgxXml"};
  Run(true, false);
  EXPECT_THAT(nomtest::InstanceReferences(soi_.Sub("Earlier.vgxXml")),
              ElementsAre("Part.vgxXml", "Bolt.vgxXml"));
  EXPECT_THAT(NOMSOIUtilityTestPeer(utility_).CopiedXmlFiles(),
              ElementsAre(Soi() + "\\Earlier.vgxXml"));
}

TEST_F(OdtDriverTest, ProductReferenced_CopiedListedAndMainDocumentAttributeKept) {
  nomtest::WriteProduct(input_.Sub("NOMZUBVGXExtractTest"), "Part");
  WritePackage({{"ProductList", {"./Part.vgxXml"}}});
  Run(false, false);
  EXPECT_EQ(nomtest::ReadFile(soi_.Sub("Part.vgxXml")), "<VgxDocument/>\n");
  EXPECT_EQ(nomtest::ReadFile(soi_.Sub("Part.vgxGeom")), "glTF-Part");
  EXPECT_THAT(NOMSOIUtilityTestPeer(utility_).CopiedXmlFiles(),
              ElementsAre(Soi() + "\\Part.vgxXml"));
  EXPECT_THAT(nomtest::ListReferences(Extracted("SOI.vgxXml"), "ProductList"),
              ElementsAre("./Part.vgxXml"));
  EXPECT_THAT(ModuleLines(log_),
              ElementsAreArray(
                  Concat({Prologue(InputDir()),
                          {kProductBefore, LogLine{0, "Info:\t Nb Child Nodes: 1"}, kProductAfter,
                           kRelativeStart, kRelativeDone, kMappingSkipped, kOut}})));
}

TEST_F(OdtDriverTest, SecondRun_RevisitsEntriesOfTheFirst) {
  nomtest::WriteProduct(input_.Sub("NOMZUBVGXExtractTest"), "Part");
  WritePackage({{"ProductList", {"Part.vgxXml"}}});
  Run(false, false);
  Run(false, false);
  EXPECT_THAT(NOMSOIUtilityTestPeer(utility_).CopiedXmlFiles(),
              ElementsAre(Soi() + "\\Part.vgxXml", Soi() + "\\Part.vgxXml"));
}

}  // namespace
