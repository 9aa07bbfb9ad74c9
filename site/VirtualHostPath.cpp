#include "site/VirtualHostPath.h"

#include <boost/format.hpp>
#include <stdexcept>
#include <vector>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

constexpr char subdomains[] = "subdomains";

path virtualHostsRoot()
{
    return variableByIndex(HTTPD_VHOSTS_D);
}

std::vector<path> componentsBelow(const path& root, const path& directory)
{
    path::iterator below = directory.begin();
    for (path::iterator above = root.begin(); above != root.end(); ++above, ++below) {
        if (below == directory.end() || above->native() != below->native()) {
            throw std::runtime_error(
                (boost::format("Virtual host %1% is not a subdirectory of %2%") %
                    directory.string() % root.string())
                    .str());
        }
    }
    return {below, directory.end()};
}

} // namespace

VirtualHostPath VirtualHostPath::fromDirectory(const path& directory)
{
    VirtualHostPath host;
    host.root = virtualHostsRoot();
    host.directory = directory;

    const std::vector<path> components = componentsBelow(host.root, directory);
    if (components.size() == 1) {
        host.name = components[0].string();
    } else if (components.size() == 3 && components[1] == subdomains) {
        host.name = components[2].string() + '.' + components[0].string();
        host.is_subdomain = true;
    } else {
        throw std::runtime_error(
            (boost::format("Directory %1% does not represent a virtual host") % directory.string())
                .str());
    }

    for (const path& component : components) {
        host.relative /= component;
    }
    return host;
}

VirtualHostPath VirtualHostPath::ofSubdomain(
    const std::string& domain, const std::string& subdomain)
{
    VirtualHostPath host;
    host.root = virtualHostsRoot();
    host.relative = path(domain) / subdomains / subdomain;
    host.directory = host.root / host.relative;
    host.name = domain;
    host.is_subdomain = true;
    return host;
}

} // namespace zelto
