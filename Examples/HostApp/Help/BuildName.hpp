#pragma once

#include <string>

namespace ombrix::hostapp {

/// As in "ombrix 0.1.0 (build 4cd6b6d, Release)": the version, the commit it was configured from
/// (with a "+" where files were changed) and the kind of build.
std::string versionAndBuild();

}  // namespace ombrix::hostapp
