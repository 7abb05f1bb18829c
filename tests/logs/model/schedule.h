// One life of the component, the agent and the server, drawn from a seed.
#pragma once

#include "tests/logs/model/reference.h"

namespace korvane::log_model {

using MakeForwarder =
    std::function<std::unique_ptr<Forwarder>(Machine& machine, Receiver& receiver)>;

// Runs it and adds it to `counts`. Gives an empty text, or what was wrong. `tell` gets the
// schedule line by line.
std::string runSchedule(uint64_t seed, const MakeForwarder& make, Counts& counts,
                        const std::function<void(const std::string&)>& tell = nullptr);

// Runs seeds `first` to `first + number - 1` up to the first failure. Gives an empty text, or the
// failure with its whole schedule and the command that replays it.
std::string runSchedules(uint64_t first, uint64_t number, const MakeForwarder& make,
                         Counts& counts);

}  // namespace korvane::log_model
