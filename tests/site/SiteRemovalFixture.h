#pragma once

#include <string>

#include "site/SiteRemover.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Mount.h"
#include "tests/lib/StandardErrorCapture.h"
#include "tests/lib/World.h"

/// The virtual host "example.test", with its document root at "/srv/web" and its CGI directory at
/// "/srv/cgi"; all three exist and are empty.
class SiteRemoval : public World
{
protected:
    inline static const std::string host = "/srv/www/vhosts/example.test";
    static constexpr const char* emptyDirectory = "dir  0755 root:root .\n";

    SiteRemoval()
    {
        makeDir(host);
        makeDir("/srv/web");
        makeDir("/srv/cgi");
    }

    /// What is reported while one entry is removed.
    std::string messagesOf(const boost::filesystem::path& entry) const
    {
        return errorsOf([&] { zelto::removeEntry(zelto::SiteRemover(host, options_), entry); });
    }

    /// What is reported while the site directories are emptied.
    std::string messagesOfEmptying(const std::string& directory = host) const
    {
        return errorsOf([&] { EXPECT_EQ(zelto::emptySiteDirectories(directory, options_), 0U); });
    }

    /// A link that the site's user put there.
    static void plantLink(const std::string& path, const std::string& target)
    {
        makeLink(path, target);
        EXPECT_EQ(lchown(path.c_str(), site, users), 0);
    }

    zelto::SkeletonOptions options_ = {"/srv/web", 0, 0, 0, "/srv/cgi"};
    faults::Guard guard_;
};
