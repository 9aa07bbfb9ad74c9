#pragma once

#include <functional>
#include <string>

/// Runs the body with buffered standard streams and returns what it flushed, in the order in which
/// that happened: "err[text]" and "out[text]" one after the other. Text that is still in a buffer
/// when the body returns does not count.
std::string flushedWritesOf(const std::function<void()>& body);
