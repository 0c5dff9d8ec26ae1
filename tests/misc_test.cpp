// The start, and the commands that it runs: they come to their end, and what they leave behind can be ended.
#include "common/misc.h"

#include "common/background.h"
#include "common/environment.h"
#include "common/host.h"
#include "common/lock_file.h"
#include "common/process.h"
#include "support.h"

#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace testing;

// A machine with one disk and one partition, which is not really mounted: the template directory lies on the
// same device as the directory that shows its files.
TEST(app_init, names_the_template_directory_as_the_firmware_does)
{
    const scratch_directory scratch;
    const replaced_host host(scratch.path());
    recorded_commands shell;
    environment record;
    shell.status = [&](const std::string &command) {
        if (command.starts_with("mount ") && fs::remove(record.tmpdir + "/sda1"))
            fs::create_directory_symlink(scratch.path(), record.tmpdir + "/sda1");
        return 0;
    };
    // The result, and what goes to standard error.
    const auto start = [&](const std::string &template_directory) {
        record = environment();
        setenv("PELVADB", template_directory.c_str(), 1);
        internal::CaptureStderr();
        const int result = app_init(&record);
        fs::remove_all(record.tmpdir);
        EXPECT_EQ(std::getenv("PELVA_PATH"), template_directory);
        return std::to_string(result) + internal::GetCapturedStderr();
    };
    scratch.write("proc/partitions", "major minor  #blocks  name\n\n   8        0       8192 sda\n");
    scratch.write("sys/block/sda/removable", "0\n");
    fs::permissions(scratch.write("tmp/tarnel1/sda1", "").parent_path(), fs::perms::owner_all); // a leftover
    setenv("IMAGE", scratch.write("dev/sda", "").c_str(), 1);
    const std::string here = fs::canonical(scratch.path()),
                      directory = scratch.write("boot/pelva/file", "").parent_path(),
                      ext = "ext4 -q -F -E offset=1048576 $IMAGE 7168",
                      fat = "fat -F 16 -s 1 --offset 2048 $IMAGE 7168";
    fs::create_directory_symlink("boot", here + "/link");
    // The mount's directory, what it shows of its file system, the template directory, how records name it.
    const std::tuple<std::string, std::string, std::string, std::string, std::string> samples[] = {
        {ext, "/", "/", directory, directory + "/"},
        {ext, here + "/boot", "/", directory, "/pelva/"},
        {fat, directory, "/", directory, "\\"},
        {fat, here + "/bo", "/", directory, directory + "\\"},
        {fat, here + "/boot", "/", here + "/link/.//pelva/", "/pelva\\"},
        {ext, here + "/boot", "/a", directory, "/a/pelva/"},
    };
    for (const auto &[file_system, mount_directory, root, given, expected] : samples) {
        run_tool("truncate -s 8M $IMAGE && echo '2048,,83' | sfdisk -q $IMAGE && mkfs." + file_system);
        std::string mounts = "1 1 8:2 / / rw - x x rw\n2 1 8:1 ";
        mounts.append(root).append(" ").append(mount_directory).append(" rw - x x rw\n");
        scratch.write("proc/self/mountinfo", mounts);
        ASSERT_EQ(start(given), "0");
        EXPECT_EQ(record.short_path + record.separator, expected);
        EXPECT_EQ(record.pelva_db_mt->letter, 'C');
    }
    shell.commands.clear();
    fs::create_directory(here + "/tmp/tarnel2"); // not private, and so foreign, like a link
    fs::create_directory_symlink("tarnel1", here + "/tmp/tarnel3");
    fs::create_directory(here + "/tmp/tarnel1/md_$(id)");

    fs::current_path(here);
    for (const std::string &path : {std::string("tmp"), directory + "/file", here + "/no/pelva"})
        EXPECT_THAT(start(path), AllOf(StartsWith("1"), HasSubstr(path[0] == '/' ? path : '"' + path + '"')));
    EXPECT_THAT(shell.commands,
                AllOf(SizeIs(3 * 3), Each(HasSubstr(" /tmp/tarnel1")), Not(Contains(HasSubstr("*")))));
    EXPECT_THAT(shell.commands, Contains("umount /tmp/tarnel1/sda1 2>/dev/null").Times(3));
    run_tool("sgdisk -Z $IMAGE; sgdisk -n 1 $IMAGE");
    EXPECT_THAT(start(directory), ContainsRegex("that the board can read.*\n.*on GPT disks: sda1\\."));
    scratch.write("sys/block/nvme0n1/device", "");
    scratch.write("proc/partitions", "\n\n 259 0 8192 nvme0n1\n 8 0 8192 sdb\n");
    EXPECT_THAT(start(directory),
                MatchesRegex("1No disks[^\n]*\n[^\n]*nvme0n1 .NVMe., sdb .removable.\\.\n"));
}

TEST(background, keeps_what_it_traces_until_it_is_finished)
{
    trace_enabled = 1;
    internal::CaptureStderr();
    {
        background first([] {
            background inner([] { trace_log("inner"); });
            trace_log("first");
            inner.finish();
        });
        const background second([] { trace_log("second"); }); // finished by its end
        EXPECT_TRUE(first.has_begun());
        trace_log("here");
        first.finish();
        trace_log("finished");
    }
    trace_enabled = 0;
    EXPECT_THAT(internal::GetCapturedStderr(), MatchesRegex("[^\n]* here\n[^\n]* first\n[^\n]* inner\n[^\n]* "
                                                            "finished\n[^\n]* second\n"));
}

TEST(lock_file, is_root_s_own_whatever_others_put_in_its_place)
{
    const scratch_directory scratch;
    const std::string lock = scratch.path() / "lock";
    scratch.write("other", "");
    for (const std::string command : {":", "ln -s other lock", "ln -s none lock", "mkfifo lock",
                                      "touch lock; chmod 606 lock", "touch lock; chown 1:1 lock || :"}) {
        run_tool("cd " + scratch.path().string() + "; rm -f lock; " + command);
        const owned_fd file = open_lock_file(lock);
        struct stat named = {};
        EXPECT_TRUE(file && lstat(lock.c_str(), &named) == 0) << command;
        EXPECT_TRUE(named.st_mode == (S_IFREG | 0600U) && named.st_uid == geteuid()) << command;
        EXPECT_EQ(fs::canonical("/proc/self/fd/" + std::to_string(file.get())), fs::canonical(lock))
            << command;
    }
    EXPECT_FALSE(open_lock_file(scratch.path())) << "no file can be made";
    EXPECT_FALSE(fs::exists(scratch.path() / "none"));
}

TEST(host, commands_start_clean_and_outlive_what_the_terminal_sends)
{
    const scratch_directory scratch;
    fs::permissions(scratch.write("lsblk", "#!/bin/sh\nexit 99"), fs::perms::owner_all);
    setenv("PATH", scratch.path().c_str(), 1);
    settle_process();
    setpgid(0, 0); // the shell's parent leads the group that the terminal's signals go to
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGPIPE})
        std::signal(number, SIG_IGN);
    const std::pair<const char *, int> cases[] = {
        {"for s in HUP INT TERM; do kill -s $s -- -$PPID; done; exit 5", 5},
        {"[ $(grep -cE '^Sig(Ign|Blk):.*0000000$' /proc/self/status) = 2 ]", 0},
        {"read answer", 1},
        {"kill -KILL $$", -1},
        {"lsblk --version >/dev/null", 0},
    };
    for (const auto &[command, status] : cases)
        EXPECT_EQ(run_command(command), status) << command;
}
