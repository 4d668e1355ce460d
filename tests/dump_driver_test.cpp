// The package dump driver and its two single-stage operations, over a recording generator backend
// and a real, registered package: stage order, the exact lines with their levels, and the result
// of the last stage that ran.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXGen.h"
#include "support/driver_fakes.h"
#include "support/driver_package.h"
#include "support/test_support.h"

namespace {

using nomtest::LogLine;
using nomtest::ModuleLines;
using nomtest::ZPath;
using nomzub::DomCall;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const LogLine kIn{0, "Info:\t DumpVGXPackage ->>"};
const LogLine kOut{0, "Info:\t <<- DumpVGXPackage "};
const LogLine kGenerationError{0, "****** ERROR:\t Error in VGX files Generation."};
const LogLine kPositionsError{0, "****** ERROR:\t Error in Applying Positions."};
const LogLine kPackNGoError{0, "****** ERROR:\t Error in VGX PackNGo."};
const LogLine kMappingError{0, "****** ERROR:\t ERROR:\t Error in generating MappingXML."};
const LogLine kLightMode{0,
                         "Info:\t Pack & Go Light Mode Requested. Pointed geometry (*.vgxXml + "
                         "*.vgxGeom) will NOT be copied to SOI directory."};
// What a Pack & Go of a package without list groups and without copies writes.
const LogLine kRelativeStart{
    0, "Info:\t Updating the relative paths in extracted <KRTProduct>.vgxXml files..."};
const LogLine kRelativeDone{0, "Info:\t Updation of relative paths done..."};
// What a successful mapping stage writes.
const LogLine kMappingIn{0, "Info:\t GenerateMappingXML -->"};
const LogLine kMappingOut{0, "Info:\t <-- GenerateMappingXML"};

const HRESULT kAccessDenied = E_ACCESSDENIED;
const HRESULT kOutOfMemory = E_OUTOFMEMORY;
const HRESULT kSharingViolation = static_cast<HRESULT>(0x80070020u);

class DumpDriverTest : public ::testing::Test {
 protected:
  // The generator has left a package without list groups in the SOI directory: Pack & Go, when
  // it runs, saves it and returns 0.
  void SetUp() override {
    nomtest::WriteFile(soi_.Sub("SOI.vgxXml"), nomtest::MainDocument({}));
    nomzub::RegisterPackage(ZPath(soi_.Sub("SOI.vgxXml")), "");
  }

  HRESULT Dump(bool lightMode, const std::string& positionMode, bool generateMapping) {
    return utility_.DumpVGXPackage("plan:OP-7", Soi(), lightMode, "refs=relative", positionMode,
                                   generateMapping);
  }
  std::string Soi() const { return ZPath(soi_.path()); }
  std::string GenerateCall() const {
    return "GenerateVGXPackage(plan:OP-7|" + Soi() + "|SOI|refs=relative)";
  }
  // Makes Pack & Go fail: no package is registered any more.
  void NoPackage() { nomzub::ClearPackage(); }
  bool MappingWritten() const { return nomtest::FileExists(soi_.Sub("Mapping.xml")); }

  nomtest::ScopedServiceState services_;
  nomtest::TempDir soi_;
  nomtest::FakeGenerator generator_;
  nomtest::ScopedGeneratorBackend backend_{&generator_};
  nomtest::LogCapture log_;
  NOMSOIUtility utility_;
};

// ---- Edge cases ----

TEST_F(DumpDriverTest, EmptyPositionLightNoMapping_ThreeLinesAndGenerationResult) {
  nomtest::RecordingDomHook dom;
  generator_.set_generate_result(S_FALSE);
  EXPECT_EQ(Dump(true, "", false), S_FALSE);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
  EXPECT_THAT(dom.records(), IsEmpty());
}

TEST_F(DumpDriverTest, EmptyPositionLightNoMappingGenerationOk_ReturnsZero) {
  EXPECT_EQ(Dump(true, "", false), S_OK);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kLightMode, kOut));
}

TEST_F(DumpDriverTest, PositionModeDiffersInCaseLight_PositionErrorAndEFail) {
  EXPECT_EQ(Dump(true, "3d_states", false), E_FAIL);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPositionsError, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
}

TEST_F(DumpDriverTest, PositionModeDiffersInCaseWithPackNGo_ResultIsPackNGos) {
  EXPECT_EQ(Dump(false, "3d_states", false), S_OK);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kPositionsError, kRelativeStart, kRelativeDone, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
}

TEST_F(DumpDriverTest, PositionModeDiffersInCaseWithFailingPackNGo_ResultIsPackNGos) {
  NoPackage();
  EXPECT_EQ(Dump(false, "SIMULATION_POSITIONS", false), E_FAIL);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPositionsError, kPackNGoError, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
}

TEST_F(DumpDriverTest, GenerationFailsEmptyPositionPackNGoOk_DoubleReportThenPackNGoResult) {
  generator_.set_generate_result(kAccessDenied);
  EXPECT_EQ(Dump(false, "", false), S_OK);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kGenerationError, kPositionsError, kRelativeStart,
                                             kRelativeDone, kOut));
}

TEST_F(DumpDriverTest, GenerationFailsEmptyPositionPackNGoFails_PackNGoResult) {
  generator_.set_generate_result(kAccessDenied);
  NoPackage();
  EXPECT_EQ(Dump(false, "", false), E_FAIL);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kGenerationError, kPositionsError, kPackNGoError, kOut));
}

TEST_F(DumpDriverTest, MappingSucceedsAfterEveryEarlierStageFailed_ReturnsSuccess) {
  generator_.set_generate_result(E_FAIL);
  NoPackage();
  EXPECT_EQ(Dump(false, "Bogus", true), S_OK);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kGenerationError, kPositionsError, kPackNGoError,
                                             kMappingIn, kMappingOut, kOut));
  EXPECT_TRUE(MappingWritten());
}

TEST_F(DumpDriverTest, ApplyPosition_EmptyString_EFailWithoutCommand) {
  EXPECT_EQ(utility_.ApplyPosition(""), E_FAIL);
  EXPECT_THAT(generator_.calls(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DumpDriverTest, EmptyPositionMode_SkipsPositioning) {
  generator_.set_states_result(E_FAIL);
  generator_.set_positions_result(E_FAIL);
  EXPECT_EQ(Dump(true, "", false), S_OK);
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kLightMode, kOut));
}

// ---- Failure handling, row by row ----

TEST_F(DumpDriverTest, GenerationFailsLaterPositionStageRuns_GenerationCodeOverwritten) {
  generator_.set_generate_result(kAccessDenied);
  EXPECT_EQ(Dump(true, "3D_States", false), S_OK);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kGenerationError, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall(), "ApplyStates"));
}

TEST_F(DumpDriverTest, GenerationFailsNoLaterStage_GenerationCodeKept) {
  generator_.set_generate_result(kAccessDenied);
  EXPECT_EQ(Dump(true, "", false), kAccessDenied);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kGenerationError, kPositionsError, kLightMode, kOut));
}

TEST_F(DumpDriverTest, UnknownPositionModeNoLaterStage_EFailKept) {
  EXPECT_EQ(Dump(true, "Exploded_View", false), E_FAIL);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPositionsError, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
}

TEST_F(DumpDriverTest, PositionModeWithTrailingBlank_IsUnknown) {
  EXPECT_EQ(Dump(true, "3D_States ", false), E_FAIL);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPositionsError, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
}

TEST_F(DumpDriverTest, UnknownPositionModeAfterFailedGeneration_BothLinesEFail) {
  generator_.set_generate_result(kAccessDenied);
  EXPECT_EQ(Dump(true, "none", false), E_FAIL);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kGenerationError, kPositionsError, kLightMode, kOut));
}

TEST_F(DumpDriverTest, StatesCommandFailsNoLaterStage_CommandCodeKept) {
  generator_.set_states_result(kAccessDenied);
  EXPECT_EQ(Dump(true, "3D_States", false), kAccessDenied);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPositionsError, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall(), "ApplyStates"));
}

TEST_F(DumpDriverTest, PositionsCommandFailsNoLaterStage_CommandCodeKept) {
  generator_.set_positions_result(kOutOfMemory);
  EXPECT_EQ(Dump(true, "Simulation_Positions", false), kOutOfMemory);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPositionsError, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall(), "ApplySimPositionBlobs"));
}

TEST_F(DumpDriverTest, StatesCommandFailsThenPackNGo_PackNGoResult) {
  generator_.set_states_result(kAccessDenied);
  EXPECT_EQ(Dump(false, "3D_States", false), S_OK);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kPositionsError, kRelativeStart, kRelativeDone, kOut));
}

TEST_F(DumpDriverTest, EmptyPositionGenerationFailed_PositionsLineAfterGenerationLine) {
  generator_.set_generate_result(kSharingViolation);
  EXPECT_EQ(Dump(true, "", false), kSharingViolation);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kGenerationError, kPositionsError, kLightMode, kOut));
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall()));
}

TEST_F(DumpDriverTest, PackNGoFailsNoMapping_PackNGoCodeKept) {
  NoPackage();
  EXPECT_EQ(Dump(false, "", false), E_FAIL);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPackNGoError, kOut));
}

TEST_F(DumpDriverTest, PackNGoFailsThenMappingSucceeds_MappingResult) {
  NoPackage();
  EXPECT_EQ(Dump(false, "", true), S_OK);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kPackNGoError, kMappingIn, kMappingOut, kOut));
}

TEST_F(DumpDriverTest, MappingFails_MappingCodeReturned) {
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kCreateDocument, kSharingViolation);
  EXPECT_EQ(Dump(false, "", true), kSharingViolation);
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kRelativeStart, kRelativeDone, kMappingIn, kMappingError, kOut));
  EXPECT_FALSE(MappingWritten());
}

TEST_F(DumpDriverTest, MappingFailsAfterEveryStageSucceeded_MappingCodeReturned) {
  nomtest::RecordingDomHook dom;
  dom.FailAll(DomCall::kCreateDocument, kOutOfMemory);
  EXPECT_EQ(Dump(true, "Simulation_Positions", true), kOutOfMemory);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kLightMode, kMappingIn, kMappingError, kOut));
}

TEST_F(DumpDriverTest, PositiveCodesFromEveryStage_PassSilentlyAndLastIsReturned) {
  generator_.set_generate_result(S_FALSE);
  generator_.set_states_result(static_cast<HRESULT>(0x00040001));
  EXPECT_EQ(Dump(true, "3D_States", false), static_cast<HRESULT>(0x00040001));
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kLightMode, kOut));
}

// ---- Stage order and arguments ----

TEST_F(DumpDriverTest, AllStages_RunInOrderWithTheirLines) {
  EXPECT_EQ(Dump(false, "Simulation_Positions", true), S_OK);
  EXPECT_THAT(generator_.calls(), ElementsAre(GenerateCall(), "ApplySimPositionBlobs"));
  EXPECT_THAT(ModuleLines(log_),
              ElementsAre(kIn, kRelativeStart, kRelativeDone, kMappingIn, kMappingOut, kOut));
  EXPECT_TRUE(MappingWritten());
}

TEST_F(DumpDriverTest, GeneratorArguments_InputDirectoryLiteralSOIAndOption) {
  utility_.DumpVGXPackage("", "Z:/out dir/", true, " opt ", "", false);
  EXPECT_THAT(generator_.calls(), ElementsAre("GenerateVGXPackage(|Z:/out dir/|SOI| opt )"));
}

TEST_F(DumpDriverTest, LightModeWithMapping_NoPackNGoButMappingWritten) {
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(Dump(true, "", true), S_OK);
  EXPECT_THAT(ModuleLines(log_), ElementsAre(kIn, kLightMode, kMappingIn, kMappingOut, kOut));
  EXPECT_THAT(dom.Arguments(DomCall::kOpenDocument), IsEmpty());
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), ElementsAre(Soi() + "\\Mapping.xml"));
  EXPECT_TRUE(MappingWritten());
}

TEST_F(DumpDriverTest, NotLight_PackNGoOpensAndSavesTheRegisteredMainDocument) {
  nomtest::RecordingDomHook dom;
  EXPECT_EQ(Dump(false, "", false), S_OK);
  EXPECT_THAT(dom.Arguments(DomCall::kOpenDocument), ElementsAre(Soi() + "\\SOI.vgxXml"));
  EXPECT_THAT(dom.Arguments(DomCall::kSaveDoc), ElementsAre(Soi() + "\\SOI.vgxXml"));
}

TEST_F(DumpDriverTest, NoMappingRequested_NoMappingFile) {
  EXPECT_EQ(Dump(false, "", false), S_OK);
  EXPECT_FALSE(MappingWritten());
}

// ---- Single stages ----

TEST_F(DumpDriverTest, GenerateVGXFiles_PassesFourArgumentsInOrderAndReturnsResult) {
  generator_.set_generate_result(kAccessDenied);
  EXPECT_EQ(utility_.GenerateVGXFiles("in", "Z:\\soi", "Pkg", "opt"), kAccessDenied);
  EXPECT_THAT(generator_.calls(), ElementsAre("GenerateVGXPackage(in|Z:\\soi|Pkg|opt)"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DumpDriverTest, GenerateVGXFiles_PositiveResult_ReturnedUnchanged) {
  generator_.set_generate_result(S_FALSE);
  EXPECT_EQ(utility_.GenerateVGXFiles("a", "b", "c", "d"), S_FALSE);
  EXPECT_THAT(generator_.calls(), ElementsAre("GenerateVGXPackage(a|b|c|d)"));
}

TEST_F(DumpDriverTest, ApplyPosition_3DStates_ReturnsStatesResult) {
  generator_.set_states_result(kAccessDenied);
  EXPECT_EQ(utility_.ApplyPosition("3D_States"), kAccessDenied);
  EXPECT_THAT(generator_.calls(), ElementsAre("ApplyStates"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DumpDriverTest, ApplyPosition_SimulationPositions_ReturnsPositionsResult) {
  generator_.set_positions_result(S_FALSE);
  EXPECT_EQ(utility_.ApplyPosition("Simulation_Positions"), S_FALSE);
  EXPECT_THAT(generator_.calls(), ElementsAre("ApplySimPositionBlobs"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DumpDriverTest, ApplyPosition_DiffersInCase_EFailWithoutCommand) {
  EXPECT_EQ(utility_.ApplyPosition("simulation_positions"), E_FAIL);
  EXPECT_EQ(utility_.ApplyPosition("3D_STATES"), E_FAIL);
  EXPECT_THAT(generator_.calls(), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
