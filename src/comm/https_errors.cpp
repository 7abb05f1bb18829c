#include <array>

#include "comm/https_handler.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr int kTransportRefused = -1;
constexpr int kConsolePort = 400;

// What is reported for each of libcurl's codes; the last row is the agent's own.
constexpr std::array<const char*, 92> curl_errors{
    "CURLE_OK",
    "CURLE_UNSUPPORTED_PROTOCOL",
    "CURLE_FAILED_INIT",
    "CURLE_URL_MALFORMAT",
    "CURLE_URL_MALFORMAT_USER",
    "CURLE_COULDNT_RESOLVE_PROXY",
    "AGENT COULDNT RESOLVE HOST",
    "AGENT COULDNT CONNECT. Verify server IP,port and server is running",
    "CURLE_FTP_WEIRD_SERVER_REPLY",
    "CURLE_FTP_ACCESS_DENIED",
    "CURLE_FTP_USER_PASSWORD_INCORRECT",
    "CURLE_FTP_WEIRD_PASS_REPLY",
    "CURLE_FTP_WEIRD_USER_REPLY",
    "CURLE_FTP_WEIRD_PASV_REPLY",
    "CURLE_FTP_WEIRD_227_FORMAT",
    "CURLE_FTP_CANT_GET_HOST",
    "CURLE_FTP_CANT_RECONNECT",
    "CURLE_FTP_COULDNT_SET_BINARY",
    "CURLE_PARTIAL_FILE",
    "CURLE_FTP_COULDNT_RETR_FILE",
    "CURLE_FTP_WRITE_ERROR",
    "CURLE_FTP_QUOTE_ERROR",
    "CURLE_HTTP_RETURNED_ERROR",
    "CURLE_WRITE_ERROR",
    "CURLE_MALFORMAT_USER",
    "CURLE_FTP_COULDNT_STOR_FILE",
    "CURLE_READ_ERROR",
    "CURLE_OUT_OF_MEMORY",
    "CONNECTION OPERATION TIMED OUT BETWEEN SERVER AND AGENT",
    "CURLE_FTP_COULDNT_SET_ASCII",
    "CURLE_FTP_PORT_FAILED",
    "CURLE_FTP_COULDNT_USE_REST",
    "CURLE_FTP_COULDNT_GET_SIZE",
    "CURLE_HTTP_RANGE_ERROR",
    "CURLE_HTTP_POST_ERROR",
    "CURLE_SSL_CONNECT_ERROR. Generic SSL connection error.",
    "CURLE_BAD_DOWNLOAD_RESUME",
    "CURLE_FILE_COULDNT_READ_FILE",
    "CURLE_LDAP_CANNOT_BIND",
    "CURLE_LDAP_SEARCH_FAILED",
    "CURLE_LIBRARY_NOT_FOUND",
    "CURLE_FUNCTION_NOT_FOUND",
    "CURLE_ABORTED_BY_CALLBACK",
    "CURLE_BAD_FUNCTION_ARGUMENT",
    "CURLE_BAD_CALLING_ORDER",
    "CURLE_HTTP_PORT_FAILED",
    "CURLE_BAD_PASSWORD_ENTERED",
    "CURLE_TOO_MANY_REDIRECTS",
    "CURLE_UNKNOWN_TELNET_OPTION",
    "CURLE_TELNET_OPTION_SYNTAX",
    "CURLE_OBSOLETE",
    "CURLE_SSL_PEER_CERTIFICATE",
    "CURLE_GOT_NOTHING",
    "CURLE_SSL_ENGINE_NOTFOUND",
    "CURLE_SSL_ENGINE_SETFAILED",
    "CURLE_SEND_ERROR",
    "CURLE_RECV_ERROR",
    "CURLE_SHARE_IN_USE",
    "Certificate is bad",
    "CURLE_SSL_CIPHER",
    "Verify the agent certificate matches the server.",
    "CURLE_BAD_CONTENT_ENCODING",
    "CURLE_LDAP_INVALID_URL",
    "CURLE_FILESIZE_EXCEEDED",
    "CURLE_FTP_SSL_FAILED",
    "CURLE_SEND_FAIL_REWIND",
    "CURLE_SSL_ENGINE_INITFAILED",
    "CURLE_LOGIN_DENIED",
    "CURLE_TFTP_NOTFOUND",
    "CURLE_TFTP_PERM",
    "CURLE_REMOTE_DISK_FULL",
    "CURLE_TFTP_ILLEGAL",
    "CURLE_TFTP_UNKNOWNID",
    "CURLE_REMOTE_FILE_EXISTS",
    "CURLE_TFTP_NOSUCHUSER",
    "CURLE_CONV_FAILED",
    "CURLE_CONV_REQD",
    "CURLE_SSL_CACERT_BADFILE",
    "CURLE_REMOTE_FILE_NOT_FOUND",
    "CURLE_SSH",
    "CURLE_SSL_SHUTDOWN_FAILED",
    "CURLE_AGAIN",
    "CURLE_SSL_CRL_BADFILE",
    "CURLE_SSL_ISSUER_ERROR",
    "CURLE_FTP_PRET_FAILED",
    "CURLE_RTSP_CSEQ_ERROR",
    "CURLE_RTSP_SESSION_ERROR",
    "CURLE_FTP_BAD_FILE_LIST",
    "CURLE_CHUNK_FAILED",
    "CURLE_NO_CONNECTION_AVAILABLE",
    "CURL_LAST",
    "Guid is blank.",
};
static_assert(curl_errors.back() != nullptr);

}  // namespace

STRING HttpsHandler::getCurlError(int code) const {
  if (code == kTransportRefused) {
    return STRING("Internal CURL Error : ") + (isValidUtf8(_last.errorText)
                                                   ? STRING(_last.errorText)
                                                   : "Multibyte to wide char conversion error ");
  }
  if (code >= 0 && static_cast<size_t>(code) < curl_errors.size()) {
    return curl_errors[static_cast<size_t>(code)];
  }
  return STRING("Could not understand the error ") + STRING::fromInt(code);
}

STRING HttpsHandler::getHTTPError(int status) {
  if (status == kConsolePort) {
    return "Return status 400. Verify using Agent port versus Console port.";
  }
  return STRING("Return status ") + STRING::fromInt(status);
}

}  // namespace korvane
