#include "Watched.h"

#include "Report.h"

namespace validate {

using zelk::FrameBuffer;

Watched::Watched(const zelk::Block& block) {
  for (const auto& [index, endpoint] : block.ActiveInEps())
    ports.push_back({endpoint, false, *endpoint->FB(), 0});
  for (const auto& [index, endpoint] : block.ActiveOutEps())
    ports.push_back({endpoint, true, *endpoint->FB(), Digest(*endpoint)});
}

std::uint64_t Watched::Digest(const zelk::Endpoint& endpoint) {
  const FrameBuffer& fb = *endpoint.FB();
  const auto bytes = static_cast<std::size_t>(endpoint.Available()) * fb.channels *
                     zelk::BytesPerSample(fb.format);
  std::uint64_t hash = 14695981039346656037U;  // FNV-1a
  for (std::size_t i = 0; i < bytes; ++i)
    hash = (hash ^ fb.data[i]) * 1099511628211U;
  return hash;
}

void Watched::Judge(const std::string& call) const {
  for (const Port& port : ports)
    JudgePort(port, call);
}

void Watched::JudgePort(const Port& port, const std::string& call) {
  const FrameBuffer& now = *port.endpoint->FB();
  const FrameBuffer& then = port.before;
  const std::string where = (port.output ? "output " : "input ") +
                            std::to_string(port.endpoint->Index()) + " after " + call + ": ";
  if (now.format != then.format || now.channels != then.channels || now.rate != then.rate)
    Report::Fault(where + "format, channels or rate is another; these fields are the link's");
  if (!port.output && (now.data != then.data || now.samplesPerFrame != then.samplesPerFrame))
    Report::Fault(where + "data or samplesPerFrame is another; these fields are the link's");
  if (port.output && now.data == then.data && now.samplesPerFrame < 0)
    Report::Fault(where + "samplesPerFrame is negative");
  if (now.validSamples < 0)
    Report::Fault(where + "validSamples is " + std::to_string(now.validSamples));
  if (!port.output && now.validSamples != 0 && now.validSamples != then.validSamples)
    Report::Fault(where + "validSamples went from " + std::to_string(then.validSamples) + " to " +
                  std::to_string(now.validSamples) + "; a frame is taken as a whole");
  if (!port.output) return;
  const bool sized = now.channels != 0 && zelk::BytesPerSample(now.format) != 0;
  if (sized && now.validSamples > port.endpoint->Available())
    Report::Fault(where + "claims " + std::to_string(now.validSamples) +
                  " samples; the link's buffer holds " +
                  std::to_string(port.endpoint->Available()) + ". Call Resize() for more");
  if (then.validSamples == 0) return;
  if (now.validSamples != then.validSamples || Digest(*port.endpoint) != port.bytes)
    Report::Fault(where + "its frame is another, and the one before had not been taken");
}

int Watched::Taken() const {
  int taken = 0;
  for (const Port& port : ports)
    taken +=
        !port.output && port.before.validSamples != 0 && port.endpoint->FB()->validSamples == 0;
  return taken;
}

}  // namespace validate
