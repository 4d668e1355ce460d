// The shared-resource manager, on real package files in a temporary directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/env.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBVGXGen.h"
#include "support/test_support.h"

namespace {

using nomtest::LogCapture;
using nomtest::LogLine;
using nomtest::ReadFile;
using nomtest::TempDir;
using nomtest::WriteFile;
using nomtest::ZPath;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SharedResourcesTest : public ::testing::Test {
 protected:
  SharedResourcesTest() {
    std::filesystem::create_directories(dir_.Sub("soi"));
    soi_ = ZPath(dir_.Sub("soi"));
  }

  // Writes the document as pkg/name and opens it.
  void OpenPackageDocument(NOMZUBDOMWrapper& doc, const std::string& name,
                           const std::string& contents) {
    WriteFile(dir_.Sub("pkg/" + name), contents);
    ASSERT_EQ(doc.OpenDocument(ZPath(dir_.Sub("pkg/" + name))), S_OK);
  }

  // The File attribute of every Resource element, in document order ("-" where absent).
  static std::vector<std::string> Files(NOMZUBDOMWrapper& doc) {
    std::vector<std::string> files;
    IXMLDOMNodeList* list = nullptr;
    EXPECT_EQ(doc.GetNodes("Resource", &list), S_OK);
    long length = 0;
    list->get_length(&length);
    for (long i = 0; i < length; ++i) {
      IXMLDOMNode* node = nullptr;
      list->get_item(i, &node);
      std::string file = "-";
      doc.GetAttribute(node, "File", file);
      files.push_back(file);
      node->Release();
    }
    list->Release();
    return files;
  }

  // The value of the root element's attribute name ("-" when absent).
  static std::string RootAttribute(NOMZUBDOMWrapper& doc, const std::string& name) {
    IXMLDOMNode* root = nullptr;
    EXPECT_EQ(doc.GetRootNode(&root), S_OK);
    std::string value = "-";
    doc.GetAttribute(root, name, value);
    root->Release();
    return value;
  }

  TempDir dir_;
  std::string soi_;
  LogCapture log_;
};

TEST_F(SharedResourcesTest, UpdateVgxXml_CopiesRelativeAndAbsoluteResources) {
  WriteFile(dir_.Sub("pkg/tex/wood.png"), "wood");
  WriteFile(dir_.Sub("pkg/tex/metal.png"), "metal");
  WriteFile(dir_.Sub("pkg/thumb.png"), "thumb");
  WriteFile(dir_.Sub("elsewhere/logo.png"), "logo");
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxXml",
                      "<VgxDocument><Resources>"
                      "<Resource File=\"tex\\wood.png\"/>"
                      "<Resource File=\"tex/metal.png\"/>"
                      "<Resource File=\"" +
                          ZPath(dir_.Sub("elsewhere/logo.png")) +
                          "\"/>"
                          "</Resources>"
                          "<CLitAssyGroup Ident=\"ProductList\"><Resource File=\"thumb.png\"/>"
                          "</CLitAssyGroup></VgxDocument>");
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("soi/wood.png")), "wood");
  EXPECT_EQ(ReadFile(dir_.Sub("soi/metal.png")), "metal");
  EXPECT_EQ(ReadFile(dir_.Sub("soi/logo.png")), "logo");
  EXPECT_EQ(ReadFile(dir_.Sub("soi/thumb.png")), "thumb");
  EXPECT_THAT(Files(doc), ElementsAre("wood.png", "metal.png", "logo.png", "thumb.png"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SharedResourcesTest, UpdateVgxXml_NoResources_SOkAndDocumentUnchanged) {
  NOMZUBDOMWrapper doc;
  const std::string text =
      "<?xml version=\"1.0\"?>\n<VgxDocument>\n  <CLitAssyGroup/>\n</VgxDocument>\n";
  OpenPackageDocument(doc, "SOI.vgxXml", text);
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), S_OK);
  ASSERT_EQ(doc.SaveDoc(ZPath(dir_.Sub("pkg/SOI.vgxXml"))), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("pkg/SOI.vgxXml")), text);
  EXPECT_THAT(nomtest::ListDir(dir_.Sub("soi")), IsEmpty());
}

TEST_F(SharedResourcesTest, UpdateVgxXml_ResourceWithoutFileIsLeftAlone) {
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxXml",
                      "<VgxDocument><Resource/><Resource File=\"\"/></VgxDocument>");
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), S_OK);
  EXPECT_THAT(Files(doc), ElementsAre("-", ""));
  EXPECT_THAT(nomtest::ListDir(dir_.Sub("soi")), IsEmpty());
}

TEST_F(SharedResourcesTest, UpdateVgxXml_MissingResource_EFailOthersStillCopied) {
  WriteFile(dir_.Sub("pkg/b.png"), "b");
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxXml",
                      "<VgxDocument><Resource File=\"img\\a.png\"/><Resource File=\"b.png\"/>"
                      "</VgxDocument>");
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), E_FAIL);
  EXPECT_EQ(ReadFile(dir_.Sub("soi/b.png")), "b");
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("soi/a.png")));
  EXPECT_THAT(Files(doc), ElementsAre("img\\a.png", "b.png"));
  const std::string source = ZPath(dir_.Sub("pkg")) + "\\img\\a.png";
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(LogLine{2, "****** ERROR:\t Cannot copy shared resource " + source + " to " +
                                 soi_ + "\\a.png: Windows error 3 (path not found)"}));
}

TEST_F(SharedResourcesTest, UpdateVgxXml_CopyFailure_LogsItsWindowsError) {
  WriteFile(dir_.Sub("pkg/a.png"), "a");
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxXml", "<VgxDocument><Resource File=\"a.png\"/></VgxDocument>");
  nomplat::FaultInjectionEnv env(nomplat::Env::Default());
  env.FailOn(nomplat::FaultInjectionEnv::kCopyFile, 1, 112);
  nomplat::ScopedEnv scoped(&env);
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), E_FAIL);
  EXPECT_THAT(Files(doc), ElementsAre("a.png"));
  EXPECT_THAT(log_.messages(2),
              ElementsAre("****** ERROR:\t Cannot copy shared resource " + ZPath(dir_.Sub("pkg")) +
                          "\\a.png to " + soi_ + "\\a.png: Windows error 112 (disk full)"));
}

TEST_F(SharedResourcesTest, UpdateVgxXml_OverwritesExistingTarget) {
  WriteFile(dir_.Sub("pkg/a.png"), "new");
  WriteFile(dir_.Sub("soi/a.png"), "old content");
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxXml", "<VgxDocument><Resource File=\"a.png\"/></VgxDocument>");
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("soi/a.png")), "new");
}

TEST_F(SharedResourcesTest, UpdateVgxXml_ResourceAlreadyInSoiDirectoryIsKept) {
  WriteFile(dir_.Sub("soi/a.png"), "in place");
  NOMZUBDOMWrapper doc;
  WriteFile(dir_.Sub("soi/SOI.vgxXml"), "<VgxDocument><Resource File=\"a.png\"/></VgxDocument>");
  ASSERT_EQ(doc.OpenDocument(soi_ + "\\SOI.vgxXml"), S_OK);
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("soi/a.png")), "in place");
  EXPECT_THAT(Files(doc), ElementsAre("a.png"));
}

TEST_F(SharedResourcesTest, UpdateVgxXml_LeavesSoiDirectoryArgumentUnchanged) {
  WriteFile(dir_.Sub("pkg/a.png"), "a");
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxXml", "<VgxDocument><Resource File=\"a.png\"/></VgxDocument>");
  std::string soi = soi_;
  NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi);
  EXPECT_EQ(soi, soi_);
  NOMZUBVgxSharedResourceFileMgr::UpdateVgxViewForSOR(doc, soi);
  EXPECT_EQ(soi, soi_);
}

TEST_F(SharedResourcesTest, UpdateVgxXml_NoDocument_EFailAndLogged) {
  NOMZUBDOMWrapper doc;
  const std::string path = ZPath(dir_.Sub("pkg/missing.vgxXml"));
  doc.OpenDocument(path);
  log_.clear();
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxXmlForSOR(doc, soi), E_FAIL);
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "****** ERROR:\t Cannot gather the shared resources of " +
                                         path + ": no document is open"}));
}

TEST_F(SharedResourcesTest, UpdateVgxView_CopiesResourcesAndRefersMainDocument) {
  WriteFile(dir_.Sub("pkg/views/cam.png"), "cam");
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxView",
                      "<VgxView Document=\"..\\gen\\SOI.vgxXml\"><View Ident=\"V1\">"
                      "<Resource File=\"views\\cam.png\"/></View></VgxView>");
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxViewForSOR(doc, soi), S_OK);
  EXPECT_EQ(ReadFile(dir_.Sub("soi/cam.png")), "cam");
  EXPECT_THAT(Files(doc), ElementsAre("cam.png"));
  EXPECT_EQ(RootAttribute(doc, "Document"), "SOI.vgxXml");
}

TEST_F(SharedResourcesTest, UpdateVgxView_AddsMissingDocumentReference) {
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxView", "<VgxView/>");
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxViewForSOR(doc, soi), S_OK);
  EXPECT_EQ(RootAttribute(doc, "Document"), "SOI.vgxXml");
}

TEST_F(SharedResourcesTest, UpdateVgxView_FailedCopyStillRefersMainDocument) {
  NOMZUBDOMWrapper doc;
  OpenPackageDocument(doc, "SOI.vgxView",
                      "<VgxView Document=\"x.vgxXml\"><Resource File=\"gone.png\"/></VgxView>");
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxViewForSOR(doc, soi), E_FAIL);
  EXPECT_EQ(RootAttribute(doc, "Document"), "SOI.vgxXml");
  EXPECT_EQ(log_.messages(2).size(), 1u);
}

TEST_F(SharedResourcesTest, UpdateVgxView_NoDocument_EFail) {
  NOMZUBDOMWrapper doc;
  std::string soi = soi_;
  EXPECT_EQ(NOMZUBVgxSharedResourceFileMgr::UpdateVgxViewForSOR(doc, soi), E_FAIL);
  EXPECT_THAT(log_.messages(2),
              ElementsAre("****** ERROR:\t Cannot gather the shared resources of : no document "
                          "is open"));
}

}  // namespace
