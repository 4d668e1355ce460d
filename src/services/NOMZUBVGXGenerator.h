// Package generation and positioning (NOMZUBProxy).
#ifndef NOM_SERVICES_NOMZUBVGXGENERATOR_H_
#define NOM_SERVICES_NOMZUBVGXGENERATOR_H_

#include <string>

#include "NOMSOITypes.h"

class NOM_API NOMZUBVGXGenerator {
 public:
  NOMZUBVGXGenerator();
  virtual ~NOMZUBVGXGenerator();
  // Writes the package of the connected project into soiDirectory: name + ".vgxXml", its view
  // file, product documents and geometry; registers it as the last generated package and fills
  // the identifier cache. input selects what to generate and option the reference forms (see
  // docs). S_OK; E_FAIL with the cause at level 2.
  HRESULT GenerateVGXPackage(const std::string& input, const std::string& soiDirectory,
                             const std::string& name, const std::string& option);
};

class NOM_API NOMZUBApply3DStatesCmd {
 public:
  NOMZUBApply3DStatesCmd();
  ~NOMZUBApply3DStatesCmd();
  // Writes the project's 3D states into the last generated package. S_OK; E_FAIL (cause at level
  // 2) when there is no package or no state to apply.
  HRESULT ApplyStates();
};

class NOM_API NOMZUBApplySimPositionBlobCmd {
 public:
  NOMZUBApplySimPositionBlobCmd();
  ~NOMZUBApplySimPositionBlobCmd();
  // Writes the project's simulation positions into the last generated package. S_OK; E_FAIL
  // (cause at level 2) when there is no package or no position to apply.
  HRESULT ApplySimPositionBlobs();
};

namespace nomzub {

// What the generator and the two commands do. The default is the real implementation; tests
// install a fake to record calls and return chosen codes.
class NOM_API GeneratorBackend {
 public:
  virtual ~GeneratorBackend();
  virtual HRESULT GenerateVGXPackage(const std::string& input, const std::string& soiDirectory,
                                     const std::string& name, const std::string& option) = 0;
  virtual HRESULT ApplyStates() = 0;
  virtual HRESULT ApplySimPositionBlobs() = 0;
};

// Installs backend (null: the real one) and returns the one it replaces.
NOM_API GeneratorBackend* SetGeneratorBackend(GeneratorBackend* backend);

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBVGXGENERATOR_H_
