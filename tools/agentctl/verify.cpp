// agentctl verify: whether packages are what a trusted signer released.
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/failure.h"
#include "agentctl/json.h"
#include "agentctl/signed_list.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/sha256.h"

namespace korvane::agentctl {
namespace {

constexpr uint64_t kMaxBytes = 1 << 20;  // of list, signature and certificates
constexpr size_t kPieceBytes = 1 << 16;

struct VerifyOptions {
  std::string signers;
  std::vector<std::string> packages;
};

[[noreturn]] void cannotRead(const std::string& path, int error, std::string next) {
  throw Failure(ExitStatus::failed,
                error == ENOENT ? path + " is not there"
                                : path + " cannot be read, error " + std::to_string(error),
                std::move(next));
}

std::string contentOf(platform::Files& files, const std::string& path, const std::string& next) {
  std::string bytes;
  if (const int error = platform::readWholeFile(files, path, kMaxBytes, bytes); error != 0)
    cannotRead(path, error, next);
  return bytes;
}

std::string sha256Of(platform::Files& files, const std::string& path) {
  std::unique_ptr<platform::File> file;
  if (const int error = files.open(path, platform::OpenMode::read, file); error != 0)
    cannotRead(path, error, {});
  Sha256 digest;
  std::string piece(kPieceBytes, '\0');
  for (size_t got = piece.size(); got == piece.size();) {
    if (const int error = file->read(piece.data(), piece.size(), got); error != 0)
      cannotRead(path, error, {});
    digest.add({piece.data(), got});
  }
  const std::string text = digest.text();
  if (text.empty())
    throw Failure(ExitStatus::failed, "the cryptographic library computes no SHA-256", {});
  return text;
}

// What is known of a package: its signer, or why it is refused.
SignatureVerdict verify(platform::Files& files, const std::string& package,
                        const std::string& signers) {
  const std::string list =
      platform::joinPath(files, {platform::directoryOf(package), "SHA256SUMS"});
  const std::string sums =
      contentOf(files, list, "The signed list of checksums lies beside the package.");
  const std::string signature =
      contentOf(files, list + ".p7s", "Without it the list is not signed, and proves nothing.");
  const SignatureVerdict verdict = checkList(
      sums, signature,
      contentOf(files, signers, "--signers names the certificates of those who sign releases."));
  if (!verdict.refusal.empty()) return verdict;
  const std::string name = platform::fileNameOf(package);
  const auto expected = digestOf(sums, name);
  if (!expected) return {{}, "the signed list does not list " + name};
  const std::string found = sha256Of(files, package);
  if (found != *expected)
    return {{}, "it has the SHA-256 " + found + ", the signed list says " + *expected};
  return verdict;
}

ExitStatus verifyAll(Context& context, const VerifyOptions& options) {
  Json all = Json::array();
  bool refused = false;
  for (const std::string& package : options.packages) {
    const SignatureVerdict verdict = verify(context.system().files, package, options.signers);
    const bool good = verdict.refusal.empty();
    refused |= !good;
    if (context.options.json)
      all.push_back({{"package", package},
                     {"verified", good},
                     {good ? "signer" : "refusal", good ? verdict.signer : verdict.refusal}});
    else
      std::cout << package << ": "
                << (good ? "as released, signed by " + verdict.signer
                         : "refused: " + verdict.refusal)
                << "\n";
  }
  if (context.options.json) std::cout << text(all);
  return refused ? ExitStatus::trouble : ExitStatus::ok;
}

}  // namespace

void addVerify(CLI::App& app, Context& context, Action& chosen) {
  CLI::App* command = app.add_subcommand("verify", "Checks packages against their signed list");
  const auto options = std::make_shared<VerifyOptions>();
  command->add_option("--signers", options->signers, "The certificates of trusted signers, in PEM")
      ->required();
  command->add_option("PACKAGE", options->packages, "The packages")->required();
  command->callback([options, &context, &chosen] {
    chosen = [options, &context] { return verifyAll(context, *options); };
  });
}

}  // namespace korvane::agentctl
