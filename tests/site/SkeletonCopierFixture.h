#pragma once

#include <boost/filesystem/exception.hpp>
#include <sstream>
#include <unistd.h>
#include <vector>

#include "site/SkeletonCopier.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

/// "/srv/s" is the skeleton, "/srv/v" the virtual host "example.test", "/srv/w" holds the document
/// root "web" and the CGI directory "cgi", none of which exists yet.
class SkeletonCopierTest : public World
{
protected:
    static constexpr bool quiet = false;
    static constexpr bool verbose = true;

    SkeletonCopierTest()
    {
        makeDir("/srv/s");
        makeDir("/srv/v");
        makeDir("/srv/w");
        for (const char* name : {"conf", "httpdocs", "cgi-bin"}) {
            makeDir(std::string("/srv/s/") + name);
        }
        host_.directory = "/srv/v";
        host_.name = "example.test";
        faults::clear();
    }

    /// Copies the entries and returns the messages.
    /// @param areFiles whether the copier is told that they are regular files.
    std::string copy(const std::vector<std::string>& entries, bool isVerbose = verbose,
        bool areFiles = false) const
    {
        std::ostringstream messages;
        const size_t before = openDescriptors();
        {
            zelto::SkeletonCopier copier(host_, skeleton_, kvocln, messages, isVerbose, options_);
            for (const std::string& entry : entries) {
                copier.copy(entry, areFiles);
            }
        }
        EXPECT_EQ(openDescriptors(), before);
        return messages.str();
    }

    /// Copies one entry and returns the text of the exception that ends it.
    std::string failureOf(const std::string& entry) const
    {
        try {
            return "no exception, but " + copy({entry});
        } catch (const boost::filesystem::filesystem_error& error) {
            return error.what();
        }
    }

    /// A link that the site's user put there.
    static void plantLink(const std::string& path, const std::string& target)
    {
        makeLink(path, target);
        EXPECT_EQ(lchown(path.c_str(), site, users), 0);
    }

    static std::string installer(const std::string& text)
    {
        return "corbel:InstallSkeleton(): " + text + '\n';
    }

    static std::string alreadyExists(const std::string& destination)
    {
        return installer(destination + " already exists, not restoring");
    }

    static std::string otherKind(const std::string& destination)
    {
        return installer(destination + " not a file or directory, skipping");
    }

    static constexpr const char* emptyHost = "dir  0755 root:root .\n";
    static std::string hostWith(const std::string& lines) { return emptyHost + lines + '\n'; }

    zelto::VirtualHostPath host_;
    boost::filesystem::path skeleton_ = "/srv/s";
    zelto::SkeletonOptions options_ = {"/srv/w/web", 0, 0, 0, "/srv/w/cgi"};
    faults::Guard guard_;
};
