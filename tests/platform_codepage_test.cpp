// Code pages: stepping, comparison and search by character, conversions, the page chosen at
// start, BSTRs.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/codepage.h"
#include "platform/win32.h"
#include "services/NOMZUBLog.h"
#include "support/table_env.h"
#include "support/test_support.h"
#include "win_types.h"

namespace nomplat {
namespace {

const unsigned char* U(const char* s) { return reinterpret_cast<const unsigned char*>(s); }

// Bytes _mbsinc advances from the start of s.
long Step(const char* s) { return _mbsinc(U(s)) - U(s); }

int Sign(int v) { return (v > 0) - (v < 0); }

// The UTF-16 text of src (through its terminator) in code page cp.
std::u16string Wide(UINT cp, const char* src) {
  const int needed = MultiByteToWideChar(cp, 0, src, -1, nullptr, 0);
  if (needed <= 0) return u"<failed>";
  std::u16string out(static_cast<size_t>(needed), u'\0');
  if (MultiByteToWideChar(cp, 0, src, -1, out.data(), needed) != needed) return u"<failed>";
  out.pop_back();  // the terminator
  return out;
}

// --- stepping ---------------------------------------------------------------------------------

TEST(CodePage, Inc_Utf8_EveryByteIsOneStep) {
  ScopedCodePage cp(65001);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\xE8\xA1\xA8"));
  EXPECT_EQ(1, Step("\x81\x40"));
  EXPECT_EQ(1, Step("a"));
}

TEST(CodePage, Inc_1252_EveryByteIsOneStep) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x81\x40"));
  EXPECT_EQ(1, Step("\xE9x"));
}

TEST(CodePage, Inc_SingleBytePageFromIconv_EveryByteIsOneStep) {
  ScopedCodePage cp(1251);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x81\x40"));
  EXPECT_EQ(1, Step("\xC0\xC1"));
}

TEST(CodePage, Inc_932_LeadByteRangesStepTwo) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x80\x40"));
  EXPECT_EQ(2, Step("\x81\x40"));
  EXPECT_EQ(2, Step("\x9F\x40"));
  EXPECT_EQ(1, Step("\xA0\x40"));
  EXPECT_EQ(1, Step("\xA1\x40"));  // half-width katakana: one byte
  EXPECT_EQ(1, Step("\xDF\x40"));
  EXPECT_EQ(2, Step("\xE0\x40"));
  EXPECT_EQ(2, Step("\xFC\x40"));
  EXPECT_EQ(1, Step("\xFD\x40"));
  EXPECT_EQ(1, Step("a"));
}

TEST(CodePage, Inc_936_LeadByteRangeStepsTwo) {
  ScopedCodePage cp(936);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x80\x40"));
  EXPECT_EQ(2, Step("\x81\x5C"));
  EXPECT_EQ(2, Step("\xFE\x40"));
  EXPECT_EQ(1, Step("\xFF\x40"));
}

TEST(CodePage, Inc_949_LeadByteRangeStepsTwo) {
  ScopedCodePage cp(949);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x80\x41"));
  EXPECT_EQ(2, Step("\x81\x41"));
  EXPECT_EQ(2, Step("\xB0\xA1"));
  EXPECT_EQ(2, Step("\xFE\xA1"));
  EXPECT_EQ(1, Step("\xFF\xA1"));
}

TEST(CodePage, Inc_950_LeadByteRangeStepsTwo) {
  ScopedCodePage cp(950);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x80\x40"));
  EXPECT_EQ(2, Step("\xA5\x5C"));
  EXPECT_EQ(2, Step("\xFE\x40"));
  EXPECT_EQ(1, Step("\xFF\x40"));
}

TEST(CodePage, Inc_LeadByteBeforeTerminator_IsOneStep) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x81"));
  EXPECT_EQ(1, Step(""));
}

TEST(CodePage, Inc_FollowsCodePageChanges) {
  {
    ScopedCodePage cp(932);
    ASSERT_TRUE(cp.ok());
    EXPECT_EQ(2, Step("\x81\x40"));
    EXPECT_EQ(1, Step("\xA1\x40"));
  }
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Step("\x81\x40"));
}

// --- comparison -------------------------------------------------------------------------------

TEST(CodePage, Compare_932_SingleByteA1SortsBeforeDoubleByte8140) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(-1, Sign(MbsCompare("\xA1", "\x81\x40")));
  EXPECT_EQ(1, Sign(MbsCompare("\x81\x40", "\xA1")));
}

TEST(CodePage, Compare_1252_ComparesBytesUnsigned) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  // In a single-byte page 0x81 0x40 is two characters and 0x81 > 0xA1 is false.
  EXPECT_EQ(-1, Sign(MbsCompare("\x81\x40", "\xA1")));
  EXPECT_EQ(1, Sign(MbsCompare("\xE9", "e")));
}

TEST(CodePage, Compare_936_DoubleByteValueAgainstSingleByte) {
  ScopedCodePage cp(936);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1, Sign(MbsCompare("\x81\x40", "\xFE")));
  EXPECT_EQ(-1, Sign(MbsCompare("\xB0\xA1", "\xB0\xA2")));
}

TEST(CodePage, Compare_UpperCaseSortsBeforeLowerCase) {
  ScopedCodePage cp(65001);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(-1, Sign(MbsCompare("Part", "part")));
  EXPECT_EQ(-1, Sign(MbsCompare("Z", "a")));
  EXPECT_EQ(0, MbsCompare("Part", "Part"));
}

TEST(CodePage, Compare_PrefixSortsFirst) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(-1, Sign(MbsCompare("ab", "abc")));
  EXPECT_EQ(1, Sign(MbsCompare("ab\x81\x40", "ab")));
  EXPECT_EQ(0, MbsCompare("", ""));
}

TEST(CodePage, Compare_LeadByteAtEndCountsAsSingleByte) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  // "\x81" alone is the single character 0x81, which sorts before 0x8140.
  EXPECT_EQ(-1, Sign(MbsCompare("\x81", "\x81\x40")));
  EXPECT_EQ(1, Sign(MbsCompare("\x81", "\x80")));
}

TEST(CodePage, MbsLess_OrdersMapKeysByCharacters) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  std::map<std::string, int, NOMMbsLess> keys = {{"\x81\x40", 1}, {"\xA1", 2}, {"a", 3}, {"A", 4}};
  std::vector<std::string> order;
  for (const auto& entry : keys) order.push_back(entry.first);
  EXPECT_EQ((std::vector<std::string>{"A", "a", "\xA1", "\x81\x40"}), order);
}

// --- search -----------------------------------------------------------------------------------

TEST(CodePage, FindLast_932_TrailByte5CIsNoBackslash) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(std::string::npos, MbsFindLast("\x95\x5C.vgxXml", '\\'));
  EXPECT_EQ(3u, MbsFindLast("dir\\\x95\x5C", '\\'));
}

TEST(CodePage, FindLast_1252_SameBytesHoldBackslash) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1u, MbsFindLast("\x95\x5C.vgxXml", '\\'));
}

TEST(CodePage, FindLast_FindsLastOccurrence) {
  ScopedCodePage cp(65001);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(3u, MbsFindLast("a\\b\\c", '\\'));
  EXPECT_EQ(std::string::npos, MbsFindLast("a\\b\\c", '/'));
}

TEST(CodePage, Find_932_TrailByte5CIsNoBackslash) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(std::string::npos, MbsFind("\x95\x5C", "\\"));
  EXPECT_EQ(std::string::npos, MbsFind("\x95\x5Cx", "\\x"));
  EXPECT_EQ(2u, MbsFind("\x95\x5C\\x", "\\x"));
}

TEST(CodePage, Find_1252_SameBytesHoldBackslash) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1u, MbsFind("\x95\x5C", "\\"));
}

TEST(CodePage, Find_EmptyNeedleMatchesAtStart) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(0u, MbsFind("abc", ""));
}

TEST(CodePage, Find_MissingNeedleIsNpos) {
  ScopedCodePage cp(65001);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(std::string::npos, MbsFind("abc", "abd"));
  EXPECT_EQ(std::string::npos, MbsFind("ab", "abc"));
}

// --- MultiByteToWideChar ----------------------------------------------------------------------

TEST(CodePage, MultiByteToWideChar_1252E9IsU00E9) {
  EXPECT_EQ(u"caf\u00E9", Wide(1252, "caf\xE9"));
}

TEST(CodePage, MultiByteToWideChar_932DoubleByte) {
  EXPECT_EQ(u"\u3042\u8868", Wide(932, "\x82\xA0\x95\x5C"));
  EXPECT_EQ(u"\uFF61", Wide(932, "\xA1"));
}

TEST(CodePage, MultiByteToWideChar_OtherDoubleBytePages) {
  EXPECT_EQ(u"\u4E57", Wide(936, "\x81\x5C"));
  EXPECT_EQ(u"\uAC00", Wide(949, "\xB0\xA1"));
  EXPECT_EQ(u"\u529F", Wide(950, "\xA5\x5C"));
}

TEST(CodePage, MultiByteToWideChar_InvalidByteIsReplacementCharacter) {
  EXPECT_EQ(u"a\uFFFDb", Wide(1252,
                              "a\x81"
                              "b"));
  EXPECT_EQ(u"a\uFFFDb", Wide(65001,
                              "a\xFF"
                              "b"));
  EXPECT_EQ(u"\uFFFD\uFFFD", Wide(65001, "\xFF\xFE"));
  EXPECT_EQ(u"x\uFFFD", Wide(932, "x\x81"));  // a lead byte cut off by the end
}

TEST(CodePage, MultiByteToWideChar_ThreadAcpIsProcessCodePage) {
  {
    ScopedCodePage cp(932);
    ASSERT_TRUE(cp.ok());
    EXPECT_EQ(u"\u8868", Wide(CP_THREAD_ACP, "\x95\x5C"));
    EXPECT_EQ(u"\u8868", Wide(CP_ACP, "\x95\x5C"));
  }
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(u"\u2022\\", Wide(CP_THREAD_ACP, "\x95\x5C"));
}

TEST(CodePage, MultiByteToWideChar_LengthQueryWithMinusOneCountsTerminator) {
  EXPECT_EQ(4, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, nullptr, 0));
  EXPECT_EQ(1, MultiByteToWideChar(CP_UTF8, 0, "", -1, nullptr, 0));
  EXPECT_EQ(2, MultiByteToWideChar(932, 0, "\x95\x5C", -1, nullptr, 0));
}

TEST(CodePage, MultiByteToWideChar_LengthQueryWithCountHasNoTerminator) {
  EXPECT_EQ(3, MultiByteToWideChar(CP_UTF8, 0, "abcdef", 3, nullptr, 0));
  EXPECT_EQ(1, MultiByteToWideChar(932, 0, "\x95\x5Cxyz", 2, nullptr, 0));
}

TEST(CodePage, MultiByteToWideChar_MinusOneWritesTerminator) {
  OLECHAR out[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(3, MultiByteToWideChar(CP_UTF8, 0, "ab", -1, out, 4));
  EXPECT_EQ(u'a', out[0]);
  EXPECT_EQ(u'b', out[1]);
  EXPECT_EQ(u'\0', out[2]);
  EXPECT_EQ(u'x', out[3]);
}

TEST(CodePage, MultiByteToWideChar_BufferTooSmallReturnsZero) {
  SetLastError(0);
  OLECHAR out[3] = {};
  EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, "abc", -1, out, 3));
  EXPECT_EQ(122u, GetLastError());
}

TEST(CodePage, MultiByteToWideChar_UnsupportedCodePageFails) {
  SetLastError(0);
  EXPECT_EQ(0, MultiByteToWideChar(12345, 0, "abc", -1, nullptr, 0));
  EXPECT_EQ(87u, GetLastError());
}

TEST(CodePage, MultiByteToWideChar_ZeroLengthSourceFails) {
  EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, "abc", 0, nullptr, 0));
  EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, nullptr, -1, nullptr, 0));
}

// --- other conversions ------------------------------------------------------------------------

TEST(CodePage, Utf8ToAcp_932DoubleByte) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("a\x95\x5C", Utf8ToAcp("a\xE8\xA1\xA8"));
}

TEST(CodePage, Utf8ToAcp_UnrepresentableCharacterIsQuestionMark) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("a?\xE9", Utf8ToAcp("a\xE3\x81\x82\xC3\xA9"));
  EXPECT_EQ("?b", Utf8ToAcp("\xF0\x9F\x98\x80"
                            "b"));  // one character, one question mark
}

TEST(CodePage, Utf8ToAcp_EachMalformedByteIsQuestionMark) {
  ScopedCodePage cp(1252);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("a??b", Utf8ToAcp("a\xC0\x80"
                              "b"));         // an overlong form is two bad bytes
  EXPECT_EQ("a??", Utf8ToAcp("a\xE3\x81"));  // cut short at the end: two bad bytes
}

TEST(CodePage, AcpToUtf8_932ConvertsAndBack) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("x\xE8\xA1\xA8", AcpToUtf8("x\x95\x5C"));
  EXPECT_EQ("x\x95\x5C", Utf8ToAcp("x\xE8\xA1\xA8"));
  EXPECT_EQ("?", Utf8ToAcp("\xF0\x9F\x98\x80"));
}

TEST(CodePage, AcpToUtf8_Utf8PageReturnsInputUnchanged) {
  ScopedCodePage cp(65001);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ("bad\xFF", AcpToUtf8("bad\xFF"));
  EXPECT_EQ("bad\xFF", Utf8ToAcp("bad\xFF"));
}

TEST(CodePage, MultiByteToWideChar_Utf8SurrogatePairAndCutSequence) {
  EXPECT_EQ(u"\u00E9\U0001F600", Wide(CP_UTF8, "\xC3\xA9\xF0\x9F\x98\x80"));
  EXPECT_EQ(u"a\uFFFD", Wide(CP_UTF8, "a\xC3"));
}

TEST(CodePage, MultiByteToWideChar_Utf8OverlongAndSurrogateFormsAreBadBytes) {
  EXPECT_EQ(u"\uFFFD\uFFFDx", Wide(CP_UTF8, "\xC0\x80x"));
  EXPECT_EQ(u"\uFFFD\uFFFD\uFFFD", Wide(CP_UTF8, "\xED\xA0\x80"));
  EXPECT_EQ(u"\uFFFD\uFFFD\uFFFD\uFFFD", Wide(CP_UTF8, "\xF4\x90\x80\x80"));
}

TEST(CodePage, Utf16ToUtf8_SurrogatePairAndUnpairedSurrogate) {
  EXPECT_EQ("\xC3\xA9\xF0\x9F\x98\x80", Utf16ToUtf8(u"\u00E9\U0001F600"));
  EXPECT_EQ(
      "a\xEF\xBF\xBD"
      "b",
      Utf16ToUtf8(std::u16string(u"a") + char16_t(0xD800) + u"b"));
}

// --- code page selection ----------------------------------------------------------------------

TEST(CodePage, SetACP_RejectsUnknownPageAndKeepsCurrent) {
  ScopedCodePage cp(932);
  ASSERT_TRUE(cp.ok());
  EXPECT_FALSE(SetACP(12345));
  EXPECT_FALSE(SetACP(0));
  EXPECT_EQ(932u, GetACP());
}

TEST(CodePage, SetACP_RejectsIconvPageWithLongerSequences) {
  ScopedCodePage cp(1361);  // Johab: double-byte, but not one whose lead bytes we know
  EXPECT_FALSE(cp.ok());
}

TEST(CodePage, SetACP_AcceptsSingleBytePageIconvKnows) {
  ScopedCodePage cp(1251);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(1251u, GetACP());
  EXPECT_EQ(u"\u0410", Wide(CP_ACP, "\xC0"));
}

TEST(CodePage, SetACP_AcceptsIsoPages) {
  ScopedCodePage cp(28591);
  ASSERT_TRUE(cp.ok());
  EXPECT_EQ(u"\u00E9", Wide(CP_ACP, "\xE9"));
}

TEST(CodePage, ScopedCodePage_RestoresPrevious) {
  const UINT before = GetACP();
  {
    ScopedCodePage cp(before == 932 ? 1252 : 932);
    ASSERT_TRUE(cp.ok());
    EXPECT_NE(before, GetACP());
  }
  EXPECT_EQ(before, GetACP());
}

TEST(CodePage, LocaleNamesToWindowsNumbers) {
  EXPECT_EQ(65001u, CodePageOfCodeset("UTF-8"));
  EXPECT_EQ(65001u, CodePageOfCodeset("ANSI_X3.4-1968"));
  EXPECT_EQ(932u, CodePageOfCodeset("SHIFT_JIS"));
  EXPECT_EQ(936u, CodePageOfCodeset("GBK"));
  EXPECT_EQ(949u, CodePageOfCodeset("EUC-KR"));
  EXPECT_EQ(950u, CodePageOfCodeset("BIG5"));
  EXPECT_EQ(28591u, CodePageOfCodeset("ISO-8859-1"));
  EXPECT_EQ(1252u, CodePageOfCodeset("CP1252"));
  EXPECT_EQ(0u, CodePageOfCodeset("NO-SUCH-SET"));
}

// The code page is chosen once per process: these run in a fresh one.
TEST(CodePageStartup, GetACP_FollowsEnvironmentOnFirstUse) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        setenv("NOMZUB_CODE_PAGE", "932", 1);
        std::exit(GetACP() == 932 && Step("\x81\x40") == 2 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(CodePageStartup, GetACP_ReadsEnvironmentThroughCurrentEnv) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        unsetenv("NOMZUB_CODE_PAGE");
        nomtest::TableEnv env({{"NOMZUB_CODE_PAGE", "932"}});
        std::exit(GetACP() == 932 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(CodePageStartup, GetACP_Utf8LocaleIs65001) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        unsetenv("NOMZUB_CODE_PAGE");
        setenv("LC_ALL", "C.UTF-8", 1);
        std::exit(GetACP() == 65001 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(CodePageStartup, GetACP_AsciiLocaleIs65001) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        unsetenv("NOMZUB_CODE_PAGE");
        setenv("LC_ALL", "C", 1);  // ASCII: UTF-8 names must still work
        std::exit(GetACP() == 65001 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(CodePageStartup, GetACP_UnsupportedEnvironmentNumberIsReportedAndIgnored) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        setenv("NOMZUB_CODE_PAGE", "1361", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        std::exit(GetACP() == 65001 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0),
      "NOMZUB_CODE_PAGE=\"1361\" is not a supported code page number; using the locale's");
}

TEST(CodePageStartup, GetACP_BadEnvironmentValueIsReportedOnStandardError) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        setenv("NOMZUB_CODE_PAGE", "bad", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        std::exit(GetACP() == 65001 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0),
      "NOMZUB_CODE_PAGE=\"bad\" is not a supported code page number; using the locale's");
}

TEST(CodePageStartup, GetACP_FirstCalledFromInsideTheLogReturns) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        setenv("NOMZUB_CODE_PAGE", "bad", 1);
        setenv("NOMZUB_LOG", "-", 1);
        setenv("NOMZUB_LOG_FORMAT", "jsonl", 1);  // converts each message with the code page
        NOMZUBLog::WriteMsg("caf\xC3\xA9", 0);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "\"message\":\"caf");
}

// --- BSTR -------------------------------------------------------------------------------------

TEST(CodePage, SysAllocStringLen_CopiesUnitsAndTerminates) {
  BSTR s = SysAllocStringLen(u"abcdef", 3);
  ASSERT_NE(nullptr, s);
  EXPECT_EQ(3u, SysStringLen(s));
  EXPECT_EQ(u"abc", std::u16string(s));
  EXPECT_EQ(u'\0', s[3]);
  uint32_t prefix;
  std::memcpy(&prefix, reinterpret_cast<char*>(s) - 4, 4);
  EXPECT_EQ(6u, prefix);  // the length in bytes precedes the units
  SysFreeString(s);
}

TEST(CodePage, SysAllocStringLen_NullSourceIsZeroFilled) {
  BSTR s = SysAllocStringLen(nullptr, 4);
  ASSERT_NE(nullptr, s);
  EXPECT_EQ(4u, SysStringLen(s));
  for (int i = 0; i <= 4; ++i) EXPECT_EQ(u'\0', s[i]);
  SysFreeString(s);
}

TEST(CodePage, SysStringLen_CountsEmbeddedZeros) {
  const OLECHAR units[] = {u'a', u'\0', u'b'};
  BSTR s = SysAllocStringLen(units, 3);
  ASSERT_NE(nullptr, s);
  EXPECT_EQ(3u, SysStringLen(s));
  EXPECT_EQ(u'b', s[2]);
  SysFreeString(s);
}

TEST(CodePage, SysStringLen_NullIsEmpty) {
  EXPECT_EQ(0u, SysStringLen(nullptr));
  SysFreeString(nullptr);
}

TEST(CodePage, SysAllocStringLen_EmptyString) {
  BSTR s = SysAllocStringLen(u"", 0);
  ASSERT_NE(nullptr, s);
  EXPECT_EQ(0u, SysStringLen(s));
  EXPECT_EQ(u'\0', s[0]);
  SysFreeString(s);
}

}  // namespace
}  // namespace nomplat
