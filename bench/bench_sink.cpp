// bench_sink - a TLS server on 127.0.0.1 that takes log messages, counts their records and
// answers "no error".
//
//   bench_sink --cert FILE --key FILE
//
// The first line on stdout is its port. It ends when stdin does, with one JSON object: what it
// received. It walks a message by its declared lengths, so it costs little beside the TLS.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

namespace {

struct Totals {
  std::atomic<uint64_t> connections{0}, requests{0}, records{0}, bytes{0}, malformed{0};
} totals;

constexpr std::string_view kAnswer =
    "HTTP/1.1 200 OK\r\nKorvane-Error: 0\r\nContent-Length: 9\r\n\r\nEOF_FLAG\n";

// Counts the sections of a message.
bool countRecords(std::string_view body) {
  constexpr std::string_view kLength = "Data-Length=";
  uint64_t records = 0;
  while (!body.starts_with("EOF_FLAG\n")) {
    const size_t end = body.find("\n\n"), length = body.find(kLength);
    if (end == std::string_view::npos || length > end) return false;
    const uint64_t payload = std::strtoull(body.data() + length + kLength.size(), nullptr, 10);
    if (payload > body.size() || end + 2 + payload + 1 > body.size()) return false;
    body.remove_prefix(end + 2 + payload + 1);
    ++records;
  }
  totals.records += records;
  return true;
}

size_t contentLength(std::string_view head) {
  constexpr std::string_view kName = "\r\ncontent-length:";
  for (size_t at = 0; (at = head.find("\r\n", at)) != std::string_view::npos; ++at)
    if (head.size() - at > kName.size() &&
        strncasecmp(head.data() + at, kName.data(), kName.size()) == 0)
      return std::strtoull(head.data() + at + kName.size(), nullptr, 10);
  return 0;
}

// One request is read into `text`, which keeps what came beyond it.
bool serveRequest(SSL* ssl, std::string& text, size_t& have) {
  const auto readMore = [&](size_t wanted) {
    if (text.size() < wanted) text.resize(wanted);
    const int n = SSL_read(ssl, text.data() + have, static_cast<int>(text.size() - have));
    have += n > 0 ? static_cast<size_t>(n) : 0;
    return n > 0;
  };
  size_t headEnd;
  while ((headEnd = std::string_view(text.data(), have).find("\r\n\r\n")) == std::string_view::npos)
    if (!readMore(have + (1 << 16))) return false;
  const size_t bodyAt = headEnd + 4, total = bodyAt + contentLength({text.data(), headEnd});
  while (have < total)
    if (!readMore(total)) return false;
  ++totals.requests;
  totals.bytes += total - bodyAt;
  if (!countRecords({text.data() + bodyAt, total - bodyAt})) ++totals.malformed;
  std::memmove(text.data(), text.data() + total, have - total);
  have -= total;
  return SSL_write(ssl, kAnswer.data(), static_cast<int>(kAnswer.size())) > 0;
}

void serve(SSL_CTX* context, int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  SSL* ssl = SSL_new(context);
  SSL_set_fd(ssl, socket);
  if (SSL_accept(ssl) == 1) {
    ++totals.connections;
    std::string text;
    size_t have = 0;
    while (serveRequest(ssl, text, have)) {
    }
  }
  SSL_free(ssl);
  close(socket);
}

int listenAnywhere(uint16_t& port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (socket < 0 || bind(socket, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(socket, 16) != 0 ||
      getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return -1;
  port = ntohs(address.sin_port);
  return socket;
}

SSL_CTX* makeContext(const std::string& certificate, const std::string& key) {
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  SSL_CTX_set_read_ahead(context, 1);
  SSL_CTX_set_default_read_buffer_len(context, 1 << 17);
  const bool ready = SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) == 1 &&
                     SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) == 1;
  return ready ? context : nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return std::fprintf(stderr, "usage: bench_sink --cert FILE --key FILE\n"), 2;
  std::signal(SIGPIPE, SIG_IGN);
  SSL_CTX* context = makeContext(argv[2], argv[4]);
  if (!context) return ERR_print_errors_fp(stderr), 1;
  uint16_t port = 0;
  const int listener = listenAnywhere(port);
  if (listener < 0) return std::perror("bench_sink"), 1;
  std::printf("%u\n", port);
  std::fflush(stdout);
  pollfd waiting[2] = {{listener, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  while (poll(waiting, 2, -1) >= 0 && !waiting[1].revents)
    if (waiting[0].revents)
      std::thread(serve, context, accept(listener, nullptr, nullptr)).detach();
  std::printf(
      "{\"connections\": %llu, \"requests\": %llu, \"records\": %llu, \"bytes\": %llu, "
      "\"malformed\": %llu}\n",
      static_cast<unsigned long long>(totals.connections),
      static_cast<unsigned long long>(totals.requests),
      static_cast<unsigned long long>(totals.records),
      static_cast<unsigned long long>(totals.bytes),
      static_cast<unsigned long long>(totals.malformed));
  std::fflush(stdout);
  _exit(0);
}
