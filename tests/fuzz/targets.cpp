// Everything that reads bytes which nobody vouches for, driven by libFuzzer. Each target becomes a program of
// its own: FUZZ_TARGET names the one that this compilation is for.
#include "common/fat.h"
#include "common/file_format.h"
#include "common/gpt.h"
#include "common/host.h"
#include "common/iconvert.h"
#include "common/mount_table.h"
#include "common/template_pair.h"
#include "rtf_export.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/mman.h>

namespace {

namespace fs = std::filesystem;

// Ends the run like a sanitizer would, so that libFuzzer keeps the input.
void require(bool holds)
{
    if (!holds)
        std::abort();
}

// The input, taken apart from its front.
class input {
public:
    explicit input(std::string_view bytes) : rest_(bytes) {}

    std::string_view take(std::size_t count)
    {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    std::size_t number() // of two bytes
    {
        const std::string_view bytes = take(2);
        return bytes.size() < 2
                   ? 0
                   : static_cast<std::uint8_t>(bytes[0]) + 256U * static_cast<std::uint8_t>(bytes[1]);
    }
    std::string text() // up to a NUL or the end
    {
        const std::string_view taken = take(rest_.find('\0'));
        take(1);
        return std::string(taken);
    }
    std::string_view rest() { return take(rest_.size()); }

private:
    std::string_view rest_;
};

// A directory that stands for the machine's "/".
class host {
public:
    host()
    {
        char name[] = "/tmp/gtk-tarnel-fuzz-XXXXXX";
        require(mkdtemp(name));
        root_ = name;
        for (const char *directory : {"dev", "proc", "templates"})
            fs::create_directory(root_ / directory);
        // In memory, since writing them is most of the work.
        for (const char *file : {"dev/sda", "dev/sda1"})
            fs::create_symlink("/proc/self/fd/" + std::to_string(memfd_create(file, 0)), root_ / file);
        set_host_root(root_);
    }
    ~host()
    {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
    host(const host &) = delete;
    host &operator=(const host &) = delete;

    std::string write(const std::string &name, std::string_view head, std::size_t hole = 0,
                      std::string_view tail = {}) const
    {
        const fs::path path = root_ / name;
        std::ofstream file(path, std::ios::binary);
        file << head;
        file.seekp(static_cast<std::streamoff>(head.size() + hole)) << tail;
        require(file.good());
        return path;
    }
    fs::path templates() const { return root_ / "templates"; }

private:
    fs::path root_;
};

// Made with the first input: the root must not be set before the object that holds it exists.
const host &machine()
{
    static const host made;
    return made;
}

bool is_utf8(const std::string &text)
{
    return text.find('\0') == std::string::npos && pvl_iconv(text, "utf-8", "utf-16le").has_value();
}

void gpt(input bytes)
{
    machine().write("dev/sda", bytes.rest());
    const std::vector<std::uint32_t> numbers = readGpt("/dev/sda");
    require(std::ranges::is_sorted(numbers, std::less_equal()) || numbers.size() < 2);
    require(numbers.empty() || (numbers.front() >= 1 && numbers.back() <= 4096));
}

// A path, the sectors that a hole takes, the bytes before the hole, and those behind it: so a FAT of many
// sectors costs nothing.
void fat(input bytes)
{
    const std::string path = bytes.text();
    const std::size_t hole = 512 * (bytes.number() % 1024);
    const std::string_view head = bytes.take(bytes.number());
    machine().write("dev/sda1", head, hole, bytes.rest());
    const auto parts = [](const std::string &of, const char *separator) {
        std::size_t count = 0, start = 0;
        while ((start = of.find_first_not_of(separator, start)) != std::string::npos) {
            ++count;
            start = of.find_first_of(separator, start);
        }
        return count;
    };
    fat_lookups lookups;
    if (const auto found = get_sfn_path("sda1", path)) {
        require(parts(*found, "\\") == parts(path, "\\"));
        require(lookups.find("sda1", path, fat_direction::long_to_short) == found);
    }
    if (const auto found = get_lfn_path("sda1", path)) {
        require(lookups.find("sda1", path, fat_direction::short_to_long) == found);
        require(parts(*found, "/") == parts(path, "\\") && found->size() <= 255);
        require(is_utf8(*found) && ("/" + *found + "/").find("/../") == std::string::npos);
    }
}

// Which of the four names the two files get, the length of the first, both files; then what a start does with
// them.
void templates(input bytes)
{
    const std::size_t names = bytes.number();
    const std::string_view nam = bytes.take(bytes.number()), chk = bytes.rest();
    const list_kind kind = names & 1 ? list_kind::files : list_kind::sectors;
    const template_layout layout = layout_of(kind);
    const fs::path directory = machine().templates();
    const auto name = [](const std::string &file, const char *suffix) {
        return "templates/" + std::string(*suffix ? ".gtk-tarnel-" : "") + file + suffix;
    };
    machine().write(name(layout.name_file, names & 2 ? ".new" : ""), nam);
    machine().write(name(layout.check_file, names & 4 ? ".new" : names & 8 ? ".old" : ""), chk);
    recover_templates(directory);
    for (const auto &file : fs::directory_iterator(directory))
        require(file.path().extension() == ".nam" || file.path().extension() == ".chk");

    const std::size_t whole = nam.size() < template_header_size ? 0 : nam.size() - template_header_size;
    std::size_t records = 0;
    const auto count = [](const char *text, void *user) {
        require(std::strlen(text) <= file_record_size); // all of a record without a NUL
        ++*static_cast<std::size_t *>(user);
        return 0;
    };
    const int result = read_file_list(directory, nullptr, count, &records);
    require(result == 0 || (result >= -2 && records == 0));
    require(records <= whole / file_record_size);
    std::uint32_t sectors = 0;
    if (const auto list = read_sector_list(directory, sectors))
        require(sectors <= whole / sizeof(sector_record) &&
                (sectors == 0 || sector_of(list[sectors - 1]) + 1ULL > 0));
    for (const auto &file : fs::directory_iterator(directory))
        fs::remove(file);
}

void mounts(input bytes)
{
    const std::string_view text = bytes.rest();
    for (const mount_table &table : {parse_mounts(text), parse_mountinfo(text)})
        for (const mount_data &mount : table.lines)
            require(std::ranges::binary_search(table.directories, mount.directory) &&
                    (mount.type != "" || !mount.complete));
}

void backslash(input bytes)
{
    const std::string before = bytes.text();
    std::string after = before;
    replace_backslash(after);
    require(after.size() == before.size());
    for (std::size_t i = 0; i < after.size(); ++i)
        require(after[i] == before[i] || (before[i] == '\\' && after[i] == '/' &&
                                          fs::is_directory(i == 0 ? "/" : after.substr(0, i))));
}

// What a reader of the document would get back is the text.
void rtf(input bytes)
{
    const std::string text = bytes.text();
    const owned_gchar escaped = re_escape("%s", text.c_str());
    std::string read;
    for (const char *c = escaped.get(); *c; ++c) {
        require(*c != '{' && *c != '}');
        c += *c == '\\' ? 1 : 0;
        require(*c != '\0');
        read += *c;
    }
    if (!read.empty() && read.size() < 1024)
        require(pvl_iconv(read, "cp1251", "utf-8") == text);
}

void code_pages(input bytes)
{
    const std::string_view text = bytes.rest();
    if (const auto name = pvl_iconv(text, "utf-16le", "utf-8"))
        require(is_utf8(*name));
    if (const auto converted = pvl_iconv(text, "utf8", "cp866"))
        require(pvl_iconv(*converted, "cp866", "utf-8") == text.substr(0, text.find('\0')));
    if (const auto converted = pvl_iconv(text, "cp866", "utf-8"))
        require(pvl_iconv(*converted, "utf8", "cp866") == text.substr(0, text.find('\0')));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    [[maybe_unused]] constexpr void (*all[])(input) = {gpt,       fat, templates, mounts,
                                                       backslash, rtf, code_pages};
    const std::string bytes(data, data + size);
    FUZZ_TARGET(input(bytes));
    return 0;
}
