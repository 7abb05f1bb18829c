#include "tests/support/tls_server.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <stdexcept>

#include "tests/support/watchdog.h"

namespace korvane::tests {
namespace {

constexpr uint32_t kHeldWaitMs = 20000;
constexpr uint32_t kDripMs = 20;
constexpr int kBacklogClients = 4;  // more than a backlog of 0 takes
constexpr uint32_t kConnectMs = 300;
constexpr long kHour = 3600;

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string("test server: ") + what);
}

using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
using Cert = std::unique_ptr<X509, void (*)(X509*)>;

// Hours from now that a certificate is valid.
struct Validity {
  long from = -1;
  long to = 1;
};

// Null as issuer: it signs itself.
Cert makeCertificate(EVP_PKEY* key, const std::string& commonName, X509* issuer,
                     EVP_PKEY* issuerKey, bool authority, const Validity& validity = {},
                     const std::string& names = {}) {
  static std::atomic<long> serial{1};
  Cert made(X509_new(), &X509_free);
  X509* const certificate = made.get();
  require(certificate != nullptr, "no certificate");
  X509_set_version(certificate, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial++);
  X509_gmtime_adj(X509_getm_notBefore(certificate), validity.from * kHour);
  X509_gmtime_adj(X509_getm_notAfter(certificate), validity.to * kHour);
  X509_set_pubkey(certificate, key);
  X509_NAME* name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0);
  X509_set_issuer_name(certificate, issuer ? X509_get_subject_name(issuer) : name);
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer ? issuer : certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, NID_basic_constraints,
                                                  authority ? "critical,CA:TRUE" : "CA:FALSE");
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
  if (!names.empty()) {
    extension = X509V3_EXT_conf_nid(nullptr, &context, NID_subject_alt_name, names.c_str());
    require(extension != nullptr, "no such names");
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
  }
  require(X509_sign(certificate, issuerKey, EVP_sha256()) > 0, "signing failed");
  return made;
}

Validity validityOf(Certificate kind) {
  if (kind == Certificate::expired) return {-2, -1};
  if (kind == Certificate::notYetValid) return {1, 2};
  return {};
}

template <class Write>
std::string pem(Write write) {
  const std::unique_ptr<BIO, int (*)(BIO*)> out(BIO_new(BIO_s_mem()), &BIO_free);
  require(out && write(out.get()) == 1, "no PEM");
  char* text = nullptr;
  const long size = BIO_get_mem_data(out.get(), &text);
  return {text, static_cast<size_t>(size)};
}

std::string authorityName() {
  static std::atomic<int> count{0};
  return "test authority " + std::to_string(++count);
}

size_t contentLength(const std::string& headers) {
  const size_t at = headers.find("Content-Length: ");
  return at == std::string::npos ? 0 : std::stoul(headers.substr(at + 16));
}

}  // namespace

TestAuthority::TestAuthority()
    : _key(EVP_EC_gen("P-256"), &EVP_PKEY_free),
      _certificate(makeCertificate(_key.get(), authorityName(), nullptr, _key.get(), true)) {}

std::string TestAuthority::certificatePem() const {
  return pem([this](BIO* out) { return PEM_write_bio_X509(out, _certificate.get()); });
}

TestAuthority::Client TestAuthority::client(bool expired) const {
  const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  const Cert made = makeCertificate(key.get(), "agent", _certificate.get(), _key.get(), false,
                                    expired ? Validity{-2, -1} : Validity{});
  const auto keyPem = [&key](const EVP_CIPHER* cipher) {
    char phrase[] = "x";
    return pem([&](BIO* out) {
      return PEM_write_bio_PrivateKey(out, key.get(), cipher, nullptr, 0, nullptr,
                                      cipher ? phrase : nullptr);
    });
  };
  return {pem([&](BIO* out) { return PEM_write_bio_X509(out, made.get()); }), keyPem(nullptr),
          keyPem(EVP_aes_256_cbc())};
}

std::string TestAuthority::revocationList(const X509* revoked, long from, long to,
                                          const TestAuthority* signer) const {
  const std::unique_ptr<X509_CRL, void (*)(X509_CRL*)> list(X509_CRL_new(), &X509_CRL_free);
  X509_CRL_set_version(list.get(), 1);
  X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(_certificate.get()));
  const std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME*)> begin(
      X509_gmtime_adj(nullptr, from * kHour), &ASN1_TIME_free);
  const std::unique_ptr<ASN1_TIME, void (*)(ASN1_TIME*)> end(X509_gmtime_adj(nullptr, to * kHour),
                                                             &ASN1_TIME_free);
  X509_CRL_set1_lastUpdate(list.get(), begin.get());
  X509_CRL_set1_nextUpdate(list.get(), end.get());
  if (revoked) {
    X509_REVOKED* const entry = X509_REVOKED_new();
    X509_REVOKED_set_serialNumber(entry,
                                  const_cast<ASN1_INTEGER*>(X509_get0_serialNumber(revoked)));
    X509_REVOKED_set_revocationDate(entry, begin.get());
    X509_CRL_add0_revoked(list.get(), entry);
  }
  X509_CRL_sort(list.get());
  const EVP_PKEY* const key = (signer ? signer : this)->_key.get();
  require(X509_CRL_sign(list.get(), const_cast<EVP_PKEY*>(key), EVP_sha256()) > 0, "no list");
  return pem([&](BIO* out) { return PEM_write_bio_X509_CRL(out, list.get()); });
}

std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> TestAuthority::serverContext(
    Certificate kind, const std::string& names, const std::string& commonName) const {
  const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  const Key betweenKey(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  const Cert between =
      makeCertificate(betweenKey.get(), "test intermediate", _certificate.get(), _key.get(), true);
  const bool direct = kind != Certificate::intermediate && kind != Certificate::intermediateNotSent;
  X509* issuer = direct ? _certificate.get() : between.get();
  EVP_PKEY* issuerKey = direct ? _key.get() : betweenKey.get();
  if (kind == Certificate::selfSigned) {
    issuer = nullptr;
    issuerKey = key.get();
  }
  const Cert certificate =
      makeCertificate(key.get(), commonName, issuer, issuerKey, false, validityOf(kind), names);
  std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_server_method()),
                                                       &SSL_CTX_free);
  require(context && SSL_CTX_use_certificate(context.get(), certificate.get()) == 1 &&
              SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1,
          "no TLS context");
  if (kind == Certificate::intermediate) SSL_CTX_add1_chain_cert(context.get(), between.get());
  return context;
}

// One accepted client: TLS over memory buffers, moved to and from the socket.
class TlsServer::Connection {
 public:
  Connection(SSL_CTX* context, platform::Socket& socket, size_t mostBytes)
      : _socket(socket), _ssl(SSL_new(context)), _left(mostBytes) {
    _in = BIO_new(BIO_s_mem());
    _out = BIO_new(BIO_s_mem());
    SSL_set_bio(_ssl, _in, _out);
    SSL_set_accept_state(_ssl);
  }
  ~Connection() { SSL_free(_ssl); }

  platform::Socket& socket() { return _socket; }

  bool handshake() {
    return pump([&] { return SSL_do_handshake(_ssl); }) == 1;
  }
  // Reads until the request is whole; false when the client went.
  bool readRequest(Request& request) {
    size_t end = std::string::npos;
    while ((end = _buffer.find("\r\n\r\n")) == std::string::npos) {
      if (!readMore()) return false;
    }
    request.headers = _buffer.substr(0, end + 4);
    const size_t length = contentLength(request.headers);
    while (_buffer.size() < end + 4 + length) {
      if (!readMore()) return false;
    }
    request.body = _buffer.substr(end + 4, length);
    _buffer.erase(0, end + 4 + length);
    const size_t path = request.headers.find(' ') + 1;
    request.path = request.headers.substr(path, request.headers.find(' ', path) - path);
    return true;
  }
  void write(const std::string& bytes) {
    if (bytes.empty()) return;
    SSL_write(_ssl, bytes.data(), static_cast<int>(bytes.size()));
    flush();
  }
  // Waits until the client has sent something, and does not read it.
  bool waitForClient() {
    int error = 0;
    return _socket.waitReadable(platform::kInfinite, error) == platform::SocketWait::ready;
  }
  void read() {
    char bytes[16 * 1024];
    size_t got = 0;
    static_cast<void>(_socket.receive(bytes, sizeof bytes, got));
  }
  // Around TLS.
  void writePlain(const std::string& bytes) {
    size_t sent = 0;
    if (!bytes.empty()) static_cast<void>(_socket.send(bytes.data(), bytes.size(), sent));
  }
  void farewell() {
    SSL_shutdown(_ssl);
    flush();
  }

 private:
  template <class Step>
  int pump(Step step) {
    for (;;) {
      const int result = step();
      const bool wantsMore = SSL_get_error(_ssl, result) == SSL_ERROR_WANT_READ;
      if (!flush()) return -1;
      if (result > 0 || !wantsMore || !feed()) return result;
    }
  }
  bool readMore() {
    char bytes[16 * 1024];
    const int got = pump([&] { return SSL_read(_ssl, bytes, sizeof bytes); });
    if (got > 0) _buffer.append(bytes, static_cast<size_t>(got));
    return got > 0;
  }
  // Never reads beyond a TLS record, so what the client sends after it stays unread.
  bool feed() {
    int error = 0;
    if (_socket.waitReadable(platform::kInfinite, error) != platform::SocketWait::ready)
      return false;
    char bytes[16 * 1024];
    size_t got = 0;
    const size_t wanted = _recordLeft ? std::min(_recordLeft, sizeof bytes) : 5 - _header.size();
    if (_socket.receive(bytes, wanted, got) != 0 || got == 0) return false;
    if (_recordLeft) {
      _recordLeft -= got;
    } else if ((_header.append(bytes, got)).size() == 5) {
      _recordLeft =
          static_cast<unsigned char>(_header[3]) * 256u + static_cast<unsigned char>(_header[4]);
      _header.clear();
    }
    return BIO_write(_in, bytes, static_cast<int>(got)) > 0;
  }
  bool flush() {
    char bytes[16 * 1024];
    int size = 0;
    while ((size = BIO_read(_out, bytes, sizeof bytes)) > 0) {
      const size_t length = std::min(static_cast<size_t>(size), _left);
      _left -= length;
      for (size_t at = 0, sent = 0; at < length; at += sent) {
        if (_socket.send(bytes + at, length - at, sent) != 0) return false;
      }
    }
    return _left > 0;
  }

  platform::Socket& _socket;
  SSL* _ssl;
  std::string _header;     // of the record that is being read
  size_t _recordLeft = 0;  // bytes of it that have not been read
  size_t _left;            // bytes that may still be sent
  BIO* _in;                // owned by _ssl
  BIO* _out;               // owned by _ssl
  std::string _buffer;
};

std::string TlsServer::Request::header(const std::string& name) const {
  const size_t at = headers.find("\r\n" + name + ":");
  if (at == std::string::npos) return "missing";
  const size_t begin = at + name.size() + 3;
  std::string value = headers.substr(begin, headers.find("\r\n", begin) - begin);
  return value.starts_with(' ') ? value.substr(1) : value;
}

TlsServer::TlsServer(const TestAuthority& authority, Script script, const Options& options)
    : _native(platform::makeNativePlatform({})),
      _context(authority.serverContext(options.certificate, options.names, options.commonName)),
      _script(std::move(script)),
      _options(options),
      _held(_native->platform().threading.createEvent(true, false)) {
  // Tickets before the answer would hold it back until the client has acknowledged them.
  if (options.manner == Manner::answerUnread) SSL_CTX_set_num_tickets(_context.get(), 0);
  if (_options.tune) _options.tune(_context.get());
  require(_native->platform().sockets.startup() == 0, "no sockets");
  require(_native->platform().sockets.createTcp(_listener) == 0, "no socket");
  require(_listener->bind(options.anyAddress, options.port) == 0, "bind failed");
  require(_listener->listen(options.manner == Manner::neverAccept ? 0 : 16) == 0, "listen failed");
  _port = _listener->localPort();
  if (options.manner == Manner::neverAccept) {
    fillBacklog();
  } else {
    _acceptor = std::thread([this] { accept(); });
  }
}

TlsServer::~TlsServer() {
  const Wait wait("the threads of the test server");
  _stopping = true;
  _listener->interrupt();
  if (_acceptor.joinable()) _acceptor.join();
  {
    std::lock_guard hold(_mutex);
    for (auto& socket : _sockets) {
      socket->interrupt();
      socket->shutdownBoth();
    }
  }
  for (std::thread& thread : _threads) thread.join();
  _sockets.clear();
  _listener.reset();
  _native->platform().sockets.cleanup();
}

// After this the system answers no connection request to the port at all.
void TlsServer::fillBacklog() {
  for (int i = 0; i < kBacklogClients; ++i) {
    std::unique_ptr<platform::Socket> client;
    require(_native->platform().sockets.createTcp(client) == 0, "no socket");
    client->connect("127.0.0.1", _port, kConnectMs);
    _sockets.push_back(std::move(client));
  }
}

void TlsServer::accept() {
  int error = 0;
  while (!_stopping &&
         _listener->waitReadable(platform::kInfinite, error) == platform::SocketWait::ready) {
    std::unique_ptr<platform::Socket> socket;
    if (_listener->accept(socket) != 0) continue;
    const int number = ++_connections;
    std::lock_guard hold(_mutex);
    platform::Socket& client = *_sockets.emplace_back(std::move(socket));
    _threads.emplace_back([this, &client, number] {
      Connection connection(_context.get(), client, _options.handshakeBytes);
      serve(connection, number);
    });
  }
}

void TlsServer::serve(Connection& connection, int number) {
  switch (_options.manner) {
    case Manner::hangInHandshake:
      // The system accepts a client before the client knows; one that has spoken is in its
      // handshake.
      if (connection.waitForClient()) hold(connection.socket());
      return;
    case Manner::sayPlain:
    case Manner::cutHandshake:
    case Manner::answerUnread:
      return misbehave(connection);
    case Manner::dropFirstConnection:
      if (number == 1) return end(connection, Reply::Then::drop);
      break;
    case Manner::dropAll:
      return end(connection, Reply::Then::drop);
    default:
      break;
  }
  serveRequests(connection, number);
}

void TlsServer::serveRequests(Connection& connection, int number) {
  Request request;
  if (!connection.handshake()) return end(connection, Reply::Then::drop);
  while (connection.readRequest(request)) {
    request.connection = number;
    {
      std::lock_guard hold(_mutex);
      request.number = static_cast<int>(_requests.size()) + 1;
      _requests.push_back(request);
    }
    const Reply reply = _script(request);
    writeReply(connection, reply.bytes);
    if (reply.then != Reply::Then::keep) return end(connection, reply.then);
  }
  end(connection, Reply::Then::drop);
}

void TlsServer::writeReply(Connection& connection, const std::string& bytes) {
  if (_options.manner != Manner::drip) return connection.write(bytes);
  for (size_t i = 0; i < bytes.size() && !_stopping; ++i) {
    connection.write(bytes.substr(i, 1));
    static_cast<void>(_held->wait(kDripMs));
  }
}

void TlsServer::misbehave(Connection& connection) {
  const Reply reply = _script(Request());
  if (_options.manner == Manner::sayPlain) {
    if (!connection.waitForClient()) return;
    if (reply.then != Reply::Then::reset) connection.read();
    connection.writePlain(reply.bytes);
  } else if (connection.handshake() && connection.waitForClient()) {
    connection.write(reply.bytes);
  }
  end(connection, reply.then);
}

void TlsServer::end(Connection& connection, Reply::Then then) {
  platform::Socket& socket = connection.socket();
  if (then == Reply::Then::hang) return hold(socket);
  if (then == Reply::Then::close) connection.farewell();
  if (then != Reply::Then::reset) {
    socket.shutdownBoth();
    return;
  }
  // The system resets a connection that is closed with bytes unread.
  std::list<std::unique_ptr<platform::Socket>> closing;
  std::lock_guard hold(_mutex);
  for (auto it = _sockets.begin(); it != _sockets.end(); ++it) {
    if (it->get() != &socket) continue;
    closing.splice(closing.begin(), _sockets, it);
    return;
  }
}

// Keeps the client waiting until it goes or the server ends.
void TlsServer::hold(platform::Socket& socket) {
  _held->set();
  int error = 0;
  char bytes[4096];
  size_t got = 1;
  while (got > 0 &&
         socket.waitReadable(platform::kInfinite, error) == platform::SocketWait::ready) {
    if (socket.receive(bytes, sizeof bytes, got) != 0) return;
  }
}

std::vector<TlsServer::Request> TlsServer::requests() const {
  std::lock_guard hold(_mutex);
  return _requests;
}

bool TlsServer::waitUntilHeld() const {
  return _held->wait(kHeldWaitMs) == platform::WaitResult::signalled;
}

TlsServer::Reply TlsServer::answer(const std::string& body, const std::string& headers) {
  return {"HTTP/1.1 200 OK\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
              "\r\n\r\n" + body,
          Reply::Then::keep};
}

TlsServer::Reply TlsServer::status(int code, const std::string& body) {
  Reply reply = answer(body);
  reply.bytes.replace(9, 6, std::to_string(code) + " x");
  return reply;
}

TlsServer::Reply TlsServer::cut(Reply reply, size_t bytes) {
  reply.bytes.resize(std::min(bytes, reply.bytes.size()));
  reply.then = Reply::Then::drop;
  return reply;
}

}  // namespace korvane::tests
