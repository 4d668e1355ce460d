// The preflight walk: it must plan exactly the copies Pack & Go makes, in the same order, write
// and log nothing, and refuse cycles, collisions, files outside the confinement roots, too many
// visits and too deep nesting before anything is written.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "NOMSOIUtility.h"
#include "packngo/Preflight.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "services/NOMZUBVGXGen.h"
#include "support/packngo_support.h"
#include "support/test_support.h"

namespace {

namespace pk = nomtest::packngo;

using nomsoi::ItemKind;
using nomsoi::PlannedItem;
using nomsoi::PreflightOptions;
using nomsoi::PreflightResult;
using nomsoi::Refusal;
using nomtest::ListGroup;
using pk::AssemblyDocument;
using pk::kAbsent;
using Strings = std::vector<std::string>;

class Preflight : public pk::PackNGoFixture {
 protected:
  Preflight() : PackNGoFixture("pkg") {}

  // Writes pkg/SOI.vgxXml with the lists and pkg/SOI.vgxView.
  void Package(const std::vector<ListGroup>& lists) {
    nomtest::WriteFile(dir_.Sub("pkg/SOI.vgxXml"), pk::MainDocument(lists));
    nomtest::WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  }

  PreflightOptions Options() const {
    PreflightOptions options;
    options.main_path = M("pkg/SOI.vgxXml");
    options.view_path = M("pkg/SOI.vgxView");
    options.soi_directory = soi_;
    options.check_space = false;
    return options;
  }

  PreflightResult Check() const { return nomsoi::RunPreflight(Options()); }

  // "copy SRC -> DST" for every present item, in plan order.
  static Strings PlannedCopies(const PreflightResult& result) {
    Strings copies;
    for (const PlannedItem& item : result.items) {
      if (item.present) copies.push_back(pk::CopyCall(item.source, item.target));
    }
    return copies;
  }

  static bool RefusedFor(const PreflightResult& result, Refusal kind) {
    for (const auto& problem : result.problems) {
      if (problem.kind == kind) return true;
    }
    return false;
  }

  void TearDown() override { nomzub::ClearPackage(); }

  nomplat::ScopedPathMaps maps_;
};

// The first time each copy is made by PackNGo, in order.
Strings FirstCopies(const Strings& copies) {
  Strings first;
  for (const std::string& copy : copies) {
    bool seen = false;
    for (const std::string& earlier : first) seen = seen || earlier == copy;
    if (!seen) first.push_back(copy);
  }
  return first;
}

TEST_F(Preflight, PlansTheCopiesPackNGoMakesInItsOrder) {
  Product("lib/A.vgxXml", AssemblyDocument({"sub\\B.vgxXml", "..\\lib\\C.vgxXml"}));
  Product("lib/sub/B.vgxXml", AssemblyDocument({kAbsent}));
  Product("lib/C.vgxXml", AssemblyDocument({".\\sub\\B.vgxXml"}));
  Product("pkg/parts/D.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml", "parts/D.vgxXml"}},
           {"ResourceList", {"..\\lib\\C.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_FALSE(plan.Refused());

  pk::FileCallRecorder recorder;
  nomzub::RegisterPackage(M("pkg/SOI.vgxXml"), M("pkg/SOI.vgxView"));
  utility_.PackNGo(soi_);
  EXPECT_EQ(PlannedCopies(plan), FirstCopies(recorder.Copies()));
  EXPECT_EQ(plan.visits, 7u);  // A, B, C, B below C; D; C, B from the resource list
  EXPECT_EQ(plan.depth, 3u);   // A -> C -> B
}

TEST_F(Preflight, WritesAndLogsNothing) {
  Product("lib/A.vgxXml", AssemblyDocument({"Missing.vgxXml"}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml", "Gone.vgxXml"}}});
  const std::string main_before = nomtest::ReadFile(dir_.Sub("pkg/SOI.vgxXml"));
  const Strings pkg_before = nomtest::ListDir(dir_.Sub("pkg"));
  Check();
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(nomtest::ListDir(dir_.Sub("pkg")), pkg_before);
  EXPECT_EQ(nomtest::ReadFile(dir_.Sub("pkg/SOI.vgxXml")), main_before);
}

TEST_F(Preflight, MissingDocumentIsPlannedWithItsReferrer) {
  Product("lib/A.vgxXml", AssemblyDocument({"Missing.vgxXml"}), /*geometry=*/false);
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_FALSE(plan.Refused());
  ASSERT_EQ(plan.items.size(), 3u);
  EXPECT_EQ(plan.items[0].kind, ItemKind::kDocument);
  EXPECT_TRUE(plan.items[0].present);
  EXPECT_EQ(plan.items[1].kind, ItemKind::kGeometry);
  EXPECT_FALSE(plan.items[1].present);
  EXPECT_EQ(plan.items[1].source, M("lib/A.vgxGeom"));
  EXPECT_EQ(plan.items[2].source, M("lib/Missing.vgxXml"));
  EXPECT_EQ(plan.items[2].referrer, M("lib/A.vgxXml"));
  EXPECT_FALSE(plan.items[2].present);
  EXPECT_EQ(plan.visits, 1u);
}

TEST_F(Preflight, SelfReferenceIsACycle) {
  Product("lib/A.vgxXml", AssemblyDocument({"A.vgxXml"}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_TRUE(RefusedFor(plan, Refusal::kCycle));
  EXPECT_EQ(plan.problems[0].message,
            "reference cycle: '" + M("lib/A.vgxXml") + "' -> '" + M("lib/A.vgxXml") + "'");
}

TEST_F(Preflight, CycleOfTwoNamesTheChain) {
  Product("lib/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
  Product("lib/B.vgxXml", AssemblyDocument({"A.vgxXml"}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_TRUE(RefusedFor(plan, Refusal::kCycle));
  EXPECT_EQ(plan.problems[0].message, "reference cycle: '" + M("lib/A.vgxXml") + "' -> '" +
                                          M("lib/B.vgxXml") + "' -> '" + M("lib/A.vgxXml") + "'");
}

TEST_F(Preflight, CycleOfFiveThroughOtherPathsOfTheSameFiles) {
  // The cycle closes on a file reached by another spelling of its path.
  Product("lib/A.vgxXml", AssemblyDocument({"B.vgxXml"}));
  Product("lib/B.vgxXml", AssemblyDocument({"sub\\C.vgxXml"}));
  Product("lib/sub/C.vgxXml", AssemblyDocument({".\\D.vgxXml"}));
  Product("lib/sub/D.vgxXml", AssemblyDocument({"..\\E.vgxXml"}));
  Product("lib/E.vgxXml", AssemblyDocument({".\\.\\a.VGXXML"}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_TRUE(RefusedFor(plan, Refusal::kCycle));
  const std::string& message = plan.problems[0].message;
  EXPECT_EQ(message.rfind("reference cycle: '" + M("lib/A.vgxXml") + "' -> ", 0), 0u) << message;
  EXPECT_NE(message.find("E.vgxXml' -> '"), std::string::npos) << message;
  EXPECT_NE(message.find("a.VGXXML'"), std::string::npos) << message;
}

// D is walked to its end through lib first (its X is missing there); through lib2, a link to the
// same file, its X exists and names D by the path walked before, while the walk is below D.
TEST_F(Preflight, CycleThroughAPathWalkedBeforeIsRefused) {
  Product("lib/D.vgxXml", AssemblyDocument({"X.vgxXml"}));
  Product("lib2/X.vgxXml", AssemblyDocument({M("lib/D.vgxXml")}));
  ASSERT_EQ(symlink("../lib/D.vgxXml", dir_.Sub("lib2/D.vgxXml").c_str()), 0);
  Package({{"ProductList", {"..\\lib\\D.vgxXml", "..\\lib2\\D.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_TRUE(RefusedFor(plan, Refusal::kCycle));
  EXPECT_EQ(plan.problems[0].message, "reference cycle: '" + M("lib2/D.vgxXml") + "' -> '" +
                                          M("lib2/X.vgxXml") + "' -> '" + M("lib/D.vgxXml") + "'");
}

TEST_F(Preflight, SharedDocumentIsNotACycle) {
  Product("lib/A.vgxXml", AssemblyDocument({"S.vgxXml", "B.vgxXml"}));
  Product("lib/B.vgxXml", AssemblyDocument({"S.vgxXml"}));
  Product("lib/S.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  EXPECT_FALSE(plan.Refused());
  EXPECT_EQ(plan.visits, 4u);
}

TEST_F(Preflight, TwoFilesOnOneNameAreRefusedNamingBoth) {
  Product("libA/Bolt.vgxXml", AssemblyDocument({kAbsent}));
  Product("libB/bolt.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\libA\\Bolt.vgxXml", "..\\libB\\bolt.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_TRUE(RefusedFor(plan, Refusal::kCollision));
  const std::string& message = plan.problems[0].message;
  EXPECT_NE(message.find("'" + M("libA/Bolt.vgxXml") + "'"), std::string::npos) << message;
  EXPECT_NE(message.find("'" + M("libB/bolt.vgxXml") + "'"), std::string::npos) << message;
}

// The main document is saved in place while the nested copies name the SOI directory as given:
// one place spelled two ways is still one name.
TEST_F(Preflight, CollisionSeenThroughAnotherSpellingOfTheOutput) {
  Product("lib/SOI.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\SOI.vgxXml"}}});
  PreflightOptions options = Options();
  options.main_path = dir_.Sub("pkg/SOI.vgxXml");
  EXPECT_TRUE(RefusedFor(nomsoi::RunPreflight(options), Refusal::kCollision));
  Product("lib/B.vgxXml", AssemblyDocument({"..\\libB\\Bolt.vgxXml"}));
  Product("libB/Bolt.vgxXml", AssemblyDocument({kAbsent}));
  Product("libA/bolt.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\libA\\bolt.vgxXml", "..\\lib\\B.vgxXml"}}});
  options.main_path = M("pkg/SOI.vgxXml");
  options.soi_directory = dir_.Sub("pkg");
  EXPECT_TRUE(RefusedFor(nomsoi::RunPreflight(options), Refusal::kCollision));
}

TEST_F(Preflight, CollisionAllowedWhenForced) {
  Product("libA/Bolt.vgxXml", AssemblyDocument({kAbsent}));
  Product("libB/Bolt.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\libA\\Bolt.vgxXml", "..\\libB\\Bolt.vgxXml"}}});
  PreflightOptions options = Options();
  options.allow_collisions = true;
  EXPECT_FALSE(nomsoi::RunPreflight(options).Refused());
}

TEST_F(Preflight, SameFileByTwoPathsIsNoCollision) {
  Product("lib/Bolt.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\Bolt.vgxXml", "..\\LIB\\.\\Bolt.vgxXml"}}});
  EXPECT_FALSE(Check().Refused());
}

TEST_F(Preflight, ProductNamedLikeTheMainDocumentCollidesWithIt) {
  Product("lib/soi.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\soi.vgxXml"}}});
  EXPECT_TRUE(RefusedFor(Check(), Refusal::kCollision));
}

TEST_F(Preflight, VisitsAreCountedByPathsWithoutEnumeratingThem) {
  const int wide = 6, deep = 6;
  for (int level = 1; level <= deep; ++level) {
    Strings refs;
    if (level < deep) refs.assign(wide, "L" + std::to_string(level + 1) + ".vgxXml");
    if (refs.empty()) refs.push_back(kAbsent);
    Product("lib/L" + std::to_string(level) + ".vgxXml", AssemblyDocument(refs));
  }
  Package({{"ProductList", Strings(wide, "..\\lib\\L1.vgxXml")}});
  const PreflightResult plan = Check();
  ASSERT_FALSE(plan.Refused());
  EXPECT_EQ(plan.visits, 6u + 36u + 216u + 1296u + 7776u + 46656u);
  EXPECT_EQ(plan.depth, 6u);

  PreflightOptions options = Options();
  options.max_visits = 55985;
  const PreflightResult limited = nomsoi::RunPreflight(options);
  ASSERT_TRUE(RefusedFor(limited, Refusal::kTooManyVisits));
  EXPECT_NE(limited.problems[0].message.find("--max-visits 55985"), std::string::npos);
}

TEST_F(Preflight, NestingDeeperThanTheLimitIsRefused) {
  for (int i = 0; i < 12; ++i) {
    Product("lib/C" + std::to_string(i) + ".vgxXml",
            AssemblyDocument({i + 1 < 12 ? "C" + std::to_string(i + 1) + ".vgxXml" : kAbsent}));
  }
  Package({{"ProductList", {"..\\lib\\C0.vgxXml"}}});
  EXPECT_EQ(Check().depth, 12u);
  PreflightOptions options = Options();
  options.max_depth = 11;
  const PreflightResult limited = nomsoi::RunPreflight(options);
  ASSERT_TRUE(RefusedFor(limited, Refusal::kTooDeep));
  EXPECT_NE(limited.problems[0].message.find("--max-depth 11"), std::string::npos);
  options.max_depth = 12;
  EXPECT_FALSE(nomsoi::RunPreflight(options).Refused());
}

TEST_F(Preflight, ResourcesOfTheMainDocumentAreConfinedToo) {
  nomtest::WriteFile(dir_.Sub("outside/secret.png"), "secret");
  nomtest::WriteFile(
      dir_.Sub("pkg/SOI.vgxXml"),
      "<VgxDocument><Resource File=\"" + M("outside/secret.png") + "\"/></VgxDocument>");
  nomtest::WriteFile(dir_.Sub("pkg/SOI.vgxView"), pk::ViewDocument());
  nomplat::SetConfinementRoots({dir_.Sub("pkg")});
  const PreflightResult plan = Check();
  nomplat::SetConfinementRoots({});
  ASSERT_TRUE(RefusedFor(plan, Refusal::kOutsideConfinement));
  EXPECT_NE(plan.problems[0].message.find("resource '" + M("outside/secret.png") + "'"),
            std::string::npos)
      << plan.problems[0].message;
}

TEST_F(Preflight, DocumentThroughALinkOutsideTheRootsIsRefused) {
  Product("outside/A.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"A.vgxXml"}}});
  ASSERT_EQ(symlink(dir_.Sub("outside/A.vgxXml").c_str(), dir_.Sub("pkg/A.vgxXml").c_str()), 0);
  nomplat::SetConfinementRoots({dir_.Sub("pkg")});
  const PreflightResult plan = Check();
  nomplat::SetConfinementRoots({});
  ASSERT_TRUE(RefusedFor(plan, Refusal::kOutsideConfinement));
  EXPECT_NE(plan.problems[0].message.find(dir_.Sub("outside/A.vgxXml")), std::string::npos)
      << plan.problems[0].message;
}

TEST_F(Preflight, BytesCountEachFileToCopyOnce) {
  Product("lib/A.vgxXml", AssemblyDocument({kAbsent}));
  nomtest::WriteFile(dir_.Sub("lib/A.vgxGeom"), std::string(4096, 'g'));
  Package({{"ProductList", {"..\\lib\\A.vgxXml", "..\\lib\\A.vgxXml"}}});
  PreflightOptions options = Options();
  options.check_space = true;
  const PreflightResult plan = nomsoi::RunPreflight(options);
  ASSERT_FALSE(plan.Refused());
  EXPECT_EQ(plan.bytes, nomtest::ReadFile(dir_.Sub("lib/A.vgxXml")).size() + 4096u);
}

TEST_F(Preflight, CopyOverAFileTheWalkReadsIsFlagged) {
  Product("pkg/O.vgxXml", AssemblyDocument({kAbsent}));
  Product("other/O.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\other\\O.vgxXml", "O.vgxXml"}}});
  PreflightOptions options = Options();
  options.soi_directory = M("pkg");
  options.allow_collisions = true;
  const PreflightResult plan = nomsoi::RunPreflight(options);
  ASSERT_FALSE(plan.Refused());
  EXPECT_TRUE(plan.meets_own_copies);
}

TEST_F(Preflight, MissingFileNamedLikeAnEarlierCopyIsFlagged) {
  Product("lib/A.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml", "..\\out\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_FALSE(plan.Refused());
  EXPECT_TRUE(plan.meets_own_copies);
}

TEST_F(Preflight, MissingFileNamedLikeALaterCopyIsFlagged) {
  Product("lib/A.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\out\\A.vgxXml", "..\\lib\\A.vgxXml", "..\\out\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_FALSE(plan.Refused());
  EXPECT_TRUE(plan.meets_own_copies);
}

TEST_F(Preflight, MissingFileOfAnotherNameIsNotFlagged) {
  Product("lib/A.vgxXml", AssemblyDocument({"Gone.vgxXml"}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  const PreflightResult plan = Check();
  ASSERT_FALSE(plan.Refused());
  EXPECT_FALSE(plan.meets_own_copies);
}

TEST_F(Preflight, CopyOfAFileOntoItselfIsNotFlagged) {
  Product("pkg/O.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"O.vgxXml", "O.vgxXml"}}});
  PreflightOptions options = Options();
  options.soi_directory = M("pkg");
  const PreflightResult plan = nomsoi::RunPreflight(options);
  ASSERT_FALSE(plan.Refused());
  EXPECT_FALSE(plan.meets_own_copies);
}

TEST_F(Preflight, CopyOverAFileNobodyReadsIsNotFlagged) {
  Product("lib/A.vgxXml", AssemblyDocument({kAbsent}));
  nomtest::WriteFile(dir_.Sub("pkg/A.vgxXml"), "old");
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  PreflightOptions options = Options();
  options.soi_directory = M("pkg");
  const PreflightResult plan = nomsoi::RunPreflight(options);
  ASSERT_FALSE(plan.Refused());
  EXPECT_FALSE(plan.meets_own_copies);
}

// Answers every free-space question with a fixed number of bytes.
class FixedFreeSpace : public nomplat::EnvWrapper {
 public:
  explicit FixedFreeSpace(uint64_t bytes)
      : EnvWrapper(nomplat::CurrentEnv()), bytes_(bytes), scoped_(this) {}
  DWORD FreeBytes(const std::string&, uint64_t* bytes) override {
    *bytes = bytes_;
    return 0;
  }

 private:
  uint64_t bytes_;
  nomplat::ScopedEnv scoped_;
};

TEST_F(Preflight, NotEnoughFreeSpaceIsRefused) {
  Product("lib/A.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  PreflightOptions options = Options();
  options.check_space = true;
  const uint64_t needed = nomsoi::RunPreflight(options).bytes;
  {
    FixedFreeSpace room(needed);
    EXPECT_FALSE(nomsoi::RunPreflight(options).Refused());
  }
  FixedFreeSpace too_little(needed - 1);
  const PreflightResult plan = nomsoi::RunPreflight(options);
  ASSERT_TRUE(RefusedFor(plan, Refusal::kNoSpace));
  EXPECT_EQ(plan.problems[0].message, "the copies need " + std::to_string(needed) +
                                          " bytes but the file system of '" + soi_ + "' has " +
                                          std::to_string(needed - 1) + " bytes free");
}

TEST_F(Preflight, FreeSpaceGivenIsCheckedInsteadOfMeasured) {
  Product("lib/A.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\lib\\A.vgxXml"}}});
  PreflightOptions options = Options();
  options.check_space = true;
  const uint64_t needed = nomsoi::RunPreflight(options).bytes;
  FixedFreeSpace measured(0);   // what the file system says now, after copies were staged
  options.free_bytes = needed;  // what it said before
  EXPECT_FALSE(nomsoi::RunPreflight(options).Refused());
  options.free_bytes = needed - 1;
  const PreflightResult plan = nomsoi::RunPreflight(options);
  ASSERT_TRUE(RefusedFor(plan, Refusal::kNoSpace));
  EXPECT_EQ(plan.problems[0].message, "the copies need " + std::to_string(needed) +
                                          " bytes but the file system of '" + soi_ + "' has " +
                                          std::to_string(needed - 1) + " bytes free");
}

// Without the preflight (a program calling the library directly), the platform still refuses to
// read outside the roots, and the module reports the reference with its own line.
TEST_F(Preflight, ModuleLogsItsOwnLineForAFileOutsideTheRoots) {
  Product("outside/A.vgxXml", AssemblyDocument({kAbsent}));
  Package({{"ProductList", {"..\\outside\\A.vgxXml"}}});
  nomplat::SetConfinementRoots({dir_.Sub("pkg")});
  nomzub::RegisterPackage(M("pkg/SOI.vgxXml"), M("pkg/SOI.vgxView"));
  utility_.PackNGo(soi_);
  nomplat::SetConfinementRoots({});
  EXPECT_EQ(nomtest::ModuleLines(log_),
            (std::vector<nomtest::LogLine>{
                pk::Start("Product"), pk::Count(1), pk::UnableToOpen(M("outside/A.vgxXml")),
                pk::Done("Product"), pk::UpdatingLine(), pk::UpdatedLine()}));
  EXPECT_FALSE(nomtest::FileExists(dir_.Sub("pkg/A.vgxXml")));
}

}  // namespace
