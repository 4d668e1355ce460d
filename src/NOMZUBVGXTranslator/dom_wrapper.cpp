// NOMZUBDOMWrapper over pugixml. Strings cross the wrapper in the process's code page and are
// stored in UTF-8; files are read and written through the current Env.
#include <strings.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <unordered_set>

#include "NOMZUBVGXTranslator/error_text.h"
#include "NOMZUBVGXTranslator/well_formed.h"
#include "NOMZUBVGXTranslator/xml_handles.h"
#include "platform/codepage.h"
#include "platform/env.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBLog.h"

using nomzub::DomCall;
using nomzub::XmlDocument;
using nomzub::XmlNode;

struct NOMZUBDOMWrapper::Impl {
  std::shared_ptr<XmlDocument> document;  // null: no document
  std::string path;                       // given to the last OpenDocument
  bool hooked = true;                     // false once OpenBytes made the wrapper private
};

namespace nomzub {

DomHook::~DomHook() = default;

namespace {

std::atomic<DomHook*> g_hook{nullptr};

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// The hook's answer for an operation of impl's wrapper; S_OK for a private wrapper.
HRESULT ConsultHook(const NOMZUBDOMWrapper::Impl& impl, DomCall call, const std::string& argument) {
  DomHook* hook = impl.hooked ? g_hook.load() : nullptr;
  return hook == nullptr ? S_OK : hook->Before(call, argument);
}

// Nulls the out argument and consults the hook; the operation goes on only for a result that is
// not negative.
template <typename Handle>
HRESULT Begin(const NOMZUBDOMWrapper::Impl& impl, DomCall call, const std::string& argument,
              Handle** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  return ConsultHook(impl, call, argument);
}

// The handle behind node when it is an element handle of this library, else null.
XmlNode* ElementHandle(IXMLDOMNode* node) {
  XmlNode* handle = node == nullptr ? nullptr : XmlNode::From(node);
  return handle != nullptr && handle->node().type() == pugi::node_element ? handle : nullptr;
}

// Calls visit(element) for every element named name below top, in document order, until visit
// returns false. Iterative, so that deep documents cannot exhaust the stack.
template <typename Visit>
void ForEachElementNamed(pugi::xml_node top, const char* name, Visit visit) {
  pugi::xml_node current = top.first_child();
  while (current) {
    if (current.type() == pugi::node_element) {
      if (std::strcmp(current.name(), name) == 0 && !visit(current)) return;
      if (pugi::xml_node child = current.first_child()) {
        current = child;
        continue;
      }
    }
    while (!current.next_sibling()) {
      current = current.parent();
      if (current == top) return;
    }
    current = current.next_sibling();
  }
}

// "\r\n" when the first line of the buffer ends so, else "\n".
const char* LineEndOf(const std::string& buffer) {
  const size_t newline = buffer.find('\n');
  return newline != std::string::npos && newline > 0 && buffer[newline - 1] == '\r' ? "\r\n" : "\n";
}

// Hands what pugixml writes to a file sink in pieces of about 64 KiB. The first error of the
// sink ends the writing: later pieces are dropped.
class SinkWriter : public pugi::xml_writer {
 public:
  explicit SinkWriter(const nomplat::ContentSource::Sink& sink) : sink_(sink) {
    buffer_.reserve(kPiece);
  }
  void write(const void* data, size_t size) override {
    buffer_.append(static_cast<const char*>(data), size);
    if (buffer_.size() >= kPiece) Flush();
  }
  // Writes what is buffered; returns 0 or the sink's first error.
  DWORD Flush() {
    if (error_ == 0 && !buffer_.empty()) error_ = sink_(buffer_.data(), buffer_.size());
    buffer_.clear();
    return error_;
  }

 private:
  static constexpr size_t kPiece = 64 * 1024;
  const nomplat::ContentSource::Sink& sink_;
  std::string buffer_;
  DWORD error_ = 0;
};

bool EqualsIgnoringCase(const char* a, const char* b) { return strcasecmp(a, b) == 0; }

void WriteText(pugi::xml_writer& writer, const char* text) { writer.write(text, strlen(text)); }

// Writes what SaveDoc saves: UTF-8 without a byte-order mark, starting with a declaration (the
// document's own, its encoding made UTF-8, or a standard one).
void WriteDocument(XmlDocument& document, pugi::xml_writer& writer) {
  const char* line_end = document.line_end;
  pugi::xml_node declaration = document.xml.first_child();
  if (declaration.type() == pugi::node_declaration) {
    pugi::xml_attribute encoding = declaration.attribute("encoding");
    if (encoding && !EqualsIgnoringCase(encoding.value(), "UTF-8")) encoding.set_value("UTF-8");
  } else {
    WriteText(writer, kDeclaration);
    WriteText(writer, line_end);
  }
  if (document.created) {
    document.xml.save(writer, "  ", pugi::format_indent | pugi::format_no_declaration,
                      pugi::encoding_utf8);
    return;
  }
  // Whitespace between top-level nodes is not part of the tree: each goes on a line of its own.
  for (pugi::xml_node child : document.xml.children()) {
    child.print(writer, "", pugi::format_raw, pugi::encoding_utf8);
    WriteText(writer, line_end);
  }
}

// The document as SaveDoc writes it, produced while the file is written: a large document is
// never held twice.
class DocumentSource : public nomplat::ContentSource {
 public:
  explicit DocumentSource(XmlDocument& document) : document_(document) {}
  DWORD WriteTo(const Sink& sink) override {
    SinkWriter writer(sink);
    WriteDocument(document_, writer);
    return writer.Flush();
  }

 private:
  XmlDocument& document_;
};

// The bytes of documents already found well-formed: a document read again unchanged (a shared
// sub-assembly, or a copy rewritten after it was walked) is parsed without its checks repeated,
// since they depend on nothing but the bytes. Small documents only, 1 MiB in all; forgotten
// all at once when full.
class CheckedDocuments {
 public:
  static CheckedDocuments& Instance() {
    static CheckedDocuments* const checked = new CheckedDocuments;  // used until exit
    return *checked;
  }

  // Whether documents of this size are recorded at all.
  static bool Records(const std::string& bytes) { return bytes.size() <= kLargest; }

  bool Contains(const std::string& bytes) {
    if (!Records(bytes)) return false;
    std::lock_guard<std::mutex> lock(mu_);
    return documents_.count(bytes) != 0;
  }

  void Add(const std::string& bytes) {
    if (!Records(bytes)) return;
    std::lock_guard<std::mutex> lock(mu_);
    if (total_ + bytes.size() > kBudget) {
      documents_.clear();
      total_ = 0;
    }
    if (documents_.insert(bytes).second) total_ += bytes.size();
  }

 private:
  static constexpr size_t kLargest = 64 * 1024;
  static constexpr size_t kBudget = 1u << 20;
  std::mutex mu_;
  std::unordered_set<std::string> documents_;
  size_t total_ = 0;
};

// Decodes, checks and parses document->buffer in place (the bytes of a file, as read) into
// document->xml. "" when the document is well-formed, else what is wrong with it.
std::string ParseBuffer(XmlDocument* document) {
  CheckedDocuments& checked = CheckedDocuments::Instance();
  const bool known_good = checked.Contains(document->buffer);
  // The bytes as read, kept for the record of good documents: the parse works in place.
  const bool record = !known_good && checked.Records(document->buffer);
  const std::string bytes = record ? document->buffer : std::string();
  // A document in another encoding than UTF-8 is read, checked and parsed in UTF-8.
  bool converted = false;
  std::string problem = DecodeXmlBytes(&document->buffer, &converted);
  if (problem.empty()) {
    document->line_end = LineEndOf(document->buffer);
    problem = ParseXmlText(&document->buffer, &document->xml, converted, known_good);
    if (problem.empty() && record) checked.Add(bytes);
  }
  return problem;
}

// Collects what a pugixml writer is given.
class StringWriter : public pugi::xml_writer {
 public:
  explicit StringWriter(std::string* out) : out_(out) {}
  void write(const void* data, size_t size) override {
    out_->append(static_cast<const char*>(data), size);
  }

 private:
  std::string* out_;
};

}  // namespace

DomHook* SetDomHook(DomHook* hook) { return g_hook.exchange(hook); }

bool DomHookInstalled() { return g_hook.load() != nullptr; }

}  // namespace nomzub

NOMZUBDOMWrapper::NOMZUBDOMWrapper() : impl_(std::make_shared<Impl>()) {}

NOMZUBDOMWrapper::~NOMZUBDOMWrapper() = default;

HRESULT NOMZUBDOMWrapper::OpenDocument(const std::string& path) {
  const HRESULT hook = nomzub::ConsultHook(*impl_, DomCall::kOpenDocument, path);
  if (hook < 0) return hook;
  impl_->path = path;
  impl_->document.reset();

  auto document = std::make_shared<XmlDocument>();
  if (const DWORD error = nomplat::CurrentEnv()->ReadFile(path, &document->buffer)) {
    nomzub::LogServiceError("Cannot read XML document " + path + ": " +
                            nomzub::DescribeWindowsError(error));
    return HRESULT_FROM_WIN32(error);
  }
  const std::string problem = nomzub::ParseBuffer(document.get());
  if (!problem.empty()) {
    nomzub::LogServiceError("Cannot parse XML document " + path + ": " + problem);
    return E_FAIL;
  }
  impl_->document = std::move(document);
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::OpenBytes(std::string bytes) {
  impl_->hooked = false;
  impl_->path.clear();
  impl_->document.reset();
  auto document = std::make_shared<XmlDocument>();
  document->buffer = std::move(bytes);
  if (!nomzub::ParseBuffer(document.get()).empty()) return E_FAIL;
  impl_->document = std::move(document);
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::CreateDocument() {
  const HRESULT hook = nomzub::ConsultHook(*impl_, DomCall::kCreateDocument, "");
  if (hook < 0) return hook;
  auto document = std::make_shared<XmlDocument>();
  document->created = true;
  impl_->document = std::move(document);
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::CreateRootNode(const std::string& name, IXMLDOMNode** node) {
  const HRESULT hook = nomzub::Begin(*impl_, DomCall::kCreateRootNode, name, node);
  if (hook < 0) return hook;
  if (!impl_->document || impl_->document->xml.document_element()) return E_FAIL;
  pugi::xml_node root = impl_->document->xml.append_child(nomplat::AcpToUtf8(name).c_str());
  *node = XmlNode::Create(impl_->document, root);
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::CreateChildNode(IXMLDOMNode* parent, const std::string& name,
                                          IXMLDOMNode** node) {
  const HRESULT hook = nomzub::Begin(*impl_, DomCall::kCreateChildNode, name, node);
  if (hook < 0) return hook;
  XmlNode* handle = nomzub::ElementHandle(parent);
  if (handle == nullptr || !impl_->document || handle->document() != impl_->document) {
    return E_INVALIDARG;
  }
  pugi::xml_node child = handle->node().append_child(nomplat::AcpToUtf8(name).c_str());
  *node = XmlNode::Create(impl_->document, child);
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::GetNode(const std::string& name, IXMLDOMNode** node, std::string attrName,
                                  std::string attrValue) {
  const HRESULT hook = nomzub::Begin(*impl_, DomCall::kGetNode, name, node);
  if (hook < 0) return hook;
  if (!impl_->document) return S_FALSE;
  const std::string attribute = nomplat::AcpToUtf8(attrName);
  const std::string value = nomplat::AcpToUtf8(attrValue);
  pugi::xml_node found;
  nomzub::ForEachElementNamed(impl_->document->xml, nomplat::AcpToUtf8(name).c_str(),
                              [&](pugi::xml_node element) {
                                pugi::xml_attribute a = element.attribute(attribute.c_str());
                                if (a && value == a.value()) found = element;
                                return !found;
                              });
  if (!found) return S_FALSE;
  *node = XmlNode::Create(impl_->document, found);
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::GetNodes(const std::string& name, IXMLDOMNodeList** list) {
  const HRESULT hook = nomzub::Begin(*impl_, DomCall::kGetNodes, name, list);
  if (hook < 0) return hook;
  if (!impl_->document) return E_FAIL;
  std::vector<pugi::xml_node> nodes;
  nomzub::ForEachElementNamed(impl_->document->xml, nomplat::AcpToUtf8(name).c_str(),
                              [&](pugi::xml_node element) {
                                nodes.push_back(element);
                                return true;
                              });
  *list = nomzub::XmlNodeList::Create(impl_->document, std::move(nodes));
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::GetChildNodes(IXMLDOMNode* node, IXMLDOMNodeList** list,
                                        std::string name) {
  const HRESULT hook = nomzub::Begin(*impl_, DomCall::kGetChildNodes, name, list);
  if (hook < 0) return hook;
  XmlNode* handle = nomzub::ElementHandle(node);
  if (handle == nullptr) return E_INVALIDARG;
  const std::string wanted = nomplat::AcpToUtf8(name);
  std::vector<pugi::xml_node> nodes;
  for (pugi::xml_node child : handle->node().children(wanted.c_str())) {
    if (child.type() == pugi::node_element) nodes.push_back(child);
  }
  *list = nomzub::XmlNodeList::Create(handle->document(), std::move(nodes));
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::GetAttribute(IXMLDOMNode* node, const std::string& name,
                                       std::string& value) {
  const HRESULT hook = nomzub::ConsultHook(*impl_, DomCall::kGetAttribute, name);
  if (hook < 0) return hook;
  XmlNode* handle = nomzub::ElementHandle(node);
  if (handle == nullptr) return E_INVALIDARG;
  pugi::xml_attribute attribute = handle->node().attribute(nomplat::AcpToUtf8(name).c_str());
  if (!attribute) return S_FALSE;
  value = nomplat::Utf8ToAcp(attribute.value());
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::AddAttribute(IXMLDOMNode* node, const std::string& name,
                                       const std::string& value) {
  const HRESULT hook = nomzub::ConsultHook(*impl_, DomCall::kAddAttribute, name);
  if (hook < 0) return hook;
  XmlNode* handle = nomzub::ElementHandle(node);
  if (handle == nullptr) return E_INVALIDARG;
  pugi::xml_node element = handle->node();
  const std::string xml_name = nomplat::AcpToUtf8(name);
  pugi::xml_attribute attribute = element.attribute(xml_name.c_str());
  if (!attribute) attribute = element.append_attribute(xml_name.c_str());
  attribute.set_value(nomplat::AcpToUtf8(value).c_str());
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::SaveDoc(const std::string& path) {
  const HRESULT hook = nomzub::ConsultHook(*impl_, DomCall::kSaveDoc, path);
  if (hook < 0) return hook;
  if (!impl_->document) {
    nomzub::LogServiceError("Cannot save XML document " + path + ": no document is open");
    return E_FAIL;
  }
  nomzub::DocumentSource source(*impl_->document);
  if (const DWORD error = nomplat::CurrentEnv()->WriteFileAtomicFrom(path, source)) {
    nomzub::LogServiceError("Cannot save XML document " + path + ": " +
                            nomzub::DescribeWindowsError(error));
    return HRESULT_FROM_WIN32(error);
  }
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::SaveBytes(std::string* bytes) {
  bytes->clear();
  if (!impl_->document) return E_FAIL;
  nomzub::StringWriter writer(bytes);
  nomzub::WriteDocument(*impl_->document, writer);
  return S_OK;
}

HRESULT NOMZUBDOMWrapper::GetRootNode(IXMLDOMNode** node) {
  if (node == nullptr) return E_POINTER;
  *node = nullptr;
  if (!impl_->document) return E_FAIL;
  pugi::xml_node root = impl_->document->xml.document_element();
  if (!root) return S_FALSE;
  *node = XmlNode::Create(impl_->document, root);
  return S_OK;
}

const std::string& NOMZUBDOMWrapper::DocumentPath() const { return impl_->path; }

bool NOMZUBDOMWrapper::HasDocument() const { return impl_->document != nullptr; }
