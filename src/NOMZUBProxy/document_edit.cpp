// DocumentEdit: the DOM wrapper's calls, their failures turned into one cause each.
#include "NOMZUBProxy/document_edit.h"

#include "platform/codepage.h"
#include "services/NOMZUBLog.h"

namespace nomzub::proxy {
namespace {

// Whether result carries a Windows error number (HRESULT_FROM_WIN32), and the number.
bool IsWindowsError(HRESULT result) {
  return (static_cast<uint32_t>(result) & 0xFFFF0000u) == 0x80070000u;
}
uint32_t WindowsError(HRESULT result) { return static_cast<uint32_t>(result) & 0xFFFFu; }

// Keeps the records logged while it lives (the wrapper's causes) from the log: a failure is
// reported once, as the caller's own cause.
class HeldLog : public LogSink {
 public:
  HeldLog() : previous_(SetLogSink(this)) {}
  ~HeldLog() override { SetLogSink(previous_); }
  HeldLog(const HeldLog&) = delete;
  HeldLog& operator=(const HeldLog&) = delete;
  void Write(const std::string& message, int32_t) override { last_ = message; }
  // What the last record said after "path: ", or the whole record when it does not name path.
  std::string CauseAbout(const std::string& path) const {
    const size_t at = last_.find(path + ": ");
    return at == std::string::npos ? last_ : last_.substr(at + path.size() + 2);
  }

 private:
  LogSink* previous_;
  std::string last_;
};

}  // namespace

bool DocumentEdit::Open(const std::string& path, std::string* error) {
  path_ = path;
  HeldLog held;
  const HRESULT result = dom_.OpenDocument(path);
  if (result == S_OK) {
    IXMLDOMNode* root = nullptr;
    if (dom_.GetRootNode(&root) == S_OK) root_.reset(root);
    return true;
  }
  if (IsWindowsError(result)) {
    *error = "cannot read " + path + " (error " + std::to_string(WindowsError(result)) + ")";
  } else {
    *error = path + " is not an XML document: " + held.CauseAbout(path);
  }
  return false;
}

bool DocumentEdit::Save(std::string* error) {
  if (spoiled_) {
    *error = "cannot edit " + path_ + ": the document wrapper refused a change";
    return false;
  }
  HRESULT result;
  {
    HeldLog held;
    result = dom_.SaveDoc(path_);
  }
  if (result == S_OK) return true;
  *error = "cannot write " + path_ + " (error " +
           std::to_string(IsWindowsError(result) ? WindowsError(result)
                                                 : static_cast<uint32_t>(result)) +
           ")";
  return false;
}

std::vector<Node> DocumentEdit::Children(IXMLDOMNode* parent, const char* name) {
  std::vector<Node> nodes;
  IXMLDOMNodeList* list = nullptr;
  if (parent == nullptr || !Check(dom_.GetChildNodes(parent, &list, name))) return nodes;
  long length = 0;
  list->get_length(&length);
  for (long i = 0; i < length; ++i) {
    IXMLDOMNode* item = nullptr;
    if (list->get_item(i, &item) == S_OK) nodes.emplace_back(item);
  }
  list->Release();
  return nodes;
}

Node DocumentEdit::Child(IXMLDOMNode* parent, const char* name) {
  std::vector<Node> nodes = Children(parent, name);
  return nodes.empty() ? Node() : std::move(nodes.front());
}

std::string DocumentEdit::Attribute(IXMLDOMNode* node, const char* name) {
  std::string value;
  return Check(dom_.GetAttribute(node, name, value)) ? nomplat::AcpToUtf8(value) : "";
}

void DocumentEdit::SetAttributes(
    IXMLDOMNode* element, std::initializer_list<std::pair<const char*, std::string>> attributes) {
  for (const auto& [name, value] : attributes) {
    Check(dom_.AddAttribute(element, name, nomplat::Utf8ToAcp(value)));
  }
}

bool DocumentEdit::Elements(IXMLDOMNode* parent, const char* name, size_t count,
                            std::vector<Node>* elements) {
  *elements = Children(parent, name);
  if (elements->size() > count) return false;
  while (elements->size() < count) {
    IXMLDOMNode* element = nullptr;
    if (!Check(dom_.CreateChildNode(parent, name, &element))) return true;
    elements->emplace_back(element);
  }
  return true;
}

Node DocumentEdit::Append(IXMLDOMNode* parent, const char* name) {
  IXMLDOMNode* element = nullptr;
  Check(dom_.CreateChildNode(parent, name, &element));
  return Node(element);
}

bool DocumentEdit::Check(HRESULT result) {
  if (result < 0) spoiled_ = true;
  return result >= 0;
}

}  // namespace nomzub::proxy
