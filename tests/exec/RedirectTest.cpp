#include "exec/TRedirect.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/exec/Commands.h"
#include "tests/lib/Files.h"
#include "tests/lib/PrivateMounts.h"
#include "tests/lib/Process.h"

using zelto::sys::TExec;
using zelto::sys::TFromFile;
using zelto::sys::TRedirect;
using zelto::sys::TRedirectToFile;
using zelto::sys::TToFile;

namespace
{

class Redirection : public ::testing::Test
{
protected:
    Redirection() : umask_(umask(022)) {}
    ~Redirection() override { umask(umask_); }

    static int codeOf(const zelto::sys::TEArgs& args, TExec::TPrepare& prepare)
    {
        return runCarefully(TExec(args, &prepare)).second;
    }

private:
    PrivateDirectory srv_{"/srv"};
    mode_t umask_;
};

class TRedirectTo : public Redirection
{
};
class TRedirectToFileOf : public Redirection
{
};
class TToFileOf : public Redirection
{
};
class TFromFileOf : public Redirection
{
};

} // namespace

TEST_F(TRedirectTo, GivesTheTargetWhatTheSourceIs)
{
    const int file = open("/srv/out", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    TRedirect redirect(1, file);
    EXPECT_EQ(codeOf(words({"/bin/echo", "text"}), redirect), 0);
    close(file);
    EXPECT_EQ(contentOf("/srv/out"), "text\n");
}

TEST_F(TRedirectTo, LeavesTheSourceOpen)
{
    Outcome outcome = outputOf([] {
        TRedirect redirect(2, 1);
        codeOf(shell("echo a; echo b >&2"), redirect);
    });
    EXPECT_EQ(outcome.out, "a\nb\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(TRedirectTo, ClosesATargetThatIsItsOwnSource)
{
    TRedirect redirect(1, 1);
    EXPECT_EQ(codeOf(hasDescriptor(1), redirect), 1);
}

TEST_F(TRedirectTo, ClosesTheTargetWhenTheSourceIsNotOpen)
{
    TRedirect redirect(2, -1);
    EXPECT_EQ(codeOf(hasDescriptor(2), redirect), 1);
}

TEST_F(TRedirectTo, ChangesNothingInTheParent)
{
    const Outcome outcome = outputOf([] {
        const size_t before = openDescriptors();
        TRedirect redirect(1, 2);
        codeOf(words({"/bin/echo", "child"}), redirect);
        EXPECT_EQ(write(1, "parent\n", 7), 7);
        EXPECT_EQ(openDescriptors(), before);
    });
    EXPECT_EQ(outcome.out, "parent\n");
    EXPECT_EQ(outcome.err, "child\n");
}

TEST_F(TToFileOf, CreatesTheFile)
{
    TToFile toFile("/srv/out");
    EXPECT_EQ(codeOf(words({"/bin/echo", "text"}), toFile), 0);
    EXPECT_EQ(contentOf("/srv/out"), "text\n");
    EXPECT_EQ(accessOf("/srv/out"), "0644 root:root");
}

TEST_F(TToFileOf, CreatesTheFileWritableForTheGroupWhereTheUmaskLetsIt)
{
    umask(0);
    TToFile toFile("/srv/out");
    codeOf(words({"/bin/true"}), toFile);
    TToFile appending("/srv/log", true);
    codeOf(words({"/bin/true"}), appending);
    EXPECT_EQ(accessOf("/srv/out"), "0664 root:root");
    EXPECT_EQ(accessOf("/srv/log"), "0664 root:root");
}

TEST_F(TToFileOf, EmptiesAFileThatIsThere)
{
    makeFile("/srv/out", "earlier and longer\n", {0600});
    TToFile toFile("/srv/out");
    codeOf(words({"/bin/echo", "text"}), toFile);
    EXPECT_EQ(contentOf("/srv/out"), "text\n");
    EXPECT_EQ(accessOf("/srv/out"), "0600 root:root");
}

TEST_F(TToFileOf, KeepsWhatIsThereWhenAppending)
{
    makeFile("/srv/out", "earlier\n");
    TToFile toFile("/srv/out", true);
    codeOf(words({"/bin/echo", "text"}), toFile);
    codeOf(words({"/bin/echo", "more"}), toFile);
    EXPECT_EQ(contentOf("/srv/out"), "earlier\ntext\nmore\n");
}

TEST_F(TToFileOf, AppendsAlsoBehindWhatOthersWriteMeanwhile)
{
    TToFile toFile("/srv/out", true);
    codeOf(shell("echo a; echo b >>/srv/out; echo c"), toFile);
    EXPECT_EQ(contentOf("/srv/out"), "a\nb\nc\n");
}

TEST_F(TToFileOf, IsOpenForWritingOnly)
{
    makeFile("/srv/out", "text");
    TToFile toFile("/srv/out", true);
    EXPECT_NE(codeOf(shell("head -c 1 <&1 >/dev/null 2>&1"), toFile), 0);
}

TEST_F(TToFileOf, LeavesTheProgramWithoutOutputWhenTheFileCannotBeOpened)
{
    TToFile toFile("/no/such/directory/out");
    EXPECT_EQ(codeOf(hasDescriptor(1), toFile), 1);
    EXPECT_EQ(codeOf(words({"/bin/true"}), toFile), 0); // and it runs
}

TEST_F(TToFileOf, LeavesNoOtherDescriptorOpen)
{
    const Outcome outcome = inChild([] {
        close_range(3, ~0U, 0);
        TToFile toFile("/srv/out");
        codeOf(listDescriptors(), toFile);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(contentOf("/srv/out"), "012");
}

TEST_F(TToFileOf, WorksWhereTheStandardOutputIsClosed)
{
    const Outcome outcome = inChild([] {
        close(1);
        TToFile toFile("/srv/out");
        codeOf(words({"/bin/echo", "text"}), toFile);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(contentOf("/srv/out"), "text\n");
}

TEST_F(TToFileOf, OpensTheFileInTheChild)
{
    class InSrv : public TToFile
    {
    public:
        using TToFile::TToFile;
        void inChild(const TExec& exec) override
        {
            if (chdir("/srv") == 0) {
                TToFile::inChild(exec);
            }
        }
    };
    InSrv toFile("out");
    codeOf(words({"/bin/echo", "text"}), toFile);
    EXPECT_EQ(contentOf("/srv/out"), "text\n");
}

TEST_F(TRedirectToFileOf, WritesAnyDescriptorIntoTheFile)
{
    TRedirectToFile errors(2, "/srv/errors");
    const Outcome outcome = outputOf([&] { codeOf(shell("echo out; echo err >&2"), errors); });
    EXPECT_EQ(outcome.out, "out\n");
    EXPECT_EQ(contentOf("/srv/errors"), "err\n");
    TRedirectToFile other(7, "/srv/other");
    codeOf(shell("echo seven >&7"), other);
    EXPECT_EQ(contentOf("/srv/other"), "seven\n");
}

TEST_F(TRedirectToFileOf, EmptiesOrAppends)
{
    makeFile("/srv/emptied", "earlier\n");
    makeFile("/srv/appended", "earlier\n");
    TRedirectToFile emptying(2, "/srv/emptied");
    TRedirectToFile appending(2, "/srv/appended", true);
    codeOf(shell("echo new >&2"), emptying);
    codeOf(shell("echo new >&2"), appending);
    EXPECT_EQ(contentOf("/srv/emptied"), "new\n");
    EXPECT_EQ(contentOf("/srv/appended"), "earlier\nnew\n");
}

TEST_F(TRedirectToFileOf, CreatesTheFileWithTheUmaskTakenOff)
{
    umask(027);
    TRedirectToFile errors(2, "/srv/errors");
    codeOf(words({"/bin/true"}), errors);
    EXPECT_EQ(accessOf("/srv/errors"), "0640 root:root");
}

TEST_F(TRedirectToFileOf, ClosesTheDescriptorWhenTheFileCannotBeOpened)
{
    TRedirectToFile errors(2, "/no/such/directory/errors");
    EXPECT_EQ(codeOf(hasDescriptor(2), errors), 1);
}

TEST_F(TRedirectToFileOf, TakesADescriptorThatIsTheNextFreeOne)
{
    const Outcome outcome = inChild([] {
        close_range(3, ~0U, 0);
        TRedirectToFile third(3, "/srv/third");
        codeOf(shell("echo text >&3"), third);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(contentOf("/srv/third"), "text\n");
}

TEST_F(TFromFileOf, ReadsTheStandardInputFromTheFile)
{
    makeFile("/srv/in", "text\n");
    TFromFile fromFile("/srv/in");
    const Outcome outcome = outputOf([&] { codeOf(words({"/bin/cat"}), fromFile); });
    EXPECT_EQ(outcome.out, "text\n");
    EXPECT_EQ(contentOf("/srv/in"), "text\n");
}

TEST_F(TFromFileOf, IsOpenForReadingOnly)
{
    makeFile("/srv/in", "text\n");
    TFromFile fromFile("/srv/in");
    EXPECT_NE(codeOf(shell("exec 2>/dev/null; echo more >&0"), fromFile), 0);
    EXPECT_EQ(contentOf("/srv/in"), "text\n");
}

TEST_F(TFromFileOf, LeavesTheProgramWithoutInputWhenTheFileIsMissing)
{
    TFromFile fromFile("/srv/in");
    EXPECT_EQ(codeOf(hasDescriptor(0), fromFile), 1);
    EXPECT_FALSE(exists("/srv/in"));
}

TEST_F(TFromFileOf, LeavesNoOtherDescriptorOpen)
{
    makeFile("/srv/in", "");
    const Outcome outcome = inChild([] {
        close_range(3, ~0U, 0);
        TFromFile fromFile("/srv/in");
        codeOf(listDescriptors(), fromFile);
    });
    EXPECT_EQ(outcome.out, "012");
}

TEST_F(TFromFileOf, WorksWhereTheStandardInputIsClosed)
{
    makeFile("/srv/in", "text\n");
    const Outcome outcome = inChild([] {
        close(0);
        TFromFile fromFile("/srv/in");
        codeOf(words({"/bin/cat"}), fromFile);
    });
    EXPECT_EQ(outcome.out, "text\n");
}
