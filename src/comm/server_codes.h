// The server's own codes that mean the same in more than one kind of exchange.
#pragma once

namespace korvane {

// The server has no time now: a request is to be made again later, a report counts as taken.
inline constexpr int kServerComeBackLater = 200;
// The server does not know the identity that the exchange was made with.
inline constexpr int kServerUnknownAgent = 400;

}  // namespace korvane
