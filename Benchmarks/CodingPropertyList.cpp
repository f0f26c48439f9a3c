// 10,000 dictionaries of eight fields from and to binary property lists.

#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <memory>

#include "CodingSamples.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"

namespace {

using namespace ombrix::bench;
using Fixes = std::vector<Fix>;
using ombrix::platform::Data;

const Data& file() {
  static const Data made = ombrix::platform::PropertyListEncoder{}.encode(fixes());
  return made;
}

Fixes decodeOurs(const Data& bytes) {
  return ombrix::platform::PropertyListDecoder{}.decode<Fixes>(bytes);
}

using Tree = std::unique_ptr<void, void (*)(plist_t)>;

Fixes decodePeer(const Data& bytes) {
  plist_t root = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::uint32_t>(bytes.size()), &root);
  const Tree owner(root, plist_free);
  Fixes list;
  const std::uint32_t count = plist_array_get_size(root);
  for (std::uint32_t i = 0; i < count; ++i) {
    plist_t object = plist_array_get_item(root, i);
    const auto real = [&](const char* key) {
      double value = 0;
      plist_get_real_val(plist_dict_get_item(object, key), &value);
      return value;
    };
    Fix& fix = list.emplace_back();
    std::uint64_t id = 0;
    plist_get_uint_val(plist_dict_get_item(object, "id"), &id);
    fix.id = static_cast<std::int64_t>(id);
    std::uint64_t length = 0;
    fix.name = plist_get_string_ptr(plist_dict_get_item(object, "name"), &length);
    fix.latitude = real("latitude");
    fix.longitude = real("longitude");
    fix.altitude = real("altitude");
    fix.speed = real("speed");
    fix.course = real("course");
    std::uint8_t accurate = 0;
    plist_get_bool_val(plist_dict_get_item(object, "accurate"), &accurate);
    fix.accurate = accurate != 0;
  }
  return list;
}

Data encodePeer(const Fixes& list) {
  const Tree root(plist_new_array(), plist_free);
  for (const Fix& fix : list) {
    plist_t object = plist_new_dict();
    plist_dict_set_item(object, "id", plist_new_uint(static_cast<std::uint64_t>(fix.id)));
    plist_dict_set_item(object, "name", plist_new_string(fix.name.c_str()));
    plist_dict_set_item(object, "latitude", plist_new_real(fix.latitude));
    plist_dict_set_item(object, "longitude", plist_new_real(fix.longitude));
    plist_dict_set_item(object, "altitude", plist_new_real(fix.altitude));
    plist_dict_set_item(object, "speed", plist_new_real(fix.speed));
    plist_dict_set_item(object, "course", plist_new_real(fix.course));
    plist_dict_set_item(object, "accurate", plist_new_bool(fix.accurate ? 1 : 0));
    plist_array_append_item(root.get(), object);
  }
  char* bytes = nullptr;
  std::uint32_t size = 0;
  plist_to_bin(root.get(), &bytes, &size);
  const auto* first = reinterpret_cast<const std::byte*>(bytes);
  Data out(first, first + size);
  plist_to_bin_free(bytes);
  return out;
}

template <class Run>
void measure(benchmark::State& state, Run run) {
  for (auto _ : state) benchmark::DoNotOptimize(run());
  state.SetItemsProcessed(static_cast<std::int64_t>(kFixes) *
                          static_cast<std::int64_t>(state.iterations()));
}

int registerAll() {
  require(decodeOurs(file()) == fixes(), "decoding, ours");
  require(decodePeer(file()) == fixes(), "decoding, libplist");
  require(decodeOurs(encodePeer(fixes())) == fixes(), "encoding, libplist");
  const auto add = [](const char* name, auto run) {
    benchmark::RegisterBenchmark(name, [run](benchmark::State& state) {
      measure(state, run);
    })->Unit(benchmark::kMillisecond);
  };
  static const Data xml = ombrix::platform::PropertyListSerialization::write(
      ombrix::platform::PropertyListSerialization::read(file()),
      ombrix::platform::PropertyListFormat::xml);
  add("plist-decode/ours", [] { return decodeOurs(file()); });
  add("plist-decode/libplist", [] { return decodePeer(file()); });
  add("plist-encode/ours", [] { return ombrix::platform::PropertyListEncoder{}.encode(fixes()); });
  add("plist-encode/libplist", [] { return encodePeer(fixes()); });
  add("plist-tree/ours", [] { return ombrix::platform::PropertyListSerialization::read(file()); });
  add("plist-xml-decode/ours", [] { return decodeOurs(xml); });
  return 0;
}

const int kRegistered = registerAll();

}  // namespace
