#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace ombrix::platform {

/// A uniform resource locator or relative reference as RFC 3986 defines it, kept as it was written.
///
/// A file URL shows whether it names a folder: then its path ends in "/". Nothing here looks at the
/// disk, apart from asking for the current folder when a relative path is made a file URL. A value:
/// any thread may read it. Views that operations return live as long as the URL does.
class URL {
 public:
  /// Reads an absolute URL or a relative reference. Empty for text that is empty or that RFC 3986
  /// does not allow (blanks, bytes outside ASCII, a stray "%", a port above 65535, …).
  static std::optional<URL> parse(std::string_view text);

  /// Reads a reference and resolves it against a base (RFC 3986 section 5.2, strict). An empty
  /// reference gives the base without its fragment. Empty for invalid text, and when a relative
  /// base leaves no text at all.
  static std::optional<URL> parse(std::string_view reference, const URL& base);

  /// The URL of a path in the file system, percent-encoded byte by byte, so that a name in any
  /// encoding survives. A path ending in "/" names a folder; a relative path starts at the current
  /// folder.
  static URL fileURL(std::string_view path);

  /// The same, with the folder mark given: a missing "/" is added, or a superfluous one removed.
  static URL fileURL(std::string_view path, bool isDirectory);

  /// The whole text.
  [[nodiscard]] const std::string& absoluteString() const noexcept { return text_; }

  /// As written, without ":"; empty in a relative reference.
  [[nodiscard]] std::optional<std::string_view> scheme() const noexcept;

  /// The name and password before "@", as written; empty when there are none.
  [[nodiscard]] std::optional<std::string_view> userInfo() const noexcept;

  /// The host percent-decoded, an IPv6 address without its brackets; empty when there is none.
  [[nodiscard]] std::optional<std::string> host() const;

  /// The port when one is written.
  [[nodiscard]] std::optional<std::uint16_t> port() const noexcept;

  /// The path percent-decoded and without a "/" at its end, unless it is "/" alone. For a file URL
  /// these are the bytes to hand to the file system.
  [[nodiscard]] std::string path() const;

  /// The path as written: still encoded, and with the "/" at its end.
  [[nodiscard]] std::string_view encodedPath() const noexcept;

  /// The part after "?", still encoded; empty without "?".
  [[nodiscard]] std::optional<std::string_view> query() const noexcept;

  /// The part after "#", still encoded; empty without "#".
  [[nodiscard]] std::optional<std::string_view> fragment() const noexcept;

  /// Whether the scheme is "file".
  [[nodiscard]] bool isFileURL() const noexcept;

  /// Whether the path ends in "/".
  [[nodiscard]] bool hasDirectoryPath() const noexcept { return encodedPath().ends_with('/'); }

  /// The last part of the path percent-decoded; "/" for the root, empty for an empty path.
  [[nodiscard]] std::string lastPathComponent() const;

  /// The part after the last "." of the last path component; empty when there is none, or when
  /// nothing precedes the ".", as in ".profile".
  [[nodiscard]] std::string pathExtension() const;

  /// This URL with one more path component, percent-encoded; "/" inside the name separates, and one
  /// at its end marks a folder. Query and fragment stay.
  [[nodiscard]] URL appendingPathComponent(std::string_view name) const;

  /// The same, with the folder mark given.
  [[nodiscard]] URL appendingPathComponent(std::string_view name, bool isDirectory) const;

  /// The folder that holds what this URL names, with "/" at its end; the root stays the root, and
  /// a lone name gives "./".
  [[nodiscard]] URL deletingLastPathComponent() const;

  /// This URL without "." and extension at the end of the last path component; the folder mark
  /// stays.
  [[nodiscard]] URL deletingPathExtension() const;

  friend bool operator==(const URL& a, const URL& b) noexcept { return a.text_ == b.text_; }
  friend std::strong_ordering operator<=>(const URL& a, const URL& b) noexcept {
    return a.text_ <=> b.text_;
  }

 private:
  // The places of the parts in the text; 0 in the first two means that there is no such part.
  struct Marks {
    std::uint32_t schemeEnd = 0;
    std::uint32_t authorityBegin = 0;
    std::uint32_t pathBegin = 0;
    std::uint32_t pathEnd = 0;
    std::uint32_t queryEnd = 0;
  };

  URL(std::string text, Marks marks) noexcept : text_(std::move(text)), marks_(marks) {}

  static std::optional<Marks> split(std::string_view text);
  [[nodiscard]] std::optional<std::string_view> authority() const noexcept;
  [[nodiscard]] URL withPath(std::string_view encoded) const;

  std::string text_;
  Marks marks_;
};

/// Characters that stay as they are when text is percent-encoded for a part of a URL.
enum class URLAllowedCharacters : std::uint8_t {
  urlPathAllowed,      ///< Letters, digits and -._~!$&'()*+,;=:@/
  urlQueryAllowed,     ///< The same and "?"; "&" and "=" stay, so encode keys and values apart.
  urlFragmentAllowed,  ///< As in a query.
};

/// The text with every byte outside the set written as "%" and two upper-case digits.
std::string addingPercentEncoding(std::string_view text, URLAllowedCharacters allowed);

/// The text with every "%XX" replaced by its byte; empty when a "%" is not followed by two digits.
std::optional<std::string> removingPercentEncoding(std::string_view text);

}  // namespace ombrix::platform

template <>
struct std::hash<ombrix::platform::URL> {
  std::size_t operator()(const ombrix::platform::URL& url) const noexcept {
    return std::hash<std::string>{}(url.absoluteString());
  }
};
