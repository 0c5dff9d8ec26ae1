// The firmware's numbering, and the lookups from a letter, a name, a device number or a sector.
#include "common/letters.h"

#include <array>
#include <gtest/gtest.h>
#include <sstream>

namespace {

// Disks sda, sdb, ... from their partition numbers, separated by "|". A number of 5 and up is a logical
// drive; "x" marks the extended partition, "s" one without a supported file system. A partition has 100
// sectors, an extended one 1,000; 4 ends with the last sector that 32 bits can count.
std::list<disk> make_disks(const std::string &text)
{
    std::list<disk> disks;
    disks.emplace_back().name = "sda";
    disks.front().length = 5000;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const std::string name = disks.back().name;
        if (word == "|") {
            disks.emplace_back().name = "sd" + std::string(1, static_cast<char>(name.back() + 1));
            continue;
        }
        part &p = disks.back().parts.emplace_back();
        p.device = name;
        p.index = std::stoi(word);
        p.extended = word.back() == 'x';
        p.letter = '?';
        p.sect_before =
            std::array{0U, 100U, 1000U, 3000U, ~99U, 1010U, 1200U}[static_cast<unsigned>(p.index % 7)];
        p.sect_total = p.extended ? 1000 : 100;
        if (!p.extended && word.back() != 's')
            p.fs_type = "ext4";
    }
    return disks;
}

TEST(letters, are_those_of_the_firmware)
{
    const std::pair<const char *, const char *> cases[] = {
        {"1 2x 3 5 6 | 1 2", "C-GEFDH"}, {"1 2x 5 6", "C-DE"}, {"1 2x 3", "C-D"},
        {"1 2 3 4x 5 6 | 1", "CEF-GHD"}, {"1x 2 5", "-DC"},    {"2s 3x 4 5s", "C-ED"},
        {"| 1 5 | | 3 7", "CEDF"},
    };
    for (const auto &[numbers, expected] : cases) {
        std::list<disk> disks = make_disks(numbers);
        assign_letters(disks);
        std::string letters;
        for (const disk &d : disks) {
            for (const part &p : d.parts)
                letters += p.letter ? p.letter : '-';
        }
        EXPECT_EQ(letters, expected) << numbers;
    }
    std::list<disk> disks = make_disks("");
    disks.front().parts.resize(300);
    for (part &p : disks.front().parts)
        p.fs_type = "ext4";
    assign_letters(disks);
    int running = 'C';
    for (const part &p : disks.front().parts) {
        EXPECT_EQ(p.letter, running > 0xff ? '\0' : static_cast<char>(running)) << "they end, not repeat";
        EXPECT_EQ(find_part_by_label(disks, p.letter), p.letter ? &p : nullptr);
        running++;
    }
}

TEST(letters, and_names_and_numbers_lead_to_partitions)
{
    std::list<disk> disks = make_disks("1 126 127s | 1x");
    assign_letters(disks);
    disks.back().parts.front().letter = 'Z';
    for (const char *array : {"md0", "md127"}) {
        disk &d = disks.emplace_front(make_disks("1").front());
        d.name = d.parts.front().device = array;
        d.parts.front().letter = 0;
    }
    // What is looked up; what is found, "@", and the disk that is reported.
    const char *const cases =
        "C sda1@sda  Z sdb1@sdb  E -@sda  Y -@sdb  B -@-  sda1 sda1@sda  sdb1 sdb1@sdb "
        "sda127 -@sda  sda1269 sda126@sda  sda -@sda  sdaa1 -@-  md0p1 -@-  md127p1 md127p1@md127";
    std::istringstream words(cases);
    for (std::string name, found; words >> name >> found;) {
        disk *owner = &disks.back();
        const part *p = name.size() == 1 ? find_part_by_label(disks, name[0], &owner)
                                         : find_part_by_name(disks, name, &owner);
        EXPECT_EQ((p ? partition_name(*p) : "-") + "@" + (owner ? owner->name : "-"), found) << name;
    }
    part &last = disks.back().parts.back();
    last.dev = 0x1'0000'0805;
    EXPECT_EQ(find_part_for_file(disks, last.dev), &last);
    EXPECT_EQ(find_part_for_file(disks, 0x805), nullptr);
    disks.back().drive_number = 0x81;
    EXPECT_EQ(find_disk_by_number(disks, 0x81), &disks.back());
    EXPECT_EQ(find_disk_by_number(disks, 0x82), nullptr);
}

TEST(letters, sectors_lead_to_partitions_and_have_bounds)
{
    const std::pair<const char *, const char *> cases[] = {
        {"1 2x 5 6",
         "0:0 99:0 100:1 199:1 200:0 1000:2 1009:2 1010:5 1110:2 1199:2 1200:6 1300:2 1999:2 2000:0"},
        {"1 2x", "1500:2"},
        {"1 2x 3 5 6", "1010:2 3000:3"},
        {"4", "4294967195:0 4294967196:4 4294967295:4"},
    };
    for (const auto &[numbers, lookups] : cases) {
        std::list<disk> disks = make_disks(numbers);
        std::istringstream words(lookups);
        std::uint32_t sector;
        int index; // 0 for none
        for (char colon; words >> sector >> colon >> index;) {
            const part *p = find_part_by_sector(disks.front().parts, sector);
            EXPECT_EQ(p ? p->index : 0, index) << numbers << ", sector " << sector;
        }
    }
    std::list<disk> disks = make_disks("1 2x 5 6");
    for (const char *array : {"md0", "md127"})
        disks.emplace_back(make_disks("1").front()).name = array;
    const char *const answers[] = {
        "sda 0 sda 4999 sda5 0 sda5 99 sda2 999 sda9 -1 sdz -1 md0 4999 md0p1 99 md127p1 99 md127p7 -1",
        "sda 5000 sda -1 sda5 100 sda5 -2147483648 sda2 1000 md0 5000 md0p1 100 md127p1 -1 md127 5000",
    };
    for (const int outside : {0, 1}) {
        std::istringstream words(answers[outside]);
        std::int32_t sector;
        for (std::string name; words >> name >> sector;)
            EXPECT_EQ(check_sector_range(disks, name, sector), outside) << name << " " << sector;
    }
    disks.front().length = disks.front().parts.front().sect_total = 0x1'0000'0000;
    EXPECT_EQ(check_sector_range(disks, "sda1", UINT32_MAX) + check_sector_range(disks, "sda", UINT32_MAX),
              0);
}

} // namespace
