#pragma once

#include <string>

/// Gives this process mounts of its own, so that nothing a test mounts or changes below a
/// PrivateDirectory reaches the host, and makes the root file system read-only apart from the build
/// directory: root changes whole trees here, and a mistake must not find the machine's. Ends the
/// process with a message if that is not possible: tests that cannot prove anything must not look
/// like passed ones.
void enterPrivateMountNamespace();

/// An empty tmpfs over an existing directory, for as long as the object lives.
class PrivateDirectory
{
public:
    /// @param options tmpfs options such as "size=64k,nr_inodes=20".
    explicit PrivateDirectory(std::string path, const std::string& options = "");
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

private:
    std::string path_;
};
