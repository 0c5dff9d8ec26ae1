// Comes into read-table by LD_PRELOAD, in the place of what asks libparted: says in its stead what hostile
// code there could do.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" [[noreturn]] void ped_device_get(const char *disk);

void ped_device_get(const char *disk)
{
    const auto address = [](const auto *at) { return reinterpret_cast<long>(at); };
    const long here = AT_FDCWD, path = address(disk);
    unsigned long long how[3] = {};
    const struct {
        const char *name;
        long call, arguments[5];
    } tries[] = {{"open", SYS_open, {path, O_RDWR}},
                 {"openat2", SYS_openat2, {here, path, address(how), sizeof(how)}},
                 {"openat for writing", SYS_openat, {here, path, O_WRONLY}},
                 {"openat that empties", SYS_openat, {here, path, O_TRUNC}},
                 {"openat that creates", SYS_openat, {here, path, O_CREAT}},
                 {"unlink", SYS_unlink, {path}},
                 {"fork", SYS_clone, {}},
                 {"execve", SYS_execve, {address("/bin/true")}},
                 {"ptrace", SYS_ptrace, {PTRACE_TRACEME}},
                 {"mount", SYS_mount, {path, address("/mnt")}},
                 {"socket", SYS_socket, {AF_UNIX, SOCK_STREAM}},
                 {"ioctl", SYS_ioctl, {0, 0x1261}}, // flushes the buffers of a disk
                 {"memory for code", SYS_mmap, {0, 4096, PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1}},
                 {"setuid", SYS_setuid, {0}}};
    for (const auto &[name, call, of] : tries) {
        if (syscall(call, of[0], of[1], of[2], of[3], of[4]) >= 0 || (errno != EPERM && errno != EROFS))
            dprintf(3, "%s: %s\n", name, strerrorname_np(errno));
    }
    char status[4096] = {}; // what the kernel says of this process
    const int file = openat(AT_FDCWD, "/proc/self/status", O_RDONLY);
    if (read(file, status, sizeof(status) - 1) > 0)
        dprintf(3, "%s", status);
    long answer = SYS_getpid; // by the calls of a 32-bit program
    asm volatile("int $0x80" : "+a"(answer));
    dprintf(3, "survived\n");
    _exit(0);
}
