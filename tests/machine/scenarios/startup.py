"""Start-up and shutdown: who may run it, what stops it, what it leaves behind."""

import glob
import os
import pathlib
import re
import signal

from marking import save, take_default_sectors
from robot import AS_USER, LOCK, MOUNTS, TEMPLATES, Tool, check_equal, output, shell, wait

# What the firmware of this machine would see: the system disk first, arrays before disks, members and the stick hidden.
LETTERS = {"C:sdb-1", "D:md0-1", "E:sda-1", "F:sdc-2", "G:md0-2", "H:sda-5", "I:sda-6", "J:sda-7", "K:sda-3", "L:sda-4",
           "M:sdc-3"}
MOUNTED = {"md0p1": "ext2", "md0p2": "vfat", "sda1": "vfat", "sda3": "vfat", "sda5": "ext3", "sda6": "fuseblk",
           "sdc2": "vfat", "sdc3": "vfat"}


def check_mounted(what):
    check_equal(dict(re.findall(r"/dev/\S+ /tmp/tarnel\d+/(\S+) (\S+) ", MOUNTS.read_text())), MOUNTED, what)


def state():
    """Sums of the disks that the system does not run from, and its mounts on them"""
    shell("sync; echo 3 >/proc/sys/vm/drop_caches")  # a partition's cache is not that of its disk
    return shell("cksum /dev/sd[acdef]; grep ' /mnt/' /proc/mounts || true").splitlines()


def refused():
    """It says why it does not start: not as root, without its lock file; a user's link there is no reason"""
    shell(f"rm -f {LOCK} && mkdir {LOCK}")
    for command, message in ((f"{AS_USER} gtk-tarnel", "Only root can run this program\n"),
                             ("gtk-tarnel", f"Cannot open the lock file {LOCK}: Is a directory\n")):
        Tool(*command.split()).wait_end(1)
        check_equal((output("out"), output("err")), ("", message), "messages")
    shell(f"rmdir {LOCK}; chmod 1777 /run/lock; {AS_USER} ln -s /root/made {LOCK}")
    Tool("gtk-tarnel", PELVADB="/no/such/directory").wait_end(1)
    check_equal((os.path.exists("/root/made"), os.lstat(LOCK).st_mode, os.lstat(LOCK).st_uid), (False, 0o100600, 0), LOCK)


def killed():
    """A second copy leaves the first one alone; the next start removes what a killed one left mounted, on disks as they were"""
    before = state()
    first = Tool(ENABLE_REMOVABLE="1")
    first.start()
    letters = re.findall(r"device = (\S+) index = (\d+) letter = (.)$", output("err"), re.M)
    check_equal({f"{letter}:{disk}-{number}" for disk, number, letter in letters}, LETTERS, "letters")
    check_equal(shell("gtk-tarnel 2>&1"), "Application gtk-tarnel is already running\n", "the second copy")
    check_mounted("mounts beside a second copy")
    left = glob.glob("/tmp/tarnel*")[0]
    first.process.kill()
    first.process.wait()
    check_equal(state(), before, "disks after a kill")
    tool = Tool("bash", "-o", "pipefail", "-c", "gtk-tarnel 2>&1 | head -n 1")  # the reader of its messages goes away
    tool.start()
    assert not os.path.exists(left), f"{left} stands"
    check_mounted("mounts after a kill")
    tool.close()
    tool.wait_end()


def changes_nothing():
    """What is clean keeps every byte, over a session, and mounts stay; a disk may want the kernel to panic"""
    # One mounted for writing, one so that it shows no more than a part; one with an orphan that cannot be.
    shell("cp /dev/sdg /run/sdg; echo 64,8M,83 | sfdisk -q /dev/sdg; mke2fs -q -t ext4 -e panic /dev/sdg1; "
          "debugfs -w -R 'set_super_value last_orphan 9' /dev/sdg1 2>&1; mkdir -p /mnt/fat /mnt/whole /mnt/part; "
          "mount /dev/md0p2 /mnt/fat; mount /dev/sda1 /mnt/whole; mount --bind /mnt/whole/EFI /mnt/part; umount /mnt/whole")
    before = state()
    tool = Tool()
    tool.start()
    mounts = dict(re.findall(r"/dev/(\S+) /tmp/tarnel\S+ \S+ (\w+),nosuid,nodev,noexec,", MOUNTS.read_text()))
    ours = MOUNTED.keys() - {"md0p2"}
    check_equal(mounts, dict.fromkeys(ours, "ro") | {"sda1": "rw"}, "mounts")
    take_default_sectors(tool)
    save(tool, "sectors")
    tool.push("tab_files")
    for name in sorted(ours | {"md0p2"}):
        tool.mark(f"/dev/{name}")
        wait(lambda: output("err").count("mark_recursive] * Enter") == output("err").count("mark_recursive] * Success"), name)
    save(tool, "files")
    wait(lambda: sorted(os.listdir(TEMPLATES))[0] == "bootfile.chk", "the end of the save")  # nothing beside the pairs
    tool.close()
    tool.wait_end()
    assert os.path.getsize(f"{TEMPLATES}/bootfile.nam") > 7000 * 256, "not all of it was saved"
    assert b"\x84\x40\0\0\0" in pathlib.Path(f"{TEMPLATES}/bootsect.nam").read_bytes(), "no boot sector of sdg1"
    check_equal(state(), before, "disks and mounts after a session")
    shell("cp /run/sdg /dev/sdg; blockdev --rereadpt /dev/sdg")


def signalled():
    """Signals end it through its cleanup: while it mounts, and over the question about unsaved marks"""
    def end_by(number):
        os.killpg(tool.process.pid, number)  # as from a terminal
        tool.wait_end(128 + number)
        check_equal(os.listdir(TEMPLATES), [], "templates")

    tool = Tool("setsid", "gtk-tarnel")
    wait(lambda: "/tmp/tarnel" in MOUNTS.read_text(), "the first mount")
    end_by(signal.SIGINT)
    tool = Tool("setsid", "sh", "-c", "exec gtk-tarnel <&- >&- 2>&-")  # not even standard streams
    tool.start()
    tool.push("tab_sectors")
    tool.mark("/dev/sdb", "Master boot record", tree="diskbrowser")
    tool.close()
    tool.wait_window("Confirm")
    end_by(signal.SIGHUP)


def launched():
    """The launcher starts it as root for a user, passes language and display, and takes back the access to the screen"""
    pathlib.Path("/etc/polkit-1/rules.d/10-user.rules").write_text("""polkit.addRule(function(action, subject) {
        if (action.id == "org.gtk-tarnel.start" && subject.user == "user") return polkit.Result.YES; });""")
    shell("mkdir -p /run/dbus; dbus-uuidgen --ensure; dbus-daemon --system >/run/dbus/out 2>&1; "
          "/usr/lib/polkit-1/polkitd >/run/polkit.out 2>&1 &")
    wait(lambda: "PolicyKit1" in shell("dbus-send --system --print-reply --dest=org.freedesktop.DBus / "
                                       "org.freedesktop.DBus.ListNames"), "polkit")
    shell(f"for access in +si:localuser:user - -si:localuser:root; do {AS_USER} xhost $access; done")  # nobody else
    tool = Tool(*AS_USER.split(), "PELVADB=/tmp", "tarnel", LANG="ru_RU.UTF-8")
    tool.wait_window("Предупреждение")
    passed = set(pathlib.Path(f"/proc/{int(shell('pgrep -x gtk-tarnel'))}/environ").read_text().split("\0"))
    assert {"DISPLAY=:0", "LANG=ru_RU.UTF-8"} <= passed and "PELVADB=/tmp" not in passed, passed
    tool.press("Return")
    tool.wait_window("Шаблоны контроля целостности Pelva")
    tool.press("alt+F4")
    tool.wait_end()
    assert "localuser:root" not in shell(f"{AS_USER} xhost"), "root may still use the screen"
