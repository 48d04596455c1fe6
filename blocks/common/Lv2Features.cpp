#include "common/Lv2Features.h"

#include <lv2/atom/atom.h>
#include <lv2/parameters/parameters.h>

#include <cstring>

namespace zelk::blocks {

LV2_URID Urids::Map(const char* uri) {
  std::lock_guard lock(mutex);
  const auto [entry, added] = numbers.try_emplace(uri, static_cast<LV2_URID>(texts.size() + 1));
  if (added) texts.push_back(&entry->first);
  return entry->second;
}

const char* Urids::Unmap(LV2_URID urid) {
  std::lock_guard lock(mutex);
  return urid == 0 || urid > texts.size() ? nullptr : texts[urid - 1]->c_str();
}

Lv2Features::Lv2Features(Urids& urids, double sampleRate, std::uint32_t longestRun)
    : longest(static_cast<std::int32_t>(longestRun)), rate(static_cast<float>(sampleRate)) {
  map = {&urids,
         [](LV2_URID_Map_Handle h, const char* uri) { return static_cast<Urids*>(h)->Map(uri); }};
  unmap = {&urids, [](LV2_URID_Unmap_Handle h, LV2_URID urid) {
             return static_cast<Urids*>(h)->Unmap(urid);
           }};
  schedule = {this, &Lv2Features::Schedule};

  const LV2_URID integer = urids.Map(LV2_ATOM__Int);
  const auto option = [&](const char* key, const std::int32_t& value) {
    return LV2_Options_Option{LV2_OPTIONS_INSTANCE, 0,       urids.Map(key),
                              sizeof(value),        integer, &value};
  };
  options = {option(LV2_BUF_SIZE__minBlockLength, shortest),
             option(LV2_BUF_SIZE__maxBlockLength, longest),
             option(LV2_BUF_SIZE__nominalBlockLength, longest),
             option(LV2_BUF_SIZE__sequenceSize, sequenceBytes),
             LV2_Options_Option{LV2_OPTIONS_INSTANCE, 0, urids.Map(LV2_PARAMETERS__sampleRate),
                                sizeof(rate), urids.Map(LV2_ATOM__Float), &rate},
             LV2_Options_Option{LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
  features = {LV2_Feature{LV2_URID__map, &map}, LV2_Feature{LV2_URID__unmap, &unmap},
              LV2_Feature{LV2_OPTIONS__options, options.data()},
              LV2_Feature{LV2_BUF_SIZE__boundedBlockLength, nullptr},
              LV2_Feature{LV2_WORKER__schedule, &schedule}};
  for (std::size_t i = 0; i < features.size(); ++i)
    list[i] = &features[i];
  list.back() = nullptr;
}

bool Lv2Features::Supports(const char* uri) {
  for (const char* known :
       {LV2_URID__map, LV2_URID__unmap, LV2_OPTIONS__options, LV2_BUF_SIZE__boundedBlockLength,
        LV2_WORKER__schedule, LV2_CORE__hardRTCapable, LV2_CORE__inPlaceBroken, LV2_CORE__isLive})
    if (std::strcmp(uri, known) == 0) return true;
  return false;
}

void Lv2Features::Created(LV2_Handle instance, const LV2_Worker_Interface* workerInterface) {
  handle = instance;
  worker = workerInterface;
}

LV2_Worker_Status Lv2Features::Schedule(LV2_Worker_Schedule_Handle self, std::uint32_t size,
                                        const void* data) {
  auto& features = *static_cast<Lv2Features*>(self);
  if (!features.worker || !features.worker->work) return LV2_WORKER_ERR_UNKNOWN;
  return features.worker->work(features.handle, &Lv2Features::Respond, &features, size, data);
}

LV2_Worker_Status Lv2Features::Respond(LV2_Worker_Respond_Handle self, std::uint32_t size,
                                       const void* data) {
  const auto* const bytes = static_cast<const std::uint8_t*>(data);
  static_cast<Lv2Features*>(self)->responses.emplace_back(bytes, bytes + (data ? size : 0));
  return LV2_WORKER_SUCCESS;
}

void Lv2Features::AfterRun() {
  if (!worker) return;
  // A response may ask for more work, which is answered after the next run.
  std::vector<std::vector<std::uint8_t>> due;
  due.swap(responses);
  for (const auto& response : due)
    if (worker->work_response)
      worker->work_response(handle, static_cast<std::uint32_t>(response.size()), response.data());
  if (worker->end_run) worker->end_run(handle);
}

}  // namespace zelk::blocks
