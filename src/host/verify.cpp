// Checking that a directory holds a self-contained package.
#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "host_internal.h"
#include "platform/codepage.h"
#include "platform/paths.h"
#include "platform/win32.h"
#include "platform/winerror.h"
#include "services/NOMZUBDOMWrapper.h"
#include "utility/module_internal.h"

namespace nomsoi {
namespace {

namespace fs = std::filesystem;

std::string InQuotes(const std::string& text) { return "'" + text + "'"; }

// True when name ends in suffix, ASCII letters compared without case.
bool EndsWithIgnoringCase(const std::string& name, const std::string& suffix) {
  if (name.size() < suffix.size()) return false;
  const size_t start = name.size() - suffix.size();
  for (size_t i = 0; i < suffix.size(); ++i) {
    char a = name[start + i];
    char b = suffix[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
    if (a != b) return false;
  }
  return true;
}

bool IsViewFile(const std::string& name) { return EndsWithIgnoringCase(name, ".vgxView"); }

bool IsPackageDocument(const std::string& name) {
  return EndsWithIgnoringCase(name, ".vgxXml") || IsViewFile(name);
}

// A file name alone: no separator, no drive or other colon (found at character boundaries of
// the code page, so a double-byte character's trail byte is never taken for one), not a
// directory step.
bool IsBareName(const std::string& reference) {
  return nomplat::MbsFind(reference, "\\") == std::string::npos &&
         nomplat::MbsFind(reference, "/") == std::string::npos &&
         nomplat::MbsFind(reference, ":") == std::string::npos && reference != "." &&
         reference != "..";
}

// The directory without trailing separators (a root keeps its own).
std::string WithoutTrailingSeparators(std::string dir) {
  while (dir.size() > 1 && (dir.back() == '\\' || dir.back() == '/')) {
    const std::string::size_type last = nomplat::MbsFindLast(dir, dir.back());
    if (last != dir.size() - 1) break;            // a trail byte, not a separator
    if (dir.size() == 3 && dir[1] == ':') break;  // "X:\"
    dir.pop_back();
  }
  return dir;
}

// Why the module path dir cannot be checked; "" when it is a directory. *native receives its
// native path.
std::string DirectoryProblem(const std::string& dir, std::string* native) {
  if (dir.empty()) return "expected a directory, got an empty path";
  DWORD error = 0;
  if (!nomplat::ToNativePath(dir, native, &error)) {
    return InQuotes(dir) + " cannot be mapped: " +
           (error == 3    ? std::string("drive not mapped (see --drive)")
            : error == 53 ? std::string("network share not mapped (see --share)")
                          : nomplat::DescribeWindowsError(error));
  }
  std::error_code ec;
  if (fs::is_directory(*native, ec)) return "";
  if (fs::exists(*native, ec)) return InQuotes(dir) + " is not a directory";
  return InQuotes(dir) + " does not exist";
}

// The names of the package documents directly in the native directory, in the process's code
// page, in byte order.
std::vector<std::string> PackageDocuments(const std::string& native_dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (fs::directory_iterator it(native_dir, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code type_ec;
    if (!it->is_regular_file(type_ec)) continue;
    const std::string name = nomplat::Utf8ToAcp(it->path().filename().string());
    if (IsPackageDocument(name)) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Appends the non-empty values of one attribute of the nodes, in their order.
void AppendValues(NOMZUBDOMWrapper& document, IXMLDOMNodeList* nodes, const char* attribute,
                  std::vector<std::string>* values) {
  long count = 0;
  if (nodes->get_length(&count) < 0) return;
  for (long i = 0; i < count; ++i) {
    IXMLDOMNode* node = nullptr;
    nodes->get_item(i, &node);
    if (node == nullptr) continue;
    std::string value;
    document.GetAttribute(node, attribute, value);
    if (!value.empty()) values->push_back(std::move(value));
    node->Release();
  }
}

// The non-empty values of attribute on every element named element, in document order.
std::vector<std::string> ElementValues(NOMZUBDOMWrapper& document, const char* element,
                                       const char* attribute) {
  std::vector<std::string> values;
  IXMLDOMNodeList* nodes = nullptr;
  document.GetNodes(element, &nodes);
  if (nodes == nullptr) return values;
  AppendValues(document, nodes, attribute, &values);
  nodes->Release();
  return values;
}

// The Document attribute of the root element, or "" when there is none.
std::string RootDocumentValue(NOMZUBDOMWrapper& document) {
  IXMLDOMNode* root = nullptr;
  if (document.GetRootNode(&root) != S_OK || root == nullptr) return "";
  std::string value;
  document.GetAttribute(root, "Document", value);
  root->Release();
  return value;
}

// What is wrong with a document the wrapper could not open (result hr).
std::string OpenProblem(HRESULT hr) {
  if ((static_cast<uint32_t>(hr) & 0xFFFF0000u) == 0x80070000u)
    return "cannot be read: " + nomplat::DescribeWindowsError(static_cast<DWORD>(hr) & 0xFFFFu);
  return "is not well-formed XML";
}

// Checks the references of one document of the package in dir.
class DocumentCheck {
 public:
  DocumentCheck(const std::string& dir, const std::string& name, VerifyResult* result)
      : dir_(dir), name_(name), result_(result) {}

  void Run() {
    NOMZUBDOMWrapper document;
    const HRESULT opened = document.OpenDocument(dir_ + "\\" + name_);
    if (opened < 0) {
      result_->unreadable.push_back({name_, OpenProblem(opened)});
      return;
    }
    for (const std::string& product : ElementValues(document, "CLitAssyGroup", "IsInstanceOf")) {
      if (Check(product, "") && IsBareName(product)) {
        Check(nomsoi::GeometryPathOf(product), product);
      }
    }
    for (const std::string& resource : ElementValues(document, "Resource", "File"))
      Check(resource, "");
    if (IsViewFile(name_)) {
      const std::string main_document = RootDocumentValue(document);
      if (!main_document.empty()) Check(main_document, "");
    }
  }

 private:
  // Checks one reference (geometry_of: the product document a geometry file belongs to, else
  // ""), once per document. True when it names a file that is there.
  bool Check(const std::string& reference, const std::string& geometry_of) {
    const auto seen = seen_.emplace(reference, geometry_of);
    if (!seen.second) return Present(reference);
    ++result_->references;
    if (!geometry_of.empty()) ++result_->geometry;
    if (!IsBareName(reference)) {
      result_->problems.push_back({VerifyProblemKind::kNotBare, name_, reference, geometry_of});
      return false;
    }
    if (Present(reference)) return true;
    result_->problems.push_back({VerifyProblemKind::kMissing, name_, reference, geometry_of});
    return false;
  }

  bool Present(const std::string& name) const {
    return IsBareName(name) && nomplat::CanOpenForReading(dir_ + "\\" + name);
  }

  const std::string& dir_;
  const std::string& name_;
  VerifyResult* result_;
  std::set<std::pair<std::string, std::string>> seen_;
};

}  // namespace

std::string VerifyProblem::Message() const {
  std::string message = "document " + InQuotes(document) + " references " + InQuotes(reference);
  if (!geometry_of.empty()) message += " (geometry of " + InQuotes(geometry_of) + ")";
  return message + (kind == VerifyProblemKind::kNotBare ? ": not a bare name" : ": missing");
}

VerifyResult VerifyPackage(const std::string& dir_path) {
  VerifyResult result;
  const std::string dir = WithoutTrailingSeparators(dir_path);
  std::string native;
  result.refused = DirectoryProblem(dir, &native);
  if (!result.refused.empty()) return result;
  result.documents = PackageDocuments(native);
  if (result.documents.empty()) {
    result.refused = InQuotes(dir) + " holds no package document (*.vgxXml or *.vgxView)";
    return result;
  }
  for (const std::string& name : result.documents) DocumentCheck(dir, name, &result).Run();
  return result;
}

}  // namespace nomsoi
