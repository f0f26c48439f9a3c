#include "Tests/Support/Agent.hpp"

#include <cstdio>
#include <map>
#include <string_view>

void ombrix::agent::say(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

int main(int argc, char** argv) {
  using namespace ombrix::agent;
  const std::map<std::string_view, int (*)(int, char**)> verbs{
      {"cache", &cache},       {"cloud", &cloud},       {"coordinate", &coordinate},
      {"defaults", &defaults}, {"messages", &messages}, {"path", &path},
      {"stores", &stores}};
  const auto verb = argc > 1 ? verbs.find(argv[1]) : verbs.end();
  return verb != verbs.end() ? verb->second(argc - 1, argv + 1) : 2;
}
