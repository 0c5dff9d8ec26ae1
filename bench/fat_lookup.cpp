// Compares the resolver with mtools' `mshortname`: both are started for the last file in a directory of
// 20,000 files, by its long and by its short name, in turn and in one run. A ratio of 1 or less means no
// slower.
#include "common/bytes.h"
#include "common/owned.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <numeric>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr int file_count = 20000;
constexpr int rounds = 101;
constexpr std::uint32_t directory_cluster = 3; // the root directory is in cluster 2

void append_short_entry(bytes &out, const std::string &name, std::uint8_t attribute, std::uint32_t cluster)
{
    out.insert(out.end(), name.begin(), name.end());
    out.push_back(attribute);
    out.resize(out.size() + 20);
    out[out.size() - 6] = static_cast<std::uint8_t>(cluster);
}

void append_long_entries(bytes &out, const std::string &name, const std::string &short_name)
{
    std::uint8_t checksum = 0;
    for (const char c : short_name)
        checksum = static_cast<std::uint8_t>((checksum << 7 | checksum >> 1) + static_cast<std::uint8_t>(c));
    static constexpr std::uint8_t offsets[] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
    const std::size_t pieces = (name.size() + 12) / 13;
    for (std::size_t piece = pieces; piece > 0; --piece) {
        const std::size_t start = out.size();
        out.resize(start + 32);
        out[start] = static_cast<std::uint8_t>(piece | (piece == pieces ? 0x40 : 0));
        out[start + 11] = 0x0F;
        out[start + 13] = checksum;
        for (std::size_t i = 0; i < 13; ++i) {
            const std::size_t at = (piece - 1) * 13 + i;
            out[start + offsets[i]] = static_cast<std::uint8_t>(at < name.size()   ? name[at]
                                                                : at > name.size() ? 0xFF
                                                                                   : 0);
            out[start + offsets[i] + 1] = at > name.size() ? 0xFF : 0;
        }
    }
}

std::string numbered(const char *format, int number)
{
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

bool write_at(int fd, std::uint64_t offset, const bytes &content)
{
    return pwrite(fd, content.data(), content.size(), static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(content.size());
}

// Fills a fresh FAT32 volume with DIR and its files, which hold nothing. mtools takes minutes for that.
bool fill(const std::string &image)
{
    const owned_fd fd(open(image.c_str(), O_RDWR | O_CLOEXEC));
    bytes boot(512);
    if (!fd || pread(fd.get(), boot.data(), boot.size(), 0) != 512)
        return false;
    const std::uint64_t sector = le16(boot, 11);
    const std::uint64_t cluster_size = boot[13] * sector;
    const std::uint64_t fat_start = le16(boot, 14) * sector;
    const std::uint64_t data_start = fat_start + le32(boot, 36) * sector * boot[16];

    bytes root;
    append_short_entry(root, "DIR        ", 0x10, directory_cluster);
    bytes directory;
    append_short_entry(directory, ".          ", 0x10, directory_cluster);
    append_short_entry(directory, "..         ", 0x10, 0);
    for (int i = 1; i <= file_count; ++i) {
        const std::string short_name = numbered("F%05d~1TXT", i);
        append_long_entries(directory, numbered("File of the directory %05d.txt", i), short_name);
        append_short_entry(directory, short_name, 0x20, 0);
    }
    const std::size_t clusters = directory.size() / cluster_size + 1;
    directory.resize(clusters * cluster_size);
    bytes chain;
    for (std::size_t i = 1; i <= clusters; ++i) {
        const std::size_t next = i == clusters ? 0x0FFFFFFF : directory_cluster + i;
        for (unsigned shift = 0; shift < 32; shift += 8)
            chain.push_back(static_cast<std::uint8_t>(next >> shift));
    }
    return write_at(fd.get(), data_start, root) && write_at(fd.get(), data_start + cluster_size, directory) &&
           write_at(fd.get(), fat_start + std::uint64_t{directory_cluster} * 4, chain);
}

using command = std::vector<std::string>;

// The milliseconds from starting the command to its end; its output goes to `output`.
double milliseconds(const command &words, const std::string &output)
{
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    int status = -1;
    if (posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0)
        waitpid(child, &status, 0);
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    posix_spawn_file_actions_destroy(&actions);
    if (status == 0)
        return elapsed.count();
    std::fprintf(stderr, "%s failed\n", words[0].c_str());
    std::exit(1);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void check_last_line(const std::string &file, const std::string &ending)
{
    const owned_file stream(std::fopen(file.c_str(), "re"));
    char line[512] = "";
    if (stream && std::fgets(line, sizeof line, stream.get()) && std::string(line).ends_with(ending + "\n"))
        return;
    std::fprintf(stderr, "wrong answer: %sinstead of %s\n", line, ending.c_str());
    std::exit(1);
}

} // namespace

int main(int, char **argv)
{
    namespace fs = std::filesystem;
    setenv("MTOOLS_SKIP_CHECK", "1", 1);
    const fs::path resolver = fs::path(argv[0]).parent_path() / "fat_resolve";
    std::string scratch = (fs::temp_directory_path() / "fat-lookup-XXXXXX").string();
    if (!mkdtemp(scratch.data()))
        return 1;
    const std::string image = scratch + "/dev/sda1";
    const std::string output = scratch + "/output";
    fs::create_directory(scratch + "/dev");
    milliseconds({"mkfs.fat", "-C", "-F", "32", "-s", "8", image, "524288"}, output);
    if (!fill(image))
        return 1;

    const std::string long_name = numbered("File of the directory %05d.txt", file_count);
    const std::string short_name = numbered("F%05d~1.TXT", file_count);
    const struct {
        const char *label, *direction;
        const std::string &from, &to;
    } directions[] = {{"long to short", "short", long_name, short_name},
                      {"short to long", "long", short_name, long_name}};
    for (const auto &[label, direction, from, to] : directions) {
        std::vector<double> ours, theirs;
        for (int i = 0; i < rounds; ++i) {
            ours.push_back(milliseconds({resolver, scratch, "sda1", direction, "DIR\\" + from}, output));
            check_last_line(output, to);
            theirs.push_back(milliseconds({"mshortname", "-i", image, "::/DIR/" + from}, output));
            check_last_line(output, short_name);
        }
        std::printf("%s: %.2f ms, mshortname %.2f ms, ratio %.2f (medians of %d)\n", label, median(ours),
                    median(theirs), median(ours) / median(theirs), rounds);
    }
    fs::remove_all(scratch);
    return 0;
}
