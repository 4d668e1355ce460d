// GLB layout: a 12-byte header ("glTF", version 2, total length), a JSON chunk padded with blanks
// to four bytes, and a binary chunk (vertex positions, then indices) padded with zeros. The JSON
// chunk is built as an nlohmann::ordered_json document, so its members keep the order they are
// added in.
#include "NOMZUBProxy/glb.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <nlohmann/json.hpp>

#include "services/NOMZUBLog.h"

namespace nomzub::proxy {
namespace {

using Json = nlohmann::ordered_json;

constexpr uint32_t kMagic = 0x46546C67;      // "glTF"
constexpr uint32_t kJsonChunk = 0x4E4F534A;  // "JSON"
constexpr uint32_t kBinChunk = 0x004E4942;   // "BIN\0"
constexpr int kArrayBuffer = 34962;
constexpr int kElementArrayBuffer = 34963;
constexpr int kFloat = 5126;
constexpr int kUnsignedInt = 5125;
constexpr int kTriangles = 4;

void AppendU32(std::string& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out += static_cast<char>(v >> (8 * i));
}

void AppendFloat(std::string& out, float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  AppendU32(out, bits);
}

// The smallest (pick_max false) or largest coordinates of the mesh as [x, y, z]; glTF requires
// both bounds on POSITION accessors.
Json Bound(const Mesh& mesh, bool pick_max) {
  float b[3] = {mesh.positions[0], mesh.positions[1], mesh.positions[2]};
  for (size_t i = 0; i < mesh.positions.size(); ++i) {
    float v = mesh.positions[i];
    b[i % 3] = pick_max ? std::max(b[i % 3], v) : std::min(b[i % 3], v);
  }
  return Json::array({b[0], b[1], b[2]});
}

// name as well-formed UTF-8 by the rule every JSON text of the system follows: each byte that
// starts no well-formed sequence becomes U+FFFD. The system's escaper applies the rule and the
// library reads its output back, so a malformed name gives the same text it always has.
std::string WellFormed(const std::string& name) {
  std::string quoted = "\"";
  nomzub::AppendJsonString(name, &quoted);
  quoted += '"';
  return Json::parse(quoted).get<std::string>();
}

// Appends value as compact JSON. The library writes every value except floating-point numbers:
// those are single-precision coordinates and are written in the shortest form that reads back as
// the same float ("0", "-0.03", "1e-04"), as geometry files have always had them, where the
// library would write the double's form ("0.0", "-0.029999999329447746", "0.0001").
void AppendJson(const Json& value, std::string* out) {
  switch (value.type()) {
    case Json::value_t::object: {
      char separator = '{';
      for (const auto& member : value.items()) {
        *out += separator;
        *out += Json(member.key()).dump();
        *out += ':';
        AppendJson(member.value(), out);
        separator = ',';
      }
      if (separator == '{') *out += '{';
      *out += '}';
      break;
    }
    case Json::value_t::array: {
      char separator = '[';
      for (const Json& element : value) {
        *out += separator;
        AppendJson(element, out);
        separator = ',';
      }
      if (separator == '[') *out += '[';
      *out += ']';
      break;
    }
    case Json::value_t::number_float: {
      char text[32];
      auto [end, ec] =
          std::to_chars(text, text + sizeof text, static_cast<float>(value.get<double>()));
      out->append(text, end);
      break;
    }
    default:
      *out += value.dump();
  }
}

void AppendChunk(std::string& out, uint32_t type, std::string data, char pad) {
  data.resize((data.size() + 3) / 4 * 4, pad);
  AppendU32(out, static_cast<uint32_t>(data.size()));
  AppendU32(out, type);
  out += data;
}

}  // namespace

std::string BuildGlb(const std::string& name, const Mesh* mesh) {
  const bool has_mesh = mesh != nullptr && !mesh->positions.empty();
  const std::string node_name = WellFormed(name);
  Json doc;
  doc["asset"] = {{"version", "2.0"}, {"generator", "NOMZUBProxy"}};
  doc["scene"] = 0;
  doc["scenes"] = Json::array({{{"nodes", Json::array({0})}}});
  Json node = {{"name", node_name}};
  if (has_mesh) node["mesh"] = 0;
  doc["nodes"] = Json::array({node});
  std::string bin;
  if (has_mesh) {
    for (float f : mesh->positions) AppendFloat(bin, f);
    const size_t positions_size = bin.size();
    for (uint32_t i : mesh->indices) AppendU32(bin, i);
    const bool indexed = !mesh->indices.empty();
    Json primitive = {{"attributes", {{"POSITION", 0}}}};
    if (indexed) primitive["indices"] = 1;
    primitive["mode"] = kTriangles;
    doc["meshes"] = Json::array({{{"name", node_name}, {"primitives", Json::array({primitive})}}});
    doc["buffers"] = Json::array({{{"byteLength", bin.size()}}});
    Json views = Json::array({{{"buffer", 0},
                               {"byteOffset", 0},
                               {"byteLength", positions_size},
                               {"target", kArrayBuffer}}});
    Json accessors = Json::array({{{"bufferView", 0},
                                   {"componentType", kFloat},
                                   {"count", mesh->positions.size() / 3},
                                   {"type", "VEC3"},
                                   {"min", Bound(*mesh, false)},
                                   {"max", Bound(*mesh, true)}}});
    if (indexed) {
      views.push_back({{"buffer", 0},
                       {"byteOffset", positions_size},
                       {"byteLength", bin.size() - positions_size},
                       {"target", kElementArrayBuffer}});
      accessors.push_back({{"bufferView", 1},
                           {"componentType", kUnsignedInt},
                           {"count", mesh->indices.size()},
                           {"type", "SCALAR"}});
    }
    doc["bufferViews"] = std::move(views);
    doc["accessors"] = std::move(accessors);
  }
  std::string json;
  AppendJson(doc, &json);
  std::string chunks;
  AppendChunk(chunks, kJsonChunk, json, ' ');
  if (has_mesh) AppendChunk(chunks, kBinChunk, bin, '\0');
  std::string glb;
  AppendU32(glb, kMagic);
  AppendU32(glb, 2);
  AppendU32(glb, static_cast<uint32_t>(12 + chunks.size()));
  return glb + chunks;
}

}  // namespace nomzub::proxy
