#include "Link/Link.h"

#include <zelk/Block.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <new>

#include "Log.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Link";

Link::Link(const std::string& routeName_, const std::string& name_, unsigned int rate_,
           SampleFormat format_, unsigned int channels_, long samplesPerFrame_)
    : routeName(routeName_),
      name(name_),
      rate(rate_),
      format(format_),
      channels(channels_),
      samplesPerFrame(samplesPerFrame_),
      view(std::make_shared<LinkView>()) {
  view->name = name;
  view->rate = rate;
  view->format = format;
  view->channels = channels;
  view->link = this;
}

int Link::Connect(OutputEndpoint* out, InputEndpoint* in) {
  if (out == nullptr || in == nullptr) return -20;
  if (out->IsActive()) {
    LOG_E("%s: %s: %s's O%02zu has been already active", routeName.c_str(), name.c_str(),
          out->block->name.c_str(), out->index);
    return -20;
  }
  if (in->IsActive()) {
    LOG_E("%s: %s: %s's I%02zu has been already active", routeName.c_str(), name.c_str(),
          in->block->name.c_str(), in->index);
    return -20;
  }
  if (!ResizeBuffer(samplesPerFrame)) {
    LOG_E("%s: %s: Can't allocate %ld samples of %u channels of %s", routeName.c_str(),
          name.c_str(), samplesPerFrame, channels, FormatToString(format));
    return -20;
  }
  outEp = out;
  inEp = in;
  Attach(out, in);
  Describe(out, in);

  const int ret = InformBlocks(out, in);
  if (ret < 0) {
    Detach(*out);
    Detach(*in);
    outEp = nullptr;
    inEp = nullptr;
    buffer.clear();
    return ret;
  }
  LOG_I("%s: %s: Created %s(O%02zu) --> (I%02zu)%s", routeName.c_str(), name.c_str(),
        out->block->name.c_str(), out->index, in->index, in->block->name.c_str());
  return 0;
}

void Link::Attach(OutputEndpoint* out, InputEndpoint* in) {
  out->link = in->link = this;
  out->view = in->view = view.get();
  out->peer = in;
  in->peer = out;
}

void Link::Detach(Endpoint& ep) {
  // The other end must not commit to a port that is free again.
  if (ep.peer != nullptr) ep.peer->peer = nullptr;
  ep.link = nullptr;
  ep.view = nullptr;
  ep.peer = nullptr;
}

bool Link::SizeInBytes(long samples, std::size_t& bytes) const noexcept {
  constexpr std::size_t limit = std::numeric_limits<std::ptrdiff_t>::max();
  if (samples < 0) return false;
  const std::size_t frame = channels * BytesPerSample(format);  // at most 2^32 × 4
  const auto count = static_cast<std::size_t>(samples);
  if (frame != 0 && count > limit / frame) return false;
  bytes = count * frame;
  return true;
}

bool Link::ResizeBuffer(long samples) {
  std::size_t bytes = 0;
  if (!SizeInBytes(samples, bytes)) return false;
  try {
    buffer.resize(bytes);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void Link::Describe(OutputEndpoint* out, InputEndpoint* in) {
  out->fb.data = buffer.data();
  out->fb.format = format;
  out->fb.channels = channels;
  out->fb.samplesPerFrame = samplesPerFrame;
  out->fb.validSamples = 0;
  out->fb.rate = rate;
  out->fb.timestamp = -1;
  in->fb = out->fb;

  view->outIndex = out->index;
  view->inIndex = in->index;
  view->sinkName = in->block->name;
  view->sinkIsLast = in->block->isLast;
  Publish();
}

int Link::InformBlocks(OutputEndpoint* out, InputEndpoint* in) {
  // The records of a refusal belong to Connect.
  int ret = out->block->BaseOnOutEpLinked(out->index);
  if (ret < 0) {
    ZELK_LOG_AS('E', "Connect", "%s: %s: Failed to link to %s's O%02zu", routeName.c_str(),
                name.c_str(), out->block->name.c_str(), out->index);
    return ret;
  }
  ret = in->block->BaseOnInEpLinked(in->index);
  if (ret < 0) {
    ZELK_LOG_AS('E', "Connect", "%s: %s: Failed to link to %s's I%02zu", routeName.c_str(),
                name.c_str(), in->block->name.c_str(), in->index);
    out->block->BaseOnOutEpUnlinked(out->index);
    return ret;
  }
  return 0;
}

bool Link::Reallocate(long samples) {
  return Reallocate(samples, nullptr, 0);
}

bool Link::Reallocate(long samples, const void* src, std::size_t bytes) {
  std::size_t size = buffer.size();
  if (samples != samplesPerFrame && !SizeInBytes(samples, size)) size = buffer.max_size() + 1;
  const bool grows = size > buffer.size();
  if (grows) {
    try {
      if (src != nullptr && BytesInside(static_cast<const unsigned char*>(src), 1) != 0) {
        // The source moves along with the buffer.
        const auto offset = static_cast<const unsigned char*>(src) - buffer.data();
        buffer.reserve(size);
        src = buffer.data() + offset;
      } else {
        buffer.reserve(size);
      }
    } catch (const std::exception&) {
      LOG_E("%s: %s: Can't allocate %ld samples of %u channels of %s", routeName.c_str(),
            name.c_str(), samples, channels, FormatToString(format));
      return false;
    }
  }
  // A source inside the buffer is moved while all of it is still there.
  const std::size_t inside =
      src == nullptr ? 0 : BytesInside(static_cast<const unsigned char*>(src), bytes);
  if (inside != 0) std::memmove(buffer.data(), src, std::min({inside, bytes, buffer.size()}));
  if (samples != samplesPerFrame) {
    buffer.resize(size);
    samplesPerFrame = samples;
    outEp->fb.data = inEp->fb.data = buffer.data();
    outEp->fb.samplesPerFrame = inEp->fb.samplesPerFrame = samples;
  }
  if (src != nullptr && inside == 0) {
    std::memcpy(buffer.data(), src, std::min(bytes, buffer.size()));
  }
  return true;
}

std::size_t Link::SamplesInside(const FrameBuffer& fb) const noexcept {
  const std::size_t bytes = fb.channels * BytesPerSample(fb.format);
  if (bytes == 0 || fb.validSamples <= 0) return 0;
  return std::min(static_cast<std::size_t>(fb.validSamples),
                  BytesInside(fb.data, buffer.size()) / bytes);
}

std::size_t Link::BytesInside(const unsigned char* data, std::size_t wanted) const noexcept {
  // std::less orders pointers that do not belong together.
  const std::less<const unsigned char*> before;
  const unsigned char* begin = buffer.data();
  const unsigned char* end = begin + buffer.size();
  if (before(data, begin) || !before(data, end)) return 0;
  return std::min(wanted, static_cast<std::size_t>(end - data));
}

void Link::Publish() noexcept {
  view->Publish(outEp->fb, inEp->fb);
}

void Link::Disconnect() {
  if (outEp != nullptr) {
    outEp->block->BaseOnOutEpUnlinked(outEp->index);
    Detach(*outEp);
    outEp = nullptr;
  }
  if (inEp != nullptr) {
    inEp->block->BaseOnInEpUnlinked(inEp->index);
    Detach(*inEp);
    inEp = nullptr;
  }
  buffer.clear();
}

Link::~Link() {
  Disconnect();
  LOG_I("%s: %s: Deleted", routeName.c_str(), name.c_str());
}

}  // namespace zelk
