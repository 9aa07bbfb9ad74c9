// Runs a command and prints what it cost: "<milliseconds> <peak resident KiB>". Ends with the
// command's status; the command's own output goes where it always goes.

#include <chrono>
#include <cstdio>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    if (argc < 2) {
        (void)std::fputs("usage: measure COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        (void)execvp(argv[1], argv + 1);
        std::perror(argv[1]);
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        std::perror("measure");
        return 2;
    }
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    std::printf("%.3f %ld\n", time.count(), usage.ru_maxrss);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
