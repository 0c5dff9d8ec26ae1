// The texts of /proc/mounts and /proc/self/mountinfo. Whoever may mount chooses most of their fields.
#include "common/mount_table.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <map>
#include <sys/sysmacros.h>
#include <utility>

namespace {

constexpr std::string_view blanks = " \t";

// Takes the next line off the front of the text, without its end.
std::string_view take_line(std::string_view &text)
{
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

// Takes the next field off the front of the line; empty when there is none.
std::string_view take_field(std::string_view &line)
{
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view field = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(field.size());
    return field;
}

// What "%1d" reads: one digit, blanks before it skipped.
bool take_digit(std::string_view &line)
{
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    if (line.empty() || line.front() < '0' || line.front() > '9')
        return false;
    line.remove_prefix(1);
    return true;
}

bool is_octal(char c)
{
    return c >= '0' && c <= '7';
}

// The kernel writes blank, tab, newline and back-slash as a back-slash and three octal digits.
std::string decode_octal(std::string_view field)
{
    std::string decoded;
    for (std::size_t i = 0; i < field.size(); i++) {
        if (field[i] == '\\' && i + 3 < field.size() && is_octal(field[i + 1]) && is_octal(field[i + 2]) &&
            is_octal(field[i + 3])) {
            const int code = (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
            if (code > 0 && code < 256) {
                decoded += static_cast<char>(code);
                i += 3;
                continue;
            }
        }
        decoded += field[i];
    }
    return decoded;
}

bool fits(std::string_view field, std::size_t longest)
{
    return !field.empty() && field.size() <= longest;
}

mount_data parse_mounts_line(std::string_view line)
{
    const std::string_view device = take_field(line);
    const std::string_view directory = take_field(line);
    const std::string_view type = take_field(line);
    const std::string_view options = take_field(line);
    mount_data mount;
    mount.device = decode_octal(device);
    mount.directory = decode_octal(directory);
    mount.type = decode_octal(type);
    mount.options = decode_octal(options);
    mount.complete = fits(device, 255) && fits(directory, 255) && fits(type, 15) && fits(options, 255) &&
                     take_digit(line) && take_digit(line);
    return mount;
}

// A line of mountinfo: a mount and its place in the tree of mounts.
struct mount_node {
    std::uint64_t id = 0;
    std::uint64_t parent = 0; // the mount on one of whose directories it is mounted
    mount_data mount;
};

// Takes the number before the delimiter off the front of the text. False when there is none.
template<typename number> bool take_number(std::string_view &text, char delimiter, number &value)
{
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest == end || *rest != delimiter)
        return false;
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()) + 1);
    return true;
}

// Takes the text before the next blank, which may be empty: a file system need have no name.
std::string_view take_text(std::string_view &line)
{
    const std::string_view field = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
    return field;
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue", with any number of fields
// before the dash. False when the line does not say where the mount is.
bool parse_mountinfo_line(std::string_view line, mount_node &node)
{
    mount_data &mount = node.mount;
    unsigned major = 0, minor = 0;
    if (!take_number(line, ' ', node.id) || !take_number(line, ' ', node.parent) ||
        !take_number(line, ':', major) || !take_number(line, ' ', minor))
        return false;
    mount.dev = makedev(major, minor);
    mount.root = decode_octal(take_text(line));
    mount.directory = decode_octal(take_text(line));
    if (mount.root.empty() || mount.directory.empty())
        return false;
    mount.options = decode_octal(take_text(line));
    while (!line.empty() && take_text(line) != "-") {
    }
    mount.type = decode_octal(take_text(line));
    mount.device = decode_octal(take_text(line));
    mount.options.append(",").append(decode_octal(line));
    mount.complete = !mount.type.empty();
    return true;
}

// The mounts by the mount below them and their directory.
using mount_places = std::map<std::pair<std::uint64_t, std::string_view>, const mount_node *>;

// No path leads to a mount when something else is mounted on a directory above it, on the same mount below.
bool is_covered(const mount_places &places, const mount_node &node)
{
    const std::string_view directory = node.mount.directory;
    if (directory != "/" && places.contains({node.parent, "/"}))
        return true;
    for (std::size_t slash = directory.find('/', 1); slash != std::string_view::npos;
         slash = directory.find('/', slash + 1)) {
        if (places.contains({node.parent, directory.substr(0, slash)}))
            return true;
    }
    return false;
}

mount_places places_of(std::vector<mount_node> &nodes)
{
    std::set<std::uint64_t> ids;
    for (mount_node &node : nodes)
        ids.insert(node.id);
    mount_places places;
    for (mount_node &node : nodes) {
        // The first of all mounts is its own parent. That of another one may be outside of what we see.
        if (node.parent == node.id || !ids.contains(node.parent))
            node.parent = ~std::uint64_t{0};
        else if (node.mount.directory == "/")
            continue; // mounted over our own "/", which every path starts below
        places[{node.parent, node.mount.directory}] = &node;
    }
    return places;
}

// The mounts that a path leads to, and that lie open there.
std::set<const mount_node *> visible_mounts(const mount_places &places)
{
    std::set<const mount_node *> visible;
    std::set<std::uint64_t> seen;
    std::vector<std::uint64_t> waiting = {~std::uint64_t{0}};
    while (!waiting.empty()) {
        const std::uint64_t parent = waiting.back();
        waiting.pop_back();
        if (!seen.insert(parent).second)
            continue;
        for (auto place = places.lower_bound({parent, ""});
             place != places.end() && place->first.first == parent; ++place) {
            const mount_node &node = *place->second;
            if (is_covered(places, node))
                continue;
            waiting.push_back(node.id);
            if (!places.contains({node.id, node.mount.directory}))
                visible.insert(&node);
        }
    }
    return visible;
}

mount_table table_of(std::vector<mount_data> lines)
{
    mount_table table;
    table.lines = std::move(lines);
    for (const mount_data &mount : table.lines)
        table.directories.push_back(mount.directory);
    std::ranges::sort(table.directories);
    table.directories.erase(std::unique(table.directories.begin(), table.directories.end()),
                            table.directories.end());
    return table;
}

} // namespace

mount_table parse_mounts(std::string_view text)
{
    std::vector<mount_data> lines;
    while (!text.empty()) {
        mount_data mount = parse_mounts_line(take_line(text));
        if (!mount.directory.empty())
            lines.push_back(std::move(mount));
    }
    return table_of(std::move(lines));
}

mount_table parse_mountinfo(std::string_view text)
{
    std::vector<mount_node> nodes;
    while (!text.empty()) {
        if (mount_node node; parse_mountinfo_line(take_line(text), node))
            nodes.push_back(std::move(node));
    }
    const std::set<const mount_node *> visible = visible_mounts(places_of(nodes));
    std::vector<mount_data> lines;
    for (mount_node &node : nodes) {
        if (visible.contains(&node))
            lines.push_back(std::move(node.mount));
    }
    return table_of(std::move(lines));
}
