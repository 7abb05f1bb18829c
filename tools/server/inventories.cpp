#include "tools/server/inventories.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "archive/zip_archive.h"

namespace korvane::server {

namespace {

std::string digestOf(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr);
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    constexpr char digits[] = "0123456789abcdef";
    text += {digits[digest[i] >> 4], digits[digest[i] & 15]};
  }
  return text;
}

int64_t numberOf(const WireProperties& properties, std::string_view name) {
  return std::strtoll(propertyOf(properties, name).c_str(), nullptr, 10);
}

// One row a line; neither what was skipped nor the result is one of the machine.
int64_t rowsIn(std::string_view xml) {
  int64_t rows = 0;
  for (size_t at = 0; at < xml.size(); at = std::min(xml.find('\n', at), xml.size() - 1) + 1) {
    const std::string_view line = xml.substr(at);
    bool counts = line.starts_with('<');
    for (const std::string_view other : {"<?", "<!", "</", "<inventory", "<skip ", "<result "})
      counts = counts && !line.starts_with(other);
    rows += counts;
  }
  return rows;
}

struct Inventory {
  std::string xml, fault;
};

// The pieces in their order, as far as there is no gap.
std::string joined(Database& database, int64_t agent, const std::string& request,
                   const std::string& digest) {
  Statement query(database,
                  "SELECT at, bytes FROM inventory_pieces WHERE agent_id = ? AND wanted_id = ? "
                  "AND sha256 = ? ORDER BY at");
  std::string all;
  for (query.start(agent, request, digest); query.next();) {
    const auto at = static_cast<size_t>(query.number(0));
    if (at > all.size()) break;
    all.resize(at);
    all += query.text(1);
  }
  return all;
}

Inventory unpacked(const std::string& archive, int64_t size, const std::string& digest) {
  if (archive.size() != static_cast<size_t>(size))
    return {{},
            "only " + std::to_string(archive.size()) + " of " + std::to_string(size) +
                " bytes have arrived without a gap"};
  if (digestOf(archive) != digest) return {{}, "the archive has another digest"};
  archive::ZipArchive zip("inventory.zip", archive);
  archive::Refusal refusal;
  std::string xml;
  if (!zip.open(refusal) || !zip.read("inventory.xml", xml, refusal)) return {{}, refusal.text()};
  return {std::move(xml), {}};
}

}  // namespace

void takeApplicationData(Records& records, int64_t agent, const WireProperties& properties,
                         std::string_view piece) {
  Database& database = records.database();
  const std::string request = propertyOf(properties, "application.requestID");
  const std::string outcome = propertyOf(properties, "application.data.outcome");
  const std::string digest = propertyOf(properties, "application.data.sha256");
  if (!piece.empty())
    Statement(database, "INSERT OR REPLACE INTO inventory_pieces VALUES(?, ?, ?, ?, ?)")
        .run(agent, request, digest, numberOf(properties, "application.data.offset"), Blob{piece});
  if (outcome.empty() || propertyOf(properties, "application.request.complete") != "true") return;
  Inventory inventory;
  const int64_t size = numberOf(properties, "application.data.size");
  if (outcome == "data")
    inventory = unpacked(joined(database, agent, request, digest), size, digest);
  // The last piece may come again; the inventory is the same.
  Statement(database,
            "DELETE FROM inventories WHERE agent_id = ? AND wanted_id = ? AND sha256 = ? "
            "AND outcome = 'data'")
      .run(agent, request, digest);
  Statement(database,
            "INSERT INTO inventories(agent_id, wanted_id, at_ms, outcome, error, complete, rows, "
            "rows_found, skipped, size, sha256, applications_checksum, files_checksum, fault, xml) "
            "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
      .run(agent, request, nowMs(), outcome, propertyOf(properties, "application.data.error"),
           propertyOf(properties, "application.data.complete"),
           numberOf(properties, "application.data.rows"), rowsIn(inventory.xml),
           numberOf(properties, "application.data.skipped"), size, digest,
           propertyOf(properties, "application.data.applications.checksum"),
           propertyOf(properties, "application.data.files.checksum"), inventory.fault,
           Blob{inventory.xml});
  // Of an archive that was replaced by a newer one under the same request.
  Statement(database,
            "DELETE FROM inventory_pieces WHERE agent_id = ? AND wanted_id = ? AND sha256 <> ?")
      .run(agent, request, digest);
}

std::optional<std::string> inventoryXml(Records& records, int64_t id) {
  Statement query(records.database(), "SELECT xml FROM inventories WHERE id = ? AND xml <> x''");
  if (!query.start(id).next()) return std::nullopt;
  return query.text(0);
}

}  // namespace korvane::server
