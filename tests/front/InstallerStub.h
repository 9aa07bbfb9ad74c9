#pragma once

/// Stands in for zelto::installForSubdomain() in this test program while it lives: the call
/// installs nothing and returns this value. Without a stub the call goes on to the real one.
class InstallerStub
{
public:
    explicit InstallerStub(unsigned int result);
    ~InstallerStub();
    InstallerStub(const InstallerStub&) = delete;
    InstallerStub& operator=(const InstallerStub&) = delete;
};
