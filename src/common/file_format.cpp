#include "common/file_format.h"

#include "common/bytes.h"
#include "trace_log.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <sys/stat.h>

namespace {

constexpr std::string_view name_magic = "SNON";
constexpr std::string_view check_magic = "SNCV";

// Offsets in both headers; those from 0x118 on differ between the two files.
constexpr std::size_t kind_offset = 0x10C;
constexpr std::size_t count_offset = 0x110;
constexpr std::size_t record_size_offset = 0x114;
constexpr std::size_t name_path_offset = 0x128; // check header only
constexpr std::size_t name_path_size = 128;     // with its NUL

std::array<std::uint8_t, 4> to_le32(std::uint32_t value)
{
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
            static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

void put_le32(template_header &header, std::size_t offset, std::uint32_t value)
{
    std::ranges::copy(to_le32(value), header.begin() + static_cast<std::ptrdiff_t>(offset));
}

void put_text(template_header &header, std::size_t offset, std::string_view text)
{
    std::ranges::copy(text, header.begin() + static_cast<std::ptrdiff_t>(offset));
}

template_header common_header(std::string_view magic, std::uint32_t count, list_kind kind)
{
    template_header header{};
    put_text(header, 0x000, magic);
    put_le32(header, 0x004, 1);
    put_le32(header, 0x008, 7);
    put_le32(header, 0x00C, 1);
    put_le32(header, 0x054, 1);
    put_le32(header, 0x09C, 1);
    put_le32(header, kind_offset, static_cast<std::uint32_t>(kind));
    put_le32(header, count_offset, count);
    put_le32(header, record_size_offset, layout_of(kind).record_size);
    return header;
}

template_header check_header(std::uint32_t count, list_kind kind, std::string_view name_path)
{
    template_header header = common_header(check_magic, count, kind);
    put_le32(header, 0x118, 7);
    put_le32(header, 0x11C, 1);
    put_le32(header, 0x120, 3);
    put_le32(header, 0x124, 1);
    put_text(header, name_path_offset, name_path);
    put_le32(header, 0x1A8, 1);
    return header;
}

template_header name_header(std::uint32_t count, list_kind kind)
{
    template_header header = common_header(name_magic, count, kind);
    header[0x11C] = 0xFF;
    return header;
}

bool write_header(std::FILE *stream, const template_header &header)
{
    const std::size_t written = std::fwrite(header.data(), 1, header.size(), stream);
    if (written == header.size())
        return true;
    trace_log("Write failed (written %d bytes instead %d)", static_cast<int>(written),
              static_cast<int>(header.size()));
    trace_log("* Fail");
    return false;
}

bool read_header(std::FILE *stream, std::string_view magic, template_header &header)
{
    if (!stream || std::fread(header.data(), 1, header.size(), stream) != header.size()) {
        trace_log("Read error");
        return false;
    }
    if (!std::equal(magic.begin(), magic.end(), header.begin())) {
        trace_log("Corrupted file");
        return false;
    }
    return true;
}

// What both lists do before their first record. Returns 0 with the name file open behind its header, -1 or
// -2.
int open_list(const std::string &directory, list_kind kind, owned_file &nam, std::uint32_t &count)
{
    const template_layout layout = layout_of(kind);
    nam = open_template_file(AT_FDCWD, directory + "/" + layout.name_file);
    if (!nam) {
        trace_log("Cannot open %s/%s", directory.c_str(), layout.name_file);
        return -1;
    }
    const owned_file chk = open_template_file(AT_FDCWD, directory + "/" + layout.check_file);
    if (chk)
        trace_log("CHK file seems to be correct");
    else
        trace_log("WARNING: cannot open %s/%s", directory.c_str(), layout.check_file);
    template_header nam_header{};
    template_header chk_header{};
    if (!read_structures(nam.get(), chk.get(), nam_header, chk_header)) {
        trace_log("Error on read_structures");
        return -2;
    }
    count = fields_of(nam_header).count;
    return 0;
}

void warn_of_trailing_data(std::FILE *nam, const std::string &directory, list_kind kind)
{
    if (std::fgetc(nam) != EOF)
        trace_log("WARNING: %s/%s contains unhandled data at end of file", directory.c_str(),
                  layout_of(kind).name_file);
}

enum class record_state { read, damaged, beyond_the_end };

// Reads record number `i` into the buffer, of which the last byte stays NUL. Behind a damaged one the stream
// stands at the next record.
record_state read_file_record(std::FILE *nam, std::uint32_t i, std::array<char, file_record_size + 1> &buffer)
{
    trace_log("Reading record #%d", static_cast<int>(i));
    if (std::fread(buffer.data(), 1, file_record_size, nam) == file_record_size)
        return record_state::read;
    if (std::feof(nam)) {
        trace_log("Unexpected end of file on %d-th record", static_cast<int>(i));
        return record_state::beyond_the_end;
    }
    trace_log("Read error on %d-th record", static_cast<int>(i));
    // The records behind a damaged block are still found at their places. A damaged device must not hold the
    // start up for as many records as a header may claim, so the file's length ends the list here too.
    std::clearerr(nam);
    const std::uint64_t next = (std::uint64_t{i} + 1) * file_record_size;
    return next <= body_size(nam).value_or(0) &&
                   fseeko(nam, static_cast<off_t>(template_header_size + next), SEEK_SET) == 0
               ? record_state::damaged
               : record_state::beyond_the_end;
}

// Reads records until the list or the file ends, or a callback stops it. The number of the record it got to.
std::uint32_t pass_records(std::FILE *nam, std::uint32_t count, record_callback on_record, void *user,
                           unread_callback on_unread)
{
    std::array<char, file_record_size + 1> buffer{};
    for (std::uint32_t i = 0; i < count; ++i) {
        const record_state state = read_file_record(nam, i, buffer);
        if (state != record_state::read) {
            const bool ended = state == record_state::beyond_the_end;
            if (on_unread)
                on_unread(i, ended ? count - 1 : i, user);
            if (ended)
                return i;
            continue;
        }
        trace_log("fread ok");
        trace_log("Record #%d: %s", static_cast<int>(i), buffer.data());
        if (on_record(buffer.data(), user) != 0)
            return i;
    }
    return count;
}

} // namespace

template_layout layout_of(list_kind kind)
{
    return kind == list_kind::files ? template_layout{"bootfile.nam", "bootfile.chk", file_record_size}
                                    : template_layout{"bootsect.nam", "bootsect.chk", sizeof(sector_record)};
}

template_fields fields_of(const template_header &header)
{
    return {le32(header, kind_offset), le32(header, count_offset), le32(header, record_size_offset)};
}

sector_record make_sector_record(std::uint32_t drive_number, std::uint32_t sector)
{
    return {static_cast<std::uint8_t>(drive_number), to_le32(sector)};
}

std::uint32_t sector_of(const sector_record &record)
{
    return le32(record.little_endian, 0);
}

std::optional<std::string> template_name_path(const std::string &directory_path, list_kind kind)
{
    std::string path = directory_path + layout_of(kind).name_file;
    if (path.size() >= name_path_size) {
        trace_log("Name path is too long (max length is %d): %s", static_cast<int>(name_path_size - 1),
                  path.c_str());
        return std::nullopt;
    }
    return path;
}

bool fill_structures(std::FILE *nam, std::FILE *chk, const std::string &directory_path, std::uint32_t count,
                     list_kind kind)
{
    trace_log("* Enter (nObjects=%d)", static_cast<int>(count));
    const std::optional<std::string> name_path = template_name_path(directory_path, kind);
    if (!name_path) {
        trace_log("* Fail");
        return false;
    }
    trace_log("Writing headers: %d bytes", static_cast<int>(template_header_size));
    if (!write_header(nam, name_header(count, kind)) ||
        !write_header(chk, check_header(count, kind, *name_path)))
        return false;
    trace_log("* Success");
    return true;
}

bool rewrite_record_count(std::FILE *stream, std::uint32_t count)
{
    const auto bytes = to_le32(count);
    return fseeko(stream, count_offset, SEEK_SET) == 0 &&
           std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
}

bool read_structures(std::FILE *nam, std::FILE *chk, template_header &nam_header, template_header &chk_header)
{
    return read_header(nam, name_magic, nam_header) && read_header(chk, check_magic, chk_header);
}

std::optional<bool> is_whole_pair(std::FILE *nam, const template_header &nam_header, std::FILE *chk,
                                  const template_header &chk_header, list_kind kind)
{
    const template_fields fields = fields_of(nam_header);
    const template_fields expected = {static_cast<std::uint32_t>(kind), fields.count,
                                      layout_of(kind).record_size};
    const std::optional<std::uint64_t> nam_size = body_size(nam), chk_size = body_size(chk);
    if (!nam_size || !chk_size)
        return std::nullopt;
    return fields == expected && fields_of(chk_header) == expected &&
           nam_size == std::uint64_t{fields.count} * fields.record_size &&
           chk_size == std::uint64_t{fields.count} * check_value_size;
}

int read_file_list(const std::string &directory, count_callback on_count, record_callback on_record,
                   void *user, unread_callback on_unread)
{
    owned_file nam;
    std::uint32_t count = 0;
    if (const int failure = open_list(directory, list_kind::files, nam, count))
        return failure;
    trace_log("%s contains %u file names", layout_of(list_kind::files).name_file, count);
    if (on_count)
        on_count(count, user);
    const bool all = pass_records(nam.get(), count, on_record, user, on_unread) == count;
    trace_log("Test for unread data");
    if (all)
        warn_of_trailing_data(nam.get(), directory, list_kind::files);
    trace_log("* Success");
    return 0;
}

std::unique_ptr<sector_record[]> read_sector_list(const std::string &directory, std::uint32_t &count)
{
    owned_file nam;
    if (open_list(directory, list_kind::sectors, nam, count) != 0)
        return nullptr;
    trace_log("%s contains %u sectors", layout_of(list_kind::sectors).name_file, count);

    // What a header claims is allocated only when the file is long enough to hold it.
    std::unique_ptr<sector_record[]> records;
    const bool held = std::uint64_t{count} * sizeof(sector_record) <= body_size(nam.get()).value_or(0);
    if (held)
        records.reset(new (std::nothrow) sector_record[count]());
    if (held && !records) {
        trace_log("Cannot allocate %u sectors", count);
        return nullptr;
    }
    if (!held || std::fread(records.get(), sizeof(sector_record), count, nam.get()) != count) {
        trace_log("Read error");
        return nullptr;
    }
    warn_of_trailing_data(nam.get(), directory, list_kind::sectors);
    trace_log("* Success");
    return records;
}

bool template_exists(const std::string &directory, list_kind kind)
{
    const template_layout layout = layout_of(kind);
    struct stat status = {};
    return lstat((directory + "/" + layout.name_file).c_str(), &status) == 0 ||
           lstat((directory + "/" + layout.check_file).c_str(), &status) == 0;
}

owned_file open_template_file(int directory, const std::string &name, int flags)
{
    owned_fd fd(openat(directory, name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags));
    struct stat status = {};
    if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    owned_file stream(fdopen(fd.get(), "rb"));
    if (stream)
        fd.release();
    return stream;
}

std::optional<std::uint64_t> body_size(std::FILE *stream)
{
    struct stat status = {};
    if (fstat(fileno(stream), &status) != 0)
        return std::nullopt;
    if (status.st_size < static_cast<off_t>(template_header_size))
        return 0;
    return static_cast<std::uint64_t>(status.st_size) - template_header_size;
}
