// Whole packages over real files: a main document and view file in the SOI directory whose lists
// refer to product documents in every form a Windows-authored package uses (plain, ".\", "..\"
// also past the root, a drive letter through a drive map, a UNC path through a share map, "/"
// separators, another letter case), with nested references, missing files and a read-only
// target. PackNGo must leave a flat package: every product document and geometry file beside the
// main document, every reference a bare file name.

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "platform/codepage.h"
#include "platform/paths.h"
#include "services/NOMZUBVGXGen.h"
#include "support/driver_fakes.h"
#include "support/packngo_support.h"
#include "support/peer.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomtest::ListGroup;
using nomtest::LogLine;
using pk::AssemblyDocument;
using pk::CopyError;
using pk::Count;
using pk::Done;
using pk::InfoLine;
using pk::kAbsent;
using pk::LeafDocument;
using pk::Start;
using pk::UnableToOpen;
using Strings = std::vector<std::string>;
using List = std::deque<std::string>;
using Lines = std::vector<LogLine>;

// A product document that is an assembly group without a reference of its own: it is walked,
// and its update succeeds (one element, written back with an empty reference).
std::string LoneGroup() { return AssemblyDocument({kAbsent}); }

class PackagePack : public pk::PackNGoFixture {
 protected:
  PackagePack() : PackNGoFixture("pkg") {}

  // Writes pkg/SOI.vgxXml and pkg/SOI.vgxView and registers them as the last package.
  void Package(const std::vector<ListGroup>& lists) {
    nomtest::WriteFile(dir_.Sub("pkg/SOI.vgxXml"), pk::MainDocument(lists));
    nomtest::WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
    nomzub::RegisterPackage(M("pkg/SOI.vgxXml"), M("pkg/SOI.vgxView"));
  }
  // Packs a package whose product list holds one reference to a product that refers to nothing,
  // and checks the flat result: the lines, the two copied files (geometry content included),
  // the list, the rewritten references and the result.
  void ExpectPackedAlone(const std::string& reference, const std::string& productRel,
                         const std::string& name) {
    Product(productRel, LoneGroup());
    Package({{"ProductList", {reference}}});
    EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
    EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Start("Product"), Count(1), Done("Product"),
                                                 pk::UpdatingLine(), pk::UpdatedLine()}));
    const std::string geometry = GeometryOf(name);
    EXPECT_TRUE(nomtest::FileExists(dir_.Sub("pkg/" + name))) << name;
    EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/" + geometry)), "glb:" + productRel);
    EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out(name)});
    EXPECT_EQ(pk::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ProductList"), Strings{name});
    EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/" + name)), Strings{""});
  }

  void TearDown() override { nomzub::ClearPackage(); }

  nomplat::ScopedPathMaps maps_;
};

// --- One reference form at a time. ---

TEST_F(PackagePack, PlainRelativeReference) {
  ExpectPackedAlone("parts\\Plain.vgxXml", "pkg/parts/Plain.vgxXml", "Plain.vgxXml");
}

TEST_F(PackagePack, DotRelativeReference) {
  ExpectPackedAlone(".\\parts\\Dot.vgxXml", "pkg/parts/Dot.vgxXml", "Dot.vgxXml");
}

TEST_F(PackagePack, ClimbingReference) {
  ExpectPackedAlone("..\\lib\\Up.vgxXml", "lib/Up.vgxXml", "Up.vgxXml");
}

TEST_F(PackagePack, ClimbingPastTheRoot_ContinuesFromTheRoot) {
  // One "..\" more than it takes to climb from the main document's directory to an empty base:
  // the rest of the reference then starts at the root.
  std::string reference;
  for (int i = 0; i < pk::CountBackslashes(M("pkg")) + 2; ++i) reference += "..\\";
  reference += pk::BackslashedWithoutRoot(dir_.Sub("lib/Past.vgxXml"));
  ExpectPackedAlone(reference, "lib/Past.vgxXml", "Past.vgxXml");
}

TEST_F(PackagePack, DriveAbsoluteReferenceThroughDriveMap) {
  nomplat::MapDrive('Q', dir_.Sub("drive"));
  ExpectPackedAlone("Q:\\parts\\Drv.vgxXml", "drive/parts/Drv.vgxXml", "Drv.vgxXml");
}

TEST_F(PackagePack, LowerCaseDriveLetter) {
  nomplat::MapDrive('Q', dir_.Sub("drive"));
  ExpectPackedAlone("q:\\parts\\Drv.vgxXml", "drive/parts/Drv.vgxXml", "Drv.vgxXml");
}

TEST_F(PackagePack, NetworkReferenceThroughShareMap) {
  nomplat::MapShare("\\\\srv\\pub", dir_.Sub("share"));
  ExpectPackedAlone("\\\\srv\\pub\\parts\\Net.vgxXml", "share/parts/Net.vgxXml", "Net.vgxXml");
}

TEST_F(PackagePack, ForwardSlashReference) {
  ExpectPackedAlone("../lib/sub/Slash.vgxXml", "lib/sub/Slash.vgxXml", "Slash.vgxXml");
}

TEST_F(PackagePack, LetterCaseMismatch_CopiedUnderTheNameAsWritten) {
  ExpectPackedAlone("PARTS\\mixedcase.vgxXml", "pkg/parts/MixedCase.vgxXml", "mixedcase.vgxXml");
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("pkg/MixedCase.vgxXml")));
}

TEST_F(PackagePack, MissingProductDocument_LoggedSkippedReferenceKept) {
  Package({{"ProductList", {"..\\lib\\Missing.vgxXml"}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(1), UnableToOpen(M("lib/Missing.vgxXml")),
                   Done("Product"), pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("pkg")), (Strings{"SOI.vgxView", "SOI.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{});
  EXPECT_EQ(pk::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ProductList"),
            Strings{"..\\lib\\Missing.vgxXml"});
}

TEST_F(PackagePack, MissingGeometry_DocumentStillCopiedAndRewritten) {
  Product("lib/NoGeom.vgxXml", LoneGroup(), /*geometry=*/false);
  Package({{"ProductList", {"..\\lib\\NoGeom.vgxXml"}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(1), UnableToOpen(M("lib/NoGeom.vgxGeom")),
                   Done("Product"), pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("pkg")),
            (Strings{"NoGeom.vgxXml", "SOI.vgxView", "SOI.vgxXml"}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("NoGeom.vgxXml")});
  EXPECT_EQ(pk::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ProductList"),
            Strings{"NoGeom.vgxXml"});
}

TEST_F(PackagePack, ReadOnlyTarget_ReportedListedRewrittenLeftAsItWas) {
  Product("lib/Locked.vgxXml", LoneGroup());
  const std::string old = AssemblyDocument({"old\\Old.vgxXml"});
  nomtest::WriteFile(dir_.Sub("pkg/Locked.vgxXml"), old);
  pk::MakeReadOnly(dir_.Sub("pkg/Locked.vgxXml"));
  Package({{"ProductList", {"..\\lib\\Locked.vgxXml"}}});
  // The update of the read-only copy cannot save, which does not show in the result.
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(1),
                   CopyError(M("lib/Locked.vgxXml"), Out("Locked.vgxXml"), "Access Denied"),
                   Done("Product"), pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/Locked.vgxXml")), old);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/Locked.vgxGeom")), "glb:lib/Locked.vgxXml");
  EXPECT_EQ(peer_.CopiedXmlFiles(), List{Out("Locked.vgxXml")});
  EXPECT_EQ(pk::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ProductList"),
            Strings{"Locked.vgxXml"});
}

TEST_F(PackagePack, ChainThreeDeep_EveryLevelCopiedFlatAndRewritten) {
  Product("lib/A.vgxXml", AssemblyDocument({".\\sub\\B.vgxXml"}));
  Product("lib/sub/B.vgxXml", AssemblyDocument({"..\\deep\\C.vgxXml"}));
  Product("lib/deep/C.vgxXml", AssemblyDocument({"D.vgxXml"}));
  Product("lib/deep/D.vgxXml", LeafDocument());
  Package({{"ProductList", {"../lib/A.vgxXml"}}});
  // The last copy, D, refers to nothing, and that is what the result reports.
  EXPECT_EQ(utility_.PackNGo(soi_), E_FAIL);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Start("Product"), Count(1), Done("Product"),
                                               pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(peer_.CopiedXmlFiles(),
            (List{Out("A.vgxXml"), Out("B.vgxXml"), Out("C.vgxXml"), Out("D.vgxXml")}));
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/A.vgxXml")), Strings{"B.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/B.vgxXml")), Strings{"C.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/C.vgxXml")), Strings{"D.vgxXml"});
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/D.vgxXml")), LeafDocument());
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/D.vgxGeom")), "glb:lib/deep/D.vgxXml");
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("lib/sub/B.vgxXml")), Strings{"..\\deep\\C.vgxXml"});
}

TEST_F(PackagePack, ProductReferencedTwice_CopiedAndListedTwice) {
  Product("lib/Twice.vgxXml", LoneGroup());
  Package({{"ProductList", {"..\\lib\\Twice.vgxXml"}}, {"ResourceList", {"../lib/Twice.vgxXml"}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(1), Done("Product"), Start("Resource"), Count(1),
                   Done("Resource"), pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out("Twice.vgxXml"), Out("Twice.vgxXml")}));
  EXPECT_EQ(pk::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ProductList"), Strings{"Twice.vgxXml"});
  EXPECT_EQ(pk::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ResourceList"),
            Strings{"Twice.vgxXml"});
}

// --- Everything in one package. ---

TEST_F(PackagePack, EveryForm_FlatPackageExactLinesAndReferences) {
  nomplat::MapDrive('Q', dir_.Sub("drive"));
  nomplat::MapShare("\\\\srv\\pub", dir_.Sub("share"));
  Product("pkg/parts/Plain.vgxXml", AssemblyDocument({"Bolt.vgxXml"}));
  Product("pkg/parts/Bolt.vgxXml", LeafDocument());
  Product("pkg/parts/Dot.vgxXml", LoneGroup());
  Product("lib/A.vgxXml", AssemblyDocument({".\\sub\\B.vgxXml"}));
  Product("lib/sub/B.vgxXml", AssemblyDocument({"..\\deep\\C.vgxXml"}));
  Product("lib/deep/C.vgxXml", AssemblyDocument({"D.vgxXml"}));
  Product("lib/deep/D.vgxXml", LeafDocument());
  Product("lib/Past.vgxXml", LoneGroup());
  Product("drive/parts/Drv.vgxXml", AssemblyDocument({"..\\Shared.vgxXml"}));
  Product("drive/Shared.vgxXml", LoneGroup());
  Product("share/parts/Net.vgxXml", LoneGroup());
  Product("pkg/parts/Slash.vgxXml", LoneGroup());
  Product("pkg/parts/MixedCase.vgxXml", LoneGroup());
  Product("pkg/parts/NoGeom.vgxXml", LoneGroup(), /*geometry=*/false);
  Product("pkg/parts/Locked.vgxXml", LoneGroup());
  const std::string lockedOld = AssemblyDocument({"old\\Old.vgxXml"});
  nomtest::WriteFile(dir_.Sub("pkg/Locked.vgxXml"), lockedOld);
  pk::MakeReadOnly(dir_.Sub("pkg/Locked.vgxXml"));
  std::string pastRoot;
  for (int i = 0; i < pk::CountBackslashes(M("pkg")) + 2; ++i) pastRoot += "..\\";
  pastRoot += pk::BackslashedWithoutRoot(dir_.Sub("lib/Past.vgxXml"));
  const std::string lib = nomtest::ReadFile(dir_.Sub("lib/sub/B.vgxXml"));

  Package({{"ManufProd", {"parts\\Dot.vgxXml"}},
           {"ResourceList", {"parts\\Plain.vgxXml"}},
           {"ProductList",
            {"parts\\Plain.vgxXml", ".\\parts\\Dot.vgxXml", "..\\lib\\A.vgxXml", pastRoot,
             "Q:\\parts\\Drv.vgxXml", "\\\\srv\\pub\\parts\\Net.vgxXml", "parts/Slash.vgxXml",
             "PARTS\\mixedcase.vgxXml", "parts\\Missing.vgxXml", "parts\\NoGeom.vgxXml",
             "parts\\Locked.vgxXml"}}});

  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);

  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(11), UnableToOpen(M("pkg/parts/Missing.vgxXml")),
                   UnableToOpen(M("pkg/parts/NoGeom.vgxGeom")),
                   CopyError(M("pkg/parts/Locked.vgxXml"), Out("Locked.vgxXml"), "Access Denied"),
                   Done("Product"), Start("Resource"), Count(1), Done("Resource"), Start("MP"),
                   Count(1), Done("MP"), pk::UpdatingLine(), pk::UpdatedLine()}));

  EXPECT_EQ(peer_.CopiedXmlFiles(),
            (List{Out("Plain.vgxXml"), Out("Bolt.vgxXml"), Out("Dot.vgxXml"), Out("A.vgxXml"),
                  Out("B.vgxXml"), Out("C.vgxXml"), Out("D.vgxXml"), Out("Past.vgxXml"),
                  Out("Drv.vgxXml"), Out("Shared.vgxXml"), Out("Net.vgxXml"), Out("Slash.vgxXml"),
                  Out("mixedcase.vgxXml"), Out("NoGeom.vgxXml"), Out("Locked.vgxXml"),
                  Out("Plain.vgxXml"), Out("Bolt.vgxXml"), Out("Dot.vgxXml")}));

  Strings files = {"parts", "SOI.vgxXml", "SOI.vgxView", "NoGeom.vgxXml"};
  for (const char* name : {"Plain", "Bolt", "Dot", "A", "B", "C", "D", "Past", "Drv", "Shared",
                           "Net", "Slash", "mixedcase", "Locked"}) {
    files.push_back(std::string(name) + ".vgxXml");
    files.push_back(std::string(name) + ".vgxGeom");
  }
  std::sort(files.begin(), files.end());
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("pkg")), files);

  const std::string main = dir_.Sub("pkg/SOI.vgxXml");
  EXPECT_EQ(pk::ListReferences(main, "ProductList"),
            (Strings{"Plain.vgxXml", "Dot.vgxXml", "A.vgxXml", "Past.vgxXml", "Drv.vgxXml",
                     "Net.vgxXml", "Slash.vgxXml", "mixedcase.vgxXml", "parts\\Missing.vgxXml",
                     "NoGeom.vgxXml", "Locked.vgxXml"}));
  EXPECT_EQ(pk::ListReferences(main, "ResourceList"), Strings{"Plain.vgxXml"});
  EXPECT_EQ(pk::ListReferences(main, "ManufProd"), Strings{"Dot.vgxXml"});

  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/Plain.vgxXml")), Strings{"Bolt.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/A.vgxXml")), Strings{"B.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/B.vgxXml")), Strings{"C.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/C.vgxXml")), Strings{"D.vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub("pkg/Drv.vgxXml")), Strings{"Shared.vgxXml"});
  for (const char* name : {"Dot", "Past", "Shared", "Net", "Slash", "mixedcase", "NoGeom"}) {
    EXPECT_EQ(pk::InstanceReferences(dir_.Sub(std::string("pkg/") + name + ".vgxXml")), Strings{""})
        << name;
  }
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/D.vgxXml")), LeafDocument());
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/Bolt.vgxXml")), LeafDocument());
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/Locked.vgxXml")), lockedOld);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/Past.vgxGeom")), "glb:lib/Past.vgxXml");
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/Shared.vgxGeom")), "glb:drive/Shared.vgxXml");
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/mixedcase.vgxGeom")), "glb:pkg/parts/MixedCase.vgxXml");
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("lib/sub/B.vgxXml")), lib);
  EXPECT_EQ(pk::ElementAttribute(dir_.Sub("pkg/SOI.vgxView"), "VgxView", "Document"), "SOI.vgxXml");
}

// --- Code page 932. ---

// U+8868 on disk and in the documents (UTF-8) and in module paths (code page 932: 0x95 0x5C,
// whose trail byte is the backslash byte).
const char kHyoUtf8[] = "\xE8\xA1\xA8";
const char kHyo932[] = "\x95\x5C";

TEST_F(PackagePack, CodePage932_TrailByteFolderResolvedCopiedAndRewritten) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  const std::string folder = std::string("pkg/parts/") + kHyoUtf8;
  // The product is named after the folder and refers to a sibling whose name ends in the
  // character, through the folder again.
  Product(folder + "/" + kHyoUtf8 + ".vgxXml",
          AssemblyDocument({std::string("..\\") + kHyoUtf8 + "\\" + kHyoUtf8 + "Sub.vgxXml"}));
  Product(folder + "/" + kHyoUtf8 + "Sub.vgxXml", LoneGroup());
  Package({{"ProductList", {std::string("parts/") + kHyoUtf8 + "/" + kHyoUtf8 + ".vgxXml"}}});

  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_), (Lines{Start("Product"), Count(1), Done("Product"),
                                               pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_EQ(peer_.CopiedXmlFiles(), (List{Out(std::string(kHyo932) + ".vgxXml"),
                                          Out(std::string(kHyo932) + "Sub.vgxXml")}));
  Strings files = {"parts",
                   "SOI.vgxView",
                   "SOI.vgxXml",
                   std::string(kHyoUtf8) + ".vgxGeom",
                   std::string(kHyoUtf8) + ".vgxXml",
                   std::string(kHyoUtf8) + "Sub.vgxGeom",
                   std::string(kHyoUtf8) + "Sub.vgxXml"};
  std::sort(files.begin(), files.end());
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("pkg")), files);
  EXPECT_EQ(pk::ListReferences(dir_.Sub("pkg/SOI.vgxXml"), "ProductList"),
            Strings{std::string(kHyoUtf8) + ".vgxXml"});
  EXPECT_EQ(pk::InstanceReferences(dir_.Sub(std::string("pkg/") + kHyoUtf8 + ".vgxXml")),
            Strings{std::string(kHyoUtf8) + "Sub.vgxXml"});
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub(std::string("pkg/") + kHyoUtf8 + "Sub.vgxGeom")),
            "glb:" + folder + "/" + kHyoUtf8 + "Sub.vgxXml");
}

TEST_F(PackagePack, CodePage932_MissingProductLineNamesPathInCodePage) {
  nomplat::ScopedCodePage codePage(932);
  ASSERT_TRUE(codePage.ok());
  Package({{"ProductList", {std::string("parts\\") + kHyoUtf8 + "\\Gone.vgxXml"}}});
  EXPECT_EQ(utility_.PackNGo(soi_), S_OK);
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (Lines{Start("Product"), Count(1),
                   UnableToOpen(M("pkg/parts") + "\\" + kHyo932 + "\\Gone.vgxXml"), Done("Product"),
                   pk::UpdatingLine(), pk::UpdatedLine()}));
}

}  // namespace
