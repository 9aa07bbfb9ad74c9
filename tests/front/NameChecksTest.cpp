#include <cerrno>
#include <cstring>

#include "conf/ProgramName.h"
#include "front/CommandLine.h"
#include "front/NameChecks.h"
#include "tests/lib/World.h"

namespace
{

/// Names that lead nowhere but down, and those that may lead out.
constexpr const char* taken[] = {"shop", "a/b", "..x", "a..", "x/./y", ".hidden", "...x", "a/.b",
    "a//b", "/a", "a/", "x/...", "%s%n", " ", "-"};
constexpr const char* refused[] = {
    "..", "a/..", "../a", "a/../b", "/..", "../", ".", "./", "/", "//", "./.", "...", "..//."};

class NameChecks : public World
{
protected:
    /// A line on which every name is a usual one.
    static void fill(CommandLine& line, Operation operation)
    {
        line.operation = operation;
        for (char* name : {line.subdomainName, line.vhostName, line.oldName, line.newName}) {
            set(name, "usual");
        }
        line.clientId.reset(strdup("7"));
    }

    static void set(char* name, const char* value)
    {
        std::strncpy(name, value, CommandLine::nameSize);
    }

    /// The parameter that is refused, or "" when all are taken.
    static std::string refusedOf(const CommandLine& line)
    {
        const Outcome end = inChild([&line] {
            PROGNAME = "twigctl";
            errno = 0;
            checkNames(line);
        });
        if (end.status == 0) {
            EXPECT_EQ(end.out + end.err, "");
            return "";
        }
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.out, end.err);
        const std::string beginning = "twigctl: Error: parameter '";
        const std::string rest = "' leads out of its directory\n";
        EXPECT_EQ(end.err.substr(0, beginning.size()), beginning);
        const size_t behind = end.err.find('\'', beginning.size());
        EXPECT_EQ(end.err.substr(std::min(behind, end.err.size())), rest);
        return end.err.substr(beginning.size(), behind - beginning.size());
    }

    /// Which parameters of an operation are refused when each in turn is "..".
    static std::string checkedBy(Operation operation)
    {
        std::string checked;
        for (const auto name : {&CommandLine::subdomainName, &CommandLine::vhostName,
                 &CommandLine::userName, &CommandLine::oldName, &CommandLine::newName}) {
            CommandLine line;
            fill(line, operation);
            set(line.*name, "..");
            checked += refusedOf(line) + ' ';
        }
        CommandLine line;
        fill(line, operation);
        line.clientId.reset(strdup(".."));
        return checked + refusedOf(line);
    }
};

} // namespace

TEST_F(NameChecks, TakeEveryNameThatLeadsDown)
{
    for (const char* name : taken) {
        CommandLine line;
        fill(line, Operation::create);
        set(line.subdomainName, name);
        set(line.vhostName, name);
        EXPECT_EQ(refusedOf(line), "") << name;
    }
}

TEST_F(NameChecks, RefuseEveryNameThatMayLeadOut)
{
    for (const char* name : refused) {
        CommandLine line;
        fill(line, Operation::create);
        set(line.subdomainName, name);
        EXPECT_EQ(refusedOf(line), "subdomain-name") << name;
        fill(line, Operation::rename);
        set(line.newName, name);
        EXPECT_EQ(refusedOf(line), "new-name") << name;
    }
}

TEST_F(NameChecks, AreMadeOfTheNamesThatTheOperationUses)
{
    EXPECT_EQ(checkedBy(Operation::create), "subdomain-name vhost-name    cl-id");
    EXPECT_EQ(checkedBy(Operation::remove), "subdomain-name vhost-name    ");
    EXPECT_EQ(checkedBy(Operation::changeUser), "subdomain-name vhost-name    ");
    EXPECT_EQ(checkedBy(Operation::rename), " vhost-name  old-name new-name ");
    EXPECT_EQ(checkedBy(Operation::none), "     ");
    EXPECT_EQ(checkedBy(Operation::help), "     ");
}

TEST_F(NameChecks, NameTheFirstParameterThatIsRefused)
{
    CommandLine line;
    line.operation = Operation::create;
    set(line.subdomainName, "..");
    set(line.vhostName, "..");
    line.clientId.reset(strdup(".."));
    EXPECT_EQ(refusedOf(line), "subdomain-name");
    set(line.subdomainName, "shop");
    EXPECT_EQ(refusedOf(line), "vhost-name");
    set(line.vhostName, "example.test");
    EXPECT_EQ(refusedOf(line), "cl-id");

    line.operation = Operation::rename;
    set(line.vhostName, "..");
    set(line.oldName, "..");
    set(line.newName, "..");
    EXPECT_EQ(refusedOf(line), "vhost-name");
    set(line.vhostName, "example.test");
    EXPECT_EQ(refusedOf(line), "old-name");
    set(line.oldName, "shop");
    EXPECT_EQ(refusedOf(line), "new-name");
}

TEST_F(NameChecks, RefuseAClientOnlyForGoingUp)
{
    CommandLine line;
    fill(line, Operation::create);
    for (const char* id : {"", ".", "/", "./", "...", "..x", "7/8", "x..", "//"}) {
        line.clientId.reset(strdup(id));
        EXPECT_EQ(refusedOf(line), "") << id;
    }
    for (const char* id : {"..", "../..", "a/..", "../a", "a/../b", "/../x"}) {
        line.clientId.reset(strdup(id));
        EXPECT_EQ(refusedOf(line), "cl-id") << id;
    }
    line.clientId.reset();
    EXPECT_EQ(refusedOf(line), "") << "that none was given is found later";
}

TEST_F(NameChecks, SeeTheWholeOfALongName)
{
    CommandLine line;
    fill(line, Operation::remove);
    set(line.subdomainName, (std::string(4000, 'n') + "/..").c_str());
    EXPECT_EQ(refusedOf(line), "subdomain-name");
    set(line.subdomainName, (std::string(5000, 'n') + "/..").c_str());
    EXPECT_EQ(refusedOf(line), "") << "its end was cut off with the name";
}

TEST_F(NameChecks, ShowAnErrorThatWasPending)
{
    CommandLine line;
    fill(line, Operation::remove);
    set(line.vhostName, "..");
    const Outcome end = inChild([&line] {
        PROGNAME = "twigctl";
        errno = ENOENT;
        checkNames(line);
    });
    EXPECT_EQ(end.err, "twigctl: Error: parameter 'vhost-name' leads out of its directory"
                       "\nSystem error 2: No such file or directory\n");
}
