// The process-wide identifier cache. The generator fills it after each package; the getters hand
// out copies, so a caller's map never shares state with the cache.
//
// The cache may hold hundreds of thousands of objects, so it keeps them compactly: an object's
// ident paths as one string (each path followed by a NUL, which no path holds), and each process
// ident's name and operation OID in one entry.
#include <mutex>

#include "services/NOMZUBVGXIdentCache.h"

namespace nomzub {
namespace {

struct ProcessIdent {
  std::string name;
  std::string oid;
  bool has_name = false;
  bool has_oid = false;
};

struct IdentCache {
  std::mutex mutex;
  NOMStringMap object_paths;     // OID -> its ident paths, each followed by '\0'
  NOMStringMap operation_paths;  // operation OID -> ident path
  std::map<std::string, ProcessIdent, NOMMbsLess> process_idents;
};

IdentCache& Cache() {
  static IdentCache* cache = new IdentCache;  // never destroyed: usable during exit
  return *cache;
}

// Replaces map with the process idents that have the field, mapped to its value.
HRESULT CopyProcessField(NOMStringMap& map, bool ProcessIdent::*has,
                         std::string ProcessIdent::*field) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  map.clear();
  for (const auto& [ident, entry] : cache.process_idents) {
    if (entry.*has) map.emplace_hint(map.end(), ident, entry.*field);
  }
  return S_OK;
}

}  // namespace

void IdentCacheClear() {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  cache.object_paths.clear();
  cache.operation_paths.clear();
  cache.process_idents.clear();
}

void IdentCacheAddObjectPath(const std::string& oid, const std::string& identPath) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  std::string& paths = cache.object_paths[oid];
  paths += identPath;
  paths += '\0';
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
  ProcessIdent& entry = cache.process_idents[processIdent];
  entry.name = name;
  entry.has_name = true;
}

void IdentCacheSetProcessIdentOID(const std::string& processIdent,
                                  const std::string& operationOid) {
  IdentCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  ProcessIdent& entry = cache.process_idents[processIdent];
  entry.oid = operationOid;
  entry.has_oid = true;
}

}  // namespace nomzub

NOMZUBVGXIdentCache::NOMZUBVGXIdentCache() = default;
NOMZUBVGXIdentCache::~NOMZUBVGXIdentCache() = default;

HRESULT NOMZUBVGXIdentCache::GetOIDIdentPathsMap(NOMOIDIdentPathsMap& map) {
  nomzub::IdentCache& cache = nomzub::Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  map.clear();
  for (const auto& [oid, joined] : cache.object_paths) {
    std::deque<std::string>& paths =
        map.emplace_hint(map.end(), oid, std::deque<std::string>())->second;
    for (size_t start = 0; start < joined.size();) {
      const size_t end = joined.find('\0', start);
      paths.emplace_back(joined, start, end - start);
      start = end + 1;
    }
  }
  return S_OK;
}

HRESULT NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(NOMStringMap& map) {
  nomzub::IdentCache& cache = nomzub::Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  map = cache.operation_paths;
  return S_OK;
}

HRESULT NOMZUBVGXIdentCache::GetProcessIdentNameMap(NOMStringMap& map) {
  return nomzub::CopyProcessField(map, &nomzub::ProcessIdent::has_name,
                                  &nomzub::ProcessIdent::name);
}

HRESULT NOMZUBVGXIdentCache::GetProcessIdentOIDMap(NOMStringMap& map) {
  return nomzub::CopyProcessField(map, &nomzub::ProcessIdent::has_oid, &nomzub::ProcessIdent::oid);
}
