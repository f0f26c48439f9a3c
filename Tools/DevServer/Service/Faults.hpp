#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

namespace ombrix::devserver {

/// The script of a fault in an answer, such as "reset-in-body"; empty for an unknown name.
///
/// @param items The fault's options, as in the query of /fault/NAME: "bytes" is the body's length,
///   "sent" the part sent before the fault, "ms" and "gate" wait before it, "end" (close, drop,
///   reset) ends the connection differently.
std::optional<Script> answerFault(std::string_view name, const Fields& items = {});

/// The script of a fault that replaces the TLS handshake and everything after it, for
/// `DevServer::scriptConnections`; empty for an unknown name. Items as above.
std::optional<Script> connectionFault(std::string_view name, const Fields& items = {});

/// The names of the faults, sorted.
std::vector<std::string_view> answerFaultNames();
std::vector<std::string_view> connectionFaultNames();

}  // namespace ombrix::devserver
