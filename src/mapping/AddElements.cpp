// Filling one Entity element of the mapping file with its Name, IDPath and OID texts.
#include <utility>

#include "NOMSOIUtility.h"
#include "platform/codepage.h"
#include "services/NOMZUBDOMWrapper.h"

namespace {

// The value converted from the thread's code page to a BSTR (terminator excluded); null when the
// conversion could not be made.
BSTR ToBstr(const std::string& value) {
  const int needed = nomplat::MultiByteToWideChar(CP_THREAD_ACP, 0, value.c_str(), -1, nullptr, 0);
  if (needed <= 0) return nullptr;
  BSTR text = nomplat::SysAllocStringLen(nullptr, static_cast<UINT>(needed - 1));
  if (text != nullptr &&
      nomplat::MultiByteToWideChar(CP_THREAD_ACP, 0, value.c_str(), -1, text, needed) != needed) {
    nomplat::SysFreeString(text);
    text = nullptr;
  }
  return text;
}

// Owns the one BSTR reused for the three values; frees it when replaced and at the end, also when
// an exception passes.
class BstrHolder {
 public:
  BstrHolder() = default;
  ~BstrHolder() { nomplat::SysFreeString(text_); }
  BstrHolder(const BstrHolder&) = delete;
  BstrHolder& operator=(const BstrHolder&) = delete;
  void Reset(BSTR text) {
    nomplat::SysFreeString(text_);
    text_ = text;
  }
  BSTR get() const { return text_; }

 private:
  BSTR text_ = nullptr;
};

}  // namespace

HRESULT NOMSOIUtility::AddElements(NOMZUBDOMWrapper& doc, IXMLDOMNode* entity, std::string name,
                                   std::string identPath, std::string oid) {
  if (entity == nullptr) return E_INVALIDARG;
  const std::pair<const char*, const std::string*> children[] = {
      {"Name", &name}, {"IDPath", &identPath}, {"OID", &oid}};
  BstrHolder text;
  for (const auto& [tag, value] : children) {
    IXMLDOMNode* child = nullptr;
    doc.CreateChildNode(entity, tag, &child);
    if (child == nullptr) continue;
    text.Reset(ToBstr(*value));
    if (text.get() == nullptr) {
      child->Release();
      throw NOMOutOfMemory();
    }
    child->put_text(text.get());
    child->Release();
  }
  return S_OK;
}
