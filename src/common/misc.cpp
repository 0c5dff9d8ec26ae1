#include "common/misc.h"

#include "common/background.h"
#include "common/disk_notes.h"
#include "common/environment.h"
#include "common/file_format.h"
#include "common/filesystem.h"
#include "common/process.h"
#include "common/template_pair.h"
#include "i18n.h"
#include "trace_log.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>

namespace {

void read_environment(environment *env)
{
    const char *removable = std::getenv("ENABLE_REMOVABLE");
    env->use_removable = removable && std::strcmp(removable, "0") != 0 ? 1 : 0;
    trace_log("Using removable devices: %s", env->use_removable ? "yes" : "no");

    if (const char *path = std::getenv("PELVADB")) {
        env->pelva_db_path = path;
    } else {
        env->pelva_db_path = default_template_directory;
        trace_log("Defined path to the templates: %s", env->pelva_db_path.c_str());
    }
    trace_log("Using pelva db path: %s", env->pelva_db_path.c_str());
    setenv("PELVA_PATH", env->pelva_db_path.c_str(), 1); // now: threads to come read the environment
}

// Makes sure that the template directory exists and learns on which device it lies.
bool find_template_directory(environment *env)
{
    const char *path = env->pelva_db_path.c_str();
    if (*path != '/') {
        std::fprintf(stderr, _("PELVADB is not an absolute path: \"%s\"\n"), path);
        return false;
    }
    struct stat status;
    const bool found = stat(path, &status) == 0;
    if (found ? !S_ISDIR(status.st_mode) : errno == ENOTDIR) {
        std::fprintf(stderr, _("The template directory is not a directory: %s\n"), path);
        return false;
    }
    if (!found) {
        trace_log("stat failed: %s", std::strerror(errno));
        trace_log("stat() failed on pelva database path, trying to create empty directory");
        // No search permission: only root, who does not need it, gets to the templates.
        if (mkdir(path, 0644) != 0 || stat(path, &status) != 0) {
            trace_log("Cannot create database directory, exiting");
            std::fprintf(stderr,
                         _("Unable to locate database directory (%s)\n"
                           "Try to execute following command:\n"
                           "# mkdir -p '%s'\n"),
                         path, path);
            return false;
        }
    }
    env->pelva_db_dev = status.st_dev;
    return true;
}

// Finds the mount of the template directory, and with it the path from the root of its partition. The
// firmware follows no links, and knows nothing of what Linux mounts where.
bool find_template_mountpoint(environment *env)
{
    std::error_code error;
    const std::string real = std::filesystem::canonical(env->pelva_db_path, error).string();
    const std::optional<mount_data> mount = error ? std::nullopt : mount_data_find(real);
    if (!mount) {
        trace_log("Cannot find mountpoint for pelva db path");
        std::fprintf(stderr, _("No mounted file system is known to hold the template directory (%s)\n"),
                     env->pelva_db_path.c_str());
        return false;
    }
    env->pelva_db_mountpoint = mount->directory;
    trace_log("Pelva db mountpoint: %s", env->pelva_db_mountpoint.c_str());
    env->short_path = mount->directory == "/" ? real : real.substr(mount->directory.size());
    // A bind mount of "/srv/boot" at "/boot" shows "/srv/boot/pelva" as "/boot/pelva".
    if (!mount->root.empty() && mount->root != "/")
        env->short_path.insert(0, mount->root);
    return true;
}

// Why a disk that the user looks for may not be there.
void print_disk_notes(const environment &env)
{
    if (const std::string text = describe_disk_notes(env.disk_notes); !text.empty())
        std::fprintf(stderr, "%s\n", text.c_str());
}

bool prepare_partitions(environment *env)
{
    if (get_disk_list(env->disks, env->disk_notes) != 0 || env->disks.empty()) {
        trace_log("get_disk_list() failed");
        std::fprintf(
            stderr, "%s\n",
            _("No disks were found. The board checks disks that Linux names sda to sdz, and arrays of "
              "them (md0 and so on). Others, such as NVMe and eMMC disks, have no number there."));
        print_disk_notes(*env);
        return false;
    }
    trace_log("Mounting partitions");
    if (mount_partitions(env) != 0) {
        trace_log("mount_partitions() failed");
        std::fprintf(stderr, "%s\n", _("Cannot make a directory in /tmp to mount partitions in"));
        return false;
    }
    trace_log("Partitions mounted");
    return true;
}

// Works out how the firmware names the template directory.
bool name_for_firmware(environment *env)
{
    trace_log("pelva_db_mountpoint: %s", env->pelva_db_mountpoint.c_str());
    trace_log("pelva_db_path: %s", env->pelva_db_path.c_str());
    trace_log("pelva_db_mt: %" PRIxPTR, reinterpret_cast<std::uintptr_t>(env->pelva_db_mt));
    if (!env->pelva_db_mt) {
        trace_log("Unable to determine partition with pelva database, stopping");
        if (!ending()) {
            std::fprintf(
                stderr,
                _("The template directory (%s) is on no partition that the board can read: ext2, ext3, "
                  "ext4, FAT16, FAT32 or NTFS on a fixed disk\n"),
                env->pelva_db_path.c_str());
            print_disk_notes(*env);
        }
        return false;
    }
    trace_log("Short path for pelva device: %c:%s", env->pelva_db_mt->letter, env->short_path.c_str());
    env->separator = file_system_of(*env->pelva_db_mt->partition).separator;
    return true;
}

void call(const std::function<void()> &step)
{
    if (step)
        step();
}

} // namespace

int app_init(environment *env, const start_steps &steps)
{
    trace_log("* Enter");
    umount_rm_tmpdir();
    read_environment(env);
    if (!find_template_directory(env) || !find_template_mountpoint(env))
        return 1;
    call(steps.early);
    bool prepared = false;
    background preparation([&] { prepared = prepare_partitions(env); });
    call(steps.meanwhile);
    preparation.finish();
    if (!prepared || !name_for_firmware(env))
        return 1;
    recover_templates(env->pelva_db_path);
    trace_log("* Exit");
    return 0;
}
