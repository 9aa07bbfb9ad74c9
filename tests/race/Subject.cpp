#include "tests/race/Subject.h"

#include <cstdlib>

namespace race
{

namespace
{

/// What can stand in the way of whoever works through the web root.
const std::vector<Kind> inTheTree = {
    Kind::directoryForLink, Kind::fileForLink, Kind::fileForFifo, Kind::directoryMoved};

const std::vector<Kind> inTheTreeAndOnTheWay = {Kind::directoryForLink, Kind::fileForLink,
    Kind::fileForFifo, Kind::directoryMoved, Kind::middle, Kind::base, Kind::road};

std::vector<Kind> with(std::vector<Kind> kinds, Kind kind)
{
    kinds.push_back(kind);
    return kinds;
}

/// The program under test: the one built beside the tests, or the one that TWIGCTL names.
std::string twigctl()
{
    const char* named = std::getenv("TWIGCTL");
    return named != nullptr ? named : TWIGCTL_PATH;
}

Subject operation(
    const std::string& name, const std::vector<std::string>& options, std::vector<Kind> kinds)
{
    std::vector<std::string> arguments = {"twigctl", name, "--vhost-name=example.test"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return {name, twigctl(), std::move(arguments), std::move(kinds)};
}

/// A call of the library.
Subject call(const std::string& name, const std::vector<std::string>& options,
    std::vector<Kind> kinds = inTheTreeAndOnTheWay)
{
    std::vector<std::string> arguments = {"worker", name};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return {name, WORKER_PATH, std::move(arguments), std::move(kinds)};
}

Subject peer(const std::string& name, const std::string& program, std::vector<std::string> words)
{
    words.insert(words.begin(), program);
    return {name, program, std::move(words), inTheTreeAndOnTheWay};
}

} // namespace

std::vector<Subject> ownSubjects()
{
    const std::string web = "--www-root=" + webRoot;
    const std::string cgi = "--cgi-bin-path=" + cgiDirectory;
    const std::string name = "--subdomain-name=shop";
    // The user stays the same, and so keeps what it takes to go on exchanging.
    const std::string sameUser = "--user-name=site";
    return {
        operation("--create", {name, sameUser, "--cl-id=0", web, cgi},
            with(inTheTreeAndOnTheWay, Kind::nothingForLink)),
        operation("--change-user", {name, sameUser, web, cgi},
            with(inTheTreeAndOnTheWay, Kind::handedOut)),
        operation("--remove", {name}, with(inTheTree, Kind::road)),
        operation("--rename", {"--old-name=shop", "--new-name=renamed"}, {Kind::road}),
        call("emptySiteDirectories", {shop, webRoot, cgiDirectory}),
        call("removeTree", {webRoot}),
        call("changeOwnerOfTree", {webRoot}),
        call("changeModeOfTree", {webRoot}),
    };
}

std::vector<Subject> peerSubjects()
{
    return {
        peer("chmod -R", "/bin/chmod", {"-R", "0755", webRoot}),
        peer("cp -a", "/bin/cp", {"-a", skeleton + "/httpdocs/.", webRoot}),
        peer("find -exec chmod", "/usr/bin/find",
            {webRoot, "-type", "f", "-exec", "chmod", "0644", "{}", "+"}),
        peer("find -exec chown", "/usr/bin/find",
            {webRoot, "-type", "f", "-exec", "chown", "site", "{}", "+"}),
        peer("find -exec rm", "/usr/bin/find",
            {webRoot, "-type", "f", "-exec", "rm", "-f", "{}", "+"}),
    };
}

} // namespace race
