// Prints the figures: one table, each row a ratio to an independent tool. Every job is a process; ours and
// the other tool's run in turn, and medians count. To be started by bench/run.
#include "common/file_format.h"
#include "common/owned.h"
#include "common/table_record.h"
#include "fat_image.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using command = std::vector<std::string>;

// Processor time is what others on the computer disturb least, but start-up also waits for other processes.
enum class clock_kind { processor, elapsed };

struct job {
    command words;
    std::string answer; // what its last line must begin with
};

struct sample {
    double milliseconds;
    std::string answer;
    long peak; // of its memory, in KiB
};

struct figure {
    double ours, theirs;
    std::size_t row_bytes; // of memory, for one row of the tree
    long peak;             // of our memory, in KiB
    double longest_gap;    // of all runs: milliseconds in which the window did not answer
};

fs::path scratch;  // also the root of the machine whose disks are measured
fs::path programs; // the directory of the measured ones

[[noreturn]] void give_up(const std::string &what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    fs::remove_all(scratch);
    std::exit(1);
}

std::string last_line(const fs::path &file)
{
    std::ifstream stream(file);
    std::string line;
    for (std::string next; std::getline(stream, next);)
        line = std::move(next);
    return line;
}

double milliseconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

sample run(const job &job, clock_kind clock)
{
    static const std::string output = scratch / "output";
    std::vector<char *> arguments;
    for (const std::string &word : job.words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const auto begin = std::chrono::steady_clock::now();
    pid_t child = 0;
    int status = -1;
    rusage usage{};
    if (posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0)
        wait4(child, &status, 0, &usage);
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - begin;
    posix_spawn_file_actions_destroy(&actions);
    std::string answer = last_line(output);
    if (status != 0 || !answer.starts_with(job.answer))
        give_up(job.words[0] + " failed: " + answer + " instead of " + job.answer);
    // A start leaves its directory for mounts behind: taking it away is no part of coming up.
    if (const std::size_t directory = answer.find(" /tmp/tarnel"); directory != answer.npos)
        fs::remove(answer.substr(directory + 1));
    const double time = clock == clock_kind::elapsed
                            ? elapsed.count()
                            : milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
    return {time, answer, usage.ru_maxrss};
}

double median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

// Prints one row. `tenth`: the same for a tenth of the work, for the growth.
figure measure(const std::string &what, const job &our_job, const std::string &judge, const job &their_job,
               const figure *tenth = nullptr, clock_kind clock = clock_kind::processor)
{
    constexpr int fewest = 7, most = 51;
    constexpr auto enough = std::chrono::seconds(5);
    std::vector<double> our_times, their_times, ratios;
    figure result = {};
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < most && (i < fewest || std::chrono::steady_clock::now() - begin < enough); i++) {
        sample ours = run(our_job, clock);
        double gap = 0;
        // Jobs of the windows report the time of the work itself, without that of opening a window.
        if (our_job.words[0].ends_with("bench_windows"))
            std::sscanf(ours.answer.c_str(), "%*u %lf %zu %lf", &ours.milliseconds, &result.row_bytes, &gap);
        result.longest_gap = std::max(result.longest_gap, gap);
        result.peak = std::max(result.peak, ours.peak);
        our_times.push_back(ours.milliseconds);
        their_times.push_back(run(their_job, clock).milliseconds);
        ratios.push_back(our_times.back() / their_times.back());
    }
    result.ours = median(our_times);
    result.theirs = median(their_times);
    std::printf("| %s | %.1f ms | %s %.1f ms | %.2f (%.2f to %.2f) |", what.c_str(), result.ours,
                judge.c_str(), result.theirs, median(ratios), *std::ranges::min_element(ratios),
                *std::ranges::max_element(ratios));
    if (tenth)
        std::printf(" %.1f; %.1f |\n", result.ours / tenth->ours, result.theirs / tenth->theirs);
    else
        std::puts(" |");
    std::fflush(stdout);
    return result;
}

// One of our programs on the machine.
command ours(const char *program, const command &words)
{
    command all = {programs / program, scratch};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

void shell(const std::string &text)
{
    // NOLINTNEXTLINE: fixed commands on a directory of our own
    if (std::system(("cd '" + scratch.string() + "' && { " + text + "; } >/dev/null").c_str()) != 0)
        give_up("failed: " + text);
}

template<typename Value> std::string text(const char *format, Value value)
{
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, format, value); // NOLINT: the format is the caller's
    return buffer;
}

// --- Trees of files ---

void make_tree(const fs::path &root, int directories, int files_each)
{
    for (int d = 0; d < directories; d++) {
        const fs::path directory = root / text("directory_%d", d);
        fs::create_directories(directory);
        for (int f = 0; f < files_each; f++) // in an order that is not the sorted one
            std::ofstream(directory / text("file-name_%06d.dat", f * 7919 % files_each)) << "content";
    }
}

job find(const fs::path &directory)
{
    return {{"find", directory, "-type", "f", "-printf", "%s %p\n"}, ""};
}

job shell_job(const std::string &commands)
{
    return {{"sh", "-c", commands}, ""};
}

void print_limit(const char *what, double value, const char *unit, double limit)
{
    std::printf("| %s | %.1f %s | limit %.0f %s | %.2f | |\n", what, value, unit, limit, unit, value / limit);
}

struct tree {
    const char *directory;
    int files;
    const char *shown;
    std::string fat_image; // when its names are looked up there
};

// The longest time in which the window did not answer while it marked, saved, or came up.
double longest_wait = 0;

figure measure_tree(const std::string &what, const char *task, const tree &tree, const char *judge,
                    const job &theirs, const figure *tenth)
{
    const fs::path path = scratch / "files" / tree.directory;
    const char *file_system = tree.fat_image.empty() ? "ext4" : "fat32";
    const job our_job = {ours("bench_windows", {task, path, file_system}), std::to_string(tree.files) + " "};
    const figure result = measure(what, our_job, judge, theirs, tenth);
    if (task !=
        std::string("report")) // which is no operation of its own: its window comes up as it is filled
        longest_wait = std::max(longest_wait, result.longest_gap);
    return result;
}

// Marks all files, saves them, and marks again what was saved. Of trees that grow tenfold.
figure measure_deep_trees(const std::vector<tree> &trees)
{
    const fs::path device = scratch / "dev/sda1"; // which the windows take for the partition
    figure mark{}, save{}, start{};
    for (const tree &tree : trees) {
        const std::string path = scratch / "files" / tree.directory, saved = scratch / "saved";
        const std::string find_all = "find " + path + " -type f -printf '%s %p\n'";
        const std::string write_all =
            "find " + path + " -type f -printf %-256p >" + saved + " && sync " + saved;
        const std::string list_fat = "mdir -/ -i " + tree.fat_image + " ::";
        const std::string files = std::string(tree.shown) + " files";
        const bool grown = &tree != &trees.front();
        if (tree.fat_image.empty()) {
            mark = measure_tree("Mark " + files, "mark", tree, "`find`", find(path), grown ? &mark : nullptr);
            save = measure_tree("Save " + files, "save", tree, "`find` and `sync`", shell_job(write_all),
                                grown ? &save : nullptr);
            start = measure_tree("Mark " + files + " from the template", "premark", tree, "`find`",
                                 find(path), grown ? &start : nullptr);
        } else {
            fs::create_symlink(tree.fat_image, device);
            save = measure_tree("Save " + files + " on FAT", "save", tree, "`mdir`, `find` and `sync`",
                                shell_job(list_fat + " && " + write_all), grown ? &save : nullptr);
            start = measure_tree("Mark " + files + " on FAT from the template", "premark", tree,
                                 "`mdir` and `find`", shell_job(list_fat + " && " + find_all),
                                 grown ? &start : nullptr);
            fs::remove(device);
        }
    }
    return mark;
}

void measure_trees()
{
    const fs::path files = scratch / "files";
    const tree small = {"small", 10'000, "10,000", ""}, large = {"large", 100'000, "100,000", ""},
               huge = {"huge", 1'000'000, "1,000,000", ""}, flat_small = {"flat_small", 5'000, "5,000", ""},
               flat_large = {"flat_large", 50'000, "50,000", ""};
    make_tree(files / small.directory, 100, 100);
    make_tree(files / large.directory, 1'000, 100);
    make_tree(files / huge.directory, 10'000, 100);
    make_tree(files / flat_small.directory, 1, flat_small.files);
    make_tree(files / flat_large.directory, 1, flat_large.files);
    const figure marked = measure_deep_trees({small, large, huge});
    const auto measure_flat = [&](const char *what, const char *task) {
        figure tenth{};
        for (const tree *tree : {&flat_small, &flat_large})
            tenth = measure_tree(text(what, tree->shown), task, *tree, "`find`",
                                 find(files / tree->directory), tree == &flat_large ? &tenth : nullptr);
    };
    measure_flat("Mark %s files in one directory", "mark");
    measure_flat("List %s marked files in the report", "report");
    const tree fat_small = {"small", small.files, small.shown, scratch / "dev/fat_small"},
               fat_large = {"large", large.files, large.shown, scratch / "dev/fat_large"};
    for (const tree &tree : {fat_small, fat_large})
        shell("mkfs.fat -C -F 32 -s 8 " + tree.fat_image + " 524288 && mcopy -s -i " + tree.fat_image +
              " files/" + tree.directory + "/* ::");
    measure_deep_trees({fat_small, fat_large});
    print_limit("Longest wait for the window while it marks, saves or starts", longest_wait, "ms", 100);
    print_limit("Memory of the program with 1,000,000 files marked", static_cast<double>(marked.peak) / 1024,
                "MiB", 200);
}

// --- Disks and volumes ---

void measure_fat()
{
    const struct {
        const char *name;
        int files;
        const char *shown;
    } volumes[] = {{"sdc1", 2'000, "2,000"}, {"sdc2", 20'000, "20,000"}};
    figure to_short{}, to_long{}, both{};
    for (const auto &[name, files, shown] : volumes) {
        const std::string image = scratch / "dev" / name;
        shell("mkfs.fat -C -F 32 -s 8 dev/" + std::string(name) + " 524288");
        if (!fill_fat_image(image, files))
            give_up("cannot fill a FAT volume");
        const std::string long_name = text("File of the directory %05d.txt", files);
        const std::string short_name = text("F%05d~1.TXT", files);
        const std::string among = std::string(" of the last of ") + shown + " files";
        const bool large = files > 2'000;
        const auto mshortname = [&image, &short_name](const std::string &file) {
            return job{{"mshortname", "-i", image, "::/DIR/" + file}, "::/DIR/" + short_name};
        };
        to_short = measure("FAT short name" + among,
                           {ours("bench_reader", {"short", name, "DIR\\" + long_name}), "DIR\\" + short_name},
                           "`mshortname`", mshortname(long_name), large ? &to_short : nullptr);
        to_long = measure("FAT long name" + among,
                          {ours("bench_reader", {"long", name, "DIR\\" + short_name}), "DIR/" + long_name},
                          "`mshortname`", mshortname(short_name), large ? &to_long : nullptr);
        both = measure(std::string("FAT names of all ") + shown + " files of a directory, both ways",
                       {ours("bench_reader", {"both", name, std::to_string(files)}), std::to_string(files)},
                       "`mdir`", {{"mdir", "-i", image, "::/DIR"}, ""}, large ? &both : nullptr);
    }
}

// A disk whose partition table holds so many partitions of 1 MiB, the first one an ext4 file system.
void make_disk(const std::string &name, int partitions)
{
    std::string arguments;
    for (int i = 0; i < partitions; i++)
        arguments += " -n 0:0:+1M -t 0:0700";
    shell("truncate -s 160M dev/" + name + " && sgdisk" + arguments + " dev/" + name +
          " && mke2fs -q -t ext4 -E offset=1048576 dev/" + name + " 1024");
}

void measure_tables()
{
    make_disk("sda", 12);
    make_disk("sdb", 120);
    const auto sgdisk = [](const char *disk) { return job{{"sgdisk", "-p", scratch / "dev" / disk}, ""}; };
    figure small = measure("GPT, 12 partitions", {ours("bench_reader", {"gpt", "sda"}), "12"}, "`sgdisk -p`",
                           sgdisk("sda"));
    measure("GPT, 120 partitions", {ours("bench_reader", {"gpt", "sdb"}), "120"}, "`sgdisk -p`",
            sgdisk("sdb"), &small);
    const auto parted = [](const char *disk, const char *last) {
        return job{{"parted", "-ms", scratch / "dev" / disk, "print"}, last};
    };
    small = measure("Partition table and file systems, 12", {ours("bench_table", {"sda"}), "12"},
                    "`parted print`", parted("sda", "12:"), nullptr, clock_kind::elapsed);
    measure("Partition table and file systems, 120", {ours("bench_table", {"sdb"}), "120"}, "`parted print`",
            parted("sdb", "120:"), &small, clock_kind::elapsed);
}

// A machine whose disks take their time, each longer than the one before it: up to 240 ms.
void measure_slow_disks()
{
    const fs::path machine = scratch / "slow", reader = machine / fs::path(table_reader_program + 1);
    for (const fs::path &directory : {machine / "dev", machine / "proc", reader.parent_path()})
        fs::create_directories(directory);
    std::ofstream(reader) << "#!/bin/sh\nread delay <\"$1.delay\"\nsleep $delay\nexec '" << scratch.string()
                          << table_reader_program << "' \"$@\"\n";
    fs::permissions(reader, fs::perms::owner_all);
    std::ofstream listed(machine / "proc/partitions");
    listed << "major minor  #blocks  name\n\n";
    for (int i = 0; i < 12; i++) {
        const std::string name = {'s', 'd', static_cast<char>('a' + i)};
        listed << " 8 0 163840 " << name << "\n";
        fs::create_directories(machine / "sys/block" / name);
        std::ofstream(machine / "sys/block" / name / "removable") << "0\n";
        std::ofstream(machine / "dev" / (name + ".delay")) << text("0.%02d\n", 2 * (i + 1));
        fs::create_hard_link(scratch / "dev/sda", machine / "dev" / name);
    }
    listed.close();
    const std::string program = programs / "bench_table";
    measure("Tables of 12 disks, the slowest of 240 ms", {{program, machine}, "144"}, "the slowest alone",
            {{program, machine, "sdl"}, "12"}, nullptr, clock_kind::elapsed);
}

// --- Start ---

std::ofstream file_of_machine(const char *name)
{
    fs::create_directories((scratch / name).parent_path());
    return std::ofstream(scratch / name);
}

void make_machine()
{
    fs::create_directories(scratch / "files");
    fs::create_directories(scratch / "dev");
    file_of_machine("proc/partitions")
        << "major minor  #blocks  name\n\n   8 0 163840 sda\n   8 1 163840 sdd\n";
    file_of_machine("proc/mounts") << "/dev/sda1 " << (scratch / "files").string() << " ext4 rw 0 0\n";
    file_of_machine("proc/mdstat") << "";
    file_of_machine("sys/block/sda/removable") << "0\n";
    file_of_machine("sys/block/sdd/removable") << "0\n";
    fs::create_directories(scratch / "bin");
    for (const char *program : {"lsblk", "grep"})
        fs::create_symlink(fs::path("/bin") / program, scratch / "bin" / program);
    for (const char *program : {"mount", "umount", "rmdir"})
        fs::create_symlink("/bin/false", scratch / "bin" / program);
    const fs::path share = scratch / "usr/share/gtk-tarnel";
    fs::create_directories(share);
    for (const char *description : {"gtk-tarnel.glade", "gtk-tarnel.ui"})
        fs::copy(programs / "../data" / description, share);
    fs::copy(programs / "../data/images", share / "images");
    const fs::path reader = scratch / fs::path(table_reader_program).relative_path();
    fs::create_directories(reader.parent_path());
    fs::copy(programs / "../src/read-table", reader);
}

void write_template(const fs::path &root, const std::string &directory, unsigned records)
{
    const owned_file nam(std::fopen((root / "bootfile.nam").c_str(), "wb"));
    const owned_file chk(std::fopen((root / "bootfile.chk").c_str(), "wb"));
    if (!nam || !chk || !fill_structures(nam.get(), chk.get(), "C:/", records, list_kind::files))
        give_up("cannot write a template");
    for (unsigned i = 0; i < records; i++) {
        const std::string name = text("/file-name_%06d.dat", static_cast<int>(i * 7919 % records));
        std::string record = "C:/";
        record.append(directory).append(name);
        record.resize(file_record_size);
        std::fwrite(record.data(), 1, record.size(), nam.get());
    }
}

// The window comes up with two disks of 12 partitions, one of their file systems mounted, and a saved
// template.
void measure_start()
{
    make_disk("sdd", 12);
    const fs::path files = scratch / "files";
    struct stat status = {};
    if (stat(files.c_str(), &status) != 0 ||
        mknod((scratch / "dev/sda1").c_str(), S_IFBLK | 0400, status.st_dev) != 0)
        give_up("cannot make a device node; to be run as root");
    write_template(files / "flat_small", "flat_small/directory_0", 1'000);
    setenv("PELVADB", (files / "flat_small").c_str(), 1);
    // Each step by the plainest program that does all of it.
    const std::string sum =
        "cd '" + scratch.string() +
        "' && lsblk && parted -ms dev/sda print && parted -ms dev/sdd print && "
        "cat usr/share/gtk-tarnel/*.glade usr/share/gtk-tarnel/images/* files/flat_small/boot* && "
        "find files -maxdepth 1 -printf '%s %p\\n' && "
        "find files/flat_small -printf '%s %p\\n' && exec '" +
        (programs / "bench_windows").string() + "' . empty";
    measure("Start to main window", {ours("bench_windows", {"start"}), "1000"},
            "sum of its readings, and an empty window", {{"sh", "-c", sum}, ""}, nullptr,
            clock_kind::elapsed);
}

// Both processes from their start until they show it.
void measure_question()
{
    const fs::path file = scratch / "question";
    std::ofstream lines(file);
    for (int i = 0; i < 10'000; i++)
        lines << text("/usr/share/doc/package/file-name_%06d.dat\n", i);
    lines.close();
    measure("Question with a list of 10,000 files", {ours("bench_windows", {"question", file}), "10000"},
            "`xmessage`", {{"xmessage", "-timeout", "1", "-file", file}, ""});
}

} // namespace

int main(int, char **arguments)
{
    std::string name = "/var/tmp/gtk-tarnel-figures-XXXXXX";
    if (!mkdtemp(name.data()))
        give_up("cannot make a directory in /var/tmp");
    scratch = name;
    programs = fs::absolute(arguments[0]).parent_path();
    setenv("MTOOLS_SKIP_CHECK", "1", 1);
    std::puts("| Work | gtk-tarnel | Measured against | Ratio (least to most) | Ten times the work: ours; "
              "theirs |");
    std::puts("|---|---|---|---|---|");
    make_machine();
    measure_fat();
    measure_tables();
    measure_slow_disks();
    measure_trees();
    measure_start();
    measure_question();
    fs::remove_all(scratch);
}
