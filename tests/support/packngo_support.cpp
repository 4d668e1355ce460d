#include "support/packngo_support.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <pugixml.hpp>
#include <sstream>

#include "services/XMLDOM.h"

namespace nomtest {
namespace packngo {

const char kAbsent[] = "<absent>";

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

std::string XmlEscape(const std::string& text) {
  std::string out;
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
      default:
        out += c;
    }
  }
  return out;
}

namespace {

// One CLitAssyGroup element referring to reference (none for kAbsent).
std::string ReferenceElement(const std::string& indent, int index, const std::string& reference) {
  std::ostringstream out;
  out << indent << "<CLitAssyGroup Ident=\"Item" << index << "\" Name=\"Item " << index << "\"";
  if (reference != kAbsent) out << " IsInstanceOf=\"" << XmlEscape(reference) << "\"";
  out << "/>\n";
  return out.str();
}

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

}  // namespace

std::string MainDocument(const std::vector<ListGroup>& lists) {
  std::ostringstream out;
  out << kDeclaration << "<VgxDocument Name=\"SOI\">\n";
  for (const ListGroup& list : lists) {
    out << "  <CLitAssyGroup Ident=\"" << list.ident << "\">\n";
    int index = 0;
    for (const std::string& ref : list.references) {
      out << ReferenceElement("    ", ++index, ref);
    }
    out << "  </CLitAssyGroup>\n";
  }
  out << "</VgxDocument>\n";
  return out.str();
}

std::string AssemblyDocument(const std::vector<std::string>& references) {
  std::ostringstream out;
  out << kDeclaration << "<VgxDocument Name=\"Assembly\">\n";
  int index = 0;
  for (const std::string& ref : references) out << ReferenceElement("  ", ++index, ref);
  out << "</VgxDocument>\n";
  return out.str();
}

std::string LeafDocument() {
  return std::string(kDeclaration) + "<VgxDocument Name=\"Leaf\">\n  <Part Ident=\"Leaf\"/>\n" +
         "</VgxDocument>\n";
}

std::string ViewDocument() {
  return std::string(kDeclaration) +
         "<VgxView Document=\"Z:\\elsewhere\\SOI.vgxXml\">\n  <View Name=\"Front\"/>\n" +
         "</VgxView>\n";
}

namespace {

// Loads a file with pugixml; records a test failure when it does not parse.
bool Load(const std::string& nativeFile, pugi::xml_document* doc) {
  pugi::xml_parse_result parsed = doc->load_file(nativeFile.c_str());
  EXPECT_TRUE(parsed) << nativeFile << ": " << parsed.description();
  return static_cast<bool>(parsed);
}

std::string ReferenceOf(const pugi::xml_node& node) {
  pugi::xml_attribute attr = node.attribute("IsInstanceOf");
  return attr ? std::string(attr.value()) : std::string(kAbsent);
}

}  // namespace

std::vector<std::string> InstanceReferences(const std::string& nativeFile) {
  std::vector<std::string> out;
  pugi::xml_document doc;
  if (!Load(nativeFile, &doc)) return out;
  for (const pugi::xpath_node& x : doc.select_nodes("//CLitAssyGroup")) {
    out.push_back(ReferenceOf(x.node()));
  }
  return out;
}

std::vector<std::string> ListReferences(const std::string& nativeFile, const std::string& ident) {
  std::vector<std::string> out;
  pugi::xml_document doc;
  if (!Load(nativeFile, &doc)) return out;
  pugi::xml_node list = doc.find_node([&](const pugi::xml_node& n) {
    return std::string(n.name()) == "CLitAssyGroup" && ident == n.attribute("Ident").value();
  });
  EXPECT_TRUE(list) << "no list group " << ident << " in " << nativeFile;
  for (pugi::xml_node child : list.children("CLitAssyGroup")) out.push_back(ReferenceOf(child));
  return out;
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

std::string ElementAttribute(const std::string& nativeFile, const std::string& element,
                             const std::string& attribute) {
  pugi::xml_document doc;
  if (!Load(nativeFile, &doc)) return kAbsent;
  pugi::xml_node node =
      doc.find_node([&](const pugi::xml_node& n) { return std::string(n.name()) == element; });
  pugi::xml_attribute attr = node.attribute(attribute.c_str());
  return attr ? std::string(attr.value()) : std::string(kAbsent);
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
