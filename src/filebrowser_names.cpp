#include "filebrowser_names.h"

#include "common/disk.h"
#include "common/mount.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace {

// Names on FAT are the same when their characters are, without regard to case, one by one: no letter counts
// as two there. What is no UTF-8 is folded in its Latin letters only.
std::string fold_name(const std::string &name)
{
    std::string folded;
    if (!g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr)) {
        std::ranges::transform(name, std::back_inserter(folded), g_ascii_toupper);
        return folded;
    }
    for (const char *at = name.c_str(); *at; at = g_utf8_next_char(at)) {
        std::array<char, 6> bytes;
        const gint length = g_unichar_to_utf8(g_unichar_toupper(g_utf8_get_char(at)), bytes.data());
        folded.append(bytes.data(), static_cast<std::size_t>(length));
    }
    return folded;
}

bool is_on_fat(const file_node &row)
{
    return row.mount && row.mount->partition && is_fat_fs(*row.mount->partition);
}

} // namespace

// The place where the order of the rows puts the name. Among the directories, and then among the files, that
// is often the one behind the last that was found.
file_node *row_names::find_by_order(const file_node &row, const std::string &name) const
{
    const auto &children = row.children;
    const auto before = [&name](const auto &child) {
        return std::strcoll(child->name.c_str(), name.c_str()) < 0;
    };
    const bool goes_on = last_ && last_->parent == &row && last_->name != name;
    const auto likely = goes_on ? children.begin() + last_->position + 1 : children.end();
    const auto files =
        std::ranges::partition_point(children, [](const auto &child) { return child->is_dir(); });
    for (const auto &[from, to] : {std::pair(children.begin(), files), std::pair(files, children.end())}) {
        if (likely >= from && likely < to && (*likely)->name == name)
            return likely->get();
        // The directories, and then the files, stand in the order of this comparison.
        const auto place = std::partition_point(from, to, before);
        if (place != to && (*place)->name == name)
            return place->get();
    }
    return nullptr;
}

const row_names::children_by_name &row_names::children_of(const file_node &row)
{
    std::size_t level = 0;
    for (const file_node *up = row.parent; up; up = up->parent)
        ++level;
    levels_.resize(std::max(levels_.size(), level + 1));
    children_by_name &known = levels_[level];
    if (known.row == &row && known.count == row.children.size())
        return known;
    known = {.row = &row, .count = row.children.size(), .exact = {}, .folded = {}};
    for (const auto &child : row.children) {
        known.exact.try_emplace(child->name, child.get());
        known.folded.try_emplace(fold_name(child->name), child.get());
    }
    return known;
}

file_node *row_names::find(const file_node &row, const std::string &name)
{
    if (file_node *found = find_by_order(row, name)) {
        last_ = found;
        return found;
    }
    // Where the C library's collation contradicts itself, as it may on bytes that are no text, only the
    // search of all rows is sure.
    if (!is_on_fat(row)) {
        const auto found = std::ranges::find(
            row.children, name, [](const auto &child) -> const std::string & { return child->name; });
        return found == row.children.end() ? nullptr : found->get();
    }
    const children_by_name &children = children_of(row);
    auto found = children.exact.find(name);
    if (found != children.exact.end())
        return found->second;
    found = children.folded.find(fold_name(name));
    return found == children.folded.end() ? nullptr : found->second;
}

file_node *find_child(const file_node &row, const std::string &name)
{
    return row_names().find(row, name);
}
