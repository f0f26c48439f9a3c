#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"

namespace ombrix::hostapp {

/// The fields of "Name: value" lines, repeated ones too; a line that is not a field, or would set
/// the token, ends the command.
platform::HTTPHeaders headersOf(const std::vector<std::string>& lines);

/// The value of a header field in a form that may be shown: for a token, a password or a cookie its
/// kind and length.
std::string shownValue(std::string_view name, std::string_view value);

/// Prints the request on standard error, for "-v".
void printRequest(const platform::URLRequest& request);

/// Prints status, origin and time of an answer on standard error; for "-v" fields and steps as
/// well.
void printAnswer(const platform::HTTPURLResponse& response, const HTTPMetrics& metrics,
                 bool isVerbose);

/// Prints the status of the answer behind an error, if there was one; for "-v" fields as well.
void printRefusal(const HTTPError& error, bool isVerbose);

/// Why a request has failed, the server's explanation, and what to do.
std::string failureText(const HTTPError& error);

}  // namespace ombrix::hostapp
