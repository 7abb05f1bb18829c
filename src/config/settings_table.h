// The table of all settings. It drives loading, export, the typed accessors and what registration
// reports; docs/ini-reference.md is its printed form, which script/make-ini-reference makes. A key
// that the agent does not read is one that the table keeps for others: script/check-settings looks.
#pragma once

#include <cstddef>
#include <span>

#include "util/string.h"

namespace korvane {

// One name a setting, in the order of the table.
enum class Key : int {
  agentInitialGroup,
  agentConfigInitialGroup,
  configInitialGroup,
  agentCharset,
  agentName,
  agentOpstateInterval,
  agentId,
  agentUrl,
  serverList,
  agentUpdate,
  agentFeatures,
  httpPlainEnabled,
  fipsEnabled,
  autoRetransEnabled,
  autoRetransInterval,
  autoRetransNow,
  agentLogFile,
  agentLogTrace,
  agentLogPointer,
  agentLogRolloverPending,
  plusPolicyFile,
  policyName,
  policyId,
  policyPath,
  useBuiltInPolicy,
  ipsEnabled,
  ipsRebootRequired,
  rebootRequested,
  rebootSource,
  fimRebootRequired,
  fimRebootRequested,
  fimEnabled,
  driverLogFile,
  driverProfileLogFile,
  driverLogPointer,
  driverLogRolloverPending,
  idsPolicyInitialGroup,
  idsConfigInitialGroup,
  idsPlusPolicyFile,
  idsSignalTimeout,
  sslTrustStore,
  sslServerNames,
  sslServerPins,
  sslCrlFile,
  sslClientCertificate,
  sslClientKey,
  sslMinimumVersion,
  settingsLocalOnly,
  signingKeys,
  signingMinimum,
  logDiskUpperLimit,
  logDiskLowerLimit,
  bulkIdleInterval,
  bulkBacklogInterval,
  bulkOpenFileLimit,
  logConsolidate,
  logConsolidateValue,
  logDeleteEnabled,
  bulkEnabled,
  logCollectSha256,
  logReaderLimit,
  logWriterLimit,
  logPriority,
  logRolloverCause,
  logRolloverValue,
  externalLog,
  policyErrorCode,
  policyErrorString,
  ipsImportFileMaxLines,
  overrideTimeout,
  appDataConfigFile,
  appDataConfigV2File,
  appDataRequested,
  appDataRequestId,
  appDataMaxPayload,
  appDataSendInterval,
  appDataRetryInterval,
  appDataMaxRetries,
  updateQelNow,
  updateFRevoNow,
  updateFSettingsNow,
  updateFVtNow,
  qelPath,
  fRevoPath,
  fSettingsPath,
  fVtPath,
  qelMetadata,
  fRevoMetadata,
  fSettingsMetadata,
  fVtMetadata,
  pollingEnabled,
  pollingInterval,
  failbackInterval,
  tcpEnabled,
  tcpPort,
  connectionTimeout,
  applicationsChecksum,
  filesChecksum,
  count
};

enum class ValueType {
  text,
  boolean,      // "true" or "false"
  integer,      // signed 32-bit, decimal
  interval,     // unsigned 32-bit, decimal
  enumeration,  // a small number from 0
  path,         // a text that names a file or folder
  paths,        // a text in which files may be named
};

// Which of the two name/value maps a setting lives in: the small one holds the sections [Agent],
// [Polling], [TCP] and [Communication].
enum class MapKind { settings, communication };

// In which list of the registration a setting goes to the server.
enum class Report { none, attribute, configuration };

// When a changed value counts: as soon as the agent has taken the change up, which takes about a second;
// when the agent is started again; never in the agent itself.
enum class Effect { atOnce, nextStart, otherPrograms };

struct SettingRow {
  Key key;
  const char* section;
  const char* name;
  ValueType type;
  const char* defaultText;
  Report report;
  Effect effect;
  const char* meaning;  // for the operator, as a cell of a Markdown table
};

// All rows in the order of the file; the row of a Key is the one at its number.
std::span<const SettingRow> settingsTable();
// As the reference and `agentctl config set` say it.
const char* effectText(Effect effect);
MapKind mapKindOf(const SettingRow& row);
const SettingRow& rowOf(Key key);
// The row with this key name, compared exactly, or null.
const SettingRow* findRow(const STRING& name);

// The sections of the file in their order, with [Other] and [Checksum] in their places.
inline constexpr char kOtherSection[] = "Other";
inline constexpr char kChecksumSection[] = "Checksum";
inline constexpr char kChecksumKey[] = "agentini.checksum";
inline constexpr char kNotComputed[] = "Not Computed";
// [Other] stands before this section.
inline constexpr char kSectionAfterOther[] = "Polling";

}  // namespace korvane
