// The error codes of the local channel and the text that goes with each.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace korvane {

inline constexpr int kRpcParseError = -32700;
inline constexpr int kRpcInvalidRequest = -32600;
inline constexpr int kRpcMethodNotFound = -32601;
inline constexpr int kRpcInvalidParams = -32602;
inline constexpr int kRpcInternalError = -32603;
inline constexpr int kRpcFileNotFound = -32001;
inline constexpr int kRpcZipError = -32002;
inline constexpr int kRpcFileOpenError = -32003;
inline constexpr int kRpcFileCopyError = -32004;
inline constexpr int kRpcEmptyBuffer = -32005;
inline constexpr int kRpcNotAdministrator = -32010;  // "Server error", as all of its range
inline constexpr int kRpcTimeout = -1;

const char* rpcErrorText(int code);

// Thrown by a method that fails; what() is the code's text. `detail` tells the caller more:
// which parameter, which file.
class RPCError : public std::runtime_error {
 public:
  explicit RPCError(int code, std::string detail = {})
      : std::runtime_error(rpcErrorText(code)), _code(code), _detail(std::move(detail)) {}
  int code() const { return _code; }
  const std::string& detail() const { return _detail; }

 private:
  int _code;
  std::string _detail;
};

// Thrown for a JSON text that is not a request.
class RPCParseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace korvane
