// The firmware's numbering, and the lookups from a letter, a drive number or a sector.
#include "common/letters.h"

#include <array>
#include <gtest/gtest.h>
#include <numeric>
#include <sstream>

// Disks sda and md127 from the numbers of their partitions; 2 is the extended one. It has 1,000 sectors,
// others have 100; 4 ends with the last sector that 32 bits can count. On 3 is no file system.
static std::list<disk> make_disks(const std::string &numbers)
{
    constexpr std::array starts = {0U, 100U, 1000U, 3000U, ~99U, 1010U, 1200U};
    std::list<disk> disks(1);
    disks.front().name = "sda";
    for (const char c : numbers) {
        if (c == '|') {
            disks.emplace_back().name = "md127";
            continue;
        }
        part &p = disks.back().parts.emplace_back();
        p.letter = '?';
        p.index = c - '0';
        p.extended = p.index == 2;
        p.sect_before = starts.at(static_cast<std::size_t>(p.index));
        p.sect_total = p.extended ? 1000 : 100;
        p.fs_type = p.index == 3 ? "" : "ext4";
    }
    return disks;
}

TEST(letters, are_those_of_the_firmware_and_lead_to_partitions_as_sectors_do)
{
    std::string all(0x100 - 'C', 'C'); // they end, not repeat
    std::iota(all.begin(), all.end(), 'C');
    // The partitions, their letters, and sectors of the first disk with what they lead to: 0 for none.
    const std::tuple<std::string, std::string, const char *> cases[] = {
        {"12356|13", "C-GEFDH", "1010 2 3000 3"},
        {"134256|1", "CEF-GHD", "4294967195 0 4294967196 4 4294967295 4"},
        {"215|15||36", "-FECGDH", ""},
        {"1256", "C-DE", "99 0 100 1 199 1 200 0 1000 2 1009 2 1010 5 1110 2 1200 6 1999 2 2000 0"},
        {"12|" + std::string(all.size() + 1, '1'), "C-" + all.substr(1) + "--", "1500 2"},
    };
    for (const auto &[numbers, expected, lookups] : cases) {
        std::list<disk> disks = make_disks(numbers);
        assign_letters(disks);
        std::string letters;
        for (disk &d : disks)
            for (part &p : d.parts) {
                letters += p.letter ? p.letter : '-';
                EXPECT_EQ(find_part_by_label(disks, p.letter), p.letter && p.index != 3 ? &p : nullptr);
            }
        EXPECT_EQ(letters, expected) << numbers;
        std::istringstream words(lookups);
        std::uint32_t sector;
        for (int index; words >> sector >> index;) {
            const part *p = find_part_by_sector(disks.front().parts, sector);
            EXPECT_EQ(p ? p->index : 0, index) << numbers << ", sector " << sector;
        }
    }
}

TEST(letters, sectors_have_bounds)
{
    std::list<disk> disks = make_disks("1256|1");
    disks.front().length = disks.back().length = 0x1'0000'0000;
    std::istringstream words("sda 4294967295 0  sda 4294967296 1  sda -1 1  sda5 99 0  sda5 100 1  sdz -1 0 "
                             "sda5 -1 1  sda9 -1 0  md127 -1 1  md127p1 99 0  md127p1 100 1");
    std::string name;
    std::int64_t sector;
    for (bool outside; words >> name >> sector >> outside;)
        EXPECT_EQ(check_sector_range(disks, name, sector), outside) << name << " " << sector;
}
