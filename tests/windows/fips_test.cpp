// FIPS mode with the module as it ships, and the refusal of one that is not as it was.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <filesystem>
#include <functional>

#include "config/fips.h"
#include "tests/comm/comm_fixture.h"
#include "tests/support/tls_server.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;
using tests::CommFixture;
using tests::fsPath;
using tests::TestAuthority;
using tests::TlsServer;

// The provider that an algorithm comes from; empty when it is not available.
std::string providerOf(const char* digest) {
  const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> found(
      EVP_MD_fetch(nullptr, digest, nullptr), &EVP_MD_free);
  return found ? OSSL_PROVIDER_get0_name(EVP_MD_get0_provider(found.get())) : "";
}

class Fips : public CommFixture {
 protected:
  Fips() : _root(fsPath(path("Program Files \xC3\xA4"))) {
    fs::create_directory(_root);
    const std::u8string root = _root.u8string();
    setInstallRoot({root.begin(), root.end()});
    config().setServerList("127.0.0.1");
    config().setSSLCertFile(write("ca.pem", _authority.certificatePem()));
  }

  fs::path module() const { return _root / "fips.dll"; }
  fs::path settings() const { return _root / "fipsmodule.cnf"; }
  void install() const {
    for (const fs::path& file : {module(), settings()})
      fs::copy_file(fsPath(KORVANE_BIN) / file.filename(), file,
                    fs::copy_options::overwrite_existing);
  }
  // In the middle of what the module's check covers: its code.
  static void flipByte(const fs::path& file) {
    std::fstream bytes(file, std::ios::binary | std::ios::in | std::ios::out);
    const auto at = static_cast<std::streamoff>(fs::file_size(file) / 3);
    bytes.seekg(at);
    const int byte = bytes.get();
    bytes.seekp(at);
    bytes.put(static_cast<char>(byte ^ 1));
  }
  // A registration on a connection of its own.
  void expectRegistration() {
    TlsServer server(_authority, [](const TlsServer::Request&) {
      return TlsServer::answer(properties("agent.id=7\n") + "EOF_FLAG\n");
    });
    config().setURL("https://127.0.0.1:" + std::to_string(server.port()) + "/agent/");
    HttpsHandler handler;
    STRING guid;
    EXPECT_EQ(handler.registerAgent(nullptr, 0), 0);
    EXPECT_EQ(handler.getGUID(guid), 0);
    EXPECT_EQ(guid, STRING("7"));
    EXPECT_EQ(server.connections(), 1);
  }

 private:
  const TestAuthority _authority;
  const fs::path _root;
};

TEST_F(Fips, ModuleIsCheckedBeforeTheSwitch) {
  const struct {
    const char* says;
    std::function<void()> damage;
  } cases[] = {
      {"fipsmodule.cnf: missing, or without a module-mac", [&] { fs::remove(settings()); }},
      {"fipsmodule.cnf: missing, or without a module-mac",
       [&] { std::ofstream(settings()) << "[fips_sect]\nactivate = 1\n"; }},
      {"fips.dll: no such file", [&] { fs::remove(module()); }},
      {"fips.dll: ", [&] { fs::resize_file(module(), 1000); }},
      {"fips.dll: its check of itself failed", [&] { flipByte(module()); }},
  };
  for (const auto& test : cases) {
    install();
    test.damage();
    const int refused = logged("Failed to set the FIPS mode = error:"), said = logged(test.says);
    config().setFipsEnabled(true);
    EXPECT_EQ(logged("Failed to set the FIPS mode = error:"), refused + 1) << logText();
    EXPECT_GT(logged(test.says), said) << logText();
    EXPECT_FALSE(fipsModeOn());
    EXPECT_EQ(providerOf("MD5"), "default");
    expectRegistration();
  }
  // A repaired module is taken without a new start.
  install();
  config().setFipsEnabled(true);
  EXPECT_EQ(logged("FIPS mode successfully turned ON"), 1) << logText();
  EXPECT_EQ(providerOf("MD5"), "");
  EXPECT_EQ(providerOf("SHA2-256"), "fips");
  expectRegistration();
  config().setFipsEnabled(false);
  EXPECT_EQ(logged("FIPS mode successfully turned OFF"), 1);
  EXPECT_EQ(providerOf("MD5"), "default");
  expectRegistration();
}

}  // namespace
}  // namespace korvane
