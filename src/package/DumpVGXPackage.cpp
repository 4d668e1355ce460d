// Producing a package end to end: from the data server, or from a package already on disk.
#include <vector>

#include "NOMSOIUtility.h"
#include "platform/win32.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXGenerator.h"
#include "utility/module_internal.h"

using nomsoi::Log;

namespace {

constexpr const char k3DStates[] = "3D_States";
constexpr const char kSimulationPositions[] = "Simulation_Positions";

bool Is(const std::string& mode, const char* name) { return nomplat::MbsCompare(mode, name) == 0; }

// The directory named by ADL_ODT_IN ("" when unset), read as Windows programs read it: the size
// first, then the value into a buffer of exactly that size.
std::string OdtEnvironmentDirectory() {
  const DWORD size = nomplat::GetEnvironmentVariableA("ADL_ODT_IN", nullptr, 0);
  if (size == 0) return std::string();
  std::vector<char> buffer(size, '\0');
  nomplat::GetEnvironmentVariableA("ADL_ODT_IN", buffer.data(), size);
  return std::string(buffer.data());
}

}  // namespace

HRESULT NOMSOIUtility::GenerateVGXFiles(const std::string& generatorInput,
                                        const std::string& soiDirectory,
                                        const std::string& packageName,
                                        const std::string& generatorOption) {
  NOMZUBVGXGenerator generator;
  return generator.GenerateVGXPackage(generatorInput, soiDirectory, packageName, generatorOption);
}

HRESULT NOMSOIUtility::ApplyPosition(const std::string& positionMode) {
  if (Is(positionMode, k3DStates)) {
    NOMZUBApply3DStatesCmd command;
    return command.ApplyStates();
  }
  if (Is(positionMode, kSimulationPositions)) {
    NOMZUBApplySimPositionBlobCmd command;
    return command.ApplySimPositionBlobs();
  }
  return E_FAIL;
}

HRESULT NOMSOIUtility::DumpVGXPackage(const std::string& generatorInput,
                                      const std::string& soiDirectory, bool lightMode,
                                      const std::string& generatorOption,
                                      const std::string& positionMode, bool generateMapping) {
  Log("Info:\t DumpVGXPackage ->>");
  HRESULT rc;
  {
    NOMZUBVGXGenerator generator;
    rc = generator.GenerateVGXPackage(generatorInput, soiDirectory, "SOI", generatorOption);
  }
  if (rc < 0) Log("****** ERROR:\t Error in VGX files Generation.");

  // An empty mode skips positioning and keeps the generation's result, so a failed generation
  // is reported a second time below.
  if (nomplat::MbsCompare(positionMode, "") != 0) {
    rc = E_FAIL;
    if (Is(positionMode, k3DStates)) {
      NOMZUBApply3DStatesCmd command;
      rc = command.ApplyStates();
    } else if (Is(positionMode, kSimulationPositions)) {
      NOMZUBApplySimPositionBlobCmd command;
      rc = command.ApplySimPositionBlobs();
    }
  }
  if (rc < 0) Log("****** ERROR:\t Error in Applying Positions.");

  if (!lightMode) {
    rc = PackNGo(soiDirectory);
    if (rc < 0) Log("****** ERROR:\t Error in VGX PackNGo.");
  } else {
    Log(nomsoi::kLightModeRequested);
  }

  if (generateMapping) {
    rc = GenerateMappingXML(soiDirectory);
    if (rc < 0) Log("****** ERROR:\t ERROR:\t Error in generating MappingXML.");
  }
  Log("Info:\t <<- DumpVGXPackage ");
  return rc;
}

void NOMSOIUtility::DumpVGXPackage_ODT(const std::string& /*generatorInput*/,
                                       const std::string& soiDirectory, bool lightMode,
                                       const std::string& /*generatorOption*/,
                                       const std::string& /*positionMode*/, bool generateMapping) {
  Log("Info:\t DumpVGXPackage_ODT ->>");
  Log("Info:\t Generating VGX Package ...");
  Log("Info:\t Running in ODT mode ...");

  const std::string inputDirectory =
      OdtEnvironmentDirectory() + "\\NOMZUBVGXExtractTest" + _ExtractDirSuffix;
  Log("Input Directory: " + inputDirectory);
  Log("Output Directory: " + soiDirectory);
  std::string packagePath = inputDirectory + "\\SOI.vgxXml";

  if (!lightMode) {
    FormatFilePath(packagePath);
    NOMZUBDOMWrapper doc;
    doc.OpenDocument(packagePath);
    for (const nomsoi::ListGroup& group : nomsoi::kListGroups) {
      IXMLDOMNode* list = nullptr;
      doc.GetNode("CLitAssyGroup", &list, "Ident", group.ident);
      if (list == nullptr) continue;
      Log(group.before);
      HandleChildrenNodes_ODT(list, doc, soiDirectory, packagePath);
      Log(group.after);
      list->Release();
    }
    doc.SaveDoc(packagePath);
  } else {
    Log(nomsoi::kLightModeRequested);
  }

  const std::size_t count = _CopiedXmlFiles.size();
  Log(nomsoi::kUpdatingRelativePaths);
  for (std::size_t i = 0; i < count; ++i) UpdateRelativePaths(_CopiedXmlFiles[i]);
  Log(nomsoi::kRelativePathsDone);

  if (!generateMapping) {
    Log("Info:\t Generation of MappingXML skipped - Env not set");
  } else if (GenerateMappingXML(soiDirectory) < 0) {
    Log("****** ERROR:\t GenerateMappingXML failed...");
  }
  Log("Info:\t <<- DumpVGXPackage_ODT ");
}
