#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/lib/World.h"

/// The built program in a world with the domain "example.test", which has no subdomain yet, and
/// without a skeleton.
class Site : public World
{
protected:
    using Arguments = std::vector<std::string>;

    inline static const std::string root = "/srv/www/vhosts";
    inline static const std::string subdomains = root + "/example.test/subdomains";
    inline static const std::string shop = subdomains + "/shop";
    inline static const std::string skeleton = root + "/.skel/0";

    Site() { makeDirs(subdomains); }

    static Outcome run(const Arguments& arguments, const Start& start = {})
    {
        return runAs("twigctl", arguments, start);
    }

    /// Runs the program under another invocation name.
    static Outcome runAs(const std::string& name, Arguments arguments, const Start& start = {})
    {
        arguments.insert(arguments.begin(), name);
        return runProgram(program(), arguments, start);
    }

    /// The program under test: the one built beside the tests, or the one that TWIGCTL names.
    static std::string program()
    {
        const char* named = std::getenv("TWIGCTL");
        return named != nullptr ? named : TWIGCTL_PATH;
    }

    static Arguments with(Arguments arguments, const Arguments& more)
    {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    /// A creation of "shop" by the client 7; the options name its site directories.
    static Arguments creation(const Arguments& options)
    {
        return with({"--create", "--subdomain-name=shop", "--vhost-name=example.test",
                        "--user-name=site", "--cl-id=7"},
            options);
    }

    /// A creation with the document root and the CGI directory inside the subdomain.
    static Arguments usualCreation()
    {
        return creation(
            {"--www-root=" + shop + "/httpdocs", "--cgi-bin-path=" + shop + "/cgi-bin"});
    }

    static Arguments change(const Arguments& options)
    {
        return with({"--change-user", "--subdomain-name=shop", "--vhost-name=example.test",
                        "--user-name=other"},
            options);
    }

    static Arguments removal()
    {
        return {"--remove", "--subdomain-name=shop", "--vhost-name=example.test"};
    }

    static Arguments renaming(const std::string& from, const std::string& to)
    {
        return {"--rename", "--vhost-name=example.test", "--old-name=" + from, "--new-name=" + to};
    }

    static void makeSkeleton()
    {
        makeDirs(skeleton + "/conf");
        makeDirs(skeleton + "/httpdocs/img");
        makeDirs(skeleton + "/cgi-bin");
        makeDirs(skeleton + "/error_docs");
        makeDirs(skeleton + "/anon_ftp");
        makeFile(skeleton + "/httpdocs/index.html", "<h1>@domain_name@</h1>");
        makeFile(skeleton + "/httpdocs/img/logo", std::string("\0\xff", 2), {0600});
        makeFile(skeleton + "/cgi-bin/run", "#!/bin/sh\n", {0700});
        makeFile(skeleton + "/conf/site", "ServerName @domain_name@\n");
        makeFile(skeleton + "/error_docs/404", "nothing at @domain_name@");
    }

    static void expectSilent(const Outcome& end, int status)
    {
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.out, "");
        EXPECT_EQ(end.status, status);
    }

    /// The same reports on both streams, each behind the program's name; texts bring their own
    /// newlines.
    static void expectReported(
        const Outcome& end, const std::vector<std::string>& reports, int status)
    {
        std::string all;
        for (const std::string& report : reports) {
            all += "twigctl: " + report;
        }
        EXPECT_EQ(end.err, all);
        EXPECT_EQ(end.out, all);
        EXPECT_EQ(end.status, status);
    }
};

/// The suffix that a report gets for a pending error.
inline std::string systemError(int number, const std::string& text)
{
    return "\nSystem error " + std::to_string(number) + ": " + text + '\n';
}

inline const std::string noSuchFile = systemError(2, "No such file or directory");
