#include "tests/front/InstallerStub.h"

#include <optional>
#include <string>

#include "site/SkeletonOptions.h"

namespace
{

constinit std::optional<unsigned int> stubbed;

} // namespace

InstallerStub::InstallerStub(unsigned int result)
{
    stubbed = result;
}

InstallerStub::~InstallerStub()
{
    stubbed.reset();
}

// The linker's --wrap gives these names their meaning; behind the prefix stands the mangled name.

#define INSTALL_FOR_SUBDOMAIN(prefix)                                                              \
    prefix##_ZN5zelto19installForSubdomainERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES7_PKcRKNS_15SkeletonOptionsE

extern "C" unsigned int INSTALL_FOR_SUBDOMAIN(__real_)(const std::string& domain,
    const std::string& subdomain, const char* clientId, const zelto::SkeletonOptions& options);

extern "C" unsigned int INSTALL_FOR_SUBDOMAIN(__wrap_)(const std::string& domain,
    const std::string& subdomain, const char* clientId, const zelto::SkeletonOptions& options)
{
    return stubbed ? *stubbed
                   : INSTALL_FOR_SUBDOMAIN(__real_)(domain, subdomain, clientId, options);
}
