// Collects one inventory: asks the survey for what a definition names and writes it row by row, at the pace and
// within the limits that it sets (docs/discovery.md).
//
// Lifetime: refers to its parts; used for one run(). Threads: one. Memory: bounded, whatever is collected.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "discovery/aside_file.h"
#include "discovery/definition.h"
#include "discovery/inventory.h"
#include "discovery/inventory_row.h"
#include "discovery/pace.h"
#include "platform/survey.h"

namespace korvane {

class Collector final : public platform::SurveyGuide {
 public:
  struct Parts {
    platform::Clock& clock;
    platform::Files& files;
    platform::Survey& survey;
    StopToken& stop;
  };

  Collector(const Parts& parts, const Definition& definition, const InventoryOrder& order);
  InventoryOutcome run();

  bool goOn() override;
  void skipped(std::string_view what, int error) override;

 private:
  void collectApplications();
  void collectServices();
  void collectProcesses();
  void collectPorts();
  void collectShortcuts();
  void collectFiles(const FileRoot& root);
  void collectRegistry(const RegistryRoot& root);
  bool isWanted(const FileRoot& root, const platform::SurveyedEntry& entry) const;
  void writeFile(const FileRoot& root, const std::string& folder, platform::FileWalk& walk,
                 const platform::SurveyedEntry& entry);
  std::string digestOf(platform::FileWalk& walk, const std::string& path);
  void writeRow(RowSum* sum);
  void writeShortcutLine(const platform::SurveyedShortcut& row);
  void writeResult(InventoryOutcome& outcome);
  void place(InventoryOutcome& outcome);

  const Parts _parts;
  const Definition& _definition;
  Pace _pace;
  AsideFile _output;
  std::unique_ptr<AsideFile> _shortcuts;
  InventoryRow _row;
  RowSum _applicationsSum, _filesSum;
  std::unique_ptr<char[]> _buffer;
  uint64_t _rows = 0, _skipped = 0;
  bool _rowLimit = false;
};

}  // namespace korvane
