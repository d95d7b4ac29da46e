// Clients in processes of their own, and the agent in this one.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/integration/client_with_agent.hpp"

namespace zal::test {
namespace {

/// The words that stand before a program in a cross build.
std::vector<std::string> emulator() {
  const char* words = std::getenv("ZAL_EMULATOR");
  std::istringstream in{words == nullptr ? "" : words};
  return {std::istream_iterator<std::string>{in}, {}};
}

/// A running integration_client; its standard input is a pipe, whose end tells it to stop.
class ClientProcess {
 public:
  ClientProcess(std::string url, std::string service) {
    std::vector<std::string> words = emulator();
    words.insert(words.end(), {ZAL_TEST_CLIENT_PROGRAM, std::move(url), std::move(service)});
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    EXPECT_EQ(posix_spawnp(&process_, arguments[0], &actions, nullptr, arguments.data(), environ), 0) << arguments[0];
    posix_spawn_file_actions_destroy(&actions);
    close(ends[0]);
    input_ = ends[1];
  }
  ~ClientProcess() {
    if (input_ >= 0) end();
  }
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;

  void kill() const { ::kill(process_, SIGKILL); }
  /// Ends the input and waits for the process; its wait status.
  int end() {
    close(std::exchange(input_, -1));
    int status = -1;
    waitpid(process_, &status, 0);
    return status;
  }

 private:
  pid_t process_ = -1;
  int input_ = -1;
};

/// The connection over which a service was subscribed, 0 while it was not.
int connectionOf(const StandInAgent& agent, const std::string& service) {
  int connection = 0;
  const bool isThere = agent.waitFor([&](const auto& received) {
    for (const auto& one : received)
      for (const WireRecord& record : one.image)
        if (record.code == ZAL_IPC_CMD_SUBSCRIBE && record.service == service) connection = one.connection;
    return connection != 0;
  });
  return isThere ? connection : 0;
}

TEST(ClientProcesses, AreServedSideBySideAndSurviveEachOther) {
  const TempDir dir;
  StandInAgent agent{dir.file("agent.sock")};
  agent.answerConfiguration("{}");
  ClientProcess one{agent.url(), "one"};
  ClientProcess two{agent.url(), "two"};
  const int first = connectionOf(agent, "one");
  const int second = connectionOf(agent, "two");
  ASSERT_TRUE(first != 0 && second != 0);

  const auto ask = [&](int connection, const char* service, int id) {
    EXPECT_TRUE(agent.send({requestOf("whoami", id, {}, service)}, connection));
    const auto response =
        agent.waitForRecord([&](const WireRecord& r) { return r.code == ZAL_IPC_CMD_RESPONSE && r.requestId == id; });
    return response ? dataOf(response->payload) : "(no response)";
  };
  EXPECT_THAT(ask(first, "one", 1), ::testing::StartsWith(R"({"pid":)"));
  EXPECT_NE(ask(first, "one", 2), ask(second, "two", 3));

  one.kill();
  ASSERT_TRUE(agent.waitForOpen(1));
  EXPECT_THAT(ask(second, "two", 4), ::testing::StartsWith(R"({"pid":)"));
  EXPECT_EQ(two.end(), 0);
  EXPECT_TRUE(agent.waitForOpen(0));
  EXPECT_TRUE(WIFSIGNALED(one.end()));
}

}  // namespace
}  // namespace zal::test
