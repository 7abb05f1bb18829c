#pragma once

#include <korvane-agent.h>

#include <string>
#include <utility>
#include <vector>

// The outside program: written from the published description of the exports, by somebody who has
// not seen the headers.

using korvane::STRING;
using Pair = std::pair<STRING, STRING>;
using Pairs = std::vector<Pair>;

// Counts and names what does not hold; the program's exit status is whether any was found.
void expect(bool holds, const char* what);

STRING text(const char* narrow);
void pauseBriefly();

void useSection();
void useFileLogPointer(const STRING& folder);
void useDriverConfig(const STRING& folder);
void useHttpsHandler();
void useAgentConfig();
void useThreads();
