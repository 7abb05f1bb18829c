// Who may connect to a pipe on Windows, and whose turn it is. All clients here are this process's;
// the test says of which account each one is.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "platform/clock.h"
#include "platform/error_codes.h"
#include "platform/native.h"
#include "platform/pipes_win.h"
#include "platform/platform.h"
#include "platform/thread_time_win.h"
#include "platform/wide_win.h"
#include "tests/platform/patience.h"
#include "tests/service/process_figures_win.h"

namespace korvane::platform {
namespace {

const ClientAccount kAdministrator = {"root", true};
const ClientAccount kSomebody = {"somebody", false};
const ClientAccount kNobody = {"nobody", false};
const ClientAccount kUnknown = {};

class WinPipes : public testing::Test {
 protected:
  void serve(PipeAudience audience = PipeAudience::everyone) {
    ASSERT_EQ(pipes->create(name, audience, server), kOk);
  }
  // A client of that account, which has sent its mark; the server has looked at its doors since.
  std::unique_ptr<Pipe> connect(const ClientAccount& account, char mark) {
    std::unique_ptr<Pipe> client;
    size_t moved = 0;
    asking = account;
    EXPECT_EQ(pipes->open(name, client), kOk) << mark;
    if (client) {
      EXPECT_EQ(client->write(&mark, 1, moved), kOk);
    }
    static_cast<void>(server->peek(moved));
    server->wait(PipeEvent::readable, 1);
    return client;
  }
  // The mark of the client whose turn it is; 0 when there is none within the time.
  char served(int milliseconds = kLongMs) {
    char mark = 0;
    size_t got = 0;
    for (const int64_t end = clock.monotonicMs() + milliseconds; clock.monotonicMs() < end;) {
      if (server->read(&mark, 1, got) == kOk) return mark;
      server->wait(PipeEvent::readable, 20);
    }
    return 0;
  }
  bool isLetGo(Pipe& client) {
    size_t available = 0;
    return client.peek(available) == kErrorBrokenPipe;
  }
  // How many instances of the pipe there are; 0 when none is free to ask.
  DWORD instances() {
    DWORD count = 0;
    const FileHandle client(::CreateFileW((L"\\\\.\\pipe\\" + wide(name)).c_str(),
                                          GENERIC_READ | FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
    ::GetNamedPipeHandleStateW(client.get(), nullptr, &count, nullptr, nullptr, nullptr, 0);
    return count;
  }
  // Uses the processor, as the answer to a request does.
  void work(int64_t microseconds) {
    ThreadTime time;
    for (const int64_t begun = time.cpuUs(); time.cpuUs() - begun < microseconds;) {
    }
  }

  std::unique_ptr<NativePlatform> native = makeNativePlatform({});
  Clock& clock = native->platform().clock;
  ClientAccount asking;
  std::unique_ptr<Pipes> pipes = makeWinPipes([this](HANDLE) { return asking; });
  const std::string name = "korvane-test-turns-" + std::to_string(::GetCurrentProcessId());
  std::unique_ptr<Pipe> server;
};

TEST_F(WinPipes, AnAccountHasOnePlaceAndAnAdministratorIsNext) {
  serve();
  const auto first = connect(kNobody, 'n');
  ASSERT_EQ(served(), 'n');
  const auto second = connect(kNobody, 'm'), unknown = connect(kUnknown, 'u');
  std::vector<std::unique_ptr<Pipe>> surplus;
  for (const ClientAccount& account : {kNobody, kUnknown, kNobody, kUnknown, kNobody}) {
    surplus.push_back(connect(account, 'x'));
    for (const int64_t end = clock.monotonicMs() + kLongMs;
         !isLetGo(*surplus.back()) && clock.monotonicMs() < end;)
      server->wait(PipeEvent::readable, 20);
    ASSERT_TRUE(isLetGo(*surplus.back()));
  }
  const auto other = connect(kSomebody, 's');
  EXPECT_EQ(served(2200), 0) << "no administrator waits: it has its turn";
  const auto administrator = connect(kAdministrator, 'r');
  size_t available = 0;
  while (server->peek(available) == kOk) server->wait(PipeEvent::readable, 20);
  EXPECT_EQ(server->write("x", 1, available), kErrorNoData);
  for (const char next : {'r', 'm', 'u', 's'}) {
    EXPECT_EQ(server->renew(), kOk);
    EXPECT_EQ(served(), next);
  }
  EXPECT_EQ(server->renew(), kOk);
  EXPECT_EQ(served(200), 0) << "what was closed has sent nothing";
}

TEST_F(WinPipes, ATurnLastsItsTimeThoughAnAdministratorWaitsAndAnAdministratorsIsNotCut) {
  serve();
  const auto first = connect(kNobody, 'n');
  ASSERT_EQ(served(), 'n');
  const int64_t begun = clock.monotonicMs();
  const auto administrator = connect(kAdministrator, 'r'), another = connect(kAdministrator, 'q');
  size_t available = 0;
  while (server->peek(available) == kOk) server->wait(PipeEvent::readable, 20);
  const int64_t turn = clock.monotonicMs() - begun;
  EXPECT_GE(turn, int64_t{Pipe::kTurnMs} - 100);
  EXPECT_LE(turn, int64_t{Pipe::kTurnMs} + 1500);
  EXPECT_EQ(server->renew(), kOk);
  EXPECT_EQ(served(), 'r');
  EXPECT_EQ(served(2200), 0);
  EXPECT_EQ(server->peek(available), kOk) << "it has its turn though another waits";
  EXPECT_EQ(server->renew(), kOk);
  EXPECT_EQ(served(), 'q');
}

TEST_F(WinPipes, WhatIsForAdministratorsTakesWhoeverTheSystemLetsIn) {
  serve(PipeAudience::administrators);
  const auto first = connect(kUnknown, 'a'), second = connect(kUnknown, 'b'),
             third = connect(kUnknown, 'c');
  for (const char next : {'a', 'b', 'c'}) {
    EXPECT_EQ(served(), next);
    EXPECT_EQ(server->renew(), kOk);
  }
}

TEST_F(WinPipes, OrdinaryCallersThatHaveUsedTheirShareWait) {
  serve();
  for (const ClientAccount& account : {kAdministrator, kNobody}) {
    const auto client = connect(account, '1');
    size_t moved = 0;
    ASSERT_EQ(served(), '1');
    ASSERT_EQ(server->peek(moved), kOk);
    ASSERT_EQ(client->write("2", 1, moved), kOk);
    work(60'000);
    ASSERT_EQ(server->peek(moved), kOk);
    EXPECT_EQ(moved, account.administrator ? 1u : 0u);
    const int64_t begun = clock.monotonicMs();
    while (server->peek(moved) == kOk && moved == 0) server->wait(PipeEvent::readable, 20);
    EXPECT_EQ(clock.monotonicMs() - begun > 500, !account.administrator)
        << "40 times what it has used beyond its 30 ms";
    EXPECT_EQ(served(), '2');
    EXPECT_EQ(server->renew(), kOk);
  }
}

TEST_F(WinPipes, WhereCallersFindNoPlaceThereAreMoreDoorsForAWhile) {
  serve();
  const auto first = connect(kNobody, 'n'), second = connect(kNobody, 'm');
  ASSERT_EQ(served(), 'n');
  std::unique_ptr<Pipe> further;
  for (const size_t doors : {1u, 2u, 4u, 8u, 16u, 16u}) {
    std::vector<std::unique_ptr<Pipe>> surplus(doors);
    for (auto& one : surplus) ASSERT_EQ(pipes->open(name, one), kOk) << doors;
    EXPECT_EQ(pipes->open(name, further), kErrorPipeBusy) << doors;
    const int64_t end = clock.monotonicMs() + kLongMs;
    while (!isLetGo(*surplus.back()) && clock.monotonicMs() < end)
      server->wait(PipeEvent::readable, 20);
    for (auto& one : surplus) EXPECT_TRUE(isLetGo(*one));
  }
  for (int i = 0; i < 3; ++i) server->wait(PipeEvent::readable, 100);
  EXPECT_EQ(instances(), 3u) << "who is served, who waits, a door";
}

// Clients that come all the time find the name served whenever they do, nobody else gets it, and of
// all of them nothing is left.
TEST_F(WinPipes, ACrowdLeavesTheNameServedAndNothingBehind) {
  serve();
  asking = kNobody;
  std::atomic<int> connected{0}, absent{0}, taken{0};
  const auto crowdFor = [&](int milliseconds) {
    std::atomic<bool> over{false};
    const auto crowd = [&] {
      std::vector<std::unique_ptr<Pipe>> mine(40);
      for (size_t i = 0; !over; ++i) {
        const uint32_t error = pipes->open(name, mine[i % mine.size()]);
        if (error == kOk) ++connected;
        if (error == kErrorFileNotFound) ++absent;
        std::unique_ptr<Pipe> other;
        if (pipes->create(name, PipeAudience::everyone, other) == kOk) ++taken;
      }
    };
    Threading& threading = native->platform().threading;
    const auto one = threading.createThread(0, crowd), two = threading.createThread(0, crowd);
    const auto letGo = [&] {
      size_t available = 0;
      if (server->peek(available) != kErrorBadPipe) {
        EXPECT_EQ(server->renew(), kOk);
      }
      server->wait(PipeEvent::readable, 10);
    };
    for (const int64_t end = clock.monotonicMs() + milliseconds; clock.monotonicMs() < end; letGo())
      server->wait(PipeEvent::readable, 10);
    over = true;
    one->join(kInfinite);
    two->join(kInfinite);
    for (int i = 0; i < 30; ++i) letGo();
  };
  crowdFor(200);
  const int64_t handles = tests::figuresOf(::GetCurrentProcessId()).handles;
  crowdFor(2000);
  EXPECT_GT(connected, 50);
  EXPECT_EQ(absent, 0);
  EXPECT_EQ(taken, 0);
  EXPECT_EQ(tests::figuresOf(::GetCurrentProcessId()).handles, handles);
  EXPECT_EQ(instances(), 1u);
}

TEST_F(WinPipes, AnInterruptEndsAWaitWhoeverIsThere) {
  serve();
  const auto served = connect(kNobody, 'n'), waits = connect(kSomebody, 's');
  server->interrupt();
  const int64_t begun = clock.monotonicMs();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(server->wait(PipeEvent::readable, kLongMs), PipeWait::interrupted);
    size_t available = 0;
    static_cast<void>(server->peek(available));
    EXPECT_EQ(server->renew(), kOk);
  }
  EXPECT_LT(clock.monotonicMs() - begun, int64_t{kLongMs} / 2);
}

TEST_F(WinPipes, TheSystemNamesTheAccountOfAClient) {
  const std::wstring full = L"\\\\.\\pipe\\" + wide(name);
  const FileHandle end(
      ::CreateNamedPipeW(full.c_str(), PIPE_ACCESS_DUPLEX, PIPE_NOWAIT, 1, 100, 100, 0, nullptr));
  EXPECT_EQ(accountOfClientsProcess(end.get()).sid, "") << "there is none";
  const FileHandle client(::CreateFileW(full.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                        OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(client);
  const ClientAccount own = accountOfClientsProcess(end.get());
  KernelObject token;
  alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.receive()));
  ASSERT_TRUE(::GetTokenInformation(token.get(), TokenUser, user, sizeof user, &size));
  std::string sid = own.sid;
  ASSERT_NE(sid, "");
  EXPECT_TRUE(::EqualSid(sid.data(), reinterpret_cast<TOKEN_USER*>(user)->User.Sid));
  DWORD moved = 0;
  char byte;
  ASSERT_TRUE(::WriteFile(client.get(), "x", 1, &moved, nullptr));
  ASSERT_TRUE(::ReadFile(end.get(), &byte, 1, &moved, nullptr));
  EXPECT_EQ(own.administrator, clientIsAdministrator(end.get()));
}

}  // namespace
}  // namespace korvane::platform
