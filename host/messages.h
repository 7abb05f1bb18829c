// The host's messages to its operator: lines that begin with the program's name, on standard error,
// or, dated, in a file once one is given. Threads: any, except for keepMessages(), which comes
// first.
#pragma once

#include <cstdio>
#include <string>

namespace korvane::host {

void say(const std::string& line);

// The file stays open until the process ends.
void keepMessages(std::FILE* file);

}  // namespace korvane::host
