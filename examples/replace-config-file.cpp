// Replaces a configuration file by a generated one, whose content comes on standard input.
//
//   replace-config-file FILE <CONTENT
//
// A file that people wrote is kept as FILE.saved_by_kvo. Readers of FILE see the old file or the
// new one, never a part of it. The new file has the mode 0644.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <zelto/conf/FatalLogger.h>
#include <zelto/conf/ProgramName.h>
#include <zelto/support/SystemError.h>
#include <zelto/support/TmpFile.h>
#include <zelto/support/misc.h>

namespace
{

/// @throw zelto::SystemError when the old file cannot be kept or the new one not be put in place;
///        the old one is then still there.
void replace(const std::string& path, const std::string& content)
{
    // Does nothing for a file that is not there, and for one that holds the banner below: that one
    // was generated, too.
    zelto::backupConfigFile(path.c_str());

    // In the same directory, because rename(2) does not leave a file system. Whatever goes wrong
    // from here on removes it again.
    zelto::TmpFile file(path + ".", true);
    file << "# " << zelto::generatedFileBanner << '\n' << content << std::flush;
    if (!file) { // a stream does not throw; this is where a full disk shows
        const int error = errno;
        zelto::throwSystemError(file.name() + ": write failed", error);
    }
    // It was made for its owner alone.
    if (chmod(file.name().c_str(), 0644) != 0 ||
        std::rename(file.name().c_str(), path.c_str()) != 0) {
        const int error = errno;
        zelto::throwSystemError("Cannot replace " + path, error);
    }
    file.setAutoclean(false); // it has its final name now
}

} // namespace

int main(int argc, char* argv[])
{
    PROGNAME = argv[0]; // what the library's reports begin with
    if (argc != 2) {
        fatalLogger(EXIT_FAILURE, 1, "usage: FILE <CONTENT");
    }
    try {
        replace(argv[1], std::string(std::istreambuf_iterator<char>(std::cin), {}));
    } catch (const std::exception& error) {
        errno = 0; // the text holds the system's own already
        fatalLogger(EXIT_FAILURE, 1, "%s", error.what());
    }
    return EXIT_SUCCESS;
}
