// The Env seam (current Env, wrappers, fault injection), GetEnvironmentVariableA and
// PathFindFileNameA.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/win32.h"
#include "support/fault_injection_env.h"
#include "support/test_support.h"

namespace nomplat {
namespace {

using nomtest::ReadFile;
using nomtest::ScopedEnvVar;
using nomtest::TempDir;
using nomtest::WriteFile;

// Records the paths it is asked about and answers from the wrapped Env.
class RecordingEnv : public EnvWrapper {
 public:
  explicit RecordingEnv(Env* target) : EnvWrapper(target) {}
  bool CanOpenForReading(const std::string& path) override {
    calls.push_back("CanOpenForReading " + path);
    return EnvWrapper::CanOpenForReading(path);
  }
  DWORD CopyFile(const std::string& src, const std::string& dst, bool failIfExists) override {
    calls.push_back("CopyFile " + src + " " + dst + (failIfExists ? " 1" : " 0"));
    return EnvWrapper::CopyFile(src, dst, failIfExists);
  }
  bool GetEnvironmentVariable(const std::string& name, std::string* value) override {
    calls.push_back("GetEnvironmentVariable " + name);
    return EnvWrapper::GetEnvironmentVariable(name, value);
  }
  std::vector<std::string> calls;
};

// --- current Env ------------------------------------------------------------------------------

TEST(Env, CurrentEnv_IsDefaultUnlessReplaced) {
  EXPECT_EQ(Env::Default(), CurrentEnv());
  EXPECT_NE(nullptr, Env::Default());
}

TEST(Env, ScopedEnv_InstallsAndRestores) {
  RecordingEnv outer(Env::Default());
  {
    ScopedEnv installOuter(&outer);
    EXPECT_EQ(&outer, CurrentEnv());
    RecordingEnv inner(&outer);
    {
      ScopedEnv installInner(&inner);
      EXPECT_EQ(&inner, CurrentEnv());
    }
    EXPECT_EQ(&outer, CurrentEnv());
  }
  EXPECT_EQ(Env::Default(), CurrentEnv());
}

TEST(Env, SetCurrentEnv_NullRestoresDefaultAndReturnsReplaced) {
  RecordingEnv env(Env::Default());
  EXPECT_EQ(Env::Default(), SetCurrentEnv(&env));
  EXPECT_EQ(&env, SetCurrentEnv(nullptr));
  EXPECT_EQ(Env::Default(), CurrentEnv());
}

TEST(Env, Win32Calls_GoThroughCurrentEnv) {
  // The platform reads its own settings (code page, drive maps, case look-up) through the Env on
  // first use: let it do so before recording.
  std::string native;
  DWORD error = 0;
  ToNativePath("C:\\a", &native, &error);
  RecordingEnv env(Env::Default());
  ScopedEnv install(&env);
  CopyFileA("C:\\a", "C:\\b", TRUE);
  CanOpenForReading("C:\\a");
  char buffer[8];
  GetEnvironmentVariableA("ADL_ODT_IN", buffer, sizeof buffer);
  EXPECT_EQ((std::vector<std::string>{"CopyFile C:\\a C:\\b 1", "CanOpenForReading C:\\a",
                                      "GetEnvironmentVariable ADL_ODT_IN"}),
            env.calls);
}

// --- FaultInjectionEnv ------------------------------------------------------------------------

class FaultInjectionTest : public ::testing::Test {
 protected:
  FaultInjectionTest() : faults_(Env::Default()), install_(&faults_), codePage_(65001) {
    ResetPathMaps();
    MapDrive('C', tmp_.path());
    WriteFile(tmp_.Sub("a.vgxXml"), "data");
    SetLastError(0);
    faults_.Reset();  // the maps have just read the environment through it
  }

  TempDir tmp_;
  ScopedPathMaps maps_;
  FaultInjectionEnv faults_;
  ScopedEnv install_;
  ScopedCodePage codePage_;
};

TEST_F(FaultInjectionTest, CopyFile_FailsNthCallWithChosenError) {
  faults_.FailOn(FaultInjectionEnv::kCopyFile, 2, 112);
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\1.vgxXml", FALSE));
  EXPECT_FALSE(CopyFileA("C:\\a.vgxXml", "C:\\2.vgxXml", FALSE));
  EXPECT_EQ(112u, GetLastError());
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\3.vgxXml", FALSE));
  EXPECT_EQ(3, faults_.Count(FaultInjectionEnv::kCopyFile));
  EXPECT_EQ((std::vector<std::string>{"1.vgxXml", "3.vgxXml", "a.vgxXml"}),
            nomtest::ListDir(tmp_.path()));
}

TEST_F(FaultInjectionTest, CopyFile_StickyFailsEveryLaterCall) {
  faults_.FailOn(FaultInjectionEnv::kCopyFile, 2, 5, true);
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\1.vgxXml", FALSE));
  EXPECT_FALSE(CopyFileA("C:\\a.vgxXml", "C:\\2.vgxXml", FALSE));
  EXPECT_FALSE(CopyFileA("C:\\a.vgxXml", "C:\\3.vgxXml", FALSE));
  EXPECT_EQ(5u, GetLastError());
  EXPECT_EQ(3, faults_.Count(FaultInjectionEnv::kCopyFile));
}

TEST_F(FaultInjectionTest, CanOpenForReading_FailsAsUnreadableFile) {
  faults_.FailOn(FaultInjectionEnv::kCanOpenForReading, 1, 5);
  EXPECT_FALSE(CanOpenForReading("C:\\a.vgxXml"));
  EXPECT_TRUE(CanOpenForReading("C:\\a.vgxXml"));
  EXPECT_EQ(2, faults_.Count(FaultInjectionEnv::kCanOpenForReading));
}

TEST_F(FaultInjectionTest, ReadFile_FailureClearsContents) {
  faults_.FailOn(FaultInjectionEnv::kReadFile, 1, 32);
  std::string contents = "stale";
  EXPECT_EQ(32u, CurrentEnv()->ReadFile("C:\\a.vgxXml", &contents));
  EXPECT_EQ("", contents);
  EXPECT_EQ(0u, CurrentEnv()->ReadFile("C:\\a.vgxXml", &contents));
  EXPECT_EQ("data", contents);
}

TEST_F(FaultInjectionTest, WriteAndCreate_FailWithoutTouchingDisk) {
  faults_.FailOn(FaultInjectionEnv::kWriteFileAtomic, 1, 112);
  faults_.FailOn(FaultInjectionEnv::kCreateDirectories, 1, 5);
  EXPECT_EQ(112u, CurrentEnv()->WriteFileAtomic("C:\\a.vgxXml", "new"));
  EXPECT_EQ(5u, CurrentEnv()->CreateDirectories("C:\\Dir"));
  EXPECT_EQ("data", ReadFile(tmp_.Sub("a.vgxXml")));
  EXPECT_EQ((std::vector<std::string>{"a.vgxXml"}), nomtest::ListDir(tmp_.path()));
}

TEST_F(FaultInjectionTest, GetEnvironmentVariable_FailsAsUnset) {
  ScopedEnvVar set("NOM_TEST_VARIABLE", "value");
  faults_.FailOn(FaultInjectionEnv::kGetEnvironmentVariable, 1, 1);
  std::string value = "stale";
  EXPECT_FALSE(CurrentEnv()->GetEnvironmentVariable("NOM_TEST_VARIABLE", &value));
  EXPECT_EQ("", value);
  EXPECT_TRUE(CurrentEnv()->GetEnvironmentVariable("NOM_TEST_VARIABLE", &value));
  EXPECT_EQ("value", value);
}

TEST_F(FaultInjectionTest, Count_IsKeptPerOperation) {
  std::string contents;
  CanOpenForReading("C:\\a.vgxXml");
  CurrentEnv()->ReadFile("C:\\a.vgxXml", &contents);
  CurrentEnv()->ReadFile("C:\\a.vgxXml", &contents);
  EXPECT_EQ(1, faults_.Count(FaultInjectionEnv::kCanOpenForReading));
  EXPECT_EQ(2, faults_.Count(FaultInjectionEnv::kReadFile));
  EXPECT_EQ(0, faults_.Count(FaultInjectionEnv::kCopyFile));
}

TEST_F(FaultInjectionTest, Reset_ForgetsCountsAndPlans) {
  faults_.FailOn(FaultInjectionEnv::kCopyFile, 1, 112);
  CanOpenForReading("C:\\a.vgxXml");
  faults_.Reset();
  EXPECT_EQ(0, faults_.Count(FaultInjectionEnv::kCanOpenForReading));
  EXPECT_TRUE(CopyFileA("C:\\a.vgxXml", "C:\\b.vgxXml", FALSE));
}

// --- GetEnvironmentVariableA ------------------------------------------------------------------

TEST(Env, GetEnvironmentVariableA_UnsetGivesZeroAndEmptyString) {
  ScopedEnvVar unset("NOM_TEST_VARIABLE", std::nullopt);
  SetLastError(0);
  char buffer[8] = "stale";
  EXPECT_EQ(0u, GetEnvironmentVariableA("NOM_TEST_VARIABLE", buffer, sizeof buffer));
  EXPECT_STREQ("", buffer);
  EXPECT_EQ(203u, GetLastError());
}

TEST(Env, GetEnvironmentVariableA_EmptyGivesZeroAndEmptyString) {
  ScopedEnvVar empty("NOM_TEST_VARIABLE", "");
  char buffer[8] = "stale";
  EXPECT_EQ(0u, GetEnvironmentVariableA("NOM_TEST_VARIABLE", buffer, sizeof buffer));
  EXPECT_STREQ("", buffer);
}

TEST(Env, GetEnvironmentVariableA_CopiesValueAndReturnsLength) {
  ScopedEnvVar set("NOM_TEST_VARIABLE", "/data/odt");
  char buffer[10];
  EXPECT_EQ(9u, GetEnvironmentVariableA("NOM_TEST_VARIABLE", buffer, sizeof buffer));
  EXPECT_STREQ("/data/odt", buffer);
}

TEST(Env, GetEnvironmentVariableA_TooSmallBufferGivesSizeNeeded) {
  ScopedEnvVar set("NOM_TEST_VARIABLE", "/data/odt");
  char buffer[9] = "stale";
  EXPECT_EQ(10u, GetEnvironmentVariableA("NOM_TEST_VARIABLE", buffer, sizeof buffer));
  EXPECT_STREQ("stale", buffer);
  EXPECT_EQ(10u, GetEnvironmentVariableA("NOM_TEST_VARIABLE", nullptr, 0));
}

TEST(Env, GetEnvironmentVariableA_SuccessKeepsLastError) {
  ScopedEnvVar set("NOM_TEST_VARIABLE", "x");
  SetLastError(1234);
  char buffer[4];
  EXPECT_EQ(1u, GetEnvironmentVariableA("NOM_TEST_VARIABLE", buffer, sizeof buffer));
  EXPECT_EQ(1234u, GetLastError());
}

// --- PathFindFileNameA ------------------------------------------------------------------------

// The part of path PathFindFileNameA returns, after checking it points into path.
std::string FileName(const char* path) {
  const char* name = PathFindFileNameA(path);
  if (name < path || name > path + std::strlen(path)) return "<outside>";
  return name;
}

TEST(Env, PathFindFileNameA_FullPathGivesLastComponent) {
  EXPECT_EQ("Part.vgxXml", FileName("C:\\Pkg\\Part.vgxXml"));
  EXPECT_EQ("Part.vgxXml", FileName("C:/Pkg/Part.vgxXml"));
}

TEST(Env, PathFindFileNameA_TrailingSeparatorGivesLastDirectory) {
  EXPECT_EQ("Pkg\\", FileName("C:\\Pkg\\"));
}

TEST(Env, PathFindFileNameA_DriveAloneIsItself) {
  EXPECT_EQ("C:", FileName("C:"));
  EXPECT_EQ("C:\\", FileName("C:\\"));
  EXPECT_EQ("x", FileName("C:x"));
}

TEST(Env, PathFindFileNameA_EmptyAndBareName) {
  EXPECT_EQ("", FileName(""));
  EXPECT_EQ("Part", FileName("Part"));
}

TEST(Env, PathFindFileNameA_ShareGivesShareName) { EXPECT_EQ("share", FileName("\\\\srv\\share")); }

TEST(Env, PathFindFileNameA_932TrailByte5CIsNoSeparator) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("\x95\x5Cx.vgxXml", FileName("C:\\Pkg\\\x95\x5Cx.vgxXml"));
  EXPECT_EQ("\x95\x5C", FileName("C:\\Pkg\\\x95\x5C"));
}

TEST(Env, PathFindFileNameA_1252SameBytesSplit) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("x.vgxXml", FileName("C:\\Pkg\\\x95\x5Cx.vgxXml"));
}

}  // namespace
}  // namespace nomplat
