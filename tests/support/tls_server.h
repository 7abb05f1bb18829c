// A scripted HTTPS server inside the test process, and the authority that signs its certificate.
//
// Every certificate is made when it is needed; nothing lies in the source tree. A server
// listens on a free port that the system picks, one thread per connection, and answers each
// request with what its script says about it. It ends all its threads in its destructor,
// hanging ones included, and before that lets tests ask what it saw. Any thread may ask. A
// failure to set up throws std::runtime_error.
//
//   TestAuthority authority;
//   TlsServer server(authority,
//                    [](const TlsServer::Request&) { return TlsServer::answer("EOF_FLAG\n"); });
//   url = "https://127.0.0.1:" + std::to_string(server.port()) + "/agent/";
#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "platform/sockets.h"
#include "platform/threading.h"

namespace korvane::tests {

// What a server shows of itself. The intermediate authority stands between the authority
// and the server.
enum class Certificate {
  good,
  expired,
  notYetValid,
  selfSigned,
  intermediate,
  intermediateNotSent
};

class TestAuthority {
 public:
  TestAuthority();
  // Its own certificate in PEM, what an agent has to trust.
  std::string certificatePem() const;
  // A server's settings with a certificate for 127.0.0.1, valid for an hour unless said otherwise.
  std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> serverContext(
      Certificate kind = Certificate::good, const std::string& names = {},
      const std::string& commonName = "127.0.0.1") const;

  // A client's certificate of this authority and its key, both in PEM; encrypted with the pass
  // phrase "x" when asked for.
  struct Client {
    std::string certificate, key, encryptedKey;
  };
  Client client(bool expired = false) const;
  // Its revocation list in PEM, valid from and to so many hours from now, with the certificates
  // that are not null on it; signed by another authority's key when one is given.
  std::string revocationList(const X509* revoked, long from, long to,
                             const TestAuthority* signer = nullptr) const;
  const X509* certificate() const { return _certificate.get(); }

 private:
  std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> _key;
  std::unique_ptr<X509, void (*)(X509*)> _certificate;
};

class TlsServer {
 public:
  struct Request {
    std::string path;
    std::string headers;  // from the request line to the empty line
    std::string body;
    int connection = 0;  // 1 for the first one accepted
    int number = 0;      // 1 for the first request of all

    std::string header(const std::string& name) const;
  };

  struct Reply {
    std::string bytes;  // what goes on the wire, status line and headers included
    // How it goes on; drop: the end without a TLS farewell, reset: a TCP reset, when there is
    // something that was sent and not read.
    enum class Then { keep, close, drop, hang, reset } then = Then::keep;
  };
  using Script = std::function<Reply(const Request&)>;

  // sayPlain: the reply to an empty request takes the place of the handshake once the client has
  // spoken. cutHandshake: the handshake's own bytes end after `handshakeBytes`, which the reply's
  // `then` follows. drip: the answer goes out a byte every 20 ms. answerUnread: the answer is
  // given, and followed by its `then`, before the request is read.
  enum class Manner {
    serve,
    hangInHandshake,
    dropFirstConnection,
    dropAll,
    neverAccept,
    sayPlain,
    cutHandshake,
    answerUnread,
    drip
  };
  struct Options {
    uint16_t port = 0;        // 0: a free one
    bool anyAddress = false;  // 127.0.0.1 alone otherwise
    Manner manner = Manner::serve;
    Certificate certificate = Certificate::good;
    size_t handshakeBytes = SIZE_MAX;
    std::string commonName = "127.0.0.1";
    std::string names{};  // subjectAltName as OpenSSL writes it, "DNS:a,IP:127.0.0.1"
    std::function<void(SSL_CTX*)> tune{};  // changes further settings
  };

  TlsServer(const TestAuthority& authority, Script script)
      : TlsServer(authority, script, Options()) {}
  TlsServer(const TestAuthority& authority, Script script, const Options& options);
  ~TlsServer();
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  uint16_t port() const { return _port; }
  const X509* certificate() const { return SSL_CTX_get0_certificate(_context.get()); }
  std::vector<Request> requests() const;
  int connections() const { return _connections; }
  // Waits until a client is where a hanging manner or reply holds it, and has come there in its own
  // view: one in the handshake has sent its first bytes. False after 20 seconds.
  bool waitUntilHeld() const;

  // A whole answer with status 200 and a Content-Length.
  static Reply answer(const std::string& body, const std::string& headers = {});
  static Reply status(int code, const std::string& body = {});
  // The first `bytes` bytes of a reply, then the end of the connection.
  static Reply cut(Reply reply, size_t bytes);

 private:
  class Connection;

  void accept();
  void fillBacklog();
  void serve(Connection& connection, int number);
  void serveRequests(Connection& connection, int number);
  void misbehave(Connection& connection);
  void writeReply(Connection& connection, const std::string& bytes);
  void end(Connection& connection, Reply::Then then);
  void hold(platform::Socket& socket);

  const std::unique_ptr<platform::NativePlatform> _native;
  const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> _context;
  const Script _script;
  const Options _options;
  std::unique_ptr<platform::Socket> _listener;
  uint16_t _port = 0;
  std::atomic<int> _connections{0};
  const std::unique_ptr<platform::Event> _held;
  std::atomic<bool> _stopping{false};

  mutable std::mutex _mutex;
  std::list<std::unique_ptr<platform::Socket>> _sockets;  // guarded by _mutex
  std::vector<Request> _requests;                         // guarded by _mutex
  std::list<std::thread> _threads;                        // guarded by _mutex
  std::thread _acceptor;
};

}  // namespace korvane::tests
