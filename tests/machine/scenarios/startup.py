"""Start-up and shutdown: who may run it, what stops it, what it leaves behind."""

import contextlib
import glob
import os
import re
import signal
import subprocess

from robot import (LOCK, LOG, MAIN, PATIENCE, SHARE, TEMPLATES, Tool, check, check_equal, check_left_nothing, mounts, run_tool, shell,
                   wait)

GLADE = next(file for file in glob.glob("/usr/share/gtk-tarnel/gtk-tarnel.*") if file.endswith((".glade", ".ui")))
MINE = re.compile(r"/dev/(\S+) /tmp/tarnel\d+/(\S+) (\S+) ")

# What the firmware of this machine would see: the system disk first, arrays before disks, members and the stick hidden.
DISKS = ["sdb", "md0", "sda", "sdc", "sdg"]
LETTERS = {"sdb1": "C", "md0p1": "D", "sda1": "E", "sdc2": "F", "md0p2": "G", "sda5": "H", "sda6": "I", "sda7": "J",
           "sda3": "K", "sda4": "L", "sdc3": "M"}
MOUNTED = {"md0p1": "ext2", "md0p2": "vfat", "sda1": "vfat", "sda3": "vfat", "sda5": "ext3", "sda6": "fuseblk",
           "sdc2": "vfat", "sdc3": "vfat"}


def check_ended(status, out, err, trace=True, **arguments):
    check_equal(run_tool(trace=trace, **arguments), status, "exit status")
    check_equal(Tool.output("out"), out, "standard output")
    if err is not None:
        check_equal(Tool.output("err"), err, "standard error")


def not_root():
    """Only root can run it"""
    check_ended(1, "", "Only root can run this program\n",
                command=["setpriv", "--reuid=65534", "--clear-groups", "gtk-tarnel"])
    check_left_nothing()


def no_lock():
    """A lock file that cannot be opened ends it; without a terminal the launcher shows the reason in a window"""
    if os.path.exists(LOCK):
        os.unlink(LOCK)
    os.mkdir(LOCK)
    try:
        check_ended(1, "", f"Cannot open the lock file {LOCK}: Is a directory\n")
        launcher = Tool(trace=False, command=["tarnel"])
        launcher.wait_window(MAIN)
        launcher.press("Escape")
        check_equal(launcher.wait_end(), 1, "exit status")
    finally:
        os.rmdir(LOCK)


def second_copy():
    """A second copy ends and leaves the first one alone"""
    first = Tool()
    first.start()
    shell(f"echo log >{LOG}")
    before = mounts()
    second = subprocess.run(["gtk-tarnel"], capture_output=True, check=False, timeout=60 * PATIENCE)
    check_equal((second.returncode, second.stdout, second.stderr),
                (0, b"", b"Application gtk-tarnel is already running\n"), "the second copy")
    check_equal(mounts(), before, "mounts")
    check(os.path.exists(LOG), "the second copy removed the log file")
    check(first.look().window(MAIN), "the first copy's window is gone")
    first.quit()
    check(os.path.exists(LOCK), "the lock file is gone")


@contextlib.contextmanager
def only_disks(*names):
    """While it lasts, the kernel names no other disks, which saves the time of the others."""
    with open("/tmp/partitions", "w", encoding="utf-8") as file:
        file.write("major minor  #blocks  name\n\n" + "".join(f"   8  0  100000 {name}\n" for name in names))
    shell("mount --bind /tmp/partitions /proc/partitions")
    try:
        yield
    finally:
        shell("umount /proc/partitions")


@contextlib.contextmanager
def damaged_glade(name):
    """While it lasts, a widget has another name in the window description; a name of "" takes the file away."""
    with open(GLADE, encoding="utf-8") as file:
        text = file.read()
    check(f'id="{name}"' in text or not name, f"no {name} in the description")
    try:
        os.unlink(GLADE)
        if name:
            with open(GLADE, "w", encoding="utf-8") as file:
                file.write(text[:len(text) // 2] if name == "window" else text.replace(f'id="{name}"', f'id="my_{name}"'))
        yield
    finally:
        with open(GLADE, "w", encoding="utf-8") as file:
            file.write(text)


def damaged_windows():
    """A window description that is missing, cut short or lacks a widget ends it, with everything unmounted"""
    for name in ("", "window", "progressbar", "filebrowser", "diskbrowser", "total_sectors_selected", "sector_report",
                 "report_save_button"):
        with damaged_glade(name), only_disks("sdb", "md0"):
            check_ended(1, "Cannot initialize file browser, aborting\n" if name == "filebrowser" else "", None)
        check_left_nothing()


def no_board():
    """The missing board is told before the main window, which opens after it; closing ends it cleanly"""
    shell(f"echo log >{LOG}")
    tool = Tool()
    look = tool.wait_window("Warning")
    check_equal([window.title for window in look.windows], ["Warning"], "windows")
    check_equal(look.texts("Warning"), ["Pelva device is not found.", "OK"], "texts")
    check("Pelva device is not found" in tool.trace(), "not traced")
    tool.press("Escape")
    tool.wait_window(MAIN)
    tool.picture("main")
    tool.quit()
    check_equal(Tool.output("out"), "Delete event occurred\nDestroy signal was sent\n", "standard output")


def killed():
    """The next start removes what a killed one left mounted; a file system's daemon ends when it is told to"""
    tool = Tool()
    tool.start()
    tool.process.kill()
    tool.process.wait(30)
    left = glob.glob("/tmp/tarnel*")
    check_equal({name: kind for name, _, kind in MINE.findall(mounts())}, MOUNTED, "mounts left by the kill")
    tool = Tool()
    tool.start()
    check(not os.path.exists(left[0]), f"{left[0]} stands")
    check_equal({directory: kind for _, directory, kind in MINE.findall(mounts())}, MOUNTED, "mounts")
    shell("pkill -TERM -x mount.ntfs-3g")
    wait(lambda: "sda6" not in mounts(), "the end of the NTFS daemon")
    tool.quit()


def standard_streams():
    """It runs without standard streams, and when the reader of its messages goes away"""
    for command in ("exec gtk-tarnel <&- >&- 2>&-", "gtk-tarnel 2>&1 | head -n 1"):
        tool = Tool(command=["sh", "-c", command])
        tool.start()
        tool.quit()


def signalled():
    """Signals end it through its cleanup: while it mounts or reads, over a dialog, over unsaved marks and their question"""
    def mounting(_):
        wait(lambda: "/tmp/tarnel" in mounts(), "the first mount")

    def marked(tool):
        tool.start()
        tool.click(tool.look().widget("tab_sectors"))
        tool.expand("/dev/sdb", tree="diskbrowser")
        tool.mark("diskbrowser", "/dev/sdb", "Master boot record")

    def asking(tool):
        marked(tool)
        tool.close()
        tool.wait_window("Confirm")

    def reading(tool):
        tool.start()
        tool.expand("/dev/sda5")
        tool.click(tool.show("filebrowser", "/dev/sda5", "many files"), 3)
        wait(lambda: "/sda5/many files" in Tool.output("err"), "the reading of the directory")

    for number, reach in ((signal.SIGINT, mounting), (signal.SIGTERM, lambda tool: tool.wait_window("Warning")),
                          (signal.SIGTERM, reading), (signal.SIGHUP, marked), (signal.SIGTERM, asking)):
        tool = Tool(command=["setsid", "gtk-tarnel"])
        reach(tool)
        os.killpg(tool.process.pid, number)  # as from a terminal
        check_equal(tool.wait_end(), 128 + number, f"exit status after {number.name}")
        check_left_nothing()
        check_equal(os.listdir(TEMPLATES), [], "templates")


AS_USER = ["setpriv", "--reuid=1000", "--regid=1000", "--clear-groups", "env", "HOME=/home/user"]
TITLES = {"en_US.UTF-8": ("Warning", MAIN), "ru_RU.UTF-8": ("Предупреждение", "Шаблоны контроля целостности Pelva")}


def xhost(*arguments):
    return subprocess.run([*AS_USER, "xhost", *arguments], check=True, timeout=30 * PATIENCE, stdout=subprocess.PIPE).stdout.decode()


def authorise_user():
    """Starts polkit with a rule that lets "user" start the tool unasked; lets nobody else use the screen."""
    with open("/etc/polkit-1/rules.d/10-user.rules", "w", encoding="utf-8") as rules:
        rules.write('polkit.addRule(function(action, subject) { if (action.id == "org.gtk-tarnel.start" && '
                    'subject.user == "user") return polkit.Result.YES; });')
    os.makedirs("/run/dbus", exist_ok=True)
    shell("dbus-uuidgen --ensure; dbus-daemon --system >/run/dbus/out 2>&1")
    shell("/usr/lib/polkit-1/polkitd >/run/polkit.out 2>&1 &")
    wait(lambda: "PolicyKit1" in shell("dbus-send --system --print-reply --dest=org.freedesktop.DBus / "
                                       "org.freedesktop.DBus.ListNames"), "polkit")
    xhost("+si:localuser:user")
    xhost("-")
    xhost("-si:localuser:root")


def launched():
    """The launcher starts it as root for a user, passes language and display, and takes back the access to the screen"""
    with open("/root/.gtkrc-2.0", "w", encoding="utf-8") as settings:
        settings.write(f'gtk-modules="{SHARE}/probe.so"\n')
    for language, message in (("en_US.UTF-8", "There is no display. Start it from a graphical session."),
                              ("ru_RU.UTF-8", "Дисплей не найден. Запустите программу из графического сеанса.")):
        check_ended(1, "", f"tarnel: {message}\n", command=[*AS_USER, "DISPLAY=", "tarnel"], LANG=language)
    authorise_user()
    try:
        for language, (warning, title) in TITLES.items():
            tool = Tool(probe=False, trace=False, command=[*AS_USER, "PELVADB=/tmp", "tarnel"], LANG=language)
            tool.wait_window(warning)
            with open(f"/proc/{int(shell('pgrep -x gtk-tarnel'))}/environ", encoding="utf-8") as environment:
                passed = dict(line.split("=", 1) for line in environment.read().split("\0") if line)
            check_equal({name: passed.pop(name) for name in ("DISPLAY", "LANG")},
                        {"DISPLAY": ":0", "LANG": language}, "display and language")
            check_equal(sorted(passed), ["HOME", "LOGNAME", "PATH", "PKEXEC_UID", "USER", "XAUTHORITY"], "the rest")
            tool.press("Return")
            tool.wait_window(title)
            tool.picture(f"launched_{language[:2]}")
            tool.press("alt+F4")
            check_equal(tool.wait_end(), 0, "exit status")
            check("localuser:root" not in xhost(), "root may still use the screen")
            check_left_nothing()
    finally:
        xhost("+")
        os.unlink("/root/.gtkrc-2.0")


def discovery():
    """Disks, letters and mounts of this machine, and the template directory on a FAT volume"""
    os.makedirs("/mnt/fat", exist_ok=True)
    shell("mount -t vfat /dev/sda1 /mnt/fat && mkdir -p /mnt/fat/pelva")
    tool = Tool(PELVADB="/mnt/fat/pelva", ENABLE_REMOVABLE="1")
    tool.start()
    trace = tool.trace()
    check_equal([line[len("Found device: /dev/"):].split(";")[0] for line in trace if line.startswith("Found device")
                 and "sdf" not in line], DISKS, "disks")
    check("Device /dev/sdf is removable, skipping" in trace, "the stick was not skipped")
    check("Partition: /dev/sdc1 is not supported, skipping" in trace, "the Linux partition of the GPT disk was taken")
    found = {}
    for line in trace:
        match = re.fullmatch(r"device = (\S+) index = (\d+) letter = (.)", line)
        if match:
            found[match[1] + ("p" if match[1].startswith("md") else "") + match[2]] = match[3]
    check_equal(found, LETTERS, "letters")
    check_equal({directory: kind for _, directory, kind in MINE.findall(mounts())},
                {name: kind for name, kind in MOUNTED.items() if name != "sda1"}, "mounts")
    check("Short path for pelva device: E:/pelva" in trace, "the template directory on FAT is not named")
    tool.quit()
    check("/mnt/fat" in mounts(), "a volume that was mounted before is gone")
    shell("umount /mnt/fat")


SCENARIOS = [not_root, no_lock, second_copy, damaged_windows, no_board, killed, standard_streams,
             signalled, launched, discovery]
