#include "tests/lib/World.h"

#include <cstdlib>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

World::World() : etc_("/etc"), srv_("/srv"), umask_(umask(022))
{
    makeFile("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
    makeFile("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n"
                            "site:x:1001:100:a site's owner:/srv/www/vhosts/example.test:/bin/sh\n"
                            "other:x:1002:100::/home/other:/bin/sh\n");
    makeFile("/etc/group", "root:x:0:\nusers:x:100:\nkvoserv:x:2001:\nkvocln:x:2002:\n");
    makeDir("/etc/kvo");
    makeDirs("/srv/www/vhosts");
}

World::~World()
{
    if (chdir("/") != 0) {
        std::abort();
    }
    (void)umask(umask_);
}

void World::configure(const std::string& text)
{
    makeFile("/etc/kvo/kvo.conf", text);
}

void World::removeGroup(const std::string& name)
{
    std::istringstream groups(contentOf("/etc/group"));
    std::string kept;
    for (std::string line; std::getline(groups, line);) {
        if (line.rfind(name + ':', 0) != 0) {
            kept += line + '\n';
        }
    }
    makeFile("/etc/group", kept);
}
