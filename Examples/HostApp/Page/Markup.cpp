#include "Examples/HostApp/Page/Markup.hpp"

#include "OmbrixPlatform/Text/UIFont.hpp"

namespace ombrix::hostapp {

std::string escaped(std::string_view text) {
  std::string html;
  html.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

std::string markedUp(const platform::NSAttributedString& text) {
  using platform::NSAttributedString;
  std::string html;
  for (const auto& run : text.runs()) {
    const std::u16string part = text.utf16().substr(run.range.location, run.range.length);
    const auto* font = run.attributes->find<platform::UIFont>(NSAttributedString::Key::font);
    const char* tag = font != nullptr && font->fontDescriptor().isBold ? "b" : "i";
    const std::string plain = NSAttributedString(part, run.attributes).string();
    html += std::string("<") + tag + ">" + escaped(plain) + "</" + tag + ">";
  }
  return html;
}

}  // namespace ombrix::hostapp
