#include "common/iconvert.h"

#include "trace_log.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <map>
#include <sys/stat.h>

namespace {

constexpr std::size_t buffer_size = 4096;

class converter {
public:
    converter(const char *target, const char *source) : descriptor_(iconv_open(target, source)) {}
    ~converter()
    {
        if (*this)
            iconv_close(descriptor_);
    }
    converter(const converter &) = delete;
    converter &operator=(const converter &) = delete;

    explicit operator bool() const
    {
        // NOLINTNEXTLINE: iconv's own mark of a failed opening.
        return descriptor_ != reinterpret_cast<iconv_t>(-1);
    }
    iconv_t descriptor() const { return descriptor_; }

private:
    iconv_t descriptor_;
};

// Opened once for each pair of code sets: opening loads a module of the C library, closing drops it again,
// and both take far longer than a file name's conversion. Null, with errno set, when there is no such
// conversion.
const converter *find_converter(const char *target, const char *source)
{
    static std::map<std::pair<std::string, std::string>, converter> opened;
    const auto [found, added] =
        opened.try_emplace(std::pair<std::string, std::string>(target, source), target, source);
    if (found->second) {
        iconv(found->second.descriptor(), nullptr, nullptr, nullptr, nullptr);
        return &found->second;
    }
    const int error = errno;
    opened.erase(found);
    errno = error;
    return nullptr;
}

// The bytes before the first zero 16-bit unit; a pair of zeros at an odd offset is half of two characters.
std::size_t utf16_length(std::string_view text)
{
    std::size_t length = 0;
    while (length + 1 < text.size() && (text[length] || text[length + 1]))
        length += 2;
    return length + 1 < text.size() ? length : text.size();
}

bool leads_to_directory(const char *path)
{
    struct stat status;
    return lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

std::optional<std::string> pvl_iconv(std::string_view text, const char *source, const char *target)
{
    if (!text.data()) {
        trace_log("Convert %s from %s to %s", "(null)", source, target);
        return std::nullopt;
    }
    const bool utf16 = std::strstr(source, "utf-16") != nullptr;
    std::string input(text.substr(0, utf16 ? utf16_length(text) : text.find('\0')));
    trace_log("Convert %s from %s to %s", input.c_str(), source, target);
    const converter *const conversion = find_converter(target, source);
    if (!conversion) {
        trace_log("iconv_open failed: %s", std::strerror(errno));
        return std::nullopt;
    }
    if (utf16)
        trace_log("utf-16 length = %d", static_cast<int>(input.size()));

    // Zeroed, and never filled to its last byte, so that the text in it always ends.
    std::array<char, buffer_size> buffer{};
    char *in = input.data();
    char *out = buffer.data();
    std::size_t in_left = input.size();
    std::size_t out_left = buffer.size() - 1;
    trace_log("code = %s len = %d", source, static_cast<int>(in_left));
    trace_log("inbuf =%s, inbytesleft = %d , outbuf =%s, outbytesleft = %d", in, static_cast<int>(in_left),
              out, static_cast<int>(out_left));
    errno = 0;
    const std::size_t changes = iconv(conversion->descriptor(), &in, &in_left, &out, &out_left);
    const int error = changes == static_cast<std::size_t>(-1) ? errno : 0;
    if (error)
        trace_log("iconv failed: %s", std::strerror(error));
    trace_log("Number of changes byte = %d", static_cast<int>(changes));
    trace_log("Max number write bytes = %d", static_cast<int>(buffer.size() - 1));
    trace_log("after convert: buf = %s (%d)", buffer.data(), static_cast<int>(std::strlen(buffer.data())));
    trace_log("inbuf =%s, inbytesleft = %d , outbuf = %s, outbytesleft = %d", in, static_cast<int>(in_left),
              out, static_cast<int>(out_left));
    if (error) {
        trace_log("iconv error: %d", error);
        return std::nullopt;
    }
    std::string result = buffer.data();
    trace_log("r = %p buf = %s (%d)", static_cast<const void *>(result.data()), result.c_str(),
              static_cast<int>(result.size()));
    return result;
}

void replace_symbols(std::string &text, char find, char put)
{
    trace_log("Replace %c to %c in %s", find, put, text.c_str());
    for (char &symbol : text) {
        if (symbol != find)
            continue;
        trace_log("Find slash... (%c)", find);
        symbol = put;
    }
    trace_log("Finish replase");
    trace_log("Convert: %s", text.c_str());
}

void replace_backslash(std::string &path)
{
    trace_log("Replace \\ to / in %s", path.c_str());
    if (path.size() >= buffer_size) {
        trace_log("Path is too long: %zu bytes", path.size());
        return;
    }
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] != '\\' || (i > 0 && path[i - 1] == '/'))
            continue;
        path[i] = '\0'; // what stands before it is the directory to look for
        path[i] = leads_to_directory(i == 0 ? "/" : path.c_str()) ? '/' : '\\';
    }
    trace_log("Convert: %s", path.c_str());
}
