// How fast the file tree reads and marks, each as a ratio to what `find` needs for the same warm files, and
// how much memory a row takes. Run with a display: xvfb-run build/release/bench/file_tree_bench [DIRECTORY]
// DIRECTORY lies on ext, FAT or NTFS and is filled with files that are removed again.
#include "app.h"
#include "common/file_format.h"
#include "common/filesystem.h"
#include "common/mount_table.h"
#include "filebrowser.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <glade/glade.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int rounds = 5; // the fastest counts

struct case_result {
    double seconds;
    double bytes_per_row;
};

// --- The measured process ---

// An application record whose only partition begins at the directory.
void describe_partition(struct app &app, const std::string &directory)
{
    struct stat status;
    if (stat(directory.c_str(), &status) != 0 || check_fs_type(directory) == 0) {
        std::fprintf(stderr, "%s: not on ext, FAT or NTFS\n", directory.c_str());
        std::exit(1);
    }
    const std::optional<mount_data> mount = mount_data_find(directory);
    std::string device = mount ? mount->device.substr(mount->device.rfind('/') + 1) : "sda1";
    const std::size_t digits = device.find_last_not_of("0123456789") + 1;
    disk &d = app.disks.emplace_back();
    d.name = device.substr(0, digits);
    part &p = d.parts.emplace_back();
    p.device = d.name;
    p.index = std::atoi(device.c_str() + digits);
    p.letter = 'C';
    p.fs_name = p.fs_type = "ext4";
    p.mount_point = directory;
    p.dev = status.st_dev;
    app.mounts.push_back({&d, &p, status.st_dev, directory, 'C', 0});
    app.pelva_db_path = directory;
}

void build_window(struct app &app)
{
    app.xml = glade_xml_new(TARNEL_GLADE_FILE, nullptr, nullptr);
    app.window = glade_xml_get_widget(app.xml, "window");
    app.progress_window = glade_xml_get_widget(app.xml, "progress_window");
    app.progressbar = glade_xml_get_widget(app.xml, "progressbar");
}

void settle()
{
    while (gtk_events_pending())
        gtk_main_iteration();
}

std::size_t count_rows(const file_node &row)
{
    std::size_t count = 0;
    for (const auto &child : row.children)
        count += 1 + count_rows(*child);
    return count;
}

std::size_t name_bytes(const file_node &row)
{
    std::size_t bytes = row.name.size();
    for (const auto &child : row.children)
        bytes += name_bytes(*child);
    return bytes;
}

void unfold(struct app &app, file_node *row)
{
    GtkTreeIter iter = file_store_iter(filebrowser_store(&app), row);
    GtkTreePath *path = gtk_tree_model_get_path(GTK_TREE_MODEL(filebrowser_store(&app)), &iter);
    gtk_tree_view_expand_row(GTK_TREE_VIEW(app.filebrowser), path, FALSE);
    gtk_tree_path_free(path);
}

// Shows the window, unfolds the partition, and a directory that is all it holds, and marks everything on it,
// as the user's right click would.
int mark_everything(const std::string &directory)
{
    gtk_init(nullptr, nullptr);
    static struct app app;
    describe_partition(app, directory);
    build_window(app);
    if (!filebrowser_init(&app))
        return 1;
    gtk_widget_show(app.window);
    settle();
    file_store *store = filebrowser_store(&app);
    file_node *root = file_store_top(store)->children.front().get();
    const std::size_t before = mallinfo2().uordblks;
    unfold(app, root);
    if (root->children.size() == 1)
        unfold(app, root->children.front().get());
    toggle_iter(&app, store, root);
    settle();
    const double rows = static_cast<double>(count_rows(*root));
    const double grown = static_cast<double>(mallinfo2().uordblks - before - name_bytes(*root));
    std::printf("%u %.1f\n", app.total_files_selected, grown / rows);
    std::fflush(stdout);
    _exit(0);
}

int premark(const std::string &directory)
{
    static struct app app;
    describe_partition(app, directory);
    file_store *store = create_model(&app);
    const int result = fill_model(&app, store);
    std::printf("%u 0\n", app.total_files_selected);
    std::fflush(stdout);
    _exit(result == 0 ? 0 : 1);
}

// --- The measuring process ---

double now()
{
    return static_cast<double>(g_get_monotonic_time()) / 1e6;
}

double time_command(const std::string &command, std::string &output)
{
    const double start = now();
    std::FILE *pipe = popen(command.c_str(), "r");
    std::array<char, 256> line{};
    output = pipe && std::fgets(line.data(), line.size(), pipe) ? line.data() : "";
    if (!pipe || pclose(pipe) != 0) {
        std::fprintf(stderr, "failed: %s\n", command.c_str());
        std::exit(1);
    }
    return now() - start;
}

double fastest(const std::string &command, std::string &output)
{
    double best = time_command(command, output);
    for (int i = 1; i < rounds; i++)
        best = std::min(best, time_command(command, output));
    return best;
}

std::string quoted(const std::string &text)
{
    return "'" + text + "'";
}

double time_find(const fs::path &directory)
{
    std::string ignored;
    return fastest("find " + quoted(directory) + " -type f -printf '%s %p\\n' | tail -n 1", ignored);
}

case_result time_tool(const char *job, const fs::path &directory, unsigned expected)
{
    std::string output;
    const double seconds =
        fastest(quoted(fs::read_symlink("/proc/self/exe")) + " " + job + " " + quoted(directory), output);
    unsigned marked = 0;
    double bytes = 0;
    if (std::sscanf(output.c_str(), "%u %lf", &marked, &bytes) != 2 || marked != expected) {
        std::fprintf(stderr, "%s: %u files marked, not %u\n", directory.c_str(), marked, expected);
        std::exit(1);
    }
    return {seconds, bytes};
}

std::string file_name(unsigned number)
{
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "file-name_%06u.dat", number);
    return name.data();
}

void make_tree(const fs::path &root, unsigned directories, unsigned files_each)
{
    for (unsigned d = 0; d < directories; d++) {
        const fs::path directory = root / ("directory_" + std::to_string(d));
        fs::create_directories(directory);
        for (unsigned f = 0; f < files_each; f++) // in an order that is not the sorted one
            std::ofstream(directory / file_name(f * 7919U % files_each)) << "content";
    }
}

void write_template(const fs::path &root, unsigned records)
{
    std::FILE *nam = std::fopen((root / "bootfile.nam").c_str(), "wb");
    std::FILE *chk = std::fopen((root / "bootfile.chk").c_str(), "wb");
    if (!nam || !chk || !fill_structures(nam, chk, "C:/", records, list_kind::files))
        std::exit(1);
    for (unsigned i = 0; i < records; i++) {
        std::array<char, file_record_size> record{};
        std::snprintf(record.data(), record.size(), "C:/directory_0/%s",
                      file_name(i * 7919U % records).c_str());
        std::fwrite(record.data(), 1, record.size(), nam);
    }
    std::fclose(nam);
    std::fclose(chk);
}

case_result report(const char *what, const fs::path &directory, unsigned files)
{
    const double find = time_find(directory);
    const case_result tool = time_tool("--mark", directory, files);
    std::printf("%-44s %7.3f s  find %7.3f s  ratio %5.2f  %4.0f bytes per row beyond its name\n", what,
                tool.seconds, find, tool.seconds / find, tool.bytes_per_row);
    return tool;
}

void measure(const fs::path &base)
{
    make_tree(base / "ten", 100, 100);
    make_tree(base / "hundred", 1000, 100);
    make_tree(base / "flat", 1, 50'000);
    make_tree(base / "flat_small", 1, 5'000);
    const case_result small = report("10,000 files in 100 directories", base / "ten", 10'000);
    const case_result large = report("100,000 files in 1,000 directories", base / "hundred", 100'000);
    std::printf("%-44s %7.2f times the time\n", "ten times the files", large.seconds / small.seconds);
    const case_result few = report("5,000 files in one directory", base / "flat_small", 5'000);
    const case_result many = report("50,000 files in one directory", base / "flat", 50'000);
    std::printf("%-44s %7.2f times the time\n", "ten times the files", many.seconds / few.seconds);
    write_template(base / "flat_small", 1'000);
    const case_result thousand = time_tool("--premark", base / "flat_small", 1'000);
    write_template(base / "flat", 10'000);
    const case_result ten_thousand = time_tool("--premark", base / "flat", 10'000);
    std::printf("%-44s %7.3f s, 1,000 of 5,000: %.3f s\n", "pre-marking 10,000 of 50,000 files",
                ten_thousand.seconds, thousand.seconds);
}

} // namespace

int main(int count, char **arguments)
{
    if (count == 3 && std::strcmp(arguments[1], "--mark") == 0)
        return mark_everything(arguments[2]);
    if (count == 3 && std::strcmp(arguments[1], "--premark") == 0)
        return premark(arguments[2]);
    std::string base = std::string(count > 1 ? arguments[1] : "/var/tmp") + "/file-tree-bench-XXXXXX";
    if (!mkdtemp(base.data())) {
        std::perror(base.c_str());
        return 1;
    }
    measure(base);
    fs::remove_all(base);
}
