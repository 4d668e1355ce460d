// The package's preview: one glTF scene of every placed product instance, and a page that shows
// it. The package directory is untrusted input: every count, index and offset taken from a
// geometry file is checked against the bytes that are there before it is used, and the product
// structure is walked with an explicit stack under limits of depth and size.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <set>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "NOMSOIHost.h"
#include "services/NOMZUBLog.h"

namespace nomsoi {

// The viewer bundle (web/viewer, bundled by esbuild at build time), a NUL-terminated text.
extern const char kViewerBundle[];

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr char kMainDocument[] = "SOI.vgxXml";
constexpr char kGlbName[] = "preview.glb";
constexpr char kHtmlName[] = "preview.html";

// Limits that keep a hostile package from exhausting memory or the stack.
constexpr size_t kMaxDepth = 256;                   // nesting of product documents
constexpr uint64_t kMaxInstances = 200000;          // placed instances in the whole scene
constexpr uint64_t kMaxOutputNodes = 1000000;       // nodes of the written scene
constexpr uint64_t kMaxGeometryBytes = 256u << 20;  // one .vgxGeom file
constexpr uint64_t kMaxSceneBytes = 512u << 20;     // the binary chunk of preview.glb
constexpr uint64_t kMaxItems = 1u << 20;            // nodes, meshes, accessors... of one file
constexpr uint64_t kMaxAccessorCount = 1u << 28;

constexpr uint32_t kGlbMagic = 0x46546C67;   // "glTF"
constexpr uint32_t kJsonChunk = 0x4E4F534A;  // "JSON"
constexpr uint32_t kBinChunk = 0x004E4942;   // "BIN\0"
constexpr double kHalfSqrt2 = 0.70710678118654752440;

// glTF is Y-up, the package Z-up: the scene's root turns the package's frame into glTF's (-90
// degrees about X) and each geometry is turned from glTF's frame into the package's (+90).
const Json kZUpToYUp = Json::array({-kHalfSqrt2, 0.0, 0.0, kHalfSqrt2});
const Json kYUpToZUp = Json::array({kHalfSqrt2, 0.0, 0.0, kHalfSqrt2});

// Serialises JSON with every byte that is not well-formed UTF-8 replaced (names come from the
// package and may hold anything).
std::string Dump(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

uint32_t ReadU32(const std::string& bytes, size_t at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(bytes[at + i]);
  return v;
}

void AppendU32(std::string* out, uint32_t v) {
  for (int i = 0; i < 4; ++i) *out += static_cast<char>((v >> (8 * i)) & 0xFF);
}

// The last component of a reference: Pack & Go leaves bare names, and a path still names its
// file in the directory.
std::string FileNameOf(const std::string& reference) {
  const size_t cut = reference.find_last_of("\\/");
  return cut == std::string::npos ? reference : reference.substr(cut + 1);
}

// The geometry file of a product document: its name less the last six characters, followed by
// "vgxGeom", as Pack & Go derives it.
std::string GeometryNameOf(const std::string& document) {
  return (document.size() < 6 ? std::string() : document.substr(0, document.size() - 6)) +
         "vgxGeom";
}

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// The files of the package directory, found by exact name and then without letter case.
class Directory {
 public:
  explicit Directory(fs::path dir) : dir_(std::move(dir)) {
    std::error_code ec;
    for (fs::directory_iterator it(dir_, ec), end; !ec && it != end; it.increment(ec)) {
      const std::string name = it->path().filename().string();
      by_lower_.emplace(Lower(name), name);
    }
  }

  // The path of the regular file called name in the directory; empty when there is none. A
  // symbolic link is not followed: a package's files lie in its directory.
  fs::path Find(const std::string& name) const {
    if (name.empty() || name == "." || name == "..") return {};
    if (IsRegular(dir_ / name)) return dir_ / name;
    auto it = by_lower_.find(Lower(name));
    if (it != by_lower_.end() && IsRegular(dir_ / it->second)) return dir_ / it->second;
    return {};
  }

 private:
  static bool IsRegular(const fs::path& path) {
    std::error_code ec;
    return fs::symlink_status(path, ec).type() == fs::file_type::regular;
  }

  fs::path dir_;
  std::map<std::string, std::string> by_lower_;
};

// Reads a whole file of at most limit bytes; false with *problem set otherwise.
bool ReadFile(const fs::path& path, uint64_t limit, std::string* bytes, std::string* problem) {
  std::error_code ec;
  const uintmax_t size = fs::file_size(path, ec);
  if (ec) {
    *problem = "cannot be read: " + ec.message();
    return false;
  }
  if (size > limit) {
    *problem = "is " + std::to_string(size) + " bytes, more than the " + std::to_string(limit) +
               " a preview reads";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  bytes->assign(static_cast<size_t>(size), '\0');
  if (!in || !in.read(bytes->data(), static_cast<std::streamsize>(size))) {
    *problem = "cannot be read";
    return false;
  }
  return true;
}

// ---- Geometry files ---------------------------------------------------------------------

// A geometry file checked item by item: what the scene takes from it.
struct Geometry {
  std::string bin;                 // the binary chunk, exactly the buffer's length
  std::vector<Json> buffer_views;  // byteOffset relative to bin
  std::vector<Json> accessors;
  std::vector<Json> materials;
  std::vector<Json> meshes;
  std::vector<Json> nodes;    // children, mesh: indices within this file
  std::vector<size_t> roots;  // the nodes of its scene
};

// An index member of object: absent (ok, *present false) or an integer below limit.
bool IndexOf(const Json& object, const char* key, size_t limit, size_t* index, bool* present) {
  *present = false;
  auto it = object.find(key);
  if (it == object.end()) return true;
  if (!it->is_number_unsigned() || it->get<uint64_t>() >= limit) return false;
  *index = static_cast<size_t>(it->get<uint64_t>());
  *present = true;
  return true;
}

// An unsigned integer member (default when absent) at most limit.
bool CountOf(const Json& object, const char* key, uint64_t fallback, uint64_t limit,
             uint64_t* value) {
  auto it = object.find(key);
  if (it == object.end()) {
    *value = fallback;
    return true;
  }
  if (!it->is_number_unsigned() || it->get<uint64_t>() > limit) return false;
  *value = it->get<uint64_t>();
  return true;
}

// The array member key of doc (empty when absent); false when it is not an array of objects or
// holds more than kMaxItems.
bool ObjectsOf(const Json& doc, const char* key, std::vector<Json>* items) {
  auto it = doc.find(key);
  if (it == doc.end()) return true;
  if (!it->is_array() || it->size() > kMaxItems) return false;
  for (const Json& item : *it) {
    if (!item.is_object()) return false;
    items->push_back(item);
  }
  return true;
}

// A number array member of the given size, or absent.
bool NumbersOk(const Json& object, const char* key, size_t size) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  if (!it->is_array() || it->size() != size) return false;
  return std::all_of(it->begin(), it->end(),
                     [](const Json& v) { return v.is_number() && std::isfinite(v.get<double>()); });
}

// Copies the members listed from one object to another, when present.
void CopyMembers(const Json& from, Json* to, std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    auto it = from.find(key);
    if (it != from.end()) (*to)[key] = *it;
  }
}

size_t ComponentSize(uint64_t type) {
  switch (type) {
    case 5120:
    case 5121:
      return 1;
    case 5122:
    case 5123:
      return 2;
    case 5125:
    case 5126:
      return 4;
    default:
      return 0;
  }
}

size_t ComponentCount(const std::string& type) {
  static const std::map<std::string, size_t> counts = {
      {"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4}, {"MAT2", 4}, {"MAT3", 9}, {"MAT4", 16}};
  auto it = counts.find(type);
  return it == counts.end() ? 0 : it->second;
}

class GeometryReader {
 public:
  // Parses bytes as a GLB; false with *problem saying what is wrong.
  bool Read(const std::string& bytes, Geometry* geometry, std::string* problem) {
    problem_ = problem;
    if (bytes.size() < 12) return Fail("is shorter than a GLB header");
    if (ReadU32(bytes, 0) != kGlbMagic) return Fail("is not binary glTF (no \"glTF\" magic)");
    if (ReadU32(bytes, 4) != 2) {
      return Fail("is binary glTF version " + std::to_string(ReadU32(bytes, 4)) + ", not 2");
    }
    const uint64_t length = ReadU32(bytes, 8);
    if (length > bytes.size()) {
      return Fail("declares " + std::to_string(length) + " bytes but holds " +
                  std::to_string(bytes.size()));
    }
    std::string json_text;
    bool has_json = false, has_bin = false;
    std::string bin;
    for (uint64_t at = 12; at < length;) {
      if (length - at < 8) return Fail("ends inside a chunk header at byte " + std::to_string(at));
      const uint64_t chunk_length = ReadU32(bytes, at);
      const uint32_t type = ReadU32(bytes, at + 4);
      if (chunk_length > length - at - 8) {
        return Fail("has a chunk of " + std::to_string(chunk_length) + " bytes at byte " +
                    std::to_string(at) + " that runs past its end");
      }
      const std::string data = bytes.substr(at + 8, chunk_length);
      if (!has_json) {
        if (type != kJsonChunk) return Fail("does not start with a JSON chunk");
        json_text = data;
        has_json = true;
      } else if (type == kBinChunk && !has_bin) {
        bin = data;
        has_bin = true;
      }
      at += 8 + chunk_length;
    }
    if (!has_json) return Fail("has no JSON chunk");
    const Json doc = Json::parse(json_text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) return Fail("has a JSON chunk that is not JSON");
    auto required = doc.find("extensionsRequired");
    if (required != doc.end() && required->is_array() && !required->empty()) {
      return Fail("requires the extension " + Dump((*required)[0]) +
                  ", which the preview does not read");
    }
    return Buffers(doc, bin, has_bin, geometry) && Views(doc, geometry) &&
           Accessors(doc, geometry) && Materials(doc, geometry) && Meshes(doc, geometry) &&
           Nodes(doc, geometry);
  }

 private:
  bool Fail(const std::string& text) {
    *problem_ = text;
    return false;
  }

  bool Buffers(const Json& doc, const std::string& bin, bool has_bin, Geometry* geometry) {
    std::vector<Json> buffers;
    if (!ObjectsOf(doc, "buffers", &buffers)) return Fail("has a damaged buffers list");
    if (buffers.empty()) return true;
    if (buffers.size() > 1) return Fail("has more than one buffer");
    if (buffers[0].contains("uri")) {
      return Fail("keeps its data in an external file, which the preview does not fetch");
    }
    uint64_t length = 0;
    if (!CountOf(buffers[0], "byteLength", 0, UINT32_MAX, &length) || length == 0) {
      return Fail("has a buffer without a valid byteLength");
    }
    if (!has_bin || length > bin.size()) {
      return Fail("has a buffer of " + std::to_string(length) + " bytes but a binary chunk of " +
                  std::to_string(has_bin ? bin.size() : 0));
    }
    geometry->bin = bin.substr(0, length);
    return true;
  }

  bool Views(const Json& doc, Geometry* geometry) {
    std::vector<Json> views;
    if (!ObjectsOf(doc, "bufferViews", &views)) return Fail("has a damaged bufferViews list");
    const uint64_t size = geometry->bin.size();
    for (size_t i = 0; i < views.size(); ++i) {
      const Json& view = views[i];
      size_t buffer = 0;
      bool present = false;
      uint64_t offset = 0, length = 0, stride = 0;
      if (!IndexOf(view, "buffer", size == 0 ? 0 : 1, &buffer, &present) || !present ||
          !CountOf(view, "byteOffset", 0, UINT32_MAX, &offset) ||
          !CountOf(view, "byteLength", 0, UINT32_MAX, &length) || length == 0 ||
          offset + length > size || !CountOf(view, "byteStride", 0, 252, &stride) ||
          (view.contains("byteStride") && (stride < 4 || stride % 4 != 0))) {
        return Fail("has buffer view " + std::to_string(i) +
                    " with a buffer, offset, length or stride outside its binary chunk");
      }
      Json out = {{"buffer", 0}, {"byteOffset", offset}, {"byteLength", length}};
      CopyMembers(view, &out, {"byteStride", "target"});
      geometry->buffer_views.push_back(std::move(out));
    }
    return true;
  }

  bool Accessors(const Json& doc, Geometry* geometry) {
    std::vector<Json> accessors;
    if (!ObjectsOf(doc, "accessors", &accessors)) return Fail("has a damaged accessors list");
    for (size_t i = 0; i < accessors.size(); ++i) {
      const Json& accessor = accessors[i];
      const std::string at = "has accessor " + std::to_string(i);
      if (accessor.contains("sparse")) return Fail(at + " that is sparse, which is not read");
      size_t view_index = 0;
      bool present = false;
      uint64_t component = 0, count = 0, offset = 0;
      const auto type = accessor.find("type");
      const size_t components = type != accessor.end() && type->is_string()
                                    ? ComponentCount(type->get<std::string>())
                                    : 0;
      if (!IndexOf(accessor, "bufferView", geometry->buffer_views.size(), &view_index, &present) ||
          !present || !CountOf(accessor, "componentType", 0, 5126, &component) ||
          ComponentSize(component) == 0 || components == 0 ||
          !CountOf(accessor, "count", 0, kMaxAccessorCount, &count) || count == 0 ||
          !CountOf(accessor, "byteOffset", 0, UINT32_MAX, &offset) ||
          !NumbersOk(accessor, "min", components) || !NumbersOk(accessor, "max", components)) {
        return Fail(at + " with a missing or invalid view, type, count or offset");
      }
      const Json& view = geometry->buffer_views[view_index];
      const uint64_t element = components * ComponentSize(component);
      const uint64_t stride = view.value("byteStride", uint64_t{0});
      const uint64_t step = stride == 0 ? element : stride;
      const uint64_t view_length = view["byteLength"].get<uint64_t>();
      // count <= 2^28 and step <= 252 keep the product far from overflow.
      if (offset + step * (count - 1) + element > view_length) {
        return Fail(at + " of " + std::to_string(count) + " elements that runs past its view");
      }
      Json out = {{"bufferView", view_index},
                  {"componentType", component},
                  {"count", count},
                  {"type", type->get<std::string>()},
                  {"byteOffset", offset}};
      CopyMembers(accessor, &out, {"min", "max"});
      auto normalized = accessor.find("normalized");
      if (normalized != accessor.end() && normalized->is_boolean()) out["normalized"] = *normalized;
      geometry->accessors.push_back(std::move(out));
    }
    return true;
  }

  // Materials keep their factors; textures are left out (a geometry file carries no images the
  // preview could show without fetching).
  bool Materials(const Json& doc, Geometry* geometry) {
    std::vector<Json> materials;
    if (!ObjectsOf(doc, "materials", &materials)) return Fail("has a damaged materials list");
    for (const Json& material : materials) {
      Json out = Json::object();
      auto name = material.find("name");
      if (name != material.end() && name->is_string()) out["name"] = *name;
      auto pbr = material.find("pbrMetallicRoughness");
      if (pbr != material.end() && pbr->is_object()) {
        Json factors = Json::object();
        if (NumbersOk(*pbr, "baseColorFactor", 4)) CopyMembers(*pbr, &factors, {"baseColorFactor"});
        for (const char* key : {"metallicFactor", "roughnessFactor"}) {
          auto v = pbr->find(key);
          if (v != pbr->end() && v->is_number()) factors[key] = *v;
        }
        out["pbrMetallicRoughness"] = factors;
      }
      if (NumbersOk(material, "emissiveFactor", 3)) CopyMembers(material, &out, {"emissiveFactor"});
      auto mode = material.find("alphaMode");
      if (mode != material.end() && mode->is_string() &&
          (*mode == "OPAQUE" || *mode == "MASK" || *mode == "BLEND")) {
        out["alphaMode"] = *mode;
      }
      auto sided = material.find("doubleSided");
      if (sided != material.end() && sided->is_boolean()) out["doubleSided"] = *sided;
      geometry->materials.push_back(std::move(out));
    }
    return true;
  }

  bool Meshes(const Json& doc, Geometry* geometry) {
    std::vector<Json> meshes;
    if (!ObjectsOf(doc, "meshes", &meshes)) return Fail("has a damaged meshes list");
    for (size_t m = 0; m < meshes.size(); ++m) {
      const std::string at = "has mesh " + std::to_string(m);
      auto primitives = meshes[m].find("primitives");
      if (primitives == meshes[m].end() || !primitives->is_array() || primitives->empty() ||
          primitives->size() > kMaxItems) {
        return Fail(at + " without primitives");
      }
      Json out_primitives = Json::array();
      for (const Json& primitive : *primitives) {
        auto attributes =
            primitive.is_object() ? primitive.find("attributes") : Json::const_iterator();
        if (!primitive.is_object() || attributes == primitive.end() || !attributes->is_object() ||
            !attributes->contains("POSITION")) {
          return Fail(at + " with a primitive that has no POSITION attribute");
        }
        Json out_attributes = Json::object();
        for (const auto& [name, value] : attributes->items()) {
          if (!value.is_number_unsigned() || value.get<uint64_t>() >= geometry->accessors.size()) {
            return Fail(at + " whose attribute " + name + " names no accessor");
          }
          out_attributes[name] = value;
        }
        Json out = {{"attributes", out_attributes}};
        size_t index = 0;
        bool present = false;
        if (!IndexOf(primitive, "indices", geometry->accessors.size(), &index, &present)) {
          return Fail(at + " whose indices name no accessor");
        }
        if (present) out["indices"] = index;
        if (!IndexOf(primitive, "material", geometry->materials.size(), &index, &present)) {
          return Fail(at + " whose material names no material");
        }
        if (present) out["material"] = index;
        uint64_t mode = 4;
        if (!CountOf(primitive, "mode", 4, 6, &mode)) return Fail(at + " with an unknown mode");
        out["mode"] = mode;
        out_primitives.push_back(std::move(out));
      }
      Json out = {{"primitives", out_primitives}};
      auto name = meshes[m].find("name");
      if (name != meshes[m].end() && name->is_string()) out["name"] = *name;
      geometry->meshes.push_back(std::move(out));
    }
    return true;
  }

  // The node tree: every child index in range, no node with two parents, no cycle.
  bool Nodes(const Json& doc, Geometry* geometry) {
    std::vector<Json> nodes;
    if (!ObjectsOf(doc, "nodes", &nodes)) return Fail("has a damaged nodes list");
    std::vector<bool> has_parent(nodes.size(), false);
    for (size_t n = 0; n < nodes.size(); ++n) {
      const Json& node = nodes[n];
      const std::string at = "has node " + std::to_string(n);
      Json out = Json::object();
      auto name = node.find("name");
      if (name != node.end() && name->is_string()) out["name"] = *name;
      size_t mesh = 0;
      bool present = false;
      if (!IndexOf(node, "mesh", geometry->meshes.size(), &mesh, &present)) {
        return Fail(at + " whose mesh names no mesh");
      }
      if (present) out["mesh"] = mesh;
      if (!NumbersOk(node, "matrix", 16) || !NumbersOk(node, "translation", 3) ||
          !NumbersOk(node, "rotation", 4) || !NumbersOk(node, "scale", 3)) {
        return Fail(at + " with a damaged transform");
      }
      CopyMembers(node, &out, {"matrix", "translation", "rotation", "scale"});
      auto children = node.find("children");
      if (children != node.end()) {
        if (!children->is_array()) return Fail(at + " with a damaged children list");
        Json out_children = Json::array();
        for (const Json& child : *children) {
          if (!child.is_number_unsigned() || child.get<uint64_t>() >= nodes.size() ||
              child.get<uint64_t>() == n || has_parent[child.get<size_t>()]) {
            return Fail(at + " with a child that is out of range or has another parent");
          }
          has_parent[child.get<size_t>()] = true;
          out_children.push_back(child);
        }
        out["children"] = std::move(out_children);
      }
      geometry->nodes.push_back(std::move(out));
    }
    // The scene's roots, or every node without a parent when the file names no scene.
    std::vector<size_t> roots;
    auto scenes = doc.find("scenes");
    if (scenes != doc.end() && scenes->is_array() && !scenes->empty()) {
      size_t scene = 0;
      bool present = false;
      if (!IndexOf(doc, "scene", scenes->size(), &scene, &present) ||
          !(*scenes)[scene].is_object()) {
        return Fail("names a scene that is not there");
      }
      auto scene_nodes = (*scenes)[scene].find("nodes");
      if (scene_nodes != (*scenes)[scene].end()) {
        if (!scene_nodes->is_array()) return Fail("has a damaged scene");
        for (const Json& root : *scene_nodes) {
          if (!root.is_number_unsigned() || root.get<uint64_t>() >= nodes.size() ||
              has_parent[root.get<size_t>()]) {
            return Fail("has a scene whose nodes are out of range or not roots");
          }
          roots.push_back(root.get<size_t>());
        }
      }
    } else {
      for (size_t n = 0; n < nodes.size(); ++n) {
        if (!has_parent[n]) roots.push_back(n);
      }
    }
    // Every node reached once from the roots: a cycle has no root and is never reached, so the
    // copies made per instance always end.
    std::vector<bool> seen(nodes.size(), false);
    std::vector<size_t> stack = roots;
    while (!stack.empty()) {
      const size_t n = stack.back();
      stack.pop_back();
      if (seen[n]) return Fail("has a scene that reaches node " + std::to_string(n) + " twice");
      seen[n] = true;
      for (const Json& child : geometry->nodes[n].value("children", Json::array())) {
        stack.push_back(child.get<size_t>());
      }
    }
    geometry->roots = std::move(roots);
    return true;
  }

  std::string* problem_ = nullptr;
};

// ---- The scene ----------------------------------------------------------------------------

// A colour per product, from its name, so that neighbouring parts can be told apart.
Json ColourOf(const std::string& key) {
  uint32_t hash = 2166136261u;
  for (unsigned char c : key) hash = (hash ^ c) * 16777619u;
  const double hue = (hash % 360) / 360.0;
  auto channel = [hue](double shift) {
    double t = std::fmod(hue + shift, 1.0);
    double v = std::fabs(t * 6 - 3) - 1;
    return 0.35 + 0.5 * std::clamp(v, 0.0, 1.0);
  };
  return Json::array({channel(0), channel(2.0 / 3), channel(1.0 / 3), 1.0});
}

// The 12 numbers of a Placement ("r00 r01 r02 r10 r11 r12 r20 r21 r22 x y z": a row-major
// rotation, then the translation) as a column-major glTF matrix; false when the text is not 12
// finite numbers.
bool PlacementMatrix(const std::string& text, Json* matrix) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  std::array<double, 12> v{};
  for (double& d : v) {
    if (!(in >> d) || !std::isfinite(d)) return false;
  }
  std::string rest;
  if (in >> rest) return false;
  *matrix = Json::array({v[0], v[3], v[6], 0.0, v[1], v[4], v[7], 0.0, v[2], v[5], v[8], 0.0, v[9],
                         v[10], v[11], 1.0});
  return true;
}

const Json kIdentity =
    Json::array({1.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0});

struct Product {
  bool loaded = false;
  std::string document;  // file name in the directory
  std::string problem;   // why its document cannot be read
  pugi::xml_document xml;
  bool has_geometry = false;
  std::vector<Json> node_templates;  // the geometry's nodes, indices into the scene's lists
  std::vector<size_t> roots;
};

class SceneBuilder {
 public:
  SceneBuilder(const Directory& directory, PreviewResult* result)
      : directory_(directory), result_(result) {}

  // Builds the scene from the main document; false with result_->problem set.
  bool Build(const pugi::xml_document& main) {
    const pugi::xml_node root = main.document_element();
    result_->package = root.attribute("Name").as_string();
    ReadPositioning(root);
    Json package = {{"name", result_->package.empty() ? "package" : result_->package},
                    {"rotation", kZUpToYUp},
                    {"extras", {{"nomPackage", result_->package}}}};
    const size_t package_node = AddNode(std::move(package));
    for (pugi::xml_node list : root.children("CLitAssyGroup")) {
      const std::string ident = list.attribute("Ident").as_string();
      if (*list.attribute("IsInstanceOf").as_string() != '\0') {
        if (!AddInstances(package_node, list, "", true)) return false;
        continue;
      }
      Json group = {{"name", ident},
                    {"extras",
                     {{"nomGroup", true},
                      {"nomPath", ident},
                      {"nomName", list.attribute("Name").as_string()}}}};
      const size_t group_node = AddNode(std::move(group));
      Child(package_node, group_node);
      if (!AddInstances(group_node, list.child("CLitAssyGroup"), ident, false)) return false;
    }
    return true;
  }

  // The glTF document and its binary chunk as one GLB file.
  std::string Glb() const {
    Json doc;
    doc["asset"] = {{"version", "2.0"}, {"generator", "nomsoi preview"}};
    doc["scene"] = 0;
    doc["scenes"] = Json::array({{{"name", result_->package}, {"nodes", Json::array({0})}}});
    doc["nodes"] = nodes_;
    if (!meshes_.empty()) doc["meshes"] = meshes_;
    if (!materials_.empty()) doc["materials"] = materials_;
    if (!accessors_.empty()) doc["accessors"] = accessors_;
    if (!views_.empty()) doc["bufferViews"] = views_;
    if (!bin_.empty()) doc["buffers"] = Json::array({{{"byteLength", bin_.size()}}});
    std::string json = Dump(doc);
    json.resize((json.size() + 3) / 4 * 4, ' ');
    std::string bin = bin_;
    bin.resize((bin.size() + 3) / 4 * 4, '\0');
    std::string glb;
    AppendU32(&glb, kGlbMagic);
    AppendU32(&glb, 2);
    AppendU32(&glb,
              static_cast<uint32_t>(12 + 8 + json.size() + (bin.empty() ? 0 : 8 + bin.size())));
    AppendU32(&glb, static_cast<uint32_t>(json.size()));
    AppendU32(&glb, kJsonChunk);
    glb += json;
    if (!bin.empty()) {
      AppendU32(&glb, static_cast<uint32_t>(bin.size()));
      AppendU32(&glb, kBinChunk);
      glb += bin;
    }
    return glb;
  }

 private:
  // Placements from simulation positions and visibility from 3D states, by ident path; the last
  // one in document order wins, as applying them in order would leave the package.
  void ReadPositioning(pugi::xml_node root) {
    for (pugi::xml_node group : root.children("SimulationPositions")) {
      for (pugi::xml_node position : group.children("Position")) {
        Json matrix;
        if (PlacementMatrix(position.attribute("Placement").as_string(), &matrix)) {
          positions_[position.attribute("Target").as_string()] = matrix;
        }
      }
    }
    for (pugi::xml_node process : root.children("Process")) {
      for (pugi::xml_node operation : process.children("Operation")) {
        for (pugi::xml_node state : operation.children("State")) {
          visible_[state.attribute("Target").as_string()] =
              std::string(state.attribute("Visible").as_string()) != "false";
        }
      }
    }
  }

  size_t AddNode(Json node) {
    nodes_.push_back(std::move(node));
    return nodes_.size() - 1;
  }

  void Child(size_t parent, size_t child) {
    Json& node = nodes_[parent];
    if (!node.contains("children")) node["children"] = Json::array();
    node["children"].push_back(child);
  }

  bool Refuse(const std::string& text) {
    result_->problem = text;
    return false;
  }

  // Places element and everything it holds (single: element alone) or, when single is false,
  // element and its following CLitAssyGroup siblings, depth first with an explicit stack. A
  // CLitAssyGroup with a non-empty IsInstanceOf is an instance of the product document it names;
  // one without is a group whose children are walked in its place, adding no node and no ident.
  bool AddInstances(size_t parent_node, pugi::xml_node element, const std::string& path,
                    bool single) {
    struct Level {
      pugi::xml_node next;  // the next CLitAssyGroup to look at
      size_t parent_node;
      std::string path;
      std::string product;  // the document the level walks ("" for the main document)
      bool single;          // element alone, not its siblings
    };
    std::vector<Level> stack = {{element, parent_node, path, "", single}};
    while (!stack.empty()) {
      Level& level = stack.back();
      if (!level.next) {
        stack.pop_back();
        continue;
      }
      const pugi::xml_node instance = level.next;
      level.next = level.single ? pugi::xml_node() : instance.next_sibling("CLitAssyGroup");
      if (stack.size() > kMaxDepth) {
        return Refuse("the product structure nests deeper than " + std::to_string(kMaxDepth) +
                      " levels (at " + level.path + ")");
      }
      const std::string document = FileNameOf(instance.attribute("IsInstanceOf").as_string());
      if (document.empty()) {
        Level group = {instance.child("CLitAssyGroup"), level.parent_node, level.path,
                       level.product, false};
        stack.push_back(std::move(group));
        continue;
      }
      if (++result_->instances > kMaxInstances) {
        return Refuse("the package places more than " + std::to_string(kMaxInstances) +
                      " instances");
      }
      const std::string ident = instance.attribute("Ident").as_string();
      const std::string instance_path = level.path.empty() ? ident : level.path + "/" + ident;
      for (const Level& outer : stack) {
        if (!outer.product.empty() && Lower(outer.product) == Lower(document)) {
          return Refuse("product document '" + document + "' contains itself (at " + instance_path +
                        ")");
        }
      }
      Product& product = Load(document);
      Json matrix = kIdentity;
      auto position = positions_.find(instance_path);
      if (position != positions_.end()) {
        matrix = position->second;
      } else if (!PlacementMatrix(instance.attribute("Placement").as_string(), &matrix)) {
        matrix = kIdentity;
      }
      auto visible = visible_.find(instance_path);
      Json node = {{"name", ident},
                   {"extras",
                    {{"nomInstance", true},
                     {"nomPath", instance_path},
                     {"nomName", instance.attribute("Name").as_string()},
                     {"nomProduct", document},
                     {"nomVisible", visible == visible_.end() || visible->second}}}};
      if (matrix != kIdentity) node["matrix"] = matrix;  // glTF leaves the default out
      const size_t instance_node = AddNode(std::move(node));
      Child(level.parent_node, instance_node);
      if (!AddGeometry(instance_node, product)) return false;
      if (nodes_.size() > kMaxOutputNodes) {
        return Refuse("the preview would hold more than " + std::to_string(kMaxOutputNodes) +
                      " nodes");
      }
      if (product.problem.empty()) {
        stack.push_back({product.xml.document_element().child("CLitAssyGroup"), instance_node,
                         instance_path, document, false});
      }
    }
    return true;
  }

  // The product of a document, read once: its structure and its geometry appended to the scene.
  Product& Load(const std::string& document) {
    Product& product = products_[Lower(document)];
    if (product.loaded) return product;
    product.loaded = true;
    product.document = document;
    ++result_->products;
    const fs::path path = directory_.Find(document);
    std::string bytes, problem;
    if (path.empty()) {
      product.problem = "product document is missing";
    } else if (!ReadFile(path, kMaxGeometryBytes, &bytes, &problem)) {
      product.problem = "product document " + problem;
    } else {
      const pugi::xml_parse_result parsed = product.xml.load_buffer(bytes.data(), bytes.size());
      if (!parsed)
        product.problem =
            std::string("product document is not well-formed XML: ") + parsed.description();
    }
    const std::string geometry_name = GeometryNameOf(document);
    if (!product.problem.empty()) {
      Missing(document, geometry_name, product.problem);
      return product;
    }
    const fs::path geometry_path = directory_.Find(geometry_name);
    Geometry geometry;
    if (geometry_path.empty()) {
      Missing(document, geometry_name, "missing");
    } else if (!ReadFile(geometry_path, kMaxGeometryBytes, &bytes, &problem) ||
               !GeometryReader().Read(bytes, &geometry, &problem)) {
      Missing(document, geometry_name, problem);
    } else if (bin_.size() + geometry.bin.size() + 4 > kMaxSceneBytes) {
      Missing(document, geometry_name,
              "makes the preview larger than " + std::to_string(kMaxSceneBytes) + " bytes");
    } else {
      Append(document, geometry, &product);
    }
    return product;
  }

  void Missing(const std::string& document, const std::string& geometry,
               const std::string& problem) {
    result_->missing.push_back({document, geometry, problem});
    nomzub::LogServiceError("preview: geometry '" + geometry + "' of '" + document +
                            "': " + problem);
  }

  // Appends the geometry's views, accessors, materials and meshes to the scene once; its nodes
  // become templates that each instance copies.
  void Append(const std::string& document, const Geometry& geometry, Product* product) {
    bin_.resize((bin_.size() + 3) / 4 * 4, '\0');
    const size_t bin_base = bin_.size();
    bin_ += geometry.bin;
    const size_t view_base = views_.size(), accessor_base = accessors_.size(),
                 material_base = materials_.size(), mesh_base = meshes_.size();
    for (Json view : geometry.buffer_views) {
      view["byteOffset"] = view["byteOffset"].get<uint64_t>() + bin_base;
      views_.push_back(std::move(view));
    }
    for (Json accessor : geometry.accessors) {
      accessor["bufferView"] = accessor["bufferView"].get<size_t>() + view_base;
      accessors_.push_back(std::move(accessor));
    }
    for (const Json& material : geometry.materials) materials_.push_back(material);
    // Primitives without a material get one coloured for the product: glTF's default is a
    // metallic white that shows black without an environment.
    size_t own_material = SIZE_MAX;
    for (Json mesh : geometry.meshes) {
      for (Json& primitive : mesh["primitives"]) {
        for (auto& [name, index] : primitive["attributes"].items()) {
          (void)name;
          index = index.get<size_t>() + accessor_base;
        }
        if (primitive.contains("indices")) {
          primitive["indices"] = primitive["indices"].get<size_t>() + accessor_base;
        }
        if (primitive.contains("material")) {
          primitive["material"] = primitive["material"].get<size_t>() + material_base;
        } else {
          if (own_material == SIZE_MAX) {
            own_material = materials_.size();
            materials_.push_back({{"name", document},
                                  {"pbrMetallicRoughness",
                                   {{"baseColorFactor", ColourOf(document)},
                                    {"metallicFactor", 0.0},
                                    {"roughnessFactor", 0.8}}}});
          }
          primitive["material"] = own_material;
        }
      }
      meshes_.push_back(std::move(mesh));
    }
    product->has_geometry = true;
    product->roots = geometry.roots;
    for (Json node : geometry.nodes) {
      if (node.contains("mesh")) node["mesh"] = node["mesh"].get<size_t>() + mesh_base;
      product->node_templates.push_back(std::move(node));
    }
  }

  // The mesh of the placeholder box (written once): a red wireframe-marked box of 0.2 units.
  size_t PlaceholderMesh() {
    if (placeholder_mesh_ != SIZE_MAX) return placeholder_mesh_;
    bin_.resize((bin_.size() + 3) / 4 * 4, '\0');
    const size_t base = bin_.size();
    const float h = 0.1f;
    for (int corner = 0; corner < 8; ++corner) {
      const float xyz[3] = {corner & 1 ? h : -h, corner & 2 ? h : -h, corner & 4 ? 2 * h : 0.0f};
      for (float f : xyz) {
        uint32_t bits;
        std::memcpy(&bits, &f, sizeof bits);
        AppendU32(&bin_, bits);
      }
    }
    // The twelve edges as lines, so the box reads as a wireframe in any viewer.
    const uint16_t edges[24] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 2, 1, 3,
                                4, 6, 5, 7, 0, 4, 1, 5, 2, 6, 3, 7};
    for (uint16_t e : edges) {
      bin_ += static_cast<char>(e & 0xFF);
      bin_ += static_cast<char>(e >> 8);
    }
    views_.push_back({{"buffer", 0}, {"byteOffset", base}, {"byteLength", 96}, {"target", 34962}});
    views_.push_back(
        {{"buffer", 0}, {"byteOffset", base + 96}, {"byteLength", 48}, {"target", 34963}});
    accessors_.push_back({{"bufferView", views_.size() - 2},
                          {"componentType", 5126},
                          {"count", 8},
                          {"type", "VEC3"},
                          {"min", {-h, -h, 0.0}},
                          {"max", {h, h, 2 * h}}});
    accessors_.push_back({{"bufferView", views_.size() - 1},
                          {"componentType", 5123},
                          {"count", 24},
                          {"type", "SCALAR"}});
    materials_.push_back({{"name", "missing geometry"},
                          {"pbrMetallicRoughness",
                           {{"baseColorFactor", {1.0, 0.0, 0.0, 1.0}}, {"metallicFactor", 0.0}}},
                          {"emissiveFactor", {1.0, 0.0, 0.0}}});
    meshes_.push_back(
        {{"name", "missing geometry"},
         {"primitives", Json::array({{{"attributes", {{"POSITION", accessors_.size() - 2}}},
                                      {"indices", accessors_.size() - 1},
                                      {"material", materials_.size() - 1},
                                      {"mode", 1}}})}});
    placeholder_mesh_ = meshes_.size() - 1;
    return placeholder_mesh_;
  }

  // Puts the product's geometry under the instance's node: a copy of its node tree turned into
  // the package's frame, the meshes shared; a placeholder when it has none to show.
  bool AddGeometry(size_t instance_node, const Product& product) {
    if (!product.has_geometry) {
      const size_t box = AddNode({{"name", product.document + " (missing geometry)"},
                                  {"mesh", PlaceholderMesh()},
                                  {"extras", {{"nomMissing", true}}}});
      Child(instance_node, box);
      return true;
    }
    if (product.roots.empty()) return true;
    const size_t frame = AddNode({{"name", product.document}, {"rotation", kYUpToZUp}});
    Child(instance_node, frame);
    // Copies with an explicit stack; Nodes() made sure the tree is a tree.
    std::vector<std::pair<size_t, size_t>> stack;  // template index, parent in the scene
    for (auto it = product.roots.rbegin(); it != product.roots.rend(); ++it) {
      stack.emplace_back(*it, frame);
    }
    while (!stack.empty()) {
      auto [index, parent] = stack.back();
      stack.pop_back();
      if (nodes_.size() > kMaxOutputNodes) {
        return Refuse("the preview would hold more than " + std::to_string(kMaxOutputNodes) +
                      " nodes");
      }
      Json node = product.node_templates[index];
      Json children = node.value("children", Json::array());
      node.erase("children");
      const size_t copy = AddNode(std::move(node));
      Child(parent, copy);
      for (auto it = children.rbegin(); it != children.rend(); ++it) {
        stack.emplace_back(it->get<size_t>(), copy);
      }
    }
    return true;
  }

  const Directory& directory_;
  PreviewResult* result_;
  std::map<std::string, Json> positions_;
  std::map<std::string, bool> visible_;
  std::map<std::string, Product> products_;  // by lower-case document name
  Json nodes_ = Json::array();
  Json meshes_ = Json::array();
  Json materials_ = Json::array();
  Json accessors_ = Json::array();
  Json views_ = Json::array();
  std::string bin_;
  size_t placeholder_mesh_ = SIZE_MAX;
};

// ---- The page -----------------------------------------------------------------------------

std::string Base64(const std::string& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const uint32_t v = (static_cast<unsigned char>(bytes[i]) << 16) |
                       (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                       static_cast<unsigned char>(bytes[i + 2]);
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += kDigits[(v >> 6) & 63];
    out += kDigits[v & 63];
  }
  if (i < bytes.size()) {
    uint32_t v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? kDigits[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

// Replaces every occurrence of from in text.
std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// The page: the package's facts as JSON, the scene as base64, the viewer inline; the content
// security policy lets the page reach nothing but itself.
std::string Html(const PreviewResult& result, const std::string& glb) {
  Json missing = Json::array();
  for (const PreviewGeometryIssue& issue : result.missing) {
    missing.push_back(
        {{"product", issue.product}, {"geometry", issue.geometry}, {"problem", issue.problem}});
  }
  const Json facts = {{"package", result.package},
                      {"instances", result.instances},
                      {"products", result.products},
                      {"missing", missing}};
  // "<" never appears raw inside the script elements, so no text can close them.
  const std::string facts_text = ReplaceAll(Dump(facts), "<", "\\u003c");
  const std::string viewer = ReplaceAll(kViewerBundle, "</script", "<\\/script");
  std::string title = result.package.empty() ? "package" : result.package;
  title = ReplaceAll(ReplaceAll(ReplaceAll(title, "&", "&amp;"), "<", "&lt;"), ">", "&gt;");
  return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
         "script-src 'unsafe-inline'; style-src 'unsafe-inline'; img-src data: blob:\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<title>" +
         title +
         " - preview</title>\n<style>\n"
         "html,body{margin:0;height:100%;font:14px system-ui,sans-serif;color:#222}\n"
         "body{display:flex}\n"
         "#side{width:320px;overflow:auto;border-right:1px solid #ccc;padding:8px 12px;"
         "box-sizing:border-box;background:#fafafa}\n"
         "#view{flex:1;position:relative;min-width:0}\n"
         "#view canvas{display:block}\n"
         "h1{font-size:18px;margin:4px 0}\n"
         "#counts{margin:4px 0 8px}\n"
         "#missing{color:#b00000}\n"
         "#tree ul{list-style:none;margin:0;padding-left:14px}\n"
         "#tree>ul{padding-left:0}\n"
         "#tree button{border:0;background:none;padding:1px 4px;cursor:pointer;font:inherit;"
         "text-align:left}\n"
         "#tree button:hover{background:#e4ecf7}\n"
         "#tree button.selected{background:#ffd54f}\n"
         "#tree button.missing{color:#b00000}\n"
         "#tree .group{font-weight:600}\n"
         "#error{color:#b00000;white-space:pre-wrap}\n"
         "</style>\n</head>\n<body>\n"
         "<div id=\"side\"><h1 id=\"title\"></h1><div id=\"counts\"></div>"
         "<div id=\"error\"></div><ul id=\"missing\"></ul><div id=\"tree\"></div></div>\n"
         "<div id=\"view\"></div>\n"
         "<script type=\"application/json\" id=\"nom-package\">" +
         facts_text + "</script>\n<script type=\"application/octet-stream\" id=\"nom-glb\">" +
         Base64(glb) + "</script>\n<script>\n" + viewer + "\n</script>\n</body>\n</html>\n";
}

// Writes contents to path through a temporary beside it, so a reader never sees half a file.
bool WriteWhole(const fs::path& path, const std::string& contents, std::string* problem) {
  fs::path temporary = path;
  temporary += ".tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!out.write(contents.data(), static_cast<std::streamsize>(contents.size())) ||
        !out.flush()) {
      *problem = "cannot write " + temporary.string();
      std::error_code ignored;
      fs::remove(temporary, ignored);
      return false;
    }
  }
  std::error_code ec;
  fs::rename(temporary, path, ec);
  if (ec) {
    *problem = "cannot write " + path.string() + ": " + ec.message();
    fs::remove(temporary, ec);
    return false;
  }
  return true;
}

// The main document: SOI.vgxXml, else the Document of a view file (*.vgxView, in name order)
// that names a file in the directory; empty when there is none.
fs::path MainDocumentOf(const fs::path& native, const Directory& directory) {
  fs::path main = directory.Find(kMainDocument);
  if (!main.empty()) return main;
  std::vector<fs::path> views;
  std::error_code ec;
  for (fs::directory_iterator it(native, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.size() > 8 && Lower(name.substr(name.size() - 8)) == ".vgxview") {
      views.push_back(it->path());
    }
  }
  std::sort(views.begin(), views.end());
  for (const fs::path& view : views) {
    std::string bytes, problem;
    pugi::xml_document doc;
    if (!ReadFile(view, kMaxGeometryBytes, &bytes, &problem) ||
        !doc.load_buffer(bytes.data(), bytes.size())) {
      continue;
    }
    main = directory.Find(FileNameOf(doc.document_element().attribute("Document").as_string()));
    if (!main.empty()) return main;
  }
  return {};
}

}  // namespace

PreviewResult WritePreview(const std::string& dir) {
  PreviewResult result;
  auto fail = [&](std::string problem) {
    result = PreviewResult();
    result.problem = problem;
    nomzub::LogServiceError("cannot write the preview of '" + dir + "': " + problem);
    return result;
  };
  const fs::path native(NativePath(dir));
  std::error_code ec;
  if (!fs::is_directory(native, ec)) return fail("'" + dir + "' is not a directory");
  const Directory directory(native);
  const fs::path main_path = MainDocumentOf(native, directory);
  if (main_path.empty()) {
    return fail(std::string("the directory holds no ") + kMainDocument +
                " and no view file that names a main document there");
  }
  std::string bytes, problem;
  if (!ReadFile(main_path, kMaxGeometryBytes, &bytes, &problem)) {
    return fail(std::string(kMainDocument) + " " + problem);
  }
  pugi::xml_document main;
  const pugi::xml_parse_result parsed = main.load_buffer(bytes.data(), bytes.size());
  if (!parsed || !main.document_element()) {
    return fail(std::string(kMainDocument) + " is not well-formed XML: " + parsed.description());
  }
  SceneBuilder builder(directory, &result);
  if (!builder.Build(main)) return fail(result.problem);
  const std::string glb = builder.Glb();
  const fs::path glb_path = native / kGlbName, html_path = native / kHtmlName;
  if (!WriteWhole(glb_path, glb, &problem) || !WriteWhole(html_path, Html(result, glb), &problem)) {
    return fail(problem);
  }
  result.glb_path = glb_path.string();
  result.html_path = html_path.string();
  nomzub::LogServiceInfo("preview of '" + dir + "': " + std::to_string(result.instances) +
                         " instances of " + std::to_string(result.products) + " products, " +
                         std::to_string(result.missing.size()) + " without geometry, in " +
                         result.html_path);
  return result;
}

}  // namespace nomsoi
