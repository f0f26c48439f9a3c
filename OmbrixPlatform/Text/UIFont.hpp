#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace ombrix::platform {

/// The properties of a font except its size.
struct UIFontDescriptor {
  std::string name;  ///< Family and face, such as "Inter Semibold".
  bool isBold = false;
  bool isItalic = false;

  friend bool operator==(const UIFontDescriptor&, const UIFontDescriptor&) = default;
};

/// A font at a size. Copies share one descriptor; any thread may read them.
class UIFont {
 public:
  /// @param pointSize In points.
  UIFont(UIFontDescriptor descriptor, double pointSize)
      : descriptor_(std::make_shared<const UIFontDescriptor>(std::move(descriptor))),
        pointSize_(pointSize) {}
  UIFont(std::string_view name, double pointSize)
      : UIFont(UIFontDescriptor{.name = std::string(name)}, pointSize) {}

  [[nodiscard]] const UIFontDescriptor& fontDescriptor() const noexcept { return *descriptor_; }
  [[nodiscard]] double pointSize() const noexcept { return pointSize_; }

  /// The same font at another size in points.
  [[nodiscard]] UIFont withSize(double pointSize) const {
    UIFont font = *this;
    font.pointSize_ = pointSize;
    return font;
  }

  friend bool operator==(const UIFont& a, const UIFont& b) noexcept {
    return a.pointSize_ == b.pointSize_ &&
           (a.descriptor_ == b.descriptor_ || *a.descriptor_ == *b.descriptor_);
  }

 private:
  std::shared_ptr<const UIFontDescriptor> descriptor_;
  double pointSize_;
};

}  // namespace ombrix::platform
