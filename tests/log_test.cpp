// The product log: record formats, sinks, file targets and concurrent writers.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/codepage.h"
#include "services/NOMZUBLog.h"
#include "support/table_env.h"
#include "support/test_support.h"

namespace {

using nomtest::LogCapture;
using nomtest::LogLine;
using nomtest::ReadFile;
using nomtest::TableEnv;
using nomtest::TempDir;
using nomzub::FormatLogRecord;
using nomzub::LogFormat;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;

const char kTimestamp[] = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z";

// The lines of text, each without its newline.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Milliseconds since the epoch of a "YYYY-MM-DDTHH:MM:SS.mmmZ" timestamp.
long long ParseTimestamp(const std::string& text) {
  std::tm utc{};
  int ms = 0;
  sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ", &utc.tm_year, &utc.tm_mon, &utc.tm_mday,
         &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &ms);
  utc.tm_year -= 1900;
  utc.tm_mon -= 1;
  return static_cast<long long>(timegm(&utc)) * 1000 + ms;
}

long long NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// Sends records to the default sink for the test and restores the previous sink and the
// environment-driven configuration afterwards.
class LogFileTest : public ::testing::Test {
 protected:
  LogFileTest() : previous_(nomzub::SetLogSink(nullptr)) {}
  ~LogFileTest() override {
    nomzub::ResetLogConfiguration();
    nomzub::SetLogSink(previous_);
  }
  TempDir dir_;

 private:
  nomzub::LogSink* previous_;
};

TEST(LogFormatTest, FormatRecord_RawIsLevelTabMessageNewline) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "Info:\t x  ", 0), "0\tInfo:\t x  \n");
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "Info:\t Handle MP Child Nodes ... ", 1),
            "1\tInfo:\t Handle MP Child Nodes ... \n");
}

TEST(LogFormatTest, FormatRecord_RawKeepsMessageBytesExactly) {
  const std::string message = "a\"\\\xE9\x95\\";
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, message, -3), "-3\t" + message + "\n");
}

TEST(LogFormatTest, FormatRecord_TextIsTimestampLevelMessage) {
  const std::string record = FormatLogRecord(LogFormat::kText, "Info:\t Nb Child Nodes: 3", 0);
  EXPECT_TRUE(std::regex_match(
      record, std::regex(std::string(kTimestamp) + " L0 Info:\t Nb Child Nodes: 3\n")))
      << record;
}

TEST(LogFormatTest, FormatRecord_TextTimestampIsCurrentUtcTime) {
  const long long before = NowMs();
  const std::string record = FormatLogRecord(LogFormat::kText, "x", 2);
  const long long after = NowMs();
  const long long stamp = ParseTimestamp(record.substr(0, 24));
  EXPECT_GE(stamp, before);
  EXPECT_LE(stamp, after);
  EXPECT_EQ(record.substr(24), " L2 x\n");
}

TEST(LogFormatTest, FormatRecord_JsonlHoldsTimeLevelAndMessage) {
  const std::string record = FormatLogRecord(LogFormat::kJsonl, "Info:\t done", 1);
  EXPECT_TRUE(
      std::regex_match(record, std::regex("\\{\"time\":\"" + std::string(kTimestamp) +
                                          "\",\"level\":1,\"message\":\"Info:\\\\t done\"\\}\n")))
      << record;
}

TEST(LogFormatTest, FormatRecord_JsonlEscapesQuotesBackslashesAndControls) {
  const std::string record =
      FormatLogRecord(LogFormat::kJsonl, std::string("a\"b\\c\td\ne\rf\x01g\x1f", 14) + '\0', 0);
  const std::string tail = record.substr(record.find(",\"level\""));
  EXPECT_EQ(tail, ",\"level\":0,\"message\":\"a\\\"b\\\\c\\td\\ne\\rf\\u0001g\\u001f\\u0000\"}\n");
}

TEST(LogFormatTest, FormatRecord_JsonlReplacesInvalidUtf8) {
  const UINT previous = nomplat::GetACP();
  ASSERT_TRUE(nomplat::SetACP(65001));
  const std::string record = FormatLogRecord(LogFormat::kJsonl,
                                             "a\xFF"
                                             "b\xC3",
                                             0);
  nomplat::SetACP(previous);
  EXPECT_THAT(record, ::testing::EndsWith("\"message\":\"a\xEF\xBF\xBD"
                                          "b\xEF\xBF\xBD\"}\n"));
}

TEST(LogFormatTest, FormatRecord_JsonlKeepsValidUtf8) {
  const UINT previous = nomplat::GetACP();
  ASSERT_TRUE(nomplat::SetACP(65001));
  const std::string record = FormatLogRecord(LogFormat::kJsonl, "caf\xC3\xA9 \xE2\x82\xAC", 0);
  nomplat::SetACP(previous);
  EXPECT_THAT(record, ::testing::EndsWith("\"message\":\"caf\xC3\xA9 \xE2\x82\xAC\"}\n"));
}

TEST(LogFormatTest, FormatRecord_JsonlConvertsCodePageToUtf8) {
  const UINT previous = nomplat::GetACP();
  ASSERT_TRUE(nomplat::SetACP(1252));
  const std::string record = FormatLogRecord(LogFormat::kJsonl, "caf\xE9", 0);
  nomplat::SetACP(previous);
  EXPECT_THAT(record, ::testing::EndsWith("\"message\":\"caf\xC3\xA9\"}\n"));
}

// The message part of a text record: what follows the timestamp and " L<level> ".
std::string TextMessageOf(const std::string& record) {
  const size_t space = record.find(' ', 25);
  return space == std::string::npos ? record : record.substr(space + 1);
}

TEST(LogFormatTest, FormatRecord_TextEscapesNewline) {
  const std::string record = FormatLogRecord(LogFormat::kText, "Info:\t a\n0\tforged", 0);
  EXPECT_EQ(TextMessageOf(record), "Info:\t a\\n0\tforged\n");
  EXPECT_EQ(Lines(record).size(), 1u);
}

TEST(LogFormatTest, FormatRecord_RawEscapesNewline) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "Info:\t a\n0\tforged", 1),
            "1\tInfo:\t a\\n0\tforged\n");
}

TEST(LogFormatTest, FormatRecord_TextEscapesCarriageReturn) {
  const std::string record = FormatLogRecord(LogFormat::kText, "a\rb\r\n", 0);
  EXPECT_EQ(TextMessageOf(record), "a\\rb\\r\\n\n");
}

TEST(LogFormatTest, FormatRecord_RawEscapesCarriageReturn) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "a\rb\r\n", 0), "0\ta\\rb\\r\\n\n");
}

TEST(LogFormatTest, FormatRecord_TextEscapesEscape) {
  const std::string record = FormatLogRecord(LogFormat::kText, "x\x1B[2Jy\x1B]0;t\x07", 0);
  EXPECT_EQ(TextMessageOf(record), "x\\x1B[2Jy\\x1B]0;t\\x07\n");
}

TEST(LogFormatTest, FormatRecord_RawEscapesEscape) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "x\x1B[2Jy", 0), "0\tx\\x1B[2Jy\n");
}

// Every control byte other than tab, newline and carriage return, NUL included.
std::string OtherControls() {
  std::string controls;
  for (int c = 0; c < 0x20; ++c) {
    if (c != '\t' && c != '\n' && c != '\r') controls += static_cast<char>(c);
  }
  return controls;
}

const char kOtherControlsEscaped[] =
    "\\x00\\x01\\x02\\x03\\x04\\x05\\x06\\x07\\x08\\x0B\\x0C\\x0E\\x0F\\x10\\x11\\x12\\x13"
    "\\x14\\x15\\x16\\x17\\x18\\x19\\x1A\\x1B\\x1C\\x1D\\x1E\\x1F";

TEST(LogFormatTest, FormatRecord_TextEscapesOtherControlsInUpperCaseHex) {
  const std::string record = FormatLogRecord(LogFormat::kText, "<" + OtherControls() + ">", 0);
  EXPECT_EQ(TextMessageOf(record), "<" + std::string(kOtherControlsEscaped) + ">\n");
}

TEST(LogFormatTest, FormatRecord_RawEscapesOtherControlsInUpperCaseHex) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "<" + OtherControls() + ">", 0),
            "0\t<" + std::string(kOtherControlsEscaped) + ">\n");
}

TEST(LogFormatTest, FormatRecord_TextEscapesNulInsideMessage) {
  const std::string record = FormatLogRecord(LogFormat::kText, std::string("a\0b", 3), 0);
  EXPECT_EQ(TextMessageOf(record), "a\\x00b\n");
}

TEST(LogFormatTest, FormatRecord_RawEscapesNulInsideMessage) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, std::string("a\0b", 3), 0), "0\ta\\x00b\n");
}

TEST(LogFormatTest, FormatRecord_TextEscapesDelete) {
  const std::string record = FormatLogRecord(LogFormat::kText,
                                             "a\x7F"
                                             "b",
                                             0);
  EXPECT_EQ(TextMessageOf(record), "a\\x7Fb\n");
}

TEST(LogFormatTest, FormatRecord_RawEscapesDelete) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw,
                            "a\x7F"
                            "b",
                            0),
            "0\ta\\x7Fb\n");
}

TEST(LogFormatTest, FormatRecord_TextKeepsTabs) {
  const std::string record = FormatLogRecord(LogFormat::kText, "****** ERROR:\t a\tb\t", 2);
  EXPECT_EQ(TextMessageOf(record), "****** ERROR:\t a\tb\t\n");
}

TEST(LogFormatTest, FormatRecord_RawKeepsTabs) {
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "****** ERROR:\t a\tb\t", 2),
            "2\t****** ERROR:\t a\tb\t\n");
}

TEST(LogFormatTest, FormatRecord_TextKeepsBackslashesSingle) {
  const std::string message = "Info:\t Unable to open Document - C:\\pkg\\n\\x1B.vgxXml\\";
  const std::string record = FormatLogRecord(LogFormat::kText, message, 0);
  EXPECT_EQ(TextMessageOf(record), message + "\n");
}

TEST(LogFormatTest, FormatRecord_RawKeepsBackslashesSingle) {
  const std::string message = "Info:\t Unable to open Document - C:\\pkg\\n\\x1B.vgxXml\\";
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, message, 0), "0\t" + message + "\n");
}

TEST(LogFormatTest, FormatRecord_TextConvertsCodePage1252ToUtf8) {
  nomplat::ScopedCodePage page(1252);
  ASSERT_TRUE(page.ok());
  const std::string record = FormatLogRecord(LogFormat::kText, "caf\xE9", 0);
  EXPECT_EQ(TextMessageOf(record), "caf\xC3\xA9\n");
}

TEST(LogFormatTest, FormatRecord_RawKeepsCodePage1252Bytes) {
  nomplat::ScopedCodePage page(1252);
  ASSERT_TRUE(page.ok());
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "caf\xE9\n", 0), "0\tcaf\xE9\\n\n");
}

TEST(LogFormatTest, FormatRecord_TextConvertsBeforeEscaping1252) {
  nomplat::ScopedCodePage page(1252);
  ASSERT_TRUE(page.ok());
  const std::string record = FormatLogRecord(LogFormat::kText, "\xE9\x1B\xE9", 0);
  EXPECT_EQ(TextMessageOf(record), "\xC3\xA9\\x1B\xC3\xA9\n");
}

TEST(LogFormatTest, FormatRecord_TextReplacesInvalidUtf8) {
  nomplat::ScopedCodePage page(65001);
  ASSERT_TRUE(page.ok());
  const std::string record = FormatLogRecord(LogFormat::kText,
                                             "a\xFF"
                                             "b\xC3\n\xE2\x82",
                                             0);
  EXPECT_EQ(TextMessageOf(record),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD\\n\xEF\xBF\xBD\xEF\xBF\xBD\n");
}

TEST(LogFormatTest, FormatRecord_TextKeepsValidUtf8) {
  nomplat::ScopedCodePage page(65001);
  ASSERT_TRUE(page.ok());
  const std::string record = FormatLogRecord(LogFormat::kText, "caf\xC3\xA9 \xE2\x82\xAC", 0);
  EXPECT_EQ(TextMessageOf(record), "caf\xC3\xA9 \xE2\x82\xAC\n");
}

TEST(LogFormatTest, FormatRecord_RawKeepsInvalidUtf8Bytes) {
  nomplat::ScopedCodePage page(65001);
  ASSERT_TRUE(page.ok());
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw,
                            "a\xFF"
                            "b\xC3",
                            0),
            "0\ta\xFF"
            "b\xC3\n");
}

TEST(LogFormatTest, FormatRecord_TextReplacesInvalid932Bytes) {
  nomplat::ScopedCodePage page(932);
  ASSERT_TRUE(page.ok());
  // 0xA0 is no character in 932.
  const std::string record = FormatLogRecord(LogFormat::kText,
                                             "a\xA0"
                                             "b",
                                             0);
  EXPECT_EQ(TextMessageOf(record),
            "a\xEF\xBF\xBD"
            "b\n");
}

TEST(LogFormatTest, FormatRecord_Text932LeadByteDoesNotHideFollowingNewline) {
  nomplat::ScopedCodePage page(932);
  ASSERT_TRUE(page.ok());
  const std::string record = FormatLogRecord(LogFormat::kText, "a\x81\nb", 0);
  EXPECT_EQ(TextMessageOf(record), "a\xEF\xBF\xBD\\nb\n");
}

TEST(LogFormatTest, FormatRecord_Raw932KeepsBytesAndEscapesControls) {
  nomplat::ScopedCodePage page(932);
  ASSERT_TRUE(page.ok());
  EXPECT_EQ(FormatLogRecord(LogFormat::kRaw, "C:\\\x95\\\x83\x65\r", 0),
            "0\tC:\\\x95\\\x83\x65\\r\n");
}

TEST(LogFormatTest, FormatRecord_JsonlStillEscapesControlsAsJson) {
  nomplat::ScopedCodePage page(65001);
  ASSERT_TRUE(page.ok());
  const std::string record = FormatLogRecord(LogFormat::kJsonl,
                                             "C:\\a\n0\tforged\x1B\x7F"
                                             "\xC3\xA9",
                                             0);
  EXPECT_THAT(record,
              ::testing::EndsWith(
                  ",\"level\":0,\"message\":\"C:\\\\a\\n0\\tforged\\u001b\x7F\xC3\xA9\"}\n"));
}

TEST(LogFormatTest, FormatRecord_Jsonl932IsConvertedOnce) {
  nomplat::ScopedCodePage page(932);
  ASSERT_TRUE(page.ok());
  const std::string record = FormatLogRecord(LogFormat::kJsonl, "\x83\x65\x95\\", 0);
  EXPECT_THAT(record, ::testing::EndsWith("\"message\":\"\xE3\x83\x86\xE8\xA1\xA8\"}\n"));
}

TEST(LogFormatTest, AppendJsonString_AppendsEscapedTextWithoutQuotes) {
  std::string out = "[";
  nomzub::AppendJsonString("a\"b\\c\x7F\xC3\xA9", &out);
  EXPECT_EQ(out, "[a\\\"b\\\\c\x7F\xC3\xA9");
}

TEST(LogFormatTest, AppendJsonString_EachMalformedByteIsReplacementCharacter) {
  std::string out;
  nomzub::AppendJsonString(
      "a\xC0\x80"
      "b\xED\xA0\x80",
      &out);
  EXPECT_EQ(out,
            "a\xEF\xBF\xBD\xEF\xBF\xBD"
            "b\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(LogFormatTest, ParseFormat_AcceptsTheThreeNames) {
  LogFormat format = LogFormat::kText;
  EXPECT_TRUE(nomzub::ParseLogFormat("raw", &format));
  EXPECT_EQ(format, LogFormat::kRaw);
  EXPECT_TRUE(nomzub::ParseLogFormat("jsonl", &format));
  EXPECT_EQ(format, LogFormat::kJsonl);
  EXPECT_TRUE(nomzub::ParseLogFormat("text", &format));
  EXPECT_EQ(format, LogFormat::kText);
}

TEST(LogFormatTest, ParseFormat_RejectsOtherNamesAndKeepsFormat) {
  LogFormat format = LogFormat::kRaw;
  EXPECT_FALSE(nomzub::ParseLogFormat("TEXT", &format));
  EXPECT_FALSE(nomzub::ParseLogFormat("json", &format));
  EXPECT_FALSE(nomzub::ParseLogFormat("", &format));
  EXPECT_EQ(format, LogFormat::kRaw);
}

TEST(LogSinkTest, WriteMsg_InstalledSinkReceivesMessageAndLevel) {
  LogCapture capture;
  NOMZUBLog::WriteMsg("Info:\t Handle Context Child Nodes ...", 1);
  NOMZUBLog::WriteMsg("", 0);
  EXPECT_THAT(capture.lines(),
              ElementsAre(LogLine{1, "Info:\t Handle Context Child Nodes ..."}, LogLine{0, ""}));
}

TEST(LogSinkTest, SetLogSink_ReturnsTheSinkItReplaces) {
  LogCapture outer;
  LogCapture inner;
  EXPECT_EQ(nomzub::SetLogSink(&outer), &inner);
  EXPECT_EQ(nomzub::SetLogSink(&inner), &outer);
}

TEST(LogSinkTest, ServiceInfoAndError_AreLevelTwoWithPrefixes) {
  LogCapture capture;
  nomzub::LogServiceInfo("connected to sqlite:x.db");
  nomzub::LogServiceError("no such table: accounts");
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{2, "Info:\t connected to sqlite:x.db"},
                                           LogLine{2, "****** ERROR:\t no such table: accounts"}));
}

class ThrowingSink : public nomzub::LogSink {
 public:
  void Write(const std::string&, int32_t) override { throw std::runtime_error("sink broken"); }
};

TEST(LogSinkTest, WriteMsg_ThrowingSinkDoesNotReachTheCaller) {
  ThrowingSink sink;
  nomzub::LogSink* previous = nomzub::SetLogSink(&sink);
  EXPECT_NO_THROW(NOMZUBLog::WriteMsg("x", 0));
  nomzub::SetLogSink(previous);
}

TEST_F(LogFileTest, ConfigureLog_FileReceivesRawRecordsExactly) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("Info:\t x  ", 0);
  NOMZUBLog::WriteMsg("Info:\t Handle Product Child Nodes ... Done!", 1);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(ReadFile(file), "0\tInfo:\t x  \n1\tInfo:\t Handle Product Child Nodes ... Done!\n");
}

TEST_F(LogFileTest, ConfigureLog_AppendsToExistingFile) {
  const std::string file = dir_.Sub("run.log");
  nomtest::WriteFile(file, "earlier\n");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("later", 0);
  nomzub::FlushLog();
  EXPECT_EQ(ReadFile(file), "earlier\n0\tlater\n");
}

TEST_F(LogFileTest, ConfigureLog_TextFormatInFile) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kText));
  NOMZUBLog::WriteMsg("Info:\t Nb Child Nodes: 3", 0);
  nomzub::FlushLog();
  EXPECT_THAT(ReadFile(file),
              MatchesRegex(std::string(kTimestamp) + " L0 Info:\t Nb Child Nodes: 3\n"));
}

TEST_F(LogFileTest, ConfigureLog_JsonlFormatInFile) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kJsonl));
  NOMZUBLog::WriteMsg("a", 0);
  NOMZUBLog::WriteMsg("b\"", 1);
  ASSERT_TRUE(nomzub::FlushLog());
  const std::vector<std::string> lines = Lines(ReadFile(file));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], ::testing::EndsWith(",\"level\":0,\"message\":\"a\"}"));
  EXPECT_THAT(lines[1], ::testing::EndsWith(",\"level\":1,\"message\":\"b\\\"\"}"));
}

TEST_F(LogFileTest, ConfigureLog_TextFileConverts932ToUtf8) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kText));
  {
    nomplat::ScopedCodePage page(932);
    ASSERT_TRUE(page.ok());
    // "テスト" and "表" (0x95 0x5C: its trail byte is no backslash) in a Windows path.
    NOMZUBLog::WriteMsg(
        "Info:\t Unable to open Document - C:\\\x83\x65\x83\x58\x83\x67\\\x95\\.vgxXml", 2);
  }
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_THAT(
      ReadFile(file),
      MatchesRegex(std::string(kTimestamp) +
                   " L2 Info:\t Unable to open Document - "
                   "C:\\\\\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88\\\\\xE8\xA1\xA8\\.vgxXml\n"));
}

TEST_F(LogFileTest, ConfigureLog_TextFileRecordWithNewlineStaysOneLine) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kText));
  NOMZUBLog::WriteMsg("Info:\t Unable to open Document - a\n2026-01-01T00:00:00.000Z L0 forged", 2);
  NOMZUBLog::WriteMsg("next", 0);
  nomzub::FlushLog();
  const std::vector<std::string> lines = Lines(ReadFile(file));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], ::testing::EndsWith(
                            " L2 Info:\t Unable to open Document - a\\n2026-01-01T00:00:00.000Z "
                            "L0 forged"));
  EXPECT_THAT(lines[1], ::testing::EndsWith(" L0 next"));
}

TEST_F(LogFileTest, ConfigureLog_RawFileRecordWithNewlineStaysOneLine) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("Info:\t Unable to open Document - a\r\n0\tInfo:\t forged", 2);
  NOMZUBLog::WriteMsg("next", 0);
  nomzub::FlushLog();
  EXPECT_EQ(ReadFile(file),
            "2\tInfo:\t Unable to open Document - a\\r\\n0\tInfo:\t forged\n0\tnext\n");
}

TEST_F(LogFileTest, ConfigureLog_UnopenableFileFailsAndKeepsPreviousTarget) {
  const std::string first = dir_.Sub("first.log");
  ASSERT_TRUE(nomzub::ConfigureLog(first, LogFormat::kRaw));
  EXPECT_FALSE(nomzub::ConfigureLog(dir_.Sub("missing/dir/x.log"), LogFormat::kText));
  NOMZUBLog::WriteMsg("still here", 0);
  nomzub::FlushLog();
  EXPECT_EQ(ReadFile(first), "0\tstill here\n");
}

TEST_F(LogFileTest, ConfigureLog_DashMeansStandardError) {
  ASSERT_TRUE(nomzub::ConfigureLog("-", LogFormat::kRaw));
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("to stderr", 2);
  nomzub::FlushLog();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "2\tto stderr\n");
}

TEST_F(LogFileTest, Environment_NamesFileAndFormat) {
  const std::string file = dir_.Sub("env.log");
  TableEnv env({{"NOMZUB_LOG", file}, {"NOMZUB_LOG_FORMAT", "raw"}});
  nomzub::ResetLogConfiguration();
  NOMZUBLog::WriteMsg("from env", 0);
  nomzub::FlushLog();
  EXPECT_EQ(ReadFile(file), "0\tfrom env\n");
}

TEST_F(LogFileTest, Environment_ConfigureLogOverridesIt) {
  const std::string env_file = dir_.Sub("env.log");
  const std::string option_file = dir_.Sub("option.log");
  TableEnv env({{"NOMZUB_LOG", env_file}, {"NOMZUB_LOG_FORMAT", "jsonl"}});
  nomzub::ResetLogConfiguration();
  ASSERT_TRUE(nomzub::ConfigureLog(option_file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("from option", 0);
  nomzub::FlushLog();
  EXPECT_EQ(ReadFile(option_file), "0\tfrom option\n");
  EXPECT_FALSE(nomtest::FileExists(env_file));
}

TEST_F(LogFileTest, Environment_UnsetMeansTextOnStandardError) {
  TableEnv env({});
  nomzub::ResetLogConfiguration();
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t x", 0);
  nomzub::FlushLog();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              MatchesRegex(std::string(kTimestamp) + " L0 Info:\t x\n"));
}

TEST_F(LogFileTest, Environment_UnknownFormatIsReportedAndTextUsed) {
  const std::string file = dir_.Sub("env.log");
  TableEnv env({{"NOMZUB_LOG", file}, {"NOMZUB_LOG_FORMAT", "xml"}});
  nomzub::ResetLogConfiguration();
  NOMZUBLog::WriteMsg("Info:\t x", 0);
  nomzub::FlushLog();
  EXPECT_THAT(ReadFile(file),
              MatchesRegex(std::string(kTimestamp) +
                           " L2 \\*\\*\\*\\*\\*\\* ERROR:\t Unknown log format \"xml\" in "
                           "NOMZUB_LOG_FORMAT \\(expected text, raw or jsonl\\); using text\n" +
                           kTimestamp + " L0 Info:\t x\n"));
}

TEST_F(LogFileTest, Environment_UnopenableFileIsReportedOnStandardError) {
  const std::string file = dir_.Sub("missing/env.log");
  TableEnv env({{"NOMZUB_LOG", file}, {"NOMZUB_LOG_FORMAT", "raw"}});
  nomzub::ResetLogConfiguration();
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t x", 0);
  nomzub::FlushLog();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "2\t****** ERROR:\t Cannot open log file " + file +
                " named by NOMZUB_LOG: No such file or directory; logging to standard error\n"
                "0\tInfo:\t x\n");
}

TEST_F(LogFileTest, WriteMsg_TwoThreadsNeverInterleaveWithinALine) {
  const std::string file = dir_.Sub("threads.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  constexpr int kLines = 2000;
  const std::string padding(300, '.');
  auto writer = [&](char tag) {
    for (int i = 0; i < kLines; ++i) {
      NOMZUBLog::WriteMsg(std::string(1, tag) + std::to_string(i) + padding + tag, 0);
    }
  };
  std::thread a(writer, 'A');
  std::thread b(writer, 'B');
  a.join();
  b.join();

  nomzub::FlushLog();
  const std::vector<std::string> lines = Lines(ReadFile(file));
  ASSERT_EQ(lines.size(), 2u * kLines);
  int next[2] = {0, 0};
  for (const std::string& line : lines) {
    ASSERT_GE(line.size(), 3u);
    const char tag = line[2];
    ASSERT_TRUE(tag == 'A' || tag == 'B') << line;
    int& expected = next[tag - 'A'];
    ASSERT_EQ(line, "0\t" + std::string(1, tag) + std::to_string(expected) + padding + tag);
    ++expected;
  }
  EXPECT_EQ(next[0], kLines);
  EXPECT_EQ(next[1], kLines);
}

// --- Buffered records -----------------------------------------------------------------------

// The write() calls the whole process has made so far, as the kernel counts them; -1 when it
// does not.
long long WriteCallsSoFar() {
  std::ifstream io("/proc/self/io");
  std::string key;
  long long value = 0;
  while (io >> key >> value) {
    if (key == "syscw:") return value;
  }
  return -1;
}

TEST_F(LogFileTest, FlushLog_WritesBufferedRecordsInOrderExactlyAsFormatted) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  const std::vector<std::pair<std::string, int32_t>> records = {
      {"Info:\t Handle Product Child Nodes ... ", 1},
      {"****** ERROR:\t no such table: accounts", 2},
      {"Info:\t a\n0\tforged\x1B", 1},
      {"", 2},
      {"Info:\t Handle Product Child Nodes ... Done!", 1}};
  std::string expected;
  for (const auto& record : records) {
    NOMZUBLog::WriteMsg(record.first, record.second);
    expected += FormatLogRecord(LogFormat::kRaw, record.first, record.second);
  }
  EXPECT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(ReadFile(file), expected);
}

TEST_F(LogFileTest, FlushLog_NothingBufferedReturnsTrueAndWritesNothing) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  EXPECT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(ReadFile(file), "");
}

TEST_F(LogFileTest, WriteMsg_LevelZeroInfoWaitsForTheBlock) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("Info:\t Nb Child Nodes: 3", 0);
  EXPECT_EQ(ReadFile(file), "");
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(ReadFile(file), "0\tInfo:\t Nb Child Nodes: 3\n");
}

TEST_F(LogFileTest, WriteMsg_LevelTwoErrorWaitsForTheBlock) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("****** ERROR:\t login refused", 2);
  EXPECT_EQ(ReadFile(file), "");
}

TEST_F(LogFileTest, WriteMsg_LevelZeroErrorIsWrittenAtOnceWithTheRecordsBeforeIt) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("Info:\t Handle MP Child Nodes ... ", 1);
  NOMZUBLog::WriteMsg("****** ERROR:\t login refused", 2);
  NOMZUBLog::WriteMsg("****** ERROR:\t FAILED to Connect", 0);
  EXPECT_EQ(ReadFile(file),
            "1\tInfo:\t Handle MP Child Nodes ... \n2\t****** ERROR:\t login refused\n"
            "0\t****** ERROR:\t FAILED to Connect\n");
}

TEST_F(LogFileTest, WriteMsg_LevelOneAndTwoRecordsShareWriteCalls) {
  const long long before = WriteCallsSoFar();
  if (before < 0) GTEST_SKIP() << "the kernel does not count write() calls (/proc/self/io)";
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  constexpr int kRecords = 1000;
  for (int i = 0; i < kRecords; ++i) {
    NOMZUBLog::WriteMsg("Info:\t record " + std::to_string(i), 1 + i % 2);
  }
  ASSERT_TRUE(nomzub::FlushLog());
  const long long calls = WriteCallsSoFar() - before;
  EXPECT_LT(calls, kRecords / 10);
  const std::vector<std::string> lines = Lines(ReadFile(file));
  ASSERT_EQ(lines.size(), static_cast<size_t>(kRecords));
  EXPECT_EQ(lines.back(), "2\tInfo:\t record 999");
}

TEST_F(LogFileTest, WriteMsg_BufferedRecordsArriveWithoutAnotherCall) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("Info:\t Handle Resource Child Nodes ... ", 1);
  NOMZUBLog::WriteMsg("Info:\t connected to sqlite:x.db", 2);
  const std::string expected =
      "1\tInfo:\t Handle Resource Child Nodes ... \n2\tInfo:\t connected to sqlite:x.db\n";
  // The flusher writes them within about a second; five leave room for a loaded machine.
  std::string contents;
  for (int i = 0; i < 100 && contents != expected; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    contents = ReadFile(file);
  }
  EXPECT_EQ(contents, expected);
}

TEST_F(LogFileTest, ConfigureLog_WritesBufferedRecordsToThePreviousTarget) {
  const std::string first = dir_.Sub("first.log");
  const std::string second = dir_.Sub("second.log");
  ASSERT_TRUE(nomzub::ConfigureLog(first, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("for the first", 1);
  ASSERT_TRUE(nomzub::ConfigureLog(second, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("for the second", 0);
  nomzub::FlushLog();
  EXPECT_EQ(ReadFile(first), "1\tfor the first\n");
  EXPECT_EQ(ReadFile(second), "0\tfor the second\n");
}

TEST_F(LogFileTest, ResetLogConfiguration_WritesBufferedRecordsToThePreviousTarget) {
  const std::string option_file = dir_.Sub("option.log");
  const std::string env_file = dir_.Sub("env.log");
  TableEnv env({{"NOMZUB_LOG", env_file}, {"NOMZUB_LOG_FORMAT", "raw"}});
  ASSERT_TRUE(nomzub::ConfigureLog(option_file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("for the option", 2);
  nomzub::ResetLogConfiguration();
  NOMZUBLog::WriteMsg("for the environment", 0);
  nomzub::FlushLog();
  EXPECT_EQ(ReadFile(option_file), "2\tfor the option\n");
  EXPECT_EQ(ReadFile(env_file), "0\tfor the environment\n");
}

TEST_F(LogFileTest, SetLogSink_WritesBufferedRecordsBeforeTheSinkTakesOver) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("before the sink", 1);
  LogCapture capture;
  EXPECT_EQ(ReadFile(file), "1\tbefore the sink\n");
  NOMZUBLog::WriteMsg("to the sink", 1);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{1, "to the sink"}));
}

TEST_F(LogFileTest, ConfigureLog_StandardErrorGetsBufferedRecordsAtLevelZero) {
  ASSERT_TRUE(nomzub::ConfigureLog("-", LogFormat::kRaw));
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t connected", 2);
  NOMZUBLog::WriteMsg("****** ERROR:\t Error in VGX PackNGo.", 0);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "2\tInfo:\t connected\n0\t****** ERROR:\t Error in VGX PackNGo.\n");
}

TEST_F(LogFileTest, WriteMsg_FourThreadsKeepRecordsWholeAndInTheirOrder) {
  const std::string file = dir_.Sub("threads.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  constexpr int kThreads = 4;
  constexpr int kRecords = 1000;
  // Lengths from 1 to 400 bytes of padding, so that records straddle every block boundary.
  auto padding = [](int i) { return std::string(1 + (i * 37) % 400, '.'); };
  auto writer = [&](char tag) {
    for (int i = 0; i < kRecords; ++i) {
      NOMZUBLog::WriteMsg(std::string(1, tag) + std::to_string(i) + padding(i) + tag, 1);
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(writer, static_cast<char>('A' + t));
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(nomzub::FlushLog());

  const std::vector<std::string> lines = Lines(ReadFile(file));
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kRecords));
  int next[kThreads] = {};
  for (const std::string& line : lines) {
    ASSERT_GE(line.size(), 3u);
    const char tag = line[2];
    ASSERT_TRUE(tag >= 'A' && tag < 'A' + kThreads) << line;
    int& expected = next[tag - 'A'];
    ASSERT_EQ(line,
              "1\t" + std::string(1, tag) + std::to_string(expected) + padding(expected) + tag);
    ++expected;
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kRecords);
}

TEST_F(LogFileTest, FlushLog_TargetThatTakesNothingGivesUpAndKeepsTheRecords) {
  const std::string fifo = dir_.Sub("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  ASSERT_TRUE(nomzub::ConfigureLog(fifo, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("Info:\t held", 1);  // buffered: the pipe is filled behind it
  const int filler = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
  ASSERT_GE(filler, 0);
  const std::string block(4096, 'x');
  size_t filled = 0;
  for (ssize_t n; (n = write(filler, block.data(), block.size())) > 0;) filled += n;

  EXPECT_FALSE(nomzub::FlushLog());  // nobody reads: it gives up rather than wait for ever

  std::string received;
  auto drain = [&] {
    char buffer[65536];
    for (ssize_t n; (n = read(reader, buffer, sizeof buffer)) > 0;) received.append(buffer, n);
  };
  bool flushed = false;
  for (int i = 0; i < 100 && !flushed; ++i) {
    drain();
    flushed = nomzub::FlushLog();
  }
  drain();
  EXPECT_TRUE(flushed);
  EXPECT_EQ(received, std::string(filled, 'x') + "1\tInfo:\t held\n");

  ASSERT_TRUE(nomzub::ConfigureLog(dir_.Sub("after.log"), LogFormat::kRaw));
  close(filler);
  close(reader);
}

TEST_F(LogFileTest, Fork_ChildDoesNotRepeatTheRecordsTheParentBuffered) {
  const std::string file = dir_.Sub("fork.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  NOMZUBLog::WriteMsg("Info:\t buffered by the parent", 1);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    NOMZUBLog::WriteMsg("****** ERROR:\t from the child", 0);  // writes what the child buffered
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_THAT(Lines(ReadFile(file)),
              ::testing::UnorderedElementsAre("1\tInfo:\t buffered by the parent",
                                              "0\t****** ERROR:\t from the child"));
}

// Logs a level-1 record when destroyed.
struct LogsWhenDestroyed {
  const char* text;
  ~LogsWhenDestroyed() { NOMZUBLog::WriteMsg(text, 1); }
};

// Buffers records for standard error, some of them from static destructors, and exits.
void LogAndExitDuringStaticDestruction() {
  ASSERT_TRUE(nomzub::ConfigureLog("-", LogFormat::kRaw));
  // Built before the log's exit handler is registered (with the first buffered record), so
  // destroyed after it has run.
  static LogsWhenDestroyed early{"Info:\t destroyed after the exit flush"};
  NOMZUBLog::WriteMsg("Info:\t buffered", 1);
  static LogsWhenDestroyed late{"Info:\t destroyed before the exit flush"};
  std::exit(0);
}

TEST_F(LogFileTest, Exit_WritesBufferedRecords) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";  // a new process: nothing buffered yet
  EXPECT_EXIT(
      {
        ASSERT_TRUE(nomzub::ConfigureLog("-", LogFormat::kRaw));
        NOMZUBLog::WriteMsg("Info:\t first", 1);
        NOMZUBLog::WriteMsg("Info:\t last", 2);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "1\tInfo:\t first\n2\tInfo:\t last\n");
}

TEST_F(LogFileTest, Exit_KeepsRecordsLoggedDuringStaticDestruction) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(LogAndExitDuringStaticDestruction(), ::testing::ExitedWithCode(0),
              "1\tInfo:\t buffered\n1\tInfo:\t destroyed before the exit flush\n"
              "1\tInfo:\t destroyed after the exit flush\n");
}

TEST_F(LogFileTest, QuickExit_WritesBufferedRecords) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        ASSERT_TRUE(nomzub::ConfigureLog("-", LogFormat::kRaw));
        NOMZUBLog::WriteMsg("Info:\t before quick_exit", 2);
        std::quick_exit(3);
      },
      ::testing::ExitedWithCode(3), "2\tInfo:\t before quick_exit\n");
}

// --- Echo to standard error and the filter of a log on standard error -----------------------

// Points standard error at a file while it lives (the log's records are flushed before it is put
// back), so that what reaches standard error can be read as it arrives.
class StderrToFile {
 public:
  explicit StderrToFile(const std::string& path) : saved_(dup(STDERR_FILENO)) {
    std::fflush(stderr);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd >= 0) {
      dup2(fd, STDERR_FILENO);
      close(fd);
    }
  }
  ~StderrToFile() {
    nomzub::FlushLog();
    dup2(saved_, STDERR_FILENO);
    close(saved_);
  }
  StderrToFile(const StderrToFile&) = delete;
  StderrToFile& operator=(const StderrToFile&) = delete;

 private:
  int saved_;
};

// Installs an echo and a filter of a log on standard error for one test.
class LogEchoTest : public LogFileTest {
 protected:
  ~LogEchoTest() override {
    nomzub::SetLogEcho(nullptr);
    nomzub::SetStderrLogFilter(nullptr);
  }
};

TEST_F(LogEchoTest, SetLogEcho_FileTargetsChosenRecordsAlsoReachStderr) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t Nb Child Nodes: 3", 0);
  NOMZUBLog::WriteMsg("****** ERROR:\t no such table: accounts", 2);
  NOMZUBLog::WriteMsg("Info:\t Handle MP Child Nodes ... ", 1);
  NOMZUBLog::WriteMsg("Info:\t connected", 2);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "2\t****** ERROR:\t no such table: accounts\n2\tInfo:\t connected\n");
  EXPECT_EQ(ReadFile(file),
            "0\tInfo:\t Nb Child Nodes: 3\n2\t****** ERROR:\t no such table: accounts\n"
            "1\tInfo:\t Handle MP Child Nodes ... \n2\tInfo:\t connected\n");
}

TEST_F(LogEchoTest, SetLogEcho_TextRecordIsTheLineTheFileGets) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kText));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t a\nforged", 2);
  ASSERT_TRUE(nomzub::FlushLog());
  const std::string echoed = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(echoed, ReadFile(file));
  EXPECT_THAT(echoed, MatchesRegex(std::string(kTimestamp) + " L2 Info:\t a\\\\nforged\n"));
}

TEST_F(LogEchoTest, SetLogEcho_JsonlRecordIsTheLineTheFileGets) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kJsonl));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t \"quoted\"", 2);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), ReadFile(file));
}

TEST_F(LogEchoTest, SetLogEcho_EchoWaitsForTheBlockLikeTheRecord) {
  const std::string file = dir_.Sub("run.log");
  const std::string error_output = dir_.Sub("stderr");
  StderrToFile redirect(error_output);
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  NOMZUBLog::WriteMsg("Info:\t connected", 2);
  EXPECT_EQ(ReadFile(file), "");
  EXPECT_EQ(ReadFile(error_output), "");
}

TEST_F(LogEchoTest, SetLogEcho_EchoIsWrittenWithALevelZeroErrorRecord) {
  const std::string file = dir_.Sub("run.log");
  const std::string error_output = dir_.Sub("stderr");
  StderrToFile redirect(error_output);
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  NOMZUBLog::WriteMsg("****** ERROR:\t login refused", 2);
  NOMZUBLog::WriteMsg("****** ERROR:\t FAILED to Connect", 0);
  // No flush: the level-0 error record writes what was buffered, its echo included.
  EXPECT_EQ(ReadFile(error_output), "2\t****** ERROR:\t login refused\n");
  EXPECT_EQ(ReadFile(file),
            "2\t****** ERROR:\t login refused\n0\t****** ERROR:\t FAILED to Connect\n");
}

TEST_F(LogEchoTest, SetLogEcho_EchoArrivesWithoutAnotherCall) {
  const std::string file = dir_.Sub("run.log");
  const std::string error_output = dir_.Sub("stderr");
  StderrToFile redirect(error_output);
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  NOMZUBLog::WriteMsg("Info:\t connected to sqlite:x.db", 2);
  // The flusher writes it within about a second; five leave room for a loaded machine.
  std::string contents;
  for (int i = 0; i < 100 && contents.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    contents = ReadFile(error_output);
  }
  EXPECT_EQ(contents, "2\tInfo:\t connected to sqlite:x.db\n");
}

TEST_F(LogEchoTest, SetLogEcho_TargetOnStderrIsNotDoubled) {
  ASSERT_TRUE(nomzub::ConfigureLog("-", LogFormat::kRaw));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t connected", 2);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "2\tInfo:\t connected\n");
}

TEST_F(LogEchoTest, SetLogEcho_FileThatIsStandardErrorIsNotDoubled) {
  const std::string file = dir_.Sub("both.log");
  {
    StderrToFile redirect(file);
    ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
    nomzub::SetLogEcho(nomzub::IsServiceRecord);
    NOMZUBLog::WriteMsg("Info:\t connected", 2);
    ASSERT_TRUE(nomzub::FlushLog());
  }
  EXPECT_EQ(ReadFile(file), "2\tInfo:\t connected\n");
}

TEST_F(LogEchoTest, SetLogEcho_NullEchoesNothing) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  nomzub::SetLogEcho(nomzub::IsServiceRecord);
  nomzub::SetLogEcho(nullptr);
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t connected", 2);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(ReadFile(file), "2\tInfo:\t connected\n");
}

TEST_F(LogEchoTest, SetStderrLogFilter_DropsTheRecordsItDoesNotKeep) {
  ASSERT_TRUE(nomzub::ConfigureLog("-", LogFormat::kRaw));
  nomzub::SetStderrLogFilter(nomzub::IsErrorRecord);
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t Nb Child Nodes: 3", 0);
  NOMZUBLog::WriteMsg("****** ERROR:\t no such table: accounts", 2);
  NOMZUBLog::WriteMsg("Info:\t Handle MP Child Nodes ... ", 1);
  NOMZUBLog::WriteMsg("Info:\t connected", 2);
  NOMZUBLog::WriteMsg("****** ERROR:\t Error in VGX PackNGo.", 0);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "2\t****** ERROR:\t no such table: accounts\n"
            "0\t****** ERROR:\t Error in VGX PackNGo.\n");
}

TEST_F(LogEchoTest, SetStderrLogFilter_FileTargetIsNeverFiltered) {
  const std::string file = dir_.Sub("run.log");
  ASSERT_TRUE(nomzub::ConfigureLog(file, LogFormat::kRaw));
  nomzub::SetStderrLogFilter(nomzub::IsErrorRecord);
  NOMZUBLog::WriteMsg("Info:\t Nb Child Nodes: 3", 0);
  NOMZUBLog::WriteMsg("Info:\t connected", 2);
  ASSERT_TRUE(nomzub::FlushLog());
  EXPECT_EQ(ReadFile(file), "0\tInfo:\t Nb Child Nodes: 3\n2\tInfo:\t connected\n");
}

TEST_F(LogEchoTest, SetStderrLogFilter_AppliesToTheEnvironmentsStderrTarget) {
  TableEnv env({{"NOMZUB_LOG_FORMAT", "raw"}});
  nomzub::ResetLogConfiguration();
  nomzub::SetStderrLogFilter(nomzub::IsErrorRecord);
  ::testing::internal::CaptureStderr();
  NOMZUBLog::WriteMsg("Info:\t x", 0);
  NOMZUBLog::WriteMsg("****** ERROR:\t FAILED to Login", 0);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "0\t****** ERROR:\t FAILED to Login\n");
}

TEST(LogRecordKindTest, IsErrorRecord_ErrorPrefixAtLevelsZeroAndTwo) {
  EXPECT_TRUE(nomzub::IsErrorRecord("****** ERROR:\t FAILED to Connect", 0));
  EXPECT_TRUE(nomzub::IsErrorRecord("****** ERROR:\t no such table: accounts", 2));
}

TEST(LogRecordKindTest, IsErrorRecord_FalseForInformationAndOtherLevels) {
  EXPECT_FALSE(nomzub::IsErrorRecord("Info:\t Nb Child Nodes: 3", 0));
  EXPECT_FALSE(nomzub::IsErrorRecord("Info:\t connected", 2));
  EXPECT_FALSE(nomzub::IsErrorRecord("****** ERROR:\t x", 1));
  EXPECT_FALSE(nomzub::IsErrorRecord("", 0));
  EXPECT_FALSE(nomzub::IsErrorRecord("Input Directory: ****** ERROR", 0));
}

TEST(LogRecordKindTest, IsServiceRecord_LevelTwoOnly) {
  EXPECT_TRUE(nomzub::IsServiceRecord("Info:\t connected", 2));
  EXPECT_TRUE(nomzub::IsServiceRecord("****** ERROR:\t x", 2));
  EXPECT_FALSE(nomzub::IsServiceRecord("****** ERROR:\t x", 0));
  EXPECT_FALSE(nomzub::IsServiceRecord("Info:\t x", 1));
}

}  // namespace
