// One call over the local channel: what is asked and what is answered. docs/rpc.md shows both on
// the wire. Values; each is used by one thread at a time. Their trees can be swapped, not moved:
// whoever hands on a large one without a copy uses the operations that take or leave it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "rpc/json_text.h"
#include "rpc/rpc_errors.h"

namespace korvane {

class RPCRequest {
 public:
  // Takes over what a JSON object says; members with other names are ignored. Throws
  // RPCParseError ("invalid JSON-RPC property tree.", "request id must be non-negative
  // integer.") and, for an "id" that is no integer, the property tree's own error. After an
  // error the request is as it was.
  void SetPtree(const JsonTree& tree);
  void SetPtree(JsonTree&& tree);  // large parameters are taken over without a copy
  JsonTree releasePtree();         // leaves no parameters

  std::optional<int> id;
  std::string name;  // of the method; empty when there was none
  JsonTree params;
};

class RPCResponse {
 public:
  JsonTree ptree() const;
  JsonTree releasePtree();  // leaves neither result nor application data
  // What a client makes of an answer; throws RPCParseError, or the property tree's error
  // for a number that is none.
  void SetPtree(const JsonTree& tree);
  void SetPtree(JsonTree&& tree);

  std::optional<int> id;
  std::optional<int> error;  // the code of a failure; without one `result` is the answer
  std::string errorText;     // the code's, when the answer was read
  std::string detail;        // of a failure, when there is more to say
  JsonTree result;
  std::optional<std::string> appdata;
  std::optional<bool> moredata;
  std::optional<int64_t> datalen;
};

}  // namespace korvane
