// Removes an installed application from a virtual host, or from a subdomain of one.
//
//   remove-application-instance VHOST WWW_ROOT CGI_BIN SUBDIRECTORY <DESCRIPTOR
//
// VHOST is the virtual host's directory, WWW_ROOT and CGI_BIN are the trees that the application
// has files in, SUBDIRECTORY is where it was installed below both; "." stands for the top. The
// descriptor names the files:
//
//   <INSTANCE-DATA>
//     <SECTION
//     PREFIX="htdocs"><FILE>index.php</FILE><FILE>lib/db.php</FILE><FILE>lib</FILE></SECTION>
//     <SECTION PREFIX="cgi-bin"><FILE>feed.cgi</FILE></SECTION>
//   </INSTANCE-DATA>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <zelto/conf/FatalLogger.h>
#include <zelto/conf/ProgramName.h>
#include <zelto/site/InstanceDescriptor.h>
#include <zelto/site/SkeletonOptions.h>

int main(int argc, char* argv[])
{
    PROGNAME = argv[0]; // what the library's reports begin with
    if (argc != 5) {
        fatalLogger(EXIT_FAILURE, 1, "usage: VHOST WWW_ROOT CGI_BIN SUBDIRECTORY <DESCRIPTOR");
    }

    zelto::SkeletonOptions options; // its texts are borrowed; argv lives long enough
    options.www_root = argv[2];
    options.cgi_bin_path = argv[3];
    try {
        // What cannot be removed is one line each on standard error, and the rest goes on: files
        // that are gone already and directories that hold somebody else's files are normal.
        zelto::removeApplicationInstance(argv[1], options, argv[4]);
    } catch (const std::exception& error) {
        // A descriptor that is not right. It is read whole before anything is removed.
        errno = 0; // a message, and no "System error" behind it
        fatalLogger(EXIT_FAILURE, 1, "%s", error.what());
    }
    return EXIT_SUCCESS;
}
