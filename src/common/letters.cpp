#include "common/letters.h"

#include "trace_log.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <iterator>

namespace {

// Hands out the letters in their order. After the last value of a character comes none: a second 'C' would
// name the wrong partition.
class letter_sequence {
public:
    void give(const disk &owner, part &p)
    {
        if (next_ > 0xff) {
            p.letter = 0;
            return;
        }
        p.letter = static_cast<char>(next_++);
        trace_log("device = %s index = %d letter = %c", owner.name.c_str(), p.index, p.letter);
    }

private:
    int next_ = 'C';
};

// The logical drives take their letters at the place of their extended partition, ahead of a primary
// partition that follows it.
void letter_logical_drives(letter_sequence &letters, disk &owner, std::list<part>::iterator extended)
{
    trace_log("Find extended partition: %s%d", extended->device.c_str(), extended->index);
    auto first =
        std::find_if(std::next(extended), owner.parts.end(), [](const part &p) { return p.index >= 5; });
    std::for_each(first, owner.parts.end(), [&](part &p) { letters.give(owner, p); });
}

// A disk name and a partition number; 0 when the name has no number.
struct parsed_name {
    std::string device;
    int number = 0;
};

constexpr int max_device_name = 5;

parsed_name parse_sd_name(const std::string &name)
{
    std::array<char, max_device_name + 1> device{};
    parsed_name parsed;
    std::sscanf(name.c_str(), "%5[^0-9]%3d", device.data(), &parsed.number);
    parsed.device = device.data();
    return parsed;
}

// The greedy "%5s" takes array names of five characters apart only: md127p1, but not md0p1.
parsed_name parse_md_name(const std::string &name)
{
    std::array<char, max_device_name + 1> device{};
    char separator = 0;
    parsed_name parsed;
    std::sscanf(name.c_str(), "%5s%c%3d", device.data(), &separator, &parsed.number);
    parsed.device = device.data();
    return parsed;
}

// An array of any length of name: md0, md0p1, md127p1.
parsed_name parse_array_name(const std::string &name)
{
    parsed_name parsed{name.substr(0, name.find('p'))};
    std::sscanf(name.c_str() + parsed.device.size(), "p%3d", &parsed.number);
    return parsed;
}

bool is_valid_device(const std::string &name)
{
    return ((name.starts_with("sd") || name.starts_with("hd")) && name.size() == 3) ||
           (name.starts_with("md") && name.size() == 5);
}

part *find_named(std::list<disk> &disks, const parsed_name &wanted, disk **owner)
{
    for (disk &d : disks) {
        if (d.name != wanted.device)
            continue;
        if (owner)
            *owner = &d;
        for (part &p : d.parts) {
            if (p.index == wanted.number)
                return &p;
        }
    }
    return nullptr;
}

part *find_lettered(std::list<disk> &disks, char letter, disk **owner)
{
    for (disk &d : disks) {
        if (owner)
            *owner = &d;
        for (part &p : d.parts) {
            if (p.letter == letter)
                return &p;
        }
    }
    return nullptr;
}

} // namespace

void assign_letters(std::list<disk> &disks)
{
    letter_sequence letters;
    for (disk &d : disks) {
        for (part &p : d.parts)
            p.letter = 0;
        if (!d.parts.empty() && !d.parts.front().extended)
            letters.give(d, d.parts.front());
    }
    for (disk &d : disks) {
        for (auto p = d.parts.begin(); p != d.parts.end(); ++p) {
            if (!p->letter && !p->extended)
                letters.give(d, *p);
            else if (p->extended)
                letter_logical_drives(letters, d, p);
        }
    }
}

part *find_part_by_label(std::list<disk> &disks, char letter, disk **owner)
{
    trace_log("Enter *");
    if (owner)
        *owner = nullptr;
    // Letters run on behind 'Z', up to 0xFF.
    const bool is_letter = static_cast<unsigned char>(letter) >= 'C';
    part *found = is_letter ? find_lettered(disks, letter, owner) : nullptr;
    if (found) {
        trace_log("The partition label %c was defined", letter);
        if (found->extended) {
            trace_log("Find extended partiton");
            return found;
        }
        if (is_supported_fs(*found))
            return found;
        trace_log("Unsupported partition type");
    }
    trace_log("Wrong device label: %c", letter);
    return nullptr;
}

part *find_part_by_name(std::list<disk> &disks, const std::string &name, disk **owner)
{
    if (owner)
        *owner = nullptr;
    const parsed_name wanted = name.starts_with("md") ? parse_md_name(name) : parse_sd_name(name);
    part *found = is_valid_device(wanted.device) ? find_named(disks, wanted, owner) : nullptr;
    if (found) {
        trace_log("The partition %s%d was defined", wanted.device.c_str(), wanted.number);
        if (found->extended) {
            trace_log("find extended partiton");
            return found;
        }
        if (is_supported_fs(*found))
            return found;
    }
    trace_log("Wrong device name: %s", name.c_str());
    return nullptr;
}

part *find_part_for_file(std::list<disk> &disks, std::uint64_t dev)
{
    for (disk &d : disks) {
        for (part &p : d.parts) {
            if (p.dev != dev)
                continue;
            trace_log("The partition %s%d was defined", p.device.c_str(), p.index);
            trace_log("Success");
            return &p;
        }
    }
    trace_log("Unuccess.");
    return nullptr;
}

part *find_part_by_sector(std::list<part> &parts, std::uint32_t sector)
{
    part *extended = nullptr;
    for (auto p = parts.begin(); p != parts.end(); ++p) {
        if (p->sect_before > sector || sector - p->sect_before >= p->sect_total)
            continue;
        const auto next = std::next(p);
        if (p->extended && (next == parts.end() || next->sect_before > sector))
            return &*p;
        trace_log("sect_before = %" PRIu64 " pt->sect_total = %" PRIu64, p->sect_before, p->sect_total);
        trace_log("index = %d", p->index);
        if (!p->extended)
            return &*p;
        if (!extended)
            extended = &*p;
    }
    return extended;
}

disk *find_disk_by_number(std::list<disk> &disks, std::uint32_t drive_number)
{
    const auto found = std::ranges::find(disks, drive_number, &disk::drive_number);
    return found == disks.end() ? nullptr : &*found;
}

bool check_sector_range(const std::list<disk> &disks, const std::string &name, std::int64_t sector)
{
    const parsed_name wanted = name.starts_with("md") ? parse_array_name(name) : parse_sd_name(name);
    bool outside = false;
    for (const disk &d : disks) {
        if (d.name != wanted.device)
            continue;
        if (wanted.number == 0)
            return sector < 0 || static_cast<std::uint64_t>(sector) >= d.length;
        const auto p = std::ranges::find(d.parts, wanted.number, &part::index);
        if (p != d.parts.end())
            outside = sector < 0 || static_cast<std::uint64_t>(sector) >= p->sect_total;
    }
    return outside;
}
