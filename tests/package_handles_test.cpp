// The registry of the last generated package and the handles NOMZUBVGXGen gives on it.
#include <gtest/gtest.h>

#include <string>

#include "services/NOMZUBVGXGen.h"

namespace {

class PackageHandlesTest : public ::testing::Test {
 protected:
  PackageHandlesTest() { nomzub::ClearPackage(); }
  ~PackageHandlesTest() override { nomzub::ClearPackage(); }
};

TEST_F(PackageHandlesTest, NothingRegistered_NoMainAndNoView) {
  NOMZUBVGXGen gen;
  EXPECT_EQ(gen.GetMainVgxXmlFile(), nullptr);
  EXPECT_EQ(gen.GetMainVgxViewFile(), nullptr);
}

TEST_F(PackageHandlesTest, Registered_GivesBothPaths) {
  nomzub::RegisterPackage("Z:\\out\\SOI.vgxXml", "Z:\\out\\SOI.vgxView");
  NOMZUBVGXGen gen;
  ASSERT_NE(gen.GetMainVgxXmlFile(), nullptr);
  ASSERT_NE(gen.GetMainVgxViewFile(), nullptr);
  std::string main = "previous", view;
  EXPECT_EQ(gen.GetMainVgxXmlFile()->GetFilePath(main), S_OK);
  EXPECT_EQ(gen.GetMainVgxViewFile()->GetFilePath(view), S_OK);
  EXPECT_EQ(main, "Z:\\out\\SOI.vgxXml");
  EXPECT_EQ(view, "Z:\\out\\SOI.vgxView");
}

TEST_F(PackageHandlesTest, EmptyViewPath_NoViewFile) {
  nomzub::RegisterPackage("Z:\\out\\SOI.vgxXml", "");
  NOMZUBVGXGen gen;
  EXPECT_NE(gen.GetMainVgxXmlFile(), nullptr);
  EXPECT_EQ(gen.GetMainVgxViewFile(), nullptr);
}

TEST_F(PackageHandlesTest, EmptyMainPath_MainFileWithEmptyPath) {
  nomzub::RegisterPackage("", "");
  NOMZUBVGXGen gen;
  ASSERT_NE(gen.GetMainVgxXmlFile(), nullptr);
  std::string main = "previous";
  EXPECT_EQ(gen.GetMainVgxXmlFile()->GetFilePath(main), S_OK);
  EXPECT_EQ(main, "");
}

TEST_F(PackageHandlesTest, Handle_KeepsPackageOfItsConstruction) {
  nomzub::RegisterPackage("Z:\\a\\SOI.vgxXml", "Z:\\a\\SOI.vgxView");
  NOMZUBVGXGen first;
  nomzub::RegisterPackage("Z:\\b\\SOI.vgxXml", "");
  NOMZUBVGXGen second;
  std::string path;
  first.GetMainVgxXmlFile()->GetFilePath(path);
  EXPECT_EQ(path, "Z:\\a\\SOI.vgxXml");
  EXPECT_NE(first.GetMainVgxViewFile(), nullptr);
  second.GetMainVgxXmlFile()->GetFilePath(path);
  EXPECT_EQ(path, "Z:\\b\\SOI.vgxXml");
  EXPECT_EQ(second.GetMainVgxViewFile(), nullptr);
}

TEST_F(PackageHandlesTest, Clear_FreshHandleHasNoMain) {
  nomzub::RegisterPackage("Z:\\a\\SOI.vgxXml", "Z:\\a\\SOI.vgxView");
  NOMZUBVGXGen before;
  nomzub::ClearPackage();
  NOMZUBVGXGen after;
  EXPECT_NE(before.GetMainVgxXmlFile(), nullptr);
  EXPECT_EQ(after.GetMainVgxXmlFile(), nullptr);
  EXPECT_EQ(after.GetMainVgxViewFile(), nullptr);
}

TEST(PackageFileTest, PackageHandles_FileHandles_CopyTheirPath) {
  NOMZUBVgxXmlFile main("C:\\Pkg\\SOI.vgxXml");
  NOMZUBVgxViewFile view("C:\\Pkg\\SOI.vgxView");
  std::string a = "x", b = "y";
  EXPECT_EQ(main.GetFilePath(a), S_OK);
  EXPECT_EQ(view.GetFilePath(b), S_OK);
  EXPECT_EQ(a, "C:\\Pkg\\SOI.vgxXml");
  EXPECT_EQ(b, "C:\\Pkg\\SOI.vgxView");
}

}  // namespace
