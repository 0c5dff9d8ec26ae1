#include "infobrowser.h"

#include "app.h"
#include "common/board_path.h"
#include "common/disk_notes.h"
#include "common/iconvert.h"
#include "common/owned.h"
#include "display_text.h"
#include "i18n.h"
#include "notice_bar.h"
#include "progress.h"
#include "trace_log.h"
#include "window_description.h"
#include "wrapped_label.h"

#include <gtk/gtk.h>

namespace {

// Fixed, as users know the panel: it does not follow the system that runs.
constexpr const char *os_name = "ROSA Linux";

owned_gchar version_text(const board_answer &board)
{
    const pelva_version &version = board.version;
    if (!board.has_version)
        return owned_gchar(g_strdup_printf(_("Software version: %s\nHardware absent                  "),
                                           get_package_version()));
    return owned_gchar(g_strdup_printf(_("Software version: %s\nBIOS board version: %u.%u.%u"),
                                       get_package_version(), version.major, version.minor, version.build));
}

// The path that the headers of the templates hold, as the board shows it: what is no text of ours is code
// page 866, as is a letter behind 'Z'. The start-up settles all of this before; the page must not end one
// that has not.
std::string board_path_text(struct app *app)
{
    board_names names([app](const auto &work) { progress_wait(app, work); });
    const std::optional<std::string> path =
        app->pelva_db_mt ? names.of_template_directory(*app) : std::nullopt;
    if (!path)
        return _("none that the board can read; nothing can be saved");
    const std::size_t own = is_ext_fs(*app->pelva_db_mt->partition) ? 1 : path->size();
    return pvl_iconv(path->substr(0, own), "cp866", "utf8").value_or("?") + display_text(path->substr(own));
}

// The directory's name may be any bytes.
owned_gchar template_paths_text(struct app *app)
{
    return owned_gchar(
        g_strdup_printf(_("Path to templates for Pelva settings:\n OS %s: %s\n BIOS pelva: %s"), os_name,
                        display_text(app->pelva_db_path).c_str(), board_path_text(app).c_str()));
}

// The page is the third: the others must say that there is a warning on it.
void warn_on_other_pages(struct app *app)
{
    for (const list_kind page : {list_kind::files, list_kind::sectors})
        set_notice(
            app, page, notice_subject::disks,
            _("There are warnings about the disks of this computer: not everything may be shown here, and "
              "numbers and letters may be wrong."));
}

// Which disks the pages do not show, or not in full.
void show_disk_notes(struct app &app)
{
    GtkWidget *label = described_widget(app.xml, "disk_notes");
    GtkWidget *frame = described_widget(app.xml, "info_disks");
    GtkWidget *image = described_widget(app.xml, "info_disks_image");
    const std::string text = describe_disk_notes(app.disk_notes);
    if (!label || !frame || !image || text.empty())
        return;
    gtk_label_set_text(GTK_LABEL(label), text.c_str());
    gtk_widget_show(frame);
    if (!notes_warn(app.disk_notes))
        return;
    gtk_image_set_from_stock(GTK_IMAGE(image), GTK_STOCK_DIALOG_WARNING, GTK_ICON_SIZE_DND);
    warn_on_other_pages(&app);
}

} // namespace

const char *get_package_version()
{
    return TARNEL_VERSION;
}

int infobrowser_init(struct app *app)
{
    const pelva_version &version = app->board.version;
    if (!app->board.has_version)
        trace_log("pvGetVersion() failed");
    trace_log("Package version: %s", get_package_version());
    trace_log("HW version: %u.%u.%u", version.major, version.minor, version.build);

    GtkWidget *label = find_widget(app->xml, "label_version");
    if (!label)
        return 1;
    gtk_label_set_text(GTK_LABEL(label), version_text(app->board).get());

    label = described_widget(app->xml, "path_pelva");
    if (!label) {
        trace_log("* Failed");
        return 1;
    }
    gtk_label_set_text(GTK_LABEL(label), template_paths_text(app).get());
    wrap_anywhere(GTK_LABEL(label));
    show_disk_notes(*app);
    return 1;
}
