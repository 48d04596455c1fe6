// Console lines to the singleton of this process, over its socket. Every line of the input is one
// command. What could reach outside is turned back: SOFILE is always the fuzzing block, DUMPDIR
// "--".
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vantrel.h>
#include <zelk/Zelk.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

int Connect() {
  zelk::Zelk::Instance();
  vantrel_set_level(0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/tmp/voshsock");
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  while (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    usleep(1000);
  return fd;
}

/// False for what gets no reply.
bool Private(std::string& line) {
  line = line.substr(0, line.find('\0')).substr(0, 1000);
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  if (words.empty()) return false;
  if (words[0] == "newblock" && words.size() > 2) words[2] = "worker.so";
  if (words[0] == "setdump" && words.size() > 1) words[1] = "--";
  if (words[0] == "loglevel" && words.size() > 1) return false;
  if (words[0] == "newblock" || words[0] == "setdump") {
    line.clear();
    for (const std::string& word : words)
      line += word + " ";
  }
  return true;
}

std::string Ask(int fd, const std::string& line) {
  if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::abort();
  std::string reply;
  char piece[4096];
  while (reply.empty() || reply.back() != '\0') {
    const ssize_t got = read(fd, piece, sizeof piece);
    if (got < 0 && errno == EINTR) continue;  // libFuzzer's alarm
    if (got <= 0) std::abort();               // the console never ends a connection
    reply.append(piece, static_cast<std::size_t>(got));
  }
  if (reply.find('\0') != reply.size() - 1) std::abort();
  return reply;
}

// Says at the end how much was done.
struct Done {
  long number = 0;
  ~Done() { std::printf("%ld lines\n", number); }
} done;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int fd = Connect();
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  int commands = 0;
  for (std::string line; std::getline(lines, line) && commands < 30;) {
    if (!Private(line)) continue;
    ++commands;
    ++done.number;
    const std::string reply = Ask(fd, line);
    if (reply.size() > 1 && reply[reply.size() - 2] != '\n') std::abort();
  }
  // The next input finds an empty registry.
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    if (std::memchr(data, letter, size) != nullptr)
      Ask(fd, std::string("delete Route") + letter + " !");
  }
  return 0;
}
