// exit_cycle_host HABIT: a host with a route that ends while a client of some habit is connected.
#include <fcntl.h>
#include <sys/wait.h>
#include <vantrel.h>
#include <zelk/Zelk.h>

#include <cstdlib>

#include "support/ConsoleClient.h"

int main(int argc, char** argv) {
  const int habit = argc > 1 ? std::atoi(argv[1]) : 0;
  zelk::Route* const route = zelk::Zelk::Instance()->NewRoute("RouteA", nullptr);
  vantrel_set_level(1);
  route->NewBlock("worker.so", true, true, {"1000"});
  route->Start();
  if (habit == 4) {
    const pid_t child = fork();
    if (child == 0) std::exit(0);
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 ? 0 : 1;
  }
  if (habit == 0) return 0;
  // Never closed: it is still connected while the library ends.
  static test::ConsoleClient& client = *new test::ConsoleClient;
  if (habit == 2) client.Send("stat");
  if (habit == 3) {
    fcntl(client.Descriptor(), F_SETFL, O_NONBLOCK);
    // More replies than the socket holds.
    while (send(client.Descriptor(), "status", 6, MSG_NOSIGNAL) > 0) {
    }
  }
  return 0;
}
