// Apart from the rest: only who asks for kinds of files loads the library that knows them.
#include "common/filesystem.h"

#include "trace_log.h"

#include <magic.h>
#include <memory>
#include <type_traits>

namespace {

struct magic_closer {
    void operator()(magic_t cookie) const { magic_close(cookie); }
};
using owned_magic = std::unique_ptr<std::remove_pointer_t<magic_t>, magic_closer>;

} // namespace

bool check_mime_type(const std::string &path, const std::string &expected)
{
    trace_log("* Enter");
    bool answer = false;
    const owned_magic cookie(magic_open(MAGIC_MIME | MAGIC_SYMLINK));
    if (cookie && magic_load(cookie.get(), nullptr) == 0) {
        // Null when the file cannot be read.
        const char *description = magic_file(cookie.get(), path.c_str());
        trace_log("textual description of %s : %s", path.c_str(), description ? description : "");
        answer = description && std::string_view(description).find(expected) != std::string_view::npos;
    }
    trace_log("* Exit");
    return answer;
}
