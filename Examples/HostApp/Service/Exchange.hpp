#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"

namespace ombrix::hostapp {

/// The fields of "Name: value" lines, as often as they are there; one that is none, or would set
/// the token, ends the command.
platform::HTTPHeaders headersOf(const std::vector<std::string>& lines);

/// The value of a header field as it may be shown: of a token, a password or a cookie its kind and
/// its length.
std::string shownValue(std::string_view name, std::string_view value);

/// What is sent, on standard error, for "-v".
void printRequest(const platform::URLRequest& request);

/// Status, origin and time of an answer on standard error; fields and steps as well for "-v".
void printAnswer(const platform::HTTPURLResponse& response, const HTTPMetrics& metrics,
                 bool isVerbose);

/// The status of the answer that an error stands for, if there was one; fields as well for "-v".
void printRefusal(const HTTPError& error, bool isVerbose);

/// Why a request has failed, what the server says, and what to do.
std::string failureText(const HTTPError& error);

}  // namespace ombrix::hostapp
