#include "rpc/rpc_errors.h"

namespace korvane {

const char* rpcErrorText(int code) {
  static constexpr struct {
    int code;
    const char* text;
  } kTexts[] = {
      {kRpcParseError, "Parse error"},
      {kRpcInvalidRequest, "Invalid Request"},
      {kRpcMethodNotFound, "Method not found"},
      {kRpcInvalidParams, "Invalid params"},
      {kRpcInternalError, "Internal error"},
      {kRpcFileNotFound, "Server Error:File not found"},
      {kRpcZipError, "Server Error:Zip/Unzip error"},
      {kRpcFileOpenError, "Server Error:File open error"},
      {kRpcFileCopyError, "Server Error:File copy error"},
      {kRpcEmptyBuffer, "Server Error:Empty Buffer"},
      {kRpcTimeout, "Timeout"},
  };
  for (const auto& known : kTexts)
    if (known.code == code) return known.text;
  return code >= -32099 && code <= -32000 ? "Server error" : "Unknown application error";
}

}  // namespace korvane
