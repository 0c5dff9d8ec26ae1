#include "common/defaults.h"

#include "common/filesystem.h"
#include "common/host.h"
#include "trace_log.h"

#include <array>

namespace {

constexpr std::array<const char *, 27> default_files = {
    "/usr/share/application-registry/gtk-tarnel.applications",
    "/usr/share/locale/ru/LC_MESSAGES/gtk-tarnel.mo",
    "/usr/share/locale/ru/LC_MESSAGES/tarnel.mo",
    "/usr/share/gtk-tarnel/images/folder_marked.png",
    "/usr/share/gtk-tarnel/images/folder_normal.png",
    "/usr/share/gtk-tarnel/images/disk_marked.png",
    "/usr/share/gtk-tarnel/images/disk_normal.png",
    "/usr/share/gtk-tarnel/images/file_marked.png",
    "/usr/share/gtk-tarnel/images/file_normal.png",
    "/usr/share/applications/gtk-tarnel.desktop",
    "/usr/share/gtk-tarnel/gtk-tarnel.glade",
    "/usr/share/gtk-tarnel/gtk-tarnel.ui", // in its place where there is no libglade
    "/usr/share/gtk-tarnel/gtk-tarnel.png",
    "/etc/security/console.apps/gtk-tarnel",
    "/usr/share/gtk-tarnel/quillon.png",
    "/usr/share/icons/gtk-tarnel.png",
    "/usr/lib64/pkgconfig/pelva.pc",
    "/usr/lib/pkgconfig/pelva.pc",
    "/usr/include/pelva/pelva.h",
    "/etc/rc.d/init.d/pelva",
    "/etc/pam.d/gtk-tarnel",
    "/usr/lib64/libpelva.so",
    "/usr/lib/libpelva.so",
    "/usr/sbin/gtk-tarnel",
    "/usr/bin/tarnel",
    "/usr/bin/pelva",
    // The kernel that the board's driver comes for; under another one the file is missing and drops out.
    "/lib/modules/4.9.41-nrj-desktop-1rosa-x86_64/kernel/drivers/char/pelva.ko",
};

} // namespace

std::vector<std::string> generate_defaults()
{
    trace_log("* Enter ");
    std::vector<std::string> passed;
    for (const char *file : default_files) {
        const std::string path = host_path(file);
        if (check_fs_type(path) != 0 && check_symlink(path)) {
            trace_log("File %s passed", file);
            passed.emplace_back(file);
        }
    }
    trace_log("* Success");
    return passed;
}
