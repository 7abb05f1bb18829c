// The management servers of "server.list" and where the agent stands among them.
//
// The entries are host names or addresses, separated by commas, their blanks removed, empty ones
// left out, and so are those that name a user: what stands there is no server, and may be a
// password. Without any the host of "agent.http.url" is the one server. A plain value;
// SettingsStore guards it.
#pragma once

#include <vector>

#include "util/string.h"

namespace korvane {

class ServerList {
 public:
  // Takes a new list: the first entry is primary and current, the last server is "Unknown" again.
  void assign(const STRING& text, const STRING& urlHost);
  // The host of the URL changed, which matters only while there are no entries.
  void setUrlHost(const STRING& urlHost);

  // Whether an entry is one that is left out for the user in it.
  static bool namesUser(const STRING& entry);
  size_t refused() const { return _refused; }  // how many were

  // The list as it was given.
  const STRING& text() const { return _text; }
  const std::vector<STRING>& entries() const { return _entries; }
  const STRING& primary() const { return _primary; }
  const STRING& current() const { return _current; }
  const STRING& next() const { return _next; }
  const STRING& last() const { return _last; }

  void setCurrent(const STRING& server) { _current = server; }
  // Stores the entry after `server`, wrapping round; after a server that is not an entry
  // comes the first.
  void setNextAfter(const STRING& server);
  void setLast(const STRING& server) { _last = server; }

 private:
  STRING _text;
  size_t _refused = 0;
  std::vector<STRING> _entries;
  STRING _primary;
  STRING _current;
  STRING _next;
  STRING _last = "Unknown";
};

}  // namespace korvane
