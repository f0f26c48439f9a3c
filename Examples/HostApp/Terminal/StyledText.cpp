#include "Examples/HostApp/Terminal/StyledText.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "Examples/HostApp/Terminal/Terminal.hpp"

namespace ombrix::hostapp {
namespace {

using platform::NSAttributedString;
using Key = NSAttributedString::Key;

int colourByte(double part) { return static_cast<int>(std::clamp(part, 0.0, 1.0) * 255 + 0.5); }

/// The escape sequence of a colour, or of the nearest one in the cube of 216 that follows the 16
/// of a terminal's own.
std::string escape(const platform::UIColor& colour) {
  if (!terminalTakesAllColours()) {
    const auto step = [](double part) { return (colourByte(part) * 5 + 127) / 255; };
    return fmt::format("\x1b[38;5;{}m",
                       16 + 36 * step(colour.red) + 6 * step(colour.green) + step(colour.blue));
  }
  return fmt::format("\x1b[38;2;{};{};{}m", colourByte(colour.red), colourByte(colour.green),
                     colourByte(colour.blue));
}

/// The escape sequence that switches to these attributes; empty when they look like plain text.
std::string escapes(const NSAttributedString::Attributes& attributes) {
  std::string sequence;
  if (const auto* font = attributes.find<platform::UIFont>(Key::font)) {
    if (font->fontDescriptor().isBold) sequence += "\x1b[1m";
    if (font->fontDescriptor().isItalic) sequence += "\x1b[3m";
  }
  if (const auto* colour = attributes.find<platform::UIColor>(Key::foregroundColor)) {
    sequence += escape(*colour);
  }
  return sequence;
}

}  // namespace

std::string drawnForTerminal(const NSAttributedString& text) {
  std::string drawn;
  for (const auto& run : text.runs()) {
    const std::u16string part = text.utf16().substr(run.range.location, run.range.length);
    const std::string plain = NSAttributedString(part, run.attributes).string();
    const std::string style = escapes(*run.attributes);
    drawn += style + plain + (style.empty() ? "" : "\x1b[0m");
  }
  return drawn;
}

std::string inColour(std::string_view text, const platform::UIColor& colour) {
  return fmt::format("{}{}\x1b[0m", escape(colour), text);
}

std::string forStandardOutput(const NSAttributedString& text) {
  return standardOutputTakesStyle() ? drawnForTerminal(text) : text.string();
}

}  // namespace ombrix::hostapp
