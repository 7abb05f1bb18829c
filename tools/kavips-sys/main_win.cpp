// kavips-install: loads and unloads the stand-in driver by hand, and tells it what to do.
#include <iostream>
#include <string>

#include "kavips-sys/driver_service.h"
#include "platform/wide_win.h"

namespace {

using namespace korvane;

constexpr char kUsage[] =
    "kavips-install load FILE         registers and loads the stand-in driver\n"
    "kavips-install unload            unloads it, keeps its settings\n"
    "kavips-install remove            unloads it and removes its service and keys\n"
    "kavips-install prevention on     the agent's self-test finds prevention in force\n"
    "kavips-install prevention off    it does not\n"
    "kavips-install COMMAND ...       controls the loaded driver: normal | stall | delay MS |\n"
    "                                 late-error MS [ERROR] | fail ERROR | refuse [TEXT] | vanish "
    "| state\n";

std::string joined(int argc, wchar_t** argv, int from) {
  std::string words;
  for (int i = from; i < argc; ++i) words += (i > from ? " " : "") + platform::narrow(argv[i]);
  return words;
}

std::string perform(const std::string& verb, const std::string& rest, std::string& reply) {
  if (verb == "load") {
    reply = kavips::kStandInText;
    return kavips::loadDriver(rest);
  }
  if (verb == "unload") return kavips::unloadDriver();
  if (verb == "remove") return kavips::removeDriver();
  if (verb == "prevention" && (rest == "on" || rest == "off"))
    return kavips::setPrevention(rest == "on");
  return kavips::command(rest.empty() ? verb : verb + " " + rest, reply);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) {
    std::cerr << kUsage;
    return 2;
  }
  std::string reply;
  const std::string problem = perform(platform::narrow(argv[1]), joined(argc, argv, 2), reply);
  if (!problem.empty()) {
    std::cerr << "kavips-install: " << problem << '\n';
    return 1;
  }
  if (!reply.empty()) std::cout << reply << '\n';
  return 0;
}
