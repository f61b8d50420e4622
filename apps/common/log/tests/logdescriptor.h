// Finds the logging code's kernel-log descriptor in this process, so that a
// test run in a child can put another file or socket in its place.
#pragma once

namespace logtest {

// The open descriptor of this process that refers to path, or -1.
int descriptorOf(const char* path);

} // namespace logtest
