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

/// Header fields or query items in the order they arrived; names may repeat.
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
  /// Replaces all fields of that name by one.
  void set(std::string name, std::string value);
  void remove(std::string_view name);

  /// The first value of a name, ignoring the case of ASCII letters; null when there is none.
  [[nodiscard]] const std::string* find(std::string_view name) const;
  /// The same, empty when there is none.
  [[nodiscard]] std::string_view value(std::string_view name) const;
  /// Every value of a name, in order.
  [[nodiscard]] std::vector<std::string_view> values(std::string_view name) const;
  /// The value as a whole number; empty when it is missing or not a number in range.
  [[nodiscard]] std::optional<std::uint64_t> number(std::string_view name) const;

  [[nodiscard]] bool empty() const noexcept { return fields_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return fields_.size(); }
  [[nodiscard]] auto begin() const noexcept { return fields_.begin(); }
  [[nodiscard]] auto end() const noexcept { return fields_.end(); }

 private:
  std::vector<Field> fields_;
};

/// A complete request as received.
struct Request {
  std::string method;
  std::string target;  ///< As in the request line.
  std::string path;    ///< Percent-decoded, without the query.
  Fields query;        ///< Percent-decoded, in order.
  Fields headers;
  std::string body;
  std::string rest;              ///< The text that "*" matched in the route.
  std::uint64_t connection = 0;  ///< The number of its connection, counted from 1.
  bool isKeptAlive = true;       ///< Whether the client expects to keep the connection.
};

// The steps of a misbehaving answer.

/// Writes bytes unchanged.
struct Send {
  std::string bytes;
};
/// Waits for a time.
struct Wait {
  std::chrono::milliseconds time{0};
};
/// Waits until the gate of that name is open (`DevServer::openGate`).
struct Hold {
  std::string gate;
};
/// Writes the same bytes repeatedly, with a pause after each time.
struct Repeat {
  static constexpr std::uint64_t kEndless = UINT64_MAX;
  std::string bytes;
  std::uint64_t count = kEndless;
  std::chrono::milliseconds pause{0};
};
/// Ends the connection; the last step.
enum class End {
  close,  ///< Properly: over TLS with its closing message.
  drop,   ///< Only the connection: over TLS without its closing message.
  reset,  ///< By a reset, which also discards what the client has not read yet.
};
using Step = std::variant<Send, Wait, Hold, Repeat, End>;
using Script = std::vector<Step>;

/// An answer: status, fields and body, or a script of steps that is followed exactly.
struct Response {
  int status = 200;
  /// "Date" and "Content-Length" are added unless given; a field with an empty value is left out,
  /// even one that would be added.
  Fields headers;
  std::string body;
  bool isChunked = false;  ///< Sends the body in chunks, without its length.
  Script script;           ///< Unless empty, replaces all of the above.

  static Response text(std::string body, int status = 200,
                       std::string_view contentType = "text/plain; charset=utf-8");
  static Response json(const platform::JSON& value, int status = 200);
  /// A JSON body whose only member is "message".
  static Response message(int status, std::string_view text);
  static Response following(Script script);

  /// Head and body as sent over the wire; for a HEAD request only the head.
  [[nodiscard]] std::string bytes(bool isForHead = false) const;
  /// The same, appended to a text.
  void appendTo(std::string& out, bool isForHead = false) const;
};

/// The time in HTTP's format: "Sun, 06 Nov 1994 08:49:37 GMT".
std::string httpDate(std::chrono::system_clock::time_point time);

/// Decodes "%41" and, if blanks is set, "+"; invalid escapes stay as they are.
std::string percentDecoded(std::string_view text, bool blanks);

/// The items of "a=1&b=2", decoded.
Fields parseQuery(std::string_view text);

/// Compares texts, ignoring the case of ASCII letters.
bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept;

/// Removes blanks and tabs at both ends.
std::string_view trimmed(std::string_view text) noexcept;

}  // namespace ombrix::devserver
