#include "common/StockBlock.h"

#include <vantrel.h>

namespace zelk::blocks {
namespace {

void PutRight(FrameBuffer& fb, const FrameBuffer& linked) {
  fb.rate = linked.rate;
  fb.format = linked.format;
  fb.channels = linked.channels;
}

}  // namespace

StockBlock::StockBlock(const char* logTag, bool first, bool last, std::size_t inputCount,
                       std::size_t outputCount)
    : Block(first, last), end(*this), tag(logTag), inputs(inputCount), outputs(outputCount) {}

int StockBlock::OnInEpLinked(std::size_t index) {
  end.Linked(index);
  linkedIn[index] = *inEps[index].FB();
  end.Agree(inEps[index]);
  const int ret = CheckLink(__func__, *inEps[index].FB(), index, inputs);
  return ret < 0 ? ret : CheckInput(index);
}

int StockBlock::OnOutEpLinked(std::size_t index) {
  linkedOut[index] = *outEps[index].FB();
  end.Agree(outEps[index]);
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

FrameBuffer StockBlock::Frame(std::size_t index) {
  PutRight(*inEps[index].FB(), linkedIn[index]);
  FrameBuffer fb = In(index);
  fb.validSamples = Available(index);
  return fb;
}

long StockBlock::Room(std::size_t index) {
  PutRight(Out(index), linkedOut[index]);
  return Out(index).samplesPerFrame = linkedOut[index].samplesPerFrame;
}

bool StockBlock::MakeRoom(long samples, std::size_t index) {
  if (samples <= Room(index)) return true;
  outEps[index].Resize(samples);
  if (Out(index).samplesPerFrame == samples) {
    linkedOut[index].samplesPerFrame = samples;
    return true;
  }
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
