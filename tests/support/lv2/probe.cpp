// An LV2 effect that needs every feature the host claims to have. It multiplies by "gain", which
// it hears of through its worker: work computes it, the response brings it, so from the run after
// the change. "fault" makes it give NaN until it is activated again. A host that breaks its word
// gets silence.
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

struct Probe {
  void* ports[5] = {};
  const LV2_Worker_Schedule* schedule = nullptr;
  LV2_URID sequence = 0;
  std::uint32_t longest = 0;
  bool optionsFit = false;
  float asked = 1;
  float gain = 1;
  bool broken = false;

  template <class T>
  T* Port(int index) const {
    return static_cast<T*>(ports[index]);
  }
};

template <class T>
const T* Feature(const LV2_Feature* const* features, const char* uri) {
  for (; *features; ++features)
    if (std::strcmp((*features)->URI, uri) == 0) return static_cast<const T*>((*features)->data);
  return nullptr;
}

LV2_Handle Instantiate(const LV2_Descriptor*, double rate, const char*,
                       const LV2_Feature* const* features) {
  const auto* map = Feature<LV2_URID_Map>(features, LV2_URID__map);
  const auto* unmap = Feature<LV2_URID_Unmap>(features, LV2_URID__unmap);
  const auto* option = Feature<LV2_Options_Option>(features, LV2_OPTIONS__options);
  const auto* schedule = Feature<LV2_Worker_Schedule>(features, LV2_WORKER__schedule);
  if (!map || !unmap || !option || !schedule) return nullptr;
  const auto number = [&](const char* uri) { return map->map(map->handle, uri); };
  if (std::strcmp(unmap->unmap(unmap->handle, number("urn:zelk:x")), "urn:zelk:x") != 0)
    return nullptr;
  auto* probe = new Probe;
  probe->schedule = schedule;
  probe->sequence = number(LV2_ATOM__Sequence);
  for (; option->key; ++option) {
    if (option->key == number(LV2_BUF_SIZE__maxBlockLength))
      probe->longest = *static_cast<const std::uint32_t*>(option->value);
    if (option->key == number(LV2_PARAMETERS__sampleRate))
      probe->optionsFit = *static_cast<const float*>(option->value) == static_cast<float>(rate);
  }
  return probe;
}

void Run(LV2_Handle handle, std::uint32_t samples) {
  Probe& p = *static_cast<Probe*>(handle);
  const float wanted = *p.Port<float>(2);
  if (wanted != p.asked) p.schedule->schedule_work(p.schedule->handle, sizeof(wanted), &wanted);
  p.asked = wanted;
  p.broken = p.broken || *p.Port<float>(3) > 0;
  const auto* events = p.Port<LV2_Atom_Sequence>(4);
  const bool fair = samples <= p.longest && p.optionsFit && events->atom.type == p.sequence &&
                    events->atom.size == sizeof(LV2_Atom_Sequence_Body);
  for (std::uint32_t i = 0; i < samples; ++i)
    p.Port<float>(1)[i] = p.broken ? std::nanf("") : fair ? p.Port<float>(0)[i] * p.gain : 0;
}

LV2_Worker_Status Work(LV2_Handle, LV2_Worker_Respond_Function respond,
                       LV2_Worker_Respond_Handle to, std::uint32_t size, const void* data) {
  return respond(to, size, data);
}

LV2_Worker_Status WorkResponse(LV2_Handle handle, std::uint32_t size, const void* data) {
  std::memcpy(&static_cast<Probe*>(handle)->gain, data, size);
  return LV2_WORKER_SUCCESS;
}

const void* ExtensionData(const char* uri) {
  static const LV2_Worker_Interface worker = {Work, WorkResponse, nullptr};
  return std::strcmp(uri, LV2_WORKER__interface) == 0 ? &worker : nullptr;
}

}  // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index) {
  static const LV2_Descriptor probe = {"urn:zelk:probe",
                                       Instantiate,
                                       [](LV2_Handle h, std::uint32_t port, void* where) {
                                         static_cast<Probe*>(h)->ports[port] = where;
                                       },
                                       [](LV2_Handle h) { static_cast<Probe*>(h)->broken = false; },
                                       Run,
                                       nullptr,
                                       [](LV2_Handle h) { delete static_cast<Probe*>(h); },
                                       ExtensionData};
  return index == 0 ? &probe : nullptr;
}
