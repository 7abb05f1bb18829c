// The program itself, started as the agent starts it, in folders with blanks and letters
// beyond ASCII.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/native.h"
#include "platform/processes.h"
#include "tests/support/temp_directory.h"
#include "translate-stand-in/source_archive.h"
#include "update/policy/retrans_items.h"

namespace korvane::translate_stand_in {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kLongMs = 60000;
constexpr char kPolicyHead[] = "korvane-policy 1\nname N\nversion 1\nid i\n";

class TranslateProgram : public testing::Test {
 protected:
  TranslateProgram() {
    fs::create_directory(tests::fsPath(_folder));
    put("source.zip", packPolicy(kPolicyHead));
  }

  std::string path(const std::string& name) { return _folder + "/" + name; }
  std::string quoted(const std::string& name) { return "\"" + path(name) + "\""; }
  void put(const std::string& name, const std::string& bytes) {
    std::ofstream(tests::fsPath(path(name)), std::ios::binary) << bytes;
  }
  bool there(const std::string& name) { return fs::exists(tests::fsPath(path(name))); }
  std::string content(const std::string& name) {
    std::ifstream file(tests::fsPath(path(name)), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  uint32_t run(const std::string& arguments) {
    std::unique_ptr<platform::Process> process;
    EXPECT_EQ(_processes->start(KORVANE_TRANSLATE, arguments, process), 0u);
    uint32_t code = 0xBAD;
    EXPECT_EQ(process->wait(kLongMs), platform::ProcessWait::ended);
    EXPECT_TRUE(process->exitCode(code));
    return code;
  }
  std::string forSource(const std::string& agent = "-agent") {
    return "\"" + agent + "\" \"-loadtext\" " + quoted("source.zip") + " " + quoted("first") + " " +
           quoted("second");
  }
  uint32_t translate(const std::string& rules, const std::string& agent = "-agent") {
    put("source.zip", packPolicy(kPolicyHead + rules));
    for (const char* name : {"first", "second"}) fs::remove(tests::fsPath(path(name)));
    return run(forSource(agent));
  }

 private:
  const tests::TempDirectory _temp;
  const std::string _folder = _temp.path() + "/\xc3\xa4 \xd0\xb6";
  const std::unique_ptr<platform::Processes> _processes = platform::makeNativeProcesses();
};

TEST_F(TranslateProgram, WritesThePolicyAndItsItems) {
  const std::string rules = "when \"" + path("first") + "\" rule deny file a b\n" + "when \"" +
                            path("source.zip") + "\" rule deny file a c\n";
  ASSERT_EQ(translate(rules), 0u);
  EXPECT_EQ(content("first"), std::string(kPolicyHead) + "rule deny file a c\n");
  RetransItems items;
  ItemsProblem problem;
  ASSERT_TRUE(parseRetransItems(content("second"), items, problem)) << problem.reason;
  EXPECT_EQ(items, (RetransItems{{RetransItem::Kind::path, "", path("first"), false, ""},
                                 {RetransItem::Kind::path, "", path("source.zip"), true, ""}}));
  put("before", "korvane-items 1\nenvironment\tpresent\tKORVANE_NOT_SET\t/old\nend 1\n");
  put("source.zip",
      packPolicy(std::string(kPolicyHead) + "rule deny file a $(env:KORVANE_NOT_SET)\n"));
  ASSERT_EQ(run("-PrevTransFile " + quoted("before") + " " + forSource()), 0u);
  EXPECT_EQ(content("first"), std::string(kPolicyHead) + "rule deny file a /old\n");
  put("before", "no items");
  ASSERT_EQ(run("-PrevTransFile " + quoted("before") + " " + forSource()), 0u);
  EXPECT_EQ(content("first"), kPolicyHead) << "damaged items are as good as none";
  ASSERT_EQ(translate("stand-in ids-answer silent\n", "-hidsagent"), 0u);
  EXPECT_FALSE(there("first"));
  EXPECT_TRUE(content("second").starts_with("korvane-ids-policy 1\n"));
}

TEST_F(TranslateProgram, PacksAPolicy) {
  put("text.pol", kPolicyHead);
  ASSERT_EQ(run("--make-policy " + quoted("text.pol") + " " + quoted("made.sbp.zip")), 0u);
  EXPECT_EQ(content("made.sbp.zip"), packPolicy(kPolicyHead));
  EXPECT_EQ(run("--make-policy " + quoted("none") + " " + quoted("made.sbp.zip")), 1u);
}

}  // namespace
}  // namespace korvane::translate_stand_in
