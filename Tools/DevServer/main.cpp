#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "Tools/DevServer/Serving.hpp"

int main(int argc, char** argv) {
  CLI::App app{"Serves the local development web service.", "ombrix-devserver"};
  const auto options = ombrix::devserver::addServingOptions(app, "ombrix-devserver");
  CLI11_PARSE(app, argc, argv);
  try {
    ombrix::devserver::serve(*options);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ombrix-devserver: %s\n", error.what());
    return 1;
  }
}
