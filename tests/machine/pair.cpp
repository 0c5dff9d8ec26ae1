// Saves and recoveries of template pairs, for scenarios that do many of them (ctypes).
#include "common/template_pair.h"

#include <vector>

extern "C" void recover(const char *directory)
{
    recover_templates(directory);
}

// `count` file records, all of the byte `text`. Whether they were saved.
extern "C" bool save(const char *directory, unsigned count, unsigned char text)
{
    const auto pair = open_template_pair(directory, list_kind::files);
    bool written = !pair->error && write_template_headers(*pair, "D:\\pelva\\", count);
    for (unsigned i = 0; i < count; ++i)
        written = written && write_template_record(*pair, std::vector<std::uint8_t>(file_record_size, text));
    return written && replace_template(*pair);
}
