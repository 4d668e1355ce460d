// The package as this platform writes it. Every file is built in memory and written with one call;
// the project was loaded once, so generation runs no query.
#include "NOMZUBProxy/package_writer.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <map>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <vector>

#include "NOMZUBProxy/generator_options.h"
#include "NOMZUBProxy/glb.h"
#include "NOMZUBProxy/object_limit.h"
#include "NOMZUBProxy/package_documents.h"
#include "NOMZUBProxy/package_paths.h"
#include "NOMZUBProxy/references.h"
#include "platform/env.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"
#include "services/NOMZUBVGXIdentCache.h"

namespace nomzub::proxy {
namespace {

bool Fail(std::string* error, const std::string& text) {
  *error = text;
  return false;
}

// Writes the files of one package; the references it writes take the style's forms in turn.
class PackageWriter {
 public:
  PackageWriter(const Project& project, const RefStyle& style, const PackageDirectory& soi,
                const PackageDirectory& cache)
      : project_(project),
        soi_(soi),
        cache_(cache),
        references_(style, cache),
        part_numbers_(PartNumbers(project)) {}

  bool Write(const std::string& name, const std::set<std::string>& lists, const Filter& filter,
             std::string* error) {
    ListEntries entries;
    std::vector<std::pair<const char*, const Instance*>> selected;  // in package order
    std::vector<const Instance*> roots;
    for (const char* list : kListIdents) {
      if (!lists.count(list)) continue;
      std::vector<const Instance*>& in_list = entries[list];
      for (const Instance& root : project_.roots) {
        const Product& product = project_.products.at(root.product);
        if (list == std::string(ListIdentOfKind(product.kind)) &&
            filter.Matches({product.kind, root.name, product.oid, root.ident})) {
          in_list.push_back(&root);
          selected.emplace_back(list, &root);
          roots.push_back(&root);
        }
      }
    }
    if (!CheckObjectCount(project_, roots, error)) return false;
    for (const auto& [list, root] : selected) {
      Visit(root->product, std::string(list) + "/" + root->ident);
    }
    nomplat::Env* env = nomplat::CurrentEnv();
    for (const PackageDirectory* dir : {&soi_, &cache_}) {
      if (DWORD code = env->CreateDirectories(dir->module)) {
        return Fail(error, "cannot create directory " + dir->module + " (error " +
                               std::to_string(code) + ")");
      }
    }
    const std::vector<std::string> from_cache = references_.Prefixes(cache_.native);
    auto reference_from_cache = [&](const std::string& oid) {
      return references_.Next(from_cache, oid);
    };
    // In batches: a batch's documents are made here, in order, since their references take the
    // style's forms in turn; then its files are written and its geometry built by the writers.
    std::vector<Pending> batch;
    batch.reserve(kBatch);
    for (auto oid = documents_.begin(); oid != documents_.end();) {
      batch.clear();
      for (; oid != documents_.end() && batch.size() < kBatch; ++oid) {
        const Product& product = project_.products.at(*oid);
        batch.push_back(
            {&*oid, &product, ProductDocument(product, reference_from_cache), std::string()});
      }
      if (!WriteBatch(&batch, error)) return false;
    }
    const std::vector<std::string> from_soi = references_.Prefixes(soi_.native);
    main_ = soi_.ModulePathOf(name + ".vgxXml");
    view_ = soi_.ModulePathOf(name + ".vgxView");
    return WriteFile(main_,
                     MainDocument(
                         project_, name, entries,
                         [&](const std::string& oid) { return references_.Next(from_soi, oid); }),
                     error) &&
           WriteFile(view_, ViewFile(project_, name), error);
  }

  // Fills the identifier cache and registers the package.
  void Publish() const {
    for (const auto& [oid, path] : object_paths_) nomzub::IdentCacheAddObjectPath(oid, path);
    for (const Operation& op : project_.operations) {
      nomzub::IdentCacheSetOperationPath(op.oid, std::string(kProcessIdent) + "/" + op.ident);
    }
    for (const View& view : project_.views) {
      nomzub::IdentCacheSetProcessIdent(view.ident, view.name, view.operation);
    }
    nomzub::RegisterPackage(main_, view_);
    nomzub::LogServiceInfo("generated package " + main_ + " with " +
                           std::to_string(documents_.size()) +
                           " product documents and their geometry in " + cache_.module);
  }

 private:
  // Records every occurrence of a product and the products its structure reaches, depth first in
  // the children's order, with an explicit stack: the structure's depth never deepens the call
  // stack.
  void Visit(const std::string& oid, const std::string& path) {
    struct Level {
      const Product* product;
      size_t next_child;
      size_t path_size;
    };
    std::string current = path;
    object_paths_.emplace_back(oid, current);
    documents_.insert(oid);
    std::vector<Level> stack = {{&project_.products.at(oid), 0, current.size()}};
    while (!stack.empty()) {
      Level& level = stack.back();
      if (level.next_child == level.product->children.size()) {
        stack.pop_back();
        continue;
      }
      const Instance& child = level.product->children[level.next_child++];
      current.resize(level.path_size);
      current += '/';
      current += child.ident;
      object_paths_.emplace_back(child.product, current);
      documents_.insert(child.product);
      stack.push_back({&project_.products.at(child.product), 0, current.size()});
    }
  }

  int PartNumberOf(const std::string& oid) const {
    auto it = part_numbers_.find(oid);
    return it == part_numbers_.end() ? 0 : it->second;
  }

  // A product whose files are still to be written: its document made, the cause of a failed
  // write once tried.
  struct Pending {
    const std::string* oid;
    const Product* product;
    std::string document;
    std::string error;
  };

  // Writes the product document and the geometry of every product of *batch, on up to
  // WriterCount() threads, the caller's among them (fewer when no more can be started). After a
  // failure no further product is begun; the cause given is that of the first failed product in
  // the batch's order, whose earlier products are all written. An exception a writer meets (out
  // of memory) is thrown here once every writer has stopped.
  bool WriteBatch(std::vector<Pending>* batch, std::string* error) const {
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::mutex thrown_mu;
    std::exception_ptr thrown;
    const auto write = [&] {
      try {
        for (size_t i; !failed.load() && (i = next.fetch_add(1)) < batch->size();) {
          Pending& item = (*batch)[i];
          if (!WriteProduct(*item.oid, *item.product, item.document, &item.error)) {
            failed.store(true);
          }
        }
      } catch (...) {
        failed.store(true);
        std::lock_guard<std::mutex> lock(thrown_mu);
        if (!thrown) thrown = std::current_exception();
      }
    };
    std::vector<std::thread> helpers;
    const size_t threads = batch->size() < kParallelFrom ? 1 : WriterCount();
    for (size_t t = 1; t < threads; ++t) {
      try {
        helpers.emplace_back(write);
      } catch (const std::system_error&) {
        break;  // the writers started so far, and this thread, do the work
      }
    }
    write();
    for (std::thread& helper : helpers) helper.join();
    if (thrown) std::rethrow_exception(thrown);
    for (const Pending& item : *batch) {
      if (!item.error.empty()) return Fail(error, item.error);
    }
    return true;
  }

  // Writes the document of product oid (made already) and its geometry (built here) to the cache.
  bool WriteProduct(const std::string& oid, const Product& product, const std::string& document,
                    std::string* error) const {
    const auto mesh = project_.meshes.find(product.mesh);
    return WriteFile(cache_.ModulePathOf(oid + ".vgxXml"), document, error) &&
           WriteFile(cache_.ModulePathOf(oid + ".vgxGeom"),
                     BuildGlb(product.oid, product.name,
                              mesh == project_.meshes.end() ? nullptr : &mesh->second,
                              AppearanceOf(product, PartNumberOf(oid))),
                     error);
  }

  // How many threads write a batch: one per processor, at most kMaxWriters.
  static size_t WriterCount() {
    const unsigned processors = std::thread::hardware_concurrency();
    return std::clamp<size_t>(processors, 1, kMaxWriters);
  }

  // Products made per batch; batches smaller than kParallelFrom are written by the caller alone,
  // where starting threads would cost more than they save.
  static constexpr size_t kBatch = 512;
  static constexpr size_t kParallelFrom = 64;
  static constexpr size_t kMaxWriters = 4;

  static bool WriteFile(const std::string& path, const std::string& contents, std::string* error) {
    if (DWORD code = nomplat::CurrentEnv()->WriteFileAtomic(path, contents)) {
      return Fail(error, "cannot write " + path + " (error " + std::to_string(code) + ")");
    }
    return true;
  }

  const Project& project_;
  const PackageDirectory& soi_;
  const PackageDirectory& cache_;
  ReferenceWriter references_;
  const std::map<std::string, int> part_numbers_;  // the colour turns of the project's parts
  std::string main_, view_;
  std::set<std::string> documents_;
  std::vector<std::pair<std::string, std::string>> object_paths_;
};

}  // namespace

HRESULT GeneratePackage(const Project& project, const Filter& filter, const std::string& input,
                        const std::string& soiDirectory, const std::string& name,
                        const std::string& option) {
  RefStyle style;
  std::set<std::string> lists;
  PackageDirectory soi, cache;
  std::string error;
  bool ok = ParseInput(input, &lists, &error) && ParseOption(option, &style, &error);
  if (ok && (name.empty() || name.find_first_of("\\/:*?\"<>|") != std::string::npos)) {
    ok = Fail(&error, "package name '" + name + "' is not usable as a file name");
  }
  ok = ok && ResolveDirectory(soiDirectory, &soi, &error) &&
       ProductCache(project.name, &cache, &error);
  if (ok && cache.native == soi.native) {
    ok =
        Fail(&error, "the product cache " + cache.native.string() + " is the SOI directory itself");
  }
  PackageWriter writer(project, style, soi, cache);
  if (!ok || !writer.Write(name, lists, filter, &error)) {
    nomzub::LogServiceError("cannot generate package '" + name + "' of project '" + project.name +
                            "': " + error);
    return E_FAIL;
  }
  writer.Publish();
  return S_OK;
}

}  // namespace nomzub::proxy
