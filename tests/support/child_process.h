// A program that a test starts and ends by its id, with its output kept in a file. POSIX.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace korvane::tests {

using Milliseconds = std::chrono::milliseconds;

// Looks every few milliseconds until `condition` holds; false when it does not within the limit.
template <class Condition>
bool eventually(Condition condition, Milliseconds limit = Milliseconds(30000)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(Milliseconds(10));
  }
  return true;
}

inline std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& command, std::string outputFile,
               const std::vector<std::string>& environment = {})
      : _outputFile(std::move(outputFile)) {
    std::vector<char*> arguments = pointers(command);
    std::vector<std::string> variables = environment;
    for (char** variable = environ; *variable; ++variable) variables.emplace_back(*variable);
    std::vector<char*> all = pointers(variables);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, _outputFile.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    const int error =
        posix_spawn(&_id, arguments[0], &actions, nullptr, arguments.data(), all.data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("cannot start " + command[0]);
  }
  ~ChildProcess() {
    if (_id == 0) return;
    kill(_id, SIGKILL);
    waitpid(_id, nullptr, 0);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void signal(int number) const { kill(_id, number); }
  // True, and `status` the exit status (128 + signal when killed), when it has ended within
  // the limit.
  bool waitEnd(int& status, Milliseconds limit = Milliseconds(30000)) {
    int raw = 0;
    if (!eventually([&] { return waitpid(_id, &raw, WNOHANG) == _id; }, limit)) return false;
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    _id = 0;
    return true;
  }
  // What the system says of the running program under that name, without the blanks before it.
  std::string fact(const std::string& file, const std::string& name) const {
    const std::string text = contentOf("/proc/" + std::to_string(_id) + "/" + file);
    const size_t at = text.find(name);
    if (at == std::string::npos) return {};
    const size_t begin = text.find_first_not_of(" \t", at + name.size());
    return text.substr(begin, text.find('\n', begin) - begin);
  }
  // Whether the program has a handler for the signal.
  bool handles(int number) const {
    const std::string caught = fact("status", "SigCgt:");
    return !caught.empty() && (std::stoull(caught, nullptr, 16) >> (number - 1) & 1);
  }
  std::string output() const { return contentOf(_outputFile); }
  std::string lastLine() const {
    std::istringstream text(output());
    std::string last;
    for (std::string line; std::getline(text, line);) last = line;
    return last;
  }

 private:
  static std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> all;
    for (const std::string& text : texts) all.push_back(const_cast<char*>(text.c_str()));
    all.push_back(nullptr);
    return all;
  }

  const std::string _outputFile;
  pid_t _id = 0;
};

}  // namespace korvane::tests
