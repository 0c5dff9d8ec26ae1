#include "faults.h"

#include <cerrno>
#include <csignal>
#include <elf.h>
#include <sched.h>
#include <string>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

template<typename... calls> bool is_one_of(unsigned long long call, calls... listed)
{
    return ((call == static_cast<unsigned long long>(listed)) || ...);
}

// Memory, signals, time and the process's own end: a failure of these is no disk's doing.
bool is_countable(unsigned long long call)
{
    return !is_one_of(call, SYS_brk, SYS_mmap, SYS_munmap, SYS_mprotect, SYS_madvise, SYS_mremap, SYS_futex,
                      SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_rt_sigreturn, SYS_exit_group, SYS_exit,
                      SYS_getpid, SYS_gettid, SYS_clock_gettime, SYS_sched_yield, SYS_prctl, SYS_sigaltstack,
                      SYS_tgkill, SYS_kill, SYS_getrandom, SYS_set_robust_list, SYS_rseq, SYS_umask);
}

bool transfers(unsigned long long call)
{
    return is_one_of(call, SYS_read, SYS_write, SYS_pread64, SYS_pwrite64);
}

struct tracer {
    pid_t child;
    const std::vector<planned_fault> &plan;
    bool without_links;
    faulty_run run = {};
    bool inside = false; // of a system call
    int error = 0;       // what the call is to end with

    // Before the kernel sees the call. False when it is the process's last.
    bool enter(user_regs_struct &registers)
    {
        error = without_links && registers.orig_rax == SYS_linkat ? EPERM : 0;
        if (registers.orig_rax == SYS_clone3 &&
            (ptrace(PTRACE_PEEKDATA, child, registers.rdi, 0) & CLONE_THREAD))
            error = EAGAIN; // a thread would not be traced, so there are none
        run.calls += is_countable(registers.orig_rax) ? 1 : 0;
        for (const auto &[call, what, with] : plan) {
            const bool now = run.calls == call || (run.calls > call && what == fault::fail_from_here);
            if (!now || !is_countable(registers.orig_rax))
                continue;
            if (what == fault::die)
                return false;
            if (what == fault::cut_short)
                registers.rdx /= transfers(registers.orig_rax) && registers.rdx > 1 ? 2 : 1;
            else
                error = with;
        }
        // A failing close has closed all the same; any other call becomes one that does not exist.
        if (error && registers.orig_rax != SYS_close)
            registers.orig_rax = ~0ULL;
        ptrace(PTRACE_SETREGS, child, nullptr, &registers);
        return true;
    }

    void leave(user_regs_struct &registers)
    {
        struct stat status = {};
        const std::string file = "/proc/" + std::to_string(child) + "/fd/" + std::to_string(registers.rdi);
        if (!error && registers.orig_rax == SYS_fsync && registers.rax == 0 &&
            stat(file.c_str(), &status) == 0)
            run.synced.insert(status.st_ino);
        if (!error)
            return;
        registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
        ptrace(PTRACE_SETREGS, child, nullptr, &registers);
    }

    // False when the process has ended.
    bool stopped(int status, int &signal)
    {
        signal = 0;
        if (WIFEXITED(status)) {
            run.survived = true;
            run.result = WEXITSTATUS(status);
            return false;
        }
        if (WIFSIGNALED(status)) {
            run.crashed = true;
            return false;
        }
        if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
            signal = WSTOPSIG(status) == SIGSTOP ? 0 : WSTOPSIG(status);
            return true;
        }
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        inside = !inside;
        if (inside)
            return enter(registers);
        leave(registers);
        return true;
    }
};

} // namespace

faulty_run run_with_faults(const std::function<int()> &work, const std::vector<planned_fault> &plan,
                           bool without_links)
{
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        _exit(work());
    }
    tracer traced = {.child = child, .plan = plan, .without_links = without_links};
    int status = 0, signal = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    do
        ptrace(PTRACE_SYSCALL, child, nullptr, signal);
    while (waitpid(child, &status, 0) == child && traced.stopped(status, signal));
    if (!traced.run.survived && !traced.run.crashed) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    return traced.run;
}
