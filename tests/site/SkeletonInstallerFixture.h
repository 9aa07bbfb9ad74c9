#pragma once

#include <exception>

#include "site/SkeletonInstaller.h"
#include "tests/lib/Faults.h"
#include "tests/lib/StandardErrorCapture.h"
#include "tests/lib/World.h"

/// The subdomain "shop" of "example.test" exists and is empty, and so is the skeleton of client 7.
/// "/srv/web" and "/srv/cgi" are to be the document root and the CGI directory.
class SkeletonInstaller : public World
{
protected:
    inline static const std::string root = "/srv/www/vhosts";
    inline static const std::string domain = root + "/example.test";
    inline static const std::string subdomain = domain + "/subdomains/shop";
    static constexpr const char* emptyDirectory = "dir  0755 root:root .\n";

    SkeletonInstaller()
    {
        makeDirs(subdomain);
        makeDirs(skeleton_);
    }

    void makeSkeletonFile(const std::string& path, std::string_view content = "")
    {
        const std::string whole = skeleton_ + '/' + path;
        makeDirs(whole.substr(0, whole.rfind('/')));
        makeFile(whole, content);
    }

    unsigned int install(const char* clientId = "7") const
    {
        return zelto::installForSubdomain("example.test", "shop", clientId, options_);
    }

    /// What is written to a pipe while the subdomain is seeded without an exception.
    std::string messages(const char* clientId = "7") const
    {
        return errorsOf([&] { EXPECT_EQ(install(clientId), 0U); });
    }

    /// The same with a regular file, which asks for every message.
    std::string allMessages(const char* clientId = "7") const
    {
        return errorsIntoAFile([&] { EXPECT_EQ(install(clientId), 0U); });
    }

    /// The text of the exception that the body throws.
    template<class Body>
    static std::string thrownBy(Body body)
    {
        try {
            body();
            return "nothing";
        } catch (const std::exception& exception) {
            return exception.what();
        }
    }

    static std::string installer(const std::string& text)
    {
        return "corbel:InstallSkeleton(): " + text + '\n';
    }

    static std::string alreadyExists(const std::string& destination)
    {
        return installer(destination + " already exists, not restoring");
    }

    std::string skeleton_ = root + "/.skel/7";
    zelto::SkeletonOptions options_ = {"/srv/web", 0, 0, 0, "/srv/cgi"};
    faults::Guard guard_;
};
