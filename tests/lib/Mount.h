#pragma once

#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <utility>

/// Something else over a directory or a file for as long as the object lives: an empty tmpfs, or a
/// place of the same file system, which may be the directory or file itself and which no device
/// number gives away.
class Mount
{
public:
    explicit Mount(std::string path) : path_(std::move(path))
    {
        EXPECT_EQ(mount("private", path_.c_str(), "tmpfs", 0, "mode=0755"), 0);
    }

    Mount(const std::string& source, std::string path) : path_(std::move(path))
    {
        EXPECT_EQ(mount(source.c_str(), path_.c_str(), "none", MS_BIND, nullptr), 0);
    }

    ~Mount() { EXPECT_EQ(umount2(path_.c_str(), MNT_DETACH), 0); }

    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

private:
    std::string path_;
};
