// A FAT32 volume in a file, with one large directory.
#pragma once

#include <string>

// Fills a fresh volume with the directory DIR of so many empty files, "File of the directory 00001.txt" with
// the short name F00001~1.TXT and so on. mtools takes minutes for that.
[[nodiscard]] bool fill_fat_image(const std::string &image, int files);
