#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
  CLI::App app{"Reads, measures and prints a day of skiing."};
  CLI11_PARSE(app, argc, argv);
  return 0;
}
