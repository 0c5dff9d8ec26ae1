#include "common/misc.h"

#include "app.h"
#include "common/mount.h"
#include "common/template_pair.h"
#include "trace_log.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

namespace {

void read_environment(app *app)
{
    const char *removable = std::getenv("ENABLE_REMOVABLE");
    app->use_removable = removable && std::strcmp(removable, "0") != 0 ? 1 : 0;
    trace_log("Using removable devices: %s", app->use_removable ? "yes" : "no");

    if (const char *path = std::getenv("PELVADB")) {
        app->pelva_db_path = path;
        setenv("PELVA_PATH", path, 1);
    } else {
        app->pelva_db_path = "/boot/pelva";
        trace_log("Defined path to the templates: %s", app->pelva_db_path.c_str());
    }
    trace_log("Using pelva db path: %s", app->pelva_db_path.c_str());
}

// Makes sure that the template directory exists and learns on which device it lies.
bool find_template_directory(app *app)
{
    const char *path = app->pelva_db_path.c_str();
    struct stat status;
    if (stat(path, &status) != 0) {
        trace_log("stat failed: %s", std::strerror(errno));
        trace_log("stat() failed on pelva database path, trying to create empty directory");
        if (mkdir(path, 0644) != 0 || stat(path, &status) != 0) {
            trace_log("Cannot create database directory, exiting");
            std::fprintf(stderr,
                         "Unable to locate database directory (%s)\n"
                         "Try to execute following command:\n"
                         "# mkdir -p '%s'\n",
                         path, path);
            return false;
        }
    }
    app->pelva_db_dev = status.st_dev;
    return true;
}

bool find_template_mountpoint(app *app)
{
    const std::optional<mount_data> mount = mount_data_find(app->pelva_db_path);
    if (!mount || mount->directory.empty()) {
        trace_log("Cannot find mountpoint for pelva db path");
        return false;
    }
    app->pelva_db_mountpoint = mount->directory;
    trace_log("Pelva db mountpoint: %s", app->pelva_db_mountpoint.c_str());
    return true;
}

bool prepare_partitions(app *app)
{
    if (get_disk_list(app->disks) != 0) {
        trace_log("get_disk_list() failed");
        return false;
    }
    trace_log("Mounting partitions");
    if (mount_partitions(app) != 0) {
        trace_log("mount_partitions() failed");
        return false;
    }
    trace_log("Partitions mounted");
    return true;
}

// Works out how the firmware names the template directory.
bool name_for_firmware(app *app)
{
    trace_log("pelva_db_mountpoint: %s", app->pelva_db_mountpoint.c_str());
    trace_log("pelva_db_path: %s", app->pelva_db_path.c_str());
    setenv("PELVA_PATH", app->pelva_db_path.c_str(), 1);

    // The mountpoint was found as a prefix of the path, so it is never longer.
    app->short_path = app->pelva_db_path.c_str();
    if (app->pelva_db_mountpoint != "/")
        app->short_path += app->pelva_db_mountpoint.size();

    trace_log("pelva_db_mt: %" PRIxPTR, reinterpret_cast<std::uintptr_t>(app->pelva_db_mt));
    if (!app->pelva_db_mt) {
        trace_log("Unable to determine partition with pelva database, stopping");
        return false;
    }
    trace_log("Short path for pelva device: %c:%s", app->pelva_db_mt->letter, app->short_path);
    app->separator = is_ext_fs(*app->pelva_db_mt->partition) ? '/' : '\\';
    return true;
}

} // namespace

int app_init(app *app)
{
    trace_log("* Enter");
    umount_rm_tmpdir();
    read_environment(app);
    if (!find_template_directory(app) || !find_template_mountpoint(app) || !prepare_partitions(app) ||
        !name_for_firmware(app))
        return 1;
    recover_templates(app->pelva_db_path);
    trace_log("* Exit");
    return 0;
}
