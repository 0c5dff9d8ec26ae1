#include "tools/sandbox.h"

#include "common/table_record.h"

#include <algorithm>
#include <array>
#include <cap-ng.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <linux/blkzoned.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <memory>
#include <poll.h>
#include <scsi/scsi.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr rlim_t cpu_seconds = 10;
constexpr rlim_t stack_bytes = 8 << 20;
constexpr rlim_t memory_bytes = 256 << 20; // beyond what the process has mapped when it starts

// By number: a small system has no name for it.
constexpr int nobody = 65534;

bool limit_resource(__rlimit_resource resource, rlim_t most)
{
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0)
        return false;
    limit.rlim_max = std::min(limit.rlim_max, most);
    limit.rlim_cur = std::min(limit.rlim_cur, most);
    return setrlimit(resource, &limit) == 0;
}

// 0 where no /proc tells.
rlim_t mapped_bytes()
{
    std::FILE *statm = std::fopen("/proc/self/statm", "re");
    unsigned long long pages = 0;
    if (statm && std::fscanf(statm, "%llu", &pages) != 1)
        pages = 0;
    if (statm)
        std::fclose(statm);
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

bool limit_resources()
{
    return limit_resource(RLIMIT_CORE, 0) && limit_resource(RLIMIT_CPU, cpu_seconds) &&
           limit_resource(RLIMIT_STACK, stack_bytes) &&
           limit_resource(RLIMIT_AS, mapped_bytes() + memory_bytes);
}

// Root becomes nobody, who may read every disk. Who is not root has no such right, and nothing to give up.
bool become_nobody()
{
    if (geteuid() != 0)
        return true;
    capng_clear(CAPNG_SELECT_BOTH);
    const auto kept = static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED);
    const auto given_up = static_cast<capng_flags_t>(CAPNG_DROP_SUPP_GRP | CAPNG_CLEAR_BOUNDING);
    return capng_update(CAPNG_ADD, kept, CAP_DAC_READ_SEARCH) == 0 &&
           capng_change_id(nobody, nobody, given_up) == 0;
}

// Only now: becoming somebody else has undone both. A parent that ended before this process asked to end with
// it has left nobody to read the pipe.
bool end_with_parent()
{
    pollfd pipe{record_fd, 0, 0};
    return prctl(PR_SET_DUMPABLE, 0) == 0 && // no core dump, not even to a collecting program
           prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && poll(&pipe, 1, 0) == 0;
}

struct filter_releaser {
    void operator()(void *filter) const { seccomp_release(filter); }
};
using owned_filter = std::unique_ptr<void, filter_releaser>;

// Whatever their arguments are.
constexpr std::array harmless_calls = {
    SCMP_SYS(read),
    SCMP_SYS(pread64),
    SCMP_SYS(lseek),
    SCMP_SYS(close),
    SCMP_SYS(fstat),
    SCMP_SYS(stat),
    SCMP_SYS(lstat),
    SCMP_SYS(newfstatat),
    SCMP_SYS(statx),
    SCMP_SYS(access),
    SCMP_SYS(faccessat),
    SCMP_SYS(faccessat2),
    SCMP_SYS(readlink),
    SCMP_SYS(readlinkat),
    SCMP_SYS(getdents64),
    SCMP_SYS(fadvise64),
    SCMP_SYS(brk),
    SCMP_SYS(munmap),
    SCMP_SYS(mremap),
    SCMP_SYS(madvise),
    SCMP_SYS(futex),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(getpid),
    SCMP_SYS(getppid),
    SCMP_SYS(gettid),
    SCMP_SYS(getuid),
    SCMP_SYS(geteuid),
    SCMP_SYS(getgid),
    SCMP_SYS(getegid),
    SCMP_SYS(getrandom),
    SCMP_SYS(clock_gettime),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(uname),
    SCMP_SYS(sched_yield),
    SCMP_SYS(sysinfo),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
    SCMP_SYS(restart_syscall),
};

// What a device answers about itself.
constexpr std::array<unsigned long, 11> harmless_requests = {
    BLKGETSIZE,  BLKGETSIZE64, BLKSSZGET,   BLKPBSZGET,           BLKIOMIN,     BLKIOOPT,
    BLKALIGNOFF, BLKROGET,     HDIO_GETGEO, SCSI_IOCTL_GET_IDLUN, BLKGETZONESZ,
};

constexpr scmp_arg_cmp argument(unsigned number, scmp_compare comparison, scmp_datum_t value,
                                scmp_datum_t masked = 0)
{
    return {number, comparison, value, masked};
}

bool allow_if(const owned_filter &filter, int call, const scmp_arg_cmp &condition)
{
    return seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 1, condition) == 0;
}

// libparted opens disks for reading and writing, and for reading only when that fails; to flush their caches
// it opens partitions for writing, too. Here this always fails, as on a disk that cannot be written: udev,
// which watches devices for the closing of a writer, does not scan them all again.
bool allow_opening_for_reading(const owned_filter &filter)
{
    constexpr unsigned flags = 2; // the argument
    constexpr scmp_datum_t changing = O_ACCMODE | O_CREAT | O_TRUNC | (O_TMPFILE & ~O_DIRECTORY);
    for (const scmp_datum_t writing : {scmp_datum_t{O_WRONLY}, scmp_datum_t{O_RDWR}}) {
        if (seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EROFS), SCMP_SYS(openat), 1,
                             argument(flags, SCMP_CMP_MASKED_EQ, O_ACCMODE, writing)) != 0)
            return false;
    }
    return allow_if(filter, SCMP_SYS(openat), argument(flags, SCMP_CMP_MASKED_EQ, changing, 0));
}

// Any other call fails; one of another ABI of the processor ends the process.
bool allow_reading_only()
{
    const owned_filter filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)));
    bool complete = filter && allow_opening_for_reading(filter);
    for (const int call : harmless_calls)
        complete = complete && seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) == 0;
    for (const unsigned long request : harmless_requests)
        complete = complete && allow_if(filter, SCMP_SYS(ioctl), argument(1, SCMP_CMP_EQ, request));
    for (const int memory : {SCMP_SYS(mmap), SCMP_SYS(mprotect)})
        complete = complete && allow_if(filter, memory, argument(2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    // What was written by nobody needs no syncing.
    return complete && allow_if(filter, SCMP_SYS(fcntl), argument(1, SCMP_CMP_EQ, F_GETFL)) &&
           allow_if(filter, SCMP_SYS(write), argument(0, SCMP_CMP_LE, record_fd)) &&
           seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(0), SCMP_SYS(fsync), 0) == 0 &&
           seccomp_load(filter.get()) == 0; // which also sees to it that no program gives new privileges
}

} // namespace

bool enter_sandbox()
{
    return limit_resources() && become_nobody() && end_with_parent() && allow_reading_only();
}
