// agentctl call: any method of any of the agent's pipes.
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/failure.h"
#include "agentctl/json.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_errors.h"

namespace korvane::agentctl {
namespace {

struct CallOptions {
  std::string method;
  std::string params;
  std::string pipe = kLocalPipe;
  int timeoutMs = Context::kAnswerMs;
};

JsonTree parsed(std::string params) {
  constexpr size_t kShown = 80;
  JsonTree tree;
  if (params == "-") params.assign(std::istreambuf_iterator<char>(std::cin), {});
  if (!params.empty() && !parseJson(params, tree))
    throw Failure(ExitStatus::usage,
                  "the parameters are not JSON text: " + params.substr(0, kShown),
                  "Pass an object, quoted for your shell: '{\"keys\":[\"agent.id\"]}'.");
  return tree;
}

// The result alone, or all members when there is application data too.
Json shown(const RPCResponse& response) {
  Json result = asAnswered(response.result);
  if (!response.appdata) return result;
  Json all = {{"result", std::move(result)}, {"appdata", *response.appdata}};
  if (response.moredata) all["moredata"] = *response.moredata ? "true" : "false";
  if (response.datalen) all["datalen"] = std::to_string(*response.datalen);
  return all;
}

ExitStatus call(Context& context, const CallOptions& options) {
  try {
    std::cout << text(shown(
        context.call(options.pipe, options.method, parsed(options.params), options.timeoutMs)));
    return ExitStatus::ok;
  } catch (const RPCCallError& error) {
    Json answer = {{"code", std::to_string(error.code())}, {"message", error.text()}};
    if (!error.detail().empty()) answer["data"] = error.detail();
    std::cout << text({{"error", std::move(answer)}});
    throw Failure(
        error.code() == kRpcNotAdministrator ? ExitStatus::notPermitted : ExitStatus::failed,
        error.what(), {});
  }
}

}  // namespace

void addCall(CLI::App& app, Context& context, Action& chosen) {
  CLI::App* command =
      app.add_subcommand("call", "Calls a method of the agent and prints the answer as JSON");
  const auto options = std::make_shared<CallOptions>();
  command->add_option("METHOD", options->method, "The method's name, such as getStatus")
      ->required();
  command->add_option("JSON", options->params,
                      "Its parameters, a JSON object; - reads them from standard input");
  command->add_option("--pipe", options->pipe, "The pipe to use")->capture_default_str();
  command->add_option("--timeout", options->timeoutMs, "Time-out for the answer, in milliseconds")
      ->check(CLI::Range(1, 3600000))
      ->capture_default_str();
  command->callback([options, &context, &chosen] {
    chosen = [options, &context] { return call(context, *options); };
  });
}

}  // namespace korvane::agentctl
