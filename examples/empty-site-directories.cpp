// Empties the site directories of a virtual host: its document root, its CGI directory and
// "private". The directories themselves stay.
//
//   empty-site-directories VHOST WWW_ROOT [CGI_BIN]
//
// VHOST is the virtual host's directory. Without CGI_BIN the CGI directory is left alone.

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <zelto/conf/FatalLogger.h>
#include <zelto/conf/ProgramName.h>
#include <zelto/site/SiteRemover.h>
#include <zelto/site/SkeletonOptions.h>

int main(int argc, char* argv[])
{
    PROGNAME = argv[0]; // what the library's reports begin with
    if (argc != 3 && argc != 4) {
        fatalLogger(EXIT_FAILURE, 1, "usage: VHOST WWW_ROOT [CGI_BIN]");
    }

    zelto::SkeletonOptions options; // its texts are borrowed; argv lives long enough
    options.www_root = argv[2];
    if (argc == 4) {
        options.cgi_bin_path = argv[3];
    } else {
        options.skip_cgi_bin = 1;
    }
    try {
        // Always 0: what cannot be removed is one line each on standard error, and the rest goes
        // on.
        zelto::emptySiteDirectories(argv[1], options);
    } catch (const std::exception& error) { // no memory
        errno = 0;                          // a message, and no "System error" behind it
        fatalLogger(EXIT_FAILURE, 1, "%s", error.what());
    }
    return EXIT_SUCCESS;
}
