// Preloaded (LD_PRELOAD), makes every entry of a directory take a millisecond to be looked at, as on a disk
// that is dying.
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" int fstatat(int directory, const char *name, struct stat *status, int flags)
{
    usleep(1000);
    return static_cast<int>(syscall(SYS_newfstatat, directory, name, status, flags));
}
