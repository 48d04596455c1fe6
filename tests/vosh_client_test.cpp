// The protocol's client against servers that behave in every way they can.
#include "Client.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <future>

#include "support/FakeHost.h"

using test::FakeHost;
using vosh::Client;
using vosh::Reply;
using namespace std::chrono_literals;

namespace {

std::string SocketPath() {
  return "/tmp/vosh_client_test." + std::to_string(getpid());
}

Client Impatient() {
  return Client(200ms, -1, SocketPath());
}
Client Patient() {
  return Client(60s, -1, SocketPath());
}

// What a connection sends, up to its first read.
std::string ReadOnce(int fd) {
  char bytes[4096];
  const ssize_t got = read(fd, bytes, sizeof bytes);
  return {bytes, static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

void Write(int fd, const std::string& bytes) {
  send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

}  // namespace

TEST(Client, SendsACommandWholeAndReadsUpToTheNul) {
  std::string received;
  Reply reply;
  {
    FakeHost host(SocketPath(), [&received](int fd) {
      received = ReadOnce(fd);
      for (const char* piece : {"No ro", "ute\n", "No fifo\n"}) {
        Write(fd, piece);
        std::this_thread::sleep_for(2ms);
      }
      Write(fd, std::string("\0behind the NUL", 15));
    });
    reply = Patient().Send("setparam RouteA gain_0 1 -6");
  }
  EXPECT_EQ(Reply::ANSWERED, reply.kind);
  EXPECT_EQ("No route\nNo fifo\n", reply.text);
  EXPECT_EQ("setparam RouteA gain_0 1 -6", received);
}

TEST(Client, TakesEmptyAndLongReplies) {
  FakeHost host(SocketPath(), FakeHost::Answering([](const std::string& command) {
                  return command == "long" ? std::string(1000000, 'x') : std::string();
                }));
  EXPECT_EQ(Reply::ANSWERED, Patient().Send("getparam RouteA gain_0 7").kind);
  EXPECT_EQ(std::string(1000000, 'x'), Patient().Send("long").text);
}

TEST(Client, RefusesWhatAHostWouldCutOrNeverAnswer) {
  FakeHost host(SocketPath(),
                FakeHost::Answering([](const std::string& command) { return command; }));
  EXPECT_EQ(std::string(1023, 'a'), Patient().Send(std::string(1023, 'a')).text);
  const Reply tooLong = Patient().Send(std::string(1024, 'a'));
  EXPECT_EQ(Reply::REFUSED, tooLong.kind);
  EXPECT_EQ("The command has 1024 bytes; a host takes at most 1023", tooLong.text);
  EXPECT_EQ(Reply::REFUSED, Patient().Send(" \t\n").kind);
  EXPECT_EQ(Reply::REFUSED, Patient().Send(std::string("status\0", 7)).kind);
}

TEST(Client, TellsWhyNoHostAnswers) {
  const Reply missing = Patient().Send("status");
  EXPECT_EQ(Reply::NO_HOST, missing.kind);
  EXPECT_EQ("No host answers at " + SocketPath() +
                ": there is no such socket. Check that a process that uses zelk is running.",
            missing.text);
  const int stale = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  SocketPath().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(0, bind(stale, reinterpret_cast<sockaddr*>(&address), sizeof address));
  close(stale);
  EXPECT_NE(std::string::npos, Patient().Send("status").text.find("has ended"));
  EXPECT_FALSE(Patient().Probe());
  unlink(SocketPath().c_str());
}

TEST(Client, AHostThatHangsUpOrKeepsSilentIsNoHost) {
  {
    FakeHost host(SocketPath(), [](int) {});
    EXPECT_EQ(Reply::NO_HOST, Patient().Send("status").kind);
  }
  {
    FakeHost host(SocketPath(), [](int fd) { Write(fd, "half a rep" + ReadOnce(fd)); });
    EXPECT_NE(std::string::npos, Patient().Send("status").text.find("closed the connection"));
  }
  FakeHost host(SocketPath(), [](int fd) {
    while (!ReadOnce(fd).empty()) {
    }
  });
  const Reply silent = Impatient().Send("status");
  EXPECT_EQ(Reply::NO_HOST, silent.kind);
  EXPECT_NE(std::string::npos, silent.text.find("did not answer in time"));
}

TEST(Client, WaitsForItsTurnBehindAnotherClient) {
  std::promise<void> firstLeaves;
  std::shared_future<void> gone = firstLeaves.get_future().share();
  FakeHost host(SocketPath(), [gone, first = true](int fd) mutable {
    if (first) gone.wait();
    first = false;
    FakeHost::Answering([](const std::string&) { return "Done\n"; })(fd);
  });
  std::vector<std::future<Reply>> replies;
  for (int i = 0; i < 6; ++i) {  // more than the host's queue holds
    replies.push_back(std::async(std::launch::async, [] { return Patient().Send("setdump --"); }));
  }
  EXPECT_EQ(std::future_status::timeout, replies[0].wait_for(20ms));
  firstLeaves.set_value();
  for (auto& reply : replies)
    EXPECT_EQ("Done\n", reply.get().text);
}

TEST(Client, TheCancelDescriptorEndsAnExchangeAndASleep) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  FakeHost host(SocketPath(), [&ends](int fd) {
    ReadOnce(fd);
    close(ends[1]);
    ReadOnce(fd);
  });
  const Client client(0ms, ends[0], SocketPath());
  EXPECT_TRUE(client.Pause(1ms));
  EXPECT_EQ(Reply::CANCELLED, client.Send("start RouteA").kind);
  EXPECT_FALSE(client.Pause(24h));
  close(ends[0]);
}
