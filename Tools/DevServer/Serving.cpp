#include "Tools/DevServer/Serving.hpp"

#include <fmt/format.h>
#include <pthread.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>

namespace ombrix::devserver {

std::shared_ptr<ServingOptions> addServingOptions(CLI::App& app, const std::string& command) {
  const auto options = std::make_shared<ServingOptions>();
  static const std::map<std::string, Certificate> kCertificates{
      {"self-signed", Certificate::selfSigned},
      {"wrong-host", Certificate::wrongHost},
      {"expired", Certificate::expired},
      {"authority", Certificate::fromAuthority},
  };
  app.add_option("--port", options->server.port, "The port; a free one unless given");
  app.add_flag_callback(
      "--http", [options] { options->server.usesTLS = false; }, "Plain HTTP, without TLS");
  app.add_flag("--ipv6", options->server.usesIPv6, "Listen on ::1 instead of 127.0.0.1");
  app.add_option_function<std::string>(
         "--certificate",
         [options](const std::string& word) {
           options->server.certificate = kCertificates.at(word);
         },
         "What the server shows")
      ->check(CLI::IsMember(&kCertificates))
      ->option_text("WORD");
  app.add_option("--authority-file", options->authorityFile,
                 "Write the certificate to trust to this file, as PEM")
      ->type_name("FILE");
  app.add_option("--rotate-every", options->server.rotateTokenEvery,
                 "Send a new token with every Nth authorised answer; 0 for never")
      ->capture_default_str();
  app.add_flag("--print-port", options->printsPort, "Print the port instead of the base URL");
  app.add_flag("-v,--verbose", options->isVerbose, "Print each request on standard error");
  app.footer(
      fmt::format("Prints the base URL on one line; ends on Ctrl-C. Sign in as {} with {}.\n"
                  "Examples:\n"
                  "  {} --http --port 8080\n"
                  "  {} --certificate authority --authority-file /tmp/authority.pem &\n"
                  "  curl --cacert /tmp/authority.pem https://localhost:PORT/resorts",
                  options->server.email, options->server.password, command, command));
  return options;
}

void serve(const ServingOptions& options) {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGINT);
  sigaddset(&stops, SIGTERM);
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &stops, &before);

  DevServer::Options serverOptions = options.server;
  if (options.isVerbose) {
    serverOptions.observer = [](const Request& request, int status) {
      fmt::print(stderr, "{} {} {}\n", request.method, request.target,
                 status == 0 ? "script" : std::to_string(status));
    };
  }
  DevServer server(std::move(serverOptions));
  if (!options.authorityFile.empty()) server.writeAuthority(options.authorityFile);
  fmt::print("{}\n", options.printsPort ? std::to_string(server.port()) : server.baseURL());
  std::fflush(stdout);

  int signal = 0;
  sigwait(&stops, &signal);
  server.stop();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace ombrix::devserver
