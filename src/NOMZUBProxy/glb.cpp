// GLB layout: a 12-byte header ("glTF", version 2, total length), a JSON chunk padded with blanks
// to four bytes, and a binary chunk (vertex positions, normals, then indices) padded with zeros.
// The JSON
// chunk is built as an nlohmann::ordered_json document, so its members keep the order they are
// added in.
#include "NOMZUBProxy/glb.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

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
Json Bound(const std::vector<float>& positions, bool pick_max) {
  float b[3] = {positions[0], positions[1], positions[2]};
  for (size_t i = 0; i < positions.size(); ++i) {
    float v = positions[i];
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

const float kZUpToYUp[4] = {-0.70710677f, 0.0f, 0.0f, 0.70710677f};

ShadedMesh ShadeMesh(const Mesh& mesh) {
  using Vec = std::array<double, 3>;
  const size_t vertices = mesh.positions.size() / 3;
  std::vector<uint32_t> corners = mesh.indices;
  if (corners.empty()) {
    for (uint32_t v = 0; v + 2 < vertices; v += 3) corners.insert(corners.end(), {v, v + 1, v + 2});
  }
  auto at = [&](uint32_t v) {
    return Vec{mesh.positions[3 * v], mesh.positions[3 * v + 1], mesh.positions[3 * v + 2]};
  };
  auto length = [](const Vec& a) { return std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]); };
  // The triangles of positive area, each with its unit normal and its angle at each corner.
  struct Face {
    uint32_t v[3];
    Vec unit;
    double angle[3];
  };
  std::vector<Face> faces;
  for (size_t t = 0; t + 2 < corners.size(); t += 3) {
    Face f{{corners[t], corners[t + 1], corners[t + 2]}, {}, {}};
    if (f.v[0] >= vertices || f.v[1] >= vertices || f.v[2] >= vertices) continue;
    const Vec p[3] = {at(f.v[0]), at(f.v[1]), at(f.v[2])};
    auto edge = [&](int from, int to) {
      return Vec{p[to][0] - p[from][0], p[to][1] - p[from][1], p[to][2] - p[from][2]};
    };
    Vec ab = edge(0, 1), ac = edge(0, 2);
    Vec normal{ab[1] * ac[2] - ab[2] * ac[1], ab[2] * ac[0] - ab[0] * ac[2],
               ab[0] * ac[1] - ab[1] * ac[0]};
    double len = length(normal);
    if (!(len > 0) || !std::isfinite(len)) continue;
    f.unit = {normal[0] / len, normal[1] / len, normal[2] / len};
    for (int k = 0; k < 3; ++k) {
      Vec u = edge(k, (k + 1) % 3), w = edge(k, (k + 2) % 3);
      double cosine = (u[0] * w[0] + u[1] * w[1] + u[2] * w[2]) / (length(u) * length(w));
      f.angle[k] = std::acos(std::clamp(cosine, -1.0, 1.0));
    }
    faces.push_back(f);
  }
  std::vector<std::vector<size_t>> faces_at(vertices);
  for (size_t i = 0; i < faces.size(); ++i) {
    for (uint32_t v : faces[i].v) faces_at[v].push_back(i);
  }
  const double crease = std::cos(kCreaseDegrees * 3.14159265358979323846 / 180);
  ShadedMesh out;
  std::map<std::tuple<uint32_t, float, float, float>, uint32_t> made;  // (vertex, normal) -> index
  for (const Face& f : faces) {
    for (uint32_t v : f.v) {
      // Weighting each face by its angle at the vertex makes the normal independent of how the
      // surface around it is cut into triangles.
      Vec sum{0, 0, 0};
      for (size_t g : faces_at[v]) {
        const Face& other = faces[g];
        double cosine =
            f.unit[0] * other.unit[0] + f.unit[1] * other.unit[1] + f.unit[2] * other.unit[2];
        if (cosine < crease) continue;
        const int corner = other.v[0] == v ? 0 : other.v[1] == v ? 1 : 2;
        for (int k = 0; k < 3; ++k) sum[k] += other.angle[corner] * other.unit[k];
      }
      double len = length(sum);  // f's own normal is in it: never zero
      float n[3] = {static_cast<float>(sum[0] / len), static_cast<float>(sum[1] / len),
                    static_cast<float>(sum[2] / len)};
      auto [it, added] =
          made.try_emplace({v, n[0], n[1], n[2]}, static_cast<uint32_t>(out.positions.size() / 3));
      if (added) {
        out.positions.insert(out.positions.end(), mesh.positions.begin() + 3 * v,
                             mesh.positions.begin() + 3 * v + 3);
        out.normals.insert(out.normals.end(), n, n + 3);
      }
      out.indices.push_back(it->second);
    }
  }
  return out;
}

std::string BuildGlb(const std::string& ident, const std::string& name, const Mesh* mesh,
                     const Appearance& appearance) {
  const ShadedMesh shaded = mesh != nullptr ? ShadeMesh(*mesh) : ShadedMesh{};
  const bool has_mesh = !shaded.indices.empty();
  const std::string node_name = WellFormed(ident);
  Json doc;
  doc["asset"] = {{"version", "2.0"}, {"generator", "NOMZUBProxy"}};
  doc["scene"] = 0;
  // A product without geometry has an empty scene rather than an empty node.
  Json scene = {{"name", node_name}};
  if (has_mesh) scene["nodes"] = Json::array({0});
  doc["scenes"] = Json::array({scene});
  std::string bin;
  if (has_mesh) {
    Json rotation = Json::array();
    for (float q : kZUpToYUp) rotation.push_back(q);
    doc["nodes"] = Json::array({{{"name", node_name}, {"rotation", rotation}, {"mesh", 0}}});
    for (float f : shaded.positions) AppendFloat(bin, f);
    const size_t positions_size = bin.size();
    for (float f : shaded.normals) AppendFloat(bin, f);
    const size_t normals_size = bin.size() - positions_size;
    for (uint32_t i : shaded.indices) AppendU32(bin, i);
    const size_t vertex_count = shaded.positions.size() / 3;
    Json primitive = {{"attributes", {{"POSITION", 0}, {"NORMAL", 1}}},
                      {"indices", 2},
                      {"material", 0},
                      {"mode", kTriangles}};
    doc["meshes"] =
        Json::array({{{"name", WellFormed(name)}, {"primitives", Json::array({primitive})}}});
    Json colour = Json::array();
    for (float c : appearance.base_colour) colour.push_back(c);
    doc["materials"] = Json::array({{{"name", appearance.name},
                                     {"pbrMetallicRoughness",
                                      {{"baseColorFactor", colour},
                                       {"metallicFactor", appearance.metallic},
                                       {"roughnessFactor", appearance.roughness}}}}});
    doc["buffers"] = Json::array({{{"byteLength", bin.size()}}});
    doc["bufferViews"] = Json::array({{{"buffer", 0},
                                       {"byteOffset", 0},
                                       {"byteLength", positions_size},
                                       {"target", kArrayBuffer}},
                                      {{"buffer", 0},
                                       {"byteOffset", positions_size},
                                       {"byteLength", normals_size},
                                       {"target", kArrayBuffer}},
                                      {{"buffer", 0},
                                       {"byteOffset", positions_size + normals_size},
                                       {"byteLength", bin.size() - positions_size - normals_size},
                                       {"target", kElementArrayBuffer}}});
    doc["accessors"] = Json::array(
        {{{"bufferView", 0},
          {"componentType", kFloat},
          {"count", vertex_count},
          {"type", "VEC3"},
          {"min", Bound(shaded.positions, false)},
          {"max", Bound(shaded.positions, true)}},
         {{"bufferView", 1}, {"componentType", kFloat}, {"count", vertex_count}, {"type", "VEC3"}},
         {{"bufferView", 2},
          {"componentType", kUnsignedInt},
          {"count", shaded.indices.size()},
          {"type", "SCALAR"}}});
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
