// audio DEVICE [LATENCY_MS]: a source or a sink on a sound card, through PortAudio.
//
// Created first it is a source, created last a sink. DEVICE is a number from parameter 3, a name
// (with "_" for its blanks), or "default". The samples travel as float, whatever the link's format,
// by callback: PortAudio's blocking calls overrun their buffers with some back ends.
#include "common/Arguments.h"
#include "common/DeviceBlock.h"
#include "common/Log.h"

#include <portaudio.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>

namespace {

using namespace zelk;
using namespace zelk::blocks;

constexpr char LOG_TAG[] = "blocks/audio";
constexpr double MAX_LATENCY_MS = 10'000;

/// PortAudio counts its users, but not from several threads. It also ends the whole process when it
/// is to terminate after its JACK server has died: with JACK among its back ends it stays for good,
/// and so does this plug-in (it is linked that way). Otherwise a later block sees new devices.
class Library {
 public:
  Library() : error((std::lock_guard(Mutex()), Pa_Initialize())) {}
  Library(const Library&) = delete;
  ~Library() {
    std::lock_guard lock(Mutex());
    if (error == paNoError && Pa_HostApiTypeIdToHostApiIndex(paJACK) < 0) Pa_Terminate();
  }
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
  const PaError error;
};

std::string WithoutBlanks(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

int Channels(const PaDeviceInfo& device, bool source) {
  return source ? device.maxInputChannels : device.maxOutputChannels;
}

std::string FullName(const PaDeviceInfo& device) {
  const PaHostApiInfo* const api = Pa_GetHostApiInfo(device.hostApi);
  return WithoutBlanks((api ? std::string(api->name) + ':' : std::string()) + device.name);
}

/// "index api:name inputs outputs rate" of every device.
std::vector<std::string> Devices() {
  std::vector<std::string> lines;
  for (PaDeviceIndex i = 0; i < Pa_GetDeviceCount(); ++i) {
    const PaDeviceInfo& device = *Pa_GetDeviceInfo(i);
    lines.push_back(std::to_string(i) + ' ' + FullName(device) + ' ' +
                    std::to_string(device.maxInputChannels) + ' ' +
                    std::to_string(device.maxOutputChannels) + ' ' +
                    FormatNumber(device.defaultSampleRate));
  }
  return lines;
}

std::optional<PaDeviceIndex> FindDevice(const std::string& word, bool source) {
  if (word == "default") {
    const PaDeviceIndex found = source ? Pa_GetDefaultInputDevice() : Pa_GetDefaultOutputDevice();
    return found == paNoDevice ? std::nullopt : std::optional(found);
  }
  for (PaDeviceIndex i = 0; i < Pa_GetDeviceCount(); ++i) {
    const PaDeviceInfo& device = *Pa_GetDeviceInfo(i);
    if (Channels(device, source) < 1) continue;
    const std::string wanted = WithoutBlanks(word);
    if (word == std::to_string(i) || wanted == WithoutBlanks(device.name) ||
        wanted == FullName(device))
      return i;
  }
  return std::nullopt;
}

/// What a stream's callbacks work with. Outlives the block if the stream cannot be closed.
struct Callbacks {
  Callbacks(std::shared_ptr<DeviceQueue> q, std::size_t n) : queue(std::move(q)), channels(n) {}

  const std::shared_ptr<DeviceQueue> queue;
  const std::size_t channels;
  PaStream* pa = nullptr;
  std::atomic<bool> closing = false;

  /// The device's real-time thread. [real-time safe]
  static int Capture(const void* input, void*, unsigned long count, const PaStreamCallbackTimeInfo*,
                     PaStreamCallbackFlags, void* arg) {
    Callbacks& self = *static_cast<Callbacks*>(arg);
    const float* const samples = static_cast<const float*>(input);
    self.queue->Capture(count, [&](float* to, std::size_t first, std::size_t n) {
      std::copy_n(samples + first * self.channels, n * self.channels, to);
    });
    return paContinue;
  }

  /// Likewise.
  static int Play(const void*, void* output, unsigned long count, const PaStreamCallbackTimeInfo*,
                  PaStreamCallbackFlags, void* arg) {
    Callbacks& self = *static_cast<Callbacks*>(arg);
    float* const samples = static_cast<float*>(output);
    const std::size_t played =
        self.queue->Deliver(count, [&](const float* from, std::size_t first, std::size_t n) {
          std::copy_n(from, n * self.channels, samples + first * self.channels);
        });
    std::fill(samples + played * self.channels, samples + count * self.channels, 0.0F);
    return paContinue;
  }

  /// The stream ended: by itself unless the block ends it.
  static void Finished(void* arg) {
    Callbacks& self = *static_cast<Callbacks*>(arg);
    if (!self.closing) self.queue->SetGone();
  }
};

class Audio final : public DeviceBlock {
 public:
  Audio(bool first, bool last, std::unique_ptr<Library> opened, PaDeviceIndex index,
        double latencyMs)
      : DeviceBlock(LOG_TAG, first, last), library(std::move(opened)), device(index) {
    latencySeconds = latencyMs / 1000;
    parameters.Add({3, "devices", "-", 0, 0, 0, {}, {}, &Devices});
    parameters.Add({4,
                    "latency",
                    "ms",
                    0,
                    MAX_LATENCY_MS,
                    latencyMs,
                    [this] { return latencySeconds * 1000; },
                    {}});
  }

  ~Audio() override { Close(); }

 protected:
  int CheckStream() override {
    const PaStreamParameters p = Wanted();
    const PaError error = p.channelCount > Channels(*Pa_GetDeviceInfo(device), IsSource())
                              ? static_cast<PaError>(paInvalidChannelCount)
                              : Pa_IsFormatSupported(IsSource() ? &p : nullptr,
                                                     IsSource() ? nullptr : &p, Stream().rate);
    if (error == paFormatIsSupported) return 0;
    return Refuse(__func__, DeviceName() + ' ' + (IsSource() ? "records " : "plays ") +
                                std::to_string(Channels(*Pa_GetDeviceInfo(device), IsSource())) +
                                " channels at most and not " + std::to_string(Stream().rate) +
                                " Hz with " + std::to_string(Stream().channels) +
                                " channels: " + Pa_GetErrorText(error));
  }

  int Open() override {
    std::lock_guard lock(Library::Mutex());
    const PaStreamParameters p = Wanted();
    auto opening = std::make_unique<Callbacks>(queue, Stream().channels);
    PaError error =
        Pa_OpenStream(&opening->pa, IsSource() ? &p : nullptr, IsSource() ? nullptr : &p,
                      Stream().rate, paFramesPerBufferUnspecified, paClipOff,
                      IsSource() ? &Callbacks::Capture : &Callbacks::Play, opening.get());
    if (error == paNoError) {
      Pa_SetStreamFinishedCallback(opening->pa, &Callbacks::Finished);
      error = Pa_StartStream(opening->pa);
      if (error != paNoError) Pa_CloseStream(opening->pa);
    }
    if (error != paNoError)
      return Refuse(__func__, DeviceName() + " cannot be opened: " + Pa_GetErrorText(error));
    callbacks = std::move(opening);
    return 0;
  }

  void Close() override {
    if (!callbacks) return;
    std::lock_guard lock(Library::Mutex());
    callbacks->closing = true;
    if (queue->Gone() || Stalled()) {
      // PortAudio would wait for ten minutes, so the stream is left behind, and what it may call.
      queue->SetGone();
      static_cast<void>(callbacks.release());
      return;
    }
    Pa_StopStream(callbacks->pa);
    Pa_CloseStream(callbacks->pa);
    callbacks.reset();
  }

  bool Alive() override { return Pa_IsStreamActive(callbacks->pa) == 1; }

  std::string DeviceName() const override { return Pa_GetDeviceInfo(device)->name; }

 private:
  PaStreamParameters Wanted() const {
    const PaDeviceInfo& info = *Pa_GetDeviceInfo(device);
    const PaTime latency = latencySeconds > 0 ? latencySeconds
                           : IsSource()       ? info.defaultHighInputLatency
                                              : info.defaultHighOutputLatency;
    const int channels = static_cast<int>(std::min(Stream().channels, 1U << 16));
    return {device, channels, paFloat32, latency, nullptr};
  }

  const std::unique_ptr<Library> library;
  const PaDeviceIndex device;
  std::unique_ptr<Callbacks> callbacks;  // while a stream is open
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  if (!IsSourceOrSink(LOG_TAG, first, last)) return nullptr;
  const auto latency = args.size() < 2 ? 0 : ParseNumber(args[1], 0, MAX_LATENCY_MS);
  if (args.empty() || args.size() > 2 || !latency) {
    LOG_E("audio takes DEVICE, then LATENCY_MS from 0 to %g; got %zu words%s%s", MAX_LATENCY_MS,
          args.size(), args.empty() ? "" : ", last ", args.empty() ? "" : args.back().c_str());
    return nullptr;
  }
  auto library = std::make_unique<Library>();
  if (library->error != paNoError) {
    LOG_E("PortAudio cannot begin: %s", Pa_GetErrorText(library->error));
    return nullptr;
  }
  const auto device = FindDevice(args[0], first);
  if (!device) {
    std::string known;
    for (const auto& line : Devices())
      known += "; " + line;
    LOG_E("no device %s that can %s%s", args[0].c_str(), first ? "record" : "play", known.c_str());
    return nullptr;
  }
  return new Audio(first, last, std::move(library), *device, *latency);
}
