// A survey of a machine that a test makes up: its rows as lists, its files as a map from full paths.
//
// Lifetime: walks refer to it. Threads: one.
//
//   fake.ports.push_back({"tcp", "0.0.0.0", 22, 811, "/usr/sbin/sshd"});
//   fake.files["/opt/a/b.txt"] = "content";
//   fake.unreadable["/opt/secret"] = EACCES;   // a folder or a file
#pragma once

#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/survey.h"

namespace korvane::platform {

class FakeSurvey final : public Survey {
 public:
  std::vector<SurveyedApplication> installed;
  std::vector<SurveyedService> offered;
  std::vector<SurveyedProcess> running;
  std::vector<SurveyedPort> open;
  std::vector<SurveyedShortcut> links;
  std::vector<SurveyedValue> values;
  std::map<std::string, std::string> files;
  std::map<std::string, int> unreadable;
  bool foldCase = false;

  void applications(SurveyGuide& guide, const Taker<SurveyedApplication>& take) override {
    each(guide, installed, take);
  }
  void services(SurveyGuide& guide, const Taker<SurveyedService>& take) override {
    each(guide, offered, take);
  }
  void processes(SurveyGuide& guide, const Taker<SurveyedProcess>& take) override {
    each(guide, running, take);
  }
  void ports(SurveyGuide& guide, const Taker<SurveyedPort>& take) override {
    each(guide, open, take);
  }
  void shortcuts(SurveyGuide& guide, const Taker<SurveyedShortcut>& take) override {
    each(guide, links, take);
  }
  void registryValues(SurveyGuide& guide, const std::string& key, size_t,
                      const Taker<SurveyedValue>& take) override {
    each(guide, values, [&](const SurveyedValue& row) {
      if (row.key.starts_with(key)) take(row);
    });
  }
  int walk(SurveyGuide& guide, const std::string& root, std::unique_ptr<FileWalk>& out) override;
  bool ignoresCase() const override { return foldCase; }

 private:
  template <class Row>
  static void each(SurveyGuide& guide, const std::vector<Row>& rows,
                   const std::type_identity_t<Taker<Row>>& take) {
    for (const Row& row : rows) {
      if (!guide.goOn()) return;
      take(row);
    }
  }
};

}  // namespace korvane::platform
