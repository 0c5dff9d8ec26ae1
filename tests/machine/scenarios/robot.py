"""Starts the installed tool, looks at its windows through the probe, and presses real buttons and keys (XTest)."""

import collections
import glob
import os
import pathlib
import re
import subprocess
import time

SHARE = "/share"
TEMPLATES = "/boot/pelva"
LOCK = "/var/lock/gtk-tarnel"
LOG = "/var/log/gtk-tarnel"
REQUESTS, ANSWER = pathlib.Path("/run/probe"), pathlib.Path("/run/look")
MOUNTS = pathlib.Path("/proc/mounts")
AS_USER = "setpriv --reuid=1000 --regid=1000 --clear-groups env HOME=/home/user"
MAIN = "Pelva integrity-check templates"
# How much longer than a machine that starts in 10 s this one may take for everything.
PATIENCE = max(1, float(os.environ.get("MACHINE_STARTED", "0")) / 10)

# A widget or a row, as the probe describes it.
Item = collections.namedtuple("Item", "window name image text x y width height expanded")


def check_equal(seen, expected, what):
    assert seen == expected, f"{what}: {seen!r} instead of {expected!r}"


def wait(condition, what):
    """The condition's first true value; polls, for nothing tells us when the tool has done its work."""
    end = time.monotonic() + 60 * PATIENCE
    while not (value := condition()):
        assert time.monotonic() < end, f"not seen within {60 * PATIENCE:.0f} s: {what}"
        time.sleep(0.02)
    return value


def shell(command):
    return subprocess.check_output(command, shell=True, timeout=60 * PATIENCE).decode(errors="surrogateescape")


def output(name):
    return pathlib.Path(f"/run/tool.{name}").read_text(errors="surrogateescape")


class Tool:
    """The tool, started."""

    def __init__(self, *command, **environment):
        shell(f"rm -f {REQUESTS} {ANSWER}; mkfifo {REQUESTS}; echo 'gtk-modules=\"/share/probe.so\"' >/root/.gtkrc-2.0")
        self.requests = os.open(REQUESTS, os.O_RDWR)  # requests stay there until the tool reads them
        with open("/run/tool.out", "wb") as out, open("/run/tool.err", "wb") as err:
            self.process = subprocess.Popen(command or ["gtk-tarnel"], stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                                            env={**os.environ, "TRACE_PELVA": "1", **environment})

    def look(self):
        """What is on the screen; nothing, once the tool has ended."""
        os.write(self.requests, f"{ANSWER}\n".encode())
        wait(lambda: ANSWER.exists() or self.process.poll() is not None, "an answer of the probe")
        told = ANSWER.read_text(errors="surrogateescape") if ANSWER.exists() else ""
        ANSWER.unlink(missing_ok=True)
        items = [item.split("\x1f") for item in told.split("\x1e")[:-1]]
        return [Item(*fields[:4], *map(int, fields[4:9])) for fields in items]

    def find(self, **wanted):
        """The first item like that, or None; of a window's items this is the window."""
        return next((item for item in self.look() if wanted.items() <= item._asdict().items()), None)

    def picture(self, name):
        os.write(self.requests, f"{SHARE}/{name}.png\n".encode())
        self.look()  # is answered afterwards

    def wait_window(self, title):
        """Waits for the window in its place: a window manager moves it when it opens."""
        def place(pause):
            time.sleep(pause)
            return self.find(window=title)
        wait(lambda: (seen := place(0)) and seen == place(0.1), f'window "{title}"')

    def wait_closed(self, title):
        wait(lambda: not self.find(window=title), f'window "{title}" closed')

    def click(self, item, button=1):
        shell(f"xdotool mousemove {item.x + item.width // 2} {item.y + item.height // 2} click {button}")

    def push(self, name):
        self.click(wait(lambda: self.find(name=name), name))

    def press(self, *keys):
        shell(f"xdotool key --clearmodifiers {' '.join(keys)}")

    def show(self, *names, tree="filebrowser"):
        """Scrolls with the wheel until a row is in view, below the header, and returns it."""
        def shown():
            row, view = self.find(name=tree, text="\n".join(names)), self.find(name=tree)
            if row and view.y + row.height <= row.y <= view.y + view.height - row.height:
                return row
            return row and self.click(view, 5 if row.y > view.y + row.height else 4)
        return wait(shown, f"row {names!r}")

    def expand(self, *names, tree="filebrowser"):
        """Opens a row, and before it those above it, with clicks on the arrows."""
        for path in (names[:depth + 1] for depth in range(len(names))):
            if not (row := self.show(*path, tree=tree)).expanded:
                shell(f"xdotool mousemove {row.x - 10} {row.y + row.height // 2} click 1")
            wait(lambda path=path: self.show(*path, tree=tree).expanded, f"row {path!r} open")

    def mark(self, *names, tree="filebrowser"):
        """Flips a row's mark with the right button and waits for its image to tell."""
        self.expand(*names[:-1], tree=tree)
        row = self.show(*names, tree=tree)
        self.click(row, 3)
        wait(lambda: self.show(*names, tree=tree).image != row.image, f"another image at {names!r}")

    def answer(self, title, text, button):
        """Waits for a dialog, checks what it says, and presses one of its buttons."""
        self.wait_window(title)
        assert self.find(window=title, text=text), f'"{title}" does not say {text!r}'
        self.click(self.find(window=title, text=button))
        self.wait_closed(title)

    def start(self):
        """Takes the warning away and waits for the main window."""
        self.answer("Warning", "Pelva device is not found.", "OK")
        self.wait_window(MAIN)

    def close(self):
        # A window that goes while xdotool looks at it ends the search.
        search = f"timeout 60 xdotool search --name '^{MAIN}$' windowfocus --sync 2>/dev/null"
        wait(lambda: os.system(search) == 0, "the focus")
        self.press("alt+F4")

    def wait_end(self, status=0):
        check_equal(self.process.wait(60 * PATIENCE), status, "exit status")
        assert "/tmp/tarnel" not in MOUNTS.read_text(), f"still mounted:\n{MOUNTS.read_text()}"
        check_equal(glob.glob("/tmp/tarnel*"), [], "left in /tmp")
        assert not os.path.exists(LOG), f"{LOG} was not removed"
        check_equal(re.findall(".*-(?:WARNING|CRITICAL) \\*\\*.*", output("err")), [], "warnings of the libraries")


def restore():
    """Puts the machine back in order behind a scenario, whatever became of it."""
    shell(f"pkill -KILL -x gtk-tarnel; {AS_USER} xhost +; "
          "tac /proc/mounts | cut -d ' ' -f 2 | grep -E '^/(tmp|mnt)/' | xargs -r -n 1 umount -l; "
          f"rm -rf --one-file-system /tmp/tarnel* {LOCK} {TEMPLATES}; mkdir {TEMPLATES}")
