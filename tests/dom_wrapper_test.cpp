// The DOM wrapper and its node handles, on real files in a temporary directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/env.h"
#include "services/NOMZUBDOMWrapper.h"
#include "support/driver_fakes.h"
#include "support/test_support.h"

namespace {

using nomtest::LogCapture;
using nomtest::LogLine;
using nomtest::ReadFile;
using nomtest::TempDir;
using nomtest::WriteFile;
using nomtest::ZPath;
using nomzub::DomCall;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

// Releases a handle at the end of a scope.
template <typename Handle>
struct Held {
  Handle* handle = nullptr;
  ~Held() {
    if (handle != nullptr) handle->Release();
  }
  Handle** out() { return &handle; }
  Handle* get() const { return handle; }
};

class DomWrapperTest : public ::testing::Test {
 protected:
  // Writes contents to name in the temporary directory and returns its module path.
  std::string Write(const std::string& name, const std::string& contents) {
    WriteFile(dir_.Sub(name), contents);
    return ZPath(dir_.Sub(name));
  }
  // Writes and opens a document, expecting success.
  std::string Open(NOMZUBDOMWrapper& doc, const std::string& contents) {
    const std::string path = Write("doc.xml", contents);
    EXPECT_EQ(doc.OpenDocument(path), S_OK);
    return path;
  }
  // The values of attribute name on each node of list, in list order ("-" where absent).
  static std::vector<std::string> Values(NOMZUBDOMWrapper& doc, IXMLDOMNodeList* list,
                                         const std::string& name) {
    std::vector<std::string> values;
    long length = 0;
    EXPECT_EQ(list->get_length(&length), S_OK);
    for (long i = 0; i < length; ++i) {
      Held<IXMLDOMNode> node;
      EXPECT_EQ(list->get_item(i, node.out()), S_OK);
      std::string value = "-";
      doc.GetAttribute(node.get(), name, value);
      values.push_back(value);
    }
    return values;
  }
  // The text SaveDoc writes for doc.
  std::string Saved(NOMZUBDOMWrapper& doc) {
    const std::string path = ZPath(dir_.Sub("saved.xml"));
    EXPECT_EQ(doc.SaveDoc(path), S_OK);
    return ReadFile(dir_.Sub("saved.xml"));
  }

  TempDir dir_;
  LogCapture log_;
};

TEST_F(DomWrapperTest, OpenDocument_ExistingFile_HoldsDocumentAndPath) {
  NOMZUBDOMWrapper doc;
  EXPECT_FALSE(doc.HasDocument());
  EXPECT_EQ(doc.DocumentPath(), "");
  const std::string path = Open(doc, "<a/>");
  EXPECT_TRUE(doc.HasDocument());
  EXPECT_EQ(doc.DocumentPath(), path);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DomWrapperTest, OpenDocument_MissingFile_FailsWithFileNotFound) {
  NOMZUBDOMWrapper doc;
  const std::string path = ZPath(dir_.Sub("missing.xml"));
  EXPECT_EQ(doc.OpenDocument(path), HRESULT_FROM_WIN32(2));
  EXPECT_FALSE(doc.HasDocument());
  EXPECT_EQ(doc.DocumentPath(), path);
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "****** ERROR:\t Cannot read XML document " + path +
                                         ": Windows error 2 (file not found)"}));
}

TEST_F(DomWrapperTest, OpenDocument_MalformedXml_FailsAndLogsParserCause) {
  NOMZUBDOMWrapper doc;
  const std::string path = Write("bad.xml", "<a><b></a>");
  EXPECT_EQ(doc.OpenDocument(path), E_FAIL);
  EXPECT_FALSE(doc.HasDocument());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "****** ERROR:\t Cannot parse XML document " + path +
                                         ": Start-end tags mismatch at offset 8"}));
}

TEST_F(DomWrapperTest, OpenDocument_EmptyFile_FailsWithoutDocumentElement) {
  NOMZUBDOMWrapper doc;
  const std::string path = Write("empty.xml", "");
  EXPECT_EQ(doc.OpenDocument(path), E_FAIL);
  EXPECT_FALSE(doc.HasDocument());
  EXPECT_THAT(log_.messages(2), ElementsAre("****** ERROR:\t Cannot parse XML document " + path +
                                            ": No document element found at offset 0"));
}

// Documents pugixml would take but XML forbids are refused like any other malformed one.
class DomWrapperWellFormedTest : public DomWrapperTest {
 protected:
  // Opens text and returns the level-2 cause, after checking that the opening failed.
  std::string Refusal(const std::string& text) {
    NOMZUBDOMWrapper doc;
    const std::string path = Write("bad.xml", text);
    EXPECT_EQ(doc.OpenDocument(path), E_FAIL);
    EXPECT_FALSE(doc.HasDocument());
    const std::vector<std::string> lines = log_.messages(2);
    const std::string prefix = "****** ERROR:\t Cannot parse XML document " + path + ": ";
    if (lines.size() != 1 || lines[0].compare(0, prefix.size(), prefix) != 0) return "<no cause>";
    return lines[0].substr(prefix.size());
  }
};

TEST_F(DomWrapperWellFormedTest, OpenDocument_BareAmpersand_Refused) {
  EXPECT_EQ(Refusal("<a Name=\"R&D\"/>"), "'&' starts no reference at offset 10");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_UndefinedEntityInText_Refused) {
  EXPECT_EQ(Refusal("<a>&nbsp;</a>"), "'&' starts no reference at offset 3");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_LessThanInAttributeValue_Refused) {
  EXPECT_EQ(Refusal("<a b='x<y'/>"), "'<' in an attribute value at offset 7");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_CdataEndInText_Refused) {
  EXPECT_EQ(Refusal("<a>x]]>y</a>"), "']]>' in text at offset 4");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_TwoDocumentElements_Refused) {
  EXPECT_EQ(Refusal("<a/><b/>"), "more than one document element");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_TextAfterDocumentElement_Refused) {
  EXPECT_EQ(Refusal("<a/>\ntrailing\n"), "text outside the document element at offset 5");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_DuplicateAttribute_Refused) {
  EXPECT_EQ(Refusal("<a><b x='1' x='2'/></a>"), "attribute 'x' twice on element 'b'");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_SameRefusedBytesTwice_RefusedBothTimes) {
  EXPECT_EQ(Refusal("<a><b y='1' y='2'/></a>"), "attribute 'y' twice on element 'b'");
  log_.clear();
  EXPECT_EQ(Refusal("<a><b y='1' y='2'/></a>"), "attribute 'y' twice on element 'b'");
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_FlawAddedAfterGoodOpening_Refused) {
  // A document opened once and found good is not taken as good once its bytes change.
  NOMZUBDOMWrapper first;
  ASSERT_EQ(first.OpenDocument(Write("bad.xml", "<a><b z='1'/></a>")), S_OK);
  EXPECT_EQ(Refusal("<a><b z='1' z='2'/></a>"), "attribute 'z' twice on element 'b'");
}

TEST_F(DomWrapperTest, OpenDocument_SameGoodBytesTwice_BothHoldTheTree) {
  const std::string text = "<a><b n='1'/><b n='2'/></a>";
  NOMZUBDOMWrapper first, second;
  Open(first, text);
  Open(second, text);
  for (NOMZUBDOMWrapper* doc : {&first, &second}) {
    Held<IXMLDOMNodeList> list;
    ASSERT_EQ(doc->GetNodes("b", list.out()), S_OK);
    EXPECT_THAT(Values(*doc, list.get(), "n"), ElementsAre("1", "2"));
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_ReferencesCommentsAndCdata_Accepted) {
  NOMZUBDOMWrapper doc;
  const std::string text =
      "<?xml version=\"1.0\"?>\n<!-- R&D < x -->\n<a n=\"&amp;&lt;&#65;&#x42;&quot;&apos;&gt;\">"
      "<![CDATA[ & < ]]>&amp;<?pi & ?></a>\n";
  const std::string path = Write("good.xml", text);
  ASSERT_EQ(doc.OpenDocument(path), S_OK);
  IXMLDOMNode* a = nullptr;
  ASSERT_EQ(doc.GetNode("a", &a, "n", "&<AB\"'>"), S_OK);
  ASSERT_NE(a, nullptr);
  a->Release();
  EXPECT_TRUE(log_.messages(2).empty());
}

TEST_F(DomWrapperWellFormedTest, OpenDocument_InternalSubsetEntity_Accepted) {
  NOMZUBDOMWrapper doc;
  const std::string path =
      Write("dtd.xml", "<!DOCTYPE a [<!ENTITY co \"R&amp;D\">]>\n<a>&co;</a>\n");
  EXPECT_EQ(doc.OpenDocument(path), S_OK);
}

TEST_F(DomWrapperTest, OpenDocument_FailureDropsEarlierDocument) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<a/>");
  EXPECT_LT(doc.OpenDocument(ZPath(dir_.Sub("missing.xml"))), 0);
  EXPECT_FALSE(doc.HasDocument());
  Held<IXMLDOMNodeList> list;
  EXPECT_EQ(doc.GetNodes("a", list.out()), E_FAIL);
  EXPECT_EQ(list.get(), nullptr);
}

TEST_F(DomWrapperTest, SaveDoc_AfterFailedOpen_FailsAndLeavesFileUntouched) {
  NOMZUBDOMWrapper doc;
  const std::string path = Write("bad.xml", "<a><b></a>");
  EXPECT_EQ(doc.OpenDocument(path), E_FAIL);
  log_.clear();
  EXPECT_EQ(doc.SaveDoc(path), E_FAIL);
  EXPECT_EQ(ReadFile(dir_.Sub("bad.xml")), "<a><b></a>");
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "****** ERROR:\t Cannot save XML document " +
                                                       path + ": no document is open"}));
}

TEST_F(DomWrapperTest, SaveDoc_FreshWrapper_WritesNothing) {
  NOMZUBDOMWrapper doc;
  EXPECT_EQ(doc.SaveDoc(ZPath(dir_.Sub("out.xml"))), E_FAIL);
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("out.xml")));
}

TEST_F(DomWrapperTest, CreateDocument_BuiltTreeIsSavedIndented) {
  NOMZUBDOMWrapper doc;
  ASSERT_EQ(doc.CreateDocument(), S_OK);
  Held<IXMLDOMNode> root, entity, name, oid;
  ASSERT_EQ(doc.CreateRootNode("Root", root.out()), S_OK);
  EXPECT_EQ(doc.AddAttribute(root.get(), "Schema", "2"), S_OK);
  ASSERT_EQ(doc.CreateChildNode(root.get(), "Entity", entity.out()), S_OK);
  ASSERT_EQ(doc.CreateChildNode(entity.get(), "Name", name.out()), S_OK);
  ASSERT_EQ(doc.CreateChildNode(entity.get(), "OID", oid.out()), S_OK);
  std::u16string text = u"a&b<c#";
  BSTR bstr = nomplat::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  EXPECT_EQ(name.get()->put_text(bstr), S_OK);
  nomplat::SysFreeString(bstr);
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) +
                            "\n"
                            "<Root Schema=\"2\">\n"
                            "  <Entity>\n"
                            "    <Name>a&amp;b&lt;c#</Name>\n"
                            "    <OID />\n"
                            "  </Entity>\n"
                            "</Root>\n");
}

TEST_F(DomWrapperTest, CreateDocument_ReplacesOpenedDocument) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<a><b/></a>");
  ASSERT_EQ(doc.CreateDocument(), S_OK);
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("b", list.out()), S_OK);
  long length = -1;
  list.get()->get_length(&length);
  EXPECT_EQ(length, 0);
}

TEST_F(DomWrapperTest, CreateRootNode_WithoutDocument_FailsWithNullNode) {
  NOMZUBDOMWrapper doc;
  Held<IXMLDOMNode> root;
  EXPECT_EQ(doc.CreateRootNode("Root", root.out()), E_FAIL);
  EXPECT_EQ(root.get(), nullptr);
}

TEST_F(DomWrapperTest, CreateRootNode_SecondRoot_FailsWithNullNode) {
  NOMZUBDOMWrapper doc;
  doc.CreateDocument();
  Held<IXMLDOMNode> first, second;
  ASSERT_EQ(doc.CreateRootNode("Root", first.out()), S_OK);
  EXPECT_EQ(doc.CreateRootNode("Other", second.out()), E_FAIL);
  EXPECT_EQ(second.get(), nullptr);
}

TEST_F(DomWrapperTest, CreateChildNode_AppendsAfterExistingChildren) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<L><C n=\"1\"/><C n=\"2\"/></L>");
  Held<IXMLDOMNode> list_node, added;
  ASSERT_EQ(doc.GetRootNode(list_node.out()), S_OK);
  ASSERT_EQ(doc.CreateChildNode(list_node.get(), "C", added.out()), S_OK);
  doc.AddAttribute(added.get(), "n", "3");
  Held<IXMLDOMNodeList> children;
  ASSERT_EQ(doc.GetChildNodes(list_node.get(), children.out(), "C"), S_OK);
  EXPECT_THAT(Values(doc, children.get(), "n"), ElementsAre("1", "2", "3"));
}

TEST_F(DomWrapperTest, CreateChildNode_NullParent_InvalidArg) {
  NOMZUBDOMWrapper doc;
  doc.CreateDocument();
  Held<IXMLDOMNode> child;
  EXPECT_EQ(doc.CreateChildNode(nullptr, "C", child.out()), E_INVALIDARG);
  EXPECT_EQ(child.get(), nullptr);
}

TEST_F(DomWrapperTest, CreateChildNode_ParentOfAnotherDocument_InvalidArg) {
  NOMZUBDOMWrapper first, second;
  first.CreateDocument();
  second.CreateDocument();
  Held<IXMLDOMNode> root, child;
  ASSERT_EQ(first.CreateRootNode("Root", root.out()), S_OK);
  EXPECT_EQ(second.CreateChildNode(root.get(), "C", child.out()), E_INVALIDARG);
  EXPECT_EQ(child.get(), nullptr);
}

// A node handle made by some other implementation of the interface.
class ForeignNode : public IXMLDOMNode {
 public:
  ~ForeignNode() override = default;
  ULONG AddRef() override { return 1; }
  ULONG Release() override { return 1; }
  HRESULT put_text(BSTR) override { return S_OK; }
};

TEST_F(DomWrapperTest, Operations_ForeignHandle_InvalidArg) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R/>");
  ForeignNode foreign;
  Held<IXMLDOMNode> child;
  Held<IXMLDOMNodeList> children;
  std::string value = "kept";
  EXPECT_EQ(doc.CreateChildNode(&foreign, "C", child.out()), E_INVALIDARG);
  EXPECT_EQ(doc.GetChildNodes(&foreign, children.out(), "C"), E_INVALIDARG);
  EXPECT_EQ(doc.GetAttribute(&foreign, "a", value), E_INVALIDARG);
  EXPECT_EQ(doc.AddAttribute(&foreign, "a", "1"), E_INVALIDARG);
  EXPECT_EQ(child.get(), nullptr);
  EXPECT_EQ(children.get(), nullptr);
  EXPECT_EQ(value, "kept");
}

TEST_F(DomWrapperTest, GetNode_FindsFirstMatchInDocumentOrderAtAnyDepth) {
  NOMZUBDOMWrapper doc;
  Open(doc,
       "<A><G Ident=\"x\" n=\"1\"><G Ident=\"y\" n=\"2\"/></G>"
       "<B><G Ident=\"y\" n=\"3\"/></B></A>");
  Held<IXMLDOMNode> node;
  ASSERT_EQ(doc.GetNode("G", node.out(), "Ident", "y"), S_OK);
  std::string n;
  EXPECT_EQ(doc.GetAttribute(node.get(), "n", n), S_OK);
  EXPECT_EQ(n, "2");
}

TEST_F(DomWrapperTest, GetNode_NoMatch_SFalseAndNullNode) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<A><G Ident=\"x\"/><H Ident=\"y\"/></A>");
  Held<IXMLDOMNode> node;
  EXPECT_EQ(doc.GetNode("G", node.out(), "Ident", "y"), S_FALSE);
  EXPECT_EQ(node.get(), nullptr);
}

TEST_F(DomWrapperTest, GetNode_AbsentAttributeDoesNotMatchEmptyValue) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<A><G/><G Ident=\"\" n=\"2\"/></A>");
  Held<IXMLDOMNode> node;
  ASSERT_EQ(doc.GetNode("G", node.out(), "Ident", ""), S_OK);
  std::string n;
  doc.GetAttribute(node.get(), "n", n);
  EXPECT_EQ(n, "2");
}

TEST_F(DomWrapperTest, GetNode_WithoutDocument_SFalseAndNullNode) {
  NOMZUBDOMWrapper doc;
  Held<IXMLDOMNode> node;
  EXPECT_EQ(doc.GetNode("G", node.out(), "Ident", "x"), S_FALSE);
  EXPECT_EQ(node.get(), nullptr);
}

TEST_F(DomWrapperTest, GetNodes_ReturnsEveryMatchInDocumentOrder) {
  NOMZUBDOMWrapper doc;
  Open(doc,
       "<G n=\"1\"><X><G n=\"2\"><G n=\"3\"/></G></X><!-- <G n=\"c\"/> -->"
       "<G n=\"4\"/>text<Y/></G>");
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("G", list.out()), S_OK);
  EXPECT_THAT(Values(doc, list.get(), "n"), ElementsAre("1", "2", "3", "4"));
}

TEST_F(DomWrapperTest, GetNodes_DeeplyNestedDocument_ReturnsEveryLevel) {
  constexpr int kDepth = 20000;
  std::string text;
  for (int i = 0; i < kDepth; ++i) text += "<G>";
  for (int i = 0; i < kDepth; ++i) text += "</G>";
  NOMZUBDOMWrapper doc;
  Open(doc, text);
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("G", list.out()), S_OK);
  long length = 0;
  list.get()->get_length(&length);
  EXPECT_EQ(length, kDepth);
}

TEST_F(DomWrapperTest, GetNodes_NoMatch_EmptyList) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<A><B/></A>");
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("G", list.out()), S_OK);
  ASSERT_NE(list.get(), nullptr);
  long length = -1;
  EXPECT_EQ(list.get()->get_length(&length), S_OK);
  EXPECT_EQ(length, 0);
}

TEST_F(DomWrapperTest, GetNodes_WithoutDocument_EFailAndNullList) {
  NOMZUBDOMWrapper doc;
  Held<IXMLDOMNodeList> list;
  EXPECT_EQ(doc.GetNodes("G", list.out()), E_FAIL);
  EXPECT_EQ(list.get(), nullptr);
}

TEST_F(DomWrapperTest, GetChildNodes_ReturnsDirectChildrenOfThatNameOnly) {
  NOMZUBDOMWrapper doc;
  Open(doc,
       "<R><L><C n=\"1\"/><X n=\"x\"/><C n=\"2\"><C n=\"nested\"/></C>text<C n=\"3\"/></L>"
       "<C n=\"outside\"/></R>");
  Held<IXMLDOMNode> list_node;
  Held<IXMLDOMNodeList> groups;
  ASSERT_EQ(doc.GetNodes("L", groups.out()), S_OK);
  ASSERT_EQ(groups.get()->get_item(0, list_node.out()), S_OK);
  Held<IXMLDOMNodeList> children;
  ASSERT_EQ(doc.GetChildNodes(list_node.get(), children.out(), "C"), S_OK);
  EXPECT_THAT(Values(doc, children.get(), "n"), ElementsAre("1", "2", "3"));
}

TEST_F(DomWrapperTest, GetChildNodes_NullNode_InvalidArgAndNullList) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R/>");
  Held<IXMLDOMNodeList> children;
  EXPECT_EQ(doc.GetChildNodes(nullptr, children.out(), "C"), E_INVALIDARG);
  EXPECT_EQ(children.get(), nullptr);
}

TEST_F(DomWrapperTest, NodeList_ItemOutOfRange_SFalseAndNull) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R><C/></R>");
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("C", list.out()), S_OK);
  IXMLDOMNode* item = reinterpret_cast<IXMLDOMNode*>(&doc);  // any non-null value
  EXPECT_EQ(list.get()->get_item(1, &item), S_FALSE);
  EXPECT_EQ(item, nullptr);
  item = reinterpret_cast<IXMLDOMNode*>(&doc);
  EXPECT_EQ(list.get()->get_item(-1, &item), S_FALSE);
  EXPECT_EQ(item, nullptr);
}

TEST_F(DomWrapperTest, NodeList_NullOutPointers_EPointer) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R><C/></R>");
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("C", list.out()), S_OK);
  EXPECT_EQ(list.get()->get_length(nullptr), E_POINTER);
  EXPECT_EQ(list.get()->get_item(0, nullptr), E_POINTER);
}

TEST_F(DomWrapperTest, GetAttribute_Present_CopiesValue) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R IsInstanceOf=\"..\\Geo\\Part.vgxXml\"/>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  std::string value = "old";
  EXPECT_EQ(doc.GetAttribute(root.get(), "IsInstanceOf", value), S_OK);
  EXPECT_EQ(value, "..\\Geo\\Part.vgxXml");
}

TEST_F(DomWrapperTest, GetAttribute_Absent_SFalseAndValueUnchanged) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R Other=\"x\"/>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  std::string value = "kept";
  EXPECT_EQ(doc.GetAttribute(root.get(), "IsInstanceOf", value), S_FALSE);
  EXPECT_EQ(value, "kept");
}

TEST_F(DomWrapperTest, GetAttribute_NullNode_InvalidArgAndValueUnchanged) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R/>");
  std::string value = "kept";
  EXPECT_EQ(doc.GetAttribute(nullptr, "a", value), E_INVALIDARG);
  EXPECT_EQ(value, "kept");
}

TEST_F(DomWrapperTest, AddAttribute_AbsentAttribute_IsAdded) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R a=\"1\"/>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  EXPECT_EQ(doc.AddAttribute(root.get(), "b", "x&\"y"), S_OK);
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<R a=\"1\" b=\"x&amp;&quot;y\"/>\n");
}

TEST_F(DomWrapperTest, AddAttribute_PresentAttribute_IsReplacedInPlace) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R a=\"1\" b=\"2\"/>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  EXPECT_EQ(doc.AddAttribute(root.get(), "a", "3"), S_OK);
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<R a=\"3\" b=\"2\"/>\n");
}

TEST_F(DomWrapperTest, AddAttribute_NullNode_InvalidArg) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R/>");
  EXPECT_EQ(doc.AddAttribute(nullptr, "a", "1"), E_INVALIDARG);
}

TEST_F(DomWrapperTest, SaveDoc_UnchangedDocumentComesBackByteForByte) {
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- package -->\n"
      "<VgxDocument>\n"
      "\t<CLitAssyGroup Ident=\"ProductList\">\n"
      "\t\t<CLitAssyGroup Name=\"a &amp; b\" IsInstanceOf=\"..\\Geo\\Part.vgxXml\"/>\n"
      "\t\t<Text>  spaced  </Text>\n"
      "\t</CLitAssyGroup>\n"
      "</VgxDocument>\n";
  NOMZUBDOMWrapper doc;
  const std::string path = Open(doc, text);
  EXPECT_EQ(doc.SaveDoc(path), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("doc.xml")), text);
}

TEST_F(DomWrapperTest, SaveDoc_WindowsLineEndsAreKept) {
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<R>\r\n  <C a=\"1\"/>\r\n</R>\r\n";
  NOMZUBDOMWrapper doc;
  const std::string path = Open(doc, text);
  EXPECT_EQ(doc.SaveDoc(path), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("doc.xml")), text);
}

TEST_F(DomWrapperTest, SaveDoc_ChangedAttributeKeepsTheRestOfTheText) {
  NOMZUBDOMWrapper doc;
  const std::string path =
      Open(doc,
           "<?xml version=\"1.0\"?>\n<R>\n  <C IsInstanceOf=\"C:/Lib/Bolt.vgxXml\"/>\n"
           "  <C IsInstanceOf=\"Nut.vgxXml\"/>\n</R>\n");
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("C", list.out()), S_OK);
  Held<IXMLDOMNode> first;
  ASSERT_EQ(list.get()->get_item(0, first.out()), S_OK);
  doc.AddAttribute(first.get(), "IsInstanceOf", "Bolt.vgxXml");
  EXPECT_EQ(doc.SaveDoc(path), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("doc.xml")),
            "<?xml version=\"1.0\"?>\n<R>\n  <C IsInstanceOf=\"Bolt.vgxXml\"/>\n"
            "  <C IsInstanceOf=\"Nut.vgxXml\"/>\n</R>\n");
}

TEST_F(DomWrapperTest, SaveDoc_DocumentWithoutDeclarationGainsOne) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R>\n  <C/>\n</R>");
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<R>\n  <C/>\n</R>\n");
}

TEST_F(DomWrapperTest, SaveDoc_Latin1DocumentIsWrittenAsUtf8) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<R v=\"caf\xE9\"/>\n");
  EXPECT_EQ(Saved(doc), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<R v=\"caf\xC3\xA9\"/>\n");
}

TEST_F(DomWrapperTest, SaveDoc_SavedDocumentParsesBackToTheSameTree) {
  NOMZUBDOMWrapper doc;
  doc.CreateDocument();
  Held<IXMLDOMNode> root, child;
  ASSERT_EQ(doc.CreateRootNode("Root", root.out()), S_OK);
  ASSERT_EQ(doc.CreateChildNode(root.get(), "View", child.out()), S_OK);
  doc.AddAttribute(child.get(), "Ident", "V<1>");
  doc.AddAttribute(child.get(), "Name", "a\"b'c&d");
  const std::string path = ZPath(dir_.Sub("m.xml"));
  ASSERT_EQ(doc.SaveDoc(path), S_OK);

  NOMZUBDOMWrapper back;
  ASSERT_EQ(back.OpenDocument(path), S_OK);
  Held<IXMLDOMNodeList> views;
  ASSERT_EQ(back.GetNodes("View", views.out()), S_OK);
  EXPECT_THAT(Values(back, views.get(), "Ident"), ElementsAre("V<1>"));
  EXPECT_THAT(Values(back, views.get(), "Name"), ElementsAre("a\"b'c&d"));
}

TEST_F(DomWrapperTest, SaveDoc_ReadOnlyTarget_AccessDeniedAndFileKept) {
  NOMZUBDOMWrapper doc;
  const std::string path = Open(doc, "<R a=\"1\"/>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  doc.AddAttribute(root.get(), "a", "2");
  ASSERT_EQ(chmod(dir_.Sub("doc.xml").c_str(), 0444), 0);
  log_.clear();
  EXPECT_EQ(doc.SaveDoc(path), E_ACCESSDENIED);
  EXPECT_EQ(ReadFile(dir_.Sub("doc.xml")), "<R a=\"1\"/>");
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "****** ERROR:\t Cannot save XML document " + path +
                                         ": Windows error 5 (access denied)"}));
}

TEST_F(DomWrapperTest, SaveDoc_WriteFailure_ReturnsItsError) {
  NOMZUBDOMWrapper doc;
  const std::string path = Open(doc, "<R/>");
  nomplat::FaultInjectionEnv env(nomplat::Env::Default());
  env.FailOn(nomplat::FaultInjectionEnv::kWriteFileAtomic, 1, 112);
  nomplat::ScopedEnv scoped(&env);
  EXPECT_EQ(doc.SaveDoc(path), HRESULT_FROM_WIN32(112));
  EXPECT_EQ(env.Count(nomplat::FaultInjectionEnv::kWriteFileAtomic), 1);
  EXPECT_EQ(ReadFile(dir_.Sub("doc.xml")), "<R/>");
  EXPECT_THAT(log_.messages(2), ElementsAre("****** ERROR:\t Cannot save XML document " + path +
                                            ": Windows error 112 (disk full)"));
}

TEST_F(DomWrapperTest, OpenDocument_ReadsThroughCurrentEnv) {
  const std::string path = Write("doc.xml", "<R/>");
  nomplat::FaultInjectionEnv env(nomplat::Env::Default());
  env.FailOn(nomplat::FaultInjectionEnv::kReadFile, 1, 5);
  nomplat::ScopedEnv scoped(&env);
  NOMZUBDOMWrapper doc;
  EXPECT_EQ(doc.OpenDocument(path), E_ACCESSDENIED);
  EXPECT_EQ(env.Count(nomplat::FaultInjectionEnv::kReadFile), 1);
  EXPECT_FALSE(doc.HasDocument());
}

TEST_F(DomWrapperTest, GetRootNode_WithoutDocument_EFail) {
  NOMZUBDOMWrapper doc;
  Held<IXMLDOMNode> root;
  EXPECT_EQ(doc.GetRootNode(root.out()), E_FAIL);
  EXPECT_EQ(root.get(), nullptr);
}

TEST_F(DomWrapperTest, GetRootNode_EmptyCreatedDocument_SFalse) {
  NOMZUBDOMWrapper doc;
  doc.CreateDocument();
  Held<IXMLDOMNode> root;
  EXPECT_EQ(doc.GetRootNode(root.out()), S_FALSE);
  EXPECT_EQ(root.get(), nullptr);
}

TEST_F(DomWrapperTest, Handle_ReferenceCountStartsAtOne) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R/>");
  IXMLDOMNode* root = nullptr;
  ASSERT_EQ(doc.GetRootNode(&root), S_OK);
  EXPECT_EQ(root->AddRef(), 2u);
  EXPECT_EQ(root->Release(), 1u);
  EXPECT_EQ(root->Release(), 0u);
}

TEST_F(DomWrapperTest, Handle_OutlivesItsWrapper) {
  IXMLDOMNodeList* list = nullptr;
  IXMLDOMNode* node = nullptr;
  {
    NOMZUBDOMWrapper doc;
    Open(doc, "<R><C a=\"1\"/><C a=\"2\"/></R>");
    ASSERT_EQ(doc.GetNodes("C", &list), S_OK);
    ASSERT_EQ(doc.GetRootNode(&node), S_OK);
  }
  NOMZUBDOMWrapper other;
  EXPECT_THAT(Values(other, list, "a"), ElementsAre("1", "2"));
  EXPECT_EQ(other.AddAttribute(node, "b", "x"), S_OK);
  std::string b;
  EXPECT_EQ(other.GetAttribute(node, "b", b), S_OK);
  EXPECT_EQ(b, "x");
  list->Release();
  node->Release();
}

TEST_F(DomWrapperTest, Handle_OutlivesReplacedDocument) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R a=\"old\"/>");
  Held<IXMLDOMNode> old_root;
  ASSERT_EQ(doc.GetRootNode(old_root.out()), S_OK);
  doc.CreateDocument();
  std::string a;
  EXPECT_EQ(doc.GetAttribute(old_root.get(), "a", a), S_OK);
  EXPECT_EQ(a, "old");
}

TEST_F(DomWrapperTest, PutText_ReplacesCharacterData) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R><N>old<!-- c --></N></R>");
  Held<IXMLDOMNode> n;
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(doc.GetNodes("N", list.out()), S_OK);
  ASSERT_EQ(list.get()->get_item(0, n.out()), S_OK);
  const std::u16string text = u"P#Q#";
  BSTR bstr = nomplat::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  EXPECT_EQ(n.get()->put_text(bstr), S_OK);
  nomplat::SysFreeString(bstr);
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<R><N>P#Q#</N></R>\n");
}

TEST_F(DomWrapperTest, PutText_NullText_EmptiesElement) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R>old</R>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  EXPECT_EQ(root.get()->put_text(nullptr), S_OK);
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<R/>\n");
}

TEST_F(DomWrapperTest, PutText_ElementWithChildElements_FailsAndKeepsThem) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R><C/></R>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  const std::u16string text = u"x";
  BSTR bstr = nomplat::SysAllocStringLen(text.data(), 1);
  EXPECT_EQ(root.get()->put_text(bstr), E_FAIL);
  nomplat::SysFreeString(bstr);
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<R><C/></R>\n");
}

TEST_F(DomWrapperTest, Hook_SeesEachOperationWithItsMainArgument) {
  nomtest::RecordingDomHook hook;
  NOMZUBDOMWrapper doc;
  const std::string path = Write("doc.xml", "<R/>");
  doc.OpenDocument(path);
  Held<IXMLDOMNode> root, node, child;
  Held<IXMLDOMNodeList> nodes, children;
  doc.GetRootNode(root.out());
  doc.GetNode("R", node.out(), "Ident", "x");
  doc.GetNodes("C", nodes.out());
  doc.GetChildNodes(root.get(), children.out(), "D");
  std::string value;
  doc.GetAttribute(root.get(), "a", value);
  doc.AddAttribute(root.get(), "b", "1");
  doc.CreateChildNode(root.get(), "E", child.out());
  doc.SaveDoc(path);
  doc.CreateDocument();
  doc.CreateRootNode("F", node.out());
  using P = nomtest::DomCallRecord;
  EXPECT_THAT(hook.records(),
              ElementsAre(P{DomCall::kOpenDocument, path}, P{DomCall::kGetNode, "R"},
                          P{DomCall::kGetNodes, "C"}, P{DomCall::kGetChildNodes, "D"},
                          P{DomCall::kGetAttribute, "a"}, P{DomCall::kAddAttribute, "b"},
                          P{DomCall::kCreateChildNode, "E"}, P{DomCall::kSaveDoc, path},
                          P{DomCall::kCreateDocument, ""}, P{DomCall::kCreateRootNode, "F"}));
}

TEST_F(DomWrapperTest, Hook_FailingCreateChildNode_FailsWithItsCodeAndChangesNothing) {
  NOMZUBDOMWrapper doc;
  doc.CreateDocument();
  Held<IXMLDOMNode> root, view;
  ASSERT_EQ(doc.CreateRootNode("Root", root.out()), S_OK);
  {
    nomtest::RecordingDomHook hook;
    hook.FailAll(DomCall::kCreateChildNode, E_OUTOFMEMORY);
    EXPECT_EQ(doc.CreateChildNode(root.get(), "View", view.out()), E_OUTOFMEMORY);
    EXPECT_EQ(view.get(), nullptr);
  }
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<Root />\n");
}

TEST_F(DomWrapperTest, Hook_FailingOpenDocument_KeepsHeldDocumentAndPath) {
  NOMZUBDOMWrapper doc;
  const std::string path = Open(doc, "<R/>");
  nomtest::RecordingDomHook hook;
  hook.FailAll(DomCall::kOpenDocument, E_FAIL);
  EXPECT_EQ(doc.OpenDocument(ZPath(dir_.Sub("other.xml"))), E_FAIL);
  EXPECT_TRUE(doc.HasDocument());
  EXPECT_EQ(doc.DocumentPath(), path);
}

TEST_F(DomWrapperTest, Hook_FailingGetAttribute_LeavesValueUnchanged) {
  NOMZUBDOMWrapper doc;
  Open(doc, "<R a=\"1\"/>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  nomtest::RecordingDomHook hook;
  hook.FailAll(DomCall::kGetAttribute, E_ACCESSDENIED);
  std::string value = "kept";
  EXPECT_EQ(doc.GetAttribute(root.get(), "a", value), E_ACCESSDENIED);
  EXPECT_EQ(value, "kept");
}

// --- documents held as bytes ---------------------------------------------------------------------

TEST_F(DomWrapperTest, OpenBytes_GoodBytes_HoldsDocumentWithoutPath) {
  NOMZUBDOMWrapper doc;
  EXPECT_EQ(doc.OpenBytes("<R a=\"1\"/>"), S_OK);
  EXPECT_TRUE(doc.HasDocument());
  EXPECT_EQ(doc.DocumentPath(), "");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DomWrapperTest, OpenBytes_MalformedBytes_FailsWithoutLogging) {
  NOMZUBDOMWrapper doc;
  EXPECT_EQ(doc.OpenBytes("<a><b></a>"), E_FAIL);
  EXPECT_FALSE(doc.HasDocument());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DomWrapperTest, OpenBytes_NoHookSeesTheWrapperFromThenOn) {
  nomtest::RecordingDomHook hook;
  hook.FailAll(DomCall::kGetNodes, E_FAIL);
  NOMZUBDOMWrapper doc;
  ASSERT_EQ(doc.OpenBytes("<R><C/></R>"), S_OK);
  Held<IXMLDOMNodeList> nodes;
  EXPECT_EQ(doc.GetNodes("C", nodes.out()), S_OK);
  std::string bytes;
  EXPECT_EQ(doc.SaveBytes(&bytes), S_OK);
  EXPECT_THAT(hook.records(), IsEmpty());
}

TEST_F(DomWrapperTest, SaveBytes_SameBytesAsSaveDoc) {
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\r\n<R>\r\n  <C a=\"x\"/>\r\n</R>\r\n";
  NOMZUBDOMWrapper opened;
  Open(opened, text);
  NOMZUBDOMWrapper held;
  ASSERT_EQ(held.OpenBytes(text), S_OK);
  std::string bytes;
  ASSERT_EQ(held.SaveBytes(&bytes), S_OK);
  EXPECT_EQ(bytes, Saved(opened));
}

TEST_F(DomWrapperTest, SaveBytes_WithoutDocument_FailsAndClears) {
  NOMZUBDOMWrapper doc;
  std::string bytes = "old";
  EXPECT_EQ(doc.SaveBytes(&bytes), E_FAIL);
  EXPECT_EQ(bytes, "");
}

TEST(DomHookInstalled, TrueOnlyWhileAHookIsInstalled) {
  EXPECT_FALSE(nomzub::DomHookInstalled());
  {
    nomtest::RecordingDomHook hook;
    EXPECT_TRUE(nomzub::DomHookInstalled());
  }
  EXPECT_FALSE(nomzub::DomHookInstalled());
}

// Strings cross the wrapper in the process's code page; the file holds UTF-8.
class DomWrapperCodePageTest : public DomWrapperTest {
 protected:
  void SetUp() override { ASSERT_TRUE(nomplat::SetACP(1252)); }
  void TearDown() override { nomplat::SetACP(previous_); }
  const UINT previous_ = nomplat::GetACP();
};

TEST_F(DomWrapperCodePageTest, Acp1252_AttributeValueStoredAsUtf8AndReadBack) {
  NOMZUBDOMWrapper doc;
  const std::string path = Open(doc, "<R/>");
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.GetRootNode(root.out()), S_OK);
  EXPECT_EQ(doc.AddAttribute(root.get(), "Name", "caf\xE9"), S_OK);
  ASSERT_EQ(doc.SaveDoc(path), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("doc.xml")),
            std::string(kDeclaration) + "\n<R Name=\"caf\xC3\xA9\"/>\n");

  NOMZUBDOMWrapper back;
  ASSERT_EQ(back.OpenDocument(path), S_OK);
  Held<IXMLDOMNode> node;
  ASSERT_EQ(back.GetNode("R", node.out(), "Name", "caf\xE9"), S_OK);
  std::string value;
  EXPECT_EQ(back.GetAttribute(node.get(), "Name", value), S_OK);
  EXPECT_EQ(value, "caf\xE9");
}

TEST_F(DomWrapperCodePageTest, Acp1252_PutTextWritesUtf16AsUtf8) {
  NOMZUBDOMWrapper doc;
  doc.CreateDocument();
  Held<IXMLDOMNode> root;
  ASSERT_EQ(doc.CreateRootNode("Name", root.out()), S_OK);
  const std::u16string text = u"caf\u00E9";
  BSTR bstr = nomplat::SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  EXPECT_EQ(root.get()->put_text(bstr), S_OK);
  nomplat::SysFreeString(bstr);
  EXPECT_EQ(Saved(doc), std::string(kDeclaration) + "\n<Name>caf\xC3\xA9</Name>\n");
}

}  // namespace
