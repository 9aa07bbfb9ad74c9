#pragma once

#include <gtest/gtest.h>
#include <string>

#include "tests/lib/Files.h"
#include "tests/lib/PrivateMounts.h"
#include "tests/lib/Process.h"

/// A small host of its own for each test: an /etc that holds only accounts, an empty /srv.
///
/// Users: root, site (1001, group users) and other (1002). Groups: root, users (100),
/// kvoserv (2001) and kvocln (2002). "/srv/www/vhosts" exists and is empty, "/etc/kvo" exists and
/// holds no configuration; the umask is 022.
class World : public ::testing::Test
{
protected:
    static constexpr uid_t site = 1001;
    static constexpr uid_t other = 1002;
    static constexpr gid_t users = 100;
    static constexpr gid_t kvoserv = 2001;
    static constexpr gid_t kvocln = 2002;

    World();
    ~World() override;

    /// Writes "/etc/kvo/kvo.conf".
    static void configure(const std::string& text);
    static void removeGroup(const std::string& name);

private:
    PrivateDirectory etc_;
    PrivateDirectory srv_;
    mode_t umask_;
};
