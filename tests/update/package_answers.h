// Answers of a scripted server that carry packages.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/scripted_server.h"

namespace korvane::tests {

using AnswerPart = std::pair<std::string, std::string>;  // name and bytes

// One section of properties, then the binary parts.
inline Answer packages(const std::string& properties, const std::vector<AnswerPart>& parts) {
  Answer answer = Answer::properties(properties);
  const std::string end = "EOF_FLAG\n";
  answer.body.resize(answer.body.size() - end.size());
  for (const auto& [name, bytes] : parts)
    answer.body += "Data-Format=binary/zip\nData-Type=" + name +
                   "\nData-Length=" + std::to_string(bytes.size()) + "\n\n" + bytes + "\n";
  answer.body += end;
  return answer;
}

}  // namespace korvane::tests
