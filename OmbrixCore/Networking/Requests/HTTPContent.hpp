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
  /// A text: a field of a form.
  static HTTPPart field(std::string name, std::string_view value);

  /// Bytes that the server treats as a file.
  static HTTPPart data(std::string name, platform::SharedData data, std::string fileName,
                       std::string type = "application/octet-stream");

  /// A regular file, opened now and read in pieces while it is sent. If it cannot be opened or is
  /// not regular, the request fails.
  static HTTPPart file(std::string name, const std::filesystem::path& file,
                       std::string type = "application/octet-stream");

  std::string name;
  std::string fileName;  ///< empty: none
  std::string type;      ///< of the content; empty: not stated
  std::shared_ptr<const platform::HTTPBodySource> body;
};

/// A body with its "Content-Type", for web forms and services that take them. A value; cheap to
/// copy.
///
///     const auto content = HTTPContent::multipart({HTTPPart::field("day", "7"),
///                                                  HTTPPart::file("track", path, "text/csv")});
///     const auto answer = co_await api.post("days", content);
struct HTTPContent {
  using Fields = std::vector<std::pair<std::string, std::string>>;

  /// Fields in one line, "a=1&b=two+words" (application/x-www-form-urlencoded).
  static HTTPContent form(const Fields& fields);

  /// Parts, one after the other (multipart/form-data). No part in memory contains the boundary
  /// between them; that a file contains its 122 random bits is practically impossible.
  ///
  /// @param boundary Called for boundaries until one does not occur in the parts; empty: random
  ///   ones.
  static HTTPContent multipart(std::vector<HTTPPart> parts,
                               const std::function<std::string()>& boundary = nullptr);

  std::string type;
  std::shared_ptr<const platform::HTTPBodySource> body;
};

}  // namespace ombrix
