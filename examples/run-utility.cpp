// Runs a utility on the text of standard input, prints what it wrote, and then how many different
// lines that has.
//
//   run-utility UTILITY [ARGUMENT...] <TEXT
//
// A utility that fails is reported in full, first as people read it, then item by item.

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>
#include <zelto/conf/FatalLogger.h>
#include <zelto/conf/ProgramName.h>
#include <zelto/exec/ExecCmd.h>
#include <zelto/exec/Pipe.h>
#include <zelto/exec/Pipeline.h>
#include <zelto/exec/TReadFromPipeline.h>
#include <zelto/exec/TReadFromStr.h>
#include <zelto/exec/TUnionPrep.h>
#include <zelto/exec/TWriteToPipeline.h>
#include <zelto/support/ExVisitor.h>

namespace
{

/// Runs the utility, which reads the text, in the plain English locale.
/// @throw zelto::ExecCmd::ExFailed unless it returned 0.
std::string run(const char* utility, const char* const* arguments, const std::string& text)
{
    zelto::ExecCmd command(utility); // looked up on PATH; no shell sees the arguments
    while (*arguments != nullptr) {
        command.add(*arguments++);
    }
    command.setEnv("LC_ALL", "C");
    command.setStdinData(text);
    command.runChecked();
    return command.stdoutData();
}

/// What `sort -u | wc -l` says of a text. Commands are joined by preparations: two neighbours share
/// a pipe, and the first one reads the text.
std::string countDifferentLines(const std::string& text)
{
    using namespace zelto::sys;
    const auto pipe = std::make_shared<Pipe>();
    // The preparations outlive the run; the commands only refer to them.
    TUnionPrep fromTextToPipe(
        std::make_shared<TReadFromStr>(text), std::make_shared<TWriteToPipeline>(pipe));
    TReadFromPipeline fromPipe(pipe);

    TEArgs sort;
    sort.add("sort").add("-u");
    TEArgs count;
    count.add("wc").add("-l");
    std::string output;
    // Only the last command's success counts, as in a shell. It throws a std::runtime_error.
    runPipelineChecked(
        {TExec(sort, &fromTextToPipe, TExec::fork | TExec::searchPath), TExec(count, &fromPipe)},
        output);
    return output;
}

/// Goes through a failure report, as a program does that logs its items under names of its own.
class ReportPrinter : public zelto::ExVisitor
{
public:
    void visitMessage(const std::string& name) override { print("kind", name); }
    void visitTrace(const std::string& text) override { print("report", text); }
    void visitFunction(const std::string& function) override { print("raised by", function); }
    void visitFile(const std::string& file) override { print("in file", file); }
    void visitLine(int line) override { print("at line", std::to_string(line)); }
    void enterIncluded() override { std::cerr << "because of:\n"; }

private:
    static void print(const char* item, const std::string& value)
    {
        std::cerr << item << ": " << value << '\n';
    }
};

} // namespace

int main(int argc, char* argv[])
{
    PROGNAME = argv[0]; // what the library's reports begin with
    if (argc < 2) {
        fatalLogger(EXIT_FAILURE, 1, "usage: UTILITY [ARGUMENT...] <TEXT");
    }
    try {
        const std::string text(std::istreambuf_iterator<char>(std::cin), {});
        const std::string output = run(argv[1], argv + 2, text);
        std::cout << output << "different lines: " << countDifferentLines(output);
    } catch (const zelto::ExecCmd::ExFailed& failure) {
        // What the utility read and wrote may hold secrets: think about where a report goes.
        std::cerr << failure.what() << '\n';
        ReportPrinter printer;
        failure.accept(printer);
        return EXIT_FAILURE;
    } catch (const std::exception& error) {
        errno = 0; // a message, and no "System error" behind it
        fatalLogger(EXIT_FAILURE, 1, "%s", error.what());
    }
    return EXIT_SUCCESS;
}
