// The walkers as a program, so that both sides of a comparison with chown(1) and chmod(1) include
// the start of a process:
//
//   walk mode PATH MODE          changeModeOfTree(), the mode for files and directories alike
//   walk both PATH MODE UID      changeOwnerAndModeOfTree(), the group left as it is

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fsutil/TreeWalkers.h"

namespace
{

unsigned int numberFrom(const char* text, int base)
{
    return static_cast<unsigned int>(std::strtoul(text, nullptr, base));
}

} // namespace

int main(int argc, char** argv)
{
    constexpr auto sameGroup = static_cast<gid_t>(-1);
    if (argc == 4 && std::strcmp(argv[1], "mode") == 0) {
        const mode_t mode = numberFrom(argv[3], 8);
        changeModeOfTree(argv[2], mode, mode, 1);
        return 0;
    }
    if (argc == 5 && std::strcmp(argv[1], "both") == 0) {
        const mode_t mode = numberFrom(argv[3], 8);
        return changeOwnerAndModeOfTree(argv[2], numberFrom(argv[4], 10), sameGroup, mode, mode, 1);
    }
    (void)std::fputs("usage: walk mode PATH MODE | walk both PATH MODE UID\n", stderr);
    return 2;
}
