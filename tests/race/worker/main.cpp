/// @file
/// One call of the library, for those who watch from outside:
///
///     worker removeTree|changeOwnerOfTree|changeModeOfTree PATH
///     worker emptySiteDirectories DIRECTORY WEB-ROOT CGI-DIRECTORY
///     worker removeApplicationInstance DIRECTORY WEB-ROOT CGI-DIRECTORY DESCRIPTOR
///     worker removeOfKind DIRECTORY      everything in it, as entries of a virtual host

#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "fsutil/TreeWalkers.h"
#include "site/InstanceDescriptor.h"
#include "site/SiteRemover.h"

namespace
{

void removeInstance(char** argv)
{
    const int file = open(argv[5], O_RDONLY | O_CLOEXEC);
    (void)dup2(file, STDIN_FILENO);
    zelto::removeApplicationInstance(argv[2], {argv[3], 0, 0, 0, argv[4]}, ".");
}

/// What is in a directory comes before the directory; the first of the list is the top.
void removeEntries(const char* directory)
{
    const zelto::SiteRemover site(directory, {});
    std::vector<boost::filesystem::path> entries;
    zelto::listTree(directory, entries);
    while (entries.size() > 1) {
        zelto::removeOfKind({2, entries.back()}, "", site);
        entries.pop_back();
    }
}

} // namespace

int main(int argc, char** argv)
{
    (void)fcntl(STDIN_FILENO, F_GETFD); // what a tracer takes for the beginning of main()
    const std::string call = argc > 2 ? argv[1] : "";
    if (call == "removeTree") {
        removeTree(argv[2], 1);
    } else if (call == "changeOwnerOfTree") {
        changeOwnerOfTree(argv[2], 1001, 2002, 1);
    } else if (call == "changeModeOfTree") {
        changeModeOfTree(argv[2], 0640, 0750, 1);
    } else if (call == "emptySiteDirectories" && argc == 5) {
        zelto::emptySiteDirectories(argv[2], {argv[3], 0, 0, 0, argv[4]});
    } else if (call == "removeApplicationInstance" && argc == 6) {
        removeInstance(argv);
    } else if (call == "removeOfKind") {
        removeEntries(argv[2]);
    } else {
        return 2;
    }
    return 0;
}
