// Package generation and positioning (NOMZUBProxy).
//
// Replaced with nomzub::SetGeneratorBackend, which may be called from any thread; generation and
// the positioning commands read the connector's session and are called from one thread at a time
// (the module's).
#ifndef NOM_SERVICES_NOMZUBVGXGENERATOR_H_
#define NOM_SERVICES_NOMZUBVGXGENERATOR_H_

#include <cstdint>
#include <string>
#include <vector>

#include "win_types.h"

class NOM_API NOMZUBVGXGenerator {
 public:
  NOMZUBVGXGenerator();
  virtual ~NOMZUBVGXGenerator();
  // Writes the package of the connected, filtered project: name + ".vgxXml" (the main document)
  // and name + ".vgxView" (the views) in soiDirectory, which is created when missing; one
  // product document "<OID>.vgxXml" and its binary glTF geometry "<OID>.vgxGeom" per product
  // reached, in the product cache (NOMZUB_CACHE, else $XDG_CACHE_HOME/nomzub, else
  // ~/.cache/nomzub; a directory per project). Then fills the identifier cache (object OID ->
  // every ident path "List/entry/child/...", operation OID -> "Process/<ident>", process ident
  // -> name and operation OID) and registers the package as the last generated; the project's
  // objects are registered with the object factory when the project is loaded. The paths the
  // package is registered under, and drive-form references, are module paths of the drive and
  // share maps in force: both directories must lie on a mapped drive or share, else the
  // generation fails naming the one that does not.
  //   input:  "" or "all" for the four lists, else a comma list of ProductList, ResourceList,
  //           ManufProd, PlanningContext.
  //   option: "" for the defaults, else items separated by ";":
  //           refs=FORM[,FORM...]  the forms references take in turn: relative ("x.vgxXml", or
  //                                "..\..\cache\x.vgxXml" from the SOI directory), dot (".\"
  //                                before it), climb ("..\<dir>\" out and back in), drive
  //                                (the cache's absolute module path, "Z:\..." by default);
  //                                default relative,dot,climb,drive.
  //           sep=backslash|slash|mixed  the separator; mixed (default) switches to "/" on
  //                                every other round of forms.
  // The objects of the package (every instance below the selected entries, the entries
  // included) are counted before any is expanded; more than nomzub::MaxObjects() fails the
  // generation, naming the limit and the product where it was passed.
  // A failed generation leaves no registered package and an empty identifier cache.
  // S_OK; E_FAIL with the cause at level 2.
  HRESULT GenerateVGXPackage(const std::string& input, const std::string& soiDirectory,
                             const std::string& name, const std::string& option);
};

class NOM_API NOMZUBApply3DStatesCmd {
 public:
  NOMZUBApply3DStatesCmd();
  ~NOMZUBApply3DStatesCmd();
  // Writes the project's 3D states into the last generated package's main document, replacing
  // those applied before. S_OK; E_FAIL (cause at level 2, the document unchanged) when there is no
  // package, no state to apply, or an operation holds more states than the project now has.
  HRESULT ApplyStates();
};

class NOM_API NOMZUBApplySimPositionBlobCmd {
 public:
  NOMZUBApplySimPositionBlobCmd();
  ~NOMZUBApplySimPositionBlobCmd();
  // Writes the project's simulation positions into the last generated package's main document,
  // replacing those applied before. S_OK; E_FAIL (cause at level 2, the document unchanged) when
  // there is no package, no position to apply, or it holds more positions than the project now
  // has.
  HRESULT ApplySimPositionBlobs();
};

namespace nomzub {

// What the generator and the two commands do. The default is the real implementation; tests
// install a fake through SetGeneratorBackend to record calls and return chosen codes.
class NOM_API GeneratorBackend {
 public:
  virtual ~GeneratorBackend();
  // What NOMZUBVGXGenerator::GenerateVGXPackage does, with its results.
  virtual HRESULT GenerateVGXPackage(const std::string& input, const std::string& soiDirectory,
                                     const std::string& name, const std::string& option) = 0;
  // What NOMZUBApply3DStatesCmd::ApplyStates does, with its results.
  virtual HRESULT ApplyStates() = 0;
  // What NOMZUBApplySimPositionBlobCmd::ApplySimPositionBlobs does, with its results.
  virtual HRESULT ApplySimPositionBlobs() = 0;
};

// Installs replacement (null: the real one) and returns the one it replaces.
NOM_API GeneratorBackend* SetGeneratorBackend(GeneratorBackend* replacement);

// The most objects a generated package holds unless the host sets another limit.
constexpr uint64_t kDefaultMaxObjects = 10000000;

// Sets the most objects (instances, top-level entries included) a generated package may hold;
// 0 restores kDefaultMaxObjects. Applies to the generations that follow, process-wide.
NOM_API void SetMaxObjects(uint64_t n);
// The limit in force: the last SetMaxObjects value, or kDefaultMaxObjects.
NOM_API uint64_t MaxObjects();

// The items a generator option may hold, one syntax text each ("refs=...", "sep=..."), in the
// order the option's documentation gives them; never empty.
NOM_API std::vector<std::string> KnownGeneratorOptions();
// Whether the generator reads option (the text GenerateVGXPackage takes as its option) exactly
// as given: true for "" and for ";"-separated known items with known values; false with the
// generator's own message in *problem (when not null) otherwise, e.g. for an unknown item, an
// unknown reference form or an empty item.
NOM_API bool IsKnownGeneratorOption(const std::string& option, std::string* problem);

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBVGXGENERATOR_H_
