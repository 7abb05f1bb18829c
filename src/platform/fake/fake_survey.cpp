#include "platform/fake/fake_survey.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/paths.h"

namespace korvane::platform {
namespace {

class FakeContent final : public SurveyedContent {
 public:
  explicit FakeContent(std::string bytes) : _bytes(std::move(bytes)) {}
  int read(void* buffer, size_t size, size_t& got) override {
    got = std::min(size, _bytes.size() - _at);
    std::memcpy(buffer, _bytes.data() + _at, got);
    _at += got;
    return 0;
  }

 private:
  const std::string _bytes;
  size_t _at = 0;
};

class FakeWalk final : public FileWalk {
 public:
  FakeWalk(const FakeSurvey& of, SurveyGuide& guide, std::string root)
      : _of(of), _guide(guide), _root(std::move(root)) {
    list("");
  }

  bool next(SurveyedEntry& out) override {
    while (!_levels.empty()) {
      if (!_guide.goOn()) return false;
      Level& level = _levels.back();
      if (level.left.empty()) {
        _levels.pop_back();
        continue;
      }
      out = level.left.front();
      level.left.erase(level.left.begin());
      _last = out.relative;
      return true;
    }
    return false;
  }
  size_t depth() const override { return _levels.size() - 1; }

  void enter() override {
    const auto refused = _of.unreadable.find(_root + "/" + _last);
    if (refused != _of.unreadable.end()) {
      _guide.skipped(refused->first, refused->second);
    } else {
      list(_last + "/");
    }
  }

  int open(std::unique_ptr<SurveyedContent>& out) override {
    const std::string path = _root + "/" + _last;
    if (const auto refused = _of.unreadable.find(path); refused != _of.unreadable.end())
      return refused->second;
    const auto found = _of.files.find(path);
    if (found == _of.files.end()) return ENOENT;
    out = std::make_unique<FakeContent>(found->second);
    return 0;
  }
  std::string version() override { return _last.ends_with(".dll") ? "1.2.3.4" : ""; }
  std::string signer() override { return _last.ends_with(".dll") ? "A Vendor" : ""; }

 private:
  struct Level {
    std::vector<SurveyedEntry> left;
  };

  void list(const std::string& folder) {
    Level level;
    const std::string below = _root + "/" + folder;
    for (const auto& [path, content] : _of.files) {
      if (!path.starts_with(below)) continue;
      const std::string rest = path.substr(below.size());
      const size_t end = rest.find('/');
      const bool isFolder = end != std::string::npos;
      const std::string name = rest.substr(0, end);
      if (!level.left.empty() && level.left.back().name == name) continue;
      level.left.push_back({name, folder + name, isFolder, isFolder ? 0 : content.size(), 1000, 0});
    }
    _levels.push_back(std::move(level));
  }

  const FakeSurvey& _of;
  SurveyGuide& _guide;
  const std::string _root;
  std::vector<Level> _levels;
  std::string _last;
};

}  // namespace

int FakeSurvey::walk(SurveyGuide& guide, const std::string& root, std::unique_ptr<FileWalk>& out) {
  const auto refused = unreadable.find(root);
  if (refused != unreadable.end()) return refused->second;
  const auto first = files.lower_bound(root + "/");
  if (first == files.end() || !first->first.starts_with(root + "/")) return ENOENT;
  out = std::make_unique<FakeWalk>(*this, guide, root);
  return 0;
}

}  // namespace korvane::platform
