// Windows command lines, parsed as Windows programs do.
#pragma once

#include <string>
#include <vector>

namespace korvane::host {

// The arguments, separated by blanks. The program's file, the first, is always quoted: without that
// the system would try what comes before a blank in its path as a program. The others are quoted
// where a blank, a quote or nothing at all asks for it.
//
//   commandLine({"C:\\Program Files\\a.exe", "--root", "D:\\x y\\"})
//     gives "C:\Program Files\a.exe" --root "D:\x y\\"
std::string commandLine(const std::vector<std::string>& arguments);

// The file name of the program that a command line runs, without its folder.
std::string programOf(const std::string& commandLine);

}  // namespace korvane::host
