// What `agentctl diagnose` collects, as the bytes of a zip. docs/agentctl.md lists the entries.
//
// What is not available is a problem that is written down, not a failure: the rest is collected all
// the same. Every text goes through a Redactor. Bounds: of the agent's own log the newest
// kLogBytes.
// Lifetime: one object per zip. Threads: one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agentctl/context.h"
#include "agentctl/redaction.h"
#include "archive/zip_writer.h"

namespace korvane::agentctl {

class Diagnosis {
 public:
  static constexpr uint64_t kLogBytes = 8u << 20;
  static constexpr uint64_t kHostLogBytes = 256u << 10;

  // `offline`: no connection to the server is tried.
  Diagnosis(Context& context, bool offline);
  // The archive; `name` is what errors call it.
  std::string collect(const std::string& name);
  const std::vector<std::string>& entries() const { return _entries; }
  const std::vector<std::string>& problems() const { return _problems; }

 private:
  // Adds what `make` gives; a failure of it becomes a problem.
  void add(const std::string& entry, const std::function<std::string()>& make);
  void addLogs();
  void addLog(const std::string& path, uint64_t bytes);
  std::string about();
  std::string settings();
  std::string settingsCheck();
  std::string fromAgent();

  Context& _context;
  const bool _offline;
  Redactor _redact;
  std::unique_ptr<archive::ZipWriter> _zip;
  std::vector<std::string> _entries;
  std::vector<std::string> _problems;
};

}  // namespace korvane::agentctl
