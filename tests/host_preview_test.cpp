// The package's preview (NOMSOIHost.h, WritePreview): instances placed where the package puts
// them, each product's meshes written once and shared, the hierarchy as named nodes, missing and
// damaged geometry as listed placeholders, hostile geometry refused without reading out of
// bounds, and a page that fetches nothing.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "NOMSOIHost.h"
#include "commands.h"
#include "services/NOMZUBLog.h"
#include "support/test_support.h"

namespace {

using Json = nlohmann::json;
using nomtest::ReadFile;
using nomtest::WriteFile;

void AppendU32(std::string* out, uint32_t v) {
  for (int i = 0; i < 4; ++i) *out += static_cast<char>((v >> (8 * i)) & 0xFF);
}

uint32_t U32At(const std::string& bytes, size_t at) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(bytes[at + i]);
  return v;
}

// A GLB of the given JSON text and binary chunk, both padded to four bytes.
std::string Glb(std::string json, std::string bin) {
  json.resize((json.size() + 3) / 4 * 4, ' ');
  bin.resize((bin.size() + 3) / 4 * 4, '\0');
  std::string glb;
  AppendU32(&glb, 0x46546C67);
  AppendU32(&glb, 2);
  AppendU32(&glb, static_cast<uint32_t>(12 + 8 + json.size() + (bin.empty() ? 0 : 8 + bin.size())));
  AppendU32(&glb, static_cast<uint32_t>(json.size()));
  AppendU32(&glb, 0x4E4F534A);
  glb += json;
  if (!bin.empty()) {
    AppendU32(&glb, static_cast<uint32_t>(bin.size()));
    AppendU32(&glb, 0x004E4942);
    glb += bin;
  }
  return glb;
}

// The binary chunk of a one-triangle mesh: three float positions, then three unsigned indices.
std::string TriangleBin() {
  std::string bin;
  const float positions[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  for (float f : positions) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    AppendU32(&bin, bits);
  }
  for (uint32_t i : {0u, 1u, 2u}) AppendU32(&bin, i);
  return bin;
}

// The JSON of a geometry file as the generator writes it: a root node rotated Z-up to Y-up
// carrying one triangle mesh named name.
Json TriangleJson(const std::string& name) {
  return {
      {"asset", {{"version", "2.0"}}},
      {"scene", 0},
      {"scenes", {{{"nodes", {0}}}}},
      {"nodes", {{{"name", name}, {"mesh", 0}, {"rotation", {-0.7071068, 0, 0, 0.7071068}}}}},
      {"meshes",
       {{{"name", name}, {"primitives", {{{"attributes", {{"POSITION", 0}}}, {"indices", 1}}}}}}},
      {"buffers", {{{"byteLength", 48}}}},
      {"bufferViews",
       {{{"buffer", 0}, {"byteOffset", 0}, {"byteLength", 36}},
        {{"buffer", 0}, {"byteOffset", 36}, {"byteLength", 12}}}},
      {"accessors",
       {{{"bufferView", 0},
         {"componentType", 5126},
         {"count", 3},
         {"type", "VEC3"},
         {"min", {0, 0, 0}},
         {"max", {1, 1, 0}}},
        {{"bufferView", 1}, {"componentType", 5125}, {"count", 3}, {"type", "SCALAR"}}}}};
}

std::string TriangleGlb(const std::string& name) {
  return Glb(TriangleJson(name).dump(), TriangleBin());
}

// One CLitAssyGroup instance element.
std::string Instance(const std::string& ident, const std::string& product,
                     const std::string& placement = "1 0 0 0 1 0 0 0 1 0 0 0") {
  return "<CLitAssyGroup Ident=\"" + ident + "\" Name=\"" + ident + " name\" OID=\"" + product +
         "\" Placement=\"" + placement + "\" IsInstanceOf=\"" + product + ".vgxXml\"/>";
}

std::string ProductDocument(const std::string& oid, const std::string& children) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VgxDocument Name=\"" + oid + "\" OID=\"" +
         oid + "\">" + children + "</VgxDocument>\n";
}

// A main document with one list holding entries, followed by extra (positions, process).
std::string MainDocument(const std::string& entries, const std::string& extra = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VgxDocument Name=\"SOI\" Project=\"P\">"
         "<CLitAssyGroup Ident=\"ProductList\" Name=\"Products\">" +
         entries + "</CLitAssyGroup>" + extra + "</VgxDocument>\n";
}

class HostPreview : public ::testing::Test {
 protected:
  // The log goes to a file of its own, so standard error holds only what commands print.
  HostPreview() { EXPECT_EQ("", nomsoi::ConfigureLog(dir_.Sub("log"), nomsoi::LogFormat::kRaw)); }
  ~HostPreview() override { nomzub::ResetLogConfiguration(); }

  // Writes a product document with a triangle geometry.
  void Product(const std::string& oid, const std::string& children = "") {
    WriteFile(dir_.Sub(oid + ".vgxXml"), ProductDocument(oid, children));
    WriteFile(dir_.Sub(oid + ".vgxGeom"), TriangleGlb(oid));
  }

  // Writes the preview of dir_ and reads preview.glb's JSON chunk back into scene_.
  nomsoi::PreviewResult Preview() {
    nomsoi::PreviewResult result = nomsoi::WritePreview(dir_.path());
    if (result.problem.empty()) {
      const std::string glb = ReadFile(dir_.Sub("preview.glb"));
      EXPECT_GE(glb.size(), 20u);
      EXPECT_EQ(0x46546C67u, U32At(glb, 0));
      EXPECT_EQ(glb.size(), U32At(glb, 8));
      scene_ = Json::parse(glb.substr(20, U32At(glb, 12)));
    }
    return result;
  }

  // The index of the node whose extras give it this ident path; -1 when none does.
  int NodeAt(const std::string& path) const {
    for (size_t n = 0; n < scene_["nodes"].size(); ++n) {
      const Json& node = scene_["nodes"][n];
      if (node.contains("extras") && node["extras"].value("nomPath", "") == path) {
        return static_cast<int>(n);
      }
    }
    return -1;
  }

  // The meshes reached from node n, however deep.
  std::set<int> MeshesUnder(int n) const {
    std::set<int> meshes;
    std::vector<int> stack = {n};
    while (!stack.empty()) {
      const Json& node = scene_["nodes"][stack.back()];
      stack.pop_back();
      if (node.contains("mesh")) meshes.insert(node["mesh"].get<int>());
      for (const Json& child : node.value("children", Json::array())) {
        stack.push_back(child.get<int>());
      }
    }
    return meshes;
  }

  // The names of node n's children.
  std::vector<std::string> ChildNames(int n) const {
    std::vector<std::string> names;
    for (const Json& child : scene_["nodes"][n].value("children", Json::array())) {
      names.push_back(scene_["nodes"][child.get<int>()].value("name", ""));
    }
    return names;
  }

  // The preview of a package whose only product has the geometry bytes given.
  nomsoi::PreviewResult PreviewWithGeometry(const std::string& geometry) {
    WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Part", "P-PART")));
    WriteFile(dir_.Sub("P-PART.vgxXml"), ProductDocument("P-PART", ""));
    WriteFile(dir_.Sub("P-PART.vgxGeom"), geometry);
    return Preview();
  }

  // The problem listed for the only product's geometry; "" when none is.
  static std::string GeometryProblem(const nomsoi::PreviewResult& result) {
    return result.missing.size() == 1 ? result.missing[0].problem : "";
  }

  // Runs nomsoi's command line in process; standard error in err_.
  int Nomsoi(std::vector<std::string> args) {
    args.insert(args.begin(), "nomsoi");
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    testing::internal::CaptureStderr();
    const int status = nomsoi::RunCommandLine(static_cast<int>(argv.size()), argv.data());
    nomzub::FlushLog();
    err_ = testing::internal::GetCapturedStderr();
    return status;
  }

  nomtest::TempDir dir_;
  Json scene_;
  std::string err_;
};

TEST_F(HostPreview, WritePreview_RotatedTranslatedInstance_NodeMatrixIsItsPlacement) {
  Product("P-PART");
  WriteFile(dir_.Sub("SOI.vgxXml"),
            MainDocument(Instance("Part", "P-PART", "0 -1 0 1 0 0 0 0 1 1.5 2 3")));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  const int node = NodeAt("ProductList/Part");
  ASSERT_GE(node, 0);
  // Column-major: the first column is the image of X, (0, 1, 0) for 90 degrees about Z.
  const std::vector<double> expected = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1.5, 2, 3, 1};
  EXPECT_EQ(expected, scene_["nodes"][node]["matrix"].get<std::vector<double>>());
}

TEST_F(HostPreview, WritePreview_SimulationPosition_ReplacesPlacement) {
  Product("P-PART");
  WriteFile(dir_.Sub("SOI.vgxXml"),
            MainDocument(Instance("Part", "P-PART", "1 0 0 0 1 0 0 0 1 1 1 1"),
                         "<SimulationPositions><Position Operation=\"OP\" "
                         "Target=\"ProductList/Part\" Placement=\"1 0 0 0 1 0 0 0 1 7 8 9\"/>"
                         "</SimulationPositions>"));
  ASSERT_EQ("", Preview().problem);
  const int node = NodeAt("ProductList/Part");
  ASSERT_GE(node, 0);
  const std::vector<double> expected = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 7, 8, 9, 1};
  EXPECT_EQ(expected, scene_["nodes"][node]["matrix"].get<std::vector<double>>());
}

TEST_F(HostPreview, WritePreview_LastStateHides_NodeMarkedInvisible) {
  Product("P-PART");
  WriteFile(dir_.Sub("SOI.vgxXml"),
            MainDocument(Instance("Part", "P-PART"),
                         "<Process><Operation OID=\"A\"><State Target=\"ProductList/Part\" "
                         "Visible=\"true\"/></Operation><Operation OID=\"B\"><State "
                         "Target=\"ProductList/Part\" Visible=\"false\"/></Operation></Process>"));
  ASSERT_EQ("", Preview().problem);
  const int node = NodeAt("ProductList/Part");
  ASSERT_GE(node, 0);
  EXPECT_FALSE(scene_["nodes"][node]["extras"]["nomVisible"].get<bool>());
}

TEST_F(HostPreview, WritePreview_ProductPlacedTwice_OneMeshSharedByBothInstances) {
  Product("P-BOLT");
  Product("P-PLATE", Instance("Bolt.1", "P-BOLT") + Instance("Bolt.2", "P-BOLT"));
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Plate", "P-PLATE")));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  EXPECT_EQ(3u, result.instances);
  EXPECT_EQ(2u, result.products);
  ASSERT_EQ(2u, scene_["meshes"].size());  // one per product, not per instance
  const int first = NodeAt("ProductList/Plate/Bolt.1");
  const int second = NodeAt("ProductList/Plate/Bolt.2");
  ASSERT_GE(first, 0);
  ASSERT_GE(second, 0);
  EXPECT_EQ(1u, MeshesUnder(first).size());
  EXPECT_EQ(MeshesUnder(first), MeshesUnder(second));
  EXPECT_EQ(1u, scene_["buffers"].size());
}

TEST_F(HostPreview, WritePreview_NestedProducts_HierarchyOfNamedNodes) {
  Product("P-SCREW");
  Product("P-STATION", Instance("Screw", "P-SCREW"));
  Product("P-LINE", Instance("Station1", "P-STATION"));
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Line", "P-LINE")));
  ASSERT_EQ("", Preview().problem);
  const int root = scene_["scenes"][0]["nodes"][0].get<int>();
  EXPECT_EQ("SOI", scene_["nodes"][root]["name"]);
  EXPECT_EQ(std::vector<std::string>{"ProductList"}, ChildNames(root));
  const int line = NodeAt("ProductList/Line");
  const int station = NodeAt("ProductList/Line/Station1");
  const int screw = NodeAt("ProductList/Line/Station1/Screw");
  ASSERT_GE(line, 0);
  ASSERT_GE(station, 0);
  ASSERT_GE(screw, 0);
  EXPECT_EQ("Line", scene_["nodes"][line]["name"]);
  EXPECT_EQ("Station1", scene_["nodes"][station]["name"]);
  EXPECT_EQ("Screw", scene_["nodes"][screw]["name"]);
  EXPECT_EQ("P-SCREW.vgxXml", scene_["nodes"][screw]["extras"]["nomProduct"]);
  const std::vector<std::string> station_children = ChildNames(station);
  EXPECT_NE(station_children.end(),
            std::find(station_children.begin(), station_children.end(), "Screw"));
}

TEST_F(HostPreview, WritePreview_GroupWithoutInstanceOf_ChildrenPlacedInItsStead) {
  Product("P-WHEEL");
  Product("P-CART", "<CLitAssyGroup Ident=\"Cart\" IsInstanceOf=\"\">" +
                        Instance("Wheel.1", "P-WHEEL") + Instance("Wheel.2", "P-WHEEL") +
                        "</CLitAssyGroup>");
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Cart", "P-CART")));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  EXPECT_EQ(3u, result.instances);
  EXPECT_EQ(2u, result.products);
  EXPECT_TRUE(result.missing.empty());
  EXPECT_GE(NodeAt("ProductList/Cart/Wheel.1"), 0);
  EXPECT_GE(NodeAt("ProductList/Cart/Wheel.2"), 0);
}

TEST_F(HostPreview, WritePreview_GeometryFrame_TurnedBackIntoThePackagesZUp) {
  Product("P-PART");
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Part", "P-PART")));
  ASSERT_EQ("", Preview().problem);
  const int part = NodeAt("ProductList/Part");
  ASSERT_GE(part, 0);
  const int frame = scene_["nodes"][part]["children"][0].get<int>();
  const std::vector<double> rotation = scene_["nodes"][frame]["rotation"];
  ASSERT_EQ(4u, rotation.size());
  EXPECT_NEAR(0.70710678, rotation[0], 1e-6);  // +90 degrees about X
  EXPECT_NEAR(0.70710678, rotation[3], 1e-6);
  // The file's own root node, with its rotation, is kept below the frame.
  const int file_root = scene_["nodes"][frame]["children"][0].get<int>();
  EXPECT_NEAR(-0.7071068, scene_["nodes"][file_root]["rotation"][0].get<double>(), 1e-6);
}

TEST_F(HostPreview, WritePreview_MissingGeometry_PlaceholderListed) {
  WriteFile(dir_.Sub("P-GONE.vgxXml"), ProductDocument("P-GONE", ""));
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Gone", "P-GONE")));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  ASSERT_EQ(1u, result.missing.size());
  EXPECT_EQ("P-GONE.vgxXml", result.missing[0].product);
  EXPECT_EQ("P-GONE.vgxGeom", result.missing[0].geometry);
  EXPECT_EQ("missing", result.missing[0].problem);
  const int gone = NodeAt("ProductList/Gone");
  ASSERT_GE(gone, 0);
  const int box = scene_["nodes"][gone]["children"][0].get<int>();
  EXPECT_TRUE(scene_["nodes"][box]["extras"]["nomMissing"].get<bool>());
  EXPECT_TRUE(scene_["nodes"][box].contains("mesh"));
  const std::string html = ReadFile(dir_.Sub("preview.html"));
  EXPECT_NE(std::string::npos, html.find("\"geometry\":\"P-GONE.vgxGeom\""));
  nomzub::FlushLog();
  EXPECT_NE(std::string::npos,
            ReadFile(dir_.Sub("log"))
                .find("2\t****** ERROR:\t preview: geometry 'P-GONE.vgxGeom' of 'P-GONE.vgxXml': "
                      "missing\n"));
}

TEST_F(HostPreview, WritePreview_MissingProductDocument_PlaceholderListed) {
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Gone", "P-GONE")));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  ASSERT_EQ(1u, result.missing.size());
  EXPECT_EQ("product document is missing", result.missing[0].problem);
}

TEST_F(HostPreview, WritePreview_NotGlb_ClearProblemPlaceholder) {
  const nomsoi::PreviewResult result = PreviewWithGeometry("glb:A");
  ASSERT_EQ("", result.problem);
  EXPECT_EQ("is shorter than a GLB header", GeometryProblem(result));
  EXPECT_EQ(1u, result.instances);
}

TEST_F(HostPreview, WritePreview_WrongMagic_ClearProblem) {
  std::string glb = TriangleGlb("A");
  glb[0] = 'X';
  EXPECT_EQ("is not binary glTF (no \"glTF\" magic)", GeometryProblem(PreviewWithGeometry(glb)));
}

TEST_F(HostPreview, WritePreview_DeclaredLengthPastFile_Refused) {
  std::string glb = TriangleGlb("A");
  glb.resize(glb.size() - 8);  // truncated: the header still declares the whole file
  EXPECT_NE(std::string::npos, GeometryProblem(PreviewWithGeometry(glb)).find("declares"));
}

TEST_F(HostPreview, WritePreview_ChunkLengthPastFile_Refused) {
  std::string glb = TriangleGlb("A");
  const uint32_t absurd = 0xFFFFFFF0u;
  for (int i = 0; i < 4; ++i) glb[12 + i] = static_cast<char>((absurd >> (8 * i)) & 0xFF);
  EXPECT_NE(std::string::npos, GeometryProblem(PreviewWithGeometry(glb)).find("runs past its end"));
}

TEST_F(HostPreview, WritePreview_JsonChunkNotJson_Refused) {
  EXPECT_EQ("has a JSON chunk that is not JSON",
            GeometryProblem(PreviewWithGeometry(Glb("{\"asset\":", TriangleBin()))));
}

TEST_F(HostPreview, WritePreview_AbsurdAccessorCount_Refused) {
  Json json = TriangleJson("A");
  json["accessors"][0]["count"] = 200000000;
  EXPECT_NE(std::string::npos, GeometryProblem(PreviewWithGeometry(Glb(json.dump(), TriangleBin())))
                                   .find("has accessor 0 of 200000000 elements that runs past"));
}

TEST_F(HostPreview, WritePreview_HugeAccessorCount_Refused) {
  Json json = TriangleJson("A");
  json["accessors"][0]["count"] = 18446744073709551615ull;
  EXPECT_NE(std::string::npos, GeometryProblem(PreviewWithGeometry(Glb(json.dump(), TriangleBin())))
                                   .find("has accessor 0 with a missing or invalid"));
}

TEST_F(HostPreview, WritePreview_BufferViewPastBinaryChunk_Refused) {
  Json json = TriangleJson("A");
  json["bufferViews"][1]["byteOffset"] = 4294967290u;
  EXPECT_NE(std::string::npos, GeometryProblem(PreviewWithGeometry(Glb(json.dump(), TriangleBin())))
                                   .find("has buffer view 1 with a buffer, offset"));
}

TEST_F(HostPreview, WritePreview_BufferLongerThanBinaryChunk_Refused) {
  Json json = TriangleJson("A");
  json["buffers"][0]["byteLength"] = 4096;
  EXPECT_EQ("has a buffer of 4096 bytes but a binary chunk of 48",
            GeometryProblem(PreviewWithGeometry(Glb(json.dump(), TriangleBin()))));
}

TEST_F(HostPreview, WritePreview_MeshIndexOutOfRange_Refused) {
  Json json = TriangleJson("A");
  json["nodes"][0]["mesh"] = 5;
  EXPECT_EQ("has node 0 whose mesh names no mesh",
            GeometryProblem(PreviewWithGeometry(Glb(json.dump(), TriangleBin()))));
}

TEST_F(HostPreview, WritePreview_NodeCycle_Refused) {
  Json json = TriangleJson("A");
  json["nodes"].push_back({{"name", "a"}, {"children", {2}}});
  json["nodes"].push_back({{"name", "b"}, {"children", {1}}});
  json["scenes"][0]["nodes"] = {0, 1};
  const std::string problem = GeometryProblem(PreviewWithGeometry(Glb(json.dump(), TriangleBin())));
  EXPECT_EQ("has a scene whose nodes are out of range or not roots", problem);
}

TEST_F(HostPreview, WritePreview_ExternalBuffer_RefusedNotFetched) {
  Json json = TriangleJson("A");
  json["buffers"][0]["uri"] = "https://example.com/data.bin";
  EXPECT_EQ("keeps its data in an external file, which the preview does not fetch",
            GeometryProblem(PreviewWithGeometry(Glb(json.dump(), TriangleBin()))));
}

TEST_F(HostPreview, WritePreview_DamagedGeometry_OtherProductsStillShown) {
  Product("P-GOOD");
  WriteFile(dir_.Sub("P-BAD.vgxXml"), ProductDocument("P-BAD", ""));
  WriteFile(dir_.Sub("P-BAD.vgxGeom"), std::string(64, '\xFF'));
  WriteFile(dir_.Sub("SOI.vgxXml"),
            MainDocument(Instance("Good", "P-GOOD") + Instance("Bad", "P-BAD")));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  ASSERT_EQ(1u, result.missing.size());
  EXPECT_EQ("P-BAD.vgxGeom", result.missing[0].geometry);
  EXPECT_EQ(1u, MeshesUnder(NodeAt("ProductList/Good")).size());
}

TEST_F(HostPreview, WritePreview_ProductContainsItself_ProblemNothingWritten) {
  WriteFile(dir_.Sub("P-LOOP.vgxXml"), ProductDocument("P-LOOP", Instance("Again", "P-LOOP")));
  WriteFile(dir_.Sub("P-LOOP.vgxGeom"), TriangleGlb("P-LOOP"));
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Loop", "P-LOOP")));
  const nomsoi::PreviewResult result = Preview();
  EXPECT_EQ("product document 'P-LOOP.vgxXml' contains itself (at ProductList/Loop/Again)",
            result.problem);
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("preview.glb")));
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("preview.html")));
}

TEST_F(HostPreview, WritePreview_GeometryIsSymbolicLink_NotFollowed) {
  WriteFile(dir_.Sub("outside.glb"), TriangleGlb("P-PART"));
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Part", "P-PART")));
  WriteFile(dir_.Sub("P-PART.vgxXml"), ProductDocument("P-PART", ""));
  ASSERT_EQ(0, symlink(dir_.Sub("outside.glb").c_str(), dir_.Sub("P-PART.vgxGeom").c_str()));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  EXPECT_EQ("missing", GeometryProblem(result));
}

TEST_F(HostPreview, WritePreview_NoMainDocument_ProblemNothingWritten) {
  Product("P-PART");
  const nomsoi::PreviewResult result = Preview();
  EXPECT_NE(std::string::npos, result.problem.find("holds no SOI.vgxXml"));
  EXPECT_EQ(0u, result.instances);
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("preview.html")));
}

TEST_F(HostPreview, WritePreview_MainDocumentNotXml_Problem) {
  WriteFile(dir_.Sub("SOI.vgxXml"), "<VgxDocument");
  EXPECT_NE(std::string::npos, Preview().problem.find("SOI.vgxXml is not well-formed XML"));
}

TEST_F(HostPreview, WritePreview_NotADirectory_Problem) {
  EXPECT_NE(std::string::npos,
            nomsoi::WritePreview(dir_.Sub("absent")).problem.find("is not a directory"));
}

TEST_F(HostPreview, WritePreview_Html_EmbedsSceneAndFetchesNoUrl) {
  Product("P-PART");
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Part", "P-PART")));
  const nomsoi::PreviewResult result = Preview();
  ASSERT_EQ("", result.problem);
  EXPECT_EQ(dir_.Sub("preview.html"), result.html_path);
  const std::string html = ReadFile(dir_.Sub("preview.html"));
  // Nothing may be loaded from anywhere: the policy forbids every source but the page's own
  // inline scripts and styles.
  EXPECT_NE(std::string::npos,
            html.find("content=\"default-src 'none'; script-src 'unsafe-inline'; "
                      "style-src 'unsafe-inline'; img-src data: blob:\""));
  EXPECT_EQ(std::string::npos, html.find("<script src"));
  EXPECT_EQ(std::string::npos, html.find("<link"));
  // The only addresses in the page are names that are never requested: the XHTML namespace and
  // a citation in a shader's comment.
  const std::regex url("https?://[^\"'\\s)\\\\]*");
  for (auto it = std::sregex_iterator(html.begin(), html.end(), url); it != std::sregex_iterator();
       ++it) {
    const std::string found = it->str();
    EXPECT_TRUE(found == "http://www.w3.org/1999/xhtml" ||
                found == "https://jcgt.org/published/0007/04/01/")
        << found;
  }
  EXPECT_NE(std::string::npos, html.find("id=\"nom-glb\">Z2xURg"));  // base64 of "glTF"
  EXPECT_NE(std::string::npos, html.find("\"instances\":1"));
}

TEST_F(HostPreview, WritePreview_NameWithScriptEnd_CannotCloseTheScript) {
  Product("P-PART");
  WriteFile(dir_.Sub("SOI.vgxXml"),
            "<VgxDocument Name=\"&lt;/script&gt;&lt;b&gt;\"><CLitAssyGroup Ident=\"L\">" +
                Instance("Part", "P-PART") + "</CLitAssyGroup></VgxDocument>");
  ASSERT_EQ("", Preview().problem);
  const std::string html = ReadFile(dir_.Sub("preview.html"));
  EXPECT_EQ(std::string::npos, html.find("</script><b>"));
  EXPECT_NE(std::string::npos, html.find("\\u003c/script>\\u003cb>"));
}

TEST_F(HostPreview, CommandPreview_Package_Status0SummaryLine) {
  Product("P-PART");
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Part", "P-PART")));
  EXPECT_EQ(0, Nomsoi({"preview", dir_.path()}));
  EXPECT_EQ("nomsoi preview: preview '" + dir_.Sub("preview.html") +
                "': 1 instances, 1 products, 0 missing geometry\n",
            err_);
  EXPECT_TRUE(nomtest::FileExists(dir_.Sub("preview.glb")));
}

TEST_F(HostPreview, CommandPreview_MissingGeometry_Status3EachListed) {
  WriteFile(dir_.Sub("P-GONE.vgxXml"), ProductDocument("P-GONE", ""));
  WriteFile(dir_.Sub("SOI.vgxXml"), MainDocument(Instance("Gone", "P-GONE")));
  EXPECT_EQ(3, Nomsoi({"preview", dir_.path()}));
  EXPECT_EQ(
      "nomsoi preview: preview: geometry 'P-GONE.vgxGeom' of 'P-GONE.vgxXml': missing\n"
      "nomsoi preview: preview '" +
          dir_.Sub("preview.html") + "': 1 instances, 1 products, 1 missing geometry\n",
      err_);
}

TEST_F(HostPreview, CommandPreview_NoPackage_Status2) {
  EXPECT_EQ(2, Nomsoi({"preview", dir_.path()}));
  EXPECT_NE(std::string::npos, err_.find("nomsoi preview: preview: the directory holds no"));
}

TEST_F(HostPreview, CommandPackPreview_AfterPack_WritesPreview) {
  WriteFile(dir_.Sub("lib/P-PART.vgxXml"), ProductDocument("P-PART", ""));
  WriteFile(dir_.Sub("lib/P-PART.vgxGeom"), TriangleGlb("P-PART"));
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"),
            MainDocument("<CLitAssyGroup Ident=\"Part\" Placement=\"1 0 0 0 1 0 0 0 1 0 0 0\" "
                         "IsInstanceOf=\"..\\lib\\P-PART.vgxXml\"/>"));
  EXPECT_EQ(0, Nomsoi({"pack", "--main", dir_.Sub("pkg/SOI.vgxXml"), "--out", dir_.Sub("pkg"),
                       "--preview"}))
      << err_;
  EXPECT_NE(std::string::npos, err_.find("nomsoi pack: preview '" + dir_.Sub("pkg/preview.html") +
                                         "': 1 instances, 1 products, 0 missing geometry"))
      << err_;
  EXPECT_TRUE(nomtest::FileExists(dir_.Sub("pkg/preview.glb")));
}

TEST_F(HostPreview, CommandPackPreview_WithoutFlag_WritesNoPreview) {
  WriteFile(dir_.Sub("pkg/P-PART.vgxXml"), ProductDocument("P-PART", ""));
  WriteFile(dir_.Sub("pkg/P-PART.vgxGeom"), TriangleGlb("P-PART"));
  WriteFile(dir_.Sub("pkg/SOI.vgxXml"), MainDocument(Instance("Part", "P-PART")));
  EXPECT_EQ(0, Nomsoi({"pack", "--main", dir_.Sub("pkg/SOI.vgxXml"), "--out", dir_.Sub("pkg")}))
      << err_;
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("pkg/preview.html")));
}

}  // namespace
