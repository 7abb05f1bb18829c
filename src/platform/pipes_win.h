// The pipes of Windows, with the way in which they tell who a client is. Only for the Win32
// siblings of the seam and their tests.
#pragma once

#include <memory>

#include "platform/pipe_peers_win.h"
#include "platform/pipes.h"

namespace korvane::platform {

std::unique_ptr<Pipes> makeWinPipes(ClientAccountOf accountOf);

}  // namespace korvane::platform
