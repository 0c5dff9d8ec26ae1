// Work whose system calls fail as planned. The work runs in a child process that is traced, so no
// system call escapes, whatever library makes it.
#pragma once

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

enum class fault {
    fail,           // with `error`
    fail_from_here, // this call and all behind it
    cut_short,      // a read or write moves only half of what it was asked for
};

struct planned_fault {
    int call; // counts from 1
    fault what;
    int error; // 0 when it does not fail
};

struct faulty_run {
    bool survived = false; // ended by itself
    bool crashed = false;  // ended by a signal that was not planned
    int result = -1;       // what the work returned, 0 to 255
    int calls = 0;         // system calls on files and processes
};

// Not those of memory, signals, time and the process's own end: a failure of these is no disk's doing.
inline bool is_countable(unsigned long long call)
{
    constexpr unsigned long long others[] = {
        SYS_brk,          SYS_mmap,           SYS_munmap,    SYS_mprotect,     SYS_madvise,
        SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_mremap,    SYS_sigaltstack,  SYS_futex,
        SYS_exit_group,   SYS_clock_gettime,  SYS_getrandom, SYS_rt_sigreturn, SYS_prctl,
        SYS_getpid,       SYS_gettid,         SYS_tgkill,    SYS_sched_yield};
    return std::ranges::find(others, call) == std::end(others);
}

inline faulty_run run_with_faults(const std::function<int()> &work, const std::vector<planned_fault> &plan)
{
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        _exit(work());
    }
    faulty_run run;
    int status = 0, signal = 0, error = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (bool inside = false; ptrace(PTRACE_SYSCALL, child, nullptr, signal) == 0;) {
        waitpid(child, &status, 0);
        run.survived = WIFEXITED(status);
        run.crashed = WIFSIGNALED(status);
        signal = WIFSTOPPED(status) && WSTOPSIG(status) != (SIGTRAP | 0x80) ? WSTOPSIG(status) : 0;
        user_regs_struct registers{};
        if (run.survived || run.crashed || signal || ptrace(PTRACE_GETREGS, child, nullptr, &registers) != 0)
            continue;
        inside = !inside;
        if (inside) {
            error = 0;
            const bool counts = is_countable(registers.orig_rax);
            run.calls += counts ? 1 : 0;
            for (const auto &[call, what, with] : plan) {
                if (!counts || (run.calls != call && (run.calls < call || what != fault::fail_from_here)))
                    continue;
                error = with;
                if (what == fault::cut_short && registers.rdx > 1 &&
                    (registers.orig_rax == SYS_read || registers.orig_rax == SYS_write))
                    registers.rdx /= 2;
            }
            // A failing close has closed all the same; any other call becomes one that does not exist.
            if (error && registers.orig_rax != SYS_close)
                registers.orig_rax = ~0ULL;
            ptrace(PTRACE_SETREGS, child, nullptr, &registers);
        } else if (error) {
            registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
            ptrace(PTRACE_SETREGS, child, nullptr, &registers);
        }
    }
    run.result = run.survived ? WEXITSTATUS(status) : -1;
    return run;
}
