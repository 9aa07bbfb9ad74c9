#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "exec/TRedirect.h"

/// A program's standard input, open for as long as the object lives.
class Input
{
public:
    Input() { EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0); }
    ~Input()
    {
        close(ends_[0]);
        end();
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    zelto::sys::TRedirect preparation() { return {0, ends_[0]}; }
    void end()
    {
        close(ends_[1]);
        ends_[1] = -1;
    }

private:
    int ends_[2] = {-1, -1};
};
