// The exported object's lifetime and its connection to the data server.
#include "NOMSOIUtility.h"

#include "services/NOMZUBConnector.h"
#include "utility/module_internal.h"

using nomsoi::Log;

NOMOIDIdentPathsMap NOMSOIUtility::_OIDIdentPathsMap2;
NOMStringMap NOMSOIUtility::_OpOIDIdentPathMap2;

NOMSOIUtility::NOMSOIUtility() = default;

NOMSOIUtility::NOMSOIUtility(const NOMSOIUtility& other)
    : _ExtractDirSuffix(other._ExtractDirSuffix), _CopiedXmlFiles(other._CopiedXmlFiles) {}

NOMSOIUtility& NOMSOIUtility::operator=(const NOMSOIUtility& other) {
  if (this != &other) {
    _ExtractDirSuffix = other._ExtractDirSuffix;
    _CopiedXmlFiles = other._CopiedXmlFiles;
  }
  return *this;
}

NOMSOIUtility::~NOMSOIUtility() = default;

namespace {

constexpr const char kConnectEntry[] = "Info:\t NOMSOIUtility::ConnectServer -->";
constexpr const char kConnectExit[] = "Info:\t NOMSOIUtility::ConnectServer <--";

// Logs the failed step and the exit line; ConnectServer then returns 0.
BOOL ConnectFailed(const char* errorLine) {
  Log(errorLine);
  Log(kConnectExit);
  return 0;
}

}  // namespace

BOOL NOMSOIUtility::ConnectServer(const std::string& login, const std::string& password,
                                  const std::string& project, const std::string& filters) {
  Log(kConnectEntry);
  NOMZUBConnector* connector = NOMZUBConnector::Instance();
  if (connector == nullptr) {
    Log(kConnectExit);
    return 0;
  }
  connector->SetDataSource(static_cast<NOMZUBConnector::NOMZUBDataSource>(0));
  // Only E_FAIL stops the sequence: any other failure code counts as success.
  if (connector->SetLogin(login, password) == E_FAIL) {
    return ConnectFailed("****** ERROR:\t FAILED to Login");
  }
  if (connector->Connect(COINIT_APARTMENTTHREADED) == E_FAIL) {
    return ConnectFailed("****** ERROR:\t FAILED to Connect");
  }
  if (connector->SetProject(project) == E_FAIL) {
    return ConnectFailed("****** ERROR:\t FAILED to SetProject");
  }
  if (connector->SetFilters(filters) == E_FAIL) {
    return ConnectFailed("****** ERROR:\t FAILED to Set filter string");
  }
  Log(kConnectExit);
  return 1;
}

BOOL NOMSOIUtility::DisconnectServer() {
  Log("Info:\t NOMSOIUtility::DisconnectServer -->");
  if (NOMZUBConnector* connector = NOMZUBConnector::Instance()) {
    connector->Cleanup(1);
    connector->Disconnect(0);
  }
  Log("Info:\t NOMSOIUtility::DisconnectServer <--");
  return 1;
}
