#pragma once

#include <string>
#include <string_view>

namespace ombrix::platform {

/// A text in ASCII, by likeness: letters lose their marks, ligatures and compatibility forms come
/// apart, white space becomes a blank; ß gives s, Æ AE, Œ OE, Ø O, Ð TH, Þ th. Every other
/// character, and what is not UTF-8, gives "?". Any thread.
std::string lossyASCII(std::string_view text);

}  // namespace ombrix::platform
