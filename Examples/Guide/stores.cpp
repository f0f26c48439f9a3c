#include <Ombrix/Stores.hpp>
#include <cstdio>

using namespace ombrix;

struct Hut {
  std::string name;
  int beds = 0;
  static constexpr auto kCodingFields =
      codingFields(field("name", &Hut::name), field("beds", &Hut::beds));
};

int main(int, char** arguments) {
  const std::string folder = arguments[1];
  const URL file = URL::fileURL(folder + "/hut.plist");
  {
    const CachedItemStore<Hut> store(file, Hut{.name = "none yet"});
    const auto token =
        store.sink([](const Hut& hut) { std::printf("the hut is %s\n", hut.name.c_str()); });
    store.setValue({.name = "Finsteraarhorn", .beds = 115});
    store.flush();  // it is on the disk
  }
  std::printf("%d beds\n", PlistFileStore<Hut>(file).value()->beds);

  const CachedKeyedItemStore<Hut> huts(InMemoryKeyedStore<Hut>(),
                                       PlistKeyedItemStore<Hut>(URL::fileURL(folder + "/huts")));
  huts.store(Hut{.name = "Monte Rosa", .beds = 120}, "monte-rosa").get();
  std::printf("%d beds\n", huts.value("monte-rosa").get()->beds);
}
