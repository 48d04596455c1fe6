// What an LV2 plug-in may ask of its host.
#pragma once

#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zelk::blocks {

/// Numbers for URIs, for ever the same ones. [any-thread]
class Urids {
 public:
  LV2_URID Map(const char* uri);
  const char* Unmap(LV2_URID urid);

 private:
  std::mutex mutex;
  std::map<std::string, LV2_URID> numbers;
  std::vector<const std::string*> texts;  // keys of `numbers`, which stay where they are
};

/// The features of one instance. Work is done at once, in the call that asks for it, and answered
/// after the run; nothing here depends on another thread. [route-thread]
class Lv2Features {
 public:
  static constexpr std::size_t SEQUENCE_BYTES = 4096;

  Lv2Features(Urids& urids, double rate, std::uint32_t longestRun);
  Lv2Features(const Lv2Features&) = delete;

  static bool Supports(const char* uri);

  const LV2_Feature* const* List() const { return list.data(); }

  /// Call once the instance exists, and after each of its runs.
  void Created(LV2_Handle instance, const LV2_Worker_Interface* workerInterface);
  void AfterRun();

 private:
  static LV2_Worker_Status Schedule(LV2_Worker_Schedule_Handle self, std::uint32_t size,
                                    const void* data);
  static LV2_Worker_Status Respond(LV2_Worker_Respond_Handle self, std::uint32_t size,
                                   const void* data);

  LV2_Handle handle = nullptr;
  const LV2_Worker_Interface* worker = nullptr;
  std::vector<std::vector<std::uint8_t>> responses;

  std::int32_t shortest = 1;
  std::int32_t longest;
  std::int32_t sequenceBytes = SEQUENCE_BYTES;
  float rate;
  LV2_URID_Map map;
  LV2_URID_Unmap unmap;
  LV2_Worker_Schedule schedule;
  std::array<LV2_Options_Option, 6> options;
  std::array<LV2_Feature, 5> features;
  std::array<const LV2_Feature*, 6> list;
};

}  // namespace zelk::blocks
