#include "comm/curl_transport.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>
#include <new>

#include "comm/failure_text.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/sockets.h"
#include "util/terminal_text.h"

namespace korvane {
namespace {

constexpr size_t kKeptBodyBytes = 2048;
constexpr std::string_view kOwnHeader = "korvane-";
constexpr std::string_view kEncodingHeader = "content-encoding:";

// `start` in small letters.
bool beginsWith(std::string_view line, std::string_view start) {
  if (line.size() < start.size()) return false;
  for (size_t i = 0; i < start.size(); ++i) {
    const char c = line[i];
    if ((c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) != start[i]) return false;
  }
  return true;
}

std::string trimmed(std::string_view value) {
  const size_t begin = value.find_first_not_of(" \t\r\n");
  if (begin == std::string_view::npos) return {};
  return std::string(value.substr(begin, value.find_last_not_of(" \t\r\n") + 1 - begin));
}

// libcurl speaks two dozen protocols. For a URL that names none it would guess one; https is tried
// then, so that an agent without a server waits for one as it does for a server that is away.
const char* onlyProtocol(const std::string& url) {
  return contains(url.substr(0, 7), "http://") ? "http" : "https";
}

// A header without a value would be dropped; libcurl sends it when it ends in a semicolon.
std::string headerLine(const std::string& name, const std::string& value) {
  return value.empty() ? name + ";" : name + ": " + value;
}

// libcurl's trace, on the console.
int httpsDebugger(CURL*, curl_infotype type, char* bytes, size_t size, void*) {
  static constexpr const char* kMark[] = {"* ", "< ", "> "};
  if (type > CURLINFO_HEADER_OUT) return 0;
  std::string text = kMark[type] + std::string(bytes, size);
  std::erase(text, '\r');
  std::fputs(terminalText(text).c_str(), stdout);
  return 0;
}

// Sets options until one is refused, and remembers which.
class Options {
 public:
  explicit Options(CURL* easy) : _easy(easy) {}

  template <class Value>
  Options& set(CURLoption option, const char* name, Value value) {
    if (_code != CURLE_OK) return *this;
    _code = curl_easy_setopt(_easy, option, value);
    if (_code != CURLE_OK) _refused = name;
    return *this;
  }
  CURLcode code() const { return _code; }
  std::string error() const { return _refused + ": " + curl_easy_strerror(_code); }

 private:
  CURL* _easy;
  CURLcode _code = CURLE_OK;
  std::string _refused;
};

#define OPTION(name, value) set(name, #name, value)

// Codes that say of themselves that the answer was none, or not whole.
bool saysAnswerBroken(CURLcode code) {
  return code == CURLE_WEIRD_SERVER_REPLY || code == CURLE_PARTIAL_FILE ||
         code == CURLE_GOT_NOTHING || code == CURLE_BAD_CONTENT_ENCODING;
}

// Codes that say so only once the request was sent; before that they have other causes.
bool maySayAnswerBroken(CURLcode code) {
  return code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_OUT_OF_MEMORY;
}

}  // namespace

struct CurlTransport::Transfer {
  Transfer(CURL* handle, TransportSink& answerSink, const StopToken& stopToken)
      : easy(handle), sink(answerSink), stop(stopToken) {}

  template <class Action>
  void guarded(Action action) noexcept {
    try {
      action();
    } catch (const std::bad_alloc&) {
      outOfMemory = true;
    }
  }

  bool addHeader(const std::string& line) {
    curl_slist* longer = curl_slist_append(headers.get(), line.c_str());
    if (!longer) return false;
    static_cast<void>(headers.release());
    headers.reset(longer);
    return true;
  }
  bool addHeaders(const TransportRequest& request) {
    for (const auto& [name, value] : request.headers) {
      if (!addHeader(headerLine(name, value))) return false;
    }
    // Without this libcurl would ask the server first whether it wants a large body.
    return addHeader("Expect:");
  }

  void noteHeader(std::string_view line) {
    curl_easy_getinfo(easy, CURLINFO_TOTAL_TIME_T, &lastCameUs);
    if (line.starts_with("HTTP/")) {
      headersWhole = ownHeader = false;
      encoding.clear();
    }
    if (beginsWith(line, kEncodingHeader)) encoding = trimmed(line.substr(kEncodingHeader.size()));
    if (line == "\r\n" || line == "\n") headersWhole = true;
    if (beginsWith(line, kOwnHeader)) ownHeader = true;
  }
  void noteBody(std::string_view piece) {
    curl_easy_getinfo(easy, CURLINFO_TOTAL_TIME_T, &lastCameUs);
    bodyBytes += static_cast<int64_t>(piece.size());
    bodyStart += piece.substr(0, kKeptBodyBytes - bodyStart.size());
  }

  CURL* const easy;
  TransportSink& sink;
  const StopToken& stop;
  bool headersWhole = false;
  bool ownHeader = false;
  std::string encoding;
  std::string bodyStart;
  int64_t bodyBytes = 0;
  curl_off_t lastCameUs = 0;
  std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers{nullptr, &curl_slist_free_all};
  bool outOfMemory = false;
};

CurlTransport::~CurlTransport() {
  close();
  if (_libraryReady) curl_global_cleanup();
}

bool CurlTransport::open() {
  if (!_libraryReady) _libraryReady = curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK;
  if (!_easy && _libraryReady) _easy = curl_easy_init();
  return _easy != nullptr;
}

void CurlTransport::close() {
  if (!_easy) return;
  curl_easy_setopt(_easy, CURLOPT_VERBOSE, 0L);
  curl_easy_cleanup(_easy);
  _easy = nullptr;
}

int CurlTransport::perform(const TransportRequest& request, TransportSink& sink,
                           TransportResult& result) {
  result = TransportResult();
  _errorBuffer[0] = '\0';
  Transfer transfer(_easy, sink, _parts.stop);
  if (!prepare(request, transfer, result)) return -1;
  _begunMs = _parts.clock.monotonicMs();
  const StopCallback interrupt(_parts.stop, [this] { shutSockets(); });
  return finish(curl_easy_perform(_easy), transfer, result);
}

bool CurlTransport::prepare(const TransportRequest& request, Transfer& transfer,
                            TransportResult& result) {
  if (request.body.size() > static_cast<unsigned long>(LONG_MAX)) {
    result.errorText = "a body of " + std::to_string(request.body.size()) + " bytes is too large";
    return false;
  }
  _observer.begin(request.verbose);
  return setOptions(request, transfer, result);
}

bool CurlTransport::setOptions(const TransportRequest& request, Transfer& transfer,
                               TransportResult& result) {
  Options options(_easy);
  if (request.verbose) options.OPTION(CURLOPT_DEBUGDATA, &transfer);
  if (request.verbose) options.OPTION(CURLOPT_DEBUGFUNCTION, &httpsDebugger);
  options.OPTION(CURLOPT_VERBOSE, request.verbose ? 1L : 0L);
  if (CURLcode code = curl_easy_setopt(_easy, CURLOPT_ERRORBUFFER, _errorBuffer)) {
    eventlog::trace("HttpsHandler::send", "Error : Setting Error Buffer %d",
                    static_cast<int>(code));
    result.errorText = "CURLOPT_ERRORBUFFER could not be set";
    return false;
  }
  if (!transfer.addHeaders(request)) {
    result.errorText = "no memory for the header list";
    return false;
  }
  options.OPTION(CURLOPT_SSLVERSION, request.sslVersion)
      .OPTION(CURLOPT_URL, request.url.c_str())
      .OPTION(CURLOPT_PROTOCOLS_STR, onlyProtocol(request.url))
      .OPTION(CURLOPT_DEFAULT_PROTOCOL, "https")
      .OPTION(CURLOPT_REDIR_PROTOCOLS_STR, onlyProtocol(request.url))
      .OPTION(CURLOPT_CAINFO, request.caFile.c_str())
      .OPTION(CURLOPT_SSL_VERIFYPEER, 1L)
      .OPTION(CURLOPT_SSL_VERIFYHOST, 0L)
      .OPTION(CURLOPT_SSL_CTX_FUNCTION, &TlsObserver::watchContext)
      .OPTION(CURLOPT_SSL_CTX_DATA, &_observer)
      .OPTION(CURLOPT_TIMEOUT_MS, static_cast<long>(request.totalTimeoutMs))
      .OPTION(CURLOPT_CONNECTTIMEOUT, static_cast<long>(request.connectTimeoutSeconds))
      .OPTION(CURLOPT_HTTPHEADER, transfer.headers.get())
      .OPTION(CURLOPT_POST, 1L)
      .OPTION(CURLOPT_POSTFIELDS, request.body.data())
      .OPTION(CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()))
      .OPTION(CURLOPT_HEADERFUNCTION, &receiveHeader)
      .OPTION(CURLOPT_WRITEFUNCTION, &receiveBody)
      .OPTION(CURLOPT_HEADERDATA, &transfer)
      .OPTION(CURLOPT_WRITEDATA, &transfer)
      .OPTION(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1))
      .OPTION(CURLOPT_NOSIGNAL, 1L)
      .OPTION(CURLOPT_QUICK_EXIT, 1L)
      .OPTION(CURLOPT_NOPROGRESS, 0L)
      .OPTION(CURLOPT_XFERINFOFUNCTION, &progress)
      .OPTION(CURLOPT_XFERINFODATA, &transfer)
      .OPTION(CURLOPT_SOCKOPTFUNCTION, &socketOpened)
      .OPTION(CURLOPT_SOCKOPTDATA, this)
      .OPTION(CURLOPT_CLOSESOCKETFUNCTION, &closeSocket)
      .OPTION(CURLOPT_CLOSESOCKETDATA, this);
  if (options.code() != CURLE_OK) result.errorText = options.error();
  return options.code() == CURLE_OK;
}

int CurlTransport::finish(CURLcode code, const Transfer& transfer, TransportResult& result) {
  curl_easy_getinfo(_easy, CURLINFO_RESPONSE_CODE, &result.httpStatus);
  readTrail(result.trail);
  result.trail.headersWhole = transfer.headersWhole;
  result.trail.ownHeader = transfer.ownHeader;
  result.trail.contentEncoding = transfer.encoding;
  result.trail.bodyStart = transfer.bodyStart;
  result.trail.bodyBytes = transfer.bodyBytes;
  result.trail.silentUs = result.trail.totalUs - transfer.lastCameUs;
  // The list is about to be freed, and the handle lives on.
  curl_easy_setopt(_easy, CURLOPT_HTTPHEADER, nullptr);
  if (transfer.outOfMemory) code = CURLE_OUT_OF_MEMORY;
  if (code == CURLE_OK) return 0;
  result.errorText = _errorBuffer[0] ? _errorBuffer : curl_easy_strerror(code);
  result.answerBroken =
      saysAnswerBroken(code) || (code == CURLE_RECV_ERROR && result.httpStatus > 0) ||
      (!transfer.outOfMemory && result.trail.requestBytes > 0 && maySayAnswerBroken(code));
  return code;
}

template <class Value>
Value CurlTransport::info(CURLINFO what, Value otherwise) {
  Value value = otherwise;
  return curl_easy_getinfo(_easy, what, &value) == CURLE_OK ? value : otherwise;
}

void CurlTransport::readTrail(TransferTrail& trail) {
  const auto text = [this](CURLINFO what) {
    const char* value = info<const char*>(what, nullptr);
    return std::string(value ? value : "");
  };
  trail.lookedUpUs = info<curl_off_t>(CURLINFO_NAMELOOKUP_TIME_T, 0);
  trail.connectedUs = info<curl_off_t>(CURLINFO_CONNECT_TIME_T, 0);
  trail.tlsUs = info<curl_off_t>(CURLINFO_APPCONNECT_TIME_T, 0);
  trail.totalUs = info<curl_off_t>(CURLINFO_TOTAL_TIME_T, 0);
  trail.systemError = static_cast<int>(info<long>(CURLINFO_OS_ERRNO, 0));
  trail.proxyStatus = info<long>(CURLINFO_HTTP_CONNECTCODE, 0);
  trail.requestBytes = info<long>(CURLINFO_REQUEST_SIZE, 0);
  trail.headerBytes = info<long>(CURLINFO_HEADER_SIZE, 0);
  trail.keptConnection = trail.requestBytes > 0 && info<long>(CURLINFO_NUM_CONNECTS, 0) == 0;
  trail.address = text(CURLINFO_PRIMARY_IP);
  trail.contentType = text(CURLINFO_CONTENT_TYPE);
  trail.redirectUrl = text(CURLINFO_REDIRECT_URL);
  trail.tls = _observer.seen();
  // libcurl tells the time of the connection only once TLS stands too.
  if (trail.connectedUs == 0 && trail.tls.begunMs >= 0)
    trail.connectedUs = std::max<int64_t>(1, (trail.tls.begunMs - _begunMs) * 1000);
}

void CurlTransport::shutSockets() {
  Synchronized hold(_socketLock);
  for (curl_socket_t socket : _sockets) {
    _parts.sockets.shutdownForeign(static_cast<uint64_t>(socket));
  }
}

size_t CurlTransport::receiveHeader(char* bytes, size_t size, size_t count, void* transfer) {
  auto& current = *static_cast<Transfer*>(transfer);
  current.guarded([&] {
    current.noteHeader({bytes, size * count});
    current.sink.onHeader({bytes, size * count});
  });
  return size * count;
}

size_t CurlTransport::receiveBody(char* bytes, size_t size, size_t count, void* transfer) {
  auto& current = *static_cast<Transfer*>(transfer);
  current.guarded([&] {
    current.noteBody({bytes, size * count});
    current.sink.onBody({bytes, size * count});
  });
  return size * count;
}

int CurlTransport::progress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto& current = *static_cast<Transfer*>(transfer);
  return current.outOfMemory || current.sink.refuses() || current.stop.requested() ? 1 : 0;
}

int CurlTransport::socketOpened(void* self, curl_socket_t socket, curlsocktype) {
  auto& transport = *static_cast<CurlTransport*>(self);
  Synchronized hold(transport._socketLock);
  transport._sockets.insert(socket);
  // A stop that came before the socket did not see it.
  return transport._parts.stop.requested() ? CURL_SOCKOPT_ERROR : CURL_SOCKOPT_OK;
}

int CurlTransport::closeSocket(void* self, curl_socket_t socket) {
  auto& transport = *static_cast<CurlTransport*>(self);
  // Closed under the lock: a stop must not shut another file that got the same number.
  Synchronized hold(transport._socketLock);
  transport._sockets.erase(socket);
  transport._parts.sockets.closeForeign(static_cast<uint64_t>(socket));
  return 0;
}

}  // namespace korvane
