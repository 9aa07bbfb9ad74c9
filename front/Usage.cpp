#include "front/Usage.h"

#include <cstdio>
#include <cstdlib>

void printUsage()
{
    // Every word is relied upon, the slip in the description of --remove included.
    (void)std::puts("Usage: twigctl [OPTIONS]...\n");
    (void)std::puts("  --create --subdomain-name=<subdomain> --vhost-name=<domain_name>"
                    " --user-name=<user_name> --cl-id=<client_id>"
                    " {--www-root=<www_root>|--skip-www-root}"
                    " {--cgi-bin-path=<cgi_bin_path>|--skip-cgi-bin} [--skip-error-docs]\n"
                    "        create <subdomain> in <domain_name>\n"
                    "  --remove --subdomain-name=<subdomain> --vhost-name=<domain_name>\n"
                    "        create <subdomain> from <domain_name>\n"
                    "  --change-user --user-name=<user_name> --subdomain-name=<subdomain>"
                    " --vhost-name=<domain_name>\n"
                    "        change user on <subdomain>\n"
                    "  --rename --old-name=<old_subdomain> --new-name=<new_subdomain>"
                    " --vhost-name=<domain_name>\n"
                    "        rename <old_subdomain> to <new_subdomain>\n"
                    "  -h, --help\n"
                    "        display this help and exit");
    std::exit(0);
}
