// The entry point of a program of ours, which differs between the systems in how arguments come.
//
// A program that links korvane_program_entry defines programMain() in place of main(); it is called
// once, on the main thread, and what it returns is the exit status.
//
// POSIX: the arguments are the bytes that were given. Windows: they come as UTF-16, whatever the
// system's code page is, and a console takes what is written as UTF-8.
//
//   int korvane::programMain(const std::vector<std::string>& arguments) {
//     return arguments.empty() ? 2 : 0;
//   }
#pragma once

#include <string>
#include <vector>

namespace korvane {

// `arguments` are UTF-8, without the program's name.
int programMain(const std::vector<std::string>& arguments);

}  // namespace korvane
