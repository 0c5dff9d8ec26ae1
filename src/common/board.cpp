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
#include <functional>
#include <optional>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace {

// Travels through a pipe as its bytes.
static_assert(std::is_trivially_copyable_v<board_answer>);

// A library that hangs does not hold the start up for longer.
constexpr unsigned patience_seconds = 10;

// In the child: looking at the file first would not do. What is damaged may crash the loader, a constructor,
// or as late as in a call the function that touches what is gone. False when this is no library, or not the
// board's; else an answer is sent as soon as it is known whether there is a board, and one with the version.
bool ask_library(const char *library, int pipe)
{
    void *const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return false;
    const auto present = reinterpret_cast<int (*)()>(dlsym(handle, "pvisCard"));
    const auto get_version = reinterpret_cast<int (*)(pelva_version *)>(dlsym(handle, "pvGetVersion"));
    if (!present)
        return false;
    const auto send = [pipe](const board_answer &answer) {
        return write(pipe, &answer, sizeof(answer)) == sizeof(answer);
    };
    board_answer answer;
    answer.present = present() == 0;
    if (!send(answer))
        return false;
    pelva_version version{};
    if (!answer.present || !get_version || get_version(&version) != 0)
        return true;
    answer.has_version = true;
    answer.version = version;
    return send(answer);
}

// A child of its own: nothing of it is left when this process ends, and no core file.
void settle_child(pid_t parent)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM})
        std::signal(number, SIG_DFL);
    prctl(PR_SET_DUMPABLE, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(1);
}

// The last answer of those that were sent.
std::optional<board_answer> receive(int pipe)
{
    std::optional<board_answer> last;
    std::array<char, sizeof(board_answer)> bytes;
    for (;;) {
        const ssize_t got = read(pipe, bytes.data(), bytes.size()); // so little is handed over in one piece
        if (got < 0 && errno == EINTR)
            continue;
        if (got != static_cast<ssize_t>(bytes.size()))
            return last;
        std::memcpy(&last.emplace(), bytes.data(), bytes.size());
    }
}

// Starts a child that does the work, which is given the pipe to this process, and succeeds or fails.
board_question start_child(const std::function<bool(int)> &work)
{
    board_question started;
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return started;
    started.from_child = owned_fd(ends[0]);
    const owned_fd to_parent(ends[1]);
    const pid_t parent = getpid();
    started.child = fork();
    if (started.child == 0) {
        settle_child(parent);
        _exit(work(to_parent.get()) ? 0 : 1);
    }
    return started;
}

// What the child sent, when it has ended.
std::optional<board_answer> hear_child(const board_question &asked, int &status)
{
    if (asked.child < 0)
        return std::nullopt;
    const std::optional<board_answer> answer = receive(asked.from_child.get());
    while (waitpid(asked.child, &status, 0) < 0 && errno == EINTR) {
    }
    return answer;
}

// In the child: each library is asked in another one, since the next is to be asked when it is damaged.
board_answer ask_libraries()
{
    // Where the board's package installs its library, which is not always on the loader's own path.
    for (const std::string &library : {std::string("libpelva.so"), host_path("/usr/lib64/libpelva.so"),
                                       host_path("/usr/lib/libpelva.so")}) {
        const bool searched = library.find('/') == std::string::npos;
        if (!searched && access(library.c_str(), F_OK) != 0)
            continue;
        const board_question asked = start_child([&library](int pipe) {
            alarm(patience_seconds);
            return ask_library(library.c_str(), pipe);
        });
        int status = 0;
        const std::optional<board_answer> answer = hear_child(asked, status);
        if (WIFSIGNALED(status))
            trace_log("%s is damaged: signal %d", library.c_str(), WTERMSIG(status));
        if (answer)
            return *answer;
    }
    return {};
}

} // namespace

board_question ask_board()
{
    return start_child([](int pipe) {
        const board_answer answer = ask_libraries();
        return write(pipe, &answer, sizeof(answer)) == sizeof(answer);
    });
}

board_answer hear_board(board_question asked)
{
    int status = 0;
    return hear_child(asked, status).value_or(board_answer());
}
