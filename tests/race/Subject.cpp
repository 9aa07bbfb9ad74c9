#include "tests/race/Subject.h"

#include <cstdlib>

namespace race
{

namespace
{

/// What can stand in the way of whoever works through the web root.
const std::vector<Kind> inTheTreeAndOnTheWay = {Kind::directoryForLink, Kind::fileForLink,
    Kind::fileForFifo, Kind::directoryMoved, Kind::middle, Kind::base, Kind::road};

/// What sends somebody to another directory.
const std::vector<Kind> astray = {
    Kind::directoryForLink, Kind::directoryMoved, Kind::middle, Kind::base};

std::vector<Kind> with(std::vector<Kind> kinds, const std::vector<Kind>& more)
{
    kinds.insert(kinds.end(), more.begin(), more.end());
    return kinds;
}

/// The program under test: the one built beside the tests, or the one that TWIGCTL names.
std::string twigctl()
{
    const char* named = std::getenv("TWIGCTL");
    return named != nullptr ? named : TWIGCTL_PATH;
}

std::string missingCalls()
{
    const char* missing = std::getenv("TWIGCTL_WITHOUT");
    return missing != nullptr ? missing : "";
}

Subject operation(
    const std::string& name, const std::vector<std::string>& options, std::vector<Kind> kinds)
{
    std::vector<std::string> arguments = {"twigctl", name, "--vhost-name=example.test"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return {name, twigctl(), std::move(arguments), std::move(kinds), Place::inTheSubdomain,
        missingCalls()};
}

/// An operation that works in a web root and a CGI directory. The user stays the same, and so
/// keeps what it takes to go on exchanging.
Subject siteOperation(const std::string& name, Place place, std::vector<Kind> kinds)
{
    Subject subject = operation(name,
        {"--subdomain-name=shop", "--user-name=site", "--cl-id=0", "--www-root=" + webRootIn(place),
            "--cgi-bin-path=" + cgiDirectoryIn(place)},
        std::move(kinds));
    subject.name += place == Place::atHome ? " at home" : "";
    subject.place = place;
    return subject;
}

/// A call of the library.
Subject call(const std::string& name, const std::vector<std::string>& options,
    std::vector<Kind> kinds = inTheTreeAndOnTheWay)
{
    std::vector<std::string> arguments = {"worker", name};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return {name, WORKER_PATH, std::move(arguments), std::move(kinds), Place::inTheSubdomain,
        missingCalls()};
}

Subject peer(const std::string& name, const std::string& program, std::vector<std::string> words)
{
    words.insert(words.begin(), program);
    return {name, program, std::move(words), inTheTreeAndOnTheWay};
}

} // namespace

std::vector<Subject> ownSubjects()
{
    const std::string webRoot = webRootIn(Place::inTheSubdomain);
    const std::string cgiDirectory = cgiDirectoryIn(Place::inTheSubdomain);
    return {
        siteOperation("--create", Place::inTheSubdomain,
            with(inTheTreeAndOnTheWay, {Kind::nothingForLink, Kind::confItself})),
        siteOperation("--create", Place::atHome, with(astray, {Kind::nothingForLink})),
        siteOperation("--change-user", Place::inTheSubdomain,
            with(inTheTreeAndOnTheWay, {Kind::handedOut, Kind::confItself})),
        siteOperation("--change-user", Place::atHome, astray),
        operation("--remove", {"--subdomain-name=shop"}, inTheTreeAndOnTheWay),
        operation("--rename", {"--old-name=shop", "--new-name=renamed"}, {Kind::road}),
        call("emptySiteDirectories", {shop, webRoot, cgiDirectory}),
        call("removeApplicationInstance", {shop, webRoot, cgiDirectory, descriptor}, astray),
        call("removeOfKind", {shop}, astray),
        call("removeTree", {webRoot}),
        call("changeOwnerOfTree", {webRoot}),
        call("changeModeOfTree", {webRoot}),
    };
}

std::vector<Subject> peerSubjects()
{
    const std::string webRoot = webRootIn(Place::inTheSubdomain);
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
