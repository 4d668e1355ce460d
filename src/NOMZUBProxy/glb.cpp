// GLB layout: a 12-byte header ("glTF", version 2, total length), a JSON chunk padded with blanks
// to four bytes, and a binary chunk (vertex positions, then indices) padded with zeros.
#include "NOMZUBProxy/glb.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "services/NOMZUBLog.h"

namespace nomzub::proxy {
namespace {

constexpr uint32_t kMagic = 0x46546C67;      // "glTF"
constexpr uint32_t kJsonChunk = 0x4E4F534A;  // "JSON"
constexpr uint32_t kBinChunk = 0x004E4942;   // "BIN\0"
constexpr int kArrayBuffer = 34962;
constexpr int kElementArrayBuffer = 34963;
constexpr int kFloat = 5126;
constexpr int kUnsignedInt = 5125;

void AppendU32(std::string& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out += static_cast<char>(v >> (8 * i));
}

void AppendFloat(std::string& out, float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  AppendU32(out, bits);
}

std::string Number(float f) {
  char text[32];
  auto [end, ec] = std::to_chars(text, text + sizeof text, f);
  return std::string(text, end);
}

// "[x,y,z]" of the smallest (pick_max false) or largest coordinates; glTF requires both bounds
// on POSITION accessors.
std::string Bound(const Mesh& mesh, bool pick_max) {
  float b[3] = {mesh.positions[0], mesh.positions[1], mesh.positions[2]};
  for (size_t i = 0; i < mesh.positions.size(); ++i) {
    float v = mesh.positions[i];
    b[i % 3] = pick_max ? std::max(b[i % 3], v) : std::min(b[i % 3], v);
  }
  return "[" + Number(b[0]) + "," + Number(b[1]) + "," + Number(b[2]) + "]";
}

void AppendChunk(std::string& out, uint32_t type, std::string data, char pad) {
  data.resize((data.size() + 3) / 4 * 4, pad);
  AppendU32(out, static_cast<uint32_t>(data.size()));
  AppendU32(out, type);
  out += data;
}

// name (UTF-8) as the text of a JSON string, quotes included.
std::string JsonString(const std::string& name) {
  std::string out = "\"";
  nomzub::AppendJsonString(name, &out);
  return out + "\"";
}

}  // namespace

std::string BuildGlb(const std::string& name, const Mesh* mesh) {
  bool has_mesh = mesh != nullptr && !mesh->positions.empty();
  std::string json =
      "{\"asset\":{\"version\":\"2.0\",\"generator\":\"NOMZUBProxy\"},"
      "\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[{\"name\":" +
      JsonString(name) + (has_mesh ? ",\"mesh\":0}]" : "}]");
  std::string bin;
  if (has_mesh) {
    for (float f : mesh->positions) AppendFloat(bin, f);
    size_t positions_size = bin.size();
    for (uint32_t i : mesh->indices) AppendU32(bin, i);
    bool indexed = !mesh->indices.empty();
    json += ",\"meshes\":[{\"name\":" + JsonString(name) +
            ",\"primitives\":[{\"attributes\":{\"POSITION\":0}" +
            (indexed ? ",\"indices\":1" : "") + ",\"mode\":4}]}]";
    json += ",\"buffers\":[{\"byteLength\":" + std::to_string(bin.size()) + "}]";
    json += ",\"bufferViews\":[{\"buffer\":0,\"byteOffset\":0,\"byteLength\":" +
            std::to_string(positions_size) + ",\"target\":" + std::to_string(kArrayBuffer) + "}";
    if (indexed) {
      json += ",{\"buffer\":0,\"byteOffset\":" + std::to_string(positions_size) +
              ",\"byteLength\":" + std::to_string(bin.size() - positions_size) +
              ",\"target\":" + std::to_string(kElementArrayBuffer) + "}";
    }
    json += "],\"accessors\":[{\"bufferView\":0,\"componentType\":" + std::to_string(kFloat) +
            ",\"count\":" + std::to_string(mesh->positions.size() / 3) +
            ",\"type\":\"VEC3\",\"min\":" + Bound(*mesh, false) + ",\"max\":" + Bound(*mesh, true) +
            "}";
    if (indexed) {
      json += ",{\"bufferView\":1,\"componentType\":" + std::to_string(kUnsignedInt) +
              ",\"count\":" + std::to_string(mesh->indices.size()) + ",\"type\":\"SCALAR\"}";
    }
    json += "]";
  }
  json += "}";
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
