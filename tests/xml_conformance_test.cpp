// The XML conformance corpus (tests/xml_conformance): every document under not-wf/ is refused by
// the DOM service with its cause logged at level 2, every document under valid/ is read.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "services/NOMZUBDOMWrapper.h"
#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;

// The corpus beside this source file (NOMSOI_SOURCE_DIR/tests/xml_conformance when set).
fs::path CorpusDir() {
  if (const char* source = std::getenv("NOMSOI_SOURCE_DIR")) {
    return fs::path(source) / "tests" / "xml_conformance";
  }
  return fs::path(__FILE__).parent_path() / "xml_conformance";
}

struct CorpusFile {
  std::string path;  // native
  bool well_formed;
};

// The documents of one verdict's folder, sorted by name.
std::vector<CorpusFile> Corpus(const std::string& folder, bool well_formed) {
  std::vector<CorpusFile> files;
  const fs::path dir = CorpusDir() / folder;
  for (const std::string& name : nomtest::ListDir(dir.string())) {
    if (fs::path(name).extension() == ".xml") files.push_back({(dir / name).string(), well_formed});
  }
  return files;
}

std::vector<CorpusFile> WholeCorpus() {
  std::vector<CorpusFile> files = Corpus("not-wf", false);
  for (CorpusFile& file : Corpus("valid", true)) files.push_back(std::move(file));
  return files;
}

// The DOM service's verdict on one file: S_OK and no log line, or E_FAIL and one level-2 line
// naming the file and a cause.
struct Verdict {
  HRESULT result;
  std::vector<nomtest::LogLine> lines;
};

Verdict Open(const CorpusFile& file) {
  nomtest::LogCapture log;
  NOMZUBDOMWrapper doc;
  const HRESULT result = doc.OpenDocument(nomtest::ZPath(file.path));
  return {result, log.lines()};
}

class XmlConformanceTest : public ::testing::TestWithParam<CorpusFile> {};

TEST_P(XmlConformanceTest, OpenDocument_CorpusFile_GetsItsVerdict) {
  const CorpusFile& file = GetParam();
  const Verdict verdict = Open(file);
  if (file.well_formed) {
    EXPECT_EQ(verdict.result, S_OK) << file.path;
    EXPECT_TRUE(verdict.lines.empty()) << file.path << ": " << verdict.lines.front().message;
    return;
  }
  EXPECT_EQ(verdict.result, E_FAIL) << file.path;
  ASSERT_EQ(verdict.lines.size(), 1u) << file.path;
  EXPECT_EQ(verdict.lines[0].level, 2);
  const std::string prefix =
      "****** ERROR:\t Cannot parse XML document " + nomtest::ZPath(file.path) + ": ";
  EXPECT_EQ(verdict.lines[0].message.compare(0, prefix.size(), prefix), 0)
      << verdict.lines[0].message;
  EXPECT_GT(verdict.lines[0].message.size(), prefix.size()) << "no cause given";
}

// "not_wf_char_ref_nul", "valid_utf16le_byte_order_mark": a test name per file.
std::string TestName(const ::testing::TestParamInfo<CorpusFile>& info) {
  std::string name =
      (info.param.well_formed ? "valid_" : "not_wf_") + fs::path(info.param.path).stem().string();
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Corpus, XmlConformanceTest, ::testing::ValuesIn(WholeCorpus()), TestName);

TEST(XmlConformanceCorpusTest, WholeCorpus_CountsPerVerdict) {
  int refused = 0, accepted = 0, wrong = 0;
  const std::vector<CorpusFile> not_wf = Corpus("not-wf", false);
  const std::vector<CorpusFile> valid = Corpus("valid", true);
  for (const std::vector<CorpusFile>* files : {&not_wf, &valid}) {
    for (const CorpusFile& file : *files) {
      const bool read = Open(file).result == S_OK;
      if (read)
        ++accepted;
      else
        ++refused;
      if (read != file.well_formed) ++wrong;
    }
  }
  std::cout << "XML conformance corpus: " << not_wf.size() << " not well-formed, " << refused
            << " refused; " << valid.size() << " well-formed, " << accepted << " read; " << wrong
            << " wrong verdicts" << std::endl;
  EXPECT_GE(not_wf.size(), 40u);
  EXPECT_GE(valid.size(), 20u);
  EXPECT_EQ(wrong, 0);
}

}  // namespace
