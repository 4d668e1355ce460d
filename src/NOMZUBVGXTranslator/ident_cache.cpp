// The process-wide identifier cache. The generator fills it after each package; the getters hand
// out copies, so a caller's map never shares state with the cache.
#include <mutex>
#include <vector>

#include "services/NOMZUBVGXIdentCache.h"

namespace nomzub {
namespace {

struct IdentCache {
  std::mutex mutex;
  // OID -> ident paths. Vectors, not deques: a deque costs a whole block even for one path, and
  // the cache may hold hundreds of thousands of objects.
  std::map<std::string, std::vector<std::string>, NOMMbsLess> object_paths;
  NOMStringMap operation_paths;  // operation OID -> ident path
  NOMStringMap process_names;    // process ident -> name
  NOMStringMap process_oids;     // process ident -> operation OID
};

IdentCache& Cache() {
  static IdentCache* cache = new IdentCache;  // never destroyed: usable during exit
  return *cache;
}

// Replaces target with a copy of the cache's map chosen by member, under the cache's lock.
template <typename Map>
HRESULT CopyOut(Map IdentCache::*member, Map& target) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  target = cache.*member;
  return S_OK;
}

}  // namespace

void IdentCacheClear() {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.object_paths.clear();
  cache.operation_paths.clear();
  cache.process_names.clear();
  cache.process_oids.clear();
}

void IdentCacheAddObjectPath(const std::string& oid, const std::string& identPath) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.object_paths[oid].push_back(identPath);
}

void IdentCacheAddObject(const std::string& oid) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.object_paths[oid];
}

void IdentCacheSetOperationPath(const std::string& operationOid, const std::string& identPath) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.operation_paths[operationOid] = identPath;
}

void IdentCacheSetProcessIdent(const std::string& processIdent, const std::string& name,
                               const std::string& operationOid) {
  IdentCacheSetProcessIdentName(processIdent, name);
  IdentCacheSetProcessIdentOID(processIdent, operationOid);
}

void IdentCacheSetProcessIdentName(const std::string& processIdent, const std::string& name) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.process_names[processIdent] = name;
}

void IdentCacheSetProcessIdentOID(const std::string& processIdent,
                                  const std::string& operationOid) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.process_oids[processIdent] = operationOid;
}

}  // namespace nomzub

NOMZUBVGXIdentCache::NOMZUBVGXIdentCache() = default;
NOMZUBVGXIdentCache::~NOMZUBVGXIdentCache() = default;

HRESULT NOMZUBVGXIdentCache::GetOIDIdentPathsMap(NOMOIDIdentPathsMap& map) {
  nomzub::IdentCache& cache = nomzub::Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  map.clear();
  for (const auto& [oid, paths] : cache.object_paths) {
    map.emplace_hint(map.end(), oid, std::deque<std::string>(paths.begin(), paths.end()));
  }
  return S_OK;
}

HRESULT NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(NOMStringMap& map) {
  return nomzub::CopyOut(&nomzub::IdentCache::operation_paths, map);
}

HRESULT NOMZUBVGXIdentCache::GetProcessIdentNameMap(NOMStringMap& map) {
  return nomzub::CopyOut(&nomzub::IdentCache::process_names, map);
}

HRESULT NOMZUBVGXIdentCache::GetProcessIdentOIDMap(NOMStringMap& map) {
  return nomzub::CopyOut(&nomzub::IdentCache::process_oids, map);
}
