// The codes of the server's own that an answer may carry, of those that more than one kind of exchange
// knows. Without a code all is well; any other is an error.
#pragma once

namespace korvane {

// The server has no time now: a request is to be made again later, a report counts as taken.
inline constexpr int kServerComeBackLater = 200;
// The server does not know the identity that the exchange was made with.
inline constexpr int kServerUnknownAgent = 400;

}  // namespace korvane
