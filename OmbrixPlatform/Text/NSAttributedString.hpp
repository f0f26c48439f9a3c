#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "OmbrixPlatform/Text/NSRange.hpp"
#include "OmbrixPlatform/Text/UIColor.hpp"
#include "OmbrixPlatform/Text/UIFont.hpp"

namespace ombrix::platform {

/// A text whose ranges carry attributes such as a font and a colour. Indexed in UTF-16 units.
///
/// A value: any thread may read a constant one; only one thread may use one that is being
/// changed.
class NSAttributedString {
 public:
  /// The name of an attribute; made from a literal.
  class Key {
   public:
    consteval explicit Key(const char* name) : name_(name) {}
    [[nodiscard]] constexpr std::string_view name() const noexcept { return name_; }
    friend constexpr bool operator==(Key, Key) = default;

    static const Key font;
    static const Key foregroundColor;
    static const Key backgroundColor;
    static const Key kern;
    static const Key link;

   private:
    std::string_view name_;
  };

  /// The value of an attribute: a font, a colour, a number or a text.
  using Value = std::variant<UIFont, UIColor, double, std::string>;

  /// Attributes by key, each key once. Equality ignores the order in which they were set.
  class Attributes {
   public:
    using Entry = std::pair<Key, Value>;

    Attributes() = default;
    /// The last value wins when a key occurs twice.
    Attributes(std::initializer_list<Entry> entries);

    void set(Key key, Value value);
    void erase(Key key);

    /// The value of a key, or null.
    [[nodiscard]] const Value* find(Key key) const noexcept;
    /// The value of a key when it is of this type, or null.
    template <class T>
    [[nodiscard]] const T* find(Key key) const noexcept {
      const Value* value = find(key);
      return value == nullptr ? nullptr : std::get_if<T>(value);
    }

    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
    [[nodiscard]] auto begin() const noexcept { return entries_.begin(); }
    [[nodiscard]] auto end() const noexcept { return entries_.end(); }

    friend bool operator==(const Attributes& a, const Attributes& b) noexcept;

   private:
    std::vector<Entry> entries_;
  };
  using SharedAttributes = std::shared_ptr<const Attributes>;

  /// A maximal range of equal attributes.
  struct Run {
    NSRange range;
    SharedAttributes attributes;  ///< Never null.
  };

  NSAttributedString() = default;
  /// A text with the same attributes everywhere. Invalid bytes become U+FFFD.
  explicit NSAttributedString(std::string_view text, Attributes attributes = {});
  /// @param attributes Not null.
  NSAttributedString(std::u16string text, SharedAttributes attributes);

  [[nodiscard]] const std::u16string& utf16() const noexcept { return text_; }
  [[nodiscard]] std::size_t length() const noexcept { return text_.size(); }

  /// The text in UTF-8; a lone surrogate becomes U+FFFD.
  [[nodiscard]] std::string string() const;

  /// The runs in order; together they cover the whole text, and neighbouring runs always
  /// differ.
  [[nodiscard]] std::span<const Run> runs() const noexcept { return runs_; }

  /// The run that contains the index; stops the program at or beyond the end of the text.
  [[nodiscard]] const Run& runAt(std::size_t index) const;

  /// Sets exactly these attributes on a range; stops the program when the range does not lie inside
  /// the text. An empty range changes nothing.
  /// @param attributes Not null.
  void setAttributes(SharedAttributes attributes, NSRange range);
  void setAttributes(Attributes attributes, NSRange range) {
    setAttributes(std::make_shared<const Attributes>(std::move(attributes)), range);
  }

  /// Removes an attribute from a range, under the same conditions.
  void removeAttribute(Key key, NSRange range);

  friend bool operator==(const NSAttributedString& a, const NSAttributedString& b) noexcept;

 private:
  std::size_t indexOfRunAt(std::size_t location) const;
  std::size_t split(std::size_t location);
  void joinNeighbours(std::size_t first, std::size_t last);

  std::u16string text_;
  std::vector<Run> runs_;
};

using NSMutableAttributedString = NSAttributedString;

inline constexpr NSAttributedString::Key NSAttributedString::Key::font{"NSFont"};
inline constexpr NSAttributedString::Key NSAttributedString::Key::foregroundColor{"NSColor"};
inline constexpr NSAttributedString::Key NSAttributedString::Key::backgroundColor{
    "NSBackgroundColor"};
inline constexpr NSAttributedString::Key NSAttributedString::Key::kern{"NSKern"};
inline constexpr NSAttributedString::Key NSAttributedString::Key::link{"NSLink"};

}  // namespace ombrix::platform
