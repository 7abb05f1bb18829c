// What the host tells its operator: lines that begin with the program's name, on the standard error output,
// or, dated, in a file once one is given. Threads: any, but for keepMessages(), which comes first.
#pragma once

#include <cstdio>
#include <string>

namespace korvane::host {

void say(const std::string& line);

// The file stays open until the process ends.
void keepMessages(std::FILE* file);

}  // namespace korvane::host
