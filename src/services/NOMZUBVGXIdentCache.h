// The identifier cache the generator fills (NOMZUBVGXTranslator).
#ifndef NOM_SERVICES_NOMZUBVGXIDENTCACHE_H_
#define NOM_SERVICES_NOMZUBVGXIDENTCACHE_H_

#include "win_types.h"

class NOM_API NOMZUBVGXIdentCache {
 public:
  NOMZUBVGXIdentCache();
  virtual ~NOMZUBVGXIdentCache();
  // Each getter replaces the caller's map with a copy of the cache's. S_OK.
  static HRESULT GetOIDIdentPathsMap(NOMOIDIdentPathsMap& map);
  static HRESULT GetOpOIDIdentPathMap(NOMStringMap& map);
  HRESULT GetProcessIdentNameMap(NOMStringMap& map);
  HRESULT GetProcessIdentOIDMap(NOMStringMap& map);
};

namespace nomzub {

// Filling the process-wide cache: the generator after each package, and tests.
NOM_API void IdentCacheClear();
NOM_API void IdentCacheAddObjectPath(const std::string& oid, const std::string& identPath);
// Records an object OID with no ident path yet (an empty sequence).
NOM_API void IdentCacheAddObject(const std::string& oid);
NOM_API void IdentCacheSetOperationPath(const std::string& operationOid,
                                        const std::string& identPath);
NOM_API void IdentCacheSetProcessIdent(const std::string& processIdent, const std::string& name,
                                       const std::string& operationOid);
// Name and OID relations separately, for caches that know only one of them.
NOM_API void IdentCacheSetProcessIdentName(const std::string& processIdent,
                                           const std::string& name);
NOM_API void IdentCacheSetProcessIdentOID(const std::string& processIdent,
                                          const std::string& operationOid);

}  // namespace nomzub

#endif  // NOM_SERVICES_NOMZUBVGXIDENTCACHE_H_
