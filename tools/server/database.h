// A thin owner of one SQLite database: opening, prepared statements, transactions.
//
// Objects are used by one thread at a time; the caller locks. Every failure throws DatabaseError
// with SQLite's text and the statement. Texts are UTF-8. A Statement must not outlive its Database.
//
//   Statement& insert = ...;
//   insert.run(agentId, "name", 12);             // binds in order and executes
//   query.start(agentId); while (query.next()) use(query.text(0), query.number(1));
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace korvane::server {

class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Bytes that SQLite keeps as they are.
struct Blob {
  std::string_view bytes;
};

class Database {
 public:
  // Opens or makes the file, in write-ahead mode.
  explicit Database(const std::string& file);

  // Runs one or more statements that return nothing.
  void execute(const std::string& sql);
  int64_t lastId() const { return sqlite3_last_insert_rowid(_handle.get()); }
  int changes() const { return sqlite3_changes(_handle.get()); }
  sqlite3* handle() const { return _handle.get(); }

 private:
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> _handle{nullptr, sqlite3_close};
};

class Statement {
 public:
  Statement(Database& database, std::string_view sql);

  template <typename... Values>
  void run(const Values&... values) {
    start(values...);
    while (next()) {
    }
  }

  template <typename... Values>
  Statement& start(const Values&... values) {
    sqlite3_reset(_handle.get());
    int position = 0;
    (bind(++position, values), ...);
    return *this;
  }

  // False when there is no further row; the statement is then finished.
  bool next();
  // Ends a query whose further rows are not wanted.
  void finish() { sqlite3_reset(_handle.get()); }
  sqlite3_stmt* handle() const { return _handle.get(); }
  int64_t number(int column) const { return sqlite3_column_int64(_handle.get(), column); }
  std::string text(int column) const;

 private:
  void bind(int position, int64_t value);
  void bind(int position, int value) { bind(position, int64_t{value}); }
  void bind(int position, bool value) { bind(position, int64_t{value}); }
  void bind(int position, const std::string& value) { bind(position, std::string_view(value)); }
  void bind(int position, std::string_view value);
  void bind(int position, const Blob& value);
  void bind(int position, std::nullptr_t);
  void bind(int position, std::optional<int64_t> value);
  void check(int status) const;

  Database& _database;
  std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> _handle{nullptr, sqlite3_finalize};
};

// Everything between its making and commit() happens as one, or not at all.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void commit();

 private:
  Database* _database;
};

}  // namespace korvane::server
