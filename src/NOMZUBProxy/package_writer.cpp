// The package as this platform writes it. Every file is built in memory and written with one call;
// the project was loaded once, so generation runs no query.
#include "NOMZUBProxy/package_writer.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <vector>

#include "NOMZUBProxy/glb.h"
#include "NOMZUBProxy/session.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"
#include "services/NOMZUBVGXGenerator.h"
#include "services/NOMZUBVGXIdentCache.h"

namespace fs = std::filesystem;

namespace nomzub::proxy {
namespace {

constexpr char kProcessIdent[] = "Process";
const char* const kListNames[4] = {"Products", "Resources", "Manufactured products",
                                   "Planning context"};

// The most objects a package may hold (SetMaxObjects; 0: kDefaultMaxObjects).
std::atomic<uint64_t> g_max_objects{0};

// a + b, or cap when that is more (a and b at most cap).
uint64_t AddUpTo(uint64_t cap, uint64_t a, uint64_t b) { return a > cap - b ? cap : a + b; }

enum RefForm { kRelative, kDot, kClimb, kDrive, kFormCount };
const char* const kFormNames[kFormCount] = {"relative", "dot", "climb", "drive"};
enum class Separator { kBackslash, kSlash, kMixed };

// How references are written: the forms taken in turn, and the separator.
struct RefStyle {
  std::vector<RefForm> forms = {kRelative, kDot, kClimb, kDrive};
  Separator separator = Separator::kMixed;
};

bool Fail(std::string* error, const std::string& text) {
  *error = text;
  return false;
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1) {
    parts.push_back(text.substr(start, end - start));
  }
  parts.push_back(text.substr(start));
  return parts;
}

bool ParseOption(const std::string& option, RefStyle* style, std::string* error) {
  if (option.empty()) return true;
  for (const std::string& item : Split(option, ';')) {
    size_t eq = item.find('=');
    std::string key = item.substr(0, eq);
    std::string value = eq == std::string::npos ? "" : item.substr(eq + 1);
    if (key == "refs") {
      style->forms.clear();
      for (const std::string& form : Split(value, ',')) {
        int f = 0;
        while (f < kFormCount && form != kFormNames[f]) ++f;
        if (f == kFormCount) {
          return Fail(error, "generator option: unknown reference form '" + form +
                                 "' (expected relative, dot, climb or drive)");
        }
        style->forms.push_back(static_cast<RefForm>(f));
      }
    } else if (key == "sep" && (value == "backslash" || value == "slash" || value == "mixed")) {
      style->separator = value == "backslash" ? Separator::kBackslash
                         : value == "slash"   ? Separator::kSlash
                                              : Separator::kMixed;
    } else {
      return Fail(error, "generator option: cannot read '" + item +
                             "' (expected refs=FORM,... or sep=backslash|slash|mixed)");
    }
  }
  return true;
}

bool ParseInput(const std::string& input, std::set<std::string>* lists, std::string* error) {
  if (input.empty() || input == "all") {
    lists->insert(std::begin(kListIdents), std::end(kListIdents));
    return true;
  }
  for (const std::string& list : Split(input, ',')) {
    if (std::find(std::begin(kListIdents), std::end(kListIdents), list) == std::end(kListIdents)) {
      return Fail(error, "generator input: unknown list '" + list +
                             "' (expected all or ProductList, ResourceList, ManufProd, "
                             "PlanningContext separated by commas)");
    }
    lists->insert(list);
  }
  return true;
}

std::string Escape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\t':
        out += "&#9;";
        break;
      case '\n':
        out += "&#10;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// Shortest round-trip text of v; values within 1e-12 of zero print as 0.
std::string Number(double v) {
  if (std::fabs(v) < 1e-12) return "0";
  char text[32];
  auto [end, ec] = std::to_chars(text, text + sizeof text, v);
  return std::string(text, end);
}

std::string Triple(const double v[3]) {
  return Number(v[0]) + " " + Number(v[1]) + " " + Number(v[2]);
}

std::string Backslashed(std::string path) {
  for (char& c : path) {
    if (c == '/') c = '\\';
  }
  return path;
}

// The module path ("Z:\...") of an absolute native path, through the default Z: drive.
std::string ModulePathOf(const std::string& nativeAbsolute) {
  return "Z:" + Backslashed(nativeAbsolute);
}

// The absolute, normalised native directory of a module path.
bool NativeDirectory(const std::string& modulePath, fs::path* dir, std::string* error) {
  std::string native;
  DWORD code = 0;
  std::error_code ec;
  if (modulePath.empty() || !nomplat::ToNativePath(modulePath, &native, &code)) {
    return Fail(error,
                "cannot use directory '" + modulePath + "' (error " + std::to_string(code) + ")");
  }
  fs::path p = fs::absolute(native, ec).lexically_normal();
  if (ec) return Fail(error, "cannot use directory '" + modulePath + "': " + ec.message());
  *dir = p.has_filename() ? p : p.parent_path();
  return true;
}

// The product cache of the project: NOMZUB_CACHE, else $XDG_CACHE_HOME/nomzub, else
// $HOME/.cache/nomzub; one directory per project below it.
bool ProductCache(const std::string& project, fs::path* dir, std::string* error) {
  nomplat::Env* env = nomplat::CurrentEnv();
  std::string root;
  if (!env->GetEnvironmentVariable("NOMZUB_CACHE", &root) || root.empty()) {
    std::string base;
    if (env->GetEnvironmentVariable("XDG_CACHE_HOME", &base) && !base.empty()) {
      root = base + "/nomzub";
    } else if (env->GetEnvironmentVariable("HOME", &base) && !base.empty()) {
      root = base + "/.cache/nomzub";
    } else {
      return Fail(error, "no product cache: set NOMZUB_CACHE, XDG_CACHE_HOME or HOME");
    }
  }
  std::string safe = project;
  for (char& c : safe) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '_' && c != '-') c = '_';
  }
  if (!NativeDirectory(root, dir, error)) return false;
  *dir /= safe;
  return true;
}

// Writes the files of one package; the references it writes take the style's forms in turn.
class PackageWriter {
 public:
  PackageWriter(const Project& project, const RefStyle& style, const fs::path& soi,
                const fs::path& cache)
      : project_(project), style_(style), soi_(soi), cache_(cache) {
    from_soi_ = Prefixes(soi);
    from_cache_ = Prefixes(cache);
  }

  bool Write(const std::string& name, const std::set<std::string>& lists, const Filter& filter,
             std::string* error) {
    std::map<std::string, std::vector<const Instance*>> entries;
    std::vector<std::pair<const char*, const Instance*>> selected;
    for (const char* list : kListIdents) {
      if (!lists.count(list)) continue;
      std::vector<const Instance*>& in_list = entries[list];
      for (const Instance& root : project_.roots) {
        const Product& product = project_.products.at(root.product);
        if (list == std::string(ListIdentOfKind(product.kind)) &&
            PassesFilter(project_, filter, root)) {
          in_list.push_back(&root);
          selected.emplace_back(list, &root);
        }
      }
    }
    if (!CheckObjectCount(selected, error)) return false;
    for (const auto& [list, root] : selected) {
      Visit(root->product, std::string(list) + "/" + root->ident);
    }
    nomplat::Env* env = nomplat::CurrentEnv();
    for (const fs::path* dir : {&soi_, &cache_}) {
      if (DWORD code = env->CreateDirectories(ModulePathOf(dir->string()))) {
        return Fail(error, "cannot create directory " + ModulePathOf(dir->string()) + " (error " +
                               std::to_string(code) + ")");
      }
    }
    for (const std::string& oid : documents_) {
      const Product& product = project_.products.at(oid);
      auto mesh = project_.meshes.find(product.mesh);
      if (!WriteFile(cache_ / (oid + ".vgxXml"), ProductDocument(product), error) ||
          !WriteFile(
              cache_ / (oid + ".vgxGeom"),
              BuildGlb(product.name, mesh == project_.meshes.end() ? nullptr : &mesh->second),
              error)) {
        return false;
      }
    }
    main_ = soi_ / (name + ".vgxXml");
    view_ = soi_ / (name + ".vgxView");
    return WriteFile(main_, MainDocument(name, entries), error) &&
           WriteFile(view_, ViewFile(name), error);
  }

  // Fills the identifier cache, registers the objects and the package.
  void Publish() const {
    for (const auto& [oid, path] : object_paths_) nomzub::IdentCacheAddObjectPath(oid, path);
    for (const Operation& op : project_.operations) {
      nomzub::IdentCacheSetOperationPath(op.oid, std::string(kProcessIdent) + "/" + op.ident);
    }
    for (const View& view : project_.views) {
      nomzub::IdentCacheSetProcessIdent(view.ident, view.name, view.operation);
    }
    RegisterProjectObjects(project_);
    nomzub::RegisterPackage(ModulePathOf(main_.string()), ModulePathOf(view_.string()));
    nomzub::LogServiceInfo("generated package " + ModulePathOf(main_.string()) + " with " +
                           std::to_string(documents_.size()) +
                           " product documents and their geometry in " +
                           ModulePathOf(cache_.string()));
  }

 private:
  // How many objects one instance of oid brings, its own structure included, counted from the
  // products up without expanding a single instance: each product's count is the sum of its
  // children's, added once per instance and saturated just above limit, so a structure whose
  // instances double at every level costs one step per product rather than one per object.
  // Counts are kept in *counts; the first product whose count passes limit goes to *over.
  uint64_t CountObjects(const std::string& oid, uint64_t limit,
                        std::map<std::string, uint64_t>* counts, std::string* over) const {
    const uint64_t cap = limit == UINT64_MAX ? limit : limit + 1;
    struct Step {
      const Product* product;
      size_t next_child;
      uint64_t objects;
    };
    std::vector<Step> stack;
    auto enter = [&](const std::string& product_oid) {
      auto known = counts->find(product_oid);
      if (known != counts->end()) return known->second;
      stack.push_back({&project_.products.at(product_oid), 0, 1});
      return uint64_t{0};
    };
    uint64_t result = enter(oid);
    while (!stack.empty()) {
      Step& step = stack.back();
      if (step.next_child < step.product->children.size()) {
        const std::string& child = step.product->children[step.next_child].product;
        auto known = counts->find(child);
        if (known == counts->end()) {
          enter(child);  // counted first; this step resumes at the same child
          continue;
        }
        step.objects = AddUpTo(cap, step.objects, std::min(cap, known->second));
        ++step.next_child;
        continue;
      }
      (*counts)[step.product->oid] = step.objects;
      if (step.objects > limit && over->empty()) *over = step.product->oid;
      result = step.objects;
      stack.pop_back();
    }
    return result;
  }

  // Whether the selected entries expand to no more than MaxObjects() objects; false with the
  // limit and the product where the count passed it in *error.
  bool CheckObjectCount(const std::vector<std::pair<const char*, const Instance*>>& selected,
                        std::string* error) const {
    const uint64_t limit = nomzub::MaxObjects();
    std::map<std::string, uint64_t> counts;
    uint64_t total = 0;  // never above limit
    for (const auto& entry : selected) {
      std::string over;
      uint64_t objects = CountObjects(entry.second->product, limit, &counts, &over);
      if (objects > limit || total > limit - objects) {
        if (over.empty()) over = entry.second->product;
        return Fail(error, "the package would hold more than " + std::to_string(limit) +
                               " objects (the limit), passed at product " + over);
      }
      total += objects;
    }
    return true;
  }

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

  // The start of a reference to a product document in the cache, per form, from a document in
  // dir. Forms that Pack & Go resolves: relative ("sub\x", or "..\x" when the cache lies outside
  // dir), dot (".\" before the relative form), climb (out of dir with "..\" and back in when the
  // relative form does not already climb), drive ("Z:\..." absolute).
  std::vector<std::string> Prefixes(const fs::path& dir) const {
    std::string rel = Backslashed(cache_.lexically_relative(dir).string());
    if (rel == ".") rel.clear();
    if (!rel.empty()) rel += '\\';
    std::vector<std::string> prefixes(kFormCount);
    prefixes[kRelative] = rel;
    prefixes[kDot] = ".\\" + rel;
    prefixes[kClimb] =
        rel.rfind("..\\", 0) == 0 ? rel : "..\\" + dir.filename().string() + "\\" + rel;
    prefixes[kDrive] = ModulePathOf(cache_.string()) + "\\";
    return prefixes;
  }

  // The next reference to oid's document from a document whose prefixes are given.
  std::string Reference(const std::vector<std::string>& prefixes, const std::string& oid) {
    size_t n = style_.forms.size();
    size_t turn = references_++;
    std::string ref = prefixes[style_.forms[turn % n]] + oid + ".vgxXml";
    bool slash = style_.separator == Separator::kSlash ||
                 (style_.separator == Separator::kMixed && (turn / n) % 2 == 1);
    if (slash) {
      for (char& c : ref) {
        if (c == '\\') c = '/';
      }
    }
    return ref;
  }

  std::string Element(const Instance& i, const std::vector<std::string>& prefixes,
                      const char* indent) {
    return std::string(indent) + "<CLitAssyGroup Ident=\"" + Escape(i.ident) + "\" Name=\"" +
           Escape(i.name) + "\" OID=\"" + Escape(i.product) + "\" Placement=\"" +
           PlacementText(i.placement) + "\" IsInstanceOf=\"" +
           Escape(Reference(prefixes, i.product)) + "\"/>\n";
  }

  std::string ProductDocument(const Product& product) {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VgxDocument Name=\"" +
                      Escape(product.name) + "\" OID=\"" + Escape(product.oid) + "\" Kind=\"" +
                      Escape(product.kind) + "\">\n";
    for (const Instance& child : product.children) xml += Element(child, from_cache_, "  ");
    return xml + "</VgxDocument>\n";
  }

  std::string MainDocument(const std::string& name,
                           const std::map<std::string, std::vector<const Instance*>>& entries) {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VgxDocument Name=\"" +
                      Escape(name) + "\" Project=\"" + Escape(project_.name) + "\">\n";
    for (int l = 0; l < 4; ++l) {
      auto it = entries.find(kListIdents[l]);
      if (it == entries.end()) continue;
      xml += std::string("  <CLitAssyGroup Ident=\"") + kListIdents[l] + "\" Name=\"" +
             kListNames[l] + "\">\n";
      for (const Instance* root : it->second) xml += Element(*root, from_soi_, "    ");
      xml += "  </CLitAssyGroup>\n";
    }
    xml += std::string("  <Process Ident=\"") + kProcessIdent + "\" Name=\"" +
           Escape(project_.name) + "\">\n";
    for (const Operation& op : project_.operations) {
      xml += "    <Operation OID=\"" + Escape(op.oid) + "\" Ident=\"" + Escape(op.ident) +
             "\" Name=\"" + Escape(op.name) + "\" IdentPath=\"" + kProcessIdent + "/" +
             Escape(op.ident) + "\">\n";
      for (const View& view : project_.views) {
        if (view.operation != op.oid) continue;
        xml += "      <ProcessIdent Ident=\"" + Escape(view.ident) + "\" Name=\"" +
               Escape(view.name) + "\"/>\n";
      }
      xml += "    </Operation>\n";
    }
    return xml + "  </Process>\n</VgxDocument>\n";
  }

  std::string ViewFile(const std::string& name) const {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VgxView Name=\"" +
                      Escape(name) + "\" Document=\"" + Escape(name) + ".vgxXml\">\n";
    for (const View& view : project_.views) {
      xml += "  <View Ident=\"" + Escape(view.ident) + "\" Name=\"" + Escape(view.name) +
             "\" Operation=\"" + Escape(view.operation) + "\">\n    <Camera Eye=\"" +
             Triple(view.eye) + "\" Target=\"" + Triple(view.target) +
             "\" Up=\"0 0 1\" FieldOfView=\"45\"/>\n  </View>\n";
    }
    return xml + "</VgxView>\n";
  }

  static bool WriteFile(const fs::path& native, const std::string& contents, std::string* error) {
    std::string path = ModulePathOf(native.string());
    if (DWORD code = nomplat::CurrentEnv()->WriteFileAtomic(path, contents)) {
      return Fail(error, "cannot write " + path + " (error " + std::to_string(code) + ")");
    }
    return true;
  }

  const Project& project_;
  const RefStyle& style_;
  fs::path soi_, cache_, main_, view_;
  std::vector<std::string> from_soi_, from_cache_;
  size_t references_ = 0;
  std::set<std::string> documents_;
  std::vector<std::pair<std::string, std::string>> object_paths_;
};

}  // namespace

std::string PlacementText(const Placement& p) {
  constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180;
  double c = std::cos(p.rz * kRadiansPerDegree), s = std::sin(p.rz * kRadiansPerDegree);
  return Number(c) + " " + Number(-s) + " 0 " + Number(s) + " " + Number(c) + " 0 0 0 1 " +
         Number(p.x) + " " + Number(p.y) + " " + Number(p.z);
}

HRESULT GeneratePackage(const Project& project, const Filter& filter, const std::string& input,
                        const std::string& soiDirectory, const std::string& name,
                        const std::string& option) {
  RefStyle style;
  std::set<std::string> lists;
  fs::path soi, cache;
  std::string error;
  bool ok = ParseInput(input, &lists, &error) && ParseOption(option, &style, &error);
  if (ok && (name.empty() || name.find_first_of("\\/:*?\"<>|") != std::string::npos)) {
    ok = Fail(&error, "package name '" + name + "' is not usable as a file name");
  }
  ok = ok && NativeDirectory(soiDirectory, &soi, &error) &&
       ProductCache(project.name, &cache, &error);
  if (ok && cache == soi) {
    ok = Fail(&error, "the product cache " + cache.string() + " is the SOI directory itself");
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

void nomzub::SetMaxObjects(uint64_t n) { proxy::g_max_objects = n; }

uint64_t nomzub::MaxObjects() {
  uint64_t n = proxy::g_max_objects;
  return n == 0 ? kDefaultMaxObjects : n;
}

std::vector<std::string> nomzub::KnownGeneratorOptions() {
  return {"refs=relative|dot|climb|drive[,...]", "sep=backslash|slash|mixed"};
}

bool nomzub::IsKnownGeneratorOption(const std::string& option, std::string* problem) {
  proxy::RefStyle style;
  std::string error;
  if (proxy::ParseOption(option, &style, &error)) return true;
  if (problem != nullptr) *problem = error;
  return false;
}
