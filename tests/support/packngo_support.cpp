#include "support/packngo_support.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "services/XMLDOM.h"

namespace nomtest {
namespace packngo {

LogLine InfoLine(const std::string& text) { return {0, "Info:\t " + text}; }

LogLine ErrorLine(const std::string& text) { return {0, "****** ERROR:\t " + text}; }

LogLine UnableToOpen(const std::string& path) {
  return InfoLine("Unable to open Document - " + path);
}

LogLine CopyError(const std::string& source, const std::string& target,
                  const std::string& codeText) {
  return ErrorLine("Copying File. Source Path: '" + source + "'. Target Path: '" + target +
                   "'. Error Code: " + codeText);
}

LogLine Start(const std::string& list) {
  return {1, "Info:\t Handle " + list + " Child Nodes ..." + (list == "Context" ? "" : " ")};
}

LogLine Done(const std::string& list) {
  return {1, "Info:\t Handle " + list + " Child Nodes ... Done!"};
}

LogLine Count(int n) { return InfoLine("Nb Child Nodes: " + std::to_string(n)); }

LogLine UpdatingLine() {
  return InfoLine("Updating the relative paths in extracted <KRTProduct>.vgxXml files...");
}

LogLine UpdatedLine() { return InfoLine("Updation of relative paths done..."); }

PackNGoFixture::PackNGoFixture(const std::string& soiRel)
    : soiRel_(soiRel), soi_(ZPath(dir_.Sub(soiRel))) {}

void PackNGoFixture::Product(const std::string& rel, const std::string& contents, bool geometry) {
  WriteFile(dir_.Sub(rel), contents);
  if (geometry) WriteFile(dir_.Sub(GeometryOf(rel)), "glb:" + rel);
}

std::string PackNGoFixture::GeometryOf(const std::string& rel) {
  return rel.substr(0, rel.size() - 6) + "vgxGeom";
}

std::string PackNGoFixture::M(const std::string& rel) const { return ZPath(dir_.Sub(rel)); }

std::string PackNGoFixture::Out(const std::string& name) const { return soi_ + "\\" + name; }

std::vector<std::string> PackNGoFixture::OutFiles() const {
  std::vector<std::string> names;
  for (const std::string& n : ListDir(dir_.Sub(soiRel_))) {
    if (n != ".keep") names.push_back(n);
  }
  return names;
}

ExistenceFake::ExistenceFake(std::set<std::string> existing)
    : nomplat::EnvWrapper(nomplat::CurrentEnv()),
      existing_(std::move(existing)),
      previous_(nomplat::SetCurrentEnv(this)) {}

ExistenceFake::~ExistenceFake() { nomplat::SetCurrentEnv(previous_); }

bool ExistenceFake::CanOpenForReading(const std::string& path) {
  probes_.push_back(path);
  return existing_.count(path) != 0;
}

FileCallRecorder::FileCallRecorder()
    : nomplat::EnvWrapper(nomplat::CurrentEnv()), previous_(nomplat::SetCurrentEnv(this)) {}

FileCallRecorder::~FileCallRecorder() { nomplat::SetCurrentEnv(previous_); }

bool FileCallRecorder::CanOpenForReading(const std::string& path) {
  calls_.push_back(OpenCall(path));
  return EnvWrapper::CanOpenForReading(path);
}

DWORD FileCallRecorder::CopyFile(const std::string& src, const std::string& dst,
                                 bool failIfExists) {
  // A copy that may not overwrite is recorded differently, so that it never matches CopyCall.
  calls_.push_back(failIfExists ? "copy-if-absent " + src + " -> " + dst : CopyCall(src, dst));
  return EnvWrapper::CopyFile(src, dst, failIfExists);
}

std::vector<std::string> FileCallRecorder::Copies() const {
  std::vector<std::string> out;
  for (const std::string& c : calls_) {
    if (c.compare(0, 4, "copy") == 0) out.push_back(c);
  }
  return out;
}

std::string OpenCall(const std::string& path) { return "open " + path; }

std::string CopyCall(const std::string& src, const std::string& dst) {
  return "copy " + src + " -> " + dst;
}

ScopedFaults::ScopedFaults()
    : env_(nomplat::CurrentEnv()), previous_(nomplat::SetCurrentEnv(&env_)) {}

ScopedFaults::~ScopedFaults() { nomplat::SetCurrentEnv(previous_); }

namespace {

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

}  // namespace

std::string LeafDocument() {
  return std::string(kDeclaration) + "<VgxDocument Name=\"Leaf\">\n  <Part Ident=\"Leaf\"/>\n" +
         "</VgxDocument>\n";
}

std::string ViewDocument() {
  return std::string(kDeclaration) +
         "<VgxView Document=\"Z:\\elsewhere\\SOI.vgxXml\">\n  <View Name=\"Front\"/>\n" +
         "</VgxView>\n";
}

std::vector<std::string> ChildReferences(NOMZUBDOMWrapper& doc, IXMLDOMNode* listNode) {
  std::vector<std::string> out;
  IXMLDOMNodeList* children = nullptr;
  doc.GetChildNodes(listNode, &children, "CLitAssyGroup");
  EXPECT_NE(children, nullptr);
  if (children == nullptr) return out;
  long length = 0;
  children->get_length(&length);
  for (long i = 0; i < length; ++i) {
    IXMLDOMNode* child = nullptr;
    children->get_item(i, &child);
    std::string value = kAbsent;
    doc.GetAttribute(child, "IsInstanceOf", value);
    out.push_back(value);
    if (child != nullptr) child->Release();
  }
  children->Release();
  return out;
}

void MakeReadOnly(const std::string& nativePath) {
  ASSERT_EQ(chmod(nativePath.c_str(), 0444), 0) << nativePath;
}

std::string BackslashedWithoutRoot(const std::string& nativePath) {
  std::string out;
  for (char c : nativePath) out += (c == '/') ? '\\' : c;
  if (!out.empty() && out[0] == '\\') out.erase(0, 1);
  return out;
}

int CountBackslashes(const std::string& modulePath) {
  int n = 0;
  for (char c : modulePath) n += (c == '\\') ? 1 : 0;
  return n;
}

}  // namespace packngo
}  // namespace nomtest
