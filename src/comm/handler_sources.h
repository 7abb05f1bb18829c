// The names under which the exchanges with the server stand in the agent's log.
#pragma once

namespace korvane {

inline constexpr char kHandlerSource[] = "HttpsHandler";
inline constexpr char kSendSource[] = "HttpsHandler::send";

}  // namespace korvane
