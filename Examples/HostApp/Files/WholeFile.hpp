#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::hostapp {

/// The contents of a file; one that is not there or cannot be read ends the command.
platform::Data readWholeFile(const std::string& path);

/// What becomes of a file that stands where one is written.
enum class Existing { replaced, kept };

/// Writes a file, replacing one that is there only once everything is written and on the disk;
/// failures, also what the closure throws, end the command and leave an older file as it was.
///
/// Links are followed, and an older file's mode, owner, extended attributes and access list are
/// kept. A file that no other can take the place of (one with several names, of an owner who cannot
/// be kept, or in a folder that takes no new file) is written over in place: what is written is
/// held in memory until all of it is known, and room is made for it first. "-", names of open
/// descriptors such as /dev/stdout, and whatever is no regular file are written straight; a failure
/// may then leave a part. A pipe that nobody reads within five seconds is a failure.
///
/// @param write Is given the open stream.
/// @param existing Kept: whatever is there already, or comes meanwhile, is a failure.
void writeFile(const std::string& path,
               const std::function<void(const std::shared_ptr<platform::OutputStream>&)>& write,
               Existing existing = Existing::replaced);

/// Where to tell that a file was written: standard error when the file is standard output itself.
std::FILE* noticesBeside(const std::string& path);

}  // namespace ombrix::hostapp
