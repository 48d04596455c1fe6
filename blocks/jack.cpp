// jack CLIENT [SERVER [PORT ...]]: a source or a sink on a JACK server (or PipeWire's).
//
// Created first it is a source, created last a sink; the link's channels become ports CLIENT:in_1,
// ... or CLIENT:out_1, ..., which stand from the link's making to its end. When the route starts,
// each is joined to its PORT: an exact name, else the first that matches as a regular expression
// (with "." for a blank), "-" for none. Without any PORT they are joined to the sound card's.
#include "common/DeviceBlock.h"
#include "common/DoneWithin.h"
#include "common/Log.h"

#include <jack/jack.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/jack";
constexpr unsigned int MAX_CHANNELS = 64;

struct FreePorts {
  void operator()(const char** names) const { jack_free(names); }
};
using PortNames = std::unique_ptr<const char*[], FreePorts>;

// Ports of clients in one process may share a buffer. The server takes care that one writes before
// the other reads, in a way that a race detector does not see.
#define SERVERS_MEMORY __attribute__((no_sanitize("thread")))

/// Samples `first` to `first + n` of separate buffers, side by side, and the way back.
SERVERS_MEMORY void Interleave(float* const* from, std::size_t channels, std::size_t first,
                               std::size_t n, float* to) {
  for (std::size_t i = first; i < first + n; ++i)
    for (std::size_t c = 0; c < channels; ++c)
      *to++ = from[c][i];
}
SERVERS_MEMORY void Separate(const float* from, float* const* to, std::size_t channels,
                             std::size_t first, std::size_t n) {
  for (std::size_t i = first; i < first + n; ++i)
    for (std::size_t c = 0; c < channels; ++c)
      to[c][i] = *from++;
}
SERVERS_MEMORY void Silence(float* const* to, std::size_t channels, std::size_t first,
                            std::size_t end) {
  for (std::size_t c = 0; c < channels; ++c)
    for (std::size_t i = first; i < end; ++i)
      to[c][i] = 0;
}

/// What a client's callbacks work with. Lives until the client is closed.
struct Callbacks {
  Callbacks(std::shared_ptr<DeviceQueue> q, bool captures)
      : queue(std::move(q)), isSource(captures) {}

  const std::shared_ptr<DeviceQueue> queue;
  const bool isSource;
  // Constant while the client is active, and then the callback's.
  std::vector<jack_port_t*> ports;
  std::vector<float*> buffers;

  /// The server's real-time thread. [real-time safe]
  static int Process(jack_nframes_t count, void* arg) {
    Callbacks& self = *static_cast<Callbacks*>(arg);
    std::vector<float*>& buffer = self.buffers;
    const std::size_t channels = buffer.size();
    for (std::size_t c = 0; c < channels; ++c)
      buffer[c] = static_cast<float*>(jack_port_get_buffer(self.ports[c], count));
    if (self.isSource) {
      self.queue->Capture(count, [&](float* to, std::size_t first, std::size_t n) {
        Interleave(buffer.data(), channels, first, n, to);
      });
      return 0;
    }
    const std::size_t played =
        self.queue->Deliver(count, [&](const float* from, std::size_t first, std::size_t n) {
          Separate(from, buffer.data(), channels, first, n);
        });
    Silence(buffer.data(), channels, played, count);
    return 0;
  }
};

std::atomic<int> clientsLeft = 0;  // which cannot be closed; the library's lock is held meanwhile

class Jack final : public DeviceBlock {
 public:
  Jack(bool first, bool last, jack_client_t* opened, std::vector<std::string> portWords)
      : DeviceBlock(LOG_TAG, first, last), client(opened), words(std::move(portWords)) {
    jack_set_process_callback(client, &Callbacks::Process, callbacks.get());
    jack_on_shutdown(
        client, [](void* self) { static_cast<Callbacks*>(self)->queue->SetGone(); },
        callbacks.get());
    parameters.Add({3, "rate", "Hz", 0, 1e6, 0, [this] { return Rate(); }, {}});
    parameters.Add({4, "connections", "-", 0, 0, 0, {}, {}, [this] { return Connections(); }});
  }

  // The callbacks may run until the client is closed. That waits for a server that is stopped but
  // not dead, and was seen to take for ever on a busy machine.
  ~Jack() override {
    const auto close = [opened = client, kept = callbacks] { jack_client_close(opened); };
    if (!DoneWithin(std::chrono::seconds(10), close, clientsLeft))
      LOG_E("%s does not let go of its client, which is left behind", DeviceName().c_str());
  }

 protected:
  /// The ports stand as long as the link, so that connections made by others survive a stop.
  int CheckStream() override {
    ClosePorts();
    if (queue->Gone()) return Refuse(__func__, DeviceName() + " is gone: create the block again");
    if (Stream().rate != static_cast<unsigned int>(Rate()))
      return Refuse(__func__, DeviceName() + " runs at " + std::to_string(int(Rate())) +
                                  " Hz, the link at " + std::to_string(Stream().rate));
    if (Stream().channels > MAX_CHANNELS || words.size() > Stream().channels)
      return Refuse(__func__, "the link has " + std::to_string(Stream().channels) +
                                  " channels; there may be " + std::to_string(MAX_CHANNELS) +
                                  ", and " + std::to_string(words.size()) + " PORTs were given");
    for (unsigned int i = 1; i <= Stream().channels; ++i) {
      const std::string port = (IsSource() ? "in_" : "out_") + std::to_string(i);
      jack_port_t* const made =
          jack_port_register(client, port.c_str(), JACK_DEFAULT_AUDIO_TYPE,
                             IsSource() ? JackPortIsInput : JackPortIsOutput, 0);
      if (!made) return ClosePorts(), Refuse(__func__, "port " + port + " cannot be registered");
      ports.push_back(made);
    }
    callbacks->buffers.resize(ports.size());
    active = jack_activate(client) == 0;
    return active ? 0 : (ClosePorts(), Refuse(__func__, DeviceName() + " cannot be activated"));
  }

  void OnInEpUnlinked(std::size_t index) override {
    DeviceBlock::OnInEpUnlinked(index);
    ClosePorts();
  }
  void OnOutEpUnlinked(std::size_t index) override {
    DeviceBlock::OnOutEpUnlinked(index);
    ClosePorts();
  }

  int Open() override {
    if (words.empty()) {
      const PortNames cards = Find(nullptr, JackPortIsPhysical);
      for (std::size_t i = 0; cards && cards[i] && i < ports.size(); ++i)
        Connect(ports[i], cards[i]);
      return 0;
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
      if (words[i] == "-") continue;
      const PortNames matching =
          jack_port_by_name(client, words[i].c_str()) ? nullptr : Find(words[i].c_str(), 0);
      const char* const other = matching ? matching[0] : words[i].c_str();
      if (!Connect(ports[i], other))
        return Refuse(__func__,
                      "cannot connect " + std::string(jack_port_name(ports[i])) + " with " + other);
    }
    return 0;
  }

  void Close() override {}

  std::string DeviceName() const override { return "the JACK server"; }

 private:
  double Rate() const { return jack_get_sample_rate(client); }

  PortNames Find(const char* pattern, unsigned long flags) const {
    return PortNames(jack_get_ports(client, pattern, JACK_DEFAULT_AUDIO_TYPE,
                                    flags | (IsSource() ? JackPortIsOutput : JackPortIsInput)));
  }

  bool Connect(jack_port_t* own, const char* other) const {
    const char* const ownName = jack_port_name(own);
    const int ret =
        IsSource() ? jack_connect(client, other, ownName) : jack_connect(client, ownName, other);
    return ret == 0 || ret == EEXIST;
  }

  std::vector<std::string> Connections() const {
    std::vector<std::string> lines;
    for (jack_port_t* port : ports) {
      std::string line = jack_port_name(port);
      const PortNames others(jack_port_get_connections(port));
      for (std::size_t i = 0; others && others[i]; ++i)
        line += std::string(" ") + others[i];
      lines.push_back(line);
    }
    return lines;
  }

  void ClosePorts() {
    if (active) jack_deactivate(client);
    active = false;
    for (jack_port_t* port : ports)
      jack_port_unregister(client, port);
    ports.clear();
  }

  jack_client_t* const client;
  const std::vector<std::string> words;
  bool active = false;
  const std::shared_ptr<Callbacks> callbacks = std::make_shared<Callbacks>(queue, IsSource());
  std::vector<jack_port_t*>& ports = callbacks->ports;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (!IsSourceOrSink(LOG_TAG, first, last)) return nullptr;
  const std::string server = args.size() > 1 ? args[1] : "-";
  if (args.empty() || args[0].empty() || server.empty() ||
      args[0].size() >= static_cast<std::size_t>(jack_client_name_size())) {
    LOG_E("jack takes CLIENT, then SERVER (- for the usual one) and PORTs; got %zu words",
          args.size());
    return nullptr;
  }
  if (clientsLeft > 0) {
    LOG_E("%s: the JACK library still closes another client", args[0].c_str());
    return nullptr;
  }
  jack_status_t status = {};
  jack_client_t* const client(
      server == "-"
          ? jack_client_open(args[0].c_str(), JackNoStartServer, &status)
          : jack_client_open(args[0].c_str(),
                             static_cast<jack_options_t>(JackNoStartServer | JackServerName),
                             &status, server.c_str()));
  if (!client) {
    LOG_E("%s: JACK server %s cannot be reached (status 0x%x)", args[0].c_str(),
          server == "-" ? "" : server.c_str(), static_cast<unsigned int>(status));
    return nullptr;
  }
  std::vector<std::string> ports(args.begin() + std::min<std::ptrdiff_t>(2, std::ssize(args)),
                                 args.end());
  return new Jack(first, last, client, std::move(ports));
}
