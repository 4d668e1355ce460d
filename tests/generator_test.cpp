// The package generator and the positioning commands over the sample project (SQLite): files and
// where they go, document contents, binary glTF geometry, the reference forms of the option, the
// input and the filter, the identifier cache, the registered package, failures, and the mapping
// of a generated package.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <set>
#include <sstream>

#include "NOMSOIUtility.h"
#include "NOMZUBProxy/planning_admin.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBObjectFactory.h"
#include "services/NOMZUBVGXGen.h"
#include "services/NOMZUBVGXGenerator.h"
#include "services/NOMZUBVGXIdentCache.h"
#include "support/driver_fakes.h"
#include "support/pg_planning_support.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

namespace {

using nomtest::FileExists;
using nomtest::ListDir;
using nomtest::LogCapture;
using nomtest::ReadFile;
using nomtest::ScopedEnvVar;
using nomtest::TempDir;
using nomtest::ZPath;
using Strings = std::vector<std::string>;

constexpr char kError[] = "****** ERROR:\t ";

const Strings kProductOids = {"C-HALL",  "MP-GEARBOX", "P-BOLT",  "P-CLAMP",     "P-CONVEYOR",
                              "P-COVER", "P-FIXTURE",  "P-FRAME", "P-HOUSING",   "P-LEG",
                              "P-LINE",  "P-ROLLER",   "P-SCREW", "P-SHAFT",     "P-STATION",
                              "P-TABLE", "P-TOP",      "R-HOIST", "R-NUTRUNNER", "R-ROBOT"};

// The files a product cache holds for those products, sorted.
Strings CacheFiles(const Strings& oids) {
  Strings names;
  for (const std::string& oid : oids) {
    names.push_back(oid + ".vgxGeom");
    names.push_back(oid + ".vgxXml");
  }
  std::sort(names.begin(), names.end());
  return names;
}

pugi::xml_document Parse(const std::string& path) {
  pugi::xml_document doc;
  EXPECT_TRUE(doc.load_file(path.c_str())) << path;
  return doc;
}

// One attribute of every element child of node named name, in order.
Strings ChildAttributes(const pugi::xml_node& node, const char* name, const char* attribute) {
  Strings values;
  for (pugi::xml_node child : node.children(name))
    values.push_back(child.attribute(attribute).value());
  return values;
}

pugi::xml_node List(const pugi::xml_document& main, const char* ident) {
  return main.document_element().find_child_by_attribute("CLitAssyGroup", "Ident", ident);
}

// Every IsInstanceOf in the document, in document order.
Strings References(const std::string& path) {
  Strings refs;
  pugi::xml_document doc = Parse(path);
  for (pugi::xpath_node n : doc.select_nodes("//CLitAssyGroup[@IsInstanceOf]")) {
    refs.push_back(n.node().attribute("IsInstanceOf").value());
  }
  return refs;
}

// Where a reference written in the document at docPath leads: a drive-form one through the
// platform's drive maps, anything else relative to the document's directory ("/" and "\" both
// separate).
std::string Resolve(const std::string& docPath, std::string ref) {
  if (ref.size() > 1 && ref[1] == ':') {
    std::string native;
    DWORD error = 0;
    EXPECT_TRUE(nomplat::ToNativePath(ref, &native, &error)) << ref;
    return fs::path(native).lexically_normal().string();
  }
  std::replace(ref.begin(), ref.end(), '\\', '/');
  return (fs::path(docPath).parent_path() / ref).lexically_normal().string();
}

uint32_t U32(const std::string& data, size_t at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(data[at + i]);
  return v;
}

// The JSON chunk of a well-formed GLB file, after checking its header and chunk layout: magic
// "glTF", version 2, total length, a JSON chunk, and a BIN chunk exactly when has_binary.
std::string GlbJson(const std::string& path, bool has_binary) {
  std::string data = ReadFile(path);
  EXPECT_GE(data.size(), 20u) << path;
  if (data.size() < 20) return "";
  EXPECT_EQ(data.substr(0, 4), "glTF") << path;
  EXPECT_EQ(U32(data, 4), 2u) << path;
  EXPECT_EQ(U32(data, 8), data.size()) << path;
  uint32_t json_length = U32(data, 12);
  EXPECT_EQ(json_length % 4, 0u) << path;
  EXPECT_EQ(U32(data, 16), 0x4E4F534Au) << path;
  size_t bin_at = 20 + json_length;
  if (has_binary) {
    EXPECT_EQ(U32(data, bin_at + 4), 0x004E4942u) << path;
    EXPECT_EQ(bin_at + 8 + U32(data, bin_at), data.size()) << path;
  } else {
    EXPECT_EQ(bin_at, data.size()) << path;
  }
  return data.substr(20, json_length);
}

// A GLB file read back: its JSON document and its binary chunk ("" when it has none).
struct Glb {
  nlohmann::json json;
  std::string bin;
};

Glb ReadGlb(const std::string& path) {
  std::string data = ReadFile(path);
  Glb glb;
  if (data.size() < 20) {
    ADD_FAILURE() << path << " is too short for a GLB file";
    return glb;
  }
  const size_t bin_at = 20 + U32(data, 12);
  glb.json = nlohmann::json::parse(GlbJson(path, bin_at < data.size()));
  if (bin_at + 8 <= data.size()) glb.bin = data.substr(bin_at + 8, U32(data, bin_at));
  return glb;
}

// The bytes of accessor index of glb, checked to lie inside its buffer view and the binary chunk.
std::string AccessorBytes(const Glb& glb, int index, size_t element_size) {
  const nlohmann::json& accessor = glb.json["accessors"][index];
  const nlohmann::json& view = glb.json["bufferViews"][accessor["bufferView"].get<int>()];
  const size_t offset = view["byteOffset"].get<size_t>();
  const size_t length = view["byteLength"].get<size_t>();
  EXPECT_EQ(accessor["count"].get<size_t>() * element_size, length) << accessor.dump();
  EXPECT_LE(offset + length, glb.bin.size());
  if (offset + length > glb.bin.size()) return "";
  return glb.bin.substr(offset, length);
}

// The values of a float VEC3 accessor, three per element.
std::vector<float> Floats(const Glb& glb, int index) {
  EXPECT_EQ(glb.json["accessors"][index]["componentType"], 5126);
  EXPECT_EQ(glb.json["accessors"][index]["type"], "VEC3");
  std::string bytes = AccessorBytes(glb, index, 12);
  std::vector<float> values(bytes.size() / 4);
  if (!bytes.empty()) std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

// The values of an unsigned int SCALAR accessor.
std::vector<uint32_t> Indices(const Glb& glb, int index) {
  EXPECT_EQ(glb.json["accessors"][index]["componentType"], 5125);
  EXPECT_EQ(glb.json["accessors"][index]["type"], "SCALAR");
  std::string bytes = AccessorBytes(glb, index, 4);
  std::vector<uint32_t> values(bytes.size() / 4);
  if (!bytes.empty()) std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

const nlohmann::json& Primitive(const Glb& glb) { return glb.json["meshes"][0]["primitives"][0]; }

// The numbers of a blank-separated attribute value.
std::vector<double> Numbers(const std::string& text) {
  std::istringstream in(text);
  std::vector<double> values;
  for (double v; in >> v;) values.push_back(v);
  return values;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class GeneratorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    nomtest::ResetPlanningServices();
    ASSERT_TRUE(nomtest::MakeSampleDatabase(dir_.Sub("plan.db")));
    log_.clear();
  }
  void TearDown() override { nomtest::ResetPlanningServices(); }

  HRESULT Connect(const std::string& filters = "") {
    return nomtest::ConnectPlanning(url_, "planner", "planner", "AssemblyLine", filters);
  }
  HRESULT Generate(const std::string& option = "", const std::string& input = "",
                   const std::string& name = "SOI") {
    NOMZUBVGXGenerator generator;
    return generator.GenerateVGXPackage(input, soi_, name, option);
  }
  // Runs sql on the test's database; false when it fails.
  bool Sql(const std::string& sql) { return nomzub::RunPlanningSql(url_, sql, nullptr) == S_OK; }
  // A common table expression n of the numbers 0 .. count-1, to start a statement with.
  static std::string CountingTo(int count) {
    return "WITH RECURSIVE n(k) AS (SELECT 0 UNION ALL SELECT k + 1 FROM n WHERE k + 1 < " +
           std::to_string(count) + ") ";
  }
  // Adds count products X-0 .. X-(count-1) to the sample project, each (but the last) holding two
  // instances of the next, and a top-level entry of X-0: one instance of X-k brings
  // 2^(count-k) - 1 objects.
  bool AddDoublingStructure(int count) {
    const std::string numbers = CountingTo(count);
    return Sql(numbers +
               "INSERT INTO products (project, oid, name, kind) "
               "SELECT 'AssemblyLine', 'X-' || k, 'Level', 'product' FROM n") &&
           Sql(numbers +
               "INSERT INTO instances SELECT 'AssemblyLine', 'X-' || k, 'X-' || (k + 1), half, "
               "'Half', 0, 0, 0, 0, 0 FROM n, (SELECT 'A' AS half UNION ALL SELECT 'B') "
               "WHERE k + 1 < " +
               std::to_string(count)) &&
           Sql("INSERT INTO instances VALUES ('AssemblyLine', NULL, 'X-0', 'Doubling', "
               "'Doubling', 99, 0, 0, 0, 0)");
  }
  // Adds count products W-0 .. W-(count-1), each holding one bolt (P-BOLT), and a top-level
  // product W-ROOT holding one of each: count + 1 product documents more, enough for the
  // generator to write them on several threads.
  bool AddWideStructure(int count) {
    const std::string numbers = CountingTo(count);
    return Sql(numbers +
               "INSERT INTO products (project, oid, name, kind) "
               "SELECT 'AssemblyLine', 'W-' || k, 'Wide', 'product' FROM n") &&
           Sql("INSERT INTO products (project, oid, name, kind) "
               "VALUES ('AssemblyLine', 'W-ROOT', 'Root', 'product')") &&
           Sql(numbers +
               "INSERT INTO instances SELECT 'AssemblyLine', 'W-' || k, 'P-BOLT', 'Bolt', "
               "'Bolt', 0, 0, 0, 0, 0 FROM n") &&
           Sql(numbers +
               "INSERT INTO instances SELECT 'AssemblyLine', 'W-ROOT', 'W-' || k, 'W' || k, "
               "'Wide', k, 0, 0, 0, 0 FROM n") &&
           Sql("INSERT INTO instances VALUES ('AssemblyLine', NULL, 'W-ROOT', 'Root', 'Root', "
               "98, 0, 0, 0, 0)");
  }
  // How many objects the identifier cache holds an ident path for.
  size_t CachedObjectCount() {
    NOMOIDIdentPathsMap paths;
    NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
    size_t count = 0;
    for (const auto& entry : paths) count += entry.second.size();
    return count;
  }

  // Connects and generates with the default input.
  void ConnectAndGenerate(const std::string& option = "", const std::string& filters = "") {
    ASSERT_EQ(Connect(filters), S_OK);
    ASSERT_EQ(Generate(option), S_OK);
  }
  std::string Main() const { return soi_ + "/SOI.vgxXml"; }
  std::string Doc(const std::string& oid) const { return cache_ + "/" + oid + ".vgxXml"; }
  // The references of every document of the package: the main document, then the cache's.
  Strings AllReferences() const {
    Strings refs = References(Main());
    for (const std::string& name : ListDir(cache_)) {
      if (fs::path(name).extension() == ".vgxXml") {
        Strings more = References(cache_ + "/" + name);
        refs.insert(refs.end(), more.begin(), more.end());
      }
    }
    return refs;
  }
  // The relative path from the SOI directory to the cache, with backslashes.
  std::string SoiToCache() const {
    std::string rel = fs::path(cache_).lexically_relative(soi_).string();
    std::replace(rel.begin(), rel.end(), '/', '\\');
    return rel;
  }
  std::string RegisteredMain() {
    NOMZUBVGXGen package;
    std::string path;
    if (NOMZUBVgxXmlFile* main = package.GetMainVgxXmlFile()) main->GetFilePath(path);
    return path;
  }

  TempDir dir_;
  std::string url_ = "sqlite:" + dir_.Sub("plan.db");
  std::string soi_ = dir_.Sub("out/soi");
  std::string cache_ = dir_.Sub("cache/AssemblyLine");
  ScopedEnvVar cache_env_{"NOMZUB_CACHE", dir_.Sub("cache")};
  LogCapture log_;
};

TEST_F(GeneratorTest, Generate_MainAndViewInSoiDirectory) {
  ConnectAndGenerate();
  EXPECT_EQ(ListDir(soi_), (Strings{"SOI.vgxView", "SOI.vgxXml"}));
}

TEST_F(GeneratorTest, Generate_ProductDocumentsAndGeometryInCache) {
  ConnectAndGenerate();
  EXPECT_EQ(ListDir(cache_), CacheFiles(kProductOids));
}

TEST_F(GeneratorTest, Generate_OneWritePerFile) {
  ASSERT_EQ(Connect(), S_OK);
  nomplat::FaultInjectionEnv env(nomplat::Env::Default());
  nomplat::ScopedEnv installed(&env);
  ASSERT_EQ(Generate(), S_OK);
  EXPECT_EQ(env.Count(nomplat::FaultInjectionEnv::kWriteFileAtomic), 42);
  EXPECT_EQ(env.Count(nomplat::FaultInjectionEnv::kReadFile), 0);
}

TEST_F(GeneratorTest, Generate_ModulePathSoiDirectory) {
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBVGXGenerator generator;
  ASSERT_EQ(generator.GenerateVGXPackage("", ZPath(soi_), "SOI", ""), S_OK);
  EXPECT_EQ(ListDir(soi_), (Strings{"SOI.vgxView", "SOI.vgxXml"}));
}

TEST_F(GeneratorTest, Generate_MainDocumentHasTheFourLists) {
  ConnectAndGenerate();
  pugi::xml_document main = Parse(Main());
  EXPECT_STREQ(main.document_element().name(), "VgxDocument");
  EXPECT_EQ(ChildAttributes(main.document_element(), "CLitAssyGroup", "Ident"),
            (Strings{"ProductList", "ResourceList", "ManufProd", "PlanningContext"}));
  EXPECT_EQ(ChildAttributes(List(main, "ProductList"), "CLitAssyGroup", "Ident"), Strings{"Line"});
  EXPECT_EQ(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "Ident"),
            (Strings{"Robot", "Nutrunner", "Hoist"}));
  EXPECT_EQ(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "OID"),
            (Strings{"R-ROBOT", "R-NUTRUNNER", "R-HOIST"}));
  EXPECT_EQ(ChildAttributes(List(main, "ManufProd"), "CLitAssyGroup", "Name"), Strings{"Gearbox"});
  EXPECT_EQ(ChildAttributes(List(main, "PlanningContext"), "CLitAssyGroup", "OID"),
            Strings{"C-HALL"});
  EXPECT_EQ(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "Placement")[0],
            "1 0 0 0 1 0 0 0 1 1 1 0");
}

TEST_F(GeneratorTest, Generate_ProcessInMainDocument) {
  ConnectAndGenerate();
  pugi::xml_document main = Parse(Main());
  pugi::xml_node process = main.document_element().child("Process");
  EXPECT_EQ(ChildAttributes(process, "Operation", "OID"),
            (Strings{"OP-010", "OP-020", "OP-030", "OP-040", "OP-050", "OP-060"}));
  EXPECT_EQ(ChildAttributes(process, "Operation", "IdentPath")[0], "Process/Op010");
  pugi::xml_node first = process.child("Operation");
  EXPECT_STREQ(first.attribute("Name").value(), "Place housing");
  EXPECT_EQ(ChildAttributes(first, "ProcessIdent", "Ident"), (Strings{"V01", "V02"}));
  EXPECT_EQ(ChildAttributes(first, "ProcessIdent", "Name"),
            (Strings{"Overview", "Housing close-up"}));
}

TEST_F(GeneratorTest, Generate_ViewFileNamesViewsAndMainDocument) {
  ConnectAndGenerate();
  pugi::xml_document view = Parse(soi_ + "/SOI.vgxView");
  pugi::xml_node root = view.document_element();
  EXPECT_STREQ(root.name(), "VgxView");
  EXPECT_STREQ(root.attribute("Document").value(), "SOI.vgxXml");
  Strings idents = ChildAttributes(root, "View", "Ident");
  EXPECT_EQ(idents.size(), 10u);
  EXPECT_EQ(idents.front(), "V01");
  EXPECT_EQ(idents.back(), "V10");
  pugi::xml_node camera = root.child("View").child("Camera");
  EXPECT_STREQ(camera.attribute("Eye").value(), "4.7936 -8.2204 5.0872");
  EXPECT_STREQ(camera.attribute("Target").value(), "2.5 -0.575 0.5");
}

TEST_F(GeneratorTest, Generate_ProductDocumentListsItsStructure) {
  ConnectAndGenerate();
  pugi::xml_document fixture = Parse(Doc("P-FIXTURE"));
  pugi::xml_node root = fixture.document_element();
  EXPECT_STREQ(root.attribute("OID").value(), "P-FIXTURE");
  EXPECT_STREQ(root.attribute("Name").value(), "Fixture");
  EXPECT_EQ(ChildAttributes(root, "CLitAssyGroup", "Ident"),
            (Strings{"Bolt.1", "Bolt.2", "Bolt.3", "Bolt.4", "Clamp.1", "Clamp.2"}));
  EXPECT_EQ(ChildAttributes(root, "CLitAssyGroup", "OID"),
            (Strings{"P-BOLT", "P-BOLT", "P-BOLT", "P-BOLT", "P-CLAMP", "P-CLAMP"}));
  EXPECT_TRUE(
      ChildAttributes(Parse(Doc("P-BOLT")).document_element(), "CLitAssyGroup", "Ident").empty());
}

TEST_F(GeneratorTest, Generate_EveryReferenceLeadsToItsProductDocument) {
  ConnectAndGenerate();
  Strings docs = {Main()};
  for (const std::string& oid : kProductOids) docs.push_back(Doc(oid));
  int checked = 0;
  for (const std::string& doc : docs) {
    pugi::xml_document xml = Parse(doc);
    for (pugi::xpath_node n : xml.select_nodes("//CLitAssyGroup[@IsInstanceOf]")) {
      std::string target = Resolve(doc, n.node().attribute("IsInstanceOf").value());
      EXPECT_EQ(target, Doc(n.node().attribute("OID").value())) << "in " << doc;
      EXPECT_TRUE(FileExists(target)) << target;
      ++checked;
    }
  }
  EXPECT_EQ(checked, 39);
}

TEST_F(GeneratorTest, Geometry_MeshIsValidGlb) {
  ConnectAndGenerate();
  std::string bolt = GlbJson(cache_ + "/P-BOLT.vgxGeom", true);
  EXPECT_TRUE(Contains(bolt, "\"asset\":{\"version\":\"2.0\""));
  EXPECT_TRUE(Contains(bolt, "\"name\":\"Bolt M8\""));
  // Smooth sides (one vertex per side corner), crisp caps (their own vertices): 16 + 18.
  EXPECT_TRUE(Contains(bolt, "\"count\":34,\"type\":\"VEC3\""));
  EXPECT_TRUE(Contains(bolt, "\"count\":96,\"type\":\"SCALAR\""));
  EXPECT_TRUE(Contains(bolt, "\"buffers\":[{\"byteLength\":1200}]"));  // 2*34*12 + 96*4
  std::string leg = GlbJson(cache_ + "/P-LEG.vgxGeom", true);
  EXPECT_TRUE(Contains(leg, "\"min\":[-0.03,-0.03,0],\"max\":[0.03,0.03,0.9]"));
}

TEST_F(GeneratorTest, Geometry_ProductWithoutMeshIsValidGlb) {
  ConnectAndGenerate();
  std::string line = GlbJson(cache_ + "/P-LINE.vgxGeom", false);
  EXPECT_TRUE(Contains(line, "\"scenes\":[{\"name\":\"P-LINE\"}]"));
  EXPECT_FALSE(Contains(line, "\"nodes\""));
  EXPECT_FALSE(Contains(line, "\"meshes\""));
  EXPECT_FALSE(Contains(line, "\"materials\""));
}

TEST_F(GeneratorTest, Geometry_NormalsPresentAndUnitLength) {
  ConnectAndGenerate();
  int files = 0;
  for (const std::string& oid : kProductOids) {
    Glb glb = ReadGlb(cache_ + "/" + oid + ".vgxGeom");
    if (!glb.json.contains("meshes")) continue;
    ++files;
    const nlohmann::json& attributes = Primitive(glb)["attributes"];
    ASSERT_TRUE(attributes.contains("NORMAL")) << oid;
    std::vector<float> normals = Floats(glb, attributes["NORMAL"].get<int>());
    ASSERT_FALSE(normals.empty()) << oid;
    for (size_t i = 0; i + 2 < normals.size(); i += 3) {
      float length = std::sqrt(normals[i] * normals[i] + normals[i + 1] * normals[i + 1] +
                               normals[i + 2] * normals[i + 2]);
      EXPECT_NEAR(length, 1.0f, 1e-5f) << oid << " normal " << i / 3;
    }
  }
  EXPECT_EQ(files, 15);
}

TEST_F(GeneratorTest, Geometry_BoxNormalsAreCrispAndPointOutward) {
  ConnectAndGenerate();
  Glb leg = ReadGlb(cache_ + "/P-LEG.vgxGeom");
  std::vector<float> positions = Floats(leg, Primitive(leg)["attributes"]["POSITION"].get<int>());
  std::vector<float> normals = Floats(leg, Primitive(leg)["attributes"]["NORMAL"].get<int>());
  ASSERT_EQ(normals.size(), positions.size());
  EXPECT_EQ(positions.size(), 24u * 3);  // each corner split into its three faces
  const float centre[3] = {0, 0, 0.45f};
  for (size_t i = 0; i + 2 < normals.size(); i += 3) {
    // Each normal is a face's axis, pointing away from the box's centre.
    int axes = 0;
    float outward = 0;
    for (int k = 0; k < 3; ++k) {
      if (std::fabs(normals[i + k]) > 0.999f) ++axes;
      outward += normals[i + k] * (positions[i + k] - centre[k]);
    }
    EXPECT_EQ(axes, 1) << "vertex " << i / 3;
    EXPECT_GT(outward, 0) << "vertex " << i / 3;
  }
}

TEST_F(GeneratorTest, Geometry_CylinderSideNormalsAreRadial) {
  ConnectAndGenerate();
  Glb shaft = ReadGlb(cache_ + "/P-SHAFT.vgxGeom");
  std::vector<float> positions =
      Floats(shaft, Primitive(shaft)["attributes"]["POSITION"].get<int>());
  std::vector<float> normals = Floats(shaft, Primitive(shaft)["attributes"]["NORMAL"].get<int>());
  ASSERT_EQ(normals.size(), positions.size());
  int radial = 0;
  for (size_t i = 0; i + 2 < normals.size(); i += 3) {
    if (std::fabs(normals[i + 2]) > 0.999f) continue;  // a cap's
    EXPECT_NEAR(normals[i + 2], 0, 1e-6) << "vertex " << i / 3;
    float r = std::hypot(positions[i], positions[i + 1]);
    EXPECT_NEAR(normals[i], positions[i] / r, 1e-5) << "vertex " << i / 3;
    EXPECT_NEAR(normals[i + 1], positions[i + 1] / r, 1e-5) << "vertex " << i / 3;
    ++radial;
  }
  EXPECT_EQ(radial, 24);  // 12 segments, bottom and top
}

TEST_F(GeneratorTest, Geometry_AccessorCountsConsistent) {
  ConnectAndGenerate();
  for (const std::string& oid : kProductOids) {
    Glb glb = ReadGlb(cache_ + "/" + oid + ".vgxGeom");
    if (!glb.json.contains("meshes")) continue;
    const nlohmann::json& primitive = Primitive(glb);
    const int position = primitive["attributes"]["POSITION"].get<int>();
    std::vector<float> positions = Floats(glb, position);
    std::vector<float> normals = Floats(glb, primitive["attributes"]["NORMAL"].get<int>());
    std::vector<uint32_t> indices = Indices(glb, primitive["indices"].get<int>());
    EXPECT_EQ(glb.json["buffers"][0]["byteLength"].get<size_t>(), glb.bin.size()) << oid;
    EXPECT_EQ(normals.size(), positions.size()) << oid;
    EXPECT_EQ(indices.size() % 3, 0u) << oid;
    const size_t vertices = positions.size() / 3;
    for (uint32_t i : indices) EXPECT_LT(i, vertices) << oid;
    // POSITION's bounds are those of its data.
    for (int k = 0; k < 3; ++k) {
      float lo = positions[k], hi = positions[k];
      for (size_t i = k; i < positions.size(); i += 3) {
        lo = std::min(lo, positions[i]);
        hi = std::max(hi, positions[i]);
      }
      EXPECT_EQ(glb.json["accessors"][position]["min"][k].get<float>(), lo) << oid;
      EXPECT_EQ(glb.json["accessors"][position]["max"][k].get<float>(), hi) << oid;
    }
  }
}

TEST_F(GeneratorTest, Geometry_MaterialHasClassColour) {
  ConnectAndGenerate();
  const std::map<std::string, std::pair<std::string, std::vector<float>>> expected = {
      {"P-FIXTURE", {"fixture", {0.95f, 0.42f, 0.08f, 1}}},
      {"P-CLAMP", {"fixture", {0.95f, 0.42f, 0.08f, 1}}},
      {"P-ROLLER", {"conveyor", {0.70f, 0.72f, 0.75f, 1}}},
      {"P-FRAME", {"structure", {0.30f, 0.40f, 0.52f, 1}}},
      {"P-TOP", {"structure", {0.30f, 0.40f, 0.52f, 1}}},
      {"P-BOLT", {"fastener", {0.80f, 0.80f, 0.78f, 1}}},
      {"R-ROBOT", {"resource", {0.96f, 0.74f, 0.10f, 1}}},
      {"C-HALL", {"context", {0.62f, 0.62f, 0.60f, 1}}}};
  for (const auto& [oid, material] : expected) {
    Glb glb = ReadGlb(cache_ + "/" + oid + ".vgxGeom");
    ASSERT_TRUE(glb.json.contains("materials")) << oid;
    ASSERT_EQ(glb.json["materials"].size(), 1u) << oid;
    EXPECT_EQ(Primitive(glb)["material"], 0) << oid;
    EXPECT_EQ(glb.json["materials"][0]["name"], material.first) << oid;
    EXPECT_EQ(glb.json["materials"][0]["pbrMetallicRoughness"]["baseColorFactor"]
                  .get<std::vector<float>>(),
              material.second)
        << oid;
  }
}

// The gearbox's parts with a mesh, in OID order, take the part colours in turn.
TEST_F(GeneratorTest, Geometry_PartsTakePartColoursInTurn) {
  ConnectAndGenerate();
  const Strings parts = {"P-COVER", "P-HOUSING", "P-SHAFT"};
  std::set<std::vector<float>> colours;
  for (size_t i = 0; i < parts.size(); ++i) {
    Glb glb = ReadGlb(cache_ + "/" + parts[i] + ".vgxGeom");
    ASSERT_TRUE(glb.json.contains("materials")) << parts[i];
    EXPECT_EQ(glb.json["materials"][0]["name"], "part." + std::to_string(i)) << parts[i];
    colours.insert(glb.json["materials"][0]["pbrMetallicRoughness"]["baseColorFactor"]
                       .get<std::vector<float>>());
  }
  EXPECT_EQ(colours.size(), parts.size());
}

TEST_F(GeneratorTest, Geometry_RootNodeRotationMakesYUp) {
  ConnectAndGenerate();
  Glb glb = ReadGlb(cache_ + "/R-HOIST.vgxGeom");
  ASSERT_EQ(glb.json["scenes"][0]["nodes"], nlohmann::json::array({0}));
  std::vector<double> q = glb.json["nodes"][0]["rotation"].get<std::vector<double>>();
  ASSERT_EQ(q.size(), 4u);
  EXPECT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1, 1e-6);
  // v' = v + 2w (u x v) + 2 u x (u x v) for q = (u, w): the package's up, Z, becomes glTF's, Y.
  auto rotate = [&](const double v[3], double out[3]) {
    const double u[3] = {q[0], q[1], q[2]}, w = q[3];
    double t[3] = {2 * (u[1] * v[2] - u[2] * v[1]), 2 * (u[2] * v[0] - u[0] * v[2]),
                   2 * (u[0] * v[1] - u[1] * v[0])};
    out[0] = v[0] + w * t[0] + (u[1] * t[2] - u[2] * t[1]);
    out[1] = v[1] + w * t[1] + (u[2] * t[0] - u[0] * t[2]);
    out[2] = v[2] + w * t[2] + (u[0] * t[1] - u[1] * t[0]);
  };
  const double up[3] = {0, 0, 1}, line[3] = {1, 0, 0};
  double up_after[3], line_after[3];
  rotate(up, up_after);
  rotate(line, line_after);
  EXPECT_NEAR(up_after[0], 0, 1e-6);
  EXPECT_NEAR(up_after[1], 1, 1e-6);
  EXPECT_NEAR(up_after[2], 0, 1e-6);
  EXPECT_NEAR(line_after[0], 1, 1e-6);  // X stays X
  // The hoist's 2.5 m column stands upright: its height is along Z in the file.
  EXPECT_EQ(glb.json["accessors"][0]["max"][2].get<float>(), 2.5f);
}

TEST_F(GeneratorTest, Geometry_NodeNamedAfterIdent) {
  ConnectAndGenerate();
  Glb glb = ReadGlb(cache_ + "/P-ROLLER.vgxGeom");
  ASSERT_EQ(glb.json["nodes"].size(), 1u);
  EXPECT_EQ(glb.json["nodes"][0]["name"], "P-ROLLER");
  EXPECT_EQ(glb.json["nodes"][0]["mesh"], 0);
  EXPECT_EQ(glb.json["scenes"][0]["name"], "P-ROLLER");
  EXPECT_EQ(glb.json["meshes"][0]["name"], "Roller");
}

// Where a view's camera aims, against the placed centre of its object worked out from the
// sample's layout.
TEST_F(GeneratorTest, View_CameraAimsAtItsProduct) {
  ConnectAndGenerate();
  pugi::xml_document view = Parse(soi_ + "/SOI.vgxView");
  std::map<std::string, std::pair<std::vector<double>, std::vector<double>>> cameras;
  for (pugi::xml_node v : view.document_element().children("View")) {
    cameras[v.attribute("Ident").value()] = {
        Numbers(v.child("Camera").attribute("Eye").value()),
        Numbers(v.child("Camera").attribute("Target").value())};
  }
  ASSERT_EQ(cameras.size(), 10u);
  // The line: tables from x -0.6 to 5.6, the conveyor's frame to y -1.55, the bolts' heads at 1 m.
  // The housing (0.3 x 0.2 x 0.15) on the fixture of station 1, 0.96 m up; the shaft (0.35 long)
  // 5 cm above the housing's base; the hoist's 2.5 m column at (6, 1).
  const std::map<std::string, std::vector<double>> targets = {{"V01", {2.5, -0.575, 0.5}},
                                                              {"V02", {0, 0, 1.035}},
                                                              {"V04", {0, 0, 1.185}},
                                                              {"V10", {6, 1, 1.25}}};
  for (const auto& [ident, target] : targets) {
    const auto& [eye, aim] = cameras[ident];
    ASSERT_EQ(aim.size(), 3u) << ident;
    ASSERT_EQ(eye.size(), 3u) << ident;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(aim[k], target[k], 1e-3) << ident << " axis " << k;
    // The eye looks at it from above, from a distance.
    EXPECT_GT(eye[2], aim[2]) << ident;
    EXPECT_GT(std::hypot(eye[0] - aim[0], eye[1] - aim[1], eye[2] - aim[2]), 0.1) << ident;
  }
}

TEST_F(GeneratorTest, Sample_RollersLieAcrossTheLine) {
  ConnectAndGenerate();
  // The roller's axis, its longest extent, is Y ...
  Glb roller = ReadGlb(cache_ + "/P-ROLLER.vgxGeom");
  std::vector<float> min = roller.json["accessors"][0]["min"].get<std::vector<float>>();
  std::vector<float> max = roller.json["accessors"][0]["max"].get<std::vector<float>>();
  ASSERT_EQ(min.size(), 3u);
  ASSERT_EQ(max.size(), 3u);
  EXPECT_NEAR(max[1] - min[1], 0.6, 1e-6);
  EXPECT_NEAR(max[0] - min[0], 0.06, 1e-6);
  EXPECT_NEAR(max[2] - min[2], 0.06, 1e-6);
  // ... and every roller is placed unturned (or half turned) about Z, so it lies across the line
  // (X), resting on the frame's top at 0.7 m.
  pugi::xml_document conveyor = Parse(Doc("P-CONVEYOR"));
  int rollers = 0;
  for (pugi::xml_node child : conveyor.document_element().children("CLitAssyGroup")) {
    if (std::string(child.attribute("OID").value()) != "P-ROLLER") continue;
    std::vector<double> m = Numbers(child.attribute("Placement").value());
    ASSERT_EQ(m.size(), 12u);
    EXPECT_NEAR(std::fabs(m[0]), 1, 1e-9);
    EXPECT_NEAR(m[1], 0, 1e-9);
    EXPECT_NEAR(m[11] + min[2], 0.7, 1e-6);
    ++rollers;
  }
  EXPECT_EQ(rollers, 6);
}

TEST_F(GeneratorTest, Sample_StationsStandAlongTheLine) {
  ConnectAndGenerate();
  pugi::xml_document line = Parse(Doc("P-LINE"));
  std::vector<std::vector<double>> stations;
  for (pugi::xml_node child : line.document_element().children("CLitAssyGroup")) {
    if (std::string(child.attribute("OID").value()) == "P-STATION") {
      stations.push_back(Numbers(child.attribute("Placement").value()));
    }
  }
  ASSERT_EQ(stations.size(), 3u);
  for (size_t i = 1; i < stations.size(); ++i) {
    ASSERT_EQ(stations[i].size(), 12u);
    EXPECT_GT(stations[i][9], stations[i - 1][9] + 1.2);  // apart by more than a table's length
    EXPECT_EQ(stations[i][10], stations[0][10]);
    EXPECT_EQ(stations[i][11], stations[0][11]);
  }
}

TEST_F(GeneratorTest, Option_RelativeForm) {
  ConnectAndGenerate("refs=relative;sep=backslash");
  EXPECT_EQ(References(Main())[0], SoiToCache() + "\\P-LINE.vgxXml");
  EXPECT_EQ(References(Doc("P-FIXTURE")),
            (Strings{"P-BOLT.vgxXml", "P-BOLT.vgxXml", "P-BOLT.vgxXml", "P-BOLT.vgxXml",
                     "P-CLAMP.vgxXml", "P-CLAMP.vgxXml"}));
}

TEST_F(GeneratorTest, Option_DotForm) {
  ConnectAndGenerate("refs=dot;sep=backslash");
  EXPECT_EQ(References(Main())[1], ".\\" + SoiToCache() + "\\R-ROBOT.vgxXml");
  EXPECT_EQ(References(Doc("P-TABLE")).back(), ".\\P-TOP.vgxXml");
}

TEST_F(GeneratorTest, Option_ClimbForm) {
  ConnectAndGenerate("refs=climb;sep=backslash");
  EXPECT_EQ(References(Main())[0], SoiToCache() + "\\P-LINE.vgxXml");
  EXPECT_EQ(References(Main())[0].substr(0, 3), "..\\");
  EXPECT_EQ(References(Doc("P-TABLE")).back(), "..\\AssemblyLine\\P-TOP.vgxXml");
}

TEST_F(GeneratorTest, Option_DriveForm) {
  ConnectAndGenerate("refs=drive;sep=backslash");
  EXPECT_EQ(References(Main())[0], ZPath(cache_) + "\\P-LINE.vgxXml");
  EXPECT_EQ(References(Doc("P-TABLE")).back(), ZPath(cache_) + "\\P-TOP.vgxXml");
}

TEST_F(GeneratorTest, Option_SlashSeparator) {
  ConnectAndGenerate("refs=dot,drive;sep=slash");
  Strings refs = References(Doc("P-TABLE"));
  EXPECT_EQ(refs[0], "./P-LEG.vgxXml");
  std::string drive = ZPath(cache_) + "\\P-LEG.vgxXml";
  std::replace(drive.begin(), drive.end(), '\\', '/');
  EXPECT_EQ(refs[1], drive);
  for (const std::string& ref : AllReferences()) EXPECT_FALSE(Contains(ref, "\\")) << ref;
}

TEST_F(GeneratorTest, Option_DefaultMixesEveryFormAndSeparator) {
  ConnectAndGenerate();
  std::set<std::string> forms;
  bool slash = false, backslash = false;
  for (const std::string& ref : AllReferences()) {
    forms.insert(ref.size() > 1 && ref[1] == ':' ? "drive"
                 : ref.rfind("..", 0) == 0       ? "climb"
                 : ref.rfind(".", 0) == 0        ? "dot"
                                                 : "relative");
    slash = slash || Contains(ref, "/");
    backslash = backslash || Contains(ref, "\\");
  }
  EXPECT_EQ(forms, (std::set<std::string>{"climb", "dot", "drive", "relative"}));
  EXPECT_TRUE(slash);
  EXPECT_TRUE(backslash);
}

TEST_F(GeneratorTest, Option_UnknownFormRefusedWritingNothing) {
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate("refs=rooted"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': generator option: "
                    "unknown reference form 'rooted' (expected relative, dot, climb or drive)"});
  EXPECT_FALSE(FileExists(dir_.Sub("out")));
  EXPECT_FALSE(FileExists(dir_.Sub("cache")));
}

TEST_F(GeneratorTest, Option_UnknownItemRefused) {
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate("colour=red"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': generator option: "
                    "cannot read 'colour=red' (expected refs=FORM,... or "
                    "sep=backslash|slash|mixed)"});
}

TEST_F(GeneratorTest, Input_SelectsLists) {
  ASSERT_EQ(Connect(), S_OK);
  ASSERT_EQ(Generate("", "ResourceList,PlanningContext"), S_OK);
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(ChildAttributes(main.document_element(), "CLitAssyGroup", "Ident"),
            (Strings{"ResourceList", "PlanningContext"}));
  EXPECT_EQ(ListDir(cache_), CacheFiles({"C-HALL", "R-HOIST", "R-NUTRUNNER", "R-ROBOT"}));
}

TEST_F(GeneratorTest, Input_UnknownListRefused) {
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate("", "Products"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': generator input: "
                    "unknown list 'Products' (expected all or ProductList, ResourceList, "
                    "ManufProd, PlanningContext separated by commas)"});
  EXPECT_FALSE(FileExists(soi_));
}

TEST_F(GeneratorTest, Filter_KindSelectsEntries) {
  ConnectAndGenerate("", "kind=resource");
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(ChildAttributes(main.document_element(), "CLitAssyGroup", "Ident").size(), 4u);
  EXPECT_TRUE(ChildAttributes(List(main, "ProductList"), "CLitAssyGroup", "Ident").empty());
  EXPECT_EQ(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "Ident"),
            (Strings{"Robot", "Nutrunner", "Hoist"}));
  EXPECT_EQ(ListDir(cache_), CacheFiles({"R-HOIST", "R-NUTRUNNER", "R-ROBOT"}));
}

TEST_F(GeneratorTest, Filter_NamePatternIgnoresCase) {
  ConnectAndGenerate("", "name~\"hand*\" or oid=C-HALL");
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "Ident"),
            Strings{"Robot"});
  EXPECT_EQ(ChildAttributes(List(main, "PlanningContext"), "CLitAssyGroup", "Ident"),
            Strings{"Hall"});
  EXPECT_TRUE(ChildAttributes(List(main, "ManufProd"), "CLitAssyGroup", "Ident").empty());
}

TEST_F(GeneratorTest, Filter_NotAndParentheses) {
  ConnectAndGenerate("", "not (kind=product or kind=context) and ident!~N*");
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "Ident"),
            (Strings{"Robot", "Hoist"}));
  EXPECT_EQ(ChildAttributes(List(main, "ManufProd"), "CLitAssyGroup", "Ident"), Strings{"Gearbox"});
}

TEST_F(GeneratorTest, Filter_ChainOf100000TermsEvaluated) {
  std::string chain = "kind=resource";
  for (int i = 0; i < 100000; ++i) chain += " or kind=resource";
  ConnectAndGenerate("", chain);
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "Ident"),
            (Strings{"Robot", "Nutrunner", "Hoist"}));
  EXPECT_TRUE(ChildAttributes(List(main, "ProductList"), "CLitAssyGroup", "Ident").empty());
}

TEST_F(GeneratorTest, Filter_Nesting256Evaluated) {
  ConnectAndGenerate("", std::string(256, '(') + "kind=context" + std::string(256, ')'));
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(ChildAttributes(List(main, "PlanningContext"), "CLitAssyGroup", "Ident"),
            Strings{"Hall"});
  EXPECT_TRUE(ChildAttributes(List(main, "ResourceList"), "CLitAssyGroup", "Ident").empty());
}

// ---- The bound on the objects of a package ----

TEST_F(GeneratorTest, MaxObjects_DefaultIsTenMillion) {
  nomzub::SetMaxObjects(0);
  EXPECT_EQ(nomzub::MaxObjects(), 10000000u);
  EXPECT_EQ(nomzub::MaxObjects(), nomzub::kDefaultMaxObjects);
  nomzub::SetMaxObjects(42);
  EXPECT_EQ(nomzub::MaxObjects(), 42u);
  nomzub::SetMaxObjects(0);
  EXPECT_EQ(nomzub::MaxObjects(), 10000000u);
}

// The sample's structure: the line (1 + 3 stations of 14 + a conveyor of 8 = 51), three
// resources, the gearbox (10) and the hall: 65 objects.
TEST_F(GeneratorTest, MaxObjects_ExactCountAccepted) {
  ConnectAndGenerate();
  const size_t objects = CachedObjectCount();
  EXPECT_EQ(objects, 65u);
  nomzub::SetMaxObjects(objects);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(CachedObjectCount(), objects);
}

TEST_F(GeneratorTest, MaxObjects_OneBelowCountRefusedNamingProductAndLimit) {
  ASSERT_EQ(Connect(), S_OK);
  nomzub::SetMaxObjects(64);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': the package would "
                    "hold more than 64 objects (the limit), passed at product C-HALL"});
  EXPECT_FALSE(FileExists(dir_.Sub("out")));
  EXPECT_FALSE(FileExists(dir_.Sub("cache")));
  EXPECT_EQ(RegisteredMain(), "");
  EXPECT_EQ(CachedObjectCount(), 0u);
}

TEST_F(GeneratorTest, MaxObjects_ProductPassingAloneIsNamed) {
  ASSERT_EQ(Connect(), S_OK);
  nomzub::SetMaxObjects(13);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': the package would "
                    "hold more than 13 objects (the limit), passed at product P-STATION"});
}

TEST_F(GeneratorTest, MaxObjects_OnlySelectedEntriesCounted) {
  ASSERT_EQ(Connect("kind=resource"), S_OK);
  nomzub::SetMaxObjects(3);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(CachedObjectCount(), 3u);
}

// 41 products, each instantiated twice below the one before: 2^41 - 1 objects, counted per
// product rather than per object, refused where the count passes ten million (X-17 brings
// 2^24 - 1 objects).
TEST_F(GeneratorTest, MaxObjects_DoublingStructureRefusedWithoutExpanding) {
  ASSERT_TRUE(AddDoublingStructure(41));
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': the package would "
                    "hold more than 10000000 objects (the limit), passed at product X-17"});
  EXPECT_EQ(RegisteredMain(), "");
  EXPECT_FALSE(FileExists(soi_));
}

TEST_F(GeneratorTest, MaxObjects_DoublingStructureWithinLimitExpanded) {
  ASSERT_TRUE(AddDoublingStructure(10));
  ASSERT_EQ(Connect("oid=X-0"), S_OK);
  nomzub::SetMaxObjects(1023);
  ASSERT_EQ(Generate(), S_OK);
  EXPECT_EQ(CachedObjectCount(), 1023u);
  nomzub::SetMaxObjects(1022);
  EXPECT_EQ(Generate(), E_FAIL);
}

TEST_F(GeneratorTest, Generate_StructureOf1000LevelsWritten) {
  std::string numbers =
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000) ";
  ASSERT_TRUE(Sql(numbers + "INSERT INTO products (project, oid, name, kind) "
                            "SELECT 'AssemblyLine', 'D-' || i, 'Level ' || i, 'product' FROM n"));
  ASSERT_TRUE(Sql(numbers +
                  "INSERT INTO instances SELECT 'AssemblyLine', 'D-' || i, 'D-' || (i + 1), "
                  "'L' || (i + 1), 'Level', 0, 0, 0, 0, 0 FROM n WHERE i < 1000"));
  ASSERT_TRUE(
      Sql("INSERT INTO instances VALUES ('AssemblyLine', NULL, 'D-1', 'Deep', 'Deep', "
          "99, 0, 0, 0, 0)"));
  ConnectAndGenerate("", "oid=D-1");
  NOMOIDIdentPathsMap paths;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  std::string deepest = "ProductList/Deep";
  for (int i = 2; i <= 1000; ++i) deepest += "/L" + std::to_string(i);
  EXPECT_EQ(paths["D-1000"], std::deque<std::string>{deepest});
  EXPECT_EQ(CachedObjectCount(), 1000u);
  EXPECT_TRUE(FileExists(Doc("D-1000")));
}

// ---- The generator options the host may check beforehand ----

TEST(GeneratorOptions, Known_ListsRefsAndSep) {
  EXPECT_EQ(nomzub::KnownGeneratorOptions(),
            (Strings{"refs=relative|dot|climb|drive[,...]", "sep=backslash|slash|mixed"}));
}

TEST(GeneratorOptions, IsKnown_EmptyAccepted) {
  std::string problem = "untouched";
  EXPECT_TRUE(nomzub::IsKnownGeneratorOption("", &problem));
  EXPECT_EQ(problem, "untouched");
}

TEST(GeneratorOptions, IsKnown_DocumentedFormsAccepted) {
  for (const char* option :
       {"refs=climb,drive;sep=slash", "refs=relative", "refs=dot,dot", "sep=backslash", "sep=mixed",
        "refs=relative,dot,climb,drive;sep=mixed", "sep=slash;refs=drive"}) {
    std::string problem;
    EXPECT_TRUE(nomzub::IsKnownGeneratorOption(option, &problem)) << option << ": " << problem;
  }
}

TEST(GeneratorOptions, IsKnown_UnknownItemRefusedWithProblem) {
  std::string problem;
  EXPECT_FALSE(nomzub::IsKnownGeneratorOption("colour=red", &problem));
  EXPECT_EQ(problem,
            "generator option: cannot read 'colour=red' (expected refs=FORM,... or "
            "sep=backslash|slash|mixed)");
}

TEST(GeneratorOptions, IsKnown_UnknownFormRefused) {
  std::string problem;
  EXPECT_FALSE(nomzub::IsKnownGeneratorOption("refs=relative,rooted", &problem));
  EXPECT_EQ(problem,
            "generator option: unknown reference form 'rooted' (expected relative, dot, climb or "
            "drive)");
}

TEST(GeneratorOptions, IsKnown_UnknownSeparatorRefused) {
  std::string problem;
  EXPECT_FALSE(nomzub::IsKnownGeneratorOption("sep=colon", &problem));
  EXPECT_FALSE(problem.empty());
}

TEST(GeneratorOptions, IsKnown_EmptyItemRefused) {
  std::string problem;
  EXPECT_FALSE(nomzub::IsKnownGeneratorOption("refs=dot;", &problem));
  EXPECT_EQ(problem,
            "generator option: cannot read '' (expected refs=FORM,... or "
            "sep=backslash|slash|mixed)");
  EXPECT_FALSE(nomzub::IsKnownGeneratorOption("refs=", &problem));
}

TEST(GeneratorOptions, IsKnown_NullProblemAllowed) {
  EXPECT_FALSE(nomzub::IsKnownGeneratorOption("bogus", nullptr));
  EXPECT_TRUE(nomzub::IsKnownGeneratorOption("sep=slash", nullptr));
}

TEST_F(GeneratorTest, Option_CheckAgreesWithGeneration) {
  ASSERT_EQ(Connect(), S_OK);
  for (const char* option : {"", "refs=drive", "sep=slash;refs=dot", "refs=", "Refs=dot",
                             "refs=dot;;sep=slash", "sep=mixed", "x"}) {
    EXPECT_EQ(nomzub::IsKnownGeneratorOption(option, nullptr), Generate(option) == S_OK)
        << "option '" << option << "'";
  }
}

TEST_F(GeneratorTest, IdentCache_EveryOccurrenceOfEveryObject) {
  ConnectAndGenerate();
  NOMOIDIdentPathsMap paths;
  ASSERT_EQ(NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths), S_OK);
  Strings keys;
  for (const auto& entry : paths) keys.push_back(entry.first);
  EXPECT_EQ(keys, kProductOids);
  EXPECT_EQ(paths["P-LINE"], std::deque<std::string>{"ProductList/Line"});
  EXPECT_EQ(paths["R-ROBOT"], std::deque<std::string>{"ResourceList/Robot"});
  EXPECT_EQ(paths["MP-GEARBOX"], std::deque<std::string>{"ManufProd/Gearbox"});
  EXPECT_EQ(paths["C-HALL"], std::deque<std::string>{"PlanningContext/Hall"});
  EXPECT_EQ(paths["P-STATION"],
            (std::deque<std::string>{"ProductList/Line/Station1", "ProductList/Line/Station2",
                                     "ProductList/Line/Station3"}));
  ASSERT_EQ(paths["P-BOLT"].size(), 12u);
  EXPECT_EQ(paths["P-BOLT"][0], "ProductList/Line/Station1/Fixture/Bolt.1");
  EXPECT_EQ(paths["P-BOLT"][11], "ProductList/Line/Station3/Fixture/Bolt.4");
  EXPECT_EQ(paths["P-SCREW"].size(), 6u);
  EXPECT_EQ(paths["P-LEG"].size(), 12u);
}

TEST_F(GeneratorTest, IdentCache_OperationsAndProcessIdents) {
  ConnectAndGenerate();
  NOMStringMap operations, names, oids;
  NOMZUBVGXIdentCache cache;
  ASSERT_EQ(NOMZUBVGXIdentCache::GetOpOIDIdentPathMap(operations), S_OK);
  ASSERT_EQ(cache.GetProcessIdentNameMap(names), S_OK);
  ASSERT_EQ(cache.GetProcessIdentOIDMap(oids), S_OK);
  EXPECT_EQ(operations.size(), 6u);
  EXPECT_EQ(operations["OP-010"], "Process/Op010");
  EXPECT_EQ(operations["OP-060"], "Process/Op060");
  EXPECT_EQ(names.size(), 10u);
  EXPECT_EQ(names["V01"], "Overview");
  EXPECT_EQ(names["V10"], "Unloading");
  EXPECT_EQ(oids.size(), 10u);
  EXPECT_EQ(oids["V04"], "OP-020");
  EXPECT_EQ(oids["V10"], "OP-060");
}

TEST_F(GeneratorTest, IdentCache_FilterKeepsOnlyPackageObjects) {
  ConnectAndGenerate("", "kind=manufactured");
  NOMOIDIdentPathsMap paths;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  Strings keys;
  for (const auto& entry : paths) keys.push_back(entry.first);
  EXPECT_EQ(keys, (Strings{"MP-GEARBOX", "P-COVER", "P-HOUSING", "P-SCREW", "P-SHAFT"}));
}

TEST_F(GeneratorTest, Generate_RegistersPackageAndObjects) {
  ConnectAndGenerate();
  NOMZUBVGXGen package;
  std::string main, view;
  ASSERT_NE(package.GetMainVgxXmlFile(), nullptr);
  ASSERT_NE(package.GetMainVgxViewFile(), nullptr);
  package.GetMainVgxXmlFile()->GetFilePath(main);
  package.GetMainVgxViewFile()->GetFilePath(view);
  EXPECT_EQ(main, ZPath(soi_) + "\\SOI.vgxXml");
  EXPECT_EQ(view, ZPath(soi_) + "\\SOI.vgxView");
  NOMIZUBObject* object = nullptr;
  ASSERT_EQ(NOMZUBObjectFactory::Instance()->GetObject("P-SHAFT", &object), S_OK);
  EXPECT_EQ(object->GetName(), "Drive shaft");
  EXPECT_EQ(
      log_.messages(2),
      Strings{"Info:\t generated package " + ZPath(soi_) +
              "\\SOI.vgxXml with 20 product documents and their geometry in " + ZPath(cache_)});
}

TEST_F(GeneratorTest, Generate_OtherPackageName) {
  ASSERT_EQ(Connect(), S_OK);
  ASSERT_EQ(Generate("", "", "Line2"), S_OK);
  EXPECT_EQ(ListDir(soi_), (Strings{"Line2.vgxView", "Line2.vgxXml"}));
  EXPECT_STREQ(Parse(soi_ + "/Line2.vgxView").document_element().attribute("Document").value(),
               "Line2.vgxXml");
}

TEST_F(GeneratorTest, Generate_BadNameRefused) {
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate("", "", "a\\b"), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'a\\b' of project 'AssemblyLine': package name "
                    "'a\\b' is not usable as a file name"});
  EXPECT_FALSE(FileExists(soi_));
}

TEST_F(GeneratorTest, Generate_NotConnectedLeavesNoPackage) {
  nomzub::RegisterPackage("Z:\\elsewhere\\Old.vgxXml", "");
  nomzub::IdentCacheAddObjectPath("OLD", "ProductList/Old");
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI': not connected to a planning server"});
  EXPECT_EQ(RegisteredMain(), "");
  NOMOIDIdentPathsMap paths;
  NOMZUBVGXIdentCache::GetOIDIdentPathsMap(paths);
  EXPECT_TRUE(paths.empty());
  EXPECT_FALSE(FileExists(dir_.Sub("out")));
}

TEST_F(GeneratorTest, Generate_WriteFailureLeavesNoPackage) {
  ASSERT_EQ(Connect(), S_OK);
  nomplat::FaultInjectionEnv env(nomplat::Env::Default());
  env.FailOn(nomplat::FaultInjectionEnv::kWriteFileAtomic, 3, 112);
  nomplat::ScopedEnv installed(&env);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': cannot write " +
                    ZPath(cache_) + "\\MP-GEARBOX.vgxXml (error 112)"});
  EXPECT_EQ(RegisteredMain(), "");
  EXPECT_FALSE(FileExists(Main()));
}

// A package large enough to be written by several threads: every product has both files, and
// the references take the forms in turn in the order the documents are made (sorted by OID).
TEST_F(GeneratorTest, Generate_ManyProductsWrittenInOrderOfTheirForms) {
  ASSERT_TRUE(AddWideStructure(1200));
  ConnectAndGenerate("refs=relative,drive;sep=backslash");
  Strings oids = kProductOids;
  for (int k = 0; k < 1200; ++k) oids.push_back("W-" + std::to_string(k));
  oids.push_back("W-ROOT");
  std::sort(oids.begin(), oids.end());
  EXPECT_EQ(ListDir(cache_), CacheFiles(oids));
  size_t turn = 0;
  for (const std::string& oid : oids) {
    for (const std::string& ref : References(Doc(oid))) {
      const std::string drive = ZPath(cache_) + "\\";
      const bool driveForm = ref.rfind(drive, 0) == 0;
      ASSERT_EQ(driveForm, turn % 2 == 1) << oid << ": reference " << turn << " " << ref;
      ++turn;
    }
  }
  EXPECT_GT(turn, 2400u);  // W-ROOT's and the W products' own, and the sample's
  for (int k : {0, 511, 512, 1199}) {
    const std::string oid = "W-" + std::to_string(k);
    EXPECT_FALSE(GlbJson(cache_ + "/" + oid + ".vgxGeom", false).empty()) << oid;
  }
}

// Answers the save of one path with what save() returns (or throws); passes every other call on.
class BreakOnePath : public nomplat::EnvWrapper {
 public:
  BreakOnePath(nomplat::Env* target, std::string path, std::function<DWORD()> save)
      : EnvWrapper(target), path_(std::move(path)), save_(std::move(save)) {}
  DWORD WriteFileAtomic(const std::string& path, const std::string& contents) override {
    return path == path_ ? save_() : EnvWrapper::WriteFileAtomic(path, contents);
  }

 private:
  const std::string path_;
  const std::function<DWORD()> save_;
};

TEST_F(GeneratorTest, Generate_WriteFailureInManyProductsNamesItAndLeavesNoPackage) {
  ASSERT_TRUE(AddWideStructure(1200));
  ASSERT_EQ(Connect(), S_OK);
  const std::string failing = ZPath(cache_) + "\\W-700.vgxGeom";
  BreakOnePath env(nomplat::Env::Default(), failing, [] { return DWORD{112}; });
  nomplat::ScopedEnv installed(&env);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2), Strings{std::string(kError) +
                                      "cannot generate package 'SOI' of project 'AssemblyLine': "
                                      "cannot write " +
                                      failing + " (error 112)"});
  EXPECT_EQ(RegisteredMain(), "");
  EXPECT_FALSE(FileExists(Main()));
  // Every product made before the failed one is written whole.
  Strings oids = kProductOids;
  for (int k = 0; k < 1200; ++k) oids.push_back("W-" + std::to_string(k));
  std::sort(oids.begin(), oids.end());
  for (const std::string& oid : oids) {
    if (oid == "W-700") break;
    EXPECT_TRUE(FileExists(Doc(oid))) << oid;
    EXPECT_TRUE(FileExists(cache_ + "/" + oid + ".vgxGeom")) << oid;
  }
  EXPECT_TRUE(FileExists(Doc("W-700")));
  EXPECT_FALSE(FileExists(cache_ + "/W-700.vgxGeom"));
}

// Out of memory on a writer thread reaches the caller as it does with one writer, after every
// writer has stopped, and leaves no package.
TEST_F(GeneratorTest, Generate_OutOfMemoryInManyProductsReachesTheCaller) {
  ASSERT_TRUE(AddWideStructure(1200));
  ASSERT_EQ(Connect(), S_OK);
  BreakOnePath env(nomplat::Env::Default(), ZPath(cache_) + "\\W-700.vgxGeom",
                   []() -> DWORD { throw std::bad_alloc(); });
  nomplat::ScopedEnv installed(&env);
  EXPECT_THROW(Generate(), std::bad_alloc);
  EXPECT_EQ(RegisteredMain(), "");
  EXPECT_FALSE(FileExists(Main()));
}

TEST_F(GeneratorTest, Generate_UncreatableDirectoryRefused) {
  ASSERT_EQ(Connect(), S_OK);
  nomtest::WriteFile(dir_.Sub("out"), "a file where the directory should be");
  EXPECT_EQ(Generate(), E_FAIL);
  ASSERT_EQ(log_.messages(2).size(), 1u);
  EXPECT_TRUE(Contains(log_.messages(2)[0], "cannot create directory " + ZPath(soi_) + " (error"));
  EXPECT_EQ(RegisteredMain(), "");
}

TEST_F(GeneratorTest, Generate_CacheInsideSoiDirectoryRefused) {
  ScopedEnvVar cache("NOMZUB_CACHE", dir_.Sub("out"));
  soi_ = dir_.Sub("out/AssemblyLine");
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': the product cache " +
                    soi_ + " is the SOI directory itself"});
}

TEST_F(GeneratorTest, Cache_DefaultUnderXdgCacheHome) {
  ScopedEnvVar cache("NOMZUB_CACHE", std::nullopt);
  ScopedEnvVar xdg("XDG_CACHE_HOME", dir_.Sub("xdg"));
  ConnectAndGenerate();
  EXPECT_EQ(ListDir(dir_.Sub("xdg/nomzub/AssemblyLine")), CacheFiles(kProductOids));
}

TEST_F(GeneratorTest, Cache_DefaultUnderHome) {
  ScopedEnvVar cache("NOMZUB_CACHE", std::nullopt);
  ScopedEnvVar xdg("XDG_CACHE_HOME", std::nullopt);
  ScopedEnvVar home("HOME", dir_.Sub("home"));
  ConnectAndGenerate();
  EXPECT_EQ(ListDir(dir_.Sub("home/.cache/nomzub/AssemblyLine")), CacheFiles(kProductOids));
}

TEST_F(GeneratorTest, Cache_NoDirectoryKnownRefused) {
  ScopedEnvVar cache("NOMZUB_CACHE", std::nullopt);
  ScopedEnvVar xdg("XDG_CACHE_HOME", std::nullopt);
  ScopedEnvVar home("HOME", std::nullopt);
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': no product cache: "
                    "set NOMZUB_CACHE, XDG_CACHE_HOME or HOME"});
}

// ---- The package on a remapped drive or a share: registered and referred to by module paths of
// the maps in force ----

TEST_F(GeneratorTest, Drive_RemappedZ_PackageInTheMappedDirectory) {
  nomplat::ScopedPathMaps maps;
  const std::string drive = dir_.Sub("z");
  fs::create_directories(drive);
  nomplat::MapDrive('Z', drive);
  ScopedEnvVar cache("NOMZUB_CACHE", "Z:\\cache");
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBVGXGenerator generator;
  ASSERT_EQ(generator.GenerateVGXPackage("", "Z:\\out\\soi", "SOI", ""), S_OK);
  EXPECT_EQ(ListDir(drive), (Strings{"cache", "out"}));
  EXPECT_EQ(ListDir(drive + "/out/soi"), (Strings{"SOI.vgxView", "SOI.vgxXml"}));
  EXPECT_EQ(ListDir(drive + "/cache/AssemblyLine"), CacheFiles(kProductOids));
  EXPECT_EQ(RegisteredMain(), "Z:\\out\\soi\\SOI.vgxXml");
  EXPECT_EQ(log_.messages(2),
            Strings{"Info:\t generated package Z:\\out\\soi\\SOI.vgxXml with 20 product documents "
                    "and their geometry in Z:\\cache\\AssemblyLine"});
}

TEST_F(GeneratorTest, Drive_RemappedZ_DriveFormNamesTheMappedCache) {
  nomplat::ScopedPathMaps maps;
  const std::string drive = dir_.Sub("z");
  fs::create_directories(drive);
  nomplat::MapDrive('Z', drive);
  ScopedEnvVar cache("NOMZUB_CACHE", "Z:\\cache");
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBVGXGenerator generator;
  ASSERT_EQ(generator.GenerateVGXPackage("", "Z:\\soi", "SOI", "refs=drive;sep=backslash"), S_OK);
  Strings refs = References(drive + "/soi/SOI.vgxXml");
  ASSERT_EQ(refs.size(), 6u);
  for (const std::string& ref : refs) {
    EXPECT_EQ(ref.rfind("Z:\\cache\\AssemblyLine\\", 0), 0u) << ref;
    std::string native;
    DWORD error = 0;
    ASSERT_TRUE(nomplat::ToNativePath(ref, &native, &error)) << ref;
    EXPECT_TRUE(FileExists(native)) << ref;
  }
}

TEST_F(GeneratorTest, Drive_SoiDirectoryOnNoMappedDriveRefusedWritingNothing) {
  nomplat::ScopedPathMaps maps;
  const std::string drive = dir_.Sub("z");
  fs::create_directories(drive);
  nomplat::MapDrive('Z', drive);
  ScopedEnvVar cache("NOMZUB_CACHE", "Z:\\cache");
  ASSERT_EQ(Connect(), S_OK);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': directory " + soi_ +
                    " lies on no mapped drive or share, or holds a name a module path cannot "
                    "carry"});
  EXPECT_FALSE(FileExists(dir_.Sub("out")));
  EXPECT_TRUE(ListDir(drive).empty());
  EXPECT_EQ(RegisteredMain(), "");
}

TEST_F(GeneratorTest, Drive_CacheOnNoMappedDriveRefusedWritingNothing) {
  nomplat::ScopedPathMaps maps;
  const std::string drive = dir_.Sub("z");
  fs::create_directories(drive);
  nomplat::MapDrive('Z', drive);
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBVGXGenerator generator;
  EXPECT_EQ(generator.GenerateVGXPackage("", "Z:\\soi", "SOI", ""), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI' of project 'AssemblyLine': directory " + cache_ +
                    " lies on no mapped drive or share, or holds a name a module path cannot "
                    "carry"});
  EXPECT_TRUE(ListDir(drive).empty());
  EXPECT_FALSE(FileExists(cache_));
}

TEST_F(GeneratorTest, Share_PackageRegisteredUnderTheShare) {
  nomplat::ScopedPathMaps maps;
  const std::string share = dir_.Sub("share");
  fs::create_directories(share);
  nomplat::MapShare("\\\\planning\\soi", share);
  ScopedEnvVar cache("NOMZUB_CACHE", "\\\\planning\\soi\\cache");
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBVGXGenerator generator;
  ASSERT_EQ(generator.GenerateVGXPackage("", "\\\\planning\\soi\\line1", "SOI",
                                         "refs=drive;sep=backslash"),
            S_OK);
  EXPECT_EQ(ListDir(share + "/line1"), (Strings{"SOI.vgxView", "SOI.vgxXml"}));
  EXPECT_EQ(ListDir(share + "/cache/AssemblyLine"), CacheFiles(kProductOids));
  EXPECT_EQ(RegisteredMain(), "\\\\planning\\soi\\line1\\SOI.vgxXml");
  for (const std::string& ref : References(share + "/line1/SOI.vgxXml")) {
    EXPECT_EQ(ref.rfind("\\\\planning\\soi\\cache\\AssemblyLine\\", 0), 0u) << ref;
  }
}

TEST_F(GeneratorTest, Drive_RemappedZ_StatesAppliedToThePackageThere) {
  nomplat::ScopedPathMaps maps;
  const std::string drive = dir_.Sub("z");
  fs::create_directories(drive);
  nomplat::MapDrive('Z', drive);
  ScopedEnvVar cache("NOMZUB_CACHE", "Z:\\cache");
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBVGXGenerator generator;
  ASSERT_EQ(generator.GenerateVGXPackage("", "Z:\\soi", "SOI", ""), S_OK);
  ASSERT_EQ(NOMZUBApply3DStatesCmd().ApplyStates(), S_OK);
  pugi::xml_document main = Parse(drive + "/soi/SOI.vgxXml");
  EXPECT_EQ(main.select_nodes("//Operation/State").size(), 11u);
}

TEST_F(GeneratorTest, Generate_ReloadsProjectReleasedByCleanup) {
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBConnector::Instance()->Cleanup(0);
  EXPECT_EQ(Generate(), S_OK);
  EXPECT_EQ(ListDir(cache_), CacheFiles(kProductOids));
}

TEST_F(GeneratorTest, Generate_AfterFullCleanupRefused) {
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBConnector::Instance()->Cleanup(1);
  EXPECT_EQ(Generate(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "cannot generate package 'SOI': no project selected"});
}

TEST_F(GeneratorTest, States_WrittenIntoOperations) {
  ConnectAndGenerate();
  NOMZUBApply3DStatesCmd command;
  ASSERT_EQ(command.ApplyStates(), S_OK);
  pugi::xml_document main = Parse(Main());
  pugi::xml_node process = main.document_element().child("Process");
  pugi::xml_node op10 = process.find_child_by_attribute("Operation", "OID", "OP-010");
  EXPECT_EQ(
      ChildAttributes(op10, "State", "Target"),
      (Strings{"ManufProd/Gearbox/Housing", "ManufProd/Gearbox/Shaft", "ManufProd/Gearbox/Cover"}));
  EXPECT_EQ(ChildAttributes(op10, "State", "Visible"), (Strings{"true", "false", "false"}));
  pugi::xml_node op40 = process.find_child_by_attribute("Operation", "OID", "OP-040");
  EXPECT_EQ(ChildAttributes(op40, "State", "Target").size(), 6u);
  EXPECT_EQ(ChildAttributes(op10, "ProcessIdent", "Ident"), (Strings{"V01", "V02"}));
}

TEST_F(GeneratorTest, States_SecondApplyReplacesTheFirst) {
  ConnectAndGenerate();
  NOMZUBApply3DStatesCmd command;
  ASSERT_EQ(command.ApplyStates(), S_OK);
  std::string once = ReadFile(Main());
  ASSERT_EQ(command.ApplyStates(), S_OK);
  EXPECT_EQ(ReadFile(Main()), once);
}

TEST_F(GeneratorTest, States_NoPackageRefused) {
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBApply3DStatesCmd command;
  EXPECT_EQ(command.ApplyStates(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "cannot apply 3D states: no package has been generated"});
}

TEST_F(GeneratorTest, States_NotConnectedRefused) {
  ConnectAndGenerate();
  NOMZUBConnector::Instance()->Disconnect(0);
  log_.clear();
  NOMZUBApply3DStatesCmd command;
  EXPECT_EQ(command.ApplyStates(), E_FAIL);
  EXPECT_EQ(
      log_.messages(2),
      Strings{std::string(kError) + "cannot apply 3D states: not connected to a planning server"});
}

TEST_F(GeneratorTest, States_NothingToApplyLeavesDocument) {
  ConnectAndGenerate("", "kind=resource");
  std::string before = ReadFile(Main());
  log_.clear();
  NOMZUBApply3DStatesCmd command;
  EXPECT_EQ(command.ApplyStates(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot apply 3D states: project 'AssemblyLine' has no 3D states for the "
                    "objects of " +
                    ZPath(soi_) + "\\SOI.vgxXml"});
  EXPECT_EQ(ReadFile(Main()), before);
}

TEST_F(GeneratorTest, States_MissingMainDocumentRefused) {
  ConnectAndGenerate();
  fs::remove(Main());
  log_.clear();
  NOMZUBApply3DStatesCmd command;
  EXPECT_EQ(command.ApplyStates(), E_FAIL);
  EXPECT_EQ(log_.messages(2), Strings{std::string(kError) + "cannot apply 3D states: cannot read " +
                                      ZPath(soi_) + "\\SOI.vgxXml (error 2)"});
  EXPECT_FALSE(FileExists(Main()));
}

TEST_F(GeneratorTest, States_MalformedMainDocumentKept) {
  ConnectAndGenerate();
  nomtest::WriteFile(Main(), "<VgxDocument><Process>");
  log_.clear();
  NOMZUBApply3DStatesCmd command;
  EXPECT_EQ(command.ApplyStates(), E_FAIL);
  ASSERT_EQ(log_.messages(2).size(), 1u);
  EXPECT_TRUE(Contains(log_.messages(2)[0], "cannot apply 3D states: " + ZPath(soi_) +
                                                "\\SOI.vgxXml is not an XML document: "));
  EXPECT_EQ(ReadFile(Main()), "<VgxDocument><Process>");
}

TEST_F(GeneratorTest, States_FewerThanAppliedBeforeRefusedLeavingDocument) {
  ConnectAndGenerate();
  NOMZUBApply3DStatesCmd command;
  ASSERT_EQ(command.ApplyStates(), S_OK);
  const std::string once = ReadFile(Main());
  ASSERT_TRUE(
      Sql("DELETE FROM states WHERE operation = 'OP-010' AND "
          "target = 'ManufProd/Gearbox/Cover'"));
  NOMZUBConnector::Instance()->Cleanup(0);  // read the project again
  log_.clear();
  EXPECT_EQ(command.ApplyStates(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "cannot apply 3D states: " + ZPath(soi_) +
                    "\\SOI.vgxXml holds more 3D states in operation OP-010 than the project now "
                    "has for it; generate the package again to apply them"});
  EXPECT_EQ(ReadFile(Main()), once);
}

TEST_F(GeneratorTest, States_MoreThanAppliedBeforeAddedAfterThem) {
  ConnectAndGenerate();
  NOMZUBApply3DStatesCmd command;
  ASSERT_EQ(command.ApplyStates(), S_OK);
  ASSERT_TRUE(
      Sql("INSERT INTO states VALUES ('AssemblyLine', 'OP-010', "
          "'ManufProd/Gearbox/Shaft', 1, 99)"));
  NOMZUBConnector::Instance()->Cleanup(0);
  ASSERT_EQ(command.ApplyStates(), S_OK);
  pugi::xml_document main = Parse(Main());
  pugi::xml_node op10 = main.select_node("//Operation[@OID='OP-010']").node();
  EXPECT_EQ(ChildAttributes(op10, "State", "Target"),
            (Strings{"ManufProd/Gearbox/Housing", "ManufProd/Gearbox/Shaft",
                     "ManufProd/Gearbox/Cover", "ManufProd/Gearbox/Shaft"}));
  EXPECT_EQ(ChildAttributes(op10, "State", "Visible"), (Strings{"true", "false", "false", "true"}));
}

TEST_F(GeneratorTest, States_WrapperRefusingAChangeLeavesDocument) {
  ConnectAndGenerate();
  const std::string before = ReadFile(Main());
  log_.clear();
  nomtest::RecordingDomHook dom;
  dom.FailAll(nomzub::DomCall::kAddAttribute, E_FAIL);
  EXPECT_EQ(NOMZUBApply3DStatesCmd().ApplyStates(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "cannot apply 3D states: cannot edit " + ZPath(soi_) +
                    "\\SOI.vgxXml: the document wrapper refused a change"});
  EXPECT_EQ(ReadFile(Main()), before);
}

TEST_F(GeneratorTest, Positions_WrittenIntoMainDocument) {
  ConnectAndGenerate();
  NOMZUBApplySimPositionBlobCmd command;
  ASSERT_EQ(command.ApplySimPositionBlobs(), S_OK);
  pugi::xml_document main = Parse(Main());
  pugi::xml_node positions = main.document_element().child("SimulationPositions");
  EXPECT_EQ(ChildAttributes(positions, "Position", "Target"),
            (Strings{"ResourceList/Robot", "ResourceList/Robot", "ResourceList/Robot",
                     "ResourceList/Nutrunner", "ResourceList/Hoist", "ManufProd/Gearbox"}));
  EXPECT_EQ(ChildAttributes(positions, "Position", "Operation")[3], "OP-040");
  EXPECT_EQ(ChildAttributes(positions, "Position", "Placement")[2], "0 -1 0 1 0 0 0 0 1 1 1 0");
  EXPECT_EQ(ChildAttributes(positions, "Position", "Placement")[5], "1 0 0 0 1 0 0 0 1 5 0 1.5");
}

TEST_F(GeneratorTest, Positions_SecondApplyReplacesTheFirst) {
  ConnectAndGenerate();
  NOMZUBApplySimPositionBlobCmd command;
  ASSERT_EQ(command.ApplySimPositionBlobs(), S_OK);
  ASSERT_EQ(command.ApplySimPositionBlobs(), S_OK);
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(ChildAttributes(main.document_element(), "SimulationPositions", "").size(), 1u);
  EXPECT_EQ(
      ChildAttributes(main.document_element().child("SimulationPositions"), "Position", "Target")
          .size(),
      6u);
}

TEST_F(GeneratorTest, Positions_SecondApplyLeavesTheSameBytes) {
  ConnectAndGenerate();
  NOMZUBApplySimPositionBlobCmd command;
  ASSERT_EQ(command.ApplySimPositionBlobs(), S_OK);
  const std::string once = ReadFile(Main());
  ASSERT_EQ(command.ApplySimPositionBlobs(), S_OK);
  EXPECT_EQ(ReadFile(Main()), once);
}

TEST_F(GeneratorTest, Positions_UnwritableMainDocumentRefusedOnce) {
  ConnectAndGenerate();
  const std::string before = ReadFile(Main());
  log_.clear();
  nomplat::FaultInjectionEnv env(nomplat::Env::Default());
  env.FailOn(nomplat::FaultInjectionEnv::kWriteFileAtomic, 1, 5);
  nomplat::ScopedEnv installed(&env);
  EXPECT_EQ(NOMZUBApplySimPositionBlobCmd().ApplySimPositionBlobs(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "cannot apply simulation positions: cannot write " +
                    ZPath(soi_) + "\\SOI.vgxXml (error 5)"});
  EXPECT_EQ(ReadFile(Main()), before);
}

TEST_F(GeneratorTest, Positions_OnlyObjectsOfThePackage) {
  ConnectAndGenerate("", "kind=resource");
  NOMZUBApplySimPositionBlobCmd command;
  ASSERT_EQ(command.ApplySimPositionBlobs(), S_OK);
  pugi::xml_document main = Parse(Main());
  EXPECT_EQ(
      ChildAttributes(main.document_element().child("SimulationPositions"), "Position", "Target")
          .size(),
      5u);
}

TEST_F(GeneratorTest, Positions_NothingToApplyLeavesDocument) {
  ConnectAndGenerate("", "kind=context");
  std::string before = ReadFile(Main());
  log_.clear();
  NOMZUBApplySimPositionBlobCmd command;
  EXPECT_EQ(command.ApplySimPositionBlobs(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot apply simulation positions: project 'AssemblyLine' has no "
                    "simulation positions for the objects of " +
                    ZPath(soi_) + "\\SOI.vgxXml"});
  EXPECT_EQ(ReadFile(Main()), before);
}

TEST_F(GeneratorTest, Positions_NoPackageRefused) {
  ASSERT_EQ(Connect(), S_OK);
  NOMZUBApplySimPositionBlobCmd command;
  EXPECT_EQ(command.ApplySimPositionBlobs(), E_FAIL);
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) + "cannot apply simulation positions: no package has been "
                                          "generated"});
}

TEST_F(GeneratorTest, Backend_FakeReplacesAndNullRestores) {
  nomtest::FakeGenerator fake;
  fake.set_generate_result(S_FALSE);
  fake.set_states_result(E_ACCESSDENIED);
  nomzub::GeneratorBackend* real = nomzub::SetGeneratorBackend(&fake);
  NOMZUBVGXGenerator generator;
  EXPECT_EQ(generator.GenerateVGXPackage("a", "b", "c", "d"), S_FALSE);
  EXPECT_EQ(NOMZUBApply3DStatesCmd().ApplyStates(), E_ACCESSDENIED);
  EXPECT_EQ(fake.calls(), (Strings{"GenerateVGXPackage(a|b|c|d)", "ApplyStates"}));
  EXPECT_EQ(nomzub::SetGeneratorBackend(nullptr), &fake);
  EXPECT_EQ(nomzub::SetGeneratorBackend(nullptr), real);
  EXPECT_EQ(Generate(), E_FAIL);  // the real generator: not connected
  EXPECT_EQ(log_.messages(2),
            Strings{std::string(kError) +
                    "cannot generate package 'SOI': not connected to a planning server"});
}

TEST_F(GeneratorTest, Mapping_EveryOidWithItsIdentPaths) {
  ConnectAndGenerate();
  NOMSOIUtility utility;
  ASSERT_EQ(utility.GenerateMappingXML(soi_), S_OK);
  pugi::xml_document mapping = Parse(soi_ + "/Mapping.xml");
  std::map<std::string, std::pair<std::string, std::string>> entities;  // OID -> name, IDPath
  for (pugi::xml_node e : mapping.document_element().children("Entity")) {
    entities[e.child_value("OID")] = {e.child_value("Name"), e.child_value("IDPath")};
  }
  EXPECT_EQ(entities.size(), 26u);
  for (const std::string& oid : kProductOids) EXPECT_EQ(entities.count(oid), 1u) << oid;
  EXPECT_EQ(entities["P-STATION"],
            std::make_pair(std::string("Work station"),
                           std::string("ProductList/Line/Station1#ProductList/Line/Station2#"
                                       "ProductList/Line/Station3#")));
  EXPECT_EQ(entities["R-HOIST"],
            std::make_pair(std::string("Hoist"), std::string("ResourceList/Hoist#")));
  EXPECT_EQ(entities["OP-020"],
            std::make_pair(std::string("Insert shaft"), std::string("Process/Op020")));
  pugi::xml_node op20 = mapping.select_node("//Entity[OID='OP-020']").node();
  EXPECT_EQ(ChildAttributes(op20, "View", "Name"),
            (Strings{"Shaft insertion", "Shaft from above"}));
}

}  // namespace
