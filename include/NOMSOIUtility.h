// NOMSOIUtility: the one class the module exports. A host creates it, connects it to the planning
// data server, dumps packages into SOI directories, disconnects and destroys it.
#ifndef NOMSOI_UTILITY_H_
#define NOMSOI_UTILITY_H_

#include <deque>
#include <string>

#include "NOMSOITypes.h"

class NOMZUBDOMWrapper;
class IXMLDOMNode;

class NOM_API NOMSOIUtility {
 public:
  // Empty suffix, empty copy list; touches no service and logs nothing.
  NOMSOIUtility();
  // Copies the suffix and the copy list, element by element, in order.
  NOMSOIUtility(const NOMSOIUtility& other);
  // Assigns the suffix and the copy list; self-assignment changes nothing.
  NOMSOIUtility& operator=(const NOMSOIUtility& other);
  // Releases the members; closes no connection and logs nothing.
  virtual ~NOMSOIUtility();

  // Attaches the process-wide connector: data source, login, connect, project, filters.
  // Returns 1 when every step passed, 0 otherwise (only E_FAIL counts as a failed step).
  nomsoi::BOOL ConnectServer(const std::string& login, const std::string& password,
                             const std::string& project, const std::string& filters);
  // Cleans up and detaches the connector when there is one. Always returns 1.
  nomsoi::BOOL DisconnectServer();
  // Runs the generator alone with the four arguments; returns its result. Logs nothing.
  nomsoi::HRESULT GenerateVGXFiles(const std::string& generatorInput,
                                   const std::string& soiDirectory, const std::string& packageName,
                                   const std::string& generatorOption);
  // Applies "3D_States" or "Simulation_Positions"; any other text (also empty) gives E_FAIL.
  nomsoi::HRESULT ApplyPosition(const std::string& positionMode);
  // Gathers the last generated package into soiDirectory and rewrites its references.
  nomsoi::HRESULT PackNGo(const std::string& soiDirectory);
  // Generation, positioning, Pack & Go (unless lightMode), mapping (if generateMapping).
  // Returns the result of the last stage that ran.
  nomsoi::HRESULT DumpVGXPackage(const std::string& generatorInput, const std::string& soiDirectory,
                                 bool lightMode, const std::string& generatorOption,
                                 const std::string& positionMode, bool generateMapping);
  // Pack & Go and mapping over the package under $ADL_ODT_IN\NOMZUBVGXExtractTest.
  void DumpVGXPackage_ODT(const std::string& generatorInput, const std::string& soiDirectory,
                          bool lightMode, const std::string& generatorOption,
                          const std::string& positionMode, bool generateMapping);
  // Writes directory\Mapping.xml from the identifier cache and the object factory.
  nomsoi::HRESULT GenerateMappingXML(const std::string& directory);
  // Appends Name, IDPath and OID text children to entity; E_INVALIDARG when entity is null.
  nomsoi::HRESULT AddElements(NOMZUBDOMWrapper& doc, IXMLDOMNode* entity, std::string name,
                              std::string identPath, std::string oid);

 private:
  nomsoi::HRESULT HandleChildrenNodes(IXMLDOMNode* listNode, NOMZUBDOMWrapper& doc,
                                      const std::string& soiDirectory,
                                      const std::string& mainXmlPath);
  nomsoi::HRESULT HandleChildrenNodes_ODT(IXMLDOMNode* listNode, NOMZUBDOMWrapper& doc,
                                          const std::string& soiDirectory,
                                          const std::string& mainXmlPath);
  nomsoi::HRESULT CheckInternalReference(const std::string& docPath,
                                         const std::string& soiDirectory);
  nomsoi::HRESULT GetActualPath(std::string docPath, std::string& ref, std::string& target);
  nomsoi::HRESULT ResolveRelativePath(std::string& base, std::string& rel);
  nomsoi::HRESULT UpdateRelativePaths(std::string path);
  void FormatFilePath(std::string& path);
  void PrintError(const std::string& source, const std::string& target, const int32_t& unused,
                  const int32_t& copyResult);
  void PoupulateOIDProcessIdentMap(nomsoi::NOMStringMultimap& oidProcessIdentMap);
  void AddViewInfo(NOMZUBDOMWrapper& doc, IXMLDOMNode* entity, const std::string& operationOID,
                   const nomsoi::NOMStringMultimap& oidProcessIdentMap,
                   const nomsoi::NOMStringMap& processIdentNameMap);

  // Appended, with no separator, to the ODT input directory. Never set by an operation.
  std::string _ExtractDirSuffix;
  // Target paths of every product document copy attempted, in order, duplicates kept.
  std::deque<std::string> _CopiedXmlFiles;

  // OID -> ident paths, filled from the identifier cache by GenerateMappingXML.
  static nomsoi::NOMOIDIdentPathsMap _OIDIdentPathsMap2;
  // Operation OID -> ident path, filled from the identifier cache by GenerateMappingXML.
  static nomsoi::NOMStringMap _OpOIDIdentPathMap2;

  // The walk shared by the two child-handling variants.
  friend class NOMSOIChildWalk;
  // The host's check of a package before Pack & Go resolves references with the module's own
  // rules.
  friend class NOMSOIPreflight;
  // Tests reach the private operations through it.
  friend class NOMSOIUtilityTestPeer;
};

#endif  // NOMSOI_UTILITY_H_
