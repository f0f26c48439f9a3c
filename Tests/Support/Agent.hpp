#pragma once

#include <string>

/// The other processes of the tests: one program with a verb for each subject.
///
///     test-agent VERB ARGUMENT…
///
/// Each verb stands in a file beside the tests that need it, which says what it does. It gets its
/// arguments as a `main` function does, the verb in the place of the program's name.
namespace ombrix::agent {

int cache(int argc, char** argv);
int cloud(int argc, char** argv);
int coordinate(int argc, char** argv);
int defaults(int argc, char** argv);
int messages(int argc, char** argv);
int path(int argc, char** argv);
int stores(int argc, char** argv);

/// Tells the test a line at once.
void say(const std::string& line);

}  // namespace ombrix::agent
