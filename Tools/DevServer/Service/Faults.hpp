#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

namespace ombrix::devserver {

/// The script of a fault that answers a request, such as "reset-in-body"; nothing for another name.
///
/// @param items What the fault is to be like, as in the query of /fault/NAME: "bytes" is the length
///   of the body, "sent" how much of it is sent before the fault, "ms" and "gate" wait before it,
///   "end" (close, drop, reset) ends a connection differently.
std::optional<Script> answerFault(std::string_view name, const Fields& items = {});

/// The script of a fault that replaces the TLS handshake and everything after it, for
/// `DevServer::scriptConnections`; empty for an unknown name. Items as above.
std::optional<Script> connectionFault(std::string_view name, const Fields& items = {});

/// The names of the faults, sorted.
std::vector<std::string_view> answerFaultNames();
std::vector<std::string_view> connectionFaultNames();

}  // namespace ombrix::devserver
