// make_events - writes an event log for the benchmarks: make_events --out FILE [--events N]
// [--repeats PERCENT]
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>

#include "bench/event_lines.h"

int main(int argc, char** argv) {
  std::string out;
  uint64_t events = 200000;
  unsigned repeats = 20, quoted = 5;
  CLI::App app("Writes an event log for the benchmarks.");
  app.add_option("--out", out, "the file")->required();
  app.add_option("--events", events, "events before the end marker");
  app.add_option("--repeats", repeats, "per cent of the lines that repeat the one before");
  app.add_option("--quoted", quoted, "per cent of the fields that are quoted");
  CLI11_PARSE(app, argc, argv);
  std::ofstream file(out, std::ios::binary);
  korvane::bench::EventLines lines(repeats, quoted);
  for (uint64_t i = 0; i < events; ++i) file << lines.next();
  file << lines.endMarker();
  file.flush();
  if (!file) std::fprintf(stderr, "make_events: %s cannot be written\n", out.c_str());
  return file ? 0 : 1;
}
