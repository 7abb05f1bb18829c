// agentctl completion: what a shell needs to complete command lines, made from the same table of
// commands and options that parses them.
#include <algorithm>
#include <iostream>

#include "agentctl/commands.h"
#include "agentctl/value_check.h"
#include "rpc/pipe_names.h"

namespace korvane::agentctl {
namespace {

using Words = std::vector<std::string>;

// What may come next after a command, and after an option that takes a value.
struct Place {
  std::string path;  // "", "config", "config get"
  Words words;
  Words valued;  // options whose value follows
};

// "{on,off}" in what CLI11 says of an option.
Words choicesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const size_t begin = type.find('{'), end = type.find('}');
  Words words;
  if (begin == std::string::npos || end == std::string::npos) return words;
  std::string word;
  for (const char c : type.substr(begin + 1, end - begin - 1) + ",") {
    if (c != ',') {
      word += c;
      continue;
    }
    words.push_back(word);
    word.clear();
  }
  return words;
}

void addOptions(const CLI::App& command, Place& place) {
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) {
      const Words choices = choicesOf(*option);
      place.words.insert(place.words.end(), choices.begin(), choices.end());
      continue;
    }
    for (const std::string& name : option->get_lnames()) {
      place.words.push_back("--" + name);
      if (option->get_items_expected_max() > 0) place.valued.push_back("--" + name);
    }
    for (const std::string& name : option->get_snames())
      if (option->get_items_expected_max() > 0) place.valued.push_back("-" + name);
  }
}

void addKeys(Place& place) {
  const bool set = place.path == "config set";
  if (!set && place.path != "config get") return;
  for (const std::string& key : keyNames()) place.words.push_back(set ? key + "=" : key);
}

void collect(const CLI::App& command, const std::string& path, const CLI::App& root,
             std::vector<Place>& out) {
  Place place{path, {}, {}};
  const auto commands = command.get_subcommands([](const CLI::App*) { return true; });
  for (const CLI::App* below : commands) place.words.push_back(below->get_name());
  addOptions(command, place);
  if (&command != &root) addOptions(root, place);
  addKeys(place);
  std::sort(place.words.begin(), place.words.end());
  place.words.erase(std::unique(place.words.begin(), place.words.end()), place.words.end());
  out.push_back(std::move(place));
  for (const CLI::App* below : commands)
    collect(*below, path.empty() ? below->get_name() : path + " " + below->get_name(), root, out);
}

std::string joined(const Words& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

Words pathsOf(const std::vector<Place>& places) {
  Words paths;
  for (const Place& place : places)
    if (!place.path.empty()) paths.push_back("\"" + place.path + "\"");
  return paths;
}

Words valuedOf(const std::vector<Place>& places) {
  Words all;
  for (const Place& place : places) all.insert(all.end(), place.valued.begin(), place.valued.end());
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return all;
}

std::string pipes() {
  return joined({kLocalPipe, kCloudPipe, kEventPipe}, " ");
}

std::string forBash(const std::vector<Place>& places) {
  std::string script = R"(# bash completion for agentctl, made by `agentctl completion bash`.
_agentctl() {
  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} path= words= i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case "${COMP_WORDS[i]}" in
      )" + joined(valuedOf(places), "|") +
                       R"() ((i++)); continue ;;
    esac
    case "${path:+$path }${COMP_WORDS[i]}" in
      )" + joined(pathsOf(places), "|") +
                       R"() path="${path:+$path }${COMP_WORDS[i]}" ;;
    esac
  done
  COMPREPLY=()
  case "$before" in
    --pipe) COMPREPLY=($(compgen -W ")" +
                       pipes() +
                       R"(" -- "$current")); return ;;
    )" + joined(valuedOf(places), "|") +
                       R"() return ;;
  esac
  case "$path" in
)";
  for (const Place& place : places)
    script += "    \"" + place.path + "\") words=\"" + joined(place.words, " ") + "\" ;;\n";
  return script + R"(  esac
  [[ $path != "config set" || $current == -* ]] || compopt -o nospace
  COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -o default -F _agentctl agentctl
)";
}

std::string forPowerShell(const std::vector<Place>& places) {
  std::string script =
      "# PowerShell completion for agentctl, made by `agentctl completion powershell`.\n"
      "$agentctlWords = @{\n";
  for (const Place& place : places)
    script += "  '" + place.path + "' = '" + joined(place.words, " ") + "'\n";
  return script + "}\n$agentctlValued = '" + joined(valuedOf(places), " ") + R"(' -split ' '
Register-ArgumentCompleter -Native -CommandName agentctl, agentctl.exe -ScriptBlock {
  param($current, $line, $position)
  $path = ''
  $skip = $false
  foreach ($element in $line.CommandElements | Select-Object -Skip 1) {
    $word = $element.ToString()
    if ($element.Extent.EndOffset -ge $position -and $word -eq $current) { continue }
    if ($skip) { $skip = $false; continue }
    $skip = $agentctlValued -contains $word
    $next = "$path $word".Trim()
    if ($agentctlWords.ContainsKey($next)) { $path = $next }
  }
  if ($skip) { return }
  $agentctlWords[$path] -split ' ' | Where-Object { $_ -like "$current*" } |
    ForEach-Object { [System.Management.Automation.CompletionResult]::new($_) }
}
)";
}

}  // namespace

void addCompletion(CLI::App& app, Context&, Action& chosen) {
  CLI::App* command = app.add_subcommand("completion", "Prints a shell completion script");
  const auto shell = std::make_shared<std::string>();
  command->add_option("SHELL", *shell, "bash or powershell")
      ->required()
      ->check(CLI::IsMember({"bash", "powershell"}));
  command->footer(
      "For this session: source <(agentctl completion bash); in PowerShell: agentctl completion "
      "powershell | "
      "Out-String | Invoke-Expression");
  command->callback([shell, &app, &chosen] {
    chosen = [shell, &app] {
      std::vector<Place> places;
      collect(app, "", app, places);
      std::cout << (*shell == "bash" ? forBash(places) : forPowerShell(places));
      return ExitStatus::ok;
    };
  });
}

}  // namespace korvane::agentctl
