/// @file
/// One call of the library, for those who watch from outside:
///
///     worker removeTree|changeOwnerOfTree|changeModeOfTree PATH
///     worker emptySiteDirectories DIRECTORY WEB-ROOT CGI-DIRECTORY

#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "fsutil/TreeWalkers.h"
#include "site/SiteRemover.h"

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
    } else {
        return 2;
    }
    return 0;
}
