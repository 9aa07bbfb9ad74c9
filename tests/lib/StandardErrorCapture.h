#pragma once

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tests/lib/Process.h"

/// Runs the body with another standard error.
template<class Body>
void withStandardError(int file, Body body)
{
    const int kept = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(file, STDERR_FILENO);
    body();
    dup2(kept, STDERR_FILENO);
    close(kept);
}

/// Runs the body with a pipe as standard error and returns what it wrote.
template<class Body>
std::string errorsOf(Body body)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    withStandardError(ends[1], body);
    close(ends[1]);
    std::string text(65536, '\0');
    const ssize_t length = read(ends[0], text.data(), text.size());
    close(ends[0]);
    text.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return text;
}

/// Runs the body with a terminal as standard error and says whether it wrote anything.
template<class Body>
bool writesToATerminal(Body body)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(unlockpt(terminal), 0);
    const int screen = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(isatty(screen), 1);
    withStandardError(screen, body);
    int written = -1;
    EXPECT_EQ(ioctl(terminal, FIONREAD, &written), 0);
    close(screen);
    close(terminal);
    return written > 0;
}

/// Runs the body with a regular file as standard error.
template<class Body>
std::string errorsIntoAFile(Body body)
{
    const Outcome outcome = outputOf(body);
    EXPECT_EQ(outcome.out, "");
    return outcome.err;
}
