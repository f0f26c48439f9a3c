#pragma once

#include <string>
#include <string_view>

namespace ombrix::platform {

/// Approximates a text in ASCII: letters lose their marks, ligatures and compatibility forms are
/// split up, white space becomes a blank; ß gives s, Æ AE, Œ OE, Ø O, Ð TH, Þ th. Every other
/// character and every invalid byte gives "?". Any thread.
std::string lossyASCII(std::string_view text);

}  // namespace ombrix::platform
