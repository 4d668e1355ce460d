// NOMZUBVGXGenerator and the two positioning commands, forwarding to the generator backend: the
// real one over the connected project unless a test installed another.
#include "NOMZUBProxy/package_writer.h"
#include "NOMZUBProxy/positioning.h"
#include "NOMZUBProxy/service_slot.h"
#include "NOMZUBProxy/session.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"
#include "services/NOMZUBVGXGenerator.h"
#include "services/NOMZUBVGXIdentCache.h"

namespace {

class ProjectGenerator : public nomzub::GeneratorBackend {
 public:
  HRESULT GenerateVGXPackage(const std::string& input, const std::string& soiDirectory,
                             const std::string& name, const std::string& option) override {
    // A failed generation leaves no package behind for the stages that follow.
    nomzub::IdentCacheClear();
    nomzub::ClearPackage();
    std::string why;
    const nomzub::proxy::Project* project = nomzub::proxy::LoadedProject(&why);
    if (project == nullptr) {
      nomzub::LogServiceError("cannot generate package '" + name + "': " + why);
      return E_FAIL;
    }
    return nomzub::proxy::GeneratePackage(*project, nomzub::proxy::CurrentFilter(), input,
                                          soiDirectory, name, option);
  }
  HRESULT ApplyStates() override { return nomzub::proxy::ApplyStatesToPackage(); }
  HRESULT ApplySimPositionBlobs() override { return nomzub::proxy::ApplyPositionsToPackage(); }
};

nomzub::GeneratorBackend* ProjectBackend() {
  static ProjectGenerator generator;
  return &generator;
}

nomzub::proxy::ServiceSlot<nomzub::GeneratorBackend> g_backend(ProjectBackend, nullptr);

}  // namespace

nomzub::GeneratorBackend::~GeneratorBackend() = default;

nomzub::GeneratorBackend* nomzub::SetGeneratorBackend(GeneratorBackend* replacement) {
  return g_backend.Set(replacement);
}

NOMZUBVGXGenerator::NOMZUBVGXGenerator() = default;
NOMZUBVGXGenerator::~NOMZUBVGXGenerator() = default;

HRESULT NOMZUBVGXGenerator::GenerateVGXPackage(const std::string& input,
                                               const std::string& soiDirectory,
                                               const std::string& name, const std::string& option) {
  return g_backend.Get()->GenerateVGXPackage(input, soiDirectory, name, option);
}

NOMZUBApply3DStatesCmd::NOMZUBApply3DStatesCmd() = default;
NOMZUBApply3DStatesCmd::~NOMZUBApply3DStatesCmd() = default;
HRESULT NOMZUBApply3DStatesCmd::ApplyStates() { return g_backend.Get()->ApplyStates(); }

NOMZUBApplySimPositionBlobCmd::NOMZUBApplySimPositionBlobCmd() = default;
NOMZUBApplySimPositionBlobCmd::~NOMZUBApplySimPositionBlobCmd() = default;
HRESULT NOMZUBApplySimPositionBlobCmd::ApplySimPositionBlobs() {
  return g_backend.Get()->ApplySimPositionBlobs();
}
