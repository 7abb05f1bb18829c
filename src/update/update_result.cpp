#include "update/update_result.h"

#include "comm/https_handler.h"
#include "comm/report_answer.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr int kCorruptResult = 51;

}  // namespace

void reportUpdateResult(ServerConnection& connection, int kind, const UpdateResult& result,
                        const PropertyList& pairs) {
  HttpsHandler handler(connection);
  // What the server still misses, the next status says.
  ignoreResult(
      reportTaken(handler, handler.setUpdateResult(kind, result.code, result.text, pairs)));
}

void addRefusals(UpdateResult& result, const RefusedSettings& refused) {
  if (refused.empty()) return;
  addProblem(result, {kSettingsRefused, refusedSettingsText(refused)});
}

void addProblem(UpdateResult& result, const UpdateResult& problem) {
  result = result.ok() ? problem : UpdateResult{result.code, result.text + " " + problem.text};
}

UpdateResult readIdsResult(HidsInterface& ids, const STRING& prefix, const STRING& context) {
  PropertyList results;
  // A result that cannot be read lacks its code.
  ignoreResult(ids.readResults(results));
  const STRING* code = findProperty(results, prefix + ".ResultCode");
  const STRING* text = findProperty(results, prefix + ".ResultMessage");
  if (!code || !text) throw AgentError(kCorruptResult, "Corrupt HIDS result file.", context);
  return {code->toInt(), *text};
}

}  // namespace korvane
