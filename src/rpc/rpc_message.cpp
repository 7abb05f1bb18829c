#include "rpc/rpc_message.h"

namespace korvane {
namespace {

constexpr char kVersion[] = "2.0";

// The tree of a request or an answer, up to what the two have in common.
JsonTree opened(const std::optional<int>& id) {
  JsonTree tree;
  tree.put("jsonrpc", kVersion);
  if (id) tree.put("id", *id);
  return tree;
}

std::optional<int> idOf(const JsonTree& tree) {
  if (!tree.get_child_optional("jsonrpc")) throw RPCParseError("invalid JSON-RPC property tree.");
  const auto id = tree.get_child_optional("id");
  if (!id) return std::nullopt;
  const int number = id->get_value<int>();
  if (number < 0) throw RPCParseError("request id must be non-negative integer.");
  return number;
}

template <class T>
std::optional<T> member(const JsonTree& tree, const char* name) {
  const auto child = tree.get_child_optional(name);
  return child ? std::optional<T>(child->get_value<T>()) : std::nullopt;
}

const char* word(bool value) {
  return value ? "true" : "false";
}

// A member's tree, or an empty one.
void extractChild(JsonTree& tree, const char* name, JsonTree& out) {
  out.clear();
  if (const auto given = tree.get_child_optional(name)) out.swap(*given);
}

void insertChild(JsonTree& tree, const char* name, JsonTree& from) {
  tree.push_back({name, JsonTree()})->second.swap(from);
}

}  // namespace

void RPCRequest::SetPtree(const JsonTree& tree) {
  SetPtree(JsonTree(tree));
}

void RPCRequest::SetPtree(JsonTree&& tree) {
  id = idOf(tree);
  name.clear();
  if (const auto method = tree.get_child_optional("name")) name = method->data();
  extractChild(tree, "params", params);
}

JsonTree RPCRequest::releasePtree() {
  JsonTree tree = opened(id);
  tree.put("name", name);
  if (!params.empty() || !params.data().empty()) insertChild(tree, "params", params);
  return tree;
}

JsonTree RPCResponse::ptree() const {
  return RPCResponse(*this).releasePtree();
}

JsonTree RPCResponse::releasePtree() {
  JsonTree tree = opened(id);
  if (error) {
    tree.put("error.code", *error);
    tree.put("error.message", rpcErrorText(*error));
    if (!detail.empty()) tree.put("error.data", detail);
  } else {
    insertChild(tree, "result", result);
  }
  if (appdata) tree.push_back({"appdata", JsonTree()})->second.data().swap(*appdata);
  if (moredata) tree.put("moredata", word(*moredata));
  if (datalen) tree.put("datalen", *datalen);
  return tree;
}

void RPCResponse::SetPtree(const JsonTree& tree) {
  SetPtree(JsonTree(tree));
}

void RPCResponse::SetPtree(JsonTree&& tree) {
  RPCResponse read;
  read.id = idOf(tree);
  read.error = member<int>(tree, "error.code");
  read.errorText = member<std::string>(tree, "error.message").value_or("");
  read.detail = member<std::string>(tree, "error.data").value_or("");
  if (const auto data = tree.get_child_optional("appdata"))
    read.appdata.emplace().swap(data->data());
  if (const auto more = member<std::string>(tree, "moredata")) read.moredata = *more == word(true);
  read.datalen = member<int64_t>(tree, "datalen");
  *this = std::move(read);
  extractChild(tree, "result", result);
}

}  // namespace korvane
