#include "common/StockBlock.h"

#include <vantrel.h>

#include <algorithm>

namespace zelk::blocks {

StockBlock::StockBlock(const char* logTag, bool first, bool last, std::size_t inputCount,
                       std::size_t outputCount)
    : Block(first, last), end(*this), tag(logTag), inputs(inputCount), outputs(outputCount) {}

int StockBlock::OnInEpLinked(std::size_t index) {
  end.Linked(index);
  linkedIn[index] = *inEps[index].FB();
  const int ret = CheckLink(__func__, *inEps[index].FB(), index, inputs);
  return ret < 0 ? ret : CheckInput(index);
}

int StockBlock::OnOutEpLinked(std::size_t index) {
  linkedOut[index] = *outEps[index].FB();
  const int ret = CheckLink(__func__, *outEps[index].FB(), index, outputs);
  return ret < 0 ? ret : CheckOutput(index);
}

int StockBlock::Start() {
  end.Start();
  return 0;
}

int StockBlock::SetParameter(unsigned int paramId, const std::vector<std::string>& words) {
  std::string error;
  const int ret = parameters.Set(paramId, words, error);
  if (ret < 0) Refuse(__func__, error);
  return ret;
}

int StockBlock::GetParameter(unsigned int paramId, std::vector<std::string>& words) {
  std::string error;
  const int ret = parameters.Get(paramId, words, error);
  if (ret < 0) Refuse(__func__, error);
  return ret;
}

int StockBlock::Refuse(const char* function, const std::string& why) const {
  vantrel_print(0, 0, 0, 'E', tag, __LINE__, function, nullptr, "%s: %s: %s", routeName.c_str(),
                name.c_str(), why.c_str());
  return -20;
}

FrameBuffer StockBlock::Frame(std::size_t index) const {
  FrameBuffer fb = In(index);
  fb.rate = linkedIn[index].rate;
  fb.format = linkedIn[index].format;
  fb.channels = linkedIn[index].channels;
  fb.validSamples = std::clamp(fb.validSamples, 0L, std::max(0L, fb.samplesPerFrame));
  return fb;
}

bool StockBlock::MakeRoom(long samples, std::size_t index) {
  Out(index).rate = linkedOut[index].rate;
  Out(index).format = linkedOut[index].format;
  Out(index).channels = linkedOut[index].channels;
  if (samples > Out(index).samplesPerFrame) outEps[index].Resize(samples);
  if (samples <= Out(index).samplesPerFrame) return true;
  Refuse(__func__,
         "no room for " + std::to_string(samples) + " samples in output " + std::to_string(index));
  return false;
}

int StockBlock::CheckAlike(const char* function, Likeness likeness) const {
  const FrameBuffer* one = nullptr;
  const FrameBuffer* odd = nullptr;
  const auto compare = [&](const FrameBuffer& fb) {
    if (!one) one = &fb;
    if (((likeness & SAME_RATE) && fb.rate != one->rate) ||
        ((likeness & SAME_CHANNELS) && fb.channels != one->channels))
      odd = &fb;
  };
  for (const auto& [index, ep] : ActiveInEps())
    compare(linkedIn[index]);
  for (const auto& [index, ep] : ActiveOutEps())
    compare(linkedOut[index]);
  if (!odd) return 0;
  static constexpr const char* WHAT[] = {"", "rates", "channels", "rate and channels"};
  return Refuse(function, "linked with " + Describe(*one) + " and with " + Describe(*odd) + ": " +
                              WHAT[likeness] + " must be the same");
}

int StockBlock::CheckLink(const char* function, const FrameBuffer& fb, std::size_t index,
                          std::size_t ports) {
  if (index >= ports)
    return Refuse(function, "port " + std::to_string(index) + " does not exist, there are " +
                                std::to_string(ports));
  if (BytesPerSample(fb.format) == 0 || fb.channels == 0 || fb.rate == 0 || fb.samplesPerFrame < 1)
    return Refuse(function, "a link of " + Describe(fb) + ", " +
                                std::to_string(fb.samplesPerFrame) +
                                " samples per frame, carries no audio");
  return 0;
}

std::string Describe(const FrameBuffer& fb) {
  return std::to_string(fb.rate) + " Hz " + FormatToString(fb.format) + ' ' +
         std::to_string(fb.channels) + (fb.channels == 1 ? " channel" : " channels");
}

}  // namespace zelk::blocks
