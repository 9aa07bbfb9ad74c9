#include "tests/race/Racer.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sched.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace race
{

namespace
{

constexpr char goOn = 'g';
constexpr char once = 'o';

void require(bool done, const char* what)
{
    if (!done) {
        throw std::runtime_error(std::string("the racer: ") + what);
    }
}

std::array<int, 2> makePipe()
{
    std::array<int, 2> ends{};
    require(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
    return ends;
}

void becomeTheUser()
{
    if (setgroups(0, nullptr) != 0 || setresgid(users, users, users) != 0 ||
        setresuid(user, user, user) != 0) {
        _exit(3);
    }
    // A change of ids clears this.
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
}

} // namespace

Racer::Racer(const std::vector<Exchange>& exchanges)
{
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "mmap");
    shared_ = std::construct_at(static_cast<Shared*>(memory));
    const std::array<int, 2> orders = makePipe();
    const std::array<int, 2> answers = makePipe();
    process_ = fork();
    require(process_ >= 0, "fork");
    if (process_ == 0) {
        close(orders[1]);
        close(answers[0]);
        becomeTheUser();
        live(exchanges, orders[0], answers[1]);
    }
    close(orders[0]);
    close(answers[1]);
    orders_ = orders[1];
    answers_ = answers[0];
}

Racer::~Racer()
{
    shared_->racing = false;
    close(orders_);
    close(answers_);
    (void)waitpid(process_, nullptr, 0);
    (void)munmap(shared_, sizeof(Shared));
}

void Racer::live(const std::vector<Exchange>& exchanges, int orders, int answers) const
{
    char order = 0;
    while (read(orders, &order, 1) == 1) {
        if (order == once) {
            stepAll(exchanges);
        }
        while (shared_->racing) {
            stepAll(exchanges);
        }
        if (write(answers, &order, 1) != 1) {
            break;
        }
    }
    _exit(0);
}

void Racer::stepAll(const std::vector<Exchange>& exchanges) const
{
    for (const Exchange& exchange : exchanges) {
        if (step(exchange)) {
            ++shared_->exchanges;
        }
    }
    ++shared_->turns;
}

void Racer::order(char order) const
{
    require(write(orders_, &order, 1) == 1, "it has gone");
}

void Racer::awaitAnswer() const
{
    char answer = 0;
    require(read(answers_, &answer, 1) == 1, "it does not answer");
}

void Racer::start()
{
    const uint64_t before = shared_->turns;
    shared_->racing = true;
    order(goOn);
    while (shared_->turns == before) {
        sched_yield();
    }
}

void Racer::stop()
{
    shared_->racing = false;
    awaitAnswer();
}

void Racer::stepOnce()
{
    order(once);
    awaitAnswer();
}

} // namespace race
