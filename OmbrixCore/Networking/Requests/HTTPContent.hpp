#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Network/HTTPBodySource.hpp"
#include "OmbrixPlatform/Values/SharedData.hpp"

namespace ombrix {

/// One piece of a body in several parts (RFC 7578). A value; cheap to copy.
struct HTTPPart {
  /// A text, as a field of a form has it.
  static HTTPPart field(std::string name, std::string_view value);

  /// Bytes that the server is to take for a file.
  static HTTPPart data(std::string name, platform::SharedData data, std::string fileName,
                       std::string type = "application/octet-stream");

  /// A regular file, opened now and read in pieces while it is sent. What cannot be opened, or is
  /// no such file, is the error of the request.
  static HTTPPart file(std::string name, const std::filesystem::path& file,
                       std::string type = "application/octet-stream");

  std::string name;
  std::string fileName;  ///< empty: none
  std::string type;      ///< of the content; empty: not stated
  std::shared_ptr<const platform::HTTPBodySource> body;
};

/// A body with its "Content-Type", for forms of web pages and services that take such. A value;
/// cheap to copy.
///
///     const auto content = HTTPContent::multipart({HTTPPart::field("day", "7"),
///                                                  HTTPPart::file("track", path, "text/csv")});
///     const auto answer = co_await api.post("days", content);
struct HTTPContent {
  using Fields = std::vector<std::pair<std::string, std::string>>;

  /// Fields in one line, "a=1&b=two+words" (application/x-www-form-urlencoded).
  static HTTPContent form(const Fields& fields);

  /// Parts, one after the other (multipart/form-data). What lies in memory does not contain the
  /// boundary between them; of files nobody knows 122 random bits of it.
  ///
  /// @param boundary Gives boundaries until one does not occur; empty: random ones.
  static HTTPContent multipart(std::vector<HTTPPart> parts,
                               const std::function<std::string()>& boundary = nullptr);

  std::string type;
  std::shared_ptr<const platform::HTTPBodySource> body;
};

}  // namespace ombrix
