#include "tools/server/bulk_files.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "archive/zip_archive.h"
#include "bulk/bulk_manifest.h"
#include "util/sha256.h"

namespace korvane::server {
namespace {

using Json = nlohmann::json;

constexpr size_t kListedRanges = 200;
constexpr archive::Limits kBundleLimits{.entries = bulk::kMaxParts + 1,
                                        .totalBytes = uint64_t{128} << 20};
constexpr char kOfThisAgent[] = "(?1 = '' OR f.agent_id = (SELECT id FROM agents WHERE guid = ?1))";

// Reads the manifest, and each part for its length and digest. What is wrong; empty when nothing is.
std::string readBundle(std::string_view name, std::string_view bytes, bulk::Manifest& manifest) {
  archive::ZipArchive zip(std::string(name), bytes, kBundleLimits);
  archive::Refusal refusal;
  std::string text;
  if (!zip.open(refusal) || !zip.read(bulk::kManifestName, text, refusal)) return refusal.text();
  bulk::Manifest read;
  if (!bulk::parseManifest(text, read)) return "its manifest is damaged";
  if (read.bundle != name) return "its manifest is that of " + read.bundle;
  for (const bulk::Part& part : read.parts) {
    const archive::Entry* entry = zip.find(part.entry);
    if (!entry || entry->size != part.to - part.from) return "its part " + part.entry + " differs";
    Sha256 digest;
    const auto sink = [&](std::string_view piece) { return digest.add(piece), 0; };
    if (!zip.read(*entry, sink, refusal)) return refusal.text();
    if (!part.digest.empty() && part.digest != digest.text())
      return "its part " + part.entry + " has another digest";
  }
  manifest = std::move(read);
  return {};
}

// What is known of one log, from its parts in the order of their beginnings.
struct LogSum {
  Json about;
  int64_t end = 0;   // behind the last byte that is here
  int64_t size = 0;  // as it was told last
  int64_t bytes = 0;
  int64_t twice = 0;
  Json missing = Json::array();

  void add(int64_t from, int64_t to) {
    if (from > end && missing.size() < kListedRanges) missing.push_back({end, from});
    twice += std::max<int64_t>(0, std::min(end, to) - from);
    bytes += std::max<int64_t>(0, to - std::max(end, from));
    end = std::max(end, to);
  }
  Json json() {
    if (end < size && missing.size() < kListedRanges) missing.push_back({end, size});
    Json log = about;
    log.update({{"bytes", bytes}, {"twice", twice}, {"size", size}});
    log["complete"] = bytes == size;
    log["missing"] = missing;
    return log;
  }
};

}  // namespace

void storeBulkFile(Records& records, int64_t request, int64_t agent, const WireSection& section,
                   std::string_view fileName) {
  Database& database = records.database();
  const std::string digest = sha256Hex(section.payload);
  Statement again(database,
                  "UPDATE bulk_files SET received = received + 1, last_ms = ? "
                  "WHERE agent_id = ? AND name = ? AND sha256 = ?");
  again.run(nowMs(), agent, fileName, digest);
  if (database.changes() > 0) return;
  records.addBinary(request, agent, "bulk-log", section, fileName);
  const int64_t binary = database.lastId();
  bulk::Manifest manifest;
  const std::string fault = readBundle(fileName, section.payload, manifest);
  Statement(database,
            "INSERT INTO bulk_files(binary_id, agent_id, name, sha256, size, received, first_ms, "
            "last_ms, fault) VALUES(?, ?, ?, ?, ?, 1, ?6, ?6, ?7)")
      .run(binary, agent, fileName, digest, static_cast<int64_t>(section.payload.size()), nowMs(),
           fault);
  const int64_t file = database.lastId();
  Statement add(database, "INSERT INTO bulk_parts VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  for (const bulk::Part& part : manifest.parts)
    add.run(file, part.entry, std::string_view(bulk::nameOf(part.kind)), part.log,
            static_cast<int64_t>(part.from), static_cast<int64_t>(part.to),
            static_cast<int64_t>(part.size), part.modifiedMs, part.digest, part.path);
}

Json reportBulkFiles(Records& records, const std::string& guid, int64_t after, int64_t limit) {
  MutexLock lock(records.mutex());
  Json list = Json::array();
  Statement files(records.database(),
                  std::string("SELECT f.id, f.binary_id, g.guid, f.name, f.sha256, f.size, "
                              "f.received, f.first_ms, f.last_ms, f.fault FROM bulk_files f "
                              "LEFT JOIN agents g ON g.id = f.agent_id WHERE ") +
                      kOfThisAgent + " AND f.id > ?2 ORDER BY f.id LIMIT ?3");
  Statement parts(records.database(),
                  "SELECT entry, kind, log, from_byte, to_byte, size, modified_ms, digest, path "
                  "FROM bulk_parts WHERE file_id = ? ORDER BY rowid");
  for (files.start(guid, after, limit); files.next();) {
    Json held = Json::array();
    for (parts.start(files.number(0)); parts.next();)
      held.push_back({{"entry", parts.text(0)},
                      {"kind", parts.text(1)},
                      {"log", parts.text(2)},
                      {"from", parts.number(3)},
                      {"to", parts.number(4)},
                      {"size", parts.number(5)},
                      {"modified_ms", parts.number(6)},
                      {"digest", parts.text(7)},
                      {"path", parts.text(8)}});
    list.push_back({{"id", files.number(0)},
                    {"binary", files.number(1)},
                    {"agent", files.text(2)},
                    {"name", files.text(3)},
                    {"sha256", files.text(4)},
                    {"size", files.number(5)},
                    {"received", files.number(6)},
                    {"first_ms", files.number(7)},
                    {"last_ms", files.number(8)},
                    {"fault", files.text(9)},
                    {"parts", held}});
  }
  return list;
}

Json reportBulkLogs(Records& records, const std::string& guid) {
  MutexLock lock(records.mutex());
  Statement sums(records.database(),
                 std::string("SELECT count(*), total(size), total(received - 1), "
                             "total(fault != '') FROM bulk_files f WHERE ") +
                     kOfThisAgent);
  sums.start(guid).next();
  Json answer = {{"files", sums.number(0)},
                 {"file_bytes", sums.number(1)},
                 {"repeated", sums.number(2)},
                 {"faults", sums.number(3)}};
  Statement parts(
      records.database(),
      std::string("SELECT g.guid, p.log, p.kind, p.path, p.from_byte, p.to_byte, p.size "
                  "FROM bulk_parts p JOIN bulk_files f ON f.id = p.file_id "
                  "LEFT JOIN agents g ON g.id = f.agent_id WHERE ") +
          kOfThisAgent + " ORDER BY f.agent_id, p.log, p.from_byte, p.file_id");
  std::vector<LogSum> logs;
  for (parts.start(guid); parts.next();) {
    if (logs.empty() || logs.back().about["agent"] != parts.text(0) ||
        logs.back().about["log"] != parts.text(1))
      logs.push_back({.about = {{"agent", parts.text(0)}, {"log", parts.text(1)}}});
    LogSum& log = logs.back();
    log.about["kind"] = parts.text(2);
    log.about["path"] = parts.text(3);
    log.size = std::max(log.size, parts.number(6));
    log.add(parts.number(4), parts.number(5));
  }
  int64_t bytes = 0, twice = 0;
  answer["logs"] = Json::array();
  for (LogSum& log : logs) {
    bytes += log.bytes;
    twice += log.twice;
    answer["logs"].push_back(log.json());
  }
  answer.update({{"log_bytes", bytes}, {"twice", twice}});
  return answer;
}

}  // namespace korvane::server
