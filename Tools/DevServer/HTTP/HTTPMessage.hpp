#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ombrix::platform {
class JSON;
}

namespace ombrix::devserver {

/// Header fields or query items in the order they came; names may repeat.
class Fields {
 public:
  struct Field {
    std::string name, value;
  };

  Fields() = default;
  Fields(std::initializer_list<Field> fields) : fields_(fields) {}

  void add(std::string name, std::string value) {
    fields_.push_back({std::move(name), std::move(value)});
  }
  /// Replaces every field of that name by one.
  void set(std::string name, std::string value);
  void remove(std::string_view name);

  /// The first value of a name, ASCII letters compared without case; null when there is none.
  [[nodiscard]] const std::string* find(std::string_view name) const;
  /// The same, empty when there is none.
  [[nodiscard]] std::string_view value(std::string_view name) const;
  /// Every value of a name, in order.
  [[nodiscard]] std::vector<std::string_view> values(std::string_view name) const;
  /// The value as a whole number; nothing when it is absent or no number of that size.
  [[nodiscard]] std::optional<std::uint64_t> number(std::string_view name) const;

  [[nodiscard]] bool empty() const noexcept { return fields_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return fields_.size(); }
  [[nodiscard]] auto begin() const noexcept { return fields_.begin(); }
  [[nodiscard]] auto end() const noexcept { return fields_.end(); }

 private:
  std::vector<Field> fields_;
};

/// A request as it was received, whole.
struct Request {
  std::string method;
  std::string target;  ///< As it stood in the request line.
  std::string path;    ///< Percent-decoded, without the query.
  Fields query;        ///< Percent-decoded, in order.
  Fields headers;
  std::string body;
  std::string rest;              ///< What "*" stood for in the route that answers.
  std::uint64_t connection = 0;  ///< Which connection it came on, counted from 1.
  bool isKeptAlive = true;       ///< Whether the client expects the connection to stay.
};

// The steps that a misbehaving answer consists of.

/// Writes bytes as they are.
struct Send {
  std::string bytes;
};
/// Does nothing for a time.
struct Wait {
  std::chrono::milliseconds time{0};
};
/// Does nothing until the gate of that name is open (`DevServer::openGate`).
struct Hold {
  std::string gate;
};
/// Writes the same bytes over and over, with a pause after each time.
struct Repeat {
  static constexpr std::uint64_t kEndless = UINT64_MAX;
  std::string bytes;
  std::uint64_t count = kEndless;
  std::chrono::milliseconds pause{0};
};
/// Ends the connection; nothing follows it.
enum class End {
  close,  ///< In order: over TLS with its closing message.
  drop,   ///< The connection alone: over TLS its closing message is missing.
  reset,  ///< By a reset, which also throws away what the client has not read yet.
};
using Step = std::variant<Send, Wait, Hold, Repeat, End>;
using Script = std::vector<Step>;

/// An answer: status, fields and body, or a script of steps that is followed to the letter.
struct Response {
  int status = 200;
  /// "Date" and "Content-Length" are added unless given; a field with an empty value is left out,
  /// also one that is added otherwise.
  Fields headers;
  std::string body;
  bool isChunked = false;  ///< Sends the body in chunks instead of with its length.
  Script script;           ///< Unless empty, sent instead of all the above.

  static Response text(std::string body, int status = 200,
                       std::string_view contentType = "text/plain; charset=utf-8");
  static Response json(const platform::JSON& value, int status = 200);
  /// A JSON body whose only member is "message".
  static Response message(int status, std::string_view text);
  static Response following(Script script);

  /// Head and body as they go over the wire; for a HEAD request the head alone.
  [[nodiscard]] std::string bytes(bool isForHead = false) const;
  /// The same, appended to a text.
  void appendTo(std::string& out, bool isForHead = false) const;
};

/// The time as HTTP writes it: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string httpDate(std::chrono::system_clock::time_point time);

/// "%41" and, where blanks is set, "+" decoded; what is no escape stays as it is.
std::string percentDecoded(std::string_view text, bool blanks);

/// The items of "a=1&b=2", decoded.
Fields parseQuery(std::string_view text);

/// Compares ASCII letters without case.
bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept;

/// Without blanks and tabs at both ends.
std::string_view trimmed(std::string_view text) noexcept;

}  // namespace ombrix::devserver
