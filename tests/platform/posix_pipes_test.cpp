// Who may connect to a pipe on Linux, and whose turn it is: clients under accounts of their own.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/error_codes.h"
#include "platform/native.h"
#include "platform/pipes.h"
#include "platform/platform.h"
#include "tests/platform/patience.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {
namespace {

constexpr uid_t kRoot = 0;
constexpr uid_t kSomebody = 65533;
constexpr uid_t kNobody = 65534;

// A process of that account that connects so many times, sends `mark` over each connection and
// stays until the server has let all of them go. Its exit status is the number that failed.
class Client {
 public:
  Client(const std::string& path, uid_t account, int connections, char mark) {
    int ready[2];
    EXPECT_EQ(::pipe(ready), 0);
    _child = ::fork();
    if (_child == 0) ::_exit(act(path, account, connections, mark, ready[1]));
    ::close(ready[1]);
    char byte;
    while (::read(ready[0], &byte, 1) > 0) {
    }
    ::close(ready[0]);
  }
  ~Client() { failed(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // How many connections it did not get; waits for its end.
  int failed() {
    int status = 0;
    if (_child > 0) ::waitpid(std::exchange(_child, 0), &status, 0);
    return WEXITSTATUS(status);
  }

 private:
  static int act(const std::string& path, uid_t account, int connections, char mark, int ready) {
    if (::setresgid(account, account, account) != 0 || ::setresuid(account, account, account) != 0)
      return connections;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    std::vector<int> made;
    int failed = 0;
    for (int i = 0; i < connections; ++i) {
      made.push_back(::socket(AF_UNIX, SOCK_STREAM, 0));
      if (::connect(made.back(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        ++failed;
      ::send(made.back(), &mark, 1, MSG_NOSIGNAL);
    }
    ::close(ready);
    for (const int connection : made) {
      char byte;
      ::read(connection, &byte, 1);
    }
    return failed;
  }

  pid_t _child = 0;
};

class PosixPipes : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != kRoot) GTEST_SKIP() << "only root can act for another account";
    std::filesystem::permissions(directory.path(), std::filesystem::perms{0711});
  }
  void serve(PipeAudience audience) {
    ASSERT_EQ(platform.pipes.create("asked", audience, server), kOk);
  }
  // The mark of the client whose turn it is; 0 when there is none within the time.
  char served(int milliseconds = kLongMs) {
    char mark = 0;
    size_t got = 0;
    for (const int64_t end = platform.clock.monotonicMs() + milliseconds;
         platform.clock.monotonicMs() < end;) {
      if (server->read(&mark, 1, got) == kOk) return mark;
      server->wait(PipeEvent::readable, 50);
    }
    return 0;
  }

  tests::TempDirectory directory;
  const std::string path = directory.path() + "/asked.pipe";
  std::unique_ptr<NativePlatform> native = makeNativePlatform({"", directory.path()});
  Platform& platform = native->platform();
  std::unique_ptr<Pipe> server;
};

TEST_F(PosixPipes, EveryAccountMayAskAndOnlyTheServersOwnIsAnAdministrators) {
  serve(PipeAudience::everyone);
  for (const uid_t account : {kRoot, kNobody}) {
    const Client client(path, account, 1, 'x');
    EXPECT_EQ(served(), 'x') << account;
    EXPECT_EQ(server->peerIsAdministrator(), account == kRoot);
    EXPECT_EQ(server->renew(), kOk);
  }
}

TEST_F(PosixPipes, WhatIsForAdministratorsLetsNobodyElseConnect) {
  serve(PipeAudience::administrators);
  Client stranger(path, kNobody, 3, 'x');
  EXPECT_EQ(stranger.failed(), 3);
  const Client own(path, kRoot, 1, 'r');
  EXPECT_EQ(served(), 'r');
  server->renew();
}

TEST_F(PosixPipes, AnAccountHasOnePlaceAndAnAdministratorIsNext) {
  serve(PipeAudience::everyone);
  {
    const Client many(path, kNobody, 27, 'n');
    ASSERT_EQ(served(), 'n');
    const int64_t begun = platform.clock.monotonicMs();
    const Client other(path, kSomebody, 1, 's');
    EXPECT_EQ(served(200), 0) << "no administrator waits: it has its turn";
    const Client administrator(path, kRoot, 1, 'r');
    size_t available = 0;
    while (server->peek(available) == kOk) server->wait(PipeEvent::readable, 50);
    const int64_t turn = platform.clock.monotonicMs() - begun;
    EXPECT_GE(turn, int64_t{Pipe::kTurnMs} - 100);
    EXPECT_LE(turn, int64_t{Pipe::kTurnMs} + 1500);
    for (const char next : {'r', 's'}) {
      EXPECT_EQ(server->renew(), kOk);
      EXPECT_EQ(served(), next);
      EXPECT_EQ(server->peerIsAdministrator(), next == 'r');
    }
    EXPECT_EQ(server->renew(), kOk);
    EXPECT_EQ(served(200), 0) << "the first account's 26 others have been closed";
  }
  const Client again(path, kNobody, 1, 'a');
  EXPECT_EQ(served(), 'a');
  server->renew();
}

TEST_F(PosixPipes, AWaitForASilentAdministratorEndsThoughOthersCome) {
  serve(PipeAudience::everyone);
  const Client silent(path, kRoot, 1, 'r');
  ASSERT_EQ(served(), 'r');
  {
    const Client other(path, kRoot, 1, 'q'), stranger(path, kNobody, 40, 'n');
    EXPECT_EQ(server->wait(PipeEvent::readable, 100), PipeWait::ended);
    for (const char next : {'q', 'n'}) {
      EXPECT_EQ(server->renew(), kOk);
      EXPECT_EQ(served(), next);
    }
    server->renew();
  }
}

TEST_F(PosixPipes, NobodyElsesServerIsSpokenTo) {
  std::filesystem::permissions(directory.path(), std::filesystem::perms{0777});
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t stranger = ::fork();
  if (stranger == 0) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    char byte = 0;
    if (::setresuid(kNobody, kNobody, kNobody) == 0 &&
        ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::listen(listener, 1) == 0)
      byte = 1;
    ::write(ready[1], &byte, 1);
    ::pause();
  }
  char listens = 0;
  EXPECT_EQ(::read(ready[0], &listens, 1), 1);
  EXPECT_EQ(listens, 1);
  std::unique_ptr<Pipe> client;
  EXPECT_EQ(platform.pipes.open("asked", client), kErrorAccessDenied);
  ::kill(stranger, SIGKILL);
  ::waitpid(stranger, nullptr, 0);
}

}  // namespace
}  // namespace korvane::platform
