#include "common/board.h"

#include "common/host.h"
#include "common/owned.h"
#include "trace_log.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace {

// What the library answered, as a child sends it through a pipe.
struct board_answer {
    int result = -1; // of the function that was asked
    pelva_version version{};
};

enum class question { presence, version };

// A library that hangs does not hold the start up for longer.
constexpr unsigned patience_seconds = 10;

// In the child: looking at the file first would not do. What is damaged may crash the loader, a constructor,
// or as late as in a call the function that touches what is gone. Nothing when this is no library, or not the
// board's.
std::optional<board_answer> ask_library(const char *library, question asked)
{
    void *const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return std::nullopt;
    const auto present = reinterpret_cast<int (*)()>(dlsym(handle, "pvisCard"));
    const auto get_version = reinterpret_cast<int (*)(pelva_version *)>(dlsym(handle, "pvGetVersion"));
    if (asked == question::presence ? !present : !get_version)
        return std::nullopt;
    board_answer answer;
    // A library may want to find its board before it is asked for more.
    if (present)
        answer.result = present();
    if (asked == question::version)
        answer.result = get_version(&answer.version);
    return answer;
}

[[noreturn]] void answer_and_exit(int pipe, const char *library, question asked)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM})
        std::signal(number, SIG_DFL);
    prctl(PR_SET_DUMPABLE, 0); // no core file
    alarm(patience_seconds);
    const std::optional<board_answer> answer = ask_library(library, asked);
    const bool sent = answer && write(pipe, &*answer, sizeof(*answer)) == sizeof(*answer);
    _exit(sent ? 0 : 1);
}

std::optional<board_answer> receive(int pipe)
{
    std::array<char, sizeof(board_answer)> bytes;
    ssize_t got;
    do {
        got = read(pipe, bytes.data(), bytes.size()); // a pipe hands so little over in one piece
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(bytes.size()))
        return std::nullopt;
    board_answer answer;
    std::memcpy(&answer, bytes.data(), bytes.size());
    return answer;
}

std::optional<board_answer> ask_in_child(const std::string &library, question asked)
{
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return std::nullopt;
    const owned_fd from_child(ends[0]);
    owned_fd to_parent(ends[1]);
    const pid_t child = fork();
    if (child == 0)
        answer_and_exit(to_parent.get(), library.c_str(), asked);
    to_parent.reset();
    if (child < 0)
        return std::nullopt;
    const std::optional<board_answer> answer = receive(from_child.get());
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status))
        trace_log("%s is damaged: signal %d", library.c_str(), WTERMSIG(status));
    return answer;
}

board_answer ask(question asked)
{
    // Where the board's package installs its library, which is not always on the loader's own path.
    for (const std::string &library : {std::string("libpelva.so"), host_path("/usr/lib64/libpelva.so"),
                                       host_path("/usr/lib/libpelva.so")}) {
        const bool searched = library.find('/') == std::string::npos;
        if (!searched && access(library.c_str(), F_OK) != 0)
            continue;
        if (const std::optional<board_answer> answer = ask_in_child(library, asked))
            return *answer;
    }
    return {};
}

} // namespace

int pvisCard()
{
    return ask(question::presence).result;
}

int pvGetVersion(pelva_version *version)
{
    const board_answer answer = ask(question::version);
    if (answer.result == 0)
        *version = answer.version;
    return answer.result;
}
