// Reaches the private operations and members of NOMSOIUtility for tests.
#ifndef NOM_TESTS_SUPPORT_PEER_H_
#define NOM_TESTS_SUPPORT_PEER_H_

#include <deque>
#include <string>

#include "NOMSOIUtility.h"

class NOMSOIUtilityTestPeer {
 public:
  explicit NOMSOIUtilityTestPeer(NOMSOIUtility& u) : u_(u) {}

  HRESULT HandleChildrenNodes(IXMLDOMNode* list, NOMZUBDOMWrapper& doc, const std::string& soi,
                              const std::string& main) {
    return u_.HandleChildrenNodes(list, doc, soi, main);
  }
  HRESULT HandleChildrenNodes_ODT(IXMLDOMNode* list, NOMZUBDOMWrapper& doc, const std::string& soi,
                                  const std::string& main) {
    return u_.HandleChildrenNodes_ODT(list, doc, soi, main);
  }
  HRESULT CheckInternalReference(const std::string& doc, const std::string& soi) {
    return u_.CheckInternalReference(doc, soi);
  }
  HRESULT GetActualPath(std::string doc, std::string& ref, std::string& target) {
    return u_.GetActualPath(doc, ref, target);
  }
  HRESULT ResolveRelativePath(std::string& base, std::string& rel) {
    return u_.ResolveRelativePath(base, rel);
  }
  HRESULT UpdateRelativePaths(std::string path) { return u_.UpdateRelativePaths(path); }
  void FormatFilePath(std::string& path) { u_.FormatFilePath(path); }
  void PrintError(const std::string& source, const std::string& target, const int32_t& unused,
                  const int32_t& copyResult) {
    u_.PrintError(source, target, unused, copyResult);
  }
  void PoupulateOIDProcessIdentMap(NOMStringMultimap& map) { u_.PoupulateOIDProcessIdentMap(map); }
  void AddViewInfo(NOMZUBDOMWrapper& doc, IXMLDOMNode* entity, const std::string& oid,
                   const NOMStringMultimap& oidMap, const NOMStringMap& nameMap) {
    u_.AddViewInfo(doc, entity, oid, oidMap, nameMap);
  }

  std::string& ExtractDirSuffix() { return u_._ExtractDirSuffix; }
  std::deque<std::string>& CopiedXmlFiles() { return u_._CopiedXmlFiles; }
  static NOMOIDIdentPathsMap& OIDIdentPathsMap2() { return NOMSOIUtility::_OIDIdentPathsMap2; }
  static NOMStringMap& OpOIDIdentPathMap2() { return NOMSOIUtility::_OpOIDIdentPathMap2; }

 private:
  NOMSOIUtility& u_;
};

#endif  // NOM_TESTS_SUPPORT_PEER_H_
