// tarnel-list: what the saved templates say, one line for each file and each sector; and which of them the
// board would not find as they were.
#include "common/check.h"
#include "common/disk_notes.h"
#include "common/environment.h"
#include "common/file_format.h"
#include "common/iconvert.h"
#include "common/process.h"
#include "common/visible_text.h"
#include "i18n.h"

#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>

namespace {

// Of several that fit, usage counts most, then whole, then changed.
enum exit_status { all_whole = 0, not_whole = 1, wrong_usage = 2, has_changed = 3, not_known = 4 };

void complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

void complain(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::fputs("tarnel-list: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
}

// For messages: the directory was named by somebody, too.
std::string shown(const std::string &path)
{
    return visible_text(path, text_form::listing);
}

// Null, with a message, when the file is no file that can be read. A file that is not there is left to the
// caller: `missing` is set.
owned_file open_half(const std::string &path, bool &missing)
{
    errno = 0;
    owned_file stream = open_template_file(AT_FDCWD, path);
    missing = !stream && errno == ENOENT;
    if (!stream && !missing)
        complain(_("Cannot read %s: %s"), shown(path).c_str(),
                 errno ? std::strerror(errno) : _("it is no regular file"));
    return stream;
}

void say_not_whole(const std::string &directory, list_kind kind)
{
    complain(kind == list_kind::files ? _("The file template in %s is not whole")
                                      : _("The sector template in %s is not whole"),
             shown(directory).c_str());
}

// Whether both files are there and agree. What is wrong is said.
bool check_pair(const std::string &directory, list_kind kind)
{
    const bool files = kind == list_kind::files;
    const template_layout layout = layout_of(kind);
    bool no_nam = false, no_chk = false;
    const owned_file nam = open_half(directory + "/" + layout.name_file, no_nam);
    const owned_file chk = open_half(directory + "/" + layout.check_file, no_chk);
    if (no_nam && no_chk) {
        complain(files ? _("There is no file template in %s") : _("There is no sector template in %s"),
                 shown(directory).c_str());
        return false;
    }
    template_header nam_header{}, chk_header{};
    if (nam && chk && read_structures(nam.get(), chk.get(), nam_header, chk_header) &&
        is_whole_pair(nam.get(), nam_header, chk.get(), chk_header, kind).value_or(false))
        return true;
    say_not_whole(directory, kind);
    return false;
}

// Paths on ext file systems are bytes, and known by their slash; all others are code page 866.
std::string record_text(const std::string &record)
{
    if (record.substr(0, 3).ends_with('/'))
        return visible_text(record, text_form::listing);
    return visible_text(pvl_iconv(record, "cp866", "utf-8").value_or(record), text_form::listing);
}

void print_record(const std::string &text, bool raw)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc(raw ? '\0' : '\n', stdout);
}

struct listing {
    bool raw;
    bool complete; // false once records could not be read
};

bool list_files(const std::string &directory, bool raw)
{
    listing list{raw, true};
    const int failure = read_file_list(
        directory, nullptr,
        [](const char *record, void *user) {
            const bool as_it_is = static_cast<const listing *>(user)->raw;
            print_record(as_it_is ? record : record_text(record), as_it_is);
            return 0;
        },
        &list,
        [](std::uint32_t, std::uint32_t, void *user) { static_cast<listing *>(user)->complete = false; });
    return failure == 0 && list.complete;
}

std::string sector_text(const sector_record &record)
{
    char text[sizeof("0xff 4294967295")];
    std::snprintf(text, sizeof(text), "0x%02x %u", static_cast<unsigned>(record.drive_number),
                  sector_of(record));
    return text;
}

bool list_sectors(const std::string &directory, bool raw)
{
    std::uint32_t count = 0;
    const auto records = read_sector_list(directory, count);
    for (std::uint32_t i = 0; records && i < count; ++i)
        print_record(sector_text(records[i]), raw);
    return records != nullptr;
}

// What can be read of a pair that is not whole is printed, too: what the program would mark at its start.
bool list_pair(const std::string &directory, list_kind kind, bool raw)
{
    const bool whole = check_pair(directory, kind);
    const bool complete =
        kind == list_kind::files ? list_files(directory, raw) : list_sectors(directory, raw);
    if (whole && !complete)
        say_not_whole(directory, kind);
    return whole && complete;
}

// The status, unless what was printed did not arrive.
int after_output(exit_status status)
{
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return status;
    complain(_("Cannot write: %s"), std::strerror(errno));
    return not_whole;
}

int list_templates(const std::string &directory, bool raw)
{
    bool whole = true;
    for (const list_kind kind : {list_kind::files, list_kind::sectors})
        whole = list_pair(directory, kind, raw) && whole;
    return after_output(whole ? all_whole : not_whole);
}

// A way through the entries of both templates.
struct checking {
    explicit checking(environment &machine) : env(machine), files(machine) {}

    environment &env;
    file_check files;
    board_names names{[](const auto &work) { work(); }};
    bool raw = false;
    bool complete = true; // false once records could not be read
    bool changed = false, unknown = false;
};

void print_state(checking &check, entry_state state, const std::string &text)
{
    if (state == entry_state::unchanged)
        return;
    const bool unknown = state == entry_state::unknown;
    (unknown ? check.unknown : check.changed) = true;
    print_record((unknown                         ? "unknown  "
                  : state == entry_state::changed ? "changed  "
                                                  : "gone  ") +
                     text,
                 check.raw);
}

bool check_files(checking &check)
{
    const int failure = read_file_list(
        check.env.pelva_db_path, nullptr,
        [](const char *record, void *user) {
            auto &all = *static_cast<checking *>(user);
            const entry_state state = all.files.state_of(all.names, record);
            if (state != entry_state::unchanged)
                print_state(all, state, all.raw ? record : record_text(record));
            return 0;
        },
        &check,
        [](std::uint32_t, std::uint32_t, void *user) { static_cast<checking *>(user)->complete = false; });
    return failure == 0 && check.complete;
}

bool check_sectors(checking &check)
{
    std::uint32_t count = 0;
    const auto records = read_sector_list(check.env.pelva_db_path, count);
    for (std::uint32_t i = 0; records && i < count; ++i)
        print_state(check, check_sector(check.env, records[i]), sector_text(records[i]));
    return records != nullptr;
}

bool find_disks(environment &env)
{
    if (get_disk_list(env.disks, env.disk_notes) != 0 || env.disks.empty()) {
        complain(_("No disks were found. The board checks disks that Linux names sda to sdz, and arrays of "
                   "them (md0 and so on). Others, such as NVMe and eMMC disks, have no number there."));
        return false;
    }
    if (notes_warn(env.disk_notes))
        complain("%s", describe_disk_notes(env.disk_notes).c_str());
    return true;
}

int check_templates(const std::string &directory, bool raw)
{
    if (geteuid() != 0) {
        complain(_("Only root can look at the disks"));
        return not_known;
    }
    settle_process();
    environment env;
    env.pelva_db_path = directory;
    const bool has_template =
        template_exists(directory, list_kind::files) || template_exists(directory, list_kind::sectors);
    const bool has_disks = has_template && find_disks(env);
    checking check(env);
    check.unknown = !has_disks;
    check.raw = raw;
    bool whole = true;
    for (const list_kind kind : {list_kind::files, list_kind::sectors}) {
        const bool pair = check_pair(directory, kind);
        const bool complete =
            !has_disks || (kind == list_kind::files ? check_files(check) : check_sectors(check));
        if (pair && !complete)
            say_not_whole(directory, kind);
        whole = whole && pair && complete;
    }
    if (template_exists(directory, list_kind::files) && !check.files.knows_time())
        complain(_("By its time the file template in %s will be saved only later: what has changed since "
                   "cannot be told"),
                 shown(directory).c_str());
    return after_output(!whole          ? not_whole
                        : check.changed ? has_changed
                        : check.unknown ? not_known
                                        : all_whole);
}

constexpr option options[] = {
    {"check", no_argument, nullptr, 'c'},
    {"null", no_argument, nullptr, '0'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {},
};

void print_usage(std::FILE *stream)
{
    std::fprintf(stream, "%s\n", _("Usage: tarnel-list [--check] [--null] [DIRECTORY]"));
}

} // namespace

int main(int argc, char **argv)
{
    std::setlocale(LC_ALL, "");
    bindtextdomain(TEXT_DOMAIN, "/usr/share/locale/");
    bool raw = false, check = false;
    for (int chosen; (chosen = getopt_long(argc, argv, "0", options, nullptr)) != -1;) {
        switch (chosen) {
        case 'c':
            check = true;
            break;
        case '0':
            raw = true;
            break;
        case 'h':
            print_usage(stdout);
            return all_whole;
        case 'V':
            std::puts("tarnel-list " TARNEL_VERSION);
            return all_whole;
        default: // getopt has said what is wrong
            print_usage(stderr);
            return wrong_usage;
        }
    }
    const char *named = std::getenv("PELVADB");
    const std::string directory = argc > optind ? argv[optind] : named ? named : default_template_directory;
    if (argc - optind > 1 || directory.empty()) {
        print_usage(stderr);
        return wrong_usage;
    }
    return check ? check_templates(directory, raw) : list_templates(directory, raw);
}
